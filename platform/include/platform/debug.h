/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Debug facility.
 */
#ifndef PLATFORM_DEBUG_H
#define PLATFORM_DEBUG_H

#include "platform/types.h"

PLATFORM_BEGIN

/** Prints the calling thread's stack to standard output, one frame a line. */
PLATFORM_API void show_backtrace(void);

PLATFORM_END

#endif
