#include "directory.h"

#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <new>

namespace zonedetect {

namespace {

// A guess at the bytes of a run in the table, so that the first arrays seldom grow.
constexpr size_t kUsualRunBytes = 28;

// How many words the nodes may take: a tiled world needs two a run; some more lets small tables of
// overlapping boxes have a good index too.
constexpr size_t WordsFor(size_t runs) {
    return 2 * runs + runs / 2 + 65536;
}

// How many boxes may be looked at in halving a cell, for each run of it. No cell of the world takes
// more than 11.
constexpr size_t kLooksPerRun = 24;

constexpr uint32_t kAlone = 0x80000000u;   // The rest is a run.
constexpr uint32_t kListed = 0x40000000u;  // The rest is a count.
constexpr uint32_t kRestMask = 0x3FFFFFFFu;

// What a node takes that is not halved.
constexpr size_t LeafWords(size_t runs) {
    return runs == 1 ? 1 : 1 + runs;
}

}  // namespace

uint8_t Directory::Axis::CellOf(int32_t units) const {
    if (units <= min) return 0;
    const uint32_t above = static_cast<uint32_t>(units) - static_cast<uint32_t>(min);
    return static_cast<uint8_t>(std::min(above / cellUnits, kTopCells - 1));
}

// The same without a division, for units that lie in a cell or not far above.
uint8_t Directory::Axis::CellFrom(uint8_t cell, int32_t units) const {
    while (cell + 1u < kTopCells && units > PartOf(cell).max)
        ++cell;
    return cell;
}

Directory::Part Directory::Axis::PartOf(size_t cell) const {
    const int64_t from = min + static_cast<int64_t>(cell * cellUnits);
    return {from, from + cellUnits - 1};
}

// Makes a directory, one step after the other, and holds what is needed for that alone.
class Directory::Builder {
  public:
    explicit Builder(Directory* directory) : mDirectory(*directory) {}

    Outcome Build(const ZDDatabase& db) {
        Outcome outcome = ReadRuns(db);
        if (outcome != Outcome::kBuilt) return outcome;
        SetAxes();
        outcome = ListRunsByCell();
        return outcome == Outcome::kBuilt ? AddCells() : outcome;
    }

  private:
    // The cells that a run meets.
    struct Cells {
        uint8_t south;
        uint8_t north;
        uint8_t west;
        uint8_t east;
    };

    // Consecutive runs of mListed.
    struct Range {
        uint32_t* begin;
        size_t count;
    };

    // A part of the grid.
    struct Region {
        Part lat;
        Part lon;

        bool IsSplitByLat() const { return lat.max - lat.min > lon.max - lon.min; }
        const Part& Longer() const { return IsSplitByLat() ? lat : lon; }
        Region Half(const Part& half) const {
            return IsSplitByLat() ? Region{half, lon} : Region{lat, half};
        }
    };

    Outcome ReadRuns(const ZDDatabase& db) {
        const uint32_t end = std::min(db.metadataOffset, static_cast<uint32_t>(db.length));
        const size_t guess =
                (std::max(end, db.boxTableOffset) - db.boxTableOffset) / kUsualRunBytes;
        GrowingArray<TablePlace>& places = mDirectory.mPlaces;
        if (!mBoxes.Reserve(guess) || !places.Reserve(guess + 1)) return Outcome::kNoMemory;
        TableReader reader(db, TableReader::Start(db));
        TablePlace place = reader.Place();
        for (; reader.Next(); place = reader.Place()) {
            if (reader.IsSameBox()) continue;
            const Box& box = reader.CurrentBox();
            if (mBoxes.Size() > 0 && box.minLat < mBoxes.end()[-1].minLat) return Outcome::kUseless;
            if (!mBoxes.ReserveMore(1) || !places.ReserveMore(1)) return Outcome::kNoMemory;
            mBoxes.Push(box);
            places.Push(place);
        }
        if (!places.ReserveMore(1)) return Outcome::kNoMemory;
        places.Push(place);
        places.Trim();
        mBoxes.Trim();
        mLimit = WordsFor(mBoxes.Size());
        return mLimit <= kRestMask ? Outcome::kBuilt : Outcome::kUseless;
    }

    // Spreads the grid over all boxes.
    void SetAxes() {
        Box all = {0, 0, 0, 0};
        if (mBoxes.Size() > 0) all = mBoxes[0];
        for (const Box& box : mBoxes) {
            all.minLat = std::min(all.minLat, box.minLat);
            all.minLon = std::min(all.minLon, box.minLon);
            all.maxLat = std::max(all.maxLat, box.maxLat);
            all.maxLon = std::max(all.maxLon, box.maxLon);
        }
        const auto axis = [](int32_t min, int32_t max) {
            const int64_t units = std::max<int64_t>(int64_t{max} - min + 1, 1);
            return Axis{min, static_cast<uint32_t>((units + kTopCells - 1) / kTopCells)};
        };
        mDirectory.mLat = axis(all.minLat, all.maxLat);
        mDirectory.mLon = axis(all.minLon, all.maxLon);
    }

    Cells CellsOf(const Box& box) const {
        if (box.minLat > box.maxLat || box.minLon > box.maxLon) return {1, 0, 1, 0};  // None.
        const Axis& lat = mDirectory.mLat;
        const Axis& lon = mDirectory.mLon;
        const uint8_t south = lat.CellOf(box.minLat);
        const uint8_t west = lon.CellOf(box.minLon);
        return {south, lat.CellFrom(south, box.maxLat), west, lon.CellFrom(west, box.maxLon)};
    }

    template <typename Visit>
    static void VisitCells(const Cells& cells, const Visit& visit) {
        for (size_t row = cells.south; row <= cells.north; ++row) {
            for (size_t column = cells.west; column <= cells.east; ++column)
                visit(row * kTopCells + column);
        }
    }

    // Sorts the runs into mListed by the cells that they meet: counts first, then places.
    Outcome ListRunsByCell() {
        GrowingArray<Cells> cells;
        if (!cells.Reserve(mBoxes.Size())) return Outcome::kNoMemory;
        size_t listed = 0;
        for (const Box& box : mBoxes) {
            cells.Push(CellsOf(box));
            VisitCells(cells.end()[-1], [&](size_t cell) {
                ++mBegins[cell + 1];
                ++listed;
            });
            if (listed > mLimit) return Outcome::kUseless;
        }
        for (size_t cell = 0; cell < kCells; ++cell)
            mBegins[cell + 1] += mBegins[cell];
        if (!mListed.Reserve(listed)) return Outcome::kNoMemory;
        mListed.SetSize(listed);
        std::copy_n(mBegins, kCells, mNext);
        for (uint32_t run = 0; run < cells.Size(); ++run)
            VisitCells(cells[run], [&](size_t cell) { mListed[mNext[cell]++] = run; });
        return Outcome::kBuilt;
    }

    Outcome AddCells() {
        GrowingArray<uint32_t>& words = mDirectory.mWords;
        if (!words.Reserve(mLimit)) return Outcome::kNoMemory;
        size_t needed = 0;  // By the cells that are still to be added.
        for (size_t cell = 0; cell < kCells; ++cell)
            needed += LeafWords(mBegins[cell + 1] - mBegins[cell]);
        if (needed > mLimit) return Outcome::kUseless;
        for (size_t cell = 0; cell < kCells; ++cell) {
            const Range runs = {mListed.begin() + mBegins[cell], mBegins[cell + 1] - mBegins[cell]};
            mDirectory.mTop[cell] = static_cast<uint32_t>(words.Size());
            mLooksLeft = kLooksPerRun * runs.count;
            needed -= LeafWords(runs.count);
            const size_t left = mListed.Size() - mBegins[cell];
            if (!AddNode({mDirectory.mLat.PartOf(cell / kTopCells),
                          mDirectory.mLon.PartOf(cell % kTopCells)},
                         runs, ShareOf(mLimit - needed, runs.count, left))) {
                return Outcome::kNoMemory;
            }
        }
        words.Trim();
        return Outcome::kBuilt;
    }

    // Where the words of a node must end that meets `count` of the `total` runs which have the room
    // up to `limit`: it has what it needs, and of the rest a share.
    size_t ShareOf(size_t limit, size_t count, size_t total) const {
        const size_t needed = mDirectory.mWords.Size() + LeafWords(count);
        if (count == total) return limit;
        return needed + static_cast<size_t>(uint64_t{limit - needed} * count / total);
    }

    // Adds the node of a region, which meets `runs` and puts them in another order, and all nodes
    // below it. `limit` is where the words must end; they have room for a leaf at least. False when
    // memory is short.
    bool AddNode(const Region& region, const Range& runs, size_t limit) {
        GrowingArray<uint32_t>& words = mDirectory.mWords;
        const size_t node = words.Size();
        if (runs.count == 1) {
            words.Push(kAlone | *runs.begin);
            return true;
        }
        const Halves halves = runs.count > 0 ? Halve(region, runs, limit) : Halves{};
        if (!halves.areWorthIt) {
            std::sort(runs.begin, runs.begin + runs.count);  // The table's order.
            words.Push(kListed | static_cast<uint32_t>(runs.count));
            for (size_t i = 0; i < runs.count; ++i)
                words.Push(runs.begin[i]);
            return true;
        }
        const Part& whole = region.Longer();
        const int64_t middle = whole.Middle();
        const size_t listings = halves.first.count + halves.second.count;
        words.Push(0);
        // The runs of both halves are put back where the first half has moved them.
        const size_t both = listings - runs.count;
        if (!mSaved.ReserveMore(both)) return false;
        for (size_t i = 0; i < both; ++i)
            mSaved.Push(halves.second.begin[i]);
        const size_t share =
                ShareOf(limit - LeafWords(halves.second.count), halves.first.count, listings);
        if (!AddNode(region.Half({whole.min, middle}), halves.first, share)) return false;
        std::copy_n(mSaved.end() - both, both, halves.second.begin);
        mSaved.SetSize(mSaved.Size() - both);
        words[node] = static_cast<uint32_t>(words.Size());
        return AddNode(region.Half({middle + 1, whole.max}), halves.second, limit);
    }

    struct Halves {
        bool areWorthIt = false;
        Range first = {nullptr, 0};   // At the front of the runs ...
        Range second = {nullptr, 0};  // ... and at their back; runs of both are in the middle.
    };

    // Parts `runs` into those that each half of a region meets, unless there is no room for the
    // nodes of the halves, or nothing left to halve.
    Halves Halve(const Region& region, const Range& runs, size_t limit) {
        const Part& whole = region.Longer();
        if (whole.min >= whole.max || runs.count > mLooksLeft) return {};
        mLooksLeft -= runs.count;
        const bool isSplitByLat = region.IsSplitByLat();
        const int64_t middle = whole.Middle();
        const auto isInFirst = [&](uint32_t run) {
            return (isSplitByLat ? mBoxes[run].minLat : mBoxes[run].minLon) <= middle;
        };
        const auto isInSecond = [&](uint32_t run) {
            return (isSplitByLat ? mBoxes[run].maxLat : mBoxes[run].maxLon) > middle;
        };
        size_t counts[2] = {0, 0};
        for (size_t i = 0; i < runs.count; ++i) {
            counts[0] += isInFirst(runs.begin[i]) ? 1u : 0u;
            counts[1] += isInSecond(runs.begin[i]) ? 1u : 0u;
        }
        const size_t needed = 1 + LeafWords(counts[0]) + LeafWords(counts[1]);
        if (mDirectory.mWords.Size() + needed > limit) return {};
        uint32_t* const end = runs.begin + runs.count;
        uint32_t* const notInFirst = std::partition(runs.begin, end, isInFirst);
        std::partition(runs.begin, notInFirst, [&](uint32_t run) { return !isInSecond(run); });
        return {true, {runs.begin, counts[0]}, {end - counts[1], counts[1]}};
    }

    static constexpr size_t kCells = size_t{kTopCells} * kTopCells;

    Directory& mDirectory;
    GrowingArray<Box> mBoxes;           // Of the runs.
    uint32_t mBegins[kCells + 1] = {};  // Where the runs of each cell begin in mListed ...
    uint32_t mNext[kCells] = {};        // ... and where the next one goes.
    GrowingArray<uint32_t> mListed;
    GrowingArray<uint32_t> mSaved;  // Runs of both halves, for the second halves to come.
    size_t mLimit = 0;              // Of the words.
    size_t mLooksLeft = 0;          // In the cell at hand.
};

Directory::Outcome Directory::Build(const ZDDatabase& db) {
    const std::unique_ptr<Builder> builder(new (std::nothrow) Builder(this));
    return builder != nullptr ? builder->Build(db) : Outcome::kNoMemory;
}

Directory::Runs Directory::RunsAt(const Point& point) const {
    const size_t row = mLat.CellOf(point.lat);
    const size_t column = mLon.CellOf(point.lon);
    Part lat = mLat.PartOf(row);
    Part lon = mLon.PartOf(column);
    size_t node = mTop[row * kTopCells + column];
    while ((mWords[node] & (kAlone | kListed)) == 0) {
        const bool isSplitByLat = lat.max - lat.min > lon.max - lon.min;
        Part& part = isSplitByLat ? lat : lon;
        const int64_t middle = part.Middle();
        const bool isSecond = (isSplitByLat ? point.lat : point.lon) > middle;
        part = isSecond ? Part{middle + 1, part.max} : Part{part.min, middle};
        node = isSecond ? mWords[node] : node + 1;
    }
    const uint32_t rest = mWords[node] & kRestMask;
    if ((mWords[node] & kAlone) != 0) return {nullptr, 1, rest};
    return {&mWords[node + 1], rest, 0};
}

}  // namespace zonedetect

ZDDirectory::~ZDDirectory() {
    delete mDirectory;
}

const zonedetect::Directory* ZDDirectory::Get(const ZDDatabase& db) {
    using zonedetect::Directory;
    State state = mState.load(std::memory_order_acquire);
    if (state == kReady) return mDirectory;
    if (state != kNone) return nullptr;
    if (!mState.compare_exchange_strong(state, kBusy, std::memory_order_acquire)) return nullptr;
    if (mLookupsToWait > 0) {
        --mLookupsToWait;
        mState.store(kNone, std::memory_order_release);
        return nullptr;
    }
    auto* directory = new (std::nothrow) Directory;
    const Directory::Outcome outcome =
            directory != nullptr ? directory->Build(db) : Directory::Outcome::kNoMemory;
    if (outcome == Directory::Outcome::kBuilt) {
        mDirectory = directory;
        // Lookups touch a few places of the file from here on: reading ahead of them would read
        // pages that nobody asks for.
        if (db.fd >= 0) {
            madvise(const_cast<uint8_t*>(db.mapping), static_cast<size_t>(db.length), MADV_RANDOM);
        }
        mState.store(kReady, std::memory_order_release);
        return directory;
    }
    delete directory;
    if (outcome == Directory::Outcome::kNoMemory) {
        mLookupsToWait = mNextWait;
        if (mNextWait < UINT32_MAX / 2) mNextWait *= 2;
    }
    mState.store(outcome == Directory::Outcome::kUseless ? kUseless : kNone,
                 std::memory_order_release);
    return nullptr;
}
