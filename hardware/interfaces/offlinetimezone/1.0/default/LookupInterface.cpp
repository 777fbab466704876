#include "LookupInterface.h"

#include <android/log.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "database_files.h"
#include "database_paths.h"
#include "fixed_answers.h"
#include "sha1.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

namespace {

constexpr char kTag[] = "OfflinetimezoneInterface";

#define LOG_LINE(...) __android_log_print(ANDROID_LOG_INFO, kTag, __VA_ARGS__)

// The open database, or null. Only the worker's thread changes it and looks up points in it, so the
// worker reads it without a lock. sDatabaseMutex guards it against version queries from other
// threads. The lock is held for an assignment or a query only, never while a file is opened,
// verified or closed. WorkerThread.h lists all locks of the service.
ZDDatabase* sDatabase = nullptr;
std::mutex sDatabaseMutex;

ZDDatabase* ExchangeDatabase(ZDDatabase* database) {
    const std::lock_guard<std::mutex> lock(sDatabaseMutex);
    ZDDatabase* previous = sDatabase;
    sDatabase = database;
    return previous;
}

// Returns zeroed memory for an answer of `length` bytes and two terminating zero bytes; null
// without memory.
char* AllocateAnswer(size_t length) {
    return static_cast<char*>(std::calloc(length + 2, 1));
}

char* CopyAnswer(const char* text) {
    const size_t length = std::strlen(text);
    char* answer = AllocateAnswer(length);
    if (answer != nullptr) std::memcpy(answer, text, length);
    return answer;
}

// Returns the zone's identifier, or null if the entry has no first field name or value.
const char* ZoneString(const ZDResult& entry) {
    if (entry.fieldValues == nullptr || entry.fieldNames == nullptr) return nullptr;
    return entry.fieldNames[0] != nullptr ? entry.fieldValues[0] : nullptr;
}

char* JoinZoneStrings(const ZDResult* results) {
    size_t total = 0;
    for (const ZDResult* entry = results; entry->result != ZDLookupEnd; ++entry) {
        const char* zone = ZoneString(*entry);
        if (zone == nullptr) continue;
        LOG_LINE("%s: %s %c\n", entry->fieldNames[0], zone, zone[0]);
        total += std::strlen(zone);
    }
    char* answer = AllocateAnswer(total);
    if (answer == nullptr) return nullptr;
    char* end = answer;
    for (const ZDResult* entry = results; entry->result != ZDLookupEnd; ++entry) {
        const char* zone = ZoneString(*entry);
        if (zone == nullptr) continue;
        const size_t length = std::strlen(zone);
        std::memcpy(end, zone, length);
        end += length;
    }
    return answer;
}

void LogDigest(const uint8_t* d) {
    LOG_LINE(
            "%02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x "
            "%02x %02x %02x ",
            d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7], d[8], d[9], d[10], d[11], d[12], d[13],
            d[14], d[15], d[16], d[17], d[18], d[19]);
}

// Computes the SHA-1 of `length` bytes. Returns false after it logged the step that failed.
bool Digest(const uint8_t* data, uint32_t length, uint8_t* digest) {
    SHA1Context context = {};
    SHA1Reset(&context);
    int error = SHA1Input(&context, data, length);
    if (error != shaSuccess) {
        LOG_LINE("SHA1Input Error %d.\n", error);
        return false;
    }
    error = SHA1Result(&context, digest);
    if (error != shaSuccess) {
        LOG_LINE("SHA1Result Error %d, could not compute message digest.\n", error);
        return false;
    }
    return true;
}

}  // namespace

LookupInterface::LookupInterface() : mDebug(1) {}

void LookupInterface::OpenDB() {
    LOG_LINE("Try to OpenDB %s\n", kActiveDatabasePath);
    ZDDatabase* database = ZDOpenDatabase(kActiveDatabasePath);
    ExchangeDatabase(database);
    if (database == nullptr) LOG_LINE("Open DB failed\n");
}

void LookupInterface::CloseDB() {
    ZDCloseDatabase(ExchangeDatabase(nullptr));
}

int32_t LookupInterface::getDBVersion() {
    const std::lock_guard<std::mutex> lock(sDatabaseMutex);
    return sDatabase != nullptr ? static_cast<int32_t>(ZDgetDBVersion(sDatabase)) : kNoVersion;
}

char* LookupInterface::LookupTzId(float lat, float lon) {
    float safezone;
    return LookupTzIdIn(sDatabase, lat, lon, &safezone);
}

char* LookupTzIdIn(const ZDDatabase* database, float lat, float lon, float* safezone) {
    LOG_LINE("input lat : %f, long : %f \n", static_cast<double>(lat), static_cast<double>(lon));
    *safezone = 0.0f;
    if (database == nullptr) return CopyAnswer(kNotSupported);
    ZDResult* results = ZDLookup(database, lat, lon, safezone);
    if (results == nullptr) return CopyAnswer(kMallocFailed);

    char* answer;
    if (results->result != ZDLookupEnd) {
        answer = JoinZoneStrings(results);
        // Null without memory for the answer: the caller handles it.
        if (answer != nullptr) {
            LOG_LINE("lookup results : %s ", answer);
            LOG_LINE("Safezone: %f\n", static_cast<double>(*safezone));
        }
    } else {
        LOG_LINE("Try to get time zone from etc area!");
        const char* zone = GetEtcAreaTimezone(database, lon, lat);
        LOG_LINE("Etc time zone : %s ", zone);
        answer = CopyAnswer(zone);
    }
    ZDFreeResults(results);
    return answer;
}

bool LookupInterface::PreOpenDB() {
    if (VerifyActiveFile()) return true;
    if (!CopyFile(kBackupDatabasePath, kActiveDatabasePath)) {
        LOG_LINE("-------- Copy BACKUP DB failed--------");
    }
    LOG_LINE("try to open db again !");
    if (VerifyActiveFile()) return true;
    LOG_LINE("--------  BACKUP DB is destroy also--------");
    return false;
}

bool LookupInterface::InjectDB() {
    if (CopyFile(kBackupDatabasePath, kActiveDatabasePath)) return true;
    LOG_LINE("-------- Copy BACKUP DB failed--------");
    return false;
}

// Verifies the active file once. Keeps no file open or mapped.
bool LookupInterface::VerifyActiveFile() {
    // O_NONBLOCK: if the file is a pipe, opening it must not wait for its other end. A pipe has no
    // length, so it counts as damaged below.
    const int fd = open(kActiveDatabasePath, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        LOG_LINE("open file %s failed %s", kActiveDatabasePath, std::strerror(errno));
        return false;
    }
    const off_t size = lseek(fd, 0, SEEK_END);
    LOG_LINE("open file %s length %d", kActiveDatabasePath, static_cast<int>(size));
    lseek(fd, 0, SEEK_SET);

    bool good = false;
    // A file that is too short counts as damaged. So does one of 2 GiB or more: the reader would
    // refuse it.
    if (size > SHA1HashSize && size <= INT32_MAX) {
        const auto length = static_cast<uint32_t>(size);
        void* mapping = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, fd, 0);
        if (mapping == MAP_FAILED) {
            LOG_LINE("mmap file failed, error: %s", std::strerror(errno));
        } else {
            good = CheckTrailer(static_cast<const uint8_t*>(mapping), length);
            munmap(mapping, length);
        }
    }
    close(fd);
    return good;
}

bool LookupInterface::CheckTrailer(const uint8_t* file, uint32_t size) {
    uint8_t digest[SHA1HashSize] = {};
    const uint32_t contentLength = size - SHA1HashSize;
    if (!Digest(file, contentLength, digest)) {
        LOG_LINE("sha1 failed ");
        return false;
    }
    const uint8_t* trailer = file + contentLength;
    if (mDebug != 0) {
        LOG_LINE("sha1 value read from file : ");
        LogDigest(trailer);
        LOG_LINE("sha1 value cal from file content : ");
        LogDigest(digest);
    }
    if (std::memcmp(trailer, digest, SHA1HashSize) != 0) {
        LOG_LINE("DB file destory----------- need recovery!");
        return false;
    }
    LOG_LINE("DB pass ");
    return true;
}

bool LookupInterface::CopyFile(const char* from, const char* to) {
    FILE* source = OpenForReading(from);
    if (source == nullptr) {
        LOG_LINE("open file %s failed %s", from, std::strerror(errno));
        return false;
    }
    FILE* destination = OpenForWriting(to, from);
    if (destination == nullptr) {
        LOG_LINE("open file %s failed %s", to, std::strerror(errno));
        std::fclose(source);
        return false;
    }

    bool copied = true;
    bool atEnd = false;
    bool isTruncated = false;
    while (copied && !atEnd) {
        uint8_t buffer[4096];
        const size_t got = std::fread(buffer, 1, sizeof buffer, source);
        if (got < sizeof buffer) {
            if (std::ferror(source) != 0) {
                LOG_LINE("read file %s error %s", from, std::strerror(errno));
                copied = false;
                break;
            }
            if (std::feof(source) != 0) {
                LOG_LINE("read file %s last %d", from, static_cast<int>(got));
                atEnd = true;
            }
        }
        // Truncate only when there is data to write: a source that cannot be read must not cost the
        // destination its content.
        isTruncated = isTruncated || Truncate(destination);
        copied = isTruncated && std::fwrite(buffer, 1, got, destination) == got;
        // Until now the last bytes may be in the stream's buffer or in the page cache only. The
        // next step truncates or opens files because this copy exists, so the copy succeeds only
        // when the storage medium has all of it.
        if (copied && atEnd) {
            copied = std::fflush(destination) == 0 && fsync(fileno(destination)) == 0;
        }
        if (!copied) LOG_LINE("read file %s error %s", to, std::strerror(errno));
    }
    std::fclose(source);
    std::fclose(destination);
    return copied;
}

int LookupInterface::sha1(const uint8_t* data, uint8_t* digest, uint32_t length) {
    return Digest(data, length, digest) ? 0 : -1;
}

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation
