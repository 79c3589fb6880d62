# SPDX-License-Identifier: MIT
# The device's processor: 32-bit ARM with hardware floating point, Debian's armhf.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(PROD_TRIPLET arm-linux-gnueabihf)
set(PROD_ARCH armhf)
set(PROD_EMULATOR qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
