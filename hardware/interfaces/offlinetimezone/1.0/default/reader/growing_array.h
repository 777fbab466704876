// An array for code without exceptions: growing it can fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

namespace zonedetect {

// Owns its values, which are copied as bytes. A failed call changes nothing.
template <typename T>
class GrowingArray {
    static_assert(std::is_trivially_copyable<T>::value, "realloc moves the values");

  public:
    GrowingArray() = default;
    GrowingArray(const GrowingArray&) = delete;
    GrowingArray& operator=(const GrowingArray&) = delete;
    ~GrowingArray() { std::free(mValues); }

    // Makes room for `capacity` values. False when memory is short.
    bool Reserve(size_t capacity) {
        return capacity <= mCapacity || (capacity <= SIZE_MAX / sizeof(T) && Resize(capacity));
    }

    // Makes room for `count` values behind those in use, at least doubling what has to grow. False
    // when memory is short.
    bool ReserveMore(size_t count) {
        if (count <= mCapacity - mSize) return true;
        return Reserve(mCapacity + (count > mCapacity ? count : mCapacity));
    }

    // Adds a value for which there is room.
    void Push(const T& value) { mValues[mSize++] = value; }
    // Takes so many values as in use, for which there is room; new ones hold anything.
    void SetSize(size_t size) { mSize = size; }

    // Gives back the room that is not in use.
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
