// SPDX-License-Identifier: MIT
// The flash of a program that this is loaded into (LD_PRELOAD) goes wrong as FLASH_FAULT says:
//
//   kill N    the process is killed in front of step N
//   fail N    step N fails with EIO
//   signal N  what would end a program is sent to it in front of step N
//   short     every other transfer is interrupted, the others move at most 1000 bytes
//   ignore    writes change nothing, and say that all went well
//   spoil N   the first N writes of contents change a byte
//
// A step is a call that changes a file, or asks for its change to be kept.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/interpose.hpp"

namespace
{

struct Fault {
    char kind[16] = "";
    int number = 0;

    Fault()
    {
        const char *const text = getenv("FLASH_FAULT");
        if (text != nullptr) {
            sscanf(text, "%15s %d", kind, &number);
        }
    }
    bool is(const char *wanted) const { return strcmp(kind, wanted) == 0; }
};

/** What the program starts is not meant, and may be for another processor. */
__attribute__((constructor)) void stay_in_this_program()
{
    unsetenv("LD_PRELOAD");
}

Fault &fault()
{
    static Fault the_fault;
    return the_fault;
}

/** Counts a step; true when it must fail. */
bool step()
{
    static int steps;
    if (++steps != fault().number) {
        return false;
    }
    if (fault().is("kill")) {
        kill(getpid(), SIGKILL);
    }
    if (fault().is("signal")) {
        for (const int signo : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) {
            raise(signo);
        }
    }
    if (fault().is("fail")) {
        errno = EIO;
        return true;
    }
    return false;
}

/** True when a transfer is interrupted; else what is left of its size. */
bool interrupt(size_t &size)
{
    static unsigned int transfers;
    if (!fault().is("short")) {
        return false;
    }
    if (++transfers % 2 == 1) {
        errno = EINTR;
        return true;
    }
    size = std::min(size, size_t{1000});
    return false;
}

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED ssize_t pwrite(int fd, const void *bytes, size_t size, off_t at)
{
    if (step()) {
        return -1;
    }
    if (interrupt(size)) {
        return -1;
    }
    if (fault().is("ignore")) {
        return static_cast<ssize_t>(size);
    }
    std::string copy{static_cast<const char *>(bytes), size};
    if (at > 0 && fault().is("spoil") && fault().number > 0) {
        --fault().number;
        copy[size / 2] = static_cast<char>(copy[size / 2] ^ 1);
    }
    return test::next(pwrite, WIDE("pwrite"))(fd, copy.data(), size, at);
}

EXPORTED ssize_t pread(int fd, void *bytes, size_t size, off_t at)
{
    if (interrupt(size)) {
        return -1;
    }
    return test::next(pread, WIDE("pread"))(fd, bytes, size, at);
}

EXPORTED int fsync(int fd)
{
    size_t nothing = 0;
    if (step() || interrupt(nothing)) {
        return -1;
    }
    return test::next(fsync, "fsync")(fd);
}

EXPORTED int ftruncate(int fd, off_t size) noexcept
{
    return step() ? -1 : test::next(ftruncate, WIDE("ftruncate"))(fd, size);
}

EXPORTED int fallocate(int fd, int mode, off_t at, off_t size)
{
    return step() ? -1 : test::next(fallocate, WIDE("fallocate"))(fd, mode, at, size);
}

EXPORTED void sync(void) noexcept
{
    step();
    test::next(sync, "sync")();
}
