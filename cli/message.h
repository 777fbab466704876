// Messages on standard error. Every message of the program goes through here, because it may quote
// untrusted text: a file name, the content of a file, an option.
#pragma once

#include <string>
#include <string_view>

// The text on one line, safe for a terminal: control characters, invisible characters, bytes that
// are not UTF-8, and backslashes are escaped. Double quotes are not.
std::string Printable(std::string_view text);

// Writes one line to standard error: "offlinetz: " and Printable(text).
void PrintMessage(std::string_view text);

// If `isWanted`, prints the log of the service's units on standard error from now on, one line a
// message, escaped as by Printable. Otherwise drops the log. Any thread may call.
void UseLog(bool isWanted);
