// Reads the text of input files, and finds errors in JSON.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace offlinetz {

// Reads a whole file, or standard input for the path "-". Unpacks gzip and removes a byte order
// mark. Throws InputError if the file cannot be read or holds more than `maxBytes` unpacked; a few
// packed bytes can stand for more than the machine's memory.
std::string ReadText(const std::string& path, uint64_t maxBytes);

// The JSON texts of a GeoJSON text sequence (RFC 8142: a record separator before each), or of
// newline-delimited features, one a line. Blank texts are left out. The results are views of
// `text`.
std::vector<std::string_view> SplitFeatures(std::string_view text);

// Where a text stops being JSON, as "at line 2, column 5 (byte 30)"; empty if no error is found.
// Uses another parser than the one that reads features, because that one does not know the place.
std::string PlaceOfJsonError(std::string_view text);

}  // namespace offlinetz
