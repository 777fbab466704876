/* The zones of one point, from the installed database: zone LAT LON */
#include <offlinetz.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    offlinetz_database* database;
    int32_t ids[8];
    double radius;

    if (argc != 3) return 2;
    if (offlinetz_open(NULL, 0, &database) != OFFLINETZ_OK) {
        fprintf(stderr, "zone: %s\n", offlinetz_message(database));
        offlinetz_close(database);
        return 1;
    }
    const size_t count =
            offlinetz_find(database, atof(argv[1]), atof(argv[2]), ids, 8, NULL, &radius);
    for (size_t i = 0; i < count && i < 8; ++i)
        puts(offlinetz_zone_name(database, ids[i]));
    if (count == 0) puts(ids[0] == OFFLINETZ_INVALID_POINT ? "no such point" : "no zone");
    printf("the same within %.2f km\n", radius);
    offlinetz_close(database);
    return 0;
}
