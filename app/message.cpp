#include "message.h"

#include <host/log.h>

#include <cstdio>
#include <string>

#include "printable.h"

void PrintMessage(std::string_view text) {
    std::fprintf(stderr, "offlinetz: %s\n", Printable(text).c_str());
}

void UseLog(bool isWanted) {
    if (!isWanted) {
        host::DropLog();
        return;
    }
    host::SetLogReceiver([](int priority, const char* tag, const std::string& message) {
        std::string_view text = message;
        if (!text.empty() && text.back() == '\n') text.remove_suffix(1);  // As many end.
        std::fprintf(stderr, "%c %s: %s\n", host::PriorityLetter(priority), tag,
                     Printable(text).c_str());
    });
}
