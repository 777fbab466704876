// The interface of a client. This is the part of the header that the platform's interface compiler
// generates from IOfflinetimezoneCallback.hal which the service and its clients use.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

namespace vendor::quor::hardware::offlinetimezone::V1_0 {

// The methods are declared in slot order, on which clients built elsewhere depend.
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

    // Reports the answer to one Lookup: the two texts of the request and the identifiers of the
    // zones, or a text with "error:". Called on the worker's thread under no lock of the service,
    // so it may call any method of the service. The strings are valid until it returns. The service
    // ignores the result and any exception.
    virtual ::android::hardware::Return<void> timeZoneIdReport(
            const ::android::hardware::hidl_string& lat,
            const ::android::hardware::hidl_string& lon,
            const ::android::hardware::hidl_string& tzId) = 0;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0
