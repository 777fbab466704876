// A client's callback that keeps its reports and then does what a test wants.
#pragma once

#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezone.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezoneCallback.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

using android::sp;
using android::hardware::hidl_string;
using android::hardware::Return;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone;
using vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezoneCallback;

struct ClientReport {
    std::string lat;
    std::string lon;
    std::string tzId;

    friend bool operator==(const ClientReport& a, const ClientReport& b) {
        return a.lat == b.lat && a.lon == b.lon && a.tzId == b.tzId;
    }
    friend std::ostream& operator<<(std::ostream& out, const ClientReport& r) {
        return out << r.lat << ", " << r.lon << ": " << r.tzId;
    }
};

class Recorder : public IOfflinetimezoneCallback {
  public:
    Return<void> timeZoneIdReport(const hidl_string& lat, const hidl_string& lon,
                                  const hidl_string& tzId) override {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mReports.push_back({lat, lon, tzId});
            mChanged.notify_all();
        }
        onReport();
        return android::hardware::Void();
    }

    // Waits until `count` reports have come in all. False if they have not come within `patience`.
    bool WaitFor(size_t count, std::chrono::milliseconds patience = std::chrono::minutes(1)) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, patience, [&] { return mReports.size() >= count; });
    }

    std::vector<ClientReport> Reports() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mReports;
    }

    // Called on the service's thread after each report is kept. Set it before the first one.
    std::function<void()> onReport = [] {};

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<ClientReport> mReports;
};
