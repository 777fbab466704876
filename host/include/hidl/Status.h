// What an interface method returns: whether the call got through, and its value.
#pragma once

#include <utility>

namespace android::hardware {

namespace details {

// Calls within one process always get through; the status has no other state here.
class return_status {
  public:
    bool isOk() const { return true; }
};

}  // namespace details

template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : mValue(std::move(value)) {}  // NOLINT(google-explicit-constructor)
    operator T() const { return mValue; }          // NOLINT(google-explicit-constructor)

  private:
    T mValue;
};

template <>
class Return<void> : public details::return_status {};

inline Return<void> Void() {
    return {};
}

}  // namespace android::hardware
