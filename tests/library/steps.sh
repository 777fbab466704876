# The steps of installed.transcript, over an installation of the build below the working directory.

# installs: installs the build into prefix/.
installs() {
  cmake --install "$BUILD" --prefix "$PWD/prefix" >log || cat log
}

warnings='-Wall -Wextra -Werror -Wconversion -Wshadow -pedantic-errors'

# package OPTION ...: what pkg-config says about the installed library.
package() {
  PKG_CONFIG_PATH=prefix/lib/pkgconfig pkg-config "$@" offlinetz
}

# builds NAME ...: compiles and links examples with pkg-config, with the shared library and with the
# static one.
builds() {
  for name; do
    case $name in
      *.c) compiler='gcc -std=c99' ;;
      *.cpp) compiler='g++ -std=c++17' ;;
    esac
    source=$TESTS/../library/examples/$name
    $compiler $warnings "$source" $(package --cflags --libs) -o "$name.shared" &&
      $compiler $warnings "$source" \
        -Wl,-Bstatic $(package --static --cflags --libs) -Wl,-Bdynamic -o "prefix/bin/$name.static"
  done
}

# both NAME ARGUMENT ...: runs an example with each library, and prints where their output differs.
both() {
  name=$1
  shift
  LD_LIBRARY_PATH=prefix/lib "./$name.shared" "$@" 2>&1 | tee shared
  "prefix/bin/$name.static" "$@" 2>&1 | diff shared -
}

# sql STATEMENT ...: runs SQL statements with the installed extension, all of them even if some fail.
sql() {
  (echo .load prefix/lib/offlinetz_sqlite; printf '%s\n' "$@") | sqlite3 "${DATABASE:-:memory:}"
}

# points: latitudes and longitudes of 100,000 points: corners of borders, the edges of the world, and
# random points of the globe.
points() {
  offlinetz inspect "$WORLD" --geojson borders.geojson --zone Europe/Brussels --zone Asia/Urumqi
  grep -o '\[-*[0-9.]*,-*[0-9.]*\]' borders.geojson | tr -d '[]' | awk -F, '
    BEGIN { print "lat,lon"; srand(3) }
    NR % 2 { printf "%s,%s\n", $2, $1; ++count }
    END {
      for (i = -180; i <= 180; i += 0.5)
        for (edge = -180; edge <= 180; edge += 360) {
          printf "%s,%s\n%s,%s\n", edge / 2, i, i / 2, edge
          count += 2
        }
      for (; count < 100000; ++count) {
        s = 2 * rand() - 1
        printf "%.6f,%.6f\n", atan2(s, sqrt(1 - s * s)) * 57.29578, 360 * rand() - 180
      }
    }'
}
