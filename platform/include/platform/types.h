/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Basic types that both doors share: the platform's and the library's.
 */
#ifndef PLATFORM_TYPES_H
#define PLATFORM_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define PLATFORM_BEGIN extern "C" {
#define PLATFORM_END }
#else
#define PLATFORM_BEGIN
#define PLATFORM_END
#endif

/** Marks what a port exports. A program may define any of these functions itself instead. */
#define PLATFORM_API __attribute__((visibility("default")))

/** Lets the compiler check a printf-style format against its arguments. */
#define PLATFORM_PRINTF(format_at, first_argument_at) \
    __attribute__((format(printf, format_at, first_argument_at)))

typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
/** Not uint64_t: the firmware prints these with "%llu" on 32-bit and 64-bit machines alike. */
typedef unsigned long long u64;

/** Results of platform calls. */
typedef enum {
    PAV_RET_OK = 0,
    PAV_RET_APP_RUNNING = 1,
    PAV_RET_APP_DEAD = 2,
    PAV_RET_ERROR = 255,
    PAV_RET_NULL_POINTER = 1001,
    PAV_RET_INVALID_PARAM = 1002
} PAV_RET;

#endif
