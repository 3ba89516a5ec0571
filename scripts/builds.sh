#!/bin/bash
# scripts/builds.sh - builds the library in the ways in which distributions, other projects
# and devices do on this machine, and looks at what comes of it.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

usage() {
    cat <<'END'
Usage: scripts/builds.sh [BUILD...]
Builds: gcc11, clang14 (the oldest compilers: the library's tests); static (an archive,
optimized across the sources), musl (an archive for that C library), lto (-flto among the
builder's flags, with g++ and clang++, shared and static), libdir (folders that are told
with their whole paths), twice (in two folders, with the same result), part (of another
project), archive (of the source, without Bison; and what is said where a tool is missing
or too old), armhf (packages for 32-bit ARM, with a program that uses them). All unless named. Builds in build/builds.
END
}

source=$PWD
builds=$PWD/build/builds

# configure FOLDER OPTION... - afresh, the library alone unless the options say more.
configure() {
    rm -rf "${builds:?}/$1"
    cmake -S . -B "$builds/$1" -G "$generator" -DORV_WERROR=ON -DORV_TOOLS=OFF -DORV_TESTS=OFF \
        "${@:2}"
}

# build FOLDER OPTION...
build() {
    configure "$@"
    cmake --build "$builds/$1"
}

# build_and_test FOLDER OPTION...
build_and_test() {
    build "$@" -DORV_TESTS=ON
    ctest --test-dir "$builds/$1" --output-on-failure -j "$(nproc)" --no-tests=error
}

# build_archive FOLDER COMPILER OPTION... - small, and used by a program.
build_archive() {
    build "$1" -DBUILD_SHARED_LIBS=OFF -DCMAKE_BUILD_TYPE=MinSizeRel "${@:3}"
    tests/archive.sh "$builds/$1/liborvinterpreter.a" . "$2"
}

# build_shared FOLDER OPTION... - and looks at its names.
build_shared() {
    build "$@"
    tests/exports.sh "$builds/$1/liborvinterpreter.so" interface/exports.map
}

# ask_host FOLDER - the README's host, by what is installed below build/builds/FOLDER.
ask_host() {
    local flags folder=$builds/$1
    export PKG_CONFIG_LIBDIR=$folder/root/libraries/pkgconfig
    read -ra flags <<<"$(pkg-config --cflags --libs orvinterpreter)"
    sed -n '/^```c$/,/^```$/{/^```/!p}' README.md >"$folder/host.c"
    cc "$folder/host.c" "${flags[@]}" -o "$folder/host"
    echo '<?echo $var:user?>' >"$folder/index.htm"
    [[ $(cd "$folder" && LD_LIBRARY_PATH=root/libraries ./host) == Ann ]]
}

# refuse TEXT OPTION... - CMake does not go on, and says so.
refuse() {
    ! configure refused "${@:2}" &>log
    tr -s '\n ' ' ' <log | grep -qF "$1" || { cat log && false; }
}

run() {
    case $1 in
    gcc11) build_and_test gcc11 -DCMAKE_C_COMPILER=gcc-11 -DCMAKE_CXX_COMPILER=g++-11 ;;
    clang14) build_and_test clang14 -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 ;;
    static) build_archive static gcc -DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON ;;
    musl) build_archive musl musl-gcc --toolchain cmake/musl.cmake ;;
    lto)
        export CFLAGS=-flto=auto CXXFLAGS=-flto=auto
        build_archive lto-gcc-static gcc
        build_shared lto-gcc
        export CFLAGS=-flto CXXFLAGS=-flto LDFLAGS=-fuse-ld=lld
        build_archive lto-clang-static clang -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
        build_shared lto-clang -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
        ;;
    libdir)
        local root=$builds/libdir/root
        build libdir -DCMAKE_INSTALL_LIBDIR="$root/libraries" -DCMAKE_INSTALL_INCLUDEDIR="$root/headers" \
            -DCMAKE_INSTALL_PREFIX="$root"
        cmake --install "$builds/libdir"
        ask_host libdir
        build libdir-below -DCMAKE_INSTALL_LIBDIR=libraries -DCMAKE_INSTALL_PREFIX=/nowhere
        DESTDIR=$builds/libdir-below cmake --install "$builds/libdir-below"
        mv "$builds/libdir-below/nowhere" "$builds/libdir-below/root" # it can be moved
        ask_host libdir-below
        ;;
    twice)
        local folder
        for folder in one another/and/deeper; do
            rm -rf "$builds/twice/$folder"
            mkdir -p "$builds/twice/$folder"
            git ls-files -z | tar c --null -T - | tar x -C "$builds/twice/$folder"
            cmake -S "$builds/twice/$folder" -B "$builds/twice/$folder/build" -G "$generator" \
                -DORV_TESTS=OFF -DCMAKE_INSTALL_PREFIX=/usr
            cmake --build "$builds/twice/$folder/build"
            DESTDIR=$builds/twice/$folder/root cmake --install "$builds/twice/$folder/build"
        done
        diff -r "$builds"/twice/{one,another/and/deeper}/root
        diff "$builds"/twice/{one,another/and/deeper}/build/tools/orv-render
        ;;
    part)
        tests/subproject.sh "$source"
        tests/subproject.sh "$source" -DBUILD_SHARED_LIBS=ON
        ;;
    archive)
        local folder=$builds/archive sum
        packaging/dist.sh
        sum=$(cat build/dist/*.sha256)
        packaging/dist.sh
        [[ $(cat build/dist/*.sha256) == "$sum" ]]
        rm -rf "$folder"
        mkdir -p "$folder"
        tar x -C "$folder" --strip-components=1 -f build/dist/*.tar.xz
        cd "$folder"
        build made -DCMAKE_DISABLE_FIND_PACKAGE_BISON=ON -DCMAKE_INSTALL_LIBDIR=libraries \
            -DCMAKE_INSTALL_PREFIX="$builds/made/root"
        cmake --install "$builds/made"
        ask_host made
        echo '// changed' >>grammar/zarn.y
        refuse 'needs GNU Bison 3.8 or newer' -DCMAKE_DISABLE_FIND_PACKAGE_BISON=ON
        printf '#!/bin/bash\nexec g++ -D__GNUC__=10 -Wno-builtin-macro-redefined "$@"\n' >old
        chmod +x old
        refuse 'needs g++ 11 or newer for its C++20' -DCMAKE_CXX_COMPILER="$folder/old"
        ;;
    armhf)
        local deb folder=$builds/armhf
        packaging/packages.sh armhf
        rm -rf "$folder"
        mkdir -p "$folder"
        for deb in build/packages-armhf/*.deb; do
            dpkg-deb -x "$deb" "$folder"
        done
        cp examples/hosts/smallest/index.htm "$folder"
        local libraries=$folder/usr/lib/arm-linux-gnueabihf
        arm-linux-gnueabihf-gcc examples/hosts/smallest/host.c -I"$folder/usr/include" -L"$libraries" \
            -lorvinterpreter -o "$folder/host"
        cd "$folder"
        qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH="$libraries" ./host | grep -q 'for Ann'
        ;;
    esac
}

choose 'gcc11 clang14 static musl lto libdir twice part archive armhf' "$@"
alone need cmake:cmake "$builder" bison:bison g++:g++ g++-11:g++-11 clang++-14:clang-14 \
    ld.lld:lld musl-gcc:musl-tools gtest/gtest.h:libgtest-dev pkg-config:pkg-config \
    git:git xz:xz-utils qemu-arm:qemu-user arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf \
    sqlite3.h:libsqlite3-dev crypt.h:libcrypt-dev gettext-po.h:libgettextpo-dev \
    nlohmann/json.hpp:nlohmann-json3-dev
for one in "${wanted[@]}"; do
    echo "== $one"
    (run "$one")
done
