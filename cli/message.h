// Messages on standard error, and foreign text on its way to a terminal. Every message of the
// program goes through here, because it may quote foreign text: a file name, a file's content, an
// option.
#pragma once

#include <string>
#include <string_view>

// The text on one line. Escaped are control characters, invisible characters, bytes that are not
// UTF-8, and backslashes, so that a text cannot fake an escape.
std::string Printable(std::string_view text);

// Writes one line: "offlinetz: " and the text as Printable gives it.
void PrintMessage(std::string_view text);

// Sends the log of the service's units to standard error, one line a message, escaped likewise;
// drops it where `isWanted` is false.
void UseLog(bool isWanted);
