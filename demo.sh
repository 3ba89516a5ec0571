#!/bin/bash
# demo.sh - renders a page of the demo site, examples/site, to standard output, serves
# the site to browsers, or previews a folder of templates.
# Builds what it needs in build/demo; all messages go to standard error.
set -euo pipefail
from=$PWD
cd "$(dirname "$(realpath "$0")")"
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

build=$PWD/build/demo
site=$PWD/examples/site

usage() {
    cat <<'END'
Usage: ./demo.sh [OPTION]... [PAGE]
       ./demo.sh --serve [PORT]
       ./demo.sh --preview [ARGUMENT]...
Renders PAGE of examples/site (default: overview.htm) to standard output, or runs a
web server with the site on 127.0.0.1, PORT (default: 8080), until Ctrl-C, or starts
orv-preview with the arguments, such as a folder of templates (default: the site).

  --lang CODE      texts in this language: en, de or el (default: en)
  --tooltips MODE  mark each text for translators: 1 as tooltips, 2 also in
                   attributes and scripts
  --help           print this text
END
}

fail() {
    echo "demo.sh: $1" >&2
    exit 2
}

set_up() {
    need ${serve:+:lighttpd} cmake:cmake "$builder" g++:g++ bison:bison sqlite3.h:libsqlite3-dev \
        crypt.h:libcrypt-dev sqlite3:sqlite3 msgfmt:gettext gettext-po.h:libgettextpo-dev \
        nlohmann/json.hpp:nlohmann-json3-dev
}

# build [quietly] - quietly: what it says is shown only when it fails.
build() {
    local log=$build/build.log
    if [[ ${1-} == quietly ]]; then
        build >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
        return
    fi
    cmake -S . -B "$build" -G "$generator" -DCMAKE_BUILD_TYPE=Release -DORV_TOOLS=ON -DORV_TESTS=OFF \
        -DORV_INSTALL=OFF "${together[@]}" >&2 &&
        cmake --build "$build" --target orv-render orv-textdb zarn ${previews:+orv-preview orv-check} >&2
}

# Where all is there, little is to be done, mostly nothing.
build_programs() {
    if [[ -e $build/tools/orv-render && (-z $previews || -e $build/tools/orv-preview) ]]; then
        build quietly
    else
        build
    fi
}

# The data of the demo site's preview, in one step: another one may be reading it.
make_data() {
    rm -f "$build/new.db"
    cat "$site"/database-*.sql | sqlite3 "$build/new.db"
    mv "$build/new.db" "$build/preview.db"
}

# set_up_and_build [COUNT] - COUNT: of the preview's arguments.
set_up_and_build() {
    set_up
    build_programs
    [[ ${1-} != 0 ]] || make_data
}

# render PAGE LANG TOOLTIPS - with data of its own.
render() {
    data=$(mktemp -d) # router.db, and root: the interpreter's own files
    trap 'rm -rf "$data"' EXIT
    scripts/site-data.sh "$build" "$data"
    local options=(--docroot "$site" --db "$data/router.db" --root "$data/root")
    [[ -z $2 ]] || options+=(--lang "$2")
    [[ -z $3 ]] || options+=(--tooltips "$3")
    "$build/tools/orv-render" "${options[@]}" "$1"
}

# preview FOLDER ARGUMENT... - paths in the arguments are relative to FOLDER. The program
# takes the place of this script: whatever ends that ends it.
preview() {
    local folder=$1 po
    shift
    if [[ $# -eq 0 ]]; then
        set -- --db "$build/preview.db" --set-from "$PWD/examples/zarn/variables.txt"
        for po in "$site"/texts/{en,de,el}.po; do
            set -- "$@" --texts "$po"
        done
        set -- "$@" "$site"
    fi
    cd "$folder"
    exec "$build/tools/orv-preview" "$@"
}

page=
serve=
previews=
lang=
tooltips=
while [[ $# -gt 0 ]]; do
    case $1 in
    --lang)
        lang=${2-}
        [[ -e $site/texts/$lang.po ]] || fail "there are no texts in '$lang'"
        shift
        ;;
    --tooltips)
        tooltips=${2-}
        [[ $tooltips == [12] ]] || fail "--tooltips needs 1 or 2"
        shift
        ;;
    --serve) serve=yes ;;
    --preview)
        [[ -z $page$serve$lang$tooltips ]] || fail "--preview goes with no other option"
        shift
        serve=yes
        previews=yes
        alone set_up_and_build $#
        preview "$from" "$@"
        ;;
    --help)
        usage
        exit
        ;;
    -*) fail "wrong option '$1', see --help" ;;
    *)
        [[ -z $page ]] || fail "one page at a time, see --help"
        page=$1
        ;;
    esac
    shift
done
if [[ -n $serve ]]; then
    port=${page:-8080}
    [[ $port =~ ^[1-9][0-9]{0,4}$ && $port -le 65535 ]] || fail "'$port' is no port"
    [[ -z $lang$tooltips ]] || fail "--serve goes with no other option"
    alone set_up_and_build
    exec scripts/serve.sh "$build" "$port"
fi
alone set_up_and_build
render "${page:-overview.htm}" "$lang" "$tooltips"
