// The worker: one thread that carries out every request of the service, in the order of arrival.
//
// Locks and atomics of the service. No client's code runs under any lock: callbacks are called, and
// references to them released, where the caller holds none.
//
//   registrationMutex       Offlinetimezone.cpp. Guards who is registered: mCallback of every
//                           service object, clientCallback, isClosed, deathCount.
//   WorkerThread::mMutex    Guards the members of WorkerThread that say so below. mCv signals a
//                           new message under it.
//   sDatabaseMutex          LookupInterface.cpp. Guards the pointer to the open database against
//                           version queries while the worker changes it.
//   once (getInstance)      Offlinetimezone.cpp. Makes the shared service object once.
//
//   Order: registrationMutex or once, then mMutex, then sDatabaseMutex. The platform's log has a
//   lock of its own, which comes last: the worker logs one line under mMutex when its thread ends.
//   The stand-in's death registry is called under no lock.
//
//   mServerStatus           Written by the worker, read by any thread.
//   mMsgLength              Written under mMutex, read by any thread without it.
//   mProcess                Written under mMutex, read without it: after fork() the lock may be
//                           held by a thread that does not exist in the new process.
//   mDbOpen, mTimerExit     Used by the worker's thread only.
//   ZDSpatialIndex::mState  reader/spatial_index.h. One thread builds a database's index; the
//                           others do not wait for it.
//   deltaDecoder, chosen    reader/deltas.h, digest/sha1_block.cpp. The kernel for this processor,
//                           chosen by the first use.
//   made                    coordinate_text.cpp. The "C" locale, made by the first use.
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

// The payload of a message. A service method makes it, fills the fields of its kind of message, and
// passes it to the worker, which then owns it. The other fields stay empty.
struct MsgData {
    std::string lat;  // As the client sent it.
    std::string lon;
    std::vector<uint8_t> data;  // One download chunk.
    uint32_t status = 0;        // A DownloadStatus, or any other number from the client.
    uint32_t totalSize = 0;     // Size of the whole database in bytes; used with DOWNLOAD_END.
};

// One queued message. ThreadMsgDeleter frees the payload with it. The payload is null only for
// MSG_EXIT_THREAD.
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
    MSG_TIMER = 3,  // Never posted by the service.
    MSG_INIT = 4,
    MSG_INJECT_DB = 5,
    MSG_DOWNLOAD_DATA = 6,
};

// The values of getServerStatus.
enum ServerStatus : int32_t {
    SERVER_STATUS_IDLE = 0,
    SERVER_STATUS_RUNNING = 1,
    SERVER_STATUS_INJECTING = 2,
    SERVER_STATUS_FAILED = 3,
};

// The values of MsgData::status. Messages with another status add no data.
enum DownloadStatus : uint32_t {
    DOWNLOAD_START = 1,
    DOWNLOAD_CONTINUE = 2,
    DOWNLOAD_END = 3,
};

enum DownloadState : int32_t {
    DOWNLOAD_STATE_NONE = 0,       // No download was started or discarded so far.
    DOWNLOAD_STATE_RECEIVING = 1,  // A download was started or discarded.
    DOWNLOAD_STATE_COMPLETE = 2,   // A download has all its bytes. Writing them may have failed.
};

// The worker: a queue of messages and the thread that handles them.
//
// Any thread may call the public functions at any time, unless they say otherwise. They never wait
// for the handling of a message, except ExitThread, Close and the destructor.
class WorkerThread {
  public:
    using MessagePtr = std::unique_ptr<const ThreadMsg, ThreadMsgDeleter>;
    // A list: a message that is made as a list of one element can be appended without allocating,
    // so nothing can fail under the lock or when the thread must end.
    using MessageQueue = std::list<MessagePtr>;

    // Starts no thread. `threadName` must outlive the object; its first 15 bytes are used.
    explicit WorkerThread(const char* threadName);

    // Calls Close. No other call may be in progress.
    ~WorkerThread();

    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    // Ends the worker for good. Stops the thread as ExitThread does, and under the same conditions,
    // then closes the database and releases the callback. As soon as it begins, posted messages are
    // discarded, no callback can be registered and CreateThread fails. After it getDBVersion
    // returns 65535.
    void Close();

    // Starts the thread and makes the database manager, unless they exist. Returns true. After
    // ExitThread it starts a new thread, which goes on with the queued messages.
    // Throws std::system_error ("thread constructor failed") if the thread cannot start or after
    // Close, and std::bad_alloc without memory. The worker is then as it was.
    bool CreateThread();

    // Waits until the worker has handled all messages posted before this call and its thread has
    // ended. Discards the messages posted meanwhile. Does nothing if there is no thread. No other
    // ExitThread or CreateThread may be in progress.
    // On the worker's own thread it detaches the thread instead: this happens if a client ends the
    // process from inside a report.
    void ExitThread();

    // Whether the thread was started in another process, from which this one was forked. This
    // process then has a copy of the object but not the thread, and the locks are in the state in
    // which the threads of the other process held them. Takes no lock.
    bool WasStartedInAnotherProcess() const;

    // Post one message and return at once. `data` must not be null; the worker owns it from now on.
    // Without memory they throw std::bad_alloc, free `data` and post nothing. Without a thread the
    // message waits in the queue for CreateThread. After Close it is discarded.
    void PostMsg(const MsgData* data);          // MSG_LOOKUP
    void PostInitMsg(const MsgData* data);      // MSG_INIT
    void PostInjectMsg(const MsgData* data);    // MSG_INJECT_DB
    void PostDownloadMsg(const MsgData* data);  // MSG_DOWNLOAD_DATA

    // PostInitMsg in two steps, for a caller that may not fail after a certain point. Making the
    // message may throw std::bad_alloc. Posting it cannot fail.
    static MessageQueue MakeInitMsg();
    void PostInitMsg(MessageQueue message);

    // Returns the number of messages in the queue. A snapshot: it takes no lock.
    OFFLINETZ_EXPORT uint32_t GetMsgLength();

    // Registers the callback that receives the reports. Does nothing if one is registered, or after
    // Close.
    void registerCb(const ::android::sp<IOfflinetimezoneCallback>& callback);

    // Removes the registered callback and returns it; empty if there is none. The result may be the
    // last reference: the caller must release it where it holds no lock.
    ::android::sp<IOfflinetimezoneCallback> clearCb();

    // Returns the registered callback; empty if there is none.
    ::android::sp<IOfflinetimezoneCallback> registeredCb();

    // Returns the version of the open database, or 65535 if none is open. Never waits for a
    // verification, a copy or a lookup.
    int32_t getDBVersion();

    // Returns a ServerStatus.
    int32_t getServerStatus();

    // Returns the native id of the worker's thread. The thread must exist.
    OFFLINETZ_EXPORT pthread_t GetThreadId();
    // Returns the native id of the calling thread.
    OFFLINETZ_EXPORT static pthread_t GetCurrentThreadId();

  protected:
    // Makes a queue of one message, which owns `data`. If it throws std::bad_alloc it has freed
    // `data`.
    static MessageQueue MakeMessage(int32_t id, const MsgData* data);
    // Appends the message. Cannot fail.
    void Post(MessageQueue message);

  private:
    void Run();
    static void OnThreadEnd(void* worker);
    void StartSuccessor();
    void Process();
    void TimerThread();

    // Handle one message. Called on the worker's thread only.
    void Dispatch(const ThreadMsg& message);
    void HandleInit();
    void HandleLookup(const MsgData& data);
    void HandleDownload(const MsgData& data);
    void HandleInject();

    static void Report(const ::android::sp<IOfflinetimezoneCallback>& callback,
                       const MsgData& request, const char* tzId);
    void ResetDownload();
    void WriteBackup();

    std::atomic<int32_t> mDbOpen{0};       // Used by the worker's thread only.
    std::unique_ptr<std::thread> mThread;  // Guarded by mMutex.
    MessageQueue mQueue;                   // Guarded by mMutex.
    std::mutex mMutex;
    std::condition_variable mCv;          // Signals that mQueue is not empty.
    std::atomic<bool> mTimerExit{false};  // Used by the worker's thread only.
    const char* mThreadName;
    std::atomic<int32_t> mServerStatus{
            SERVER_STATUS_IDLE};                  // Written by the worker, read by any thread.
    ::android::sp<IOfflinetimezoneCallback> mCb;  // Guarded by mMutex.
    // The pointer is set once, under mMutex, before the worker can take its first message, so the
    // worker uses it without the lock. Close resets it when the thread has ended.
    std::unique_ptr<LookupInterface> mLookup;
    // The download. Used by the worker's thread only; Close empties it when the thread has ended.
    std::vector<uint8_t> mDownloadBuf;
    int32_t mDownloadState = DOWNLOAD_STATE_NONE;

    // The length of mQueue. Written under mMutex, read without it.
    std::atomic<uint32_t> mMsgLength{0};
    // The process that started the thread; 0 if none did. Written under mMutex, read without it.
    std::atomic<pid_t> mProcess{0};
    bool mIsClosed = false;   // Guarded by mMutex.
    bool mIsJoining = false;  // Guarded by mMutex. ExitThread has taken mThread and waits for it.
    // The thread-specific key whose destructor is OnThreadEnd. Made under mMutex before the first
    // thread starts, so that thread reads it without the lock.
    std::optional<pthread_key_t> mThreadEndKey;
    // The message that ends the thread. Made when the thread starts. Guarded by mMutex.
    MessageQueue mExitMessage;
};

}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation
