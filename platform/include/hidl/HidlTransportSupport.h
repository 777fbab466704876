// Objects and the processes that own them.
#pragma once

#include <android/hidl/base/1.0/IBase.h>

namespace android::hardware {

// Whether two references are to one object; two empty ones are equal. Objects of this layer are in
// the caller's process and have no proxies.
inline bool interfacesEqual(const sp<hidl::base::V1_0::IBase>& left,
                            const sp<hidl::base::V1_0::IBase>& right) {
    return left == right;
}

}  // namespace android::hardware
