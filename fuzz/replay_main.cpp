// Runs a fuzz target without libFuzzer, so any compiler will do.
// Usage: TARGET_replay DIRECTORY COUNT   over each file of the directory, and over COUNT inputs of
//                                        random bytes, which are the same in every run
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>

#include "raw_database.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int, char** argv) {
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        const Bytes bytes = ReadFile(entry.path());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++files;
    }
    std::mt19937 random(1);
    for (int i = std::stoi(argv[2]); i > 0; --i) {
        Bytes bytes(random() % 400);
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(random());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::fprintf(stderr, "%zu seeds replayed\n", files);
    return files > 0 ? 0 : 1;
}
