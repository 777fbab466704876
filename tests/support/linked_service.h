// The service as it is linked into a test, with its worker in reach.
#pragma once

#include <Offlinetimezone.h>
#include <WorkerThread.h>

#include <new>

namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation {
extern WorkerThread& lookupThread;
extern android::sp<IOfflinetimezoneCallback>& clientCallback;
}  // namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation

using namespace vendor::quor::hardware::offlinetimezone::V1_0::implementation;

// Replaces the worker by a new one without a thread, as in a process that has just started. The
// old one handles all that was posted first.
inline void RestartWorker() {
    lookupThread.~WorkerThread();
    new (&lookupThread) WorkerThread("OfflinetimezoneThread");
}
