/* SPDX-License-Identifier: MIT */
/**
 * @file
 * WANs: the numbers of their ports, their interfaces, their link status and the resolver file.
 *
 * An Ethernet port has four numbers. Its physical id is the switch's own, a decimal digit. Its web
 * id is its 1-based place on the front panel. A WAN port has a WAN id from 1, a LAN port a LAN id
 * from 1. "sys.ports" holds the physical ids in front-panel order; its first "wans.flag" places
 * are the WANs in the order of their ids, the rest are LANs, whose ids count from the end. With
 * "sys.ports" 43210 and "wans.flag" 1, port 4 is WAN 1 and web port 1, port 3 is LAN 4 and web
 * port 2, port 0 is LAN 1 and web port 5.
 *
 * Every call reads the configuration afresh. "sys.ports" is not validated, 31 places of it count,
 * and a port that occurs twice counts at its first place. Where 0 means "none", a port with
 * physical id 0 looks the same.
 *
 * All functions may be called from any thread, except wanid_to_vifname() (static buffer). The
 * resolver file is edited without a lock: concurrent editors can lose updates.
 */
#ifndef PROD_COMMON_WAN_H
#define PROD_COMMON_WAN_H

#include "prod_common_types.h"

PROD_BEGIN

/* ---- tables by WAN id - 1 --------------------------------------------------------------- */

/** PPP interface of each WAN: "ppp1" to "ppp4", then an empty entry. */
PROD_API extern const char pppDevName[5][8];

/** Ethernet id of each WAN, for get_eth_name(): 12 to 15, then 0. */
PROD_API extern const int wanName[5];

/** Process name of each WAN's DHCP client: "dhcpcd_wan1" to "dhcpcd_wan4". */
PROD_API extern const char g_dhcp_dial_name[4][64];

/* ---- port numbers ------------------------------------------------------------------------- */

/**
 * Physical id of a WAN's port. "wans.flag" does not count: an id beyond it gives a LAN's port.
 * @return 0 when @p wan_id is below 1 or beyond the number of ports
 */
PROD_API int wanid_to_phyid(int wan_id);

/** Physical id of a LAN's port. @return 0 when @p lan_id is below 1 or beyond the ports */
PROD_API int lanid_to_phyid(int lan_id);

/** Physical id of a port by its place on the front panel. @return 0 when there is no such place */
PROD_API int web_portid_to_phyid(int webid);

/** Place of a port on the front panel, from 1. @return 0 when there is no such port */
PROD_API int phyid_to_web_portid(int phyid);

/** 0-based place of a port in "sys.ports". @return -1 when there is no such port */
PROD_API int phyid_to_port_index(int phyid);

/** WAN id of a port. @return 0 when it is not a WAN's */
PROD_API int phyid_to_wanid(int phyid);

/** 1 when a port is a WAN's, else 0. */
PROD_API int phyid_is_wan(int phyid);

/** LAN id of a port. @return 0 when it is not a LAN's */
PROD_API int phyid_to_lanid(int phyid);

/**
 * 1 when a port is a LAN's, else 0. The number of WANs is compared as it stands: with a negative
 * "wans.flag" an unknown port counts as LAN.
 */
PROD_API int phyid_is_lan(int phyid);

/** The number in "wan<n>" or "WAN<n>", not checked for range. @return 0 for anything else */
PROD_API int wan_name_to_id(const char *name);

/**
 * WAN id of an interface: "vlan<n>" is WAN n - 1, "ppp<n>" WAN n, or n - 60 from 61 up,
 * "eth<n>.<m>" the WAN whose port has that interface name, "eth<n>" WAN n.
 * @return 0 for another name, and for a WAN that "wans.flag" does not count
 */
PROD_API int ifname_to_wanid(const char *ifname);

/**
 * VLAN id of a port, from the lines "<name> <physical id> vlan<VLAN id>" of "/etc/lan_wan_port".
 * @return the first match, 0 when there is none or the file cannot be read
 */
PROD_API int phyid_to_vid(int phyid);

/**
 * Name of the interface that carries a WAN's IPv4 traffic: "ppp<n>" for PPPoE, "ppp6<n>" when only
 * its IPv6 side dials PPPoE, else its physical interface.
 *
 * Reads "wan%d.connecttype", "ipv6.wan%d.type" and "ipv6.enable".
 *
 * @return a static buffer of 32 bytes that every thread shares and the next call overwrites; empty
 *         for a WAN without a physical interface
 */
PROD_API char *wanid_to_vifname(int wanid);

/**
 * One value of a WAN's address file "/etc/wan%d.ini", without newlines and then without blanks at
 * its ends.
 * @param value  256 bytes; untouched unless found
 * @return 1 when the key was found, else 0
 */
PROD_API int get_value_by_wanid(int wanid, const char *key, char *value);

/**
 * MAC of a WAN: "wan.mac", with one added to its fifth byte and one to its sixth, carries
 * included, for each WAN before this one. Without "wan.mac" the count starts at zero. It ends where
 * ifaddrs_mac_increase() fails, which is logged, and at the 64th WAN.
 * @param mac_str  18 bytes
 */
PROD_API void get_mac_by_wanid(int wan_id, char *mac_str);

/* ---- link status -------------------------------------------------------------------------- */

/**
 * State of a WAN.
 *
 * Gateway mode: no cable, or no interface for the connection type, is HLX_WAN_NO_WIRE; an IPv4
 * address on the interface (for WAN 1 also the file "/etc/ipv6_wan1.ini") HLX_WAN_CONNECTED; a
 * running client process ("dhcpcd_wan%d" or "pppd_wan%d" by the type, for WAN 1 also "dhcp6c")
 * HLX_WAN_CONNECTING; else HLX_WAN_NOT_CONNECTED, and always so for static
 * types. HLX_SYS_MODE_ADSL_GW is always HLX_WAN_NO_WIRE, and so is an id that is no WAN's;
 * HLX_SYS_MODE_ADSL_BR is always HLX_WAN_CONNECTED. Logs under "prod" at levels 2 and 3, with entry
 * and exit traces.
 * @param con_type  its connection type
 * @param sys_mode  the system mode
 */
PROD_API HLX_WAN_LINK_STATUS_ENUM system_wan_get_link_status(WAN_ID_NUM_ENUM wan_id,
                                                             HLX_WAN_CONNECT_TYPE_ENUM con_type,
                                                             HLX_SYS_WORK_MODE_ENUM sys_mode);

/**
 * Interface that carries a WAN's traffic in a system mode with a connection type.
 * @param sysmode  the system mode
 * @param wantype  the connection type
 * @return text of the library or, as by get_eth_name(), of the calling thread, not to be freed or
 *         changed; NULL when there is none, and, logged at level 3, for an argument out of range
 */
PROD_API char *ifaddrs_get_wan_ifname(int wanid, int sysmode, HLX_WAN_CONNECT_TYPE_ENUM wantype);

/**
 * IPv4 address of an interface.
 *
 * @param ifname   its first 15 characters count
 * @param if_addr  16 bytes; receives the dotted quad, untouched when there is no address
 * @param wan_id   for WAN 1 the file "/etc/ipv6_wan1.ini" stands for an address: the result is
 *                 then 0 even when @p if_addr was not written, so initialise it
 * @return 0 when there is an address, else -1 (also for a NULL argument)
 */
PROD_API int system_wan_ip_get(const char *ifname, char *if_addr, WAN_ID_NUM_ENUM wan_id);

/**
 * Whether an address is one of a host in the WAN's subnet.
 * @param wan_ip, wan_mask  the subnet, dotted quads
 * @param test_ip           the address
 * @return 1 when it is; 0 when it is outside, the network's own or the broadcast address; 2,
 *         logged at level 2, when an argument is NULL
 */
PROD_API int ifaddrs_compare_with_wan_ip(const char *wan_ip, const char *wan_mask,
                                         const char *test_ip);

/** A WAN's connection type, "wan%d.connecttype", as it stands. Absent is HLX_WAN_CONNECT_DHCP. */
PROD_API HLX_WAN_CONNECT_TYPE_ENUM getWanConnType(int wanid);

/** Connection type of the wireless uplink, from "wl.wisp.access_mode"; DHCP for an unknown one. */
PROD_API HLX_WAN_CONNECT_TYPE_ENUM get_wisp_connect_type(void);

/* ---- resolver file ------------------------------------------------------------------------ */

/**
 * A server of "/etc/resolv.conf".
 * @param idx     from 0
 * @param dns_ip  256 bytes (longer server names are cut); while the file is read it holds one
 *                server after the other; empty when there are fewer servers
 * @return 1 when there is one; 0 otherwise, also, @p dns_ip untouched, for a negative @p idx, a
 *         NULL @p dns_ip and a file that cannot be read
 */
PROD_API int get_dns_server_by_idx(int idx, char *dns_ip);

/** Rewrites "/etc/resolv.conf" to one second and one attempt for each server, and no server. */
PROD_API void reset_dns_cfg(void);

/**
 * Appends a server to "/etc/resolv.conf" unless its text occurs anywhere in it already: 8.8.8.8
 * counts as present beside 18.8.8.81. Does nothing when the file cannot be read.
 * @param dns  the server, a text
 */
PROD_API void add_dns_server(const char *dns);

/**
 * Moves the first server of "/etc/resolv.conf" behind all other lines.
 *
 * Empty lines vanish and the text is cut at 511 bytes, but the file is not truncated: when the
 * text became shorter, the old end of the file stays behind it.
 */
PROD_API void exchange_dns_server(void);

/** Writes "status=%d" to "/var/wisp_webpage_status", for the page of the wireless uplink. */
PROD_API void wisp_set_webpage_status(int status);

/* ---- interface name ----------------------------------------------------------------------- */

/**
 * Name of a WAN's interface in the present system mode and with its connection type.
 * @param ifname      receives a copy, cut at @p ifname_len - 1 characters; may be NULL
 * @return the name itself, as by ifaddrs_get_wan_ifname(), or NULL (@p ifname then untouched)
 */
PROD_API char *prod_common_get_wanifname(unsigned int wanid, char *ifname, unsigned int ifname_len);

/* ---- kind of access ------------------------------------------------------------------------ */

/**
 * Finds out what the line behind a WAN offers, with the programs "discovery-pppoe" and, when no
 * access concentrator answers it, "discovery-dhcp" on the interface of "port.%d.ifname".
 *
 * Each is run until it succeeds, three times at most, with a second's pause after each failure. A
 * program that cannot be started has failed, and so has a name that no interface can have, for
 * which none is started. The commands, what they print and the time they took go to standard
 * output. Blocks for at most six runs, which give up after 2 seconds each, and six pauses.
 *
 * @return HLX_WAN_CONNECT_PPPOE, HLX_WAN_CONNECT_DHCP, or HLX_WAN_CONNECT_STATIC when neither
 *         answered
 */
PROD_API int prod_detect_wan_type(int wanid);

/**
 * Whether both sides of a WAN dial PPPoE with the same account: "wan%d.connecttype" and
 * "ipv6.wan%d.type" are 2, and "wan%d.ppoe.userid" and "wan%d.ppoe.pwd" equal
 * "ipv6.wan1.pppoe.user" and "ipv6.wan1.pppoe.pwd", those of WAN 1 for every WAN. Two empty
 * accounts are the same.
 * @return 1 or 0
 */
PROD_API int pppoe_v4_as_v6(int wanid);

/* ---- name resolution ----------------------------------------------------------------------- */

/**
 * Asks one DNS server over one interface for the IPv4 addresses of a name, past the system's
 * resolver and its cache: whether a line and a server work is what the caller wants to know.
 *
 * One query, no repetition, and the first datagram that arrives is taken for the answer, whoever
 * sent it: its id and flags are not looked at. An answer is read as far as it can be.
 *
 * @param domain          the name, at most 122 characters; a dot at its end asks for an empty last
 *                        label, and "" for an empty name
 * @param interface_name  interface to send from, its first 15 characters count; NULL or "" leaves
 *                        it to the routes. Needs the right to bind to a device (CAP_NET_RAW).
 * @param dnsserver       dotted quad
 * @param ipaddr1         16 bytes
 * @param ipaddr2         16 bytes, or NULL: one address is enough
 * @param ipaddr3         16 bytes, or NULL: two are enough; not used when @p ipaddr2 is NULL
 * @return how many addresses were stored, 0 to 3, in the answer's order; the other texts are
 *         untouched. -1 on failure, after perror() with the step that failed: "create socket",
 *         "socket set send time", "socket set recv time", "bind interface", "send request" (also
 *         for a server that is no address), "recv response". -1 without a message, and nothing
 *         sent, for a NULL @p domain, @p dnsserver or @p ipaddr1, for the servers "" and "0.0.0.0",
 *         and for a longer name.
 *
 * Blocks for at most 2 seconds each for sending and for the answer.
 */
PROD_API int prod_resolve_domain(const char *domain, const char *interface_name,
                                 const char *dnsserver, char *ipaddr1, char *ipaddr2,
                                 char *ipaddr3);

/**
 * The name that the network check resolves: "netcheck.hostname" or, when that is not set,
 * "netcheck.hostname.cn" on a device that speaks Chinese and "netcheck.hostname.en" on any other.
 * @param domain  256 bytes, a longer name is cut; empty when no key is set
 * @return @p domain
 */
PROD_API char *get_netcheck_hostname(char *domain);

/* ---- bridge and switch --------------------------------------------------------------------- */

/*
 * All of these run shell commands whose results nobody looks at, one after the other without a
 * lock; commands and the file written are logged at level 4, module "prod". A value that cannot be
 * what the command needs (an interface name of 16 characters or more, or with a slash or a blank)
 * drops that one command. A port that is listed twice has its commands run twice.
 */

/**
 * Puts the interface of every LAN port into the bridge "br0" and takes that of every WAN port out,
 * whether it is there already or not: "brctl addif br0 %s" and "brctl delif br0 %s" in the order
 * of "sys.ports", with the names of "port.%d.ifname".
 */
PROD_API void update_bridge(void);

/** update_bridge() under its own name in the log. */
PROD_API void update_bridge_test(void);

/**
 * Switches one Ethernet interface to WAN operation, or back to LAN operation, with the program
 * "ethswctl", and shows the command on standard output.
 * @param enable  non-zero for WAN operation
 */
PROD_API void ethswctl_wan_switch(const char *ifname, int enable);

/**
 * ethswctl_wan_switch() for a physical port, by the interface of "ports.phy.%d.eth". Without that
 * key the command is run with an empty name.
 * @param enable  non-zero for WAN operation
 * @return 0
 */
PROD_API int ethswctl_wan_set_by_main_ifname(int phy_port, int enable);

/**
 * Makes a router of a device that was one switch: creates "br0", switches the ports of "sys.ports"
 * to WAN or LAN operation, makes all of them untagged members of the switch's VLAN, moves their
 * interfaces as update_bridge() does, gives the bridge the factory MAC ("HW_NIC0_ADDR") and the
 * address "lan.ip", and switches IPv4 forwarding on. A failing step is passed over; that of the
 * VLAN is logged at level 2.
 */
PROD_API void leave_switch_only_mode(void);

/** Restarts auto-negotiation on every LAN port, so that the hosts there ask for addresses anew. */
PROD_API void down_lan_phy_connect(void);

PROD_END

#endif
