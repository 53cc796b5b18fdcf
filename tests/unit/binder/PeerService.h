#pragma once

#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <unistd.h>

#include <mutex>
#include <thread>
#include <vector>

#include "tests/unit/binder/PeerProtocol.h"

namespace lumacast::test {

// A small object that the peer hands out so tests get references to its objects.
class PeerToken : public android::BBinder {};

// The test service: each call exercises one part of the transport.
class PeerService : public android::BBinder {
  public:
    static const android::String16& descriptor() {
        static const android::String16 d(u"lumacast.test.IPeer");
        return d;
    }
    const android::String16& getInterfaceDescriptor() const override { return descriptor(); }

    android::status_t dump(int fd, const android::Vector<android::String16>& args) override {
        std::string text = "peer dump";
        for (const auto& a : args) text += " " + std::string(android::String8(a).c_str());
        text += "\n";
        return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size())
                       ? android::OK
                       : -errno;
    }

  protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override {
        using namespace android;
        switch (code) {
            case kAddOne: {
                int32_t v = 0;
                status_t err = data.readInt32(&v);
                return err == OK ? reply->writeInt32(v + 1) : err;
            }
            case kCallBackNested: {
                sp<IBinder> cb;
                int32_t n = 0;
                status_t err = data.readStrongBinder(&cb);
                if (err == OK) err = data.readInt32(&n);
                if (err != OK) return err;
                Parcel req;
                Parcel rep;
                req.writeInt32(n);
                err = cb->transact(kCallbackCode, req, &rep);
                if (err != OK) return err;
                return reply->writeInt32(rep.readInt32());
            }
            case kHoldCallback: {
                sp<IBinder> cb;
                status_t err = data.readStrongBinder(&cb);
                if (err != OK) return err;
                std::lock_guard<std::mutex> lock(mLock);
                mHeld.push_back(cb);
                return OK;
            }
            case kFireHeld: {
                int32_t n = data.readInt32();
                std::vector<sp<IBinder>> held;
                {
                    std::lock_guard<std::mutex> lock(mLock);
                    held = mHeld;
                }
                int32_t ok = 0;
                // Not a binder thread: these calls are not nested in this one.
                std::thread([&] {
                    for (int32_t i = 0; i < n; ++i) {
                        for (const sp<IBinder>& cb : held) {
                            Parcel req;
                            Parcel rep;
                            req.writeInt32(i);
                            if (cb->transact(kCallbackCode, req, &rep) == OK &&
                                rep.readInt32() == 2 * i) {
                                ++ok;
                            }
                        }
                    }
                }).join();
                return reply->writeInt32(ok);
            }
            case kDropHeld: {
                std::vector<sp<IBinder>> held;
                std::lock_guard<std::mutex> lock(mLock);
                held.swap(mHeld);
                return OK;
            }
            case kHeldCount: {
                std::lock_guard<std::mutex> lock(mLock);
                return reply->writeInt32(static_cast<int32_t>(mHeld.size()));
            }
            case kReturnBinders: {
                sp<IBinder> cb;
                status_t err = data.readStrongBinder(&cb);
                if (err == OK) err = reply->writeStrongBinder(cb);
                if (err == OK) err = reply->writeStrongBinder(new PeerToken());
                return err;
            }
            case kSleepMs:
                usleep(static_cast<useconds_t>(data.readInt32()) * 1000);
                return reply->writeInt32(0);
            case kExitNow:
                _exit(0);
            case kBytes: {
                const int32_t n = data.readInt32();
                std::vector<uint8_t> bytes(n > 0 ? static_cast<size_t>(n) : 0);
                for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
                return reply->writeByteVector(bytes);
            }
            case kPositiveResult: {
                const status_t err = reply->writeInt32(7);
                return err == OK ? 1 : err;
            }
            case kCallingPid:
                return reply->writeInt32(IPCThreadState::self()->getCallingPid());
            default:
                return BBinder::onTransact(code, data, reply, flags);
        }
    }

  private:
    std::mutex mLock;
    std::vector<android::sp<android::IBinder>> mHeld;
};

}  // namespace lumacast::test
