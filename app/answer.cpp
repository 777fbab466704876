#include "answer.h"

namespace {
constexpr char kErrorPrefix[] = "error:";
}

std::vector<std::string> SplitIdentifiers(const std::string& raw) {
    std::vector<std::string> identifiers;
    size_t open = raw.find('"');
    if (open == std::string::npos) return {raw};
    while (open != std::string::npos) {
        const size_t close = raw.find('"', open + 1);
        if (close == std::string::npos) return {raw};
        identifiers.push_back(raw.substr(open + 1, close - open - 1));
        open = raw.find('"', close + 1);
    }
    return identifiers;
}

bool IsError(const std::string& raw) {
    return SplitIdentifiers(raw).front().rfind(kErrorPrefix, 0) == 0;
}

nlohmann::ordered_json AnswerJson(const PointText& point, const std::string& raw, bool withRaw) {
    nlohmann::ordered_json object = {{"lat", point.lat}, {"lon", point.lon}};
    std::vector<std::string> identifiers = SplitIdentifiers(raw);
    if (IsError(raw)) {
        object["error"] = identifiers.front().substr(sizeof kErrorPrefix - 1);
    } else {
        object["zones"] = std::move(identifiers);
    }
    if (withRaw) object["raw"] = raw;
    return object;
}

std::string OneLine(const nlohmann::ordered_json& object) {
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}
