# Cross build for the device's word size: 32-bit ARM (ARMv7-A, AAPCS), with Debian's
# arm-linux-gnueabihf toolchain. Binaries run on this machine through qemu-arm; binfmt is
# not registered here, so CTest prefixes every test with the emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(LUMACAST_ARM_SYSROOT /usr/arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# Debian's default target (ARMv7-A, Thumb-2, VFPv3-D16) is the platform's armeabi-v7a
# instruction set; only the float calling convention differs (hard here, softfp on
# Android), which leaves struct layouts, ioctl numbers and 32-bit arithmetic alone.
# GCC 7.1 changed how some ARM aggregates are passed; nothing here links code that old.
# Bionic's 32-bit dirent, stat and off_t are 64-bit; glibc's are not unless asked. Without
# this, readdir on ext4 (64-bit directory offsets) fails with EOVERFLOW under qemu-arm.
set(CMAKE_C_FLAGS_INIT "-Wno-psabi -D_FILE_OFFSET_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi -D_FILE_OFFSET_BITS=64")

# Libraries for the target come from the cross sysroot and from LUMACAST_ARM_LIBS, a root
# of Debian armhf library packages (tools/devicecheck/fetch-arm-libs).
set(CMAKE_FIND_ROOT_PATH ${LUMACAST_ARM_SYSROOT})
if(LUMACAST_ARM_LIBS)
    list(APPEND CMAKE_FIND_ROOT_PATH ${LUMACAST_ARM_LIBS})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${LUMACAST_ARM_SYSROOT})
if(LUMACAST_ARM_LIBS)
    list(APPEND CMAKE_CROSSCOMPILING_EMULATOR -E
         "LD_LIBRARY_PATH=${LUMACAST_ARM_LIBS}/lib/arm-linux-gnueabihf:${LUMACAST_ARM_LIBS}/usr/lib/arm-linux-gnueabihf")
endif()
# Suites that build a fake device in namespaces are started through this launcher.
set(LUMACAST_NAMESPACE_EMULATOR
    ${CMAKE_CURRENT_LIST_DIR}/../tools/devicecheck/run-in-namespace ${CMAKE_CROSSCOMPILING_EMULATOR})
