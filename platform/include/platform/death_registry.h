// The death of object owners, as a program on the host declares it.
//
// IBase::linkToDeath records a recipient for an object, IBase::unlinkToDeath removes it, and the
// end of the object goes without a notice. Links hold their recipient, not the object. A library
// that linked recipients must unlink them, or its clients must not end, before it is unloaded.
//
// The platform's runtime differs: a link to an object of the own process is never told of, links
// hold their recipient weakly, and one call of unlinkToDeath takes one link away, of the reference
// on which it was made.
#pragma once

#include <android/hidl/base/1.0/IBase.h>

namespace platform {

// Declares that the owner of `object` has ended: removes each link to it and tells its recipient
// once, on a thread of this layer's own. Returns when all have been told, so the caller must
// hold no lock that a recipient takes. Any thread may call, a recipient's own notice too.
void EndOwnerOf(const android::sp<android::hidl::base::V1_0::IBase>& object);

}  // namespace platform
