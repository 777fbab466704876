// The antimeridian as a border: longitudes 180 and -180 are one line, and in places the answers on
// its sides differ.
#pragma once

#include <cstdint>
#include <vector>

struct offlinetz_database;

namespace offlinetz {

// A part of the antimeridian where the answers on its sides differ.
struct AntimeridianPart {
    double south;  // In units of latitude.
    double north;
    std::vector<int32_t> answers[2];  // At longitude 180 and at -180.
};

// Finds these parts, from south to north, in an open database with a tree. Returns false if a ring
// there cannot be decoded, or the rings take more reading than those of an honest database. Throws
// std::bad_alloc.
bool FindAntimeridianParts(const offlinetz_database& database,
                           std::vector<AntimeridianPart>* parts);

}  // namespace offlinetz
