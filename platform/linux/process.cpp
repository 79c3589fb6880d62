// SPDX-License-Identifier: MIT
#include "platform/process.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "handle.hpp"

namespace
{

constexpr std::size_t kUsualText = 10240;  // longest log line; longer texts take the heap
constexpr mode_t kNewFileMode = 0644;

/** A formatted text of any length, on the stack unless it is longer than usual. */
class Formatted
{
  public:
    __attribute__((format(printf, 2, 0))) Formatted(const char *format, va_list args)
    {
        va_list again;
        va_copy(again, args);
        const int wanted = vsnprintf(usual_, sizeof(usual_), format, args);
        if (wanted >= static_cast<int>(sizeof(usual_))) {
            long_.reset(static_cast<char *>(malloc(static_cast<std::size_t>(wanted) + 1)));
            if (long_ != nullptr) {
                vsnprintf(long_.get(), static_cast<std::size_t>(wanted) + 1, format, again);
            }
        }
        va_end(again);
        size_ = wanted < 0 ? 0 : static_cast<std::size_t>(wanted);
        complete_ = wanted >= 0 && (size_ < sizeof(usual_) || long_ != nullptr);
    }

    /** False when the memory for a long text could not be had. */
    bool complete() const { return complete_; }
    const char *c_str() const { return long_ != nullptr ? long_.get() : usual_; }
    std::size_t size() const { return size_; }

  private:
    char usual_[kUsualText];
    platform::Allocated<char> long_;
    std::size_t size_;
    bool complete_;
};

/** Waits at most a second: a daemon that does not read must not hold up its clients. */
constexpr timeval kSendTimeout{1, 0};

bool send_all(int socket, iovec *parts, std::size_t count)
{
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    std::size_t left = 0;
    for (std::size_t i = 0; i < count; ++i) {
        left += parts[i].iov_len;
    }
    while (left > 0) {
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        left -= static_cast<std::size_t>(sent);
        auto skip = static_cast<std::size_t>(sent);
        while (message.msg_iovlen > 0 && skip >= message.msg_iov->iov_len) {
            skip -= message.msg_iov->iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen > 0) {
            message.msg_iov->iov_base = static_cast<char *>(message.msg_iov->iov_base) + skip;
            message.msg_iov->iov_len -= skip;
        }
    }
    return true;
}

}  // namespace

int doSystemCmd(const char *format, ...)
{
    if (format == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const Formatted command{format, args};
    va_end(args);
    return command.complete() ? system(command.c_str()) : -1;
}

int do_file_cmd(const char *path, int mode, const char *format, ...)
{
    if (path == nullptr || format == nullptr) {
        errno = EINVAL;
        return -1;
    }
    va_list args;
    va_start(args, format);
    const Formatted text{format, args};
    va_end(args);
    if (!text.complete()) {
        errno = ENOMEM;
        return -1;
    }
    const int how = mode == 0 ? O_TRUNC : O_APPEND;
    const platform::Fd fd{open(path, O_WRONLY | O_CREAT | O_CLOEXEC | how, kNewFileMode)};
    if (!fd) {
        return -1;
    }
    const ssize_t written = write(fd.get(), text.c_str(), text.size());
    return written == static_cast<ssize_t>(text.size()) ? 0 : -1;
}

int monitor_check_exist(const char *process_name)
{
    const platform::Dir proc{process_name != nullptr ? opendir("/proc") : nullptr};
    if (proc == nullptr) {
        return 0;
    }
    while (const dirent *const entry = readdir(proc.get())) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') {
            continue;
        }
        char path[sizeof("/proc//comm") + sizeof(entry->d_name)];
        snprintf(path, sizeof(path), "/proc/%s/comm", entry->d_name);
        const platform::Stream stream{fopen(path, "re")};
        char name[64];
        if (stream == nullptr || fgets(name, sizeof(name), stream.get()) == nullptr) {
            continue;
        }
        name[strcspn(name, "\n")] = '\0';
        if (strcmp(name, process_name) == 0) {
            return 1;
        }
    }
    return 0;
}

int hlx_proc_send_msg(HLX_MSG *frame, const char *socket_path)
{
    sockaddr_un address{};
    if (frame == nullptr || socket_path == nullptr || frame->Length < 0 ||
        strlen(socket_path) >= sizeof(address.sun_path)) {
        errno = EINVAL;
        return -1;
    }
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, socket_path);
    const platform::Fd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!fd ||
        setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &kSendTimeout, sizeof(kSendTimeout)) != 0 ||
        connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        return -1;
    }
    iovec parts[] = {{&frame->Length, sizeof(frame->Length)},
                     {frame->Body, static_cast<std::size_t>(frame->Length)}};
    return send_all(fd.get(), parts, 2) ? 0 : -1;
}
