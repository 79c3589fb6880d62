/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Tools of the system: the configuration's backup file, the figures that status pages show, and the
 * reboot.
 *
 * All functions may be called from any thread, except systool_get_cpu_percent().
 */
#ifndef PROD_COMMON_SYSTOOL_H
#define PROD_COMMON_SYSTOOL_H

#include "prod_common_types.h"

/** Bytes that hold the text of systool_get_curtime(). */
#define PROD_CURTIME_SIZE 32

PROD_BEGIN

/* ---- configuration backup ------------------------------------------------------------------ */

/** Results of loading a backup file. */
typedef enum {
    CFG_UPGRADE_OK = 0,    /**< loaded */
    CFG_UPLOAD_ERR = -1,   /**< a part is missing or could not be written; see below */
    CFG_FILE_INVALID = -2, /**< no backup file, or a damaged one; nothing was changed */
} SYS_CFG_RET;

/** Bytes that hold the name of the backup file. */
#define PROD_BACKUP_NAME_SIZE 13

/**
 * Makes the backup file, "/etc/tmp.cfg", for the web server to send to a browser.
 *
 * The file is text: the whole configuration as "cfm show" prints it and "web.pic.name=" with the
 * value of "web.default.pic.name" if that has one, the records of the five kinds of
 * access-controller policies (prod_common_cfm.h), and the record databases "default", "auth", "ac"
 * and "client". Marker lines end its sections; the last line is "crc=" and the CRC-32 of all bytes
 * before it in decimal. The URL section is always empty.
 *
 * Runs some twenty shell commands, writes the policy files below /etc anew and sleeps for a second
 * at the end. What fails is not noticed: a file without its last line, or without some sections, is
 * what remains. One caller at a time.
 *
 * @param filename  PROD_BACKUP_NAME_SIZE bytes; receives "/etc/tmp.cfg"
 * @return 0; -1 for NULL
 */
PROD_API int prod_systool_sys_cfg_download(char *filename);

/**
 * Loads a backup file: databases "default" and "auth", policies, configuration. The databases "ac"
 * and "client" are in the file but not read back, and "wans.wanwebaddr" keeps the value it has.
 *
 * The first "crc=" of the file must be that of its last line: a value that holds this text makes a
 * backup that cannot be loaded. Behind that line nothing is looked at. Every marker must be there,
 * in order, but the public one: without it the configuration becomes "wans.wanwebaddr" and nothing
 * else.
 *
 * The work: both databases; "/webroot/default.cfg", "/webroot/default_url.cfg" and the policy files
 * below /etc; upload_ac_policy(); two seconds of sleep; "cfm Upload". Whether these succeed is not
 * looked at, but for writing the files. What is wrong with a file is told on standard output. One
 * caller at a time.
 *
 * @param pbuf  the whole file, with a NUL behind its last byte
 * @param size  its bytes without that NUL
 * @return CFG_UPGRADE_OK; CFG_FILE_INVALID; CFG_UPLOAD_ERR when a marker is missing or a file
 *         cannot be opened or written: the two databases are then as in the backup and some of the
 *         files too, policies and configuration as they were
 */
PROD_API int prod_systool_cfg_upload(const char *pbuf, long size);

/**
 * The web interface's one door to both: FILE_OPERATE_DOWNLOAD calls
 * prod_systool_sys_cfg_download(@p buf), FILE_OPERATE_UPLOAD prod_systool_cfg_upload(@p buf,
 * @p size).
 * @return what they return; -1 for another type, which is told on standard output
 */
PROD_API int prod_backup_file_handle(FILE_OPERATE_ENUM type, char *buf, long size);

/* ---- figures ------------------------------------------------------------------------------- */

/**
 * Share of the memory that is in use, from "/proc/meminfo": all that is not free counts, caches
 * too.
 * @param memuse  receives per cent; 100 when the figures cannot be read
 * @return HLX_OK; HLX_ERR, @p memuse untouched, when it is NULL (silently) and when the file cannot
 *         be opened (logged at level 2, module "prod")
 */
PROD_API HLX_RETURN_CODE systool_get_memInfo(int *memuse);

/** Free memory in kB, from "/proc/meminfo". @return -1 when it cannot be read */
PROD_API int systool_get_memfree(void);

/**
 * CPU load in per cent, 0 to 100, over the time since the call before, from "/proc/stat".
 *
 * Within 949 ms of the last sample the last result is returned and nothing is read. The first call
 * of a process, and one more than an hour after the last, sleeps for a second and returns the load
 * of that second.
 *
 * For one caller thread per process: concurrent callers may get a wrong figure, within 0 to 100.
 *
 * @return the load; 0 when the file cannot be read (logged at level 2, module "prod", when it
 *         cannot be opened)
 */
PROD_API int systool_get_cpu_percent(void);

/**
 * Date and time now, "YYYY-MM-DD hh:mm:ss" in local time; "2007-09-06 10:01:06" when it cannot be
 * had.
 * @param CurDatetime  PROD_CURTIME_SIZE bytes; NULL does nothing
 */
PROD_API void systool_get_curtime(char *CurDatetime);

/* ---- reboot -------------------------------------------------------------------------------- */

/**
 * Reboots the device in five seconds and returns at once, so that the caller can still answer who
 * asked for it. A thread that cannot be started is logged at level 2, module "prod"; the device
 * then does not reboot.
 */
PROD_API void systool_reboot(void);

/**
 * What systool_reboot() runs as a thread: hangs up the L2TP client's PPP daemon, gives it three
 * seconds to close its connection, stops the multi-WAN manager, waits two seconds more, says
 * "rebooting ..." on standard output and runs "date;reboot". Returns once that command has ended.
 * @param arg  not used
 * @return NULL
 */
PROD_API void *systool_reboot_thread(void *arg);

PROD_END

#endif
