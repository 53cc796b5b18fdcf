#include "tools/camsim/CameraSimulator.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <random>

namespace lumacast::camsim {

namespace {

using Clock = std::chrono::steady_clock;

// Writes give up after this long so that stop() and drops are never held by a daemon
// that has stopped reading; the writer then looks whether it should go on.
constexpr int kWriteTimeoutMs = 200;

}  // namespace

struct CameraSimulator::Connection {
    explicit Connection(int f) : fd(f) {}
    ~Connection() { close(fd); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const int fd;
    std::mutex writeMutex;  // one message at a time on the wire
    std::atomic<bool> closed{false};
    CommandParser parser;  // I/O thread only
};

CameraSimulator::CameraSimulator(std::string address, uint16_t port)
    : mAddress(std::move(address)), mPort(port) {}

CameraSimulator::~CameraSimulator() { stop(); }

int CameraSimulator::openListener(std::string* error) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        if (error) *error = std::string("socket: ") + strerror(errno);
        return -1;
    }
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_port = htons(mPort);
    if (inet_pton(AF_INET, mAddress.c_str(), &addr.sin_addr) != 1) {
        if (error) *error = "bad address " + mAddress;
        close(fd);
        return -1;
    }
    if (bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0 ||
        listen(fd, 16) != 0) {
        if (error) {
            *error = "bind/listen " + mAddress + ":" + std::to_string(mPort) + ": " +
                     strerror(errno);
        }
        close(fd);
        return -1;
    }
    return fd;
}

bool CameraSimulator::start(std::string* error) {
    if (mIoThread.joinable()) return true;
    mListenFd = openListener(error);
    if (mListenFd < 0) return false;
    mWakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (mWakeFd < 0) {
        if (error) *error = std::string("eventfd: ") + strerror(errno);
        close(mListenFd);
        mListenFd = -1;
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = false;
        mWantListening = true;
        mListening = true;
    }
    mIoThread = std::thread(&CameraSimulator::ioLoop, this);
    mSchedulerThread = std::thread(&CameraSimulator::schedulerLoop, this);
    return true;
}

void CameraSimulator::stop() {
    stopStreams();
    if (!mIoThread.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
    }
    mCond.notify_all();
    dropConnection();
    wakeIo();
    mIoThread.join();
    mSchedulerThread.join();
    if (mListenFd >= 0) close(mListenFd);
    mListenFd = -1;
    close(mWakeFd);
    mWakeFd = -1;
    std::lock_guard<std::mutex> lock(mMutex);
    mPending.clear();
    mConnection.reset();
}

void CameraSimulator::wakeIo() {
    if (mWakeFd < 0) return;
    const uint64_t one = 1;
    ssize_t n = write(mWakeFd, &one, sizeof(one));
    (void)n;
}

void CameraSimulator::ioLoop() {
    char buffer[64 * 1024];
    for (;;) {
        resetPending();
        std::shared_ptr<Connection> connection;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mStopping) break;
            if (mListenDone != mListenRequest) {
                if (mWantListening && mListenFd < 0) {
                    mListenError.clear();
                    mListenFd = openListener(&mListenError);
                } else if (!mWantListening && mListenFd >= 0) {
                    close(mListenFd);
                    mListenFd = -1;
                }
                mListening = mListenFd >= 0;
                mListenDone = mListenRequest;
                mCond.notify_all();
            }
            connection = mConnection;
        }
        struct pollfd fds[3];
        nfds_t count = 0;
        fds[count++] = {mWakeFd, POLLIN, 0};
        const int listenIndex = mListenFd >= 0 ? static_cast<int>(count) : -1;
        if (listenIndex >= 0) fds[count++] = {mListenFd, POLLIN, 0};
        const int connIndex = connection ? static_cast<int>(count) : -1;
        if (connIndex >= 0) fds[count++] = {connection->fd, POLLIN, 0};
        if (poll(fds, count, -1) < 0) {
            if (errno == EINTR) continue;
            perror("camsim: poll");
            break;
        }
        if (fds[0].revents != 0) {
            uint64_t value;
            ssize_t n = read(mWakeFd, &value, sizeof(value));
            (void)n;
        }
        if (listenIndex >= 0 && fds[listenIndex].revents != 0) {
            const int fd = accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC);
            Hangup hangup = Hangup::kOff;
            if (fd >= 0) {
                std::lock_guard<std::mutex> lock(mMutex);
                hangup = mHangup;
                if (hangup != Hangup::kOff) ++mConnections;
            }
            if (fd >= 0 && hangup != Hangup::kOff) {
                mCond.notify_all();
                hangUp(fd, hangup);
            } else if (fd >= 0) {
                const int one = 1;
                setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
                struct timeval timeout = {0, kWriteTimeoutMs * 1000};
                setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
                auto fresh = std::make_shared<Connection>(fd);
                std::shared_ptr<Connection> old;
                {
                    std::lock_guard<std::mutex> lock(mMutex);
                    old = std::move(mConnection);
                    mConnection = fresh;
                    ++mConnections;
                }
                mCond.notify_all();
                if (old) {
                    old->closed = true;
                    shutdown(old->fd, SHUT_RDWR);
                }
            }
        }
        if (connIndex >= 0 && fds[connIndex].revents != 0) {
            const ssize_t n = read(connection->fd, buffer, sizeof(buffer));
            if (n > 0) {
                onBytes(connection, buffer, static_cast<size_t>(n));
            } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
                connection->closed = true;
                {
                    std::lock_guard<std::mutex> lock(mMutex);
                    if (mConnection == connection) mConnection.reset();
                }
                mCond.notify_all();
            }
        }
    }
}

void CameraSimulator::onBytes(const std::shared_ptr<Connection>& connection, const char* data,
                              size_t len) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mReceived.append(data, len);
    }
    connection->parser.feed(data, len);
    Command command;
    while (connection->parser.next(&command)) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mCommands.push_back(command);
        }
        mCond.notify_all();
        answer(connection, command);
    }
}

void CameraSimulator::answer(const std::shared_ptr<Connection>& connection,
                             const Command& command) {
    ReplyRule rule;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mRules.find(command.cmdId);
        rule = it != mRules.end() ? it->second : mDefaultRule;
    }
    if (rule.silent) return;
    std::string text = rule.text;
    if (text.empty()) {
        char buffer[96];
        snprintf(buffer, sizeof(buffer), "{\"cmd_id\":%d,\"param\":%d,\"rval\":%d}",
                 rule.replyId.value_or(command.cmdId), rule.param, rule.rval);
        text = buffer;
    }
    std::string bytes = resultMessage(text);
    if (rule.delayMs <= 0) {
        writeTo(connection, bytes);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mPending.push_back({Clock::now() + std::chrono::milliseconds(rule.delayMs), connection,
                            std::move(bytes)});
    }
    mCond.notify_all();
}

void CameraSimulator::schedulerLoop() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        if (mPending.empty()) {
            mCond.wait(lock);
            continue;
        }
        auto earliest =
                std::min_element(mPending.begin(), mPending.end(),
                                 [](const Pending& a, const Pending& b) { return a.due < b.due; });
        if (earliest->due > Clock::now()) {
            mCond.wait_until(lock, earliest->due);
            continue;
        }
        Pending due = std::move(*earliest);
        mPending.erase(earliest);
        lock.unlock();
        if (auto connection = due.connection.lock()) writeTo(connection, due.bytes);
        lock.lock();
    }
}

bool CameraSimulator::writeTo(const std::shared_ptr<Connection>& connection,
                              const std::string& bytes, const std::atomic<bool>* keepGoing) {
    if (!connection) return false;
    size_t chunk;
    std::chrono::microseconds pause;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        chunk = mChunkBytes;
        pause = mChunkPause;
    }
    auto shouldGiveUp = [&] {
        if (connection->closed || (keepGoing != nullptr && !*keepGoing)) return true;
        std::lock_guard<std::mutex> lock(mMutex);
        return mStopping;
    };
    std::lock_guard<std::mutex> writeLock(connection->writeMutex);
    // A reset socket keeps reporting its unsent count, and a reader may stop for good:
    // the wait ends on an error or after a while, and the send then sorts it out.
    const auto waitEnd = Clock::now() + std::chrono::seconds(1);
    for (;;) {
        int unsent = 0;
        if (ioctl(connection->fd, SIOCOUTQNSD, &unsent) != 0 || unsent == 0) break;
        struct pollfd p = {connection->fd, POLLOUT, 0};
        if (poll(&p, 1, 0) > 0 && (p.revents & (POLLERR | POLLHUP)) != 0) break;
        if (Clock::now() > waitEnd) break;
        if (shouldGiveUp()) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    size_t sent = 0;
    while (sent < bytes.size()) {
        size_t piece = bytes.size() - sent;
        if (chunk > 0 && piece > chunk) piece = chunk;
        size_t pieceSent = 0;
        while (pieceSent < piece) {
            const ssize_t n = ::send(connection->fd, bytes.data() + sent + pieceSent,
                                     piece - pieceSent, MSG_NOSIGNAL);
            if (n < 0) {
                if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return false;
                if (shouldGiveUp()) return false;
                continue;
            }
            pieceSent += static_cast<size_t>(n);
        }
        sent += piece;
        if (chunk > 0 && pause.count() > 0 && sent < bytes.size()) {
            std::this_thread::sleep_for(pause);
        }
    }
    return true;
}

std::shared_ptr<CameraSimulator::Connection> CameraSimulator::current() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mConnection;
}

void CameraSimulator::setDefaultRule(const ReplyRule& rule) {
    std::lock_guard<std::mutex> lock(mMutex);
    mDefaultRule = rule;
}

void CameraSimulator::setRule(int cmdId, const ReplyRule& rule) {
    std::lock_guard<std::mutex> lock(mMutex);
    mRules[cmdId] = rule;
}

void CameraSimulator::clearRules() {
    std::lock_guard<std::mutex> lock(mMutex);
    mRules.clear();
    mDefaultRule = ReplyRule();
}

std::vector<Command> CameraSimulator::commands() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCommands;
}

size_t CameraSimulator::commandCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCommands.size();
}

bool CameraSimulator::waitForCommands(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mCond.wait_for(lock, timeout, [&] { return mCommands.size() >= n; });
}

std::string CameraSimulator::receivedBytes() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mReceived;
}

void CameraSimulator::clearReceived() {
    std::lock_guard<std::mutex> lock(mMutex);
    mReceived.clear();
    mCommands.clear();
}

size_t CameraSimulator::connectionCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mConnections;
}

bool CameraSimulator::isConnected() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mConnection != nullptr;
}

bool CameraSimulator::waitForConnections(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mCond.wait_for(lock, timeout,
                          [&] { return mConnections >= n && mConnection != nullptr; });
}

bool CameraSimulator::waitForDisconnect(std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mCond.wait_for(lock, timeout, [&] { return mConnection == nullptr; });
}

bool CameraSimulator::send(const std::string& bytes) { return writeTo(current(), bytes); }

void CameraSimulator::setChunking(size_t bytes, std::chrono::microseconds pause) {
    std::lock_guard<std::mutex> lock(mMutex);
    mChunkBytes = bytes;
    mChunkPause = pause;
}

void CameraSimulator::dropConnection(bool reset) {
    std::shared_ptr<Connection> connection;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        connection = std::move(mConnection);
        if (connection && reset) mResets.push_back(connection);
    }
    mCond.notify_all();
    if (!connection) return;
    connection->closed = true;
    if (!reset) {
        shutdown(connection->fd, SHUT_RDWR);
        wakeIo();
        return;
    }
    wakeIo();
    std::unique_lock<std::mutex> lock(mMutex);
    mCond.wait(lock, [&] { return mResets.empty() || mStopping; });
}

void CameraSimulator::resetPending() {
    std::vector<std::shared_ptr<Connection>> resets;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        resets.swap(mResets);
    }
    for (const auto& connection : resets) {
        // Disconnecting a TCP socket through AF_UNSPEC aborts it: the peer sees a reset.
        // Under the write lock, so no writer uses the descriptor meanwhile.
        std::lock_guard<std::mutex> writeLock(connection->writeMutex);
        struct sockaddr unspec;
        memset(&unspec, 0, sizeof(unspec));
        unspec.sa_family = AF_UNSPEC;
        connect(connection->fd, &unspec, sizeof(unspec));
    }
    if (!resets.empty()) mCond.notify_all();
}

void CameraSimulator::setHangup(Hangup hangup) {
    std::lock_guard<std::mutex> lock(mMutex);
    mHangup = hangup;
}

void CameraSimulator::hangUp(int fd, Hangup hangup) {
    std::string bytes;
    if (hangup == Hangup::kPartial) {
        bytes = dataMessage(kTypeFrame, {std::string(64, 'f')}).substr(0, kMessageHeadLen + 6);
    } else if (hangup == Hangup::kGarbage) {
        static std::atomic<uint32_t> seed{1};
        std::mt19937 random(seed++);
        bytes.resize(100);
        for (char& c : bytes) c = static_cast<char>(random());
    }
    if (!bytes.empty()) {
        // A fresh socket's buffer takes these few bytes at once.
        ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        (void)n;
    }
    if (hangup == Hangup::kReset) {
        // A zero linger time makes close() abort the connection: the peer sees a reset.
        struct linger abort = {1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
    }
    close(fd);
}

bool CameraSimulator::setRefusing(bool refusing, std::string* error) {
    std::unique_lock<std::mutex> lock(mMutex);
    mWantListening = !refusing;
    const uint64_t request = ++mListenRequest;
    lock.unlock();
    wakeIo();
    lock.lock();
    mCond.wait(lock, [&] { return mListenDone >= request || mStopping; });
    if (!refusing && !mListening) {
        if (error) *error = mListenError;
        return false;
    }
    return true;
}

void CameraSimulator::startStream(const StreamPlan& plan) {
    auto running = std::make_shared<std::atomic<bool>>(true);
    std::lock_guard<std::mutex> lock(mStreamMutex);
    mStreams.emplace_back(std::thread(&CameraSimulator::streamLoop, this, plan, running), running);
}

void CameraSimulator::stopStreams() {
    std::vector<std::pair<std::thread, std::shared_ptr<std::atomic<bool>>>> streams;
    {
        std::lock_guard<std::mutex> lock(mStreamMutex);
        streams.swap(mStreams);
    }
    for (auto& s : streams) *s.second = false;
    for (auto& s : streams) s.first.join();
}

void CameraSimulator::streamLoop(StreamPlan plan, std::shared_ptr<std::atomic<bool>> running) {
    std::string payload = plan.payload;
    if (payload.empty()) {
        payload.resize(plan.blockSize);
        for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 7 + 1);
    }
    Message message;
    message.kind = kKindData;
    message.dataType = plan.dataType;
    const uint32_t blocks = std::max<uint32_t>(plan.blocksPerMessage, 1);
    for (uint32_t i = 0; i < blocks; ++i) message.blocks.push_back({0, payload, std::nullopt});
    std::string bytes = encodeMessage(message);
    const auto period =
            plan.messagesPerSecond > 0
                    ? std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(1.0 / plan.messagesPerSecond))
                    : Clock::duration::zero();
    auto next = Clock::now();
    uint64_t sequence = 0;
    while (*running) {
        if (plan.maxMessages != 0 && sequence >= plan.maxMessages) break;
        const std::shared_ptr<Connection> connection = awaitConnection(*running);
        if (!connection) continue;
        // Block parameters count the blocks streamed, so receivers can spot a loss.
        for (uint32_t i = 0; i < blocks; ++i) {
            const uint32_t param = static_cast<uint32_t>(sequence * blocks + i);
            const size_t at = kMessageHeadLen + i * (kBlockHeadLen + payload.size()) + 4;
            bytes[at] = static_cast<char>(param >> 24);
            bytes[at + 1] = static_cast<char>(param >> 16);
            bytes[at + 2] = static_cast<char>(param >> 8);
            bytes[at + 3] = static_cast<char>(param);
        }
        if (!writeTo(connection, bytes, running.get())) continue;
        ++sequence;
        ++mStreamed;
        if (period > Clock::duration::zero()) {
            next += period;
            sleepUntil(next, *running);
        }
    }
}

std::shared_ptr<CameraSimulator::Connection> CameraSimulator::awaitConnection(
        const std::atomic<bool>& running) {
    std::unique_lock<std::mutex> lock(mMutex);
    mCond.wait_for(lock, std::chrono::milliseconds(50),
                   [&] { return mConnection != nullptr || mStopping; });
    if (mStopping || !running) return nullptr;
    return mConnection;
}

void CameraSimulator::sleepUntil(Clock::time_point due, const std::atomic<bool>& running) {
    while (running && Clock::now() < due) {
        std::this_thread::sleep_for(
                std::min<Clock::duration>(due - Clock::now(), std::chrono::milliseconds(50)));
    }
}

void CameraSimulator::startReplay(std::vector<TimedMessage> messages, double speed) {
    auto running = std::make_shared<std::atomic<bool>>(true);
    std::lock_guard<std::mutex> lock(mStreamMutex);
    mStreams.emplace_back(
            std::thread(&CameraSimulator::replayLoop, this, std::move(messages), speed, running),
            running);
}

void CameraSimulator::replayLoop(std::vector<TimedMessage> messages, double speed,
                                 std::shared_ptr<std::atomic<bool>> running) {
    Clock::time_point start;
    bool started = false;
    for (size_t i = 0; *running && i < messages.size();) {
        const std::shared_ptr<Connection> connection = awaitConnection(*running);
        if (!connection) continue;
        if (!started) {
            start = Clock::now();
            started = true;
        }
        sleepUntil(
                start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                                static_cast<double>(messages[i].offsetUs) / 1e6 / speed)),
                *running);
        if (!writeTo(connection, messages[i].bytes, running.get())) continue;
        ++i;
        ++mStreamed;
    }
}

}  // namespace lumacast::camsim
