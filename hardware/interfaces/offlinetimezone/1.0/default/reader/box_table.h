// Sequential reader of the box table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "units.h"
#include "varint.h"

namespace zonedetect {

// A bounding box in database units. All four sides belong to it.
struct Box {
    int32_t minLat;
    int32_t minLon;
    int32_t maxLat;
    int32_t maxLon;

    bool Contains(const Point& p) const {
        return minLat <= p.lat && minLon <= p.lon && maxLat >= p.lat && maxLon >= p.lon;
    }
};

// A place between two entries. The entries store their offsets as deltas, so a reader that starts
// here needs the sums of the deltas before it.
struct TablePlace {
    uint32_t position;       // Of the next entry, in the content.
    uint32_t recordOffset;   // Of the last entry's record, from metadataOffset; 0 at the start.
    uint32_t polygonOffset;  // Of the last entry's ring, from polygonDataOffset; 0 at the start.
};

// Reads the entries of a table in order, from a given place on. Never reads outside the content.
// The database must stay open. One thread at a time may use a reader.
class TableReader {
  public:
    TableReader(const ZDDatabase& db, const TablePlace& start)
        : mDb(db),
          mCursor(CursorAt(db, start.position)),
          mRecordOffset(start.recordOffset),
          mPolygonOffset(start.polygonOffset) {}

    // The place before the first entry.
    static TablePlace Start(const ZDDatabase& db) { return {db.boxTableOffset, 0, 0}; }

    TablePlace Place() const { return {PositionOf(mDb, mCursor), mRecordOffset, mPolygonOffset}; }

    // Reads the next entry. CurrentBox and the offsets of Place are then those of this entry.
    // Returns false at the end of the table and at an entry that cannot be decoded; CurrentBox and
    // Place are then meaningless.
    bool Next() {
        if (PositionOf(mDb, mCursor) >= mDb.metadataOffset) return false;
        int32_t recordDelta;
        uint32_t polygonDelta;
        if (!NextBox() || !ReadSigned(&mCursor, &recordDelta) ||
            !ReadUnsigned(&mCursor, &polygonDelta)) {
            return false;
        }
        mRecordOffset += static_cast<uint32_t>(recordDelta);
        mPolygonOffset += polygonDelta;
        return true;
    }

    const Box& CurrentBox() const { return mBox; }
    // Whether the current box is stored with the same bytes as the one before. Equal boxes with
    // different bytes, which a compiler does not write, count as different.
    bool IsSameBox() const { return mIsSameBox; }

  private:
    // Reads a box. If its bytes equal those of the last box decoded, it is the same box. Comparing
    // is faster than decoding.
    bool NextBox() {
        const uint8_t* const start = mCursor.next;
        mIsSameBox = mBoxBytes != 0 && mCursor.end - start >= mBoxBytes && IsBoxAt(start);
        if (mIsSameBox) {
            mCursor.next += mBoxBytes;
            return true;
        }
        if (!ReadSigned(&mCursor, &mBox.minLat) || !ReadSigned(&mCursor, &mBox.minLon) ||
            !ReadSigned(&mCursor, &mBox.maxLat) || !ReadSigned(&mCursor, &mBox.maxLon)) {
            return false;
        }
        mBoxStart = start;
        mBoxBytes = mCursor.next - start;
        return true;
    }

    // Most boxes take 8 to 16 bytes: two overlapping words compare those.
    bool IsBoxAt(const uint8_t* bytes) const {
        if (mBoxBytes < 8 || mBoxBytes > 16) {
            return std::memcmp(bytes, mBoxStart, static_cast<size_t>(mBoxBytes)) == 0;
        }
        const std::ptrdiff_t last = mBoxBytes - 8;
        return LoadLittleEndian(bytes) == LoadLittleEndian(mBoxStart) &&
               LoadLittleEndian(bytes + last) == LoadLittleEndian(mBoxStart + last);
    }

    const ZDDatabase& mDb;
    Cursor mCursor;
    Box mBox = {0, 0, 0, 0};
    const uint8_t* mBoxStart = nullptr;
    std::ptrdiff_t mBoxBytes = 0;
    bool mIsSameBox = false;
    uint32_t mRecordOffset;
    uint32_t mPolygonOffset;
};

}  // namespace zonedetect
