// SPDX-License-Identifier: MIT
// Named locks and message queues beside what one would write or pick instead: the bare calls with
// an id that is kept, the plain form that makes its key file and its object anew on every call, a
// lock on a file, POSIX queues.
#include <fcntl.h>
#include <mqueue.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench.hpp"
#include "ipc/lock.h"
#include "ipc/msg_queue.h"

using bench::must;

namespace
{

// ---- lock and unlock --------------------------------------------------------------------------

constexpr char kKeyFile[] = "/var/run/lock.plain";

void step(int id, short how)
{
    sembuf record = {0, how, SEM_UNDO};
    must(semop(id, &record, 1) == 0, "semop");
}

/** The semaphore as a program finds it that creates whatever it uses. */
int plain_semaphore(const char *name, int number)
{
    char path[128];
    snprintf(path, sizeof(path), "/var/run/lock.%s%d", name, number);
    const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    must(fd >= 0, "open");
    close(fd);
    const key_t key = ftok(path, 1);
    const int id = semget(key, 1, IPC_CREAT | IPC_EXCL | 0666);
    if (id < 0) {
        return semget(key, 1, 0666);
    }
    must(semctl(id, 0, SETVAL, 1) == 0, "semctl");
    return id;
}

/** The same without the try to create it first. */
int least_semaphore(const char *name, int number)
{
    char path[128];
    snprintf(path, sizeof(path), "/var/run/lock.%s%d", name, number);
    const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    must(fd >= 0, "open");
    close(fd);
    return semget(ftok(path, 1), 1, 0666);
}

void lock_bare(benchmark::State &state)
{
    const int id = plain_semaphore("bare", 1);
    for (auto _ : state) {
        step(id, -1);
        step(id, 1);
    }
}
BENCHMARK(lock_bare)->Name("lock/bare semop, id kept");

void lock_flock(benchmark::State &state)
{
    const int fd = open(kKeyFile, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    for (auto _ : state) {
        flock(fd, LOCK_EX);
        flock(fd, LOCK_UN);
    }
    close(fd);
}
BENCHMARK(lock_flock)->Name("lock/flock, descriptor kept");

void lock_flock_opened(benchmark::State &state)
{
    for (auto _ : state) {
        const int fd = open(kKeyFile, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        flock(fd, LOCK_EX);
        close(fd);
    }
}
BENCHMARK(lock_flock_opened)->Name("lock/flock, opened each time");

void lock_least(benchmark::State &state)
{
    plain_semaphore("plain", 2);
    for (auto _ : state) {
        step(least_semaphore("plain", 2), -1);
        step(least_semaphore("plain", 2), 1);
    }
}
BENCHMARK(lock_least)->Name("lock/plain: open close ftok semget semop");

void lock_plain(benchmark::State &state)
{
    for (auto _ : state) {
        step(plain_semaphore("plain", 1), -1);
        step(plain_semaphore("plain", 1), 1);
    }
}
BENCHMARK(lock_plain)->Name("lock/plain, creating first");

void lock_library(benchmark::State &state)
{
    for (auto _ : state) {
        ipc_lock("bench%d", 1);
        ipc_unlock("bench%d", 1);
    }
}
BENCHMARK(lock_library)->Name("lock/library");

// ---- put and get ------------------------------------------------------------------------------

constexpr int kPlainQueue = 0x8A01;
constexpr int kLibraryQueue = 0x8A02;

int plain_queue()
{
    const int id = msgget(kPlainQueue, IPC_CREAT | IPC_EXCL | 0666);
    return id >= 0 ? id : msgget(kPlainQueue, 0666);
}

void queue_bare(benchmark::State &state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const int id = plain_queue();
    std::vector<char> record(size, 'r');
    std::vector<long> message(1 + (size + sizeof(long) - 1) / sizeof(long));
    for (auto _ : state) {
        message[0] = MQ_MSG_TYPE;
        memcpy(&message[1], record.data(), size);
        must(msgsnd(id, message.data(), size, IPC_NOWAIT) == 0, "msgsnd");
        must(msgrcv(id, message.data(), size, MQ_MSG_TYPE, IPC_NOWAIT) > 0, "msgrcv");
        memcpy(record.data(), &message[1], size);
    }
}
BENCHMARK(queue_bare)->Name("queue/bare, id kept")->Arg(64)->Arg(1024);

void queue_posix(benchmark::State &state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    mq_attr attributes = {};
    attributes.mq_maxmsg = 8;
    attributes.mq_msgsize = 1024;
    const mqd_t queue =
        mq_open("/bench", O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666, &attributes);
    if (queue < 0) {
        state.SkipWithError("no POSIX queues here");
        return;
    }
    std::vector<char> record(size, 'r');
    std::vector<char> room(1024);
    for (auto _ : state) {
        must(mq_send(queue, record.data(), size, 0) == 0, "mq_send");
        must(mq_receive(queue, room.data(), room.size(), nullptr) > 0, "mq_receive");
    }
    mq_close(queue);
}
BENCHMARK(queue_posix)->Name("queue/POSIX, descriptor kept")->Arg(64)->Arg(1024);

void queue_plain(benchmark::State &state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    std::vector<char> record(size, 'r');
    for (auto _ : state) {
        long *const out = static_cast<long *>(malloc(sizeof(long) + size));
        out[0] = MQ_MSG_TYPE;
        memcpy(out + 1, record.data(), size);
        must(msgsnd(plain_queue(), out, size, IPC_NOWAIT) == 0, "msgsnd");
        free(out);
        long *const in = static_cast<long *>(calloc(1, sizeof(long) + size));
        must(msgrcv(plain_queue(), in, size, MQ_MSG_TYPE, IPC_NOWAIT) > 0, "msgrcv");
        memcpy(record.data(), in + 1, size);
        free(in);
    }
}
BENCHMARK(queue_plain)->Name("queue/plain: two msgget, heap block")->Arg(64)->Arg(1024);

void queue_library(benchmark::State &state)
{
    const auto size = static_cast<int>(state.range(0));
    std::vector<char> record(static_cast<std::size_t>(size), 'r');
    for (auto _ : state) {
        must(mq_put(kLibraryQueue, record.data(), size, 0) == 1, "mq_put");
        must(mq_get(kLibraryQueue, record.data(), size, 0) == 1, "mq_get");
    }
}
BENCHMARK(queue_library)->Name("queue/library")->Arg(64)->Arg(1024);

}  // namespace

MAIN_IN_A_DEVICE()
