// Intrusive reference counting, as the platform's utility library offers it.
//
// Counts are atomic: references to one object may be made and dropped on any threads. A single
// reference (one sp or wp variable) belongs to one thread at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace android {

// Base of shared objects; deleted when the last strong reference goes. Derive virtually where a
// class may inherit it twice.
class RefBase {
  public:
    // The counts of an object. Outlives it while weak references remain.
    class weakref_type {
      public:
        void incWeak();
        void decWeak();
        // Takes a strong reference if the object still has one; false once it is gone.
        bool attemptIncStrong();

      private:
        friend class RefBase;
        std::atomic<int32_t> mStrong{0};
        std::atomic<int32_t> mWeak{1};  // The object itself holds one.
    };

    // `id` names the holder; it is not looked at.
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    int32_t getStrongCount() const;
    weakref_type* getWeakRefs() const { return mRefs; }

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

  protected:
    RefBase();
    virtual ~RefBase();

  private:
    weakref_type* const mRefs;
};

// A strong reference to a T, or empty.
template <typename T>
class sp {
  public:
    sp() = default;
    sp(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): as the platform has it.
    sp(T* object) : mObject(object) {  // NOLINT(google-explicit-constructor)
        if (mObject != nullptr) mObject->incStrong(this);
    }
    sp(const sp& other) : sp(other.mObject) {}
    sp(sp&& other) noexcept : mObject(other.mObject) { other.mObject = nullptr; }
    template <typename U>
    sp(const sp<U>& other) : sp(other.get()) {}  // NOLINT(google-explicit-constructor)
    ~sp() { clear(); }

    // As on the platform, the old object is released before the new one is stored: what its end
    // calls finds the old reference here. Assigning a reference to itself changes nothing.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
    sp& operator=(const sp& other) {
        T* const object = other.mObject;
        if (object != nullptr) object->incStrong(this);
        if (mObject != nullptr) mObject->decStrong(this);
        mObject = object;
        return *this;
    }
    sp& operator=(sp&& other) noexcept {
        if (mObject != nullptr) mObject->decStrong(this);
        mObject = std::exchange(other.mObject, nullptr);
        return *this;
    }

    void clear() {
        if (mObject != nullptr) mObject->decStrong(this);
        mObject = nullptr;
    }

    T* get() const { return mObject; }
    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }

    friend bool operator==(const sp& a, const sp& b) { return a.mObject == b.mObject; }
    friend bool operator!=(const sp& a, const sp& b) { return a.mObject != b.mObject; }
    friend bool operator==(const sp& a, std::nullptr_t) { return a.mObject == nullptr; }
    friend bool operator!=(const sp& a, std::nullptr_t) { return a.mObject != nullptr; }

  private:
    template <typename U>
    friend class wp;

    T* mObject = nullptr;
};

// A weak reference to a T, or empty: it does not keep the object alive.
template <typename T>
class wp {
  public:
    wp() = default;
    wp(const sp<T>& object) : wp(object.get()) {}  // NOLINT(google-explicit-constructor)
    wp(T* object) : mObject(object) {              // NOLINT(google-explicit-constructor)
        if (mObject == nullptr) return;
        mRefs = mObject->getWeakRefs();
        mRefs->incWeak();
    }
    wp(const wp& other) : mObject(other.mObject), mRefs(other.mRefs) {
        if (mRefs != nullptr) mRefs->incWeak();
    }
    ~wp() {
        if (mRefs != nullptr) mRefs->decWeak();
    }
    wp& operator=(wp other) noexcept {
        std::swap(mObject, other.mObject);
        std::swap(mRefs, other.mRefs);
        return *this;
    }

    // A strong reference, empty before the object has its first one and once it is gone.
    sp<T> promote() const {
        sp<T> strong;
        if (mRefs != nullptr && mRefs->attemptIncStrong()) strong.mObject = mObject;
        return strong;
    }

  private:
    T* mObject = nullptr;
    RefBase::weakref_type* mRefs = nullptr;
};

}  // namespace android
