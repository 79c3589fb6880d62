// SPDX-License-Identifier: MIT
// The time-stamped trace lines on standard output:
// "[MMDD hh:mm:ss] <line> <function>: >>>> <what> <<<<".
#pragma once

#include <cjson/cJSON.h>

#include <memory>

#include "internal/console.hpp"
#include "internal/handle.hpp"

namespace prod
{

using Json = std::unique_ptr<cJSON, Closer<cJSON_Delete>>;

/**
 * Shows a JSON object on its way to or from another part of the firmware. Callers test the level of
 * their own module first.
 */
void json_trace(Site site, const cJSON *object);

/** Shows a JSON object on its way to or from the kernel modules, when "kjson" talks. */
void kernel_json_trace(Site site, const cJSON *object);

/** Shows a command that is about to run, whatever the debug level. */
void command_trace(Site site, const char *command);

}  // namespace prod
