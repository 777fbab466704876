// The one worker: its messages, its queue and its thread, which carries every request out in the
// order of arrival.
#pragma once

#include <pthread.h>
#include <vendor/quor/hardware/offlinetimezone/1.0/IOfflinetimezoneCallback.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "LookupInterface.h"
#include "export.h"

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {

// The payload of a message. A service method makes it with every field empty, fills those of its
// own kind, and gives it away with the post.
struct MsgData {
    std::string lat;  // As the client sent it.
    std::string lon;
    std::vector<uint8_t> data;  // One download chunk.
    uint32_t status = 0;        // A DownloadStatus, or what the client sent for one.
    uint32_t totalSize = 0;     // Bytes of the whole database; read with DOWNLOAD_END.
};

// One queued message; owns its payload, which is null only for MSG_EXIT_THREAD.
struct ThreadMsg {
    int32_t id;
    const MsgData* msg;
};

struct ThreadMsgDeleter {
    void operator()(const ThreadMsg* message) const {
        delete message->msg;
        delete message;
    }
};

enum MessageId : int32_t {
    MSG_EXIT_THREAD = 1,
    MSG_LOOKUP = 2,
    MSG_TIMER = 3,
    MSG_INIT = 4,
    MSG_INJECT_DB = 5,
    MSG_DOWNLOAD_DATA = 6,
};

enum ServerStatus : int32_t {
    SERVER_STATUS_IDLE = 0,
    SERVER_STATUS_RUNNING = 1,
    SERVER_STATUS_INJECTING = 2,
    SERVER_STATUS_FAILED = 3,
};

enum DownloadStatus : uint32_t {
    DOWNLOAD_START = 1,
    DOWNLOAD_CONTINUE = 2,
    DOWNLOAD_END = 3,
};

enum DownloadState : int32_t {
    DOWNLOAD_STATE_NONE = 0,
    DOWNLOAD_STATE_RECEIVING = 1,
    DOWNLOAD_STATE_COMPLETE = 2,
};

// Any thread may call the public operations, at any time, unless they say otherwise.
class WorkerThread {
  public:
    using MessagePtr = std::unique_ptr<const ThreadMsg, ThreadMsgDeleter>;
    // A list, because a message that stands in one of its own already can be appended without
    // memory: nothing can fail under the lock, nor when the thread is to end.
    using MessageQueue = std::list<MessagePtr>;

    // `threadName` must outlive the object. Starts no thread.
    explicit WorkerThread(const char* threadName);

    // Closes (see Close). No other call may be going on.
    ~WorkerThread();

    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // Ends for good: stops the thread (see ExitThread), closes the database and forgets the
    // callback. From now on posts are discarded, no callback registers and CreateThread fails;
    // afterwards the version is 65535.
    void Close();

    // Starts the thread and creates the database manager unless they exist. Returns true; throws
    // std::system_error ("thread constructor failed") when the thread cannot start, or after Close,
    // and leaves everything as it was. After ExitThread it starts a fresh thread, which goes on
    // with what is queued.
    bool CreateThread();

    // Lets everything posted so far be handled, waits for the thread to end, and discards what was
    // posted meanwhile. Does nothing without a thread. No other ExitThread or CreateThread may be
    // going on. On the worker's own thread, where a client may have ended the process from its
    // report, it lets the thread go instead.
    void ExitThread();

    // Whether the thread was started in another process, of which this one was forked off: it has
    // the object, with locks as threads of the other one held them, and no thread to wait for.
    bool WasStartedInAnotherProcess() const;

    // Post one message and return at once. `data` must not be null and belongs to the worker, also
    // when std::bad_alloc is thrown and nothing was posted.
    void PostMsg(const MsgData* data);          // MSG_LOOKUP
    void PostInitMsg(const MsgData* data);      // MSG_INIT
    void PostInjectMsg(const MsgData* data);    // MSG_INJECT_DB
    void PostDownloadMsg(const MsgData* data);  // MSG_DOWNLOAD_DATA

    // PostInitMsg in two steps, for a caller who must know before it posts that nothing can fail
    // any more: making the message may throw std::bad_alloc, posting it takes no memory.
    static MessageQueue MakeInitMsg();
    void PostInitMsg(MessageQueue message);

    // The number of messages in the queue: a snapshot, read without the queue's lock.
    OFFLINETZ_EXPORT uint32_t GetMsgLength();

    // Registers the callback that receives the reports, unless one is registered.
    void registerCb(const ::android::sp<IOfflinetimezoneCallback>& callback);

    // Forgets the registered callback. Returns it, or empty: it may be the last reference, which
    // the caller releases where it holds no lock.
    ::android::sp<IOfflinetimezoneCallback> clearCb();

    // The registered callback, or empty.
    ::android::sp<IOfflinetimezoneCallback> registeredCb();

    // The open database's version, or 65535. Never waits for a verification or a copy.
    int32_t getDBVersion();

    int32_t getServerStatus();

    // The native id of the worker's thread, which must exist.
    OFFLINETZ_EXPORT pthread_t GetThreadId();
    OFFLINETZ_EXPORT static pthread_t GetCurrentThreadId();

  protected:
    static MessageQueue MakeMessage(int32_t id, const MsgData* data);
    void Post(MessageQueue message);

  private:
    void Run();
    static void OnThreadEnd(void* worker);
    void StartSuccessor();
    void Process();
    void TimerThread();

    // The handling of each message, on the worker's thread.
    void Dispatch(const ThreadMsg& message);
    void HandleInit();
    void HandleLookup(const MsgData& data);
    void HandleDownload(const MsgData& data);
    void HandleInject();

    static void Report(const ::android::sp<IOfflinetimezoneCallback>& callback,
                       const MsgData& request, const char* tzId);
    void ResetDownload();
    void WriteBackup();

    std::atomic<int32_t> mDbOpen{0};       // The worker's alone.
    std::unique_ptr<std::thread> mThread;  // Guarded by mMutex.
    MessageQueue mQueue;                   // Guarded by mMutex.
    std::mutex mMutex;
    std::condition_variable mCv;
    std::atomic<bool> mTimerExit{false};
    const char* mThreadName;
    std::atomic<int32_t> mServerStatus{
            SERVER_STATUS_IDLE};                  // Set by the worker, read by any thread.
    ::android::sp<IOfflinetimezoneCallback> mCb;  // Guarded by mMutex.
    // Made under mMutex, once, before the worker can take its first message under it.
    std::unique_ptr<LookupInterface> mLookup;
    std::vector<uint8_t> mDownloadBuf;  // The worker's alone, like the state.
    int32_t mDownloadState = DOWNLOAD_STATE_NONE;

    // The queue's length, kept beside it so that it can be asked without its lock.
    std::atomic<uint32_t> mMsgLength{0};
    std::atomic<pid_t> mProcess{0};  // That has started the thread; 0: none has.
    bool mIsClosed = false;          // Guarded by mMutex.
    bool mIsJoining = false;  // Guarded by mMutex: ExitThread has taken mThread and waits for it.
    // Holds the worker on its thread, for OnThreadEnd. Made before the first thread starts.
    std::optional<pthread_key_t> mThreadEndKey;
    // The message that ends the thread, made when it starts. Guarded by mMutex.
    MessageQueue mExitMessage;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation
