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
    const int queue = get_or_create_mq(static_cast<int>(id));
    if (queue < 0) {
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
    while (msgsnd(queue, message, size, IPC_NOWAIT) < 0) {
        const int err = errno;
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
    const int queue = get_or_create_mq(static_cast<int>(id));
    if (queue < 0) {
        return 0;
    }
    const auto size = static_cast<std::size_t>(data_len);
    MessageRoom room{size};
    msg_buf_t *const message = room.get();
    if (message == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return 0;
    }
    const ssize_t got = msgrcv(queue, message, size, MQ_MSG_TYPE, block ? 0 : IPC_NOWAIT);
    if (got < 0) {
        const int err = errno;
        if (block || err != ENOMSG) {
            log_failure(PROD_SITE, err, "msgrcv");
        }
        return 0;
    }
    const auto received = static_cast<std::size_t>(got);
    memcpy(data, message->data, received);
    memset(static_cast<char *>(data) + received, 0, size - received);
    return 1;
}
