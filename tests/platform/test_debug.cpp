// SPDX-License-Identifier: MIT
#include "platform/debug.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
}

namespace
{

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
