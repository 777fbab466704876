// The interface of the service. This is the part of the header that the platform's interface
// compiler generates from IOfflinetimezone.hal which the service and its clients use.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezoneCallback.h>

#include <cstdint>

namespace vendor::quor::hardware::offlinetimezone::V1_0 {

// The .hal file describes the methods. They are declared in slot order, on which clients built
// elsewhere depend. Any thread may call them. Each returns at once: the answer to Lookup is
// reported to the callback, on the worker's thread.
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
