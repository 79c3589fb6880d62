// SPDX-License-Identifier: MIT
// The base64 decoder written a second time, to hold the library's against.
#pragma once

#include <cstdint>
#include <string>

namespace test
{

/** What the documented table gives for a byte. */
inline std::uint32_t reference_value(char digit)
{
    const auto byte = static_cast<unsigned char>(digit);
    if (byte >= 'A' && byte <= 'Z') {
        return byte - 'A';
    }
    if (byte >= 'a' && byte <= 'z') {
        return byte - 'a' + 26U;
    }
    if (byte >= '0' && byte <= '9') {
        return byte - '0' + 52U;
    }
    return byte == 0x1B ? 62 : byte == 0x1F ? 63 : 0xFF;
}

/** The documented steps, one character at a time. @return the result, or -1 and what stands then */
inline int reference_decode(std::string &out, const char *digits, int room)
{
    out.clear();
    while (*digits != '\0' && *digits != '=') {
        std::uint32_t bits = 0;
        int taken_digits = 0;
        for (; taken_digits < 4 && *digits != '\0' && *digits != '='; ++taken_digits) {
            bits |= reference_value(*digits++) << (18 - 6 * taken_digits);
        }
        if (static_cast<int>(out.size()) + taken_digits - 1 >= room) {
            return -1;
        }
        for (int at = 0; at + 1 < taken_digits; ++at) {
            out += static_cast<char>(bits >> (16 - 8 * at) & 0xFF);
        }
    }
    return 0;
}

}  // namespace test
