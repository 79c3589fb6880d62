/* SPDX-License-Identifier: MIT */
/**
 * @file
 * Address helpers of the platform. None blocks, all are thread-safe.
 */
#ifndef PLATFORM_ADDRESS_H
#define PLATFORM_ADDRESS_H

#include "platform/types.h"

PLATFORM_BEGIN

/**
 * Reads a MAC address text (six hexadecimal fields separated by colons).
 * @param mac  receives 6 bytes; untouched on failure
 * @return non-zero on success, 0 for text that is not a MAC
 */
PLATFORM_API int ifaddrs_ethaddr_aton(const char *text, unsigned char *mac);

/**
 * Reads the hardware address of an interface.
 * @param mac  receives 6 bytes; untouched on failure
 * @return 0 on success, -1 on failure (errno tells)
 */
PLATFORM_API int ifaddrs_get_if_netmac(const char *ifname, unsigned char *mac);

/**
 * The prefix length of a dotted-quad mask: its leading one bits.
 * @return 0 to 32; text that is not an address counts as 255.255.255.255
 */
PLATFORM_API int ifaddrs_ipmask_to_numeric(const char *mask);

PLATFORM_END

#endif
