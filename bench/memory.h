// What loading and using a peer takes, seen in a process of its own.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "peer.h"
#include "points.h"

namespace bench {

struct LoadCost {
    double milliseconds = 0.0;  // Until the first answer.
    double resident = 0.0;      // Bytes that are resident more after a pass over the points ...
    double anonymous = 0.0;     // ... and those of them that are no pages of files.
};

// Loads a peer in a child process. Throws std::runtime_error where that fails.
LoadCost CostOfLoading(const std::function<std::unique_ptr<Peer>()>& load,
                       const std::vector<Point>& points);

}  // namespace bench
