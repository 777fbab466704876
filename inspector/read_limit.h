// How much of a hostile database is read to look into it.
#pragma once

#include <read_budget.h>
#include <zonedetect.h>

#include <cstdint>

namespace offlinetz {

// The bytes of rings and records that one pass over a database's entries reads. Entries may share
// them, and honest ones do so a few times: this allows for what a few lookups at the reader's own
// limit read.
class ReadLimit {
  public:
    explicit ReadLimit(const ZDDatabase& database)
        : mLeft(kLookups * zonedetect::ReadBudget::Bytes(database.length)) {}

    bool IsSpent() const { return mLeft < 0; }
    void Spend(int64_t bytes) { mLeft -= bytes; }

  private:
    static constexpr int64_t kLookups = 16;

    int64_t mLeft;
};

}  // namespace offlinetz
