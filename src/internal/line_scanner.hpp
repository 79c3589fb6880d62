// SPDX-License-Identifier: MIT
// A line taken apart as scanf would, in a fraction of its time and without its unbounded copies:
// file formats that daemons know as scan patterns are read exactly as those patterns read them, and
// lists have lines by the ten thousand.
#pragma once

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "prod_common_types.h"

namespace prod
{

/**
 * One line and how far it has been taken apart. Texts come as views into the line; a text needs at
 * least one character, and where one is missing all that follow are empty.
 */
class LineScanner
{
  public:
    explicit LineScanner(const char *line) : at_(line) {}

    bool at_end() const { return *at_ == '\0'; }

    /** " ": passes over white space, if there is any. */
    void skip_blanks()
    {
        while (is_blank(*at_)) {
            ++at_;
        }
    }

    /** "%<longest>s": the next word; what is beyond @p longest is left for the next conversion. */
    std::string_view word(std::size_t longest = static_cast<std::size_t>(-1))
    {
        skip_blanks();
        const char *const from = at_;
        while (is_inside(*at_) && static_cast<std::size_t>(at_ - from) < longest) {
            ++at_;
        }
        return taken_since(from);
    }

    /** "%*s": whether there was a word to skip. */
    bool skip_word() { return !word().empty(); }

    /**
     * "%[^...]": what stands before the first of the characters, or the whole rest. Out of line: a
     * reader has many of them, and the flash is small.
     */
    template <char Stop, char... Stops>
    [[gnu::noinline]] std::string_view until()
    {
        const char *const from = at_;
        if constexpr (sizeof...(Stops) == 0) {
            at_ = strchrnul(at_, Stop);
        } else {
            // strcspn would make a table of its characters each time.
            while (*at_ != '\0' && *at_ != Stop && ((*at_ != Stops) && ...)) {
                ++at_;
            }
        }
        return taken_since(from);
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

    /** What has been passed over; without a character of it there is no more to come. */
    std::string_view taken_since(const char *from)
    {
        const std::string_view text{from, static_cast<std::size_t>(at_ - from)};
        if (text.empty()) {
            at_ = "";
        }
        return text;
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
