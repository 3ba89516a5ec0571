#!/bin/bash
# packaging/dist.sh - makes the source archive of the commit that is checked out: its files,
# and the parser, so that who builds it needs no Bison. The same commit gives the same bytes.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

usage() {
    cat <<'END'
Usage: packaging/dist.sh
Makes build/dist/orvinterpreter-VERSION.tar.xz and its .sha256 from the last commit.
END
}

make_archive() {
    need git:git bison:bison xz:xz-utils
    local version name
    version=$(sed -n 's/^project(orvinterpreter VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
    name=orvinterpreter-$version
    rm -rf build/dist
    mkdir -p "build/dist/$name"
    git archive HEAD | tar x -C "build/dist/$name"
    cd "build/dist/$name"
    mkdir grammar/made
    bison -Wall -Werror --header=grammar/made/zarn.tab.h -o grammar/made/zarn.tab.cpp grammar/zarn.y
    sha256sum grammar/zarn.y | cut -d' ' -f1 >grammar/made/zarn.y.sha256
    cd ..
    tar c --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$(git log -1 --format=%ct)" \
        --mode=u=rwX,go=rX "$name" | xz -9 >"$name.tar.xz"
    rm -r "$name"
    sha256sum "$name.tar.xz" | tee "$name.tar.xz.sha256"
}

choose '' "$@"
alone make_archive
