// The texts that the reader and the service answer with, taken apart.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "points.h"

// The identifiers in an answer: those between double quotes, or the whole text without any.
std::vector<std::string> SplitIdentifiers(const std::string& raw);

// Whether an answer tells an error instead of zones.
bool IsError(const std::string& raw);

// The answer as an object: "lat", "lon", and "zones" or "error"; with `withRaw` also "raw", the
// text as it came.
nlohmann::ordered_json AnswerJson(const PointText& point, const std::string& raw, bool withRaw);

// An object on one line. A foreign database or input may hold any bytes; what is not UTF-8 is
// replaced.
std::string OneLine(const nlohmann::ordered_json& object);
