#include <offlinetz.h>

#include <reader/format.h>
#include <reader/open_bytes.h>
#include <reader/units.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "database.h"
#include "default_database.h"
#include "file_fault.h"
#include "find.h"
#include "nearest_border.h"
#include "safe_radius.h"
#include "zones_within.h"

using offlinetz::FileFault;

namespace {

constexpr unsigned kAllFlags = OFFLINETZ_SKIP_DIGEST | OFFLINETZ_MAP | OFFLINETZ_NO_NAUTICAL;

// Opens the database whose bytes are in memory. Throws std::bad_alloc.
FileFault OpenBytes(const uint8_t* bytes, size_t size, unsigned flags,
                    offlinetz_database* database) {
    zonedetect::OpenFailure failure;
    std::unique_ptr<ZDDatabase, void (*)(ZDDatabase*)> reader(
            zonedetect::OpenBytes(bytes, size, &failure), ZDCloseDatabase);
    if (reader == nullptr) return offlinetz::FaultOf(bytes, size, failure);
    if ((flags & OFFLINETZ_SKIP_DIGEST) == 0) {
        FileFault fault = offlinetz::DigestFaultOf(bytes, size);
        if (fault.status != OFFLINETZ_OK) return fault;
    }
    // Without a unit there is no answer.
    if (!zonedetect::HasScale(*reader))
        return {OFFLINETZ_REFUSED, "damaged: its precision is not 1 to 31"};
    offlinetz::ZoneNames names;
    if (!database->index.Build(*reader, &names))
        return {OFFLINETZ_REFUSED, "damaged: the parts that its header lists cannot be right"};
    database->scale = zonedetect::Scale(*reader);
    database->isNautical = (flags & OFFLINETZ_NO_NAUTICAL) == 0 &&
                           reader->precision == zonedetect::kNauticalPrecision;
    database->hasRadius = offlinetz::HasSafeRadius(*reader);
    database->names = std::move(names);
    database->reader = reader.release();
    offlinetz::PrepareBorders(database);
    return {};
}

// Reads or maps the file, and opens it. Throws std::bad_alloc.
offlinetz_status OpenFile(const char* path, unsigned flags, offlinetz_database* database) {
    const std::string name = path != nullptr ? path : offlinetz::DefaultDatabasePath();
    const bool isMapped = (flags & OFFLINETZ_MAP) != 0;
    const offlinetz::ReadFault unreadable =
            isMapped ? database->mapping.Map(name.c_str())
                     : offlinetz::ReadFile(name.c_str(), &database->bytes);
    if (!unreadable.reason.empty()) {
        database->message = name + ": " + unreadable.reason;
        errno = unreadable.number;
        return unreadable.number != 0 ? OFFLINETZ_UNREADABLE : OFFLINETZ_REFUSED;
    }
    const offlinetz::FileMapping& mapping = database->mapping;
    const FileFault fault =
            isMapped ? OpenBytes(mapping.Bytes(), mapping.Size(), flags, database)
                     : OpenBytes(database->bytes.data(), database->bytes.size(), flags, database);
    if (fault.status != OFFLINETZ_OK) database->message = name + ": is " + fault.phrase;
    return fault.status;
}

// Makes the object that opening gives out, and fills it by open(database), which may throw.
template <typename Open>
offlinetz_status MakeDatabase(unsigned flags, offlinetz_database** result, const Open& open) {
    offlinetz_database* const database = new (std::nothrow) offlinetz_database;
    *result = database;
    if (database == nullptr) return OFFLINETZ_NO_MEMORY;
    try {
        if ((flags & ~kAllFlags) != 0) {
            database->message = "the flags hold a bit that has no meaning";
            return OFFLINETZ_BAD_FLAGS;
        }
        return open(database);
    } catch (const std::bad_alloc&) {
        offlinetz_close(database);
        *result = nullptr;
        return OFFLINETZ_NO_MEMORY;
    }
}

bool IsOpen(const offlinetz_database& database) {
    return database.reader != nullptr;
}

}  // namespace

offlinetz_status offlinetz_open(const char* path, unsigned flags, offlinetz_database** database) {
    return MakeDatabase(flags, database,
                        [&](offlinetz_database* made) { return OpenFile(path, flags, made); });
}

offlinetz_status offlinetz_open_memory(const void* bytes, size_t size, unsigned flags,
                                       offlinetz_database** database) {
    return MakeDatabase(flags, database, [&](offlinetz_database* made) {
        const FileFault fault = OpenBytes(static_cast<const uint8_t*>(bytes), size, flags, made);
        if (fault.status != OFFLINETZ_OK) made->message = "the database is " + fault.phrase;
        return fault.status;
    });
}

void offlinetz_close(offlinetz_database* database) {
    delete database;
}

const char* offlinetz_message(const offlinetz_database* database) {
    return database != nullptr ? database->message.c_str() : "there is not enough memory";
}

int offlinetz_version(const offlinetz_database* database) {
    return IsOpen(*database) ? static_cast<int>(ZDgetDBVersion(database->reader)) : 0;
}

const char* offlinetz_notice(const offlinetz_database* database) {
    return IsOpen(*database) ? ZDGetNotice(database->reader) : "";
}

int32_t offlinetz_zone_count(const offlinetz_database* database) {
    return database->names.Count();
}

const char* offlinetz_zone_name(const offlinetz_database* database, int32_t id) {
    return database->names.NameOf(id);
}

int32_t offlinetz_zone_id(const offlinetz_database* database, const char* name) {
    const int32_t id = database->names.IdOf(name);
    return id >= 0 ? id : OFFLINETZ_NO_ZONE;
}

size_t offlinetz_find(const offlinetz_database* database, double lat, double lon, int32_t* ids,
                      size_t room, int* on_border, double* radius_km) {
    return offlinetz::Find(*database, lat, lon, ids, room, on_border, radius_km);
}

int offlinetz_has_borders(const offlinetz_database* database) {
    return database->hasBorders ? 1 : 0;
}

int offlinetz_nearest_border(const offlinetz_database* database, double lat, double lon,
                             double limit, offlinetz_border* border) {
    return offlinetz::NearestBorder(*database, lat, lon, limit, border);
}

size_t offlinetz_zones_within(const offlinetz_database* database, double lat, double lon,
                              double metres, int32_t* ids, double* distances, size_t room) {
    return offlinetz::ZonesWithin(*database, lat, lon, metres, ids, distances, room);
}

void offlinetz_find_many(const offlinetz_database* database, size_t count, const double* lats,
                         ptrdiff_t lat_stride, const double* lons, ptrdiff_t lon_stride,
                         int32_t* ids, ptrdiff_t id_stride, double* radii_km,
                         ptrdiff_t radius_stride) {
    offlinetz::FindMany(*database, count, {lats, lat_stride}, {lons, lon_stride}, {ids, id_stride},
                        {radii_km, radius_stride});
}

size_t offlinetz_find_all(const offlinetz_database* database, size_t count, const double* lats,
                          ptrdiff_t lat_stride, const double* lons, ptrdiff_t lon_stride,
                          int64_t* offsets, int32_t* values, size_t room) {
    return offlinetz::FindAll(*database, count, {lats, lat_stride}, {lons, lon_stride}, offsets,
                              values, room);
}
