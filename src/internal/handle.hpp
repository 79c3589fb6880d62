// SPDX-License-Identifier: MIT
// Owners of what must be given back: descriptors, streams, pipes, directories, malloc'ed blocks.
// Giving back never changes errno, so a failure can be reported after its owner is gone.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace prod
{

/** Keeps errno as it was for as long as it lives. */
class ErrnoKeeper
{
  public:
    ErrnoKeeper() : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

  private:
    int saved_;
};

/** An open descriptor. */
class Fd
{
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
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
    void reset()
    {
        if (fd_ >= 0) {
            const ErrnoKeeper keep;
            close(release());
        }
    }

  private:
    int fd_;
};

template <auto GiveBack>
struct Closer {
    template <typename T>
    void operator()(T *what) const
    {
        const ErrnoKeeper keep;
        GiveBack(what);
    }
};

using Stream = std::unique_ptr<FILE, Closer<fclose>>;
using Pipe = std::unique_ptr<FILE, Closer<pclose>>;
using Dir = std::unique_ptr<DIR, Closer<closedir>>;

template <typename T>
using Allocated = std::unique_ptr<T, Closer<free>>;

/** Opens a text file for reading; close-on-exec, as every descriptor of the library. */
inline Stream open_for_reading(const char *path)
{
    return Stream{fopen(path, "re")};
}

}  // namespace prod
