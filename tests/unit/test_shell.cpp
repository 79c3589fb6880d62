// SPDX-License-Identifier: MIT
#include "internal/shell.hpp"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/files.hpp"
#include "support/network.hpp"

namespace
{

std::string escaped(const std::string &value)
{
    return prod::ShellWord{value}.c_str();
}

/** What the device's shell makes of a piece of a command: each argument in "<>". */
std::string arguments(const std::string &words)
{
    return test::output("printf '<%s>' " + words);
}

TEST(ShellWord, OrdinaryValuesStayAsTheyAre)
{
    for (const std::string value :
         {"", "eth0", "eth0.2", "192.168.0.1/24", "00:11:22:AA:BB:CC", "a_b-c+d@e%f,g=h:i", "x~",
          "x#", "-v", "a]b}c^d!e", "/var/image", "Caf\xc3\xa9"}) {
        EXPECT_EQ(escaped(value), value);
    }
}

TEST(ShellWord, WhatAShellInterpretsIsEscaped)
{
    EXPECT_EQ(escaped("a b"), "a\\ b");
    EXPECT_EQ(escaped("$(id)"), "\\$\\(id\\)");
    EXPECT_EQ(escaped("`id`;"), "\\`id\\`\\;");
    EXPECT_EQ(escaped("\\"), "\\\\");
    EXPECT_EQ(escaped("~root"), "\\~root");
    EXPECT_EQ(escaped("#"), "\\#");
    EXPECT_EQ(escaped("a\nb"), "a'\n'b");
}

TEST(ShellWord, EveryByteArrives)
{
    for (int byte = 1; byte <= 255; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        std::string words;
        std::string expected;
        for (const std::string &value : {one, one + "a", "a" + one, "a" + one + "b", one + one,
                                         "a=" + one + "b", "\\" + one, one + "\\"}) {
            words += escaped(value) + " dir/" + escaped(value) + ".db ";
            expected += "<" + value + "><dir/" + value + ".db>";
        }
        EXPECT_EQ(arguments(words), expected) << "byte " << byte;
    }
}

TEST(ShellWord, MixturesOfAllBytesArrive)
{
    std::mt19937 random{4711};
    std::uniform_int_distribution<int> byte{1, 255};
    for (int i = 0; i < 100; ++i) {
        std::string value(64, '\0');
        for (char &c : value) {
            c = static_cast<char>(byte(random));
        }
        EXPECT_EQ(arguments(escaped(value)), "<" + value + ">");
    }
}

TEST(ShellWord, NothingInAValueRuns)
{
    for (const std::string value :
         {"; touch /tmp/ran", "$(touch /tmp/ran)", "`touch /tmp/ran`", "| touch /tmp/ran",
          "& touch /tmp/ran", "\ntouch /tmp/ran\n", "' ; touch /tmp/ran ; '",
          "\" ; touch /tmp/ran ; \"", "\\\"; touch /tmp/ran", "> /tmp/ran", "\\\n; touch /tmp/ran",
          "*", "/*", "[a-z]*", "?", "~", "${PATH}", "{a,b}", "# a"}) {
        EXPECT_EQ(arguments(escaped(value) + " end"), "<" + value + "><end>");
    }
    EXPECT_FALSE(test::exists("/tmp/ran"));
}

TEST(ShellWord, TheLongestValuesFit)
{
    for (const char c : {'x', '\'', '\n'}) {
        const std::string longest(2307, c);
        EXPECT_EQ(arguments(escaped(longest)), "<" + longest + ">");
        EXPECT_EQ(escaped(longest + c), escaped(longest));
    }
}

}  // namespace
