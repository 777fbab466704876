#include "system_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <new>

namespace calls {
namespace {

struct KindTraits {
    const char* name;
    int error;
};
constexpr KindTraits kTraits[kKinds + 1] = {
        {"allocation", ENOMEM}, {"open", EMFILE},           {"fstat", EIO},     {"lseek", EIO},
        {"mmap", ENOMEM},       {"fdopen", ENOMEM},         {"ftruncate", EIO}, {"fread", EIO},
        {"fwrite", ENOSPC},     {"fflush", ENOSPC},         {"fsync", EIO},     {"close", EIO},
        {"fclose", EIO},        {"pthread_create", EAGAIN}, {"nothing", 0}};

std::atomic<int> gKind{kKinds};
std::atomic<int> gLeft{0};  // The call that makes it 0 fails.
std::atomic<bool> gHasFailed{false};
std::atomic<long> gLive{0};
std::atomic<long> gLiveBytes{0};
std::atomic<long> gMostBytes{0};  // Exact if one thread allocates.
std::atomic<FILE*> gFailedReading{nullptr};
Observer gObserver;
thread_local int gTestsOwn = 0;

// Whether this call may go on. If not, sets errno.
bool Passes(Kind kind) {
    if (gTestsOwn > 0) return true;
    if (gKind != kind || --gLeft != 0) return true;
    gHasFailed = true;
    errno = kTraits[kind].error;
    return false;
}

template <typename Result>
Result Observed(Kind kind, int fd, bool succeeded, Result result) {
    if (!succeeded || !gObserver || gTestsOwn > 0) return result;
    const ScopedBypass own;
    const int error = errno;
    gObserver(kind, std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)));
    errno = error;
    return result;
}

void* Counted(void* memory) {
    if (memory == nullptr) return nullptr;
    ++gLive;
    gLiveBytes += static_cast<long>(malloc_usable_size(memory));
    gMostBytes = std::max<long>(gMostBytes, gLiveBytes);
    return memory;
}
void Discount(void* memory) {
    if (memory == nullptr) return;
    --gLive;
    gLiveBytes -= static_cast<long>(malloc_usable_size(memory));
}

}  // namespace

const char* Name(Kind kind) {
    return kTraits[kind].name;
}
void LetFail(Kind kind, int n) {
    gHasFailed = false;
    gFailedReading = nullptr;
    gMostBytes = gLiveBytes.load();
    gLeft = n;
    gKind = kind;
}
bool HasFailed() {
    return gHasFailed;
}
long LiveAllocations() {
    return gLive;
}
long LiveBytes() {
    return gLiveBytes;
}
long MostBytes() {
    return gMostBytes;
}
void SetObserver(Observer observer) {
    gObserver = std::move(observer);
}
ScopedBypass::ScopedBypass() {
    ++gTestsOwn;
}
ScopedBypass::~ScopedBypass() {
    --gTestsOwn;
}

}  // namespace calls

using namespace calls;

// The linker redirects calls from every object in the program to the __wrap_ functions, and the
// __real_ functions are those of the system or of the sanitizer in front of it.
#define WRAP(type, name, parameters)          \
    extern "C" type __real_##name parameters; \
    extern "C" type __wrap_##name parameters; \
    extern "C" type __wrap_##name parameters

WRAP(void*, malloc, (size_t size)) {
    return Passes(kAllocation) ? Counted(__real_malloc(size)) : nullptr;
}
WRAP(void*, calloc, (size_t count, size_t size)) {
    return Passes(kAllocation) ? Counted(__real_calloc(count, size)) : nullptr;
}
WRAP(void*, realloc, (void* memory, size_t size)) {
    if (!Passes(kAllocation)) return nullptr;
    // While a block grows, the old one and the new one may exist at once.
    if (memory != nullptr && size > malloc_usable_size(memory))
        gMostBytes = std::max<long>(gMostBytes, gLiveBytes + static_cast<long>(size));
    Discount(memory);
    return Counted(__real_realloc(memory, size));
}
WRAP(void, free, (void* memory)) {
    Discount(memory);
    __real_free(memory);
}
WRAP(int, open, (const char* path, int flags, ...)) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    if (!Passes(kOpen)) return -1;
    const int fd = __real_open(path, flags, mode);
    return Observed(kOpen, fd, fd >= 0, fd);
}
WRAP(int, fstat, (int fd, struct stat* status)) {
    return Passes(kStatus) ? __real_fstat(fd, status) : -1;
}
WRAP(off_t, lseek, (int fd, off_t offset, int whence)) {
    return Passes(kSeek) ? __real_lseek(fd, offset, whence) : -1;
}
WRAP(void*, mmap, (void* at, size_t size, int access, int flags, int fd, off_t offset)) {
    void* const failed = reinterpret_cast<void*>(-1);  // MAP_FAILED
    void* mapping = Passes(kMap) ? __real_mmap(at, size, access, flags, fd, offset) : failed;
    if (mapping != failed) ++gLive;
    return mapping;
}
WRAP(int, munmap, (void* mapping, size_t size)) {
    --gLive;
    return __real_munmap(mapping, size);
}
WRAP(FILE*, fdopen, (int fd, const char* mode)) {
    return Passes(kStream) ? __real_fdopen(fd, mode) : nullptr;
}
WRAP(int, ftruncate, (int fd, off_t size)) {
    if (!Passes(kCut)) return -1;
    const int result = __real_ftruncate(fd, size);
    return Observed(kCut, fd, result == 0, result);
}
WRAP(size_t, fread, (void* to, size_t size, size_t count, FILE* file)) {
    if (Passes(kRead)) return __real_fread(to, size, count, file);
    gFailedReading = file;
    return 0;
}
WRAP(int, ferror, (FILE * file)) {
    return gFailedReading.exchange(nullptr) == file ? 1 : __real_ferror(file);
}
WRAP(size_t, fwrite, (const void* from, size_t size, size_t count, FILE* file)) {
    const bool passes = Passes(kWrite);
    // A full disk takes a part of the bytes.
    const size_t written = __real_fwrite(from, size, passes ? count : count / 2, file);
    if (!passes) errno = ENOSPC;
    return Observed(kWrite, fileno(file), true, written);
}
WRAP(int, fflush, (FILE * file)) {
    if (!Passes(kFlush)) return EOF;
    const int result = __real_fflush(file);
    return file == nullptr ? result : Observed(kFlush, fileno(file), result == 0, result);
}
WRAP(int, fsync, (int fd)) {
    if (!Passes(kSynchronise)) return -1;
    const int result = fcntl(fd, F_GETFD) >= 0 ? 0 : -1;  // No test needs the disk to be written.
    return Observed(kSynchronise, fd, result == 0, result);
}
// A close that fails has closed the file all the same.
WRAP(int, close, (int fd)) {
    const bool passes = Passes(kClose);
    const int result = __real_close(fd);
    if (!passes) errno = EIO;
    return passes ? result : -1;
}
WRAP(int, fclose, (FILE * file)) {
    const bool passes = Passes(kCloseStream);
    if (__real_fflush(file) == 0) Observed(kCloseStream, fileno(file), true, 0);
    const int result = __real_fclose(file);
    return passes ? result : EOF;
}

// The standard library calls this one, where the linker does not redirect calls. A sanitizer lets
// its function be replaced and offers the original under another name.
extern "C" __attribute__((weak)) int __interceptor_pthread_create(pthread_t*, const pthread_attr_t*,
                                                                  void* (*)(void*), void*);
extern "C" __attribute__((visibility("default"))) int pthread_create(
        pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
    static const auto original = [] {
        const ScopedBypass own;
        return __interceptor_pthread_create != nullptr
                       ? &__interceptor_pthread_create
                       : reinterpret_cast<decltype(&pthread_create)>(
                                 dlsym(RTLD_NEXT, "pthread_create"));
    }();
    if (!Passes(kThread)) return EAGAIN;
    return original(thread, attributes, run, argument);
}

// Not inlined: the compiler would warn that memory of malloc is released by delete.
__attribute__((noinline)) void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return __wrap_malloc(size);
}
__attribute__((noinline)) void* operator new(size_t size) {
    void* memory = __wrap_malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
__attribute__((noinline)) void operator delete(void* memory) noexcept {
    __wrap_free(memory);
}
__attribute__((noinline)) void operator delete(void* memory, size_t) noexcept {
    __wrap_free(memory);
}
