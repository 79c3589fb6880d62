// SPDX-License-Identifier: MIT
// prodctl encode and decode.
#include "prod_common_string.h"
#include "tool.hpp"

using test::Outcome;
using test::prodctl;
using test::refuses;
using test::Words;
using testing::EndsWith;

namespace
{

constexpr const char *kUtf8 = "\xe4\xb8\xad\xe6\x96\x87";
constexpr const char *kGbk = "\xd6\xd0\xce\xc4";

/** What a command prints, without the line's end. */
std::string result(const Words &arguments, const std::string &input = "")
{
    const Outcome outcome = prodctl(arguments, input);
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, EndsWith("\n"));
    return outcome.out.substr(0, outcome.out.size() - 1);
}

/** A command that says no, for this reason. */
void says_no(const Words &arguments, const std::string &command, const std::string &reason,
             const std::string &input = "")
{
    const Outcome outcome = prodctl(arguments, input);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, EndsWith("prodctl " + command + ": " + reason + "\n"));
}

TEST(Encode, Base64)
{
    EXPECT_EQ(result({"encode", "abc"}), "YWJj");
    EXPECT_EQ(result({"encode", "a"}), "YQ==");
    EXPECT_EQ(result({"encode", ""}), "");
    EXPECT_EQ(result({"encode", "--as", "base64", "ab"}), "YWI=");
    EXPECT_EQ(result({"decode", "YWJj"}), "abc");
    EXPECT_EQ(result({"decode", "YQ=="}), "a");
    EXPECT_EQ(result({"decode", "YWJj=rest+"}), "abc") << "it ends at the first =";
    says_no({"decode", "YW+j"}, "decode",
            "the device's decoder does not know the digits '+' and '/'");
    says_no({"decode", "YW-j"}, "decode", "that is no base64 text");
}

TEST(Encode, Hexadecimal)
{
    EXPECT_EQ(result({"encode", "--as", "hex", "az\xff"}), "617aff");
    EXPECT_EQ(result({"decode", "--as=hex", "617A"}), "az");
    says_no({"decode", "--as", "hex", "617"}, "decode", "that is no text of hexadecimal pairs");
    says_no({"decode", "--as", "hex", "6g"}, "decode", "that is no text of hexadecimal pairs");
}

TEST(Encode, Gbk)
{
    EXPECT_EQ(result({"encode", "--as", "gbk", kUtf8}), kGbk);
    EXPECT_EQ(result({"decode", "--as", "gbk", kGbk}), kUtf8);
    says_no({"decode", "--as", "gbk", "\xd6"}, "decode", "that is no GBK text");
    says_no({"encode", "--as", "gbk", "\xf0\x9f\x98\x80"}, "encode",
            "that is no UTF-8 text, or not all of it has a GBK character");
}

TEST(Encode, FromStandardInput)
{
    EXPECT_EQ(result({"encode"}, "abc\n"), "YWJjCg==");
    EXPECT_EQ(result({"decode"}, "YWJj\r\n ZGVm\n"), "abcdef");
    EXPECT_EQ(result({"decode", "--as", "hex"}, "61\n62\n"), "ab");
    EXPECT_EQ(result({"encode"}, ""), "");
    const std::string text(100000, 'x');
    EXPECT_EQ(result({"decode"}, result({"encode"}, text)), text);
    says_no({"encode"}, "encode", "standard input holds a zero byte, where texts of the device end",
            std::string("a\0b", 3));
}

TEST(Encode, AsJson)
{
    EXPECT_EQ(prodctl({"--json", "encode", "abc"}),
              (Outcome{0, "{\"result\":\"YWJj\",\"hex\":\"59574a6a\"}\n", ""}));
    EXPECT_EQ(prodctl({"decode", "YWJj", "--json"}),
              (Outcome{0, "{\"result\":\"abc\",\"hex\":\"616263\"}\n", ""}));
    const test::Json gbk = test::answer(prodctl({"--json", "encode", "--as", "gbk", kUtf8}));
    EXPECT_STREQ(cJSON_GetObjectItem(gbk.get(), "hex")->valuestring, "d6d0cec4");
}

TEST(Encode, WrongUsage)
{
    refuses({"encode", "--as", "rot13", "a"}, "prodctl encode",
            "'rot13' is no encoding: base64, hex or gbk");
    refuses({"decode", "a", "b"}, "prodctl decode", "too many arguments, expected: [TEXT]");
    refuses({"decode", "--as"}, "prodctl decode", "option --as needs a value");
}

}  // namespace
