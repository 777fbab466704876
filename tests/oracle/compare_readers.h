// Compares the reader, on each of its code paths, with the reference reader.
#pragma once

#include <LookupInterface.h>
#include <reader/deltas.h>
#include <zonedetect.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "reference_reader.h"

// What differs between one lookup and the reference reader's answer. Null if nothing does.
inline const char* DifferenceOf(const ZDDatabase& database, const oracle::Answer& expected,
                                float lat, float lon, bool withDistance) {
    float distance;
    const std::unique_ptr<ZDResult, void (*)(ZDResult*)> results(
            ZDLookup(&database, lat, lon, withDistance ? &distance : nullptr), ZDFreeResults);
    if (results == nullptr) return "there is no list";
    const ZDResult* entry = results.get();
    for (const oracle::ZoneHit& hit : expected.hits) {
        if (entry->result != hit.result) return "the classification, or too few zones";
        if (entry->recordOffset != hit.recordOffset) return "the record";
        const char* text = entry->fieldValues[0];
        if ((text != nullptr) != hit.text.has_value()) return "a text or none";
        if (text != nullptr && *hit.text != text) return "the text";
        ++entry;
    }
    if (entry->result != ZDLookupEnd) return "too many zones";
    const bool isSame =
            !withDistance || std::memcmp(&distance, &expected.safezone, sizeof distance) == 0;
    return isSame ? nullptr : "the distance";
}

// The same for lookups with and without a distance, with the spatial index and by a scan, and with
// each decoder that the processor has.
inline const char* DifferenceAt(const ZDDatabase& database,
                                const oracle::ReferenceReader& reference, float lat, float lon) {
    const oracle::Answer expected = reference.Lookup(lat, lon);
    ZDDatabase scanned = database;
    scanned.spatialIndex = nullptr;
    for (const zonedetect::DeltaDecoder decoder :
         {zonedetect::X86DeltaDecoder(),
          zonedetect::DeltaDecoder{zonedetect::DecodeDeltasPortable}}) {
        if (decoder == nullptr) continue;
        zonedetect::deltaDecoder = decoder;
        for (const ZDDatabase* way : {&database, static_cast<const ZDDatabase*>(&scanned)}) {
            for (const bool withDistance : {true, false}) {
                const char* found = DifferenceOf(*way, expected, lat, lon, withDistance);
                if (found != nullptr) return found;
            }
        }
    }
    return nullptr;
}

// The text of an answer: the names of the zones, or the nautical zone if there is none.
inline std::string ExpectedText(const ZDDatabase& database,
                                const oracle::ReferenceReader& reference, float lat, float lon) {
    const oracle::Answer answer = reference.Lookup(lat, lon);
    if (answer.hits.empty()) return GetEtcAreaTimezone(&database, lon, lat);
    std::string joined;
    const bool isNamed = !reference.FieldNames().empty() && reference.FieldNames()[0].has_value();
    for (const oracle::ZoneHit& hit : answer.hits)
        joined += isNamed ? hit.text.value_or("") : "";
    return joined;
}

// As DifferenceAt, and compares the database manager's text as well.
inline const char* DifferenceWithText(const ZDDatabase& database,
                                      const oracle::ReferenceReader& reference, float lat,
                                      float lon) {
    using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;
    if (const char* found = DifferenceAt(database, reference, lat, lon)) return found;
    float distance;
    const std::unique_ptr<char, void (*)(void*)> answer(
            LookupTzIdIn(&database, lat, lon, &distance), std::free);
    if (answer != nullptr && ExpectedText(database, reference, lat, lon) == answer.get())
        return nullptr;
    return "the manager's answer";
}
