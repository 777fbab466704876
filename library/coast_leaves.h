// Which leaves of the tree have coasts.
#pragma once

#include <reader/read_budget.h>
#include <reader/run_tree.h>

#include <atomic>
#include <cstdint>
#include <memory>

struct offlinetz_database;

namespace offlinetz {

// Learns of the leaves one by one, when they are asked for, because that takes reading their rings.
// 2 bits a node of the tree. Any number of threads may ask at the same time: all learn the same.
class CoastLeaves {
  public:
    // For a tree with so many nodes. Throws std::bad_alloc.
    void Resize(size_t nodes);

    // Whether a leaf may have a coast. Returns false if a ring cannot be decoded or the budget is
    // spent.
    bool Test(const offlinetz_database& database, const zonedetect::RunTree::Part& leaf,
              zonedetect::ReadBudget* budget, bool* mayHave) const;

  private:
    static constexpr unsigned kKnown = 1;
    static constexpr unsigned kCoast = 2;
    static constexpr unsigned kBits = 2;  // Of a leaf: kKnown and kCoast.
    static constexpr uint32_t kLeavesInByte = 4;

    // By their nodes. Relaxed order is enough: the bits of a leaf change together, and once.
    std::unique_ptr<std::atomic<uint8_t>[]> mLeaves;
};

}  // namespace offlinetz
