// Serves the test doubles through the hand-written stubs, for the test that calls them
// with the proxies the aidl tool generates.
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <signal.h>

#include "tests/unit/aidl/FakeServices.h"

using namespace android;

int main() {
    signal(SIGPIPE, SIG_IGN);
    sp<ProcessState> ps = ProcessState::self();
    sp<IServiceManager> sm = defaultServiceManager();
    if (sm->addService(String16("lumacastservice"), new lumacast::test::FakeLumacast(), false,
                       IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT) != OK ||
        sm->addService(String16("cameramotorservice"), new lumacast::test::FakeKCameraMotor(),
                       false, IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT) != OK) {
        return 1;
    }
    ps->startThreadPool();
    IPCThreadState::self()->joinThreadPool(true);
}
