#include "zonedetect.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "database_numbers.h"
#include "directory.h"
#include "read_budget.h"
#include "stored_string.h"

using namespace zonedetect;

namespace {

constexpr char kSourceName[] = "zonedetect.cpp";
constexpr uint8_t kMagic[3] = {'P', 'L', 'B'};
constexpr int32_t kTrailerSize = 20;
constexpr int32_t kFixedHeaderSize = 7;

bool MapFile(const char* path, ZDDatabase* db) {
    // O_NONBLOCK: opening must not wait for the other end of a pipe, which is refused below.
    db->fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (db->fd < 0) return false;
    const off_t size = lseek(db->fd, 0, SEEK_END);
    // Lengths are signed 32-bit numbers: a file of 2 GiB or more is refused like a broken one.
    if (size <= kTrailerSize || size > INT32_MAX) return false;
    db->length = static_cast<int32_t>(size) - kTrailerSize;
    if (lseek(db->fd, 0, SEEK_SET) != 0) return false;
    void* mapping = mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_PRIVATE, db->fd, 0);
    if (mapping == MAP_FAILED) return false;
    db->mapping = static_cast<const uint8_t*>(mapping);
    db->checksum = db->mapping + db->length;
    return true;
}

bool ParseHeader(ZDDatabase* db) {
    if (db->length < kFixedHeaderSize) return false;
    if (std::memcmp(db->mapping, kMagic, sizeof kMagic) != 0) return false;
    db->tableType = db->mapping[3];
    db->version = db->mapping[4];
    db->precision = db->mapping[5];
    const uint8_t fieldCount = db->mapping[6];

    // One slot more than needed: an empty array must not look like a failed allocation.
    db->fieldNames = static_cast<char**>(std::calloc(fieldCount + size_t{1}, sizeof(char*)));
    if (db->fieldNames == nullptr) return false;
    db->fieldCount = fieldCount;

    uint32_t position = kFixedHeaderSize;
    ReadBudget budget(db->length);
    for (int i = 0; i < fieldCount; ++i)
        db->fieldNames[i] = ParseString(*db, &position, &budget);
    db->notice = ParseString(*db, &position, &budget);
    if (db->notice == nullptr) return false;

    Cursor cursor = CursorAt(*db, position);
    uint32_t boxTableSize;
    uint32_t metadataSize;
    uint32_t polygonDataSize;
    if (!ReadUnsigned(&cursor, &boxTableSize) || !ReadUnsigned(&cursor, &metadataSize) ||
        !ReadUnsigned(&cursor, &polygonDataSize)) {
        return false;
    }
    db->boxTableOffset = PositionOf(*db, cursor);
    db->metadataOffset = db->boxTableOffset + boxTableSize;
    db->polygonDataOffset = db->metadataOffset + metadataSize;
    if (db->polygonDataOffset + polygonDataSize != static_cast<uint32_t>(db->length)) return false;
    // Empty until the first lookup; without it lookups scan the table.
    db->directory = new (std::nothrow) ZDDirectory;
    return true;
}

}  // namespace

ZDDatabase* ZDOpenDatabase(const char* path) {
    auto* db = static_cast<ZDDatabase*>(std::calloc(1, sizeof(ZDDatabase)));
    if (db == nullptr) return nullptr;
    db->fd = -1;
    std::printf("%s %d , open file : %s \n", kSourceName, __LINE__, path);
    if (!MapFile(path, db) || !ParseHeader(db)) {
        ZDCloseDatabase(db);
        return nullptr;
    }
    return db;
}

void ZDCloseDatabase(ZDDatabase* db) {
    if (db == nullptr) return;
    if (db->fieldNames != nullptr) {
        for (int i = 0; i < db->fieldCount; ++i)
            std::free(db->fieldNames[i]);
        std::free(db->fieldNames);
    }
    std::free(db->notice);
    delete db->directory;
    if (db->mapping != nullptr) {
        munmap(const_cast<uint8_t*>(db->mapping), static_cast<size_t>(db->length) + kTrailerSize);
    }
    if (db->fd >= 0) close(db->fd);
    std::free(db);
}

unsigned int ZDgetDBVersion(const ZDDatabase* db) {
    return db->version;
}
uint8_t ZDGetTableType(const ZDDatabase* db) {
    return db->tableType;
}
const char* ZDGetNotice(const ZDDatabase* db) {
    return db->notice;
}
const uint8_t* ZDGetChecksum(const ZDDatabase* db) {
    return db->checksum;
}
const uint8_t* ZDGetMapping(const ZDDatabase* db) {
    return db->mapping;
}
int32_t ZDGetLength(const ZDDatabase* db) {
    return db->length;
}

void FaultHandler(const char* /*file*/, int /*line*/) {}
