// Coordinates as clients write them.
#pragma once

// Reads the longest number at the start of `text` as the standard conversion does: white space,
// sign, exponent, hexadecimal, infinity and not-a-number are accepted, the rest is ignored, and a
// number too small for a float becomes what rounding makes of it. The decimal point is a point
// whatever the process's locale says. False, with `*degrees` untouched, for a text without a
// number, a number too large for a float, or where there is no memory.
bool ParseCoordinate(const char* text, float* degrees);
