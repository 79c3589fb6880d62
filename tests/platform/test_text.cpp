// SPDX-License-Identifier: MIT
#include "platform/text.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/files.hpp"

namespace
{

constexpr const char *kFile = "/tmp/test.ini";

/** The value of a key in @p text, or "(absent)". */
std::string value_in(const std::string &text, const char *key)
{
    test::write_text(kFile, text);
    char value[INI_VALUE_SIZE + 8] = "(absent)";
    value[INI_VALUE_SIZE] = 'w';  // a watchman
    const int found = file_get_value_from_ini(kFile, key, value);
    EXPECT_EQ(value[INI_VALUE_SIZE], 'w');
    EXPECT_EQ(found != 0, std::string{value} != "(absent)");
    return value;
}

TEST(Ini, TheAddressFileOfAWan)
{
    const std::string text =
        "ip=10.0.0.2\nmask=255.255.255.0\ngateway=10.0.0.1\ndns1=10.0.0.1\ndns2=\n";
    EXPECT_EQ(value_in(text, "ip"), "10.0.0.2");
    EXPECT_EQ(value_in(text, "gateway"), "10.0.0.1");
    EXPECT_EQ(value_in(text, "dns2"), "");
    EXPECT_EQ(value_in(text, "dns"), "(absent)");
    EXPECT_EQ(value_in(text, "dns11"), "(absent)");
    EXPECT_EQ(value_in(text, "p"), "(absent)");
}

TEST(Ini, OtherLinesArePassedOver)
{
    const std::string text = "[section]\n\n# ip=comment\nip\nip 10\n ip=blank\n=x\nip=1\nip=2\n";
    EXPECT_EQ(value_in(text, "ip"), "1");
    EXPECT_EQ(value_in("ip=a=b\r\n", "ip"), "a=b");
    EXPECT_EQ(value_in("ip=no line end", "ip"), "no line end");
    EXPECT_EQ(value_in("ip= 1 \n", "ip"), " 1 ");
}

TEST(Ini, LongAndBinaryText)
{
    EXPECT_EQ(value_in("ip=" + std::string(5000, 'v') + "\n", "ip"),
              std::string(INI_VALUE_SIZE - 1, 'v'));
    // What follows in an over-long line is not a line of its own.
    EXPECT_EQ(value_in(std::string(1024, 'x') + "ip=1\n", "ip"), "(absent)");
    EXPECT_EQ(value_in(std::string(1024, 'x') + "\nip=1\n", "ip"), "1");
    const std::string key(600, 'k');
    EXPECT_EQ(value_in(key + "=1\n", key.c_str()), "1");
    EXPECT_EQ(value_in(std::string("\0\xff\n\0ip=0\nip=a\0b\n", 17), "ip"), "a");
    EXPECT_EQ(value_in("", "ip"), "(absent)");
    EXPECT_EQ(value_in(std::string(100000, '\0'), "ip"), "(absent)");
}

TEST(Ini, Failures)
{
    char value[INI_VALUE_SIZE] = "same";
    test::write_text(kFile, "=x\nip=1\n");
    EXPECT_EQ(file_get_value_from_ini("/tmp/no.such", "ip", value), 0);
    EXPECT_EQ(file_get_value_from_ini("/tmp", "ip", value), 0);
    EXPECT_EQ(file_get_value_from_ini(nullptr, "ip", value), 0);
    EXPECT_EQ(file_get_value_from_ini(kFile, nullptr, value), 0);
    EXPECT_EQ(file_get_value_from_ini(kFile, "", value), 0);
    EXPECT_EQ(file_get_value_from_ini(kFile, "ip", nullptr), 0);
    EXPECT_STREQ(value, "same");
    const int before = test::open_descriptors();
    EXPECT_NE(file_get_value_from_ini(kFile, "ip", value), 0);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(FileExists, FollowsLinks)
{
    test::write_text(kFile, "");
    EXPECT_NE(file_check_exist_or_not(kFile), 0);
    EXPECT_NE(file_check_exist_or_not("/tmp"), 0);
    EXPECT_EQ(file_check_exist_or_not("/tmp/no.such"), 0);
    EXPECT_EQ(file_check_exist_or_not(""), 0);
    EXPECT_EQ(file_check_exist_or_not(nullptr), 0);
    ASSERT_EQ(symlink("/tmp/no.such", "/tmp/dangling"), 0);
    EXPECT_EQ(file_check_exist_or_not("/tmp/dangling"), 0);
}

std::string trimmed(std::string text)
{
    EXPECT_EQ(string_str_trim(text.data()), text.data());
    return text.c_str();
}

TEST(Trim, WhiteSpaceAroundATextInPlace)
{
    EXPECT_EQ(trimmed("V1.0"), "V1.0");
    EXPECT_EQ(trimmed(" \t\r\n\v\fV1.0 beta\f\v\n\r\t "), "V1.0 beta");
    EXPECT_EQ(trimmed("x "), "x");
    EXPECT_EQ(trimmed(" x"), "x");
    EXPECT_EQ(trimmed(" \n\t"), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("\xa0x\xff"), "\xa0x\xff");
    EXPECT_EQ(trimmed(std::string(5000, ' ') + "x" + std::string(5000, '\n')), "x");
    EXPECT_EQ(string_str_trim(nullptr), nullptr);
}

}  // namespace
