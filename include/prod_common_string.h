/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Operations on NUL-terminated byte strings. A character is one byte, but where encodings are the
 * subject.
 *
 * Unless said otherwise a NULL string makes a function do nothing and return NULL (pointer
 * results) or 0 (integer results). All functions are reentrant except get_self_pname().
 */
#ifndef PROD_COMMON_STRING_H
#define PROD_COMMON_STRING_H

#include "prod_common_types.h"

PROD_BEGIN

/**
 * Removes every leading @p c by moving the rest of the string to the front.
 *
 * @return @p s when nothing was removed. When something was, the result points at the terminating
 *         NUL of the shortened string, an empty string: use @p s itself afterwards. @p c of 0
 *         removes nothing.
 */
PROD_API char *str_trim_left(char *s, char c);

/** Removes every trailing @p c. @return @p s */
PROD_API char *str_trim_right(char *s, char c);

/** Removes every leading and trailing @p c. @return @p s */
PROD_API char *str_trim(char *s, char c);

/** Upper-cases each byte by the tables of the current locale; returns the argument. */
PROD_API char *str_to_upper(char *string);

/** Lower-cases each byte by the tables of the current locale; returns the argument. */
PROD_API char *str_to_lower(char *string);

/** Replaces every @p from by @p to, in place. */
PROD_API void replace_char(char *s, char from, char to);

/** Deletes every @p c, in place. @return 1, or 0 for an empty string */
PROD_API int str_del_chars(char *s, char c);

/** Reverses the bytes in place. */
PROD_API void str_reverse(char *str);

/** "true" for non-zero, "false" for zero; constant text. */
PROD_API char *bool_to_string(int value);

/** 1 when @p from <= @p i <= @p to. */
PROD_API int integer_is_between(int i, int from, int to);

/** 1 when @p s is an optional single sign and one or more decimal digits, nothing else. */
PROD_API int str_isdigit(const char *s);

/** 1 when every byte is 32 or above, or one of carriage return, line feed, tab; 1 when empty. */
PROD_API int str_is_printable(const char *str);

/** BKDR hash with seed 131 over unsigned bytes, 32-bit wrap-around; 0 for NULL. */
PROD_API unsigned int bkdr_hash(const char *str);

/**
 * First place in @p s where @p pattern lies entirely within the first @p slen bytes.
 * @return a pointer into @p s; NULL when not found, for an empty pattern, and for @p slen below 1
 */
PROD_API char *strnstr(const char *s, const char *pattern, int slen);

/**
 * Copy of @p str with every non-overlapping occurrence of @p old_text, from left to right,
 * replaced by @p new_text.
 * @return malloc'ed text that the caller frees; NULL on a NULL argument or a failed allocation.
 *         An empty @p old_text gives a plain copy.
 */
PROD_API char *str_replace(const char *str, const char *old_text, const char *new_text);

/**
 * Every character of @p str with @p join between them: "abc" and "-" give "a-b-c".
 * @return malloc'ed text that the caller frees; NULL on a NULL argument, and, logged at level 2,
 *         module "prod", as "Out of memory.", on a failed allocation
 */
PROD_API char *str_join(const char *str, const char *join);

/**
 * Writes each byte of @p s as two lower-case hexadecimal digits.
 * @param len  bytes of @p buf; 2 x length + 1 are needed
 * @return @p buf, or NULL when an argument is NULL or the buffer too small (then untouched)
 */
PROD_API char *str_to_hex(const char *s, char *buf, unsigned int len);

/**
 * Turns pairs of hexadecimal digits, of either case, into bytes and a NUL. Nothing is validated:
 * any character but a decimal digit counts as its lower-case code minus 87, and a byte is
 * (high x 16 + low) modulo 256. The last of an odd number of digits is lost.
 * @param h    the digit
 * @param len  bytes of @p buf; length / 2 + 1 are needed
 * @return @p buf, or NULL when an argument is NULL or the buffer too small (then untouched)
 */
PROD_API char *hex_to_str(const char *h, char *buf, unsigned int len);

/**
 * Rewrites a 12-digit MAC text in place into six pairs separated by ":".
 * @param mac  the text grows by 5 characters: 18 bytes for twelve digits, 32 in any case
 * @return 1; 0, and nothing changed, when @p mac is NULL, has fewer than 10 characters, or the
 *         result would need more than 31
 */
PROD_API int mac_str_32(char *mac);

/**
 * The calling process's name as the kernel keeps it (at most 15 characters), read once from
 * "/proc/<pid>/stat" and remembered: a child after fork() shows its parent's. A name that holds
 * ")" ends there.
 *
 * @return static text; the literal "<null>" when it cannot be read (logged at level 2, module
 *         "prod"), and the next call tries again
 */
PROD_API char *get_self_pname(void);

/**
 * Prints a block to standard output: a coloured heading, then 16 bytes a line as offset,
 * hexadecimal and text. Nothing when a pointer is NULL or @p data_len below 1.
 * @param title  the heading
 */
PROD_API void prod_hexdump(const char *title, const void *data, int data_len);

/* ---- encodings ---- */

/**
 * Converts a text between GBK (of which GB2312 is a part) and UTF-8.
 *
 * @param encoding  what comes out, without regard to case: "utf8" or "utf-8" takes @p src for GBK,
 *                  "gbk" or "gb2312" takes it for UTF-8
 * @return malloc'ed text that the caller frees; NULL for another encoding or a NULL argument and,
 *         logged at level 2, module "prod", as "Out of memory." or "Failed to encode chinese
 *         string.", when that is so: not all of @p src can be converted, or what comes out would be
 *         longer than real GBK text becomes. With the module at level 4 both texts are dumped.
 */
PROD_API char *encode_chinese(const char *encoding, const char *src);

/**
 * A text as UTF-8: a copy of what is UTF-8 already, else encode_chinese() of it.
 * @return malloc'ed text that the caller frees, or NULL as encode_chinese() has it
 */
PROD_API char *encode_str_to_utf8(const char *str);

/**
 * 1 when a text begins with a Chinese character of GB2312 (first byte 0xA1 to 0xF7, second 0xA1 to
 * 0xFE), and the line "find gb2312 encode!" then goes to standard output; 0 for everything else.
 * UTF-8 text can look the same.
 * @param gb_ptr  the text
 */
PROD_API int get_gb2312(const char *gb_ptr);

/**
 * Standard base64 of a text.
 *
 * @param outlen  bytes of @p outbuf; 4 x ceil(length / 3) + 1 are needed. Less cuts the result,
 *                which ends with a NUL in any case; below 1 nothing is written.
 */
PROD_API void prod_encode64(char *outbuf, const char *string, int outlen);

/**
 * Decodes base64 text up to its end or the first "=". The result is meant to be text: its length
 * is not returned.
 *
 * Not the inverse of prod_encode64() in two places: the digits 62 and 63 are the bytes 0x1B and
 * 0x1F here. "+" and "/", like every byte that is no digit, are not refused; they set all bits of
 * their own place and the two in front.
 *
 * @param outlen  bytes of @p outbuf; a text of n digits needs n x 3 / 4 + 1
 * @return 0, or -1 when the result does not fit (@p outbuf then holds the three-byte groups that
 *         did, terminated), when an argument is NULL, and when @p outlen is below 1
 */
PROD_API int prod_decode64(char *outbuf, const char *string, int outlen);

PROD_END

#endif
