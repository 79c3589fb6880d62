// SPDX-License-Identifier: MIT
#include "ipc/msg_queue.h"

#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "internal/log.hpp"
#include "internal/sysv.hpp"

using namespace prod;

namespace
{

constexpr time_t kPutSeconds = 3;
constexpr useconds_t kTryEveryUs = 100000;

/** Room for a message with a record of a given size: here for the usual ones, or on the heap. */
class MessageRoom
{
  public:
    explicit MessageRoom(std::size_t record_size)
        : heap_(record_size > kSmallRecord ? malloc(offsetof(msg_buf_t, data) + record_size)
                                           : nullptr),
          message_(static_cast<msg_buf_t *>(record_size > kSmallRecord ? heap_.get() : small_))
    {
    }

    /** NULL when memory is short. */
    msg_buf_t *get() { return message_; }

  private:
    static constexpr std::size_t kSmallRecord = 1024;

    Allocated<void> heap_;
    msg_buf_t *message_;
    alignas(msg_buf_t) unsigned char small_[sizeof(msg_buf_t) + kSmallRecord];
};

/**
 * The queue that this thread used last: looking one up costs a third of what a record does. The
 * kernel gives the id of a queue that is gone to no other one before 65536 have come and gone in
 * its place.
 */
struct KnownQueue {
    int key;
    int id;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local KnownQueue last_queue = {IPC_PRIVATE, -1};

/** The queue of a number, for one record. */
class Queue
{
  public:
    explicit Queue(mq_id_t number) : key_(static_cast<int>(number))
    {
        // That key is a new queue each time.
        if (key_ != IPC_PRIVATE && key_ == last_queue.key) {
            id_ = last_queue.id;
            remembered_ = true;
        } else {
            find();
        }
    }

    bool is_there() const { return id_ >= 0; }
    int id() const { return id_; }

    /** After a failure: whether a remembered queue had gone and another one is here to try. */
    bool is_another(int err)
    {
        if (!remembered_ || err != EINVAL) {
            remembered_ = false;
            return false;
        }
        const int gone = id_;
        find();
        return is_there() && id_ != gone;
    }

  private:
    void find()
    {
        remembered_ = false;
        id_ = get_or_create_mq(key_);
        last_queue = {is_there() ? key_ : IPC_PRIVATE, id_};
    }

    int key_;
    int id_ = -1;
    bool remembered_ = false;
};

}  // namespace

int get_or_create_mq(int key)
{
    const auto [id, created] = find_or_create(key, [=](int flags) { return msgget(key, flags); });
    if (id < 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "create MQ");
    } else if (created) {
        register_object("/var/run/id.mq", key, id);
    }
    return id;
}

int mq_put(mq_id_t id, const void *data, int data_len, int block)
{
    const time_t began = time(nullptr);
    if (data == nullptr || data_len < 1) {
        PROD_LOG_ERROR(kProd, "invalid parameters.");
        return 0;
    }
    Queue queue{id};
    if (!queue.is_there()) {
        return 0;
    }
    const auto size = static_cast<std::size_t>(data_len);
    MessageRoom room{size};
    msg_buf_t *const message = room.get();
    if (message == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory");  // mq_get's has a full stop
        return 0;
    }
    message->msg_type = MQ_MSG_TYPE;
    memcpy(message->data, data, size);

    const time_t limit = block ? kPutSeconds : 0;
    while (msgsnd(queue.id(), message, size, IPC_NOWAIT) < 0) {
        const int err = errno;
        if (queue.is_another(err)) {
            continue;
        }
        if (!queue.is_there()) {
            return 0;
        }
        if (err != EAGAIN || time(nullptr) - began >= limit) {
            log_failure(PROD_SITE, err, "msgsnd");
            return 0;
        }
        usleep(kTryEveryUs);
    }
    return 1;
}

int mq_get(mq_id_t id, void *data, int data_len, int block)
{
    if (data == nullptr || data_len < 1) {
        PROD_LOG_ERROR(kProd, "invalid parameters.");
        return 0;
    }
    Queue queue{id};
    if (!queue.is_there()) {
        return 0;
    }
    const auto size = static_cast<std::size_t>(data_len);
    MessageRoom room{size};
    msg_buf_t *const message = room.get();
    if (message == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return 0;
    }
    ssize_t got;
    while ((got = msgrcv(queue.id(), message, size, MQ_MSG_TYPE, block ? 0 : IPC_NOWAIT)) < 0) {
        const int err = errno;
        if (queue.is_another(err)) {
            continue;
        }
        if (queue.is_there() && (block || err != ENOMSG)) {
            log_failure(PROD_SITE, err, "msgrcv");
        }
        return 0;
    }
    const auto received = static_cast<std::size_t>(got);
    memcpy(data, message->data, received);
    memset(static_cast<char *>(data) + received, 0, size - received);
    return 1;
}
