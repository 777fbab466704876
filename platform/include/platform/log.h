// Sets where the log of a host program goes: to standard error (the default), to a function of the
// program, or nowhere. Any thread may call the functions here.
#pragma once

#include <functional>
#include <string>

namespace platform {

// Receives each message complete and formatted, on the thread that logged it. Calls do not overlap.
// The log's lock is held, and the service may hold a lock of its own: the receiver must not log,
// call the service or call SetLogReceiver. If it throws, the message is lost. Strings are valid
// until it returns.
using LogReceiver = std::function<void(int priority, const char* tag, const std::string& message)>;

// Sends the log to `receiver` from now on. An empty receiver restores standard error, with one line
// per message. After it returns no call of the previous receiver is in progress.
void SetLogReceiver(LogReceiver receiver);

// Returns the letter that stands for a priority in the log on standard error; '?' for others.
char PriorityLetter(int priority);

// Drops the log until SetLogReceiver is called. Dropped messages are not formatted. Takes no lock:
// a call of the receiver may still be in progress when it returns.
void DropLog();

}  // namespace platform
