// SPDX-License-Identifier: MIT
// The ways the library takes lines: from a file or an open descriptor, with the documented line
// limit, and out of a text already in memory.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "internal/handle.hpp"

namespace prod
{

/**
 * Lines from an open descriptor, Limit characters at most; the rest of a longer line comes as the
 * next one, as with fgets. A line keeps its newline, which some formats rely on. It stays where it
 * was read to, since lists have lines by the ten thousand; there is no stream, so it costs no heap.
 */
template <std::size_t Limit>
class DescriptorLines
{
  public:
    explicit DescriptorLines(int fd) : fd_(fd) {}

    int fd() const { return fd_; }

    /** The next line, or nullptr at the end. It stays until the next call. */
    char *next()
    {
        block_[start_] = behind_;  // where the last line has its NUL
        const char *newline = find_newline();
        while (newline == nullptr && end_ - start_ < Limit && read_on()) {
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

    /** Starts again with the first line. */
    void rewind()
    {
        lseek(fd_, 0, SEEK_SET);
        start_ = end_ = 0;
        cut_ = false;
        behind_ = '\0';
    }

  private:
    static constexpr std::size_t kBlock = std::max<std::size_t>(Limit, 4096);

    const char *find_newline() const
    {
        return static_cast<const char *>(
            memchr(block_ + start_, '\n', std::min(end_ - start_, Limit)));
    }

    /** Reads on behind the part of a line that is left; false at the end of the file. */
    bool read_on()
    {
        memmove(block_, block_ + start_, end_ - start_);
        end_ -= start_;
        start_ = 0;
        if (fd_ < 0) {
            return false;  // and errno still tells why
        }
        ssize_t got;
        do {
            got = read(fd_, block_ + end_, kBlock - end_);
        } while (got < 0 && errno == EINTR);
        end_ += got > 0 ? static_cast<std::size_t>(got) : 0;
        return got > 0;
    }

    int fd_;
    std::size_t start_ = 0;  // of what has not been handed out
    std::size_t end_ = 0;
    bool cut_ = false;
    char behind_ = '\0';
    char block_[kBlock + 1];
};

/** The same of a file. */
template <std::size_t Limit>
class LineReader : public DescriptorLines<Limit>
{
  public:
    explicit LineReader(const char *path) : LineReader(Fd{open(path, O_RDONLY | O_CLOEXEC)}) {}

    /** Whether the file could be opened; errno tells why not. */
    bool is_open() const { return static_cast<bool>(file_); }

  private:
    explicit LineReader(Fd file)
        : DescriptorLines<Limit>(file.get()), file_(static_cast<Fd &&>(file))
    {
    }

    Fd file_;
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
