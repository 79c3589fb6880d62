// SPDX-License-Identifier: MIT
// Where the USB partitions are.
#pragma once

namespace prod
{

// Two paths of one folder: the first is listed, the second is what the mount table shows.
inline constexpr const char *kPartitionFolder = "/var/etc/upan";
inline constexpr const char *kPartitionMounts = "/etc/upan";

}  // namespace prod
