#include "files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace bench {

void WriteFile(const std::string& path, const void* bytes, size_t size) {
    std::ofstream file(path, std::ios::binary);
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    file.close();
    if (!file) throw std::runtime_error(path + ": cannot be written");
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": cannot be read");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> ReadLines(const std::string& path) {
    std::istringstream file(ReadFile(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

MappedFile::MappedFile(const std::string& path) : mSize(std::filesystem::file_size(path)) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    void* data = mmap(nullptr, mSize, PROT_READ, MAP_PRIVATE, file, 0);
    if (file >= 0) close(file);
    if (data == MAP_FAILED) throw std::runtime_error(path + ": cannot be mapped");
    mData = static_cast<const char*>(data);
}

MappedFile::~MappedFile() {
    munmap(const_cast<char*>(mData), mSize);
}

}  // namespace bench
