#include <gtest/gtest.h>
#include <lumacast/host/LogCapture.h>
#include <unistd.h>

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
    EXPECT_NE(0, access(gpioPath(150).c_str(), F_OK));
    EXPECT_EQ(1u, log.count("fun = get_gpio_value, Cannot open /sys/class/gpio/gpio150/value "
                            "(error : No such file or directory)",
                            ANDROID_LOG_ERROR));
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
