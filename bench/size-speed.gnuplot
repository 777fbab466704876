# File size against the time of a lookup, from what lookup_bench wrote to the directory `inputs`.
set terminal svg size 800,500 background "white" font "sans-serif,13"
set title "Lookups on land with a distance, by points a tile and by tolerance"
set xlabel "file, MB"
set ylabel "µs a lookup"
set yrange [0:*]
set grid
set key bottom left
set offsets 0.5, 0.5, 0.5, 0
tiles = inputs."/size-speed-tiles.dat"
tolerance = inputs."/size-speed-tolerance.dat"
# Whole rings take a hundred times as long: they are in the table only.
size(n) = strcol(1) eq "whole rings" ? NaN : column(n)
plot tiles using (size(2)):(size(3)) with linespoints lc 1 pt 7 title "mean, points a tile", \
     tiles using (size(2)):(size(4)) with linespoints lc 1 dt 2 pt 6 title "99 %, points a tile", \
     tiles using (size(2)):(size(4)):1 with labels offset 0,0.9 tc lt 1 font ",11" notitle, \
     tolerance using 2:3 with linespoints lc 2 pt 5 title "mean, tolerance", \
     tolerance using 2:4 with linespoints lc 2 dt 2 pt 4 title "99 %, tolerance", \
     tolerance using 2:3:1 with labels offset 0,-0.9 tc lt 2 font ",11" notitle
