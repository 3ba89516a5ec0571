#!/bin/bash
# packaging/site.sh - makes a site of the documents in build/site, to be read from the file
# system or a server: by reader, with search, and with the header as the reference of the
# interface. A link that leads nowhere, or a document without a place in packaging/site/conf.py,
# is named, and there is no site.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

usage() {
    cat <<'END'
Usage: packaging/site.sh
Makes the documents a site in build/site; index.html is its first page.
END
}

make_site() {
    need sphinx-build:python3-sphinx :python3-myst-parser :python3-sphinx-rtd-theme
    local source=build/site-source
    rm -rf build/site "$source"
    mkdir -p "$source"
    cp -R docs CHANGES.md "$source"
    cp README.md "$source/index.md"
    {
        printf "# The interface\n\nAll that \x60orvinterpreter.h\x60 declares, with its comments.\n\n"
        packaging/declarations.sh interface/orvinterpreter.h "##"
    } >"$source/docs/reference.md"
    sphinx-build -W --keep-going -q -d build/site-source/.made -c packaging/site "$source" build/site
    echo "The site is in build/site: open build/site/index.html"
}

choose '' "$@"
alone make_site
