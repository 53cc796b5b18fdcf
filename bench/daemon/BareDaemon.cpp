// The baseline of bench_daemon: a program that does what any binder daemon must and no
// more, registering two empty objects under lumacastd's service names.
#include <binder/Binder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/String16.h>

int main() {
    android::sp<android::ProcessState> proc(android::ProcessState::self());
    android::sp<android::IServiceManager> sm(android::defaultServiceManager());
    sm->addService(android::String16("lumacastservice"), new android::BBinder);
    sm->addService(android::String16("cameramotorservice"), new android::BBinder);
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool(true);
    return 0;
}
