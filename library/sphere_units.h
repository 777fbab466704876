// From database units to places on the sphere and to degrees, and back.
#pragma once

#include "sphere.h"

namespace offlinetz {

// A place in database units. Grid points are whole numbers.
struct UnitPlace {
    double lat;
    double lon;
};

// The units of a database.
class SphereUnits {
  public:
    SphereUnits() : SphereUnits(1.0) {}
    // `scale`: units in 90 degrees of latitude and in 180 of longitude, a power of 2.
    explicit SphereUnits(double scale)
        : mScale(scale), mLat(0.5 * kPi / scale), mLon(kPi / scale) {}

    double Scale() const { return mScale; }
    double Lat(double units) const { return units * mLat; }  // In radians.
    double Lon(double units) const { return units * mLon; }
    Place PlaceOf(const UnitPlace& place) const { return {Lat(place.lat), Lon(place.lon)}; }
    double LatUnits(double radians) const { return radians / mLat; }
    double LonUnits(double radians) const { return radians / mLon; }

    // Products with the scale are exact, so degrees of a grid point give the grid point.
    UnitPlace FromDegrees(double lat, double lon) const {
        return {lat * mScale / 90.0, lon * mScale / 180.0};
    }
    double LatDegrees(double units) const { return units * 90.0 / mScale; }
    double LonDegrees(double units) const { return units * 180.0 / mScale; }

  private:
    double mScale;
    double mLat;  // Radians in a unit.
    double mLon;
};

}  // namespace offlinetz
