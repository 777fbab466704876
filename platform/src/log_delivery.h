// Delivers messages from __android_log_print to the receiver that platform/log.h sets. Any thread
// may call the functions here.
#pragma once

#include <string>

namespace platform {

// Whether messages are dropped, so that they need not be formatted. Takes no lock.
bool IsLogDropped();

// Passes a message to the receiver, or writes it to standard error. Does nothing if messages are
// dropped. Throws std::bad_alloc without memory, and what the receiver throws; the message is then
// lost.
void DeliverLog(int priority, const char* tag, const std::string& message);

}  // namespace platform
