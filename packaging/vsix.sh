#!/bin/bash
# packaging/vsix.sh - packs the extension for Visual Studio Code, with the client of the
# language server that it needs, so that it asks no network when it runs. Exit status 77 where
# no registry can be reached to install the packer and that client.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."

usage() {
    cat <<'END'
Usage: packaging/vsix.sh [FOLDER]
Packs editors/vscode as FOLDER/orv-templates.vsix (FOLDER: build/vsix, made anew), and looks
through it. Install it with: code --install-extension orv-templates.vsix
END
}

install_quietly() { # FOLDER [PACKAGE]...
    npm install --prefix "$@" --omit=dev --no-package-lock --ignore-scripts --no-audit --no-fund \
        >"$1/log" 2>&1 && return
    tail -3 "$1/log" >&2
    npm ping >/dev/null 2>&1 && exit 1
    exit 77
}

# What the package holds, unpacked in a folder: the extension's files, and all that its code
# asks for, but for what the editor itself gives.
look_through() {
    local file
    for file in extension.js package.json README.md language-configuration.json \
        syntaxes/orv.tmLanguage.json; do
        [[ -s $1/extension/$file ]] || { echo "the package lacks $file" >&2 && exit 1; }
    done
    # With a stand-in for what the editor gives, its code is loaded with all that it asks for.
    mkdir "$1/extension/node_modules/vscode"
    echo "module.exports = new Proxy({}, { get: (all, name) => all[name] ??= class {} })" \
        >"$1/extension/node_modules/vscode/index.js"
    node -e "if (!require('$1/extension/extension.js').activate) process.exit(1)"
}

pack() {
    local version folder tools
    mkdir -p "$1"
    folder=$(realpath "$1")
    tools=$folder/tools
    version=$(sed -n 's/^project(orvinterpreter VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
    rm -rf "$folder"/{source,unpacked,orv-templates.vsix}
    mkdir -p "$tools"
    [[ -x $tools/node_modules/.bin/vsce ]] || install_quietly "$tools" @vscode/vsce@2
    cp -R editors/vscode "$folder/source"
    install_quietly "$folder/source"
    rm "$folder/source/log"
    printf '%s\n' .vscodeignore 'node_modules/.*' 'node_modules/**/*.map' 'node_modules/**/*.d.ts' \
        >"$folder/source/.vscodeignore"
    (cd "$folder/source" && "$tools/node_modules/.bin/vsce" package "$version" --no-git-tag-version \
        --no-update-package-json --allow-missing-repository --skip-license \
        --out ../orv-templates.vsix >../log 2>&1) || {
        cat "$folder/log" >&2
        exit 1
    }
    python3 -m zipfile -e "$folder/orv-templates.vsix" "$folder/unpacked"
    look_through "$folder/unpacked"
    echo "$folder/orv-templates.vsix"
}

case $#:${1-} in
0:) pack build/vsix ;;
1:--help) usage ;;
1:*) pack "$1" ;;
*)
    usage >&2
    exit 2
    ;;
esac
