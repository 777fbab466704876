// Messages on standard error. Every one that the program itself writes goes through here, because
// any may hold foreign text: a file's name, what stands in it, an option's value.
#pragma once

#include <string_view>

// Writes one line: "offlinetz: " and the text as Printable (printable.h) gives it.
void PrintMessage(std::string_view text);

// Sends the log of the service's parts to standard error, a line a message, escaped likewise; drops
// it where `isWanted` is false.
void UseLog(bool isWanted);
