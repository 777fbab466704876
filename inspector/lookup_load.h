// The work of lookups in a database: the limits that they may exceed, and what they cost.
#pragma once

#include <zonedetect.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/grid.h"
#include "depth.h"
#include "findings.h"

namespace offlinetz {

// A ring as it is stored. Several entries may share it.
struct StoredRing {
    uint32_t position;  // The byte in the file where it begins.
    uint32_t end = 0;   // The byte after it.
    size_t points = 0;
    GridBox bounds = {{1, 1}, {0, 0}};  // Contains no point if the ring has none.
    bool isRead = false;                // Whether its bytes were read ...
    bool isGood = false;                // ... and could be decoded.
};

// The number of steps that a check may take: 2^30, and 1,024 for each byte of the database. A step
// is about the work of reading one byte of a ring. A check that needs more skips vertices. For
// comparison: lookups at all vertices of a tiled world take 700 steps a byte.
int64_t StepBudget(const ZDDatabase& database);

// What lookups read, by place. A lookup reads the ring of each entry whose bounding box contains
// its point, and collects the rings that contain the point. If several entries share a ring, the
// lookup reads it once for each of them.
class LookupLoad {
  public:
    // Borrows the database. `scale` is the number of units in 90 degrees of latitude.
    LookupLoad(const ZDDatabase& database, int32_t scale);

    // Adds an entry: its bounding box and its ring, which must be good. Borrows the ring.
    void Add(const GridBox& box, const StoredRing& ring);

    // Reports a point at which a lookup meets more bytes than it reads (kBytes), and a point that
    // more rings contain than a lookup collects (kHits). Reports kMaybeHits if StepBudget does not
    // suffice to decide the second. `rings` are all rings of the database.
    void CheckLimits(const std::vector<StoredRing>& rings, Findings* findings) const;

    // The mean number of steps of a lookup at the points. `points` must not be empty.
    // `tableEntries` is the number of entries of the box table that each lookup reads.
    int64_t MeanSteps(const std::vector<GridPoint>& points, size_t tableEntries) const;

  private:
    int64_t MostBytes() const;
    void CheckHits(const GridPoint& deepest, const std::vector<StoredRing>& rings,
                   Findings* findings) const;
    std::vector<GridPoint> VerticesOf(const std::vector<StoredRing>& rings) const;
    int64_t HitsAt(const GridPoint& p, int64_t* steps) const;

    const ZDDatabase& mDb;
    int32_t mScale;
    // One element of each for each entry added.
    std::vector<WeightedBox> mBytesMet;  // Its box within the world, weighted by its ring's bytes.
    std::vector<WeightedBox> mRingsMet;  // The part of it where the ring may be, with the weight 1.
    std::vector<const StoredRing*> mRings;
};

}  // namespace offlinetz
