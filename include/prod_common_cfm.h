/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Access to the configuration.
 *
 * A thin layer over the configuration manager's key=value store (platform/cfm.h): keys built from
 * a format, typed values, and setters that compare before they write, so that saving a page of
 * settings of which few changed leaves the store alone. Numbers are stored as text; "1" and "01"
 * are different values.
 *
 * Keys built from a format are cut to 511 characters without any report. Nothing here logs, but
 * for the trace of __wrap_SetValue(). An absent key reads as the empty text, never as an error. A
 * NULL format reads as an absent key, and with one the setters write nothing and return 0.
 *
 * Values are read through the store, which is given no length: a buffer that receives one must
 * have 2308 bytes (CFM_VALUE_SIZE) whatever the value is expected to be.
 *
 * A process counts the changes it makes. The intended cycle of a daemon: prod_cfm_init() before a
 * batch of changes, any number of setters, prod_cfm_is_change() to decide whether to call
 * prod_cfm_commit() and to tell other daemons, prod_cfm_init() again before the next batch.
 *
 * All functions may be called from any thread. Comparing and writing are two steps: another
 * process may write the same key in between, and its value is then replaced.
 *
 * Programs that write with SetValue() directly can have the same comparison and trace: linked with
 * -Wl,--wrap=SetValue, their calls of SetValue() reach __wrap_SetValue() of this library, which
 * calls the store. Without that option their calls reach the store as they are.
 */
#ifndef PROD_COMMON_CFM_H
#define PROD_COMMON_CFM_H

#include "platform/cfm.h"
#include "prod_common_types.h"

PROD_BEGIN

/** Starts counting this process's changes from 0. */
PROD_API void prod_cfm_init(void);

/**
 * Whether this process changed the store since the last prod_cfm_init(): 1 or 0. A commit does
 * not clear it.
 */
PROD_API int prod_cfm_is_change(void);

/**
 * Reads a value.
 * @param value  2308 bytes; untouched when the key is absent
 * @return what the store answers: non-zero when the key was found, 0 otherwise
 */
PROD_API int prod_cfm_get_val(const char *name, char *value);

/** As prod_cfm_get_val(), with the key formatted from @p fmt and what follows @p value. */
PROD_API int prod_cfm_get_fmt_val(const char *fmt, char *value, ...) PROD_PRINTF(1, 3);

/**
 * Removes a key that holds a value. One that is absent or holds the empty text is left alone.
 * @return 1 when a value was removed, which counts as a change; 0 otherwise, also for a NULL key
 */
PROD_API int prod_cfm_unset_val(const char *key);

/**
 * Writes a value unless the key holds that very text. An absent key holds the empty text.
 * @return 1 when it was written, which counts as a change whether the store took it or not; 0 when
 *         it was stored already, or an argument is NULL
 */
PROD_API int prod_cfm_set_val(const char *key, const char *val);

/** As prod_cfm_set_val(), with the key formatted from @p fmt and what follows @p value. */
PROD_API int prod_cfm_set_fmt_val(const char *fmt, const char *value, ...) PROD_PRINTF(1, 3);

/**
 * Writes a value unless it is stored already, and gives the caller the old one.
 * @param pOldMibValue  2308 bytes, zeroed by the caller; receives the stored value. An absent key
 *                      leaves it as it was, and what it holds is what the new value is compared
 *                      with.
 * @return 1 when written (by prod_cfm_set_val()), 0 when stored already, -1 when an argument is
 *         NULL
 */
PROD_API int set_if_changed(const char *pMibName, const char *pNewMibValue, char *pOldMibValue);

/**
 * Writes a value under a formatted key unless it is stored already.
 * @return 1 when written (by prod_cfm_set_val()), 0 when stored already or an argument is NULL
 */
PROD_API int set_fmt_val_if_changed(const char *fmt, const char *pNewMibValue, ...)
    PROD_PRINTF(1, 3);

/** The integer at the start of a value, 0 when there is none or the key is absent. */
PROD_API int prod_cfm_get_int_val(const char *fmt, ...) PROD_PRINTF(1, 2);

/**
 * As prod_cfm_get_int_val(), of 64 bits. The first 20 characters of the value count, and it is
 * read as a signed number: values from 2^63 up read as 2^63 - 1.
 */
PROD_API u64 prod_cfm_get_uint_val(const char *fmt, ...) PROD_PRINTF(1, 2);

/** The number at the start of a value, of which 42 characters count; 0.0 when there is none. */
PROD_API double prod_cfm_get_double_val(const char *fmt, ...) PROD_PRINTF(1, 2);

/** Writes a number in decimal. @return as prod_cfm_set_val() */
PROD_API int prod_cfm_set_int_val(const char *name, int value);

/** As prod_cfm_set_int_val(), with the key formatted from @p fmt and what follows @p value. */
PROD_API int prod_cfm_set_fmt_int_val(const char *fmt, int value, ...) PROD_PRINTF(1, 3);

/**
 * Writes a number with six decimals; one that needs more than 20 characters is cut there.
 * @return as prod_cfm_set_val()
 */
PROD_API int prod_cfm_set_double_val(const char *name, double value);

/** Writes a number of 64 bits in decimal. @return as prod_cfm_set_val() */
PROD_API int prod_cfm_set_uint64_val(const char *name, u64 value);

/**
 * Makes the working copy persistent. Blocks until the storage has it.
 * @return what CommitCfm() answers; the count of changes stays as it was
 */
PROD_API int prod_cfm_commit(void);

/**
 * What SetValue() is linked to in this library, and in programs linked with -Wl,--wrap=SetValue:
 * writes a value unless the key holds that very text. While the debug level of module "cfm" is
 * above 3 each real write is shown on standard output as "#### [SET] <key>: <old> -> <new>",
 * followed by the caller's stack. Raises no count of changes.
 * @return what the store's SetValue() answers; 1 when the value was stored already; 0 when an
 *         argument is NULL
 */
PROD_API int __wrap_SetValue(const char *key, const char *value);

/** The switch port of a LAN index: the same number on this hardware. */
PROD_API int lanx_to_sw_port(int lanid);

/** The switch port of a WAN id: the same number on this hardware. */
PROD_API int wanid_to_sw_port(int wanid);

/**
 * Doubles each single quote of a text, for an SQL string literal.
 * @param ssid         bytes, not necessarily terminated
 * @param ssid_len     how many of them
 * @param encode_ssid  receives the result without a terminating NUL: pass 2 x ssid_len + 1 bytes,
 *                     zeroed
 * @return @p encode_ssid; NULL, and nothing written, when @p ssid_len is 0 or a pointer NULL. A
 *         negative length writes nothing.
 */
PROD_API char *encode_sql_ssid(const char *ssid, int ssid_len, char *encode_ssid);

PROD_END

#endif
