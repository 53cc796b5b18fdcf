// The link's connection: connecting, drops, reconnect counting, camera removal and
// return, shutdown in every state of the read loop, and concurrency.
#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <random>
#include <thread>

#include "tests/unit/socket/LinkTestSupport.h"

using android::lumacast::CONNECTED;
using android::lumacast::DISCONNECT;
using android::lumacast::SocketClient;
using lumacast::camsim::Command;
using lumacast::camsim::commandFrame;
using lumacast::camsim::dataMessage;
using lumacast::camsim::ReplyRule;
using lumacast::camsim::resultMessage;
using lumacast::camsim::StreamPlan;

namespace lumacast::test {
namespace {

std::string reconnectLine(int count) {
    return "SocketClient::socketRead reconnectSts:0 reconnectCount:" + std::to_string(count);
}

// What the service does when the camera comes back.
void cameraAdded(SocketClient* link) {
    link->cameraExit = true;
    if (auto* signal = link->mSignalAddCamera.load()) signal->signal();
}

template <typename F>
bool finishesWithin(std::chrono::seconds limit, F&& f) {
    auto done = std::async(std::launch::async, std::forward<F>(f));
    return done.wait_for(limit) == std::future_status::ready;
}

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 10s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// A refused connect fails init cleanly. Later, init between two reconnect attempts of a
// running loop connects and returns at once; the running loop reads the new connection.
TEST_F(LinkTest, InitWithoutCameraFailsCleanlyAndDuringARunningLoopDoesNotWaitForIt) {
    ASSERT_TRUE(camera->setRefusing(true));
    link = std::make_unique<SocketClient>(&client);
    link->cameraExit = true;
    EXPECT_FALSE(link->init());
    EXPECT_TRUE(
            log.contains("SocketClient::init connect retSocket:-1 failed!(Connection refused,111)",
                         ANDROID_LOG_ERROR));
    EXPECT_EQ(DISCONNECT, link->connectState.load());
    // Nothing to shut down: only a log line.
    link->uninit();
    EXPECT_TRUE(log.contains("SocketClient::uninit connectState:0 ", ANDROID_LOG_DEBUG));
    EXPECT_FALSE(log.contains("uninit finish"));
    ASSERT_TRUE(camera->setRefusing(false));
    EXPECT_TRUE(link->init());
    EXPECT_EQ(CONNECTED, link->connectState.load());

    ASSERT_TRUE(camera->setRefusing(true));
    camera->dropConnection();
    ASSERT_TRUE(log.waitFor(reconnectLine(0), 20s));
    ASSERT_TRUE(camera->setRefusing(false));
    EXPECT_TRUE(finishesWithin(10s, [&] { EXPECT_TRUE(link->init()); }));
    ASSERT_TRUE(camera->waitForConnections(2, 10s));
    ASSERT_TRUE(camera->send(resultMessage("read by the running loop")));
    ASSERT_TRUE(client.waitForCount(1));
    EXPECT_EQ(1u, log.count("SocketClient::init mThreadRead->process"));
    EXPECT_EQ(2u, camera->connectionCount());
}

// End of stream and a reset both count as a dropped connection: no tight loop on the
// dead socket, a reconnect, and a working link again.
class DropTest : public LinkTest, public ::testing::WithParamInterface<bool> {};

TEST_P(DropTest, DroppedConnectionIsReconnected) {
    const bool reset = GetParam();
    connect();
    camera->dropConnection(reset);
    ASSERT_TRUE(camera->waitForConnections(2, 10s));
    ASSERT_TRUE(log.waitFor("SocketClient::reconnect success", 10s));
    const std::string failure =
            reset ? "SocketClient::socketRead LEN_AI_HEAD(24) > readLen(-1) failed(Connection "
                    "reset by peer,104)"
                  : "SocketClient::socketRead LEN_AI_HEAD(24) > readLen(0) failed(Success,0)";
    EXPECT_EQ(1u, log.count(failure, ANDROID_LOG_ERROR));
    EXPECT_EQ(2u, camera->connectionCount());
    ASSERT_TRUE(camera->send(resultMessage("again")));
    ASSERT_TRUE(client.waitForCount(1));
    EXPECT_EQ("again", client.deliveries()[0].bytes);
}

INSTANTIATE_TEST_SUITE_P(FinAndReset, DropTest, ::testing::Values(false, true));

// A camera that hangs up on every connection, however it does it, is retried at a few
// connections a second with a few log lines each, for as long as it takes: the hang-ups
// never use up the run, and the link streams as soon as the camera serves again.
std::string hangupName(const ::testing::TestParamInfo<camsim::Hangup>& info) {
    static const char* const kNames[] = {"off", "close", "partial", "reset", "garbage"};
    return kNames[static_cast<int>(info.param)];
}

class HangupTest : public LinkTest, public ::testing::WithParamInterface<camsim::Hangup> {};

TEST_P(HangupTest, ACameraThatHangsUpIsRetriedAtAPace) {
    connect();
    camera->setHangup(GetParam());
    const size_t linesBefore = log.entries().size();
    camera->dropConnection();
    std::this_thread::sleep_for(2s);
    const size_t connections = camera->connectionCount();
    const size_t lines = log.entries().size() - linesBefore;
    EXPECT_GE(connections, 3u) << "the link stopped trying";
    EXPECT_LE(connections, 30u) << "more than about 10 connections a second";
    EXPECT_LE(lines, 30u * 8) << "the log is flooded";
    EXPECT_FALSE(log.contains(reconnectLine(0)));

    camera->setHangup(camsim::Hangup::kOff);
    ASSERT_TRUE(camera->waitForConnections(connections + 1, 10s));
    ASSERT_TRUE(resultGetsThrough("served again"));
}

INSTANTIATE_TEST_SUITE_P(EveryWay, HangupTest,
                         ::testing::Values(camsim::Hangup::kClose, camsim::Hangup::kPartial,
                                           camsim::Hangup::kReset, camsim::Hangup::kGarbage),
                         hangupName);

// One run tolerates eleven failed reconnects in all, 100 ms apart; a successful reconnect
// in between does not reset the count, and destruction cuts a run short.
TEST_F(LinkTest, GivesUpAfterElevenFailedReconnectsThenInitStartsAfresh) {
    connect();
    ASSERT_TRUE(camera->setRefusing(true));
    camera->dropConnection();
    ASSERT_TRUE(log.waitFor(reconnectLine(3), 20s));
    ASSERT_TRUE(camera->setRefusing(false));
    ASSERT_TRUE(camera->waitForConnections(2, 10s));
    ASSERT_TRUE(camera->setRefusing(true));
    camera->dropConnection();
    ASSERT_TRUE(log.waitFor(reconnectLine(4), 20s));
    const auto fourth = std::chrono::steady_clock::now();
    ASSERT_TRUE(log.waitFor(reconnectLine(10), 20s));
    EXPECT_GE(std::chrono::steady_clock::now() - fourth, 550ms) << "100 ms after each";
    for (int i = 0; i <= 10; ++i) EXPECT_EQ(1u, log.count(reconnectLine(i))) << i;
    EXPECT_EQ(1u, log.count("SocketClient::reconnect success"));
    EXPECT_EQ(12u, log.count("SocketClient::reconnect start"));
    EXPECT_EQ(DISCONNECT, link->connectState.load());

    // Connecting is left to the next init, which starts counting afresh (whether it meets
    // the ending run or starts a new one).
    ASSERT_TRUE(camera->setRefusing(false));
    EXPECT_TRUE(link->init());
    ASSERT_TRUE(camera->waitForConnections(3, 10s));
    ASSERT_TRUE(camera->setRefusing(true));
    camera->dropConnection();
    ASSERT_TRUE(log.waitFor(reconnectLine(0), 20s, 2));
    // Destroyed between two reconnects, the loop ends without finishing its run.
    EXPECT_TRUE(finishesWithin(20s, [&] { link.reset(); }));
    EXPECT_EQ(1u, log.count(reconnectLine(10)));
}

// Removed while the first of two blocks is handed on: the second is not read.
TEST_F(LinkTest, CameraRemovedWhileConnectedWaitsForItsReturn) {
    client.setFrameHook([&] { link->cameraExit = false; });
    connect();
    camera->send(dataMessage(3, {"first", "second"}));
    ASSERT_TRUE(log.waitFor("SocketClient camera do not exit, wait", 10s));
    ASSERT_EQ(1u, client.count());
    EXPECT_EQ("first", client.deliveries()[0].bytes);
    ASSERT_TRUE(camera->waitForDisconnect(10s));
    EXPECT_EQ(DISCONNECT, link->connectState.load());
    std::string frame = commandFrame("{}");
    link->process(1, reinterpret_cast<unsigned char*>(&frame[0]), static_cast<int>(frame.size()));
    EXPECT_TRUE(log.contains("SocketClient::process connectState:0 err"));

    cameraAdded(link.get());
    ASSERT_TRUE(log.waitFor("SocketClient::reconnect start", 10s));
    ASSERT_TRUE(camera->waitForConnections(2, 10s));
    ASSERT_TRUE(waitUntil([&] { return link->connectState == CONNECTED; }));
    ASSERT_TRUE(resultGetsThrough("back"));
}

// A camera that comes back while the loop is deciding to wait for it must still wake it.
// Destruction ends a loop that waits for the camera.
TEST_F(LinkTest, CameraReturnRacingTheWaitIsNeverLost) {
    connect();
    std::mt19937 random(7);
    for (int round = 0; round < 150; ++round) {
        link->cameraExit = false;
        // Makes the loop run a pass; it may or may not read this before it looks.
        camera->send(resultMessage("poke"));
        const auto until =
                std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 300);
        while (std::chrono::steady_clock::now() < until) {
        }
        cameraAdded(link.get());
        // The loop must be reading again.
        ASSERT_TRUE(resultGetsThrough("back" + std::to_string(round)))
                << "round " << round << ": the loop never came back";
        client.clear();
    }
    const size_t waits = log.count("SocketClient camera do not exit, wait");
    EXPECT_GT(waits, 0u) << "no round reached the wait";

    link->cameraExit = false;
    camera->send(resultMessage("x"));  // makes the loop run a pass, unless it is running one
    ASSERT_TRUE(log.waitFor("SocketClient camera do not exit, wait", 10s, waits + 1));
    EXPECT_TRUE(finishesWithin(20s, [&] { link.reset(); }));
    EXPECT_TRUE(log.contains("~PThreadUtil socketRead exitRet:0"));
}

// Shutdown sends the unblocking command; a camera that ignores it still cannot keep the
// read blocked. A later init starts a new run of the read loop.
TEST_F(LinkTest, UninitEndsTheReadEvenIfTheCameraIgnoresTheUnblockingCommand) {
    ReplyRule silent;
    silent.silent = true;
    camera->setDefaultRule(silent);
    connect();
    // Once this is delivered the loop goes back to a read that only the camera could end;
    // give it a moment to get there.
    ASSERT_TRUE(camera->send(resultMessage("x")));
    ASSERT_TRUE(client.waitForCount(1));
    std::this_thread::sleep_for(200ms);
    camera->clearReceived();
    EXPECT_TRUE(finishesWithin(30s, [&] { link->uninit(); }));
    ASSERT_TRUE(camera->waitForCommands(1, 10s));
    EXPECT_EQ(commandFrame("{\"cmd_id\":1,\"param\":0}"), camera->receivedBytes());
    EXPECT_TRUE(
            log.contains("SocketClient::uninit read loop still running, shutting down the socket"));
    EXPECT_TRUE(log.contains("uninit finish"));
    EXPECT_EQ(DISCONNECT, link->connectState.load());
    ASSERT_TRUE(camera->waitForDisconnect(10s));

    EXPECT_TRUE(link->init());
    EXPECT_EQ(2u, log.count("SocketClient::init mThreadRead->process"));
    ASSERT_TRUE(camera->waitForConnections(2, 10s));
    ASSERT_TRUE(resultGetsThrough("new run"));
    EXPECT_TRUE(finishesWithin(30s, [&] { link.reset(); }));
}

// A reconnect that completes once shutdown has begun is refused, so the loop ends
// rather than reading the new connection until the shutdown gives up on it.
TEST_F(LinkTest, ReconnectCompletingDuringShutdownIsRefused) {
    camera.reset();
    // With a full accept queue the camera's address drops the link's SYN, which keeps its
    // reconnect in connect() until the SYN is sent again a second later.
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(10001);
    inet_pton(AF_INET, "192.168.111.10", &addr.sin_addr);
    auto* sa = reinterpret_cast<sockaddr*>(&addr);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    ASSERT_EQ(0, bind(listener, sa, sizeof(addr)));
    ASSERT_EQ(0, listen(listener, 0));
    link = std::make_unique<SocketClient>(&client);
    link->cameraExit = true;
    ASSERT_TRUE(link->init());
    const int served = accept(listener, nullptr, nullptr);
    const int filler = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(0, ::connect(filler, sa, sizeof(addr)));
    close(served);
    ASSERT_TRUE(log.waitFor("SocketClient::reconnect connect ", 10s));
    std::this_thread::sleep_for(100ms);
    auto shutdown = std::async(std::launch::async, [&] { link->uninit(); });
    std::this_thread::sleep_for(200ms);
    const int queued = accept(listener, nullptr, nullptr);  // makes room for the link
    EXPECT_EQ(std::future_status::ready, shutdown.wait_for(4s));
    EXPECT_TRUE(log.contains("SocketClient connection refused: shutting down", ANDROID_LOG_ERROR));
    shutdown.wait();
    EXPECT_EQ(DISCONNECT, link->connectState.load());
    for (int fd : {queued, filler, listener}) close(fd);
}

// Binder threads may all find the link down and call init at once: one connection, no
// descriptor left behind; later inits find it connected and leave it.
TEST_F(LinkTest, ConcurrentInitsMakeOneConnection) {
    camera.reset();
    const size_t descriptorsBefore = openDescriptorCount();
    camera = std::make_unique<camsim::CameraSimulator>("192.168.111.10", 10001);
    ASSERT_TRUE(camera->start());
    link = std::make_unique<SocketClient>(&client);
    link->cameraExit = true;
    std::atomic<int> connected{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            if (link->init()) ++connected;
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_GE(connected.load(), 1);
    ASSERT_TRUE(camera->waitForConnections(1, 10s));
    EXPECT_EQ(1u, camera->connectionCount());
    EXPECT_EQ(1u, log.count("SocketClient::init mThreadRead->process"));
    ASSERT_TRUE(camera->send(resultMessage("one")));
    ASSERT_TRUE(client.waitForCount(1));
    // Once connected, init changes nothing.
    EXPECT_TRUE(link->init());
    EXPECT_TRUE(log.contains("SocketClient::init connectState:1 ", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1u, camera->connectionCount());
    EXPECT_EQ(1u, log.count("SocketClient::init mThreadRead->process"));
    link.reset();
    camera.reset();
    EXPECT_EQ(descriptorsBefore, openDescriptorCount());
}

// A write to a connection the camera has reset fails with an error; it must not raise
// SIGPIPE (which would end the daemon).
TEST_F(LinkTest, WriteToAResetCameraIsAnErrorNotASignal) {
    struct sigaction previous;
    struct sigaction dfl;
    memset(&dfl, 0, sizeof(dfl));
    dfl.sa_handler = SIG_DFL;
    ASSERT_EQ(0, sigaction(SIGPIPE, &dfl, &previous));

    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> holding{false};
    client.setFrameHook([&] {
        holding = true;
        released.wait();
    });
    connect();
    // Hold the reader inside a delivery so it cannot notice the reset itself.
    ASSERT_TRUE(camera->send(dataMessage(3, {"f"})));
    ASSERT_TRUE(waitUntil([&] { return holding.load(); }));
    camera->dropConnection(true);
    std::string frame = commandFrame("{}");
    bool brokenPipe = false;
    for (int i = 0; i < 200 && !brokenPipe; ++i) {
        link->process(1, reinterpret_cast<unsigned char*>(&frame[0]),
                      static_cast<int>(frame.size()));
        brokenPipe = log.waitFor(
                "SocketClient::socketWrite write ret:-1 < 0 failed!(Broken pipe,32)", 50ms);
    }
    EXPECT_TRUE(brokenPipe);
    EXPECT_EQ(CONNECTED, link->connectState.load()) << "a failed write leaves the state alone";
    release.set_value();
    ASSERT_TRUE(log.waitFor("SocketClient::reconnect success", 10s));
    sigaction(SIGPIPE, &previous, nullptr);
}

// Many senders while the camera streams: every frame arrives whole, none interleaved or
// lost, and both directions stay intact.
TEST_F(LinkTest, ConcurrentSendersAndTheStreamShareTheLink) {
    StreamPlan plan;
    plan.blockSize = 4096;
    plan.blocksPerMessage = 2;
    plan.maxMessages = 400;
    // Paced so the reader keeps up: a header that TCP cuts in two is lost by design (one
    // read per header), and a reader far behind the camera makes such cuts likely.
    plan.messagesPerSecond = 1000;
    camera->startStream(plan);
    connect();
    constexpr int kThreads = 4;
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) {
                std::string frame = commandFrame("{\"cmd_id\":" + std::to_string(t) +
                                                 ",\"param\":" + std::to_string(i) + "}");
                link->process(1, reinterpret_cast<unsigned char*>(&frame[0]),
                              static_cast<int>(frame.size()));
                // Scribble at once: a link that kept the caller's pointer would send this.
                std::fill(frame.begin(), frame.end(), '\0');
            }
        });
    }
    for (auto& s : senders) s.join();
    ASSERT_TRUE(camera->waitForCommands(400, 20s));
    std::vector<int> next(kThreads, 0);
    size_t total = 0;
    for (const Command& c : camera->commands()) {
        ASSERT_GE(c.cmdId, 0);
        ASSERT_LT(c.cmdId, kThreads);
        ASSERT_TRUE(c.param.has_value());
        // Each sender's frames keep their order.
        EXPECT_EQ(next[c.cmdId]++, *c.param);
        total += c.frame.size();
    }
    EXPECT_EQ(total, camera->receivedBytes().size()) << "bytes outside any frame";
    // Every command is answered; frames and results arrive in stream order.
    ASSERT_TRUE(client.waitForCount(800 + 400, 30s));
    int nextParam = 0;
    size_t results = 0;
    for (const Delivery& d : client.deliveries()) {
        if (d.kind == Delivery::kResult) {
            ++results;
            continue;
        }
        ASSERT_EQ(Delivery::kFrame, d.kind);
        EXPECT_EQ(nextParam++, d.blockParam);
        EXPECT_EQ(4096, d.len);
    }
    EXPECT_EQ(400u, results);
    EXPECT_EQ(800, nextParam);
    camera->stopStreams();
}

}  // namespace
}  // namespace lumacast::test
