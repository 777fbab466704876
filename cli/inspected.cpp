#include "inspected.h"

#include <fmt/format.h>
#include <reader/units.h>

#include <stdexcept>

#include "compiler/geometry.h"

InspectedFile Inspect(const std::string& path, Progress* progress) {
    InspectedFile file;
    file.database = offlinetz::OpenDatabase(path);
    if (!zonedetect::HasScale(*file.database)) {
        throw std::runtime_error(fmt::format("{}: has the precision {}, which is not from 1 to 31",
                                             path, file.database->precision));
    }
    file.scale = int32_t{1} << (file.database->precision - 1);
    offlinetz::StartGeometry();
    try {
        file.inspected = offlinetz::InspectZones(*file.database, progress->Callback());
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
    return file;
}
