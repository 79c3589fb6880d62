// SPDX-License-Identifier: MIT
// The two ways the library takes lines: from a file, with the documented line limit, and out of a
// text already in memory.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "internal/handle.hpp"

namespace prod
{

/**
 * Lines of a file, Limit characters at most; the rest of a longer line comes as the next one, as
 * with fgets. A line keeps its newline, which some formats rely on. It stays where it was read to,
 * since lists have lines by the ten thousand.
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
        block_[start_] = behind_;  // where the last line has its NUL
        const char *newline = find_newline();
        if (newline == nullptr && end_ - start_ < Limit) {
            read_on();
            newline = find_newline();
        }
        char *const line = block_ + start_;
        const std::size_t length = newline != nullptr ? static_cast<std::size_t>(newline - line) + 1
                                                      : std::min(end_ - start_, Limit);
        cut_ = newline == nullptr && length == Limit;
        start_ += length;
        behind_ = block_[start_];
        block_[start_] = '\0';
        return length > 0 ? line : nullptr;
    }

    /** Drops the rest of a line that the limit cut, and the line with it. */
    void skip_rest()
    {
        while (cut_ && next() != nullptr) {
        }
    }

  private:
    static constexpr std::size_t kBlock = std::max<std::size_t>(Limit, 4096);

    const char *find_newline() const
    {
        return static_cast<const char *>(
            memchr(block_ + start_, '\n', std::min(end_ - start_, Limit)));
    }

    /** Fills the block up behind the part of a line that it ends with. */
    void read_on()
    {
        memmove(block_, block_ + start_, end_ - start_);
        end_ -= start_;
        start_ = 0;
        // Nobody else has this stream, so it need not be locked.
        end_ +=
            stream_ != nullptr ? fread_unlocked(block_ + end_, 1, kBlock - end_, stream_.get()) : 0;
    }

    Stream stream_;
    std::size_t start_ = 0;  // of what has not been handed out
    std::size_t end_ = 0;
    bool cut_ = false;
    char behind_ = '\0';
    char block_[kBlock + 1];
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
