// Distances to borders by brute force, to compare the library with: over all edges of the zones,
// put together again from the tiles, and with the functions of the mathematical library.
#pragma once

#include <zonedetect.h>

#include <array>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "database/random_points.h"

namespace oracle {

using Zones = std::set<std::string>;  // An answer.

class TrueBorders {
  public:
    // Reads the zones of an honest database. Nautical zones count if its precision is 21.
    explicit TrueBorders(const ZDDatabase& database);

    // Metres to the nearest border; infinity if there is none.
    double MetresFrom(const offlinetz::Degrees& point) const;

    // The zones that have a point within `metres`, with their distances. Those of `own` have 0.
    std::map<std::string, double> Within(const offlinetz::Degrees& point, double metres,
                                         const Zones& own) const;

    // The answers on both sides of all borders that meet in a place.
    std::set<Zones> AnswersAround(const offlinetz::Degrees& place) const;

    // An end of a border: the same for the same share in [0, 1).
    offlinetz::Degrees EndAt(double share) const;
    size_t Count() const { return mBorders.size(); }

  private:
    // A line straight in latitude and longitude, in units.
    struct Line {
        double lat, lon, toLat, toLon;

        double ByLat() const { return toLat - lat; }
        double ByLon() const { return toLon - lon; }
        Line Part(double first, double last) const;
        // Where it passes a meridian, as a share of it.
        double ShareAt(double meridian) const { return (meridian - lon) / ByLon(); }
    };
    struct RingEdge : Line {
        size_t zone;
    };
    using Answer = std::set<size_t>;  // Of places in mNames.
    // A line with different answers on its sides, which differ by these zones. It runs along an
    // edge of a ring, or along a meridian at which a nautical zone or the world ends.
    struct Border : Line {
        std::vector<size_t> zones;
    };
    // Borders within an angle of a direction.
    struct Bucket {
        std::array<double, 3> center;
        double angle;
        std::vector<const Border*> borders;
    };

    Answer AnswerAt(double lat, double lon) const;
    // The answers `distance` units beside a place of a line.
    std::pair<Answer, Answer> AnswersBeside(const Line& line, double share, double distance) const;
    void AddEdges();
    void AddMeridians();
    // Adds a line as a border if the answers on its sides differ.
    void AddBorder(const Line& line, const std::pair<Answer, Answer>& sides);
    void FillBuckets();
    double AngleOf(const Line& line) const;
    double Haversine(const offlinetz::Degrees& point, double lat, double lon) const;
    // The haversine to the nearest point of a line; any greater one if that is above `limit`.
    double HaversineTo(const offlinetz::Degrees& point, const Line& line, double limit) const;
    // Calls visit for the borders that may be nearer than *limit, a haversine.
    void VisitNear(const offlinetz::Degrees& point, const double* limit,
                   const std::function<void(const Border&)>& visit) const;

    double mScale;
    std::vector<double> mMeridians;   // Where nautical zones begin, if there are any.
    std::vector<std::string> mNames;  // Of zones, and then of nautical zones from west to east.
    std::vector<RingEdge> mRings;
    std::vector<std::vector<const RingEdge*>> mRows;  // Those that pass a row of latitudes.
    std::vector<Border> mBorders;
    std::vector<Bucket> mBuckets;
};

}  // namespace oracle
