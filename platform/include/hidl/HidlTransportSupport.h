// Stand-in for the platform's comparison of interface objects.
#pragma once

#include <android/hidl/base/1.0/IBase.h>

namespace android::hardware {

// Whether two references refer to one object; two empty references are equal. The objects of this
// stand-in are in the caller's process and have no proxies. On the platform this may call the
// objects, so callers hold no lock. Any thread may call.
inline bool interfacesEqual(const sp<hidl::base::V1_0::IBase>& left,
                            const sp<hidl::base::V1_0::IBase>& right) {
    return left == right;
}

}  // namespace android::hardware
