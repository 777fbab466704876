// The service object that clients talk to, and a callback for clients to derive from.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezoneCallback.h>

#include <cstdint>

#include "export.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

// Turns each request into a message for the one worker and returns at once. Any thread may call.
// An object and its death recipient hold each other: once made, it lives as long as the process.
class Offlinetimezone : public IOfflinetimezone {
  public:
    // The one object that a host process may share, made by the first call.
    OFFLINETZ_EXPORT static Offlinetimezone* getInstance();

    // Starts the worker. Throws std::system_error when its thread cannot start.
    Offlinetimezone();
    ~Offlinetimezone() override;

    ::android::hardware::Return<bool> startLookup(
            const ::android::sp<IOfflinetimezoneCallback>& callback) override;
    ::android::hardware::Return<bool> stopLookup(
            const ::android::sp<IOfflinetimezoneCallback>& callback) override;
    ::android::hardware::Return<bool> Lookup(const ::android::hardware::hidl_string& lat,
                                             const ::android::hardware::hidl_string& lon) override;
    ::android::hardware::Return<int32_t> getDBVersion() override;
    ::android::hardware::Return<int32_t> getServerStatus() override;
    ::android::hardware::Return<bool> downloadDB(const ::android::hardware::hidl_vec<uint8_t>& data,
                                                 uint32_t size, uint32_t totalSize,
                                                 uint32_t status) override;
    ::android::hardware::Return<bool> injectDB() override;

    // Forgets the registered client when the owner of a linked callback has died.
    class DeathRecipient : public ::android::hardware::hidl_death_recipient {
      public:
        explicit DeathRecipient(const ::android::sp<Offlinetimezone>& parent);
        void serviceDied(uint64_t cookie,
                         const ::android::wp<::android::hidl::base::V1_0::IBase>& who) override;
        ~DeathRecipient() override;

      private:
        ::android::sp<Offlinetimezone> mParent;
    };

  private:
    ::android::sp<IOfflinetimezoneCallback> mCallback;  // Guarded by registrationMutex.
    ::android::sp<DeathRecipient> mDeathRecipient;

    static Offlinetimezone* sInstance;
};

// A callback that ignores its reports, for clients in the same process to derive from.
class OFFLINETZ_EXPORT OfflinetimezoneCallback : public IOfflinetimezoneCallback {
  public:
    ::android::hardware::Return<void> timeZoneIdReport(
            const ::android::hardware::hidl_string& lat,
            const ::android::hardware::hidl_string& lon,
            const ::android::hardware::hidl_string& tzId) override;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation

// The library's entry: a new service object, which the caller holds through a strong reference,
// or null when the service cannot run. `name` is not looked at.
extern "C" __attribute__((
        visibility("default"))) ::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone*
HIDL_FETCH_IOfflinetimezone(const char* name);
