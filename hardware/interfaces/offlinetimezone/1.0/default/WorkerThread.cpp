#include "WorkerThread.h"

#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

#include "client_call.h"
#include "coordinate_text.h"
#include "database_files.h"
#include "database_paths.h"
#include "fixed_answers.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

namespace {

using ::android::sp;
using ::android::hardware::hidl_string;

constexpr char kTag[] = "OfflinetimezoneThread";
constexpr char kSourcePath[] = "hardware/interfaces/offlinetimezone/1.0/default/WorkerThread";

#define LOG_LINE(...) __android_log_print(ANDROID_LOG_INFO, kTag, __VA_ARGS__)

struct TextDeleter {
    void operator()(char* text) const { std::free(text); }
};

// Joins its thread when it is destroyed, also when a forced unwind destroys it.
struct JoiningThread {
    std::thread thread;
    ~JoiningThread() {
        if (thread.joinable()) thread.join();
    }
};

// Returns a string of the interface that borrows the text: a report must not need memory.
hidl_string BorrowedString(const char* text, size_t size) {
    hidl_string string;
    string.setToExternal(text, size);
    return string;
}

}  // namespace

WorkerThread::WorkerThread(const char* threadName) : mThreadName(threadName) {}

WorkerThread::~WorkerThread() {
    Close();
}

void WorkerThread::Close() {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mIsClosed = true;
    }
    ExitThread();
    std::vector<uint8_t>().swap(mDownloadBuf);
    // Both are released after the lock.
    sp<IOfflinetimezoneCallback> callback;
    MessageQueue discarded;
    const std::lock_guard<std::mutex> lock(mMutex);
    std::swap(callback, mCb);
    discarded.swap(mQueue);
    mMsgLength = 0;
    // If the process goes on without the library, the database must not stay mapped.
    if (mLookup != nullptr) mLookup->CloseDB();
    mLookup.reset();
    if (mThreadEndKey) pthread_key_delete(*mThreadEndKey);
    mThreadEndKey.reset();
}

bool WorkerThread::CreateThread() {
    // The lock makes concurrent first calls start one thread only, and makes the new thread find
    // the database manager when it takes its first message. mDbOpen stays as it is: a second
    // service object must not close the database of the first one's clients.
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto fail = [](std::error_code error) {
        throw std::system_error(error, "thread constructor failed");
    };
    if (mIsClosed) fail(std::make_error_code(std::errc::operation_canceled));
    std::unique_ptr<LookupInterface> lookup;
    if (mLookup == nullptr) lookup = std::make_unique<LookupInterface>();
    if (mThread == nullptr) {
        MessageQueue exitMessage = MakeMessage(MSG_EXIT_THREAD, nullptr);
        if (!mThreadEndKey) {
            pthread_key_t key;
            const int error = pthread_key_create(&key, OnThreadEnd);
            if (error != 0) fail({error, std::generic_category()});
            mThreadEndKey = key;
        }
        try {
            mThread = std::make_unique<std::thread>(&WorkerThread::Run, this);
        } catch (const std::system_error& error) {
            fail(error.code());
        }
        mExitMessage.swap(exitMessage);
        mProcess = getpid();
    }
    if (mLookup == nullptr) mLookup = std::move(lookup);
    return true;
}

bool WorkerThread::WasStartedInAnotherProcess() const {
    const pid_t process = mProcess.load();
    return process != 0 && process != getpid();
}

void WorkerThread::ExitThread() {
    MessageQueue discarded;  // Destroyed after the lock.
    std::unique_lock<std::mutex> lock(mMutex);
    if (mThread == nullptr) return;
    if (mThread->get_id() == std::this_thread::get_id()) {
        mThread->detach();
        mThread.reset();
        return;
    }
    mQueue.splice(mQueue.end(), mExitMessage);
    mMsgLength.fetch_add(1);
    mCv.notify_one();
    mIsJoining = true;
    while (mThread != nullptr) {  // A client may end a thread, which then starts a successor.
        std::unique_ptr<std::thread> thread;
        thread.swap(mThread);
        lock.unlock();
        thread->join();
        lock.lock();
    }
    mIsJoining = false;
    // A thread that ended without a successor left messages behind, its exit message among them.
    discarded.swap(mQueue);
    mMsgLength.store(0);
}

void WorkerThread::PostMsg(const MsgData* data) {
    Post(MakeMessage(MSG_LOOKUP, data));
}
void WorkerThread::PostInitMsg(const MsgData* data) {
    Post(MakeMessage(MSG_INIT, data));
}
WorkerThread::MessageQueue WorkerThread::MakeInitMsg() {
    return MakeMessage(MSG_INIT, new MsgData);
}
void WorkerThread::PostInitMsg(MessageQueue message) {
    Post(std::move(message));
}
void WorkerThread::PostInjectMsg(const MsgData* data) {
    Post(MakeMessage(MSG_INJECT_DB, data));
}
void WorkerThread::PostDownloadMsg(const MsgData* data) {
    Post(MakeMessage(MSG_DOWNLOAD_DATA, data));
}

WorkerThread::MessageQueue WorkerThread::MakeMessage(int32_t id, const MsgData* data) {
    std::unique_ptr<const MsgData> payload(data);
    MessagePtr message(new ThreadMsg{id, data});
    static_cast<void>(payload.release());  // The message owns it now.
    MessageQueue queue;
    queue.push_back(std::move(message));
    return queue;
}

void WorkerThread::Post(MessageQueue message) {
    bool hasThread;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mIsClosed) return;
        hasThread = mThread != nullptr || mIsJoining;
        mQueue.splice(mQueue.end(), message);
        mMsgLength.fetch_add(1);
        mCv.notify_one();
    }
    if (!hasThread) FaultHandler(kSourcePath, __LINE__);
}

uint32_t WorkerThread::GetMsgLength() {
    return mMsgLength.load();
}

void WorkerThread::registerCb(const sp<IOfflinetimezoneCallback>& callback) {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mCb == nullptr && !mIsClosed) mCb = callback;
}

sp<IOfflinetimezoneCallback> WorkerThread::clearCb() {
    sp<IOfflinetimezoneCallback> cleared;
    const std::lock_guard<std::mutex> lock(mMutex);
    std::swap(cleared, mCb);
    return cleared;
}

sp<IOfflinetimezoneCallback> WorkerThread::registeredCb() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mCb;
}

int32_t WorkerThread::getDBVersion() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLookup != nullptr ? mLookup->getDBVersion() : kNoVersion;
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

void WorkerThread::Run() {
    // This may fail without memory, which C libraries need only for keys that a process makes late.
    // Then no thread takes over from this one.
    pthread_setspecific(*mThreadEndKey, this);
    Process();
    pthread_setspecific(*mThreadEndKey, nullptr);
}

// A client that ends the current thread from inside a report ends the worker's thread: a successor
// then takes over. The system calls this as the destructor of the thread-specific key, because some
// C libraries do not unwind the stack of a thread that is ended.
void WorkerThread::OnThreadEnd(void* worker) {
    static_cast<WorkerThread*>(worker)->StartSuccessor();
}

// Replaces the current thread, which is ending, by a new one.
void WorkerThread::StartSuccessor() {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mThread == nullptr && !mIsJoining) return;  // Detached: the process ends.
    try {
        auto successor = std::make_unique<std::thread>(&WorkerThread::Run, this);
        if (mThread != nullptr) mThread->detach();
        mThread = std::move(successor);
    } catch (const std::exception&) {
        // No successor: the messages wait until CreateThread starts a thread.
        if (mThread != nullptr) mThread->detach();
        mThread.reset();
    }
}

void WorkerThread::Process() {
    char name[16] = {};  // The longest thread name, with its terminating zero.
    std::strncpy(name, mThreadName, sizeof name - 1);
    pthread_setname_np(pthread_self(), name);
    mTimerExit.store(false);
    JoiningThread timer;
    try {
        timer.thread = std::thread(&WorkerThread::TimerThread, this);
    } catch (const std::exception&) {
        // The timer thread does nothing, so the worker runs without it.
    }
    for (;;) {
        MessagePtr message;
        {
            std::unique_lock<std::mutex> lock(mMutex);
            mCv.wait(lock, [this] { return !mQueue.empty(); });
            message = std::move(mQueue.front());
            mQueue.pop_front();
            mMsgLength.fetch_sub(1);
        }
        if (message->id == MSG_EXIT_THREAD) break;
        try {
            Dispatch(*message);
        } catch (const std::exception&) {
            // Out of memory. The message is lost and has had no partial effect. If it was a chunk
            // of a download, the size check at the end of the download fails.
        }
    }
    mTimerExit.store(true);
    if (timer.thread.joinable()) timer.thread.join();
    MessageQueue discarded;  // Destroyed after the lock.
    const std::lock_guard<std::mutex> lock(mMutex);
    discarded.swap(mQueue);
    mMsgLength.store(0);
    LOG_LINE("Exit thread on ");
}

// The service's interface requires a timer thread; it has no work.
void WorkerThread::TimerThread() {}

void WorkerThread::Dispatch(const ThreadMsg& message) {
    switch (message.id) {
        case MSG_LOOKUP:
            return HandleLookup(*message.msg);
        case MSG_TIMER:
            LOG_LINE("Timer expired on ");
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
        LOG_LINE("server is running ");
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
    LOG_LINE("MsgData : Lat : %s Lon : %s ", data.lat.c_str(), data.lon.c_str());
    if (mDbOpen == 0) {
        LOG_LINE("This server is not supported anyway!");
        Report(registeredCb(), data, kNotSupported);
        return;
    }
    float lat;
    float lon;
    std::unique_ptr<char, TextDeleter> found;
    // A text without a usable number gets the answer of a point outside the world.
    const char* answer = kErrorInput;
    if (ParseCoordinate(data.lat.c_str(), &lat) && ParseCoordinate(data.lon.c_str(), &lon)) {
        LOG_LINE("MsgData : Lat : %f Lon : %f ", static_cast<double>(lat),
                 static_cast<double>(lon));
        found.reset(mLookup->LookupTzId(lat, lon));
        answer = found != nullptr ? found.get() : kMallocFailed;
    }
    LOG_LINE("start to call back from hidl");
    const sp<IOfflinetimezoneCallback> callback = registeredCb();
    if (callback == nullptr) LOG_LINE("mCb is null,please check if server dead");
    Report(callback, data, answer);
}

// Reports an answer to the client, if `callback` is not empty. The caller holds no lock and has its
// own reference to the callback.
void WorkerThread::Report(const sp<IOfflinetimezoneCallback>& callback, const MsgData& request,
                          const char* tzId) {
    if (callback == nullptr) return;
    const hidl_string lat = BorrowedString(request.lat.c_str(), request.lat.size());
    const hidl_string lon = BorrowedString(request.lon.c_str(), request.lon.size());
    const hidl_string zone = BorrowedString(tzId, std::strlen(tzId));
    CallClient([&] { return callback->timeZoneIdReport(lat, lon, zone); });
}

void WorkerThread::HandleDownload(const MsgData& data) {
    LOG_LINE("MSG_DOWNLOAD_DATA ");
    if (data.status == DOWNLOAD_START) {
        ResetDownload();
        LOG_LINE("injectdb size : %d ", static_cast<int>(mDownloadBuf.size()));
    }
    if (data.status == DOWNLOAD_START || data.status == DOWNLOAD_CONTINUE) {
        mDownloadBuf.insert(mDownloadBuf.end(), data.data.begin(), data.data.end());
    }
    LOG_LINE("total inject db size : %d", static_cast<int>(mDownloadBuf.size()));
    if (data.status != DOWNLOAD_END) return;
    if (static_cast<uint32_t>(mDownloadBuf.size()) != data.totalSize) {
        LOG_LINE("download DB data lost");
        ResetDownload();
        LOG_LINE("clear the data  : %d ", static_cast<int>(mDownloadBuf.size()));
        return;
    }
    LOG_LINE("start write it to backup ");
    WriteBackup();
    mDownloadState = DOWNLOAD_STATE_COMPLETE;
}

void WorkerThread::HandleInject() {
    LOG_LINE("MSG_INJECT_DB ");
    if (mDownloadState != DOWNLOAD_STATE_COMPLETE) {
        LOG_LINE("db donwload not finished ");
        ResetDownload();
        LOG_LINE("clear the data  : %d ", static_cast<int>(mDownloadBuf.size()));
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

// Discards the downloaded chunks and frees their memory.
void WorkerThread::ResetDownload() {
    std::vector<uint8_t>().swap(mDownloadBuf);
    mDownloadState = DOWNLOAD_STATE_RECEIVING;
}

// Writes the downloaded database over the backup file. A failure appears in the log only; the
// verification after the next injection detects its result.
void WorkerThread::WriteBackup() {
    // The backup is truncated first. Until it is complete again, the active file is the only copy.
    // It may have been restored or installed without having reached the storage medium: write it
    // out now.
    Synchronise(kActiveDatabasePath);
    Synchronise(kDatabaseDirectory);
    FILE* file = OpenForWriting(kBackupDatabasePath, kActiveDatabasePath);
    LOG_LINE("open  file  %s", std::strerror(file != nullptr ? 0 : errno));
    if (file == nullptr) return;
    // Unbuffered: a full disk must fail in fwrite, whose errno is logged, and not in a flush.
    std::setvbuf(file, nullptr, _IONBF, 0);
    errno = 0;
    if (Truncate(file) && !mDownloadBuf.empty()) {
        std::fwrite(mDownloadBuf.data(), 1, mDownloadBuf.size(), file);
    }
    LOG_LINE("after  write it to backup %s", std::strerror(errno));
    // The injection that follows truncates the active file first. Before that the backup, and its
    // directory entry if it is new, must be on the storage medium. Otherwise a power cut could
    // leave neither file complete.
    fsync(fileno(file));
    std::fclose(file);
    Synchronise(kDatabaseDirectory);
}

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation
