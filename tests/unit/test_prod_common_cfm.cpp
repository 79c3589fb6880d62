// SPDX-License-Identifier: MIT
#include "prod_common_cfm.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>

#include "platform/debug.h"
#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/store.hpp"

using test::config;
using test::config_calls;
using test::printed_at;
using test::stored;

// The store's function itself, past the comparison that this program's writes go through.
extern "C" int __real_SetValue(const char *key, const char *value);

namespace
{

int backtraces;

}  // namespace

extern "C" void show_backtrace(void)
{
    ++backtraces;
    printf("<backtrace>\n");
}

namespace
{

class Cfm : public testing::Test
{
  protected:
    Cfm()
    {
        prod_cfm_init();
        backtraces = 0;
    }

  private:
    test::FreshConfig fresh_;
};

// ---- reading ---------------------------------------------------------------------------------

TEST_F(Cfm, AValueAndWhetherItIsThere)
{
    config() = {{"lan.ip", "192.168.0.1"}, {"empty", ""}};
    char value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(prod_cfm_get_val("absent", value), 0);
    EXPECT_STREQ(value, "before") << "an absent key leaves the buffer as it was";
    EXPECT_EQ(prod_cfm_get_val("lan.ip", value), 1);
    EXPECT_STREQ(value, "192.168.0.1");
    EXPECT_EQ(prod_cfm_get_val("empty", value), 1);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(config_calls().reads, 3);
}

TEST_F(Cfm, AFormattedKey)
{
    config() = {{"wan2.connecttype", "1"}};
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(prod_cfm_get_fmt_val("wan%d.%s", value, 2, "connecttype"), 1);
    EXPECT_STREQ(value, "1");
    EXPECT_EQ(prod_cfm_get_fmt_val("wan%d.%s", value, 3, "connecttype"), 0);
    EXPECT_STREQ(value, "1");
}

TEST_F(Cfm, TheStoresAnswerIsPassedOn)
{
    config() = {{"a", "1"}};
    test::config_faults().reads = true;
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(prod_cfm_get_val("a", value), 0);
    EXPECT_EQ(prod_cfm_get_fmt_val("%s", value, "a"), 0);
    EXPECT_EQ(prod_cfm_get_int_val("a"), 0);
}

TEST_F(Cfm, Integers)
{
    config() = {{"port1", "12abc"}, {"port2", "abc"},    {"port3", "-7"},
                {"port4", ""},      {"port5", "  +42 "}, {"port6", "2147483647"}};
    EXPECT_EQ(prod_cfm_get_int_val("port%d", 1), 12);
    EXPECT_EQ(prod_cfm_get_int_val("port%d", 2), 0);
    EXPECT_EQ(prod_cfm_get_int_val("port%d", 3), -7);
    EXPECT_EQ(prod_cfm_get_int_val("port%d", 4), 0);
    EXPECT_EQ(prod_cfm_get_int_val("port%d", 5), 42);
    EXPECT_EQ(prod_cfm_get_int_val("port%d", 6), INT_MAX);
    EXPECT_EQ(prod_cfm_get_int_val("port%d", 7), 0) << "absent";
}

TEST_F(Cfm, AnIntegerIsReadFromTheWholeValue)
{
    config() = {{"a", std::string(2300, ' ') + "1234567"}};
    EXPECT_EQ(prod_cfm_get_int_val("a"), 1234567);
}

TEST_F(Cfm, IntegersOf64Bits)
{
    config() = {
        {"a1", "4294967296"}, {"a2", "9223372036854775807"},       {"a3", "18446744073709551615"},
        {"a4", "-1"},         {"a5", std::string(19, ' ') + "78"}, {"a6", "x"}};
    EXPECT_EQ(prod_cfm_get_uint_val("a%d", 1), 4294967296ULL);
    EXPECT_EQ(prod_cfm_get_uint_val("a%d", 2), 9223372036854775807ULL);
    EXPECT_EQ(prod_cfm_get_uint_val("a%d", 3), 9223372036854775807ULL) << "read as signed";
    EXPECT_EQ(prod_cfm_get_uint_val("a%d", 4), 18446744073709551615ULL);
    EXPECT_EQ(prod_cfm_get_uint_val("a%d", 5), 7U) << "20 characters count";
    EXPECT_EQ(prod_cfm_get_uint_val("a%d", 6), 0U);
    EXPECT_EQ(prod_cfm_get_uint_val("a%d", 7), 0U) << "absent";
}

TEST_F(Cfm, Doubles)
{
    config() = {{"a1", "1.5"},
                {"a2", "-2e3x"},
                {"a3", "x"},
                {"a4", std::string(41, ' ') + "78"},
                {"a5", "0.000000"}};
    EXPECT_EQ(prod_cfm_get_double_val("a%d", 1), 1.5);
    EXPECT_EQ(prod_cfm_get_double_val("a%d", 2), -2000.0);
    EXPECT_EQ(prod_cfm_get_double_val("a%d", 3), 0.0);
    EXPECT_EQ(prod_cfm_get_double_val("a%d", 4), 7.0) << "42 characters count";
    EXPECT_EQ(prod_cfm_get_double_val("a%d", 5), 0.0);
    EXPECT_EQ(prod_cfm_get_double_val("a%d", 6), 0.0) << "absent";
}

// ---- writing ---------------------------------------------------------------------------------

TEST_F(Cfm, AChangedValueIsWrittenAndCounted)
{
    config() = {{"a", "1"}};
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(prod_cfm_set_val("a", "2"), 1);
    EXPECT_EQ(prod_cfm_is_change(), 1);
    EXPECT_EQ(config_calls().reads, 2) << "compared here and again where it is written";
    EXPECT_EQ(config_calls().writes, 1);
    EXPECT_EQ(stored("a"), "2");
}

TEST_F(Cfm, AnUnchangedValueCostsOneRead)
{
    config() = {{"a", "1"}};
    EXPECT_EQ(printed_at(
                  PROD_DBG_TRACE, [] { EXPECT_EQ(prod_cfm_set_val("a", "1"), 0); }, "cfm"),
              "");
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(config_calls().reads, 1);
    EXPECT_EQ(config_calls().writes, 0);
}

TEST_F(Cfm, ValuesAreComparedAsText)
{
    config() = {{"a", "1"}};
    EXPECT_EQ(prod_cfm_set_val("a", "01"), 1);
    EXPECT_EQ(stored("a"), "01");
}

TEST_F(Cfm, AnAbsentKeyHoldsTheEmptyText)
{
    EXPECT_EQ(prod_cfm_set_val("absent", ""), 0);
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(config_calls().writes, 0);
    EXPECT_EQ(prod_cfm_set_val("absent", "0"), 1);
    EXPECT_EQ(stored("absent"), "0");
    EXPECT_EQ(prod_cfm_set_val("absent", ""), 1) << "emptied, not removed";
    EXPECT_EQ(stored("absent"), "");
}

TEST_F(Cfm, ARefusedWriteCountsAllTheSame)
{
    config() = {{"a", "1"}};
    test::config_faults().writes = true;
    EXPECT_EQ(prod_cfm_set_val("a", "2"), 1);
    EXPECT_EQ(stored("a"), "1");
    EXPECT_EQ(prod_cfm_is_change(), 1);
    prod_cfm_init();
    EXPECT_EQ(prod_cfm_set_int_val("a", 2), 1);
    EXPECT_EQ(prod_cfm_is_change(), 1);
}

TEST_F(Cfm, FormattedKeysAndNumbers)
{
    EXPECT_EQ(prod_cfm_set_fmt_val("wan%d.%s", "on", 1, "flag"), 1);
    EXPECT_EQ(prod_cfm_set_fmt_val("wan%d.%s", "on", 1, "flag"), 0);
    EXPECT_EQ(stored("wan1.flag"), "on");

    EXPECT_EQ(prod_cfm_set_int_val("int", INT_MIN), 1);
    EXPECT_EQ(stored("int"), "-2147483648");
    EXPECT_EQ(prod_cfm_set_int_val("int", INT_MIN), 0);

    EXPECT_EQ(prod_cfm_set_fmt_int_val("wan%d.%s", 1500, 2, "mtu"), 1);
    EXPECT_EQ(stored("wan2.mtu"), "1500");
    EXPECT_EQ(prod_cfm_set_fmt_int_val("wan%d.%s", 1500, 2, "mtu"), 0);

    EXPECT_EQ(prod_cfm_set_double_val("double", 1.5), 1);
    EXPECT_EQ(stored("double"), "1.500000");
    EXPECT_EQ(prod_cfm_set_double_val("double", 1.5), 0);
    EXPECT_EQ(prod_cfm_set_double_val("double", -1e15), 1);
    EXPECT_EQ(stored("double"), "-1000000000000000.00") << "20 characters at most";

    EXPECT_EQ(prod_cfm_set_uint64_val("u64", 18446744073709551615ULL), 1);
    EXPECT_EQ(stored("u64"), "18446744073709551615");
    EXPECT_EQ(prod_cfm_set_uint64_val("u64", 18446744073709551615ULL), 0);
    EXPECT_EQ(prod_cfm_set_uint64_val("u64", 0), 1);
    EXPECT_EQ(stored("u64"), "0");
    EXPECT_EQ(prod_cfm_is_change(), 1);
}

TEST_F(Cfm, ALongFormattedKeyIsCut)
{
    const std::string name(600, 'k');
    const std::string cut(511, 'k');
    config() = {{cut, "17"}};
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(prod_cfm_get_fmt_val("%s", value, name.c_str()), 1);
    EXPECT_STREQ(value, "17");
    EXPECT_EQ(prod_cfm_get_int_val("%s", name.c_str()), 17);
    EXPECT_EQ(prod_cfm_get_uint_val("%s", name.c_str()), 17U);
    EXPECT_EQ(prod_cfm_get_double_val("%s", name.c_str()), 17.0);
    EXPECT_EQ(prod_cfm_set_fmt_val("%s", "18", name.c_str()), 1);
    EXPECT_EQ(stored(cut), "18");
    EXPECT_EQ(prod_cfm_set_fmt_int_val("%s", 19, name.c_str()), 1);
    EXPECT_EQ(stored(cut), "19");
    EXPECT_EQ(set_fmt_val_if_changed("%s", "20", name.c_str()), 1);
    EXPECT_EQ(stored(cut), "20");
    EXPECT_EQ(config().size(), 1U);
}

// ---- removing --------------------------------------------------------------------------------

TEST_F(Cfm, AValueIsRemovedAndCounted)
{
    config() = {{"a", "1"}};
    EXPECT_EQ(prod_cfm_unset_val("a"), 1);
    EXPECT_EQ(stored("a"), "(absent)");
    EXPECT_EQ(prod_cfm_is_change(), 1);
    EXPECT_EQ(config_calls().removals, 1);
}

TEST_F(Cfm, NothingToRemove)
{
    config() = {{"empty", ""}};
    EXPECT_EQ(prod_cfm_unset_val("absent"), 0);
    EXPECT_EQ(prod_cfm_unset_val("empty"), 0);
    EXPECT_EQ(stored("empty"), "") << "an empty value is left alone";
    EXPECT_EQ(prod_cfm_unset_val(nullptr), 0);
    EXPECT_EQ(config_calls().removals, 0);
    EXPECT_EQ(prod_cfm_is_change(), 0);
}

TEST_F(Cfm, ARefusedRemovalCountsAllTheSame)
{
    config() = {{"a", "1"}};
    test::config_faults().removals = true;
    EXPECT_EQ(prod_cfm_unset_val("a"), 1);
    EXPECT_EQ(prod_cfm_is_change(), 1);
}

// ---- set_if_changed --------------------------------------------------------------------------

TEST_F(Cfm, SetIfChangedGivesTheOldValue)
{
    config() = {{"a", "1"}};
    char old_value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(set_if_changed("a", "1", old_value), 0);
    EXPECT_STREQ(old_value, "1");
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(config_calls().writes, 0);
    EXPECT_EQ(set_if_changed("a", "2", old_value), 1);
    EXPECT_STREQ(old_value, "1");
    EXPECT_EQ(stored("a"), "2");
    EXPECT_EQ(prod_cfm_is_change(), 1);
}

TEST_F(Cfm, SetIfChangedOfAnAbsentKeyComparesWithTheBuffer)
{
    char old_value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(set_if_changed("a", "", old_value), 0);
    EXPECT_EQ(set_if_changed("a", "1", old_value), 1);
    EXPECT_STREQ(old_value, "");
    EXPECT_EQ(stored("a"), "1");
    strcpy(old_value, "left over");
    EXPECT_EQ(set_if_changed("b", "left over", old_value), 0);
    EXPECT_EQ(stored("b"), "(absent)");
}

TEST_F(Cfm, SetIfChangedChecksItsArguments)
{
    char old_value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(set_if_changed(nullptr, "1", old_value), -1);
    EXPECT_EQ(set_if_changed("a", nullptr, old_value), -1);
    EXPECT_EQ(set_if_changed("a", "1", nullptr), -1);
    EXPECT_STREQ(old_value, "before");
    EXPECT_EQ(config_calls().reads, 0);
    EXPECT_TRUE(config().empty());
}

TEST_F(Cfm, SetFmtIfChanged)
{
    config() = {{"wan1.a", "1"}};
    EXPECT_EQ(set_fmt_val_if_changed("wan%d.%c", "1", 1, 'a'), 0);
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(set_fmt_val_if_changed("wan%d.%c", "2", 1, 'a'), 1);
    EXPECT_EQ(stored("wan1.a"), "2");
    EXPECT_EQ(prod_cfm_is_change(), 1);
    EXPECT_EQ(set_fmt_val_if_changed("wan%d.%c", "", 2, 'a'), 0);
}

// ---- arguments -------------------------------------------------------------------------------

TEST_F(Cfm, NullsWriteNothing)
{
    char value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(prod_cfm_set_val(nullptr, "1"), 0);
    EXPECT_EQ(prod_cfm_set_val("a", nullptr), 0);
    EXPECT_EQ(prod_cfm_set_fmt_val("%s", nullptr, "a"), 0);
    EXPECT_EQ(prod_cfm_set_int_val(nullptr, 1), 0);
    EXPECT_EQ(prod_cfm_set_double_val(nullptr, 1), 0);
    EXPECT_EQ(prod_cfm_set_uint64_val(nullptr, 1), 0);
    EXPECT_EQ(set_fmt_val_if_changed("%s", nullptr, "a"), 0);
    EXPECT_EQ(SetValue(nullptr, "1"), 0);
    EXPECT_EQ(SetValue("a", nullptr), 0);
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(config_calls().writes, 0);

    EXPECT_EQ(prod_cfm_get_val(nullptr, value), 0) << "the store refuses it";
    EXPECT_EQ(prod_cfm_get_val("a", nullptr), 0);
    EXPECT_STREQ(value, "before");
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"

TEST_F(Cfm, ANullFormatMakesNoKey)
{
    const char *volatile null = nullptr;  // the compiler knows better than to let one pass
    char value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(prod_cfm_get_fmt_val(null, value), 0);
    EXPECT_EQ(prod_cfm_get_int_val(null), 0);
    EXPECT_EQ(prod_cfm_get_uint_val(null), 0U);
    EXPECT_EQ(prod_cfm_get_double_val(null), 0.0);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(prod_cfm_set_fmt_val(null, "1"), 0);
    EXPECT_EQ(prod_cfm_set_fmt_int_val(null, 1), 0);
    EXPECT_EQ(set_fmt_val_if_changed(null, "1"), 0);
    EXPECT_EQ(prod_cfm_is_change(), 0);
    EXPECT_EQ(config_calls().writes, 0);
}

#pragma GCC diagnostic pop

// ---- committing ------------------------------------------------------------------------------

TEST_F(Cfm, ACommitLeavesTheCount)
{
    EXPECT_EQ(prod_cfm_set_val("a", "1"), 1);
    EXPECT_EQ(prod_cfm_commit(), 1);
    EXPECT_EQ(test::committed_config().at("a"), "1");
    EXPECT_EQ(prod_cfm_is_change(), 1);
    prod_cfm_init();
    EXPECT_EQ(prod_cfm_is_change(), 0);

    test::config_faults().commits = true;
    EXPECT_EQ(prod_cfm_commit(), 0);
    EXPECT_EQ(config_calls().commits, 2);
}

// ---- the traced write ------------------------------------------------------------------------

TEST_F(Cfm, WrittenDirectly)
{
    config() = {{"a", "1"}};
    EXPECT_EQ(__wrap_SetValue("a", "1"), 1);
    EXPECT_EQ(config_calls().writes, 0);
    EXPECT_EQ(__wrap_SetValue("a", "2"), 1);
    EXPECT_EQ(config_calls().reads, 2);
    EXPECT_EQ(stored("a"), "2");
    EXPECT_EQ(prod_cfm_is_change(), 0) << "only the setters count";

    test::config_faults().writes = true;
    EXPECT_EQ(__wrap_SetValue("a", "3"), 0) << "the store's answer";
    EXPECT_EQ(__wrap_SetValue("a", "2"), 1) << "stored already";
}

TEST_F(Cfm, AProgramsOwnWritesAreComparedToo)
{
    config() = {{"a", "1"}};
    EXPECT_EQ(SetValue("a", "1"), 1);
    EXPECT_EQ(config_calls().writes, 0);
    EXPECT_EQ(SetValue("a", "2"), 1);
    EXPECT_EQ(config_calls().writes, 1);
    EXPECT_EQ(__real_SetValue("a", "2"), 1);
    EXPECT_EQ(config_calls().writes, 2);
}

TEST_F(Cfm, TheTraceToTheLetter)
{
    config() = {{"lan.ip", "192.168.0.1"}};
    const auto set = [] { EXPECT_EQ(prod_cfm_set_val("lan.ip", "10.0.0.1"), 1); };
    for (const prod_dbg_lvl_t level : {PROD_DBG_OFF, PROD_DBG_ERROR, PROD_DBG_DEBUG}) {
        config()["lan.ip"] = "192.168.0.1";
        EXPECT_EQ(printed_at(level, set, "cfm"), "") << level;
    }
    EXPECT_EQ(backtraces, 0);
    for (const prod_dbg_lvl_t level : {PROD_DBG_INFO, PROD_DBG_TRACE}) {
        config()["lan.ip"] = "192.168.0.1";
        EXPECT_EQ(printed_at(level, set, "cfm"),
                  "\033[1;40;34m#### [SET] lan.ip: 192.168.0.1 -> 10.0.0.1\n\033[0m<backtrace>\n");
    }
    EXPECT_EQ(backtraces, 2);
    // Another module's level does not matter, and a removal is no write.
    EXPECT_EQ(printed_at(
                  PROD_DBG_TRACE, [] { prod_cfm_set_val("lan.ip", "1"); }, "prod"),
              "");
    EXPECT_EQ(printed_at(
                  PROD_DBG_TRACE, [] { prod_cfm_unset_val("lan.ip"); }, "cfm"),
              "");
    EXPECT_EQ(printed_at(
                  PROD_DBG_TRACE, [] { prod_cfm_set_val("lan.ip", "2"); }, "cfm"),
              "\033[1;40;34m#### [SET] lan.ip:  -> 2\n\033[0m<backtrace>\n");
}

TEST_F(Cfm, TheTraceOfTextsOfAnyLength)
{
    const std::string key(511, 'k');
    config()[key] = test::longest_value('o');
    const std::string start = "\033[1;40;34m#### [SET] " + key + ": " + test::longest_value('o');
    EXPECT_EQ(
        printed_at(
            PROD_DBG_INFO,
            [&] { EXPECT_EQ(__wrap_SetValue(key.c_str(), test::longest_value('n').c_str()), 1); },
            "cfm"),
        start + " -> " + test::longest_value('n') + "\n\033[0m<backtrace>\n");

    // What no store takes is shown cut, and refused.
    config()[key] = test::longest_value('o');
    const std::string huge(100000, 'n');
    EXPECT_EQ(printed_at(
                  PROD_DBG_INFO, [&] { EXPECT_EQ(__wrap_SetValue(key.c_str(), huge.c_str()), 0); },
                  "cfm"),
              start + " -> " + test::longest_value('n') + "\n\033[0m<backtrace>\n");
    EXPECT_EQ(stored(key), test::longest_value('o'));
}

// ---- hostile values --------------------------------------------------------------------------

TEST_F(Cfm, TheLongestValueInEveryReader)
{
    const test::EveryKeyReads longest{test::longest_value('9')};
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(prod_cfm_get_val("a", value), 1);
    EXPECT_EQ(value, test::longest_value('9'));
    value[0] = '\0';
    EXPECT_EQ(prod_cfm_get_fmt_val("%s", value, "a"), 1);
    EXPECT_EQ(value, test::longest_value('9'));
    value[0] = '\0';
    EXPECT_EQ(set_if_changed("a", test::longest_value('9').c_str(), value), 0);
    EXPECT_EQ(value, test::longest_value('9'));
    EXPECT_EQ(prod_cfm_get_uint_val("a"), 9223372036854775807ULL);
    EXPECT_NEAR(prod_cfm_get_double_val("a"), 1e42, 1e30);
    prod_cfm_get_int_val("a");
    EXPECT_EQ(prod_cfm_set_val("a", test::longest_value('9').c_str()), 0);
    EXPECT_EQ(prod_cfm_set_val("a", test::longest_value('8').c_str()), 1);
    EXPECT_EQ(stored("a"), test::longest_value('8'));
    EXPECT_EQ(prod_cfm_set_int_val("a", 9), 1);
    EXPECT_EQ(prod_cfm_set_fmt_int_val("b", 9), 1);
    EXPECT_EQ(prod_cfm_set_double_val("c", 9), 1);
    EXPECT_EQ(prod_cfm_set_uint64_val("d", 9), 1);
    EXPECT_EQ(set_fmt_val_if_changed("e", "9"), 1);
    EXPECT_EQ(__wrap_SetValue("f", "9"), 1);
    EXPECT_EQ(prod_cfm_unset_val("g"), 1);
}

TEST_F(Cfm, BytesOfAnyKind)
{
    std::string bytes;
    for (int c = 1; c < 256; ++c) {
        bytes += c == '\n' || c == '\r' ? ' ' : static_cast<char>(c);
    }
    EXPECT_EQ(prod_cfm_set_val("a", bytes.c_str()), 1);
    EXPECT_EQ(prod_cfm_set_val("a", bytes.c_str()), 0);
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(prod_cfm_get_val("a", value), 1);
    EXPECT_EQ(value, bytes);
    // A formatted value is data, never a format.
    EXPECT_EQ(prod_cfm_set_fmt_val("%s", "%s%n%d", "b"), 1);
    EXPECT_EQ(stored("b"), "%s%n%d");
}

// ---- what lives beside it --------------------------------------------------------------------

TEST(Ports, AreWhatTheyAreCalled)
{
    for (const int id : {-1, 0, 1, 4, INT_MAX}) {
        EXPECT_EQ(lanx_to_sw_port(id), id);
        EXPECT_EQ(wanid_to_sw_port(id), id);
    }
}

/** What encode_sql_ssid() writes, in a buffer of untouched '.'. */
std::string encoded(std::string_view ssid, std::size_t room)
{
    std::string out(room, '.');
    EXPECT_EQ(encode_sql_ssid(ssid.data(), static_cast<int>(ssid.size()), out.data()), out.data());
    return out;
}

TEST(EncodeSqlSsid, DoublesSingleQuotes)
{
    EXPECT_EQ(encoded("it's", 8), "it''s...") << "and no NUL";
    EXPECT_EQ(encoded("''''", 9), "''''''''.");
    EXPECT_EQ(encoded("plain", 6), "plain.");
    using namespace std::string_view_literals;
    EXPECT_EQ(encoded("a\0'\xFF"sv, 6), "a\0''\xFF."sv) << "bytes, not text";
}

TEST(EncodeSqlSsid, NothingToWrite)
{
    char out[] = "....";
    EXPECT_EQ(encode_sql_ssid("it's", 0, out), nullptr);
    EXPECT_EQ(encode_sql_ssid("it's", -1, out), out);
    EXPECT_EQ(encode_sql_ssid(nullptr, 4, out), nullptr);
    EXPECT_EQ(encode_sql_ssid("it's", 4, nullptr), nullptr);
    EXPECT_STREQ(out, "....");
}

}  // namespace
