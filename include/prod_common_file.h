/* SPDX-License-Identifier: MIT */
/**
 * @file
 * File helpers. All log under module "prod".
 */
#ifndef PROD_COMMON_FILE_H
#define PROD_COMMON_FILE_H

#include "prod_common_types.h"

PROD_BEGIN

/**
 * Size of a regular file.
 * @param len  receives the size in bytes; may be NULL
 * @return 1; 0 for a NULL name (silently), and, logged at level 2, for a path that cannot be
 *         looked up, is not a regular file, or holds more than 2^32 - 2 bytes
 */
PROD_API int get_file_size(const char *filename, u32 *len);

/**
 * Reads a whole file into memory.
 *
 * Files of "/proc" have size 0 and read as an empty text. Of a file that shrinks meanwhile the
 * rest is zero bytes.
 *
 * @param data  receives a malloc'ed buffer of size + 1 bytes, the last a NUL; the caller frees it
 * @param len   receives the size, before the file is opened; may be NULL
 * @return 1 when the file was read; 0 otherwise, @p data then untouched or NULL
 */
PROD_API int get_file_content(const char *filename, void **data, u32 *len);

/**
 * Writes bytes to the start of a file, which is created (0644) when missing and never truncated:
 * what the file held beyond @p len stays.
 * @return 1 when written (a short write counts, and is not retried); 0 for a NULL argument or a
 *         @p len of 0 (silently) and, logged at level 2, when it cannot be opened or written
 */
PROD_API int write_file(const char *filename, const void *data, unsigned int len);

/**
 * Creates an empty file (0644) when none exists; leaves an existing one as it is. A failure is
 * logged at level 2.
 */
PROD_API void touch_file(const char *filename);

PROD_END

#endif
