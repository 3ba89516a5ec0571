#!/bin/bash
# bench.sh - times the library against what else there is, and prints the table.
# Builds what it needs in build/bench; what it builds is told on standard error.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")"
# shellcheck source=scripts/setup.sh
. scripts/setup.sh

build=$PWD/build/bench
scripts=$PWD/bench/engines
pages=$build/pages
recorded=bench/instructions.txt
margin=2      # percent
doubling=2.2  # times

usage() {
    cat <<'END'
Usage: ./bench.sh [PAGE]...
       ./bench.sh --growth [NAME] | --micro [OPTION]... | --instructions [--record]
       ./bench.sh --size | --plot
Times pages (W1 to W6, start; default: all) against other engines.

  --growth        counts how instructions grow with sizes; fails where twice the size
                  takes more than 2.2 times as many. NAME: only those of that name
  --micro         small operations, under Google Benchmark and with its options
  --instructions  counts the instructions of W1 to W5, and of W6 with its page faults
                  and peak memory; fails when bench/instructions.txt says 2 % less
  --record        writes that file instead
  --size          the size of the library, built small and stripped
  --plot          draws docs/performance-engines.svg and docs/performance-growth.svg
                  from what the pages and the growth gave when they were last measured
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
    {
        echo "$(uname -m), $(nproc) processors, $(sed -n 's/^model name[^:]*: //p;T;q' /proc/cpuinfo)"
        "$build/bench/bench_driver" "$build/bench" "$scripts" "$pages" "$@"
    } | tee "$build/table.txt"
}

# under_callgrind OPTION... PROGRAM [ARGUMENT]... - writes the counts to counts.* in $build.
under_callgrind() {
    rm -f "$build"/counts.*
    LD_BIND_NOW=1 valgrind -q --tool=callgrind --callgrind-out-file="$build/counts" "$@" >/dev/null
}

# A line for each count: what was counted, and the instructions.
counts() {
    awk '/^desc: Trigger: /  { sub(/^desc: Trigger: (Client Request: )?/, ""); what = $0 }
         /^(summary|totals): / { print what "\t" $2; nextfile }' "$@"
}

# measure PAGE - prints figures of it, a line each: PAGE, what is counted, the count. W1 to
# W5 without the web program around them; W6 as a whole process.
measure() {
    local page=$1 way=plain
    local collect=(--toggle-collect=Orv_Interpreter_Run)
    [[ $page != W6 ]] || { way=gathered collect=(); }
    local program=("$build/bench/bench_orv" "$pages/$page" "$way" once)
    under_callgrind "${collect[@]}" "${program[@]}"
    counts "$build/counts" | awk -F'\t' -v page="$page" '{ print page, "instructions", $2 }'
    [[ $page == W6 ]] || return 0
    "$build/bench/bench_launch" 200 "${program[@]}" 3>&1 >/dev/null | awk -v page="$page" '
        NR == 1 || $2 < peak { peak = $2 }
        NR == 1 || $3 < faults { faults = $3 }
        END { print page, "faults", faults; print page, "KiB", peak }'
}

count_instructions() {
    local page what before count figures status=0
    alone need valgrind:valgrind
    build_programs bench_orv bench_pages bench_launch
    make_pages
    figures=$(for page in W1 W2 W3 W4 W5 W6; do measure "$page"; done)
    if [[ ${1-} == --record ]]; then
        echo "$figures" | tee "$recorded"
        return
    fi
    while read -r page what before; do
        count=$(sed -n "s/^$page $what //p" <<<"$figures")
        awk -v page="$page" -v what="$what" -v count="$count" -v before="$before" \
            -v margin=$margin 'BEGIN {
            grown = (count / before - 1) * 100
            printf "%s %10d %s, recorded %10d, %+.2f %%\n", page, count, what, before, grown
            exit grown > margin }' || status=1
    done <"$recorded"
    [[ $status == 0 ]] || echo "A page takes more than $margin % more than recorded" >&2
    return $status
}

measure_growth() {
    local files
    alone need valgrind/callgrind.h:valgrind
    build_programs bench_growth
    under_callgrind "$build/bench/bench_growth" "$build/growth" "$@"
    # A series and its size stand before the count; sizes are n, 2n, 16n and 32n.
    mapfile -t files < <(printf '%s\n' "$build"/counts.* | sort -V)
    counts "${files[@]}" | sed -n 's/: \([0-9]*\)\t/\t\1\t/p' | tee "$build/growth.txt" |
        awk -F'\t' -v most=$doubling '
        $1 != series { series = $1; print series }
        { printf "  %9d %13d", $2, $3 }
        $2 == 2 * size {
            ratio = $3 / count
            printf(" %6.2fx%s", ratio, ratio > most ? "  TOO MUCH" : "")
            slow += ratio > most
            pairs++
        }
        { print ""; size = $2; count = $3 }
        END { printf "%d of %d doublings take more than %.1f times as many instructions\n",
                     slow, pairs, most
              exit slow > 0 || pairs == 0 }'
}

plot() {
    alone need gnuplot:gnuplot-nox
    [[ -e $build/table.txt ]] || time_pages W1 W2 W3 W4 W5 W6
    [[ -e $build/growth.txt ]] || measure_growth
    gnuplot -c bench/engines.gp "$build/table.txt" docs/performance-engines.svg
    gnuplot -c bench/growth.gp "$build/growth.txt" docs/performance-growth.svg
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
    measure_growth "${@:2}"
    ;;
--plot)
    set_up
    plot
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
