# SPDX-License-Identifier: MIT
# 32-bit x86, which a PC's processor runs as it is: the device's word size at the machine's speed.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(PROD_TRIPLET i686-linux-gnu)
set(PROD_ARCH i386)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
