#!/bin/bash
# demo.sh - renders a page of the demo site, examples/site, to standard output.
# Builds what it needs in build/demo; all messages go to standard error.
set -euo pipefail
cd "$(dirname "$0")"
# shellcheck source=tools/setup.sh
. tools/setup.sh

build=$PWD/build/demo
data=$build/site-data # router.db, and root: the interpreter's own files
site=$PWD/examples/site

usage() {
    cat <<'END'
Usage: ./demo.sh [OPTION]... [PAGE]
Renders PAGE of examples/site (default: overview.htm) to standard output.

  --lang CODE      texts in this language: en or de (default: en)
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
    need cmake:cmake ninja:ninja-build g++:g++ bison:bison sqlite3.h:libsqlite3-dev \
        sqlite3:sqlite3 msgfmt:gettext gettext-po.h:libgettextpo-dev
}

build_programs() {
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORV_TOOLS=ON -DORV_TESTS=OFF >&2
    cmake --build "$build" --target orv-render orv-textdb >&2
}

# make_data TOOLTIPS - a fresh database and fresh texts. On a device the key
# "tooltip=" stands on the kernel's command line; here a file takes its place.
make_data() {
    local root=$data/root
    rm -rf "$data"
    mkdir -p "$root/etc" "$root/var/log" "$root/proc"
    sqlite3 "$data/router.db" <"$site/router.sql"
    local po
    for po in "$site"/texts/*.po; do
        "$build/tools/orv-textdb" build -o "$root/etc/htmltext_$(basename "$po" .po).db" "$po" >&2
    done
    ln -s htmltext_en.db "$root/etc/htmltext.db"
    ln -s ../etc/htmltext_en.db "$root/var/htmltext.db"
    [[ -z $1 ]] || echo "quiet tooltip=$1" >"$root/proc/cmdline"
}

# render PAGE LANG
render() {
    local options=(--docroot "$site" --db "$data/router.db" --root "$data/root")
    [[ -z $2 ]] || options+=(--lang "$2")
    "$build/tools/orv-render" "${options[@]}" "$1"
}

page=
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
page=${page:-overview.htm}

set_up
build_programs
make_data "$tooltips"
render "$page" "$lang"
