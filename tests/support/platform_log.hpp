// SPDX-License-Identifier: MIT
// The platform's logger under a test's eyes, for programs linked with test_platform_log: it prints
// nothing.
#pragma once

#include <string>
#include <vector>

namespace test
{

/** What was logged: "function level module: message" each. */
std::vector<std::string> &platform_log();

}  // namespace test
