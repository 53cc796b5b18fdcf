#include <utils/RefBase.h>

#include <stdlib.h>

namespace android {

// Strong count starts here so that the first incStrong can be told apart from a
// revival, as in libutils.
static constexpr int32_t INITIAL_STRONG_VALUE = 1 << 28;

class RefBase::weakref_impl : public RefBase::weakref_type {
public:
    explicit weakref_impl(RefBase* base) : mStrong(INITIAL_STRONG_VALUE), mWeak(0), mBase(base) {}

    std::atomic<int32_t> mStrong;
    std::atomic<int32_t> mWeak;
    RefBase* const mBase;
};

RefBase::RefBase() : mRefs(new weakref_impl(this)) {}

RefBase::~RefBase() {
    // Never strongly referenced (a stack object, or one that lived by weak references
    // only): nobody else will free the counts. Otherwise the last decWeak frees them.
    if (mRefs->mStrong.load(std::memory_order_relaxed) == INITIAL_STRONG_VALUE &&
        mRefs->mWeak.load(std::memory_order_relaxed) == 0) {
        delete mRefs;
    }
}

void RefBase::onFirstRef() {}
void RefBase::onLastStrongRef(const void*) {}

void RefBase::incStrong(const void* id) const {
    mRefs->incWeak(id);
    const int32_t c = mRefs->mStrong.fetch_add(1, std::memory_order_relaxed);
    if (c != INITIAL_STRONG_VALUE) return;
    mRefs->mStrong.fetch_sub(INITIAL_STRONG_VALUE, std::memory_order_relaxed);
    const_cast<RefBase*>(this)->onFirstRef();
}

void RefBase::forceIncStrong(const void* id) const { incStrong(id); }

void RefBase::decStrong(const void* id) const {
    weakref_impl* const refs = mRefs;
    const int32_t c = refs->mStrong.fetch_sub(1, std::memory_order_acq_rel);
    if (c <= 0 || c == INITIAL_STRONG_VALUE) abort();  // decStrong without a matching incStrong
    if (c == 1) {
        const_cast<RefBase*>(this)->onLastStrongRef(id);
        delete this;
    }
    refs->decWeak(id);
}

int32_t RefBase::getStrongCount() const {
    const int32_t c = mRefs->mStrong.load(std::memory_order_relaxed);
    return c == INITIAL_STRONG_VALUE ? 0 : c;
}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

RefBase::weakref_type* RefBase::getWeakRefs() const { return mRefs; }

RefBase* RefBase::weakref_type::refBase() const {
    return static_cast<const weakref_impl*>(this)->mBase;
}

void RefBase::weakref_type::incWeak(const void*) {
    static_cast<weakref_impl*>(this)->mWeak.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::weakref_type::decWeak(const void*) {
    weakref_impl* const impl = static_cast<weakref_impl*>(this);
    const int32_t c = impl->mWeak.fetch_sub(1, std::memory_order_acq_rel);
    if (c <= 0) abort();
    if (c != 1) return;
    if (impl->mStrong.load(std::memory_order_relaxed) == INITIAL_STRONG_VALUE) {
        // Only ever weakly referenced: the last weak reference owns the object, and
        // ~RefBase then frees the counts.
        delete impl->mBase;
    } else {
        delete impl;
    }
}

bool RefBase::weakref_type::attemptIncStrong(const void* id) {
    incWeak(id);
    weakref_impl* const impl = static_cast<weakref_impl*>(this);
    int32_t cur = impl->mStrong.load(std::memory_order_relaxed);
    while (cur > 0 && cur != INITIAL_STRONG_VALUE) {
        if (impl->mStrong.compare_exchange_weak(cur, cur + 1, std::memory_order_relaxed)) {
            return true;
        }
    }
    if (cur == INITIAL_STRONG_VALUE) {
        const int32_t c = impl->mStrong.fetch_add(1, std::memory_order_relaxed);
        if (c == INITIAL_STRONG_VALUE) {
            impl->mStrong.fetch_sub(INITIAL_STRONG_VALUE, std::memory_order_relaxed);
            impl->mBase->onFirstRef();
        }
        return true;
    }
    decWeak(id);  // the object is gone or going
    return false;
}

int32_t RefBase::weakref_type::getWeakCount() const {
    return static_cast<const weakref_impl*>(this)->mWeak.load(std::memory_order_relaxed);
}

}  // namespace android
