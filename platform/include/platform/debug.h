/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Debug facility. Any thread may call any of these.
 */
#ifndef PLATFORM_DEBUG_H
#define PLATFORM_DEBUG_H

#include "platform/types.h"

PLATFORM_BEGIN

/** Prints the calling thread's stack to standard output, one frame a line. */
PLATFORM_API void show_backtrace(void);

/**
 * The platform's own logger: hands one message to the system's log. Never blocks on a log that
 * nobody reads; what cannot be logged is lost silently.
 *
 * @param function  name of the calling function
 * @param line      source line of the call
 * @param level     2 for an error, above 2 for debugging, 0 for function entry and exit
 * @param module    name of the caller's module
 */
PLATFORM_API void log_debug_print(const char *function, int line, int level, const char *module,
                                  const char *format, ...) PLATFORM_PRINTF(5, 6);

PLATFORM_END

#endif
