# How costs grow, from tables that lookup_bench wrote to `tables`.
set terminal svg size 1000,450 background "white" font "sans-serif,13"
set logscale xy
set grid
set key top left
set datafile separator "|"
# Without the heading and the commas within numbers.
Rows(name) = "< sed '1,2d; s/,//g' ".tables."/growth-".name.".md"
copies = Rows("copies")
rings = Rows("rings")
set multiplot layout 1,2
set title "Copies of the world, tiled"
set xlabel "copies"
set yrange [0.01:1000]
plot copies using 2:($3/1e6) with linespoints pt 7 title "file, MB", \
     copies using 2:4 with linespoints pt 5 title "first lookup, ms", \
     copies using 2:5 with linespoints pt 9 title "mean lookup, µs", \
     0.1 * x with lines dt 3 lc rgb "gray40" title "linear"
set title "One ring"
set xlabel "points of the ring"
set yrange [0.1:10000]
set format x "10^{%T}"
plot rings using 2:3 with linespoints pt 7 title "whole, mean lookup, µs", \
     rings using 2:4 with linespoints pt 5 title "tiled, mean lookup, µs", \
     0.01 * x with lines dt 3 lc rgb "gray40" title "linear"
unset multiplot
