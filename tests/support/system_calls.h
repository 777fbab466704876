// The calls by which the service asks the system for memory, files and threads. In programs whose
// calls the linker wraps (see tests/CMakeLists.txt) a test can observe them and make one fail.
#pragma once

#include <functional>
#include <string>

namespace calls {

enum Kind {
    kAllocation,  // malloc, calloc, realloc and new, in one count.
    kOpen,
    kStatus,  // fstat
    kSeek,
    kMap,
    kStream,  // fdopen
    kCut,     // ftruncate
    kRead,    // fread
    kWrite,   // fwrite
    kFlush,
    kSynchronise,  // fsync
    kClose,
    kCloseStream,
    kThread,
    kKinds
};
const char* Name(Kind kind);

// The n-th call of the kind from now on fails; with n = 0, none. Cancels the order before.
void LetFail(Kind kind, int n);
bool HasFailed();  // Since the last call of LetFail.

// The number of blocks allocated and mappings made by code that is linked into the program, less
// those released.
long LiveAllocations();
// The bytes in allocated blocks, and their maximum since the last call of LetFail.
long LiveBytes();
long MostBytes();

// Called after each call on a file that succeeded, on the same thread, with the path that the
// system gives for the descriptor. An empty observer removes the last one.
using Observer = std::function<void(Kind kind, const std::string& path)>;
void SetObserver(Observer observer);

// While one exists, the calls of its thread are the test's own: they do not fail and are not
// observed.
class ScopedBypass {
  public:
    ScopedBypass();
    ~ScopedBypass();
    ScopedBypass(const ScopedBypass&) = delete;
    ScopedBypass& operator=(const ScopedBypass&) = delete;
};

}  // namespace calls
