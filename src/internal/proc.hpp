// SPDX-License-Identifier: MIT
// How the library reads a process's entry under /proc.
#pragma once

namespace prod
{

inline constexpr std::size_t kProcessNameSize = 32;  // the kernel keeps 15 characters
inline constexpr std::size_t kProcessStatLine =
    1023;  // longest first line of /proc/<pid>/stat looked at

}  // namespace prod
