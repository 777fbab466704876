// What may leave a call into a client's code.
#pragma once

#include <exception>

// Stands between a try block around such a call and its `catch (...)`. A client that ends its
// thread inside the call has the stack unwound by force: some runtimes do that as an exception,
// which must not be kept from going on, or the process ends.
#ifdef __GLIBCXX__
#include <cxxabi.h>
#define RETHROW_END_OF_THREAD             \
    catch (const abi::__forced_unwind&) { \
        throw;                            \
    }
#else
#define RETHROW_END_OF_THREAD
#endif
