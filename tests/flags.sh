#!/bin/bash
# tests/flags.sh SOURCE - which flags the library is compiled with, for what a builder says:
# CMake's own default for releases is replaced, and nothing else.
set -euo pipefail
source=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
failed=0

# flags WANTED OPTION... - configures with the options, without any and with a toolchain twice, and looks at the levels.
flags() {
    local wanted=$1 got
    shift
    rm -rf build
    cmake -S "$source" -B build -DORV_TOOLS=OFF -DORV_TESTS=OFF "$@" >log 2>&1 || cat log >&2
    [[ $# -gt 0 && $* != *toolchain* ]] || cmake build >>log 2>&1 || cat log >&2
    got=$(sed -n 's/^ *"command": "\(.*calc.cpp\)",/\1/p;T;q' build/compile_commands.json |
        grep -oE -- ' -(O.|DNDEBUG|g)\b' | tr -d '\n')
    [[ $got == "$wanted" ]] && return
    printf '%s\n  expected: %s\n  got:      %s\n' "$*" "$wanted" "$got" >&2
    failed=1
}

# As Buildroot and Yocto write theirs.
cat >toolchain.cmake <<'END'
set(CMAKE_CXX_FLAGS "-Os -g" CACHE STRING "")
set(CMAKE_CXX_FLAGS_RELEASE "-DNDEBUG" CACHE STRING "")
END
flags ' -O2 -DNDEBUG'
flags ' -O2 -DNDEBUG' -DCMAKE_BUILD_TYPE=Release
flags ' -Os -DNDEBUG' -DCMAKE_BUILD_TYPE=MinSizeRel
flags ' -g' -DCMAKE_BUILD_TYPE=Debug
flags ' -g' -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-g
flags ' -Os -DNDEBUG' -DCMAKE_CXX_FLAGS=-Os
flags ' -O3 -DNDEBUG' -DCMAKE_CXX_FLAGS=-O3
flags ' -O1' -DCMAKE_CXX_FLAGS_RELEASE=-O1
flags ' -Os -g -DNDEBUG' --toolchain "$work/toolchain.cmake"
flags ' -Os -g -DNDEBUG' --toolchain "$work/toolchain.cmake" -DCMAKE_BUILD_TYPE=Release
CXXFLAGS=-Os flags ' -Os -DNDEBUG'
exit $failed
