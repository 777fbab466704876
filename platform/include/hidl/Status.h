// What an interface method returns: whether the call got through, and its value.
#pragma once

#include <utils/Errors.h>

#include <cstdlib>
#include <utility>

namespace android {
namespace hardware {

// How a call ended.
class Status {
  public:
    static Status ok() { return Status(OK); }
    static Status fromStatusT(status_t status) { return Status(status); }
    bool isOk() const { return mStatus == OK; }

  private:
    explicit Status(status_t status) : mStatus(status) {}
    status_t mStatus;
};

namespace details {

// Whether a call got through. Calls of this layer do, within one process; an implementation may say
// otherwise by the Status that it returns. As on the platform, a failure that nobody asked for ends
// the process.
class return_status {
  public:
    return_status() = default;
    return_status(const Status& status)  // NOLINT(google-explicit-constructor)
        : mIsOk(status.isOk()), mIsChecked(status.isOk()) {}
    return_status(return_status&& other) noexcept
        : mIsOk(other.mIsOk), mIsChecked(std::exchange(other.mIsChecked, true)) {}
    return_status& operator=(return_status&&) = delete;
    ~return_status() {
        if (!mIsChecked) std::abort();
    }

    bool isOk() const {
        mIsChecked = true;
        return mIsOk;
    }

  private:
    bool mIsOk = true;
    mutable bool mIsChecked = true;
};

}  // namespace details

template <typename T>
class Return : public details::return_status {
  public:
    Return(const Status& status) : return_status(status) {}  // NOLINT(google-explicit-constructor)
    Return(T value) : mValue(std::move(value)) {}            // NOLINT(google-explicit-constructor)
    // The value; there is none where the call failed, and asking for it ends the process.
    operator T() const {  // NOLINT(google-explicit-constructor)
        if (!isOk()) std::abort();
        return mValue;
    }

  private:
    T mValue{};
};

template <>
class Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(const Status& status) : return_status(status) {}  // NOLINT(google-explicit-constructor)
};

inline Return<void> Void() {
    return {};
}

}  // namespace hardware
}  // namespace android
