#pragma once
// glibc has this header; the platform's C library has it only from API 33 on.
#error "<execinfo.h> does not exist on the device (bionic before API 33; the device runs API 31)"
