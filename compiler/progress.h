// How long work reports how far it is.
#pragma once

#include <cstddef>
#include <functional>

namespace offlinetz {

// Receives a step's name and how far it is: `done` of `all` parts, or of an unknown number where
// `all` is 0. Called on the thread that does the work.
using ProgressCallback = std::function<void(const char* step, size_t done, size_t all)>;

}  // namespace offlinetz
