// Random transactions into the motor service's stub, as for the streaming service: any
// code and request parcel, a double behind the stub that answers as the input says, and
// the stub's promises checked on every call (support/ServiceDouble.h).
#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "aidl/BnKCameraMotor.h"
#include "fuzz/support/Check.h"
#include "fuzz/support/FuzzInput.h"
#include "fuzz/support/ParcelFuzz.h"
#include "fuzz/support/ServiceDouble.h"

namespace {

using android::BBinder;
using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::binder::Status;
using kora::lumacast::BnKCameraMotor;
using lumacast::fuzz::FuzzInput;
using lumacast::fuzz::Token;

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
        const uint32_t codes[] = {in.below(14), IBinder::INTERFACE_TRANSACTION,
                                  IBinder::DUMP_TRANSACTION, IBinder::PING_TRANSACTION, in.u32()};
        const uint32_t code = codes[in.below(5)];
        const uint32_t flags = in.flag() ? IBinder::FLAG_ONEWAY : 0;
        const std::vector<sp<IBinder>> binders = {nullptr, sp<IBinder>(new BBinder), service};
        Parcel request;
        const Token token =
                lumacast::fuzz::buildRequest(in, &request, BnKCameraMotor::descriptor, binders);
        Parcel reply;
        const status_t result = service->transact(code, request, &reply, flags);
        if (code >= BnKCameraMotor::TRANSACTION_set_client_type &&
            code <= BnKCameraMotor::TRANSACTION_mcu_upgrade) {
            service->checkServed(token, result, reply);
        } else {
            FUZZ_CHECK(service->calls() == 0, "code %u reached the service", code);
        }
    }
    const int after = lumacast::fuzz::openDescriptorCount();
    FUZZ_CHECK(after == descriptors, "descriptors %d -> %d", descriptors, after);
    return 0;
}
