/* The zone of each row of a table, found by one call. */
#include <offlinetz.h>
#include <stdio.h>

struct Row {
    const char* city;
    double lat, lon;
    int32_t zone;
};

int main(void) {
    struct Row rows[] = {{"Nuuk", 64.18, -51.74, 0}, {"Nome", 64.50, -165.41, 0}, {"?", 99, 0, 0}};
    const size_t count = sizeof rows / sizeof rows[0];
    offlinetz_database* database;

    if (offlinetz_open(NULL, 0, &database) != OFFLINETZ_OK) {
        fprintf(stderr, "table: %s\n", offlinetz_message(database));
        offlinetz_close(database);
        return 1;
    }
    offlinetz_find_many(database, count, &rows[0].lat, sizeof rows[0], &rows[0].lon, sizeof rows[0],
                        &rows[0].zone, sizeof rows[0], NULL, 0);
    for (size_t i = 0; i < count; ++i) {
        const char* zone = offlinetz_zone_name(database, rows[i].zone);
        printf("%s\t%s\n", rows[i].city, zone != NULL ? zone : "no such point");
    }
    offlinetz_close(database);
    return 0;
}
