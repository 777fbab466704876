// Whole files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

// All functions throw std::runtime_error with the path.
void WriteFile(const std::string& path, const void* bytes, size_t size);
std::string ReadFile(const std::string& path);
std::vector<std::string> ReadLines(const std::string& path);

// A file that is mapped for reading.
class MappedFile {
  public:
    explicit MappedFile(const std::string& path);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    const char* Data() const { return mData; }
    size_t Size() const { return mSize; }

  private:
    const char* mData = nullptr;
    size_t mSize = 0;
};

}  // namespace bench
