#pragma once

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <string>
#include <vector>

namespace lumacast::devsim {

// A device on a simulated I2C bus. Both calls run under the simulator's lock.
class I2cChip {
  public:
    virtual ~I2cChip() = default;
    // A write message; data[0] is the register. False: the chip does not acknowledge.
    virtual bool write(const uint8_t* data, size_t len) = 0;
    // The read half of a combined register read.
    virtual bool read(uint8_t reg, uint8_t* out, size_t len) = 0;
    virtual void reset() = 0;
};

// The MCU of a MotorBirch board: version register and the framed upgrade on 0x20/0x21/0x30.
// Tests change the behaviour fields and read the observed ones through withBirch().
class BirchMcu : public I2cChip {
  public:
    // Overrides applied to acknowledgements of `kid` (0: any) after `skip` of them.
    struct AckFault {
        int kid = 0;
        int skip = 0;
        int count = 1;     // -1: every later one
        int head = -1;     // replaces byte 0
        int echoKid = -1;  // replaces byte 3
        int status = -1;   // replaces byte 4
        bool badCrc = false;
        int fired = 0;  // acknowledgements changed so far
    };

    // Behaviour.
    uint16_t version = 105;
    uint8_t versionMarker = 0x55;
    bool versionBadCrc = false;
    std::vector<AckFault> ackFaults;
    // Answers of successive status polls, the last one repeating; empty: 0 before the finish
    // frame, then 1, 2 (size mismatch) or 3 (a frame with a bad CRC).
    std::vector<uint8_t> statusReplies;
    bool statusBadHead = false;
    bool statusBadCrc = false;

    // Observed.
    std::vector<std::vector<uint8_t>> frames;  // every frame written to 0x20
    int requests = 0;
    int infoTotalSize = -1;
    int infoTotalPackages = -1;
    std::vector<uint8_t> image;
    int packages = 0;
    int badFrames = 0;
    bool finished = false;
    int statusPolls = 0;
    int ackReads = 0;
    int badVersionReplies = 0;  // version replies sent with a bad CRC
    int badStatusReplies = 0;   // status replies sent with a bad head or CRC

    bool write(const uint8_t* data, size_t len) override;
    bool read(uint8_t reg, uint8_t* out, size_t len) override;
    void reset() override;

  private:
    void acknowledge(uint8_t kid, uint8_t status);
    uint8_t computedStatus() const;

    bool mAckPending = false;
    uint8_t mAckKid = 0;
    uint8_t mAckStatus = 0;
    std::map<int, int> mAcksSeen;  // per kid, for AckFault::skip
    size_t mStatusIndex = 0;
};

// The MCU of a MotorCedar or MotorDamson board: motor registers and the upgrade bank
// 0xE0-0xE7.
class CedarMcu : public I2cChip {
  public:
    static constexpr uint8_t kAccepted = 0x50;
    static constexpr uint8_t kRefused = 0x45;

    // Behaviour.
    uint8_t state = 0;
    uint8_t riseTime = 0;
    std::string version = "KORA-MCU-V1.0.7";  // at most 18 bytes are readable
    int readyAfterPolls = 0;                  // polls answered "busy" first; -1: never ready
    int infoRejects = 0;
    std::map<uint32_t, int> packageRejects;  // package number -> answers refused
    int finishRejects = 0;

    // Observed.
    std::vector<uint8_t> commands;  // bytes written to 0x23
    int requests = 0;
    int requestPolls = 0;
    int64_t infoTotalSize = -1;
    int64_t infoTotalPackages = -1;
    std::vector<std::vector<uint8_t>> packageFrames;  // every frame written to 0xE4
    std::map<uint32_t, std::vector<uint8_t>> received;
    int badFrames = 0;
    int finishes = 0;
    bool finished = false;
    // What the faults above did: request polls answered "not ready", answers refused on
    // purpose.
    int busyAnswers = 0;
    int infoRefused = 0;
    std::map<uint32_t, int> packagesRefused;
    int finishRefused = 0;

    bool write(const uint8_t* data, size_t len) override;
    bool read(uint8_t reg, uint8_t* out, size_t len) override;
    void reset() override;

    // The image as it would be flashed: every package from 1 to the announced count.
    bool complete() const;
    std::vector<uint8_t> image() const;

  private:
    bool mReady = false;
    bool mInfoAccepted = false;
    uint8_t mInfoAnswer = 0;
    uint8_t mPackageAnswer[5] = {};
    uint8_t mFinishAnswer = 0;
};

uint32_t crc32Of(const uint8_t* data, size_t len);

}  // namespace lumacast::devsim
