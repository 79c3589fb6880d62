// SPDX-License-Identifier: MIT
#include "file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace platform
{
namespace
{

constexpr std::size_t kFirstRoom = 4096;

}  // namespace

bool Buffer::reserve(std::size_t size)
{
    if (size <= room_) {
        return true;
    }
    std::size_t room = room_ > 0 ? room_ : kFirstRoom;
    while (room < size) {
        room *= 2;
    }
    auto *const larger = static_cast<char *>(realloc(data_.get(), room));
    if (larger == nullptr) {
        return false;
    }
    static_cast<void>(data_.release());
    data_.reset(larger);
    room_ = room;
    return true;
}

bool read_file(const char *path, Buffer &out, off_t largest)
{
    const Fd fd{open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat status;
    if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > largest) {
        return false;
    }
    char chunk[4096];
    for (;;) {
        const ssize_t got = read(fd.get(), chunk, sizeof(chunk));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return got == 0;
        }
        if (!out.append({chunk, static_cast<std::size_t>(got)})) {
            return false;
        }
    }
}

bool write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace platform
