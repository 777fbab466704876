// A growing array for code without exceptions: running out of memory is a return value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace zonedetect {

// Owns its values and moves them as bytes. A call that returns false has changed nothing. One
// thread at a time may use an array.
template <typename T>
class GrowingArray {
    static_assert(std::is_trivially_copyable<T>::value, "realloc moves the values");

  public:
    GrowingArray() = default;
    GrowingArray(const GrowingArray&) = delete;
    GrowingArray& operator=(const GrowingArray&) = delete;
    ~GrowingArray() { std::free(mValues); }

    // Ensures a capacity of `capacity` values. Returns false without memory.
    bool Reserve(size_t capacity) {
        return capacity <= mCapacity || (capacity <= SIZE_MAX / sizeof(T) && Resize(capacity));
    }

    // Ensures capacity for `count` more values. If it has to grow, it at least doubles. Returns
    // false without memory.
    bool ReserveMore(size_t count) {
        if (count <= mCapacity - mSize) return true;
        return Reserve(mCapacity + (count > mCapacity ? count : mCapacity));
    }

    // Appends a value. Requires capacity.
    void Push(const T& value) { mValues[mSize++] = value; }
    // Sets the number of values. Requires capacity. New values are indeterminate.
    void SetSize(size_t size) { mSize = size; }

    // Frees unused capacity, if possible.
    void Trim() {
        if (mSize < mCapacity && mSize > 0) static_cast<void>(Resize(mSize));
    }

    size_t Size() const { return mSize; }
    T* begin() { return mValues; }
    T* end() { return mValues + mSize; }
    const T* begin() const { return mValues; }
    const T* end() const { return mValues + mSize; }
    T& operator[](size_t index) { return mValues[index]; }
    const T& operator[](size_t index) const { return mValues[index]; }

  private:
    bool Resize(size_t capacity) {
        auto* values = static_cast<T*>(std::realloc(mValues, capacity * sizeof(T)));
        if (values == nullptr) return false;
        mValues = values;
        mCapacity = capacity;
        return true;
    }

    T* mValues = nullptr;
    size_t mSize = 0;
    size_t mCapacity = 0;
};

}  // namespace zonedetect
