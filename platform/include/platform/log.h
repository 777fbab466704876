// Where the host's log goes: standard error by default, a function of the program's own, or
// nowhere.
#pragma once

#include <functional>
#include <string>

namespace platform {

// Receives each message whole, as it was formatted, on the thread that logged it; calls do not
// overlap. The receiver must not log.
using LogReceiver = std::function<void(int priority, const char* tag, const std::string& message)>;

// Sends the log to `receiver` from now on; an empty one restores standard error, one line a
// message. Any thread may call; no call of the previous receiver is running after it returns.
void SetLogReceiver(LogReceiver receiver);

// The letter by which the host's log shows a priority.
char PriorityLetter(int priority);

// Drops the log from now on, at the cost of nothing, until SetLogReceiver is called again.
void DropLog();

}  // namespace platform
