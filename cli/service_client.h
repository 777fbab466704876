// A client of the service, which it loads as the platform does: from its library, by its entry.
#pragma once

#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "database/open_database.h"

class ServiceClient {
  public:
    static constexpr int32_t kNoVersion = 65535;

    // What the service says of itself.
    struct State {
        int32_t status = 0;  // 0 idle, 1 running, 2 injecting, 3 failed
        int32_t version = kNoVersion;

        bool IsUsable() const { return status == 1 && version != kNoVersion; }
    };

    // Loads the library at `path`, registers a callback and waits until the service has opened its
    // database or failed to. Throws std::runtime_error when the library cannot be loaded or the
    // service does not react.
    explicit ServiceClient(const std::string& path);
    ~ServiceClient();
    ServiceClient(const ServiceClient&) = delete;
    ServiceClient& operator=(const ServiceClient&) = delete;

    State GetState() const;

    // Asks for the zone of a point and waits for the report; the texts go as they are. Throws
    // std::runtime_error when none comes.
    std::string Lookup(const std::string& lat, const std::string& lon);

    // Sends a database in chunks and asks for its installation; `sent` is told the bytes sent.
    // Returns what the service says of itself when it has done so.
    State Update(const offlinetz::FileBytes& file, size_t chunkSize,
                 const std::function<void(size_t)>& sent);

  private:
    class Callback;

    ::android::sp<::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone> mService;
    ::android::sp<Callback> mCallback;
};
