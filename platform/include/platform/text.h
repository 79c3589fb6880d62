/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Files and text. Any thread may call any of these; they block only as reading a file does.
 */
#ifndef PLATFORM_TEXT_H
#define PLATFORM_TEXT_H

#include "platform/types.h"

/** Bytes that hold any value of a key=value file with its NUL. A port never delivers more. */
#define INI_VALUE_SIZE 256

PLATFORM_BEGIN

/**
 * Finds "key=value" in a text file of such lines, in any order; the first one counts. The key
 * begins its line and is compared with case; the value is all that follows the '=', blanks
 * included, without the line's end ("\n" or "\r\n"). Lines that are not of that form are passed
 * over, as is a section heading. Of a line longer than 1024 bytes only that many are looked at.
 *
 * @param out  INI_VALUE_SIZE bytes; receives the value, cut to fit, and a NUL; untouched when the
 *             key is not found
 * @return non-zero when the key was found (its value may be empty), 0 otherwise, also for a file
 *         that cannot be read or a NULL argument
 */
PLATFORM_API int file_get_value_from_ini(const char *file, const char *key, char *out);

/** Whether a path exists: non-zero when stat() succeeds, which follows links. */
PLATFORM_API int file_check_exist_or_not(const char *path);

/**
 * Removes the white space around a text in place: blanks, tabs, newlines, carriage returns,
 * vertical tabs and form feeds.
 * @return @p text, also NULL
 */
PLATFORM_API char *string_str_trim(char *text);

PLATFORM_END

#endif
