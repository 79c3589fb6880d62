/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Factory settings: what the production line wrote into one device. Read-only here.
 */
#ifndef PLATFORM_FACTORY_H
#define PLATFORM_FACTORY_H

#include "platform/types.h"

/** Bytes that hold any factory setting with its NUL. */
#define FACTORY_VALUE_SIZE 2308

PLATFORM_BEGIN

/**
 * Reads a factory setting. "HW_NIC0_ADDR" is the board's base MAC as twelve hexadecimal digits
 * without separators. Does not block; any thread may call it.
 *
 * @param name   exact name
 * @param value  FACTORY_VALUE_SIZE bytes; receives the text, longer ones cut at 2307 characters,
 *               and the empty text for a setting that is missing
 * @return non-zero when the setting is there and not empty, else 0, also for a NULL argument
 */
PLATFORM_API int ApmibGetValue(const char *name, char *value);

PLATFORM_END

#endif
