// The streaming service's reading of camera result texts, with a real command waiting for
// its answer. Each input picks one of the fifteen camera commands and its arguments
// (strings of any length among them), runs it against the real service, whose link is
// connected to a camera stand-in in a private network namespace, and once the command
// frame is on the wire hands the service a result text from the input, as the link's
// read thread would: any bytes, any length the read returned, a terminating zero only
// at the end of the buffer. A proper answer then completes the command if the input's
// text did not.
//
// Checks: every command returns within a bound; every frame on the wire is well formed
// and fits the service's packet; a text query returns a prefix of the text that woke it,
// short enough for its buffer.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fuzz/support/Check.h"
#include "fuzz/support/FuzzInput.h"
#include "fuzz/support/PrivateNamespace.h"
#include "service/LumacastService.h"
#include "socket/CameraProtocol.h"

namespace {

using android::sp;
using android::lumacast::LumacastService;
using lumacast::fuzz::FuzzInput;
namespace proto = android::lumacast;
using namespace std::chrono_literals;

// Reads command frames and counts them; never answers (the target answers in place).
class Camera {
  public:
    Camera() {
        mListenFd = lumacast::fuzz::listenAsCamera();
        std::thread([this] { serve(); }).detach();
    }

    int frames() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mFrames;
    }
    // Until a frame beyond `seen` arrives or done() holds; false after the bound.
    template <typename Pred>
    bool waitFrame(int seen, Pred done) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, 10s, [&] { return mFrames > seen || done(); });
    }
    void notify() {
        std::lock_guard<std::mutex> lock(mMutex);
        mCond.notify_all();
    }

  private:
    static bool readFully(int fd, uint8_t* buf, size_t len) {
        size_t got = 0;
        while (got < len) {
            const ssize_t n = read(fd, buf + got, len - got);
            if (n <= 0) return false;
            got += static_cast<size_t>(n);
        }
        return true;
    }
    void serve() {
        for (;;) {
            const int fd = accept4(mListenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            uint8_t head[proto::LEN_CMD_HEAD];
            while (readFully(fd, head, sizeof(head))) {
                FUZZ_CHECK(memcmp(head, proto::CMD_HEAD_MAGIC, 4) == 0, "frame without magic");
                const uint32_t len = proto::readBigEndian32(head + 4);
                FUZZ_CHECK(len >= 1 &&
                                   len + proto::LEN_CMD_HEAD <=
                                           static_cast<uint32_t>(LumacastService::SEND_BUFFER_SIZE),
                           "frame text of %u bytes", len);
                std::vector<uint8_t> text(len);
                if (!readFully(fd, text.data(), len)) break;
                FUZZ_CHECK(memchr(text.data(), 0, len) == nullptr, "zero byte in a command");
                std::lock_guard<std::mutex> lock(mMutex);
                ++mFrames;
                mCond.notify_all();
            }
            close(fd);
        }
    }

    int mListenFd;
    std::mutex mMutex;
    std::condition_variable mCond;
    int mFrames = 0;
};

// One command's arguments from the input, and what it returned.
struct Call {
    int32_t a = 0;
    int32_t b = 0;
    std::string text;
    bool r = false;
    int32_t v = 0;
    std::string out;  // the text queries' result
};

// The fifteen camera commands: the cmd_id of their answer, whether they return a text.
struct Command {
    int cmdId;
    bool textQuery;
    void (*run)(LumacastService* s, Call& c);
};

const Command kCommands[15] = {
        {14, false, [](LumacastService* s, Call& c) { s->setZoomSwitch(c.a & 1, &c.r); }},
        {15, false, [](LumacastService* s, Call& c) { s->getZoomSwitch(&c.r); }},
        {16, false, [](LumacastService* s, Call& c) { s->getAiAlgoList(&c.v); }},
        {1, false, [](LumacastService* s, Call& c) { s->setAiSubscribeType(c.a, &c.r); }},
        {2, false, [](LumacastService* s, Call& c) { s->getAiSubscribeStatus(&c.v); }},
        {1, false, [](LumacastService* s, Call& c) { s->setAiSubscribe(c.a, c.text, &c.r); }},
        {2, true, [](LumacastService* s, Call& c) { s->getAiSubscribe(&c.out); }},
        {3, false, [](LumacastService* s, Call& c) { s->grabFrame(c.a, c.text, &c.r); }},
        {4, false, [](LumacastService* s, Call& c) { s->sendDoa(c.text, &c.r); }},
        {12, false, [](LumacastService* s, Call& c) { s->setAutoFraming(c.a, &c.r); }},
        {13, false, [](LumacastService* s, Call& c) { s->getAutoFraming(&c.r); }},
        {14, false, [](LumacastService* s, Call& c) { s->setZoomMode(c.a, c.b, &c.r); }},
        {15, true, [](LumacastService* s, Call& c) { s->getZoomMode(&c.out); }},
        {5, false, [](LumacastService* s, Call& c) { s->setAiProperty(c.text, &c.r); }},
        {6, true, [](LumacastService* s, Call& c) { s->getAiProperty(c.text, &c.out); }},
};

// Whether value is what a text query may return after `text` (len bytes read) woke it:
// the text up to its first zero, cut to fit the service's 100-byte buffer.
bool isReturnedText(const std::string& value, const uint8_t* text, size_t len) {
    const size_t limit = std::min<size_t>(len, LumacastService::RESULT_TEXT_SIZE - 1);
    const size_t n = strnlen(reinterpret_cast<const char*>(text), limit);
    return value.size() == n && memcmp(value.data(), text, n) == 0;
}

LumacastService* gService;
Camera* gCamera;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LUMACAST_LOG_QUIET", "1", 0);
    lumacast::fuzz::enterPrivateNamespace(true);
    lumacast::fuzz::usePrivateProperties();
    gCamera = new Camera;
    // Kept for the life of the process; its threads run until exit.
    gService = new LumacastService;
    gService->incStrong(gService);
    gService->processCameraAdd();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput in(data, size);
    const int kind = static_cast<int>(in.below(15));
    Call call;  // touched by the caller thread until it has returned
    call.a = in.i32();
    call.b = in.i32();
    call.text = in.text(400);
    const uint32_t lenChoice = in.u32();
    // The result as the link hands it on: the bytes it read (any of them zero) in a
    // buffer one longer than announced, zero at the end.
    std::vector<uint8_t> result = in.rest();
    if (result.empty()) result.push_back('{');
    const size_t announced = result.size();
    result.push_back(0);
    const int len = static_cast<int>(1 + lenChoice % announced);

    const Command command = kCommands[kind];
    const int seen = gCamera->frames();
    std::mutex mutex;
    std::condition_variable cond;
    bool returned = false;
    std::thread caller([&] {
        command.run(gService, call);
        {
            std::lock_guard<std::mutex> lock(mutex);
            returned = true;
            cond.notify_all();
        }
        // The camera's wait looks at `returned` under its own lock: never hold both here.
        gCamera->notify();
    });
    auto hasReturned = [&] {
        std::lock_guard<std::mutex> lock(mutex);
        return returned;
    };
    // Refused commands (too long an argument) send nothing and return at once.
    FUZZ_CHECK(gCamera->waitFrame(seen, hasReturned), "command %d neither sent nor returned", kind);
    const bool sent = gCamera->frames() > seen;
    if (sent) {
        gService->processResult(result.data(), len);
        const std::string answer =
                "{\"cmd_id\":" + std::to_string(command.cmdId) + ",\"param\":1,\"rval\":0}";
        gService->processResult(reinterpret_cast<unsigned char*>(const_cast<char*>(answer.c_str())),
                                static_cast<int>(answer.size()));
        std::unique_lock<std::mutex> lock(mutex);
        FUZZ_CHECK(cond.wait_for(lock, 10s, [&] { return returned; }),
                   "command %d still waits after its answer", kind);
        if (command.textQuery) {
            FUZZ_CHECK(isReturnedText(call.out, result.data(), static_cast<size_t>(len)) ||
                               call.out == answer,
                       "text query returned %zu bytes that no result held", call.out.size());
        }
    }
    caller.join();
    return 0;
}
