// The calls by which the service asks the system for memory, files and threads. Programs whose
// calls the linker wraps (tests/CMakeLists.txt) can let one fail and look on.
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

// The n-th call of the kind from now on fails (from 1; 0: none). All that came before is forgotten.
void LetFail(Kind kind, int n);
bool HasFailed();  // Since then.

// What is allocated and not freed, or mapped and not unmapped, by what is linked into the program.
long LiveAllocations();
// The bytes allocated and not freed, and the most of them since the last call of LetFail.
long LiveBytes();
long MostBytes();

// Called after each call on a file that succeeded, on the thread that made it, with the path (that
// of the descriptor) as the system names it. Empty: nobody looks on.
using Observer = std::function<void(Kind kind, const std::string& path)>;
void SetObserver(Observer observer);

// While one lives, this thread's calls are the test's own: they neither fail nor are observed.
class ScopedBypass {
  public:
    ScopedBypass();
    ~ScopedBypass();
    ScopedBypass(const ScopedBypass&) = delete;
    ScopedBypass& operator=(const ScopedBypass&) = delete;
};

}  // namespace calls
