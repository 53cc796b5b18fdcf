#pragma once

#include <sys/ioctl.h>

namespace android {
namespace lumacast {

#define VENUS_GPIO_DEVICE "/dev/venus_gpio"
#define GPIO_PIN_NAME_MAX 32

// Argument of the vendor driver's named-pin read; the driver owns this layout.
struct GPIO_PIN_VALUE {
    char name[GPIO_PIN_NAME_MAX];  // NUL-terminated, rest zero
    unsigned char value;           // written by the driver
};
static_assert(sizeof(GPIO_PIN_VALUE) == 33, "the vendor driver expects 33 bytes");

#define VENUS_GPIO_IOC_READ_PIN _IOR('r', 1, GPIO_PIN_VALUE)
static_assert(VENUS_GPIO_IOC_READ_PIN == 0x80217201u, "named-pin read request code");

// 0 when the request succeeded; 4096 when the device cannot be opened or refuses it.
int _GPIOExecuteCommand(int request, void* arg);

}  // namespace lumacast
}  // namespace android
