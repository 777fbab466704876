// Lets a program declare that the owner of an object has died.
//
// IBase::linkToDeath links a recipient to an object; IBase::unlinkToDeath removes the link. The
// destruction of the object removes its links without a notice. A link holds a strong reference to
// its recipient and none to the object. Before a library that linked recipients is unloaded, it
// must unlink them, or EndOwnerOf must not be called for their objects any more.
//
// The platform's runtime differs in three points. It sends no notices for objects of the same
// process. Its links hold their recipients weakly. One call of unlinkToDeath removes one link,
// which must have been made on the same reference.
#pragma once

#include <android/hidl/base/1.0/IBase.h>

namespace platform {

// Declares that the owner of `object` has died. Removes each link to the object and calls its
// recipient once, in the order of the links, on a new thread and under no lock. Returns when all
// recipients have returned, so the caller must hold no lock that a recipient takes. Throws
// std::system_error or std::bad_alloc if the thread cannot start; the links then remain. A
// recipient that throws ends the process. Any thread may call, also a recipient from inside its
// notice.
void EndOwnerOf(const android::sp<android::hidl::base::V1_0::IBase>& object);

}  // namespace platform
