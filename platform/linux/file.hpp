// SPDX-License-Identifier: MIT
// Whole files in memory, and parts of texts.
#pragma once

#include <sys/types.h>

#include <charconv>
#include <cstring>
#include <string_view>
#include <system_error>

#include "handle.hpp"

namespace platform
{

/** The first @p count bytes of a text, or all of it. Unlike substr() it pulls no exceptions in. */
inline std::string_view first_of(std::string_view text, std::size_t count)
{
    return {text.data(), count < text.size() ? count : text.size()};
}

/** What follows the first @p count bytes. */
inline std::string_view after(std::string_view text, std::size_t count)
{
    text.remove_prefix(count < text.size() ? count : text.size());
    return text;
}

/** Copies at most N - 1 characters and terminates. */
template <std::size_t N>
void copy_text(char (&out)[N], std::string_view text)
{
    const std::size_t length = text.size() < N ? text.size() : N - 1;
    memcpy(out, text.data(), length);
    out[length] = '\0';
}

/** Takes a decimal number from the front of a text; false, and nothing taken, without one. */
template <typename Number>
bool take_number(std::string_view &text, Number &number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{}) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

/** Text that grows, on the heap. */
class Buffer
{
  public:
    /** False when the memory cannot be had; the text is then as it was. */
    bool append(std::string_view text)
    {
        if (!reserve(size_ + text.size())) {
            return false;
        }
        memcpy(data_.get() + size_, text.data(), text.size());
        size_ += text.size();
        return true;
    }

    bool reserve(std::size_t size);
    std::string_view view() const { return {data_.get(), size_}; }
    char *release() { return data_.release(); }

  private:
    Allocated<char> data_;
    std::size_t size_ = 0;
    std::size_t room_ = 0;
};

/**
 * Appends a whole file to @p out; false when it cannot be read, is no regular file or is larger
 * than @p largest.
 */
bool read_file(const char *path, Buffer &out, off_t largest);

/** Writes all of a text, over interrupted and short writes. */
bool write_all(int fd, std::string_view text);

}  // namespace platform
