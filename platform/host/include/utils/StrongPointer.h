#pragma once

#include <functional>
#include <type_traits>
#include <utility>

namespace android {

template <typename T>
class wp;

// Strong pointer over any type with incStrong/decStrong (RefBase and LightRefBase).
template <typename T>
class sp {
public:
    sp() : m_ptr(nullptr) {}
    sp(std::nullptr_t) : m_ptr(nullptr) {}
    sp(T* other) : m_ptr(other) {
        if (other) other->incStrong(this);
    }
    sp(const sp<T>& other) : m_ptr(other.m_ptr) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    sp(sp<T>&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    sp(U* other) : m_ptr(other) {
        if (other) m_ptr->incStrong(this);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    sp(const sp<U>& other) : m_ptr(other.get()) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    sp(sp<U>&& other) : m_ptr(other.get()) {
        other.m_ptr = nullptr;
    }
    ~sp() {
        if (m_ptr) m_ptr->decStrong(this);
    }

    template <typename... Args>
    static sp<T> make(Args&&... args) {
        return sp<T>(new T(std::forward<Args>(args)...));
    }

    sp& operator=(const sp<T>& other) {
        T* old = m_ptr;
        T* next = other.m_ptr;
        if (next) next->incStrong(this);
        m_ptr = next;
        if (old) old->decStrong(this);
        return *this;
    }
    sp& operator=(sp<T>&& other) noexcept {
        if (this != &other) {
            T* old = m_ptr;
            m_ptr = other.m_ptr;
            other.m_ptr = nullptr;
            if (old) old->decStrong(this);
        }
        return *this;
    }
    sp& operator=(T* other) {
        if (other) other->incStrong(this);
        T* old = m_ptr;
        m_ptr = other;
        if (old) old->decStrong(this);
        return *this;
    }
    template <typename U>
    sp& operator=(const sp<U>& other) {
        return *this = sp<T>(other);
    }
    sp& operator=(std::nullptr_t) {
        clear();
        return *this;
    }

    void clear() {
        T* old = m_ptr;
        m_ptr = nullptr;
        if (old) old->decStrong(this);
    }

    T& operator*() const { return *m_ptr; }
    T* operator->() const { return m_ptr; }
    T* get() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

    // Takes over a pointer whose strong count was raised by the caller (wp::promote).
    void force_set(T* other) { m_ptr = other; }

private:
    template <typename Y>
    friend class sp;
    template <typename Y>
    friend class wp;
    T* m_ptr;
};

template <typename T, typename U>
bool operator==(const sp<T>& a, const sp<U>& b) {
    return a.get() == b.get();
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const sp<U>& b) {
    return a.get() != b.get();
}
template <typename T, typename U>
bool operator==(const sp<T>& a, const U* b) {
    return a.get() == b;
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const U* b) {
    return a.get() != b;
}
template <typename T>
bool operator==(const sp<T>& a, std::nullptr_t) {
    return a.get() == nullptr;
}
template <typename T>
bool operator!=(const sp<T>& a, std::nullptr_t) {
    return a.get() != nullptr;
}
template <typename T, typename U>
bool operator<(const sp<T>& a, const sp<U>& b) {
    return std::less<const void*>()(a.get(), b.get());
}

}  // namespace android
