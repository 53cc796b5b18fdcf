#pragma once
// glibc has this header; the platform's C library does not.
#error "<wordexp.h> does not exist on the device (bionic)"
