#!/bin/bash
# tests/subproject.sh SOURCE [OPTION]... - the library as a part of another project, whose
# settings, targets, headers and installation stay its own. OPTIONs are for its CMake.
set -euo pipefail
source=$(realpath "$1")
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
failed=0

# check WHAT EXPECTED GOT
check() {
    [[ $2 == "$3" ]] && return
    printf '%s\n  expected: %s\n  got:      %s\n' "$@" >&2
    failed=1
}

# A device's program in C, with names that the library's sources have, too.
mkdir program
cat >program/CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.20)
project(device LANGUAGES C)
include(FetchContent)
FetchContent_Declare(orvinterpreter SOURCE_DIR ${ORV_SOURCE})
FetchContent_MakeAvailable(orvinterpreter)
add_library(parser parser.c)
add_executable(host host.c)
target_include_directories(host PRIVATE AFTER own)
target_link_libraries(host PRIVATE orvinterpreter::orvinterpreter parser)
install(TARGETS host)
get_target_property(own parser TYPE)
get_target_property(theirs orvinterpreter TYPE)
file(WRITE ${CMAKE_BINARY_DIR}/said "${own} ${theirs} ${CMAKE_BUILD_TYPE}")
END
mkdir program/own
echo '#define NAME "Ann"' >program/own/log.h
echo 'int isBlank(int c); int isBlank(int c) { return c == 32; }' >program/parser.c
{
    echo '#include <log.h>'
    sed -n '/^```c$/,/^```$/{/^```/!p}' "$source/README.md" | sed 's/"Ann"/NAME/'
} >program/host.c
kind=STATIC_LIBRARY
[[ $* != *BUILD_SHARED_LIBS=ON* ]] || kind=SHARED_LIBRARY

{
    cmake -S program -B build -DORV_SOURCE="$source" -DCMAKE_INSTALL_PREFIX="$work/root" "$@" &&
        cmake --build build -j "$(nproc)" && cmake --install build
} &>log || { cat log >&2 && exit 1; }
echo '<?echo $var:user?>' >index.htm
check 'the page' Ann "$(build/host)"
check 'kinds of libraries, and no type of build' "$kind $kind " "$(cat build/said)"
check 'what is installed' ./root/bin/host "$(find ./root -type f)"
check 'what the programs need is not looked for' '' "$(grep -i 'gettext\|sqlite' build/CMakeCache.txt)"
check 'nothing is said in a warning' '' "$(grep -i warning log)"
exit $failed
