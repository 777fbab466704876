# File size against the time of a lookup, from tables that lookup_bench wrote to `tables`.
set terminal svg size 800,500 background "white" font "sans-serif,13"
set title "Lookups on land with a distance, by points a tile and by certified error"
set xlabel "file, MB"
set ylabel "µs a lookup"
set yrange [0:*]
set grid
set key below
set offsets 0.5, 0.5, 0.5, 0
set datafile separator "|"
# Without the heading and the commas within numbers. Whole rings take a hundred times as long.
Rows(name) = "< sed '1,2d; /whole rings/d; s/,//g' ".tables."/size-".name.".md"
tiles = Rows("tiles")
error = Rows("error")
plot tiles using ($3/1e6):5 with linespoints lc 1 pt 7 title "mean, points a tile", \
     tiles using ($3/1e6):6 with linespoints lc 1 dt 2 pt 6 title "99 %, points a tile", \
     tiles using ($3/1e6):6:2 with labels offset 0,0.9 tc lt 1 font ",11" notitle, \
     error using ($3/1e6):5 with linespoints lc 2 pt 5 title "mean, certified error", \
     error using ($3/1e6):6 with linespoints lc 2 dt 2 pt 4 title "99 %, certified error", \
     error using ($3/1e6):5:2 with labels offset 0,-0.9 tc lt 2 font ",11" notitle
