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
                                   "the file does not say where its data is from"};
inline constexpr Kind kNoticeText = {Severity::kWarning, "notice-text",
                                     "a program that prints it may show other text or obey it"};
inline constexpr Kind kField = {Severity::kNote, "field-unreadable", "the field has no name"};

// The box table.
inline constexpr Kind kTable = {Severity::kError, "table-unreadable",
                                "no lookup finds this entry or those after it"};
inline constexpr Kind kOrder = {Severity::kError, "table-unsorted",
                                "lookups stop before they reach it"};
inline constexpr Kind kBox = {Severity::kWarning, "box-empty", "no point lies in it"};
inline constexpr Kind kRecordPlace = {Severity::kError, "record-outside", "lookups skip the entry"};
inline constexpr Kind kRingPlace = {Severity::kError, "ring-outside", "lookups skip the entry"};

// Records.
inline constexpr Kind kRecord = {Severity::kError, "record-unreadable", "the zone has no name"};
inline constexpr Kind kQuotes = {
        Severity::kNote, "identifier-bare",
        "clients cannot separate the zones of an answer that names several"};
inline constexpr Kind kNameText = {Severity::kError, "identifier-text",
                                   "clients reject the answer, or read other zones from it"};
inline constexpr Kind kName = {Severity::kWarning, "identifier-twice",
                               "holes in one record do not cut the rings of another"};

// Rings as they are stored.
inline constexpr Kind kRing = {Severity::kError, "ring-unreadable",
                               "lookups that read it stop there and miss the entries after it"};
inline constexpr Kind kRingPoints = {Severity::kWarning, "ring-short", "it encloses nothing"};
inline constexpr Kind kUnused = {Severity::kWarning, "bytes-unused", "no lookup reads them"};
inline constexpr Kind kShared = {Severity::kWarning, "rings-shared",
                                 "what was not read was not checked"};

// Limits of a lookup.
inline constexpr Kind kHits = {Severity::kError, "limit-rings", "lookups there stop early"};
inline constexpr Kind kMaybeHits = {Severity::kWarning, "limit-rings-unknown",
                                    "lookups there may stop early"};
inline constexpr Kind kBytes = {Severity::kError, "limit-bytes", "lookups there stop early"};

// Tiles.
inline constexpr Kind kTwoTiles = {
        Severity::kError, "tiles-overlap",
        "points in both are in each zone twice, which counts as on its border or outside it"};
inline constexpr Kind kNoTile = {Severity::kError, "tile-missing",
                                 "lookups there find no zone and return a meaningless distance"};

// Zones without the tiling.
inline constexpr Kind kLoose = {
        Severity::kError, "ring-open",
        "tiles disagree about the border, and points near it get wrong answers"};
inline constexpr Kind kCross = {Severity::kError, "rings-cross",
                                "points there are in a zone twice, or in the wrong zone"};
inline constexpr Kind kHidden = {Severity::kError, "border-not-found",
                                 "lookups there miss the zone whose border it is"};
inline constexpr Kind kOverlap = {Severity::kNote, "zones-overlap",
                                  "answers there name both; a disputed area, or a fault of the "
                                  "source"};

// Time zone tables.
inline constexpr Kind kNoClock = {
        Severity::kError, "zone-without-table",
        "an application there does not know the zone: it may fail, or show another time"};
inline constexpr Kind kLinkedName = {Severity::kNote, "zone-linked",
                                     "clients get this name, and its clock is that of the other"};
inline constexpr Kind kNoPolygon = {Severity::kNote, "table-without-zone", "no lookup names it"};

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
