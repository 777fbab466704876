// Parsing of the coordinates that clients send as texts.
#pragma once

// Reads the longest number at the start of `text` (zero-terminated) as strtof does in the "C"
// locale, whatever locale the process has set. Leading white space, a sign, an exponent,
// hexadecimal digits, infinity and NaN are accepted; text after the number is ignored. A number too
// small for a float is rounded. Returns false and leaves `*degrees` alone if there is no number, if
// the number is too large for a float, or without memory for the locale. Any thread may call.
bool ParseCoordinate(const char* text, float* degrees);
