#include "printable.h"

#include <fmt/format.h>

std::string Printable(std::string_view text) {
    std::string printable;
    for (;;) {  // Part by part, because the library escapes double quotes too.
        const size_t quote = text.find('"');
        const std::string escaped = fmt::format("{:?}", text.substr(0, quote));
        printable.append(escaped, 1, escaped.size() - 2);
        if (quote == std::string_view::npos) return printable;
        printable += '"';
        text.remove_prefix(quote + 1);
    }
}
