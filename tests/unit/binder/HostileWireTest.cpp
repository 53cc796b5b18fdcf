// A peer that speaks the socket protocol by hand: correct messages get libbinder's
// answers byte for byte, malformed ones are refused without crash, hang or leak.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/src/binder/FlatObject.h"
#include "platform/host/src/binder/Wire.h"
#include "tests/unit/binder/BinderTestSupport.h"
#include "tests/unit/binder/PeerService.h"

using namespace android;
using namespace android::hostbinder;
namespace lt = lumacast::test;
using lt::openFdCount;
using lt::waitUntil;

namespace {

using Bytes = std::vector<uint8_t>;

template <typename T>
void append(Bytes* b, const T& v) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&v);
    b->insert(b->end(), p, p + sizeof(T));
}

template <typename T>
Bytes bytesOf(const T& v) {
    Bytes b;
    append(&b, v);
    return b;
}

// A flattened reference as a parcel carries it: the object, then its stability.
Bytes withStability(const FlatObject& flat) {
    Bytes b = bytesOf(flat);
    append(&b, int32_t(0x0c000001));
    return b;
}

struct Message {
    MessageHeader header{};
    Bytes body;
};

class RawPeer {
  public:
    explicit RawPeer(const std::string& path) {
        mFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
        connected = connect(mFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
    }
    ~RawPeer() { close(mFd); }

    bool sendRaw(const Bytes& bytes, int fd = -1) {
        iovec iov{const_cast<uint8_t*>(bytes.data()), bytes.size()};
        msghdr msg{};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        if (fd >= 0) {
            msg.msg_control = control;
            msg.msg_controllen = sizeof(control);
            cmsghdr* c = CMSG_FIRSTHDR(&msg);
            c->cmsg_level = SOL_SOCKET;
            c->cmsg_type = SCM_RIGHTS;
            c->cmsg_len = CMSG_LEN(sizeof(int));
            memcpy(CMSG_DATA(c), &fd, sizeof(int));
        }
        return sendmsg(mFd, &msg, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    bool send(uint32_t command, const Bytes& body, uint32_t fdCount = 0, int fd = -1) {
        Bytes all;
        append(&all, MessageHeader{command, static_cast<uint32_t>(body.size()), fdCount, 0});
        all.insert(all.end(), body.begin(), body.end());
        return sendRaw(all, fd);
    }

    bool hello(uint32_t version = kProtocolVersion, const std::string& token = "rawpeer-1") {
        Bytes body = bytesOf(HelloBody{version, static_cast<uint32_t>(token.size())});
        body.insert(body.end(), token.begin(), token.end());
        return send(CMD_HELLO, body);
    }

    bool transact(uint64_t callId, uint64_t target, uint32_t code, const Bytes& data,
                  const std::vector<uint32_t>& offsets = {}, uint32_t fdCount = 0, int fd = -1) {
        Bytes body =
                bytesOf(TransactBody{callId, 0, target, code, 0, static_cast<uint32_t>(data.size()),
                                     static_cast<uint32_t>(offsets.size())});
        body.insert(body.end(), data.begin(), data.end());
        for (uint32_t o : offsets) append(&body, o);
        return send(CMD_TRANSACT, body, fdCount, fd);
    }

    // The next message other than the server's greeting; false at the end or after 5 s.
    bool next(Message* m) {
        for (;;) {
            if (!readExact(&m->header, sizeof(m->header))) return false;
            m->body.resize(m->header.bodySize);
            if (!readExact(m->body.data(), m->body.size())) return false;
            if (m->header.command != CMD_HELLO) return true;
        }
    }

    // The server hung up on us within 5 s.
    bool closedByServer() {
        Message m;
        while (next(&m)) {
        }
        pollfd p{mFd, POLLIN, 0};
        char c;
        return poll(&p, 1, 0) == 1 && recv(mFd, &c, 1, MSG_DONTWAIT) == 0;
    }

    bool connected = false;

  private:
    bool readExact(void* buf, size_t len) {
        uint8_t* p = static_cast<uint8_t*>(buf);
        while (len > 0) {
            pollfd pfd{mFd, POLLIN, 0};
            if (poll(&pfd, 1, 5000) != 1) return false;
            const ssize_t n = recv(mFd, p, len, 0);
            if (n <= 0) return false;
            p += n;
            len -= static_cast<size_t>(n);
        }
        return true;
    }

    int mFd = -1;
};

ReplyBody replyOf(const Message& m) {
    ReplyBody r{};
    memcpy(&r, m.body.data(), sizeof(r));
    return r;
}

class HostileWireTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ProcessState::self()->startThreadPool();
        static int sCount = 0;
        mName = "hostile.target" + std::to_string(++sCount);
        mService = new lt::PeerService();
        ASSERT_EQ(defaultServiceManager()->addService(String16(mName.c_str()), mService), OK);
        const std::string dir = getenv("LUMACAST_BINDER_DIR");
        std::ifstream in(dir + "/service." + mName);
        std::string token;
        in >> token;
        mSocketPath = dir + "/" + token + ".sock";
    }

    // A greeted session and the service's address as the directory hands it out.
    uint64_t lookUp(RawPeer& peer) {
        EXPECT_TRUE(peer.hello());
        Parcel name;
        name.writeString16(String16(mName.c_str()));
        EXPECT_TRUE(peer.transact(1, 0, kGetServiceTransaction,
                                  Bytes(name.data(), name.data() + name.dataSize())));
        Message m;
        if (!peer.next(&m) || m.header.command != CMD_REPLY) return 0;
        const ReplyBody r = replyOf(m);
        EXPECT_EQ(r.status, OK);
        EXPECT_EQ(r.objectCount, 1u);
        EXPECT_EQ(r.dataSize, 28u);
        if (r.dataSize != 28 || r.objectCount != 1) return 0;
        FlatObject flat;
        memcpy(&flat, m.body.data() + sizeof(ReplyBody), sizeof(flat));
        EXPECT_EQ(flat.type, BINDER_TYPE_BINDER);
        int32_t stability;
        memcpy(&stability, m.body.data() + sizeof(ReplyBody) + 24, 4);
        EXPECT_EQ(stability, 0x0c000001);
        return flat.binder;
    }

    int32_t addOne(RawPeer& peer, uint64_t address, int32_t v, uint64_t callId) {
        if (!peer.transact(callId, address, lt::kAddOne, bytesOf(v))) return -1;
        Message m;
        if (!peer.next(&m) || m.header.command != CMD_REPLY) return -1;
        const ReplyBody r = replyOf(m);
        if (r.callId != callId || r.status != OK || r.dataSize != 4) return -1;
        int32_t out;
        memcpy(&out, m.body.data() + sizeof(ReplyBody), 4);
        return out;
    }

    std::string mName;
    std::string mSocketPath;
    sp<lt::PeerService> mService;
};

// Refused parcels hand back the references they carried; the session goes on.
TEST_F(HostileWireTest, BadReferencesAreRefusedAndReturned) {
    RawPeer peer(mSocketPath);
    const uint64_t address = lookUp(peer);
    ASSERT_NE(address, 0u);
    Message m;

    ASSERT_TRUE(peer.transact(10, 999, lt::kAddOne, Bytes{1, 0, 0, 0}));
    ASSERT_TRUE(peer.next(&m));
    EXPECT_EQ(replyOf(m).status, BAD_VALUE);

    struct Case {
        const char* what;
        FlatObject flat;
        uint32_t offset;
    };
    const Case cases[] = {
            {"unknown object of the server", {BINDER_TYPE_HANDLE, 0, 12345, 0}, 0},
            {"unknown object type", {0x11223344, 0, 1, 0}, 0},
            {"descriptor without descriptors", {BINDER_TYPE_FD, 0, 0, 0}, 0},
            {"null address", {BINDER_TYPE_BINDER, 0, 0, 0}, 0},
            {"offset past the data", {BINDER_TYPE_BINDER, 0, 5, 0}, 8},
            {"misaligned offset", {BINDER_TYPE_BINDER, 0, 5, 0}, 2},
    };
    uint64_t callId = 20;
    for (const Case& c : cases) {
        ASSERT_TRUE(peer.transact(++callId, address, lt::kHoldCallback, withStability(c.flat),
                                  {c.offset}));
        ASSERT_TRUE(peer.next(&m)) << c.what;
        EXPECT_EQ(m.header.command, CMD_REPLY) << c.what;
        EXPECT_EQ(replyOf(m).status, BAD_VALUE) << c.what;
    }
    EXPECT_EQ(addOne(peer, address, 41, ++callId), 42);

    // Releasing what was never held is ignored.
    ASSERT_TRUE(peer.send(CMD_RELEASE, bytesOf(ReleaseBody{424242, 3, 0})));
    EXPECT_EQ(addOne(peer, address, 1, ++callId), 2);

    // A good reference to an object of ours, then a bad one: the call is refused, and
    // the count of the good one comes back before the reply.
    Bytes data = withStability({BINDER_TYPE_BINDER, 0, 77, 0});
    const Bytes bad = withStability({BINDER_TYPE_HANDLE, 0, 5555, 0});
    data.insert(data.end(), bad.begin(), bad.end());
    ASSERT_TRUE(peer.transact(30, address, lt::kHoldCallback, data, {0, 28}));
    ASSERT_TRUE(peer.next(&m));
    ASSERT_EQ(m.header.command, CMD_RELEASE);
    ReleaseBody rel;
    memcpy(&rel, m.body.data(), sizeof(rel));
    EXPECT_EQ(rel.address, 77u);
    EXPECT_EQ(rel.count, 1u);
    ASSERT_TRUE(peer.next(&m));
    EXPECT_EQ(m.header.command, CMD_REPLY);
    EXPECT_EQ(replyOf(m).status, BAD_VALUE);
}

TEST_F(HostileWireTest, ProtocolViolationsEndTheSessionAndLeakNothing) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    const size_t baseline = openFdCount();
    using Violation = std::function<void(RawPeer&)>;
    const std::vector<std::pair<const char*, Violation>> violations = {
            {"silence, then gone", [](RawPeer&) {}},
            {"wrong protocol version", [](RawPeer& p) { p.hello(99); }},
            {"bad token", [](RawPeer& p) { p.hello(kProtocolVersion, "../../etc"); }},
            {"call before greeting",
             [](RawPeer& p) { p.transact(1, 0, kGetServiceTransaction, Bytes{}); }},
            {"absurd body size",
             [](RawPeer& p) {
                 p.hello();
                 p.sendRaw(bytesOf(MessageHeader{CMD_TRANSACT, 0xffffffffu, 0, 0}));
             }},
            {"sizes that do not add up",
             [](RawPeer& p) {
                 p.hello();
                 p.send(CMD_TRANSACT, bytesOf(TransactBody{1, 0, 1, 1, 0, 100, 0}));
             }},
            {"reply to nothing",
             [](RawPeer& p) {
                 p.hello();
                 p.send(CMD_REPLY, bytesOf(ReplyBody{5, 0, 0, 0, 0}));
             }},
            {"unknown command",
             [](RawPeer& p) {
                 p.hello();
                 p.send(9, Bytes{});
             }},
            {"truncated message, then gone",
             [](RawPeer& p) {
                 p.hello();
                 Bytes h = bytesOf(MessageHeader{CMD_TRANSACT, 200, 0, 0});
                 h.resize(h.size() + 10);
                 p.sendRaw(h);
             }},
            {"second greeting",
             [](RawPeer& p) {
                 p.hello();
                 p.hello();
             }},
            {"release carrying a descriptor it did not announce",
             [&](RawPeer& p) {
                 p.hello();
                 p.send(CMD_RELEASE, bytesOf(ReleaseBody{1, 1, 0}), 0, fds[1]);
             }},
    };
    for (const auto& [what, violate] : violations) {
        RawPeer peer(mSocketPath);
        ASSERT_TRUE(peer.connected) << what;
        violate(peer);
        if (std::string(what).find("gone") == std::string::npos) {
            EXPECT_TRUE(peer.closedByServer()) << what;
        }
    }
    // Every session the server made for them is gone again.
    EXPECT_TRUE(waitUntil([&] { return openFdCount() <= baseline; }))
            << openFdCount() << " open, " << baseline << " before";
    RawPeer good(mSocketPath);
    const uint64_t address = lookUp(good);
    EXPECT_EQ(addOne(good, address, 1, 2), 2);

    // Our write end was the last one besides the server's copy of the unannounced one.
    close(fds[1]);
    pollfd p{fds[0], POLLIN, 0};
    ASSERT_EQ(poll(&p, 1, 5000), 1);
    char c;
    EXPECT_EQ(read(fds[0], &c, 1), 0);
    close(fds[0]);
}

}  // namespace
