// Rules for the texts of a database: zone identifiers and notices.
#pragma once

#include <string_view>

namespace offlinetz {

// The error answers of the service begin with this.
constexpr std::string_view kErrorPrefix = "error:";

// The functions return why a text is not allowed, as a phrase such as "is empty" that follows the
// name of the text, or null if the text is allowed. The phrase is a string literal. The length is
// not checked; see kMaxStringLength. Both kinds of text are printed to terminals and logs, so they
// must be UTF-8 without control characters.

// Checks an identifier, without the double quotes of the stored record. It must not contain a
// double quote, at which clients split an answer, or begin with "error:", by which they recognise
// an error.
const char* FaultOfIdentifier(std::string_view identifier);

// Checks a notice. It may be empty.
const char* FaultOfNotice(std::string_view notice);

}  // namespace offlinetz
