#define LOG_TAG "ServiceManager"

#include <binder/IServiceManager.h>
#include <log/log.h>
#include <unistd.h>

#include <chrono>

#include "Runtime.h"

namespace android {

namespace {

// The registry is a directory shared by the processes of one simulated device; each
// service names the process that serves it, which is asked for the object itself.
class ServiceManagerShim : public IServiceManager {
  public:
    sp<IBinder> getService(const String16& name) const override {
        sp<IBinder> service = checkService(name);
        if (service != nullptr) return service;
        ALOGI("Waiting for service '%s'...", String8(name).c_str());
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (std::chrono::steady_clock::now() < deadline) {
            usleep(100 * 1000);
            service = checkService(name);
            if (service != nullptr) return service;
        }
        ALOGW("Service %s didn't start. Returning NULL", String8(name).c_str());
        return nullptr;
    }

    sp<IBinder> checkService(const String16& name) const override {
        return hostbinder::Runtime::get().checkService(name);
    }

    status_t addService(const String16& name, const sp<IBinder>& service, bool,
                        int dumpsysFlags) override {
        return hostbinder::Runtime::get().addService(name, service, dumpsysFlags);
    }

    Vector<String16> listServices(int dumpsysFlags) override {
        return hostbinder::Runtime::get().listServices(dumpsysFlags);
    }

    sp<IBinder> waitForService(const String16& name) override {
        for (;;) {
            sp<IBinder> service = checkService(name);
            if (service != nullptr) return service;
            usleep(100 * 1000);
        }
    }

    bool isDeclared(const String16&) override { return false; }

  protected:
    IBinder* onAsBinder() override { return nullptr; }
};

}  // namespace

IServiceManager::~IServiceManager() {}

sp<IServiceManager> defaultServiceManager() {
    static IServiceManager* const sm = [] {
        IServiceManager* shim = new ServiceManagerShim();
        // Lives as long as the process, like libbinder's.
        shim->incStrong(nullptr);
        return shim;
    }();
    return sm;
}

}  // namespace android
