// SPDX-License-Identifier: MIT
// What the units that deal with WANs agree on.
#pragma once

#include "prod_common_types.h"

namespace prod
{

/** Whether a number is the id of a WAN, and may index the tables by WAN id - 1. */
inline bool is_wan_id(int wan_id)
{
    return wan_id >= WAN_ID_1 && wan_id <= WAN_ID_4;
}

}  // namespace prod
