# bench/engines.gp - draws the bench's table: gnuplot -c engines.gp TABLE SVG
# A panel a page; engines that parse their template for every page, microseconds into
# /dev/null.
table = ARG1
set terminal svg size 960,720 font "sans-serif,13" background "white"
set output ARG2
pages = "W1 W2 W3 W4 W5 W6"
titles = "'200 KB of text' '1000 rows of 5 columns' '15 includes' '500 text fields' '2000 variables, 500 conditions' 'a process from exec to exit'"
rows(page) = sprintf("< awk '/^%s /{on=1; next} /^(W[1-6]|start) /{on=0} on && / us /{ \
    name = $0; sub(/^  /, \"\", name); sub(/  +[0-9.]+ us.*/, \"\", name); \
    if (name ~ /compiled|opcache|reads its/) next; \
    us = $0; sub(/ us.*/, \"\", us); sub(/.* /, \"\", us); \
    n = name ~ /^liborv/ ? 1 : name == \"limit\" ? 2 : 3; \
    print us \"\\t\" name \"\\t\" n }' %s", page, table)

set multiplot layout 3,2 title "Microseconds a page into /dev/null, logarithmic: shorter is faster"
set datafile separator "\t"
set style fill solid
set boxwidth 0.7
set logscale x
set format x ""
set grid x lc rgb "#dddddd"
set lmargin 24
set rmargin 9
set yrange [] reverse
set tics nomirror scale 0
set border 2
set xrange [1:1e7]
unset key
set linetype 1 lc rgb "#c0392b" # the library
set linetype 2 lc rgb "#555555"
set linetype 3 lc rgb "#9db8d2"
do for [i = 1:6] {
    set title word(pages, i)."  ".word(titles, i)
    plot rows(word(pages, i)) using (1):0:(1):1:($0 - 0.35):($0 + 0.35):3:ytic(2) \
        with boxxyerror lc variable, \
        '' using 1:0:(sprintf($1 < 99.5 ? " %.1f" : " %.0f", $1)) with labels left offset 0.3,0
}
unset multiplot
