// What may leave a call into a client's code.
#pragma once

#include <exception>

// To be called first in the `catch (...)` around such a call. A client that ends its thread inside
// the call has the stack unwound by force; where that passes here, as something that is no
// exception, it must not be kept from going on, or the process ends.
inline void LetThreadEnd() {
    // cppcheck-suppress rethrowNoCurrentException ; what passes is no exception, but can be thrown
    // on.
    if (std::current_exception() == nullptr) throw;
}
