#!/bin/bash
# bench.sh - times the library against what else there is, and prints the table.
# Builds what it needs in build/bench; what it builds is told on standard error.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")"
# shellcheck source=tools/setup.sh
. tools/setup.sh

build=$PWD/build/bench
scripts=$PWD/bench/engines
pages=$build/pages
recorded=bench/instructions.txt
margin=3 # percent

usage() {
    cat <<'END'
Usage: ./bench.sh [PAGE]...
       ./bench.sh --growth [NAME] | --micro [OPTION]... | --instructions [--record] | --size
Times pages (W1 to W6, start; default: all) against other engines.

  --growth        how times grow with sizes; fails where one more than keeps pace
  --micro         small operations, under Google Benchmark and with its options
  --instructions  counts the instructions of W1 to W5; fails when a page takes
                  more than 3 % more than bench/instructions.txt says
  --record        writes that file instead
  --size          the size of the library, built small and stripped
  --help          print this text
END
}

set_up() {
    alone need cmake:cmake "$builder" g++:g++ bison:bison
}

# What cannot be installed is left out of the table by name.
set_up_engines() {
    (alone need ctemplate/template.h:libctemplate-dev kainjow/mustache.hpp:libkainjow-mustache-dev \
        ClearSilver/ClearSilver.h:clearsilver-dev zlib.h:zlib1g-dev lua5.4:lua5.4 php:php-cli \
        :python3-jinja2) || true
}

# build_programs TARGET...
build_programs() {
    alone build_in_bench "$@"
}

build_in_bench() {
    cmake -S . -B "$build" -G "$generator" -DCMAKE_BUILD_TYPE=Release -DORV_BENCH=ON -DORV_TESTS=OFF \
        -DORV_TOOLS=OFF >&2
    cmake --build "$build" --target "$@" >&2
}

make_pages() {
    rm -rf "$pages"
    "$build/bench/bench_pages" "$pages"
}

time_pages() {
    set_up_engines
    build_programs all
    make_pages
    mkdir -p "$build/bench/opcache"
    echo "$(uname -m), $(nproc) processors, $(sed -n 's/^model name[^:]*: //p;T;q' /proc/cpuinfo)"
    "$build/bench/bench_driver" "$build/bench" "$scripts" "$pages" "$@"
}

# instructions PAGE - how many a run of the page takes, without the web program's.
instructions() {
    local out=$build/callgrind.out
    LD_BIND_NOW=1 valgrind -q --tool=callgrind --callgrind-out-file="$out" \
        --toggle-collect=Orv_Interpreter_Run \
        "$build/bench/bench_orv" "$pages/$1" plain once >/dev/null
    sed -n 's/^\(summary\|totals\): \([0-9]*\).*/\2/p;T;q' "$out"
}

count_instructions() {
    local page count before status=0
    alone need valgrind:valgrind
    build_programs bench_orv bench_pages
    make_pages
    if [[ ${1-} == --record ]]; then
        for page in W1 W2 W3 W4 W5; do
            echo "$page $(instructions "$page")"
        done | tee "$recorded"
        return
    fi
    while read -r page before; do
        count=$(instructions "$page")
        awk -v page="$page" -v count="$count" -v before="$before" -v margin=$margin 'BEGIN {
            grown = (count / before - 1) * 100
            printf "%s %12d, recorded %12d, %+.2f %%\n", page, count, before, grown
            exit grown > margin }' || status=1
    done <"$recorded"
    [[ $status == 0 ]] || echo "A page takes more than $margin % more instructions" >&2
    return $status
}

# library_size FOLDER PREFIX [CMAKE-OPTION]... - of the library in bytes, made
# small and stripped by the tools that have PREFIX in front of their names.
library_size() {
    local folder=$1 prefix=$2
    cmake -S . -B "$folder" -G "$generator" -DCMAKE_BUILD_TYPE=MinSizeRel -DORV_TESTS=OFF \
        -DORV_TOOLS=OFF "${@:3}" >&2
    cmake --build "$folder" --target orvinterpreter >&2
    "${prefix}strip" -o "$folder/stripped.so" "$folder/liborvinterpreter.so"
    stat -c %s "$folder/stripped.so"
}

check_size() {
    local size
    size=$(library_size "${@:2}")
    echo "$1: $size bytes of at most 65536"
    [[ $size -le 65536 ]]
}

show_sizes() {
    local status=0
    check_size "$(uname -m)" "$build-size" "" || status=1
    if command -v arm-linux-gnueabihf-g++ >/dev/null; then
        check_size "32-bit ARM" "$build-size-arm" arm-linux-gnueabihf- \
            -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/arm.cmake" || status=1
    else
        echo "left out: 32-bit ARM (arm-linux-gnueabihf-g++ is not installed)"
    fi
    return $status
}

case ${1-} in
--help) usage ;;
--growth)
    set_up
    build_programs bench_growth
    "$build/bench/bench_growth" "$build/growth" "${@:2}"
    ;;
--micro)
    set_up
    alone need benchmark/benchmark.h:libbenchmark-dev msgfmt:gettext
    build_programs bench_micro
    "$build/bench/bench_micro" "$build/micro" "${@:2}"
    ;;
--instructions)
    set_up
    count_instructions "${@:2}"
    ;;
--size)
    set_up
    show_sizes
    ;;
-*)
    echo "bench.sh: wrong option '$1', see --help" >&2
    exit 2
    ;;
*)
    set_up
    [[ $# -gt 0 ]] || set -- W1 W2 W3 W4 W5 W6 start
    time_pages "$@"
    ;;
esac
