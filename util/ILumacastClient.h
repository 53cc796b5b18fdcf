#pragma once

namespace android {
namespace lumacast {

// How the uevent watcher, the camera link and the timer reach the streaming service.
class ILumacastClient {
public:
    virtual ~ILumacastClient() {}
    virtual void processCameraAdd() = 0;
    virtual void processCameraRemove() = 0;
    // 1 when the heartbeat was sent, 0 otherwise.
    virtual int checkAlive() = 0;
    // `data` is the zero-terminated JSON text of one result; -1 when it is null.
    virtual int processResult(unsigned char* data, int len) = 0;
    virtual int processAiJson(unsigned char* data, int len) = 0;
    virtual int processAiProtobuf(unsigned char* data, int len) = 0;
    virtual int processFrame(int blockCount, int blockParam, unsigned char* data, int len) = 0;
    virtual int getCallbackSize() = 0;
};

}  // namespace lumacast
}  // namespace android
