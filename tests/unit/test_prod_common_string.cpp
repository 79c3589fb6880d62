// SPDX-License-Identifier: MIT
#include "prod_common_string.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <cstdint>
#include <cstdlib>

#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/emulation.hpp"

namespace
{

TEST(StrTrim, LeftMovesTheRestAndReturnsTheEnd)
{
    char text[] = "xxab";
    EXPECT_STREQ(str_trim_left(text, 'x'), "");
    EXPECT_STREQ(text, "ab");

    char same[] = "abx";
    EXPECT_EQ(str_trim_left(same, 'x'), same);
    EXPECT_STREQ(same, "abx");

    char all[] = "xxx";
    EXPECT_EQ(str_trim_left(all, 'x'), all);
    EXPECT_STREQ(all, "");
}

TEST(StrTrim, ANulHasNothingToRemove)
{
    char text[] = "ab";
    EXPECT_EQ(str_trim_left(text, '\0'), text);
    EXPECT_EQ(str_trim_right(text, '\0'), text);
    EXPECT_STREQ(text, "ab");
}

TEST(StrTrim, RightAndBoth)
{
    char right[] = "abxx";
    EXPECT_EQ(str_trim_right(right, 'x'), right);
    EXPECT_STREQ(right, "ab");
    char only[] = "\n\n";
    EXPECT_STREQ(str_trim_right(only, '\n'), "");
    char empty[] = "";
    EXPECT_STREQ(str_trim_right(empty, 'x'), "");
    char both[] = "  a b ";
    EXPECT_EQ(str_trim(both, ' '), both);
    EXPECT_STREQ(both, "a b");
}

TEST(Str, NullDoesNothing)
{
    char buffer[8];
    EXPECT_EQ(str_trim_left(nullptr, 'x'), nullptr);
    EXPECT_EQ(str_trim_right(nullptr, 'x'), nullptr);
    EXPECT_EQ(str_trim(nullptr, 'x'), nullptr);
    EXPECT_EQ(str_to_upper(nullptr), nullptr);
    EXPECT_EQ(str_to_lower(nullptr), nullptr);
    replace_char(nullptr, 'a', 'b');
    EXPECT_EQ(str_del_chars(nullptr, 'a'), 0);
    str_reverse(nullptr);
    EXPECT_EQ(str_isdigit(nullptr), 0);
    EXPECT_EQ(str_is_printable(nullptr), 0);
    EXPECT_EQ(bkdr_hash(nullptr), 0U);
    EXPECT_EQ(strnstr(nullptr, "a", 1), nullptr);
    EXPECT_EQ(strnstr("a", nullptr, 1), nullptr);
    EXPECT_EQ(str_replace(nullptr, "a", "b"), nullptr);
    EXPECT_EQ(str_replace("a", nullptr, "b"), nullptr);
    EXPECT_EQ(str_replace("a", "a", nullptr), nullptr);
    EXPECT_EQ(str_join(nullptr, "a"), nullptr);
    EXPECT_EQ(str_join("a", nullptr), nullptr);
    EXPECT_EQ(str_to_hex(nullptr, buffer, 8), nullptr);
    EXPECT_EQ(str_to_hex("a", nullptr, 8), nullptr);
    EXPECT_EQ(hex_to_str(nullptr, buffer, 8), nullptr);
    EXPECT_EQ(hex_to_str("61", nullptr, 8), nullptr);
    EXPECT_EQ(mac_str_32(nullptr), 0);
}

TEST(Str, CaseIsChangedInPlace)
{
    char text[] = "aZ-9\xe4";
    EXPECT_EQ(str_to_upper(text), text);
    EXPECT_STREQ(text, "AZ-9\xe4");
    EXPECT_EQ(str_to_lower(text), text);
    EXPECT_STREQ(text, "az-9\xe4");
}

TEST(Str, CharactersAreReplacedDeletedAndReversed)
{
    char replaced[] = "a.b.c";
    replace_char(replaced, '.', '_');
    EXPECT_STREQ(replaced, "a_b_c");
    replace_char(replaced, '_', '_');
    replace_char(replaced, '\0', 'x');
    EXPECT_STREQ(replaced, "a_b_c");

    char deleted[] = ":a::b:";
    EXPECT_EQ(str_del_chars(deleted, ':'), 1);
    EXPECT_STREQ(deleted, "ab");
    EXPECT_EQ(str_del_chars(deleted, ':'), 1);
    EXPECT_STREQ(deleted, "ab");
    char empty[] = "";
    EXPECT_EQ(str_del_chars(empty, ':'), 0);

    for (const auto &[from, to] :
         {std::pair{"abc", "cba"}, {"abcd", "dcba"}, {"a", "a"}, {"", ""}}) {
        std::string text = from;
        str_reverse(text.data());
        EXPECT_EQ(text, to);
    }
}

TEST(Str, SmallValues)
{
    EXPECT_STREQ(bool_to_string(-1), "true");
    EXPECT_STREQ(bool_to_string(0), "false");
    EXPECT_EQ(integer_is_between(1, 1, 3), 1);
    EXPECT_EQ(integer_is_between(3, 1, 3), 1);
    EXPECT_EQ(integer_is_between(0, 1, 3), 0);
    EXPECT_EQ(integer_is_between(4, 1, 3), 0);
}

TEST(StrIsdigit, AcceptsOneSignAndDigitsOnly)
{
    for (const char *text : {"0", "12", "+12", "-7", "00000000000000000000009"}) {
        EXPECT_EQ(str_isdigit(text), 1) << text;
    }
    for (const char *text : {"", "-", "+", "+-1", "1-", " 1", "1 ", "0x1", "1.0", "a"}) {
        EXPECT_EQ(str_isdigit(text), 0) << text;
    }
}

TEST(StrIsPrintable, CountsEverythingFrom32Up)
{
    EXPECT_EQ(str_is_printable(""), 1);
    EXPECT_EQ(str_is_printable("a b\r\n\t~\x7f\x80\xff"), 1);
    EXPECT_EQ(str_is_printable("a\x1f"), 0);
    EXPECT_EQ(str_is_printable("\x01"), 0);
    EXPECT_EQ(str_is_printable("\v"), 0);
}

TEST(BkdrHash, MultipliesBy131OverUnsignedBytes)
{
    EXPECT_EQ(bkdr_hash(""), 0U);
    EXPECT_EQ(bkdr_hash("a"), 97U);
    EXPECT_EQ(bkdr_hash("ab"), 97U * 131 + 98);
    EXPECT_EQ(bkdr_hash("\xff"), 255U);
    unsigned int expected = 0;
    for (const char *p = "wlan0.0_bss_enable"; *p != '\0'; ++p) {
        expected = expected * 131 + static_cast<unsigned char>(*p);
    }
    EXPECT_EQ(bkdr_hash("wlan0.0_bss_enable"), expected);
}

TEST(Strnstr, TheMatchMustEndWithinTheLength)
{
    const char *const text = "abcdef";
    EXPECT_EQ(strnstr(text, "cd", 3), nullptr);
    EXPECT_EQ(strnstr(text, "cd", 4), text + 2);
    EXPECT_EQ(strnstr(text, "cd", 100), text + 2);
    EXPECT_EQ(strnstr(text, "abcdef", 6), text);
    EXPECT_EQ(strnstr(text, "abcdefg", 100), nullptr);
    EXPECT_EQ(strnstr(text, "", 6), nullptr);
    EXPECT_EQ(strnstr(text, "a", 0), nullptr);
    EXPECT_EQ(strnstr(text, "a", -1), nullptr);
    EXPECT_EQ(strnstr("", "a", 5), nullptr);
}

TEST(StrReplace, ReplacesFromLeftToRight)
{
    EXPECT_EQ(test::taken(str_replace("a.b.c", ".", "::")), "a::b::c");
    EXPECT_EQ(test::taken(str_replace("aaa", "aa", "b")), "ba");
    EXPECT_EQ(test::taken(str_replace("aaa", "a", "xyz")), "xyzxyzxyz");
    EXPECT_EQ(test::taken(str_replace("aaaa", "aa", "xyz")), "xyzxyz");
    EXPECT_EQ(test::taken(str_replace("abc", "abc", "")), "");
    EXPECT_EQ(test::taken(str_replace("abc", "x", "y")), "abc");
    EXPECT_EQ(test::taken(str_replace("", "x", "y")), "");
    EXPECT_EQ(test::taken(str_replace("abc", "", "y")), "abc");
}

TEST(StrReplace, LongTextsFitExactly)
{
    const std::string many(5000, 'a');
    std::string expected;
    for (std::size_t i = 0; i < many.size(); ++i) {
        expected += "bcd";
    }
    EXPECT_EQ(test::taken(str_replace(many.c_str(), "a", "bcd")), expected);
}

TEST(StrJoin, PutsTheJoinBetweenCharacters)
{
    EXPECT_EQ(test::taken(str_join("abc", "-")), "a-b-c");
    EXPECT_EQ(test::taken(str_join("abc", ", ")), "a, b, c");
    EXPECT_EQ(test::taken(str_join("abc", "")), "abc");
    EXPECT_EQ(test::taken(str_join("a", "-")), "a");
    EXPECT_EQ(test::taken(str_join("", "-")), "");
}

TEST(Hex, ToHexNeedsTwoDigitsAByteAndANul)
{
    char buffer[7] = "######";
    EXPECT_EQ(str_to_hex("\x01\xab\xff", buffer, 7), buffer);
    EXPECT_STREQ(buffer, "01abff");
    char small[7] = "######";
    EXPECT_EQ(str_to_hex("\x01\xab\xff", small, 6), nullptr);
    EXPECT_STREQ(small, "######");
    EXPECT_EQ(str_to_hex("", small, 0), nullptr);
    EXPECT_EQ(str_to_hex("", small, 1), small);
    EXPECT_STREQ(small, "");
}

TEST(Hex, FromHexDoesNotValidate)
{
    char buffer[4] = "###";
    EXPECT_EQ(hex_to_str("61B2fF", buffer, 4), buffer);
    EXPECT_STREQ(buffer, "a\xb2\xff");
    EXPECT_EQ(hex_to_str("abc", buffer, 2), buffer);
    EXPECT_STREQ(buffer, "\xab");
    EXPECT_EQ(hex_to_str("abcd", buffer, 2), nullptr);
    EXPECT_STREQ(buffer, "\xab") << "untouched";
    EXPECT_EQ(hex_to_str("", buffer, 1), buffer);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(hex_to_str("", buffer, 0), nullptr);
    // 'z' counts as 122 - 87 = 35, '.' as 46 - 87 = -41.
    EXPECT_EQ(hex_to_str("z1", buffer, 2), buffer);
    EXPECT_EQ(static_cast<unsigned char>(buffer[0]), (35 * 16 + 1) & 0xFF);
    EXPECT_EQ(hex_to_str("1.", buffer, 2), buffer);
    EXPECT_EQ(static_cast<unsigned char>(buffer[0]), (1 * 16 - 41) & 0xFF);
}

TEST(MacStr32, PutsColonsInPlace)
{
    char mac[32] = "001122aabbCC";
    EXPECT_EQ(mac_str_32(mac), 1);
    EXPECT_STREQ(mac, "00:11:22:aa:bb:CC");

    char ten[32] = "0011223344";
    EXPECT_EQ(mac_str_32(ten), 1);
    EXPECT_STREQ(ten, "00:11:22:33:44:");

    char nine[32] = "001122334";
    EXPECT_EQ(mac_str_32(nine), 0);
    EXPECT_STREQ(nine, "001122334");

    char most[32] = "01234567890123456789012345";
    EXPECT_EQ(mac_str_32(most), 1);
    EXPECT_STREQ(most, "01:23:45:67:89:0123456789012345");

    char over[40] = "012345678901234567890123456";
    EXPECT_EQ(mac_str_32(over), 0);
    EXPECT_STREQ(over, "012345678901234567890123456");
}

/** Runs `code` in a child and returns what it printed: get_self_pname() remembers per process. */
std::string printed_in_child(const std::function<void()> &code)
{
    return test::printed([&] { EXPECT_TRUE(test::in_a_child(code)); });
}

constexpr const char *kOwnStat =
    "makes /proc/self/stat up, with the name that the program was started under";

TEST(GetSelfPname, IsReadOnceFromTheKernel)
{
    SKIP_IF_EMULATED(kOwnStat);
    EXPECT_EQ(printed_in_child([] {
                  prctl(PR_SET_NAME, "dhcpcd_wan1");
                  printf("%s,", get_self_pname());
                  prctl(PR_SET_NAME, "other");
                  printf("%s", get_self_pname());
              }),
              "dhcpcd_wan1,dhcpcd_wan1");
}

TEST(GetSelfPname, AChildShowsItsParents)
{
    SKIP_IF_EMULATED(kOwnStat);
    EXPECT_EQ(printed_in_child([] {
                  prctl(PR_SET_NAME, "parent");
                  get_self_pname();
                  EXPECT_TRUE(test::in_a_child([] {
                      prctl(PR_SET_NAME, "child");
                      printf("%s", get_self_pname());
                  }));
              }),
              "parent");
}

TEST(GetSelfPname, AFileThatCannotBeOpenedIsTriedAgain)
{
    SKIP_IF_EMULATED(kOwnStat);
    // The one that creates the table asks for its name on the way.
    printed_in_child([] { get_dbg_info(); });
    const std::string text = printed_in_child([] {
        prctl(PR_SET_NAME, "late");
        get_dbg_info();
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none{0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        const char *const first = get_self_pname();
        setrlimit(RLIMIT_NOFILE, &limit);
        printf("%s,%s", first, get_self_pname());
    });
    EXPECT_THAT(text, test::Prints(".* get_self_pname           : Failed\\(24\\) to open file "
                                   "'/proc/[0-9]+/stat', Too many open files\\.\n.*<null>,late"));
}

TEST(GetSelfPname, ANameWithAParenthesisEndsThere)
{
    SKIP_IF_EMULATED(kOwnStat);
    EXPECT_EQ(printed_in_child([] {
                  prctl(PR_SET_NAME, "a (b) c");
                  printf("%s", get_self_pname());
              }),
              "a (b");
}

TEST(GetSelfPname, AnEmptyNameDoesNotMatch)
{
    SKIP_IF_EMULATED(kOwnStat);
    const std::string text = printed_in_child([] {
        prctl(PR_SET_NAME, "");
        printf("%s", get_self_pname());
    });
    EXPECT_THAT(text,
                test::Prints(".*Failed to get pname from file `/proc/[0-9]+/stat`\n.*<null>"));
}

#ifdef OWN_ALLOCATOR
TEST(WithoutMemory, NewTexts)
{
    const std::string text(70000, 'a');
    const auto with_refused = [&](std::size_t size, const std::function<char *()> &code) {
        return test::printed([&] {
            const test::WithoutMemory refused{size};
            EXPECT_EQ(code(), nullptr);
        });
    };
    EXPECT_THAT(with_refused(3 * 70000 + 1, [&] { return str_join(text.c_str(), "::"); }),
                test::Prints(test::log_line(PROD_DBG_ERROR, "str_join", "Out of memory.")));
    // The room: as long as the text, or what nothing but occurrences would come to.
    EXPECT_EQ(with_refused(70000 + 1, [&] { return str_replace(text.c_str(), "aa", "b"); }), "");
    EXPECT_EQ(with_refused(105000 + 2, [&] { return str_replace(text.c_str(), "aa", "bbb"); }), "");
}
#endif

TEST(ProdHexdump, PrintsRowsOfSixteen)
{
    char bytes[20];
    for (int i = 0; i < 20; ++i) {
        bytes[i] = static_cast<char>(i == 0 ? 0xff : 'a' + i);
    }
    EXPECT_EQ(test::printed([&] { prod_hexdump("frame", bytes, 20); }),
              "\033[1;40;36mHEXDUMP `frame`(length=20):\n\033[0m"
              "00000000 | ff 62 63 64 65 66 67 68  69 6a 6b 6c 6d 6e 6f 70  | .bcdefgh ijklmnop\n"
              "00000010 | 71 72 73 74                                       | qrst\n");
}

TEST(ProdHexdump, NothingToPrint)
{
    EXPECT_EQ(test::printed([] {
                  prod_hexdump(nullptr, "a", 1);
                  prod_hexdump("a", nullptr, 1);
                  prod_hexdump("a", "a", 0);
                  prod_hexdump("a", "a", -1);
              }),
              "");
}

}  // namespace
