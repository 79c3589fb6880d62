/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Names of the wireless settings, typed access to them, questions that several of them answer
 * together, and messages to the WLAN server.
 *
 * A radio is named by its band, called rate: 2 is the 2.4 GHz radio, whose keys start with
 * "wlan0", 5 the 5 GHz radio with "wlan1". A BSS (virtual access point) of a radio is counted
 * from 0. Keys are "<radio>_<name>" and "<radio>.<bss>_<name>": "wlan0_band",
 * "wlan1.2_bss_ssid". They are cut to 511 characters.
 *
 * All functions may be called from any thread. They read the configuration afresh on each call.
 */
#ifndef PROD_COMMON_WIFI_H
#define PROD_COMMON_WIFI_H

#include "platform/wifi.h"
#include "prod_common_types.h"

/** Kinds of key prefix; see getMibPrefix(). */
typedef enum {
    WAN = 0,         /**< "wan%d" with index + 1 */
    LAN = 1,         /**< "lan" */
    WL2G_PUBLIC = 2, /**< "wlan0" */
    WL2G_SSID = 3,   /**< "wlan0.%d" with index */
    WL5G_PUBLIC = 4, /**< "wlan1" */
    WL5G_SSID = 5,   /**< "wlan1.%d" with index */
    WL2G_EXTRA = 6,  /**< "wlan0.x" */
    WL5G_EXTRA = 7,  /**< "wlan1.x" */
    IPMAC_BIND = 8,  /**< "security.ipbind.list" */
    WL5G2_SSID = 9,  /**< a second 5 GHz radio, which this hardware has not: no prefix */
    WL5G2_PUBLIC = 10,
    WL5G2_EXTRA = 11
} PREFLAG;

/** Scratch room for one setting. */
typedef struct {
    char wifi_buf[256]; /**< value */
    char mib_buf[256];  /**< key */
    int max_length;
} WIFI_BUFFER, WIFI_BUF;

/** Where the WLAN server listens. */
#define WLAN_SERVER_SOCKET_PATH "/var/wlan_server_socket"

PROD_BEGIN

/**
 * Writes the key prefix of a kind.
 * @param flag     the kind
 * @param namePre  21 bytes hold any prefix; untouched for the kinds that have none
 * @param index    WAN or BSS number, from 0
 * @return 1, also when nothing was written; -1 when @p namePre is NULL, which is printed to
 *         standard output as "namePre is null"
 */
PROD_API int getMibPrefix(char *namePre, PREFLAG flag, int index);

/**
 * Joins a prefix and a setting's name as "<ifname>_<mib>".
 * @param mib_name  room for both with an underscore and a NUL
 * @return @p mib_name; NULL, logged at level 2 as "wifi mib error!", when an argument is NULL
 */
PROD_API char *wifi_get_mibname(const char *ifname, const char *mib, char *mib_name);

/**
 * The key prefix of a radio, constant text; NULL for a rate that is neither 2 nor 5, which is
 * logged at level 2.
 */
PROD_API char *wifi_get_radio_prefix(int rate);

/**
 * The key prefix of the radio that really carries a band: some boards have them swapped, which
 * "wlan0_band" and "wlan1_band" tell.
 * @param radio  6 bytes; untouched for a rate that is neither 2 nor 5
 */
PROD_API void wifi_get_mib_radio(int wl_rate, char *radio);

/**
 * The system's interface name of a BSS, as the Wi-Fi driver interface gives it for "wlan0.3". A
 * rate that is neither 2 nor 5, which is logged, asks it for "(null).3".
 * @param ifname  16 bytes; empty when the driver knows no such BSS
 * @return @p ifname
 */
PROD_API char *wifi_get_bss_ifname(int rate, int index, char *ifname);

/*
 * Typed access. The keys of a rate that is neither 2 nor 5, which is logged as by
 * wifi_get_radio_prefix(), start with the text "(null)" instead of a prefix. With a NULL name
 * nothing is written, and the result is 0. Of a number's text the first 20 characters count.
 */

/**
 * Reads a setting of a radio.
 * @param value  2308 bytes; untouched when the key is absent
 * @return as prod_cfm_get_val()
 */
PROD_API int wifi_get_radio_val(int rate, const char *name, char *value);

/** The integer a radio's setting starts with, 0 when there is none. */
PROD_API int wifi_get_radio_int_val(int rate, const char *name);

/** Writes a setting of a radio. @return as prod_cfm_set_val() */
PROD_API int wifi_set_radio_val(int rate, const char *name, const char *value);

/** As wifi_set_radio_val(), a number in decimal. */
PROD_API int wifi_set_radio_int_val(int rate, const char *name, int value);

/**
 * Reads a setting of a BSS.
 * @param value  2308 bytes; untouched when the key is absent
 * @return as prod_cfm_get_val()
 */
PROD_API int wifi_get_bss_val(int rate, int index, const char *name, char *value);

/** The integer a BSS's setting starts with, 0 when there is none. */
PROD_API int wifi_get_bss_int_val(int rate, int index, const char *name);

/** The number a BSS's setting starts with, 0.0 when there is none. */
PROD_API double wifi_get_bss_double_val(int rate, int index, const char *name);

/** Writes a setting of a BSS. @return as prod_cfm_set_val() */
PROD_API int wifi_set_bss_val(int rate, int index, const char *name, const char *value);

/** As wifi_set_bss_val(), a number in decimal. */
PROD_API int wifi_set_bss_int_val(int rate, int index, const char *name, int value);

/** As wifi_set_bss_val(), a number with six decimals, cut to 20 characters. */
PROD_API int wifi_set_bss_double_val(int rate, int index, const char *name, double value);

/**
 * What the radios make of the device: "apclient" when "wlan0_workmode" or "wlan1_workmode" says so,
 * else "wisp" when either does, else "ap". Constant text.
 */
PROD_API char *get_wifi_workmode(void);

/**
 * Whether the first BSS of a radio is enabled, from "wlan0.0_bss_enable" and "wlan1.0_bss_enable".
 * Entry and exit traces, the latter only with an answer, go to module "netctrl".
 * @param name  "wlan0" or "wlan1", or "wlan" for either of the two
 * @return the number configured (for "wlan" 1 or 0); -1 when @p name is NULL, and, printed to
 *         standard output, for any other name and when a value to be read is absent or empty
 */
PROD_API int wifi_get_bss_enable(const char *name);

/**
 * 1 when the radio is enabled ("wlan0_enable", "wlan1_enable") and the interface of at least one of
 * its BSSs is up, else 0. Looked at are as many BSSs as its "web_maxbss" says, 64 at most.
 * @param rate  2, or anything else for the 5 GHz radio
 */
PROD_API int get_wifi_band_status(int rate);

/** 1 when get_wifi_band_status() is 1 for either radio, else 0. */
PROD_API int get_wifi_status(void);

/**
 * Lists the enabled BSSs that broadcast a network name, as "1,6": 1 to 5 stand for BSS 0 to 4 of
 * the 2.4 GHz radio, 6 to 10 for those of the 5 GHz radio. Reads "bss_enable" and "bss_ssid" of
 * each.
 * @param ssid  the network name, compared exactly
 * @param band  16 bytes, passed empty; a list that needs more is cut at 15 characters. Untouched
 *              when a pointer is NULL.
 */
PROD_API void check_same_ssid(const char *ssid, char *band);

/**
 * 1 when a station is associated to the smart-node BSS (number 3 of the 2.4 GHz radio), of whose
 * stations the first 128 are looked at; else 0.
 * @param client_mac  colon-separated MAC text of either case
 */
PROD_API int prod_check_smart_node(const char *client_mac);

/**
 * The forced DFS channel setting of a country, from the first line "<country>;<rev>;<channel>" of
 * "/etc/country_code.cfg" with that country.
 * @param country_rev         not looked at
 * @param dfs_channel_forced  8 bytes; receives the third field, with the line's newline when that
 *                            follows it. Untouched when there is no such line or file, or a
 *                            pointer is NULL.
 */
PROD_API void prod_get_dfs_channel_forced(const char *country_code, const char *country_rev,
                                          char *dfs_channel_forced);

/**
 * Sends a command to the WLAN server, the daemon that applies wireless changes. The command is
 * also shown on standard output, cut at 4096 characters. Not retried; blocks as hlx_proc_send_msg()
 * does.
 * @return 0 when it was handed over, -1 otherwise (logged at level 2, module "prod")
 */
PROD_API int send_msg_to_wlan_server(const char *text);

PROD_END

#endif
