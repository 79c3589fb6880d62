/* SPDX-License-Identifier: MIT */
/**
 * @file
 * What this port's own configuration tool needs beyond the platform functions. Not for others: a
 * board with another store has another tool.
 */
#ifndef PLATFORM_LINUX_CFM_TOOL_H
#define PLATFORM_LINUX_CFM_TOOL_H

#include "platform/types.h"

PLATFORM_BEGIN

/**
 * All of the working copy as sorted "key=value" lines.
 * @param text  receives a block from malloc that the caller frees; no terminating NUL
 * @param size  receives its length
 * @return 1 on success, 0 when the store cannot be read
 */
PLATFORM_API int cfm_show(char **text, size_t *size);

/**
 * Makes a text of "key=value" lines the whole configuration and commits it: all of it or, when a
 * single line is not sound or there is no setting in it, nothing.
 * @return 1 on success, 0 otherwise; configuration and file are then as they were
 */
PLATFORM_API int cfm_upload(const char *text, size_t size);

PLATFORM_END

#endif
