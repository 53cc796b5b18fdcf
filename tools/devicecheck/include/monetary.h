#pragma once
// glibc has this header; the platform's C library does not.
#error "<monetary.h> does not exist on the device (bionic)"
