// The sections of the report, each as Markdown. `directory` holds what make_bench_inputs wrote; the
// pictures' numbers are written beside it.
#pragma once

#include <string>

namespace bench {

std::string PeersSection(const std::string& directory);         // Beside GEOS and S2.
std::string PlainReadingSection(const std::string& directory);  // Beside the tests' plain reader.
std::string OpeningSection(const std::string& directory);       // Opening and the first lookup.
std::string SizeSection(const std::string& directory);          // Size against speed.
std::string SafeRadiusSection(const std::string& directory);    // The distance and the true one.
std::string GrowthSection(const std::string& directory);        // More zones, longer rings.

}  // namespace bench
