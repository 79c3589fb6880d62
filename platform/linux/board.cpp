// SPDX-License-Identifier: MIT
#include "board.hpp"

#include <net/if.h>

#include <cstring>

#include "file.hpp"

namespace platform
{
namespace
{

constexpr off_t kLargestJson = 64 * 1024;

}  // namespace

Json read_json(const char *path)
{
    Buffer text;
    if (!read_file(path, text, kLargestJson)) {
        return nullptr;
    }
    return Json{cJSON_ParseWithLength(text.view().data(), text.view().size())};
}

const char *interface_of(const cJSON *item)
{
    const char *const name = text_of(item);
    if (name == nullptr || name[0] == '\0' || strlen(name) >= IFNAMSIZ ||
        strpbrk(name, "/ \t\r\n") != nullptr) {
        return nullptr;
    }
    return name;
}

}  // namespace platform
