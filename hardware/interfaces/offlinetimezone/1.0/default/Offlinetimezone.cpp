#include "Offlinetimezone.h"

#include <android/log.h>
#include <unistd.h>

#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

#include "WorkerThread.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;

namespace {

constexpr char kTag[] = "OfflinetimezoneService";
constexpr uint64_t kDeathCookie = 99;

#define LOG(priority, ...) __android_log_print(priority, kTag, __VA_ARGS__)

// The callback of the latest client. Emptied when the library goes, under the lock, because the
// worker still runs then and a client may register from inside its report; from then on it stays
// empty. Its storage is never destroyed before the worker has ended.
class ClientSlot {
  public:
    // All with registrationMutex held.
    sp<IOfflinetimezoneCallback> Exchange(const sp<IOfflinetimezoneCallback>& callback) {
        if (mIsClosed) return nullptr;
        sp<IOfflinetimezoneCallback> previous = callback;
        std::swap(mCallback, previous);
        return previous;
    }
    const sp<IOfflinetimezoneCallback>& Get() const { return mCallback; }
    sp<IOfflinetimezoneCallback> Close() {
        sp<IOfflinetimezoneCallback> last = Exchange(nullptr);
        mIsClosed = true;
        return last;
    }

  private:
    sp<IOfflinetimezoneCallback> mCallback;
    bool mIsClosed = false;
};

struct ClientSlotCloser {
    ClientSlot& slot;
    ~ClientSlotCloser() {
        sp<IOfflinetimezoneCallback> last;  // Released after the lock.
        const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
        last = slot.Close();
    }
};

}  // namespace

// Destroyed in reverse order: the client's callback is dropped, then the worker ends its thread.
ClientSlot clientCallback;  // Guarded by registrationMutex.
WorkerThread lookupThread("OfflinetimezoneThread");
ClientSlotCloser clientCallbackCloser{clientCallback};

Offlinetimezone* Offlinetimezone::sInstance = nullptr;

Offlinetimezone* Offlinetimezone::getInstance() {
    static std::once_flag once;
    std::call_once(once, [] { sInstance = new Offlinetimezone; });
    return sInstance;
}

Offlinetimezone::Offlinetimezone() {
    LOG(ANDROID_LOG_ERROR, "Offlinetimezone init !");
    lookupThread.CreateThread();
    // Until the recipient holds its reference this object has no other: one more keeps it from
    // being deleted in here if the recipient cannot be made. It is then dropped with the object.
    incStrong(this);
    mDeathRecipient = new DeathRecipient(this);
    decStrong(this);
}

Offlinetimezone::~Offlinetimezone() {
    mDeathRecipient.clear();
    mCallback.clear();
}

Return<bool> Offlinetimezone::startLookup(const sp<IOfflinetimezoneCallback>& callback) {
    if (callback == nullptr) return false;
    LOG(ANDROID_LOG_INFO, "setup call back in service!");
    {
        // What was registered before is released after the lock: it may be the last reference.
        sp<IOfflinetimezoneCallback> previous = callback;
        sp<IOfflinetimezoneCallback> previousClient;
        const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
        std::swap(mCallback, previous);
        previousClient = clientCallback.Exchange(callback);
        lookupThread.registerCb(mCallback);
    }
    // A call into the client's object, so outside the lock; its outcome changes nothing.
    try {
        static_cast<void>(callback->linkToDeath(mDeathRecipient, kDeathCookie).isOk());
    } catch (...) {
    }
    lookupThread.PostInitMsg(new MsgData);
    return true;
}

Return<bool> Offlinetimezone::stopLookup(const sp<IOfflinetimezoneCallback>& callback) {
    sp<IOfflinetimezoneCallback> dropped;  // Released after the lock.
    const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
    if (mCallback == callback) std::swap(mCallback, dropped);
    return false;
}

Return<bool> Offlinetimezone::Lookup(const hidl_string& lat, const hidl_string& lon) {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    LOG(ANDROID_LOG_INFO, "lookup Lat : %s , Lon : %s pid : %d starttime: %ld!", lat.c_str(),
        lon.c_str(), getpid(), static_cast<long>(now.tv_sec));
    auto data = std::make_unique<MsgData>();
    data->lat.assign(lat.c_str(), lat.size());
    data->lon.assign(lon.c_str(), lon.size());
    lookupThread.PostMsg(data.release());
    return false;
}

Return<int32_t> Offlinetimezone::getDBVersion() {
    return lookupThread.getDBVersion();
}

Return<int32_t> Offlinetimezone::getServerStatus() {
    return lookupThread.getServerStatus();
}

Return<bool> Offlinetimezone::downloadDB(const hidl_vec<uint8_t>& data, uint32_t size,
                                         uint32_t totalSize, uint32_t status) {
    auto message = std::make_unique<MsgData>();
    LOG(ANDROID_LOG_ERROR, "injectDB data : size : %d ,  data.size() : %d status: %d",
        static_cast<int>(size), static_cast<int>(data.size()), static_cast<int>(status));
    if (data.size() > 0) {
        message->data.assign(data.data(), data.data() + data.size());
    } else {
        LOG(ANDROID_LOG_ERROR, "Should be end part!");
    }
    message->status = status;
    message->totalSize = totalSize;
    LOG(ANDROID_LOG_ERROR, "new injectDB data  size() : %d status: %d",
        static_cast<int>(message->data.size()), static_cast<int>(status));
    lookupThread.PostDownloadMsg(message.release());
    return true;
}

Return<bool> Offlinetimezone::injectDB() {
    lookupThread.PostInjectMsg(new MsgData);
    return true;
}

Offlinetimezone::DeathRecipient::DeathRecipient(const sp<Offlinetimezone>& parent)
    : mParent(parent) {}

Offlinetimezone::DeathRecipient::~DeathRecipient() = default;

void Offlinetimezone::DeathRecipient::serviceDied(uint64_t cookie, const wp<IBase>& who) {
    // The service knows no client by a number: the line ends before one.
    LOG(ANDROID_LOG_DEBUG, "%s service died. cookie: %llu, who: %p", __func__,
        static_cast<unsigned long long>(cookie), static_cast<const void*>(&who));
    sp<IOfflinetimezoneCallback> client;
    {
        const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
        client = clientCallback.Get();
    }
    // A call into the client's object, so outside the lock. First the link goes, then the
    // registration: a client that registers in between ends up linked and unregistered, never
    // registered with its death unnoticed.
    try {
        if (client != nullptr) static_cast<void>(client->unlinkToDeath(this).isOk());
    } catch (...) {
    }
    // What is dropped is released after the lock: it may be the last reference. `registered` is
    // there to outlast clearCb.
    sp<IOfflinetimezoneCallback> dropped;
    const sp<IOfflinetimezoneCallback> registered = lookupThread.registeredCb();
    const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
    dropped = clientCallback.Exchange(nullptr);
    lookupThread.clearCb();
}

Return<void> OfflinetimezoneCallback::timeZoneIdReport(const hidl_string&, const hidl_string&,
                                                       const hidl_string&) {
    return Void();
}

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation

extern "C" vendor::quor::hardware::offlinetimezone::V1_0::IOfflinetimezone*
HIDL_FETCH_IOfflinetimezone(const char* /*name*/) {
    using vendor::quor::hardware::offlinetimezone::V1_0::implementation::Offlinetimezone;
    __android_log_print(ANDROID_LOG_ERROR, "OfflinetimezoneService",
                        "HIDL_FETCH_IOfflinetimezone HIDL init");
    try {
        return new Offlinetimezone;
    } catch (const std::exception&) {
        // Without a worker there is no service; the platform that asks for one goes on.
        return nullptr;
    }
}
