#include "lookup_answers.h"

#include <LookupInterface.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include "csv.h"
#include "json_text.h"
#include "library_database.h"
#include "message.h"

namespace {

using vendor::quor::hardware::offlinetimezone::V1_0::implementation::LookupTzIdIn;

// The error where a database has neither zone nor nautical zone.
constexpr char kNoZone[] = "no zone";

// The exact text that a client of the service gets. Also writes the service's log of the lookup.
std::string ClientText(const ZDDatabase& database, double lat, double lon) {
    float distance = 0.0f;
    const std::unique_ptr<char, decltype(&std::free)> text(
            LookupTzIdIn(&database, static_cast<float>(lat), static_cast<float>(lon), &distance),
            &std::free);
    if (text == nullptr) throw std::bad_alloc();
    return text.get();
}

// Several ids for each of some points, and their distances.
struct IdLists {
    std::vector<int64_t> offsets = {0};  // Those of point i are from offsets[i] to offsets[i + 1].
    std::vector<int32_t> ids;
    std::vector<double> metres;

    size_t Begin(size_t i) const { return static_cast<size_t>(offsets[i]); }
    size_t End(size_t i) const { return static_cast<size_t>(offsets[i + 1]); }
};

IdLists FindAll(const offlinetz_database& database, const PointColumns& points) {
    constexpr ptrdiff_t kStride = sizeof(double);
    const size_t count = points.lats.size();
    IdLists lists;
    lists.offsets.resize(count + 1);
    const auto findAll = [&] {
        return offlinetz_find_all(&database, count, points.lats.data(), kStride, points.lons.data(),
                                  kStride, lists.offsets.data(), lists.ids.data(),
                                  lists.ids.size());
    };
    lists.ids.resize(count + count / 16);
    const size_t needed = findAll();
    if (needed > lists.ids.size()) {
        lists.ids.resize(needed);
        findAll();
    }
    return lists;
}

IdLists FindWithin(const offlinetz_database& database, const PointColumns& points, double metres) {
    std::vector<int32_t> ids(OFFLINETZ_MOST_WITHIN);
    std::vector<double> distances(OFFLINETZ_MOST_WITHIN);
    IdLists lists;
    for (size_t i = 0; i < points.lats.size(); ++i) {
        const size_t count =
                offlinetz_zones_within(&database, points.lats[i], points.lons[i], metres,
                                       ids.data(), distances.data(), ids.size());
        lists.ids.insert(lists.ids.end(), ids.data(), ids.data() + count);
        lists.metres.insert(lists.metres.end(), distances.data(), distances.data() + count);
        lists.offsets.push_back(static_cast<int64_t>(lists.ids.size()));
    }
    return lists;
}

std::vector<offlinetz_border> FindBorders(const offlinetz_database& database,
                                          const PointColumns& points) {
    std::vector<offlinetz_border> borders(points.lats.size());
    for (size_t i = 0; i < borders.size(); ++i) {
        offlinetz_nearest_border(&database, points.lats[i], points.lons[i],
                                 std::numeric_limits<double>::infinity(), &borders[i]);
    }
    return borders;
}

// The clock of each id of answers. `instant`: that of all points; nothing if each has its own.
std::vector<std::optional<LocalTime>> FindTimes(const Clocks& clocks, const IdLists& zones,
                                                const PointColumns& points,
                                                std::optional<Instant> instant) {
    std::vector<std::optional<LocalTime>> times(zones.ids.size());
    for (size_t i = 0; i < points.lats.size(); ++i) {
        for (size_t at = zones.Begin(i); at < zones.End(i); ++at) {
            if (zones.ids[at] < 0) continue;
            times[at] = clocks.At(static_cast<size_t>(zones.ids[at]),
                                  instant ? *instant : points.instants[i]);
        }
    }
    return times;
}

// Kilometres with two decimals, not rounded up.
std::string KilometresText(double metres) {
    return fmt::format("{:.2f}", std::floor(metres / 10.0) / 100.0);
}

class LookupAnswers : public Answers {
  public:
    LookupAnswers(const LookupAnswerer& answerer, const PointColumns& points)
        : mAnswerer(answerer),
          mParts(answerer.Parts()),
          mZones(FindAll(answerer.Database(), points)) {
        if (mParts.radius) mBorders = FindBorders(answerer.Database(), points);
        if (mParts.within) mWithin = FindWithin(answerer.Database(), points, *mParts.within);
        if (mParts.time) mTimes = FindTimes(answerer.ZoneClocks(), mZones, points, mParts.instant);
        for (size_t i = 0; (mParts.raw || mParts.log) && i < points.lats.size(); ++i)
            mRaw.push_back(ClientText(answerer.Reader(), points.lats[i], points.lons[i]));
    }

    bool IsError(size_t i) const override {
        return HasNoZone(i) || (mParts.time && TimeError(i).has_value());
    }

    void AppendText(size_t i, std::string* row) const override {
        AppendZones(i, row);
        if (mParts.radius) {
            const auto to = std::back_inserter(*row);
            const offlinetz_border& border = mBorders[i];
            constexpr double kLeast = 10.0;  // In metres. Less is not printed as a number.
            if (border.holds < kLeast) {
                row->append("\tholds within less than 10 m");
            } else {
                fmt::format_to(to, "\tholds within {} km", KilometresText(border.holds));
            }
            if (!std::isnan(border.metres)) {
                fmt::format_to(to, ", nearest border at {:.6f} {:.6f}: ", border.lat, border.lon);
                AppendBeyond(border, row);
            }
        }
        if (mParts.within) AppendWithin(i, row);
        if (!mParts.time || HasNoZone(i)) return;
        for (size_t at = mZones.Begin(i); at < mZones.End(i); ++at) {
            row->append(at == mZones.Begin(i) ? "\t" : ", ");
            if (!mTimes[at]) {
                row->append("error: ").append(Printable(NoClock(at)));
                continue;
            }
            mTimes[at]->AppendTime(row);
            mTimes[at]->AppendOffset(row);
            row->append(1, ' ').append(mTimes[at]->abbreviation);
        }
    }

    void AppendFields(size_t i, char separator, std::string* row) const override {
        const auto append = [&](const std::string& field) {
            row->push_back(separator);
            AppendField(field, separator, row);
        };
        std::string zones;
        AppendZones(i, &zones);
        append(zones);
        if (mParts.radius) {
            append(KilometresText(mBorders[i].holds));
            std::string beyond;
            if (!std::isnan(mBorders[i].metres)) AppendBeyond(mBorders[i], &beyond);
            append(beyond);
        }
        if (mParts.within) {
            std::string within;
            AppendNames(mWithin.ids.data() + mWithin.Begin(i), mWithin.ids.data() + mWithin.End(i),
                        &within);
            append(within);
        }
        if (mParts.time) AppendTimeFields(i, separator, row);
    }

    void AppendMembers(size_t i, const AnswerKeys& keys, std::string* row) const override {
        const auto begin = [row](const std::string& key) {
            row->append(",\"").append(key).append("\":");
        };
        if (HasNoZone(i)) {
            begin(keys.error);
            AppendJsonString(kNoZone, row);
        } else {
            begin(keys.zones);
            AppendJsonNames(&mZones.ids[mZones.Begin(i)], mZones.End(i) - mZones.Begin(i), row);
        }
        if (mParts.raw) {
            begin(keys.raw);
            AppendJsonString(mRaw[i], row);
        }
        if (mParts.radius) {
            begin(keys.radius);
            AppendJsonNumber("", mBorders[i].holds / 1000.0, row);
            begin(keys.border);
            AppendBorder(mBorders[i], row);
        }
        if (mParts.within) {
            begin(keys.within);
            row->push_back('[');
            for (size_t at = mWithin.Begin(i); at < mWithin.End(i); ++at) {
                if (row->back() != '[') row->push_back(',');
                row->append("{\"zone\":").append(mAnswerer.JsonOf(mWithin.ids[at]));
                AppendMember("metres", mWithin.metres[at], row);
                row->push_back('}');
            }
            row->push_back(']');
        }
        if (mParts.time && !HasNoZone(i)) AppendTimeMembers(i, keys, row);
    }

  private:
    bool HasNoZone(size_t i) const { return mZones.ids[mZones.Begin(i)] < 0; }

    std::string NoClock(size_t at) const {
        return fmt::format("the time zone tables of this system do not have {}",
                           offlinetz_zone_name(&mAnswerer.Database(), mZones.ids[at]));
    }

    // Why a zone of an answer has no clock; nothing if all have one.
    std::optional<std::string> TimeError(size_t i) const {
        for (size_t at = mZones.Begin(i); at < mZones.End(i); ++at) {
            if (!mTimes[at]) return NoClock(at);
        }
        return std::nullopt;
    }

    // The parts of a clock, in the order of their columns.
    static constexpr int kTimeParts = 3;
    static void AppendTimePart(const LocalTime& time, int part, std::string* row) {
        if (part == 0) time.AppendTime(row);
        if (part == 1) time.AppendOffset(row);
        if (part == 2) row->append(time.abbreviation);
    }

    void AppendTimeFields(size_t i, char separator, std::string* row) const {
        const bool hasZone = !HasNoZone(i);
        const std::optional<std::string> error = hasZone ? TimeError(i) : std::nullopt;
        for (int part = 0; part < kTimeParts; ++part) {
            row->push_back(separator);
            if (error && part == 0) AppendField("error: " + Printable(*error), separator, row);
            for (size_t at = mZones.Begin(i); hasZone && !error && at < mZones.End(i); ++at) {
                if (at > mZones.Begin(i)) row->push_back(' ');
                AppendTimePart(*mTimes[at], part, row);
            }
        }
    }

    // Arrays with a value for each zone, or the error.
    void AppendTimeMembers(size_t i, const AnswerKeys& keys, std::string* row) const {
        if (const std::optional<std::string> error = TimeError(i)) {
            row->append(",\"").append(keys.error).append("\":");
            AppendJsonString(*error, row);
            return;
        }
        const std::string* const names[] = {&keys.localTime, &keys.offset, &keys.abbreviation};
        for (int part = 0; part < kTimeParts; ++part) {
            row->append(",\"").append(*names[part]).append("\":[");
            for (size_t at = mZones.Begin(i); at < mZones.End(i); ++at) {
                if (at > mZones.Begin(i)) row->push_back(',');
                std::string text;
                AppendTimePart(*mTimes[at], part, &text);
                AppendJsonString(text, row);
            }
            row->push_back(']');
        }
    }

    void AppendWithin(size_t i, std::string* row) const {
        const auto to = std::back_inserter(*row);
        fmt::format_to(to, "\twithin {} m: ", *mParts.within);
        const size_t begin = mWithin.Begin(i);
        for (size_t at = begin; at < mWithin.End(i); ++at) {
            fmt::format_to(to, "{}{} {:.0f} m", at == begin ? "" : ", ",
                           mAnswerer.PrintableOf(mWithin.ids[at]), mWithin.metres[at]);
        }
        if (begin == mWithin.End(i)) row->append(kNoZone);
    }

    void AppendZones(size_t i, std::string* row) const {
        if (mParts.raw) {
            row->append(mRaw[i]);
        } else if (HasNoZone(i)) {
            row->append("error:").append(kNoZone);
        } else {
            AppendNames(mZones.ids.data() + mZones.Begin(i), mZones.ids.data() + mZones.End(i),
                        row);
        }
    }

    void AppendNames(const int32_t* begin, const int32_t* end, std::string* row) const {
        for (const int32_t* id = begin; id < end; ++id) {
            if (id > begin) row->push_back(' ');
            row->append(mAnswerer.PrintableOf(*id));
        }
    }

    static size_t CountOf(const offlinetz_border& border) {
        return static_cast<size_t>(std::min(border.count, int32_t{OFFLINETZ_BORDER_ROOM}));
    }

    void AppendBeyond(const offlinetz_border& border, std::string* row) const {
        if (border.count == 0) row->append(kNoZone);
        AppendNames(border.ids, border.ids + CountOf(border), row);
    }

    static void AppendMember(const char* key, double value, std::string* row) {
        row->append(row->back() == '{' ? "\"" : ",\"").append(key).append("\":");
        AppendJsonNumber("", value, row);
    }

    void AppendJsonNames(const int32_t* ids, size_t count, std::string* row) const {
        row->push_back('[');
        for (size_t i = 0; i < count; ++i) {
            if (i > 0) row->push_back(',');
            row->append(mAnswerer.JsonOf(ids[i]));
        }
        row->push_back(']');
    }

    void AppendBorder(const offlinetz_border& border, std::string* row) const {
        if (std::isnan(border.metres)) {
            row->append("null");
            return;
        }
        row->push_back('{');
        AppendMember("metres", border.metres, row);
        AppendMember("holds", border.holds, row);
        AppendMember("lat", border.lat, row);
        AppendMember("lon", border.lon, row);
        AppendMember("bearing", border.bearing, row);
        row->append(",\"zones\":");
        AppendJsonNames(border.ids, CountOf(border), row);
        row->push_back('}');
    }

    const LookupAnswerer& mAnswerer;
    const LookupParts& mParts;
    const IdLists mZones;
    std::vector<offlinetz_border> mBorders;
    IdLists mWithin;
    std::vector<std::optional<LocalTime>> mTimes;  // Of each id of mZones.
    std::vector<std::string> mRaw;
};

}  // namespace

std::vector<std::string> LookupParts::Columns() const {
    std::vector<std::string> columns = {"zone"};
    if (radius) columns.insert(columns.end(), {"radius_km", "zone_beyond"});
    if (within) columns.push_back("zones_within");
    if (time) columns.insert(columns.end(), {"local_time", "utc_offset", "abbreviation"});
    return columns;
}

LookupAnswerer::LookupAnswerer(const offlinetz_database& database, const ZDDatabase& reader,
                               const LookupParts& parts)
    : mDatabase(database), mReader(reader), mParts(parts), mClocks(ZoneNames(database)) {
    for (const std::string& name : ZoneNames(database)) {
        mPrintable.push_back(Printable(name));
        AppendJsonString(name, &mJson.emplace_back());
    }
}

std::unique_ptr<Answers> LookupAnswerer::Answer(const PointColumns& points) const {
    return std::make_unique<LookupAnswers>(*this, points);
}
