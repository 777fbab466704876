# Functions of the steps in release.transcript. $DATA is the folder of the command.

# square ZONE WEST EAST: a feature between these longitudes.
square() {
  printf '{"type":"Feature","properties":{"tzid":"%s"},"geometry":{"type":"Polygon",' "$1"
  printf '"coordinates":[[[%s,0],[%s,0],[%s,2],[%s,2],[%s,0]]]}}\n' "$2" "$3" "$3" "$2" "$2"
}

# boundaries DIRECTORY BORDER: a release in which Paris and Madrid meet at a longitude. Zones with equal
# clocks are one from now on; since 1970 they are not.
boundaries() {
  mkdir -p "$1"
  (square Europe/Madrid 0 "$2"; square Europe/Paris "$2" 4; square Asia/Tokyo 6 8) >"$1/timezones.geojson"
  cp "$1/timezones.geojson" "$1/timezones-1970.geojson"
  (square Europe/Paris 0 4; square Asia/Tokyo 6 8) >"$1/timezones-now.geojson"
  for set in "" -1970 -now; do
    (cd "$1" && python3 -m zipfile -c "timezones$set.geojson.zip" "timezones$set.geojson" && rm "timezones$set.geojson")
  done
}

# shipped: the folder that the releases are compared with, made of boundaries that meet at 2 degrees.
shipped() {
  mkdir -p shipped
  boundaries first 2
  printf '+0100+00100\tnone\nES\t+0100+00100\tEurope/Madrid\nFR\t+0100+00300\tEurope/Paris\nFR\t+0100+00130\tEurope/Paris\n' |
    sed 1d >places.tab
  printf 'table\texpected\tfound\tplaces\treason\nplaces.tab\tEurope/Paris\tEurope/Madrid\t1\tin whole degrees\n' \
    >shipped/known-differences.tsv
  cat >shipped/shipped.json <<JSON
{"release": "2026a", "source": "npm geo-tz 1.2.3", "date": "2026-01-02",
 "versions": {"all": 253, "1970": 254, "now": 255},
 "limits": {"bytes": 2000, "certified_m": 40.0, "changed_km2": 100.0},
 "places": ["places.tab"], "zoneinfo": "/usr/share/zoneinfo"}
JSON
  python3 -m zipfile -e first/timezones.geojson.zip .
  offlinetz compile timezones.geojson -o shipped/world.bin --data-version 253 >log
}

# release OPTION ...: the command on these inputs, with its messages as they are.
release() {
  "$SCRIPTS/../data/release" --data shipped --program "$(command -v offlinetz)" "$@" >printed 2>said
  grep -v -e compiling -e comparing said | sed "s|$PWD/||"
  sed "s|$PWD/||" printed
}

# registry VERSION: an npm that knows one version of the package.
registry() {
  mkdir -p bin
  printf '#!/bin/sh\necho '"'"'{"version":"%s","time":{"%s":"2026-03-04T05:06:07Z"}}'"'"'\n' "$1" "$1" >bin/npm
  chmod +x bin/npm
}
