// How a call ended, as the platform's utility library numbers it.
#pragma once

#include <cstdint>

namespace android {

using status_t = int32_t;
constexpr status_t OK = 0;
constexpr status_t NAME_NOT_FOUND = -2;
constexpr status_t DEAD_OBJECT = -32;  // The other end of the call has died.

}  // namespace android
