#include "spatial_index.h"

#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <new>

namespace zonedetect {

namespace {

// Estimated size of a run in the table in bytes. With it the first arrays rarely have to grow.
constexpr size_t kUsualRunBytes = 28;

}  // namespace

SpatialIndex::Outcome SpatialIndex::Build(const ZDDatabase& db) {
    const uint32_t end = std::min(db.metadataOffset, static_cast<uint32_t>(db.length));
    const size_t guess = (std::max(end, db.boxTableOffset) - db.boxTableOffset) / kUsualRunBytes;
    GrowingArray<Box> boxes;
    if (!boxes.Reserve(guess) || !mPlaces.Reserve(guess + 1)) return Outcome::kNoMemory;
    TableReader reader(db, TableReader::Start(db));
    TablePlace place = reader.Place();
    for (; reader.Next(); place = reader.Place()) {
        if (reader.IsSameBox()) continue;
        const Box& box = reader.CurrentBox();
        if (boxes.Size() > 0 && box.minLat < boxes.end()[-1].minLat) return Outcome::kUseless;
        if (!boxes.ReserveMore(1) || !mPlaces.ReserveMore(1)) return Outcome::kNoMemory;
        boxes.Push(box);
        mPlaces.Push(place);
    }
    if (!mPlaces.ReserveMore(1)) return Outcome::kNoMemory;
    mPlaces.Push(place);
    mPlaces.Trim();
    boxes.Trim();
    return mTree.Build(boxes);
}

}  // namespace zonedetect

ZDSpatialIndex::~ZDSpatialIndex() {
    delete mIndex;
}

const zonedetect::SpatialIndex* ZDSpatialIndex::Get(const ZDDatabase& db) {
    using zonedetect::SpatialIndex;
    State state = mState.load(std::memory_order_acquire);
    if (state == kReady) return mIndex;
    if (state != kNone) return nullptr;
    if (!mState.compare_exchange_strong(state, kBusy, std::memory_order_acquire)) return nullptr;
    if (mLookupsToWait > 0) {
        --mLookupsToWait;
        mState.store(kNone, std::memory_order_release);
        return nullptr;
    }
    std::unique_ptr<SpatialIndex> index(new (std::nothrow) SpatialIndex);
    const SpatialIndex::Outcome outcome =
            index != nullptr ? index->Build(db) : SpatialIndex::Outcome::kNoMemory;
    if (outcome == SpatialIndex::Outcome::kBuilt) {
        mIndex = index.release();
        // From now on lookups touch few places of the file: reading ahead would load pages that no
        // lookup needs.
        if (db.fd >= 0) {
            madvise(const_cast<uint8_t*>(db.mapping), static_cast<size_t>(db.length), MADV_RANDOM);
        }
        mState.store(kReady, std::memory_order_release);
        return mIndex;
    }
    if (outcome == SpatialIndex::Outcome::kNoMemory) {
        mLookupsToWait = mNextWait;
        if (mNextWait < UINT32_MAX / 2) mNextWait *= 2;
    }
    index.reset();  // Frees the memory before another thread may build an index.
    mState.store(outcome == SpatialIndex::Outcome::kUseless ? kUseless : kNone,
                 std::memory_order_release);
    return nullptr;
}
