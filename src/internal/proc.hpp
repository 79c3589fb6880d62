// SPDX-License-Identifier: MIT
// How the library reads a process's entry under /proc.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "internal/handle.hpp"
#include "internal/text.hpp"

namespace prod
{

inline constexpr std::size_t kProcessNameSize = 32;  // the kernel keeps 15 characters
inline constexpr std::size_t kProcessStatLine =
    1023;  // longest first line of /proc/<pid>/stat looked at

/**
 * The start of "/proc/<pid>/stat". Read without stdio: a signal handler may ask for a name, and a
 * scan of all processes opens hundreds of these.
 */
class ProcessStat
{
  public:
    explicit ProcessStat(int pid) : path_("/proc/%d/stat", pid)
    {
        const Fd fd{open(path_.c_str(), O_RDONLY | O_CLOEXEC)};
        is_open_ = static_cast<bool>(fd);
        const ssize_t got = is_open_ ? read(fd.get(), line_, kProcessStatLine) : 0;
        line_[got > 0 ? got : 0] = '\0';
        char *const end = strchr(line_, '\n');
        if (end != nullptr) {
            end[1] = '\0';
        }
    }

    /** Whether the file could be opened; errno tells why not. */
    bool is_open() const { return is_open_; }
    const char *path() const { return path_.c_str(); }

    /** What stands between the first "(" and the following ")"; empty when there is no name. */
    std::string_view name() const &
    {
        int start = 0;
        sscanf(line_, "%*d (%n", &start);
        if (start == 0) {
            return {};
        }
        const char *const from = line_ + start;
        return {from, strcspn(from, ")")};
    }
    std::string_view name() && = delete;  // the text is in here

  private:
    Text<64> path_;
    bool is_open_;
    char line_[kProcessStatLine + 1];
};

}  // namespace prod
