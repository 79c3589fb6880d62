// SPDX-License-Identifier: MIT
#include "support/store.hpp"

#include <gtest/gtest.h>

#include <cstring>

#include "platform/cfm.h"

namespace test
{

std::string stored(const std::string &key)
{
    char value[CFM_VALUE_SIZE] = "(absent)";
    const int found = GetValue(key.c_str(), value);
    EXPECT_EQ(found != 0, strcmp(value, "(absent)") != 0) << key;
    return value;
}

void store(const std::vector<std::pair<std::string, std::string>> &settings)
{
    for (const auto &[key, value] : settings) {
        EXPECT_EQ(SetValue(key.c_str(), value.c_str()), 1) << key;
    }
}

}  // namespace test
