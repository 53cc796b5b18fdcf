// Calls between two processes: references in both directions, nested calls and calls
// from any thread, peer death, reference release and descriptors.
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "tests/unit/binder/BinderTestSupport.h"
#include "tests/unit/binder/ChildProcess.h"
#include "tests/unit/binder/PeerProtocol.h"
#include "tests/unit/binder/PeerService.h"

using namespace android;
using lumacast::test::ChildProcess;
namespace lt = lumacast::test;
using lt::openFdCount;
using lt::waitUntil;

namespace {

// Answers kCallbackCode with the doubled int32 and remembers who called it on which
// thread and with which thread state; leaves that state changed on the way out. Tells the
// test when it is destroyed.
class TestCallback : public BBinder {
  public:
    explicit TestCallback(std::shared_ptr<std::atomic<bool>> destroyed = nullptr)
        : mDestroyed(std::move(destroyed)) {}
    ~TestCallback() override {
        if (mDestroyed) mDestroyed->store(true);
    }

    std::vector<int32_t> values() {
        std::lock_guard<std::mutex> lock(mLock);
        return mValues;
    }
    std::set<std::thread::id> threads() {
        std::lock_guard<std::mutex> lock(mLock);
        return mThreads;
    }

    // The thread state the last call began with.
    int32_t seenWorkSource = 0;
    bool seenPropagate = true;
    pid_t seenPid = 0;

  protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code != lt::kCallbackCode) return BBinder::onTransact(code, data, reply, flags);
        int32_t v = 0;
        status_t err = data.readInt32(&v);
        if (err != OK) return err;
        IPCThreadState* const ts = IPCThreadState::self();
        {
            std::lock_guard<std::mutex> lock(mLock);
            mValues.push_back(v);
            mThreads.insert(std::this_thread::get_id());
            seenWorkSource = static_cast<int32_t>(ts->getCallingWorkSourceUid());
            seenPropagate = ts->shouldPropagateWorkSource();
            seenPid = ts->getCallingPid();
        }
        ts->setStrictModePolicy(0x7);
        ts->setCallingWorkSourceUid(99);
        return reply->writeInt32(2 * v);
    }

  private:
    std::shared_ptr<std::atomic<bool>> mDestroyed;
    std::mutex mLock;
    std::vector<int32_t> mValues;
    std::set<std::thread::id> mThreads;
};

// Counts obituaries (in a counter that may outlive it) and notes the thread of the last.
class DeathWatcher : public IBinder::DeathRecipient {
  public:
    explicit DeathWatcher(
            std::shared_ptr<std::atomic<int>> counter = std::make_shared<std::atomic<int>>(0))
        : died(std::move(counter)) {}
    void binderDied(const wp<IBinder>&) override {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        {
            std::lock_guard<std::mutex> lock(mLock);
            mThread = name;
        }
        died->fetch_add(1);
    }
    std::string thread() {
        std::lock_guard<std::mutex> lock(mLock);
        return mThread;
    }
    const std::shared_ptr<std::atomic<int>> died;

  private:
    std::mutex mLock;
    std::string mThread;
};

void put(Parcel& p, int32_t v) { p.writeInt32(v); }
void put(Parcel& p, const sp<IBinder>& b) { p.writeStrongBinder(b); }
void put(Parcel& p, const std::vector<uint8_t>& bytes) { p.writeByteVector(bytes); }

// Sends the arguments in order (int32 values, binders, byte vectors).
template <typename... Args>
status_t call(const sp<IBinder>& b, uint32_t code, Parcel* reply, const Args&... args) {
    Parcel data;
    (put(data, args), ...);
    return b->transact(code, data, reply);
}

int32_t addOne(const sp<IBinder>& b, int32_t v) {
    Parcel reply;
    return call(b, lt::kAddOne, &reply, v) == OK ? reply.readInt32() : -1;
}

std::string uniqueName() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("peer.") + info->name();
}

std::set<std::string> listedServices() {
    std::set<std::string> names;
    for (const String16& s : defaultServiceManager()->listServices()) {
        names.insert(String8(s).c_str());
    }
    return names;
}

class RemoteBinderTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ProcessState::self()->startThreadPool();
        mName = uniqueName();
        mPeer = std::make_unique<ChildProcess>(BINDER_PEER_PATH,
                                               std::vector<std::string>{"service", mName});
        ASSERT_TRUE(mPeer->running());
        mService = defaultServiceManager()->getService(String16(mName.c_str()));
        ASSERT_NE(mService, nullptr);
    }

    std::string mName;
    std::unique_ptr<ChildProcess> mPeer;
    sp<IBinder> mService;
};

TEST_F(RemoteBinderTest, CallsObjectsAndLargeParcelsReachThePeer) {
    ASSERT_NE(mService->remoteBinder(), nullptr);
    EXPECT_EQ(mService->pingBinder(), OK);
    EXPECT_TRUE(mService->isBinderAlive());
    EXPECT_EQ(String8(mService->getInterfaceDescriptor()), String8("lumacast.test.IPeer"));
    EXPECT_EQ(addOne(mService, 41), 42);
    EXPECT_EQ(addOne(mService, -1), 0);

    Parcel reply;
    ASSERT_EQ(call(mService, lt::kCallingPid, &reply), OK);
    EXPECT_EQ(reply.readInt32(), getpid());
    // Codes the object does not know come back as the object's own answer.
    EXPECT_EQ(call(mService, 0x00abcdef, &reply), UNKNOWN_TRANSACTION);
    // Missing arguments are the peer's read error, carried back as the call's result.
    EXPECT_EQ(call(mService, lt::kAddOne, &reply), NOT_ENOUGH_DATA);
    // IPCThreadState.cpp executeCommand: only a negative result replaces the reply.
    ASSERT_EQ(call(mService, lt::kPositiveResult, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 7);
    // Binder.cpp BBinder::transact answers DEBUG_PID in the peer.
    ASSERT_EQ(call(mService, IBinder::DEBUG_PID_TRANSACTION, &reply), OK);
    EXPECT_EQ(reply.readInt32(), mPeer->pid());
    EXPECT_EQ(addOne(mService, 1), 2);

    // Objects travel both ways and come home as themselves.
    sp<TestCallback> mine = new TestCallback();
    ASSERT_EQ(call(mService, lt::kReturnBinders, &reply, mine), OK);
    sp<IBinder> back;
    sp<IBinder> theirs;
    ASSERT_EQ(reply.readStrongBinder(&back), OK);
    ASSERT_EQ(reply.readStrongBinder(&theirs), OK);
    EXPECT_EQ(back.get(), static_cast<IBinder*>(mine.get()));
    ASSERT_NE(theirs->remoteBinder(), nullptr);
    EXPECT_EQ(theirs->pingBinder(), OK);

    // The peer's object sent back to the peer is the peer's own object there, and the
    // same proxy here when it returns.
    Parcel reply2;
    ASSERT_EQ(call(mService, lt::kReturnBinders, &reply2, theirs), OK);
    sp<IBinder> theirsAgain;
    ASSERT_EQ(reply2.readStrongBinder(&theirsAgain), OK);
    EXPECT_EQ(theirsAgain.get(), theirs.get());

    // Parcels up to the binder limit pass.
    ASSERT_EQ(call(mService, lt::kBytes, &reply, 200000), OK);
    std::vector<uint8_t> bytes;
    ASSERT_EQ(reply.readByteVector(&bytes), OK);
    ASSERT_EQ(bytes.size(), 200000u);
    bool intact = true;
    for (size_t i = 0; i < bytes.size(); ++i) intact &= bytes[i] == static_cast<uint8_t>(i);
    EXPECT_TRUE(intact);

    const std::vector<uint8_t> huge(1024 * 1024, 7);
    EXPECT_EQ(call(mService, lt::kAddOne, &reply, huge), FAILED_TRANSACTION);
    // A reply too large for the transport fails the call, not the session.
    EXPECT_EQ(call(mService, lt::kBytes, &reply, 1024 * 1024), FAILED_TRANSACTION);
    EXPECT_EQ(addOne(mService, 9), 10);
}

// libbinder IPCThreadState.cpp executeCommand, BR_TRANSACTION: the call starts with the
// work source cleared, and identity, strict-mode policy and work source are put back after.
TEST_F(RemoteBinderTest, NestedCallbackRunsOnTheWaitingThreadAndLeavesItsStateAsItWas) {
    IPCThreadState* const ts = IPCThreadState::self();
    ts->setStrictModePolicy(0x15);
    const int64_t token = ts->setCallingWorkSourceUid(4242);
    sp<TestCallback> cb = new TestCallback();
    Parcel reply;
    ASSERT_EQ(call(mService, lt::kCallBackNested, &reply, cb, 21), OK);
    EXPECT_EQ(reply.readInt32(), 42);
    EXPECT_EQ(cb->values(), std::vector<int32_t>{21});
    EXPECT_EQ(cb->threads(), std::set<std::thread::id>{std::this_thread::get_id()});
    EXPECT_EQ(cb->seenPid, mPeer->pid());
    EXPECT_EQ(cb->seenWorkSource, IPCThreadState::kUnsetWorkSource);
    EXPECT_FALSE(cb->seenPropagate);
    EXPECT_EQ(ts->getCallingPid(), getpid());
    EXPECT_EQ(ts->getStrictModePolicy(), 0x15);
    EXPECT_EQ(ts->getCallingWorkSourceUid(), 4242u);
    EXPECT_TRUE(ts->shouldPropagateWorkSource());
    ts->restoreCallingWorkSource(token);
    ts->setStrictModePolicy(0);
}

// The peer holds our object, calls it from a thread of its own and finally drops it.
TEST_F(RemoteBinderTest, HeldObjectIsCalledFromThePeersThreadsAndReleasedWhenDropped) {
    auto destroyed = std::make_shared<std::atomic<bool>>(false);
    sp<TestCallback> cb = new TestCallback(destroyed);
    // Sent twice one way: both calls return at once with no reply and are both served,
    // and the peer's one proxy returns both counts at once in the end.
    for (int i = 0; i < 2; ++i) {
        Parcel data;
        Parcel reply;
        data.writeStrongBinder(sp<IBinder>(cb));
        ASSERT_EQ(mService->transact(lt::kHoldCallback, data, &reply, IBinder::FLAG_ONEWAY), OK);
        EXPECT_EQ(reply.dataSize(), 0u);
    }
    EXPECT_TRUE(waitUntil([&] {
        Parcel reply;
        return call(mService, lt::kHeldCount, &reply) == OK && reply.readInt32() == 2;
    }));

    Parcel reply;
    ASSERT_EQ(call(mService, lt::kFireHeld, &reply, 50), OK);
    EXPECT_EQ(reply.readInt32(), 100);
    std::vector<int32_t> expected;
    for (int32_t i = 0; i < 50; ++i) expected.insert(expected.end(), {i, i});
    EXPECT_EQ(cb->values(), expected);
    // Not nested: served by this process's pool, not by the thread that waits.
    EXPECT_EQ(cb->threads().count(std::this_thread::get_id()), 0u);

    cb.clear();
    // Only the peer keeps it alive now.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(destroyed->load());
    ASSERT_EQ(call(mService, lt::kDropHeld, &reply), OK);
    EXPECT_TRUE(waitUntil([&] { return destroyed->load(); }));
}

TEST_F(RemoteBinderTest, ManyThreadsCallAndGetCalledBackAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 40;
    sp<TestCallback> held = new TestCallback();
    Parcel r;
    ASSERT_EQ(call(mService, lt::kHoldCallback, &r, held), OK);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            sp<TestCallback> cb = new TestCallback();
            for (int i = 0; i < kRounds; ++i) {
                const int32_t v = t * 1000 + i;
                if (addOne(mService, v) != v + 1) failures++;
                Parcel reply;
                if (call(mService, lt::kCallBackNested, &reply, cb, v) != OK ||
                    reply.readInt32() != 2 * v) {
                    failures++;
                }
                if (i % 10 == 0 &&
                    (call(mService, lt::kFireHeld, &reply, 3) != OK || reply.readInt32() != 3)) {
                    failures++;
                }
            }
            if (cb->values().size() != static_cast<size_t>(kRounds)) failures++;
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(held->values().size(), static_cast<size_t>(kThreads * (kRounds / 10) * 3));
}

TEST_F(RemoteBinderTest, DumpHandsTheDescriptorToThePeer) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    const size_t before = openFdCount();
    Vector<String16> args;
    args.add(String16("-a"));
    args.add(String16("x y"));
    EXPECT_EQ(mService->dump(fds[1], args), OK);
    close(fds[1]);
    char buf[128] = {};
    std::string text;
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof(buf))) > 0) text.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    // Every copy made on the way was closed, here and in the peer (or read would block).
    EXPECT_EQ(text, "peer dump -a x y\n");
    EXPECT_EQ(openFdCount(), before - 2);
}

TEST_F(RemoteBinderTest, PeerDeathFailsCallsTellsRecipientsAndUnlistsItsServices) {
    sp<DeathWatcher> watcher = new DeathWatcher();
    ASSERT_EQ(mService->linkToDeath(watcher), OK);
    // libbinder BpBinder.cpp unlinkToDeath: a link is found by its recipient whatever the
    // cookie, or by its cookie when no recipient is given; the flags must match.
    int cookie = 0;
    sp<DeathWatcher> unlinked = new DeathWatcher();
    ASSERT_EQ(mService->linkToDeath(unlinked, &cookie), OK);
    EXPECT_EQ(mService->unlinkToDeath(unlinked, &cookie, 1), NAME_NOT_FOUND);
    ASSERT_EQ(mService->unlinkToDeath(unlinked), OK);
    sp<DeathWatcher> byCookie = new DeathWatcher();
    ASSERT_EQ(mService->linkToDeath(byCookie, &cookie), OK);
    wp<IBinder::DeathRecipient> found;
    ASSERT_EQ(mService->unlinkToDeath(nullptr, &cookie, 0, &found), OK);
    EXPECT_EQ(found.promote().get(), byCookie.get());
    // BpBinder.cpp reportOneDeath: recipients are held weakly, so one that is gone is not told.
    auto goneTold = std::make_shared<std::atomic<int>>(0);
    ASSERT_EQ(mService->linkToDeath(new DeathWatcher(goneTold)), OK);
    EXPECT_EQ(listedServices().count(mName), 1u);

    // One call is in progress when the peer goes; one kills it.
    std::atomic<status_t> sleeping{OK};
    std::thread sleeper([&] {
        Parcel reply;
        sleeping = call(mService, lt::kSleepMs, &reply, 60000);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Parcel reply;
    EXPECT_EQ(call(mService, lt::kExitNow, &reply), DEAD_OBJECT);
    sleeper.join();
    EXPECT_EQ(sleeping.load(), DEAD_OBJECT);

    EXPECT_TRUE(waitUntil([&] { return watcher->died->load() == 1; }));
    // Told on the pool, as the driver's BR_DEAD_BINDER is read by a looper thread.
    EXPECT_EQ(watcher->thread().rfind("binder:", 0), 0u) << watcher->thread();
    EXPECT_EQ(unlinked->died->load(), 0);
    EXPECT_EQ(byCookie->died->load(), 0);
    EXPECT_EQ(goneTold->load(), 0);
    EXPECT_FALSE(mService->isBinderAlive());
    EXPECT_EQ(mService->pingBinder(), DEAD_OBJECT);
    EXPECT_EQ(addOne(mService, 1), -1);
    EXPECT_EQ(mService->linkToDeath(new DeathWatcher()), DEAD_OBJECT);
    EXPECT_TRUE(waitUntil([&] { return listedServices().count(mName) == 0; }));
    EXPECT_EQ(defaultServiceManager()->checkService(String16(mName.c_str())), nullptr);
}

TEST(RemoteServiceTest, ServiceKeepsNoReferenceOfADeadClient) {
    ProcessState::self()->startThreadPool();
    const std::string name = uniqueName();
    sp<lt::PeerService> service = new lt::PeerService();
    ASSERT_EQ(defaultServiceManager()->addService(String16(name.c_str()), service), OK);
    const int32_t baseline = service->getStrongCount();

    ChildProcess client(BINDER_PEER_PATH, {"client", name});
    ASSERT_TRUE(waitUntil([&] {
        Parcel held;
        return call(service, lt::kHeldCount, &held) == OK && held.readInt32() == 1;
    }));
    // The client holds the service, the service holds the client's object.
    // The call that brought it may still be finishing on a pool thread.
    EXPECT_TRUE(waitUntil([&] { return service->getStrongCount() == baseline + 1; }))
            << service->getStrongCount();
    client.kill(SIGKILL);
    client.wait();
    EXPECT_TRUE(waitUntil([&] { return service->getStrongCount() == baseline; }));
    // The held proxy now reports its object dead.
    Parcel reply;
    ASSERT_EQ(call(service, lt::kFireHeld, &reply, 1), OK);
    EXPECT_EQ(reply.readInt32(), 0);
}

TEST_F(RemoteBinderTest, ForkedChildStartsAfreshWithoutItsParentsSessions) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer cannot start threads after a multi-threaded fork";
#else
    if (getenv("LUMACAST_TEST_EMULATOR") != nullptr) {
        GTEST_SKIP() << "qemu-user aborts when a multi-threaded process forks";
    }
    ASSERT_EQ(addOne(mService, 1), 2);

    const pid_t child = fork();
    if (child == 0) {
        // The inherited proxy belongs to the parent's session and is dead here.
        const bool inheritedDead =
                mService->transact(lt::kAddOne, Parcel(), nullptr) == DEAD_OBJECT;
        sp<IBinder> fresh = defaultServiceManager()->getService(String16(mName.c_str()));
        const bool freshWorks = fresh != nullptr && addOne(fresh, 5) == 6;
        _exit(inheritedDead && freshWorks ? 0 : 1);
    }
    ASSERT_GT(child, 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(addOne(mService, 2), 3);
#endif
}

}  // namespace
