// The greatest total weight of bounding boxes over a point.
#pragma once

#include <cstdint>
#include <vector>

#include "database/grid.h"

namespace offlinetz {

struct WeightedBox {
    GridBox box;
    int64_t weight;  // At least 0.
};

// The depth of a point is the sum of the weights of the boxes that contain it.
struct Depths {
    int64_t greatest = 0;         // The greatest depth of any point ...
    GridPoint place;              // ... and a point that has it; 0, 0 if there is no box.
    std::vector<int64_t> depths;  // The depths of the points asked for, in their order.
};

// Computes depths with a sweep line and a segment tree, in O(n log n) for n boxes and points. A box
// with a minimum above its maximum contains no point.
Depths DepthsOf(const std::vector<WeightedBox>& boxes, const std::vector<GridPoint>& points = {});

}  // namespace offlinetz
