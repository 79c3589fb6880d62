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
 * Reads a MAC address text: six hexadecimal numbers of one or two digits, separated by colons, and
 * nothing else.
 * @param mac  receives 6 bytes; untouched on failure
 * @return non-zero on success, 0 for text that is not a MAC or a NULL argument
 */
PLATFORM_API int ifaddrs_ethaddr_aton(const char *text, unsigned char *mac);

/**
 * Reads the hardware address of an interface.
 * @param mac  receives 6 bytes; untouched on failure
 * @return 0 on success, -1 on failure: errno is ENODEV for an interface that does not exist, EINVAL
 *         for a name that cannot be one or a NULL @p mac, EAFNOSUPPORT for one without such an
 *         address (PPP)
 */
PLATFORM_API int ifaddrs_get_if_netmac(const char *ifname, unsigned char *mac);

/**
 * The prefix length of a dotted-quad mask: its leading one bits.
 * @return 0 to 32; NULL and text that is not an address count as 255.255.255.255
 */
PLATFORM_API int ifaddrs_ipmask_to_numeric(const char *mask);

/**
 * Reads the IPv4 address of an interface, the first one when there are several.
 * @param addr  16 bytes; receives a dotted quad; untouched on failure
 * @return 0 on success, -1 on failure: errno is ENODEV for an interface that does not exist,
 *         EADDRNOTAVAIL for one without an IPv4 address, EINVAL for a name that cannot be one or a
 *         NULL @p addr
 */
PLATFORM_API int ifaddrs_get_ifip(const char *ifname, char *addr);

PLATFORM_END

#endif
