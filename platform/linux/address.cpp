// SPDX-License-Identifier: MIT
#include "platform/address.h"

#include <arpa/inet.h>
#include <net/if_arp.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <optional>

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

/** A dotted quad in host byte order. */
std::optional<u32> address_from(const char *text)
{
    in_addr address;
    if (text == nullptr || inet_aton(text, &address) == 0) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

/** A mask as a port has to read one: text that is none is that of a single host. */
u32 mask_from(const char *text)
{
    return address_from(text).value_or(INADDR_NONE);
}

/** The same host number in the next network of a mask; nothing behind the last one. */
std::optional<u32> in_next_network(u32 address, u32 mask)
{
    const u32 last = address | ~mask;
    if (last == INADDR_BROADCAST) {
        return std::nullopt;
    }
    return ((last + 1) & mask) | (address & ~mask);
}

/** Where no network of hosts can be, in the order of the addresses. */
constexpr struct {
    u32 net;
    u32 mask;
} kNotForHosts[] = {
    {0x00000000, 0xFF000000},  // "this network"
    {0x7F000000, 0xFF000000},  // loopback
    {0xA9FE0000, 0xFFFF0000},  // link-local
};
constexpr u32 kLastUnicast = 0xDFFFFFFF;

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
    platform::Interface device{ifname};
    if (!device.ask(SIOCGIFHWADDR)) {
        return -1;
    }
    const sockaddr &address = device.answer().ifr_hwaddr;
    if (address.sa_family != ARPHRD_ETHER && address.sa_family != ARPHRD_LOOPBACK) {
        errno = EAFNOSUPPORT;  // a point-to-point link has none
        return -1;
    }
    memcpy(mac, address.sa_data, kMacBytes);
    return 0;
}

int ifaddrs_ipmask_to_numeric(const char *mask)
{
    return std::countl_one(mask_from(mask));
}

int check_ip_is_same_net(const char *ip1, const char *mask1, const char *ip2, const char *mask2)
{
    const std::optional<u32> first = address_from(ip1);
    const std::optional<u32> second = address_from(ip2);
    return first && second && ((*first ^ *second) & mask_from(mask1) & mask_from(mask2)) == 0;
}

int ifaddrs_ip_increase(const char *ip, uint32_t step_mask, char *out, int)
{
    const std::optional<u32> start = address_from(ip);
    if (!start || out == nullptr) {
        return -1;
    }
    std::optional<u32> next = in_next_network(*start, step_mask);
    for (const auto &[net, mask] : kNotForHosts) {
        if (next && (*next & mask) == net) {
            next = in_next_network(*next, step_mask & mask);
        }
    }
    if (!next || *next > kLastUnicast) {
        return -1;
    }
    const in_addr address{htonl(*next)};
    return inet_ntop(AF_INET, &address, out, INET_ADDRSTRLEN) != nullptr ? 0 : -1;
}

int ifaddrs_get_ifip(const char *ifname, char *addr)
{
    if (addr == nullptr) {
        errno = EINVAL;
        return -1;
    }
    platform::Interface device{ifname};
    if (!device.ask(SIOCGIFADDR)) {
        return -1;
    }
    sockaddr_in address;
    memcpy(&address, &device.answer().ifr_addr, sizeof(address));
    inet_ntop(AF_INET, &address.sin_addr, addr, INET_ADDRSTRLEN);
    return 0;
}
