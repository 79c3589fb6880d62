// SPDX-License-Identifier: MIT
// The device's configuration store as a test lays it out and looks at it; in a program linked with
// test_config the one in memory.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace test
{

/** What is stored under a key, or "(absent)"; a read like any other. */
std::string stored(const std::string &key);

/** Stores these values, each of which must be taken. */
void store(const std::vector<std::pair<std::string, std::string>> &settings);

}  // namespace test
