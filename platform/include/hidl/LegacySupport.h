// How a process offers the object of a library to other processes.
#pragma once

#include <utils/Errors.h>

namespace android::hardware {

// Offers the object that the library of `Interface` has under the name "default", and serves calls
// for as long as the process lives. A host has no service manager: returns NAME_NOT_FOUND.
template <typename Interface>
status_t defaultPassthroughServiceImplementation() {
    static_assert(Interface::descriptor != nullptr, "an interface of a package");
    return NAME_NOT_FOUND;
}

}  // namespace android::hardware
