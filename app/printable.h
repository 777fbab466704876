// Foreign text on its way to a terminal.
#pragma once

#include <string>
#include <string_view>

// The text on one line, with what a terminal could obey escaped: control characters, characters
// that cannot be seen, and bytes that are not UTF-8; backslashes too, so that an escape cannot be
// feigned.
std::string Printable(std::string_view text);
