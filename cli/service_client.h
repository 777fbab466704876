// A client of the service. Loads the service as the platform does: from its library, by its entry
// point HIDL_FETCH_IOfflinetimezone.
#pragma once

#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>

#include <cstdint>
#include <functional>
#include <string>

#include "database/open_database.h"

// One thread may use a client. The service answers on threads of its own.
class ServiceClient {
  public:
    static constexpr int32_t kNoVersion = 65535;  // The service has no database.

    // The state that the service reports.
    struct State {
        int32_t status = 0;  // 0 idle, 1 running, 2 injecting, 3 failed
        int32_t version = kNoVersion;

        bool IsUsable() const { return status == 1 && version != kNoVersion; }
    };

    // Loads the library at `path`, registers a callback, and waits until the service has opened its
    // database or failed to. The library stays loaded until the process ends. Throws
    // std::runtime_error if the library cannot be loaded, or the service does not react within two
    // minutes.
    explicit ServiceClient(const std::string& path);
    ~ServiceClient();
    ServiceClient(const ServiceClient&) = delete;
    ServiceClient& operator=(const ServiceClient&) = delete;

    State GetState() const;

    // Asks for the zone of a point, waits for the report, and returns its text. `lat` and `lon` are
    // sent unchanged. Throws std::runtime_error if no report comes within two minutes.
    std::string Lookup(const std::string& lat, const std::string& lon);

    // Sends a database in chunks of `chunkSize` bytes and asks for its installation. Calls `sent`,
    // on the calling thread, with the bytes sent so far. Returns the state after the installation,
    // which may have failed. Throws std::runtime_error if the service stops answering.
    State Update(const offlinetz::FileBytes& file, size_t chunkSize,
                 const std::function<void(size_t)>& sent);

  private:
    class Callback;

    ::android::sp<::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone> mService;
    ::android::sp<Callback> mCallback;
};
