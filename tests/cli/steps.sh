# Functions of the steps in cli.transcript and compile.transcript.

# points LATITUDES LONGITUDES: each latitude with each longitude, a line a point.
points() {
  for lat in $1; do
    for lon in $2; do echo "$lat $lon"; done
  done
}

# hostile_name: a file name with a line break, an escape sequence and a byte that is not UTF-8.
hostile_name() {
  printf 'a\n\033[2J\302\233.json'
}

# features COUNT: as many features, each with a property of its own; the fourth has a tzid.
features() {
  awk -v count="$1" 'BEGIN {
    for (i = 0; i < count; ++i) {
      tzid = i == 3 ? "\"tzid\":\"A\"," : ""
      printf "{\"type\":\"Feature\",\"properties\":{%s\"p%d\":\"x\"},", tzid, i
      print "\"geometry\":{\"type\":\"Polygon\",\"coordinates\":[[[1,1],[1,2],[2,2],[1,1]]]}}"
    }
  }'
}

# embedded PAGE NUMBER: the database of this number, from 1, that a map page holds.
embedded() {
  grep -o '"content":"[^"]*' "$1" | cut -d '"' -f 4 | sed -n "$2p" | base64 -d
}

# beyond WEST EAST HOLE_WEST HOLE_EAST: a polygon between these longitudes with a hole.
beyond() {
  printf '{"type":"Feature","properties":{"tzid":"A"},"geometry":{"type":"Polygon","coordinates":['
  printf '[[%s,0],[%s,0],[%s,20],[%s,20],[%s,0]],' "$1" "$2" "$2" "$1" "$1"
  printf '[[%s,5],[%s,5],[%s,9],[%s,9],[%s,5]]]}}\n' "$3" "$4" "$4" "$3" "$3"
}
