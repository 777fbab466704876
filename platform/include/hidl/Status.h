// Stand-in for the result of an interface method: whether the call succeeded, and its value.
//
// One thread at a time may use a result.
#pragma once

#include <utils/Errors.h>

#include <cstdlib>
#include <utility>

namespace android {
namespace hardware {

// The outcome of a call.
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

// Whether a call succeeded. Within one process calls succeed, unless the implementation returns
// another Status. As on the platform, the destructor of a failed result that nobody checked with
// isOk() aborts the process. Moving a result moves the duty to check it.
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

// The result of a method that returns a T.
template <typename T>
class Return : public details::return_status {
  public:
    Return(const Status& status) : return_status(status) {}  // NOLINT(google-explicit-constructor)
    Return(T value) : mValue(std::move(value)) {}            // NOLINT(google-explicit-constructor)
    // Returns the value. Aborts the process if the call failed.
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
