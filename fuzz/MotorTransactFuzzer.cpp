// Random transactions into the motor service's stub, as for the streaming service: any
// code and request parcel, a double behind the stub that answers as the input says, and
// the stub's promises checked on every call (support/ServiceDouble.h).
#include <binder/Status.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "aidl/BnKCameraMotor.h"
#include "fuzz/support/ServiceDouble.h"

namespace {

using android::BBinder;
using android::IBinder;
using android::sp;
using android::binder::Status;
using kora::lumacast::BnKCameraMotor;
using lumacast::fuzz::FuzzInput;

class Service : public BnKCameraMotor, public lumacast::fuzz::ServiceDouble {
  public:
    Status set_client_type(const std::string& type) override { return give(type); }
    Status motor_down(int32_t* r) override { return giveInt(r); }
    Status motor_up(int32_t* r) override { return giveInt(r); }
    Status get_motor_status(int32_t* s) override { return giveInt(s); }
    Status get_rise_time(int32_t* t) override { return giveInt(t); }
    Status get_switch_status(bool* on) override { return giveBool(on); }
    Status is_support_motor(bool* s) override { return giveBool(s); }
    Status set_status(bool) override { return give(); }
    Status get_status(bool* s) override { return giveBool(s); }
    Status get_mcu_version(std::string* v) override { return giveString(v, ""); }
    Status mcu_upgrade(const std::string& path, int32_t* r) override { return giveInt(r, path); }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::fuzz::devNull();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);
    const int descriptors = lumacast::fuzz::openDescriptorCount();
    {
        sp<Service> service = new Service;
        service->plan(in);
        lumacast::fuzz::transactOnce(in, service.get(), BnKCameraMotor::TRANSACTION_set_client_type,
                                     BnKCameraMotor::TRANSACTION_mcu_upgrade,
                                     {nullptr, sp<IBinder>(new BBinder), service});
    }
    const int after = lumacast::fuzz::openDescriptorCount();
    FUZZ_CHECK(after == descriptors, "descriptors %d -> %d", descriptors, after);
    return 0;
}
