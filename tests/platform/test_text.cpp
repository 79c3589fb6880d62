// SPDX-License-Identifier: MIT
#include "platform/text.h"

#include <gtest/gtest.h>
#include <iconv.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "support/children.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"

namespace
{

// Converters that were opened and closed, counted on their way to the C library.
std::atomic<int> opened{0};
std::atomic<int> closed{0};

bool no_tables;  // the machine has none

}  // namespace

extern "C" {
iconv_t iconv_open(const char *to, const char *from)
{
    static const auto real = test::next(iconv_open, "iconv_open");
    if (no_tables) {
        errno = EINVAL;
        return reinterpret_cast<iconv_t>(-1);
    }
    ++opened;
    return real(to, from);
}

int iconv_close(iconv_t converter)
{
    static const auto real = test::next(iconv_close, "iconv_close");
    ++closed;
    return real(converter);
}
}

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

// ---- encodings --------------------------------------------------------------------------------

// "\u4e2d\u6587" in both encodings.
constexpr const char *kUtf8 = "\xe4\xb8\xad\xe6\x96\x87";
constexpr const char *kGbk = "\xd6\xd0\xce\xc4";

/** A code point written in so many bytes, whether it needs them or not. */
std::string utf8_of(std::uint32_t code, std::size_t length)
{
    if (length == 1) {
        return {static_cast<char>(code)};
    }
    std::string text(length, '\0');
    for (std::size_t at = length; --at > 0; code >>= 6) {
        text[at] = static_cast<char>(0x80 | (code & 0x3F));
    }
    text[0] = static_cast<char>((0xF00U >> length & 0xFF) | code);
    return text;
}

TEST(CodeFormat, PlainGbkAndUtf8)
{
    EXPECT_EQ(system_get_code_format(nullptr), CODE_FORMAT_PLAIN);
    EXPECT_EQ(system_get_code_format(""), CODE_FORMAT_PLAIN);
    EXPECT_EQ(system_get_code_format("a plain name, longer than a word"), CODE_FORMAT_PLAIN);
    EXPECT_EQ(system_get_code_format(kUtf8), CODE_FORMAT_UTF8);
    EXPECT_EQ(system_get_code_format(kGbk), CODE_FORMAT_GBK);
    EXPECT_EQ(system_get_code_format("\xd6"), CODE_FORMAT_PLAIN) << "half a character";
    EXPECT_EQ(system_get_code_format("\xff"), CODE_FORMAT_PLAIN);
    EXPECT_EQ(system_get_code_format("\x80"), CODE_FORMAT_PLAIN);
    EXPECT_EQ(system_get_code_format("\xc1\xaa\xcd\xa8"), CODE_FORMAT_GBK);
    EXPECT_EQ(system_get_code_format("\xc4\xaa"), CODE_FORMAT_UTF8) << "valid as both";
}

TEST(CodeFormat, AtEveryPlaceOfAText)
{
    for (std::size_t before = 0; before < 20; ++before) {
        for (std::size_t behind = 0; behind < 10; ++behind) {
            const auto within = [&](const char *text) {
                return std::string(before, 'a') + text + std::string(behind, 'z');
            };
            EXPECT_EQ(system_get_code_format(within(kUtf8).c_str()), CODE_FORMAT_UTF8);
            EXPECT_EQ(system_get_code_format(within(kGbk).c_str()), CODE_FORMAT_GBK);
            EXPECT_EQ(system_get_code_format(within("\xff").c_str()), CODE_FORMAT_PLAIN);
            char out[200];
            EXPECT_NE(system_convert_code_format("utf-8", within(kGbk).c_str(), out), 0);
            EXPECT_EQ(out, within(kUtf8));
            EXPECT_NE(system_convert_code_format("gb2312", within(kUtf8).c_str(), out), 0);
            EXPECT_EQ(out, within(kGbk));
            EXPECT_EQ(system_convert_code_format("utf-8", within("\xff").c_str(), out), 0);
            EXPECT_EQ(out, std::string(before, 'a')) << "what stands before it";
        }
    }
}

/** Every GBK pair by its two ranges, where it is not UTF-8 as well. */
TEST(CodeFormat, EveryPairOfBytes)
{
    for (unsigned int first = 0x80; first <= 0xFF; ++first) {
        for (unsigned int second = 0x01; second <= 0xFF; ++second) {
            const char text[] = {static_cast<char>(first), static_cast<char>(second), '\0'};
            int wanted = CODE_FORMAT_PLAIN;
            if (first >= 0xC2 && first <= 0xDF && second >= 0x80 && second <= 0xBF) {
                wanted = CODE_FORMAT_UTF8;
            } else if (first >= 0x81 && first <= 0xFE && second >= 0x40 && second <= 0xFE &&
                       second != 0x7F) {
                wanted = CODE_FORMAT_GBK;
            }
            ASSERT_EQ(system_get_code_format(text), wanted) << first << " " << second;
        }
    }
}

TEST(CodeFormat, EveryBoundaryOfUtf8)
{
    const auto is_utf8 = [](const std::string &text) {
        return system_get_code_format(text.c_str()) == CODE_FORMAT_UTF8;
    };
    struct {
        std::uint32_t code;
        std::size_t length;
        bool valid;
    } const cases[] = {
        {0x80, 2, true},      {0x7FF, 2, true},      {0x7F, 2, false},   {0x00, 2, false},
        {0x800, 3, true},     {0xFFFF, 3, true},     {0x7FF, 3, false},  {0xD7FF, 3, true},
        {0xD800, 3, false},   {0xDBFF, 3, false},    {0xDC00, 3, false}, {0xDFFF, 3, false},
        {0xE000, 3, true},    {0xFFFD, 3, true},     {0xFFFE, 3, true},  {0x10000, 4, true},
        {0x10FFFF, 4, true},  {0x110000, 4, false},  {0xFFFF, 4, false}, {0x1FFFFF, 4, false},
        {0x3FFFF, 4, true},   {0x40000, 4, true},    {0xFFFFF, 4, true}, {0x100000, 4, true},
        {0x200000, 5, false}, {0x4000000, 6, false}, {0xFFF, 3, true},   {0x1000, 3, true},
        {0xCFFF, 3, true},    {0xD000, 3, true},
    };
    for (const auto &one : cases) {
        const std::string text = utf8_of(one.code, one.length);
        EXPECT_EQ(is_utf8(text), one.valid) << std::hex << one.code << " in " << one.length;
        EXPECT_EQ(is_utf8("a" + text + "z"), one.valid);
        EXPECT_EQ(is_utf8(kUtf8 + text), one.valid);
        if (!one.valid) {
            continue;
        }
        for (std::size_t length = 1; length < text.size(); ++length) {
            EXPECT_FALSE(is_utf8(text.substr(0, length))) << "cut";
        }
        for (std::size_t at = 1; at < text.size(); ++at) {
            for (const int byte : {0x01, 0x7F, 0xC0, 0xFF}) {
                std::string broken = text;
                broken[at] = static_cast<char>(byte);
                EXPECT_FALSE(is_utf8(broken)) << std::hex << one.code << " " << byte;
            }
        }
    }
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        EXPECT_FALSE(is_utf8(std::string(1, static_cast<char>(byte))));
    }
}

TEST(CodeFormat, ConversionTakesItsArgumentsOnly)
{
    char out[40] = "before";
    EXPECT_EQ(system_convert_code_format(nullptr, "a", out), 0);
    EXPECT_EQ(system_convert_code_format("utf-8", nullptr, out), 0);
    EXPECT_EQ(system_convert_code_format("utf-8", "a", nullptr), 0);
    for (const char *const other : {"", "utf", "utf-8x", "UTF-8", "utf-16", "gb231", "gb23122"}) {
        EXPECT_EQ(system_convert_code_format(other, "a", out), 0) << other;
    }
    EXPECT_STREQ(out, "before");
    EXPECT_NE(system_convert_code_format("utf-8", "", out), 0);
    EXPECT_STREQ(out, "");
}

TEST(CodeFormat, AFailureLeavesNothingForTheNextText)
{
    char out[40];
    for (const char *const half : {"a\xd6", "\xd6\xd0\xd6"}) {
        EXPECT_EQ(system_convert_code_format("utf-8", half, out), 0);
        EXPECT_NE(system_convert_code_format("utf-8", kGbk, out), 0);
        EXPECT_STREQ(out, kUtf8);
    }
    EXPECT_EQ(system_convert_code_format("gb2312", "\xe4\xb8", out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_NE(system_convert_code_format("gb2312", kUtf8, out), 0);
    EXPECT_STREQ(out, kGbk);
}

/** Whether texts convert rightly both ways, and texts that break off fail without a trace. */
bool both_ways_work()
{
    char out[40];
    return system_convert_code_format("utf-8", kGbk, out) != 0 && out == std::string{kUtf8} &&
           system_convert_code_format("utf-8", "\xd6\xd0\xd6", out) == 0 &&
           system_convert_code_format("gb2312", kUtf8, out) != 0 && out == std::string{kGbk} &&
           system_convert_code_format("gb2312", "\xe4\xb8\xad\xe6", out) == 0;
}

TEST(CodeFormat, ThreadsDoNotMeetInAConverter)
{
    constexpr int kThreads = 8;
    const int opened_before = opened;
    const int closed_before = closed;
    std::latch start{kThreads};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int round = 0; round < 5000; ++round) {
                wrong += both_ways_work() ? 0 : 1;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(opened - opened_before, 2 * kThreads) << "one each way, kept";
    EXPECT_EQ(closed - closed_before, 2 * kThreads) << "by the threads' ends";
}

/** A program's own clean-up at a thread's end may convert once more, after ours. */
TEST(CodeFormat, AMachineWithoutTables)
{
    std::thread{[] {  // which has no converters yet
        char out[40] = "";
        no_tables = true;
        EXPECT_EQ(system_convert_code_format("utf-8", kGbk, out), 0);
        no_tables = false;
        EXPECT_NE(system_convert_code_format("utf-8", kGbk, out), 0) << "asked for again";
        EXPECT_STREQ(out, kUtf8);
    }}
        .join();
}

TEST(CodeFormat, ConversionWhileAThreadEnds)
{
    static std::atomic<int> rounds;
    static pthread_key_t key;
    rounds = 0;
    const int opened_before = opened;
    const int closed_before = closed;
    ASSERT_TRUE(both_ways_work());  // so that our clean-up was registered first
    const int kept = opened - opened_before;
    ASSERT_EQ(pthread_key_create(&key,
                                 [](void *value) {
                                     EXPECT_TRUE(both_ways_work());
                                     if (++rounds < 2) {
                                         pthread_setspecific(key, value);
                                     }
                                 }),
              0);
    std::thread{[] {
        EXPECT_TRUE(both_ways_work());
        pthread_setspecific(key, &key);
    }}.join();
    EXPECT_EQ(rounds, 2);
    EXPECT_EQ(opened - opened_before - kept, closed - closed_before) << "nothing is left open";
    EXPECT_EQ(pthread_key_delete(key), 0);
}

TEST(CodeFormat, AChildGoesOnWithItsOwnConverters)
{
    ASSERT_TRUE(both_ways_work());
    const pid_t child = test::start([] { EXPECT_TRUE(both_ways_work()); });
    EXPECT_TRUE(both_ways_work());
    EXPECT_TRUE(test::ended_well(child));
}

}  // namespace
