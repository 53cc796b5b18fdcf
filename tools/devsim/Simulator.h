#pragma once

// What the interposed libc functions ask of the simulator.

#include <stdint.h>

#include <string>

#include "tools/devsim/DevSim.h"

namespace lumacast::devsim::internal {

// Sanitizer runtimes call close and open themselves, even while they report; whatever those
// calls run must neither lock nor be instrumented, or a report can deadlock on itself.
#define DEVSIM_UNINSTRUMENTED __attribute__((no_sanitize("address", "thread", "undefined")))

enum class DeviceKind { None, I2c, Venus };

// /dev/i2c-<n> (sets *bus) or /dev/venus_gpio. Uninstrumented, lock-free.
DeviceKind classify(const char* path, int* bus);
// /sys/class/gpio/<line>/value. Uninstrumented, lock-free.
bool isGpioValuePath(const char* path);
// False unless `fd` may be a simulated device. Uninstrumented, lock-free.
bool mayBeSimulated(int fd);
// Whether the calling thread has used a simulated device. Uninstrumented, lock-free.
bool isDeviceThread();

// A descriptor for a simulated device, or -1 with errno set as the kernel would.
int openDevice(DeviceKind kind, int bus, int flags);
// Forgets a simulated device's descriptor before the caller closes it.
void forgetDescriptor(int fd);
// True when `fd` is a simulated device; *result is the ioctl's return value.
bool handleIoctl(int fd, unsigned long request, void* arg, int* result);

// The calling thread has used a simulated device: its pauses are recorded and may be
// virtual.
void markDeviceThread();
// Records a pause of the calling thread; true when it was virtual and must not sleep.
bool pause(uint64_t us);

// Defined beside the interposed functions; the simulator calls it so that linking the
// static library always brings them along.
void interposerLinked();

std::string formatTransfer(const Transfer& t);
// Appends each transfer as a line to this descriptor (-1: none).
void setTransferLogFd(int fd);

}  // namespace lumacast::devsim::internal
