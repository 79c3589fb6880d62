// SPDX-License-Identifier: MIT
// What the units that deal with WANs agree on.
#pragma once

#include <algorithm>

#include "internal/config.hpp"
#include "prod_common_types.h"

namespace prod
{

/** Far beyond any board; an absurd number must not be counted to for hours. */
inline constexpr int kMostWans = 64;

/** Whether a number is the id of a WAN, and may index the tables by WAN id - 1. */
inline bool is_wan_id(int wan_id)
{
    return wan_id >= WAN_ID_1 && wan_id <= WAN_ID_4;
}

/** How many WANs are configured. */
inline int configured_wans()
{
    return std::min(config_int("wans.flag"), kMostWans);
}

/** The file in which a WAN's client leaves the addresses that it has got. */
inline Text<32> address_file(int wan_id)
{
    return Text<32>{"/etc/wan%d.ini", wan_id};
}

}  // namespace prod
