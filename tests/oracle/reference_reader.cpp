#include "reference_reader.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

namespace oracle {

namespace {

// Thrown where a number does not end within the content.
struct CutShort {};

// Numbers from a position on; counts what it takes.
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

// More than this is not begun: of strings in an opening or a lookup, of rings in a lookup.
bool IsTooMuch(const std::vector<uint8_t>& content, uint64_t taken) {
    return taken > 4 * content.size() + 1048576;
}

// The string at `*position`; moves it on as the format says.
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
            if (length > 256) length = content.size();  // None is so long.
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

int64_t Whole(float value, double lowest, double highest) {
    if (value != value) return 0;
    const double wide = std::trunc(static_cast<double>(value));
    if (wide <= lowest) return static_cast<int64_t>(lowest);
    if (wide >= highest) return highest > 3e9 ? INT64_MAX : INT32_MAX;
    return static_cast<int64_t>(wide);
}
int64_t Whole32(float value) {
    return Whole(value, -2147483648.0, 2147483647.0);
}
int64_t Whole64(float value) {
    return Whole(value, -9223372036854775808.0, 9223372036854775807.0);
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
    if (Between(Whole32(lat), current.lat, previous.lat) &&
        Between(Whole32(lon), current.lon, previous.lon)) {
        dLat = Whole64(lat - latT);
        dLon = Whole64(lon - lonR);
    }
    const uint64_t uLat = static_cast<uint64_t>(dLat);
    const uint64_t uLon = static_cast<uint64_t>(dLon);
    return uLat * uLat + uLon * uLon * 4;
}

// Rings are read in stretches of so many points, behind the first point.
constexpr uint32_t kStretch = 128;

// What a ring that is left at point `k` of `count` has cost: it was read to its stretch's end.
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
        // As far as numbers end within the content.
    }
    return cost;
}

// 1 in, 2 excluded, 3 vertex, 4 border, 0 outside. Adds what was read to `cost`.
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
            const int64_t x = Whole32((static_cast<float>(t.lat) - b) / a);
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
    const Spot point = {Whole32(lat / 90.0f * scale), Whole32(lon / 180.0f * scale)};
    const Spot shifted = {point.lat, Wrap(point.lon - 3)};
    uint64_t nearest = UINT64_MAX;
    uint64_t ringBytes = 0;
    uint64_t textBytes = 0;

    struct RingHit {
        int result;
        uint32_t record;
    };
    std::vector<RingHit> rings;
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
            if (result != 0 && rings.size() == 4096) break;
            if (result != 0) rings.push_back({result, record});
        }
    } catch (const CutShort&) {
        // What was found so far counts.
    }

    std::vector<uint32_t> order;
    std::map<uint32_t, std::vector<int>> byRecord;
    for (const RingHit& hit : rings) {
        if (byRecord.count(hit.record) == 0) order.push_back(hit.record);
        byRecord[hit.record].push_back(hit.result);
    }
    for (const uint32_t record : order) {
        int net = 0;
        int other = 0;
        for (const int result : byRecord[record]) {
            if (result == 1) {
                ++net;
            } else if (result == 2) {
                --net;
            } else {
                other = result;
            }
        }
        if (other == 0 && net == 0) continue;
        uint32_t position = mMetadata + record;
        answer.hits.push_back({other != 0 ? other : 1, record,
                               StringAt(mContent, mMetadata, &position, &textBytes)});
    }
    answer.safezone = std::sqrt(static_cast<float>(nearest)) * 90.0f / scale;
    return answer;
}

}  // namespace oracle
