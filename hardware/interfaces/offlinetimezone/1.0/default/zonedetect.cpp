#include "zonedetect.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "reader/format.h"
#include "reader/open_bytes.h"
#include "reader/read_budget.h"
#include "reader/spatial_index.h"
#include "reader/stored_string.h"
#include "reader/varint.h"

using namespace zonedetect;

namespace {

constexpr char kSourceName[] = "zonedetect.cpp";

ZDDatabase* NewHandle() {
    auto* db = static_cast<ZDDatabase*>(std::calloc(1, sizeof(ZDDatabase)));
    if (db != nullptr) db->fd = -1;
    return db;
}

Refusal CheckSize(uint64_t size) {
    if (size <= kTrailerSize) return Refusal::kTooShort;
    // ZDDatabase::length is a signed 32-bit number.
    return size > INT32_MAX ? Refusal::kTooLong : Refusal::kNone;
}

// Requires that CheckSize accepted `size`.
void SetBytes(ZDDatabase* db, const uint8_t* bytes, uint64_t size) {
    db->length = static_cast<int32_t>(size) - kTrailerSize;
    db->mapping = bytes;
    db->checksum = bytes + db->length;
}

bool MapFile(const char* path, ZDDatabase* db) {
    // O_NONBLOCK: opening a pipe must not wait for its other end.
    db->fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (db->fd < 0) return false;
    const off_t size = lseek(db->fd, 0, SEEK_END);
    if (size < 0 || CheckSize(static_cast<uint64_t>(size)) != Refusal::kNone) return false;
    if (lseek(db->fd, 0, SEEK_SET) != 0) return false;
    void* mapping = mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_PRIVATE, db->fd, 0);
    if (mapping == MAP_FAILED) return false;
    SetBytes(db, static_cast<const uint8_t*>(mapping), static_cast<uint64_t>(size));
    return true;
}

// Decodes the field names and the notice, and advances `*position` past them. A field name that
// cannot be decoded becomes null. A notice that cannot be decoded makes the reader refuse the file.
Refusal ReadHeaderStrings(ZDDatabase* db, uint32_t* position) {
    const uint8_t fieldCount = db->mapping[kFieldCountOffset];
    // One slot more than needed: calloc may return null for an empty array.
    db->fieldNames = static_cast<char**>(std::calloc(fieldCount + size_t{1}, sizeof(char*)));
    if (db->fieldNames == nullptr) return Refusal::kNoMemory;
    db->fieldCount = fieldCount;
    ReadBudget budget(db->length);
    for (int i = 0; i < fieldCount; ++i)
        db->fieldNames[i] = ParseString(*db, position, &budget);
    StoredString notice;
    if (!FindString(*db, position, &budget, &notice)) return Refusal::kHeader;
    db->notice = notice.Copy();
    return db->notice != nullptr ? Refusal::kNone : Refusal::kNoMemory;
}

// Decodes the header. Requires SetBytes. On failure the caller closes the handle.
OpenFailure ReadHeader(ZDDatabase* db) {
    const auto length = static_cast<uint32_t>(db->length);
    if (length < sizeof kMagic || std::memcmp(db->mapping, kMagic, sizeof kMagic) != 0)
        return {Refusal::kNotADatabase, 0};
    if (length < kFixedHeaderSize) return {Refusal::kHeader, 0};
    db->tableType = db->mapping[kTableTypeOffset];
    db->version = db->mapping[kVersionOffset];
    db->precision = db->mapping[kPrecisionOffset];
    uint32_t position = kFixedHeaderSize;
    const Refusal strings = ReadHeaderStrings(db, &position);
    if (strings != Refusal::kNone) return {strings, 0};

    Cursor cursor = CursorAt(*db, position);
    uint32_t boxTableSize;
    uint32_t metadataSize;
    uint32_t polygonDataSize;
    if (!ReadUnsigned(&cursor, &boxTableSize) || !ReadUnsigned(&cursor, &metadataSize) ||
        !ReadUnsigned(&cursor, &polygonDataSize)) {
        return {Refusal::kHeader, 0};
    }
    db->boxTableOffset = PositionOf(*db, cursor);
    db->metadataOffset = db->boxTableOffset + boxTableSize;
    db->polygonDataOffset = db->metadataOffset + metadataSize;
    if (db->polygonDataOffset + polygonDataSize != length) {
        // After an unreadable field name the sizes were read from the wrong offset: state no size.
        for (int i = 0; i < db->fieldCount; ++i) {
            if (db->fieldNames[i] == nullptr) return {Refusal::kHeader, 0};
        }
        return {Refusal::kSize, uint64_t{db->boxTableOffset} + boxTableSize + metadataSize +
                                        polygonDataSize + kTrailerSize};
    }
    // Empty until the first lookup. Null without memory: lookups then scan the box table.
    db->spatialIndex = new (std::nothrow) ZDSpatialIndex;
    return {};
}

}  // namespace

ZDDatabase* zonedetect::OpenBytes(const uint8_t* bytes, size_t size, OpenFailure* failure) {
    OpenFailure found = {CheckSize(size), 0};
    ZDDatabase* db = nullptr;
    if (found.reason == Refusal::kNone) {
        db = NewHandle();
        if (db == nullptr) found.reason = Refusal::kNoMemory;
    }
    if (db != nullptr) {
        SetBytes(db, bytes, size);
        found = ReadHeader(db);
        if (found.reason != Refusal::kNone) {
            ZDCloseDatabase(db);
            db = nullptr;
        }
    }
    if (failure != nullptr) *failure = found;
    return db;
}

ZDDatabase* ZDOpenDatabase(const char* path) {
    ZDDatabase* db = NewHandle();
    if (db == nullptr) return nullptr;
    std::printf("%s %d , open file : %s \n", kSourceName, __LINE__, path);
    if (!MapFile(path, db) || ReadHeader(db).reason != Refusal::kNone) {
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
    delete db->spatialIndex;
    // Only a handle with a descriptor owns its mapping; a handle of OpenBytes borrows the bytes.
    if (db->fd >= 0 && db->mapping != nullptr) {
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
