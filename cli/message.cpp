#include "message.h"

#include <fmt/format.h>
#include <platform/log.h>

#include <cstdio>
#include <string>

std::string Printable(std::string_view text) {
    std::string printable;
    for (;;) {  // The library escapes double quotes too, so it gets the text between them only.
        const size_t quote = text.find('"');
        const std::string escaped = fmt::format("{:?}", text.substr(0, quote));
        printable.append(escaped, 1, escaped.size() - 2);
        if (quote == std::string_view::npos) return printable;
        printable += '"';
        text.remove_prefix(quote + 1);
    }
}

void PrintMessage(std::string_view text) {
    std::fprintf(stderr, "offlinetz: %s\n", Printable(text).c_str());
}

void UseLog(bool isWanted) {
    if (!isWanted) {
        platform::DropLog();
        return;
    }
    platform::SetLogReceiver([](int priority, const char* tag, const std::string& message) {
        std::string_view text = message;
        if (!text.empty() && text.back() == '\n')
            text.remove_suffix(1);  // Many messages end with one.
        std::fprintf(stderr, "%c %s: %s\n", platform::PriorityLetter(priority), tag,
                     Printable(text).c_str());
    });
}
