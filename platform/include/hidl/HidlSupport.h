// Stand-in for the types that cross the platform's interfaces: strings, vectors, death recipients.
//
// One thread at a time may use an object of these types; const calls may run at the same time.
// Making or copying a string or a vector throws std::bad_alloc without memory and changes nothing.
#pragma once

#include <utils/RefBase.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace android::hidl::base::V1_0 {
struct IBase;
}

namespace android::hardware {

// A string of any bytes. c_str() is zero-terminated. It owns its bytes, unless setToExternal lent
// it some.
class hidl_string {
  public:
    hidl_string() = default;
    // Null makes the empty string.
    hidl_string(const char* text)  // NOLINT(google-explicit-constructor)
        : mOwned(text != nullptr ? text : "") {}
    hidl_string(const char* bytes, size_t size) : mOwned(bytes, size) {}
    hidl_string(std::string text)  // NOLINT(google-explicit-constructor)
        : mOwned(std::move(text)) {}

    // Makes the string borrow `size` bytes at `bytes`, which a zero byte must follow. The bytes
    // must outlive this string and any string moved from it. A copy of the string owns its bytes.
    // Cannot fail.
    void setToExternal(const char* bytes, size_t size) {
        mExternal = bytes;
        mExternalSize = size;
    }

    hidl_string(const hidl_string& other) : mOwned(other.c_str(), other.size()) {}
    hidl_string(hidl_string&& other) = default;
    hidl_string& operator=(hidl_string other) noexcept {
        mOwned.swap(other.mOwned);
        mExternal = other.mExternal;
        mExternalSize = other.mExternalSize;
        return *this;
    }
    ~hidl_string() = default;

    const char* c_str() const { return mExternal != nullptr ? mExternal : mOwned.c_str(); }
    size_t size() const { return mExternal != nullptr ? mExternalSize : mOwned.size(); }
    bool empty() const { return size() == 0; }
    operator std::string() const {  // NOLINT(google-explicit-constructor)
        return {c_str(), size()};
    }

    // As on the platform, compares up to the first zero byte.
    friend bool operator==(const hidl_string& a, const hidl_string& b) {
        return std::strcmp(a.c_str(), b.c_str()) == 0;
    }
    friend bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }

  private:
    std::string mOwned;
    const char* mExternal = nullptr;  // If not null: the bytes of the string, instead of mOwned.
    size_t mExternalSize = 0;
};

// A sequence of values that it owns.
template <typename T>
class hidl_vec {
  public:
    hidl_vec() = default;
    hidl_vec(std::initializer_list<T> items) : mItems(items) {}
    hidl_vec(std::vector<T> items)  // NOLINT(google-explicit-constructor)
        : mItems(std::move(items)) {}

    const T* data() const { return mItems.data(); }
    size_t size() const { return mItems.size(); }
    const T* begin() const { return mItems.data(); }
    const T* end() const { return mItems.data() + mItems.size(); }
    const T& operator[](size_t index) const { return mItems[index]; }

  private:
    std::vector<T> mItems;
};

template <typename T, size_t kSize>
using hidl_array = std::array<T, kSize>;

// Appears in a signature only: this stand-in does not pass file handles.
class hidl_handle {};

// Is told when the process that owns a linked object has died. IBase::linkToDeath makes the link.
class hidl_death_recipient : public virtual RefBase {
  public:
    // `who` is the object whose owner died, `cookie` the number given to linkToDeath. Called on a
    // thread of the runtime, under no lock of the runtime.
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

}  // namespace android::hardware
