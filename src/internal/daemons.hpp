// SPDX-License-Identifier: MIT
// The process names of the firmware's daemons, as the process monitor and the kernel know them.
#pragma once

namespace prod
{

/** Balances the traffic over several WANs. */
inline constexpr const char *kMultiWanManager = "multiwan";

/** The PPP daemon of the L2TP client. */
inline constexpr const char *kL2tpPppDaemon = "pppd_l2tp";

}  // namespace prod
