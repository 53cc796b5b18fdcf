#define LOG_TAG "Stability"

#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/Stability.h>
#include <log/log.h>

namespace android {
namespace internal {

namespace {

bool isKnownLevel(uint32_t level) {
    return level == Stability::UNDECLARED || level == Stability::VENDOR ||
           level == Stability::SYSTEM || level == Stability::VINTF;
}

}  // namespace

std::atomic<int32_t>* Stability::slotOf(IBinder* binder) {
    if (BBinder* local = binder->localBinder()) return &local->mStability;
    if (BpBinder* remote = binder->remoteBinder()) return &remote->mStability;
    return nullptr;
}

void Stability::markCompilationUnit(IBinder* binder) {
    if (binder == nullptr) return;
    if (std::atomic<int32_t>* slot = slotOf(binder)) slot->store(reprOf(SYSTEM));
}

void Stability::markVintf(IBinder* binder) {
    if (binder == nullptr) return;
    if (std::atomic<int32_t>* slot = slotOf(binder)) slot->store(reprOf(VINTF));
}

void Stability::markVndk(IBinder* binder) {
    if (binder == nullptr) return;
    if (std::atomic<int32_t>* slot = slotOf(binder)) slot->store(reprOf(VENDOR));
}

void Stability::tryMarkCompilationUnit(IBinder* binder) {
    if (binder == nullptr) return;
    if (std::atomic<int32_t>* slot = slotOf(binder)) {
        int32_t unset = 0;
        slot->compare_exchange_strong(unset, reprOf(SYSTEM));
    }
}

int32_t Stability::getRepr(IBinder* binder) {
    if (binder == nullptr) return reprOf(UNDECLARED);
    std::atomic<int32_t>* slot = slotOf(binder);
    const int32_t repr = slot ? slot->load() : 0;
    return repr == 0 ? reprOf(UNDECLARED) : repr;
}

Stability::Level Stability::getLevel(IBinder* binder) {
    return static_cast<Level>(static_cast<uint32_t>(getRepr(binder)) >> 24);
}

status_t Stability::setRepr(IBinder* binder, int32_t representation) {
    const uint32_t repr = static_cast<uint32_t>(representation);
    const uint32_t level = repr >> 24;
    if ((repr & 0xff) != kWireFormatVersion || (repr & 0x00ffff00) != 0 || !isKnownLevel(level)) {
        ALOGE("Can only set known stability, not 0x%x.", repr);
        return BAD_TYPE;
    }
    if (binder == nullptr) return OK;
    std::atomic<int32_t>* slot = slotOf(binder);
    if (slot == nullptr) return BAD_TYPE;
    int32_t current = 0;
    if (slot->compare_exchange_strong(current, representation) || current == representation) {
        return OK;
    }
    ALOGE("Interface being set with 0x%x but it is already marked as 0x%x", repr,
          static_cast<uint32_t>(current));
    return BAD_TYPE;
}

}  // namespace internal
}  // namespace android
