// How long work reports its progress.
#pragma once

#include <cstddef>
#include <functional>

namespace offlinetz {

// Receives a step's name and `done` of `all` parts; `all` is 0 if the number is unknown. Called on
// the thread that does the work, so it must be quick. The name is valid during the call only.
using ProgressCallback = std::function<void(const char* step, size_t done, size_t all)>;

}  // namespace offlinetz
