// SPDX-License-Identifier: MIT
#include "ipc/shared_memory.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>

#include "internal/console.hpp"
#include "internal/sysv.hpp"
#include "internal/text.hpp"

using namespace prod;

void *get_shared_memory(const char *name, unsigned int size)
{
    if (name == nullptr) {
        console_line(PROD_SITE, kRed, "Failed to get shared memory, invalid arguments.");
        return nullptr;
    }
    const KeyFile path{"/var/run/shm.%s", name};
    const key_t key = key_of(path);
    if (key == -1) {
        const int err = errno;
        // The missing parenthesis is part of the text; the semaphores' message has it.
        console_line(PROD_SITE, kRed, "Failed(%d) to call ftok(%s, %s.", err, path.c_str(),
                     strerror(err));
        return nullptr;
    }

    const auto [id, created] =
        find_or_create(key, [=](int flags) { return shmget(key, size, flags); });
    if (id < 0) {
        const int err = errno;
        console_line(PROD_SITE, kRed, "Failed(%d) to create shared memory %s, %s.", err, name,
                     strerror(err));
        return nullptr;
    }
    void *const address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void *>(-1)) {
        const int err = errno;
        console_line(PROD_SITE, kRed, "Failed(%d) to attach shared memory %s(%d), %s.", err, name,
                     id, strerror(err));
        return nullptr;
    }
    if (created) {
        register_object("/var/run/id.shm", key, id, path.c_str());
    }
    return address;
}
