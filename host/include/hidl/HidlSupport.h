// Strings, vectors and death recipients as they cross the interfaces.
#pragma once

#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>
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
        : mText(text != nullptr ? text : "") {}
    hidl_string(const char* bytes, size_t size) : mText(bytes, size) {}
    hidl_string(std::string text)  // NOLINT(google-explicit-constructor)
        : mText(std::move(text)) {}

    const char* c_str() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }
    bool empty() const { return mText.empty(); }
    operator std::string() const { return mText; }  // NOLINT(google-explicit-constructor)

    friend bool operator==(const hidl_string& a, const hidl_string& b) {
        return a.mText == b.mText;
    }
    friend bool operator!=(const hidl_string& a, const hidl_string& b) { return !(a == b); }

  private:
    std::string mText;
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

// Told when the owner of an object that it is linked to has ended.
class hidl_death_recipient : public virtual RefBase {
  public:
    // `who` is the object whose owner ended, `cookie` the number given with the link. Called
    // on a thread of the runtime.
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

}  // namespace android::hardware
