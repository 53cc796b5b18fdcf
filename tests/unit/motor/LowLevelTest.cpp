#include <errno.h>
#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>

#include <string>
#include <vector>

#include "motor/lowlevel/FileUtil.h"
#include "motor/lowlevel/GpioControl.h"
#include "motor/lowlevel/I2cControl.h"
#include "motor/lowlevel/MotorResult.h"
#include "tests/unit/motor/MotorTestEnv.h"

using namespace android::lumacast;
using lumacast::host::LogCapture;
namespace devsim = lumacast::devsim;

namespace lumacast::test {
namespace {

using LowLevelTest = MotorTest;
using Bytes = std::vector<uint8_t>;

TEST(Crc32Test, MatchesZlibWholeAndChained) {
    const unsigned char digits[] = "123456789";
    EXPECT_EQ(0xCBF43926u, get_crc32(0, digits, 9));
    EXPECT_EQ(0x12345678u, get_crc32(0x12345678u, digits, 0));
    // Chained over pieces that are not multiples of the eight-byte stride.
    EXPECT_EQ(0xCBF43926u, get_crc32(get_crc32(0, digits, 2), digits + 2, 7));
    const Bytes data = randomBytes(3000, 7);
    EXPECT_EQ(zlibCrc(data.data(), data.size()),
              get_crc32(get_crc32(0, data.data(), 1003), data.data() + 1003, 1997));
}

TEST_F(LowLevelTest, GpioValueFilesReadAndWrite) {
    unsigned char value = 'x';
    setGpio(151, "1\n");
    EXPECT_EQ(MOTOR_OK, get_gpio_value(gpioPath(151).c_str(), &value));
    EXPECT_EQ('1', value);
    // A file that yields nothing reads as "0".
    setGpio(151, "");
    value = 'x';
    EXPECT_EQ(MOTOR_OK, get_gpio_value(gpioPath(151).c_str(), &value));
    EXPECT_EQ('0', value);

    EXPECT_EQ(1, set_gpio_value(gpioPath(146).c_str(), '0'));
    EXPECT_EQ("0", gpio(146));

    // A missing line is reported and neither creates the file nor touches the value.
    LogCapture log;
    removeGpio(150);
    value = 'x';
    EXPECT_EQ(MOTOR_ERR_GPIO_OPEN, get_gpio_value(gpioPath(150).c_str(), &value));
    EXPECT_EQ('x', value);
    EXPECT_EQ(MOTOR_ERR_GPIO_OPEN, set_gpio_value(gpioPath(150).c_str(), '1'));
    EXPECT_EQ("<missing>", gpio(150));
    EXPECT_EQ(1u, log.count("fun = get_gpio_value, Cannot open /sys/class/gpio/gpio150/value "
                            "(error : No such file or directory)",
                            ANDROID_LOG_ERROR));
}

TEST_F(LowLevelTest, SwitchAndRiseStatusFromInputLines) {
    struct {
        const char* level;
        int status;
    } switchCases[] = {{"1", 1}, {"0", 0}, {"2", 2}, {"x", 2}};
    for (const auto& c : switchCases) {
        setGpio(152, c.level);
        int status = -1;
        motor_gpio_get_switch_status(&status);
        EXPECT_EQ(c.status, status) << c.level;
    }
    removeGpio(152);
    int status = -1;
    motor_gpio_get_switch_status(&status);
    EXPECT_EQ(2, status);

    struct {
        const char* first;
        const char* second;
        int status;
    } riseCases[] = {{"0", "0", 0}, {"0", "1", 0}, {"1", "0", 3}, {"1", "1", 4}, {"x", "0", 3}};
    for (const auto& c : riseCases) {
        setGpio(151, c.first);
        setGpio(150, c.second);
        EXPECT_EQ(c.status, motor_gpio_get_rise_status()) << c.first << c.second;
    }
    removeGpio(150);
    setGpio(151, "0");
    EXPECT_EQ(4, motor_gpio_get_rise_status());

    // Without gpio151 the second line is not even read.
    setGpio(150, "0");
    removeGpio(151);
    LogCapture log;
    EXPECT_EQ(4, motor_gpio_get_rise_status());
    EXPECT_EQ(0u, log.countContaining("gpio150"));
}

TEST_F(LowLevelTest, PulsesHoldOneLineLowForTheWholePause) {
    devsim::VirtualTime vt;
    LogCapture log;
    // Each write by its line, and each pause with the levels of 146 and 147 during it.
    std::string steps;
    const std::string written = "fun = set_gpio_value, path = /sys/class/gpio/gpio";
    size_t seen = 0;
    const auto collect = [&] {
        const auto entries = log.entries();
        for (; seen < entries.size(); ++seen) {
            if (entries[seen].text.rfind(written, 0) == 0) {
                steps += "w" + entries[seen].text.substr(written.size(), 3) + " ";
            }
        }
    };
    devsim::setPauseHook([&](uint64_t us) {
        collect();
        steps += "p" + std::to_string(us) + ":" + gpio(146) + gpio(147) + " ";
    });

    EXPECT_EQ(MOTOR_OK, motor_gpio_up());
    EXPECT_EQ(MOTOR_OK, motor_gpio_down());
    collect();
    EXPECT_EQ("w146 w147 p200000:01 w146 w146 w147 p200000:10 w147 ", steps);
    EXPECT_EQ("1", gpio(146));
    EXPECT_EQ("1", gpio(147));

    // A line that cannot be written does not cut the pulse short.
    removeGpio(147);
    setGpio(146, "0");
    EXPECT_EQ(MOTOR_OK, motor_gpio_down());
    EXPECT_EQ("1", gpio(146));
    EXPECT_EQ(3u, devsim::pauses().size());
    devsim::setPauseHook(nullptr);
}

TEST_F(LowLevelTest, I2cFailuresAreReportedWithTheirOwnCodes) {
    LogCapture log;
    uint8_t buf[4] = {9, 9, 9, 9};
    const uint8_t data[2] = {1, 2};
    EXPECT_EQ(MOTOR_ERR_DEVICE, iic_read("/dev/i2c-3", 0x28, 0x28, 0x21, buf, 4));
    EXPECT_EQ(MOTOR_ERR_DEVICE, iic_write_status("/dev/i2c-3", 0x28, 0x23, 1));
    EXPECT_EQ(MOTOR_ERR_DEVICE, iic_write_data("/dev/i2c-3", 0x28, 0xE0, data, 2));
    EXPECT_EQ((std::vector<uint8_t>{9, 9, 9, 9}), std::vector<uint8_t>(buf, buf + 4));
    EXPECT_EQ(3u, log.count("fun = open_device, can't open /dev/i2c-3, No such file or directory",
                            ANDROID_LOG_ERROR));

    // Refused on the bus: the negative ioctl result, never 4096.
    devsim::addFault({});
    EXPECT_EQ(-1, iic_write_status("/dev/i2c-2", 0x28, 0x23, 1));
    EXPECT_EQ(-1, iic_write_data("/dev/i2c-2", 0x28, 0xE0, data, 2));
    EXPECT_EQ(-1, iic_read("/dev/i2c-2", 0x28, 0x28, 0x21, buf, 4));
    EXPECT_EQ(1u, log.count("fun = set_status, I2C_RDWR is failed(error: Remote I/O error)",
                            ANDROID_LOG_ERROR));
    EXPECT_EQ(1u, log.count("fun = write_data, I2C_RDWR is failed(error: Remote I/O error)",
                            ANDROID_LOG_ERROR));
    EXPECT_EQ(1u, log.count("fun = query_status, I2C_RDWR is failed(-1, error:121, Remote I/O "
                            "error)",
                            ANDROID_LOG_ERROR));
    devsim::clearFaults();

    // A message buffer that cannot be allocated: nothing reaches the bus.
    if (failNextMalloc(2)) {
        devsim::clearTransfers();
        EXPECT_EQ(MOTOR_ERR_NO_MEMORY, iic_write_status("/dev/i2c-2", 0x28, 0x23, 1));
        ASSERT_TRUE(failNextMalloc(3));
        EXPECT_EQ(MOTOR_ERR_NO_MEMORY, iic_write_data("/dev/i2c-2", 0x28, 0xE0, data, 2));
        EXPECT_TRUE(devsim::transfers().empty());
        EXPECT_EQ(1u, log.count("fun = set_status, malloc is error", ANDROID_LOG_INFO));
        EXPECT_EQ(1u, log.count("fun = write_data, malloc is error", ANDROID_LOG_INFO));
    }

    // An address nobody answers, and lengths the kernel would refuse, fail the same way.
    EXPECT_EQ(-1, iic_write_status("/dev/i2c-2", 0x33, 0x23, 1));
    EXPECT_EQ(-1, iic_write_data("/dev/i2c-2", 0x28, 0xE0, data, -1));
    EXPECT_EQ(-1, iic_write_data("/dev/i2c-2", 0x28, 0xE0, nullptr, 2));
    EXPECT_EQ(-1, iic_read("/dev/i2c-2", 0x28, 0x28, 0x21, buf, 0));
    EXPECT_EQ(-1, iic_read("/dev/i2c-2", 0x28, 0x28, 0x21, buf, 100000));
}

}  // namespace
}  // namespace lumacast::test
