// The other process of the cross-process binder tests.
//   binder_test_peer service NAME   registers a PeerService as NAME and serves calls
//   binder_test_peer client NAME    gives NAME's service an object of its own to hold,
//                                   then serves calls until killed
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include "tests/unit/binder/PeerService.h"

using namespace android;

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    if (argc != 3) {
        fprintf(stderr, "usage: %s service|client NAME\n", argv[0]);
        return 2;
    }
    const String16 name(argv[2]);
    sp<ProcessState> ps = ProcessState::self();
    // Held for as long as the process lives.
    sp<IBinder> service;
    if (strcmp(argv[1], "service") == 0) {
        if (defaultServiceManager()->addService(name, new lumacast::test::PeerService()) != OK) {
            return 1;
        }
    } else if (strcmp(argv[1], "client") == 0) {
        service = defaultServiceManager()->getService(name);
        if (service == nullptr) return 1;
        Parcel data;
        Parcel reply;
        data.writeStrongBinder(new lumacast::test::PeerToken());
        if (service->transact(lumacast::test::kHoldCallback, data, &reply) != OK) return 1;
    } else {
        return 2;
    }
    ps->startThreadPool();
    IPCThreadState::self()->joinThreadPool(true);
}
