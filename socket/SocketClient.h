#pragma once

#include <stdint.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "util/ILumacastClient.h"
#include "util/PThreadUtil.h"
#include "util/SignalUtil.h"
#include "util/ThreadObject.h"

namespace android {
namespace lumacast {

enum ConnectState {
    DISCONNECT = 0,
    CONNECTED = 1,
    CONNECTTING = 2,
};

// One command frame handed to the write thread.
struct SendInfo {
    unsigned int cmd;
    unsigned char* jsonData;
    int jsonDataLen;
};

// The TCP link to the camera: a read thread that cuts the camera's stream into messages
// and hands them to the service, and a write thread that sends one command frame per
// hand-over.
class SocketClient {
  public:
    class Client : public ThreadObject {
      public:
        explicit Client(SocketClient* parent) : mParent(parent) {}
        int selfProcess(void* data1, void* data2) override;

      private:
        SocketClient* mParent;
    };

    // Largest frame process() accepts; the service's packets are at most 200 bytes.
    static constexpr int MAX_FRAME_LEN = 200;

    explicit SocketClient(ILumacastClient* client);
    ~SocketClient();
    SocketClient(const SocketClient&) = delete;
    SocketClient& operator=(const SocketClient&) = delete;

    // Connects and starts the read loop; true if connected afterwards. Never waits for a
    // running read loop.
    bool init();
    // Ends the read loop and closes the connection.
    void uninit();
    // Queues one frame of `len` bytes for the write thread and returns without waiting
    // for the write. The frame is copied, so `data` may be reused at once.
    void process(unsigned int cmd, unsigned char* data, int len);
    bool reconnect();
    void breakReadBlock();
    int socketRead();
    int socketWrite();

    // For dump: counted where they happen, read from any thread.
    struct Counters {
        std::atomic<uint64_t> reconnects{0};  // connections made by the read loop
        std::atomic<uint64_t> drops{0};       // connections that ended under a read
        std::atomic<uint64_t> messagesRead{0};
        std::atomic<uint64_t> messagesRefused{0};  // past a length bound
        std::atomic<int> lastError{0};             // errno of the last failed connect or read
    };

    // Read by the service before every command.
    std::atomic<ConnectState> connectState;
    // Written by the service: true while the camera is present.
    std::atomic<bool> cameraExit;
    // The read loop waits on it while the camera is absent; the service signals it when
    // the camera comes back. Created by the loop once and then kept until destruction,
    // since the watcher thread may signal it at any moment.
    std::atomic<SignalUtil*> mSignalAddCamera;
    Counters mCounters;

  private:
    // The write thread's part in the link: a frame is queued by one sender at a time and
    // stays untouched until the write has ended; while WRITING the socket stays open.
    enum class Writer { IDLE, QUEUED, WRITING };

    // One pass: one message, as far as the stream allows.
    void readMessage();
    // Passes until the run should end or its failed reconnects are used up.
    void runPasses();
    // After a dropped connection: waits until *pause after that connection was made (or
    // until init() connects), then doubles *pause up to a cap.
    void paceAfterDrop(std::chrono::milliseconds* pause);
    // Ends a run unless a connection made by init() meanwhile still needs the loop.
    bool finishRun();
    void waitForCamera();
    bool readFully(int fd, uint8_t* buffer, int len, ssize_t* lastResult);
    void deliverBlock(int blockParam, int len);
    void deliverResult(int len);
    // Opens a socket and connects it to the camera; -1 with errno set on failure. *stage
    // tells which call failed (0 socket, 1 connect).
    int connectCamera(int* stage);
    // connectCamera for init (byInit) and reconnect: a failure is logged with that caller's
    // text of the step that failed (socket or connect) and ends the attempt.
    int connectOrEnd(bool byInit);
    // The transitions of the table below; each *Locked one runs under mMutex.
    bool beginConnectLocked();
    void endConnectAttemptLocked();
    void endConnectAttempt();
    bool installSocket(int fd);
    void closeConnectionLocked(std::unique_lock<std::mutex>& lock);
    void setStateLocked(ConnectState state);
    void sendFrame(unsigned int cmd, const unsigned char* data, int len);
    // The checks before a write; on success the writer is WRITING on *fd.
    int startWrite(int* fd);
    void wakeCameraWait();

    const char* mThreadWriteName;
    const char* mThreadReadName;
    PThreadUtil* mThreadWrite;
    PThreadUtil* mThreadRead;
    Client* mWriteClient;
    Client* mReadClient;
    SendInfo mSendInfo;  // filled only while the writer is IDLE
    // Receive state; its address is the read thread's work item.
    uint16_t mDataType;
    uint32_t mJsonLen;
    uint32_t mBlockCount;
    char* mRecvJson;
    std::atomic<int> mSocketFD;
    ILumacastClient* mLumacastClient;
    std::atomic<bool> mIsUninit;
    SignalUtil* mSignalUninit;  // guarded by mMutex
    unsigned char* mAiData;
    // Blocks and results handed to the service (messagesRead also counts messages that
    // carried nothing); read thread only.
    uint64_t mDelivered;

    // The link's state machine, under one lock. connectState and mSocketFD stay atomic so
    // that the service and the read loop can look at them without it, but change only
    // under it. std::mutex rather than pthread: the waits below are predicates and one
    // deadline, which std::condition_variable states directly. Every transition that a
    // thread may wait for notifies mCond.
    //
    //   event                         from -> to                     where
    //   init() or reconnect() begins  DISCONNECT -> CONNECTTING      beginConnectLocked
    //   connect fails or is refused   CONNECTTING -> DISCONNECT      endConnectAttemptLocked
    //   socket connected              CONNECTTING -> CONNECTED       installSocket
    //   read fails, camera gone,      CONNECTED -> DISCONNECT        closeConnectionLocked
    //     uninit()
    //   uninit() begins / ends        mShuttingDown false <-> true   uninit
    //   init() hands over a run       mLoopRunning false -> true     init
    //   a run ends                    mLoopRunning true -> false     finishRun
    //   process() queues a frame      IDLE -> QUEUED                 sendFrame
    //   write thread takes it         QUEUED -> WRITING              startWrite
    //   write ends or is refused      QUEUED, WRITING -> IDLE        socketWrite
    //
    // While shutting down no connection is made. mLoopRunning and mWriter are the link's
    // own word on its threads, not PThreadUtil's busy flag, which lags behind: a run that
    // has decided to end still counts as busy there, yet init() must hand over a new one;
    // and a sender may refill mSendInfo as soon as the write has ended.
    std::mutex mMutex;
    std::condition_variable mCond;
    bool mShuttingDown;
    bool mLoopRunning;
    Writer mWriter;
    std::chrono::steady_clock::time_point mConnectedAt;
    unsigned char mSendFrame[MAX_FRAME_LEN];
};

}  // namespace lumacast
}  // namespace android
