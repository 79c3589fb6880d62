// SPDX-License-Identifier: MIT
// The DHCP messages of a probe: the question as an IPv4 packet, and what an answer offers. Answers
// come from whoever is on the line: every length in them is checked against what was received.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace dhcp
{

using Mac = std::array<std::uint8_t, 6>;
using Bytes = std::span<const std::uint8_t>;

constexpr std::uint16_t kServerPort = 67;
constexpr std::uint16_t kClientPort = 68;
constexpr std::size_t kIpHeader = 20;
constexpr std::size_t kUdpHeader = 8;
constexpr std::size_t kBootp = 236;         // in front of the options
constexpr std::size_t kSmallestBody = 300;  // what relays let through
constexpr std::uint8_t kUdp = 17;
constexpr std::array<std::uint8_t, 4> kCookie = {99, 130, 83, 99};

enum Option : std::uint8_t {
    kPad = 0,
    kMask = 1,
    kRouter = 3,
    kDns = 6,
    kDomain = 15,
    kLease = 51,
    kMessageType = 53,
    kServerId = 54,
    kWanted = 55,
    kClientId = 61,
    kEnd = 255
};
enum MessageType : std::uint8_t { kDiscover = 1, kOffer = 2 };

/** What a server offers; what the answer does not hold is empty. Addresses in network order. */
struct Offer {
    in_addr ip{};
    in_addr server{};
    std::optional<in_addr> mask;
    std::vector<in_addr> routers;
    std::vector<in_addr> dns;
    std::optional<std::uint32_t> lease;  // seconds
    std::string domain;
};

// ---- bytes ------------------------------------------------------------------------------------

inline std::uint16_t u16_at(Bytes bytes, std::size_t at)
{
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

inline std::uint32_t u32_at(Bytes bytes, std::size_t at)
{
    return static_cast<std::uint32_t>(u16_at(bytes, at)) << 16 | u16_at(bytes, at + 2);
}

inline in_addr address_at(Bytes bytes, std::size_t at)
{
    return {htonl(u32_at(bytes, at))};
}

inline void put_u16(std::vector<std::uint8_t> &out, unsigned int value)
{
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

inline void put_u32(std::vector<std::uint8_t> &out, std::uint32_t value)
{
    put_u16(out, value >> 16);
    put_u16(out, value & 0xFFFF);
}

/** Sum of 16-bit words as the Internet checksum adds them, not folded yet. */
inline std::uint32_t sum_of(Bytes bytes, std::uint32_t sum = 0)
{
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        sum += u16_at(bytes, i);
    }
    return bytes.size() % 2 != 0 ? sum + (std::uint32_t{bytes.back()} << 8) : sum;
}

/** 0 over bytes that hold their right checksum. */
inline std::uint16_t checksum(std::uint32_t sum)
{
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

/** The sum over the addresses and the UDP datagram of an IPv4 packet. */
inline std::uint32_t udp_sum(Bytes addresses, Bytes datagram)
{
    return sum_of(datagram, sum_of(addresses, kUdp + static_cast<std::uint32_t>(datagram.size())));
}

// ---- the question -----------------------------------------------------------------------------

/**
 * A DISCOVER as an IPv4 packet to everybody.
 * @param broadcast  ask for an answer to everybody, as hosts do that cannot take another yet
 */
inline std::vector<std::uint8_t> discover(std::uint32_t xid, const Mac &mac, bool broadcast)
{
    std::vector<std::uint8_t> body = {1, 1, 6, 0};  // request, Ethernet, length of a MAC, no hop
    put_u32(body, xid);
    put_u16(body, 0);
    put_u16(body, broadcast ? 0x8000 : 0);
    body.resize(28);  // no address yet
    body.insert(body.end(), mac.begin(), mac.end());
    body.resize(kBootp);
    body.insert(body.end(), kCookie.begin(), kCookie.end());
    body.insert(body.end(), {kMessageType, 1, kDiscover, kClientId, 7, 1});
    body.insert(body.end(), mac.begin(), mac.end());
    body.insert(body.end(), {kWanted, 6, kMask, kRouter, kDns, kDomain, kLease, kServerId, kEnd});
    body.resize(std::max(body.size(), kSmallestBody));

    std::vector<std::uint8_t> packet = {0x45, 0};
    const auto udp_size = static_cast<unsigned int>(kUdpHeader + body.size());
    put_u16(packet, static_cast<unsigned int>(kIpHeader) + udp_size);
    put_u32(packet, 0);
    packet.insert(packet.end(), {64, kUdp, 0, 0, 0, 0, 0, 0, 255, 255, 255, 255});
    put_u16(packet, kClientPort);
    put_u16(packet, kServerPort);
    put_u16(packet, udp_size);
    put_u16(packet, 0);
    packet.insert(packet.end(), body.begin(), body.end());

    const auto store = [&](std::size_t at, std::uint16_t value) {
        packet[at] = static_cast<std::uint8_t>(value >> 8);
        packet[at + 1] = static_cast<std::uint8_t>(value);
    };
    const Bytes whole{packet};
    store(10, checksum(sum_of(whole.first(kIpHeader))));
    const std::uint16_t udp = checksum(udp_sum(whole.subspan(12, 8), whole.subspan(kIpHeader)));
    store(kIpHeader + 6, udp != 0 ? udp : 0xFFFF);  // 0 would mean that there is none
    return packet;
}

// ---- an answer --------------------------------------------------------------------------------

/**
 * The DHCP message in an IPv4 packet, empty when the packet holds none that is sound.
 * @param summed  whether the checksum of the datagram has been computed: a sender on the same
 *                machine leaves that to hardware which is not there
 */
inline Bytes message_in(Bytes packet, bool summed)
{
    if (packet.size() < kIpHeader || packet[0] >> 4 != 4) {
        return {};
    }
    const std::size_t header = std::size_t{4} * (packet[0] & 0xFU);
    const std::size_t size = u16_at(packet, 2);
    constexpr unsigned int kFragment = 0x3FFF;  // more to come, or not the first one
    if (header < kIpHeader || size < header + kUdpHeader || size > packet.size() ||
        (u16_at(packet, 6) & kFragment) != 0 || packet[9] != kUdp ||
        checksum(sum_of(packet.first(header))) != 0) {
        return {};
    }
    const Bytes rest = packet.subspan(header, size - header);  // the link may have padded
    const std::size_t udp_size = u16_at(rest, 4);
    if (u16_at(rest, 0) != kServerPort || u16_at(rest, 2) != kClientPort || udp_size < kUdpHeader ||
        udp_size > rest.size()) {
        return {};
    }
    const Bytes datagram = rest.first(udp_size);
    const bool has_sum = u16_at(datagram, 6) != 0;
    if (summed && has_sum && checksum(udp_sum(packet.subspan(12, 8), datagram)) != 0) {
        return {};
    }
    return datagram.subspan(kUdpHeader);
}

/** The options of a message, found by number; the first of a kind counts. */
class Options
{
  public:
    explicit Options(Bytes bytes)
    {
        while (!bytes.empty() && bytes[0] != kEnd) {
            if (bytes[0] == kPad) {
                bytes = bytes.subspan(1);
                continue;
            }
            if (bytes.size() < 2 || bytes.size() - 2 < bytes[1]) {
                return;  // it would end behind the end
            }
            Entry &entry = entries_[bytes[0]];
            if (!entry.present) {
                entry = {true, bytes.subspan(2, bytes[1])};
            }
            bytes = bytes.subspan(std::size_t{2} + bytes[1]);
        }
        sound_ = true;
    }

    /** Whether every option ends where the message still goes on. */
    bool sound() const { return sound_; }
    bool has(Option option) const { return entries_[option].present; }
    Bytes operator[](Option option) const { return entries_[option].value; }

    /** Whether an option is missing or has exactly that many bytes. */
    bool fits(Option option, std::size_t size) const
    {
        return !has(option) || entries_[option].value.size() == size;
    }
    /** Whether an option is missing or a list of addresses. */
    bool fits_addresses(Option option) const
    {
        return !has(option) ||
               (!entries_[option].value.empty() && entries_[option].value.size() % 4 == 0);
    }
    std::vector<in_addr> addresses(Option option) const
    {
        std::vector<in_addr> all;
        for (std::size_t at = 0; at < entries_[option].value.size(); at += 4) {
            all.push_back(address_at(entries_[option].value, at));
        }
        return all;
    }

  private:
    struct Entry {
        bool present = false;
        Bytes value;
    };
    std::array<Entry, 256> entries_;
    bool sound_ = false;
};

/** What a packet offers to the host that asked; nothing when it is no sound offer to it. */
inline std::optional<Offer> offer_in(Bytes packet, bool summed, std::uint32_t xid, const Mac &mac)
{
    const Bytes message = message_in(packet, summed);
    constexpr std::size_t kHead = kBootp + kCookie.size();
    if (message.size() < kHead || message[0] != 2 || message[1] != 1 || message[2] != mac.size() ||
        u32_at(message, 4) != xid || memcmp(&message[28], mac.data(), mac.size()) != 0 ||
        memcmp(&message[kBootp], kCookie.data(), kCookie.size()) != 0) {
        return std::nullopt;
    }
    const Options options{message.subspan(kHead)};
    if (!options.sound() || !options.has(kMessageType) || !options.fits(kMessageType, 1) ||
        options[kMessageType][0] != kOffer || !options.has(kServerId) ||
        !options.fits(kServerId, 4) || !options.fits(kMask, 4) || !options.fits(kLease, 4) ||
        !options.fits_addresses(kRouter) || !options.fits_addresses(kDns)) {
        return std::nullopt;
    }
    Offer offer;
    offer.ip = address_at(message, 16);
    offer.server = address_at(options[kServerId], 0);
    if (offer.ip.s_addr == INADDR_ANY) {
        return std::nullopt;
    }
    if (options.has(kMask)) {
        offer.mask = address_at(options[kMask], 0);
    }
    if (options.has(kLease)) {
        offer.lease = u32_at(options[kLease], 0);
    }
    offer.routers = options.addresses(kRouter);
    offer.dns = options.addresses(kDns);
    offer.domain.assign(options[kDomain].begin(), options[kDomain].end());
    return offer;
}

// ---- its text ---------------------------------------------------------------------------------

inline std::string text_of(in_addr address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof(text));
}

inline std::string text_of(const std::vector<in_addr> &addresses)
{
    std::string text;
    for (const in_addr address : addresses) {
        text += (text.empty() ? "" : " ") + text_of(address);
    }
    return text;
}

/** A name as far as it is one: what could end the field or the line, or control a terminal, is not.
 */
inline std::string text_of(std::string_view name)
{
    std::string text;
    for (const char c : name) {
        const bool plain = c > ' ' && c < 0x7F && c != '"' && c != '\\';
        text += plain ? c : '?';
    }
    return text;
}

inline std::string text_of(const Mac &mac)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : mac) {
        text += text.empty() ? "" : ":";
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

/** One line: name="value" for each field that the offer has. */
inline std::string line_of(const Offer &offer, const Mac &server_mac)
{
    std::string line;
    const auto field = [&](const char *name, const std::string &value) {
        if (!value.empty()) {
            line += (line.empty() ? "" : " ") + std::string{name} + "=\"" + value + "\"";
        }
    };
    field("servermac", text_of(server_mac));
    field("server", text_of(offer.server));
    field("ip", text_of(offer.ip));
    field("mask", offer.mask ? text_of(*offer.mask) : "");
    field("router", text_of(offer.routers));
    field("dns", text_of(offer.dns));
    field("lease", offer.lease ? std::to_string(*offer.lease) : "");
    field("domain", text_of(std::string_view{offer.domain}));
    return line;
}

}  // namespace dhcp
