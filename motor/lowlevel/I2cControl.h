#pragma once

namespace android {
namespace lumacast {

// Transfers on an open i2c-dev descriptor: 0 on success, the negative I2C_RDWR result when
// the transfer is refused, 257 when a write buffer cannot be allocated.
int set_status(int fd, int addr, unsigned char reg, unsigned char value);
int write_data(int fd, int addr, unsigned char reg, const void* data, int len);
int query_status(int fd, int write_addr, int read_addr, unsigned char reg, unsigned char* buf,
                 int len);

// The same by bus device path; each call opens and closes the device (4096 if it cannot be
// opened).
int iic_write_status(const char* path, int addr, int reg, unsigned char value);
int iic_write_data(const char* path, int addr, int reg, const void* data, int len);
int iic_read(const char* path, int write_addr, int read_addr, unsigned char reg, unsigned char* buf,
             int len);

}  // namespace lumacast
}  // namespace android
