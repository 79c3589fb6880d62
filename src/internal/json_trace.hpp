// SPDX-License-Identifier: MIT
// The time-stamped trace line that shows a JSON object on its way to or from another part of the
// firmware. Callers test the level of their own module first.
#pragma once

#include <cjson/cJSON.h>

#include "internal/console.hpp"

namespace prod
{

/** Prints "[MMDD hh:mm:ss] <line> <function>: >>>> <object> <<<<" to standard output. */
void json_trace(Site site, const cJSON *object);

}  // namespace prod
