// Calls into a client's code.
#pragma once

#include <exception>

// Calls a client by `call`, which returns what the interface's method does. The result and any
// exception are ignored: the runtime demands that the result be looked at, and an exception of a
// client in this process must not end the caller. The caller holds no lock.
template <typename Call>
void CallClient(const Call& call) {
    try {
        static_cast<void>(call().isOk());
    } catch (...) {
        // A client that ends its thread in the call has the stack unwound by force. That passes
        // here as something that is no exception, and must go on, or the process ends.
        // cppcheck-suppress rethrowNoCurrentException ; it can be thrown on.
        if (std::current_exception() == nullptr) throw;
    }
}
