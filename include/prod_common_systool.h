/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Tools of the system: the figures that status pages show, and the reboot.
 *
 * All functions may be called from any thread, except systool_get_cpu_percent().
 */
#ifndef PROD_COMMON_SYSTOOL_H
#define PROD_COMMON_SYSTOOL_H

#include "prod_common_types.h"

/** Bytes that hold the text of systool_get_curtime(). */
#define PROD_CURTIME_SIZE 32

PROD_BEGIN

/* ---- configuration backup ------------------------------------------------------------------ */

/* ---- figures ------------------------------------------------------------------------------- */

/**
 * Share of the memory that is in use, from "/proc/meminfo": all that is not free counts, caches
 * too.
 * @param memuse  receives per cent; 100 when the figures cannot be read
 * @return HLX_OK; HLX_ERR, @p memuse untouched, when it is NULL (silently) and when the file cannot
 *         be opened (logged at level 2, module "prod")
 */
PROD_API HLX_RETURN_CODE systool_get_memInfo(int *memuse);

/** Free memory in kB, from "/proc/meminfo". @return -1 when it cannot be read */
PROD_API int systool_get_memfree(void);

/**
 * CPU load in per cent, 0 to 100, over the time since the call before, from "/proc/stat".
 *
 * Within 949 ms of the last sample the last result is returned and nothing is read. The first call
 * of a process, and one more than an hour after the last, sleeps for a second and returns the load
 * of that second.
 *
 * For one caller thread per process: concurrent callers may get a wrong figure, within 0 to 100.
 *
 * @return the load; 0 when the file cannot be read (logged at level 2, module "prod", when it
 *         cannot be opened)
 */
PROD_API int systool_get_cpu_percent(void);

/**
 * Date and time now, "YYYY-MM-DD hh:mm:ss" in local time; "2007-09-06 10:01:06" when it cannot be
 * had.
 * @param CurDatetime  PROD_CURTIME_SIZE bytes; NULL does nothing
 */
PROD_API void systool_get_curtime(char *CurDatetime);

/* ---- reboot -------------------------------------------------------------------------------- */

/**
 * Reboots the device in five seconds and returns at once, so that the caller can still answer who
 * asked for it. A thread that cannot be started is logged at level 2, module "prod"; the device
 * then does not reboot.
 */
PROD_API void systool_reboot(void);

/**
 * What systool_reboot() runs as a thread: hangs up the L2TP client's PPP daemon, gives it three
 * seconds to close its connection, stops the multi-WAN manager, waits two seconds more, says
 * "rebooting ..." on standard output and runs "date;reboot". Returns once that command has ended.
 * @param arg  not used
 * @return NULL
 */
PROD_API void *systool_reboot_thread(void *arg);

PROD_END

#endif
