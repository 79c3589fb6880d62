// SPDX-License-Identifier: MIT
// What the library's named System V objects have in common: key files, the way to an object of
// which several processes may be the first user, and creation registries.
#pragma once

#include <sys/ipc.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

#include "internal/text.hpp"
#include "platform/process.h"
#include "prod_common_file.h"
#include "prod_common_string.h"

namespace prod
{

inline constexpr int kSysvMode = 0666;  // every user of the device

/** Path of the file whose inode gives an object its key. */
using KeyFile = Text<128>;

/** The key of an object, or -1; the key file is made when there is none. */
inline key_t key_of(const KeyFile &file)
{
    constexpr int kProject = 1;  // always
    const key_t key = ftok(file.c_str(), kProject);
    if (key != -1) {
        return key;
    }
    touch_file(file.c_str());
    return ftok(file.c_str(), kProject);
}

struct SysvObject {
    int id;        // negative when it cannot be had; errno tells why
    bool created;  // by this call
};

/**
 * Finds an object or creates it; of several callers that want a new one at once exactly one creates
 * it. Nearly every object is there already, so that is looked for first.
 * @param get  shmget(), semget() or msgget() with everything but the flags
 */
template <typename Get>
SysvObject find_or_create(key_t key, Get get)
{
    // That key makes a new object even where none is to be created.
    const int found = key != IPC_PRIVATE ? get(kSysvMode) : -1;
    if (found >= 0) {
        return {found, false};
    }
    const int created = get(IPC_CREAT | IPC_EXCL | kSysvMode);
    if (created >= 0 || errno != EEXIST) {
        return {created, created >= 0};
    }
    return {get(kSysvMode), false};
}

/** Appends the line that tells an operator which process created an object with a key file. */
inline void register_object(const char *registry, key_t key, int id, const char *key_file)
{
    do_file_cmd(registry, 1, "0x%08x id=%8d %5d/%-15s %s\n", static_cast<unsigned int>(key), id,
                static_cast<int>(getpid()), get_self_pname(), key_file);
}

/** The same for an object whose key is a number that programs agree on. */
inline void register_object(const char *registry, key_t key, int id)
{
    do_file_cmd(registry, 1, "0x%08x id=%8d %5d/%-15s\n", static_cast<unsigned int>(key), id,
                static_cast<int>(getpid()), get_self_pname());
}

}  // namespace prod
