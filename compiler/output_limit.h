// The limit that stops a compile whose result would be out of proportion to its input.
#pragma once

#include <cstdint>
#include <exception>
#include <utility>
#include <vector>

#include "database/grid.h"

namespace offlinetz {

// Thirteen times the world at the default error, and more than the world takes at any error.
constexpr uint64_t kDefaultMaxOutputBytes = uint64_t{64} << 20;

// The database would become larger than the limit. Overlaps cause that: each zone that covers a
// tile has an entry there, and each crossing of borders becomes a vertex of both.
struct OutputLimitError : std::exception {
    OutputLimitError(const GridPoint& place, std::vector<uint32_t> zonesThere)
        : at(place), zones(std::move(zonesThere)) {}
    const char* what() const noexcept override { return "the database would become too large"; }

    GridPoint at;                 // Where most zones or crossings are, in the part made so far.
    std::vector<uint32_t> zones;  // The indexes of the zones there, each once.
};

}  // namespace offlinetz
