#pragma once

#include <stdint.h>

#include <atomic>

#include <utils/StrongPointer.h>

namespace android {

// Reference counting with libutils' semantics: the object dies with its last strong
// reference (wp only observes), onFirstRef runs on the first strong reference and
// onLastStrongRef just before the object is deleted.
class RefBase {
public:
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    void forceIncStrong(const void* id) const;
    int32_t getStrongCount() const;

    class weakref_type {
    public:
        RefBase* refBase() const;
        void incWeak(const void* id);
        void decWeak(const void* id);
        bool attemptIncStrong(const void* id);
        int32_t getWeakCount() const;
    };

    weakref_type* createWeak(const void* id) const;
    weakref_type* getWeakRefs() const;

protected:
    RefBase();
    virtual ~RefBase();

    virtual void onFirstRef();
    virtual void onLastStrongRef(const void* id);

private:
    friend class weakref_type;
    class weakref_impl;

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    weakref_impl* const mRefs;
};

template <class T>
class LightRefBase {
public:
    LightRefBase() : mCount(0) {}
    void incStrong(const void*) const { mCount.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(const void*) const {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete static_cast<const T*>(this);
        }
    }
    int32_t getStrongCount() const { return mCount.load(std::memory_order_relaxed); }

protected:
    ~LightRefBase() {}

private:
    mutable std::atomic<int32_t> mCount;
};

template <typename T>
class wp {
public:
    wp() : m_ptr(nullptr), m_refs(nullptr) {}
    wp(T* other) : m_ptr(other), m_refs(other ? other->createWeak(this) : nullptr) {}
    wp(const sp<T>& other) : wp(other.get()) {}
    wp(const wp<T>& other) : m_ptr(other.m_ptr), m_refs(other.m_refs) {
        if (m_ptr) m_refs->incWeak(this);
    }
    template <typename U>
    wp(const sp<U>& other) : wp(static_cast<T*>(other.get())) {}
    ~wp() {
        if (m_ptr) m_refs->decWeak(this);
    }
    wp& operator=(const wp<T>& other) {
        if (other.m_ptr) other.m_refs->incWeak(this);
        if (m_ptr) m_refs->decWeak(this);
        m_ptr = other.m_ptr;
        m_refs = other.m_refs;
        return *this;
    }
    wp& operator=(const sp<T>& other) { return *this = wp<T>(other); }

    sp<T> promote() const {
        sp<T> result;
        if (m_ptr && m_refs->attemptIncStrong(&result)) result.force_set(m_ptr);
        return result;
    }
    void clear() {
        if (m_ptr) {
            m_refs->decWeak(this);
            m_ptr = nullptr;
            m_refs = nullptr;
        }
    }
    T* unsafe_get() const { return m_ptr; }
    bool operator==(const wp<T>& o) const { return m_ptr == o.m_ptr; }
    bool operator!=(const wp<T>& o) const { return m_ptr != o.m_ptr; }

private:
    T* m_ptr;
    RefBase::weakref_type* m_refs;
};

}  // namespace android
