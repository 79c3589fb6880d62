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
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
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

/** Whether a directory entry of /proc is a process of a name. */
bool is_process(const dirent &entry, std::string_view wanted)
{
    return entry.d_name[0] >= '1' && entry.d_name[0] <= '9' && runs(entry.d_name, wanted);
}

/** Walks through the processes of a name as the kernel keeps it. */
class Processes
{
  public:
    explicit Processes(const char *name)
        : wanted_(name, strnlen(name, kKernelName)), proc_(opendir("/proc"))
    {
    }

    /** The number of the next one, 0 behind the last. */
    pid_t next()
    {
        while (const dirent *const entry = proc_ != nullptr ? readdir(proc_.get()) : nullptr) {
            if (is_process(*entry, wanted_)) {
                return static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
            }
        }
        return 0;
    }

  private:
    std::string_view wanted_;
    platform::Dir proc_;
};

bool is_empty(const char *text)
{
    return text == nullptr || text[0] == '\0';
}

// ---- the process monitor -----------------------------------------------------------------------

constexpr const char *kServices = "/var/service";  // where the monitor has a folder per daemon
constexpr timespec kStopStep{0, 20000000};
constexpr int kStopSteps = 100;  // two seconds

/**
 * One daemon in the process monitor's care, by the files of its "supervise" folder: commands go
 * into "control", and "stat" tells what it does.
 */
class Service
{
  public:
    explicit Service(const char *name) : name_(name) {}

    /** Hands a command to the monitor; false when it does not look after the daemon. */
    bool tell(char command) const
    {
        const platform::Fd control = open_file("control", O_WRONLY | O_NONBLOCK);
        return control && write(control.get(), &command, 1) == 1;
    }

    /** Whether the daemon, and what ends it, has ended. */
    bool is_down() const
    {
        const platform::Fd stat = open_file("stat", O_RDONLY);
        char text[16];
        const ssize_t got = stat ? read(stat.get(), text, sizeof(text)) : 0;
        return got > 0 && std::string_view{text, static_cast<std::size_t>(got)}.starts_with("down");
    }

  private:
    platform::Fd open_file(const char *file, int how) const
    {
        char path[PATH_MAX];
        const int length =
            snprintf(path, sizeof(path), "%s/%s/supervise/%s", kServices, name_, file);
        return platform::Fd{length < static_cast<int>(sizeof(path)) ? open(path, how | O_CLOEXEC)
                                                                    : -1};
    }

    const char *name_;
};

/** Waits until a daemon has ended, two seconds at most. */
template <typename HasEnded>
bool wait_for_end(HasEnded has_ended)
{
    for (int i = 0; i < kStopSteps; ++i) {
        if (has_ended()) {
            return true;
        }
        nanosleep(&kStopStep, nullptr);
    }
    return has_ended();
}

/** A stop that the monitor has been told of. */
bool stop_supervised(const Service &service)
{
    const auto is_down = [&] { return service.is_down(); };
    return wait_for_end(is_down) || (service.tell('k') && wait_for_end(is_down));
}

// ---- messages ----------------------------------------------------------------------------------

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
    return !is_empty(process_name) && Processes{process_name}.next() != 0 ? 1 : 0;
}

int proc_send_signal(const char *process_name, int signo)
{
    if (is_empty(process_name) || signo < 0 || signo >= NSIG) {
        errno = EINVAL;
        return -1;
    }
    int failure = ESRCH;
    Processes processes{process_name};
    while (const pid_t pid = processes.next()) {
        if (kill(pid, signo) == 0) {
            failure = 0;
        } else if (failure == ESRCH) {
            failure = errno;
        }
    }
    errno = failure;
    return failure == 0 ? 0 : -1;
}

int monitor_stop(const char *process_name)
{
    if (is_empty(process_name) || process_name[0] == '.' || strchr(process_name, '/') != nullptr) {
        errno = EINVAL;
        return -1;
    }
    const Service service{process_name};
    if (service.tell('d') && !stop_supervised(service)) {
        errno = ETIMEDOUT;
        return -1;
    }
    for (const int signo : {SIGTERM, SIGKILL}) {
        if (proc_send_signal(process_name, signo) != 0) {
            return errno == ESRCH ? 0 : -1;
        }
        if (wait_for_end([=] { return monitor_check_exist(process_name) == 0; })) {
            return 0;
        }
    }
    errno = ETIMEDOUT;
    return -1;
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
    platform::copy_text(address.sun_path, socket_path);
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
