// Where the world database lies that is installed with the library.
#pragma once

#include <string>

namespace offlinetz {

// The file at the place that it has beside this library, so that an installation can be moved; if
// there is none, where the library was built to be installed. Any thread may call. Throws
// std::bad_alloc.
std::string DefaultDatabasePath();

}  // namespace offlinetz
