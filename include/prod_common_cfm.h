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

struct sqlite3; /* <sqlite3.h> */

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
 * @return 1 when it held a value, which counts as a change whether the store removed it or not; 0
 *         otherwise, also for a NULL key
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
 * @param pMibName      the key
 * @param pNewMibValue  the new value
 * @param pOldMibValue  2308 bytes, zeroed by the caller; receives the stored value. An absent key
 *                      leaves it as it was, and what it holds is what the new value is compared
 *                      with.
 * @return 1 when written (by prod_cfm_set_val()), 0 when stored already, -1 when an argument is
 *         NULL
 */
PROD_API int set_if_changed(const char *pMibName, const char *pNewMibValue, char *pOldMibValue);

/**
 * Writes a value under a formatted key unless it is stored already.
 * @param fmt           printf format of the key, for what follows the value
 * @param pNewMibValue  the new value
 * @return 1 when written (by prod_cfm_set_val()), 0 when stored already or an argument is NULL
 */
PROD_API int set_fmt_val_if_changed(const char *fmt, const char *pNewMibValue, ...)
    PROD_PRINTF(1, 3);

/**
 * The integer at the start of a value, 0 when there is none or the key is absent.
 * @param fmt  printf format of the key
 */
PROD_API int prod_cfm_get_int_val(const char *fmt, ...) PROD_PRINTF(1, 2);

/**
 * As prod_cfm_get_int_val(), of 64 bits. The first 20 characters of the value count, and it is
 * read as a signed number: values from 2^63 up read as 2^63 - 1.
 * @param fmt  printf format of the key
 */
PROD_API u64 prod_cfm_get_uint_val(const char *fmt, ...) PROD_PRINTF(1, 2);

/**
 * The number at the start of a value, of which 42 characters count; 0.0 when there is none.
 * @param fmt  printf format of the key
 */
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

/* ---- policies ------------------------------------------------------------------------------- */

/**
 * What an access-controller daemon pushes to its access points is kept in an SQLite database, one
 * table for each of the five kinds of policy. For the configuration backup the tables travel as
 * text, one policy file for each kind:
 *
 *   kind        table             policy file                 prefix of a record
 *   wireless    wl_basic_policy   /etc/wl_policy.cfg          wl_policy:
 *   radio       wl_radio_policy   /etc/rf_policy.cfg          rf_policy:
 *   reboot      reboot_policy     /etc/reboot_policy.cfg      reboot_policy:
 *   deployment  wl_deploy_policy  /etc/wl_deploy_policy.cfg   wl_deploy_policy:
 *   VLAN        qvlan_policy      /etc/qvlan_policy.cfg       qvlan_policy:
 *
 * A record is CR LF, the prefix, and the row's columns in the table's order as column=value with
 * one tab between them; there is no line break behind the last one. Readers go by the place of a
 * value, not by its name.
 *
 * Everything that these functions have to say goes to standard output through stdio, not to the
 * log. Those that name a policy file or the database change what all processes share: one caller
 * at a time.
 */
#define PROD_POLICY_DATABASE "/cfg/s_brcmnand/Dcg_database.db"

/** Bytes of a statement as its first allocation and of assem_policy_data()'s output. */
#define PROD_POLICY_TEXT_SIZE 20480

/** @{ */
/**
 * Row callbacks for sqlite3_exec(), one for each kind: append one record to the kind's policy file,
 * which is created when it is missing.
 *
 * An item column=value is cut to 255 characters and the record without its CR LF to 2047; a NULL
 * value becomes "(null)".
 *
 * @param para                                 not used
 * @param n_column, column_value, column_name  the row, as SQLite hands it over
 * @return 0, also when the file's medium is full; -1 when 2 KiB of memory cannot be had, the file
 *         cannot be opened or a needed array is NULL, which makes SQLite abort the query
 */
PROD_API int wl_policy_callback(void *para, int n_column, char **column_value, char **column_name);
PROD_API int rf_policy_callback(void *para, int n_column, char **column_value, char **column_name);
PROD_API int reboot_policy_callback(void *para, int n_column, char **column_value,
                                    char **column_name);
PROD_API int wl_deploy_policy_callback(void *para, int n_column, char **column_value,
                                       char **column_name);
PROD_API int qvlan_policy_callback(void *para, int n_column, char **column_value,
                                   char **column_name);
/** @} */

/**
 * Appends every row of the database to the policy files, in the order of the table above. The
 * caller removes old policy files first; a table without rows creates none. A database that cannot
 * be read is first replaced by the factory template: "cp /webroot/Dcg_database.db
 * /cfg/s_brcmnand".
 *
 * The database is closed in every case. One that was missing before and cannot be read now (half a
 * copy, or no template) is removed again, so that the next call copies it and upload_ac_policy()
 * makes its tables.
 *
 * @return PAV_RET_OK; PAV_RET_ERROR when the database cannot be opened or at the first table that
 *         cannot be read: the files then hold what came before
 */
PROD_API PAV_RET prod_download_ac_policy(void);

/**
 * Replaces every row of the database by the records of the policy files.
 *
 * A missing database is created with its five tables. An existing one loses all rows first; when
 * one table cannot be emptied, nothing further happens. Then each kind is inserted with one
 * statement, in the order wireless, reboot, radio, deployment, VLAN; what a statement cannot do is
 * told and the next kind's turn comes. A kind without a record is told as an error too, harmlessly.
 * There is no transaction around it: whoever is killed in between leaves kinds without rows.
 *
 * @return PAV_RET_ERROR when the database cannot be opened ("sql open error"), PAV_RET_OK in every
 *         other case
 */
PROD_API PAV_RET upload_ac_policy(void);

/** @{ */
/**
 * Create one table each unless it exists. The column lists are those of the databases on devices in
 * the field, letter for letter. A failure is told on standard output.
 * @param policy_db  the open database; stays open
 * @return PAV_RET_OK whatever happened, but sqlite_create_table_wl_deploy_policy(): PAV_RET_ERROR
 *         for a failure other than "already exists"
 */
PROD_API PAV_RET sqlite_create_table_rf_policy(struct sqlite3 *policy_db);
PROD_API PAV_RET sqlite_create_table_wl_policy(struct sqlite3 *policy_db);
PROD_API PAV_RET sqlite_create_table_reboot_policy(struct sqlite3 *policy_db);
PROD_API PAV_RET sqlite_create_table_qvlan_policy(struct sqlite3 *policy_db);
PROD_API PAV_RET sqlite_create_table_wl_deploy_policy(struct sqlite3 *policy_db);
/** @} */

/**
 * Creates all five tables.
 * @param policy_db  the open database; stays open
 * @return PAV_RET_OK, whatever happened
 */
PROD_API PAV_RET sqlite_create_policy_table(struct sqlite3 *policy_db);

/**
 * Appends the records of a policy file to a text as SQL values: "('1','0','night'),", one group for
 * each record.
 *
 * Of a line of the file 1023 characters count at a time; one without @p table in it is none of a
 * record. A value skips leading blanks and ends at the next one; it is cut to 255 characters, and
 * its single quotes are doubled. Empty items between tabs vanish. A line with an item that has no
 * name or no "=" is dropped whole.
 *
 * @param path     the file; when it cannot be opened @p out_buf stays as it is
 * @param table    the kind's prefix
 * @param out_buf  PROD_POLICY_TEXT_SIZE bytes that hold a terminated text; a record that does not
 *                 fit any more is left out
 */
PROD_API void assem_policy_data(const char *path, const char *table, char *out_buf);

PROD_END

#endif
