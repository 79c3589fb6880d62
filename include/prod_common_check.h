/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Presence checks: small questions that daemons ask before they act, each answered from the
 * kernel's view at the moment of the call; and two small edits, of a rule text and of a stored
 * time. All functions may be called from any thread.
 */
#ifndef PROD_COMMON_CHECK_H
#define PROD_COMMON_CHECK_H

#include "prod_common_types.h"

/** Bytes that a rule text of check_modify_item_in_rule() needs. */
#define PROD_RULE_SIZE 2308

PROD_BEGIN

/* ---- address ranges that clash ------------------------------------------------------------- */

/* ---- the LAN moves ------------------------------------------------------------------------- */

/* ---- presence ------------------------------------------------------------------------------ */

/** 1 when @p path can be looked up, links followed; else 0, also for NULL. */
PROD_API int prod_check_file_exist(const char *path);

/**
 * Whether a USB disk is attached: 1 when "/tmp/UDiskname", where the USB daemon writes the disk's
 * name, exists and is not empty; else 0. Traced at level 5, module "prod".
 */
PROD_API int check_usbdevice_working(void);

/**
 * Whether a process of that name runs.
 * @param name  exact name. The kernel keeps 15 characters, so a longer one is never found; a
 *              process's own name counts only up to a ")" in it.
 * @return 1 when one runs; 0 when not, for NULL, and when "/proc" cannot be read
 */
PROD_API int prod_check_app_exist(const char *name);

/**
 * Whether something is mounted.
 * @param text  looked for anywhere in the output of "/bin/mount" (device, mount point, options),
 *              as a basic regular expression
 * @return 1 when it is found; 0 when not, and for a text that is NULL, holds a single quote or is
 *         longer than 107 characters, or 105 when it starts with "-"
 */
PROD_API int prod_check_mount_exist(const char *text);

/** 1 when the kernel knows a network interface of that name; else 0, also for NULL. */
PROD_API int prod_check_device_exist(const char *ifname);

/**
 * Whether an interface is a port of a bridge, as the kernel's legacy bridge control call tells.
 * Only the first 32 ports of a bridge are looked at.
 * @return 1 when it is; 0 when not, for a NULL argument, and when the kernel does not answer
 */
PROD_API int prod_check_device_in_bridge(const char *ifname, const char *bridge);

/**
 * Whether a USB partition is mounted: 1 when "/proc/mounts" names "/etc/upan/<name>", exactly;
 * else 0, also for NULL.
 */
PROD_API int check_dir_is_mounts(const char *name);

/**
 * Finds the USB partitions that are mounted: the entries of "/var/etc/upan" that
 * check_dir_is_mounts() confirms. Waits one second and tries once more when that folder is not
 * there.
 *
 * @param out   the names are appended to the text that stands in it, each followed by "~", as far
 *              as there is room; pass it empty. NULL only counts.
 * @param size  bytes of @p out
 * @return how many there are, also those that @p out has no room for
 */
PROD_API int find_usb_partitions(char *out, int size);

/**
 * Replaces one item of a rule text, in which items are separated by delimiters; empty items do not
 * count.
 *
 * @param pRule       the rule, changed in place: PROD_RULE_SIZE bytes. Only its first 2307
 *                    characters are looked at, and what the result has beyond 2307 is cut.
 * @param pDelimiter  the characters that separate items
 * @param iItemIndex  which item, counted from 0; beyond the last one nothing is changed
 * @param pItem       the new item; an empty one removes the item and the delimiter after it
 *
 * A NULL argument ("arg is null.") and a negative index ("index is error.") are logged at level 2,
 * module "prod", and change nothing.
 */
PROD_API void check_modify_item_in_rule(char *pRule, const char *pDelimiter, int iItemIndex,
                                        const char *pItem);

/**
 * Moves a stored time forward and commits the configuration: stores the time of the device's zone
 * ("sys.timezone", in which 12 stands for no offset) plus 2, or, when the stored time is not
 * before that, the stored time plus 2. It never goes back and grows by at least 2.
 * @param key  the configuration key; NULL does nothing
 */
PROD_API void update_timestamps(const char *key);

PROD_END

#endif
