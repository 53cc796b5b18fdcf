#define LOG_TAG "lumacastservice"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <log/log.h>
#include <signal.h>
#include <utils/Errors.h>
#include <utils/String16.h>

#include "service/CameraMotorService.h"
#include "service/LumacastService.h"

using android::IServiceManager;
using android::sp;

int main(int /* argc */, char** /* argv */) {
    // A camera or a listener that goes away mid-write must cost one failed write, not the
    // whole daemon.
    signal(SIGPIPE, SIG_IGN);

    sp<android::ProcessState> proc(android::ProcessState::self());
    sp<IServiceManager> sm(android::defaultServiceManager());

    {
        // The constructor starts the camera watcher: a camera already attached is picked up
        // from here on, before anybody can reach the service.
        sp<android::lumacast::LumacastService> service = new android::lumacast::LumacastService();
        const android::status_t err =
                sm->addService(android::String16("lumacastservice"), service, false,
                               IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
        // Nothing to retry with; the log tells the platform team why clients find nothing.
        if (err != android::OK) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "main addService %s failed(%d)",
                                "lumacastservice", err);
        }
    }
    {
        sp<android::lumacast::CameraMotorService> service =
                new android::lumacast::CameraMotorService();
        const android::status_t err =
                sm->addService(android::String16("cameramotorservice"), service, false,
                               IServiceManager::DUMP_FLAG_PRIORITY_DEFAULT);
        if (err != android::OK) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "main addService %s failed(%d)",
                                "cameramotorservice", err);
        }
    }

    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool(true);

    sm.clear();
    proc.clear();
    return 0;
}
