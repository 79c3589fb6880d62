// SPDX-License-Identifier: MIT
// The two ways the library takes lines: from a file, with the documented line limit, and out of a
// text already in memory.
#pragma once

#include <cstdio>
#include <cstring>

#include "internal/handle.hpp"

namespace prod
{

/**
 * Lines of a file, Limit characters at most; the rest of a longer line comes as the next one, as
 * with fgets. A line keeps its newline, which some formats rely on.
 */
template <std::size_t Limit>
class LineReader
{
  public:
    explicit LineReader(const char *path) : LineReader(open_for_reading(path)) {}
    explicit LineReader(Stream stream) : stream_(static_cast<Stream &&>(stream))
    {
        line_[kLast] = '\0';
    }

    /** Whether the file could be opened; errno tells why not. */
    bool is_open() const { return stream_ != nullptr; }

    /** The next line, or nullptr at the end. It stays until the next call. */
    char *next()
    {
        line_[kLast] = '\0';
        return stream_ != nullptr ? fgets(line_, static_cast<int>(sizeof(line_)), stream_.get())
                                  : nullptr;
    }

    /** Drops the rest of a line that the limit cut, and the line with it. */
    void skip_rest()
    {
        while (line_[kLast] != '\0' && line_[kLast] != '\n' && next() != nullptr) {
        }
    }

  private:
    static constexpr std::size_t kLast = Limit - 1;  // the place of a full line's last character

    Stream stream_;
    char line_[Limit + 1];
};

/** Removes one trailing newline. */
inline void drop_newline(char *line)
{
    const std::size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\n') {
        line[length - 1] = '\0';
    }
}

/** Splits a text in place on newlines; empty lines vanish. */
class LineSplitter
{
  public:
    explicit LineSplitter(char *text) : rest_(text) {}
    char *next()
    {
        char *const from = rest_;
        rest_ = nullptr;
        return strtok_r(from, "\n", &state_);
    }

  private:
    char *rest_;
    char *state_ = nullptr;
};

}  // namespace prod
