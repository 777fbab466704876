// Stands in for s2_peer.cpp where S2 is not installed.
#include <stdexcept>

#include "s2_peer.h"

namespace bench {

bool HasS2() {
    return false;
}

void WriteS2Polygons(const offlinetz::Source&, const std::string&) {}

std::unique_ptr<Peer> LoadS2(S2Index, const std::string&, const std::string&) {
    throw std::runtime_error("this build has no S2");
}

}  // namespace bench
