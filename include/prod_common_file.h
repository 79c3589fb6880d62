/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The state that other daemons leave in files: WAN addresses, rates, connection times and DNS
 * servers; the lists of the status pages; and the small file helpers. All log under module "prod".
 *
 * Every function may be called from any thread. Those that log at all write entry and exit traces
 * at level 5, the exit trace only on success; the file helpers write none.
 *
 * The number in a file's name is the WAN id, 1 to 4:
 * - "/etc/wan%d.ini": the WAN's addresses, lines "ip=", "mask=", "gateway=", "dns1=", "dns2=" with
 *   a dotted quad each, written by file_wan_ip_save(), read in any order among other lines;
 * - "/etc/wan%d2.ini": the same for the second access of a double-access WAN;
 * - "/etc/conntime%d": the system up-time in seconds at which the connection came up;
 * - "/etc/dns%d": one DNS server a line.
 *
 * The lists of the status pages come from:
 * - "/proc/net/route", the kernel's IPv4 routes, and "/var/static_route", which each query has the
 *   shell write anew from the routing table "staticroute";
 * - "/var/upnpmap", the UPnP daemon's mappings, six fields a line with ";" between: external host
 *   and port, internal host and port, protocol, description;
 * - "/var/logs.txt", the log daemon's entries, "DATE;TYPE;MESSAGE" a line, the oldest first.
 */
#ifndef PROD_COMMON_FILE_H
#define PROD_COMMON_FILE_H

#include "prod_common_types.h"

/** Addresses of a WAN, dotted-quad texts. */
typedef struct {
    char wan_ip[16];
    char wan_mask[16];
    char wan_gw[16];
    char wan_dns1[16];
    char wan_dns2[16];
} WAN_IP_INFO, WAN_IP_INFO_STRU;

/** Rates of a WAN with two decimals, in 1024 bytes a second. */
typedef struct {
    char up_flow[64];
    char down_flow[64];
} WAN_INFO_FLOW, WAN_INFO_FLOW_STRU;

/** Everything a status page shows of a WAN. */
typedef struct {
    HLX_WAN_LINK_STATUS_ENUM link_status;
    WAN_IP_INFO_STRU ip_info;
    WAN_IP_INFO_STRU double_ip_info; /**< second address set of a double-access WAN */
    WAN_INFO_FLOW_STRU flow;
    char conntime[32]; /**< seconds since the connection came up */
} WAN_STATUS_INFO, WAN_STATUS_INFO_STRU;

/** What the LAN's own DHCP client got, dotted-quad texts. */
typedef struct {
    char lan_ip[16];
    char lan_mask[16];
    char lan_gw[16];
    char lan_dns1[16];
    char lan_dns2[16];
} LAN_DHCPC_IP_INFO, LAN_DHCPC_IP_INFO_STRU;

/** One route. */
typedef struct {
    char dstip[16];   /**< dotted quad, for static routes also a word such as "default" */
    char mask[16];    /**< dotted quad */
    char gateway[16]; /**< dotted quad, "0.0.0.0" when there is none */
    char ifname[16];
    int metric; /**< 0 for static routes */
} ROUTE_TABLE_ITEM, ROUTE_TABLE_ITEM_STRU;

/** One UPnP port mapping, as the UPnP daemon writes it; a longer field is cut. */
typedef struct {
    char ex_host[16];
    char ex_port[8];
    char in_host[16];
    char in_port[8];
    char protocol[8];
    char desc[64]; /**< with its line's newline */
} UPNP_ITEM_INFO, UPNP_ITEM_INFO_STRU;

/** The first UPnP port mappings. */
typedef struct {
    int count;
    UPNP_ITEM_INFO_STRU upnp_item[128];
} UPNP_LIST_CFG, UPNP_LIST_CFG_STRU;

/** What an entry of the system log is about. */
typedef enum {
    LOG_ALL = 0, /**< in a query: entries of every type */
    LOG_SYSTEM = 1,
    LOG_WEB_CLS_FILTER = 2,
    LOG_WAN1 = 3,
    LOG_WAN2 = 4,
    LOG_WAN3 = 5,
    LOG_WAN4 = 6,
    LOG_DBG = 7,
    LOG_LAN_DHCP = 8,
    LOG_WISP_DHCP = 9,
    LOG_CLEAR = 10,
    LOG_RELOAD = 11,
    LOG_ERROR = 12,
    LOG_MAX = 13
} LOG_SYS_TYPE;

/** One entry of the system log; a longer date or message is cut. */
typedef struct {
    char order[16]; /**< empty */
    char date[32];
    int type; /**< a LOG_SYS_TYPE */
    char msg[256];
} SYSLOG_LIST, SYSLOG_LIST_STRU;

PROD_BEGIN

/* ---- files of the WANs --------------------------------------------------------------------- */

/** Address files by WAN id - 1: "/etc/wan1.ini" to "/etc/wan4.ini", then an empty entry. */
PROD_API extern const char g_wan_ip_info[5][16];

/** Double-access address files: "/etc/wan12.ini" to "/etc/wan42.ini", then an empty entry. */
PROD_API extern const char g_wan_ip_info2[5][16];

/** WAN daemons' own files: "/etc/wan1.cfg" to "/etc/wan4.cfg", then an empty entry. */
PROD_API extern const char g_wan_cfg_file[5][16];

/**
 * Writes a WAN address file, replacing what was there. What a full disk does not take is lost
 * without a report.
 * @param ip_info  the addresses
 * @return HLX_OK; HLX_ERR, logged at level 2, for a NULL argument and when the file cannot be
 *         opened
 */
PROD_API HLX_RETURN_CODE file_wan_ip_save(const char *file_name, const WAN_IP_INFO_STRU *ip_info);

/**
 * Reads a WAN address file. A key that is missing or empty, also because there is no file, gives
 * "0.0.0.0"; a value is cut at 15 characters.
 * @param ip_info  untouched, and "arg is null." logged at level 2, when an argument is NULL
 */
PROD_API void file_get_ip_info_from_ini(const char *file_name, WAN_IP_INFO_STRU *ip_info);

/**
 * Addresses of a WAN, read as by file_get_ip_info_from_ini().
 * @return HLX_OK, also without a file; HLX_ERR, logged at level 2, for a WAN id that is not 1 to 4
 *         or a NULL @p ip_info
 */
PROD_API HLX_RETURN_CODE file_wan_ip_info_get(WAN_ID_NUM_ENUM wan_id, WAN_IP_INFO_STRU *ip_info);

/**
 * Second addresses of a double-access WAN. As file_wan_ip_info_get(); a NULL @p ip_info also
 * prints a line of dashes with the function and the source line.
 */
PROD_API HLX_RETURN_CODE file_wan_get_extra_ip_info(WAN_ID_NUM_ENUM wan_id,
                                                    WAN_IP_INFO_STRU *ip_info);

/**
 * Addresses of a WAN as its file has them: what is missing or empty stays empty, values are cut at
 * 15 characters and at a carriage return.
 * @param info  cleared once the file could be read; untouched otherwise
 * @return 1 when at least one key had a value, else 0 (also for a NULL @p info)
 */
PROD_API int get_wan_info_by_id(int wanid, WAN_IP_INFO_STRU *info);

/**
 * Present rates of a WAN, from the kernel's traffic module; waits as long as
 * km_wan_statistic_get_wan_flow() does.
 *
 * The module's answer is printed to standard output when the level of module "kjson" is above 2.
 *
 * @param flow  cleared first; "0.00" twice for a WAN that the module does not know
 * @return HLX_OK; HLX_ERR for a NULL @p flow and, logged at level 2, when the rates cannot be had
 */
PROD_API HLX_RETURN_CODE file_wan_flow_get(int wan_id, WAN_INFO_FLOW_STRU *flow);

/**
 * The number at the start of a connection-time file.
 * @return 0 when there is none, @p fname is NULL, or, logged at level 2, the file cannot be opened
 */
PROD_API int file_wan_get_up_time(const char *fname);

/**
 * Seconds since a connection came up: the present up-time minus the file's number. Negative when
 * the file tells of a time to come.
 * @param conntime  32 bytes; receives decimal text, "0" when the file has no number above 0
 */
PROD_API void file_wan_conntime_get(const char *file_name, char *conntime);

/**
 * DNS servers of a WAN: the first two lines of "/etc/dns%d" with at least 7 characters.
 * @param dns1  32 bytes, since a line of 31 characters is copied whole; "0.0.0.0" without a server
 * @param dns2  the same for the second server
 */
PROD_API void get_dns_by_wanid(int wanid, char *dns1, char *dns2);

/**
 * Everything a status page shows of a WAN.
 *
 * For a connected WAN the record gets its addresses, the second set only when its file exists, the
 * rates, which may take file_wan_flow_get() a while, and the connection time; a part that cannot be
 * had is logged at level 2 and left out. In any other state addresses become empty, rates and
 * connection time "0". double_ip_info keeps what the caller put there unless the second set was
 * read.
 *
 * @param l2_type     only HLX_L2TYPE_WIRED is served
 * @param con_type    HLX_WAN_CONNECT_BUTT is accepted
 * @param wan_status  the record
 * @return HLX_OK; HLX_ERR, logged at level 2, for an argument out of range or NULL, and for
 *         another layer-2 type
 */
PROD_API HLX_RETURN_CODE file_wan_status_info_get(HLX_L2TYPE_ENUM l2_type,
                                                  HLX_WAN_CONNECT_TYPE_ENUM con_type,
                                                  WAN_ID_NUM_ENUM wan_id,
                                                  HLX_SYS_WORK_MODE_ENUM sys_mode,
                                                  WAN_STATUS_INFO_STRU *wan_status);

/* ---- file helpers ------------------------------------------------------------------------- */

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
 * @return 1 when the file was read, also when less came than its size (logged at level 3); 0 for a
 *         NULL name or @p data (silently), for a path that cannot be looked up or is not a regular
 *         file (logged at level 3), and, logged at level 2, for a file that cannot be opened or
 *         that memory does not hold. @p data is then untouched, or NULL for want of memory.
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
 * logged at level 2; NULL does nothing.
 */
PROD_API void touch_file(const char *filename);

/* ---- routes and UPnP mappings ------------------------------------------------------------- */

/**
 * How many routes there are, for the caller of file_get_route_table_list().
 *
 * Counting ends at a line of the kernel's table that is no route, and at a static one of fewer than
 * 16 characters. Runs "ip route ls table staticroute > /var/static_route" and waits for it.
 *
 * @return the kernel's routes and the static ones; the kernel's alone, logged at level 2, when the
 *         static ones cannot be read; 0, logged at level 2, without the kernel's table
 */
PROD_API int file_get_route_list_num(void);

/**
 * The routes: first the kernel's, then the static ones, which the same command as for
 * file_get_route_list_num() writes. Lines of the kernel's table that are no route are left out,
 * hexadecimal numbers beyond 32 bits count as FFFFFFFF. A static route has its destination in front
 * of the first "/" of its line, or as its first word.
 *
 * @param route_table  room for @p len records, cleared first; what is not filled stays zero
 * @param len          with less than 1 nothing is written, and the files are opened all the same
 * @return HLX_OK; HLX_ERR, logged at level 2, for a NULL @p route_table and when a file cannot be
 *         opened; the records then hold what was read before
 */
PROD_API HLX_RETURN_CODE file_get_route_table_list(ROUTE_TABLE_ITEM_STRU *route_table, int len);

/**
 * The first 128 UPnP port mappings.
 *
 * Every line counts, of 255 characters at most; the rest of a longer one counts as the next. Fields
 * from the first empty one on are empty. The last field ends at a ";" or behind the newline.
 *
 * @param upnp_list  records beyond its count are left as they are; untouched on failure
 * @return HLX_OK, also without mappings; HLX_ERR, logged at level 2, for a NULL @p upnp_list and
 *         when the file cannot be opened
 */
PROD_API HLX_RETURN_CODE file_get_upnp_list(UPNP_LIST_CFG_STRU *upnp_list);

/* ---- DHCP clients and neighbours ---------------------------------------------------------- */

/**
 * The clients of the DHCP server, from its lease file "/etc/dhcps.leases": one client a line of at
 * most 1023 characters, as scanf's "%*[^ ] %[^ ] %[^ ] %*[^*|:] %*[^ ] %[^\n]" takes it apart into
 * MAC, address and host name.
 *
 * MAC and address are cut at 17 and 15 characters, the host name at 63 bytes. A host name in GBK
 * comes in UTF-8, one that cannot be converted as it stands; a client that gave none has "(null)".
 * A line without a MAC is an empty record. Records of lines that vanish while the file is read stay
 * empty; lines that are added are left out.
 *
 * The file is read under a read lock of all of it. When another process has a lock in the way,
 * which is logged at level 2, the file is read without one: a reader never waits for the server.
 *
 * @param pplist  receives a malloc'ed block of the records, which the caller frees; untouched when
 *                there are none
 * @return how many records there are; 0 also for a NULL @p pplist (silently), for want of memory
 *         (logged at level 2), and when the file cannot be opened (level 3)
 */
PROD_API int file_get_dhcps_clients_list(DHCPS_CLIENT_LIST_STRU **pplist);

/**
 * What the LAN's own DHCP client got, when the LAN takes its address from another router:
 * "/etc/lan.cfg" starts with 1 as long as there is a lease, and "/etc/lan.ini" has lines "ip=",
 * "mask=", "gateway=", "dns1=" and "dns2=" in any order.
 *
 * A missing line, also because there is no file, gives "0.0.0.0"; an empty value stays empty,
 * unlike that of a WAN. Values are cut at 15 characters.
 *
 * @param lan_ip_info  receives them
 * @return HLX_OK; HLX_ERR for a NULL argument, without a number in "/etc/lan.cfg", for any other
 *         number than 1 (all logged at level 2), and when that file cannot be opened (level 3)
 */
PROD_API HLX_RETURN_CODE file_lan_dhcpc_get_ipinfo_and_status(LAN_DHCPC_IP_INFO_STRU *lan_ip_info);

/**
 * The IPv4 address of the neighbour with a MAC, from what "cat /proc/net/arp" prints. Entries that
 * the kernel is still asking for, with flags "0x0", do not count. The exit trace is written when
 * nothing was found.
 *
 * @param mac  in either case; its first 17 characters count
 * @param ip   16 bytes; "0.0.0.0" when there is no such neighbour
 * @return HLX_OK; HLX_ERR for none, for a NULL argument, and, logged at level 2, when the command
 *         cannot be started
 */
PROD_API HLX_RETURN_CODE find_ip_in_arpfile(const char *mac, char *ip);

/* ---- system log --------------------------------------------------------------------------- */

/**
 * Entries of the system log, the oldest first.
 *
 * Reading ends at a line that is no entry. Blank lines and blanks before a date do not count; of a
 * line of more than 4095 characters the rest is dropped; a type beyond int is the nearest int.
 * Entry, exit and failure are told to log_debug_print(), module "common_so", instead of traces.
 *
 * @param log_list  room for @p arry_len records, cleared first; what is not filled stays zero
 * @param logtype   a LOG_SYS_TYPE: only entries of that type, with LOG_ALL every one
 * @param list_num  receives the number of entries, also with an @p arry_len below 1, which gives 0;
 *                  untouched on failure
 * @return HLX_OK; HLX_ERR for a NULL argument and when the file cannot be opened
 */
PROD_API HLX_RETURN_CODE file_syslog_get_lists(SYSLOG_LIST_STRU *log_list, int logtype,
                                               int *list_num, int arry_len);

PROD_END

#endif
