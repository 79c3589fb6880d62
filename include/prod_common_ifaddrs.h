/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Interfaces and neighbours: masks, MACs and addresses turned into each other, the kernel's
 * neighbour table, what an interface has, client records, policy-routing rules.
 *
 * The neighbour table is "/proc/net/arp"; its incomplete entries (flags 0) never match except
 * where said otherwise. Nothing is kept between calls. All functions may be called from any thread
 * unless said otherwise. All log under module "prod".
 *
 * MAC texts are "%02hhX:%02hhX:%02hhX:%02hhX:%02hhX:%02hhX": 17 characters, 18 bytes. A raw MAC is
 * 6 bytes. Buffers for IPv6 texts hold 41 bytes.
 */
#ifndef PROD_COMMON_IFADDRS_H
#define PROD_COMMON_IFADDRS_H

#include <cjson/cJSON.h>
#include <netinet/in.h>

#include "prod_common_types.h"

/**
 * One client of the online-clients view. Its layout depends on the machine: 64-bit members follow
 * smaller ones, and the last two bytes are bit-fields.
 */
typedef struct {
    u8 ip[32];
    u8 mac[32];
    u16 pad;
    u32 connect;
    u32 client_type;
    u64 up_bytes;
    u64 last_up_bytes;
    u64 down_bytes;
    u64 last_down_bytes;
    u64 up_packets;
    u64 down_packets;
    u64 alive_time;
    u8 forbid;
    u8 privilege;
    u16 temp_enable;
    u32 temp_up_rate;
    u32 temp_down_rate;
    u32 max_up_rate;
    u32 max_down_rate;
    u8 port_name[2048];
    u8 url_name[2048];
    u8 app_name[2048];
    u8 qos_name[2048];
    u64 thisCalcTime;
    u64 lastCalcTime;
    u8 port_filter_flag : 2;
    u8 app_filter_flag : 2;
    u8 url_filter_flag : 2;
    u8 limit_rate_flag : 2;
    u8 share_mode : 2;
    u8 policy_mode : 2;
    u8 priority : 2;
    u8 pppoe_flag : 2;
} USER_INFO, USER_INFO_STRU;

typedef struct in6_addr in6a_t;

/** An IPv6 address of an interface. */
typedef struct {
    in6a_t ip;
    int prefix_len;
} ipv6_addr_t;

PROD_BEGIN

/**
 * Prefix length of a dotted-quad mask: its leading one bits, and only those (255.0.255.0 gives 8).
 * @return 0 to 32; text that is no address, and NULL, count as 255.255.255.255
 */
PROD_API int ipmask_to_numeric(const char *mask);

/**
 * Whether a text is an address of a host.
 * @return 1; 0 for "0.0.0.0", "255.255.255.255", NULL and text that is no address
 */
PROD_API int ipv4_is_valid(const char *ip);

/**
 * Reads a MAC text, of either case, one or two digits a field.
 * @param mac  6 bytes; a text with fewer fields fills only those
 * @return 1; 0 when an argument is NULL or not all six fields were there
 */
PROD_API int mac_str_to_bin(const char *mac_str, unsigned char *mac);

/**
 * Writes a MAC as upper-case text, cut at @p size - 1 characters.
 * @param size  bytes of @p mac_str; 18 hold the whole text
 * @return 1; 0, and nothing written, when a pointer is NULL or @p size is 0
 */
PROD_API int mac_bin_to_str(const unsigned char *mac, char *mac_str, unsigned int size);

/**
 * Name of the LAN bridge.
 * @return text of the hardware layer, not to be freed; NULL when the board has no LAN
 */
PROD_API char *ifaddrs_get_lan_ifname(void);

/**
 * MAC of a neighbour by its address.
 *
 * @p ip may be a dotted quad, or an IPv4-mapped IPv6 text ("::ffff:" and the dotted quad): what
 * stands behind its seventh character is looked for as well, and then even an incomplete entry
 * matches. An entry whose MAC cannot be read is passed over.
 *
 * @param mac  6 bytes; untouched unless found
 * @return 0 when found. Otherwise -1 for a NULL argument and for a table that cannot be opened
 *         (the latter logged at level 2), or the number of fields read from the table's last line:
 *         3 as a rule, and 0 for a table without entries, which a caller cannot tell from "found"
 */
PROD_API int ifaddrs_get_mac_by_ip(const char *ip, unsigned char *mac);

/** The same as ifaddrs_get_mac_by_ip(), with entry and exit traces. */
PROD_API int ifaddrs_get_mac_address_by_ipstr(const char *ip, unsigned char *mac);

/**
 * MAC text of a neighbour by its address, found as by ifaddrs_get_mac_by_ip().
 * @param mac_str  18 bytes; receives the text, "00:00:00:00:00:00" for an address that is not in
 *                 the table, or "0.0.0.0" when the table cannot be opened or @p ip is NULL
 */
PROD_API void ifaddrs_get_macstr_by_ip(const char *ip, char *mac_str);

/**
 * MAC text of a neighbour on the LAN: on "br0" or on a "vlan" device numbered above 9. The VLANs
 * 0 to 9 belong to the WAN side.
 * @param mac_str  18 bytes; receives the text as the table has it; untouched unless found
 * @return 1 when found, else 0; a table that cannot be opened is logged at level 2
 */
PROD_API int lan_get_macstr_by_ip(const char *ip, char *mac_str);

/**
 * Address of a neighbour by its MAC text, of either case.
 * @param ip  16 bytes; receives the address, or "0.0.0.0" when the MAC is not in the table; while
 *            the table is read it holds the address of one entry after the other
 * @return 1 when found; 0 otherwise, also for a NULL argument and, logged at level 2, for a table
 *         that cannot be opened (@p ip is then untouched)
 */
PROD_API int ifaddrs_get_ip_by_macstr(char *ip, const char *mac_str);

/**
 * MTU of an interface.
 * @param ifname  its first 15 characters count
 * @return the MTU; 1500 when it cannot be had (logged at level 2, but for a NULL name) or is 0
 */
PROD_API int get_mtu_by_ifname(const char *ifname);

/**
 * Netmask of an interface.
 * @param ifname  its first 15 characters count
 * @return the mask in network byte order; 0 when the interface has none (silently), @p ifname is
 *         NULL, or, logged at level 2, no socket can be made
 */
PROD_API uint32_t ifaddrs_get_interface_mask(const char *ifname);

/**
 * Hardware address of an interface.
 * @param ifname  its first 15 characters count
 * @param mac     6 bytes; untouched on failure
 * @return 1; 0 for a NULL argument and, logged at level 2, on failure
 */
PROD_API int get_mac_by_ifname(const char *ifname, unsigned char *mac);

/**
 * MAC text of the LAN bridge.
 * @param mac_str  18 bytes; all zeroes are written when the address cannot be had
 */
PROD_API void get_lan_mac(char *mac_str);

/**
 * Host name of the first DHCP client with that MAC, ignoring case.
 * @param dhcp_num  number of clients in the list
 * @return text inside @p dhcpList; NULL when the list is NULL or empty, @p mac is NULL, no client
 *         matches, or the one that does gave no name ("" or "(null)")
 */
PROD_API char *get_hostname_by_mac(DHCPS_CLIENT_LIST_STRU *dhcpList, int dhcp_num, const char *mac);

/**
 * Fills a client's record from the online-clients view: the first object of the array "List"
 * whose "Mac" is exactly @p mac.
 *
 * Filled are ip (cut at 31 characters), connect, up_bytes, down_bytes, last_up_bytes,
 * last_down_bytes, thisCalcTime, lastCalcTime and alive_time. Without a member the address becomes
 * empty, connect 0, and the other fields stay as they were, as they do for a text that is no
 * number. Nothing else is touched. What was found, or the whole array when nothing was, is printed
 * to standard output when the level of module "json" is above 3.
 *
 * @param online_infos  the view; only read
 * @param ip            only for the message that nothing was found
 * @return 1 when found; 0 when an argument is NULL, there is no "List", or, logged at level 3, no
 *         object matches; @p info is then untouched
 */
PROD_API int get_ip_info_by_ipmac(cJSON *online_infos, const char *ip, const char *mac,
                                  USER_INFO_STRU *info);

/**
 * Deletes the policy-routing rules that "ip rule" lists with both the priority and the table: one
 * delete command for each listed line. Runs shell commands and waits for them; uses the file
 * "/var/ip_rule_del_tmp_13579", so one process at a time.
 *
 * @param prio   priority; nothing is done when negative
 * @param table  name or number of the table; nothing is done when NULL, empty, too long for a
 *               command of 255 characters, or with a character that no table name has (blanks,
 *               quotes and whatever else the shell interprets)
 */
PROD_API void iprule_del_by_prio_and_table(int prio, const char *table);

/* ---- IPv6 ---------------------------------------------------------------------------------- */

/**
 * Prefix length of an interface's first address in "/proc/net/if_inet6" that is not link-local:
 * global, site and host scope count alike.
 * @return the length; 0 when there is none, for a NULL @p ifname and, with a red console line, when
 *         the table cannot be opened
 */
PROD_API int get_ipv6_prefix_len(const char *ifname);

/** The same for the interface's first link-local address. */
PROD_API int get_link_ipv6_prefix_len(const char *ifname);

/**
 * Text of an interface's first address in "/proc/net/if_inet6" that is not link-local. An address
 * that cannot be read is reported by a red console line and passed over.
 * @param ip  41 bytes; untouched unless found
 * @return 1 when found; 0 when there is none, for a NULL argument and, with a red console line,
 *         when the table cannot be opened
 */
PROD_API int get_ipv6_str(const char *ifname, char *ip);

/** The same for the interface's first link-local address. */
PROD_API int get_link_ipv6_str(const char *ifname, char *ip);

/**
 * All IPv6 addresses of an interface with their prefix lengths, in the order of
 * "ip -6 address show", which is run through the shell and waited for.
 * @param ifname  a text that can name no interface (longer than 15 characters, with a slash or a
 *                blank) is not asked for
 * @param addrs   @p max elements; those behind the ones counted may have been written to
 * @return the number of addresses, at most @p max; 0 for a NULL argument, a @p max below 1 and,
 *         with a red console line, when the tool cannot be started
 */
PROD_API int get_ipv6_addrs(const char *ifname, ipv6_addr_t *addrs, int max);

/**
 * Next hop of the first default route in "/proc/net/ipv6_route" that is up and does not lead to
 * "lo"; "::" for one without a gateway.
 * @param gw  41 bytes; untouched unless found
 * @return 1 when found; 0 when there is none, for a NULL @p gw and, with a red console line, when
 *         the table cannot be opened
 */
PROD_API int get_ipv6_def_gw(char *gw);

/**
 * The first two name servers of "/etc/resolv6.conf".
 * @param dns1  41 bytes
 * @param dns2  41 bytes; both receive a text as the file has it, cut at 40 characters, or the empty
 *              text
 * @return 1 when there is at least one; 0 when there is none, for a NULL argument (nothing is
 *         written) and, logged at level 3, when the file cannot be opened
 */
PROD_API int get_ipv6_dns(char *dns1, char *dns2);

/**
 * An address from a prefix and a MAC by the modified EUI-64 rule: the last eight bytes are made of
 * the MAC, then the prefix covers the start. Of a prefix length that is no multiple of 8, only the
 * last bit of the prefix's last byte is taken.
 * @param prefix_len  0 to 127
 * @param mac         6 bytes
 * @param out         untouched on failure; may be @p prefix
 * @return 1; 0 for a NULL argument or another @p prefix_len
 */
PROD_API int generate_ipv6_by_mac(const struct in6_addr *prefix, int prefix_len,
                                  const unsigned char *mac, struct in6_addr *out);

/* ---- MACs of the WANs ---------------------------------------------------------------------- */

/**
 * Adds one to a MAC, counted at byte @p c with carries towards byte 1; byte 0, the vendor's, never
 * changes. Entry and success go to the platform's log, module "common_so".
 *
 * @param mac  6 bytes
 * @param c    1 to 5
 * @return 0; -1, logged at level 2, for a NULL @p mac or another @p c (nothing changed) and when
 *         the carry leaves byte 1 (bytes 1 to @p c are then 0)
 */
PROD_API int ifaddrs_mac_increase(unsigned char *mac, int c);

/**
 * Gives each WAN interface its MAC, once, at start-up.
 *
 * The first WAN's is "wan.mac", or, when that is not set, the board's base MAC counted up past the
 * LAN bridge and every wireless BSS ("wlan0_maxbss" and "wlan1_maxbss", at most 4096 in all); each
 * next WAN's is 0x101 higher. "wan<N>.macaddr" overrides it for the interface, not for the switch;
 * one that is no MAC is ignored. "wans.flag" counts the WANs, of which at most 4 are served. While
 * "iptv.enable" is non-zero WAN 1 runs on "vlan<iptv.wan.vlanid>".
 *
 * For each WAN the shell runs "ifconfig IF down", "ifconfig IF hw ether MAC" and "ifconfig IF up",
 * unless its name can be none, and the switch is told. Only a base MAC that cannot be had stops the
 * set-up; failures are red console lines. One process at a time.
 */
PROD_API void wan_interface_addr_init(void);

/* ---- DNS servers for the relay ------------------------------------------------------------- */

/**
 * Gathers the DNS servers that the WAN side offers now as options for the device's DNS relay, one
 * " -s ADDRESS " for each, and leaves them in "/etc/dns.conf" for whoever starts the relay, without
 * a newline. A server that occurs twice is listed once. In this order:
 *
 * - those of the VPN client that is the way out, while its interface has an address:
 *   "/etc/ppp/resolv.conf.wan0" for PPTP on ppp0 ("pptp.cli.pptpEnable" and "pptp.cli.pptppxy" are
 *   1), otherwise "/etc/ppp/resolv.conf.wan45" for L2TP on ppp45 ("l2tp.cli.l2tpEnable" and
 *   "l2tp.cli.l2tppxy" are 1);
 * - for the WANs 4 to 1, and WAN 0 while a radio is a client ("wl2g.public.mode" or
 *   "wl5g.public.mode" is "apclient"), if the WAN's port has link: "wan%d.manual.dns1" and "dns2"
 *   when "wan%d.manual.dns.en" is not 0, otherwise "dns1" and "dns2" of "/etc/wan%d.ini".
 *
 * A server has 7 to 26 characters, digits of addresses (0-9 A-F a-f . : %) only, and is not
 * "0.0.0.0"; anything else is left out.
 *
 * @param dns_buf  receives the text, zeroed to its end; the option that has no room is cut. NULL
 *                 does nothing.
 * @param size     bytes of @p dns_buf; 512 hold two servers of each WAN and of a VPN, however long.
 *                 Nothing is done when it is 0 or less.
 *
 * A file that cannot be written is passed over. One process at a time.
 */
PROD_API void getAllWanDns(char *dns_buf, int size);

/**
 * Appends " -s <dns> " to a text unless the server stands in it between blanks already. The option
 * is cut at 31 characters and at the end of the text's room. Does nothing for a NULL argument and a
 * @p size below 1.
 * @param dns_buf  a text to which options were added before, or an empty one
 * @param size     bytes of @p dns_buf
 */
PROD_API void add_dns_to_buf(char *dns_buf, int size, const char *dns);

PROD_END

#endif
