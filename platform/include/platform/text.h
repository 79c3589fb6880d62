/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Files and text. Any thread may call any of these; they block only as reading a file does.
 * Chinese text is GBK, of which GB2312 is a part, or UTF-8.
 */
#ifndef PLATFORM_TEXT_H
#define PLATFORM_TEXT_H

#include "platform/types.h"

/** Bytes that hold any value of a key=value file with its NUL. A port never delivers more. */
#define INI_VALUE_SIZE 256

/** What system_get_code_format() tells a text from. */
#define CODE_FORMAT_PLAIN 0 /**< ASCII, or no encoding that is known here */
#define CODE_FORMAT_GBK 1   /**< to be converted before it is shown */
#define CODE_FORMAT_UTF8 2

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

/**
 * The encoding of a text, as far as its bytes tell: CODE_FORMAT_UTF8 when it is valid UTF-8 with at
 * least one character beyond ASCII, CODE_FORMAT_GBK when it is made of ASCII and two-byte GBK
 * characters, assigned or not, CODE_FORMAT_PLAIN for everything else and for NULL. A short GBK text
 * can be valid UTF-8 as well, and counts as that.
 */
PLATFORM_API int system_get_code_format(const char *text);

/**
 * Converts a text into the encoding that @p target names, "utf-8" (the text is taken for GBK) or
 * "gb2312" (it is taken for UTF-8); ASCII is the same in both.
 *
 * @param dst  4 x strlen(@p src) + 1 bytes, not overlapping @p src; receives the text and a NUL
 * @return non-zero when all of the text was converted; 0 when a byte or a character has no
 *         counterpart (@p dst then holds what stands before it, terminated), and, with @p dst
 *         untouched, for another target or a NULL argument; 0 also when the machine has no
 *         conversion tables or memory
 */
PLATFORM_API int system_convert_code_format(const char *target, const char *src, char *dst);

PLATFORM_END

#endif
