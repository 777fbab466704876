#include "findings.h"

#include <algorithm>
#include <utility>

namespace offlinetz {

void Findings::Add(const Kind& kind, std::optional<uint32_t> position, std::optional<size_t> entry,
                   const std::string& what) {
    const auto same = std::find_if(mFindings.begin(), mFindings.end(), [&](const Finding& f) {
        return f.kind == std::string(kind.name);
    });
    if (same != mFindings.end()) {
        ++same->count;
    } else {
        mFindings.push_back({kind.severity, kind.name, position, entry, what, kind.effect, 1});
    }
}

std::vector<Finding> Findings::Take() {
    std::stable_sort(mFindings.begin(), mFindings.end(),
                     [](const Finding& a, const Finding& b) { return a.severity > b.severity; });
    return std::exchange(mFindings, {});
}

}  // namespace offlinetz
