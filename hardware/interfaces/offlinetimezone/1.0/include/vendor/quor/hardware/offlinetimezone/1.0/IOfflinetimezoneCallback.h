// The part of the header that the platform's interface compiler makes of
// IOfflinetimezoneCallback.hal which the service and its clients use.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

namespace vendor::quor::hardware::offlinetimezone::V1_0 {

// Methods stand in slot order.
struct IOfflinetimezoneCallback : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
            "vendor.quor.hardware.offlinetimezone@1.0::IOfflinetimezoneCallback";

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb callback) override {
        callback({descriptor, IBase::descriptor});
        return ::android::hardware::Void();
    }
    ::android::hardware::Return<void> interfaceDescriptor(
            interfaceDescriptor_cb callback) override {
        callback(descriptor);
        return ::android::hardware::Void();
    }

    // The answer to one Lookup. Called on the service's worker thread, outside every lock of
    // the service: it may call any method of the service.
    virtual ::android::hardware::Return<void> timeZoneIdReport(
            const ::android::hardware::hidl_string& lat,
            const ::android::hardware::hidl_string& lon,
            const ::android::hardware::hidl_string& tzId) = 0;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0
