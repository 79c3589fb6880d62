// SPDX-License-Identifier: MIT
// Takes a line apart as scanf's conversions would, in a fraction of the time: lists have lines by
// the ten thousand.
#pragma once

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
        while (*at_ != '\0' && !is_blank(*at_) && static_cast<std::size_t>(at_ - from) < longest) {
            ++at_;
        }
        return {from, static_cast<std::size_t>(at_ - from)};
    }

    /** "%*s": whether there was a word to skip. */
    bool skip_word() { return !word(SIZE_MAX).empty(); }

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
        u64 magnitude = 0;
        for (int digit; (digit = digit_of(*at_)) >= 0; ++at_, some = true) {
            magnitude =
                magnitude > UINT32_MAX ? magnitude : magnitude << 4 | static_cast<u64>(digit);
        }
        if (magnitude > UINT32_MAX) {
            value = UINT32_MAX;
        } else {
            value = static_cast<u32>(negative ? 0 - magnitude : magnitude);
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
    static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    static int digit_of(char c)
    {
        if (c >= '0' && c <= '9') {
            return c - '0';
        }
        const char lower = static_cast<char>(c | 0x20);
        return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
    }

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
