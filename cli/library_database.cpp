#include "library_database.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "database/open_database.h"

LibraryPtr OpenLibrary(const ZDDatabase& reader, const std::string& path) {
    offlinetz_database* opened;
    const offlinetz_status status = offlinetz_open_memory(
            ZDGetMapping(&reader), offlinetz::FileSize(reader), OFFLINETZ_SKIP_DIGEST, &opened);
    LibraryPtr database(opened);
    if (status != OFFLINETZ_OK) throw std::runtime_error(path + ": " + offlinetz_message(opened));
    return database;
}

std::vector<std::string> ZoneNames(const offlinetz_database& database) {
    std::vector<std::string> names(static_cast<size_t>(offlinetz_zone_count(&database)));
    for (size_t id = 0; id < names.size(); ++id)
        names[id] = offlinetz_zone_name(&database, static_cast<int32_t>(id));
    return names;
}
