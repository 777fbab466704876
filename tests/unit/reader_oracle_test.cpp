// The reader against the plain reading of the rules, bit for bit, over random databases, sound
// and damaged, and points on, beside and far from vertices and edges.
#include <gtest/gtest.h>
#include <zonedetect.h>

#include <optional>
#include <random>
#include <stdexcept>

#include "compare_readers.h"
#include "plain_reader.h"
#include "raw_database.h"

using offlinetz::GridBox;
using offlinetz::GridPoint;
using offlinetz::GridRing;

namespace {

using Random = std::mt19937_64;

int32_t Between(Random* random, int32_t low, int32_t high) {
    const auto span = static_cast<uint64_t>(int64_t{high} - low) + 1;
    return static_cast<int32_t>(low + static_cast<int64_t>((*random)() % span));
}

struct RandomDatabase {
    RawDatabase raw;
    std::vector<GridRing> rings;  // As stored.
};

// Hundreds of small rings whose boxes tile a field, or lie anywhere in it, some alike; now and then
// one out of order or one that cannot be read. Their table is worth a directory.
RandomDatabase MakeLongTable(Random* random) {
    RandomDatabase made;
    const uint32_t record = made.raw.AddRecord("A");
    const uint32_t other = made.raw.AddRecord("B");
    std::vector<GridBox> boxes;
    const bool isTiled = (*random)() % 2 == 0;
    const int32_t field = Between(random, 40, 4000);
    const auto tile = [&](const auto& self, const GridBox& box) -> void {
        const bool byLat = box.max.lat - box.min.lat > box.max.lon - box.min.lon;
        if (boxes.size() > 300 || box.max.lat - box.min.lat < 4 || (*random)() % 6 == 0) {
            boxes.push_back(box);
            return;
        }
        GridBox halves[2] = {box, box};
        if (byLat) {
            halves[0].max.lat = box.min.lat + (box.max.lat - box.min.lat) / 2;
            halves[1].min.lat = halves[0].max.lat + 1;
        } else {
            halves[0].max.lon = box.min.lon + (box.max.lon - box.min.lon) / 2;
            halves[1].min.lon = halves[0].max.lon + 1;
        }
        self(self, halves[0]);
        self(self, halves[1]);
    };
    if (isTiled) {
        tile(tile, {{-field, -field}, {field, field}});
    } else {
        for (int i = 0; i < 300; ++i) {
            const GridPoint min = {Between(random, -field, field), Between(random, -field, field)};
            boxes.push_back({min,
                             {min.lat + Between(random, -1, field / 4),
                              min.lon + Between(random, -1, field / 4)}});
        }
    }
    std::sort(boxes.begin(), boxes.end(),
              [](const GridBox& a, const GridBox& b) { return a.min < b.min; });
    const bool isSorted = (*random)() % 8 != 0;
    for (size_t i = 0; i < boxes.size(); ++i) {
        const GridBox& box =
                isSorted || (*random)() % 50 != 0 ? boxes[i] : boxes[(*random)() % boxes.size()];
        const GridRing ring = {{box.min.lat - 5, box.min.lon - 7},
                               {box.max.lat + 6, box.min.lon - 7},
                               {box.max.lat - Between(random, 0, 9), box.max.lon + 1}};
        made.rings.push_back(ring);
        for (int copies = Between(random, 1, 2); copies > 0; --copies)
            made.raw.AddRing(copies == 1 ? record : other, ring, box);
    }
    if ((*random)() % 4 == 0) made.raw.boxTable.resize(made.raw.boxTable.size() - 3);
    if ((*random)() % 4 == 0) made.raw.polygons[made.raw.polygons.size() / 2] = 0xFF;
    return made;
}

// Rings of few points in a small field, so that chance puts vertices, edges and points on top of
// each other; some with repeated points, some that cross themselves, some boxes that lie.
RandomDatabase MakeDatabase(Random* random) {
    RandomDatabase made;
    static constexpr int kPrecisions[] = {21, 21, 21, 4, 12, 24, 31, 31};
    const int precision = kPrecisions[(*random)() % 8];
    made.raw.precision = static_cast<uint8_t>(precision);
    const int32_t scale = int32_t{1} << (precision - 1);
    // Some beyond what floats hold exactly.
    static constexpr int32_t kFields[] = {12, 12, 5000000, 12000000, 400000000, 400000000};
    const int32_t field = std::min<int32_t>(scale / 2, kFields[(*random)() % 6]);
    const int zones = Between(random, 1, 4);
    std::vector<uint32_t> records;
    for (int i = 0; i < zones; ++i)
        records.push_back(made.raw.AddRecord(std::string(1, static_cast<char>('A' + i))));
    const int count = Between(random, 0, 8);
    std::vector<GridRing> rings;
    for (int i = 0; i < count; ++i) {
        GridRing ring;
        const bool isLong = (*random)() % 8 == 0;
        const int points = isLong ? Between(random, 60, 600) : Between(random, 0, 9);
        // A long one is anywhere at each point, or goes its way, much of it far from most targets.
        const int32_t step = isLong && (*random)() % 2 == 0 ? field / 12 : 2 * field;
        GridPoint at = {Between(random, -field, field), Between(random, -field, field)};
        for (int p = 0; p < points; ++p) {
            const auto near = [&](int32_t c) {
                return Between(random, std::max(c - step, -2 * field),
                               std::min(c + step, 2 * field));
            };
            at = step == 2 * field
                         ? GridPoint{Between(random, -field, field), Between(random, -field, field)}
                         : GridPoint{near(at.lat), near(at.lon)};
            ring.push_back(at);
            if ((*random)() % 8 == 0) ring.push_back(ring.back());
        }
        rings.push_back(ring);
    }
    const auto south = [](const GridRing& r) {
        return r.empty() ? 0 : offlinetz::BoxOf(r).min.lat;
    };
    std::sort(rings.begin(), rings.end(),
              [&](const GridRing& a, const GridRing& b) { return south(a) < south(b); });
    for (const GridRing& ring : rings) {
        GridBox box = ring.empty() ? GridBox{{0, 0}, {0, 0}} : offlinetz::BoxOf(ring);
        box.max.lon += (*random)() % 4 == 0 ? -1 : 3;
        made.raw.AddRing(records[(*random)() % records.size()], ring, box);
    }
    made.rings = std::move(rings);
    return made;
}

// A point on or beside a vertex, near an edge, or anywhere in the field.
GridPoint MakePoint(Random* random, const RandomDatabase& made) {
    const auto jitter = [random] { return Between(random, -1, 1); };
    if (!made.rings.empty() && (*random)() % 4 != 0) {
        const GridRing& ring = made.rings[(*random)() % made.rings.size()];
        if (!ring.empty()) {
            const size_t i = (*random)() % ring.size();
            const GridPoint& a = ring[i];
            const GridPoint& b = ring[(i + 1) % ring.size()];
            const int32_t eighths = Between(random, 0, 8);
            const auto mix = [eighths](int32_t x, int32_t y) {
                return static_cast<int32_t>(x + (int64_t{y} - x) * eighths / 8);
            };
            return {mix(a.lat, b.lat) + jitter(), mix(a.lon, b.lon) + 3 + jitter()};
        }
    }
    return {Between(random, -20, 20), Between(random, -20, 20)};
}

// Changes some bytes, which may leave anything or nothing to read.
Bytes Damaged(Random* random, Bytes content) {
    for (int i = Between(random, 1, 4); i > 0; --i)
        content[(*random)() % content.size()] = static_cast<uint8_t>((*random)());
    if ((*random)() % 8 == 0) content.resize((*random)() % content.size());
    return content;
}

TEST(ReaderOracle, AgreesOnRandomDatabases) {
    Random random(20261124);
    int damagedAndOpened = 0;
    for (int round = 0; round < 5000 && !HasFailure(); ++round) {
        const bool isDamaged = round % 10 >= 3;
        const RandomDatabase made =
                round % 150 == 0 ? MakeLongTable(&random) : MakeDatabase(&random);
        const Bytes content = made.raw.Content();
        const Bytes file = WithTrailer(isDamaged ? Damaged(&random, content) : content);
        const DatabasePtr database = OpenBytes(file);
        std::optional<oracle::PlainReader> plain;
        try {
            plain.emplace(file);
        } catch (const std::runtime_error&) {
        }
        ASSERT_EQ(plain.has_value(), database != nullptr) << "round " << round;
        ASSERT_TRUE(isDamaged || database != nullptr);
        if (database == nullptr) continue;
        if (isDamaged) ++damagedAndOpened;
        const HeapDatabase copy(*database);
        for (int i = 0; i < (isDamaged ? 5 : 25); ++i) {
            const GridPoint p = MakePoint(&random, made);
            const float lat = DegreesAtUnits(p.lat, made.raw.precision, 90.0);
            const float lon = DegreesAtUnits(p.lon, made.raw.precision, 180.0);
            EXPECT_STREQ(nullptr, DifferenceAt(*copy.get(), *plain, lat, lon))
                    << "round " << round << ": " << lat << " " << lon;
        }
    }
    EXPECT_GT(damagedAndOpened, 1000);
}

TEST(ReaderOracle, AgreesOnTheWorld) {
    const Bytes file = ReadFile(OFFLINETZ_WORLD_DATABASE);
    const DatabasePtr database = OpenBytes(file);
    ASSERT_NE(nullptr, database);
    const oracle::PlainReader plain(file);
    Random random(7);
    for (int i = 0; i < 400; ++i) {
        const auto lat = static_cast<float>(Between(&random, -90000, 90000)) / 1000.0f;
        const auto lon = static_cast<float>(Between(&random, -180000, 180000)) / 1000.0f;
        EXPECT_STREQ(nullptr, DifferenceAt(*database, plain, lat, lon)) << lat << " " << lon;
    }
}

}  // namespace
