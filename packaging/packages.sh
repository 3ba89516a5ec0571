#!/bin/bash
# packaging/packages.sh - makes the five Debian packages, and lets lintian look at them.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

build=$PWD/build/packages

usage() {
    cat <<'END'
Usage: packaging/packages.sh
Makes liborvinterpreter1, liborvhost1, liborvinterpreter-dev, orvinterpreter-tools and
liborvinterpreter-doc in build/packages, and for debuggers what is stripped from the
programs (*-dbgsym_*.ddeb). DEBFULLNAME and DEBEMAIL name the maintainer.
END
}

make_packages() {
    need cmake:cmake "$builder" g++:g++ bison:bison sqlite3.h:libsqlite3-dev \
        crypt.h:libcrypt-dev gettext-po.h:libgettextpo-dev nlohmann/json.hpp:nlohmann-json3-dev \
        help2man:help2man :python3 pandoc:pandoc dpkg-shlibdeps:dpkg-dev file:file lintian:lintian
    # Debian's flags. The same commit gives the same dates.
    local commit options=()
    export DEB_BUILD_MAINT_OPTIONS=hardening=+all
    eval "$(dpkg-buildflags --export=sh)"
    export CFLAGS="$CFLAGS $CPPFLAGS" CXXFLAGS="$CXXFLAGS $CPPFLAGS"
    if [[ -z ${SOURCE_DATE_EPOCH-} ]] && commit=$(git log -1 --format=%ct 2>/dev/null); then
        export SOURCE_DATE_EPOCH=$commit
    fi
    [[ -z ${DEBEMAIL-} ]] || options+=("-DORV_MAINTAINER=${DEBFULLNAME-$USER} <$DEBEMAIL>")
    cmake -S . -B "$build" -G "$generator" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DORV_DOCS=ON -DORV_TESTS=OFF "${options[@]}"
    cmake --build "$build"
    rm -f "$build"/*.deb
    (cd "$build" && cpack -G DEB)
}

choose '' "$@"
alone make_packages
lintian --fail-on error,warning "$build"/*.deb
