#include <utils/RefBase.h>

namespace android {

void RefBase::weakref_type::incWeak() {
    mWeak.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::weakref_type::decWeak() {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

bool RefBase::weakref_type::attemptIncStrong() {
    int32_t strong = mStrong.load(std::memory_order_relaxed);
    while (strong > 0) {
        if (mStrong.compare_exchange_weak(strong, strong + 1, std::memory_order_acq_rel)) {
            return true;
        }
    }
    return false;
}

RefBase::RefBase() : mRefs(new weakref_type) {}

RefBase::~RefBase() {
    mRefs->decWeak();
}

void RefBase::incStrong(const void* /*id*/) const {
    mRefs->mStrong.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::decStrong(const void* /*id*/) const {
    if (mRefs->mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

int32_t RefBase::getStrongCount() const {
    return mRefs->mStrong.load(std::memory_order_relaxed);
}

}  // namespace android
