// SPDX-License-Identifier: MIT
// The two ways the library takes lines: from a file, with the documented line limit, and out of a
// text already in memory.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

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
    explicit LineReader(Stream stream) : stream_(static_cast<Stream &&>(stream)) {}

    /** Whether the file could be opened; errno tells why not. */
    bool is_open() const { return stream_ != nullptr; }

    /** The next line, or nullptr at the end. It stays until the next call. */
    char *next()
    {
        return stream_ != nullptr ? fgets(line_, static_cast<int>(sizeof(line_)), stream_.get())
                                  : nullptr;
    }

  private:
    Stream stream_;
    char line_[Limit + 1];
};

/**
 * The same lines from an open descriptor, for long files that are read more than once and must cost
 * no memory: there is no stream.
 */
template <std::size_t Limit>
class DescriptorLines
{
  public:
    explicit DescriptorLines(int fd) : fd_(fd) {}
    DescriptorLines(const DescriptorLines &) = delete;
    DescriptorLines &operator=(const DescriptorLines &) = delete;

    /** The next line, empty at the end. It stays until the next call. */
    std::string_view next()
    {
        for (;;) {
            const std::size_t left = static_cast<std::size_t>(end_ - at_);
            const std::size_t most = left < Limit ? left : Limit;
            const void *const newline = memchr(at_, '\n', most);
            if (newline == nullptr && most < Limit && read_more()) {
                continue;
            }
            const char *const start = at_;
            at_ = newline != nullptr ? static_cast<const char *>(newline) + 1 : start + most;
            return {start, static_cast<std::size_t>(at_ - start)};
        }
    }

    /** Starts again with the first line. */
    void rewind()
    {
        lseek(fd_, 0, SEEK_SET);
        at_ = end_ = buffer_;
    }

  private:
    /** Moves what is left to the front and reads on behind it; false at the end of the file. */
    bool read_more()
    {
        const auto left = static_cast<std::size_t>(end_ - at_);
        memmove(buffer_, at_, left);
        ssize_t got;
        do {
            got = read(fd_, buffer_ + left, sizeof(buffer_) - left);
        } while (got < 0 && errno == EINTR);
        at_ = buffer_;
        end_ = buffer_ + left + (got > 0 ? got : 0);
        return got > 0;
    }

    static constexpr std::size_t kRoom = 4096;
    static_assert(Limit < kRoom);

    int fd_;
    char buffer_[kRoom];
    const char *at_ = buffer_;
    const char *end_ = buffer_;
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
