# How costs grow, from what lookup_bench wrote to the directory `inputs`.
set terminal svg size 1000,450 background "white" font "sans-serif,13"
set logscale xy
set grid
set key top left
set multiplot layout 1,2
copies = inputs."/growth-copies.dat"
rings = inputs."/growth-rings.dat"
set title "Copies of the world, tiled"
set xlabel "copies"
set yrange [0.01:1000]
plot copies using 1:2 with linespoints pt 7 title "file, MB", \
     copies using 1:3 with linespoints pt 5 title "first lookup, ms", \
     copies using 1:4 with linespoints pt 9 title "mean lookup, µs", \
     0.1 * x with lines dt 3 lc rgb "gray40" title "linear"
set title "One ring"
set xlabel "points of the ring"
set yrange [0.1:10000]
set format x "10^{%T}"
plot rings using 1:2 with linespoints pt 7 title "whole, mean lookup, µs", \
     rings using 1:3 with linespoints pt 5 title "tiled, mean lookup, µs", \
     0.01 * x with lines dt 3 lc rgb "gray40" title "linear"
unset multiplot
