// Strings, vectors and death recipients as they cross the interfaces.
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

// A byte string of any content, zero-terminated at c_str().
class hidl_string {
  public:
    hidl_string() = default;
    // Null is the empty string.
    hidl_string(const char* text)  // NOLINT(google-explicit-constructor)
        : mOwned(text != nullptr ? text : "") {}
    hidl_string(const char* bytes, size_t size) : mOwned(bytes, size) {}
    hidl_string(std::string text)  // NOLINT(google-explicit-constructor)
        : mOwned(std::move(text)) {}

    // Refers to `size` bytes with a zero behind them, which must outlive this string. A copy of it
    // owns its bytes.
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

    // As on the platform, up to the first zero.
    friend bool operator==(const hidl_string& a, const hidl_string& b) {
        return std::strcmp(a.c_str(), b.c_str()) == 0;
    }
    friend bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }

  private:
    std::string mOwned;
    const char* mExternal = nullptr;  // Not null: the string's bytes instead of mOwned.
    size_t mExternalSize = 0;
};

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

// Handles to files are not carried by this layer; the type stands in a signature only.
class hidl_handle {};

// Told when the owner of an object that it is linked to has ended.
class hidl_death_recipient : public virtual RefBase {
  public:
    // `who` is the object whose owner ended, `cookie` the number given with the link. Called
    // on a thread of the runtime.
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

}  // namespace android::hardware
