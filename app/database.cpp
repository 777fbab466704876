#include "database.h"

#include <LookupInterface.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sha1.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace {

constexpr std::string_view kMagic = "PLB";
constexpr size_t kFieldCountPosition = 6;

// Takes a number off the front of `bytes`; false where it runs past their end.
bool TakeNumber(std::string_view* bytes, uint64_t* number) {
    *number = 0;
    for (unsigned shift = 0; !bytes->empty(); shift += 7) {
        const auto byte = static_cast<uint8_t>(bytes->front());
        bytes->remove_prefix(1);
        if (shift < 32) *number |= uint64_t{byte & 0x7Fu} << shift;
        *number &= UINT32_MAX;
        if ((byte & 0x80u) == 0) return true;
    }
    return false;
}

// The size of the file to which a header belongs; nothing where the header does not end. It tells
// a user what is wrong with a file that the reader refused, so it need not agree with the reader
// about numbers that nobody would write.
std::optional<uint64_t> SizeByHeader(std::string_view file) {
    constexpr uint64_t kReferenceBase = 256;  // From here on a string's length is a reference.
    constexpr unsigned kSections = 3;
    if (file.size() <= kFieldCountPosition) return std::nullopt;
    const unsigned strings = static_cast<uint8_t>(file[kFieldCountPosition]) + 1u;  // The notice.
    std::string_view rest = file.substr(kFieldCountPosition + 1);
    uint64_t number = 0;
    for (unsigned i = 0; i < strings; ++i) {
        if (!TakeNumber(&rest, &number)) return std::nullopt;
        if (number >= kReferenceBase) continue;
        if (number > rest.size()) return std::nullopt;
        rest.remove_prefix(number);
    }
    uint64_t sections = 0;
    for (unsigned i = 0; i < kSections; ++i) {
        if (!TakeNumber(&rest, &number)) return std::nullopt;
        sections += number;
    }
    return file.size() - rest.size() + sections + SHA1HashSize;
}

}  // namespace

SilencedOutput::SilencedOutput() {
    std::fflush(stdout);
    mSaved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
}

SilencedOutput::~SilencedOutput() {
    std::fflush(stdout);
    if (mSaved >= 0) {
        dup2(mSaved, STDOUT_FILENO);
        close(mSaved);
    }
}

DatabasePtr OpenCopy(const FileCopy& file) {
    const SilencedOutput silenced;
    return DatabasePtr(ZDOpenDatabase(file.Path().c_str()));
}

std::string FaultOf(const FileCopy& file, const ZDDatabase* opened) {
    using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupInterface;
    const std::string_view bytes(reinterpret_cast<const char*>(file.Bytes()), file.Size());
    if (bytes.empty()) return "empty";
    if (bytes.substr(0, kMagic.size()) != kMagic) {
        return "not a zone database: it does not begin with PLB";
    }
    if (opened == nullptr) {
        const std::optional<uint64_t> size = SizeByHeader(bytes);
        if (!size.has_value()) return "cut short: it ends within its header";
        if (bytes.size() < *size) {
            return fmt::format("cut short: it has {} of the {} bytes that its header says",
                               bytes.size(), *size);
        }
        if (bytes.size() > *size) {
            return fmt::format("damaged: it has {} bytes where its header says {}", bytes.size(),
                               *size);
        }
    }
    uint8_t digest[SHA1HashSize] = {};
    const size_t length = bytes.size() - SHA1HashSize;
    if (LookupInterface().sha1(file.Bytes(), digest, static_cast<uint32_t>(length)) != 0 ||
        !std::equal(digest, digest + SHA1HashSize, file.Bytes() + length)) {
        return "damaged: the digest at its end does not match its content";
    }
    if (opened == nullptr) return "unusable: it is whole, but the reader refuses it";
    return "";
}

size_t FileSize(const ZDDatabase& database) {
    return static_cast<size_t>(ZDGetLength(&database)) + SHA1HashSize;
}

DatabasePtr OpenDatabase(const std::string& path, bool verify) {
    const FileCopy file(path);
    DatabasePtr database = OpenCopy(file);
    if (!verify && database != nullptr) return database;
    const std::string fault = FaultOf(file, database.get());
    if (!fault.empty()) throw std::runtime_error(path + ": is " + fault);
    return database;
}
