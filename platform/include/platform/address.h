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
 * Whether two address ranges, each given by an address in it and its mask, share addresses: their
 * networks are the same under the shorter of the two masks. Masks with gaps are taken as they are.
 * @param ip1, mask1  the one range
 * @param ip2, mask2  the other
 * @return non-zero when they do; 0 when not, and for an address that is NULL or none. A mask that
 *         is NULL or none counts as 255.255.255.255.
 */
PLATFORM_API int check_ip_is_same_net(const char *ip1, const char *mask1, const char *ip2,
                                      const char *mask2);

/**
 * The same host number in the next network, so that going on from there leaves any range at last.
 * Addresses that no host of a network can have are passed over: 0.0.0.0/8, the loopback's
 * 127.0.0.0/8 and the link-local 169.254.0.0/16.
 *
 * @param step_mask  the networks' mask, in host byte order
 * @param out        16 bytes; may be @p ip. Untouched on failure.
 * @param flag       0
 * @return 0 on success; -1 behind 223.255.255.255, where the addresses of hosts end, and for an
 *         address that is NULL or none or a NULL @p out
 */
PLATFORM_API int ifaddrs_ip_increase(const char *ip, uint32_t step_mask, char *out, int flag);

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
