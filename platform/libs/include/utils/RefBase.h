// Stand-in for the intrusive reference counting of the platform's utility library.
//
// The counts are atomic: any threads may make and release references to one object at the same
// time. A single reference (one sp or wp variable) needs one thread at a time. Nothing here fails,
// except the constructor of RefBase, which throws std::bad_alloc without memory.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace android {

// Base class of shared objects. The release of the last strong reference deletes the object, on the
// thread that releases it. An object without a strong reference yet is not deleted. Derive
// virtually if a class may inherit it twice.
class RefBase {
  public:
    // The counts of an object. They exist until the object and all weak references are gone.
    class weakref_type {
      public:
        void incWeak();
        void decWeak();
        // Takes a strong reference if the object has one. Returns false if it has none: before the
        // first one is taken, and once the object is gone.
        bool attemptIncStrong();

      private:
        friend class RefBase;
        std::atomic<int32_t> mStrong{0};
        std::atomic<int32_t> mWeak{1};  // The object itself holds one.
    };

    // `id` identifies the holder; it is ignored.
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

// A strong reference to a T, or empty. Keeps the object alive.
template <typename T>
class sp {
  public:
    sp() = default;
    sp(std::nullptr_t) {}              // NOLINT(google-explicit-constructor): as on the platform.
    sp(T* object) : mObject(object) {  // NOLINT(google-explicit-constructor)
        if (mObject != nullptr) mObject->incStrong(this);
    }
    sp(const sp& other) : sp(other.mObject) {}
    sp(sp&& other) noexcept : mObject(other.mObject) { other.mObject = nullptr; }
    template <typename U>
    sp(const sp<U>& other) : sp(other.get()) {}  // NOLINT(google-explicit-constructor)
    ~sp() { clear(); }

    // As on the platform, the old object is released before the new one is stored. If that destroys
    // the old object, code called by its destructor still sees the old reference here. Assigning a
    // reference to itself changes nothing.
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

// A weak reference to a T, or empty. Does not keep the object alive.
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

    // Returns a strong reference. It is empty before the object has its first strong reference and
    // once the object is gone.
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
