// SPDX-License-Identifier: MIT
// Owners of descriptors, streams, directories and blocks for this port. A port shares no code with
// the library above it, so it has its own few lines. Giving back never changes errno.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace platform
{

template <auto GiveBack>
struct Closer {
    template <typename T>
    void operator()(T *what) const
    {
        const int saved = errno;
        GiveBack(what);
        errno = saved;
    }
};

using Stream = std::unique_ptr<FILE, Closer<fclose>>;
using Dir = std::unique_ptr<DIR, Closer<closedir>>;

template <typename T>
using Allocated = std::unique_ptr<T, Closer<free>>;

class Fd
{
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd()
    {
        if (fd_ >= 0) {
            const int saved = errno;
            close(fd_);
            errno = saved;
        }
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_;
};

}  // namespace platform
