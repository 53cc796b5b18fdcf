// The listener registry and the fan-out of camera data.
#include <atomic>
#include <future>

#include "aidl/BpLumacastCallback.h"
#include "tests/unit/service/ServiceTestSupport.h"

using lumacast::camsim::dataMessage;

namespace lumacast::test {
namespace {

class Journal {
  public:
    TestListener::Journal sink() {
        return [this](const std::string& who, const TestListener::Event&) {
            std::lock_guard<std::mutex> lock(mMutex);
            mOrder += who;
        };
    }
    std::string take() {
        std::lock_guard<std::mutex> lock(mMutex);
        std::string out;
        out.swap(mOrder);
        return out;
    }

  private:
    std::mutex mMutex;
    std::string mOrder;
};

void frame(LumacastService* service, const std::string& bytes, int count = 1, int param = 0) {
    std::string copy = bytes + '\0';
    service->processFrame(count, param, reinterpret_cast<unsigned char*>(&copy[0]),
                          static_cast<int>(bytes.size()));
}

// A listener whose calls fail (its process died) stays registered and does not keep the
// data from the listeners after it. Every listener gets exactly the block's bytes.
TEST_F(ServiceTest, DeliveryFollowsRegistrationOrder) {
    // Without listeners the data is dropped quietly.
    frame(service.get(), "nobody");
    Journal journal;
    sp<TestListener> l1 = new TestListener("1", journal.sink());
    sp<TestListener> l2 =
            new TestListener("2", journal.sink(), Status::fromStatusT(android::DEAD_OBJECT));
    sp<TestListener> l3 = new TestListener("3", journal.sink());
    bool ok = false;
    for (const auto& l : {l1, l2, l3}) {
        service->setCallback(l, &ok);
        EXPECT_TRUE(ok);
    }
    frame(service.get(), "a");
    EXPECT_EQ("123", journal.take());

    // Registering again moves a listener to the end, once.
    service->setCallback(l2, &ok);
    EXPECT_EQ(1u, log.count("LumacastService::insertListener already exist, remove"));
    EXPECT_TRUE(log.contains("LumacastService::insertListener size = 3 "));
    const std::string binary("\x00\x01\xFF\x00z", 5);
    frame(service.get(), binary, 2, 7);
    std::string proto = binary + '\0';
    service->processAiProtobuf(reinterpret_cast<unsigned char*>(&proto[0]), 5);
    // AI JSON reaches listeners up to an embedded zero.
    std::string json("{\"a\":1}\0tail", 12);
    json += '\0';
    service->processAiJson(reinterpret_cast<unsigned char*>(&json[0]), 12);
    EXPECT_EQ("132132132", journal.take());
    EXPECT_EQ(3, adapter->getCallbackSize());
    const auto events = l3->events();
    ASSERT_EQ(4u, events.size());
    EXPECT_EQ('f', events[1].kind);
    EXPECT_EQ(2, events[1].blockCount);
    EXPECT_EQ(7, events[1].blockParam);
    EXPECT_EQ(binary, events[1].data);
    EXPECT_EQ('p', events[2].kind);
    EXPECT_EQ(binary, events[2].data);
    EXPECT_EQ('j', events[3].kind);
    EXPECT_EQ("{\"a\":1}", events[3].data);
}

TEST_F(ServiceTest, SubscribeStatusTracksTheList) {
    sp<TestListener> a = new TestListener();
    sp<TestListener> b = new TestListener();
    sp<TestListener> stranger = new TestListener();
    bool ok = true;
    service->setCallback(nullptr, &ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(log.contains("LumacastService::setCallback nullptr == cb.get() err",
                             ANDROID_LOG_ERROR));
    ok = true;
    service->removeCallback(nullptr, &ok);
    EXPECT_FALSE(ok);
    EXPECT_TRUE(log.contains("LumacastService::removeCallback nullptr == cb.get() err",
                             ANDROID_LOG_ERROR));
    EXPECT_EQ(0, adapter->getCallbackSize());
    EXPECT_EQ("false", property("kora.camera.subscribe_status"));

    // Removing from an empty list announces "nobody listens".
    property_set("kora.camera.subscribe_status", "true");
    service->removeCallback(stranger, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ("false", property("kora.camera.subscribe_status"));

    service->setCallback(a, &ok);
    EXPECT_EQ("true", property("kora.camera.subscribe_status"));
    service->setCallback(b, &ok);
    // A stranger leaves a non-empty list and the property alone.
    service->removeCallback(stranger, &ok);
    EXPECT_TRUE(ok);
    EXPECT_EQ("true", property("kora.camera.subscribe_status"));
    EXPECT_FALSE(log.contains("LumacastService::removeListener erase"));

    service->removeCallback(a, &ok);
    EXPECT_EQ("true", property("kora.camera.subscribe_status"));
    service->removeCallback(b, &ok);
    EXPECT_EQ("false", property("kora.camera.subscribe_status"));
    EXPECT_EQ(2u, log.count("LumacastService::removeListener erase"));
    EXPECT_TRUE(log.contains("LumacastService::removeListener size = 0 "));

    // A listener is its binder: two proxies of one object are one listener.
    const sp<android::IBinder> object = android::IInterface::asBinder(a);
    sp<kora::lumacast::ILumacastCallback> proxy1 = new kora::lumacast::BpLumacastCallback(object);
    sp<kora::lumacast::ILumacastCallback> proxy2 = new kora::lumacast::BpLumacastCallback(object);
    service->setCallback(proxy1, &ok);
    service->setCallback(proxy2, &ok);
    EXPECT_EQ(1, adapter->getCallbackSize());
    service->removeCallback(proxy1, &ok);
    EXPECT_EQ(0, adapter->getCallbackSize());
}

// A listener may call the service from inside its callback; binder runs that call on the
// delivering thread ("socketRead"), which holds the listener lock. Registrations take
// effect at once and the delivery goes on over the changed list; a camera command fails at
// once, as only that thread could read the camera's answer.
TEST_F(ServiceTest, ListenerCallsTheServiceFromInsideItsCallback) {
    plugCamera();
    Journal journal;
    const TestListener::Journal sink = journal.sink();
    sp<TestListener> a, quitter, commander, skipped, b, late;
    bool quitterActed = false;
    bool commanderActed = false;
    bool commandResult = true;
    const TestListener::Journal act = [&](const std::string& who, const TestListener::Event& e) {
        sink(who, e);
        bool ok = false;
        if (who == "Q" && !quitterActed) {
            quitterActed = true;
            service->removeCallback(quitter, &ok);  // itself, already called
            service->removeCallback(skipped, &ok);  // not yet called
            service->setCallback(late, &ok);
        } else if (who == "C" && !commanderActed) {
            commanderActed = true;
            service->getZoomSwitch(&commandResult);
        }
    };
    a = new TestListener("A", sink);
    quitter = new TestListener("Q", act);
    commander = new TestListener("C", act);
    skipped = new TestListener("X", sink);
    b = new TestListener("B", sink);
    late = new TestListener("L", sink);
    bool ok = false;
    for (const auto& l : {a, quitter, commander, skipped, b}) service->setCallback(l, &ok);
    ASSERT_TRUE(service->continueProcess());
    ASSERT_TRUE(camera->waitForConnections(1, 10s));
    ASSERT_TRUE(camera->send(dataMessage(3, {"f0"})));
    ASSERT_TRUE(b->waitForCount(1));
    ASSERT_TRUE(camera->send(dataMessage(3, {"f1"})));
    ASSERT_TRUE(late->waitForCount(1));
    EXPECT_EQ("AQCBACBL", journal.take());
    EXPECT_EQ(4, adapter->getCallbackSize());
    EXPECT_EQ(0u, skipped->count());

    EXPECT_FALSE(commandResult);
    EXPECT_TRUE(
            log.contains("LumacastService::continueProcess camera command from inside a "
                         "listener's callback refused",
                         ANDROID_LOG_ERROR));
    EXPECT_TRUE(log.contains("LumacastService::getZoomSwitch failed"));
    EXPECT_EQ(0u, camera->commandCount()) << "sent a command whose answer nobody could read";
    // Commands from elsewhere are served as before.
    service->getZoomSwitch(&ok);
    EXPECT_TRUE(ok);
}

// The list's size is read without the lock: it answers while a delivery waits for a
// listener. Registrations from other threads still wait for the delivery to end.
TEST_F(ServiceTest, ListenerCountAnswersWhileADeliveryIsStuck) {
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::promise<void> entered;
    const TestListener::Journal stuck = [&](const std::string&, const TestListener::Event&) {
        entered.set_value();
        released.wait();
    };
    sp<TestListener> slow = new TestListener("S", stuck);
    bool ok = false;
    service->setCallback(slow, &ok);
    std::thread reader([&] { frame(service.get(), "held"); });
    entered.get_future().wait();
    auto size = std::async(std::launch::async, [&] { return adapter->getCallbackSize(); });
    auto registration = std::async(std::launch::async, [&] {
        sp<TestListener> other = new TestListener();
        bool r = false;
        service->setCallback(other, &r);
    });
    const bool answered = size.wait_for(10s) == std::future_status::ready;
    const bool waited = registration.wait_for(100ms) == std::future_status::timeout;
    release.set_value();
    reader.join();
    ASSERT_TRUE(answered) << "getCallbackSize waited for the delivery";
    EXPECT_EQ(1, size.get());
    EXPECT_TRUE(waited) << "a registration did not wait for the delivery in progress";
    registration.get();
    EXPECT_EQ(2, adapter->getCallbackSize());
}

// Registrations and removals while data flows: each delivery sees a whole list.
TEST_F(ServiceTest, ListenersComeAndGoDuringDelivery) {
    sp<TestListener> steady = new TestListener();
    bool ok = false;
    service->setCallback(steady, &ok);
    std::atomic<bool> stop{false};
    std::thread churn([&] {
        while (!stop) {
            sp<TestListener> passing = new TestListener();
            bool r = false;
            service->setCallback(passing, &r);
            service->removeCallback(passing, &r);
        }
    });
    constexpr int kFrames = 2000;
    for (int i = 0; i < kFrames; ++i) frame(service.get(), "data", 1, i);
    stop = true;
    churn.join();
    const auto events = steady->events();
    ASSERT_EQ(static_cast<size_t>(kFrames), events.size());
    for (int i = 0; i < kFrames; ++i) ASSERT_EQ(i, events[i].blockParam);
    EXPECT_EQ(1, adapter->getCallbackSize());
    EXPECT_EQ("true", property("kora.camera.subscribe_status"));
}

}  // namespace
}  // namespace lumacast::test
