// What the measurements were made on, and with.
#pragma once

#include <string>

namespace bench {

// A Markdown list: processor, cores, memory, system, kernel, compiler, libraries, date.
std::string DescribeMachine();

}  // namespace bench
