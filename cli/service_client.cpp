#include "service_client.h"

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezoneCallback;

constexpr std::chrono::minutes kTimeout{2};
constexpr std::chrono::milliseconds kPollInterval{2};

constexpr int32_t kFailed = 3;  // The service's status after a failed installation.
constexpr uint32_t kDownloadStart = 1;
constexpr uint32_t kDownloadContinue = 2;
constexpr uint32_t kDownloadEnd = 3;

}  // namespace

// Counts reports and keeps the latest answer. The service calls it on its own threads.
class ServiceClient::Callback : public IOfflinetimezoneCallback {
  public:
    Return<void> timeZoneIdReport(const hidl_string&, const hidl_string&,
                                  const hidl_string& tzId) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        mAnswer = tzId;
        ++mReports;
        mChanged.notify_all();
        return ::android::hardware::Void();
    }

    // Waits for the report `number`, counted from 1, and returns the latest answer.
    std::string WaitFor(size_t number) {
        std::unique_lock<std::mutex> lock(mMutex);
        if (!mChanged.wait_for(lock, kTimeout, [&] { return mReports >= number; })) {
            throw std::runtime_error("the service did not answer within two minutes");
        }
        return mAnswer;
    }

    size_t Reports() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mReports;
    }

  private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    size_t mReports = 0;
    std::string mAnswer;
};

ServiceClient::ServiceClient(const std::string& path) : mCallback(new Callback) {
    // Never unloaded: the service object lives as long as the process.
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) throw std::runtime_error(dlerror());
    using Fetch =
            ::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone* (*)(const char*);
    const auto fetch = reinterpret_cast<Fetch>(dlsym(library, "HIDL_FETCH_IOfflinetimezone"));
    if (fetch == nullptr) throw std::runtime_error(path + ": does not export the service");
    mService = fetch("default");
    if (mService == nullptr)
        throw std::runtime_error(path + ": the service object could not be created");
    // A service object lives as long as the process. Leak checkers find it through this reference.
    static auto* const kept = new std::vector<
            ::android::sp<::vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone>>;
    kept->push_back(mService);

    mService->startLookup(mCallback);
    const auto deadline = std::chrono::steady_clock::now() + kTimeout;
    while (GetState().status == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("the service did not start within two minutes");
        }
        std::this_thread::sleep_for(kPollInterval);
    }
}

ServiceClient::~ServiceClient() {
    if (mService != nullptr) mService->stopLookup(mCallback);
}

ServiceClient::State ServiceClient::GetState() const {
    return {mService->getServerStatus(), mService->getDBVersion()};
}

std::string ServiceClient::Lookup(const std::string& lat, const std::string& lon) {
    const size_t next = mCallback->Reports() + 1;
    mService->Lookup(lat, lon);
    return mCallback->WaitFor(next);
}

ServiceClient::State ServiceClient::Update(const offlinetz::FileBytes& file, size_t chunkSize,
                                           const std::function<void(size_t)>& sent) {
    const auto total = static_cast<uint32_t>(file.size());
    uint32_t status = kDownloadStart;
    for (size_t begin = 0; begin < file.size(); begin += chunkSize) {
        const size_t end = std::min(file.size(), begin + chunkSize);
        const std::vector<uint8_t> chunk(file.data() + begin, file.data() + end);
        mService->downloadDB(chunk, static_cast<uint32_t>(chunk.size()), total, status);
        status = kDownloadContinue;
        sent(end);
    }
    mService->downloadDB({}, 0, total, kDownloadEnd);
    mService->injectDB();
    // The result is visible in the status only, which is "running" before and after an
    // installation. The service handles requests in order: once it has answered a lookup that was
    // posted after the installation, the status is the one after the installation.
    Lookup("0", "0");
    if (GetState().status == kFailed) {
        // A start makes the service open its database again. If the new file never replaced the
        // active one, that is the old database.
        mService->startLookup(mCallback);
        Lookup("0", "0");
    }
    return GetState();
}
