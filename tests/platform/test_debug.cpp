// SPDX-License-Identifier: MIT
#include "platform/debug.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "prod_common_cfm.h"
#include "prod_common_debug.h"
#include "support/capture.hpp"

using testing::HasSubstr;

extern "C" {
__attribute__((noinline)) void innermost_of_the_test()
{
    show_backtrace();
    asm volatile("");  // not a tail call: the frame must stay
}
__attribute__((noinline)) void around_it()
{
    innermost_of_the_test();
    asm volatile("");
}
__attribute__((noinline)) void setter_of_the_test()
{
    prod_cfm_set_val("lan.ip", "10.9.8.7");
    asm volatile("");
}
}

static std::vector<std::pair<int, std::string>> logged;

void syslog(int priority, const char *format, ...)
{
    char text[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    logged.emplace_back(priority, text);
}

namespace
{

TEST(PlatformLog, OneMessage)
{
    logged.clear();
    log_debug_print("function", 12, 2, "wan", "%s %d", "failed", 7);
    log_debug_print("function", 13, 0, "wan", "function entry!");
    log_debug_print("function", 14, 2, "wan", "%s", std::string(5000, 'x').c_str());
    log_debug_print(nullptr, 1, 2, "wan", "x");
    log_debug_print("f", 1, 2, nullptr, "x");
    log_debug_print("f", 1, 2, "wan", nullptr);
    ASSERT_EQ(logged.size(), 3U);
    EXPECT_EQ(logged[0], std::make_pair(LOG_ERR, std::string{"[wan.2] 12 function: failed 7"}));
    EXPECT_EQ(logged[1],
              std::make_pair(LOG_DEBUG, std::string{"[wan.0] 13 function: function entry!"}));
    EXPECT_EQ(logged[2].second, "[wan.2] 14 function: " + std::string(1023, 'x'));
}

TEST(Backtrace, NamesTheCallersFromTheInside)
{
    const std::string text = test::printed(around_it);
    const std::size_t inner = text.find(" innermost_of_the_test+0x");
    const std::size_t outer = text.find(" around_it+0x");
    ASSERT_NE(inner, std::string::npos) << text;
    ASSERT_NE(outer, std::string::npos) << text;
    EXPECT_LT(inner, outer);
    EXPECT_EQ(text.rfind("#0 ", 0), 0U) << text;
    EXPECT_LT(inner, text.find("#1 "));
    EXPECT_THAT(text, HasSubstr("test_platform_debug)"));
    EXPECT_EQ(text.back(), '\n');
}

TEST(Backtrace, GoesThroughTheLibrary)
{
    const std::string text = test::printed_at(PROD_DBG_TRACE, setter_of_the_test, "cfm");
    const std::size_t inner = text.find(" prod_cfm_set_val+0x");
    const std::size_t outer = text.find(" setter_of_the_test+0x");
    ASSERT_NE(inner, std::string::npos) << text;
    ASSERT_NE(outer, std::string::npos) << text;
    EXPECT_LT(inner, outer);
}

__attribute__((noinline)) void deep(int left)
{
    if (left > 0) {
        deep(left - 1);
    } else {
        show_backtrace();
    }
    asm volatile("");
}

TEST(Backtrace, StopsAtADepth)
{
    const std::string text = test::printed([] { deep(500); });
    EXPECT_THAT(text, HasSubstr("#62 "));
    EXPECT_THAT(text, testing::Not(HasSubstr("#63 ")));
}

}  // namespace
