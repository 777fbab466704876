#include "WorkerThread.h"

#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "coordinate_text.h"
#include "database_paths.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

namespace {

using ::android::sp;

constexpr char kTag[] = "OfflinetimezoneThread";
constexpr char kSourcePath[] = "hardware/interfaces/offlinetimezone/1.0/default/WorkerThread";
constexpr int32_t kNoVersion = 65535;
constexpr char kNotSupported[] = "error:Server is not supportted";
constexpr char kMallocFailed[] = "error:malloc failed";
constexpr char kErrorInput[] = "\"error:error input\"";

#define LOG(...) __android_log_print(ANDROID_LOG_INFO, kTag, __VA_ARGS__)

// A message taken off the queue, with its payload.
struct MessageDeleter {
    void operator()(const ThreadMsg* message) const {
        delete message->msg;
        delete message;
    }
};
using MessagePtr = std::unique_ptr<const ThreadMsg, MessageDeleter>;

struct TextDeleter {
    void operator()(char* text) const { std::free(text); }
};

}  // namespace

WorkerThread::WorkerThread(const char* threadName) : mThreadName(threadName) {}

WorkerThread::~WorkerThread() {
    ExitThread();
    // The thread may never have run: what was posted then is still here.
    for (const ThreadMsg* message : mQueue)
        MessagePtr(message).reset();
    // The library may be unloaded while the process goes on, so the database must not stay
    // mapped.
    if (mLookup != nullptr) mLookup->CloseDB();
}

bool WorkerThread::CreateThread() {
    // Under the lock, so that concurrent first calls start one thread, and the new thread finds
    // the database manager when it takes its first message. mDbOpen is left alone: a second
    // service object must not close the database to the first one's clients.
    const std::lock_guard<std::mutex> lock(mMutex);
    std::unique_ptr<LookupInterface> lookup;
    if (mLookup == nullptr) lookup = std::make_unique<LookupInterface>();
    if (mThread == nullptr) {
        try {
            mThread = std::make_unique<std::thread>(&WorkerThread::Process, this);
        } catch (const std::system_error& error) {
            throw std::system_error(error.code(), "thread constructor failed");
        }
    }
    if (mLookup == nullptr) mLookup = std::move(lookup);
    return true;
}

void WorkerThread::ExitThread() {
    std::thread* thread;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        thread = mThread.get();
    }
    if (thread == nullptr) return;
    if (thread->get_id() == std::this_thread::get_id()) {
        thread->detach();
        return;
    }
    Post(MSG_EXIT_THREAD, nullptr);
    thread->join();
    const std::lock_guard<std::mutex> lock(mMutex);
    mThread.reset();
}

void WorkerThread::PostMsg(const MsgData* data) {
    Post(MSG_LOOKUP, data);
}
void WorkerThread::PostInitMsg(const MsgData* data) {
    Post(MSG_INIT, data);
}
void WorkerThread::PostInjectMsg(const MsgData* data) {
    Post(MSG_INJECT_DB, data);
}
void WorkerThread::PostDownloadMsg(const MsgData* data) {
    Post(MSG_DOWNLOAD_DATA, data);
}

void WorkerThread::Post(int32_t id, const MsgData* data) {
    bool hasThread;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        hasThread = mThread != nullptr;
    }
    if (!hasThread) FaultHandler(kSourcePath, __LINE__);
    auto* message = new ThreadMsg{id, data};
    const std::lock_guard<std::mutex> lock(mMutex);
    mQueue.push_back(message);
    mMsgLength.fetch_add(1);
    mCv.notify_one();
}

uint32_t WorkerThread::GetMsgLength() {
    return mMsgLength.load();
}

void WorkerThread::registerCb(const sp<IOfflinetimezoneCallback>& callback) {
    const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
    if (mCb == nullptr) mCb = callback;
}

void WorkerThread::clearCb() {
    sp<IOfflinetimezoneCallback> dropped;  // Released after the lock: it may be the last one.
    const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
    std::swap(dropped, mCb);
}

sp<IOfflinetimezoneCallback> WorkerThread::registeredCb() {
    const std::lock_guard<std::recursive_mutex> lock(registrationMutex);
    return mCb;
}

int32_t WorkerThread::getDBVersion() {
    LookupInterface* lookup;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        lookup = mLookup.get();
    }
    return lookup != nullptr ? lookup->getDBVersion() : kNoVersion;
}

int32_t WorkerThread::getServerStatus() {
    return mServerStatus.load();
}

pthread_t WorkerThread::GetThreadId() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mThread->native_handle();
}

pthread_t WorkerThread::GetCurrentThreadId() {
    return pthread_self();
}

void WorkerThread::Process() {
    char name[16] = {};  // What a thread's name holds, with its end.
    std::strncpy(name, mThreadName, sizeof name - 1);
    pthread_setname_np(pthread_self(), name);
    mTimerExit.store(false);
    std::thread timer;
    try {
        timer = std::thread(&WorkerThread::TimerThread, this);
    } catch (const std::system_error&) {
        // It has no work: the worker does without it.
    }
    for (;;) {
        MessagePtr message;
        {
            std::unique_lock<std::mutex> lock(mMutex);
            mCv.wait(lock, [this] { return !mQueue.empty(); });
            message.reset(mQueue.front());
            mQueue.pop_front();
            mMsgLength.fetch_sub(1);
        }
        if (message->id == MSG_EXIT_THREAD) break;
        try {
            Dispatch(*message);
        } catch (...) {
            // Out of memory in the midst of a message. The message is lost and nothing of it is
            // half done: a chunk that could not be joined makes the end of the download fail.
        }
    }
    mTimerExit.store(true);
    if (timer.joinable()) timer.join();
    const std::lock_guard<std::mutex> lock(mMutex);
    for (const ThreadMsg* message : mQueue)
        MessagePtr(message).reset();
    mQueue.clear();
    mMsgLength.store(0);
    LOG("Exit thread on ");
}

void WorkerThread::TimerThread() {}

void WorkerThread::Dispatch(const ThreadMsg& message) {
    switch (message.id) {
        case MSG_LOOKUP:
            return HandleLookup(*message.msg);
        case MSG_TIMER:
            LOG("Timer expired on ");
            return;
        case MSG_INIT:
            return HandleInit();
        case MSG_INJECT_DB:
            return HandleInject();
        case MSG_DOWNLOAD_DATA:
            return HandleDownload(*message.msg);
        default:
            FaultHandler(kSourcePath, __LINE__);
    }
}

void WorkerThread::HandleInit() {
    if (mServerStatus == SERVER_STATUS_RUNNING) {
        LOG("server is running ");
        return;
    }
    if (!mLookup->PreOpenDB()) {
        mServerStatus = SERVER_STATUS_FAILED;
        return;
    }
    mLookup->OpenDB();
    mDbOpen = 1;
    mServerStatus = SERVER_STATUS_RUNNING;
}

void WorkerThread::HandleLookup(const MsgData& data) {
    LOG("MsgData : Lat : %s Lon : %s ", data.lat.c_str(), data.lon.c_str());
    if (mDbOpen == 0) {
        LOG("This server is not supported anyway!");
        Report(registeredCb(), data, kNotSupported);
        return;
    }
    float lat;
    float lon;
    std::unique_ptr<char, TextDeleter> found;
    // A text without a usable number gets what a point outside the world gets.
    const char* answer = kErrorInput;
    if (ParseCoordinate(data.lat.c_str(), &lat) && ParseCoordinate(data.lon.c_str(), &lon)) {
        LOG("MsgData : Lat : %f Lon : %f ", static_cast<double>(lat), static_cast<double>(lon));
        found.reset(mLookup->LookupTzId(lat, lon));
        answer = found != nullptr ? found.get() : kMallocFailed;
    }
    LOG("start to call back from hidl");
    const sp<IOfflinetimezoneCallback> callback = registeredCb();
    if (callback == nullptr) LOG("mCb is null,please check if server dead");
    Report(callback, data, answer);
}

// Calls the client, if there is one, with a reference of the worker's own and no lock held.
void WorkerThread::Report(const sp<IOfflinetimezoneCallback>& callback, const MsgData& request,
                          const char* tzId) {
    if (callback == nullptr) return;
    try {
        // Whether the report got through is looked at, as the runtime demands, and changes
        // nothing.
        static_cast<void>(callback->timeZoneIdReport(request.lat, request.lon, tzId).isOk());
    } catch (...) {
        // A client in this process threw; its trouble must not end the worker.
    }
}

void WorkerThread::HandleDownload(const MsgData& data) {
    LOG("MSG_DOWNLOAD_DATA ");
    if (data.status == DOWNLOAD_START) {
        ResetDownload();
        LOG("injectdb size : %d ", static_cast<int>(mDownloadBuf.size()));
    }
    if (data.status == DOWNLOAD_START || data.status == DOWNLOAD_CONTINUE) {
        mDownloadBuf.insert(mDownloadBuf.end(), data.data.begin(), data.data.end());
    }
    LOG("total inject db size : %d", static_cast<int>(mDownloadBuf.size()));
    if (data.status != DOWNLOAD_END) return;
    if (static_cast<uint32_t>(mDownloadBuf.size()) != data.totalSize) {
        LOG("download DB data lost");
        ResetDownload();
        LOG("clear the data  : %d ", static_cast<int>(mDownloadBuf.size()));
        return;
    }
    LOG("start write it to backup ");
    WriteBackup();
    mDownloadState = DOWNLOAD_STATE_COMPLETE;
}

void WorkerThread::HandleInject() {
    LOG("MSG_INJECT_DB ");
    if (mDownloadState != DOWNLOAD_STATE_COMPLETE) {
        LOG("db donwload not finished ");
        ResetDownload();
        LOG("clear the data  : %d ", static_cast<int>(mDownloadBuf.size()));
        return;
    }
    mServerStatus = SERVER_STATUS_INJECTING;
    if (mDbOpen == 1) {
        mLookup->CloseDB();
        mDbOpen = 0;
    }
    if (!mLookup->InjectDB() || !mLookup->PreOpenDB()) {
        mServerStatus = SERVER_STATUS_FAILED;
        return;
    }
    mLookup->OpenDB();
    mServerStatus = SERVER_STATUS_RUNNING;
    mDbOpen = 1;
}

// Empties the collected download and gives its storage back.
void WorkerThread::ResetDownload() {
    std::vector<uint8_t>().swap(mDownloadBuf);
    mDownloadState = DOWNLOAD_STATE_RECEIVING;
}

// Writes the collected download over the backup file; what fails shows in the log, and later in
// the verification.
void WorkerThread::WriteBackup() {
    errno = 0;
    FILE* file = std::fopen(kBackupDatabasePath, "wb");
    LOG("open  file  %s", std::strerror(errno));
    if (file == nullptr) return;
    errno = 0;
    std::fwrite(mDownloadBuf.data(), 1, mDownloadBuf.size(), file);
    LOG("after  write it to backup %s", std::strerror(errno));
    // The injection that follows cuts the active file to nothing first: by then the backup must
    // be on the medium, or a power cut between the two would find neither file whole.
    std::fflush(file);
    fsync(fileno(file));
    std::fclose(file);
}

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation
