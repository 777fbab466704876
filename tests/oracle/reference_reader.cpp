#include "reference_reader.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace oracle {

namespace {

// Thrown if a number does not end within the content.
struct CutShort {};

// Reads numbers from a position on, and counts their bytes.
struct Reading {
    const std::vector<uint8_t>& content;
    uint64_t position;
    uint64_t taken = 0;

    uint32_t Number() {
        uint64_t value = 0;
        for (int group = 0;; ++group) {
            if (position >= content.size()) throw CutShort();
            const int byte = content[position++];
            ++taken;
            if (group < 5) value += static_cast<uint64_t>(byte % 128) << (7 * group);
            if (byte < 128) return static_cast<uint32_t>(value % (uint64_t{1} << 32));
        }
    }

    int64_t SignedNumber() {
        const uint32_t number = Number();
        return number % 2 == 0 ? int64_t{number / 2} : -int64_t{number / 2};
    }
};

// The limit of the bytes of strings in an opening or a lookup, and of rings in a lookup: when more
// have been read, no further string or ring is begun.
bool IsTooMuch(const std::vector<uint8_t>& content, uint64_t taken) {
    return taken > 4 * content.size() + 1048576;
}

// The string at `*position`, which is moved behind the string or behind the reference to it.
std::optional<std::string> StringAt(const std::vector<uint8_t>& content, uint32_t metadata,
                                    uint32_t* position, uint64_t* taken) {
    if (IsTooMuch(content, *taken)) return std::nullopt;
    Reading reading{content, *position};
    try {
        uint64_t length = reading.Number();
        *position = static_cast<uint32_t>(reading.position);
        const bool inlineText = length < 256;
        if (!inlineText) {
            reading.position =
                    static_cast<uint32_t>(metadata + static_cast<uint32_t>(length - 256));
            length = reading.Number();
            if (length > 256) length = content.size();  // Too long for any string.
        }
        *taken += reading.taken;
        if (reading.position + length > content.size()) return std::nullopt;
        std::string text;
        for (uint64_t i = 0; i < length; ++i)
            text += static_cast<char>(content[reading.position + i] ^ 0x80);
        *taken += length;
        if (inlineText) *position += static_cast<uint32_t>(length);
        return text.substr(0, text.find('\0'));
    } catch (const CutShort&) {
        *taken += reading.taken;
        return std::nullopt;
    }
}

int64_t Wrap(int64_t value) {
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

// `value` without its fraction, as an integer of so many bits: the nearest one where it is out of
// range, 0 where it is not a number.
int64_t Whole(float value, int bits) {
    const float limit = std::ldexp(1.0f, bits - 1);
    if (value != value) return 0;
    if (value >= limit) return INT64_MAX >> (64 - bits);
    return static_cast<int64_t>(std::max(value, -limit));
}

struct Spot {
    int64_t lat;
    int64_t lon;
};

int Quadrant(const Spot& p, const Spot& t) {
    const bool north = p.lat >= t.lat;
    const bool east = p.lon >= t.lon;
    return north ? (east ? 0 : 1) : (east ? 3 : 2);
}

bool Between(int64_t x, int64_t a, int64_t b) {
    return (a <= x && x <= b) || (b <= x && x <= a);
}

uint64_t Squared(const Spot& previous, const Spot& current, const Spot& t) {
    const float latT = static_cast<float>(t.lat);
    const float lonR = static_cast<float>(t.lon);
    float lat;
    float lon;
    if (current.lon == previous.lon) {
        lat = latT;
        lon = static_cast<float>(current.lon);
    } else if (current.lat == previous.lat) {
        lat = static_cast<float>(current.lat);
        lon = lonR;
    } else {
        const float a = static_cast<float>(current.lat - previous.lat) /
                        static_cast<float>(current.lon - previous.lon);
        const float b = static_cast<float>(current.lat) - a * static_cast<float>(current.lon);
        const float s = lonR + a * latT;
        const float m = 1.0f + a * a;
        lon = (s - a * b) / m;
        lat = (b + a * s) / m;
    }
    int64_t dLat = current.lat - t.lat;
    int64_t dLon = current.lon - t.lon;
    if (Between(Whole(lat, 32), current.lat, previous.lat) &&
        Between(Whole(lon, 32), current.lon, previous.lon)) {
        dLat = Whole(lat - latT, 64);
        dLon = Whole(lon - lonR, 64);
    }
    const uint64_t uLat = static_cast<uint64_t>(dLat);
    const uint64_t uLon = static_cast<uint64_t>(dLon);
    return uLat * uLat + uLon * uLon * 4;
}

// The reader decodes a ring's points in stretches of this many, after the first point.
constexpr uint32_t kStretch = 128;

// The bytes read of a ring that is left at point `k` of `count`: those up to the stretch's end.
uint64_t CostOf(Reading reading, uint32_t k, uint32_t count) {
    const uint32_t last = k == 0 ? 0 : (k - 1) / kStretch * kStretch + kStretch;
    uint64_t cost = reading.taken;
    try {
        for (uint64_t left = k < last ? 2 * uint64_t{std::min(last, count - 1) - k} : 0; left > 0;
             --left) {
            reading.Number();
            cost = reading.taken;
        }
    } catch (const CutShort&) {
        // Numbers count as far as they end within the content.
    }
    return cost;
}

// The result for one ring: 1 in, 2 excluded, 3 vertex, 4 border, 0 outside. Adds the bytes read to
// `cost`.
int ClassifyRing(Reading* reading, const Spot& t, uint64_t* nearest, uint64_t* cost) {
    const uint32_t count = reading->Number();
    if (count > 1000000) throw CutShort();
    std::vector<Spot> visited;
    const auto leave = [&](int result, uint32_t k) {
        *cost += k < count ? CostOf(*reading, k, count) : reading->taken;
        return result;
    };
    int w = 0;
    for (uint32_t k = 0; k <= count; ++k) {
        Spot p = {0, 0};
        if (k < count) {
            const int64_t dLat = reading->SignedNumber();
            const int64_t dLon = reading->SignedNumber();
            if (k > 0) p = visited.back();
            p = {Wrap(p.lat + dLat), Wrap(p.lon + dLon)};
        } else if (count > 0) {
            p = visited.front();
        }
        if (p.lat == t.lat && p.lon == t.lon) {
            *nearest = 0;
            return leave(3, k);
        }
        visited.push_back(p);
        if (k == 0) continue;
        const Spot& previous = visited[k - 1];
        const int q = Quadrant(p, t);
        const int before = Quadrant(previous, t);
        if (q == (before + 1) % 4) {
            ++w;
        } else if (before == (q + 1) % 4) {
            --w;
        } else if (q != before) {
            const float a = static_cast<float>(p.lat - previous.lat) /
                            static_cast<float>(p.lon - previous.lon);
            const float b = static_cast<float>(p.lat) - a * static_cast<float>(p.lon);
            const int64_t x = Whole((static_cast<float>(t.lat) - b) / a, 32);
            if (x == t.lon) {
                *nearest = 0;
                return leave(4, k);
            }
            if (q == 2 || q == 3) {
                w += t.lon > x ? 2 : -2;
            } else {
                w += t.lon > x ? -2 : 2;
            }
        }
        const uint64_t squared = Squared(previous, p, t);
        if (squared < *nearest) *nearest = squared;
    }
    leave(0, count);
    if (w == -4) return 1;
    if (w == 4) return 2;
    if (w == 0) return 0;
    *nearest = 0;
    return 4;
}

}  // namespace

ReferenceReader::ReferenceReader(std::vector<uint8_t> file) : mContent(std::move(file)) {
    if (mContent.size() < 27) throw std::runtime_error("too short");
    mContent.resize(mContent.size() - 20);
    if (mContent[0] != 'P' || mContent[1] != 'L' || mContent[2] != 'B')
        throw std::runtime_error("wrong magic");
    uint32_t position = 7;
    uint64_t taken = 0;
    for (int i = 0; i < mContent[6]; ++i)
        mFieldNames.push_back(StringAt(mContent, 0, &position, &taken));
    const auto notice = StringAt(mContent, 0, &position, &taken);
    if (!notice) throw std::runtime_error("no notice");
    mNotice = *notice;
    try {
        Reading reading{mContent, position};
        const uint32_t boxes = reading.Number();
        const uint32_t records = reading.Number();
        const uint32_t rings = reading.Number();
        mBoxTable = static_cast<uint32_t>(reading.position);
        mMetadata = mBoxTable + boxes;
        mPolygons = mMetadata + records;
        if (mPolygons + rings != mContent.size()) throw std::runtime_error("sizes do not add up");
    } catch (const CutShort&) {
        throw std::runtime_error("sizes cut short");
    }
}

Answer ReferenceReader::Lookup(float lat, float lon) const {
    Answer answer;
    const int precision = Precision();
    if (precision < 1 || precision > 31) return answer;
    const float scale = static_cast<float>(std::ldexp(1.0, precision - 1));
    const Spot point = {Whole(lat / 90.0f * scale, 32), Whole(lon / 180.0f * scale, 32)};
    const Spot shifted = {point.lat, Wrap(point.lon - 3)};
    uint64_t nearest = UINT64_MAX;
    uint64_t ringBytes = 0;
    uint64_t textBytes = 0;

    struct Zone {
        uint32_t record;
        int net;    // Rings that the point is in, less those that it is excluded by.
        int other;  // The last result of another kind.
    };
    std::vector<Zone> zones;
    size_t ringHits = 0;
    try {
        Reading table{mContent, mBoxTable};
        uint32_t record = 0;
        uint32_t polygon = 0;
        while (table.position < mMetadata && !IsTooMuch(mContent, ringBytes)) {
            const int64_t minLat = table.SignedNumber();
            const int64_t minLon = table.SignedNumber();
            const int64_t maxLat = table.SignedNumber();
            const int64_t maxLon = table.SignedNumber();
            const int64_t recordDelta = table.SignedNumber();
            const uint32_t polygonDelta = table.Number();
            if (minLat > point.lat) break;
            record += static_cast<uint32_t>(recordDelta);
            polygon += polygonDelta;
            const bool inBox = minLon <= point.lon && maxLat >= point.lat && maxLon >= point.lon;
            const uint32_t ringAt = mPolygons + polygon;
            if (!inBox || static_cast<uint32_t>(mMetadata + record) >= mPolygons ||
                ringAt >= mContent.size()) {
                continue;
            }
            Reading ring{mContent, ringAt};
            const int result = ClassifyRing(&ring, shifted, &nearest, &ringBytes);
            if (result == 0) continue;
            if (ringHits++ == 4096) break;
            auto zone = std::find_if(zones.begin(), zones.end(),
                                     [&](const Zone& z) { return z.record == record; });
            if (zone == zones.end()) zone = zones.insert(zone, {record, 0, 0});
            if (result > 2) zone->other = result;
            if (result <= 2) zone->net += result == 1 ? 1 : -1;
        }
    } catch (const CutShort&) {
        // The rings before the end of the content count.
    }

    for (const Zone& zone : zones) {
        if (zone.other == 0 && zone.net == 0) continue;
        uint32_t position = mMetadata + zone.record;
        answer.hits.push_back({zone.other != 0 ? zone.other : 1, zone.record,
                               StringAt(mContent, mMetadata, &position, &textBytes)});
    }
    answer.safezone = std::sqrt(static_cast<float>(nearest)) * 90.0f / scale;
    return answer;
}

}  // namespace oracle
