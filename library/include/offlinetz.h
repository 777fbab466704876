/* offlinetz: which time zone contains a point, without a network.
 *
 * Open a database, ask it for points, close it:
 *
 *     offlinetz_database *database;
 *     int32_t id;
 *     if (offlinetz_open(NULL, 0, &database) == OFFLINETZ_OK) {
 *         offlinetz_find(database, 48.8566, 2.3522, &id, 1, NULL, NULL);
 *         puts(offlinetz_zone_name(database, id));
 *     }
 *     offlinetz_close(database);
 *
 * Threads. Every function may be called on any thread. An open database never changes, so any
 * number of threads may ask it at the same time. No thread may use it during or after
 * offlinetz_close.
 *
 * The library prints nothing, and has no global state but the choice of instructions that this
 * processor has. After opening, no function allocates memory.
 *
 * Hostile bytes. Whatever bytes a database holds, no function reads outside of them or takes longer
 * than in proportion to them.
 */
#ifndef OFFLINETZ_H
#define OFFLINETZ_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define OFFLINETZ_API __attribute__((visibility("default")))
#else
#define OFFLINETZ_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* An open database, or the reason why there is none. */
typedef struct offlinetz_database offlinetz_database;

/* The result of opening. offlinetz_message has it in words. */
typedef enum offlinetz_status {
    OFFLINETZ_OK = 0,
    OFFLINETZ_NO_MEMORY,
    OFFLINETZ_UNREADABLE,     /* The system cannot read the file; errno says why. */
    OFFLINETZ_EMPTY,          /* The file is empty. */
    OFFLINETZ_NOT_A_DATABASE, /* The file is something else. */
    OFFLINETZ_CUT_SHORT,      /* The file is shorter than its header states. */
    OFFLINETZ_WRONG_DIGEST,   /* The digest at the file's end does not match its content. */
    OFFLINETZ_REFUSED,        /* The file is damaged in another way, or has 2 GiB or more. */
    OFFLINETZ_BAD_FLAGS       /* The flags hold a bit that has no meaning. */
} offlinetz_status;

/* Flags for opening, to be added up. */
enum {
    /* Do not verify the digest. Opening is then quicker. */
    OFFLINETZ_SKIP_DIGEST = 1,
    /* Map the file instead of reading it: its pages are loaded when they are needed, and processes
     * share them. As long as the database is open, replace the file only by renaming another one
     * over it. If the file is changed in place, answers are undefined; if it is made shorter, a
     * lookup raises SIGBUS. */
    OFFLINETZ_MAP = 2,
    /* Answer OFFLINETZ_NO_ZONE at sea instead of a nautical zone. */
    OFFLINETZ_NO_NAUTICAL = 4
};

/* Stand for an id where there is none. */
enum {
    /* A coordinate is not a number, or outside -90 to 90 or -180 to 180. */
    OFFLINETZ_INVALID_POINT = -1,
    /* The point is in no zone. This happens with OFFLINETZ_NO_NAUTICAL, and with a database whose
     * precision is not 21: it has no nautical zones. */
    OFFLINETZ_NO_ZONE = -2,
    /* Distances to borders are not known: offlinetz_has_borders is 0, the database is damaged, or
     * the work is more than a bound that is proportional to the file. Tiles with many thousands of
     * points can take so much. */
    OFFLINETZ_UNKNOWN = -3
};

/* Opens the database file at `path`, a text that ends with a zero. NULL: the world database that
 * was installed with the library. `flags`: a sum of flags, or 0.
 *
 * The file is read into memory, or mapped by OFFLINETZ_MAP; no descriptor stays open. The size of
 * the file and about a megabyte are allocated.
 *
 * `*database` receives the database; after a failure an object for offlinetz_message alone, which
 * has no zones; NULL without memory even for that. Close it with offlinetz_close in any case. */
OFFLINETZ_API offlinetz_status offlinetz_open(const char* path, unsigned flags,
                                              offlinetz_database** database);

/* The same for a database file whose `size` bytes, the digest at its end included, are at `bytes`.
 * Borrows them: they must stay unchanged until the database is closed. OFFLINETZ_MAP has no effect.
 */
OFFLINETZ_API offlinetz_status offlinetz_open_memory(const void* bytes, size_t size, unsigned flags,
                                                     offlinetz_database** database);

/* Closes a database and frees all that it owns, the texts below among it. Ignores NULL. */
OFFLINETZ_API void offlinetz_close(offlinetz_database* database);

/* What is wrong, after a failure: a sentence without a full stop, with the path if there is one. ""
 * if the database is open. `database` may be NULL. Valid until the database is closed. */
OFFLINETZ_API const char* offlinetz_message(const offlinetz_database* database);

/* The version of the data, 0 to 255, which its maker counts on. */
OFFLINETZ_API int offlinetz_version(const offlinetz_database* database);
/* Where the data comes from, and its licence. Valid until the database is closed. */
OFFLINETZ_API const char* offlinetz_notice(const offlinetz_database* database);

/* The zones. Ids are 0 to offlinetz_zone_count - 1: first the zones of the database, in its order,
 * then the 25 nautical zones from west to east, "Etc/GMT+12" to "Etc/GMT-12", also where no answer
 * has them. The ids belong to this file: another database may have others. */
OFFLINETZ_API int32_t offlinetz_zone_count(const offlinetz_database* database);
/* The name of a zone, such as "Europe/Paris". NULL if there is no such id. Valid until the database
 * is closed. */
OFFLINETZ_API const char* offlinetz_zone_name(const offlinetz_database* database, int32_t id);
/* The id of the zone with a name, in the same case. OFFLINETZ_NO_ZONE if there is none. */
OFFLINETZ_API int32_t offlinetz_zone_id(const offlinetz_database* database, const char* name);

/* Finds the zones at a point. `lat` and `lon`: degrees, north and east positive, -90 to 90 and -180
 * to 180.
 *
 * `ids` has room for `room` ids and receives the first of them; it may be NULL if `room` is 0.
 * Where zones are disputed, a point has several. Each of the pointers that follow may be NULL:
 * `*on_border` receives 1 if the point is on a border, to the precision of the database, else 0.
 * `*radius_km` receives the safe radius in kilometres: every point that is not further away has the
 * same zones. It takes a hundredth of the time of `holds` below, of which it is 0.6 on land in the
 * median. 0 if nothing is known: close to a border, and where the database is not tiled.
 *
 * Returns the number of zones, even if it is greater than `room`. If it is 0, the first of the ids
 * is OFFLINETZ_INVALID_POINT or OFFLINETZ_NO_ZONE. */
OFFLINETZ_API size_t offlinetz_find(const offlinetz_database* database, double lat, double lon,
                                    int32_t* ids, size_t room, int* on_border, double* radius_km);

/* Distances to borders. They are measured on a sphere with the earth's mean radius of 6371008.8 m.
 * Borders are straight in latitude and longitude, as the database has them; at sea the meridians
 * between nautical zones are borders, too. Distances and places are exact to a millimetre for these
 * borders; beyond 20,000 km, near the other side of the earth, to 20 m.
 *
 * offlinetz_find truncates points to units of the database and computes in single precision. So
 * near a border it may answer for the other side of it: at precision 21 within 30 m, and within 48
 * m at the meridian of Greenwich. */

/* Whether distances to borders are known: 1 if the database is tiled, as the compiler makes it,
 * else 0. */
OFFLINETZ_API int offlinetz_has_borders(const offlinetz_database* database);

enum {
    OFFLINETZ_BORDER_ROOM = 7,  /* Ids in an offlinetz_border. */
    OFFLINETZ_MOST_WITHIN = 512 /* Zones that offlinetz_zones_within finds. */
};

/* The nearest place where the answer changes. */
typedef struct offlinetz_border {
    double metres; /* The distance to the place. */
    /* Every point less than so many metres away has the same answer of offlinetz_find: `metres`, or
     * the limit if no border is within it, less what lookups may be wrong by. 0 if that is less. */
    double holds;
    double lat; /* The place, in degrees. */
    double lon;
    /* The direction to the place in degrees, clockwise from north, 0 to 360. 0 if the distance is
     * 0. From a pole, north is along the meridian of the point. */
    double bearing;
    int32_t count;                      /* The number of zones beyond the border. */
    int32_t ids[OFFLINETZ_BORDER_ROOM]; /* The first of their ids, in ascending order. */
} offlinetz_border;

/* Finds the nearest place where the answer changes. `lat` and `lon` are those of offlinetz_find.
 * `limit`: a distance in metres beyond which there is no need to look, which saves time; INFINITY
 * for none. What is less than 0 or not a number counts as 0.
 *
 * `*border` receives the result. The zones beyond are the answer on the other side of the border;
 * this is never the answer of offlinetz_find at the point. It is empty where there is no zone
 * beyond: then `count` is 0. Where several borders meet in the place, the one counts that is
 * nearest to the direction of the way there. Of several places at the same distance the
 * southernmost counts, of these the westernmost.
 *
 * Returns 1; 0 if no border is within the limit; OFFLINETZ_INVALID_POINT; or OFFLINETZ_UNKNOWN.
 * Unless it returns 1, `count` is 0, and `metres`, `lat`, `lon` and `bearing` are not numbers
 * (NaN). Where nothing is known, `holds` is 0.
 *
 * It takes 3 to 9 microseconds on average, and 0.1 milliseconds at most, with 40 KB of stack. */
OFFLINETZ_API int offlinetz_nearest_border(const offlinetz_database* database, double lat,
                                           double lon, double limit, offlinetz_border* border);

/* Finds the zones within a distance: all that have a point which is not further away than `metres`.
 * Given the accuracy of a position, it tells whether the answer is certain, and which others are
 * possible. `lat` and `lon` are those of offlinetz_find. A distance that is less than 0 or not a
 * number counts as 0.
 *
 * `ids` has room for `room` ids and receives the nearest of them, in the order of their distances
 * and then of their numbers; it may be NULL if `room` is 0. `distances`: double[room], the
 * distances in metres to the nearest points of these zones. NULL: not wanted. The zones that
 * offlinetz_find has at the point come first, with the distance 0. Nautical zones count where there
 * is sea.
 *
 * Returns the number of zones, even if it is greater than `room`. At most OFFLINETZ_MOST_WITHIN
 * zones are found, the nearest ones. If there is none, the first of the ids is
 * OFFLINETZ_INVALID_POINT, OFFLINETZ_NO_ZONE or OFFLINETZ_UNKNOWN.
 *
 * For 100 km it takes 2 to 6 microseconds on average, and 0.1 milliseconds at most; the first time
 * in an area it takes longer. For all of the earth it takes up to 0.2 seconds. It uses 56 KB of
 * stack. */
OFFLINETZ_API size_t offlinetz_zones_within(const offlinetz_database* database, double lat,
                                            double lon, double metres, int32_t* ids,
                                            double* distances, size_t room);

/* Finds the first zone of each of `count` points: faster than offlinetz_find for each, and fastest
 * if near points follow each other.
 *
 * An array is the address of its first element, and its stride: the number of bytes from an element
 * to the next. It may be a column of a table as it lies in memory; elements need not be aligned,
 * and a stride may be 0 or negative. Arrays that are written must not overlap another one. `lats`,
 * `lons`: double[count], degrees. `ids`: int32_t[count], the result. NULL: not wanted. `radii_km`:
 * double[count], the safe radii. NULL: not wanted; they take time. */
OFFLINETZ_API void offlinetz_find_many(const offlinetz_database* database, size_t count,
                                       const double* lats, ptrdiff_t lat_stride, const double* lons,
                                       ptrdiff_t lon_stride, int32_t* ids, ptrdiff_t id_stride,
                                       double* radii_km, ptrdiff_t radius_stride);

/* Finds all zones of each of `count` points. The arrays of coordinates are those of
 * offlinetz_find_many.
 * `offsets`: int64_t[count + 1]. The ids of point i are values[offsets[i]] to values[offsets[i + 1]
 * - 1]; offsets[0] is 0. A point without a zone has one value, OFFLINETZ_INVALID_POINT or
 * OFFLINETZ_NO_ZONE, so each point has one at least.
 * `values`: int32_t[room]. NULL if `room` is 0.
 * Returns the number of values, which is also offsets[count]. If it is greater than `room`, values
 * holds the first `room` of them. About one point on land in a hundred has two. */
OFFLINETZ_API size_t offlinetz_find_all(const offlinetz_database* database, size_t count,
                                        const double* lats, ptrdiff_t lat_stride,
                                        const double* lons, ptrdiff_t lon_stride, int64_t* offsets,
                                        int32_t* values, size_t room);

#ifdef __cplusplus
}
#endif

#endif
