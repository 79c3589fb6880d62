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

/** A number of a dotted quad with its dot. */
struct QuadNumber {
    char text[4];
    unsigned char length;
};

/** All of them: a routing table has twelve a line. */
inline constexpr auto kQuadNumbers = [] {
    std::array<QuadNumber, 256> numbers{};
    for (std::size_t value = 0; value < numbers.size(); ++value) {
        QuadNumber &number = numbers[value];
        if (value >= 100) {
            number.text[number.length++] = static_cast<char>('0' + value / 100);
        }
        if (value >= 10) {
            number.text[number.length++] = static_cast<char>('0' + value / 10 % 10);
        }
        number.text[number.length++] = static_cast<char>('0' + value % 10);
        number.text[number.length++] = '.';
    }
    return numbers;
}();

/** Writes the dotted quad of an address in host byte order. @return its length */
inline std::size_t write_ipv4(char (&out)[kIpv4TextSize], u32 address)
{
    char *end = out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const QuadNumber &number = kQuadNumbers[address >> shift & 0xFF];
        memcpy(end, number.text, sizeof(number.text));
        end += number.length;
    }
    *--end = '\0';
    return static_cast<std::size_t>(end - out);
}

/** The dotted quad of an address in host byte order. */
inline Ipv4Text ipv4_text(u32 address)
{
    char quad[kIpv4TextSize];
    const std::size_t length = write_ipv4(quad, address);
    Ipv4Text text;
    text.append(std::string_view{quad, length});
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
