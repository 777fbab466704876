// Opens arbitrary bytes as a database and looks points up in it; the reader and the plain
// reading of the test tree must agree in everything. The input's first 16 bytes are two points,
// the rest is the content; a trailer is added, which the reader does not check.
#include <zonedetect.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "plain_reader.h"
#include "raw_database.h"

namespace {

void Require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "the readers disagree: %s\n", what);
    std::abort();
}

void Compare(const ZDDatabase* database, const oracle::PlainReader& plain, float lat, float lon) {
    const HeapDatabase copy(*database);
    const oracle::Answer expected = plain.Lookup(lat, lon);
    float safezone;
    ZDResult* results = ZDLookup(copy.get(), lat, lon, &safezone);
    Require(std::memcmp(&safezone, &expected.safezone, sizeof safezone) == 0, "distance");
    size_t i = 0;
    for (; results[i].result != ZDLookupEnd; ++i) {
        Require(i < expected.hits.size(), "too many zones");
        Require(results[i].result == expected.hits[i].result, "classification");
        Require(results[i].recordOffset == expected.hits[i].recordOffset, "record");
        const char* text = results[i].fieldValues[0];
        Require((text != nullptr) == expected.hits[i].text.has_value(), "text or none");
        Require(text == nullptr || *expected.hits[i].text == text, "text");
    }
    Require(i == expected.hits.size(), "too few zones");
    ZDFreeResults(results);
    GetEtcAreaTimezone(copy.get(), lon, lat);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    float points[4] = {};
    if (size < sizeof points) return 0;
    std::memcpy(points, data, sizeof points);
    Bytes file(data + sizeof points, data + size);
    file.resize(file.size() + 20);

    std::fflush(stdout);
    const DatabasePtr database = OpenBytes(file);
    std::unique_ptr<oracle::PlainReader> plain;
    try {
        plain = std::make_unique<oracle::PlainReader>(file);
    } catch (const std::runtime_error&) {
    }
    Require((database != nullptr) == (plain != nullptr), "whether it opens");
    if (database == nullptr) return 0;
    for (int i = 0; i < 4; i += 2)
        Compare(database.get(), *plain, points[i], points[i + 1]);
    return 0;
}
