# Points within the radius of each row of a lookup (lat,lon,zone,radius_km,...), at its edge and inside.
# Prints rows of the place, its zone, and the point.
BEGIN {
  FS = ","
  print "from,expected,lat,lon"
  srand(10)
}
NR > 1 && $4 >= 0.05 {
  phi = $1 / 57.29578
  for (k = 0; k < 40; ++k) {
    r = $4 / 6371.0088 * (k % 2 ? 1 : rand())
    way = 6.283185 * rand()
    s = sin(phi) * cos(r) + cos(phi) * sin(r) * cos(way)
    lon = $2 + 57.29578 * atan2(sin(way) * sin(r) * cos(phi), cos(r) - sin(phi) * s)
    if (lon > 180) lon -= 360
    if (lon < -180) lon += 360
    printf "%s %s,%s,%.6f,%.6f\n", $1, $2, $3, 57.29578 * atan2(s, sqrt(1 - s * s)), lon
  }
}
