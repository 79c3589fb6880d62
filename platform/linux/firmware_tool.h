/* SPDX-License-Identifier: MIT */
/**
 * @file
 * What this port's own flash writer needs beyond the platform functions. Not for others: a board
 * with other flash has another tool.
 */
#ifndef PLATFORM_LINUX_FIRMWARE_TOOL_H
#define PLATFORM_LINUX_FIRMWARE_TOOL_H

#include "platform/types.h"

/** Bytes that hold the path of a partition. */
#define FW_PATH_SIZE 256

PLATFORM_BEGIN

/** What a result of the firmware checks means, for people. A constant text. */
PLATFORM_API const char *fw_failure_text(int result);

/**
 * The partition that images are written to.
 * @param path  receives the path of the device or file: FW_PATH_SIZE bytes
 * @param size  receives its size in bytes
 * @return 0, or FW_CHECK_NO_PARTITION, both outputs then untouched
 */
PLATFORM_API int fw_partition(char *path, u64 *size);

PLATFORM_END

#endif
