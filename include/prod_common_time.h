/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Clocks for durations and time-outs, date texts for display, and the device's time zone.
 */
#ifndef PROD_COMMON_TIME_H
#define PROD_COMMON_TIME_H

#include "prod_common_types.h"

PROD_BEGIN

/** The monotonic clock in microseconds. */
PROD_API u64 get_now_us(void);

/** The monotonic clock in milliseconds. */
PROD_API u64 get_now_ms(void);

/** Seconds since the device started; 0, logged at level 2, module "prod", when unknown. */
PROD_API int get_sys_uptime(void);

/**
 * Today's date, "YYYY-MM-DD" in local time.
 *
 * Each of the four date functions has one static buffer that its next call overwrites; a function
 * must not be called by two threads at once. A time that cannot be shown gives an empty text.
 */
PROD_API char *get_date_str(void);

/** Date and time now, "YYYY-MM-DD hh:mm:ss" in local time. */
PROD_API char *get_datetime_str(void);

/**
 * The date of an epoch second, "YYYY-MM-DD" in local time.
 * @param sec  seconds since 1970, UTC
 */
PROD_API char *get_date_str_by_sec(int sec);

/**
 * Date and time of an epoch second, "YYYY-MM-DD hh:mm:ss" in local time.
 * @param sec  seconds since 1970, UTC
 */
PROD_API char *get_datetime_str_by_sec(int sec);

/**
 * Sets the time zone from "sys.timezone.offset" (seconds east of UTC): TZ of the calling process,
 * in whole hours, and the device's by set_timezone_str(). An offset of 0 or beyond twelve hours
 * either way means GMT. Changes the environment: not while other threads may read it.
 */
PROD_API void set_timezone_env(void);

/**
 * Points "/etc/localtime" at the zone file under "/usr/bin/zoneinfo" for an offset. What stood
 * there is removed first, but not a link to a file that is missing: that one stays, and nothing
 * changes.
 * @param offset  seconds east of UTC, one of the 26 that have a zone; any other is logged at level
 *                2, module "prod", and changes nothing
 */
PROD_API void set_timezone_str(int offset);

PROD_END

#endif
