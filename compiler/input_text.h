// The text of an input file, and where it is broken.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace offlinetz {

// A whole file, or standard input for the path "-", unpacked where it is gzip, without a byte order
// mark. Throws InputError where it cannot be read, or holds more than `maxBytes` unpacked: a few
// packed bytes can stand for more than the machine has memory for.
std::string ReadText(const std::string& path, uint64_t maxBytes);

// The JSON texts of a GeoJSON text sequence (RFC 8142: a record separator before each) or of
// newline-delimited features, one a line. Blank ones are left out.
std::vector<std::string_view> SplitFeatures(std::string_view text);

// Where JSON text stops being such, as "at line 2, column 5 (byte 30)"; empty where a second
// parser finds nothing wrong with it.
std::string PlaceOfJsonError(std::string_view text);

}  // namespace offlinetz
