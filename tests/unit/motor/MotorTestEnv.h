#pragma once

#include <gtest/gtest.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "tools/devsim/DevSim.h"

namespace lumacast::test {

// Every motor test runs against a fresh devsim board (all devices present) and fake GPIO
// value files on a tmpfs over /sys/class (this binary runs in its own mount namespace), and
// must leave no descriptor open behind it.
class MotorTest : public ::testing::Test {
  public:
    static std::string gpioPath(int line);
    static void setGpio(int line, const std::string& value);
    static std::string gpio(int line);
    static void removeGpio(int line);

    // A file of `size` pseudo-random bytes in the test's temporary directory.
    static std::string writeImage(size_t size, std::vector<uint8_t>* bytes, uint32_t seed = 1);

  protected:
    void SetUp() override;
    void TearDown() override;

  private:
    int mFdBaseline = 0;
};

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed);
uint16_t le16(const uint8_t* p);
// zlib's CRC-32, independent of the product's.
uint32_t zlibCrc(const uint8_t* p, size_t n);
// Makes the next malloc of exactly `size` bytes by the calling thread fail. False where the
// build's allocator belongs to a sanitizer, which cannot be wrapped this way.
bool failNextMalloc(size_t size);
// Transfers and pauses in the order they happened on the virtual clock: "w20" a write to
// register 0x20 ("w20!" refused), "r21/9" a read of 9 bytes from 0x21, "p5000" a pause.
std::string timeline();
// `tokens` `n` times over, for building an expected timeline.
std::string times(int n, const std::string& tokens);

}  // namespace lumacast::test
