// SPDX-License-Identifier: MIT
// The line scanner beside the C library's sscanf.
#include "internal/line_scanner.hpp"

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

#include "support/emulation.hpp"

using prod::LineScanner;

namespace
{

/** What a pattern reads of a line: how many values, and which. */
struct Values {
    int count = 0;
    std::vector<std::string> texts;
    std::vector<long long> numbers;

    bool operator==(const Values &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Values &values)
{
    stream << values.count << ":";
    for (const auto &text : values.texts) {
        stream << " \"" << text << '"';
    }
    for (const auto number : values.numbers) {
        stream << " " << number;
    }
    return stream;
}

// ---- the columns of a routing table ----------------------------------------------------------

Values route_by_sscanf(const char *line)
{
    char word[16] = "";
    unsigned int destination = 0;
    unsigned int gateway = 0;
    unsigned int mask = 0;
    int metric = 0;
    // NOLINTNEXTLINE(cert-err34-c): it is what is compared with
    const int count =
        sscanf(line, " %15s%X%X%*s%*s%*s%d%X", word, &destination, &gateway, &metric, &mask);
    return {count < 0 ? 0 : count, {word}, {destination, gateway, metric, mask}};
}

Values route_by_scanner(const char *line)
{
    LineScanner scanner{line};
    const std::string word{scanner.word(15)};
    if (word.empty()) {
        return {0, {""}, {0, 0, 0, 0}};
    }
    u32 numbers[3] = {};
    u32 taken;
    int metric = 0;
    int metric_taken;
    int count = 1;
    const auto take = [&](u32 &number) {
        const bool there = scanner.hexadecimal(taken);
        number = there ? taken : 0;
        count += there ? 1 : 0;
        return there;
    };
    const auto take_metric = [&] {
        const bool there = scanner.decimal(metric_taken);
        metric = there ? metric_taken : 0;
        count += there ? 1 : 0;
        return there;
    };
    static_cast<void>(take(numbers[0]) && take(numbers[1]) && scanner.skip_word() &&
                      scanner.skip_word() && scanner.skip_word() && take_metric() &&
                      take(numbers[2]));
    return {count, {word}, {numbers[0], numbers[1], metric, numbers[2]}};
}

// ---- texts with separators -------------------------------------------------------------------

Values fields_by_sscanf(const char *line)
{
    char texts[3][256] = {};
    int number = 0;
    // NOLINTNEXTLINE(cert-err34-c)
    const int count = sscanf(line, "%[^;];%d;%[^;];%[^\n]", texts[0], &number, texts[1], texts[2]);
    return {count < 0 ? 0 : count, {texts[0], texts[1], texts[2]}, {number}};
}

Values fields_by_scanner(const char *line)
{
    LineScanner scanner{line};
    Values values{0, {"", "", ""}, {0}};
    int number;
    const auto take = [&](std::string &text, std::string_view field) {
        text = field;
        values.count += text.empty() ? 0 : 1;
        return !text.empty();
    };
    if (!take(values.texts[0], scanner.until<';'>()) || !scanner.literal(';') ||
        !scanner.decimal(number)) {
        return values;
    }
    values.numbers[0] = number;
    ++values.count;
    static_cast<void>(scanner.literal(';') && take(values.texts[1], scanner.until<';'>()) &&
                      scanner.literal(';') && take(values.texts[2], scanner.until<'\n'>()));
    return values;
}

// ---- lines -----------------------------------------------------------------------------------

/** Lines of parts that a reader stumbles over, with anything between them. */
class Lines
{
  public:
    std::string next()
    {
        std::string line;
        for (unsigned long parts = random_() % 14; parts > 0; --parts) {
            line += part();
            if (random_() % 4 != 0) {
                line += separator();
            }
        }
        return line;
    }

  private:
    std::string part()
    {
        static const std::vector<std::string> kParts{"eth1",
                                                     "00000000",
                                                     "0101A8C0",
                                                     "0003",
                                                     "0",
                                                     "-1",
                                                     "+7",
                                                     "0x1f",
                                                     "0X",
                                                     "0x",
                                                     "-0x10",
                                                     "0xg",
                                                     "FFFFFFFF",
                                                     "fF",
                                                     "x1",
                                                     "-",
                                                     "+",
                                                     "--1",
                                                     "1-",
                                                     "12345",
                                                     "-2147483",
                                                     "\xE4\xB8\xAD",
                                                     "a;b",
                                                     "",
                                                     "%s",
                                                     "+0x7",
                                                     "0b11",
                                                     "1e5",
                                                     "00",
                                                     "nan",
                                                     "abcdefghijklmno",
                                                     "abcdefghijklmnop",
                                                     "2147483647",
                                                     "-2147483648"};
        if (random_() % 8 != 0) {
            return kParts[random_() % kParts.size()];
        }
        std::string bytes;
        for (unsigned long n = random_() % 6; n > 0; --n) {
            bytes += static_cast<char>(1 + random_() % 255);
        }
        return bytes;
    }

    std::string separator()
    {
        static const std::vector<std::string> kSeparators{" ", "\t",   "  ", "\n", ";",
                                                          ";", "\v\f", ";;", "\r", "; "};
        return kSeparators[random_() % kSeparators.size()];
    }

    std::mt19937 random_{7};
};

/** Whether a line has a number that does not fit, where machines and the scanner differ. */
bool has_far_number(const std::string &line)
{
    std::size_t run = 0;
    for (const char c : line) {
        run = isxdigit(static_cast<unsigned char>(c)) != 0 ? run + 1 : 0;
        if (run > 8) {
            return true;
        }
    }
    return false;
}

TEST(LineScanner, ReadsWhatSscanfReads)
{
    Lines lines;
    int whole_routes = 0;
    int whole_fields = 0;
    for (int i = 0; i < test::repetitions(150000); ++i) {
        const std::string line = lines.next();
        if (has_far_number(line)) {
            continue;
        }
        const Values route = route_by_sscanf(line.c_str());
        ASSERT_EQ(route_by_scanner(line.c_str()), route) << testing::PrintToString(line);
        const Values fields = fields_by_sscanf(line.c_str());
        ASSERT_EQ(fields_by_scanner(line.c_str()), fields) << testing::PrintToString(line);
        whole_routes += route.count == 5 ? 1 : 0;
        whole_fields += fields.count == 4 ? 1 : 0;
    }
    EXPECT_GT(whole_routes, test::repetitions(300));
    EXPECT_GT(whole_fields, test::repetitions(300));
}

TEST(LineScanner, ReadsOrdinaryLinesAsSscanfDoes)
{
    for (const char *const line :
         {"eth1\t00000000\t0101A8C0\t0003\t0\t0\t1\t00000000\t0\t0\t0   \n",
          "  br0\t0000A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0", "eth1 1 2 3 4 5 6 7",
          "eth1 1 2 3 4 5 6", "eth1 -1 +2 3 4 5 -6 0x7", "", "\n", "eth1", "eth1 g",
          "2026-01-02;-3;a;b;c\n", "2026-01-02; \t 3;a;b\n", "d;3 ;a;b", ";3;a;b", "d;;a",
          "d;3;"}) {
        EXPECT_EQ(route_by_scanner(line), route_by_sscanf(line)) << line;
        EXPECT_EQ(fields_by_scanner(line), fields_by_sscanf(line)) << line;
    }
}

TEST(LineScanner, BehindAMissingTextThereIsNothing)
{
    LineScanner none{";a"};
    EXPECT_EQ(none.until<';'>(), "");
    EXPECT_TRUE(none.at_end());
    EXPECT_FALSE(none.literal(';'));
    EXPECT_EQ(none.word(), "");

    LineScanner stops{"ab|c*d e"};
    EXPECT_EQ((stops.until<'*', '|', ':'>()), "ab");
    EXPECT_TRUE(stops.literal('|'));
    EXPECT_EQ((stops.until<'*', '|', ':'>()), "c");
    EXPECT_EQ((stops.until<'*', '|', ':'>()), "");
    EXPECT_EQ(stops.until<' '>(), "");
}

// What a number beyond 32 bits becomes differs between C libraries and word sizes, not here.
TEST(LineScanner, NumbersThatDoNotFit)
{
    const struct {
        const char *text;
        u32 value;
    } hexadecimals[] = {{"FFFFFFFF", 0xFFFFFFFF},
                        {"100000000", 0xFFFFFFFF},
                        {"0000000000000000000000001", 1},
                        {"123456789ABCDEF0123456789", 0xFFFFFFFF},
                        {"-1", 0xFFFFFFFF},
                        {"-FFFFFFFF", 1},
                        {"-100000000", 0xFFFFFFFF},
                        {"0xFFFFFFFFF", 0xFFFFFFFF}};
    for (const auto &row : hexadecimals) {
        u32 value = 7;
        EXPECT_TRUE(LineScanner{row.text}.hexadecimal(value)) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
    }
    const struct {
        const char *text;
        int value;
    } decimals[] = {{"2147483647", INT_MAX},
                    {"2147483648", INT_MAX},
                    {"-2147483648", INT_MIN},
                    {"-2147483649", INT_MIN},
                    {"99999999999999999999999", INT_MAX},
                    {"-99999999999999999999999", INT_MIN},
                    {"00000000000000000000012", 12}};
    for (const auto &row : decimals) {
        int value = 7;
        EXPECT_TRUE(LineScanner{row.text}.decimal(value)) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
    }
}

}  // namespace
