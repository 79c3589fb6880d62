# SPDX-License-Identifier: MIT
# What the toolchain files share. Each sets PROD_TRIPLET, the compiler's name for its target;
# PROD_ARCH, Debian's; and PROD_EMULATOR, what runs the target's programs where the machine's
# processor does not. The target's libraries are in a sysroot that script/sysroot lays out, or in
# PROD_SYSROOT.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${PROD_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${PROD_TRIPLET}-g++)

set(PROD_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-${PROD_ARCH} CACHE PATH
    "Where the target's libraries are")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PROD_SYSROOT)
get_filename_component(CMAKE_SYSROOT ${PROD_SYSROOT} ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

execute_process(COMMAND ${CMAKE_C_COMPILER} -print-multiarch
    OUTPUT_VARIABLE PROD_TARGET_MULTIARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${PROD_TARGET_MULTIARCH}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
if(PROD_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${PROD_EMULATOR} -L ${CMAKE_SYSROOT}
        CACHE STRING "What runs a built program")
endif()
