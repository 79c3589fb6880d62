// SPDX-License-Identifier: MIT
// A line taken apart as scanf would: file formats that daemons know as scan patterns are read
// exactly as those patterns read them, without scanf's unbounded copies and in a part of its time.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace prod
{

/**
 * One line and how far it has been taken apart. Fields come one by one, as views into the line; a
 * field needs at least one character, and where one is missing all that follow are empty. Taking a
 * field stays out of line: a reader has many of them, and the flash is small.
 */
class LineScan
{
  public:
    /** Scans up to the first NUL. */
    explicit LineScan(std::string_view line)
        : at_(line.data()), end_(at_ + strnlen(line.data(), line.size()))
    {
    }

    /** " ": passes over white space, if there is any. */
    [[gnu::noinline]] void blanks()
    {
        while (at_ != end_ && is_blank(*at_)) {
            ++at_;
        }
    }

    /** "%[^...]": what stands before the first of the characters, or before the end. */
    template <char Stop, char... Stops>
    [[gnu::noinline]] std::string_view until()
    {
        if constexpr (sizeof...(Stops) == 0) {
            const void *const stop = memchr(at_, Stop, left());
            return take_to(stop != nullptr ? static_cast<const char *>(stop) : end_);
        } else {
            return take(end_, [](char c) { return c == Stop || ((c == Stops) || ...); });
        }
    }

    /** "%<longest>s": the next word; what is beyond @p longest is left for the next field. */
    [[gnu::noinline]] std::string_view word(std::size_t longest = static_cast<std::size_t>(-1))
    {
        blanks();
        return take(at_ + (longest < left() ? longest : left()), is_blank);
    }

  private:
    static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }

    template <typename IsStop>
    std::string_view take(const char *limit, IsStop is_stop)
    {
        const char *stop = at_;
        while (stop != limit && !is_stop(*stop)) {
            ++stop;
        }
        return take_to(stop);
    }

    std::string_view take_to(const char *stop)
    {
        const std::string_view field{at_, static_cast<std::size_t>(stop - at_)};
        at_ = field.empty() ? end_ : stop;
        return field;
    }

    const char *at_;
    const char *end_;
};

}  // namespace prod
