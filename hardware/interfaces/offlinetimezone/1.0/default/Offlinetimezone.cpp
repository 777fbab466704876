#include "Offlinetimezone.h"

#include <android/log.h>
#include <hidl/HidlTransportSupport.h>
#include <unistd.h>

#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "WorkerThread.h"
#include "client_call.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

using ::android::sp;
using ::android::wp;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::interfacesEqual;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;

namespace {

constexpr char kTag[] = "OfflinetimezoneService";
constexpr uint64_t kDeathCookie = 99;

#define LOG_LINE(priority, ...) __android_log_print(priority, kTag, __VA_ARGS__)

// Storage for an object that is made when the library is loaded and never destroyed: client threads
// and exit handlers may call the service until the process ends.
template <typename T>
struct NoDestructor {
    alignas(T) unsigned char bytes[sizeof(T)];
};
NoDestructor<WorkerThread> workerStorage;
NoDestructor<sp<IOfflinetimezoneCallback>> callbackStorage;

// Guards mCallback of every service object, clientCallback, isClosed and deathCount. Held for a
// whole change of the registration, so WorkerThread::mMutex is taken under it. No client's code
// runs under it. WorkerThread.h lists all locks of the service.
std::mutex registrationMutex;
bool isClosed = false;    // The process is ending: no client may register.
uint64_t deathCount = 0;  // Number of death notices so far.

}  // namespace

WorkerThread& lookupThread = *new (workerStorage.bytes) WorkerThread("OfflinetimezoneThread");
// The callback of the latest client. Guarded by registrationMutex.
sp<IOfflinetimezoneCallback>& clientCallback =
        *new (callbackStorage.bytes) sp<IOfflinetimezoneCallback>;

namespace {

// Closes the service when the process exits: releases the client's callback, then ends the worker.
struct CloseAtExit {
    ~CloseAtExit() {
        if (lookupThread.WasStartedInAnotherProcess()) return;
        sp<IOfflinetimezoneCallback> last;  // Released after the lock.
        {
            const std::lock_guard<std::mutex> lock(registrationMutex);
            isClosed = true;
            std::swap(last, clientCallback);
        }
        last.clear();
        lookupThread.Close();
    }
} closeAtExit;

// Unlinks a client from the death recipient. If the client has registered again in the meantime,
// the call also removed its new link, so this links it again. Calls the client; requires that no
// lock is held.
void Unlink(const sp<IOfflinetimezoneCallback>& client, const sp<hidl_death_recipient>& recipient);

// Links a client, which was registered after `deaths` notices, to the death recipient. A death
// notice handled in the meantime removed the client before it was linked; in that case this unlinks
// it again. Calls the client; requires that no lock is held.
void Link(const sp<IOfflinetimezoneCallback>& client, const sp<hidl_death_recipient>& recipient,
          uint64_t deaths) {
    CallClient([&] { return client->linkToDeath(recipient, kDeathCookie); });
    bool isForgotten;
    {
        const std::lock_guard<std::mutex> lock(registrationMutex);
        isForgotten = deathCount != deaths && clientCallback != client;
    }
    if (isForgotten) Unlink(client, recipient);
}

void Unlink(const sp<IOfflinetimezoneCallback>& client, const sp<hidl_death_recipient>& recipient) {
    CallClient([&] { return client->unlinkToDeath(recipient); });
    bool isBack;
    uint64_t deaths;
    {
        const std::lock_guard<std::mutex> lock(registrationMutex);
        isBack = clientCallback == client;
        deaths = deathCount;
    }
    if (isBack) Link(client, recipient, deaths);
}

}  // namespace

Offlinetimezone* Offlinetimezone::sInstance = nullptr;

Offlinetimezone* Offlinetimezone::getInstance() {
    static std::once_flag once;
    std::call_once(once, [] { sInstance = new Offlinetimezone; });
    return sInstance;
}

Offlinetimezone::Offlinetimezone() {
    LOG_LINE(ANDROID_LOG_ERROR, "Offlinetimezone init !");
    lookupThread.CreateThread();
    // The recipient holds the first strong reference to this object. If making the recipient fails,
    // releasing that reference would delete this object inside its constructor. A reference of its
    // own prevents this; the object is then discarded together with it.
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
    LOG_LINE(ANDROID_LOG_INFO, "setup call back in service!");
    // This step may throw, so it precedes the registration: a call that fails must not register the
    // client.
    WorkerThread::MessageQueue init = WorkerThread::MakeInitMsg();
    uint64_t deaths;
    {
        // The previous callbacks are released after the lock: these may be the last references.
        sp<IOfflinetimezoneCallback> previous = callback;
        sp<IOfflinetimezoneCallback> previousClient = callback;
        const std::lock_guard<std::mutex> lock(registrationMutex);
        if (isClosed) return true;
        std::swap(mCallback, previous);
        std::swap(clientCallback, previousClient);
        lookupThread.registerCb(mCallback);
        deaths = deathCount;
    }
    Link(callback, mDeathRecipient, deaths);
    lookupThread.PostInitMsg(std::move(init));
    return true;
}

Return<bool> Offlinetimezone::stopLookup(const sp<IOfflinetimezoneCallback>& callback) {
    sp<IOfflinetimezoneCallback> latest;
    {
        const std::lock_guard<std::mutex> lock(registrationMutex);
        latest = mCallback;
    }
    // A client in another process is a new proxy object in each call; interfacesEqual compares the
    // objects that the proxies stand for. It may call the client, so no lock is held here.
    if (!interfacesEqual(latest, callback)) return false;
    sp<IOfflinetimezoneCallback> dropped;  // Released after the lock.
    const std::lock_guard<std::mutex> lock(registrationMutex);
    if (mCallback == latest) std::swap(mCallback, dropped);
    return false;
}

Return<bool> Offlinetimezone::Lookup(const hidl_string& lat, const hidl_string& lon) {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    LOG_LINE(ANDROID_LOG_INFO, "lookup Lat : %s , Lon : %s pid : %d starttime: %ld!", lat.c_str(),
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
    LOG_LINE(ANDROID_LOG_ERROR, "injectDB data : size : %d ,  data.size() : %d status: %d",
             static_cast<int>(size), static_cast<int>(data.size()), static_cast<int>(status));
    if (data.size() > 0) {
        message->data.assign(data.data(), data.data() + data.size());
    } else {
        LOG_LINE(ANDROID_LOG_ERROR, "Should be end part!");
    }
    message->status = status;
    message->totalSize = totalSize;
    LOG_LINE(ANDROID_LOG_ERROR, "new injectDB data  size() : %d status: %d",
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
    // %p shows the address of the reference: the service has no number that identifies a client.
    LOG_LINE(ANDROID_LOG_DEBUG, "%s service died. cookie: %llu, who: %p", __func__,
             static_cast<unsigned long long>(cookie), static_cast<const void*>(&who));
    // Both are released after the lock: these may be the last references.
    sp<IOfflinetimezoneCallback> client;
    sp<IOfflinetimezoneCallback> registered;
    {
        const std::lock_guard<std::mutex> lock(registrationMutex);
        std::swap(client, clientCallback);
        registered = lookupThread.clearCb();
        ++deathCount;
    }
    if (client != nullptr) Unlink(client, this);
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
        // No service without a worker. The caller's process must survive this.
        return nullptr;
    }
}
