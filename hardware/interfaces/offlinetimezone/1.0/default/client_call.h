// Calls into a client's code.
#pragma once

#include <exception>

// Calls a client through `call`, which returns the result of an interface method. Ignores the
// result and any exception: the runtime aborts the process if a failed result is not checked, and
// an exception of a client in this process must not end the calling thread. A forced unwind (thread
// cancellation, pthread_exit) passes through. The caller must hold no lock.
template <typename Call>
void CallClient(const Call& call) {
    try {
        static_cast<void>(call().isOk());
    } catch (...) {
        // Rethrow a forced unwind: the C library ends the process if it stops here. It is not a C++
        // exception, so there is no current exception.
        // cppcheck-suppress rethrowNoCurrentException ; a forced unwind can be rethrown.
        if (std::current_exception() == nullptr) throw;
    }
}
