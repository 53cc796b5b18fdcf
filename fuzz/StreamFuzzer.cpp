// Any byte stream from the camera into the link's read loop. A camera stand-in on the
// camera's address (in a private network namespace) serves each input on one connection
// and then closes it; the loop reads it to the end and drops the connection, and the next
// input comes on a connection that init() makes, as for a command. Huge lengths and
// counts, short headers, foreign magic and truncated blocks all arrive over a real TCP
// socket.
//
// Checks: every input is read to its end within a bound; every block handed on has a
// length from 1 to the link's bound and a zero byte behind it; every result text is
// terminated; and for inputs small enough to arrive in one piece, the pieces handed on
// are exactly those a reference reading of the wire format finds.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "fuzz/support/Check.h"
#include "fuzz/support/PrivateNamespace.h"
#include "socket/CameraProtocol.h"
#include "socket/SocketClient.h"
#include "util/ILumacastClient.h"

namespace {

using android::lumacast::ILumacastClient;
using android::lumacast::SocketClient;
namespace proto = android::lumacast;

// Payload bytes kept per piece for the comparison; of the rest only whether it is all
// zeros (inputs compared with the reference are far shorter).
constexpr size_t kKeptBytes = 8192;
// Inputs up to this size arrive in one piece on loopback, so reads are never short.
constexpr size_t kModelLimit = 4096;

struct Piece {
    char what = 0;  // 'j' AI JSON, 'p' protobuf, 'f' frame, 'r' result
    int count = 0;
    int param = 0;
    int len = 0;
    std::vector<uint8_t> bytes;  // the first kKeptBytes
    bool zeroTail = true;        // the bytes after those are all zero
    bool operator==(const Piece& o) const {
        return what == o.what && count == o.count && param == o.param && len == o.len &&
               bytes == o.bytes && zeroTail == o.zeroTail;
    }
};

// A piece of len bytes of which got are given (the rest read as zeros): the first
// kKeptBytes, and whether all after those are zero.
Piece piece(char what, int count, int param, const uint8_t* data, size_t got, int len) {
    Piece p{what, count, param, len, {}, true};
    const size_t kept = std::min(static_cast<size_t>(len), kKeptBytes);
    p.bytes.assign(data, data + std::min(got, kept));
    p.bytes.resize(kept, 0);
    static const uint8_t zeros[64 * 1024] = {};
    for (size_t i = kept; i < got && p.zeroTail; i += sizeof(zeros)) {
        p.zeroTail = memcmp(data + i, zeros, std::min(sizeof(zeros), got - i)) == 0;
    }
    return p;
}

class Recorder : public ILumacastClient {
  public:
    void processCameraAdd() override {}
    void processCameraRemove() override {}
    int checkAlive() override { return 0; }
    int processResult(unsigned char* data, int len) override {
        FUZZ_CHECK(data != nullptr && len >= 1, "result of %d bytes", len);
        FUZZ_CHECK(static_cast<uint32_t>(len) <= proto::MAX_RESULT_TEXT_LEN, "result of %d bytes",
                   len);
        // Terminated somewhere at or after len: reading it must stay in the buffer.
        FUZZ_CHECK(strlen(reinterpret_cast<char*>(data) + len) < 1u << 17, "unterminated");
        add('r', 0, 0, data, len);
        return 0;
    }
    int processAiJson(unsigned char* data, int len) override {
        checkBlock(data, len);
        add('j', 0, 0, data, len);
        return 0;
    }
    int processAiProtobuf(unsigned char* data, int len) override {
        checkBlock(data, len);
        add('p', 0, 0, data, len);
        return 0;
    }
    int processFrame(int count, int param, unsigned char* data, int len) override {
        checkBlock(data, len);
        FUZZ_CHECK(count >= 1 && static_cast<uint32_t>(count) <= proto::MAX_BLOCK_COUNT,
                   "frame of %d blocks", count);
        add('f', count, param, data, len);
        return 0;
    }
    int getCallbackSize() override { return 0; }

    std::vector<Piece> take() {
        std::lock_guard<std::mutex> lock(mMutex);
        std::vector<Piece> out;
        out.swap(mPieces);
        return out;
    }

  private:
    static void checkBlock(const unsigned char* data, int len) {
        FUZZ_CHECK(data != nullptr && len >= 1 && len <= proto::MAX_BLOCK_PAYLOAD_LEN,
                   "block of %d bytes", len);
        FUZZ_CHECK(data[len] == 0, "no zero byte behind a block");
    }
    void add(char what, int count, int param, const unsigned char* data, int len) {
        Piece p = piece(what, count, param, data, static_cast<size_t>(len), len);
        std::lock_guard<std::mutex> lock(mMutex);
        mPieces.push_back(std::move(p));
    }

    std::mutex mMutex;
    std::vector<Piece> mPieces;
};

// Serves one input per accepted connection: writes it, ends the stream and waits until
// the link has closed its end.
class Camera {
  public:
    Camera() {
        mListenFd = lumacast::fuzz::listenAsCamera();
        std::thread([this] { serve(); }).detach();
    }

    // False when the link did not finish within the bound.
    bool feed(const uint8_t* data, size_t size) {
        std::unique_lock<std::mutex> lock(mMutex);
        mInput.assign(data, data + size);
        mHasInput = true;
        mDone = false;
        mCond.notify_all();
        return mCond.wait_for(lock, std::chrono::seconds(20), [this] { return mDone; });
    }

  private:
    void serve() {
        for (;;) {
            const int fd = accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            std::vector<uint8_t> input;
            {
                std::unique_lock<std::mutex> lock(mMutex);
                mCond.wait(lock, [this] { return mHasInput; });
                input.swap(mInput);
                mHasInput = false;
            }
            size_t off = 0;
            while (off < input.size()) {
                const ssize_t n = send(fd, input.data() + off, input.size() - off, MSG_NOSIGNAL);
                if (n <= 0) break;
                off += static_cast<size_t>(n);
            }
            shutdown(fd, SHUT_WR);
            char sink[256];
            while (read(fd, sink, sizeof(sink)) > 0) {
            }
            close(fd);
            std::lock_guard<std::mutex> lock(mMutex);
            mDone = true;
            mCond.notify_all();
        }
    }

    int mListenFd;
    std::mutex mMutex;
    std::condition_variable mCond;
    std::vector<uint8_t> mInput;
    bool mHasInput = false;
    bool mDone = false;
};

// The wire format read from a stream that is all there at once: reads are short only at
// its end.
std::vector<Piece> reference(const uint8_t* s, size_t size) {
    std::vector<Piece> out;
    size_t pos = 0;
    auto take = [&](size_t want) {
        const size_t n = std::min(want, size - pos);
        pos += n;
        return n;
    };
    while (pos < size) {
        const uint8_t* head = s + pos;
        if (take(proto::LEN_AI_HEAD) < proto::LEN_AI_HEAD) break;
        if (head[0] != proto::MSG_MAGIC_0 || head[1] != proto::MSG_MAGIC_1 ||
            head[2] != proto::MSG_MAGIC_2 ||
            (head[3] != proto::MSG_KIND_DATA && head[3] != proto::MSG_KIND_RESULT)) {
            continue;
        }
        const uint16_t type = proto::readBigEndian16(head + 4);
        const uint32_t jsonLen = proto::readBigEndian32(head + 16);
        const uint32_t count = proto::readBigEndian32(head + 20);
        if (count > proto::MAX_BLOCK_COUNT) continue;
        bool dropped = false;
        for (uint32_t i = 0; i < count && pos < size; ++i) {
            const uint8_t* block = s + pos;
            if (take(proto::LEN_BLOCK_HEAD) < proto::LEN_BLOCK_HEAD) break;
            const int32_t len = static_cast<int32_t>(proto::readBigEndian32(block + 8));
            if (len < 1) continue;
            if (len > proto::MAX_BLOCK_PAYLOAD_LEN) {
                dropped = true;
                break;
            }
            const int32_t param = static_cast<int32_t>(proto::readBigEndian32(block + 4));
            const uint8_t* payload = s + pos;
            const size_t got = take(static_cast<size_t>(len));
            if (type == proto::DATA_TYPE_AI_JSON)
                out.push_back(piece('j', 0, 0, payload, got, len));
            if (type == proto::DATA_TYPE_AI_PROTOBUF) {
                out.push_back(piece('p', 0, 0, payload, got, len));
            }
            if (type == proto::DATA_TYPE_FRAME) {
                out.push_back(piece('f', static_cast<int>(count), param, payload, got, len));
            }
        }
        if (dropped || head[3] != proto::MSG_KIND_RESULT || jsonLen == 0 ||
            jsonLen > proto::MAX_RESULT_TEXT_LEN) {
            continue;
        }
        const uint8_t* text = s + pos;
        const size_t got = take(jsonLen);
        if (got > 0) out.push_back(piece('r', 0, 0, text, got, static_cast<int>(got)));
    }
    return out;
}

Recorder* gRecorder;
Camera* gCamera;
SocketClient* gLink;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::fuzz::enterPrivateNamespace(true);
    // Owned for the life of the process; the link's threads run until exit.
    gCamera = new Camera;
    gRecorder = new Recorder;
    gLink = new SocketClient(gRecorder);
    gLink->cameraExit = true;
    if (!gLink->init()) {
        fprintf(stderr, "the link cannot reach the camera stand-in\n");
        exit(1);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FUZZ_CHECK(gCamera->feed(data, size), "the link did not read %zu bytes to the end", size);
    const std::vector<Piece> pieces = gRecorder->take();
    if (size <= kModelLimit) {
        const std::vector<Piece> expected = reference(data, size);
        FUZZ_CHECK(pieces == expected, "%zu pieces handed on, %zu in the stream", pieces.size(),
                   expected.size());
    }
    // The loop paces reconnects after connections that end at once; connect for the next
    // input as a command would, so that inputs are not held to that pace.
    // feed() returned once the link had closed its end; it leaves CONNECTED just after.
    for (int i = 0; i < 1000 && gLink->connectState == android::lumacast::CONNECTED; ++i) {
        std::this_thread::yield();
    }
    gLink->init();
    return 0;
}
