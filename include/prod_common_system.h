/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Services of the system as a whole: working mode, brand and language, versions, DNS redirection,
 * factory restore, host names, the request/response exchange with other daemons, commands, and a
 * soft watchdog.
 *
 * All functions may be called from any thread, except system_qx_gethostbyname() and, one owner a
 * process, the soft watchdog.
 */
#ifndef PROD_COMMON_SYSTEM_H
#define PROD_COMMON_SYSTEM_H

#include "prod_common_types.h"

/** Bytes that hold any mode name of get_systerm_mode(). */
#define PROD_MODE_NAME_SIZE 9

/** Bytes that get_policy_version() needs, which is given a size and does not look at it. */
#define PROD_POLICY_VERSION_SIZE 256

/** A response of send_and_recv_from_program() must be shorter than this. */
#define PROD_RESPONSE_SIZE 512

/** Exit status of a process that its soft watchdog ended. */
#define PROD_WATCHDOG_STATUS 16

PROD_BEGIN

/**
 * What the device is in its network, from "sys.workmode", "wlan0_workmode" and "wlan1_workmode".
 *
 * @param out  receives "router", "ap", "apclient" or "wisp": PROD_MODE_NAME_SIZE bytes. Values
 *             that fit no mode give QX_ROUTE_MODE and leave @p out as it was, so zero it first.
 * @return the mode; QX_FAULT when @p out is NULL
 */
PROD_API QX_SYSMODE get_systerm_mode(char *out);

/**
 * The number stored under "sys.mode", of which 7 characters count and which need not be one of the
 * enumeration's; HLX_SYS_MODE_BUTT when the key is absent.
 */
PROD_API HLX_SYS_WORK_MODE_ENUM get_sys_mode(void);

/** Whether the device carries its own brand: always 1. */
PROD_API int brand_is_kavro(void);

/** 1 when "sys.language" is not set, empty, or "cn" in any case; else 0. */
PROD_API int lang_is_cn(void);

/* ---- versions ------------------------------------------------------------------------------ */

/**
 * The firmware's version: "/etc/prodversion.cfg" without the newlines at its end.
 * @param product_version  receives at most @p len - 1 characters
 * @return 1; 0 when the file cannot be read or is empty, and without a buffer
 */
PROD_API int get_prod_version(char *product_version, unsigned int len);

/**
 * The hardware's version, a constant of the design: "1.0.0.0".
 * @param hard_version  receives at most @p len - 1 characters; nothing is written without a buffer
 * @return 0, always: callers in the field test for it
 */
PROD_API int get_hard_version(char *hard_version, unsigned int len);

/**
 * The firmware's build number: the integer behind the first "(" of "/etc/prodversion.cfg", which
 * must not be its first character.
 * @return 0 when the file cannot be read or holds no such number
 */
PROD_API int get_svn_version(void);

/**
 * Version of the policies that the firmware brings along: in "/etc/policy_bak.cfg", the second
 * field between ";" of the first line that contains "ver", without white space around it. Of a line
 * 255 characters count, the rest is the next line.
 *
 * @param policy_version  PROD_POLICY_VERSION_SIZE bytes; untouched when no line contains "ver" or
 *                        that line has no second field, so initialise it
 * @param len             not looked at
 * @return 0; 1 when the file cannot be opened and for NULL
 */
PROD_API int get_policy_version(char *policy_version, unsigned int len);

/* ---- DNS redirection ----------------------------------------------------------------------- */

/**
 * Makes the device's name server answer for a domain with an address of the caller's choice. The
 * rule, {"Domain","Ip"}, goes to the kernel-module control, whose result is not looked at; it is
 * shown on standard output while the level of module "kjson" is 3 or more.
 *
 * A NULL argument and a rule that cannot be built are logged at level 2, module "prod", as "Failed
 * to add dns_redirect rule".
 */
PROD_API void add_dns_redirect_rule(const char *domain, const char *ip);

/** Takes such a rule back. A failure is logged as "Failed to del rule by domain". */
PROD_API void del_dns_redirect_rule(const char *domain);

/* ---- factory restore and other daemons ----------------------------------------------------- */

/**
 * Removes the databases: those under "/cfg/database", "/cfg/prod-script" and the wireless
 * managers'. Announces it on standard output.
 */
PROD_API void systool_restore_db(void);

/**
 * Puts the images that the web pages show back to those of the firmware ("/webroot_ro/
 * default_images" over "/cfg/webpush"). Announces it on standard output.
 */
PROD_API void systool_restore_pic(void);

/**
 * Factory restore: databases, images and configuration, with all LEDs on meanwhile
 * (hal_set_all_led() and "/usr/bin/led_ctrl.sh"). The restart that must follow is the caller's. A
 * configuration that cannot be restored is logged at level 2, module "prod", as "restore value is
 * fail.".
 * @return 1
 */
PROD_API int systool_restore(void);

/**
 * First IPv4 address of a host name. Blocks as long as the resolver does; not thread-safe, since
 * gethostbyname() is not.
 *
 * @param hostname  the name
 * @param ip  receives a dotted quad: 16 bytes; untouched on failure
 * @return HLX_OK; HLX_ERR for a NULL or empty name or a NULL @p ip (logged at level 3, module
 *         "prod") and for a name that has no IPv4 address (logged at level 2)
 */
PROD_API HLX_RETURN_CODE system_qx_gethostbyname(const char *hostname, char *ip);

/**
 * Sends a request to the daemon that listens on a local stream socket and takes its response.
 * Both travel as a 4-byte length in host byte order and that many bytes, without a NUL. Each call
 * uses its own connection; any thread may call.
 *
 * @param sun_path  path of the socket, of which 107 characters are used
 * @param req       the request text
 * @param resp      receives the response up to its first zero byte, padded with zero bytes to
 *                  @p resp_len. It is terminated only when that is shorter than @p resp_len. NULL
 *                  asks for no response: the connection is closed once the request is written.
 * @param resp_len  bytes of @p resp; with 0 or less nothing is copied
 * @param timeout   longest wait of each read and write in seconds; 0 or less waits without limit
 * @return 0; -1 when @p req or @p sun_path is NULL (silently), when the exchange fails, and for a
 *         response of PROD_RESPONSE_SIZE bytes or more, @p resp then untouched. Failures are
 *         logged at level 2, module "prod". A daemon that goes away raises no SIGPIPE.
 */
PROD_API int send_and_recv_from_program(const char *sun_path, const char *req, char *resp,
                                        int resp_len, int timeout);

/**
 * Runs a shell command and logs it at level 4, module "cmd".
 *
 * @param func  name of the calling function, for the log line
 * @param line  source line of the call
 * @param cmd   printf format of the command, cut at 2047 characters. Text from outside must be
 *              escaped for the shell by the caller.
 * @return the status that system() gives; -1 for a NULL @p cmd
 */
PROD_API int exec_sys_cmd(const char *func, int line, const char *cmd, ...) PROD_PRINTF(3, 4);

/**
 * Feeds the soft watchdog of the calling process: unless it is fed again within @p timeout
 * seconds, sotf_watchdog_bark() ends the process. There is one per process, since it uses SIGALRM
 * and alarm(), which then belong to it. While the level of module "watchdog" is above 3 each feed
 * prints a line and the caller's stack.
 * @param timeout  seconds; 0 switches the watchdog off, and so does a negative value
 */
PROD_API void feed_soft_watchdog(int timeout);

/**
 * What the soft watchdog does when it is not fed: says so on standard output and ends the process
 * with status PROD_WATCHDOG_STATUS, so that the process monitor starts it again. A handler of
 * SIGALRM; the odd spelling is the name that daemons know. Does not return, and does not wait for
 * a thread that holds standard output.
 * @param signo  not looked at
 */
PROD_API void sotf_watchdog_bark(int signo) __attribute__((noreturn));

PROD_END

#endif
