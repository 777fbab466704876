// Any database, valid or broken: the reader must agree with the reference reader in every result.
// The bytes describe points, a database, and edits of its fields.
#include <platform/log.h>
#include <reader/units.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "choices.h"
#include "compare_library.h"
#include "compare_readers.h"
#include "database/encode.h"

using offlinetz::GridBox;
using offlinetz::GridPoint;
using offlinetz::GridRing;
using zonedetect::WrappingAdd;

namespace {

struct Entry {
    GridBox box;
    uint32_t record;
    uint32_t polygon;
};

// A database in the making, and the points where a ring or bounding box has a corner.
struct Draft {
    RawDatabase raw;
    std::vector<Entry> entries;
    std::vector<GridPoint> corners = {{0, 0}};
};

// Adds a ring of any size, with its bounding box or another one. Some rings begin near an end of
// the range of numbers, so that their coordinates wrap; some repeat a point, so that they are long
// and small. Some have many entries, each a step further, so that the table is worth a spatial
// index.
void AddEntries(Choices* c, uint32_t record, Draft* draft) {
    Bytes* const polygons = &draft->raw.polygons;
    Entry entry = {{}, record, static_cast<uint32_t>(polygons->size())};
    const uint32_t repeats = c->OneIn(8) ? c->Below(40) : 1;
    const uint32_t size = c->Byte();
    std::vector<GridPoint> deltas(size % 24);
    for (GridPoint& delta : deltas)
        delta = {c->Number(), c->Number()};
    const uint32_t shape = size / 24;
    if (!deltas.empty() && (shape & 1u) != 0) deltas[0].lon = WrappingAdd(deltas[0].lon, INT32_MIN);
    if (!deltas.empty() && (shape & 8u) != 0) deltas[0].lat = WrappingAdd(deltas[0].lat, INT32_MIN);
    if ((shape & 4u) != 0) {
        const uint32_t place = c->Byte() % static_cast<uint32_t>(deltas.size() + 1);
        deltas.insert(deltas.begin() + place, 120 + c->Below(20), GridPoint{});
    }
    GridRing ring;
    offlinetz::AppendUnsigned(static_cast<uint32_t>(deltas.size()) * repeats, polygons);
    for (uint32_t i = 0; i < deltas.size() * repeats; ++i) {
        const GridPoint& delta = deltas[i % deltas.size()];
        offlinetz::AppendSigned(delta.lat, polygons);
        offlinetz::AppendSigned(delta.lon, polygons);
        const GridPoint last = ring.empty() ? GridPoint{} : ring.back();
        ring.push_back({WrappingAdd(last.lat, delta.lat), WrappingAdd(last.lon, delta.lon)});
    }
    if (c->OneIn(4) || ring.empty()) {
        entry.box = {{c->Number(), c->Number()}, {c->Number(), c->Number()}};
    } else {
        entry.box = offlinetz::BoxOf(ring);
        entry.box.max.lon = WrappingAdd(entry.box.max.lon, 3);
    }
    const uint32_t copies = c->OneIn(8) ? c->Below(256) * (c->OneIn(16) ? 20 : 1) : 1;
    const GridPoint step = copies > 1 ? GridPoint{c->Number(), c->Number()} : GridPoint{};
    for (uint32_t i = 0; i < copies; ++i) {
        draft->entries.push_back(entry);
        for (GridPoint* corner : {&entry.box.min, &entry.box.max}) {
            ring.push_back(*corner);
            *corner = {WrappingAdd(corner->lat, step.lat), WrappingAdd(corner->lon, step.lon)};
        }
    }
    draft->corners.insert(draft->corners.end(), ring.begin(), ring.end());
}

void WriteTable(Draft* draft) {
    std::stable_sort(draft->entries.begin(), draft->entries.end(),
                     [](const Entry& a, const Entry& b) { return a.box.min < b.box.min; });
    Entry last = {};
    for (const Entry& e : draft->entries) {
        draft->raw.AddEntry(e.box, static_cast<int32_t>(e.record - last.record),
                            e.polygon - last.polygon);
        last = e;
    }
}

// Changes bytes and numbers of a section. Its size in the header follows.
void Edit(Choices* c, Bytes* section) {
    for (uint32_t edits = c->OneIn(8) ? c->Below(4) + 1 : 0; edits > 0; --edits) {
        const size_t place = static_cast<uint32_t>(c->Number()) % (section->size() + 1);
        const auto at = section->begin() + static_cast<ptrdiff_t>(place);
        const bool isEnd = place == section->size();
        const uint32_t kind = c->Below(4);
        const Bytes number = kind == 1 ? Bytes(c->Below(12), 0x80) : Signed(c->Number());
        if (kind == 0 && !isEnd) {
            *at = c->Byte();
        } else if (kind == 3 && !isEnd) {
            section->erase(at, c->OneIn(2) ? section->end() : at + 1);
        } else {
            section->insert(at, number.begin(), number.end());  // One more number, or a longer one.
        }
    }
}

Bytes Describe(Choices* c, Draft* draft) {
    static constexpr uint8_t kPrecisions[] = {21, 4, 12, 24, 25, 31};
    RawDatabase& raw = draft->raw;
    raw.precision = kPrecisions[c->Below(6)];
    uint32_t record = 0;
    for (uint32_t i = c->Below(8); i > 0; --i) {
        if (c->OneIn(2)) {
            const Bytes text = c->Take(c->Below(32));
            record = raw.AddRecord({text.begin(), text.end()});
        }
        AddEntries(c, record, draft);
    }
    WriteTable(draft);
    for (Bytes* section : {&raw.headerStrings, &raw.boxTable, &raw.metadata, &raw.polygons})
        Edit(c, section);
    if (c->OneIn(8)) raw.fieldCount = c->Byte();
    raw.tableType = 1;  // For distances to borders; lookups are the same for all types.
    Bytes content = raw.Content();
    Edit(c, &content);
    return content;
}

// Whether the library refuses what the reader accepts: sizes in the header that overflow, or
// records that take more reading than the file.
bool IsDamaged(const ZDDatabase& database) {
    return database.boxTableOffset > database.metadataOffset ||
           database.metadataOffset > database.polygonDataOffset ||
           database.polygonDataOffset > static_cast<uint32_t>(database.length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    platform::DropLog();
    Choices choices(data, size);
    const Bytes first = choices.Take(16);
    Draft draft;
    const Bytes file = WithTrailer(Describe(&choices, &draft));
    const DatabasePtr database = OpenBytes(file);
    std::optional<oracle::ReferenceReader> reference;
    try {
        reference.emplace(file);
    } catch (const std::runtime_error&) {
    }
    Require((database != nullptr) == reference.has_value(), "whether it opens");
    if (database == nullptr) return 0;
    Require(reference->Notice() == ZDGetNotice(database.get()), "the notice");
    // A heap block of exactly the content, so a sanitizer reports each read beyond it.
    const Bytes content(file.begin(), file.end() - 20);
    offlinetz_database* opened;
    const offlinetz_status status =
            offlinetz_open_memory(content.data(), file.size(), OFFLINETZ_SKIP_DIGEST, &opened);
    const LibraryPtr library(opened, offlinetz_close);
    Require((status == OFFLINETZ_OK) == (*offlinetz_message(opened) == '\0'), "a message");
    const uint8_t precision = database->precision;
    Require(status == OFFLINETZ_OK || (status == OFFLINETZ_REFUSED &&
                                       (precision < 1 || precision > 31 || IsDamaged(*database))),
            "whether the library opens it");
    std::vector<float> points;
    Choices places(first.data(), first.size());
    while (!places.IsAtEnd()) {  // Points on and near corners, at the centre, and anywhere.
        const uint32_t row = 256u * places.Byte();
        GridPoint p = draft.corners[(row + places.Byte()) % draft.corners.size()];
        if (row >= 256u * 192u) p = {};
        p.lat = WrappingAdd(p.lat, places.Number());
        p.lon = WrappingAdd(p.lon, places.Number());
        const int scaled = std::clamp<int>(precision, 1, 31);
        float degrees[] = {DegreesAtUnits(p.lat, scaled, 90.0),
                           DegreesAtUnits(p.lon, scaled, 180.0)};
        if (places.OneIn(8)) std::memcpy(degrees, (places.Take(8) + Bytes(8)).data(), 8);
        RequireSame(DifferenceWithText(*database, *reference, degrees[0], degrees[1]));
        points.insert(points.end(), {degrees[0], degrees[1]});
    }
    if (status == OFFLINETZ_OK) RequireSame(DifferenceOfLibrary(library.get(), *reference, points));
    return 0;
}
