// SPDX-License-Identifier: MIT
// The datagrams of the device's own DNS client. What is read here was sent by anybody: every
// offset, length and count is held against the bytes that arrived, and nothing is allocated.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <span>

namespace prod
{

/** Room for a query and for the longest answer that is taken. */
inline constexpr std::size_t kDnsMessageSize = 1024;
/** Where the question starts. */
inline constexpr std::size_t kDnsHeaderSize = 12;

/** A question as sent: the name's labels, the type and the class. */
using DnsQuestion = std::array<unsigned char, 128>;
/** A decoded name as text; what does not fit is left out. */
using DnsName = std::array<char, 256>;

/** Whether a byte begins a compression pointer rather than a label. */
int is_pointer(int in);

/**
 * Writes the question for the IPv4 addresses of a name. Labels are taken as they are, also empty
 * ones and those of more than 63 characters.
 * @param len  receives the bytes written
 * @return false, and nothing written, for a name that does not fit: more than 122 characters
 */
bool generate_question(const char *dns_name, DnsQuestion &buf, std::size_t &len);

/**
 * Decodes the name at @p ptr of a message as "label.label".
 *
 * Only the second byte of a pointer is followed, so that names beyond offset 255 cannot be pointed
 * at. A pointer that means such a name leads to some other bytes; whatever they are, they do not
 * make the message wrong.
 *
 * @param chunk  the message, as long as it arrived
 * @param out    the text, ended by a NUL
 * @param len    where in @p out to begin; receives the end
 * @return false when the name leaves the message or has more than 64 pointers or 128 labels; what
 *         was decoded before stands in @p out
 */
bool parse_dns_name(std::span<const unsigned char> chunk, std::size_t ptr, DnsName &out,
                    std::size_t &len);

/**
 * Writes a whole query.
 * @return its bytes; 0 for a name that does not fit
 */
std::size_t make_dns_query(const char *dns_name, std::span<unsigned char, kDnsMessageSize> message);

/**
 * Takes the IPv4 addresses out of an answer, in its order, until @p addresses is full. The first
 * thing that cannot be so ends the reading; what was found before counts.
 * @param chunk  the message, as long as it arrived
 * @return how many were found
 */
std::size_t parse_dns_answer(std::span<const unsigned char> chunk, std::span<in_addr> addresses);

}  // namespace prod
