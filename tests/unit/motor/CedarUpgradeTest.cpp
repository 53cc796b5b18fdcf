#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "motor/MotorCedar.h"
#include "motor/lowlevel/MotorResult.h"
#include "tests/support/TestEnv.h"
#include "tests/unit/motor/MotorTestEnv.h"

using namespace android::lumacast;
using lumacast::host::LogCapture;
namespace devsim = lumacast::devsim;

namespace lumacast::test {
namespace {

using Bytes = std::vector<uint8_t>;

// Length, payload, CRC-32 of both, built here with zlib's CRC.
Bytes frame(const Bytes& payload) {
    Bytes f = {static_cast<uint8_t>(payload.size()), static_cast<uint8_t>(payload.size() >> 8)};
    f.insert(f.end(), payload.begin(), payload.end());
    const uint32_t crc = zlibCrc(f.data(), f.size());
    for (int i = 0; i < 4; ++i) f.push_back(static_cast<uint8_t>(crc >> (8 * i)));
    return f;
}

Bytes le(uint32_t v, int bytes) {
    Bytes out;
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    return out;
}

Bytes packageFrame(const Bytes& image, size_t offset, size_t n, uint32_t number) {
    Bytes payload = le(static_cast<uint32_t>(n), 2);
    const Bytes k = le(number, 4);
    payload.insert(payload.end(), k.begin(), k.end());
    payload.insert(payload.end(), image.begin() + offset, image.begin() + offset + n);
    return frame(payload);
}

class CedarUpgradeTest : public MotorTest {
  protected:
    void SetUp() override {
        MotorTest::SetUp();
        devsim::setBoard(devsim::Board::Cedar);
    }
    static std::vector<Bytes> writes(int reg) { return devsim::writesTo(2, 0x28, reg); }
};

TEST_F(CedarUpgradeTest, ImagesGoInNumberedPackagesOf256Bytes) {
    Bytes image;
    const std::string path = writeImage(600, &image);
    devsim::VirtualTime vt;
    LogCapture log;
    EXPECT_EQ(MOTOR_OK, MotorCedar().motor_mcu_upgrade(path));

    const Bytes request = frame({0x51});
    EXPECT_EQ((std::vector<Bytes>{request}), writes(0xE0));
    EXPECT_EQ((std::vector<Bytes>{frame({0x58, 0x02, 0, 0, 0x03, 0, 0, 0})}), writes(0xE2));
    const auto packages = writes(0xE4);
    ASSERT_EQ(3u, packages.size());
    EXPECT_EQ(268u, packages[0].size());
    EXPECT_EQ(262, le16(packages[0].data()));
    EXPECT_EQ(packageFrame(image, 0, 256, 1), packages[0]);
    EXPECT_EQ(packageFrame(image, 256, 256, 2), packages[1]);
    EXPECT_EQ(100u, packages[2].size());
    EXPECT_EQ(packageFrame(image, 512, 88, 3), packages[2]);
    EXPECT_EQ((std::vector<Bytes>{request}), writes(0xE6));

    devsim::withCedar(2, [&](devsim::CedarMcu& m) {
        EXPECT_TRUE(m.finished);
        EXPECT_EQ(image, m.image());
    });
    // One 5 s poll for readiness, 500 ms before each package answer, 5 ms before the finish
    // answer.
    EXPECT_EQ("wE0 p5000000 rE1/1 wE2 rE3/1 " + times(3, "wE4 p500000 rE5/5 ") + "wE6 p5000 rE7/2 ",
              timeline());
    EXPECT_TRUE(log.contains("path : " + path +
                             ", totalsize : 600, totalpackage : 3, lastpkgsize : 88"));
    EXPECT_TRUE(log.contains("cur_send_package_index = 3"));

    // A multiple of 256: full packages only.
    devsim::clearTransfers();
    const std::string even = writeImage(512, &image);
    EXPECT_EQ(MOTOR_OK, MotorCedar().motor_mcu_upgrade(even));
    const auto full = writes(0xE4);
    ASSERT_EQ(2u, full.size());
    EXPECT_EQ(packageFrame(image, 256, 256, 2), full[1]);
    EXPECT_TRUE(log.contains("path : " + even +
                             ", totalsize : 512, totalpackage : 2, lastpkgsize : 0"));
}

TEST_F(CedarUpgradeTest, EmptyOrMissingImageEndsBeforeAnyPackage) {
    Bytes bytes;
    const std::string empty = writeImage(0, &bytes);
    const std::string missing = testTempDir() + "/missing.bin";
    const std::string directory = testTempDir() + "/cedar-image-dir";
    mkdir(directory.c_str(), 0755);
    devsim::VirtualTime vt;
    struct {
        std::string path;
        Bytes info;
    } cases[] = {
            {empty, {0, 0, 0, 0, 0, 0, 0, 0}},
            // Unknown size: -1 as 32 bits, 0x1000000 packages.
            {missing, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 1}},
            // Unreadable: a directory has a size but yields no bytes.
            {directory, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        devsim::clearTransfers();
        LogCapture log;
        EXPECT_EQ(MOTOR_ERR_DEVICE, MotorCedar().motor_mcu_upgrade(c.path));
        EXPECT_EQ(1u, writes(0xE0).size());
        if (!c.info.empty()) {
            EXPECT_EQ((std::vector<Bytes>{frame(c.info)}), writes(0xE2));
        }
        EXPECT_TRUE(writes(0xE4).empty());
        EXPECT_TRUE(writes(0xE6).empty());
        EXPECT_TRUE(log.contains("fun = mcu_upgrade_iic, send_package fail", ANDROID_LOG_ERROR));
    }

    // No room for the package buffer.
    if (failNextMalloc(268)) {
        const std::string image = writeImage(300, &bytes);
        devsim::clearTransfers();
        LogCapture log;
        EXPECT_EQ(MOTOR_ERR_DEVICE, MotorCedar().motor_mcu_upgrade(image));
        EXPECT_TRUE(log.contains("fun = send_package, send_data malloc fail", ANDROID_LOG_ERROR));
        EXPECT_TRUE(log.contains("fun = mcu_upgrade_iic, send_package fail"));
        EXPECT_TRUE(writes(0xE4).empty());
    }
}

TEST_F(CedarUpgradeTest, ReadinessAndInformationAreRetriedThenGivenUp) {
    Bytes image;
    const std::string path = writeImage(300, &image);
    devsim::VirtualTime vt;

    // An MCU that never gets ready is polled 50 times, 5 s apart.
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.readyAfterPolls = -1; });
    LogCapture log;
    EXPECT_EQ(MOTOR_ERR_DEVICE, MotorCedar().motor_mcu_upgrade(path));
    EXPECT_EQ("wE0 " + times(50, "p5000000 rE1/1 "), timeline());
    EXPECT_TRUE(log.contains("fun = mcu_upgrade_iic, send_upgrade_request fail"));
    EXPECT_NE(
            devsim::command("status").find("\n  cedar 2 ready-after never: 50 polls answered busy"),
            std::string::npos);

    // Ready at the fourth poll; information refused 49 times is still accepted at the 50th.
    devsim::withCedar(2, [](devsim::CedarMcu& m) {
        m.readyAfterPolls = 3;
        m.infoRejects = 49;
    });
    devsim::clearTransfers();
    devsim::clearPauses();
    EXPECT_EQ(MOTOR_OK, MotorCedar().motor_mcu_upgrade(path));
    EXPECT_EQ("wE0 " + times(4, "p5000000 rE1/1 ") + times(50, "wE2 rE3/1 ") +
                      times(2, "wE4 p500000 rE5/5 ") + "wE6 p5000 rE7/2 ",
              timeline());

    // Refused 50 times, it is given up without any pause.
    devsim::withCedar(2, [](devsim::CedarMcu& m) {
        m.readyAfterPolls = 0;
        m.infoRejects = 50;
    });
    devsim::clearTransfers();
    devsim::clearPauses();
    EXPECT_EQ(MOTOR_ERR_DEVICE, MotorCedar().motor_mcu_upgrade(path));
    EXPECT_EQ("wE0 p5000000 rE1/1 " + times(50, "wE2 rE3/1 "), timeline());
    EXPECT_TRUE(log.contains("fun = mcu_upgrade_iic, send_package_info fail"));
}

TEST_F(CedarUpgradeTest, RefusedPackageIsGivenUpAndTheNextOneFollows) {
    Bytes image;
    const std::string path = writeImage(600, &image);
    devsim::VirtualTime vt;
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.packageRejects[2] = 50; });
    // The MCU answers but never says 0x50 for package 2: that leaves the result at 0, the
    // upgrade goes on, and the finish (refused for the missing package) reports 0 as well.
    EXPECT_EQ(MOTOR_OK, MotorCedar().motor_mcu_upgrade(path));
    // 5 ms after every refused answer, and around every refused finish.
    EXPECT_EQ("wE0 p5000000 rE1/1 wE2 rE3/1 wE4 p500000 rE5/5 " +
                      times(50, "wE4 p500000 rE5/5 p5000 ") + "wE4 p500000 rE5/5 " +
                      times(50, "wE6 p5000 rE7/2 p5000 "),
              timeline());
    const auto packages = writes(0xE4);
    ASSERT_EQ(52u, packages.size());
    for (size_t i = 1; i <= 50; ++i) EXPECT_EQ(packageFrame(image, 256, 256, 2), packages[i]);
    EXPECT_EQ(packageFrame(image, 512, 88, 3), packages[51]);
    devsim::withCedar(2, [](devsim::CedarMcu& m) {
        EXPECT_FALSE(m.finished);
        EXPECT_EQ(0u, m.received.count(2));
    });
    const std::string status = devsim::command("status");
    EXPECT_NE(status.find("\n  cedar 2 reject-package 2: fired 50, 0 left"), std::string::npos)
            << status;
}

TEST_F(CedarUpgradeTest, BusFailuresDuringPackagesEndTheUpgrade) {
    Bytes image;
    const std::string path = writeImage(600, &image);
    devsim::VirtualTime vt;

    devsim::setBusPresent(2, false);
    EXPECT_EQ(MOTOR_ERR_DEVICE, MotorCedar().motor_mcu_upgrade(path));
    EXPECT_EQ("", timeline());
    devsim::setBusPresent(2, true);

    // The last package refused on the bus in all 50 attempts.
    devsim::Fault refuse;
    refuse.reg = 0xE4;
    refuse.kind = devsim::Fault::Kind::Write;
    refuse.skip = 2;
    devsim::addFault(refuse);
    LogCapture log;
    EXPECT_EQ(MOTOR_ERR_DEVICE, MotorCedar().motor_mcu_upgrade(path));
    EXPECT_EQ("wE0 p5000000 rE1/1 wE2 rE3/1 " + times(2, "wE4 p500000 rE5/5 ") +
                      times(50, "wE4! p5000 "),
              timeline());
    EXPECT_TRUE(log.contains("fun = mcu_upgrade_iic, send_package fail"));
    devsim::clearFaults();

    // The bus disappears while the first package waits for its answer.
    int seen = 0;
    devsim::setPauseHook([&](uint64_t) {
        if (++seen == 2) devsim::setBusPresent(2, false);
    });
    devsim::clearTransfers();
    devsim::clearPauses();
    LogCapture gone;
    EXPECT_EQ(MOTOR_ERR_DEVICE, MotorCedar().motor_mcu_upgrade(path));
    devsim::setPauseHook(nullptr);
    // Without the bus the upgrade stops at the package that met it, pausing 5 ms after each
    // failed attempt.
    EXPECT_EQ("wE0 p5000000 rE1/1 wE2 rE3/1 wE4 p500000 " + times(50, "p5000 "), timeline());
    EXPECT_EQ(1u, gone.count("fun = send_package, iic_read ret = 4096, status = 0x0"));
    EXPECT_EQ(49u, gone.count("fun = send_package, iic_write ret = 4096"));

    // The finish refused once on the bus and 48 times by the MCU is still accepted at the
    // 50th attempt.
    devsim::setBusPresent(2, true);
    devsim::withCedar(2, [](devsim::CedarMcu& m) { m.finishRejects = 48; });
    refuse.reg = 0xE6;
    refuse.skip = 0;
    refuse.count = 1;
    devsim::addFault(refuse);
    devsim::clearTransfers();
    devsim::clearPauses();
    EXPECT_EQ(MOTOR_OK, MotorCedar().motor_mcu_upgrade(path));
    EXPECT_EQ("wE0 p5000000 rE1/1 wE2 rE3/1 " + times(3, "wE4 p500000 rE5/5 ") + "wE6! p5000 " +
                      times(48, "wE6 p5000 rE7/2 p5000 ") + "wE6 p5000 rE7/2 ",
              timeline());
}

}  // namespace
}  // namespace lumacast::test
