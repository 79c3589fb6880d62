// SPDX-License-Identifier: MIT
#include "support/platform_log.hpp"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>

#include "platform/debug.h"

void log_debug_print(const char *function, int line, int level, const char *module,
                     const char *format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    EXPECT_GT(line, 0);
    test::platform_log().push_back(std::string{function} + " " + std::to_string(level) + " " +
                                   module + ": " + text);
}

namespace test
{

std::vector<std::string> &platform_log()
{
    static std::vector<std::string> all;
    return all;
}

}  // namespace test
