/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Hardware helpers: LEDs, port links, the names of the interfaces behind ports and WANs, an
 * interface's address, and commands that are tried again.
 *
 * LED_*, WLAN_RATE_* and the interface indices are those of platform/hardware.h. All functions may
 * be called from any thread.
 */
#ifndef PROD_COMMON_HAL_H
#define PROD_COMMON_HAL_H

#include "platform/hardware.h"
#include "prod_common_types.h"

/** Bytes that hold any interface name with its NUL. */
#define PROD_IFNAME_SIZE 16

PROD_BEGIN

/**
 * Switches the 2.4 GHz Wi-Fi LED.
 * @param wl_led_sta  LED_OFF switches it off unless it is off already; LED_ON switches it on only
 *                    when it is off, so that a blinking LED keeps blinking; any other pattern does
 *                    nothing
 */
PROD_API void set_24g_wifi_led(led_pattern_t wl_led_sta);

/**
 * Switches the 5 GHz Wi-Fi LED, by the rules of set_24g_wifi_led().
 * @param wl_led_sta  what it shows
 */
PROD_API void set_5g_wifi_led(led_pattern_t wl_led_sta);

/**
 * Switches both Wi-Fi LEDs.
 * @param wl_led_sta  LED_ON works only when both are off, LED_OFF unless both are off; anything
 *                    else, also LED_ON with one of them on, leaves them as they are
 */
PROD_API void set_all_wifi_led(led_pattern_t wl_led_sta);

/**
 * Switches the LED of one band or of all.
 * @param wl_led_sta  what it shows
 * @param wl_rate  WLAN_RATE_24G, WLAN_RATE_5G or WLAN_RATE_ALL; any other rate does nothing
 */
PROD_API void set_wifi_led_status(led_pattern_t wl_led_sta, WLAN_RATE_TYPE wl_rate);

/**
 * Makes the Wi-Fi LEDs show which radios are enabled. A radio whose enable key is not set counts
 * as disabled. Reads "wlan0_band", "wlan1_band", "wlan0.0_bss_enable" and "wlan1.0_bss_enable".
 */
PROD_API void set_wifi_led_by_enable(void);

/**
 * Switches the front panel's LEDs: WAN, LAN, SYS, USB (forced) and 2.4 GHz, and stops the Wi-Fi
 * LED driver ("rmmod wifi_led") so that the state stays. The 5 GHz LED is left alone. An LED that
 * cannot be set is logged at level 2, module "prod", and the others are set all the same.
 * @param on  non-zero switches on, 0 off
 */
PROD_API void hal_set_all_led(int on);

/**
 * Whether the link of a port is up.
 * @param port_id  physical port id, as the switch counts
 * @return 1 when it is; 0 when not, and, logged at level 3, module "prod", when the port cannot be
 *         read
 */
PROD_API int get_port_link_status(int port_id);

/**
 * Sets the flags of an interface and, when given, its IPv4 address, mask and broadcast address (in
 * this order; what was set before a failure stays). Needs the right to administer the network.
 *
 * @param name     interface; the first 15 characters count
 * @param flags    the new flags (IFF_UP, ...), which replace the old ones
 * @param addr     address as dotted quad, or NULL to set the flags only
 * @param netmask  mask as dotted quad, or NULL to leave mask and broadcast address alone; used
 *                 only together with @p addr
 * @return 0 on success; else the errno value, after perror(name). EINVAL for a NULL name and for
 *         text that is not a dotted quad
 */
PROD_API int ifconfig(const char *name, int flags, const char *addr, const char *netmask);

/**
 * The VLAN that carries a WAN: wan_id + 1, but for WAN 1 the value of "iptv.wan.vlanid" while
 * "iptv.enable" is non-zero.
 */
PROD_API int get_vlan_id_by_wan_id(unsigned int wan_id);

/**
 * Name of the interface of a WAN's port, from "port.<wanid>.ifname".
 *
 * @param ifname      receives the name, cut to the room there is; untouched when the key is
 *                    absent; NULL does nothing
 * @param ifname_len  bytes of @p ifname; PROD_IFNAME_SIZE hold any name
 * @return @p ifname
 */
PROD_API char *prod_common_get_phyifname(unsigned int wanid, char *ifname, unsigned int ifname_len);

/**
 * Name of the interface of a port, from "port.<port_index>.ifname".
 *
 * @param ifname      receives the name, cut to the room there is; all zero when the key is absent;
 *                    NULL does nothing
 * @param ifname_len  bytes of @p ifname; PROD_IFNAME_SIZE hold any name
 * @return @p ifname
 */
PROD_API char *prod_common_get_port_ifname(unsigned int port_index, char *ifname,
                                           unsigned int ifname_len);

/**
 * Name of the main interface of a WAN, from "port.wan<wanid>.main_ifname"; otherwise like
 * prod_common_get_port_ifname(), @p ifname_len included.
 */
PROD_API char *prod_common_get_wan_main_ifname(unsigned int wanid, char *ifname,
                                               unsigned int ifname_len);

/**
 * Name of a logical interface. WAN_1: "vlan<iptv.wan.vlanid>" while "iptv.enable" is non-zero,
 * otherwise "port.1.ifname"; WAN_2 and WAN_3: "port.2.ifname" and "port.3.ifname"; every other
 * index: what the board says.
 *
 * @param if_id  the index
 * @return static text of the calling thread, which its next call overwrites and which ends with it;
 *         for WAN_1 to WAN_3 at most 9 characters. For the others text of the board, or NULL when
 *         it has no such interface.
 */
PROD_API char *get_eth_name(eth_idx_t if_id);

/**
 * Runs a shell command until it succeeds (ends with status 0, by itself), with 200 ms after each
 * failure. The command is logged at level 4, module "cmd"; each failure prints a red line to
 * standard output, a success after a failure a green one.
 *
 * @param func    name of the calling function, for the messages
 * @param line    source line of the call
 * @param retry   how often the command is tried; 0 or less runs nothing
 * @param fmt     printf format of the command, cut at 1023 characters. Text from outside must be
 *                escaped for the shell by the caller.
 * @return 0 when the command succeeded, also when @p retry is 0 or less; 1 when every try failed
 *         and for a NULL @p fmt
 */
PROD_API int prod_common_cmd_retry(const char *func, int line, int retry, const char *fmt, ...)
    PROD_PRINTF(4, 5);

PROD_END

#endif
