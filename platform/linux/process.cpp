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
#include <string_view>

#include "file.hpp"
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

constexpr std::size_t kKernelName = 15;  // what the kernel keeps of a process name

/** Whether the process of that number has this name and has not ended. */
bool runs(const char *number, std::string_view wanted)
{
    char path[sizeof("/proc//stat") + sizeof(dirent::d_name)];
    snprintf(path, sizeof(path), "/proc/%s/stat", number);
    const platform::Fd fd{open(path, O_RDONLY | O_CLOEXEC)};
    char text[128];  // the number, the name in parentheses, the state
    const ssize_t got = fd ? read(fd.get(), text, sizeof(text)) : -1;
    if (got <= 0) {
        return false;
    }
    const std::string_view stat{text, static_cast<std::size_t>(got)};
    const std::size_t open_at = stat.find('(');
    const std::size_t close_at = stat.rfind(')');
    if (open_at == std::string_view::npos || close_at == std::string_view::npos ||
        close_at < open_at || close_at + 2 >= stat.size()) {
        return false;
    }
    const char state = stat[close_at + 2];
    return state != 'Z' && state != 'X' &&
           platform::after(platform::first_of(stat, close_at), open_at + 1) == wanted;
}

int connect_again(int socket, const sockaddr_un &address)
{
    int rc = 0;
    do {
        rc = connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    } while (rc != 0 && errno == EINTR);
    return rc;
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
    if (written == static_cast<ssize_t>(text.size())) {
        return 0;
    }
    if (written >= 0) {
        errno = ENOSPC;  // the part that fits is there, the rest is lost
    }
    return -1;
}

int monitor_check_exist(const char *process_name)
{
    if (process_name == nullptr || process_name[0] == '\0') {
        return 0;
    }
    const std::string_view wanted{process_name, strnlen(process_name, kKernelName)};
    const platform::Dir proc{opendir("/proc")};
    while (const dirent *const entry = proc != nullptr ? readdir(proc.get()) : nullptr) {
        if (entry->d_name[0] >= '1' && entry->d_name[0] <= '9' && runs(entry->d_name, wanted)) {
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
        connect_again(fd.get(), address) != 0) {
        return -1;
    }
    iovec parts[] = {{&frame->Length, sizeof(frame->Length)},
                     {frame->Body, static_cast<std::size_t>(frame->Length)}};
    return send_all(fd.get(), parts, 2) ? 0 : -1;
}
