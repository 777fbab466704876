// The reader on every way that it can go, held against the plain reading.
#pragma once

#include <LookupInterface.h>
#include <deltas.h>
#include <zonedetect.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "choices.h"
#include "plain_reader.h"

inline void CompareLookup(const ZDDatabase& database, const oracle::Answer& expected, float lat,
                          float lon, bool withDistance) {
    float distance;
    const std::unique_ptr<ZDResult, void (*)(ZDResult*)> results(
            ZDLookup(&database, lat, lon, withDistance ? &distance : nullptr), ZDFreeResults);
    Require(results != nullptr, "a list");
    const ZDResult* entry = results.get();
    for (const oracle::ZoneHit& hit : expected.hits) {
        Require(entry->result == hit.result, "the classification, or too few zones");
        Require(entry->recordOffset == hit.recordOffset, "the record");
        const char* text = entry->fieldValues[0];
        Require((text != nullptr) == hit.text.has_value(), "a text or none");
        Require(text == nullptr || *hit.text == text, "the text");
        ++entry;
    }
    Require(entry->result == ZDLookupEnd, "too many zones");
    Require(!withDistance || std::memcmp(&distance, &expected.safezone, sizeof distance) == 0,
            "the distance");
}

// The text of an answer: the names of the zones, or the nautical zone where there is none.
inline std::string ExpectedText(const ZDDatabase& database, const oracle::PlainReader& plain,
                                float lat, float lon) {
    const oracle::Answer answer = plain.Lookup(lat, lon);
    if (answer.hits.empty()) return GetEtcAreaTimezone(&database, lon, lat);
    std::string joined;
    const bool isNamed = !plain.FieldNames().empty() && plain.FieldNames()[0].has_value();
    for (const oracle::ZoneHit& hit : answer.hits)
        joined += isNamed ? hit.text.value_or("") : "";
    return joined;
}

// Looks one point up with and without a distance, by the directory and by a scan, and with each
// decoder that the processor has: all must give what the plain reading gives, and the database
// manager the text that follows from it. Ends the process where they do not.
inline void CompareReaders(const ZDDatabase& database, const oracle::PlainReader& plain, float lat,
                           float lon) {
    using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;
    const oracle::Answer expected = plain.Lookup(lat, lon);
    ZDDatabase scanned = database;
    scanned.directory = nullptr;
    for (const zonedetect::DeltaDecoder decoder :
         {zonedetect::X86DeltaDecoder(),
          zonedetect::DeltaDecoder{zonedetect::DecodeDeltasPortable}}) {
        if (decoder == nullptr) continue;
        zonedetect::deltaDecoder = decoder;
        for (const bool withDistance : {true, false}) {
            CompareLookup(database, expected, lat, lon, withDistance);
            CompareLookup(scanned, expected, lat, lon, withDistance);
        }
    }
    float distance;
    const std::unique_ptr<char, void (*)(void*)> answer(
            LookupTzIdIn(&database, lat, lon, &distance), std::free);
    Require(answer != nullptr && ExpectedText(database, plain, lat, lon) == answer.get(),
            "the manager's answer");
}
