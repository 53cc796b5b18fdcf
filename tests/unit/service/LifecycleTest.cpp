// The service object: construction, camera add and remove, readiness, heartbeat.
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <map>

#include "tests/unit/service/ServiceTestSupport.h"

namespace lumacast::test {
namespace {

// Thread id by thread name, for this process (ids grow in the order threads are made).
std::map<std::string, int> threadIds() {
    std::map<std::string, int> ids;
    DIR* tasks = opendir("/proc/self/task");
    while (dirent* e = tasks ? readdir(tasks) : nullptr) {
        if (e->d_name[0] == '.') continue;
        std::ifstream comm(std::string("/proc/self/task/") + e->d_name + "/comm");
        std::string name;
        if (std::getline(comm, name)) ids[name] = atoi(e->d_name);
    }
    if (tasks) closedir(tasks);
    return ids;
}

TEST_F(ServiceTest, ConstructionResetsTheSubscribeStatus) {
    service.clear();
    property_set("kora.camera.subscribe_status", "true");
    log.clear();
    service = new LumacastService();
    EXPECT_EQ("false", property("kora.camera.subscribe_status"));
    const long start = log.indexOf("LumacastService START");
    ASSERT_GE(start, 0);
    EXPECT_GT(log.indexOf("Lumacast now setting to false", static_cast<size_t>(start)), start);

    // The link exists before the watcher, which may report a camera at once; the timer
    // comes last.
    std::map<std::string, int> ids;
    for (int i = 0; i < 1000; ++i) {
        ids = threadIds();
        if (ids.count("socketRead") && ids.count("socketWrite") && ids.count("ThreadUEvent") &&
            ids.count("SocketTimer")) {
            break;
        }
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_EQ(4u, ids.count("socketRead") + ids.count("socketWrite") + ids.count("ThreadUEvent") +
                          ids.count("SocketTimer"));
    EXPECT_LT(ids["socketRead"], ids["socketWrite"]);
    EXPECT_LT(ids["socketWrite"], ids["ThreadUEvent"]);
    EXPECT_LT(ids["ThreadUEvent"], ids["SocketTimer"]);
}

TEST_F(ServiceTest, ContinueProcessAndHeartbeatFollowCameraAndLink) {
    EXPECT_FALSE(service->continueProcess());
    EXPECT_TRUE(
            log.contains("LumacastService::continueProcess camera do not exit", ANDROID_LOG_ERROR));
    EXPECT_EQ(0, adapter->checkAlive());
    EXPECT_TRUE(log.contains("mSocketClient is null or not connect", ANDROID_LOG_ERROR));
    EXPECT_EQ(0u, camera->connectionCount());

    plugCamera();
    EXPECT_TRUE(service->continueProcess());
    ASSERT_TRUE(camera->waitForConnections(1, 10s));
    EXPECT_TRUE(service->continueProcess());
    EXPECT_EQ(1u, camera->connectionCount());
    EXPECT_EQ(1, adapter->checkAlive());
    ASSERT_TRUE(camera->waitForCommands(1, 10s));
    EXPECT_EQ(commandFrame("{\"cmd_id\":254,\"param\":1}"), camera->commands()[0].frame);

    // A camera that refuses: the next connect fails and the command would not be sent.
    ASSERT_TRUE(camera->setRefusing(true));
    service.clear();
    service = new LumacastService();
    EXPECT_FALSE(service->continueProcess());
    EXPECT_TRUE(
            log.contains("LumacastService::continueProcess DISCONNECT return", ANDROID_LOG_ERROR));
}

// A camera that neither accepts nor refuses keeps the link connecting; other callers are
// refused at once instead of waiting.
TEST_F(ServiceTest, ContinueProcessRefusesWhileConnecting) {
    camera.reset();
    const int blocker = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(blocker, 0);
    const int one = 1;
    setsockopt(blocker, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    struct sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(10001);
    inet_pton(AF_INET, "192.168.111.10", &addr.sin_addr);
    ASSERT_EQ(0, bind(blocker, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    ASSERT_EQ(0, listen(blocker, 0));
    // Fill the accept queue, which is never served: later handshakes go unanswered.
    std::vector<int> fillers;
    for (int i = 0; i < 2; ++i) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
        fillers.push_back(fd);
    }
    std::this_thread::sleep_for(50ms);

    plugCamera();
    auto first = std::async(std::launch::async, [&] { return service->continueProcess(); });
    ASSERT_TRUE(log.waitFor("SocketClient::init connect ", 10s));
    EXPECT_FALSE(service->continueProcess());
    EXPECT_TRUE(
            log.contains("LumacastService::continueProcess CONNECTTING return", ANDROID_LOG_ERROR));
    ASSERT_EQ(std::future_status::ready, first.wait_for(30s));
    EXPECT_FALSE(first.get());
    for (int fd : fillers) close(fd);
    close(blocker);
}

// Camera add and remove act only on a change. The camera leaves: commands are refused,
// with failure values and nothing sent, and the link lets its connection go. It comes
// back: the waiting link reconnects by itself and commands work again.
TEST_F(ServiceTest, CameraRemovedAndBack) {
    adapter->processCameraRemove();
    EXPECT_TRUE(log.contains("LumacastService::processCameraRemove not cameraExist",
                             ANDROID_LOG_DEBUG));
    EXPECT_EQ("", property("sys.kora.usb.status"));
    adapter->processCameraAdd();
    EXPECT_EQ("1", property("sys.kora.usb.status"));
    EXPECT_TRUE(log.contains("LumacastService set sys.kora.usb.status 1", ANDROID_LOG_ERROR));
    adapter->processCameraAdd();
    EXPECT_TRUE(log.contains("LumacastService::processCameraAdd cameraExist", ANDROID_LOG_DEBUG));
    EXPECT_EQ(1u, log.count("SocketClient mSignalAddCamera cameraExit=1"));
    ASSERT_TRUE(service->continueProcess());
    ASSERT_TRUE(camera->waitForConnections(1, 10s));
    bool ok = false;
    service->setAutoFraming(1, &ok);
    EXPECT_TRUE(ok);

    adapter->processCameraRemove();
    EXPECT_EQ("0", property("sys.kora.usb.status"));
    EXPECT_EQ(1u, log.count("SocketClient mSignalAddCamera cameraExit=0"));
    EXPECT_EQ(1u, log.count("LumacastService set sys.kora.usb.status 0"));
    service->setAutoFraming(1, &ok);
    EXPECT_FALSE(ok);
    int32_t count = 5;
    service->getAiSubscribeStatus(&count);
    EXPECT_EQ(0, count);
    std::string text = "stale";
    service->getAiSubscribe(&text);
    EXPECT_EQ("", text);
    for (const char* name : {"setAutoFraming", "getAiSubscribeStatus", "getAiSubscribe"}) {
        EXPECT_TRUE(log.contains("LumacastService::" + std::string(name) + " failed",
                                 ANDROID_LOG_ERROR));
    }
    EXPECT_EQ(1u, camera->commandCount()) << "a call without a camera sent something";
    // The link notices at its next pass; this makes it run one (unless it is already on
    // its way there).
    camera->send(camsim::resultMessage("{\"cmd_id\":7}"));
    ASSERT_TRUE(camera->waitForDisconnect(10s));
    ASSERT_TRUE(log.waitFor("SocketClient camera do not exit, wait", 10s));

    adapter->processCameraAdd();
    EXPECT_TRUE(log.contains("SocketClient mSignalAddCamera signal", ANDROID_LOG_ERROR));
    ASSERT_TRUE(camera->waitForConnections(2, 10s));
    bool back = false;
    for (int i = 0; i < 100 && !back; ++i) {
        service->setAutoFraming(1, &back);
        if (!back) std::this_thread::sleep_for(10ms);
    }
    EXPECT_TRUE(back);
    EXPECT_EQ(2u, camera->connectionCount());
}

}  // namespace
}  // namespace lumacast::test
