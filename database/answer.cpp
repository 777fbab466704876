#include "answer.h"

#include <memory>
#include <new>
#include <utility>

#include "text_rules.h"

namespace offlinetz {

namespace {

// The texts between pairs of double quotes. The whole text if a quote has no partner, or if there
// is none.
std::vector<std::string> SplitAtQuotes(const std::string& text) {
    std::vector<std::string> parts;
    size_t open = text.find('"');
    while (open != std::string::npos) {
        const size_t close = text.find('"', open + 1);
        if (close == std::string::npos) return {text};
        parts.push_back(text.substr(open + 1, close - open - 1));
        open = text.find('"', close + 1);
    }
    return parts.empty() ? std::vector<std::string>{text} : parts;
}

}  // namespace

Answer LookUp(const ZDDatabase& database, float lat, float lon) {
    const std::unique_ptr<ZDResult, void (*)(ZDResult*)> results(
            ZDLookup(&database, lat, lon, nullptr), ZDFreeResults);
    if (results == nullptr) throw std::bad_alloc();
    Answer answer;
    if (results->result == ZDLookupEnd) {
        answer = ParseAnswer(GetEtcAreaTimezone(&database, lon, lat));
        answer.isNautical = answer.error.empty();
        return answer;
    }
    for (const ZDResult* entry = results.get(); entry->result != ZDLookupEnd; ++entry) {
        if (entry->fieldNames[0] == nullptr || entry->fieldValues[0] == nullptr) continue;
        for (std::string& identifier : SplitAtQuotes(entry->fieldValues[0]))
            answer.zones.push_back(std::move(identifier));
    }
    return answer;
}

Answer ParseAnswer(const std::string& text) {
    Answer answer;
    const std::vector<std::string> parts = SplitAtQuotes(text);
    if (parts[0].rfind(kErrorPrefix, 0) == 0) {
        answer.error = parts[0].substr(kErrorPrefix.size());
        return answer;
    }
    answer.zones = parts;
    return answer;
}

std::string WithoutQuotes(const std::string& stored) {
    const bool isQuoted = stored.size() >= 2 && stored.front() == '"' && stored.back() == '"';
    return isQuoted ? stored.substr(1, stored.size() - 2) : stored;
}

nlohmann::ordered_json AnswerJson(double lat, double lon, const Answer& answer) {
    nlohmann::ordered_json object = {{"lat", lat}, {"lon", lon}};
    if (answer.error.empty()) {
        object["zones"] = answer.zones;
    } else {
        object["error"] = answer.error;
    }
    return object;
}

std::string OneLine(const nlohmann::ordered_json& object) {
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace offlinetz
