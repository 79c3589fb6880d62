// SPDX-License-Identifier: MIT
// Text in fixed room: formatted keys, paths, commands and lines that are cut, never overrun.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "prod_common_types.h"

namespace prod
{

/** The white space of scanf and of isspace() in the device's locale. */
inline constexpr const char *kBlanks = " \t\n\v\f\r";

/** What "%s" prints for a null text on the device; said explicitly, since libraries differ. */
inline const char *or_null(const char *text)
{
    return text != nullptr ? text : "(null)";
}

/** Copies at most @p size - 1 characters and terminates; does nothing when there is no room. */
inline void copy_text(char *out, std::size_t size, std::string_view text)
{
    if (size == 0) {
        return;
    }
    const std::size_t length = text.size() < size ? text.size() : size - 1;
    memcpy(out, text.data(), length);
    out[length] = '\0';
}

/** The same for a text that ends with a NUL; callers need not measure it. */
inline void copy_text(char *out, std::size_t size, const char *text)
{
    copy_text(out, size, std::string_view{text});
}

template <std::size_t N>
void copy_text(char (&out)[N], std::string_view text)
{
    copy_text(out, N, text);
}

template <std::size_t N>
void copy_text(char (&out)[N], const char *text)
{
    copy_text(out, N, text);
}

/**
 * Takes a prefix and the number behind it off a text, as scanf's "<prefix>%d" would; @p text moves
 * on only when both are there. A number beyond int counts as the nearest int, in a type with room
 * for calculations.
 */
inline std::optional<long long> take_number(const char *&text, std::string_view prefix)
{
    if (strncmp(text, prefix.data(), prefix.size()) != 0) {
        return std::nullopt;
    }
    const char *const digits = text + prefix.size();
    char *end;
    const long long number = strtoll(digits, &end, 10);
    if (end == digits) {
        return std::nullopt;
    }
    text = end;
    return std::clamp<long long>(number, INT_MIN, INT_MAX);
}

// What texts of all sizes have in common, once in the library and not once for each size. Each
// takes the room, the size of the room and the length so far, and returns the new length.

[[gnu::noinline]] inline std::size_t append_text(char *data, std::size_t size, std::size_t length,
                                                 std::string_view text)
{
    copy_text(data + length, size - length, text);
    return std::min(length + text.size(), size - 1);
}

[[gnu::noinline]] inline std::size_t append_text(char *data, std::size_t size, std::size_t length,
                                                 const char *text)
{
    return append_text(data, size, length, std::string_view{text});
}

[[gnu::noinline]] __attribute__((format(printf, 4, 0))) inline std::size_t append_formatted(
    char *data, std::size_t size, std::size_t length, const char *format, va_list args)
{
    const int wanted = vsnprintf(data + length, size - length, format, args);
    if (wanted < 0) {
        data[length] = '\0';
        return length;
    }
    return std::min(length + static_cast<std::size_t>(wanted), size - 1);
}

/** A formatted text of at most Size - 1 characters; what does not fit is cut. */
template <std::size_t Size>
class Text
{
  public:
    Text() { data_[0] = '\0'; }

    PROD_PRINTF(2, 3) explicit Text(const char *format, ...)
    {
        data_[0] = '\0';
        va_list args;
        va_start(args, format);
        vappend(format, args);
        va_end(args);
    }

    PROD_PRINTF(2, 3) void appendf(const char *format, ...)
    {
        va_list args;
        va_start(args, format);
        vappend(format, args);
        va_end(args);
    }

    void append(std::string_view text) { length_ = append_text(data_, Size, length_, text); }
    void append(const char *text) { length_ = append_text(data_, Size, length_, text); }
    void append(char c) { append(std::string_view{&c, 1}); }

    void clear()
    {
        length_ = 0;
        data_[0] = '\0';
    }

    /** Puts another character for each of one kind, from @p begin on. */
    void replace(std::size_t begin, char from, char to)
    {
        std::replace(data_ + std::min(begin, length_), data_ + length_, from, to);
    }

    void drop_last()
    {
        if (length_ > 0) {
            data_[--length_] = '\0';
        }
    }

    __attribute__((format(printf, 2, 0))) void vappend(const char *format, va_list args)
    {
        length_ = append_formatted(data_, Size, length_, format, args);
    }

    const char *c_str() const { return data_; }
    std::string_view view() const { return {data_, length_}; }
    std::size_t size() const { return length_; }
    bool empty() const { return length_ == 0; }
    static constexpr std::size_t capacity() { return Size; }

  private:
    std::size_t length_ = 0;
    char data_[Size];
};

}  // namespace prod
