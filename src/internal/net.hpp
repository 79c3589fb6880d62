// SPDX-License-Identifier: MIT
// Addresses as the library handles them, and what an interface says about itself.
#pragma once

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "internal/handle.hpp"
#include "internal/text.hpp"

namespace prod
{

inline constexpr std::size_t kIpv4TextSize = INET_ADDRSTRLEN;  // "255.255.255.255"
inline constexpr std::size_t kMacTextSize = 18;                // "00:11:22:33:44:55"

/** What stands where an address should and there is none. */
inline constexpr const char *kNoAddress = "0.0.0.0";

using Mac = std::array<unsigned char, 6>;

/**
 * Whether a name fits an interface at all, as the kernel sees it: at most 15 characters, no slash,
 * no blank. What a shell would make of the rest is ShellWord's business. The empty name fits.
 */
inline bool can_name_interface(std::string_view name)
{
    return name.size() < IFNAMSIZ && name.find_first_of("/ \t\n\v\f\r") == std::string_view::npos;
}

/**
 * A dotted quad in host byte order. Text that is no address, and no text at all, is
 * 255.255.255.255.
 */
inline u32 ipv4_from(const char *text)
{
    return text != nullptr ? ntohl(inet_addr(text)) : INADDR_NONE;
}

using Ipv4Text = Text<kIpv4TextSize>;

/** The dotted quad of an address in host byte order. Routing tables have three a line. */
inline Ipv4Text ipv4_text(u32 address)
{
    char quad[kIpv4TextSize];
    char *end = quad;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const u32 byte = address >> shift & 0xFF;
        if (byte >= 100) {
            *end++ = static_cast<char>('0' + byte / 100);
        }
        if (byte >= 10) {
            *end++ = static_cast<char>('0' + byte / 10 % 10);
        }
        *end++ = static_cast<char>('0' + byte % 10);
        *end++ = '.';
    }
    Ipv4Text text;
    text.append(std::string_view{quad, static_cast<std::size_t>(end - quad) - 1});
    return text;
}

/** The IPv4 address inside a socket address, in network byte order. */
inline in_addr ipv4_of(const sockaddr &address)
{
    sockaddr_in inet;
    memcpy(&inet, &address, sizeof(inet));
    return inet.sin_addr;
}

/** One question to the kernel about an interface, through a socket of its own. */
class InterfaceQuery
{
  public:
    enum class Result { kAnswered, kNoSocket, kRefused };

    /**
     * @param ifname   its first 15 characters count
     * @param request  one of the SIOCGIF... requests
     */
    InterfaceQuery(const char *ifname, unsigned long request)
    {
        copy_text(block_.ifr_name, ifname);
        const Fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
        if (!fd) {
            err_ = errno;
            result_ = Result::kNoSocket;
        } else if (ioctl(fd.get(), request, &block_) < 0) {
            err_ = errno;
            result_ = Result::kRefused;
        }
    }

    Result result() const { return result_; }
    /** errno of what failed. */
    int err() const { return err_; }
    const ifreq &answer() const { return block_; }

  private:
    Result result_ = Result::kAnswered;
    int err_ = 0;
    ifreq block_ = {};
};

}  // namespace prod
