// JSON (RFC 8259), written into a text piece by piece: for millions of objects a library's tree of
// values takes several times as long.
#pragma once

#include <string>
#include <string_view>

// Appends a string with its quotes. Bytes that are not UTF-8 become U+FFFD.
void AppendJsonString(std::string_view value, std::string* text);

// Appends a number: `digits`, which a user wrote for `value`, as they are if that is a JSON number,
// else the shortest digits for `value`.
void AppendJsonNumber(std::string_view digits, double value, std::string* text);
