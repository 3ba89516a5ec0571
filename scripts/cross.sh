#!/bin/bash
# scripts/cross.sh - builds the library and its tests for foreign machines, with
# Debian's cross compilers, and runs the tests under qemu-user.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

usage() {
    cat <<'END'
Usage: scripts/cross.sh [MACHINE...]
Machines: arm (32 bits, hardware floating point), aarch64, riscv64, s390x (big-endian).
All unless named. Builds in build/MACHINE.
END
}

# build_and_test MACHINE
build_and_test() {
    local machine=$1 build=$PWD/build/$1
    local toolchain=$PWD/cmake/$machine.cmake
    # The tests need GoogleTest for that machine: Debian has its source.
    cmake -S /usr/src/googletest -B "$build/gtest" -G "$generator" --toolchain "$toolchain" \
        -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$build/root"
    cmake --build "$build/gtest" --target install
    cmake -S . -B "$build" -G "$generator" --toolchain "$toolchain" -DORV_WERROR=ON -DORV_TOOLS=OFF \
        -DORV_FUZZ=ON -DCMAKE_FIND_ROOT_PATH="$build/root"
    cmake --build "$build"
    ctest --test-dir "$build" --output-on-failure -j "$(nproc)" --no-tests=error
}

choose 'arm aarch64 riscv64 s390x' "$@"
alone need cmake:cmake "$builder" bison:bison qemu-arm:qemu-user \
    arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf s390x-linux-gnu-g++:g++-s390x-linux-gnu \
    aarch64-linux-gnu-g++:g++-aarch64-linux-gnu riscv64-linux-gnu-g++:g++-riscv64-linux-gnu \
    :googletest :locales
for machine in "${wanted[@]}"; do
    build_and_test "$machine"
done
