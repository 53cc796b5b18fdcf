#pragma once

#include <lumacast/host/LogCapture.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "usb/USBEventInterrupt.h"
#include "util/ILumacastClient.h"

namespace lumacast::fuzz {

// Counts what the watcher tells the service.
class CountingClient : public android::lumacast::ILumacastClient {
  public:
    std::atomic<int> adds{0};
    std::atomic<int> removes{0};
    void processCameraAdd() override { ++adds; }
    void processCameraRemove() override { ++removes; }
    int checkAlive() override { return 0; }
    int processResult(unsigned char*, int) override { return 0; }
    int processAiJson(unsigned char*, int) override { return 0; }
    int processAiProtobuf(unsigned char*, int) override { return 0; }
    int processFrame(int, int, unsigned char*, int) override { return 0; }
    int getCallbackSize() override { return 0; }
};

// A watcher whose thread has finished its start-up scan and waits for uevents that never
// come (the namespace has no camera and the kernel sends it nothing), so the target can
// drive its parsers from the fuzzing thread alone. Call inside a private namespace.
inline android::lumacast::USBEventInterrupt* startIdleWatcher(CountingClient* client) {
    lumacast::host::LogCapture log;
    auto* watcher = new android::lumacast::USBEventInterrupt(client);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (log.countContaining("checkConnectedDevice videoId:") == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            fprintf(stderr, "the watcher did not finish its start-up scan\n");
            exit(1);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (client->adds != 0) {
        fprintf(stderr, "the watcher found a camera in an empty namespace\n");
        exit(1);
    }
    return watcher;
}

}  // namespace lumacast::fuzz
