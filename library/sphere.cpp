#include <reader/exact_floats.h>  // Must be the first include.

#include "sphere.h"

#include <algorithm>
#include <cmath>

namespace offlinetz {

namespace {

constexpr double kHalfPi = kPi / 2.0;

double SquareOf(double x) {
    return x * x;
}

double SquaredSineOfHalf(double angle) {
    return SquareOf(SineAndCosineOf(0.5 * angle).sine);
}

// An angle from -4 pi to 4 pi, turned by whole turns into [-pi, pi].
double Wrapped(double angle) {
    while (angle > kPi)
        angle -= 2.0 * kPi;
    while (angle < -kPi)
        angle += 2.0 * kPi;
    return angle;
}

}  // namespace

// 1 / n!
static constexpr double kFactor(int n) {
    return n > 1 ? kFactor(n - 1) / n : 1.0;
}

// The angle is reduced by quarter turns to at most pi/4. There Taylor's series are cut where the
// first omitted term, x^17/17! and x^18/18!, is below 2^-54.
SineAndCosine SineAndCosineOf(double angle) {
    // pi/2 in two parts. The first has 30 significant bits, so its products with quarter turns are
    // exact.
    constexpr double kHigh = 0x1.921FB544p+0;
    constexpr double kLow = 0x1.0B4611A626331p-34;
    const int quarters = static_cast<int>(angle * (1.0 / kHalfPi) + (angle < 0.0 ? -0.5 : 0.5));
    const double turned = static_cast<double>(quarters);
    const double x = (angle - turned * kHigh) - turned * kLow;
    // In pairs of terms, so that processors compute several at a time (Estrin's scheme).
    const double x2 = x * x;
    const double x4 = x2 * x2;
    const double x8 = x4 * x4;
    const double s =
            x - x * (x2 * ((kFactor(3) - x2 * kFactor(5)) + x4 * (kFactor(7) - x2 * kFactor(9)) +
                           x8 * ((kFactor(11) - x2 * kFactor(13)) + x4 * kFactor(15))));
    const double c =
            1.0 -
            x2 * ((kFactor(2) - x2 * kFactor(4)) + x4 * (kFactor(6) - x2 * kFactor(8)) +
                  x8 * ((kFactor(10) - x2 * kFactor(12)) + x4 * (kFactor(14) - x2 * kFactor(16))));
    switch (quarters & 3) {
        case 0:
            return {s, c};
        case 1:
            return {c, -s};
        case 2:
            return {-s, -c};
        default:
            return {-c, s};
    }
}

// The angle is reduced by symmetry to at most pi/4, and by the nearest of 0, pi/8 and pi/4 to at
// most pi/16. There the first omitted term of the series, t^27/27 for t = tan(pi/16), is below
// 2^-66.
double ArcTangent(double y, double x) {
    const double least = std::min(std::fabs(x), std::fabs(y));
    const double most = std::max(std::fabs(x), std::fabs(y));
    if (!(most > 0.0)) return 0.0;
    constexpr double kTangents[] = {0.0, 0.41421356237309504880, 1.0};
    // The tangents of pi/16 and 3 pi/16.
    const int eighths = least <= 0.19891236737965800691 * most   ? 0
                        : least <= 0.66817863791929891999 * most ? 1
                                                                 : 2;
    const double tangent = kTangents[eighths];
    const double t = (least - tangent * most) / (most + tangent * least);
    const double t2 = t * t;
    double sum = 0.0;
    for (int k = 25; k >= 1; k -= 2)
        sum = 1.0 / k - t2 * sum;
    double angle = t * sum + eighths * (kPi / 8.0);
    if (std::fabs(y) > std::fabs(x)) angle = kHalfPi - angle;
    if (x < 0.0) angle = kPi - angle;
    return y < 0.0 ? -angle : angle;
}

double LimitOfMetres(double metres) {
    constexpr double kRounding = 0x1p-38;  // More than NearestOnEdge neglects.
    const double angle = metres * (1.0 / kEarthRadius);
    return angle < kPi ? SquaredSineOfHalf(angle) * (1.0 + kRounding) : 1.0 + kRounding;
}

double MetresOfHaversine(double haversine) {
    return 2.0 * kEarthRadius *
           ArcTangent(std::sqrt(haversine), std::sqrt(std::max(1.0 - haversine, 0.0)));
}

Origin::Origin(const Place& at) : mAt(at) {
    const SineAndCosine lat = SineAndCosineOf(at.lat);
    mSine = lat.sine;
    mCosine = std::max(lat.cosine, 0.0);  // Rounding makes the poles' less than 0.
}

double Origin::LongitudeFrom(double lon) const {
    return Wrapped(lon - mAt.lon);
}

double Origin::HaversineTo(const Place& place) const {
    return SquaredSineOfHalf(place.lat - mAt.lat) +
           mCosine * std::max(SineAndCosineOf(place.lat).cosine, 0.0) *
                   SquaredSineOfHalf(LongitudeFrom(place.lon));
}

// h = sin^2(lat / 2) + cos(lat0) * cos(lat0 + lat) * sin^2(lon / 2), where no factor is less than
// at the smallest differences lat and lon and at the latitude nearest to a pole. The series of the
// cosine and of sin^2(x / 2) = (1 - cos(x)) / 2 are cut behind a negative term.
double Origin::LeastHaversineTo(const LatLonBox& box) const {
    const double lat = std::max({box.south - mAt.lat, mAt.lat - box.north, 0.0});
    const double half = 0.5 * (box.east - box.west);
    const double lon = std::max(std::fabs(LongitudeFrom(box.west + half)) - half, 0.0);
    const double pole = SquareOf(std::max(-box.south, box.north));
    const double cosine =
            std::max(1.0 - pole * (1.0 / 2 - pole * (1.0 / 24 - pole * (1.0 / 720))), 0.0);
    const auto squaredSine = [](double square) {
        return square * (1.0 / 4 - square * (1.0 / 48 - square * (1.0 / 1440 - square / 80640)));
    };
    return squaredSine(lat * lat) + mCosine * cosine * squaredSine(lon * lon);
}

double Origin::BearingTo(const Place& place) const {
    const SineAndCosine lat = SineAndCosineOf(place.lat);
    const double lon = LongitudeFrom(place.lon);
    const double east = lat.cosine * SineAndCosineOf(lon).sine;
    const double north = SineAndCosineOf(place.lat - mAt.lat).sine +
                         2.0 * mSine * lat.cosine * SquaredSineOfHalf(lon);
    const double bearing = ArcTangent(east, north);
    return bearing < 0.0 ? bearing + 2.0 * kPi : bearing;
}

// The direction back to the origin, reversed.
Origin::Direction Origin::OnwardAt(const Place& place) const {
    const double lon = LongitudeFrom(place.lon);
    return {SineAndCosineOf(place.lat - mAt.lat).sine -
                    2.0 * SineAndCosineOf(place.lat).sine * mCosine * SquaredSineOfHalf(lon),
            mCosine * SineAndCosineOf(lon).sine};
}

// The cosine of the distance is cos(lat) * a + sin(lat) * b: greatest at the angle of a, b, and
// smaller the further a latitude is from it.
Origin::OnMeridian Origin::NearestOnMeridian(double lon, double south, double north) const {
    const double best = ArcTangent(mSine, mCosine * SineAndCosineOf(LongitudeFrom(lon)).cosine);
    if (best > south && best < north) return {HaversineTo({best, lon}), best};
    const double atSouth = HaversineTo({south, lon});
    const double atNorth = HaversineTo({north, lon});
    return atNorth < atSouth ? OnMeridian{atNorth, north} : OnMeridian{atSouth, south};
}

// h(t) = sin^2((lat(t) - lat0) / 2) + cos(lat0) * cos(lat(t)) * sin^2((lon(t) - lon0) / 2), both
// coordinates linear in t.
Origin::Slope Origin::SlopeAt(double lat, double lonFrom, double byLat, double byLon) const {
    const SineAndCosine v = SineAndCosineOf(lat);
    const SineAndCosine halfLat = SineAndCosineOf(0.5 * (lat - mAt.lat));
    const SineAndCosine halfLon = SineAndCosineOf(0.5 * lonFrom);
    const double square = halfLon.sine * halfLon.sine;
    const double product = halfLon.sine * halfLon.cosine;
    const double h = halfLat.sine * halfLat.sine + mCosine * v.cosine * square;
    return {h,
            halfLat.sine * halfLat.cosine * byLat +
                    mCosine * (v.cosine * product * byLon - v.sine * square * byLat),
            (0.5 - h) * byLat * byLat + mCosine * (v.cosine * (0.5 - square) * byLon * byLon -
                                                   2.0 * v.sine * product * byLat * byLon),
            v.cosine};
}

// The edge is bisected into pieces until each is of a kind that has one nearest point. Let a piece
// be `w` of the edge, A and B its extents in latitude and longitude, C the greatest cosine of its
// latitudes, and s in [0, 1] the place in it. From the products of h,
//
//     |h''(s)|  <= M2 = A^2 / 2 + cos(lat0) * (C B^2 / 2 + A B)
//     |h'''(s)| <= M3 = A^2 (A + C B) / 2 + cos(lat0) * (C B^3 / 2 + 3/2 A B^2 + C A^2 B).
//
// Let x be a place from which the piece reaches at most r. Then
// - h is at least h(x) - |h'(x)| r + min(h''(x), 0) r^2 / 2 - M3 r^3 / 6;
// - if |h'(x)| >= M2 r, h' has one sign, so an end is nearest;
// - if h''(x) >= M3 (r + 1), h'' >= M3: h is convex, and Newton's step of h' squares the distance
//   from its zero and halves it, or reaches an end beyond which the zero lies.
//
// A piece that could lower h by less than one part in 10^12 is left out. That ends the division
// where h is the same along an edge, as along a meridian a quarter of a turn away.
Origin::OnEdge Origin::NearestOnEdge(const Place& from, const Place& to, double first, double last,
                                     double limit) const {
    constexpr int kMostPieces = 64;
    constexpr double kShortest = 1e-11;  // Of a piece that is not divided: less than 0.1 mm.
    constexpr double kNegligible = 1e-12;
    // Of Newton's method, as a share of the piece: what then remains is less than 1e-12 of it. From
    // a whole piece that takes six steps.
    constexpr double kLastStep = 1e-6;
    constexpr int kMostSteps = 8;
    struct Piece {
        double first;
        double last;
    };
    Piece pieces[kMostPieces] = {{first, last}};
    int count = 1;
    const double byLat = to.lat - from.lat;
    const double byLon = to.lon - from.lon;
    const double lonFrom = LongitudeFrom(from.lon + 0.5 * byLon) - 0.5 * byLon;
    int looks = 0;
    const auto slopeAt = [&](double share) {
        ++looks;
        // At an end, the same bits from every edge that has it.
        if (share == 0.0) return SlopeAt(from.lat, LongitudeFrom(from.lon), byLat, byLon);
        if (share == 1.0) return SlopeAt(to.lat, LongitudeFrom(to.lon), byLat, byLon);
        return SlopeAt(from.lat + share * byLat, lonFrom + share * byLon, byLat, byLon);
    };
    // The nearest point in the plane that is true to scale at the origin.
    const double scale = mCosine * mCosine;
    const double squared = byLat * byLat + scale * byLon * byLon;
    const double guess =
            squared > 0.0 ? ((mAt.lat - from.lat) * byLat - scale * lonFrom * byLon) / squared
                          : 0.0;
    OnEdge best = {2.0, first, 0};
    const auto take = [&](double share, double haversine) {
        if (haversine < best.haversine) best = {haversine, share, 0};
    };
    for (bool isWhole = true; count > 0; isWhole = false) {
        const Piece piece = pieces[--count];
        const double w = piece.last - piece.first;
        double x = isWhole ? std::clamp(guess, piece.first, piece.last) : piece.first + 0.5 * w;
        Slope slope = slopeAt(x);
        const double r = isWhole ? 1.0 : 0.5;
        const double a = std::fabs(byLat) * w;
        const double b = std::fabs(byLon) * w;
        const double c = std::min(slope.cosine + a * r, 1.0);
        const double m2 = 0.5 * a * a + mCosine * (0.5 * c * b * b + a * b);
        const double m3 = 0.5 * a * a * (a + c * b) +
                          mCosine * b * (0.5 * c * b * b + 1.5 * a * b + c * a * a);
        const double slope1 = std::fabs(slope.first) * w;
        const double slope2 = slope.second * w * w;
        const double least = slope.haversine - slope1 * r + 0.5 * std::min(slope2, 0.0) * r * r -
                             m3 * r * r * r * (1.0 / 6.0);
        if (least * (1.0 + kNegligible) > std::min(limit, best.haversine)) continue;
        if (slope1 >= m2 * r) {
            const double end = slope.first > 0.0 ? piece.first : piece.last;
            take(end, end == x ? slope.haversine : slopeAt(end).haversine);
            continue;
        }
        if (slope2 < m3 * (r + 1.0) && a + b > kShortest && count + 2 <= kMostPieces) {
            pieces[count++] = {x, piece.last};
            pieces[count++] = {piece.first, x};
            continue;
        }
        double step = w;
        for (int i = 0; i < kMostSteps && std::fabs(step) > kLastStep * w; ++i) {
            if (!(slope.second > 0.0)) break;
            const double next = std::clamp(x - slope.first / slope.second, piece.first, piece.last);
            step = next - x;
            x = next;
            slope = slopeAt(x);
        }
        take(x, slope.haversine);
    }
    best.looks = looks;
    return best;
}

}  // namespace offlinetz
