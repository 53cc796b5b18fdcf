#pragma once

#include <binder/Status.h>
#include <pthread.h>
#include <stdint.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "aidl/BnLumacast.h"
#include "aidl/ILumacastCallback.h"
#include "service/CameraOperations.h"
#include "socket/SocketClient.h"
#include "usb/USBEventInterrupt.h"
#include "util/ILumacastClient.h"
#include "util/SignalUtil.h"
#include "util/TimerUtil.h"

namespace android {
namespace lumacast {

// The binder service "lumacastservice": owns the USB camera watcher, the camera link and
// its heartbeat timer, the listeners, the command exchange with the camera and the fan-out
// of camera data to the listeners.
class LumacastService : public kora::lumacast::BnLumacast {
  public:
    // The only ILumacastClient: how the watcher, the link and the timer reach the service.
    class LumacastClient : public ILumacastClient {
      public:
        explicit LumacastClient(LumacastService* service) : mService(service) {}
        ~LumacastClient() override {}

        void processCameraAdd() override;
        void processCameraRemove() override;
        int checkAlive() override;
        int processResult(unsigned char* data, int len) override;
        int processAiJson(unsigned char* data, int len) override;
        int processAiProtobuf(unsigned char* data, int len) override;
        int processFrame(int blockCount, int blockParam, unsigned char* data, int len) override;
        int getCallbackSize() override;

      private:
        LumacastService* mService;
    };

    static constexpr int SEND_BUFFER_SIZE = 200;
    static constexpr int RESULT_TEXT_SIZE = 100;
    // Longest command text that fits the packet behind its 8-byte header.
    static constexpr int MAX_COMMAND_TEXT = SEND_BUFFER_SIZE - 8;
    static constexpr int RESULT_WAIT_MS = 3000;

    LumacastService();
    ~LumacastService() override;

    ::android::binder::Status setCallback(
            const ::android::sp<::kora::lumacast::ILumacastCallback>& callback,
            bool* _aidl_return) override;
    ::android::binder::Status removeCallback(
            const ::android::sp<::kora::lumacast::ILumacastCallback>& callback,
            bool* _aidl_return) override;
    ::android::binder::Status setZoomSwitch(bool on, bool* _aidl_return) override;
    ::android::binder::Status getZoomSwitch(bool* _aidl_return) override;
    ::android::binder::Status getAiAlgoList(int32_t* _aidl_return) override;
    ::android::binder::Status setAiSubscribeType(int32_t type, bool* _aidl_return) override;
    ::android::binder::Status getAiSubscribeStatus(int32_t* _aidl_return) override;
    ::android::binder::Status setAiProperty(const std::string& param, bool* _aidl_return) override;
    ::android::binder::Status getAiProperty(const std::string& param,
                                            std::string* _aidl_return) override;
    ::android::binder::Status setAiSubscribe(int32_t param, const std::string& option,
                                             bool* _aidl_return) override;
    ::android::binder::Status getAiSubscribe(std::string* _aidl_return) override;
    ::android::binder::Status grabFrame(int32_t format, const std::string& resolution,
                                        bool* _aidl_return) override;
    ::android::binder::Status sendDoa(const std::string& data, bool* _aidl_return) override;
    ::android::binder::Status setAutoFraming(int32_t param, bool* _aidl_return) override;
    ::android::binder::Status getAutoFraming(bool* _aidl_return) override;
    ::android::binder::Status setZoomMode(int32_t param, int32_t mode, bool* _aidl_return) override;
    ::android::binder::Status getZoomMode(std::string* _aidl_return) override;

    // dumpsys: camera, link, heartbeat, listeners and waiting commands; sends nothing to the
    // camera.
    ::android::status_t dump(int fd, const ::android::Vector<::android::String16>& args) override;

    void destroy();
    // Readiness of every camera command: camera present and link connected (connecting
    // it if need be).
    bool continueProcess();
    void processCameraAdd();
    void processCameraRemove();
    void startAliveTimer();

    int processResult(unsigned char* data, int len);
    int processAiJson(unsigned char* data, int len);
    int processAiProtobuf(unsigned char* data, int len);
    int processFrame(int blockCount, int blockParam, unsigned char* data, int len);

    // Writes the packet FF 00 AB BC, big-endian length, {"cmd_id":cmd,"param":param} into
    // `out` (SEND_BUFFER_SIZE bytes); returns its length.
    static int convertCmdParamToJson(unsigned cmd, unsigned param, unsigned char* out);
    // Reads cmd_id, param and rval of a result text; values that cannot be read are left.
    static void parseCmdParamFromJson(unsigned char* json, int* cmd, int* param, int* rval);

  private:
    // What the result that woke a waiting call gave it. processResult fills the one of
    // each waiting kind and the call judges that copy, as the shared slot may be overwritten
    // (by the next result or a heartbeat tick) before the woken call looks.
    struct Reply {
        bool arrived = false;
        int retWait = -1;
        int cmd = -1;
        int param = -1;
        int rval = -1;
        char text[RESULT_TEXT_SIZE] = {};
    };

    // What dump shows of one listener: the delivering thread counts, dump reads.
    struct ListenerStats {
        pid_t pid = 0;  // of the caller that registered it; 0 when binder did not say
        std::atomic<uint64_t> delivered{0};
        std::atomic<uint64_t> failed{0};
        std::atomic<int32_t> lastException{0};  // of the last failed call
        std::atomic<int32_t> lastError{0};      // its transaction error, if that was it
        void record(const ::android::binder::Status& status);
    };

    // What became of the commands that got past the readiness check.
    struct CommandCounters {
        std::atomic<uint64_t> sent{0};
        std::atomic<uint64_t> answered{0};
        std::atomic<uint64_t> timedOut{0};
        std::atomic<uint64_t> busy{0};
    };

    void insertListener(const ::android::sp<::kora::lumacast::ILumacastCallback>& callback);
    void removeListener(const ::android::sp<::kora::lumacast::ILumacastCallback>& callback);
    int callbackSize();
    // True on the thread that is delivering camera data to the listeners, i.e. for a call
    // that a listener makes from inside its callback; that thread holds mCallbackMutex.
    bool insideDelivery() const;
    // Erases the listener at `index` under mCallbackMutex, keeping a delivery in progress
    // on its course.
    void eraseListenerLocked(size_t index);
    // Calls `deliver` on every listener in list order, under mCallbackMutex.
    template <typename F>
    void fanOut(F deliver);

    // Every camera operation: the row of `kind` in kCameraOperations run with the binder
    // method's arguments, its result given to `out`.
    template <CommandKind kind, typename Out, typename... Args>
    ::android::binder::Status run(Out* out, const Args&... args);
    // Steps of every camera operation after the readiness check: false (after the busy
    // message) when a call of this kind still waits; otherwise sends `text` and waits for
    // the result.
    bool exchange(const CameraOperation& op, const char* text, Reply* reply);
    // The wait signal field of `kind`; null for a value that names no kind.
    SignalUtil** signalFor(CommandKind kind);
    // Wakes the call of `kind` if one waits, handing it the result; under mExchangeMutex.
    void wakeLocked(CommandKind kind, bool keepText, bool logSignal, const unsigned char* data,
                    int len);
    void resetResultSlot();
    bool readCameraPresent();
    // Formats a command text into `buffer`; false when it would not fit the buffer or the
    // packet, so that nothing is cut short or written past either.
    static bool formatText(char* buffer, size_t size, const char* format, ...)
            __attribute__((format(printf, 3, 4)));
    static int writePacket(const char* text, unsigned char* out);

    std::vector<::android::sp<::kora::lumacast::ILumacastCallback>> mCallbacks;  // mCallbackMutex
    unsigned char mSendBuffer[SEND_BUFFER_SIZE];  // guarded by mSendMutex
    // Result slot: the last result parsed. Guarded by mExchangeMutex.
    int mCmd;
    int mParam;
    int mRetVal;
    // Non-null exactly while a call of that kind waits. Guarded by mExchangeMutex, so a
    // signal is never freed while processResult gives it.
    SignalUtil* mSignalSetZoomSwitch;
    SignalUtil* mSignalGetZoomSwitch;
    SignalUtil* mSignalGetAiAlgoList;
    SignalUtil* mSignalSetAiSubscribeType;
    SignalUtil* mSignalGetAiSubscribeStatus;
    SignalUtil* mSignalSetAiSubscribe;
    SignalUtil* mSignalGetAiSubscribe;
    SignalUtil* mSignalGrapFrame;
    SignalUtil* mSignalSendDoa;
    SignalUtil* mSignalSetAutoFraming;
    SignalUtil* mSignalgetAutoFraming;
    SignalUtil* mSignalSetZoomMode;
    SignalUtil* mSignalGetZoomMode;
    SignalUtil* mSignalSetAiProperty;
    SignalUtil* mSignalGetAiProperty;
    SocketClient* mSocketClient;
    TimerUtil* mSocketTimer;
    const char* mTimerName;
    ILumacastClient* mServiceClient;
    USBEventInterrupt* mUSBEventInterrupt;
    // Every lock of this class is a POSIX mutex with default attributes, the kind the
    // listener lock has always been, so that all of them read and behave alike.
    pthread_mutex_t mCallbackMutex;
    // Size of mCallbacks, changed under mCallbackMutex and read without it.
    std::atomic<int> mCallbackCount;
    // The delivery in progress: the next listener to call and the end of the listeners it
    // calls. Guarded by mCallbackMutex; both 0 between deliveries.
    size_t mDeliveryNext;
    size_t mDeliveryEnd;
    // One per entry of mCallbacks, in the same order. Changed under mCallbackMutex and
    // mListenerStatsMutex, so dump reads it with the second alone while a delivery waits
    // for a slow listener.
    std::vector<std::shared_ptr<ListenerStats>> mListenerStats;
    pthread_mutex_t mListenerStatsMutex;
    CommandCounters mCommands;

    // The command exchange's shared state: signal fields, result slot, replies and
    // sResultText.
    pthread_mutex_t mExchangeMutex;
    Reply mReplies[COMMAND_KIND_COUNT];
    // mSendBuffer is rebuilt by one command at a time; the link copies it before the
    // next may begin.
    pthread_mutex_t mSendMutex;
    // The watcher and the timer use the link from their own threads; destroy() takes it
    // away under this lock so that neither meets a deleted link.
    pthread_mutex_t mLinkMutex;
    bool mDestroyed;
};

}  // namespace lumacast
}  // namespace android
