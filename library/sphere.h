// Distances on the sphere, computed without a mathematical library: the same bits on every
// processor. All functions may be called on any thread.
//
// Angles are radians. A distance d is handled as its haversine, sin^2(d / 2), which grows with it.
#pragma once

namespace offlinetz {

constexpr double kPi = 3.14159265358979323846;
constexpr double kEarthRadius = 6371008.8;  // The mean radius, in metres.

struct SineAndCosine {
    double sine;
    double cosine;
};

// Of an angle from -2 pi to 2 pi, with errors below 2^-52.
SineAndCosine SineAndCosineOf(double angle);

// The angle of the direction x, y, from -pi to pi, with an error below 2^-51; 0 for 0, 0.
double ArcTangent(double y, double x);

// The greatest haversine of places not further away than `metres`, which is at least 0, and rounded
// up: a distance that MetresOfHaversine gave has its haversine at least. More than that of all
// places from half the circumference on.
double LimitOfMetres(double metres);
double MetresOfHaversine(double haversine);

// A point on the sphere. An edge between two of them is straight in latitude and longitude.
struct Place {
    double lat;
    double lon;
};

// A part of the sphere between two latitudes and two longitudes, `west` at most `east`.
struct LatLonBox {
    double south;
    double west;
    double north;
    double east;
};

// A point from which distances are measured. Its longitude is from -pi to pi; those of other places
// may reach beyond by a little.
class Origin {
  public:
    explicit Origin(const Place& at);

    const Place& At() const { return mAt; }
    double Sine() const { return mSine; }  // Of the latitude.
    double Cosine() const { return mCosine; }

    // The longitude of the origin subtracted, in [-pi, pi].
    double LongitudeFrom(double lon) const;

    double HaversineTo(const Place& place) const;

    // A lower bound of the haversine to a box, without a sine or a cosine; 0 in the box.
    double LeastHaversineTo(const LatLonBox& box) const;

    // The direction to a place, counted from north by east, in [0, 2 pi]. 0 for the same place. On
    // a pole, north is along the origin's longitude.
    double BearingTo(const Place& place) const;

    // The direction at `place` in which the shortest path from the origin goes on, as components of
    // a vector whose length means nothing: 0, 0 for the same place.
    struct Direction {
        double north;
        double east;
    };
    Direction OnwardAt(const Place& place) const;

    struct OnMeridian {
        double haversine;
        double lat;
    };
    // The nearest point between two latitudes of a meridian.
    OnMeridian NearestOnMeridian(double lon, double south, double north) const;

    struct OnEdge {
        double haversine;
        double share;  // Of the edge, from its first end: 0 and 1 are the ends.
        int looks;     // How many places were looked at.
    };
    // The nearest point of the part of an edge between two shares. If that is further away than
    // `limit`, a haversine, the result may be any haversine above it. The edge is at most half a
    // turn long in longitude.
    OnEdge NearestOnEdge(const Place& from, const Place& to, double first, double last,
                         double limit) const;

  private:
    // The haversine to a point of an edge and its derivatives by the share.
    struct Slope {
        double haversine;
        double first;
        double second;
        double cosine;  // Of the point's latitude.
    };
    Slope SlopeAt(double lat, double lonFrom, double byLat, double byLon) const;

    Place mAt;
    double mSine;
    double mCosine;
};

}  // namespace offlinetz
