# Cross build for the device's word size: 32-bit ARM (ARMv7-A, AAPCS), with Debian's
# arm-linux-gnueabihf toolchain. Binaries run on this machine through qemu-arm; binfmt is
# not registered here, so CTest prefixes every test with the emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(LUMACAST_ARM_SYSROOT /usr/arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# Debian's default target (ARMv7-A, Thumb-2, VFPv3-D16) is the platform's armeabi-v7a
# instruction set; only the float calling convention differs (hard here, softfp on
# Android), which leaves struct layouts, ioctl numbers and 32-bit arithmetic alone.

set(CMAKE_FIND_ROOT_PATH ${LUMACAST_ARM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# GCC 7.1 changed how some ARM aggregates are passed; nothing here links code that old.
set(CMAKE_C_FLAGS_INIT "-Wno-psabi")
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${LUMACAST_ARM_SYSROOT})
# Suites that build a fake device in namespaces are started through this launcher instead.
set(LUMACAST_NAMESPACE_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../tools/devicecheck/qemu-in-namespace)
