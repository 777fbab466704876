// How many boxes lie over each other, and where.
#pragma once

#include <cstdint>
#include <vector>

#include "database/grid.h"

namespace offlinetz {

struct WeightedBox {
    GridBox box;
    int64_t weight;  // Not negative.
};

// The sum of the weights of the boxes that hold a point.
struct Depths {
    int64_t greatest = 0;         // Of all points ...
    GridPoint place;              // ... and a point that has it; 0, 0 where no box is.
    std::vector<int64_t> depths;  // Of the points asked for, in their order.
};

// Sweeps north over boxes and points, in n log n of their number. A box whose sides are the wrong
// way round holds nothing.
Depths DepthsOf(const std::vector<WeightedBox>& boxes, const std::vector<GridPoint>& points = {});

}  // namespace offlinetz
