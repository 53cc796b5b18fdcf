#pragma once

// devsim: the motor board as the daemon sees it on a PC without I2C or the vendor GPIO
// driver. Interposed open/openat/close/ioctl serve /dev/i2c-<n> and /dev/venus_gpio from
// simulated MCUs; interposed fopen gives /sys/class/gpio/*/value files sysfs semantics
// (no truncation, no creation); interposed sleeps can run on a simulated clock. Linked
// into tests (this API) or preloaded into a daemon (controlled through DEVSIM_* variables
// and devsimctl, see Control.cpp). Every call here is thread-safe.

#include <errno.h>
#include <stdint.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/devsim/Mcu.h"

namespace lumacast::devsim {

// Which devices exist. All: both buses (bus 2 with the Birch MCU at 0x42 and a Cedar MCU
// at 0x28, bus 1 with a Cedar MCU at 0x28) and /dev/venus_gpio. Birch and Cedar: bus 2
// only. Damson: bus 1 and /dev/venus_gpio. None: nothing.
enum class Board { All, Birch, Cedar, Damson, None };

constexpr int kBirchBus = 2;
constexpr int kBirchAddr = 0x42;
constexpr int kCedarBus = 2;
constexpr int kDamsonBus = 1;
constexpr int kCedarAddr = 0x28;

struct Message {
    uint16_t addr = 0;
    bool read = false;
    std::vector<uint8_t> data;  // bytes written, or bytes returned to the reader
};

// One I2C_RDWR call as the bus saw it.
struct Transfer {
    uint64_t timeUs = 0;  // simulated clock
    int bus = -1;
    std::vector<Message> msgs;
    int error = 0;  // errno of a refused transfer, 0 when it went through
};

// Refuses matching transfers; -1 fields match anything. `reg` is the first byte of the
// first message; kind Read means a transfer with a read message.
struct Fault {
    enum class Kind { Any, Write, Read };
    int bus = -1;
    int addr = -1;
    int reg = -1;
    Kind kind = Kind::Any;
    int skip = 0;    // matching transfers let through first
    int count = -1;  // refusals; -1: for ever
    int error = EREMOTEIO;
    int fired = 0;  // refusals made so far
};

struct Pause {
    uint64_t atUs = 0;  // simulated clock when the pause began
    uint64_t us = 0;
};

struct PinRequest {
    std::string name;
    int error = 0;
};

// Back to the All board with fresh MCUs: no faults, empty logs, real time, no hook.
void reset();
void setBoard(Board board);
void setBusPresent(int bus, bool present);

void addFault(const Fault& fault);
void clearFaults();
std::vector<Fault> faults();

// The board's devices and what their absence or refusal turned away, for status reports.
struct BoardStatus {
    Board board = Board::All;
    std::map<int, bool> busPresent;
    std::map<int, bool> busByBoard;  // whether the board itself has the bus
    bool venusPresent = true;
    bool venusByBoard = true;
    bool venusRefuses = false;
    bool virtualTime = false;
    std::map<int, int> busRefusals;  // opens and transfers refused: bus missing
    int venusRefusals = 0;           // opens and pin reads refused: missing or refusing
};
BoardStatus boardStatus();

void setVenusPresent(bool present);
void setVenusRefuses(bool refuses);
void setPin(const std::string& name, uint8_t value);
std::vector<PinRequest> pinRequests();

// Runs `fn` on an MCU under the simulator's lock, to set behaviour or read what it saw.
void withBirch(const std::function<void(BirchMcu&)>& fn);
void withCedar(int bus, const std::function<void(CedarMcu&)>& fn);

std::vector<Transfer> transfers();
void clearTransfers();
// Payloads of the write messages to `reg` of `addr` on `bus`, register byte removed.
std::vector<std::vector<uint8_t>> writesTo(int bus, int addr, int reg);

// Descriptors of simulated devices open right now.
int openDescriptors();

// Virtual time: pauses of threads that have used a simulated device advance the clock and
// return at once. Pauses of those threads are recorded either way.
void setVirtualTime(bool on);
uint64_t nowUs();
std::vector<Pause> pauses();
void clearPauses();
// Called after each recorded pause, outside the simulator's lock; null to remove.
void setPauseHook(std::function<void(uint64_t us)> hook);

// One line of the control language (see Control.cpp); returns the reply text.
std::string command(const std::string& line);

// Turns virtual time on for a scope.
class VirtualTime {
  public:
    VirtualTime() { setVirtualTime(true); }
    ~VirtualTime() { setVirtualTime(false); }
    VirtualTime(const VirtualTime&) = delete;
    VirtualTime& operator=(const VirtualTime&) = delete;
};

}  // namespace lumacast::devsim
