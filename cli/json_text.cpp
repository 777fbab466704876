#include "json_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "database/answer.h"

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Removes the digits at the beginning, and returns whether there are any.
bool TakeDigits(std::string_view* text) {
    const size_t count = static_cast<size_t>(std::find_if_not(text->begin(), text->end(), IsDigit) -
                                             text->begin());
    text->remove_prefix(count);
    return count > 0;
}

// Whether a text is a number by the grammar of JSON.
bool IsJsonNumber(std::string_view text) {
    if (!text.empty() && text.front() == '-') text.remove_prefix(1);
    if (text.size() > 1 && text[0] == '0' && IsDigit(text[1])) return false;
    if (!TakeDigits(&text)) return false;
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        if (!TakeDigits(&text)) return false;
    }
    if (!text.empty() && (text.front() == 'e' || text.front() == 'E')) {
        text.remove_prefix(1);
        if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
        if (!TakeDigits(&text)) return false;
    }
    return text.empty();
}

}  // namespace

void AppendJsonString(std::string_view value, std::string* text) {
    const bool isPlain = std::all_of(value.begin(), value.end(), [](char c) {
        return c >= ' ' && c <= '~' && c != '"' && c != '\\';
    });
    if (!isPlain) {
        text->append(offlinetz::OneLine(nlohmann::ordered_json(value)));
        return;
    }
    text->push_back('"');
    text->append(value);
    text->push_back('"');
}

void AppendJsonNumber(std::string_view digits, double value, std::string* text) {
    if (IsJsonNumber(digits)) {
        text->append(digits);
    } else {
        text->append(nlohmann::ordered_json(value).dump());
    }
}
