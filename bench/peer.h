// What answers points from polygons: the reader, or a library beside it.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace bench {

class Peer {
  public:
    virtual ~Peer() = default;

    // Makes the whole answer of a point and drops it.
    virtual void Look(float lat, float lon) = 0;

    // The tzids of the zones that hold a point, sorted, each once.
    virtual std::vector<std::string> ZonesAt(float lat, float lon) = 0;
};

}  // namespace bench
