#!/bin/bash
# test.sh - builds with warnings as errors and runs all tests, twice: plain with
# g++, and with clang++ under the address, undefined-behaviour and leak sanitizers.
set -euo pipefail
cd "$(dirname "$0")"
# shellcheck source=tools/setup.sh
. tools/setup.sh

usage() {
    cat <<'END'
Usage: ./test.sh
Builds in build/test and build/test-sanitized, and runs all tests.
END
}

# run_tests FOLDER OPTION... - configures, builds and tests in build/FOLDER.
run_tests() {
    local build=build/$1
    shift
    cmake -S . -B "$build" -G Ninja -DORV_WERROR=ON "$@"
    cmake --build "$build"
    ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
}

case ${1-} in
'') ;;
--help)
    usage
    exit
    ;;
*)
    usage >&2
    exit 2
    ;;
esac
need cmake:cmake ninja:ninja-build g++:g++ clang++:clang bison:bison sqlite3.h:libsqlite3-dev \
    sqlite3:sqlite3 msgfmt:gettext gettext-po.h:libgettextpo-dev gtest/gtest.h:libgtest-dev \
    :libclang-rt-dev :lighttpd curl:curl chromium:chromium chromedriver:chromium-driver tidy:tidy \
    :python3
run_tests test -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_COMPILER=gcc
export UBSAN_OPTIONS=print_stacktrace=1
run_tests test-sanitized -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORV_SANITIZE=address,undefined
