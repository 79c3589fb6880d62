// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "platform/text.h"
#include "prod_common_debug.h"
#include "prod_common_string.h"
#include "support/allocator.hpp"
#include "support/base64.hpp"
#include "support/capture.hpp"
#include "support/interpose.hpp"

using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::taken;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

// The port's two functions as the library sees them: passed through unless a test answers.
using Convert = int (*)(const char *, const char *, char *);
Convert conversion = nullptr;
std::vector<std::string> targets;

}  // namespace

extern "C" int system_convert_code_format(const char *target, const char *src, char *dst)
{
    targets.emplace_back(target);
    if (conversion != nullptr) {
        return conversion(target, src, dst);
    }
    static const auto real = test::next(system_convert_code_format, "system_convert_code_format");
    return real(target, src, dst);
}

namespace
{

// "\u4e2d\u6587" in both encodings.
constexpr const char *kUtf8 = "\xe4\xb8\xad\xe6\x96\x87";
constexpr const char *kGbk = "\xd6\xd0\xce\xc4";

/** The code point of a UTF-8 character; the tests' own reading. */
std::uint32_t code_point(const std::string &utf8)
{
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(utf8[at]); };
    std::uint32_t code = byte(0);
    if (utf8.size() > 1) {
        code &= 0xFFU >> (utf8.size() + 1);
    }
    for (std::size_t at = 1; at < utf8.size(); ++at) {
        code = code << 6 | (byte(at) & 0x3FU);
    }
    return code;
}

class Chinese : public testing::Test
{
  protected:
    void SetUp() override
    {
        targets.clear();
        conversion = nullptr;
    }
    void TearDown() override { conversion = nullptr; }
};

TEST_F(Chinese, BothWays)
{
    EXPECT_EQ(taken(encode_chinese("utf8", kGbk)), kUtf8);
    EXPECT_EQ(taken(encode_chinese("gb2312", kUtf8)), kGbk);
    EXPECT_EQ(taken(encode_chinese("utf8", "plain")), "plain");
    EXPECT_EQ(taken(encode_chinese("gbk", "plain")), "plain");
    EXPECT_EQ(taken(encode_chinese("utf8", "")), "");
    EXPECT_EQ(taken(encode_chinese("gbk", "")), "");
}

TEST_F(Chinese, NamesOfEncodings)
{
    for (const char *const name : {"utf8", "UTF8", "utf-8", "UTF-8", "Utf-8"}) {
        EXPECT_EQ(taken(encode_chinese(name, kGbk)), kUtf8) << name;
        EXPECT_EQ(targets.back(), "utf-8");
    }
    for (const char *const name : {"gbk", "GBK", "gb2312", "GB2312", "Gb2312"}) {
        EXPECT_EQ(taken(encode_chinese(name, kUtf8)), kGbk) << name;
        EXPECT_EQ(targets.back(), "gb2312");
    }
    targets.clear();
    for (const char *const name : {"", "utf", "utf-16", "gb18030", "gbk ", "utf-8x"}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(encode_chinese(name, "a"), nullptr); }), IsEmpty());
    }
    EXPECT_THAT(targets, IsEmpty());
}

TEST_F(Chinese, NullArguments)
{
    EXPECT_THAT(printed([] {
                    EXPECT_EQ(encode_chinese(nullptr, "a"), nullptr);
                    EXPECT_EQ(encode_chinese("utf8", nullptr), nullptr);
                    EXPECT_EQ(encode_str_to_utf8(nullptr), nullptr);
                    EXPECT_EQ(get_gb2312(nullptr), 0);
                }),
                IsEmpty());
    EXPECT_THAT(targets, IsEmpty());
}

TEST_F(Chinese, AFailureIsLogged)
{
    const std::string line =
        log_line(PROD_DBG_ERROR, "encode_chinese", "Failed to encode chinese string.");
    const auto fail = [] { EXPECT_EQ(encode_chinese("utf8", "\xd6"), nullptr); };
    EXPECT_THAT(printed_at(PROD_DBG_ERROR, fail), Prints(line));
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, fail), Prints(line)) << "no dump yet";
    const auto emoji = [] { EXPECT_EQ(encode_chinese("gbk", "\xf0\x9f\x98\x80"), nullptr); };
    EXPECT_THAT(printed_at(PROD_DBG_ERROR, emoji), Prints(line));
}

TEST_F(Chinese, FromLevel4BothTextsAreDumped)
{
    // 3 bytes: a buffer of 3 x 1.5 + 1, cut, and 1.
    const std::string out =
        printed_at(PROD_DBG_INFO, [] { EXPECT_EQ(encode_chinese("utf8", "ab\xd6"), nullptr); });
    EXPECT_THAT(out, HasSubstr("HEXDUMP `src`(length=4):"));
    EXPECT_THAT(out, HasSubstr("00000000 | 61 62 d6 00"));
    EXPECT_THAT(out, HasSubstr("HEXDUMP `dst`(length=6):"));
    EXPECT_THAT(out, HasSubstr("00000000 | 61 62 00 00 00 00"));
    EXPECT_LT(out.find("Failed to encode"), out.find("`src`"));
    EXPECT_LT(out.find("`src`"), out.find("`dst`"));
    const std::string gbk =
        printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(encode_chinese("gbk", "ab\xe4\xb8"), nullptr); });
    EXPECT_THAT(gbk, HasSubstr("HEXDUMP `src`(length=5):"));
    EXPECT_THAT(gbk, HasSubstr("HEXDUMP `dst`(length=5):"));
}

TEST_F(Chinese, TheSizesThatADumpShows)
{
    conversion = [](const char *, const char *, char *) { return 0; };
    const std::size_t sizes[] = {2, 3, 5, 6, 8};  // of "utf8", for texts of 0 to 4 bytes
    for (std::size_t length = 0; length < std::size(sizes); ++length) {
        const std::string text(length, 'a');
        for (const auto &[encoding, size] :
             {std::pair{"utf8", sizes[length]}, std::pair{"gbk", length + 1}}) {
            const std::string out = printed_at(
                PROD_DBG_INFO, [&] { EXPECT_EQ(encode_chinese(encoding, text.c_str()), nullptr); });
            EXPECT_THAT(out, HasSubstr("`dst`(length=" + std::to_string(size) + ")"));
        }
    }
}

/** A port may write four times the length; callers get no more than the stated size. */
TEST_F(Chinese, WhatWouldNotFitTheStatedSizeFails)
{
    conversion = [](const char *, const char *src, char *dst) {
        memset(dst, 'x', 4 * strlen(src));
        dst[4 * strlen(src)] = '\0';
        return 1;
    };
    const std::string line =
        log_line(PROD_DBG_ERROR, "encode_chinese", "Failed to encode chinese string.");
    for (const char *const encoding : {"utf8", "gbk"}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(encode_chinese(encoding, "aaaa"), nullptr); }),
                    Prints(line));
    }
    // The euro sign of some Windows machines: one byte becomes three.
    conversion = nullptr;
    EXPECT_THAT(printed([] { EXPECT_EQ(encode_chinese("utf8", "\x80\x80\x80\x80"), nullptr); }),
                Prints(line));
    // Exactly full: seven characters where seven fit.
    conversion = [](const char *, const char *, char *dst) {
        strcpy(dst, "1234567");
        return 1;
    };
    EXPECT_EQ(taken(encode_chinese("utf8", "aaaa")), "1234567");
    EXPECT_EQ(taken(encode_chinese("gbk", "aaaaaaa")), "1234567");
    EXPECT_THAT(printed([] { EXPECT_EQ(encode_chinese("gbk", "aaaaaa"), nullptr); }), Prints(line));
}

TEST_F(Chinese, TheCallersBlockIsNoLargerThanStated)
{
    const std::string text(10000, 'a');
    for (const char *const encoding : {"utf8", "gbk"}) {
        char *const converted = encode_chinese(encoding, text.c_str());
        EXPECT_LT(malloc_usable_size(converted), 2 * text.size());
        EXPECT_EQ(taken(converted), text);
    }
}

#ifdef OWN_ALLOCATOR
TEST_F(Chinese, OutOfMemory)
{
    const std::string text(1000, 'a');
    const std::string out = printed([&] {
        const test::WithoutMemory refused{4002};
        EXPECT_EQ(encode_chinese("utf8", text.c_str()), nullptr);
    });
    EXPECT_THAT(out, Prints(log_line(PROD_DBG_ERROR, "encode_chinese", "Out of memory.")));
    EXPECT_THAT(targets, IsEmpty());
}
#endif

TEST_F(Chinese, ToUtf8WhateverItIs)
{
    EXPECT_EQ(taken(encode_str_to_utf8(kUtf8)), kUtf8);
    EXPECT_THAT(targets, IsEmpty()) << "a copy";
    EXPECT_EQ(taken(encode_str_to_utf8(kGbk)), kUtf8);
    EXPECT_EQ(targets, std::vector<std::string>{"utf-8"});
    EXPECT_EQ(taken(encode_str_to_utf8("plain")), "plain");
    EXPECT_EQ(taken(encode_str_to_utf8("")), "");
    printed([] { EXPECT_EQ(encode_str_to_utf8("\xff"), nullptr); });
}

TEST_F(Chinese, EveryTwoByteCharacterThereAndBack)
{
    // Counted and summed by another implementation of the encoding.
    constexpr int kCharacters = 21791;
    constexpr std::uint32_t kSum = 1613041946;
    int count = 0;
    std::uint32_t sum = 0;
    const std::string out = printed([&] {
        for (unsigned int first = 0x81; first <= 0xFE; ++first) {
            for (unsigned int second = 0x01; second <= 0xFF; ++second) {
                const char gbk[] = {static_cast<char>(first), static_cast<char>(second), '\0'};
                const std::string utf8 = taken(encode_chinese("utf8", gbk));
                if (utf8 == "(none)") {
                    continue;
                }
                ++count;
                sum = sum * 31 + code_point(utf8);
                ASSERT_EQ(taken(encode_chinese("gbk", utf8.c_str())), gbk);
                ASSERT_NE(system_get_code_format(gbk), CODE_FORMAT_PLAIN);
                ASSERT_EQ(system_get_code_format(utf8.c_str()), CODE_FORMAT_UTF8);
            }
        }
    });
    EXPECT_EQ(count, kCharacters);
    EXPECT_EQ(sum, kSum);
    EXPECT_THAT(out, HasSubstr("Failed to encode")) << "unassigned pairs";
}

TEST_F(Chinese, TheGb2312Test)
{
    const auto answer = [](const char *text) {
        int result = -1;
        const std::string out = printed([&] { result = get_gb2312(text); });
        EXPECT_EQ(out, result == 1 ? "find gb2312 encode!\n" : "");
        return result;
    };
    EXPECT_EQ(answer(kGbk), 1);
    EXPECT_EQ(answer("\xd6\xd0 and more"), 1);
    EXPECT_EQ(answer("a\xd6\xd0"), 0) << "only at the start";
    EXPECT_EQ(answer(""), 0);
    for (int first = 1; first < 256; ++first) {
        for (const int second : {0x00, 0x40, 0xA0, 0xA1, 0xD0, 0xFE, 0xFF}) {
            const char text[] = {static_cast<char>(first), static_cast<char>(second), '\0'};
            EXPECT_EQ(answer(text),
                      first >= 0xA1 && first <= 0xF7 && second >= 0xA1 && second <= 0xFE)
                << first << " " << second;
        }
    }
}

// ---- base64 -----------------------------------------------------------------------------------

constexpr const char *kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/** Base64 bit by bit, unlike the library's. */
std::string reference_encode(const std::string &text)
{
    std::string digits;
    for (std::size_t bit = 0; bit < 8 * text.size(); bit += 6) {
        std::size_t digit = 0;
        for (std::size_t at = bit; at < bit + 6; ++at) {
            const bool set = at / 8 < text.size() && (text[at / 8] >> (7 - at % 8) & 1) != 0;
            digit = digit * 2 + (set ? 1 : 0);
        }
        digits += kDigits[digit];
    }
    digits.append((3 - text.size() % 3) % 3, '=');
    return digits;
}

/** A heap block of exactly that size with a watchman behind it. */
class Room
{
  public:
    explicit Room(std::size_t size) : size_(size), bytes_(size + 8, 'w') {}
    char *data() { return bytes_.data(); }
    bool is_kept() const
    {
        return std::string(bytes_.begin() + static_cast<std::ptrdiff_t>(size_), bytes_.end()) ==
               "wwwwwwww";
    }

  private:
    std::size_t size_;
    std::vector<char> bytes_;
};

std::string encoded(const std::string &text)
{
    Room room{4 * ((text.size() + 2) / 3) + 1};
    prod_encode64(room.data(), text.c_str(), static_cast<int>(4 * ((text.size() + 2) / 3) + 1));
    EXPECT_TRUE(room.is_kept());
    return room.data();
}

/** Text of random bytes but zero. */
std::string random_text(std::size_t length, std::mt19937 &random)
{
    std::string text(length, '\0');
    for (char &c : text) {
        c = static_cast<char>(1 + random() % 255);
    }
    return text;
}

TEST(Base64, Examples)
{
    EXPECT_EQ(encoded(""), "");
    EXPECT_EQ(encoded("a"), "YQ==");
    EXPECT_EQ(encoded("ab"), "YWI=");
    EXPECT_EQ(encoded("abc"), "YWJj");
    EXPECT_EQ(encoded("\xfb\xff\xfe"), "+//+");
    char out[4];
    EXPECT_EQ(prod_decode64(out, "YWJj", 4), 0);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(prod_decode64(out, "YWJj", 3), -1);
    EXPECT_STREQ(out, "");
}

TEST(Base64, EveryLengthBesideAnotherImplementation)
{
    std::mt19937 random{3};
    for (std::size_t length = 0; length <= 300; ++length) {
        for (int round = 0; round < 5; ++round) {
            const std::string text = random_text(length, random);
            ASSERT_EQ(encoded(text), reference_encode(text)) << length;
        }
    }
}

TEST(Base64, EveryByteInEveryPlace)
{
    for (int byte = 1; byte < 256; ++byte) {
        for (std::size_t place = 0; place < 9; ++place) {
            std::string text(9, 'x');
            text[place] = static_cast<char>(byte);
            ASSERT_EQ(encoded(text), reference_encode(text));
        }
    }
}

TEST(Base64, ASmallBufferGetsTheFrontOfTheText)
{
    std::mt19937 random{4};
    for (std::size_t length = 0; length <= 24; ++length) {
        const std::string text = random_text(length, random);
        const std::string whole = reference_encode(text);
        for (std::size_t size = 1; size <= whole.size() + 3; ++size) {
            Room room{size};
            prod_encode64(room.data(), text.c_str(), static_cast<int>(size));
            EXPECT_TRUE(room.is_kept());
            EXPECT_EQ(room.data(), whole.substr(0, size - 1)) << length << " in " << size;
        }
    }
}

TEST(Base64, NoRoomAndNoArguments)
{
    char out[] = "before";
    for (const int size : {0, -1, INT32_MIN}) {
        prod_encode64(out, "abc", size);
        EXPECT_EQ(prod_decode64(out, "YWJj", size), -1);
    }
    prod_encode64(out, nullptr, sizeof(out));
    prod_encode64(nullptr, "abc", 8);
    EXPECT_EQ(prod_decode64(out, nullptr, sizeof(out)), -1);
    EXPECT_EQ(prod_decode64(nullptr, "YWJj", 8), -1);
    EXPECT_STREQ(out, "before");
}

/** The result's first byte is cleared before the text is looked at. */
TEST(Base64, ATextOverItself)
{
    char text[8] = "YWJj";
    EXPECT_EQ(prod_decode64(text, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "");
    EXPECT_STREQ(text + 1, "WJj");
    text[0] = 'Y';
    prod_encode64(text, text, sizeof(text));
    EXPECT_STREQ(text, "");
    EXPECT_STREQ(text + 1, "WJj");
}

TEST(Base64, DecodedByTheTable)
{
    // Each byte at each place of a group, and each pair of neighbours.
    for (int byte = 1; byte < 256; ++byte) {
        for (std::size_t place = 0; place < 8; ++place) {
            std::string digits = "QkJCQkJC";
            digits[place] = static_cast<char>(byte);
            char out[16];
            std::string wanted;
            ASSERT_EQ(prod_decode64(out, digits.c_str(), sizeof(out)),
                      test::reference_decode(wanted, digits.c_str(), sizeof(out)));
            ASSERT_EQ(std::string(out, wanted.size()), wanted) << byte << " at " << place;
            ASSERT_EQ(out[wanted.size()], '\0');
        }
    }
    char out[4];
    EXPECT_EQ(prod_decode64(out, "\x1b\x1f\x1f\x1b", sizeof(out)), 0);
    EXPECT_STREQ(out, "\xfb\xff\xfe");
    EXPECT_EQ(prod_decode64(out, "A+AA", sizeof(out)), 0);
    EXPECT_EQ(std::string(out, 3), std::string("\x0f\xf0\x00", 3))
        << "two bits of the digit in front";
    EXPECT_EQ(prod_decode64(out, "AA/A", sizeof(out)), 0);
    EXPECT_EQ(std::string(out, 3), std::string("\x00\x3f\xc0", 3));
}

TEST(Base64, DecodingEveryLengthIntoEveryRoom)
{
    std::mt19937 random{5};
    for (std::size_t length = 0; length <= 40; ++length) {
        std::string digits = random_text(length, random);
        for (char &c : digits) {
            c = c == '=' ? 'x' : kDigits[static_cast<unsigned char>(c) % 62];
        }
        for (int size = 1; size <= 34; ++size) {
            Room room{static_cast<std::size_t>(size)};
            std::string wanted;
            const int result = test::reference_decode(wanted, digits.c_str(), size);
            EXPECT_EQ(prod_decode64(room.data(), digits.c_str(), size), result);
            EXPECT_TRUE(room.is_kept());
            ASSERT_EQ(std::string(room.data(), wanted.size()), wanted);
            EXPECT_EQ(room.data()[wanted.size()], '\0');
        }
    }
}

TEST(Base64, DecodingEndsAtTheFirstEqualsSign)
{
    char out[16];
    EXPECT_EQ(prod_decode64(out, "YWJj=ZGVm", sizeof(out)), 0);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(prod_decode64(out, "YQ==YQ==", sizeof(out)), 0);
    EXPECT_STREQ(out, "a");
    EXPECT_EQ(prod_decode64(out, "=YWJj", sizeof(out)), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(prod_decode64(out, "Y", sizeof(out)), 0);
    EXPECT_STREQ(out, "") << "one digit is no byte";
}

TEST(Base64, ThereAndBackWithoutTheTwoOddDigits)
{
    std::mt19937 random{6};
    int kept = 0;
    for (std::size_t length = 0; length <= 300; ++length) {
        std::string text(length, ' ');
        for (char &c : text) {
            c = static_cast<char>('A' + random() % 26);
        }
        const std::string digits = encoded(text);
        ASSERT_EQ(digits.find_first_of("+/"), std::string::npos);
        std::vector<char> out(length + 1);
        EXPECT_EQ(prod_decode64(out.data(), digits.c_str(), static_cast<int>(length + 1)), 0);
        kept += out.data() == text ? 1 : 0;
    }
    EXPECT_EQ(kept, 301);
}

}  // namespace
