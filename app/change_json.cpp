#include "change_json.h"

#include "inspected.h"

nlohmann::ordered_json ChangeJson(const offlinetz::Change& change) {
    nlohmann::ordered_json object = {
            {"from", nullptr}, {"to", nullptr}, {"km2", Rounded(change.km2, 1e6)}};
    if (!change.from.empty()) object["from"] = change.from;
    if (!change.to.empty()) object["to"] = change.to;
    for (const double side : change.box)
        object["box"].push_back(Rounded(side, 1e7));
    for (const double degrees : change.sample)
        object["sample"].push_back(Rounded(degrees, 1e7));
    return object;
}
