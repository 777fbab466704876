#include "directory.h"

#include <algorithm>
#include <memory>
#include <new>

namespace zonedetect {

namespace {

constexpr uint32_t kTopCells = 64;  // In each direction.
// A guess at the bytes of a run in the table, so that the first vectors are seldom made twice.
constexpr size_t kUsualRunBytes = 28;
// How many times runs may be listed in the top grid, beyond four times each, and how many times as
// often in the parts of a cell: what a table of overlapping boxes may cost.
constexpr size_t kTopListings = 32768;
constexpr size_t kPartListings = 4;

constexpr uint32_t kAlone = 0x80000000u;   // The rest is a run.
constexpr uint32_t kListed = 0x40000000u;  // The rest is a place in the lists.
constexpr uint32_t kRestMask = 0x3FFFFFFFu;

// Gives back what a vector does not use, unless that is too little to be worth a copy.
template <typename T>
void Trim(std::vector<T>* values) {
    if (values->capacity() - values->size() > values->size() / 4) values->shrink_to_fit();
}

}  // namespace

struct Directory::Draft {
    std::vector<Box> boxes;      // Of the runs.
    std::vector<uint32_t> runs;  // Of a cell, and behind them those of the parts at hand.
    size_t nodeCount = 0;        // Nodes in use; mNodes has room for more.
};

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

bool Directory::ReadRuns(const ZDDatabase& db, std::vector<Box>* boxes) {
    const uint32_t end = std::min(db.metadataOffset, static_cast<uint32_t>(db.length));
    const size_t guess = (std::max(end, db.boxTableOffset) - db.boxTableOffset) / kUsualRunBytes;
    boxes->reserve(guess);
    mPlaces.reserve(guess + 1);
    TableReader reader(db, TableReader::Start(db));
    TablePlace place = reader.Place();
    for (; reader.Next(); place = reader.Place()) {
        if (reader.IsSameBox()) continue;
        const Box& box = reader.CurrentBox();
        if (!boxes->empty() && box.minLat < boxes->back().minLat) return false;
        boxes->push_back(box);
        mPlaces.push_back(place);
    }
    mPlaces.push_back(place);
    return boxes->size() < kRestMask;
}

bool Directory::Build(const ZDDatabase& db) {
    Draft draft;
    const std::vector<Box>& boxes = draft.boxes;
    if (!ReadRuns(db, &draft.boxes)) return false;
    Trim(&mPlaces);

    Box all = {0, 0, 0, 0};
    if (!boxes.empty()) all = boxes.front();
    for (const Box& box : boxes) {
        all.minLat = std::min(all.minLat, box.minLat);
        all.minLon = std::min(all.minLon, box.minLon);
        all.maxLat = std::max(all.maxLat, box.maxLat);
        all.maxLon = std::max(all.maxLon, box.maxLon);
    }
    const auto span = [](int32_t min, int32_t max) {
        const int64_t units = std::max<int64_t>(int64_t{max} - min + 1, 1);
        return static_cast<uint32_t>((units + kTopCells - 1) / kTopCells);
    };
    mLat = {all.minLat, span(all.minLat, all.maxLat)};
    mLon = {all.minLon, span(all.minLon, all.maxLon)};

    // Lists each run in the cells that it meets: first how many, then which.
    struct Cells {
        uint8_t south;
        uint8_t north;
        uint8_t west;
        uint8_t east;
    };
    std::vector<Cells> cells;
    cells.reserve(boxes.size());
    for (const Box& box : boxes) {
        const bool isEmpty = box.minLat > box.maxLat || box.minLon > box.maxLon;
        const uint8_t south = mLat.CellOf(box.minLat);
        const uint8_t west = mLon.CellOf(box.minLon);
        cells.push_back(isEmpty ? Cells{1, 0, 1, 0}
                                : Cells{south, mLat.CellFrom(south, box.maxLat), west,
                                        mLon.CellFrom(west, box.maxLon)});
    }
    const auto visitCells = [&cells](uint32_t run, auto visit) {
        const Cells& c = cells[run];
        for (size_t row = c.south; row <= c.north; ++row) {
            for (size_t column = c.west; column <= c.east; ++column)
                visit(row * kTopCells + column);
        }
    };
    const auto runCount = static_cast<uint32_t>(boxes.size());
    const size_t limit = 4 * size_t{runCount} + kTopListings;
    std::vector<uint32_t> begins(size_t{kTopCells} * kTopCells + 1);
    size_t listed = 0;
    for (uint32_t run = 0; run < runCount && listed <= limit; ++run) {
        visitCells(run, [&](size_t cell) {
            ++begins[cell + 1];
            ++listed;
        });
    }
    if (listed > limit) return false;
    for (size_t cell = 0; cell + 1 < begins.size(); ++cell)
        begins[cell + 1] += begins[cell];
    std::vector<uint32_t> top(listed);
    {
        std::vector<uint32_t> next(begins.begin(), begins.end() - 1);
        for (uint32_t run = 0; run < runCount; ++run)
            visitCells(run, [&](size_t cell) { top[next[cell]++] = run; });
    }

    mTop.resize(size_t{kTopCells} * kTopCells);
    mNodes.resize(mTop.size() + 2 * size_t{runCount});
    mLists.push_back(0);  // The list of nothing.
    for (size_t cell = 0; cell < mTop.size(); ++cell) {
        const size_t count = begins[cell + 1] - begins[cell];
        if (draft.runs.size() < count) draft.runs.resize(2 * count);
        std::copy_n(top.begin() + begins[cell], count, draft.runs.begin());
        mTop[cell] = static_cast<uint32_t>(draft.nodeCount);
        AddNode(&draft, mLat.PartOf(cell / kTopCells), mLon.PartOf(cell % kTopCells), 0, count,
                count, kPartListings * count);
    }
    mNodes.resize(draft.nodeCount);
    Trim(&mNodes);
    Trim(&mLists);
    return mNodes.size() <= kRestMask && mLists.size() <= kRestMask;
}

// Adds the node of a part of the grid and all below it. The part meets `count` runs, which stand in
// the draft's from `first` on; what is there from `end` on is for those below. `budget` is how many
// the lists of this node and below may hold, `count` at least.
void Directory::AddNode(Draft* draft, const Part& lat, const Part& lon, size_t first, size_t count,
                        size_t end, size_t budget) {
    std::vector<uint32_t>& runs = draft->runs;
    const size_t node = draft->nodeCount++;
    if (node == mNodes.size()) mNodes.resize(2 * node);
    mNodes[node] = count == 1 ? kAlone | runs[first] : kListed;  // Or the list of nothing.
    if (count <= 1) return;
    const bool isSplitByLat = lat.max - lat.min > lon.max - lon.min;
    const Part& whole = isSplitByLat ? lat : lon;
    const int64_t middle = whole.Middle();
    // Those of each half, in the table's order.
    size_t counts[2] = {0, 0};
    if (whole.min < whole.max) {
        if (runs.size() < end + 2 * count) runs.resize(2 * (end + 2 * count));
        const uint32_t* const all = runs.data() + first;
        uint32_t* const parts[2] = {runs.data() + end, runs.data() + end + count};
        for (size_t i = 0; i < count; ++i) {
            const Box& box = draft->boxes[all[i]];
            parts[0][counts[0]] = all[i];
            parts[1][counts[1]] = all[i];
            counts[0] += (isSplitByLat ? box.minLat : box.minLon) <= middle ? 1 : 0;
            counts[1] += (isSplitByLat ? box.maxLat : box.maxLon) > middle ? 1 : 0;
        }
    }
    const size_t listings = counts[0] + counts[1];
    if (listings == 0 || listings > budget) {
        mNodes[node] = kListed | static_cast<uint32_t>(mLists.size());
        mLists.push_back(static_cast<uint32_t>(count));
        const auto begin = runs.begin() + static_cast<std::ptrdiff_t>(first);
        mLists.insert(mLists.end(), begin, begin + static_cast<std::ptrdiff_t>(count));
        return;
    }
    const Part halves[2] = {{whole.min, middle}, {middle + 1, whole.max}};
    for (size_t half = 0; half < 2; ++half) {
        if (half == 1) mNodes[node] = static_cast<uint32_t>(draft->nodeCount);
        AddNode(draft, isSplitByLat ? halves[half] : lat, isSplitByLat ? lon : halves[half],
                end + half * count, counts[half], end + 2 * count,
                counts[half] + (budget - listings) / 2);
    }
}

Directory::Runs Directory::RunsAt(const Point& point) const {
    const size_t row = mLat.CellOf(point.lat);
    const size_t column = mLon.CellOf(point.lon);
    Part lat = mLat.PartOf(row);
    Part lon = mLon.PartOf(column);
    size_t node = mTop[row * kTopCells + column];
    while ((mNodes[node] & (kAlone | kListed)) == 0) {
        const bool isSplitByLat = lat.max - lat.min > lon.max - lon.min;
        Part& part = isSplitByLat ? lat : lon;
        const int64_t middle = part.Middle();
        const bool isSecond = (isSplitByLat ? point.lat : point.lon) > middle;
        part = isSecond ? Part{middle + 1, part.max} : Part{part.min, middle};
        node = isSecond ? mNodes[node] : node + 1;
    }
    const uint32_t rest = mNodes[node] & kRestMask;
    if ((mNodes[node] & kAlone) != 0) return {nullptr, 1, rest};
    return {&mLists[rest + 1], mLists[rest], 0};
}

}  // namespace zonedetect

ZDDirectory::~ZDDirectory() {
    delete mDirectory;
}

const zonedetect::Directory* ZDDirectory::Get(const ZDDatabase& db) {
    State state = mState.load(std::memory_order_acquire);
    if (state == kReady) return mDirectory;
    if (state != kNone) return nullptr;
    if (!mState.compare_exchange_strong(state, kBusy, std::memory_order_acquire)) return nullptr;
    try {
        auto directory = std::make_unique<zonedetect::Directory>();
        if (directory->Build(db)) {
            mDirectory = directory.release();
            mState.store(kReady, std::memory_order_release);
            return mDirectory;
        }
        mState.store(kUseless, std::memory_order_relaxed);
    } catch (const std::bad_alloc&) {
        mState.store(kNone, std::memory_order_release);  // The next lookup tries again.
    }
    return nullptr;
}
