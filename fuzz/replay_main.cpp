// Runs the fuzz target over every file of the directories given, with any compiler.
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "raw_database.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            const Bytes bytes = ReadFile(entry.path());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++files;
        }
    }
    std::fprintf(stderr, "%zu inputs replayed\n", files);
    return files > 0 ? 0 : 1;
}
