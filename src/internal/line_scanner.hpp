// SPDX-License-Identifier: MIT
// Takes a line apart as scanf's conversions would, in a fraction of the time: lists have lines by
// the ten thousand.
#pragma once

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "prod_common_types.h"

namespace prod
{

class LineScanner
{
  public:
    explicit LineScanner(const char *line) : at_(line) {}

    bool at_end() const { return *at_ == '\0'; }

    void skip_blanks()
    {
        while (is_blank(*at_)) {
            ++at_;
        }
    }

    /** "%s" of at most @p longest characters; empty when there is no word. */
    std::string_view word(std::size_t longest)
    {
        skip_blanks();
        const char *const from = at_;
        while (is_inside(*at_) && static_cast<std::size_t>(at_ - from) < longest) {
            ++at_;
        }
        return {from, static_cast<std::size_t>(at_ - from)};
    }

    /** "%*s": whether there was a word to skip. */
    bool skip_word()
    {
        skip_blanks();
        const char *const from = at_;
        while (is_inside(*at_)) {
            ++at_;
        }
        return at_ != from;
    }

    /** "%[^x]" for a character x: what stands before it, or the whole rest. */
    std::string_view until(char end)
    {
        const char *const from = at_;
        at_ = strchrnul(at_, end);
        return {from, static_cast<std::size_t>(at_ - from)};
    }

    /** One character that must follow at once. */
    bool literal(char wanted)
    {
        const bool follows = *at_ == wanted;
        at_ += follows ? 1 : 0;
        return follows;
    }

    /**
     * "%X": a sign and "0x" may stand in front, and a minus counts as in unsigned arithmetic. What
     * 32 bits do not hold counts as all ones, as where long has 32 bits.
     */
    bool hexadecimal(u32 &value)
    {
        skip_blanks();
        const bool negative = sign();
        bool some = literal('0');
        if (some && (*at_ == 'x' || *at_ == 'X')) {
            ++at_;
        }
        u32 magnitude = 0;
        u32 beyond = 0;
        for (unsigned char digit; (digit = kDigits[static_cast<unsigned char>(*at_)]) != kNoDigit;
             ++at_, some = true) {
            beyond |= magnitude >> 28;
            magnitude = magnitude << 4 | digit;
        }
        if (beyond != 0) {
            value = UINT32_MAX;
        } else {
            value = negative ? 0 - magnitude : magnitude;
        }
        return some;
    }

    /** "%d"; a number beyond int counts as the nearest int. */
    bool decimal(int &value)
    {
        skip_blanks();
        const bool negative = sign();
        const long long limit = negative ? -static_cast<long long>(INT_MIN) : INT_MAX;
        long long magnitude = 0;
        const char *const digits = at_;
        for (; *at_ >= '0' && *at_ <= '9'; ++at_) {
            magnitude = magnitude > limit ? magnitude : magnitude * 10 + (*at_ - '0');
        }
        magnitude = magnitude > limit ? limit : magnitude;
        value = static_cast<int>(negative ? -magnitude : magnitude);
        return at_ != digits;
    }

  private:
    static constexpr unsigned char kNoDigit = 16;

    /** The value of each hexadecimal digit, kNoDigit for other bytes: nothing to guess wrongly. */
    static constexpr auto kDigits = [] {
        std::array<unsigned char, 256> values{};
        for (unsigned char &value : values) {
            value = kNoDigit;
        }
        for (unsigned char i = 0; i < kNoDigit; ++i) {
            values[static_cast<unsigned char>("0123456789abcdef"[i])] = i;
            values[static_cast<unsigned char>("0123456789ABCDEF"[i])] = i;
        }
        return values;
    }();

    static bool is_blank(char c)
    {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= ' ' && (byte == ' ' || (byte >= '\t' && byte <= '\r'));
    }

    /** Whether a word goes on with this byte. */
    static bool is_inside(char c) { return static_cast<unsigned char>(c) > ' ' || !ends_word(c); }
    static bool ends_word(char c) { return c == '\0' || is_blank(c); }

    /** Takes a sign; whether it is a minus. */
    bool sign()
    {
        const bool negative = *at_ == '-';
        at_ += negative || *at_ == '+' ? 1 : 0;
        return negative;
    }

    const char *at_;
};

}  // namespace prod
