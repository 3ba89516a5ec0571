# bench/growth.gp - draws what bench.sh --growth has counted: gnuplot -c growth.gp COUNTS SVG
# A line a series: instructions a piece, compared with those at the smallest size. A level
# line grows in proportion; one that rises grows faster.
set terminal svg size 960,520 font "sans-serif,13" background "white"
set output ARG2
set datafile separator "\t"
set title "Instructions a piece, compared with those at the smallest size n"
set logscale x 2
set xrange [0.9:36]
set xtics ("n" 1, "2n" 2, "4n" 4, "8n" 8, "16n" 16, "32n" 32)
set yrange [0:1.5]
set ytics 0.25
set grid lc rgb "#dddddd"
set border 3
set tics nomirror
set key outside right Left reverse maxrows 24 maxcols 1 samplen 2 spacing 0.9
names = system("cut -f1 '".ARG1."' | uniq | tr ' \\n' '_ '")
series(name) = sprintf("< awk -F'\\t' -v OFS='\\t' '{ gsub(/ /, \"_\", $1) } \
    $1 == \"%s\" { if (!n) { n = $2; each = $3 / $2 } print $2 / n, $3 / $2 / each }' '%s'", name, ARG1)
text(name) = system("echo '".name."' | tr _ ' '")
plot for [i = 1:words(names)] series(word(names, i)) using 1:2 \
    with linespoints lt i pt i ps 0.5 title text(word(names, i))
