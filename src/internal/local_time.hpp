// SPDX-License-Identifier: MIT
// The device's local time, and how it is written.
#pragma once

#include <ctime>
#include <optional>

#include "internal/text.hpp"

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

/** "2007-09-06". */
inline Text<32> date_text(const struct tm &local)
{
    return Text<32>{"%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday};
}

/** "2007-09-06 10:01:06". */
inline Text<64> date_time_text(const struct tm &local)
{
    return Text<64>{"%s %02d:%02d:%02d", date_text(local).c_str(), local.tm_hour, local.tm_min,
                    local.tm_sec};
}

}  // namespace prod
