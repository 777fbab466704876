// Declarations of IOfflinetimezoneCallback.hal, as the platform's interface compiler makes them.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

namespace vendor::quor::hardware::offlinetimezone::V1_0 {

// Methods stand in slot order.
struct IOfflinetimezoneCallback : public ::android::hidl::base::V1_0::IBase {
    // The answer to one Lookup. Called on the service's worker thread, outside every lock of
    // the service: it may call any method of the service.
    virtual ::android::hardware::Return<void> timeZoneIdReport(
            const ::android::hardware::hidl_string& lat,
            const ::android::hardware::hidl_string& lon,
            const ::android::hardware::hidl_string& tzId) = 0;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0
