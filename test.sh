#!/bin/bash
# test.sh - builds with warnings as errors and runs all tests, twice: plain with
# g++, and with clang++ under the address, undefined-behaviour and leak sanitizers.
# The fuzz targets run over their corpora in the second.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")"
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

usage() {
    cat <<'END'
Usage: ./test.sh [OPTION | NAME]
Builds in build/test and build/test-sanitized, and runs all tests. With NAME, a
regular expression, builds in build/test what the tests whose names match it need,
and runs those.

  --fuzz SECONDS  run each fuzz target for that long instead; what it finds is
                  left in build/fuzz
  --cross         build for foreign machines and run the tests there instead
  --builds        build the library in the ways of distributions and other projects
                  instead, with the oldest compilers, too
  --device [GROUP]...
                  start the virtual device and test what runs there instead:
                  pages, switch (tooltips, power cuts), disks (full, read-only),
                  leaks, memory (little of it), library and tools (their tests);
                  default: all
  --help          print this text
END
}

sanitized=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang -DORV_FUZZ=ON
    -DCMAKE_BUILD_TYPE=RelWithDebInfo '-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG'
    -DORV_SANITIZE=fuzzer-no-link,address,undefined
    # clang++ takes a fifth less for 60 sources as one than for 24 at a time, g++ does not.
    -DCMAKE_UNITY_BUILD_BATCH_SIZE=64
    # The sanitizers' tables have no addresses to relocate then; and lld takes a third of the time.
    "-DCMAKE_EXE_LINKER_FLAGS=-no-pie -fuse-ld=lld")
export UBSAN_OPTIONS=print_stacktrace=1
name= # of the tests that are wanted, empty for all
filter=() # the same for ctest

# build_in FOLDER OPTION... - configures and builds in build/FOLDER; with a name, what the
# tests need that have it. Where none is known by that name, it may be one of those that
# only a program that is built tells.
build_in() {
    local lines targets=()
    cmake -S . -B "build/$1" -G "$generator" -DORV_WERROR=ON "${together[@]}" "${@:2}"
    lines=$(awk -v expression="${name//\\/\\\\}" '$1 ~ expression' "build/$1/tests/needs.txt")
    if [[ -n $name && -n $lines ]]; then
        mapfile -t targets < <(awk '{ for (i = 2; i <= NF; ++i) print $i }' <<<"$lines" | sort -u)
        [[ ${#targets[@]} -gt 0 ]] || return 0
        targets=(--target "${targets[@]}")
    fi
    cmake --build "build/$1" "${targets[@]}"
}

# build_behind FOLDER OPTION... - in the time that others leave.
build_behind() {
    renice -n 19 "$BASHPID" >/dev/null
    alone build_in "$@" &>"build/$1.log"
}

# run_tests FOLDER - what takes long has a label, of the build in which alone it is run.
# More tests than there are processors, since those that drive a browser mostly wait.
run_tests() {
    [[ -n $name ]] || filter=(-LE "$([[ $1 == test ]] && echo sanitized || echo plain)")
    ctest --test-dir "build/$1" --output-on-failure -j "$(($(nproc) + 2))" --no-tests=error \
        "${filter[@]}"
}

# fuzz SECONDS - each target in turn, from its corpus and what it has found before.
fuzz() {
    local source target found
    alone build_in test-sanitized "${sanitized[@]}"
    for source in fuzz/*_fuzz.cpp; do
        target=$(basename "$source" _fuzz.cpp)
        found=$PWD/build/fuzz/$target
        mkdir -p "$found/corpus"
        local options=(-max_total_time="$1" -timeout=20 -artifact_prefix="$found/")
        [[ ! -e fuzz/$target.dict ]] || options+=(-dict="$PWD/fuzz/$target.dict")
        "build/test-sanitized/fuzz/${target}_fuzz" "${options[@]}" "$found/corpus" \
            "$PWD/fuzz/corpus/$target" 2>&1 | tee "$found/log"
    done
    fuzz/sites.py build/test-sanitized/tools/orv-check $RANDOM "$1"
    fuzz/texts.py build/test-sanitized/tools/orv-textdb $RANDOM "$1"
}

set_up() {
    need cmake:cmake "$builder" g++:g++ clang++:clang bison:bison sqlite3.h:libsqlite3-dev \
        crypt.h:libcrypt-dev sqlite3:sqlite3 msgfmt:gettext gettext-po.h:libgettextpo-dev gtest/gtest.h:libgtest-dev \
        nlohmann/json.hpp:nlohmann-json3-dev \
        vim:vim nvim:neovim node:nodejs npm:npm \
        :python3-polib :python3-babel po2xliff:translate-toolkit poedit:poedit xvfb-run:xvfb xauth:xauth xdotool:xdotool \
        :libclang-rt-dev ld.lld:lld :lighttpd curl:curl chromium:chromium chromium-headless-shell:chromium-headless-shell chromedriver:chromium-driver \
        :locales tidy:tidy faketime:faketime strace:strace :python3 :lighttpd-mod-openssl openssl:openssl npm:npm \
        help2man:help2man pandoc:pandoc mandoc:mandoc dpkg-shlibdeps:dpkg-dev file:file lintian:lintian \
        fcgiapp.h:libfcgi-dev openssl/ssl.h:libssl-dev microhttpd.h:libmicrohttpd-dev nginx:nginx-light fcgiwrap:fcgiwrap \
        busybox:busybox zsh:zsh fish:fish pkg-config:pkg-config kconfig-conf:kconfig-frontends-nox make:make
}

case $#:${1-} in
0:) ;;
2:--fuzz) [[ $2 =~ ^[0-9]+$ ]] || { usage >&2 && exit 2; } ;;
1:--cross) exec scripts/cross.sh ;;
1:--builds) exec scripts/builds.sh ;;
*:--device)
    for group in "${@:2}"; do
        [[ $group =~ ^(pages|switch|disks|leaks|memory|library|tools)$ ]] || { usage >&2 && exit 2; }
    done
    exec tests/device/test.sh "${@:2}"
    ;;
1:[!-]*) name=$1 filter=(-R "$1") ;;
1:--help)
    usage
    exit
    ;;
*)
    usage >&2
    exit 2
    ;;
esac
alone set_up
if [[ ${1-} == --fuzz ]]; then
    fuzz "$2"
else
    # Laid out as packages are: a test installs them. With half a gigabyte to throw away, g++ looks
    # for garbage less often, which takes a seventh of its time.
    alone build_in test -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_COMPILER=gcc -DORV_FUZZ=${name:+ON} \
        -DCMAKE_INSTALL_PREFIX=/usr -DORV_DOCS=ON -DCMAKE_CXX_FLAGS=--param=ggc-min-heapsize=524288
    if [[ -z $name ]]; then
        set -m # a group of its own, which ends with this script
        build_behind test-sanitized "${sanitized[@]}" &
        trap 'kill -- -$! 2>/dev/null || :' EXIT
        set +m
    fi
    run_tests test
    if [[ -z $name ]]; then
        wait $! || { cat build/test-sanitized.log >&2 && exit 1; }
        run_tests test-sanitized
    fi
fi
