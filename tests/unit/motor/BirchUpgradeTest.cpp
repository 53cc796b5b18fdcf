#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "motor/MotorBirch.h"
#include "motor/lowlevel/MotorResult.h"
#include "tests/support/TestEnv.h"
#include "tests/unit/motor/MotorTestEnv.h"

using namespace android::lumacast;
using lumacast::host::LogCapture;
namespace devsim = lumacast::devsim;

namespace lumacast::test {
namespace {

using Bytes = std::vector<uint8_t>;

class BirchUpgradeTest : public MotorTest {
  protected:
    void SetUp() override {
        MotorTest::SetUp();
        devsim::setBoard(devsim::Board::Birch);
    }

    static std::vector<Bytes> frames() { return devsim::writesTo(2, 0x42, 0x20); }

    // A frame as the MCU expects it, built here with zlib's CRC.
    static Bytes frame(uint8_t kid, const Bytes& payload) {
        const size_t len = 1 + payload.size() + 4;
        // Sized once and filled in place: g++ 12 -O2 sees a false out-of-bounds copy when an
        // empty payload is inserted after a braced initialiser.
        Bytes f(3 + len);
        f[0] = 0x55;
        f[1] = static_cast<uint8_t>(len);
        f[2] = static_cast<uint8_t>(len >> 8);
        f[3] = kid;
        std::copy(payload.begin(), payload.end(), f.begin() + 4);
        const uint32_t crc = zlibCrc(f.data() + 3, 1 + payload.size());
        for (size_t i = 0; i < 4; ++i)
            f[4 + payload.size() + i] = static_cast<uint8_t>(crc >> (8 * i));
        return f;
    }

    // Checks request, information, packages and finish frames of a whole upgrade.
    static void expectFrames(const Bytes& image, const std::vector<uint16_t>& lengths) {
        const std::vector<Bytes> sent = frames();
        ASSERT_EQ(lengths.size() + 3, sent.size());
        EXPECT_EQ(frame(1, {}), sent[0]);
        const size_t packages = lengths.size();
        EXPECT_EQ(frame(2, {static_cast<uint8_t>(image.size()),
                            static_cast<uint8_t>(image.size() >> 8), static_cast<uint8_t>(packages),
                            0}),
                  sent[1]);
        size_t offset = 0;
        for (size_t i = 0; i < packages; ++i) {
            const Bytes& f = sent[2 + i];
            EXPECT_EQ(lengths[i], le16(f.data() + 1)) << "package " << i;
            const size_t n = lengths[i] - 5;
            EXPECT_EQ(frame(3, Bytes(image.begin() + offset, image.begin() + offset + n)), f);
            offset += n;
        }
        EXPECT_EQ(image.size(), offset);
        EXPECT_EQ(frame(4, {}), sent.back());
    }
};

TEST_F(BirchUpgradeTest, ImagesGoInPackagesOf1024Bytes) {
    Bytes image;
    const std::string path = writeImage(2500, &image);
    devsim::VirtualTime vt;
    LogCapture log;
    EXPECT_EQ(MOTOR_OK, MotorBirch().motor_mcu_upgrade(path));

    // The request is exactly 55 05 00 01 and the CRC of the byte 01.
    EXPECT_EQ((Bytes{0x55, 0x05, 0x00, 0x01, 0x1B, 0xDF, 0x05, 0xA5}), frames().at(0));
    expectFrames(image, {0x0405, 0x0405, 0x01C9});
    devsim::withBirch([&](devsim::BirchMcu& m) { EXPECT_EQ(image, m.image); });
    // 100 ms before the information, between each package and its acknowledgement, and
    // before the finish; the status is read once it is acknowledged.
    EXPECT_EQ("w20 r21/9 p100000 w20 r21/9 " + times(3, "w20 p100000 r21/9 ") +
                      "p100000 w20 r21/9 r30/8 ",
              timeline());
    EXPECT_TRUE(log.contains("path : " + path + ", totalsize : 2500, totalpackage : 3"));
    EXPECT_TRUE(log.contains("func=upgrade_status_print,update success", ANDROID_LOG_INFO));

    // A multiple of 1024: full packages only.
    devsim::clearTransfers();
    const std::string even = writeImage(2048, &image);
    EXPECT_EQ(MOTOR_OK, MotorBirch().motor_mcu_upgrade(even));
    expectFrames(image, {0x0405, 0x0405});
}

TEST_F(BirchUpgradeTest, AcknowledgementFaultsEndTheirStep) {
    struct Case {
        const char* name;
        devsim::BirchMcu::AckFault fault;
        int result;
        size_t frames;
        const char* line;
    } cases[] = {
            {"request acked for another kid",
             {1, 0, 1, -1, 2, 0, false},
             MOTOR_ERR_DEVICE,
             1,
             "func=get_cmd_receive_status,receive_kidcmd=1, read_kidcmd=2 \n"},
            {"request ack with a bad head",
             {1, 0, 1, 0x5A, -1, -1, false},
             MOTOR_ERR_DEVICE,
             1,
             "func=get_cmd_receive_status,data head=5a err"},
            {"information ack with a bad CRC",
             {2, 0, 1, -1, -1, -1, true},
             MOTOR_ERR_DEVICE,
             2,
             "fun = mcu_upgrade_gpio, send_package_info fail"},
            {"information refused",
             {2, 0, 1, -1, -1, 1, false},
             MOTOR_ERR_DEVICE,
             2,
             "func=get_cmd_receive_status, read_status=1\n"},
            {"packages refused",
             {3, 0, -1, -1, -1, 1, false},
             MOTOR_OK,
             6,
             "func=upgrade_status_print,update success"},
            {"finish refused",
             {4, 0, 1, -1, -1, 1, false},
             MOTOR_ERR_DEVICE,
             6,
             "func=mcu_upgrade_gpio, get_cmd_receive_status MCU_UPGRADE_KIDCMD_SEND_OVER fail"},
    };
    Bytes image;
    const std::string path = writeImage(2500, &image);
    devsim::VirtualTime vt;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        devsim::withBirch([&](devsim::BirchMcu& m) {
            m.reset();
            m.ackFaults = {c.fault};
        });
        devsim::clearTransfers();
        LogCapture log;
        EXPECT_EQ(c.result, MotorBirch().motor_mcu_upgrade(path));
        EXPECT_EQ(c.frames, frames().size());
        EXPECT_TRUE(log.contains(c.line)) << c.line;
    }
}

TEST_F(BirchUpgradeTest, FinalStatusIsPolledAndOnlyLogged) {
    Bytes image;
    const std::string path = writeImage(100, &image);
    devsim::VirtualTime vt;
    {
        LogCapture log;
        devsim::withBirch([](devsim::BirchMcu& m) { m.statusReplies = {3, 3, 1}; });
        EXPECT_EQ(MOTOR_OK, MotorBirch().motor_mcu_upgrade(path));
        EXPECT_EQ(2u, log.count("func=upgrade_status_print,update crc err", ANDROID_LOG_INFO));
        EXPECT_EQ(1u, log.count("func=upgrade_status_print,update success"));
        devsim::withBirch([](devsim::BirchMcu& m) { EXPECT_EQ(3, m.statusPolls); });
        EXPECT_TRUE(log.contains("fun = check_upgrade_status, wait_cnt = 47"));
        EXPECT_FALSE(log.contains("fun = check_upgrade_status, wait_cnt = 46"));
    }
    {
        LogCapture log;
        devsim::clearTransfers();
        devsim::clearPauses();
        devsim::withBirch([](devsim::BirchMcu& m) { m.statusReplies = {0, 2, 9}; });
        EXPECT_EQ(MOTOR_OK, MotorBirch().motor_mcu_upgrade(path));
        // 50 polls, 100 ms apart.
        EXPECT_EQ("w20 r21/9 p100000 w20 r21/9 w20 p100000 r21/9 p100000 w20 r21/9 r30/8 " +
                          times(49, "p100000 r30/8 "),
                  timeline());
        EXPECT_TRUE(log.contains("func=upgrade_status_print,do not update"));
        EXPECT_TRUE(log.contains("func=upgrade_status_print,update filesize err"));
        EXPECT_EQ(48u, log.count("func=upgrade_status_print,update unknow err"));
        EXPECT_TRUE(log.contains("fun = check_upgrade_status, wait_cnt = 0"));
    }
    {
        LogCapture log;
        devsim::withBirch([](devsim::BirchMcu& m) {
            m.statusReplies.clear();
            m.statusBadCrc = true;
        });
        EXPECT_EQ(MOTOR_OK, MotorBirch().motor_mcu_upgrade(path));
        devsim::withBirch([](devsim::BirchMcu& m) { EXPECT_EQ(1, m.statusPolls); });
        EXPECT_EQ(1u, log.countContaining("func=get_upgrade_status,ori_crc="));
        EXPECT_TRUE(log.contains("func=check_upgrade_status,get upgrade status fail"));
    }
}

TEST_F(BirchUpgradeTest, ImagesThatCannotBeSentEndTheUpgrade) {
    const std::string dir = testTempDir();
    const std::string missing = dir + "/no-such-image.bin";
    const std::string directory = dir + "/image-dir";
    mkdir(directory.c_str(), 0755);
    Bytes bytes;
    const std::string empty = writeImage(0, &bytes);
    const std::string tooBig = writeImage(65536, &bytes);
    struct {
        std::string path;
        Bytes info;
        std::string line;
    } cases[] = {
            // Unknown size: -1 cut to 16 bits, 64 packages announced before the file is opened.
            {missing, {0xFF, 0xFF, 64, 0}, "fun = send_package, open " + missing + " fail"},
            {directory, {}, "func = send_package, fread file size with 0."},
            {empty, {0, 0, 0, 0}, "fun = mcu_upgrade_gpio, send_package fail"},
            {tooBig, {0, 0, 0, 0}, "fun = mcu_upgrade_gpio, send_package fail"},
    };
    devsim::VirtualTime vt;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        devsim::clearTransfers();
        LogCapture log;
        EXPECT_EQ(MOTOR_ERR_DEVICE, MotorBirch().motor_mcu_upgrade(c.path));
        const auto sent = frames();
        ASSERT_EQ(2u, sent.size()) << "no package and no finish";
        if (!c.info.empty()) {
            EXPECT_EQ(frame(2, c.info), sent[1]);
        }
        EXPECT_TRUE(log.contains("fun = mcu_upgrade_gpio, send_package fail", ANDROID_LOG_ERROR));
        EXPECT_TRUE(log.contains(c.line)) << c.line;
    }
}

TEST_F(BirchUpgradeTest, BusFailuresDuringPackagesStopTheTransfer) {
    Bytes image;
    const std::string path = writeImage(3000, &image);
    devsim::VirtualTime vt;

    // Bus gone before the request.
    devsim::setBusPresent(2, false);
    EXPECT_EQ(MOTOR_ERR_DEVICE, MotorBirch().motor_mcu_upgrade(path));
    devsim::setBusPresent(2, true);

    // Bus gone after the first package: a stop frame is tried, the file is closed.
    {
        LogCapture log;
        int seen = 0;
        devsim::setPauseHook([&](uint64_t) {
            if (++seen == 2) devsim::setBusPresent(2, false);
        });
        EXPECT_EQ(MOTOR_ERR_DEVICE, MotorBirch().motor_mcu_upgrade(path));
        devsim::setPauseHook(nullptr);
        devsim::setBusPresent(2, true);
        EXPECT_TRUE(log.contains("fun = send_finish, iic_write stop_package ret = 4096"));
    }

    // The second package refused on the bus five times: the transfer is closed with a stop
    // frame and given up, rather than going on with the file one package ahead.
    {
        devsim::withBirch([](devsim::BirchMcu& m) { m.reset(); });
        devsim::clearTransfers();
        devsim::clearPauses();
        devsim::Fault refuse;
        refuse.reg = 0x20;
        refuse.skip = 3;
        refuse.count = 5;
        devsim::addFault(refuse);
        LogCapture log;
        EXPECT_EQ(MOTOR_ERR_DEVICE, MotorBirch().motor_mcu_upgrade(path));
        EXPECT_EQ(
                "w20 r21/9 p100000 w20 r21/9 w20 p100000 r21/9 " + times(5, "w20! p5000 ") + "w20 ",
                timeline());
        EXPECT_EQ(frame(4, {}), frames().back());
        EXPECT_TRUE(log.contains("fun = send_finish, iic_write stop_package ret = 0"));
        devsim::withBirch([&](devsim::BirchMcu& m) {
            EXPECT_EQ(Bytes(image.begin(), image.begin() + 1024), m.image);
        });
    }

    // Refused four times, then through: the package is delivered on the fifth attempt.
    {
        devsim::withBirch([](devsim::BirchMcu& m) { m.reset(); });
        devsim::clearFaults();
        devsim::Fault refuse;
        refuse.reg = 0x20;
        refuse.skip = 3;
        refuse.count = 4;
        devsim::addFault(refuse);
        EXPECT_EQ(MOTOR_OK, MotorBirch().motor_mcu_upgrade(path));
        devsim::withBirch([&](devsim::BirchMcu& m) { EXPECT_EQ(image, m.image); });
    }
}

}  // namespace
}  // namespace lumacast::test
