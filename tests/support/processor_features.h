// What the system says of the processor, to hold against what the code finds out by itself.
#pragma once

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

// Whether the system lists a feature of the processor under this name.
inline bool ProcessorHas(const std::string& feature) {
    std::ifstream file("/proc/cpuinfo");
    const std::istream_iterator<std::string> words(file);
    return std::find(words, {}, feature) != std::istream_iterator<std::string>();
}
