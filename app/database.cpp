#include "database.h"

#include <LookupInterface.h>
#include <fcntl.h>
#include <sha1.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

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

std::vector<uint8_t> ReadFile(const std::string& path) {
    const std::unique_ptr<FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                             &std::fclose);
    std::vector<uint8_t> bytes;
    uint8_t buffer[65536];
    size_t got = 1;
    while (file != nullptr && got > 0 && bytes.size() <= INT32_MAX) {
        got = std::fread(buffer, 1, sizeof buffer, file.get());
        bytes.insert(bytes.end(), buffer, buffer + got);
    }
    if (file == nullptr || std::ferror(file.get()) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    return bytes;
}

std::string FaultOf(const std::string& path, const std::vector<uint8_t>& bytes) {
    using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupInterface;
    const char* const damaged = "damaged: the digest at its end does not match its content";
    if (bytes.size() <= SHA1HashSize || bytes.size() > INT32_MAX) return damaged;
    const size_t length = bytes.size() - SHA1HashSize;
    uint8_t digest[SHA1HashSize] = {};
    if (LookupInterface().sha1(bytes.data(), digest, static_cast<uint32_t>(length)) != 0 ||
        !std::equal(digest, digest + SHA1HashSize, bytes.data() + length)) {
        return damaged;
    }
    try {
        OpenDatabase(path);
    } catch (const std::runtime_error&) {
        return "unusable: the digest matches, but the content is not a zone database";
    }
    return "";
}

DatabasePtr OpenDatabase(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    const SilencedOutput silenced;
    DatabasePtr database(ZDOpenDatabase(path.c_str()));
    if (database == nullptr) throw std::runtime_error(path + ": is not a zone database");
    return database;
}
