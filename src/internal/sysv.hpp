// SPDX-License-Identifier: MIT
// What the library's named System V objects have in common: key files and creation registries.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include "internal/text.hpp"
#include "platform/process.h"
#include "prod_common_string.h"

namespace prod
{

inline constexpr int kSysvProject = 1;  // ftok's project id, always
inline constexpr int kSysvMode = 0666;  // every user of the device

/** Path of the file whose inode gives an object its key. */
using KeyFile = Text<128>;

/** Appends the line that tells an operator which process created an object with a key file. */
inline void register_object(const char *registry, key_t key, int id, const char *key_file)
{
    do_file_cmd(registry, 1, "0x%08x id=%8d %5d/%-15s %s\n", static_cast<unsigned int>(key), id,
                static_cast<int>(getpid()), get_self_pname(), key_file);
}

}  // namespace prod
