#define LOG_TAG "lumacastservice"

#include "socket/SocketClient.h"

#include <arpa/inet.h>
#include <errno.h>
#include <log/log.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

#include "socket/CameraProtocol.h"

namespace android {
namespace lumacast {

namespace {

constexpr useconds_t kReconnectPauseUs = 100000;
constexpr int kMaxReconnectCount = 9;
constexpr int kUninitWaitMs = 5000;
// While init() connects on a binder thread, the read loop looks again this often.
constexpr useconds_t kConnectingPollUs = 10000;
// Pace of reconnects after dropped connections; see runPasses.
constexpr std::chrono::milliseconds kDropPause(100);
constexpr std::chrono::milliseconds kMaxDropPause(1000);
// Bounds connect() and every write: a camera that neither answers nor refuses must not
// hold a binder thread or the write thread for minutes.
constexpr time_t kSendTimeoutSec = 2;

}  // namespace

int SocketClient::Client::selfProcess(void* data1, void* data2) {
    if (data1 == nullptr || data2 == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::Client::selfProcess nullptr == data1 || nullptr == "
                            "data2 err");
        return -1;
    }
    if (mParent == nullptr) return -1;
    const char* name = static_cast<const char*>(data2);
    if (strcmp(name, mParent->mThreadReadName) == 0) return mParent->socketRead();
    if (strcmp(name, mParent->mThreadWriteName) == 0) return mParent->socketWrite();
    return -2;
}

SocketClient::SocketClient(ILumacastClient* client)
    : connectState(DISCONNECT),
      cameraExit(false),
      mSignalAddCamera(nullptr),
      mThreadWriteName("socketWrite"),
      mThreadReadName("socketRead"),
      mThreadWrite(nullptr),
      mThreadRead(nullptr),
      mWriteClient(nullptr),
      mReadClient(nullptr),
      mSendInfo{0, nullptr, 0},
      mDataType(0),
      mJsonLen(0),
      mBlockCount(0),
      mRecvJson(nullptr),
      mSocketFD(-1),
      mLumacastClient(client),
      mIsUninit(false),
      mSignalUninit(nullptr),
      mAiData(nullptr),
      mDelivered(0),
      mShuttingDown(false),
      mLoopRunning(false),
      mWriter(Writer::IDLE),
      mSendFrame{} {
    mReadClient = new Client(this);
    mWriteClient = new Client(this);
    mThreadRead = new PThreadUtil(mThreadReadName, mReadClient);
    mThreadWrite = new PThreadUtil(mThreadWriteName, mWriteClient);
}

SocketClient::~SocketClient() {
    uninit();
    delete mThreadRead;
    mThreadRead = nullptr;
    delete mThreadWrite;
    mThreadWrite = nullptr;
    delete mReadClient;
    mReadClient = nullptr;
    delete mWriteClient;
    mWriteClient = nullptr;
    free(mAiData);
    mAiData = nullptr;
    free(mRecvJson);
    mRecvJson = nullptr;
    delete mSignalAddCamera.exchange(nullptr);
}

int SocketClient::connectCamera(int* stage) {
    *stage = 0;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    struct timeval timeout = {kSendTimeoutSec, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_port = htons(CAMERA_PORT);
    inet_pton(AF_INET, CAMERA_ADDRESS, &addr.sin_addr);
    *stage = 1;
    if (connect(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        const int err = errno;
        close(fd);
        errno = err;
        return -1;
    }
    // Each command is one small write whose answer is awaited; do not hold it back.
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
    return fd;
}

void SocketClient::setStateLocked(ConnectState state) {
    connectState = state;
    mCond.notify_all();
}

bool SocketClient::beginConnectLocked() {
    if (mShuttingDown || connectState != DISCONNECT) return false;
    setStateLocked(CONNECTTING);
    return true;
}

void SocketClient::endConnectAttemptLocked() { setStateLocked(DISCONNECT); }

void SocketClient::endConnectAttempt() {
    std::lock_guard<std::mutex> lock(mMutex);
    endConnectAttemptLocked();
}

int SocketClient::connectOrEnd(bool byInit) {
    int stage = 0;
    const int fd = connectCamera(&stage);
    if (fd < 0) {
        const int err = errno;
        mCounters.lastError.store(err, std::memory_order_relaxed);
        // Literal formats at the call, so that -Wformat checks every one of them.
        if (byInit) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                stage == 0
                                        ? "SocketClient::init socket mSocketFD:%d failed!(%s,%d)"
                                        : "SocketClient::init connect retSocket:%d failed!(%s,%d)",
                                fd, strerror(err), err);
        } else {
            __android_log_print(
                    ANDROID_LOG_ERROR, LOG_TAG,
                    stage == 0 ? "SocketClient::reconnect socket socketFD:%d failed!(%s,%d)"
                               : "SocketClient::reconnect connect ret:%d failed!(%s,%d)",
                    fd, strerror(err), err);
        }
        endConnectAttempt();
    }
    return fd;
}

bool SocketClient::installSocket(int fd) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mShuttingDown) {
        close(fd);
        endConnectAttemptLocked();
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient connection refused: shutting down");
        return false;
    }
    closeConnectionLocked(lock);
    mSocketFD = fd;
    mConnectedAt = std::chrono::steady_clock::now();
    mIsUninit = false;
    setStateLocked(CONNECTED);
    return true;
}

void SocketClient::closeConnectionLocked(std::unique_lock<std::mutex>& lock) {
    const int fd = mSocketFD;
    if (fd >= 0) {
        // Wakes a write blocked on a full socket; the close then waits until that write has
        // returned, so the descriptor number is never reused under it.
        shutdown(fd, SHUT_RDWR);
        mCond.wait(lock, [this] { return mWriter != Writer::WRITING; });
        close(fd);
        mSocketFD = -1;
    }
    if (connectState == CONNECTED) setStateLocked(DISCONNECT);
}

bool SocketClient::init() {
    if (connectState == CONNECTED) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::init connectState:%d ",
                            CONNECTED);
        return true;
    }
    {
        std::unique_lock<std::mutex> lock(mMutex);
        if (mShuttingDown) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "SocketClient::init shutting down");
            return false;
        }
        if (connectState == CONNECTTING) {
            // Another caller or the read loop is connecting: one connection at a time, and
            // its outcome is this call's too.
            __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::init connectState:%d ",
                                CONNECTTING);
            mCond.wait(lock, [this] { return connectState != CONNECTTING; });
            return connectState == CONNECTED;
        }
        if (!beginConnectLocked()) return true;  // connected meanwhile
    }
    if (mThreadRead == nullptr || !mThreadRead->isInited()) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::init nullptr == mThreadRead err");
        endConnectAttempt();
        return false;
    }
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::init connect ");
    const int fd = connectOrEnd(true);
    if (fd < 0 || !installSocket(fd)) return false;

    bool handOver = false;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        handOver = !mLoopRunning;
        mLoopRunning = true;
    }
    if (handOver) {
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::init mThreadRead->process");
        mThreadRead->process(&mDataType);
    } else {
        // A run between reconnects or waiting for the camera reads the new connection.
        __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::init read loop running");
    }
    return true;
}

bool SocketClient::reconnect() {
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::reconnect start");
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (!beginConnectLocked()) return false;
    }
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::reconnect connect ");
    const int fd = connectOrEnd(false);
    if (fd < 0 || !installSocket(fd)) return false;
    mCounters.reconnects.fetch_add(1, std::memory_order_relaxed);
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::reconnect success");
    return true;
}

int SocketClient::socketRead() {
    const ConnectState state = connectState;
    int ret = 0;
    if (state != CONNECTED) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead connectState:%d err", state);
        ret = -1;
    } else if (mSocketFD < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead 0 > mSocketFD:%d err", mSocketFD.load());
        ret = -2;
    }
    if (ret == 0) runPasses();
    while (!finishRun()) runPasses();
    return ret;
}

bool SocketClient::finishRun() {
    std::lock_guard<std::mutex> lock(mMutex);
    // init() found this run going and left its new connection to it.
    if (!mIsUninit && connectState == CONNECTED) return false;
    mLoopRunning = false;
    // Under mMutex, so uninit() cannot delete the signal while it is given.
    if (mSignalUninit != nullptr) mSignalUninit->signal();
    mCond.notify_all();
    return true;
}

void SocketClient::runPasses() {
    if (mIsUninit) return;
    int reconnectCount = 0;
    // A camera that accepts and hangs up at once (firmware still booting, a server that
    // resets) would be reconnected in a tight loop: a successful reconnect does not count
    // against the run's budget, so that an occasional drop over hours of streaming never
    // ends the run. Drops are paced instead: the next attempt starts at least kDropPause
    // after the dropped connection was made, and while connections keep ending before the
    // camera has sent anything the pause doubles up to kMaxDropPause, which keeps both the
    // attempts and the few lines each one logs to a trickle.
    std::chrono::milliseconds dropPause = kDropPause;
    for (;;) {
        if (!cameraExit) {
            waitForCamera();
            if (mIsUninit) return;
        }
        const ConnectState state = connectState;
        if (state == DISCONNECT) {
            if (!reconnect()) {
                __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                    "SocketClient::socketRead reconnectSts:%d reconnectCount:%d", 0,
                                    reconnectCount);
                if (reconnectCount > kMaxReconnectCount || mIsUninit) return;
                usleep(kReconnectPauseUs);
                ++reconnectCount;
                if (mIsUninit) return;
                continue;
            }
        } else if (state == CONNECTTING) {
            usleep(kConnectingPollUs);
            if (mIsUninit) return;
            continue;
        }
        const uint64_t delivered = mDelivered;
        readMessage();
        if (mIsUninit) return;
        if (mDelivered != delivered) dropPause = kDropPause;
        if (connectState == DISCONNECT) paceAfterDrop(&dropPause);
    }
}

void SocketClient::paceAfterDrop(std::chrono::milliseconds* pause) {
    std::unique_lock<std::mutex> lock(mMutex);
    const auto next = mConnectedAt + *pause;
    *pause = std::min(*pause * 2, kMaxDropPause);
    // A command that needs the camera connects through init() at once; its answer must
    // not wait for the pause.
    mCond.wait_until(lock, next, [this] { return mShuttingDown || connectState == CONNECTED; });
}

void SocketClient::waitForCamera() {
    {
        std::unique_lock<std::mutex> lock(mMutex);
        closeConnectionLocked(lock);
    }
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient camera do not exit, wait");
    SignalUtil* signal = mSignalAddCamera.load();
    if (signal == nullptr) {
        signal = new SignalUtil();
        mSignalAddCamera.store(signal);
    }
    // The service sets cameraExit and then signals. Arming before the last look keeps an
    // add that falls between that look and the wait from being lost.
    while (!cameraExit && !mIsUninit) {
        signal->arm();
        if (cameraExit || mIsUninit) break;
        signal->wait();
    }
}

void SocketClient::wakeCameraWait() {
    SignalUtil* signal = mSignalAddCamera.load();
    if (signal != nullptr) signal->signal();
}

bool SocketClient::readFully(int fd, uint8_t* buffer, int len, ssize_t* lastResult) {
    int got = 0;
    while (got < len) {
        errno = 0;
        const ssize_t n = read(fd, buffer + got, static_cast<size_t>(len - got));
        if (n < 0 && errno == EINTR) continue;
        *lastResult = n;
        if (n <= 0) return false;
        got += static_cast<int>(n);
    }
    return true;
}

void SocketClient::readMessage() {
    const int fd = mSocketFD;
    uint8_t head[LEN_AI_HEAD];
    errno = 0;
    const ssize_t headLen = read(fd, head, sizeof(head));
    if (headLen <= 0) {
        const int err = errno;
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead LEN_AI_HEAD(%d) > readLen(%d) failed(%s,%d)",
                            LEN_AI_HEAD, static_cast<int>(headLen), strerror(err), err);
        if (headLen < 0 && err == EINTR) return;
        // End of stream and ECONNABORTED are dropped like any other failure: the dead
        // socket would otherwise be read again at once, without end.
        mCounters.drops.fetch_add(1, std::memory_order_relaxed);
        mCounters.lastError.store(err, std::memory_order_relaxed);
        std::unique_lock<std::mutex> lock(mMutex);
        closeConnectionLocked(lock);
        return;
    }
    if (headLen < LEN_AI_HEAD) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead read head len:%d (LEN_AI_HEAD:%d)",
                            static_cast<int>(headLen), LEN_AI_HEAD);
        return;
    }
    if (head[0] != MSG_MAGIC_0 || head[1] != MSG_MAGIC_1 || head[2] != MSG_MAGIC_2 ||
        (head[3] != MSG_KIND_DATA && head[3] != MSG_KIND_RESULT)) {
        return;
    }
    // Every message with a valid head; those refused by a length bound are among them.
    mCounters.messagesRead.fetch_add(1, std::memory_order_relaxed);
    const uint8_t kind = head[3];
    mDataType = readBigEndian16(head + 4);
    mJsonLen = readBigEndian32(head + 16);
    mBlockCount = readBigEndian32(head + 20);
    if (mBlockCount > MAX_BLOCK_COUNT) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead block count:%u > %u, message dropped",
                            mBlockCount, MAX_BLOCK_COUNT);
        mCounters.messagesRefused.fetch_add(1, std::memory_order_relaxed);
        return;
    }

    for (uint32_t i = 0; i < mBlockCount; ++i) {
        if (!cameraExit || connectState == DISCONNECT) break;
        uint8_t blockHead[LEN_BLOCK_HEAD];
        ssize_t n = 0;
        if (!readFully(fd, blockHead, LEN_BLOCK_HEAD, &n)) {
            const int err = errno;
            __android_log_print(
                    ANDROID_LOG_ERROR, LOG_TAG,
                    "SocketClient::socketRead read cmd block readLen:%d <= 0 err(%s,%d)",
                    static_cast<int>(n), strerror(err), err);
            // The connection has ended or failed; the remaining blocks cannot come.
            break;
        }
        const int32_t payloadLen = static_cast<int32_t>(readBigEndian32(blockHead + 8));
        if (payloadLen < 1) continue;
        if (payloadLen > MAX_BLOCK_PAYLOAD_LEN) {
            // The rest of the message cannot be trusted; its bytes are re-examined as headers.
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "SocketClient::socketRead payload len:%d > %d, message dropped",
                                payloadLen, MAX_BLOCK_PAYLOAD_LEN);
            mCounters.messagesRefused.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        void* grown = realloc(mAiData, static_cast<size_t>(payloadLen) + 1);
        if (grown == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "SocketClient::socketRead realloc fail");
            continue;
        }
        mAiData = static_cast<unsigned char*>(grown);
        const int32_t blockParam = static_cast<int32_t>(readBigEndian32(blockHead + 4));
        mAiData[payloadLen] = 0;
        int32_t got = 0;
        while (got < payloadLen) {
            const int32_t want =
                    payloadLen - got < LEN_READ_PIECE ? payloadLen - got : LEN_READ_PIECE;
            errno = 0;
            const ssize_t r = read(fd, mAiData + got, static_cast<size_t>(want));
            if (r < 0 && errno == EINTR) continue;
            if (r <= 0) {
                const int err = errno;
                __android_log_print(
                        ANDROID_LOG_ERROR, LOG_TAG,
                        "SocketClient::socketRead read ai data readLen:%d <= 0 err(%s,%d)",
                        static_cast<int>(r), strerror(err), err);
                break;
            }
            got += static_cast<int32_t>(r);
        }
        // The block goes on all the same; what did not arrive reads as zeros. Zeroing only
        // that part keeps a clear full-length pass off the path of every frame.
        if (got < payloadLen) memset(mAiData + got, 0, static_cast<size_t>(payloadLen - got));
        deliverBlock(blockParam, payloadLen);
    }

    if (kind != MSG_KIND_RESULT || mJsonLen == 0) return;
    free(mRecvJson);
    mRecvJson = nullptr;
    if (mJsonLen > MAX_RESULT_TEXT_LEN) {
        // Left unread; the text's bytes are re-examined as headers.
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead json len:%u > %u, text dropped", mJsonLen,
                            MAX_RESULT_TEXT_LEN);
        mCounters.messagesRefused.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    // Zero-filled, so the bytes beyond a short read are defined.
    mRecvJson = static_cast<char*>(calloc(mJsonLen + 1, 1));
    ssize_t n = -1;
    int err = ENOMEM;
    if (mRecvJson != nullptr) {
        do {
            errno = 0;
            n = read(fd, mRecvJson, mJsonLen);
        } while (n < 0 && errno == EINTR);
        err = errno;
    }
    if (n <= 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead read json readLen:%d <=0 err(%s,%d)",
                            static_cast<int>(n), strerror(err), err);
        free(mRecvJson);
        mRecvJson = nullptr;
        return;
    }
    mRecvJson[mJsonLen] = '\0';
    deliverResult(static_cast<int>(n));
}

void SocketClient::deliverBlock(int blockParam, int len) {
    ++mDelivered;
    if (mLumacastClient == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead nullptr == mLumacastClient err");
        return;
    }
    switch (mDataType) {
        case DATA_TYPE_AI_JSON:
            mLumacastClient->processAiJson(mAiData, len);
            break;
        case DATA_TYPE_AI_PROTOBUF:
            mLumacastClient->processAiProtobuf(mAiData, len);
            break;
        case DATA_TYPE_FRAME:
            mLumacastClient->processFrame(static_cast<int>(mBlockCount), blockParam, mAiData, len);
            break;
        default:
            break;
    }
}

void SocketClient::deliverResult(int len) {
    ++mDelivered;
    if (mLumacastClient == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketRead nullptr == mLumacastClient err");
        return;
    }
    mLumacastClient->processResult(reinterpret_cast<unsigned char*>(mRecvJson), len);
}

void SocketClient::process(unsigned int cmd, unsigned char* data, int len) {
    const ConnectState state = connectState;
    if (state != CONNECTED) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "SocketClient::process connectState:%d err",
                            state);
        return;
    }
    if (mThreadWrite == nullptr || !mThreadWrite->isInited()) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::process nullptr == mThreadWrite err");
        return;
    }
    if (len > MAX_FRAME_LEN) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "SocketClient::process len:%d > %d err",
                            len, MAX_FRAME_LEN);
        return;
    }
    sendFrame(cmd, data, len);
}

void SocketClient::sendFrame(unsigned int cmd, const unsigned char* data, int len) {
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return mWriter == Writer::IDLE; });
        mSendInfo.cmd = cmd;
        mSendInfo.jsonDataLen = len;
        if (data == nullptr) {
            mSendInfo.jsonData = nullptr;
        } else {
            // The writer looks at the first byte even of an empty frame.
            memcpy(mSendFrame, data, len > 0 ? static_cast<size_t>(len) : 1);
            mSendInfo.jsonData = mSendFrame;
        }
        mWriter = Writer::QUEUED;
    }
    mThreadWrite->process(&mSendInfo);
}

int SocketClient::socketWrite() {
    int fd = -1;
    int ret = startWrite(&fd);
    if (ret == 0) {
        // MSG_NOSIGNAL: a camera that has closed the connection yields EPIPE, not SIGPIPE.
        const ssize_t n = send(fd, mSendInfo.jsonData, static_cast<size_t>(mSendInfo.jsonDataLen),
                               MSG_NOSIGNAL);
        const int err = errno;
        if (n < 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                                "SocketClient::socketWrite write ret:%d < 0 failed!(%s,%d)",
                                static_cast<int>(n), strerror(err), err);
            ret = -5;
        }
    }
    std::lock_guard<std::mutex> lock(mMutex);
    mWriter = Writer::IDLE;
    mCond.notify_all();
    return ret;
}

int SocketClient::startWrite(int* fd) {
    std::lock_guard<std::mutex> lock(mMutex);
    const ConnectState state = connectState;
    if (state != CONNECTED) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketWrite connectState:%d err", state);
        return -1;
    }
    *fd = mSocketFD;
    if (*fd < 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketWrite mSocketFD:%d < 0 err", *fd);
        return -2;
    }
    if (mSendInfo.jsonData == nullptr || mSendInfo.jsonData[0] == 0) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketWrite nullptr == pSendInfo->jsonData err");
        return -3;
    }
    if (mSendInfo.jsonDataLen < 1) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::socketWrite pSendInfo->jsonDataLen:%d <= 0 err",
                            mSendInfo.jsonDataLen);
        return -4;
    }
    mWriter = Writer::WRITING;
    return 0;
}

void SocketClient::breakReadBlock() {
    const ConnectState state = connectState;
    if (state != CONNECTED) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::breakReadBlock connectState:%d err", state);
        return;
    }
    if (mThreadWrite == nullptr || !mThreadWrite->isInited()) {
        __android_log_print(ANDROID_LOG_ERROR, LOG_TAG,
                            "SocketClient::breakReadBlock nullptr == mThreadWrite err");
        return;
    }
    char text[50];
    memset(text, 0, sizeof(text));
    snprintf(text, sizeof(text), "%s%d%s%d%s", "{\"cmd_id\":", 1, ",\"param\":", 0, "}");
    const size_t textLen = strlen(text);
    unsigned char frame[LEN_CMD_HEAD + sizeof(text)];
    memcpy(frame, CMD_HEAD_MAGIC, sizeof(CMD_HEAD_MAGIC));
    writeBigEndian32(frame + 4, static_cast<uint32_t>(textLen));
    memcpy(frame + LEN_CMD_HEAD, text, textLen);
    // sendFrame copies it into the link's own frame buffer.
    sendFrame(1, frame, static_cast<int>(LEN_CMD_HEAD + textLen));
}

void SocketClient::uninit() {
    const ConnectState state = connectState;
    SignalUtil* signal = nullptr;
    bool waitForLoop = false;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (state == DISCONNECT) {
            __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "SocketClient::uninit connectState:%d ",
                                state);
            // A run waiting for the camera or between reconnects must still be ended.
            if (!mLoopRunning) return;
        }
        mShuttingDown = true;  // also ends a pause between reconnects
        mIsUninit = true;
        mCond.notify_all();
        signal = new SignalUtil();
        // The loop may end before this thread begins to wait.
        signal->arm();
        mSignalUninit = signal;
        waitForLoop = mLoopRunning;
    }
    wakeCameraWait();
    if (state != DISCONNECT) breakReadBlock();
    if (waitForLoop) {
        const int retWait = signal->wait(kUninitWaitMs);
        if (retWait < 0) {
            __android_log_print(ANDROID_LOG_ERROR, LOG_TAG, "SocketClient::uninit retWait:%d",
                                retWait);
        }
        std::unique_lock<std::mutex> lock(mMutex);
        if (mLoopRunning) {
            // The camera did not answer: force a blocked read to return.
            __android_log_print(
                    ANDROID_LOG_ERROR, LOG_TAG,
                    "SocketClient::uninit read loop still running, shutting down the socket");
            if (mSocketFD >= 0) shutdown(mSocketFD, SHUT_RDWR);
            wakeCameraWait();
            mCond.wait(lock, [this] { return !mLoopRunning; });
        }
    }
    free(mRecvJson);
    mRecvJson = nullptr;
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mSignalUninit = nullptr;
        // The unblocking command may still be queued: it goes out (or fails within the
        // send time-out) before the socket closes under it.
        mCond.wait(lock, [this] { return mWriter == Writer::IDLE; });
        closeConnectionLocked(lock);
        mShuttingDown = false;
        mCond.notify_all();
    }
    delete signal;
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "uninit finish");
}

}  // namespace lumacast
}  // namespace android
