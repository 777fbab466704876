// The kinds of faults that a check reports, and their collection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "check.h"

namespace offlinetz {

struct Kind {
    Severity severity;
    const char* name;    // Finding::kind.
    const char* effect;  // Finding::effect.
};

// The header.
inline constexpr Kind kNoScale = {Severity::kError, "precision", "no lookup finds a zone"};
inline constexpr Kind kOtherScale = {Severity::kWarning, "precision-at-sea",
                                     "at sea, lookups name the nautical zone of another longitude"};
inline constexpr Kind kNoNotice = {Severity::kNote, "notice-empty",
                                   "whoever has the file cannot tell where it is from"};
inline constexpr Kind kNoticeText = {Severity::kWarning, "notice-text",
                                     "what shows it shows something else, or obeys it"};
inline constexpr Kind kField = {Severity::kNote, "field-unreadable", "a column has no name"};

// The box table.
inline constexpr Kind kTable = {Severity::kError, "table-unreadable",
                                "no lookup finds the entries from there on"};
inline constexpr Kind kOrder = {Severity::kError, "table-unsorted",
                                "lookups in it end at the entry before, which lies further north"};
inline constexpr Kind kBox = {Severity::kWarning, "box-empty", "no point is in it"};
inline constexpr Kind kRecordPlace = {Severity::kError, "record-outside",
                                      "lookups pass the entry over"};
inline constexpr Kind kRingPlace = {Severity::kError, "ring-outside",
                                    "lookups pass the entry over"};

// Records.
inline constexpr Kind kRecord = {Severity::kError, "record-unreadable", "the zone has no name"};
inline constexpr Kind kQuotes = {Severity::kNote, "identifier-bare",
                                 "an answer of several zones cannot be taken apart"};
inline constexpr Kind kNameText = {Severity::kError, "identifier-text",
                                   "clients drop the answer, or take another zone out of it or "
                                   "none"};
inline constexpr Kind kName = {Severity::kWarning, "identifier-twice",
                               "rings of the zone do not make up for each other"};

// Rings as they are stored.
inline constexpr Kind kRing = {Severity::kError, "ring-unreadable",
                               "lookups that meet it end there, without the entries behind"};
inline constexpr Kind kRingPoints = {Severity::kWarning, "ring-short", "it encloses nothing"};
inline constexpr Kind kUnused = {Severity::kWarning, "bytes-unused", "nothing reads them"};
inline constexpr Kind kShared = {Severity::kWarning, "rings-shared",
                                 "what was not read is not checked"};

// Limits of a lookup.
inline constexpr Kind kHits = {Severity::kError, "limit-rings", "lookups there end early"};
inline constexpr Kind kMaybeHits = {Severity::kWarning, "limit-rings-unknown",
                                    "lookups there may end early"};
inline constexpr Kind kBytes = {Severity::kError, "limit-bytes", "lookups there end early"};

// Tiles.
inline constexpr Kind kTwoTiles = {Severity::kError, "tiles-overlap",
                                   "points in both have each zone twice, which reads as a border "
                                   "or none"};
inline constexpr Kind kNoTile = {Severity::kError, "tile-missing",
                                 "points there have no zone, and a distance that says nothing"};

// Zones whole.
inline constexpr Kind kLoose = {Severity::kError, "ring-open",
                                "tiles do not have the same border; points near it get wrong "
                                "answers"};
inline constexpr Kind kCross = {Severity::kError, "rings-cross",
                                "points where they overlap are in a zone twice, or in another one"};
inline constexpr Kind kHidden = {Severity::kError, "border-not-found",
                                 "lookups there do not find the zone whose border it is"};
inline constexpr Kind kOverlap = {Severity::kNote, "zones-overlap",
                                  "answers there name both; a disputed area, or a fault of the "
                                  "source"};

// Collects findings. Of each kind it keeps the first and counts the others.
class Findings {
  public:
    // `position` is a byte in the file, `entry` an index into the box table; both may be absent.
    void Add(const Kind& kind, std::optional<uint32_t> position, std::optional<size_t> entry,
             const std::string& what);

    // Returns the findings, the most severe first and otherwise in the order of their first
    // occurrence, and leaves the collection empty.
    std::vector<Finding> Take();

  private:
    std::vector<Finding> mFindings;
};

}  // namespace offlinetz
