# The steps of world.transcript. They ask the world database about places whose zone is known from
# elsewhere, or compare its answers with each other.

# zone_table NAME: looks up the principal place of each zone in a table of the time zone database.
# Prints the places that have another zone, and whether there were hundreds of places.
zone_table() {
  awk -F '\t' '
    # Degrees of +DDMM, +DDDMM, +DDMMSS or +DDDMMSS, with n digits of degrees.
    function degrees(s, n) {
      value = substr(s, 2, n) + substr(s, 2 + n, 2) / 60 + substr(s, 4 + n, 2) / 3600
      return s ~ /^-/ ? -value : value
    }
    BEGIN { print "expected,lat,lon" }
    /^[^#]/ {
      at = match(substr($2, 2), /[+-]/) + 1
      printf "%s,%.6f,%.6f\n", $3, degrees(substr($2, 1, at - 1), 2), degrees(substr($2, at), 3)
    }' "/usr/share/zoneinfo/$1.tab" |
    offlinetz lookup |
    awk -F, '
      NR > 1 && index(" " $NF " ", " " $1 " ") == 0 { print }
      END { print (NR > 300 ? "hundreds of places" : NR) }'
}

# cities: looks up the cities of a list of 2015. Prints how many there are, whether enough have the
# zone of the list, whether enough have it or its later name, and whether few lie in the sea.
cities() {
  (echo lat,lon,expected; cut -f 5,6,18 /usr/share/libtimezonemap/ui/cities15000.txt | tr '\t' ,) |
    offlinetz lookup |
    awk -F, '
      FNR == NR { split($0, link, " "); if (link[1] == "L") renamed[link[3]] = link[2]; next }
      function has(zone) { return zone != "" && index(" " $4 " ", " " zone " ") }
      has($3) { ++agree; next }
      has(renamed[$3]) { ++renames }
      /Etc\/GMT/ { ++sea }
      END { print FNR - 1, (agree >= 23000), (agree + renames >= 23250), (sea <= 10) }' \
      /usr/share/zoneinfo/tzdata.zi -
}

# world_edge: looks up points on the poles and the antimeridian, and a point beside each. Prints the
# pairs whose zones differ, and the number of rows.
world_edge() {
  awk 'BEGIN {
    print "lat,lon"
    for (i = -1800; i <= 1800; i += 7)
      for (lat = -90; lat <= 90; lat += 180)
        printf "%d,%.1f\n%.3f,%.1f\n", lat, i / 10, lat * 89.999 / 90, i / 10
    for (i = -899; i <= 899; ++i)
      for (lon = -180; lon <= 180; lon += 360)
        printf "%.1f,%d\n%.1f,%.4f\n", i / 10, lon, i / 10, lon * 179.9995 / 180
  }' |
    offlinetz lookup |
    awk -F, '
      NR % 2 == 0 { edge = $0; zone = $3; next }
      NR > 1 && $3 != zone { print edge, $0 }
      END { print NR }'
}

# within_radius OPTION ...: looks up points within the safe radius of each place of the standard
# input. Prints those with another zone than their place, and the number of rows.
within_radius() {
  offlinetz lookup --radius "$@" | awk -f "$TESTS/world/around.awk" | offlinetz lookup "$@" |
    awk -F, '$2 != $5 && NR > 1 { print } END { print NR }'
}

# places: enclaves, islands, the poles and the antimeridian, then random points of the globe.
places() {
  awk 'BEGIN {
    print "lat,lon\n51.44,4.93\n47.697,8.69\n42.464,1.98\n-29.6,28.2\n41.903,12.453\n-17.8,177.9"
    print "-44.0,-176.5\n-27.12,-109.35\n36.0,14.3\n64.0,179.9\n-89.9,10.0\n89.9,-120.0"
    print "-77.85,166.67\n65.8,-169.0\n0.0,180.0"
    srand(9)
    for (i = 0; i < 2000; ++i) {
      s = 2 * rand() - 1
      printf "%.5f,%.5f\n", atan2(s, sqrt(1 - s * s)) * 57.29578, 360 * rand() - 180
    }
  }'
}

# tiles: compiles some zones of the world as whole rings and as tiles of several sizes. Prints where
# tiles answer otherwise than whole rings, on and beside every fourth vertex, and what within_radius
# prints for points that lie farther away.
tiles() {
  zones='Europe/Brussels Europe/Amsterdam Europe/Busingen Europe/Zurich Asia/Urumqi Pacific/Fiji
    Antarctica/McMurdo Africa/Ceuta'
  offlinetz inspect "$WORLD" --geojson some.geojson $(printf ' --zone %s' $zones) || return
  grep -o '\[-*[0-9.]*,-*[0-9.]*\]' some.geojson | tr -d '[]' | awk -F, '
    function write(format, lat, lon, file) {
      if (lat >= -90 && lon >= -180 && lon <= 180) printf format, lat, lon >file
    }
    BEGIN { print "lat,lon" >"near"; print "lat,lon" >"wide"; srand(11) }
    NR % 4 == 0 {
      for (k = 0; k < 3; ++k)
        write("%.7f,%.7f\n", $2 + k * k * 0.00009 * (rand() - 0.5),
              $1 + k * k * 0.00018 * (rand() - 0.5), "near")
    }
    NR % 20 == 0 { write("%.5f,%.5f\n", $2 + 4 * (rand() - 0.5), $1 + 4 * (rand() - 0.5), "wide") }'
  answers() {  # With two zones in alphabetical order.
    offlinetz lookup --db "$1" <near |
      awk -F, -v OFS=, '{ split($3, z, " "); if (z[2] != "" && z[1] > z[2]) $3 = z[2] " " z[1]; print }'
  }
  offlinetz compile some.geojson -o whole.bin --max-error 0 --max-tile-points 0 >all
  answers whole.bin >expected
  for points in 40 90 350; do
    offlinetz compile some.geojson -o tiled.bin --max-error 0 --max-tile-points $points >all
    answers tiled.bin | cmp - expected
    within_radius --db tiled.bin <wide
  done
}

# forms: looks up 100,000 points of the globe as lines, as a table and as objects, by one thread and by
# three. Prints where an answer is not the text that a client of the service gets for the point.
forms() {
  awk 'BEGIN {
    srand(5)
    for (i = 0; i < 100000; ++i) {
      s = 2 * rand() - 1
      printf "%.6f %.6f\n", atan2(s, sqrt(1 - s * s)) * 57.29578, 360 * rand() - 180
    }
  }' >points
  (echo id,lat,lon; awk '{ printf "\"%d,\",%s,%s\n", NR, $1, $2 }' points) >table
  offlinetz lookup --raw <points | sed 's/""/ /g; s/"//g' >expected
  offlinetz lookup --jobs 1 --radius <table >radii
  for jobs in 1 3; do
    offlinetz lookup --jobs $jobs <points | cmp - expected
    offlinetz lookup --jobs $jobs <table | tail -n +2 | tr ',' '\t' | cut -f 3- |
      sed 's/\t/ /' | cmp - expected
    offlinetz lookup --jobs $jobs --json <points | tr -d '[]}"' | sed 's/.*lat://; s/,lon:/ /' |
      sed 's/,zones:/\t/; s/,/ /' | cmp - expected
    offlinetz lookup --jobs $jobs --radius <table | cmp - radii
  done
  wc -l <expected
}

# digits: a line of 150 million digits.
digits() {
  head -c 150000000 /dev/zero | tr '\0' 1
}

# short_of_memory: lookups of a line, a compile and an inspection that need more memory than there is.
short_of_memory() {
  ulimit -v 200000
  (echo 1 2; digits) | offlinetz lookup
  (echo lat,lon; echo 1,2; echo 3,4; digits) | offlinetz lookup
  (echo '{'; head -c 15000000 /dev/zero | tr '\0' ' '; echo) | offlinetz compile - -o out
  ulimit -v 60000
  offlinetz inspect "$WORLD" --geojson out
  ls
}
