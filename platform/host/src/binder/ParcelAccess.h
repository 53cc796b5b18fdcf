#pragma once

#include <binder/Parcel.h>

#include <functional>

namespace android {
namespace hostbinder {

// What the transport needs of a parcel beyond its public interface: its object table.
class ParcelAccess {
  public:
    struct ObjectView {
        size_t offset;
        bool isFd;
        IBinder* binder;
        int fd;
    };

    static size_t objectCount(const Parcel& p) { return p.mObjects.size(); }
    static ObjectView object(const Parcel& p, size_t i) {
        const Parcel::Object& o = p.mObjects[i];
        return {o.offset, o.kind == Parcel::ObjectKind::Fd, o.binder.get(), o.fd};
    }
    static uint8_t* mutableData(Parcel* p) { return p->mData; }

    // Hands src's contents over to dst, which loses its own.
    static void moveInto(Parcel* dst, Parcel* src) {
        dst->freeData();
        dst->mData = src->mData;
        dst->mDataSize = src->mDataSize;
        dst->mDataCapacity = src->mDataCapacity;
        dst->mDataPos = src->mDataPos;
        dst->mError = src->mError;
        dst->mObjects.swap(src->mObjects);
        src->mData = nullptr;
        src->mDataSize = 0;
        src->mDataCapacity = 0;
        src->mDataPos = 0;
    }

    // Objects must be added in increasing offset order after setData.
    static void addBinder(Parcel* p, size_t offset, const sp<IBinder>& binder) {
        p->mObjects.push_back({offset, Parcel::ObjectKind::Binder, binder, -1, false});
    }
    static void addOwnedFd(Parcel* p, size_t offset, int fd) {
        p->mObjects.push_back({offset, Parcel::ObjectKind::Fd, nullptr, fd, true});
    }
};

}  // namespace hostbinder
}  // namespace android
