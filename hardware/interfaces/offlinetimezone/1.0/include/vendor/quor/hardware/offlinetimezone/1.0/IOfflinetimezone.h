// The part of the header that the platform's interface compiler makes of IOfflinetimezone.hal which
// the service and its clients use.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezoneCallback.h>

#include <cstdint>

namespace vendor::quor::hardware::offlinetimezone::V1_0 {

// Methods stand in slot order; what each does is said in the .hal file. Any thread may call.
struct IOfflinetimezone : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
            "vendor.quor.hardware.offlinetimezone@1.0::IOfflinetimezone";

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb callback) override {
        callback({descriptor, IBase::descriptor});
        return ::android::hardware::Void();
    }
    ::android::hardware::Return<void> interfaceDescriptor(
            interfaceDescriptor_cb callback) override {
        callback(descriptor);
        return ::android::hardware::Void();
    }

    virtual ::android::hardware::Return<bool> startLookup(
            const ::android::sp<IOfflinetimezoneCallback>& callback) = 0;
    virtual ::android::hardware::Return<bool> stopLookup(
            const ::android::sp<IOfflinetimezoneCallback>& callback) = 0;
    virtual ::android::hardware::Return<bool> Lookup(
            const ::android::hardware::hidl_string& lat,
            const ::android::hardware::hidl_string& lon) = 0;
    virtual ::android::hardware::Return<int32_t> getDBVersion() = 0;
    virtual ::android::hardware::Return<int32_t> getServerStatus() = 0;
    virtual ::android::hardware::Return<bool> downloadDB(
            const ::android::hardware::hidl_vec<uint8_t>& data, uint32_t size, uint32_t totalSize,
            uint32_t status) = 0;
    virtual ::android::hardware::Return<bool> injectDB() = 0;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0
