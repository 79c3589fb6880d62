/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The audit trail of user access: the record that the logging daemon stores, the wording of its
 * message, and the USB partition that the trail is kept on.
 *
 * All functions may be called from any thread. What they log goes to module "prod".
 */
#ifndef PROD_COMMON_AUDIT_LOG_H
#define PROD_COMMON_AUDIT_LOG_H

#include "prod_common_types.h"

/** Bytes of a worded message. */
#define PROD_AUDIT_MSG_SIZE 256

/** One record of the trail. */
typedef struct {
    unsigned char mac_addr[32];    /**< the user's MAC address as text */
    char ipaddr[32];               /**< the user's IP address as text */
    uint32_t appid;                /**< what the record is about, see
                                        fill_audit_log_msg_by_appid() */
    char msg[PROD_AUDIT_MSG_SIZE]; /**< the worded message */
} audit_save_log_info, audit_save_log_info_struct;

PROD_BEGIN

/**
 * How long a user has stayed: "[%d]day [%d]hour [%d]minute [%d]second".
 *
 * @param on_time  the device's up-time in seconds when the user came; one that is still to come
 *                 gives negative numbers
 * @param msg      receives the text; all its bytes are zeroed first
 * @param msg_len  bytes of @p msg; a longer text is cut
 * @return 1; 0 and @p msg untouched for an @p on_time of 0 or less (logged at level 2 as "invalid
 *         param") and without room
 */
PROD_API int fill_stay_str_by_ontime(int on_time, char *msg, int msg_len);

/**
 * The local time, "%d-%02d-%02d %02d:%02d:%02d " with a blank at its end.
 * @param buff      receives the text; untouched when the local time cannot be had
 * @param buff_len  bytes of @p buff, 32 hold it all; a longer text is cut
 */
PROD_API void audit_log_get_time(char *buff, int buff_len);

/**
 * Words a message in place, by what it is about, with the local time behind it:
 *
 *     4, 9, 10   "user %s time:%s"
 *     5          "user staying:%s time:%s"
 *     6          "user sms auth info:%s time:%s"
 *     7          "user web auth info:%s time:%s"
 *     8          the empty text
 *
 * @param msg      the caller's text, replaced by the message; all its bytes are zeroed first
 * @param msg_len  bytes of @p msg; a longer message is cut, at 255 characters in any case
 * @return 1 when worded; 0 and @p msg untouched for any other @p app_id ("app_id[%d] invalid
 *         param") and for NULL ("invalid param"), both logged at level 2, and without room
 */
PROD_API int fill_audit_log_msg_by_appid(uint32_t app_id, char *msg, int msg_len);

/**
 * Fills a record, zeroed first. @p msg is worded in place by fill_audit_log_msg_by_appid(); a text
 * that it refuses goes into the record as it is.
 *
 * @param log_info  the record
 * @param mac       31 characters of it count
 * @param ip        31 characters of it count
 * @param app_id    the kind of application, as fill_audit_log_msg_by_appid() takes it
 * @param msg       255 characters of it count
 * @param msg_len   bytes of @p msg, beyond which nothing of it is looked at; 0 and less leave it
 *                  unworded, and its NUL is then its end
 * @return 1; 0, logged at level 2 as "invalid param", when a pointer is NULL
 */
PROD_API int fill_audit_log_info(audit_save_log_info *log_info, const char *mac, const char *ip,
                                 uint32_t app_id, char *msg, int msg_len);

/**
 * Chooses the partition of the trail: the first, in alphabetical order, of the folders in
 * "/var/etc/upan" that hold a file system with blocks and that check_dir_is_mounts() confirms. Its
 * name is stored under "audit.usb.storage.dir" and committed. Folders that cannot be queried, and a
 * "/var/etc/upan" that cannot be listed, are logged at level 2.
 * @return 1 when there is one, else 0 and the setting stays
 */
PROD_API int audit_log_set_new_usb_dir(void);

PROD_END

#endif
