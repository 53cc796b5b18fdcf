// Bytes on the wire in both directions, and how the link cuts the camera's stream.
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <random>

#include "tests/unit/socket/LinkTestSupport.h"

using android::lumacast::SocketClient;
using lumacast::camsim::Block;
using lumacast::camsim::commandFrame;
using lumacast::camsim::dataMessage;
using lumacast::camsim::encodeMessage;
using lumacast::camsim::Message;
using lumacast::camsim::resultMessage;

namespace lumacast::test {
namespace {

// The largest count the read thread has asked one read() for (the binary is linked
// with --wrap=read).
std::atomic<size_t> gLargestLinkRead{0};

}  // namespace
}  // namespace lumacast::test

extern "C" ssize_t __real_read(int fd, void* buf, size_t count);
extern "C" ssize_t __wrap_read(int fd, void* buf, size_t count) {
    char thread[16] = {};
    prctl(PR_GET_NAME, thread, 0, 0, 0);
    if (strcmp(thread, "socketRead") == 0) {
        auto& largest = lumacast::test::gLargestLinkRead;
        size_t seen = largest.load();
        while (count > seen && !largest.compare_exchange_weak(seen, count)) {
        }
    }
    return __real_read(fd, buf, count);
}

namespace lumacast::test {
namespace {

TEST_F(LinkTest, UnfitFramesAreRefusedAndNothingIsWritten) {
    link = std::make_unique<android::lumacast::SocketClient>(&client);
    std::string frame = commandFrame("{\"cmd_id\":1,\"param\":0}");
    // Not connected: dropped with a log line.
    link->process(1, reinterpret_cast<unsigned char*>(&frame[0]), static_cast<int>(frame.size()));
    EXPECT_TRUE(log.contains("SocketClient::process connectState:0 err", ANDROID_LOG_ERROR));

    link->cameraExit = true;
    ASSERT_TRUE(link->init());
    ASSERT_TRUE(camera->waitForConnections(1, 10s));
    std::string zeroFirst = frame;
    zeroFirst[0] = 0;
    link->process(1, reinterpret_cast<unsigned char*>(&zeroFirst[0]),
                  static_cast<int>(zeroFirst.size()));
    ASSERT_TRUE(log.waitFor("PThreadUtil::onProcess socketWrite retInt:-3", 10s));
    link->process(1, reinterpret_cast<unsigned char*>(&frame[0]), 0);
    ASSERT_TRUE(log.waitFor("PThreadUtil::onProcess socketWrite retInt:-4", 10s));
    link->process(1, nullptr, 30);
    ASSERT_TRUE(log.waitFor("PThreadUtil::onProcess socketWrite retInt:-3", 10s, 2));
    std::string huge(201, '\xFF');
    link->process(1, reinterpret_cast<unsigned char*>(&huge[0]), static_cast<int>(huge.size()));
    EXPECT_TRUE(log.contains("SocketClient::process len:201 > 200 err", ANDROID_LOG_ERROR));
    // Work routed under a name that is neither thread's, or without an item or a name.
    SocketClient::Client router(link.get());
    EXPECT_EQ(-2, router.selfProcess(&frame, const_cast<char*>("socketOther")));
    EXPECT_EQ(-1, router.selfProcess(nullptr, const_cast<char*>("socketWrite")));
    EXPECT_EQ(-1, router.selfProcess(&frame, nullptr));
    EXPECT_EQ(2u, log.count("SocketClient::Client::selfProcess nullptr == data1 || nullptr == "
                            "data2 err",
                            ANDROID_LOG_ERROR));

    // The link still works, and none of the refused frames reached the camera.
    link->process(1, reinterpret_cast<unsigned char*>(&frame[0]), static_cast<int>(frame.size()));
    ASSERT_TRUE(camera->waitForCommands(1, 10s));
    EXPECT_EQ(frame, camera->receivedBytes());
}

// The wire example of an AI JSON block, then frame blocks with their count and parameters.
TEST_F(LinkTest, BlocksAreHandedOnWithTheirFields) {
    connect();
    const std::string json = "{\"a\":1}";
    std::string bytes =
            bytesOf({0xFF, 0x00, 0x01, 0xA1, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                     0,    0,    0,    0,    0,    1,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7});
    bytes += json;
    ASSERT_EQ(43u, bytes.size());
    Message m;
    m.kind = 0xA1;
    m.dataType = 3;
    m.blocks.push_back({7, std::string(100, 'a'), std::nullopt});
    m.blocks.push_back({9, std::string(3000, 'b'), std::nullopt});
    ASSERT_TRUE(camera->send(bytes + encodeMessage(m)));
    ASSERT_TRUE(client.waitForCount(3));
    const auto all = client.deliveries();
    ASSERT_EQ(3u, all.size());
    EXPECT_EQ(Delivery::kAiJson, all[0].kind);
    EXPECT_EQ(7, all[0].len);
    EXPECT_EQ(json, all[0].bytes);
    EXPECT_TRUE(all[0].zeroAfter);
    EXPECT_EQ(Delivery::kFrame, all[1].kind);
    EXPECT_EQ(2, all[1].blockCount);
    EXPECT_EQ(7, all[1].blockParam);
    EXPECT_EQ(std::string(100, 'a'), all[1].bytes);
    EXPECT_EQ(2, all[2].blockCount);
    EXPECT_EQ(9, all[2].blockParam);
    EXPECT_EQ(std::string(3000, 'b'), all[2].bytes);
    EXPECT_TRUE(all[2].zeroAfter);
}

// Blocks that consume nothing or are not for the service leave the stream aligned.
// Foreign headers are dropped silently. A data message carries no text, whatever its
// length field says: the bytes after its header are the start of the next header.
TEST_F(LinkTest, EmptyNegativeForeignBlocksAndHeadersAreSkippedInStep) {
    connect();
    Message empty;
    empty.kind = 0xA1;
    empty.dataType = 3;
    Block zero{1, "", std::nullopt};
    Block negative{2, "", static_cast<int32_t>(0x80000010u)};
    empty.blocks = {zero, negative};
    const std::string foreignBlock = dataMessage(5, {std::string(2000, 'q')});
    const std::string proto = dataMessage(2, {bytesOf({0, 1, 2, 0, 3})});
    ASSERT_TRUE(
            camera->send(encodeMessage(empty) + foreignBlock + proto + resultMessage("{\"r\":1}")));
    ASSERT_TRUE(client.waitForCount(2));
    auto all = client.deliveries();
    ASSERT_EQ(2u, all.size());
    EXPECT_EQ(Delivery::kProtobuf, all[0].kind);
    EXPECT_EQ(bytesOf({0, 1, 2, 0, 3}), all[0].bytes);
    EXPECT_EQ(Delivery::kResult, all[1].kind);
    EXPECT_EQ("{\"r\":1}", all[1].bytes);

    Message foreign;
    foreign.kind = 0xA3;
    Message badMagic;
    badMagic.kind = 0xA2;
    badMagic.magic[2] = 0x02;
    const std::string next = resultMessage("ok");  // 24-byte header, then "ok"
    Message data;
    data.kind = 0xA1;
    data.text = next.substr(0, 5);  // written after the header, J = 5
    const size_t before = log.entries().size();
    ASSERT_TRUE(camera->send(encodeMessage(foreign) + encodeMessage(badMagic) +
                             encodeMessage(data) + next.substr(5)));
    ASSERT_TRUE(client.waitForCount(3));
    all = client.deliveries();
    EXPECT_EQ(3u, all.size());
    EXPECT_EQ(Delivery::kResult, all[2].kind);
    EXPECT_EQ("ok", all[2].bytes);
    for (size_t i = before; i < log.entries().size(); ++i) {
        EXPECT_EQ(std::string::npos, log.entries()[i].text.find("SocketClient"))
                << log.entries()[i].text;
    }
}

// A header read is one read call: a header cut short costs its bytes. The result text is
// one read call too: what that read returns is handed on.
TEST_F(LinkTest, HeaderAndResultTextAreOneReadEach) {
    connect();
    const std::string message = resultMessage("first");
    ASSERT_TRUE(camera->send(message.substr(0, 10)));
    ASSERT_TRUE(log.waitFor("SocketClient::socketRead read head len:10 (LEN_AI_HEAD:24)", 10s));
    // The rest of the broken message, then a whole one; the remainder (14 + 5 bytes) is
    // too short to be taken for a header and is dropped with the next read.
    ASSERT_TRUE(camera->send(message.substr(10)));
    ASSERT_TRUE(log.waitFor("SocketClient::socketRead read head len:19 (LEN_AI_HEAD:24)", 10s));
    ASSERT_TRUE(camera->send(resultMessage("second")));
    ASSERT_TRUE(client.waitForCount(1));
    EXPECT_EQ("second", client.deliveries()[0].bytes);
    EXPECT_EQ(1u, client.count());

    ASSERT_TRUE(camera->send(resultMessage("abcde").substr(0, 24 + 3)));
    ASSERT_TRUE(client.waitForCount(2));
    const Delivery d = client.deliveries()[1];
    EXPECT_EQ(3, d.len);
    EXPECT_EQ("abc", d.bytes);
    EXPECT_TRUE(d.zeroAfter) << "bytes past a short text read must be defined";
}

// Everything after the header may arrive in any pieces: block headers and payloads are
// read until complete.
TEST_F(LinkTest, BlocksSurviveAwkwardSegmentBoundaries) {
    connect();
    Message m;
    m.kind = 0xA2;
    m.dataType = 3;
    std::string big(200 * 1024 + 13, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 31 + 5);
    m.blocks.push_back({11, big, std::nullopt});
    m.blocks.push_back({12, "tail", std::nullopt});
    m.text = "{\"cmd_id\":3}";
    const std::string bytes = encodeMessage(m);
    ASSERT_TRUE(camera->send(bytes.substr(0, 24)));
    // Odd-sized pieces with pauses cut block headers and the 1024-byte pieces anywhere,
    // but not the result text (a single read), which goes out whole at the end.
    camera->setChunking(7, 50us);
    const size_t textAt = bytes.size() - m.text.size();
    ASSERT_TRUE(camera->send(bytes.substr(24, 5000)));
    camera->setChunking(1000 + 3, 0us);
    ASSERT_TRUE(camera->send(bytes.substr(24 + 5000, textAt - 24 - 5000)));
    camera->setChunking(0, 0us);
    ASSERT_TRUE(client.waitForCount(2));
    ASSERT_TRUE(camera->send(m.text));
    ASSERT_TRUE(client.waitForCount(3));
    EXPECT_EQ(1024u, gLargestLinkRead.load()) << "payloads are read 1024 bytes at a time";
    const auto all = client.deliveries();
    EXPECT_EQ(11, all[0].blockParam);
    EXPECT_TRUE(all[0].bytes == big) << "payload corrupted";
    EXPECT_EQ("tail", all[1].bytes);
    EXPECT_EQ(m.text, all[2].bytes);
}

// A payload cut off by the end of the connection is still handed on at its full
// length, the missing part as zeros (never as bytes of an earlier block).
TEST_F(LinkTest, TruncatedPayloadIsHandedOnWithZeros) {
    connect();
    ASSERT_TRUE(camera->send(dataMessage(3, {std::string(100, 'A')})));
    ASSERT_TRUE(client.waitForCount(1));
    Message cut;
    cut.kind = 0xA1;
    cut.dataType = 3;
    cut.blocks.push_back({5, std::string(40, 'B'), 100});
    ASSERT_TRUE(camera->sendMessage(cut));
    camera->dropConnection();
    ASSERT_TRUE(client.waitForCount(2));
    const Delivery d = client.deliveries()[1];
    EXPECT_EQ(100, d.len);
    EXPECT_EQ(std::string(40, 'B') + std::string(60, '\0'), d.bytes);
    EXPECT_TRUE(d.zeroAfter);
    EXPECT_TRUE(
            log.contains("SocketClient::socketRead read ai data readLen:0 <= 0 err(Success,0)"));
}

// Lengths that cannot be honoured are refused without reading or allocating them, and
// the link keeps working.
TEST_F(LinkTest, AbsurdLengthsAreRefused) {
    connect();
    Message hugeText;
    hugeText.kind = 0xA2;
    hugeText.declaredJsonLen = 0xFFFFFFFFu;
    ASSERT_TRUE(camera->sendMessage(hugeText));
    ASSERT_TRUE(
            log.waitFor("SocketClient::socketRead json len:4294967295 > 65536, text dropped", 10s));

    Message manyBlocks;
    manyBlocks.kind = 0xA1;
    manyBlocks.dataType = 3;
    manyBlocks.declaredBlockCount = 0xFFFFFFFFu;
    ASSERT_TRUE(camera->sendMessage(manyBlocks));
    ASSERT_TRUE(log.waitFor(
            "SocketClient::socketRead block count:4294967295 > 65536, message dropped", 10s));

    Message hugeBlock;
    hugeBlock.kind = 0xA1;
    hugeBlock.dataType = 3;
    hugeBlock.blocks.push_back({1, "", 0x7FFFFFFF});
    ASSERT_TRUE(camera->sendMessage(hugeBlock));
    ASSERT_TRUE(log.waitFor(
            "SocketClient::socketRead payload len:2147483647 > 16777216, message dropped", 10s));

    ASSERT_TRUE(camera->send(resultMessage("alive")));
    ASSERT_TRUE(client.waitForCount(1));
    EXPECT_EQ("alive", client.deliveries()[0].bytes);
    EXPECT_EQ(1u, camera->connectionCount());
    // What dump shows: four messages read, three of them refused.
    EXPECT_EQ(4u, link->mCounters.messagesRead.load());
    EXPECT_EQ(3u, link->mCounters.messagesRefused.load());
    EXPECT_EQ(0u, link->mCounters.drops.load());
}

// A hostile stream: random bytes with planted headers announcing huge or negative
// lengths. Nothing may crash or hang; once the camera drops the connection the link
// reconnects and works.
TEST_F(LinkTest, HostileStreamThenDropThenRecovery) {
    connect();
    std::mt19937 random(4242);
    std::string garbage;
    for (int round = 0; round < 64; ++round) {
        std::string noise(static_cast<size_t>(random() % 300), '\0');
        for (char& c : noise) c = static_cast<char>(random());
        garbage += noise;
        Message planted;
        planted.kind = random() % 2 ? 0xA1 : 0xA2;
        planted.dataType = static_cast<uint16_t>(random() % 6);
        planted.declaredJsonLen =
                random() % 3 == 0 ? static_cast<uint32_t>(random()) : random() % 40;
        planted.declaredBlockCount = random() % 4;
        for (uint32_t b = 0; b < *planted.declaredBlockCount; ++b) {
            planted.blocks.push_back(
                    {static_cast<int32_t>(random()), std::string(random() % 64, 'z'),
                     random() % 3 == 0 ? std::optional<int32_t>(static_cast<int32_t>(random()))
                                       : std::nullopt});
        }
        garbage += encodeMessage(planted);
    }
    camera->setChunking(97, 0us);
    ASSERT_TRUE(camera->send(garbage));
    camera->setChunking(0, 0us);
    camera->dropConnection();
    ASSERT_TRUE(camera->waitForConnections(2, 20s));
    ASSERT_TRUE(log.waitFor("SocketClient::reconnect success", 10s));
    ASSERT_TRUE(resultGetsThrough("recovered"));
    EXPECT_EQ(1u, link->mCounters.drops.load());
    EXPECT_EQ(1u, link->mCounters.reconnects.load());
}

}  // namespace
}  // namespace lumacast::test
