// The answers of a database to `lookup`, in each form of output.
#pragma once

#include <offlinetz.h>
#include <zonedetect.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lines.h"
#include "local_time.h"

// What an answer has besides the zones.
struct LookupParts {
    bool raw = false;              // The exact text that a client of the service gets, instead.
    bool radius = false;           // The nearest border, and how far the answer holds.
    std::optional<double> within;  // The zones within so many metres.
    // Local time in the zones, at this instant or those of the points (LineFormat::instantColumn).
    bool time = false;
    std::optional<Instant> instant;
    bool log = false;  // Whether the service's log of each lookup is written.

    // The names of a table's columns.
    std::vector<std::string> Columns() const;
};

// Answers points. Immutable, so any number of threads may use it.
class LookupAnswerer {
  public:
    // `database` has the content of `reader`, and distances to borders if `parts` needs them; both
    // must outlive this and its answers.
    LookupAnswerer(const offlinetz_database& database, const ZDDatabase& reader,
                   const LookupParts& parts);

    // The answers borrow this.
    std::unique_ptr<Answers> Answer(const PointColumns& points) const;

    const offlinetz_database& Database() const { return mDatabase; }
    const ZDDatabase& Reader() const { return mReader; }
    const LookupParts& Parts() const { return mParts; }
    const std::string& PrintableOf(int32_t id) const { return mPrintable[static_cast<size_t>(id)]; }
    const std::string& JsonOf(int32_t id) const { return mJson[static_cast<size_t>(id)]; }
    const Clocks& ZoneClocks() const { return mClocks; }

  private:
    const offlinetz_database& mDatabase;
    const ZDDatabase& mReader;
    const LookupParts mParts;
    std::vector<std::string> mPrintable;  // The names of the zones, by their ids.
    std::vector<std::string> mJson;
    const Clocks mClocks;
};
