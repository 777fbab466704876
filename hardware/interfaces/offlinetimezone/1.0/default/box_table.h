// The entries of the bounding-box table, one after the other.
#pragma once

#include <cstdint>

#include "database_numbers.h"

namespace zonedetect {

// An inclusive rectangle in database units.
struct Box {
    int32_t minLat;
    int32_t minLon;
    int32_t maxLat;
    int32_t maxLon;

    bool Contains(const Point& p) const {
        return minLat <= p.lat && minLon <= p.lon && maxLat >= p.lat && maxLon >= p.lon;
    }
    friend bool operator==(const Box& a, const Box& b) {
        return a.minLat == b.minLat && a.minLon == b.minLon && a.maxLat == b.maxLat &&
               a.maxLon == b.maxLon;
    }
};

// A place between two entries: where the next one begins, and the offsets that the ones before add
// up to.
struct TablePlace {
    uint32_t position;
    uint32_t recordOffset;
    uint32_t polygonOffset;
};

// Reads the table's entries in order from a place on.
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

    // Reads the next entry, after which the offsets of the place are its own. False at the end of
    // the table, or where an entry cannot be read.
    bool Next(Box* box) {
        if (PositionOf(mDb, mCursor) >= mDb.metadataOffset) return false;
        int32_t recordDelta;
        uint32_t polygonDelta;
        if (!ReadSigned(&mCursor, &box->minLat) || !ReadSigned(&mCursor, &box->minLon) ||
            !ReadSigned(&mCursor, &box->maxLat) || !ReadSigned(&mCursor, &box->maxLon) ||
            !ReadSigned(&mCursor, &recordDelta) || !ReadUnsigned(&mCursor, &polygonDelta)) {
            return false;
        }
        mRecordOffset += static_cast<uint32_t>(recordDelta);
        mPolygonOffset += polygonDelta;
        return true;
    }

  private:
    const ZDDatabase& mDb;
    Cursor mCursor;
    uint32_t mRecordOffset;
    uint32_t mPolygonOffset;
};

}  // namespace zonedetect
