// SPDX-License-Identifier: MIT
#include "prod_common_fnotify.h"

#include <pthread.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "internal/inotify.hpp"
#include "internal/log.hpp"
#include "ipc/thread.h"

using namespace prod;

namespace
{

constexpr std::uint32_t kChanges =
    IN_MODIFY | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;
static_assert(kChanges == 0xFC2);

constexpr std::size_t kBufferSize = 288;  // with a NUL behind what is read
constexpr unsigned int kRetrySeconds = 1;

// ---- the registered watches -------------------------------------------------------------------

/** A node of a circular doubly-linked list, or its head. */
struct list_head_t {
    list_head_t *next;
    list_head_t *prev;
};

void INIT_LIST_HEAD(list_head_t *head)
{
    *head = {head, head};
}

void list_add_tail(list_head_t *node, list_head_t *head)
{
    *node = {head, head->prev};
    head->prev->next = node;
    head->prev = node;
}

/** A watch, never freed and unchanged once it is in the list. Its path stands behind it. */
struct handler_t {
    list_head_t link;  // first, so that a node is its record
    int wd;
    fnotify_handler_t handler;

    char *path() { return reinterpret_cast<char *>(this + 1); }
};

struct dnotify_t {
    int inited;  // the instance and the thread exist
    int ifd;
    int tid;
    list_head_t handlers;  // in the order in which they came
};

constinit dnotify_t notify = {};
constinit pthread_mutex_t list_mutex = PTHREAD_MUTEX_INITIALIZER;

class ListLock
{
  public:
    ListLock() { pthread_mutex_lock(&list_mutex); }
    ~ListLock() { pthread_mutex_unlock(&list_mutex); }
    ListLock(const ListLock &) = delete;
    ListLock &operator=(const ListLock &) = delete;
};

/** The first record of a watch, or nullptr. */
handler_t *get_handler_by_wd(int wd)
{
    const ListLock lock;
    for (list_head_t *node = notify.handlers.next; node != &notify.handlers; node = node->next) {
        auto *const record = reinterpret_cast<handler_t *>(node);
        if (record->wd == wd) {
            return record;
        }
    }
    return nullptr;
}

// ---- the thread -------------------------------------------------------------------------------

void report(const InotifyEvent &event)
{
    handler_t *const record = get_handler_by_wd(event.wd);
    if (record != nullptr && record->handler != nullptr) {
        record->handler(record->path(), event.name);
    }
}

void fnotify_thread(void *)
{
    set_thread_name("fnotify");
    const int fd = notify.ifd;
    for (;;) {
        char buffer[kBufferSize] = {};
        const ssize_t got = read(fd, buffer, sizeof(buffer) - 1);
        if (got < 0) {
            const int err = errno;
            if (err == EAGAIN || err == EINTR) {
                PROD_LOG_DEBUG(kProd, "Failed(%d) to read fd %d, %s.", err, fd, strerror(err));
            } else {
                log_failure(PROD_SITE, err, "read fd %d", fd);
            }
            sleep(kRetrySeconds);
            continue;
        }
        InotifyEvents events{buffer, static_cast<std::size_t>(got)};
        for (InotifyEvent event; events.next(event);) {
            report(event);
        }
    }
}

/** Makes the instance and the thread of this process, once. @return 1 when they are there */
int fnotify_initialize()
{
    if (notify.inited) {
        return 1;
    }
    INIT_LIST_HEAD(&notify.handlers);
    Fd fd{inotify_init1(IN_CLOEXEC)};
    if (!fd) {
        const int err = errno;
        log_failure(PROD_SITE, err, "inotify_init");
        return 0;
    }
    notify.ifd = fd.get();
    const pthread_t thread = start_thread(fnotify_thread, nullptr);
    if (thread == static_cast<pthread_t>(-1)) {
        const int err = errno;
        log_failure(PROD_SITE, err, "start_thread");
        return 0;
    }
    fd.release();  // for as long as the process lives
    notify.tid = static_cast<int>(thread);
    notify.inited = 1;
    return 1;
}

/** A record at the end of the list; false when memory is short. */
bool add_record(int wd, const char *path, fnotify_handler_t handler)
{
    const std::size_t path_size = strlen(path) + 1;
    auto *const record = static_cast<handler_t *>(calloc(1, sizeof(handler_t) + path_size));
    if (record == nullptr) {
        return false;
    }
    record->wd = wd;
    record->handler = handler;
    memcpy(record->path(), path, path_size);
    list_add_tail(&record->link, &notify.handlers);
    return true;
}

}  // namespace

int fnotify_listen(const char *path, fnotify_handler_t handler)
{
    if (fnotify_initialize() == 0) {
        return 0;
    }
    // Held from before the watch exists, so that its first event finds the record.
    const ListLock lock;
    const int wd = inotify_add_watch(notify.ifd, path, kChanges);
    if (wd < 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "inotify_add_watch %s", or_null(path));
        return 0;
    }
    if (!add_record(wd, path, handler)) {
        PROD_LOG_ERROR(kProd, "Out of memory");
        // The watch goes on without a record and its events are ignored. What is closed here is
        // whatever file has the watch's number: deliberate, the device's programs live with it.
        close(wd);
        return 0;
    }
    return 1;
}
