#pragma once

#include <stdint.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/camsim/CameraWire.h"
#include "tools/camsim/Recording.h"

namespace lumacast::camsim {

// How the camera answers one command id.
struct ReplyRule {
    bool silent = false;
    int32_t rval = 0;
    int32_t param = 1;
    // Answer with another cmd_id than the command's.
    std::optional<int32_t> replyId;
    int delayMs = 0;
    // Sent verbatim as the result text instead of the generated one.
    std::string text;
};

// One kind of data pushed without being asked.
struct StreamPlan {
    uint16_t dataType = kTypeFrame;
    size_t blockSize = 1024;
    uint32_t blocksPerMessage = 1;
    double messagesPerSecond = 0;  // 0: as fast as the link takes them
    uint64_t maxMessages = 0;      // 0: until stopped
    // Verbatim payload (AI JSON, say); `blockSize` bytes of a counting pattern if empty.
    std::string payload;
};

// What the camera does with every connection it accepts while set (firmware still booting,
// a server that resets): the connection is counted and ended at once.
enum class Hangup {
    kOff,      // serve it
    kClose,    // accept, then an orderly close
    kPartial,  // a message header and part of a block header, then close
    kReset,    // accept, then abort with a reset
    kGarbage,  // 100 random bytes, then close
};

// Plays the camera's end of the link: listens where the camera does, answers command
// frames by rules, pushes data, and misbehaves on demand (split writes, garbage, drops,
// refused connections). Only one connection is served; a new one replaces the old.
class CameraSimulator {
  public:
    CameraSimulator(std::string address, uint16_t port);
    ~CameraSimulator();
    CameraSimulator(const CameraSimulator&) = delete;
    CameraSimulator& operator=(const CameraSimulator&) = delete;

    // Binds and starts serving; false with a reason if the address cannot be bound.
    bool start(std::string* error = nullptr);
    void stop();

    void setDefaultRule(const ReplyRule& rule);
    void setRule(int cmdId, const ReplyRule& rule);
    void clearRules();

    std::vector<Command> commands() const;
    size_t commandCount() const;
    bool waitForCommands(size_t n, std::chrono::milliseconds timeout) const;
    // Every byte received from the daemon, across connections.
    std::string receivedBytes() const;
    void clearReceived();

    size_t connectionCount() const;
    bool isConnected() const;
    bool waitForConnections(size_t n, std::chrono::milliseconds timeout) const;
    // Waits until the daemon's side has closed the current connection.
    bool waitForDisconnect(std::chrono::milliseconds timeout) const;

    // Writes bytes to the current connection in one piece (subject to setChunking).
    bool send(const std::string& bytes);
    bool sendMessage(const Message& message) { return send(encodeMessage(message)); }
    // Every later write goes out in pieces of `bytes` (0: whole) with a pause between.
    void setChunking(size_t bytes, std::chrono::microseconds pause);

    void startStream(const StreamPlan& plan);
    // Plays `messages` once, at their offsets divided by `speed`, from the first moment a
    // connection is up; a message cut off by a lost connection goes again on the next one.
    void startReplay(std::vector<TimedMessage> messages, double speed);
    // Ends streams and replays.
    void stopStreams();
    uint64_t streamedMessages() const { return mStreamed.load(); }

    // Closes the current connection: an orderly close, or a reset.
    void dropConnection(bool reset = false);
    // While refusing, nothing listens, so connection attempts are refused.
    bool setRefusing(bool refusing, std::string* error = nullptr);
    void setHangup(Hangup hangup);

    const std::string& address() const { return mAddress; }
    uint16_t port() const { return mPort; }

  private:
    struct Connection;
    struct Pending {
        std::chrono::steady_clock::time_point due;
        std::weak_ptr<Connection> connection;
        std::string bytes;
    };

    int openListener(std::string* error);
    void ioLoop();
    void schedulerLoop();
    void streamLoop(StreamPlan plan, std::shared_ptr<std::atomic<bool>> running);
    void replayLoop(std::vector<TimedMessage> messages, double speed,
                    std::shared_ptr<std::atomic<bool>> running);
    // The current connection, once there is one; null when `running` turned false, the
    // simulator stops, or 50 ms passed.
    std::shared_ptr<Connection> awaitConnection(const std::atomic<bool>& running);
    // Sleeps until `due` unless `running` turns false first.
    static void sleepUntil(std::chrono::steady_clock::time_point due,
                           const std::atomic<bool>& running);
    void onBytes(const std::shared_ptr<Connection>& connection, const char* data, size_t len);
    void answer(const std::shared_ptr<Connection>& connection, const Command& command);
    // Writes one message. It leaves only once everything written before has left the
    // socket, so the kernel never merges it into a half-sent earlier one: a reader that
    // falls behind then never finds a message header cut in two by TCP. Gives up when the
    // connection goes, the simulator stops, or *keepGoing turns false.
    bool writeTo(const std::shared_ptr<Connection>& connection, const std::string& bytes,
                 const std::atomic<bool>* keepGoing = nullptr);
    std::shared_ptr<Connection> current() const;
    void wakeIo();
    void resetPending();
    // Ends a freshly accepted connection as `hangup` says.
    void hangUp(int fd, Hangup hangup);

    const std::string mAddress;
    const uint16_t mPort;

    mutable std::mutex mMutex;
    mutable std::condition_variable mCond;
    std::shared_ptr<Connection> mConnection;   // guarded by mMutex
    int mListenFd = -1;                        // owned by the I/O thread once started
    bool mWantListening = true;                // guarded by mMutex
    bool mListening = false;                   // guarded by mMutex
    std::string mListenError;                  // guarded by mMutex
    uint64_t mListenRequest = 0;               // guarded by mMutex
    uint64_t mListenDone = 0;                  // guarded by mMutex
    size_t mConnections = 0;                   // guarded by mMutex
    Hangup mHangup = Hangup::kOff;             // guarded by mMutex
    std::vector<Command> mCommands;            // guarded by mMutex
    std::string mReceived;                     // guarded by mMutex
    ReplyRule mDefaultRule;                    // guarded by mMutex
    std::map<int, ReplyRule> mRules;           // guarded by mMutex
    size_t mChunkBytes = 0;                    // guarded by mMutex
    std::chrono::microseconds mChunkPause{0};  // guarded by mMutex
    std::vector<Pending> mPending;             // guarded by mMutex
    bool mStopping = false;                    // guarded by mMutex
    // Connections to abort with a reset; done by the I/O thread, the one that reads them.
    std::vector<std::shared_ptr<Connection>> mResets;  // guarded by mMutex

    int mWakeFd = -1;
    std::thread mIoThread;
    std::thread mSchedulerThread;
    std::mutex mStreamMutex;
    std::vector<std::pair<std::thread, std::shared_ptr<std::atomic<bool>>>> mStreams;
    std::atomic<uint64_t> mStreamed{0};
};

}  // namespace lumacast::camsim
