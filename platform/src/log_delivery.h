// The way of a message from __android_log_print to where the program wants it.
#pragma once

#include <string>

namespace platform {

// Whether messages are dropped: then they need not be formatted.
bool IsLogDropped();

// Hands a message to the receiver, or writes it to standard error. May throw std::bad_alloc, and
// what the receiver throws.
void DeliverLog(int priority, const char* tag, const std::string& message);

}  // namespace platform
