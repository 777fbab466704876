#include "encode.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <map>
#include <numeric>
#include <stdexcept>
#include <tuple>

#include "library/sha1_digest.h"

namespace offlinetz {

namespace {

using zonedetect::kMaxRingPoints;
using zonedetect::kReferenceBase;
using zonedetect::kRingShift;
using zonedetect::kStringMask;
using zonedetect::kTrailerSize;

static_assert(kTrailerSize == SHA1HashSize, "the trailer is a SHA-1 digest");

void Append(const std::vector<uint8_t>& part, std::vector<uint8_t>* bytes) {
    bytes->insert(bytes->end(), part.begin(), part.end());
}

uint32_t Magnitude(int32_t value) {
    return value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
}

void AppendRing(const GridRing& ring, std::vector<uint8_t>* bytes) {
    AppendUnsigned(static_cast<uint32_t>(ring.size()), bytes);
    GridPoint previous;
    for (const GridPoint& p : ring) {
        const GridPoint stored = {p.lat, p.lon - kRingShift};
        AppendSigned(stored.lat - previous.lat, bytes);
        AppendSigned(stored.lon - previous.lon, bytes);
        previous = stored;
    }
}

size_t UnsignedBytes(uint32_t value) {
    size_t bytes = 1;
    for (; value >= 0x80u; value >>= 7)
        ++bytes;
    return bytes;
}

size_t SignedBytes(int32_t value) {
    return UnsignedBytes(Magnitude(value) << 1);
}

// Encodes the zones' records. `*offsets` receives the offset of each.
std::vector<uint8_t> EncodeMetadata(const std::vector<std::string>& zones,
                                    std::vector<uint32_t>* offsets) {
    std::vector<uint8_t> bytes;
    std::map<std::string, uint32_t> stored;
    for (const std::string& zone : zones) {
        const auto offset = static_cast<uint32_t>(bytes.size());
        offsets->push_back(offset);
        const auto [first, isNew] = stored.emplace(zone, offset);
        if (isNew) {
            AppendString(zone, &bytes);
        } else {
            AppendUnsigned(kReferenceBase + first->second, &bytes);
        }
    }
    return bytes;
}

}  // namespace

void AppendUnsigned(uint32_t value, std::vector<uint8_t>* bytes) {
    for (; value >= 0x80u; value >>= 7)
        bytes->push_back(static_cast<uint8_t>(value | 0x80u));
    bytes->push_back(static_cast<uint8_t>(value));
}

void AppendSigned(int32_t value, std::vector<uint8_t>* bytes) {
    AppendUnsigned(Magnitude(value) << 1 | (value < 0 ? 1u : 0u), bytes);
}

size_t LeastStoredBytes(const TableEntry& entry) {
    constexpr size_t kOffsets = 2;
    size_t bytes = kOffsets + UnsignedBytes(static_cast<uint32_t>(entry.ring.size()));
    for (const int32_t side :
         {entry.box.min.lat, entry.box.min.lon, entry.box.max.lat, entry.box.max.lon}) {
        bytes += SignedBytes(side);
    }
    GridPoint previous = {0, kRingShift};
    for (const GridPoint& p : entry.ring) {
        bytes += SignedBytes(p.lat - previous.lat) + SignedBytes(p.lon - previous.lon);
        previous = p;
    }
    return bytes;
}

void AppendString(const std::string& text, std::vector<uint8_t>* bytes) {
    if (text.size() > kMaxStringLength) {
        throw std::length_error("a text of more than 255 bytes cannot be stored: " + text);
    }
    AppendUnsigned(static_cast<uint32_t>(text.size()), bytes);
    for (const char c : text)
        bytes->push_back(static_cast<uint8_t>(c) ^ kStringMask);
}

std::vector<uint8_t> EncodeDatabase(const DatabaseContent& content, SectionSizes* sizes) {
    std::vector<uint32_t> recordOffsets;
    const std::vector<uint8_t> metadata = EncodeMetadata(content.zones, &recordOffsets);

    // The reader stops at the first bounding box that begins north of the point, so entries are
    // sorted by their southern sides. Rings are stored in the order of the entries, so their
    // offsets never decrease and the deltas of the offsets are unsigned.
    std::vector<size_t> order(content.entries.size());
    std::iota(order.begin(), order.end(), size_t{0});
    const auto key = [&](size_t i) {
        const TableEntry& e = content.entries[i];
        return std::make_tuple(e.box.min.lat, e.box.min.lon, e.zone, i);
    };
    std::sort(order.begin(), order.end(), [&](size_t x, size_t y) { return key(x) < key(y); });

    std::vector<uint8_t> boxTable;
    std::vector<uint8_t> polygons;
    uint32_t recordOffset = 0;
    size_t polygonOffset = 0;
    for (const size_t i : order) {
        const TableEntry& entry = content.entries[i];
        AppendSigned(entry.box.min.lat, &boxTable);
        AppendSigned(entry.box.min.lon, &boxTable);
        AppendSigned(entry.box.max.lat, &boxTable);
        AppendSigned(entry.box.max.lon, &boxTable);
        const uint32_t record =
                entry.zone != TableEntry::kNoZone ? recordOffsets.at(entry.zone) : recordOffset;
        AppendSigned(static_cast<int32_t>(record - recordOffset), &boxTable);
        AppendUnsigned(static_cast<uint32_t>(polygons.size() - polygonOffset), &boxTable);
        recordOffset = record;
        polygonOffset = polygons.size();
        if (entry.ring.size() > kMaxRingPoints) {
            throw std::length_error(fmt::format(
                    "a ring of {} has {} points, but a reader accepts at most {}",
                    entry.zone != TableEntry::kNoZone ? content.zones[entry.zone] : "no zone",
                    entry.ring.size(), kMaxRingPoints));
        }
        AppendRing(entry.ring, &polygons);
    }

    std::vector<uint8_t> file;
    for (const uint8_t byte : zonedetect::kMagic)
        file.push_back(byte);
    file.push_back(content.tableType);
    file.push_back(content.version);
    file.push_back(static_cast<uint8_t>(content.precision));
    file.push_back(static_cast<uint8_t>(content.fieldNames.size()));
    for (const std::string& name : content.fieldNames)
        AppendString(name, &file);
    AppendString(content.notice, &file);
    for (const std::vector<uint8_t>* section :
         std::initializer_list<const std::vector<uint8_t>*>{&boxTable, &metadata, &polygons}) {
        if (section->size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
            throw std::length_error("the database would exceed 2 GiB");
        }
        AppendUnsigned(static_cast<uint32_t>(section->size()), &file);
    }
    *sizes = {file.size(), boxTable.size(), metadata.size(), polygons.size()};
    Append(boxTable, &file);
    Append(metadata, &file);
    Append(polygons, &file);
    if (file.size() + kTrailerSize > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        throw std::length_error("the database would exceed 2 GiB");
    }

    const Digest digest = DigestOf(file.data(), file.size());
    file.insert(file.end(), digest.begin(), digest.end());
    return file;
}

}  // namespace offlinetz
