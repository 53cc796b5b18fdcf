// usbwatch: runs the USB camera watcher alone and prints, one line each, what it tells the
// streaming service. For trying the fake device by hand (scripts/fakedevice) and for
// testing that script. Stops on SIGINT or SIGTERM.
#include <hardware_legacy/uevent.h>
#include <signal.h>
#include <stdio.h>

#include <atomic>

#include "usb/USBEventInterrupt.h"
#include "util/ILumacastClient.h"

using android::lumacast::ILumacastClient;
using android::lumacast::USBEventInterrupt;

namespace {

class PrintingClient : public ILumacastClient {
public:
    void setWatcher(USBEventInterrupt* watcher) { mWatcher = watcher; }

    void processCameraAdd() override {
        USBEventInterrupt* watcher = mWatcher;
        if (watcher == nullptr) {
            print("processCameraAdd");
        } else {
            print(watcher->mKeepAlive ? "processCameraAdd keepAlive=1"
                                      : "processCameraAdd keepAlive=0");
        }
    }
    void processCameraRemove() override { print("processCameraRemove"); }
    int checkAlive() override { return 0; }
    int processResult(unsigned char*, int) override { return 0; }
    int processAiJson(unsigned char*, int) override { return 0; }
    int processAiProtobuf(unsigned char*, int) override { return 0; }
    int processFrame(int, int, unsigned char*, int) override { return 0; }
    int getCallbackSize() override { return 0; }

private:
    static void print(const char* line) {
        printf("%s\n", line);
        fflush(stdout);
    }

    std::atomic<USBEventInterrupt*> mWatcher{nullptr};
};

}  // namespace

int main() {
    // Blocked before any thread starts, so only sigwait below sees them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    // Open the socket before the watcher does: whatever is sent after "ready" is seen.
    if (uevent_init() == 0) {
        fprintf(stderr, "usbwatch: cannot open the uevent socket\n");
        return 1;
    }
    PrintingClient client;
    USBEventInterrupt* watcher = new USBEventInterrupt(&client);
    client.setWatcher(watcher);
    printf("ready\n");
    fflush(stdout);

    int sig = 0;
    sigwait(&stop, &sig);
    client.setWatcher(nullptr);
    delete watcher;
    printf("stopped\n");
    return 0;
}
