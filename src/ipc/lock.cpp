// SPDX-License-Identifier: MIT
#include "ipc/lock.h"

#include <fcntl.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "internal/log.hpp"
#include "internal/sysv.hpp"
#include "prod_common_time.h"

using namespace prod;

namespace
{

// ---- named locks ------------------------------------------------------------------------------

constexpr unsigned int kRetrySeconds = 1;
constexpr useconds_t kTryEveryUs = 100000;

enum : int { kRelease = 0, kAcquire = 1 };
enum : int { kNoWait = 0, kWait = 1 };

/** The argument of semctl(), which every program has to declare for itself. */
union semun {
    int val;
    semid_ds *buf;
    unsigned short *array;
};

/** The key file that the arguments of a call name; empty without a format. */
__attribute__((format(printf, 1, 0))) KeyFile lock_file(const char *format, va_list args)
{
    KeyFile path;
    if (format == nullptr) {
        return path;
    }
    path.append("/var/run/lock.");
    const std::size_t name = path.size();
    path.vappend(format, args);
    path.replace(name, '/', '_');
    return path;
}

/** Finds or creates the semaphore. @return its id or -1 */
int get_sem_id(const KeyFile &path)
{
    if (path.empty()) {
        PROD_LOG_ERROR(kProd, "Failed to get sem id, invalid arguments.");
        return -1;
    }
    const key_t key = key_of(path);
    if (key == -1) {
        const int err = errno;
        log_failure(PROD_SITE, err, "call ftok(%s)", path.c_str());
        return -1;
    }
    const auto [id, created] =
        find_or_create(key, [=](int flags) { return semget(key, 1, flags); });
    if (id < 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "create semaphore");
        return -1;
    }
    if (created) {
        // Held until it has its value, so whoever finds it in between waits or goes away.
        register_object("/var/run/id.lock", key, id, path.c_str());
        if (semctl(id, 0, SETVAL, semun{.val = 1}) < 0) {
            const int err = errno;
            log_failure(PROD_SITE, err, "initialize semaphore");
            return -1;
        }
    }
    return id;
}

/** One step up or down. @return 1, or 0 with errno */
int do_sema_op(int id, sembuf *record, int acquire, int wait)
{
    if (semop(id, record, 1) == 0) {
        return 1;
    }
    const ErrnoKeeper keep;
    const int err = errno;
    const char *const what = acquire ? "acquire" : "release";
    // That a lock is taken is ordinary news for someone who does not wait.
    if (err != EAGAIN || wait) {
        log_failure(PROD_SITE, err, "%s semaphore @ %s", what, get_self_pname());
    } else {
        PROD_LOG_DEBUG(kProd, "Failed(%d) to %s semaphore @ %s, %s.", err, what, get_self_pname(),
                       strerror(err));
    }
    return 0;
}

/** @return 1; 0 with errno, which is 0 when there is no semaphore */
int ipc_lock_op(int id, int acquire, int wait)
{
    if (id < 0) {
        errno = 0;
        return 0;
    }
    sembuf record = {};
    record.sem_op = acquire ? -1 : 1;
    // With SEM_UNDO the kernel releases what a process holds when it ends.
    record.sem_flg = static_cast<short>(SEM_UNDO | (wait ? 0 : IPC_NOWAIT));
    return do_sema_op(id, &record, acquire, wait);
}

// ---- locks on open files ----------------------------------------------------------------------

enum FileLock : int { kShared = 0, kExclusive = 1, kNone = 2 };

int fd_lock_op(int fd, FileLock type)
{
    constexpr short kTypes[] = {F_RDLCK, F_WRLCK, F_UNLCK};
    struct flock whole_file = {};
    whole_file.l_type = kTypes[type];

    // The lock in the way, if there is one, is nobody's business; it comes in a copy, since the
    // kernel writes its range over the one asked about.
    struct flock in_the_way = whole_file;
    fcntl(fd, F_GETLK, &in_the_way);

    if (fcntl(fd, F_SETLKW, &whole_file) < 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "lock(%d) fd %d @ %s", type, fd, get_self_pname());
        return 0;
    }
    return 1;
}

}  // namespace

int ipc_lock(const char *name, ...)
{
    va_list args;
    va_start(args, name);
    const KeyFile path = lock_file(name, args);
    va_end(args);

    // Callers do not look at the result, so there is no way but to go on trying.
    while (ipc_lock_op(get_sem_id(path), kAcquire, kWait) == 0) {
        sleep(kRetrySeconds);
    }
    return 1;
}

int ipc_lock_nowait(const char *name, ...)
{
    va_list args;
    va_start(args, name);
    const KeyFile path = lock_file(name, args);
    va_end(args);
    return ipc_lock_op(get_sem_id(path), kAcquire, kNoWait);
}

int ipc_lock_timeout(int seconds, const char *name, ...)
{
    va_list args;
    va_start(args, name);
    const KeyFile path = lock_file(name, args);
    va_end(args);

    const int began = get_sys_uptime();
    for (;;) {
        if (ipc_lock_op(get_sem_id(path), kAcquire, kNoWait) == 1) {
            return 1;
        }
        if (errno != EAGAIN || get_sys_uptime() - began >= seconds) {
            return 0;
        }
        usleep(kTryEveryUs);
    }
}

int ipc_unlock(const char *name, ...)
{
    va_list args;
    va_start(args, name);
    const KeyFile path = lock_file(name, args);
    va_end(args);

    for (;;) {
        if (ipc_lock_op(get_sem_id(path), kRelease, kWait) == 1) {
            return 1;
        }
        if (errno != EAGAIN && errno != EINTR) {
            return 0;
        }
        sleep(kRetrySeconds);
    }
}

int fd_rlock(int fd)
{
    return fd_lock_op(fd, kShared);
}

int fd_wlock(int fd)
{
    return fd_lock_op(fd, kExclusive);
}

int fd_unlock(int fd)
{
    return fd_lock_op(fd, kNone);
}
