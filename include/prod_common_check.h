/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Checks that daemons make before they act: whether an address range clashes with one that the
 * device serves, and which would not; presence checks, each answered from the kernel's view at the
 * moment of the call. The settings that follow the LAN to another network; and two small edits, of
 * a rule text and of a stored time. All functions may be called from any thread.
 */
#ifndef PROD_COMMON_CHECK_H
#define PROD_COMMON_CHECK_H

#include "platform/database.h"
#include "prod_common_types.h"

/** Bytes that a rule text of check_modify_item_in_rule() needs. */
#define PROD_RULE_SIZE 2308

/** Ranges that a set has room for; also the result of a clash scan that could not be made. */
#define PROD_CONFLICT_SET_SIZE 100

/** What an address range serves. */
typedef enum {
    PROD_CONFLICT_IP_LAN = 0,
    PROD_CONFLICT_IP_PORTAL = 1,
    PROD_CONFLICT_IP_GUEST = 2,
    PROD_CONFLICT_IP_PPPoES = 3, /**< the PPPoE server's clients */
    PROD_CONFLICT_IP_QVLAN = 4,  /**< for callers: never among the configured ranges */
    PROD_CONFLICT_IP_PPTP_SERVER = 5,
    PROD_CONFLICT_IP_L2TP_SERVER = 6,
    PROD_CONFLICT_IP_WAN = 7, /**< for callers: never among the configured ranges */
    PROD_CONFLICT_IP_MAX = 8  /**< a range under test, which is none of these */
} PROD_CONFLICT_IP,
    PROD_CONFLICT_IP_ENUM;

/** One address range: a host in it, and its mask. */
typedef struct {
    PROD_CONFLICT_IP_ENUM type;
    int id;        /**< the caller's own */
    char ip[16];   /**< dotted quad; an empty one and "0.0.0.0" clash with nothing */
    char mask[16]; /**< dotted quad */
} PROD_IP_CONFLICE, PROD_IP_CONFLICT_STRU;

PROD_BEGIN

/* ---- address ranges that clash ------------------------------------------------------------- */

/**
 * Lists the ranges that are configured, in this order, each as far as its address is set:
 * the LAN ("lan.ip", "lan.mask"), the portal ("lan.portal_ip", /24), the guest network
 * ("wl.guest.dhcps_ip", "wl.guest.dhcps_mask"), the PPPoE server (the second field of
 * "pppoeserver.info", a /16), the PPTP server ("pptp.ser.pptpdserver", /24) and the L2TP server
 * ("l2tp.ser.l2tpdserver", /24).
 *
 * @param set  PROD_CONFLICT_SET_SIZE ranges, zeroed; type, address and mask of the first ones are
 *             written. NULL is logged at level 2, "arg is null.".
 * @return how many there are: 0 to 6
 */
PROD_API int check_get_conflict_ip_list(PROD_IP_CONFLICT_STRU *set);

/**
 * The index of the first range of a kind. Each range before it is reported at level 2,
 * "no enum found. ".
 * @param type  the kind
 * @return @p maxNum when there is none; also for a kind above 8, a NULL @p set and a @p maxNum of
 *         0, logged at level 2, "param error.."
 */
PROD_API int get_specific_ip_id(PROD_CONFLICT_IP_ENUM type, const PROD_IP_CONFLICT_STRU *set,
                                int maxNum);

/**
 * Looks for the first range of a set that shares addresses with another range; logs it at level 4.
 *
 * @param MaxNum      ranges in @p set, 99 at most
 * @param exceptType  the kind of the range under test: ranges of that kind do not count
 * @return its index; @p MaxNum when there is none. 100, logged at level 2, for an argument that is
 *         NULL and for an address or mask that is empty or "0.0.0.0" ("param error.."), and for a
 *         @p MaxNum above 99 ("max num is large.")
 */
PROD_API int prod_check_conflict_with_ip_set(const char *ip, const char *mask,
                                             const PROD_IP_CONFLICT_STRU *set, int MaxNum,
                                             PROD_CONFLICT_IP_ENUM exceptType);

/**
 * Finds an address at which a range would clash with nothing: from its own one on, network after
 * network of whichever is wider, the range or the one that is in the way.
 *
 * @param item    the range to move; not changed
 * @param set     what must not be in the way; ranges of the kind of @p item never are
 * @param setNum  ranges in @p set; no search is made in more than 99
 * @param newIp   16 bytes; the address with the range's own host number, its present one when that
 *                clashes with nothing. When the address space ends before the search does, that is
 *                logged at level 2 and the last address tried is written.
 *
 * A NULL @p item, @p set or @p newIp and a kind above 8 are logged at level 2, "param error.", and
 * change nothing.
 */
PROD_API void get_ip_conflict_new_ip(const PROD_IP_CONFLICT_STRU *item,
                                     const PROD_IP_CONFLICT_STRU *set, int setNum, char *newIp);

/**
 * Whether a range that the device is about to take clashes with a configured one, and where that
 * one could go.
 *
 * The proposal keeps away from the range under test, which takes the place of the first
 * configured range, and from all the others. So when not the first one (the LAN) is in the way,
 * the proposal also leaves that range's own network, but may be in the LAN's.
 *
 * @param item   the first configured range that is in the way
 * @param NewIp  16 bytes; the proposed address for it
 * @return 0 when nothing is in the way, 1 when something is; both outputs are written only then.
 *         2 for a NULL argument and an empty address or mask, logged at level 2, "param error.".
 */
PROD_API int prod_check_ip_conflict(const char *ip, const char *mask, PROD_IP_CONFLICT_STRU *item,
                                    char *NewIp);

/**
 * Asks whether a configured range must move because another configured one is in its way.
 * @param type   its kind; above 8, or PROD_CONFLICT_IP_QVLAN, is logged at level 2,
 *               "param error.", and changes nothing
 * @param newIp  16 bytes; its new address, or the empty text when it may stay or is not
 *               configured. NULL as a wrong kind.
 */
PROD_API void check_ip_conflict_change_itself(PROD_CONFLICT_IP_ENUM type, char *newIp);

/**
 * Whether a text that a user typed is the address of a host: four numbers between three dots, the
 * first from 1 to 223, the others to 255, the last to 254. Only its first 16 characters count, and
 * what stands behind the fourth number does not.
 * @return 0 when it is; 1 when not, logged at level 2 ("error: Points' number != 3",
 *         "error: Points' number != 4" for numbers that are missing, "IPAddress invalid."), and
 *         for NULL
 */
PROD_API int prod_check_ip(const char *ip);

/**
 * A coarse screen for text on its way into a command: 1 when it holds none of ";", "&", "|" and
 * the back-quote; 0 when it does, and for NULL. Dollar signs, quotes, redirections and line breaks
 * pass, so it does not make a text safe by itself.
 */
PROD_API int prod_system_param_valid(const char *str);

/**
 * Builds the address with a host number in the network of another one.
 *
 * @param ipAddr  an address of the network; text that is none counts as 255.255.255.255
 * @param mask    the network's mask, read likewise
 * @param hostId  host byte order; bits beyond the mask are not cut
 * @param outIp   16 bytes
 * @return 0; -1 for a NULL argument, logged at level 2, "arg is null."
 */
PROD_API int check_get_new_ipaddr_by_hostid(const char *ipAddr, const char *mask, uint32_t hostId,
                                            char *outIp);

/* ---- the LAN moves ------------------------------------------------------------------------- */
/*
 * When the LAN gets another address or mask, every setting that names a LAN host follows it:
 * records of the database "default" and configuration keys, which are written by the tracked
 * SetValue() and not committed. A host keeps its host part and gets the network part of the LAN:
 *
 *     moved = (host & ~old mask) + (LAN & new mask)
 *
 * calculated on the 32-bit values as inet_addr() gives them. Text that is no address stays as it
 * is, as does a record of another form than its reader expects. Lists count to 4096, WANs to 64.
 * What cannot be stored is passed over: a move that is cut short leaves earlier settings moved and
 * later ones not. So a move is not to be repeated for what has moved already.
 */

/** A DHCP pool: each a dotted quad. */
typedef struct {
    char start_ip[16];
    char end_ip[16];
    char mask[16];
    char gateway[16];
    char dns1[16];
    char dns2[16];
} DHCPS_RULE;

/**
 * Moves everything of the LAN: the pool first, by check_lanip_change_sync_dhcps(), and, when
 * @p ip is another text than @p oip, the rest in the order of the functions below. Nothing is moved
 * when the table "dhcps-list" has no row for the interface "br0", or an argument is NULL.
 *
 * The caller stores "lan.ip" and "lan.mask", gives the LAN its address and restarts its DHCP
 * server.
 *
 * @param ip, mask    new address and mask of the LAN, dotted quads
 * @param oip, omask  the old ones
 */
PROD_API void prod_check_change_lanip_handle(const char *ip, const char *mask, const char *oip,
                                             const char *omask);

/**
 * Moves a DHCP pool, a row of "dhcps-list": its gateway and main DNS become the LAN's address. With
 * another address start and end follow, their host part cut by the new mask; with another mask they
 * become the first and the last host address, and the row gets the mask. An end that is the LAN's
 * own address moves inwards by one; a mask without host addresses leaves both ends alone. With
 * another address and for the row of "br0" the static leases follow, too: the addresses in front of
 * "dhcps.Staticip1" to "dhcps.Staticnum". What stands behind a blank in a lease is lost.
 *
 * All addresses and masks as inet_addr() gives them.
 *
 * @param uLanIp, uLanMask        the LAN's new address and mask
 * @param uOldLanIp, uOldLanMask  the old ones
 * @param uindex  id of the row; one that is missing is logged at level 2, "ifname is not exist!"
 */
PROD_API void check_lanip_change_sync_dhcps(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanIp,
                                            uint32_t uOldLanMask, unsigned int uindex);

/**
 * Moves the DMZ host of each WAN, "wan%d.dmzip". The DMZ is switched off ("wan%d.dmzen") when its
 * host is now the LAN's own address or outside of the LAN.
 * @param uLanIp, uLanMask  the LAN's new address and mask
 * @param uOldLanMask       its old mask
 */
PROD_API void check_lanip_change_sync_dmz(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask);

/**
 * Moves the address that may manage the device, "lan.webip", unless that is 0.0.0.0, and switches
 * its restriction off ("lan.webipen") when it is now outside of the LAN.
 * @param uLanIp, uLanMask  the LAN's new address and mask
 * @param uOldLanMask       its old mask
 */
PROD_API void check_lanip_change_sync_lan_control(uint32_t uLanIp, uint32_t uLanMask,
                                                  uint32_t uOldLanMask);

/**
 * Moves the hosts of the port-forwarding rules, the rows of "port-map", in one series under the
 * table's lock. Their daemon keeps these addresses in its own byte order: moved is
 * htonl((ntohl(host) & ~old mask) + (LAN & new mask)), so that on a little-endian machine
 * 192.168.0.100 follows a LAN of 192.168.1.1/24 to 192.1.168.192.
 * @param uLanIp, uLanMask  the LAN's new address and mask
 * @param uOldLanMask       its old mask
 */
PROD_API void check_lanip_change_sync_virtual(uint32_t uLanIp, uint32_t uLanMask,
                                              uint32_t uOldLanMask);

/**
 * Moves the hosts of the source-NAT rules, "ADDRESS;REST" in "adv.snat.list1" to
 * "adv.snat.listnum". 255 characters of a rule count, of its rest what stands before a blank.
 * @param uLanIp, uLanMask  the LAN's new address and mask
 * @param uOldLanMask       its old mask
 */
PROD_API void check_lanip_change_sync_nat(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask);

/**
 * Moves the log servers, "adv.logs.list1" to "adv.logs.listnum", as the source-NAT rules.
 * @param uLanIp, uLanMask  the LAN's new address and mask
 * @param uOldLanMask       its old mask
 */
PROD_API void check_lanip_change_sync_logserver(uint32_t uLanIp, uint32_t uLanMask,
                                                uint32_t uOldLanMask);

/**
 * Moves the hosts that are bound to a MAC, the rows of "ip-mac-bind", each by itself. A host whose
 * new address another row has stays as it is.
 * @param uLanIp, uLanMask  the LAN's new address and mask
 * @param uOldLanMask       its old mask
 */
PROD_API void check_lanip_change_sync_ipmac_bind(uint32_t uLanIp, uint32_t uLanMask,
                                                 uint32_t uOldLanMask);

/**
 * The tables of the database "default" that name LAN hosts, each opened on first use and good for
 * the whole process. A table that cannot be opened is tried again at the next call.
 * @return NULL when it cannot be opened
 *
 * "dhcps-list", the DHCP pools. Columns: "enable" int, "interface" text of 9 characters, unique,
 * then texts of 15 characters "start ip", "end ip", "gateway", "mask", "lease" int, and again
 * "main dns", "sec dns".
 */
PROD_API db_table *get_dhcps_list_table(void);

/**
 * "port-map", the port-forwarding rules. Columns: "enabled" int, "ip" text of 15 characters,
 * "protocol" int, "wan" int, "inner-port" and "outer-port" texts of 127, "name" of 63.
 */
PROD_API db_table *get_port_map_table(void);

/**
 * "ip-mac-bind", the addresses that are bound to MACs. Columns: "ip" text of 15 characters, unique,
 * "mac" of 17, unique, "remark" of 99.
 */
PROD_API db_table *get_ip_mac_bind_table(void);

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
 * Whether a USB partition is mounted: 1 when a line of "/proc/mounts" holds "/etc/upan/<name>"
 * with a blank or the line's end behind it, whatever stands in front; else 0, also for NULL. Of a
 * line 255 characters count, the rest is the next line.
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
 * before that, the stored time plus 2. It never goes back and grows by at least 2, as long as it is
 * below 2^63: a larger one reads as 2^63 - 1.
 * @param key  the configuration key; NULL does nothing
 */
PROD_API void update_timestamps(const char *key);

PROD_END

#endif
