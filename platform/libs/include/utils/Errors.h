// Stand-in for the error codes of the platform's utility library.
#pragma once

#include <cstdint>

namespace android {

using status_t = int32_t;
constexpr status_t OK = 0;
constexpr status_t NAME_NOT_FOUND = -2;
constexpr status_t DEAD_OBJECT = -32;  // The process at the other end of the call has died.

}  // namespace android
