#include "printable.h"

#include <fmt/format.h>

std::string Printable(std::string_view text) {
    const std::string quoted = fmt::format("{:?}", text);
    return quoted.substr(1, quoted.size() - 2);
}
