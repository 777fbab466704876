// The service front: the object that clients call, and a callback class for them to derive from.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezoneCallback.h>

#include <cstdint>

#include "export.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

// Turns each request into a message for the worker and returns at once. All objects of this class
// share one worker. Any thread may call any method, also a client from inside a report. The .hal
// file describes the methods. A method throws std::bad_alloc without memory; nothing is then
// posted, and startLookup has registered nothing.
//
// An object and its death recipient hold strong references to each other: once made, both live as
// long as the process.
class Offlinetimezone : public IOfflinetimezone {
  public:
    // Returns the one object that a host process may share; the first call makes it. The object
    // belongs to the process. Throws as the constructor does; a later call then tries again.
    OFFLINETZ_EXPORT static Offlinetimezone* getInstance();

    // Starts the worker. Throws std::system_error if its thread cannot start or the process is
    // ending, and std::bad_alloc without memory.
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

    // Removes the registered client when the process that owns a linked callback has died. The
    // runtime calls it on a thread of its own.
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
    ::android::sp<DeathRecipient> mDeathRecipient;      // Set by the constructor.

    static Offlinetimezone* sInstance;  // Set once, under the once_flag of getInstance.
};

// A callback that ignores its reports. Clients in the same process may derive from it.
class OFFLINETZ_EXPORT OfflinetimezoneCallback : public IOfflinetimezoneCallback {
  public:
    ::android::hardware::Return<void> timeZoneIdReport(
            const ::android::hardware::hidl_string& lat,
            const ::android::hardware::hidl_string& lon,
            const ::android::hardware::hidl_string& tzId) override;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation

// The entry point of the library. Returns a new service object; the caller takes a strong reference
// to it. Returns null if the worker cannot start or without memory. Ignores `name`. Any thread may
// call.
extern "C" OFFLINETZ_EXPORT ::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone*
HIDL_FETCH_IOfflinetimezone(const char* name);
