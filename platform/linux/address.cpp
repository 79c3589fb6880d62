// SPDX-License-Identifier: MIT
#include "platform/address.h"

#include <arpa/inet.h>
#include <net/if_arp.h>

#include <cerrno>
#include <cstring>

#include "interface.hpp"

namespace
{

constexpr int kMacBytes = 6;

int digit(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

/** Takes a number of one or two digits; -1 when there is none. */
int take_byte(const char *&text)
{
    int value = digit(*text);
    if (value < 0) {
        return -1;
    }
    ++text;
    if (digit(*text) >= 0) {
        value = value * 16 + digit(*text);
        ++text;
    }
    return value;
}

}  // namespace

int ifaddrs_ethaddr_aton(const char *text, unsigned char *mac)
{
    if (text == nullptr || mac == nullptr) {
        return 0;
    }
    unsigned char bytes[kMacBytes];
    for (int i = 0; i < kMacBytes; ++i) {
        const int value = take_byte(text);
        if (value < 0 || *text != (i + 1 < kMacBytes ? ':' : '\0')) {
            return 0;
        }
        ++text;
        bytes[i] = static_cast<unsigned char>(value);
    }
    memcpy(mac, bytes, sizeof(bytes));
    return 1;
}

int ifaddrs_get_if_netmac(const char *ifname, unsigned char *mac)
{
    if (mac == nullptr) {
        errno = EINVAL;
        return -1;
    }
    platform::Interface interface {
        ifname
    };
    if (!interface.ask(SIOCGIFHWADDR)) {
        return -1;
    }
    const sockaddr &address = interface.answer().ifr_hwaddr;
    if (address.sa_family != ARPHRD_ETHER && address.sa_family != ARPHRD_LOOPBACK) {
        errno = EAFNOSUPPORT;  // a point-to-point link has none
        return -1;
    }
    memcpy(mac, address.sa_data, kMacBytes);
    return 0;
}

int ifaddrs_ipmask_to_numeric(const char *mask)
{
    u32 bits = ntohl(mask != nullptr ? inet_addr(mask) : INADDR_NONE);
    int length = 0;
    while ((bits & 0x80000000U) != 0) {
        bits <<= 1;
        ++length;
    }
    return length;
}

int ifaddrs_get_ifip(const char *ifname, char *addr)
{
    if (addr == nullptr) {
        errno = EINVAL;
        return -1;
    }
    platform::Interface interface {
        ifname
    };
    if (!interface.ask(SIOCGIFADDR)) {
        return -1;
    }
    sockaddr_in address;
    memcpy(&address, &interface.answer().ifr_addr, sizeof(address));
    inet_ntop(AF_INET, &address.sin_addr, addr, INET_ADDRSTRLEN);
    return 0;
}
