#define LOG_TAG "lumacastservice"

#include "service/LumacastService.h"

#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <cutils/properties.h>
#include <errno.h>
#include <log/log.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "service/DumpText.h"
#include "socket/CameraProtocol.h"

namespace android {
namespace lumacast {

using ::android::binder::Status;
using ::kora::lumacast::ILumacastCallback;

namespace {

constexpr const char* kUsbStatusProperty = "sys.kora.usb.status";
constexpr const char* kSubscribeStatusProperty = "kora.camera.subscribe_status";
constexpr int kAliveIntervalMs = 2000;
constexpr int kHeartbeatCmd = 254;

// A dump counter as text.
std::string count(const std::atomic<uint64_t>& counter) {
    return std::to_string(counter.load(std::memory_order_relaxed));
}

// Process-wide, as there is one service per process.
char sResultText[LumacastService::RESULT_TEXT_SIZE];
unsigned char sAlivePacket[LumacastService::SEND_BUFFER_SIZE];

// Holds a mutex for a scope, unless this thread holds it already.
class MutexLock {
  public:
    explicit MutexLock(pthread_mutex_t* mutex, bool held = false) : mMutex(held ? nullptr : mutex) {
        if (mMutex != nullptr) pthread_mutex_lock(mMutex);
    }
    ~MutexLock() {
        if (mMutex != nullptr) pthread_mutex_unlock(mMutex);
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    pthread_mutex_t* mMutex;
};

// The service whose fan-out runs on this thread. Binder runs a call that a listener makes
// from inside its callback on the thread that is waiting for that callback, so such a
// call finds itself here.
thread_local const LumacastService* tDelivering = nullptr;

}  // namespace

// ---- adapter -------------------------------------------------------------------------

void LumacastService::LumacastClient::processCameraAdd() { mService->processCameraAdd(); }

void LumacastService::LumacastClient::processCameraRemove() { mService->processCameraRemove(); }

int LumacastService::LumacastClient::checkAlive() {
    mService->resetResultSlot();
    MutexLock lock(&mService->mLinkMutex);
    SocketClient* link = mService->mSocketClient;
    if (link != nullptr && link->connectState == CONNECTED) {
        // Only this thread builds the heartbeat, and the link copies it before returning.
        const int len = convertCmdParamToJson(kHeartbeatCmd, 1, sAlivePacket);
        link->process(kHeartbeatCmd, sAlivePacket, len);
        return 1;
    }
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "mSocketClient is null or not connect");
    return 0;
}

int LumacastService::LumacastClient::processResult(unsigned char* data, int len) {
    return mService->processResult(data, len);
}

int LumacastService::LumacastClient::processAiJson(unsigned char* data, int len) {
    mService->processAiJson(data, len);
    return 0;
}

int LumacastService::LumacastClient::processAiProtobuf(unsigned char* data, int len) {
    mService->processAiProtobuf(data, len);
    return 0;
}

int LumacastService::LumacastClient::processFrame(int blockCount, int blockParam,
                                                  unsigned char* data, int len) {
    mService->processFrame(blockCount, blockParam, data, len);
    return 0;
}

int LumacastService::LumacastClient::getCallbackSize() { return mService->callbackSize(); }

// ---- object and camera lifecycle ------------------------------------------------------

LumacastService::LumacastService()
    : mSendBuffer{},
      mCmd(-1),
      mParam(-1),
      mRetVal(-1),
      mSignalSetZoomSwitch(nullptr),
      mSignalGetZoomSwitch(nullptr),
      mSignalGetAiAlgoList(nullptr),
      mSignalSetAiSubscribeType(nullptr),
      mSignalGetAiSubscribeStatus(nullptr),
      mSignalSetAiSubscribe(nullptr),
      mSignalGetAiSubscribe(nullptr),
      mSignalGrapFrame(nullptr),
      mSignalSendDoa(nullptr),
      mSignalSetAutoFraming(nullptr),
      mSignalgetAutoFraming(nullptr),
      mSignalSetZoomMode(nullptr),
      mSignalGetZoomMode(nullptr),
      mSignalSetAiProperty(nullptr),
      mSignalGetAiProperty(nullptr),
      mSocketClient(nullptr),
      mSocketTimer(nullptr),
      mTimerName("SocketTimer"),
      mServiceClient(nullptr),
      mUSBEventInterrupt(nullptr),
      mCallbackMutex(),
      mCallbackCount(0),
      mDeliveryNext(0),
      mDeliveryEnd(0),
      mDestroyed(false) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "LumacastService START");
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "Lumacast now setting to false");
    property_set(kSubscribeStatusProperty, "false");
    pthread_mutex_init(&mCallbackMutex, nullptr);
    pthread_mutex_init(&mListenerStatsMutex, nullptr);
    pthread_mutex_init(&mExchangeMutex, nullptr);
    pthread_mutex_init(&mSendMutex, nullptr);
    pthread_mutex_init(&mLinkMutex, nullptr);
    mServiceClient = new LumacastClient(this);
    mSocketClient = new SocketClient(mServiceClient);
    // The watcher may report an attached camera at once; the link already exists.
    mUSBEventInterrupt = new USBEventInterrupt(mServiceClient);
    mSocketTimer = new TimerUtil(mTimerName, mServiceClient);
}

LumacastService::~LumacastService() {
    destroy();
    // These outlive destroy(): dump and the link's users may still take them until then.
    pthread_mutex_destroy(&mListenerStatsMutex);
    pthread_mutex_destroy(&mExchangeMutex);
    pthread_mutex_destroy(&mSendMutex);
    pthread_mutex_destroy(&mLinkMutex);
}

void LumacastService::destroy() {
    if (mDestroyed) return;
    mDestroyed = true;
    SocketClient* link = nullptr;
    {
        MutexLock lock(&mLinkMutex);
        link = mSocketClient;
        mSocketClient = nullptr;
    }
    if (link != nullptr) {
        if (link->connectState != DISCONNECT) link->uninit();
        delete link;
    }
    delete mSocketTimer;
    mSocketTimer = nullptr;
    delete mUSBEventInterrupt;
    mUSBEventInterrupt = nullptr;
    // Last, once no thread that could call it is left.
    delete mServiceClient;
    mServiceClient = nullptr;
    pthread_mutex_destroy(&mCallbackMutex);
    while (!mCallbacks.empty()) mCallbacks.pop_back();
    {
        MutexLock statsLock(&mListenerStatsMutex);
        mListenerStats.clear();
    }
    mCallbackCount = 0;
    property_set(kSubscribeStatusProperty, "false");
}

bool LumacastService::readCameraPresent() {
    char status[100];
    memset(status, 0, sizeof(status));
    property_get(kUsbStatusProperty, status, "0");
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "LumacastService getCamerastatus status = %s",
                        status);
    return status[0] == '1';
}

bool LumacastService::continueProcess() {
    if (insideDelivery()) {
        // The camera's answer would be read by this very thread, which is busy calling the
        // listener that made this call: the wait could only run out.
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "LumacastService::continueProcess camera command from inside a "
                            "listener's callback refused");
        return false;
    }
    if (!readCameraPresent()) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "LumacastService::continueProcess camera do not exit");
        return false;
    }
    switch (mSocketClient->connectState.load()) {
        case DISCONNECT:
            if (!mSocketClient->init()) {
                __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                    "LumacastService::continueProcess DISCONNECT return");
                return false;
            }
            return true;
        case CONNECTTING:
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "LumacastService::continueProcess CONNECTTING return");
            return false;
        default:
            return true;
    }
}

void LumacastService::processCameraAdd() {
    MutexLock lock(&mLinkMutex);
    if (mSocketClient == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "LumacastService::processCameraAdd mSocketClient is null");
        return;
    }
    if (readCameraPresent()) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "LumacastService::processCameraAdd cameraExist");
        return;
    }
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "LumacastService set sys.kora.usb.status 1");
    property_set(kUsbStatusProperty, "1");
    // cameraExit first: a link about to wait looks at it again after arming its signal.
    mSocketClient->cameraExit = true;
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "SocketClient mSignalAddCamera cameraExit=%d",
                        1);
    if (SignalUtil* signal = mSocketClient->mSignalAddCamera.load()) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "SocketClient mSignalAddCamera signal");
        signal->signal();
    }
}

void LumacastService::processCameraRemove() {
    MutexLock lock(&mLinkMutex);
    if (mSocketClient == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "LumacastService::processCameraRemove mSocketClient is null");
        return;
    }
    if (!readCameraPresent()) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "LumacastService::processCameraRemove not cameraExist");
        return;
    }
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "LumacastService set sys.kora.usb.status 0");
    property_set(kUsbStatusProperty, "0");
    mSocketClient->cameraExit = false;
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "SocketClient mSignalAddCamera cameraExit=%d",
                        0);
}

void LumacastService::startAliveTimer() {
    if (mUSBEventInterrupt != nullptr && mUSBEventInterrupt->mKeepAlive &&
        mSocketTimer != nullptr) {
        mSocketTimer->start(kAliveIntervalMs);
    }
}

// ---- listeners ------------------------------------------------------------------------

Status LumacastService::setCallback(const sp<ILumacastCallback>& callback, bool* _aidl_return) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "LumacastService::setCallback");
    if (callback.get() == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "LumacastService::setCallback nullptr == cb.get() err");
        *_aidl_return = false;
        return Status::ok();
    }
    startAliveTimer();
    insertListener(callback);
    *_aidl_return = true;
    return Status::ok();
}

Status LumacastService::removeCallback(const sp<ILumacastCallback>& callback, bool* _aidl_return) {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "LumacastService::removeCallback");
    if (callback.get() == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "LumacastService::removeCallback nullptr == cb.get() err");
        *_aidl_return = false;
        return Status::ok();
    }
    removeListener(callback);
    *_aidl_return = true;
    return Status::ok();
}

// A listener may register or remove listeners from inside its callback. That call runs on
// the delivering thread, which holds mCallbackMutex for the whole delivery and cannot go on
// before the call returns, so it changes the list without taking the lock again. The
// delivery in progress then goes on over the changed list: a listener removed under it is
// not called any more, not even for the rest of this block; a listener added (or
// registered again, which moves it to the end) under it hears from the next block on.
// Other threads still wait for the delivery to finish.
void LumacastService::insertListener(const sp<ILumacastCallback>& callback) {
    {
        MutexLock lock(&mCallbackMutex, insideDelivery());
        const sp<IBinder> binder = IInterface::asBinder(callback);
        // A listener registered again keeps its counts.
        std::shared_ptr<ListenerStats> stats;
        for (size_t i = 0; i < mCallbacks.size(); ++i) {
            if (IInterface::asBinder(mCallbacks[i]) == binder) {
                __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                                    "LumacastService::insertListener already exist, remove");
                stats = mListenerStats[i];
                eraseListenerLocked(i);
                break;
            }
        }
        if (stats == nullptr) {
            stats = std::make_shared<ListenerStats>();
            stats->pid = IPCThreadState::self()->getCallingPid();
        }
        mCallbacks.push_back(callback);
        {
            MutexLock statsLock(&mListenerStatsMutex);
            mListenerStats.push_back(stats);
        }
        mCallbackCount = static_cast<int>(mCallbacks.size());
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "LumacastService::insertListener size = %d ",
                            static_cast<int>(mCallbacks.size()));
    }
    property_set(kSubscribeStatusProperty, "true");
}

void LumacastService::removeListener(const sp<ILumacastCallback>& callback) {
    bool empty = false;
    {
        MutexLock lock(&mCallbackMutex, insideDelivery());
        const sp<IBinder> binder = IInterface::asBinder(callback);
        for (size_t i = 0; i < mCallbacks.size(); ++i) {
            if (IInterface::asBinder(mCallbacks[i]) == binder) {
                eraseListenerLocked(i);
                __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                                    "LumacastService::removeListener erase");
                break;
            }
        }
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "LumacastService::removeListener size = %d ",
                            static_cast<int>(mCallbacks.size()));
        empty = mCallbacks.empty();
    }
    if (empty) property_set(kSubscribeStatusProperty, "false");
}

void LumacastService::eraseListenerLocked(size_t index) {
    mCallbacks.erase(mCallbacks.begin() + static_cast<std::ptrdiff_t>(index));
    {
        MutexLock statsLock(&mListenerStatsMutex);
        mListenerStats.erase(mListenerStats.begin() + static_cast<std::ptrdiff_t>(index));
    }
    mCallbackCount = static_cast<int>(mCallbacks.size());
    if (index < mDeliveryNext) --mDeliveryNext;
    if (index < mDeliveryEnd) --mDeliveryEnd;
}

// Without the lock, so that it answers while a delivery waits for a slow listener.
int LumacastService::callbackSize() { return mCallbackCount; }

bool LumacastService::insideDelivery() const { return tDelivering == this; }

// ---- fan-out --------------------------------------------------------------------------

void LumacastService::ListenerStats::record(const Status& status) {
    if (status.isOk()) {
        delivered.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    failed.fetch_add(1, std::memory_order_relaxed);
    lastException.store(status.exceptionCode(), std::memory_order_relaxed);
    lastError.store(status.transactionError(), std::memory_order_relaxed);
}

template <typename F>
void LumacastService::fanOut(F deliver) {
    MutexLock lock(&mCallbackMutex);
    tDelivering = this;
    mDeliveryEnd = mCallbacks.size();
    for (mDeliveryNext = 0; mDeliveryNext < mDeliveryEnd;) {
        // Copies: the listener may remove itself and must outlive its own call.
        const sp<ILumacastCallback> callback = mCallbacks[mDeliveryNext];
        const std::shared_ptr<ListenerStats> stats = mListenerStats[mDeliveryNext];
        ++mDeliveryNext;
        stats->record(deliver(callback));
    }
    mDeliveryNext = 0;
    mDeliveryEnd = 0;
    tDelivering = nullptr;
}

int LumacastService::processFrame(int blockCount, int blockParam, unsigned char* data, int len) {
    if (data == nullptr) len = 0;
    // One copy per block, shared by every listener.
    const std::vector<uint8_t> block(data, data + (len > 0 ? len : 0));
    fanOut([&](const sp<ILumacastCallback>& callback) {
        return callback->onFrame(blockCount, blockParam, block);
    });
    return 0;
}

int LumacastService::processAiProtobuf(unsigned char* data, int len) {
    if (data == nullptr) len = 0;
    const std::vector<uint8_t> block(data, data + (len > 0 ? len : 0));
    fanOut([&](const sp<ILumacastCallback>& callback) { return callback->onProtoBuf(block); });
    return 0;
}

int LumacastService::processAiJson(unsigned char* data, int /*len*/) {
    if (data == nullptr) return 0;
    fanOut([&](const sp<ILumacastCallback>& callback) {
        return callback->onAiData(std::string(reinterpret_cast<const char*>(data)));
    });
    return 0;
}

// ---- command exchange -----------------------------------------------------------------

SignalUtil** LumacastService::signalFor(CommandKind kind) {
    // No default: a kind added without its field does not compile.
    switch (kind) {
        case SET_ZOOM_SWITCH:
            return &mSignalSetZoomSwitch;
        case GET_ZOOM_SWITCH:
            return &mSignalGetZoomSwitch;
        case GET_AI_ALGO_LIST:
            return &mSignalGetAiAlgoList;
        case SET_AI_SUBSCRIBE_TYPE:
            return &mSignalSetAiSubscribeType;
        case GET_AI_SUBSCRIBE_STATUS:
            return &mSignalGetAiSubscribeStatus;
        case SET_AI_SUBSCRIBE:
            return &mSignalSetAiSubscribe;
        case GET_AI_SUBSCRIBE:
            return &mSignalGetAiSubscribe;
        case GRAB_FRAME:
            return &mSignalGrapFrame;
        case SEND_DOA:
            return &mSignalSendDoa;
        case SET_AUTO_FRAMING:
            return &mSignalSetAutoFraming;
        case GET_AUTO_FRAMING:
            return &mSignalgetAutoFraming;
        case SET_ZOOM_MODE:
            return &mSignalSetZoomMode;
        case GET_ZOOM_MODE:
            return &mSignalGetZoomMode;
        case SET_AI_PROPERTY:
            return &mSignalSetAiProperty;
        case GET_AI_PROPERTY:
            return &mSignalGetAiProperty;
        case COMMAND_KIND_COUNT:
            break;
    }
    return nullptr;
}

void LumacastService::resetResultSlot() {
    MutexLock lock(&mExchangeMutex);
    mCmd = -1;
    mParam = -1;
    mRetVal = -1;
}

bool LumacastService::formatText(char* buffer, size_t size, const char* format, ...) {
    memset(buffer, 0, size);
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(buffer, size, format, args);
    va_end(args);
    return n >= 0 && static_cast<size_t>(n) < size && n <= MAX_COMMAND_TEXT;
}

int LumacastService::writePacket(const char* text, unsigned char* out) {
    memset(out, 0, SEND_BUFFER_SIZE);
    const size_t len = strlen(text);
    memcpy(out, CMD_HEAD_MAGIC, sizeof(CMD_HEAD_MAGIC));
    writeBigEndian32(out + 4, static_cast<uint32_t>(len));
    memcpy(out + LEN_CMD_HEAD, text, len);
    return static_cast<int>(len) + LEN_CMD_HEAD;
}

int LumacastService::convertCmdParamToJson(unsigned cmd, unsigned param, unsigned char* out) {
    char text[50];
    memset(text, 0, sizeof(text));
    // Both as signed decimals; the longest text, 35 characters, always fits.
    snprintf(text, sizeof(text), "{\"cmd_id\":%d,\"param\":%d}", static_cast<int>(cmd),
             static_cast<int>(param));
    return writePacket(text, out);
}

void LumacastService::parseCmdParamFromJson(unsigned char* json, int* cmd, int* param, int* rval) {
    if (json == nullptr || json[0] == '\0') {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                            "LumacastService::parseCmdParamFromJson nullptr == jsonData err");
        return;
    }
    const char* text = reinterpret_cast<const char*>(json);
    // Skip to the first digit, then read with automatic base; a minus sign is skipped
    // with the rest, so values come without their sign.
    sscanf(text, "%*[^0-9]%i", cmd);
    if (const char* at = strstr(text, "param")) sscanf(at, "%*[^0-9]%i", param);
    if (const char* at = strstr(text, "rval")) sscanf(at, "%*[^0-9]%i", rval);
}

bool LumacastService::exchange(const CameraOperation& op, const char* text, Reply* reply) {
    SignalUtil* signal = nullptr;
    {
        MutexLock lock(&mExchangeMutex);
        mCmd = -1;
        mParam = -1;
        mRetVal = -1;
        SignalUtil** field = signalFor(op.kind);
        if (field != nullptr && *field == nullptr) {
            signal = new SignalUtil();
            // Armed before the command can reach the camera, so an answer that comes
            // before this thread waits still wakes it.
            signal->arm();
            *field = signal;
            mReplies[op.kind] = Reply();
        }
    }
    if (signal == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "%s", op.busy);
        mCommands.busy.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    {
        MutexLock lock(&mSendMutex);
        const int len = writePacket(text, mSendBuffer);
        // A row's echo takes the text or nothing; printf ignores an argument left over.
        if (op.echo != nullptr) __android_log_print(op.echoPriority, LOG_TAG, op.echo, text);
        mSocketClient->process(static_cast<unsigned>(op.cmdId), mSendBuffer, len);
    }
    mCommands.sent.fetch_add(1, std::memory_order_relaxed);
    const int retWait = signal->wait(RESULT_WAIT_MS);
    {
        MutexLock lock(&mExchangeMutex);
        *signalFor(op.kind) = nullptr;
        *reply = mReplies[op.kind];
        (reply->arrived ? mCommands.answered : mCommands.timedOut)
                .fetch_add(1, std::memory_order_relaxed);
    }
    reply->retWait = retWait;
    delete signal;
    return true;
}

void LumacastService::wakeLocked(CommandKind kind, bool keepText, bool logSignal,
                                 const unsigned char* data, int len) {
    SignalUtil** field = signalFor(kind);
    SignalUtil* signal = field != nullptr ? *field : nullptr;
    if (signal == nullptr) return;
    Reply& reply = mReplies[kind];
    reply.arrived = true;
    reply.cmd = mCmd;
    reply.param = mParam;
    reply.rval = mRetVal;
    if (keepText) {
        // A text of RESULT_TEXT_SIZE bytes or more is cut so that its zero still fits.
        int keep = len < 0 ? 0 : len;
        if (keep > RESULT_TEXT_SIZE - 1) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "LumacastService::processResult text len:%d cut to %d", len,
                                RESULT_TEXT_SIZE - 1);
            keep = RESULT_TEXT_SIZE - 1;
        }
        memset(sResultText, 0, sizeof(sResultText));
        memcpy(sResultText, data, static_cast<size_t>(keep));
        memcpy(reply.text, sResultText, sizeof(reply.text));
    }
    if (logSignal)
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "LumacastService::processResult  signal");
    signal->signal();
}

int LumacastService::processResult(unsigned char* data, int len) {
    if (data == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "LumacastService::processResult nullptr = data");
        return -1;
    }
    int cmd = -1;
    int param = -1;
    int rval = -1;
    parseCmdParamFromJson(data, &cmd, &param, &rval);
    MutexLock lock(&mExchangeMutex);
    memset(sResultText, 0, sizeof(sResultText));
    mCmd = cmd;
    mParam = param;
    mRetVal = rval;
    if (cmd == kHeartbeatCmd) return 0;
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG,
                        "LumacastService::processResult mCmd = %d, mParam = %d, mRetVal = %d", mCmd,
                        mParam, mRetVal);
    __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "LumacastService::processResult len = %d, %s",
                        len, reinterpret_cast<const char*>(data));
    // One result wakes every waiting call that shares its id.
    switch (cmd) {
        case 1:
            wakeLocked(SET_AI_SUBSCRIBE, false, false, data, len);
            wakeLocked(SET_AI_SUBSCRIBE_TYPE, false, true, data, len);
            break;
        case 2:
            wakeLocked(GET_AI_SUBSCRIBE, true, false, data, len);
            wakeLocked(GET_AI_SUBSCRIBE_STATUS, false, true, data, len);
            break;
        case 3:
            wakeLocked(GRAB_FRAME, false, true, data, len);
            break;
        case 4:
            wakeLocked(SEND_DOA, false, true, data, len);
            break;
        case 5:
            wakeLocked(SET_AI_PROPERTY, false, true, data, len);
            break;
        case 6:
            wakeLocked(GET_AI_PROPERTY, true, true, data, len);
            break;
        case 12:
            wakeLocked(SET_AUTO_FRAMING, false, true, data, len);
            break;
        case 13:
            wakeLocked(GET_AUTO_FRAMING, false, true, data, len);
            break;
        case 14:
            wakeLocked(SET_ZOOM_MODE, false, false, data, len);
            wakeLocked(SET_ZOOM_SWITCH, false, true, data, len);
            break;
        case 15:
            wakeLocked(GET_ZOOM_MODE, true, false, data, len);
            wakeLocked(GET_ZOOM_SWITCH, false, true, data, len);
            break;
        case 16:
            wakeLocked(GET_AI_ALGO_LIST, false, true, data, len);
            break;
        default:
            break;
    }
    return 0;
}

// ---- the fifteen camera operations ----------------------------------------------------

namespace {

// What the caller gets when the command was not sent.
void giveFailure(bool* out) { *out = false; }
void giveFailure(int32_t* out) { *out = 0; }
void giveFailure(std::string* out) { out->clear(); }

// The binder methods' arguments as printf takes them.
int printfArg(int value) { return value; }
const char* printfArg(const std::string& value) { return value.c_str(); }

// Logs `format` with the first of the arguments, as many as it takes.
template <typename Tuple, size_t... I>
void logWithFirst(int priority, const char* format, const Tuple& args, std::index_sequence<I...>) {
    if constexpr (sizeof...(I) == 0) {
        __android_log_print(priority, LOG_TAG, "%s", format);
    } else {
        __android_log_print(priority, LOG_TAG, format, std::get<I>(args)...);
    }
}

// The length of the string argument, for the too-long message.
size_t lengthOf(int) { return 0; }
size_t lengthOf(const std::string& value) { return value.size(); }

}  // namespace

template <CommandKind kind, typename Out, typename... Args>
Status LumacastService::run(Out* out, const Args&... args) {
    using namespace camera_formats;
    constexpr const CameraOperation& op = kCameraOperations[kind];
    constexpr const char* letters = Letters<Args...>::value;
    constexpr const char* textLetters = Letters<int, Args...>::value;
    static_assert(takesFirstOf(op.entry, letters), "entry message against the arguments");
    static_assert(takes(op.text, textLetters), "command text against cmd_id and the arguments");
    static_assert(op.textSize <= sizeof(mSendBuffer), "text buffer within the packet");
    static_assert(op.echo == nullptr || takesFirstOf(op.echo, "s"), "echo takes the text");
    static_assert(takes(op.mismatch, "dddd") || takes(op.mismatch, "ddd"),
                  "mismatch takes retWait, mCmd, [mParam,] mRetVal");
    static_assert(
            (op.tooLong != nullptr) == (sizeof...(Args) > 0 && letters[sizeof...(Args) - 1] == 's'),
            "a too-long message exactly for the operations that end in a string");
    static_assert(op.tooLong == nullptr || takes(op.tooLong, "z"), "too-long takes the length");
    static_assert((op.judge == Judge::TEXT) == std::is_same<Out, std::string>::value &&
                          (op.judge == Judge::COUNT) == std::is_same<Out, int32_t>::value,
                  "the caller's type fits the judging rule");

    logWithFirst(ANDROID_LOG_DEBUG, op.entry, std::make_tuple(printfArg(args)...),
                 std::make_index_sequence<conversions(op.entry)>());
    if constexpr (op.judge == Judge::TEXT) {
        MutexLock lock(&mExchangeMutex);
        memset(sResultText, 0, sizeof(sResultText));
    }
    char text[op.textSize];
    if (!formatText(text, sizeof(text), op.text, op.cmdId, printfArg(args)...)) {
        // Only a string argument can make the text too long.
        giveFailure(out);
        if constexpr (op.tooLong != nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, op.tooLong, (lengthOf(args) + ...));
        }
        return Status::ok();
    }
    if (!continueProcess()) {
        giveFailure(out);
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "%s", op.notReady);
        return Status::ok();
    }
    startAliveTimer();
    Reply r;
    if (!exchange(op, text, &r)) return Status::ok();
    const bool matched = r.retWait == 0 && r.cmd == op.cmdId;
    bool success = false;
    switch (op.judge) {
        case Judge::SWITCH:
            success = matched && r.param == 1 && r.rval == 0;
            break;
        case Judge::COUNT:
        case Judge::RESULT:
            success = matched && r.rval == 0;
            break;
        case Judge::TEXT:
            success = matched;
            break;
    }
    if constexpr (std::is_same<Out, std::string>::value) {
        *out = r.text;
    } else if constexpr (std::is_same<Out, int32_t>::value) {
        *out = success ? r.param : 0;
    } else {
        *out = success;
    }
    if (!success) {
        if constexpr (takes(op.mismatch, "dddd")) {
            __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, op.mismatch, r.retWait, r.cmd, r.param,
                                r.rval);
        } else {
            __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, op.mismatch, r.retWait, r.cmd, r.rval);
        }
    }
    return Status::ok();
}

Status LumacastService::setZoomSwitch(bool on, bool* _aidl_return) {
    return run<SET_ZOOM_SWITCH>(_aidl_return, on ? 1 : 0);
}

Status LumacastService::getZoomSwitch(bool* _aidl_return) {
    return run<GET_ZOOM_SWITCH>(_aidl_return, 0);
}

Status LumacastService::getAiAlgoList(int32_t* _aidl_return) {
    return run<GET_AI_ALGO_LIST>(_aidl_return, 0);
}

Status LumacastService::setAiSubscribeType(int32_t type, bool* _aidl_return) {
    return run<SET_AI_SUBSCRIBE_TYPE>(_aidl_return, type);
}

Status LumacastService::getAiSubscribeStatus(int32_t* _aidl_return) {
    return run<GET_AI_SUBSCRIBE_STATUS>(_aidl_return, 0);
}

Status LumacastService::setAiProperty(const std::string& param, bool* _aidl_return) {
    return run<SET_AI_PROPERTY>(_aidl_return, param);
}

Status LumacastService::getAiProperty(const std::string& param, std::string* _aidl_return) {
    return run<GET_AI_PROPERTY>(_aidl_return, param);
}

Status LumacastService::setAiSubscribe(int32_t param, const std::string& option,
                                       bool* _aidl_return) {
    return run<SET_AI_SUBSCRIBE>(_aidl_return, param, option);
}

Status LumacastService::getAiSubscribe(std::string* _aidl_return) {
    return run<GET_AI_SUBSCRIBE>(_aidl_return, 0);
}

Status LumacastService::grabFrame(int32_t format, const std::string& resolution,
                                  bool* _aidl_return) {
    return run<GRAB_FRAME>(_aidl_return, format, resolution);
}

Status LumacastService::sendDoa(const std::string& data, bool* _aidl_return) {
    return run<SEND_DOA>(_aidl_return, data);
}

Status LumacastService::setAutoFraming(int32_t param, bool* _aidl_return) {
    return run<SET_AUTO_FRAMING>(_aidl_return, param);
}

Status LumacastService::getAutoFraming(bool* _aidl_return) {
    return run<GET_AUTO_FRAMING>(_aidl_return, 0);
}

Status LumacastService::setZoomMode(int32_t param, int32_t mode, bool* _aidl_return) {
    return run<SET_ZOOM_MODE>(_aidl_return, param, mode);
}

Status LumacastService::getZoomMode(std::string* _aidl_return) {
    return run<GET_ZOOM_MODE>(_aidl_return, 0);
}

// ---- dump ----------------------------------------------------------------------------

// What `dumpsys lumacastservice --help` answers: one line per line of the dump.
constexpr char kDumpHelp[] =
        "lumacastservice dump shows:\n"
        "  camera present: sys.kora.usb.status, as the USB watcher set it\n"
        "  link: the connection state and whether the camera flag is set\n"
        "  link counters: reconnects by the read loop, connections dropped under a read,\n"
        "    messages read, those refused by a length bound, and the last connect or read\n"
        "    error\n"
        "  camera model needs heartbeat, heartbeat: the model's need and the timer\n"
        "  listeners: how many, then one line each in delivery order: the pid that\n"
        "    registered it (where binder told), deliveries made and failed, and the status\n"
        "    of the last failure\n"
        "  kora.camera.subscribe_status: as set for other programs\n"
        "  commands waiting for the camera: the kinds waiting now\n"
        "  commands: sent to the camera, answered, timed out after 3000 ms, refused because\n"
        "    a call of the same kind was waiting\n";

status_t LumacastService::dump(int fd, const Vector<String16>& args) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == String16("--help") || args[i] == String16("-h")) {
            return writeDumpText(fd, kDumpHelp);
        }
    }
    char usbStatus[PROPERTY_VALUE_MAX] = {};
    property_get(kUsbStatusProperty, usbStatus, "");
    char subscribeStatus[PROPERTY_VALUE_MAX] = {};
    property_get(kSubscribeStatusProperty, subscribeStatus, "");

    std::string text = "lumacastservice (kora.lumacast.ILumacast)\n";
    text += std::string("  camera present: ") + (usbStatus[0] == '1' ? "yes" : "no") + " (" +
            kUsbStatusProperty + "=" + (usbStatus[0] != '\0' ? usbStatus : "unset") + ")\n";
    {
        MutexLock lock(&mLinkMutex);
        if (mSocketClient != nullptr) {
            static const char* const kStates[] = {"DISCONNECT", "CONNECTED", "CONNECTTING"};
            const int state = mSocketClient->connectState.load();
            text += std::string("  link: ") + (state >= 0 && state <= 2 ? kStates[state] : "?") +
                    ", camera flag " + (mSocketClient->cameraExit ? "set" : "clear") + "\n";
            const SocketClient::Counters& c = mSocketClient->mCounters;
            const int err = c.lastError.load(std::memory_order_relaxed);
            text += "  link counters: reconnects " + count(c.reconnects) + ", drops " +
                    count(c.drops) + ", messages read " + count(c.messagesRead) +
                    ", refused by length bounds " + count(c.messagesRefused) + ", last error " +
                    (err == 0 ? std::string("none")
                              : std::string(strerror(err)) + " (" + std::to_string(err) + ")") +
                    "\n";
        } else {
            text += "  link: none (service destroyed)\n";
        }
        const bool keepAlive = mUSBEventInterrupt != nullptr && mUSBEventInterrupt->mKeepAlive;
        const bool armed = mSocketTimer != nullptr && mSocketTimer->isStarted();
        text += std::string("  camera model needs heartbeat: ") + (keepAlive ? "yes" : "no") + "\n";
        text += std::string("  heartbeat: ") +
                (armed ? "every " + std::to_string(kAliveIntervalMs) + " ms" : "not armed") + "\n";
    }
    text += "  listeners: " + std::to_string(mCallbackCount.load()) + "\n";
    std::vector<std::shared_ptr<ListenerStats>> listeners;
    {
        MutexLock lock(&mListenerStatsMutex);
        listeners = mListenerStats;
    }
    for (size_t i = 0; i < listeners.size(); ++i) {
        const ListenerStats& l = *listeners[i];
        const uint64_t failed = l.failed.load(std::memory_order_relaxed);
        std::string last;
        if (failed != 0) {
            const int32_t exception = l.lastException.load(std::memory_order_relaxed);
            last = exception == Status::EX_TRANSACTION_FAILED
                           ? ", last failure: transaction error " +
                                     std::to_string(l.lastError.load(std::memory_order_relaxed))
                           : ", last failure: exception " + std::to_string(exception);
        }
        text += "    #" + std::to_string(i + 1) + " pid " +
                (l.pid > 0 ? std::to_string(l.pid) : std::string("unknown")) + ": delivered " +
                count(l.delivered) + ", failed " + std::to_string(failed) + last + "\n";
    }
    text += std::string("  ") + kSubscribeStatusProperty + ": " +
            (subscribeStatus[0] != '\0' ? subscribeStatus : "unset") + "\n";
    std::string waiting;
    {
        MutexLock lock(&mExchangeMutex);
        for (int k = 0; k < COMMAND_KIND_COUNT; ++k) {
            if (*signalFor(static_cast<CommandKind>(k)) != nullptr) {
                waiting += std::string(waiting.empty() ? "" : ", ") + kCameraOperations[k].name;
            }
        }
    }
    text += "  commands waiting for the camera: " + (waiting.empty() ? "none" : waiting) + "\n";
    text += "  commands: sent " + count(mCommands.sent) + ", answered " +
            count(mCommands.answered) + ", timed out " + count(mCommands.timedOut) +
            ", refused as busy " + count(mCommands.busy) + "\n";

    return writeDumpText(fd, text);
}

}  // namespace lumacast
}  // namespace android
