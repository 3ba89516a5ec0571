#!/bin/bash
# packaging/packages.sh - makes the five Debian packages, and lets lintian look at them.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

usage() {
    cat <<'END'
Usage: packaging/packages.sh [MACHINE...]
Machines: here (the default) makes liborvinterpreter1, liborvhost1, liborvinterpreter-dev,
orvinterpreter-tools and liborvinterpreter-doc in build/packages; armhf the first three for
32-bit ARM in build/packages-armhf, with Debian's cross compiler and the packages that the
virtual device has. For debuggers there is what is stripped from the programs
(*-dbgsym_*.ddeb). DEBFULLNAME and DEBEMAIL name the maintainer.
END
}

libraries= # flags of the linker that find another machine's

# pack FOLDER OPTION... - with Debian's flags. The same commit gives the same dates.
pack() {
    local commit build=$PWD/build/$1 options=("${@:2}")
    export DEB_BUILD_MAINT_OPTIONS=hardening=+all
    eval "$(dpkg-buildflags --export=sh)"
    export CFLAGS="$CFLAGS $CPPFLAGS" CXXFLAGS="$CXXFLAGS $CPPFLAGS" LDFLAGS="$LDFLAGS $libraries"
    if [[ -z ${SOURCE_DATE_EPOCH-} ]] && commit=$(git log -1 --format=%ct 2>/dev/null); then
        export SOURCE_DATE_EPOCH=$commit
    fi
    [[ -z ${DEBEMAIL-} ]] || options+=("-DORV_MAINTAINER=${DEBFULLNAME-$USER} <$DEBEMAIL>")
    cmake -S . -B "$build" -G "$generator" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DORV_DOCS=ON -DORV_TESTS=OFF "${options[@]}"
    cmake --build "$build"
    rm -f "$build"/*deb
    (cd "$build" && cpack -G DEB)
    lintian --fail-on error,warning "$build"/*.deb
}

pack_here() {
    need cmake:cmake "$builder" g++:g++ bison:bison sqlite3.h:libsqlite3-dev \
        crypt.h:libcrypt-dev gettext-po.h:libgettextpo-dev nlohmann/json.hpp:nlohmann-json3-dev \
        help2man:help2man :python3 pandoc:pandoc dpkg-shlibdeps:dpkg-dev file:file lintian:lintian
    pack packages
}

# tell_packages FOLDER ADMIN - what dpkg would know of the device's packages if they were
# installed where they are unpacked, in the folder ADMIN: their names, files and symbols.
tell_packages() {
    local archive name
    rm -rf "$2"
    mkdir -p "$2"/{info,updates}
    for archive in "$1"/apt/archives/*.deb; do
        name=$(dpkg-deb -f "$archive" Package)
        {
            dpkg-deb -f "$archive"
            printf 'Status: install ok installed\n\n'
        } >>"$2/status"
        dpkg-deb --fsys-tarfile "$archive" | tar t | sed "s|^\.|$1/files|; s|/$||" >"$2/info/$name.list"
        dpkg-deb -I "$archive" symbols >"$2/info/$name.symbols" 2>/dev/null || rm "$2/info/$name.symbols"
        dpkg-deb -I "$archive" shlibs >"$2/info/$name.shlibs" 2>/dev/null || rm "$2/info/$name.shlibs"
    done
}

pack_armhf() {
    local packages=$PWD/build/device/packages machine=arm-linux-gnueabihf
    need cmake:cmake "$builder" arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf bison:bison \
        pandoc:pandoc dpkg-shlibdeps:dpkg-dev file:file lintian:lintian
    mkdir -p build/device
    device/fetch.sh "$packages"
    tell_packages "$packages" "$PWD/build/device/dpkg"
    export DEB_HOST_ARCH=armhf
    local files=$packages/files
    libraries="-L$files/usr/lib/$machine -Wl,-rpath-link,$files/lib/$machine:$files/usr/lib/$machine"
    pack packages-armhf --toolchain "$PWD/cmake/arm.cmake" -DORV_TOOLS=OFF -DORV_HOST=ON \
        -DCMAKE_INSTALL_LIBDIR=lib/$machine -DCMAKE_FIND_ROOT_PATH="$files" \
        -DORV_DPKG_ADMIN="$PWD/build/device/dpkg" -DORV_DPKG_LIBRARIES="$files"
}

[[ $# -gt 0 ]] || set -- here
choose 'here armhf' "$@"
for machine in "${wanted[@]}"; do
    alone "pack_$machine"
done
