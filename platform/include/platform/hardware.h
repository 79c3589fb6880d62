/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Hardware I/O: LEDs, the switch and its ports, the names of the board's Ethernet interfaces and
 * its MACs.
 *
 * No function here blocks for longer than a system call, and any thread may call any of them.
 */
#ifndef PLATFORM_HARDWARE_H
#define PLATFORM_HARDWARE_H

#include "platform/types.h"

/** LEDs and buttons of the board. */
typedef enum {
    LED_SYS = 0,
    LED_WPS = 1,
    LED_24G = 2,
    LED_5G = 3,
    LED_USB = 4,
    LED_LAN = 5,
    LED_WAN = 6,
    LED_RED = 7,
    LED_BLUE = 8,
    LED_GREEN = 9,
    LED_END = 31,
    BTN_RST = 32,
    BTN_WPS = 33,
    BTN_WIFI = 34,
    BTN_END = 63
} gpio_id_t;

/** What an LED shows. */
typedef enum {
    LED_ON = 1,
    LED_OFF = 2,
    LED_BLINK = 3,
    LED_NORMAL = 4,
    LED_FORCE_ON = 16,
    LED_FORCE_OFF = 17
} led_pattern_t;

/** Radios by band. */
typedef enum {
    WLAN_RATE_24G = 2,
    WLAN_RATE_5G = 5,
    WLAN_RATE_ALL = 7,
    WLAN_RATE_5G2 = 52
} WLAN_RATE_TYPE;
typedef WLAN_RATE_TYPE wlan_rate_type;

/** Logical Ethernet interfaces. Several names share a number on purpose. */
typedef enum {
    ETH_NM_INVALID = -1,
    LAN_1 = 0,
    LAN_2,
    LAN_3,
    LAN_4,
    LAN_MAX = 4,
    L_LAN_1 = 4,
    L_LAN_2,
    L_LAN_3,
    L_LAN_4,
    P_LAN_1 = 8,
    P_LAN_2,
    P_LAN_3,
    P_LAN_4,
    WAN_1 = 12,
    WAN_2,
    WAN_3,
    WAN_4,
    WAN_MAX = 16,
    P_WAN_1 = 16,
    P_WAN_2,
    P_WAN_3,
    P_WAN_4,
    P_WAN_MAX = 20,
    WLAN_24G_1 = 20,
    WLAN_24G_2,
    WLAN_24G_3,
    WLAN_24G_4,
    WLAN_5G_1 = 24,
    WLAN_5G_2,
    WLAN_5G_3,
    WLAN_5G_4,
    WLAN_6G_1 = 28,
    WLAN_6G_2,
    WLAN_6G_3,
    WLAN_6G_4,
    PORT_CPU1 = 32,
    PORT_CPU2 = 33,
    PORTCPU_MAX = 34,
    IPTV_LAN_1 = 35,
    IPTV_LAN_2,
    IPTV_LAN_3,
    IPTV_LAN_4,
    IPTV_WAN_1 = 39,
    IPTV_MAX = 40
} eth_idx_t;

/** State of one switch port. */
typedef struct {
    unsigned int link;   /**< 1 = a link is up */
    unsigned int speed;  /**< Mbit/s, 0 when unknown */
    unsigned int duplex; /**< 1 = full, 0 = half or unknown */
    unsigned int nway;   /**< 1 = auto-negotiation is on */
} port_status;

PLATFORM_BEGIN

/**
 * Reads what an LED shows. A forced state is read back as LED_ON or LED_OFF.
 * @param id     the LED
 * @param state  receives a led_pattern_t
 * @return 0 on success; non-zero for an LED the board does not have (and for buttons), @p state
 *         untouched
 */
PLATFORM_API int iof_gpio_get(gpio_id_t id, unsigned int *state);

/**
 * Makes an LED show @p pattern: on, off, blinking once a second, or what drives it when nobody
 * else does (LED_NORMAL). LED_FORCE_ON and LED_FORCE_OFF do what LED_ON and LED_OFF do, whatever
 * drives the LED.
 * @param id  the LED
 * @return 0 on success, non-zero for an LED the board does not have or an unknown pattern
 */
PLATFORM_API int iof_gpio_set(gpio_id_t id, led_pattern_t pattern);

/**
 * Starts (1) or resets (0) the pattern sequencing of an LED: 1 hands it to what normally drives it,
 * 0 takes it away from whatever does and leaves it off. Called with 0 before an LED is forced on or
 * off.
 * @param id     the LED
 * @param start  1 or 0
 * @return 0 on success, non-zero for an LED the board does not have
 */
PLATFORM_API int iof_gpio_set_start(gpio_id_t id, int start);

/**
 * Reads the state of a switch port.
 * @param port    physical port id, the switch's own number
 * @param status  receives the state
 * @return 0 on success, non-zero for a port the board does not have or whose interface is gone,
 *         @p status untouched; a port whose interface is switched off has no link
 */
PLATFORM_API int iof_port_status_get(int port, port_status *status);

/**
 * The name of the network interface behind a logical index. Index 0 (LAN_1) is the LAN bridge.
 * @return text of at most 15 characters that the port owns: nobody frees it, and it stays as it is
 *         until the process ends. NULL when the board has none.
 */
PLATFORM_API char *iof_eth_name_get(eth_idx_t index);

/**
 * Reads the board's base MAC, the first of the range that is the device's own.
 * @param mac  6 bytes; untouched on failure
 * @return 0 on success, non-zero when the board has none
 */
PLATFORM_API int iof_mac_addr_get(unsigned char *mac);

/**
 * Tells the switch to take in frames for a WAN's MAC. Earlier MACs stay known to it; one that it
 * knows already is no failure, and neither is a board whose switch need not be told.
 * @param mac  6 bytes
 * @return 0 on success, non-zero when the switch refuses it
 */
PLATFORM_API int iof_mac_clone_set(unsigned char *mac);

/**
 * Makes switch ports members of the switch's own VLAN. Ports by bits, bit n being physical port n;
 * a port in neither mask leaves the VLAN, one in both counts as untagged. Only the ports that are
 * in the LAN bridge now are switched; the others are interfaces of their own.
 * @param eth_id     number of the switch, from 1; its VLAN has the same number
 * @param untag_bit  ports whose frames come and go without a tag
 * @param tag_bit    ports whose frames bear the VLAN's tag
 * @return 0 on success, also when the ports are so already; else an errno value, that of the first
 *         failing step, with the other steps done: ENODEV for a switch that the board does not
 *         have, EOPNOTSUPP where the kernel's bridge cannot tell VLANs apart and the ports are not
 *         all untagged
 */
PLATFORM_API int iof_vlan_set(int eth_id, unsigned int untag_bit, unsigned int tag_bit);

/**
 * Makes a switch port negotiate its link anew: the partner sees the link go down and come back.
 * @return 0 on success; else an errno value: ENODEV for a port the board does not have or whose
 *         interface is gone, EOPNOTSUPP where the link is not negotiated
 */
PLATFORM_API int iof_port_restart_auto_nego(int port);

PLATFORM_END

#endif
