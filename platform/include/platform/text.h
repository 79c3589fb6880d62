/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Files and text.
 */
#ifndef PLATFORM_TEXT_H
#define PLATFORM_TEXT_H

#include "platform/types.h"

/** Bytes that hold any value of a key=value file with its NUL. A port never delivers more. */
#define INI_VALUE_SIZE 256

PLATFORM_BEGIN

/**
 * Finds "key=value" in a text file of such lines, in any order, blanks around neither. Lines that
 * are not of that form are passed over, as is a section heading.
 *
 * @param out  receives the value, at most INI_VALUE_SIZE - 1 characters and a NUL; untouched when
 *             the key is not found
 * @return non-zero when the key was found (its value may be empty), 0 otherwise
 */
PLATFORM_API int file_get_value_from_ini(const char *file, const char *key, char *out);

/** Whether a path exists: non-zero when stat() succeeds. */
PLATFORM_API int file_check_exist_or_not(const char *path);

PLATFORM_END

#endif
