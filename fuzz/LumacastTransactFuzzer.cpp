// Random transactions into the streaming service's stub: any code, any request parcel
// (raw bytes or typed items with wrong tokens, lying lengths, bad UTF-16, stray objects,
// null and foreign binders). The service behind the stub is a double that answers with
// statuses and values the input picks, so the reply side is driven too; the stub's
// promises are checked on every call (support/ServiceDouble.h).
#include <binder/IInterface.h>
#include <binder/Status.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "aidl/BnLumacast.h"
#include "fuzz/support/ServiceDouble.h"

namespace {

using android::BBinder;
using android::IBinder;
using android::sp;
using android::binder::Status;
using kora::lumacast::BnLumacast;
using kora::lumacast::ILumacastCallback;
using lumacast::fuzz::FuzzInput;

// Called in place, without parcels, when the service calls it.
class Listener : public android::BnInterface<ILumacastCallback> {
  public:
    Status onAiData(const std::string&) override { return Status::ok(); }
    Status onProtoBuf(const std::vector<uint8_t>&) override { return Status::ok(); }
    Status onFrame(int32_t, int32_t, const std::vector<uint8_t>&) override { return Status::ok(); }
};

class Service : public BnLumacast, public lumacast::fuzz::ServiceDouble {
  public:
    bool callListener = false;
    sp<ILumacastCallback> listener;

    Status setCallback(const sp<ILumacastCallback>& cb, bool* r) override {
        FUZZ_CHECK(cb != nullptr, "null listener reached the service");
        listener = cb;  // held past the transaction, as the service holds it
        if (callListener) {
            // Whatever the binder is (this service, a bare object, a listener), calling
            // it must come back with a status.
            cb->onAiData(plannedString());
            cb->onProtoBuf({1, 2, 3});
            cb->onFrame(plannedInt(), 7, {});
        }
        return giveBool(r);
    }
    Status removeCallback(const sp<ILumacastCallback>& cb, bool* r) override {
        FUZZ_CHECK(cb != nullptr, "null listener reached the service");
        return giveBool(r);
    }
    Status setZoomSwitch(bool, bool* r) override { return giveBool(r); }
    Status getZoomSwitch(bool* on) override { return giveBool(on); }
    Status getAiAlgoList(int32_t* list) override { return giveInt(list); }
    Status setAiSubscribeType(int32_t, bool* r) override { return giveBool(r); }
    Status getAiSubscribeStatus(int32_t* status) override { return giveInt(status); }
    Status setAiProperty(const std::string& p, bool* r) override { return giveBool(r, p); }
    Status getAiProperty(const std::string& p, std::string* v) override { return giveString(v, p); }
    Status setAiSubscribe(int32_t, const std::string& o, bool* r) override {
        return giveBool(r, o);
    }
    Status getAiSubscribe(std::string* v) override { return giveString(v, ""); }
    Status grabFrame(int32_t, const std::string& res, bool* r) override { return giveBool(r, res); }
    Status sendDoa(const std::string& data, bool* r) override { return giveBool(r, data); }
    Status setAutoFraming(int32_t, bool* r) override { return giveBool(r); }
    Status getAutoFraming(bool* on) override { return giveBool(on); }
    Status setZoomMode(int32_t, int32_t, bool* r) override { return giveBool(r); }
    Status getZoomMode(std::string* v) override { return giveString(v, ""); }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Refused tokens are logged; at fuzzing speed that would be all the output there is.
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::fuzz::devNull();  // opened once, before descriptors are counted
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);
    const int descriptors = lumacast::fuzz::openDescriptorCount();
    {
        sp<Service> service = new Service;
        service->plan(in);
        service->callListener = in.flag();

        lumacast::fuzz::transactOnce(
                in, service.get(), BnLumacast::TRANSACTION_setCallback,
                BnLumacast::TRANSACTION_getZoomMode,
                {nullptr, sp<IBinder>(new Listener), sp<IBinder>(new BBinder), service});
        // The listener may be the service itself.
        service->listener.clear();
    }
    const int after = lumacast::fuzz::openDescriptorCount();
    FUZZ_CHECK(after == descriptors, "descriptors %d -> %d", descriptors, after);
    return 0;
}
