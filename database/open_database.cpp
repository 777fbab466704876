#include "open_database.h"

#include <reader/format.h>

#include <new>
#include <stdexcept>
#include <utility>

#include "library/file_fault.h"

namespace offlinetz {

namespace {

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
    throw std::runtime_error(path + ": " + reason);
}

}  // namespace

std::shared_ptr<const FileBytes> ReadFileBytes(const std::string& path) try {
    FileBytes bytes;
    const ReadFault fault = ReadFile(path.c_str(), &bytes);
    if (!fault.reason.empty()) Fail(path, fault.reason);
    return std::make_shared<const FileBytes>(std::move(bytes));
} catch (const std::bad_alloc&) {
    Fail(path, "is too large for the free memory");
}

size_t FileSize(const ZDDatabase& database) {
    return static_cast<size_t>(ZDGetLength(&database)) + zonedetect::kTrailerSize;
}

CheckedDatabase CheckFile(std::shared_ptr<const FileBytes> bytes, bool verify) {
    zonedetect::OpenFailure failure;
    CheckedDatabase checked;
    checked.database =
            DatabasePtr(zonedetect::OpenBytes(bytes->data(), bytes->size(), &failure), {bytes});
    if (checked.database == nullptr) {
        checked.fault = FaultOf(bytes->data(), bytes->size(), failure).phrase;
    } else if (verify) {
        checked.fault = DigestFaultOf(bytes->data(), bytes->size()).phrase;
    }
    return checked;
}

DatabasePtr OpenDatabase(const std::string& path, bool verify) {
    CheckedDatabase checked = CheckFile(ReadFileBytes(path), verify);
    if (!checked.fault.empty()) Fail(path, "is " + checked.fault);
    return std::move(checked.database);
}

}  // namespace offlinetz
