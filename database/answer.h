// The answer at a point, for tools: from the reader, or parsed from the text that the service
// sends. All functions may be called on any thread.
#pragma once

#include <zonedetect.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace offlinetz {

struct Answer {
    // The identifiers, without the double quotes of the stored records, in the reader's order.
    // Exactly one at sea.
    std::vector<std::string> zones;
    bool isNautical = false;  // No polygon contains the point, so the zone is the nautical one.
    std::string error;        // Such as "error input". Empty if there are zones.
};

// Looks up a point in degrees. Zones whose records cannot be read are left out. A record that holds
// several identifiers in double quotes counts as several zones, as for a client of the service.
// Throws std::bad_alloc.
Answer LookUp(const ZDDatabase& database, float lat, float lon);

// Parses the text of the service's answer: identifiers in double quotes, or one identifier without
// quotes, or "error:" and the error.
Answer ParseAnswer(const std::string& text);

// Removes the double quotes at both ends of a stored text, if it has both.
std::string WithoutQuotes(const std::string& stored);

// An object with "lat" and "lon" (degrees), and "zones" (identifiers) or "error".
nlohmann::ordered_json AnswerJson(double lat, double lon, const Answer& answer);

// Serialises an object on one line. Bytes that are not UTF-8, which a foreign database may contain,
// become U+FFFD.
std::string OneLine(const nlohmann::ordered_json& object);

}  // namespace offlinetz
