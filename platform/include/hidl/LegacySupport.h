// Stand-in for the registration of a library's service object with the service manager.
#pragma once

#include <utils/Errors.h>

namespace android::hardware {

// On the platform: offers the object of the library of `Interface` under the name "default", and
// serves calls until the process ends. Here there is no service manager: returns NAME_NOT_FOUND at
// once.
template <typename Interface>
status_t defaultPassthroughServiceImplementation() {
    static_assert(Interface::descriptor != nullptr, "an interface of a package");
    return NAME_NOT_FOUND;
}

}  // namespace android::hardware
