// SPDX-License-Identifier: MIT
// The device's local time.
#pragma once

#include <ctime>
#include <optional>

namespace prod
{

/**
 * A time of the device's zone as it is set now, whoever has set it since; nothing when it cannot be
 * had.
 */
inline std::optional<struct tm> local_time(time_t when)
{
    struct tm local = {};
    tzset();
    if (localtime_r(&when, &local) == nullptr) {
        return std::nullopt;
    }
    return local;
}

}  // namespace prod
