// The points of the source borders from which the vertices on the grid were made.
#pragma once

#include <cstddef>
#include <vector>

#include "database/grid.h"

namespace offlinetz {

// A point of a source border, in units relative to a vertex that was made from it.
struct Original {
    GridPoint vertex;
    float lat;
    float lon;

    double Lat() const { return vertex.lat + static_cast<double>(lat); }
    double Lon() const { return vertex.lon + static_cast<double>(lon); }
};

class Originals {
  public:
    struct Range {
        const Original* first;
        const Original* last;
        const Original* begin() const { return first; }
        const Original* end() const { return last; }
        size_t size() const { return static_cast<size_t>(last - first); }
    };

    // Adds a point, in units, at most a few units from the vertex. At finds it after Sort.
    void Add(const GridPoint& vertex, double lat, double lon);
    // Adds the points of the straight source edges from an original of `a` to one of `b` that lie
    // beside `vertex`, to which the edge from a to b was bent.
    void AddBetween(const GridPoint& a, const GridPoint& b, const GridPoint& vertex);
    // To be called after points were added, and before At. Keeps at most kMostPerVertex points a
    // vertex; where there are more, the corners of their bounding box stand for them.
    void Sort();

    // The greatest Grid::UnitDiagonal at a vertex.
    double GreatestDiagonal(const Grid& grid) const;

    // The originals of a vertex; none for a vertex beyond the world's edge, or of no source.
    Range At(const GridPoint& vertex) const;

  private:
    static constexpr size_t kMostPerVertex = 8;

    std::vector<Original> mSorted;
    std::vector<Original> mAdded;
};

}  // namespace offlinetz
