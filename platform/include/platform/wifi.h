/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Wi-Fi driver interface. Any thread may call any of these.
 */
#ifndef PLATFORM_WIFI_H
#define PLATFORM_WIFI_H

#include "platform/types.h"

/** One associated station, as the driver reports it; texts are NUL-terminated. */
typedef struct station_info {
    char mac[18];
    char link_time[16];
    char rssi[8];
    char noise[8];
    char quality[8];
    char link_rate[16];
    char tx_rate[16];
    char rx_rate[16];
    u64 tx_bytes;
    u64 rx_bytes;
    unsigned long tx_failures;
} station_info, station_info_t;

PLATFORM_BEGIN

/**
 * Maps a BSS's configuration name ("wlan0.3") to the system's interface name.
 * @param cfg_ifname  the configuration name
 * @param os_ifname  16 bytes; receives the name, empty when there is no such interface
 * @return 0 on success, -1 when there is no such interface or an argument is NULL
 */
PLATFORM_API int pav_wifi_get_osifname(const char *cfg_ifname, char *os_ifname);

/** Whether a system interface is up: non-zero when it is, 0 also when it does not exist. */
PLATFORM_API int pav_wifi_check_downup(const char *os_ifname);

/**
 * Lists the stations associated to an interface. Waits at most a second for the driver.
 * Texts that the driver has nothing for are empty: link_time is in seconds, rssi and noise in dBm,
 * quality in per cent, rates in Mbit/s with one decimal.
 * @param list      room for @p capacity records; those not filled stay as they are
 * @return the number of records filled, at most @p capacity; 0 when there are none
 */
PLATFORM_API int pav_wifi_get_clientlist(const char *os_ifname, station_info_t *list, int capacity);

PLATFORM_END

#endif
