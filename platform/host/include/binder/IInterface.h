#pragma once

#include <assert.h>
#include <binder/Binder.h>

#include <memory>

namespace android {

// Base of every binder interface: an interface object is either the local object
// itself (BnInterface) or a proxy over a remote binder (BpInterface).
class IInterface : public virtual RefBase {
  public:
    IInterface();
    static sp<IBinder> asBinder(const IInterface* iface);
    static sp<IBinder> asBinder(const sp<IInterface>& iface);

  protected:
    ~IInterface() override;
    virtual IBinder* onAsBinder() = 0;
};

template <typename INTERFACE>
inline sp<INTERFACE> interface_cast(const sp<IBinder>& obj) {
    return INTERFACE::asInterface(obj);
}

template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
  public:
    sp<IInterface> queryLocalInterface(const String16& _descriptor) override;
    const String16& getInterfaceDescriptor() const override;

  protected:
    typedef INTERFACE BaseInterface;
    IBinder* onAsBinder() override;
};

template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
  public:
    explicit BpInterface(const sp<IBinder>& remote);

  protected:
    typedef INTERFACE BaseInterface;
    IBinder* onAsBinder() override;
};

#define DECLARE_META_INTERFACE(INTERFACE)                                                         \
  public:                                                                                         \
    static const ::android::String16 descriptor;                                                  \
    static ::android::sp<I##INTERFACE> asInterface(const ::android::sp<::android::IBinder>& obj); \
    virtual const ::android::String16& getInterfaceDescriptor() const;                            \
    I##INTERFACE();                                                                               \
    virtual ~I##INTERFACE();                                                                      \
    static bool setDefaultImpl(std::unique_ptr<I##INTERFACE> impl);                               \
    static const std::unique_ptr<I##INTERFACE>& getDefaultImpl();                                 \
                                                                                                  \
  private:                                                                                        \
    static std::unique_ptr<I##INTERFACE> default_impl;                                            \
                                                                                                  \
  public:

#define IMPLEMENT_META_INTERFACE(INTERFACE, NAME)                              \
    const ::android::String16 I##INTERFACE::descriptor(u"" NAME);              \
    const ::android::String16& I##INTERFACE::getInterfaceDescriptor() const {  \
        return I##INTERFACE::descriptor;                                       \
    }                                                                          \
    ::android::sp<I##INTERFACE> I##INTERFACE::asInterface(                     \
            const ::android::sp<::android::IBinder>& obj) {                    \
        ::android::sp<I##INTERFACE> intr;                                      \
        if (obj != nullptr) {                                                  \
            intr = static_cast<I##INTERFACE*>(                                 \
                    obj->queryLocalInterface(I##INTERFACE::descriptor).get()); \
            if (intr == nullptr) {                                             \
                intr = new Bp##INTERFACE(obj);                                 \
            }                                                                  \
        }                                                                      \
        return intr;                                                           \
    }                                                                          \
    std::unique_ptr<I##INTERFACE> I##INTERFACE::default_impl;                  \
    bool I##INTERFACE::setDefaultImpl(std::unique_ptr<I##INTERFACE> impl) {    \
        /* One default per process: a second caller is a programming error. */ \
        assert(!I##INTERFACE::default_impl);                                   \
        if (impl) {                                                            \
            I##INTERFACE::default_impl = std::move(impl);                      \
            return true;                                                       \
        }                                                                      \
        return false;                                                          \
    }                                                                          \
    const std::unique_ptr<I##INTERFACE>& I##INTERFACE::getDefaultImpl() {      \
        return I##INTERFACE::default_impl;                                     \
    }                                                                          \
    I##INTERFACE::I##INTERFACE() {}                                            \
    I##INTERFACE::~I##INTERFACE() {}

template <typename INTERFACE>
inline sp<IInterface> BnInterface<INTERFACE>::queryLocalInterface(const String16& _descriptor) {
    if (_descriptor == INTERFACE::descriptor) return sp<IInterface>(this);
    return nullptr;
}

template <typename INTERFACE>
inline const String16& BnInterface<INTERFACE>::getInterfaceDescriptor() const {
    return INTERFACE::getInterfaceDescriptor();
}

template <typename INTERFACE>
inline IBinder* BnInterface<INTERFACE>::onAsBinder() {
    return this;
}

template <typename INTERFACE>
inline BpInterface<INTERFACE>::BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

template <typename INTERFACE>
inline IBinder* BpInterface<INTERFACE>::onAsBinder() {
    return remote();
}

}  // namespace android
