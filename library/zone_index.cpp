#include "zone_index.h"

#include <reader/format.h>
#include <reader/growing_array.h>
#include <reader/read_budget.h>
#include <reader/stored_string.h>

#include <algorithm>
#include <new>

#include "proved_tile.h"

namespace offlinetz {

namespace {

using zonedetect::Box;
using zonedetect::RunTree;

// Estimated sizes in the table in bytes. With them the first arrays rarely have to grow.
constexpr size_t kUsualEntryBytes = 16;
constexpr size_t kUsualRunBytes = 28;

void Require(bool hasMemory) {
    if (!hasMemory) throw std::bad_alloc();
}

}  // namespace

// Builds an index, one member function after the other.
class ZoneIndex::Builder {
  public:
    Builder(const ZDDatabase& database, ZoneNames* names, ZoneIndex* index)
        : mDatabase(database), mNames(*names), mIndex(*index), mSteps(index->mSteps) {}

    bool Build() {
        ReadTable();
        if (!NumberZones()) return false;
        if (mIsSorted) BuildTree();
        if (mIndex.mHasTree) {
            NumberLeaves();
            MarkProvedRuns();
        } else {
            for (uint32_t run = 0; run < mBoxes.Size(); ++run)
                CompareBox(run);
        }
        return true;
    }

  private:
    // Makes a step of each entry whose offsets are in range. A run without any gets one that has no
    // ring.
    void ReadTable() {
        const size_t bytes = mDatabase.metadataOffset - mDatabase.boxTableOffset;
        Require(mBoxes.Reserve(bytes / kUsualRunBytes + 1));
        mBegins.reserve(bytes / kUsualRunBytes + 1);
        mSteps.reserve(bytes / kUsualEntryBytes);
        zonedetect::TableReader reader(mDatabase, zonedetect::TableReader::Start(mDatabase));
        const auto endRun = [this] {
            if (!mBegins.empty() && mBegins.back() == mSteps.size()) AddStep(0, kNoRecord);
        };
        while (reader.Next()) {
            if (!reader.IsSameBox()) {
                endRun();
                const Box& box = reader.CurrentBox();
                mIsSorted =
                        mIsSorted && (mBoxes.Size() == 0 || mBoxes.end()[-1].minLat <= box.minLat);
                Require(mBoxes.ReserveMore(1));
                mBoxes.Push(box);
                mBegins.push_back(static_cast<uint32_t>(mSteps.size()));
            }
            const zonedetect::TablePlace place = reader.Place();
            const uint32_t ring = mDatabase.polygonDataOffset + place.polygonOffset;
            const uint32_t record = mDatabase.metadataOffset + place.recordOffset;
            if (record < mDatabase.polygonDataOffset &&
                ring < static_cast<uint32_t>(mDatabase.length)) {
                AddStep(ring, record);
            }
        }
        endRun();
        mBegins.push_back(static_cast<uint32_t>(mSteps.size()));
        AddStep(0, kNoRecord);  // MarkProved looks one step ahead.
        mSteps.shrink_to_fit();
    }

    // The zone is the position of its record until NumberZones replaces it.
    void AddStep(uint32_t ring, uint32_t record) {
        mSteps.emplace_back(Kind::kRing, ring, 0u, false);
        mSteps.back().mZone = record;
    }

    // Numbers the zones in the order of their records, and adds them to the names. Those whose
    // records cannot be read get the numbers behind all ids. Returns false if the records take more
    // reading than honest ones.
    bool NumberZones() {
        uint32_t first = UINT32_MAX;
        uint32_t last = 0;
        for (const Step& step : mSteps) {
            if (step.mZone == kNoRecord) continue;
            first = std::min(first, step.mZone);
            last = std::max(last, step.mZone);
        }
        // For each position 1 if a record begins there, else 0; then the number of its zone.
        std::vector<uint32_t> numbers(first <= last ? size_t{last} - first + 1 : 0);
        for (const Step& step : mSteps) {
            if (step.mZone != kNoRecord) numbers[step.mZone - first] = 1;
        }
        zonedetect::ReadBudget budget(mDatabase.length);
        std::vector<uint32_t> unreadable;
        // Clients of the service get no names either where the name of their field is unreadable.
        uint32_t fieldName = zonedetect::kFixedHeaderSize;
        zonedetect::StoredString ignored;
        const bool hasNames = mDatabase.fieldCount > 0 &&
                              zonedetect::FindString(mDatabase, &fieldName, &budget, &ignored);
        uint32_t count = 0;
        for (uint32_t i = 0; i < numbers.size(); ++i) {
            if (numbers[i] == 0) continue;
            uint32_t position = first + i;
            zonedetect::StoredString record;
            if (hasNames && zonedetect::FindString(mDatabase, &position, &budget, &record)) {
                char text[zonedetect::StoredString::kMaxRoom];
                record.CopyTo(text);
                mNames.Add(text);
                numbers[i] = count++;
            } else {
                unreadable.push_back(i);
            }
            if (budget.IsSpent()) return false;
        }
        mIndex.mUnreadable = count;
        for (const uint32_t i : unreadable)
            numbers[i] = count++;
        for (Step& step : mSteps) {
            if (step.mZone != kNoRecord)
                step = {Kind::kRing, step.Place(), numbers[step.mZone - first], false};
        }
        for (uint32_t run = 0; run < mBoxes.Size(); ++run) {
            mSteps[mBegins[run + 1] - 1].SetLast();
            if (mSteps[mBegins[run]].mZone == kNoRecord) {
                // A box that contains no point, but begins where the run's does: there a lookup
                // without a tree may end.
                const int32_t lat = mBoxes[run].minLat;
                AddBox(run, {lat, 1, lat, 0});
            }
        }
        return true;
    }

    // Leaves the index without a tree if the boxes overlap too much.
    void BuildTree() {
        const RunTree::Outcome outcome = mIndex.mTree.Build(mBoxes);
        Require(outcome != RunTree::Outcome::kNoMemory);
        mIndex.mHasTree = outcome == RunTree::Outcome::kBuilt;
    }

    // Makes lookups compare a box for a run.
    void AddBox(uint32_t run, const Box& box) {
        Step& first = mSteps[mBegins[run]];
        mIndex.mBoxes.push_back({box, first});
        first = {Kind::kBox, static_cast<uint32_t>(mIndex.mBoxes.size()) - 1, 0, first.IsLast()};
    }

    void CompareBox(uint32_t run) {
        if (mSteps[mBegins[run]].KindOf() != Kind::kBox) AddBox(run, mBoxes[run]);
    }

    // Makes the tree give the first steps of runs. Boxes are compared for the runs that may be
    // listed for points outside of them.
    void NumberLeaves() {
        mIndex.mTree.Renumber(mBegins.data(), [this](uint32_t run) { CompareBox(run); });
    }

    void MarkProvedRuns() {
        constexpr size_t kAhead = 8;  // Runs whose rings are fetched from memory meanwhile.
        for (size_t run = 0; run < mBoxes.Size(); ++run) {
            const size_t later = std::min(run + kAhead, mBoxes.Size() - 1);
            zonedetect::Prefetch(mDatabase, mSteps[mBegins[later]].Place());
            Step* const first = &mSteps[mBegins[run]];
            if (first->KindOf() == Kind::kRing)
                MarkProved(mDatabase, mBoxes[run], mIndex.mUnreadable, first);
        }
    }

    // Of a step without a ring. The content is shorter.
    static constexpr uint32_t kNoRecord = UINT32_MAX;

    const ZDDatabase& mDatabase;
    ZoneNames& mNames;
    ZoneIndex& mIndex;
    std::vector<Step>& mSteps;
    bool mIsSorted = true;
    zonedetect::GrowingArray<Box> mBoxes;  // Of each run.
    std::vector<uint32_t> mBegins;         // The first step of each run, and their number.
};

bool ZoneIndex::Build(const ZDDatabase& database, ZoneNames* names) {
    if (database.boxTableOffset > database.metadataOffset ||
        database.metadataOffset > database.polygonDataOffset ||
        database.polygonDataOffset > static_cast<uint32_t>(database.length)) {
        return false;
    }
    const bool isBuilt = Builder(database, names, this).Build();
    names->Finish();
    return isBuilt;
}

}  // namespace offlinetz
