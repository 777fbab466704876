// What a database answers at a point, for tools: from the reader, or from the text that the service
// sends.
#pragma once

#include <zonedetect.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace offlinetz {

struct ZoneAt {
    std::string identifier;  // Without the double quotes that it may be stored with.
    ZDLookupResult classification = ZDLookupInZone;  // In the zone, on a vertex, or on a border.
};

struct Answer {
    std::vector<ZoneAt> zones;  // In the database's order; one at sea.
    bool isNautical = false;    // The zone is the nautical one: no polygon contains the point.
    std::string error;          // Such as "error input"; empty where there are zones.
    float distance = 0.0f;      // Degrees to the nearest edge examined, where it was asked for.
};

// Looks a point up (degrees). A zone whose record cannot be read is left out. Throws
// std::bad_alloc.
Answer LookUp(const ZDDatabase& database, float lat, float lon, bool withDistance = false);

// Takes apart the text that the service answers with: identifiers between double quotes, or one
// without any; an error begins with "error:". The text does not tell classification and distance.
Answer ParseAnswer(const std::string& text);

// The identifiers of the zones, in their order.
std::vector<std::string> IdentifiersOf(const Answer& answer);

// The identifier within a stored text: without a double quote at both ends, if it has them.
std::string WithoutQuotes(const std::string& stored);

// An object with "lat", "lon", and "zones" or "error".
nlohmann::ordered_json AnswerJson(double lat, double lon, const Answer& answer);

// An object on one line. Bytes that are not UTF-8, which a foreign database may hold, are replaced.
std::string OneLine(const nlohmann::ordered_json& object);

}  // namespace offlinetz
