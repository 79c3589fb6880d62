// SPDX-License-Identifier: MIT
// The board file, /etc/board.json: what one model has and how its parts are called. It is read
// anew for each question, so there is nothing to keep in step with it.
#pragma once

#include <cjson/cJSON.h>

#include "handle.hpp"

namespace platform
{

using Json = std::unique_ptr<cJSON, Closer<cJSON_Delete>>;

/** Reads a JSON file of at most 64 KiB; nullptr when it is missing or not sound. */
Json read_json(const char *path);

/** The board file. A missing or damaged one is a board that has nothing. */
inline Json read_board()
{
    return read_json("/etc/board.json");
}

/** A member of an object by its exact name; nullptr, also of nullptr, when there is none. */
inline const cJSON *member(const cJSON *object, const char *name)
{
    return cJSON_GetObjectItemCaseSensitive(object, name);
}

/** A text, or nullptr when @p item is none. */
inline const char *text_of(const cJSON *item)
{
    return cJSON_IsString(item) != 0 ? item->valuestring : nullptr;
}

/** A text as a name of an interface; nullptr when it cannot be one. */
const char *interface_of(const cJSON *item);

}  // namespace platform
