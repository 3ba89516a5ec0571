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
                  takes more than 2.2 times as many, or the square of that where the
                  language asks for the square. NAME: only those of that name
  --micro         small operations, under Google Benchmark and with its options
  --instructions  counts the instructions of W1 to W6, at -O2, at -Os and on 32-bit ARM
                  at -Os, and the page faults and peak memory of W6; fails when
                  bench/instructions.txt says 2 % less
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

# count_here PROGRAM PAGE WAY - the instructions of a page, W6 as a whole process.
count_here() {
    local collect=(--toggle-collect=Orv_Interpreter_Run)
    [[ $2 != W6 ]] || collect=()
    under_callgrind "${collect[@]}" "$1" "$pages/$2" "$3" 1
    counts "$build/counts" | cut -f 2
}

# count_arm PROGRAM PAGE WAY - the same under qemu-user: what a second page adds.
count_arm() {
    local pages_made counted=(0)
    for pages_made in 1 2; do
        counted+=("$(qemu-arm -L /usr/arm-linux-gnueabihf -plugin "$build/count.so" \
            "$1" "$pages/$2" "$3" $pages_made 2>&1 >/dev/null)")
    done
    [[ $2 == W6 ]] || counted[0]=${counted[1]} counted[1]=${counted[2]}
    echo $((counted[1] - counted[0]))
}

# measure BUILD COUNT PROGRAM - prints figures of each page, a line each: the build, the
# page, what is counted, the count. W1 to W5 without the web program around them; W6 as a
# whole process.
measure() {
    local page way
    for page in W1 W2 W3 W4 W5 W6; do
        way=plain
        [[ $page != W6 ]] || way=gathered
        echo "$1 $page instructions $("$2" "$3" $page $way)"
    done
}

# The page faults and the peak memory of W6.
measure_memory() {
    "$build/bench/bench_launch" 200 "$build/bench/bench_orv" "$pages/W6" gathered 1 3>&1 >/dev/null |
        awk 'NR == 1 || $2 < peak { peak = $2 }
             NR == 1 || $3 < faults { faults = $3 }
             END { print "x86-64-O2 W6 faults", faults; print "x86-64-O2 W6 KiB", peak }'
}

# build_small FOLDER OPTION... - the bench's program with the library built for size.
build_small() {
    cmake -S . -B "$1" -G "$generator" -DCMAKE_BUILD_TYPE=MinSizeRel -DORV_BENCH=ON \
        -DORV_TESTS=OFF -DORV_TOOLS=OFF "${@:2}" >&2
    cmake --build "$1" --target bench_orv >&2
}

# The device's processor and the size that devices want are counted, too: what compilers
# make of a loop differs more than the loops do.
measure_builds() {
    measure x86-64-O2 count_here "$build/bench/bench_orv"
    measure_memory
    alone build_small "$build-size"
    measure x86-64-Os count_here "$build-size/bench/bench_orv"
    alone build_small "$build-size-arm" --toolchain "$PWD/cmake/arm.cmake"
    gcc -O2 -shared -fPIC -fvisibility=hidden -o "$build/count.so" bench/count.c
    measure arm-Os count_arm "$build-size-arm/bench/bench_orv"
}

count_instructions() {
    local figure what before count figures status=0
    alone need valgrind:valgrind qemu-arm:qemu-user arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf
    build_programs bench_orv bench_pages bench_launch
    make_pages
    figures=$(measure_builds)
    if [[ ${1-} == --record ]]; then
        echo "$figures" | tee "$recorded"
        return
    fi
    while read -r figure what before; do
        count=$(sed -n "s/^${figure/-W/ W} $what //p" <<<"$figures")
        awk -v figure="$figure" -v what="$what" -v count="$count" -v before="$before" \
            -v margin=$margin 'BEGIN {
            grown = (count / before - 1) * 100
            printf "%-12s %10d %s, recorded %10d, %+.2f %%\n", figure, count, what, before, grown
            exit !count || grown > margin }' || status=1
    done < <(sed 's/ \(W[0-9]\) /-\1 /' "$recorded")
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
        awk -F'\t' -v once=$doubling '
        $1 != series { series = $1; print series; most = /[(]square[)]/ ? once * once : once }
        { printf "  %9d %13d", $2, $3 }
        $2 == 2 * size {
            ratio = $3 / count
            printf(" %6.2fx%s", ratio, ratio > most ? "  TOO MUCH" : "")
            slow += ratio > most
            pairs++
        }
        { print ""; size = $2; count = $3 }
        END { printf "%d of %d doublings take more than %.1f times as many instructions\n",
                     slow, pairs, once
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
    cmake -S . -B "$folder" -G "$generator" -DCMAKE_BUILD_TYPE=MinSizeRel -DORV_BENCH=OFF \
        -DORV_TESTS=OFF -DORV_TOOLS=OFF "${@:3}" >&2
    cmake --build "$folder" --target orvinterpreter >&2
    "${prefix}strip" -o "$folder/stripped.so" "$folder/liborvinterpreter.so"
    stat -c %s "$folder/stripped.so"
}

check_size() {
    local size
    size=$(library_size "${@:3}")
    echo "$1: $size bytes of at most $2"
    [[ $size -le $2 ]]
}

show_sizes() {
    local status=0
    check_size "$(uname -m)" 52000 "$build-size" "" || status=1
    if command -v arm-linux-gnueabihf-g++ >/dev/null; then
        check_size "32-bit ARM" 44000 "$build-size-arm" arm-linux-gnueabihf- \
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
