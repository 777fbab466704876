// The text of an input file, and where it is broken.
#pragma once

#include <cstdint>
#include <string>

namespace offlinetz {

// A whole file, unpacked where it is gzip, without a byte order mark. Throws InputError where it
// cannot be read, or holds more than `maxBytes` unpacked: a few packed bytes can stand for more
// than the machine has memory for.
std::string ReadText(const std::string& path, uint64_t maxBytes);

// Where JSON text stops being such, as "at line 2, column 5 (byte 30)"; empty where a second
// parser finds nothing wrong with it.
std::string PlaceOfJsonError(const std::string& text);

}  // namespace offlinetz
