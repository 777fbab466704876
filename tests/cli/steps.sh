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

# squares ZONE ...: a square of two degrees for each zone, side by side, a feature a line.
squares() {
  local west=0 zone
  for zone in "$@"; do
    printf '{"type":"Feature","properties":{"tzid":"%s"},"geometry":{"type":"Polygon",' "$zone"
    printf '"coordinates":[[[%d,0],[%d,0],[%d,2],[%d,2],[%d,0]]]}}\n' $west $((west + 2)) $((west + 2)) $west $west
    west=$((west + 2))
  done
}

# device_tables NAME[=NAME] ...: a tzdata file as devices have it, with tables of 8 bytes; a name
# after "=" shares the table of the other.
device_tables() {
  python3 -c '
import struct, sys
index, count = b"", 0
for pair in sys.argv[1:]:
    for name in pair.split("="):
        index += struct.pack(">40sIII", name.encode(), 8 * count, 8, 0)
    count += 1
start = 24
header = struct.pack(">12sIII", b"tzdata2020a", start, start + len(index), start + len(index) + 8 * count)
sys.stdout.buffer.write(header + index + bytes(8 * count))' "$@"
}
