// SPDX-License-Identifier: MIT
// Address ranges that clash, and where a range could go instead.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/address.h"
#include "prod_common_check.h"
#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/emulation.hpp"
#include "support/interpose.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

/** What a port does when it is not the default one that goes from address to address. */
std::function<int(const char *ip, uint32_t step_mask, char *out, int flag)> other_increase;

/** Every question to a port about the address after one, in order. */
struct Step {
    std::string from;
    uint32_t mask;
    int flag;
};
std::vector<Step> steps;

}  // namespace

extern "C" int ifaddrs_ip_increase(const char *ip, uint32_t step_mask, char *out, int flag)
{
    steps.push_back({ip, step_mask, flag});
    static const auto real = test::next(ifaddrs_ip_increase, "ifaddrs_ip_increase");
    return other_increase ? other_increase(ip, step_mask, out, flag)
                          : real(ip, step_mask, out, flag);
}

namespace
{

using Range = PROD_IP_CONFLICT_STRU;

Range range(PROD_CONFLICT_IP_ENUM type, const std::string &ip,
            const std::string &mask = "255.255.255.0")
{
    Range result = {};
    result.type = type;
    snprintf(result.ip, sizeof(result.ip), "%s", ip.c_str());
    snprintf(result.mask, sizeof(result.mask), "%s", mask.c_str());
    return result;
}

std::string described(const Range &range)
{
    return std::to_string(range.type) + " " + range.ip + " " + range.mask;
}

class Conflicts : public testing::Test
{
  protected:
    Conflicts() { steps.clear(); }
    ~Conflicts() override { other_increase = nullptr; }

    test::FreshConfig fresh_;

    /** The ranges that the configuration describes, in the library's order. */
    static std::vector<std::string> listed()
    {
        Range set[PROD_CONFLICT_SET_SIZE] = {};
        const int count = check_get_conflict_ip_list(set);
        std::vector<std::string> result;
        for (int i = 0; i < count; ++i) {
            result.push_back(described(set[i]));
        }
        EXPECT_EQ(described(set[count]), "0  ") << "nothing behind the last one";
        return result;
    }

    static void all_configured()
    {
        config() = {{"lan.ip", "192.168.0.1"},
                    {"lan.mask", "255.255.254.0"},
                    {"lan.portal_ip", "192.168.100.1"},
                    {"wl.guest.dhcps_ip", "192.168.2.1"},
                    {"wl.guest.dhcps_mask", "255.255.255.128"},
                    {"pppoeserver.info", "1;10.8.5.1;10.8.5.2;20"},
                    {"pptp.ser.pptpdserver", "10.0.0.1"},
                    {"l2tp.ser.l2tpdserver", "10.1.0.1"}};
    }
};

/** What the scan says about a range and a set. */
int scan(const char *ip, const char *mask, const std::vector<Range> &set,
         PROD_CONFLICT_IP_ENUM except = PROD_CONFLICT_IP_MAX)
{
    return prod_check_conflict_with_ip_set(ip, mask, set.data(), static_cast<int>(set.size()),
                                           except);
}

/** Where a range could go. */
std::string moved(const Range &item, const std::vector<Range> &set)
{
    char found[16];
    memset(found, 'x', sizeof(found));
    get_ip_conflict_new_ip(&item, set.data(), static_cast<int>(set.size()), found);
    EXPECT_LT(strnlen(found, sizeof(found)), sizeof(found));
    return found;
}

/** A kind as a C caller may pass it: any number. */
PROD_CONFLICT_IP_ENUM kind(int number)
{
    return static_cast<PROD_CONFLICT_IP_ENUM>(number);
}

// ---- what is configured -----------------------------------------------------------------------

TEST_F(Conflicts, TheConfiguredRangesInTheirOrder)
{
    all_configured();
    EXPECT_THAT(listed(),
                ElementsAre("0 192.168.0.1 255.255.254.0", "1 192.168.100.1 255.255.255.0",
                            "2 192.168.2.1 255.255.255.128", "3 10.8.5.1 255.255.0.0",
                            "5 10.0.0.1 255.255.255.0", "6 10.1.0.1 255.255.255.0"));
    EXPECT_THAT(test::keys_read(),
                ElementsAre("lan.ip", "lan.mask", "lan.portal_ip", "wl.guest.dhcps_ip",
                            "wl.guest.dhcps_mask", "pppoeserver.info", "pptp.ser.pptpdserver",
                            "l2tp.ser.l2tpdserver"));
}

TEST_F(Conflicts, ARangeWithoutAnAddressGivesItsPlaceToTheNext)
{
    EXPECT_THAT(listed(), IsEmpty());
    all_configured();
    config().erase("lan.ip");
    EXPECT_THAT(listed(), ElementsAre("1 192.168.100.1 255.255.255.0",
                                      "2 192.168.2.1 255.255.255.128", "3 10.8.5.1 255.255.0.0",
                                      "5 10.0.0.1 255.255.255.0", "6 10.1.0.1 255.255.255.0"));
    for (const char *const key : {"lan.portal_ip", "wl.guest.dhcps_ip", "pppoeserver.info",
                                  "pptp.ser.pptpdserver", "l2tp.ser.l2tpdserver"}) {
        const std::size_t before = listed().size();
        config().erase(key);
        EXPECT_THAT(listed(), SizeIs(before - 1)) << key;
    }
    config()["wl.guest.dhcps_ip"] = "";
    EXPECT_THAT(listed(), ElementsAre("2  255.255.255.128")) << "set, but to nothing";
}

TEST_F(Conflicts, AMaskThatIsNotConfiguredIsEmpty)
{
    config() = {{"lan.ip", "192.168.0.1"}, {"wl.guest.dhcps_ip", "192.168.2.1"}};
    EXPECT_THAT(listed(), ElementsAre("0 192.168.0.1 ", "2 192.168.2.1 "));
}

TEST_F(Conflicts, ThePppoeServersAddressIsTheSecondFieldOfItsRecord)
{
    const struct {
        const char *value;
        const char *ip;
    } kRecords[] = {
        {"1;10.8.5.1;10.8.5.2;20", "10.8.5.1"},
        {"x;10.8.5.1", "10.8.5.1"},
        {"  1 ;10.8.5.1;", "10.8.5.1"},
        {"1; 10.8.5.1;", " 10.8.5.1"},
        {"1;10.8.5.1234567890;x", "10.8.5.12345678"},
        {"1;;10.8.5.1", ""},
        {";10.8.5.1;x", ""},
        {"  ;10.8.5.1;x", ""},
        {"10.8.5.1", ""},
        {"1;", ""},
        {"", ""},
        {";;;;", ""},
    };
    for (const auto &record : kRecords) {
        config()["pppoeserver.info"] = record.value;
        EXPECT_THAT(listed(), ElementsAre(std::string{"3 "} + record.ip + " 255.255.0.0"))
            << record.value;
    }
    config()["pppoeserver.info"] = std::string(246, 'x') + ";10.8.5.1";
    EXPECT_THAT(listed(), ElementsAre("3 10.8.5.1 255.255.0.0"));
    config()["pppoeserver.info"] = std::string(247, 'x') + ";10.8.5.1";
    EXPECT_THAT(listed(), ElementsAre("3 10.8.5. 255.255.0.0")) << "255 characters count";
}

TEST_F(Conflicts, ValuesAreCutToTheirFields)
{
    const test::EveryKeyReads everywhere{test::longest_value('7')};
    const std::string cut(15, '7');
    EXPECT_THAT(listed(),
                ElementsAre("0 " + cut + " " + cut, "1 " + cut + " 255.255.255.0",
                            "2 " + cut + " " + cut, "3  255.255.0.0", "5 " + cut + " 255.255.255.0",
                            "6 " + cut + " 255.255.255.0"));
}

TEST_F(Conflicts, NothingElseOfTheSetIsTouched)
{
    all_configured();
    Range set[PROD_CONFLICT_SET_SIZE];
    memset(set, 0x5a, sizeof(set));
    ASSERT_EQ(check_get_conflict_ip_list(set), 6);
    EXPECT_STREQ(set[0].ip, "192.168.0.1");
    EXPECT_EQ(set[0].id, 0x5a5a5a5a);
    Range untouched[PROD_CONFLICT_SET_SIZE - 6];
    memset(untouched, 0x5a, sizeof(untouched));
    EXPECT_EQ(memcmp(&set[6], untouched, sizeof(untouched)), 0);

    config() = {{"pppoeserver.info", "a record of one field"}};
    ASSERT_EQ(check_get_conflict_ip_list(set), 1);
    EXPECT_STREQ(set[0].ip, "") << "not what stood there before";
}

TEST_F(Conflicts, ListTracesAndComplains)
{
    Range set[PROD_CONFLICT_SET_SIZE] = {};
    const std::string enter = log_line(PROD_DBG_TRACE, "check_get_conflict_ip_list",
                                       "ENTER >>> check_get_conflict_ip_list");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { check_get_conflict_ip_list(set); }),
                Prints(enter + log_line(PROD_DBG_TRACE, "check_get_conflict_ip_list",
                                        "LEAVE <<< check_get_conflict_ip_list")));
    EXPECT_EQ(printed_at(PROD_DBG_INFO, [&] { check_get_conflict_ip_list(set); }), "");
    EXPECT_THAT(
        printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(check_get_conflict_ip_list(nullptr), 0); }),
        Prints(enter + log_line(PROD_DBG_ERROR, "check_get_conflict_ip_list", "arg is null.")));
    EXPECT_EQ(test::config_calls().reads, 12) << "six keys twice, none for nothing";
}

// ---- the first of a kind ----------------------------------------------------------------------

TEST_F(Conflicts, TheFirstOfAKind)
{
    const Range set[] = {
        range(PROD_CONFLICT_IP_LAN, "1.1.1.1"), range(PROD_CONFLICT_IP_GUEST, "1.1.1.2"),
        range(PROD_CONFLICT_IP_MAX, "1.1.1.3"), range(PROD_CONFLICT_IP_GUEST, "1.1.1.4")};
    const std::string miss = log_line(PROD_DBG_ERROR, "get_specific_ip_id", "no enum found. ");
    EXPECT_EQ(printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_LAN, set, 4), 0); }), "");
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_GUEST, set, 4), 1); }),
                Prints(miss));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_MAX, set, 4), 2); }),
                Prints(miss + miss));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_WAN, set, 4), 4); }),
                Prints(miss + miss + miss + miss));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_GUEST, set, 1), 1); }),
                Prints(miss));
}

TEST_F(Conflicts, AWholeSetWithoutTheKind)
{
    const std::vector<Range> set(PROD_CONFLICT_SET_SIZE, range(PROD_CONFLICT_IP_LAN, "1.1.1.1"));
    printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_WAN, set.data(), 100), 100); });
}

TEST_F(Conflicts, WrongQuestionsForAKind)
{
    const Range set[] = {range(kind(9), "1.1.1.1")};
    const std::string complaint = log_line(PROD_DBG_ERROR, "get_specific_ip_id", "param error..");
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_specific_ip_id(kind(9), set, 1), 1); }),
                Prints(complaint));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_specific_ip_id(kind(-1), set, 1), 1); }),
                Prints(complaint));
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_LAN, nullptr, 7), 7); }),
        Prints(complaint));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_LAN, set, 0), 0); }),
                Prints(complaint));
    EXPECT_EQ(printed([&] { EXPECT_EQ(get_specific_ip_id(PROD_CONFLICT_IP_LAN, set, -3), -3); }),
              "");
}

// ---- the scan ---------------------------------------------------------------------------------

TEST_F(Conflicts, TheFirstRangeInTheWayWins)
{
    const std::vector<Range> set = {range(PROD_CONFLICT_IP_LAN, "192.168.0.1"),
                                    range(PROD_CONFLICT_IP_GUEST, "10.0.0.1", "255.0.0.0"),
                                    range(PROD_CONFLICT_IP_PPTP_SERVER, "10.1.2.3")};
    EXPECT_EQ(scan("192.168.0.10", "255.255.255.0", set), 0);
    EXPECT_EQ(scan("10.1.2.200", "255.255.255.0", set), 1);
    EXPECT_EQ(scan("10.1.2.200", "255.255.255.0", set, PROD_CONFLICT_IP_GUEST), 2);
    EXPECT_EQ(scan("192.168.1.1", "255.255.255.0", set), 3);
    EXPECT_EQ(scan("192.168.1.1", "255.255.0.0", set), 0) << "the wider mask decides";
    const Range one = set[0];
    EXPECT_EQ(prod_check_conflict_with_ip_set("192.168.0.10", "255.255.255.0", &one, 0,
                                              PROD_CONFLICT_IP_MAX),
              0);
    EXPECT_EQ(prod_check_conflict_with_ip_set("192.168.0.10", "255.255.255.0", &one, -5,
                                              PROD_CONFLICT_IP_MAX),
              -5);
}

TEST_F(Conflicts, FixedMasksOfTheServers)
{
    config()["pptp.ser.pptpdserver"] = "10.0.0.1";
    Range item = {};
    char proposal[16];
    EXPECT_EQ(prod_check_ip_conflict("10.0.0.200", "255.255.255.0", &item, proposal), 1);
    EXPECT_EQ(prod_check_ip_conflict("10.0.1.200", "255.255.255.0", &item, proposal), 0);
    config() = {{"pppoeserver.info", "1;10.8.5.1;x"}};
    EXPECT_EQ(prod_check_ip_conflict("10.8.0.7", "255.255.255.0", &item, proposal), 1);
    EXPECT_EQ(prod_check_ip_conflict("10.8.255.254", "255.255.255.252", &item, proposal), 1);
    EXPECT_EQ(prod_check_ip_conflict("10.9.5.1", "255.255.255.0", &item, proposal), 0);
}

TEST_F(Conflicts, RangesThatClashWithNothing)
{
    const std::vector<Range> set = {range(PROD_CONFLICT_IP_LAN, "0.0.0.0", "0.0.0.0"),
                                    range(PROD_CONFLICT_IP_PORTAL, "", "0.0.0.0"),
                                    range(PROD_CONFLICT_IP_MAX, "1.2.3.4"),
                                    range(PROD_CONFLICT_IP_GUEST, "no address", "0.0.0.0")};
    EXPECT_EQ(scan("1.2.3.4", "255.255.255.0", set), 4) << "also ranges of the kind under test";
    EXPECT_EQ(scan("1.2.3.4", "255.255.255.0", set, PROD_CONFLICT_IP_WAN), 2);
}

TEST_F(Conflicts, AClashIsLogged)
{
    const std::vector<Range> set = {range(PROD_CONFLICT_IP_GUEST, "10.0.0.1", "255.0.0.0")};
    const auto clash = [&] { scan("10.1.2.200", "255.255.255.0", set, PROD_CONFLICT_IP_WAN); };
    EXPECT_THAT(printed_at(PROD_DBG_INFO, clash),
                Prints(log_line(PROD_DBG_INFO, "prod_check_conflict_with_ip_set",
                                "ip [type:7][ip:10.1.2.200] conflict with ip set type "
                                "2[10.0.0.1].")));
    EXPECT_EQ(printed_at(PROD_DBG_DEBUG, clash), "");
    EXPECT_EQ(printed_at(PROD_DBG_TRACE,
                         [&] { scan("11.1.2.200", "255.255.255.0", set, PROD_CONFLICT_IP_WAN); }),
              "");
}

TEST_F(Conflicts, WrongQuestionsForTheScan)
{
    const Range set[PROD_CONFLICT_SET_SIZE] = {};
    const std::string complaint =
        log_line(PROD_DBG_ERROR, "prod_check_conflict_with_ip_set", "param error..");
    const struct {
        const char *ip;
        const char *mask;
        const Range *set;
    } kWrong[] = {
        {nullptr, "255.255.255.0", set},
        {"1.2.3.4", nullptr, set},
        {"1.2.3.4", "255.255.255.0", nullptr},
        {"", "255.255.255.0", set},
        {"1.2.3.4", "", set},
        {"0.0.0.0", "255.255.255.0", set},
        {"1.2.3.4", "0.0.0.0", set},
    };
    for (const auto &wrong : kWrong) {
        EXPECT_THAT(printed([&] {
                        EXPECT_EQ(prod_check_conflict_with_ip_set(wrong.ip, wrong.mask, wrong.set,
                                                                  100, PROD_CONFLICT_IP_MAX),
                                  100);
                    }),
                    Prints(complaint));
    }
    for (const int count : {100, 101, INT_MAX}) {
        EXPECT_THAT(printed([&] {
                        EXPECT_EQ(prod_check_conflict_with_ip_set("1.2.3.4", "255.255.255.0", set,
                                                                  count, PROD_CONFLICT_IP_MAX),
                                  100);
                    }),
                    Prints(log_line(PROD_DBG_ERROR, "prod_check_conflict_with_ip_set",
                                    "max num is large.")));
    }
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(prod_check_conflict_with_ip_set("1.2.3.4", "255.255.255.0", set, 99,
                                                            PROD_CONFLICT_IP_MAX),
                            99);
              }),
              "");
}

TEST_F(Conflicts, ARangeFilledToTheBrim)
{
    Range full;
    memset(&full, '7', sizeof(full));
    const Range behind = range(PROD_CONFLICT_IP_LAN, "1.2.4.4");
    memcpy(full.ip, "1.2.3.4\n        ", sizeof(full.ip));
    const Range set[] = {full, behind};
    EXPECT_EQ(
        prod_check_conflict_with_ip_set("1.2.3.4", "255.255.255.0", set, 1, PROD_CONFLICT_IP_MAX),
        0)
        << "a mask that is none is a host's";
    EXPECT_EQ(
        prod_check_conflict_with_ip_set("1.2.4.5", "255.255.255.0", set, 2, PROD_CONFLICT_IP_MAX),
        1);
}

// ---- the search -------------------------------------------------------------------------------

TEST_F(Conflicts, ARangeInNobodysWayStays)
{
    EXPECT_EQ(moved(range(PROD_CONFLICT_IP_LAN, "192.168.0.1"),
                    {range(PROD_CONFLICT_IP_LAN, "192.168.0.1"),
                     range(PROD_CONFLICT_IP_GUEST, "192.168.2.1")}),
              "192.168.0.1");
    EXPECT_THAT(steps, IsEmpty());
}

TEST_F(Conflicts, TheHostNumberStaysAndTheWiderNetworkIsLeft)
{
    const Range lan = range(PROD_CONFLICT_IP_LAN, "192.168.0.7");
    EXPECT_EQ(moved(lan, {range(PROD_CONFLICT_IP_WAN, "192.168.0.10"),
                          range(PROD_CONFLICT_IP_GUEST, "192.168.1.1"),
                          range(PROD_CONFLICT_IP_PORTAL, "192.168.3.1", "255.255.254.0")}),
              "192.168.4.7");
    ASSERT_THAT(steps, SizeIs(3));
    EXPECT_EQ(steps[0].from, "192.168.0.7");
    EXPECT_EQ(steps[1].from, "192.168.1.7");
    EXPECT_EQ(steps[2].from, "192.168.2.7");
    EXPECT_EQ(steps[0].mask, 0xFFFFFF00U);
    EXPECT_EQ(steps[2].mask, 0xFFFFFE00U) << "in host byte order, of the range in the way";
    EXPECT_EQ(steps[2].flag, 0);

    steps.clear();
    EXPECT_EQ(moved(range(PROD_CONFLICT_IP_LAN, "10.1.0.1", "255.255.0.0"),
                    {range(PROD_CONFLICT_IP_WAN, "10.1.9.9", "255.255.255.252")}),
              "10.2.0.1");
    EXPECT_EQ(steps.at(0).mask, 0xFFFF0000U) << "or of the range itself";
}

TEST_F(Conflicts, AHostByHostPortIsFollowed)
{
    other_increase = [](const char *ip, uint32_t, char *out, int) {
        const in_addr next{htonl(ntohl(inet_addr(ip)) + 1)};
        inet_ntop(AF_INET, &next, out, 16);
        return 0;
    };
    EXPECT_EQ(moved(range(PROD_CONFLICT_IP_LAN, "10.8.0.0"),
                    {range(PROD_CONFLICT_IP_PPPoES, "10.8.5.1", "255.255.0.0")}),
              "10.9.0.0");
    EXPECT_THAT(steps, SizeIs(65536));
}

const char *const kGivesUp = "no free address for [type:0][ip:192.168.0.1].";

TEST_F(Conflicts, APortThatGoesInCirclesIsNotFollowedForEver)
{
    other_increase = [](const char *ip, uint32_t, char *out, int) {
        strcpy(out, strcmp(ip, "192.168.0.2") == 0 ? "192.168.0.3" : "192.168.0.2");
        return 0;
    };
    std::string found;
    EXPECT_THAT(printed([&] {
                    found = moved(range(PROD_CONFLICT_IP_LAN, "192.168.0.1"),
                                  {range(PROD_CONFLICT_IP_WAN, "192.168.0.10")});
                }),
                Prints(log_line(PROD_DBG_ERROR, "get_ip_conflict_new_ip", kGivesUp)));
    EXPECT_EQ(found, "192.168.0.3");
    EXPECT_THAT(steps, SizeIs(70000));
}

TEST_F(Conflicts, TwoFailuresInARowEndTheSearch)
{
    other_increase = [](const char *, uint32_t, char *out, int) {
        strcpy(out, "1.1.1.1");
        return -1;
    };
    std::string found;
    const auto search = [&] {
        found = moved(range(PROD_CONFLICT_IP_LAN, "192.168.0.1"),
                      {range(PROD_CONFLICT_IP_WAN, "192.168.0.10")});
    };
    EXPECT_THAT(printed(search),
                Prints(log_line(PROD_DBG_ERROR, "get_ip_conflict_new_ip", kGivesUp)));
    EXPECT_EQ(found, "192.168.0.1") << "what a failed call wrote does not count";
    EXPECT_THAT(steps, SizeIs(2));

    int calls = 0;
    other_increase = [&](const char *ip, uint32_t, char *out, int) {
        // Fails every second time.
        strcpy(out, strcmp(ip, "192.168.0.1") == 0 ? "192.168.0.2" : "192.168.1.1");
        return ++calls % 2 == 0 ? 0 : 1;
    };
    EXPECT_EQ(printed(search), "");
    EXPECT_EQ(found, "192.168.1.1");
    EXPECT_EQ(calls, 4);
}

TEST_F(Conflicts, ALongAnswerOfAPortIsCut)
{
    other_increase = [](const char *, uint32_t, char *out, int) {
        memset(out, '9', 16);
        return 0;
    };
    EXPECT_EQ(moved(range(PROD_CONFLICT_IP_LAN, "192.168.0.1"),
                    {range(PROD_CONFLICT_IP_WAN, "192.168.0.10")}),
              std::string(15, '9'));
}

TEST_F(Conflicts, AtTheEndOfTheAddressSpace)
{
    std::string found;
    EXPECT_THAT(printed([&] {
                    found = moved(range(PROD_CONFLICT_IP_GUEST, "223.255.254.1"),
                                  {range(PROD_CONFLICT_IP_LAN, "223.255.254.9"),
                                   range(PROD_CONFLICT_IP_WAN, "223.255.255.9")});
                }),
                Prints(log_line(PROD_DBG_ERROR, "get_ip_conflict_new_ip",
                                "no free address for [type:2][ip:223.255.254.1].")));
    EXPECT_EQ(found, "223.255.255.1");
}

TEST_F(Conflicts, ASearchThatCannotBeMadeKeepsTheAddress)
{
    const std::vector<Range> set(200, range(PROD_CONFLICT_IP_WAN, "192.168.0.10"));
    std::string found;
    EXPECT_THAT(
        printed([&] { found = moved(range(PROD_CONFLICT_IP_LAN, "192.168.0.1"), set); }),
        Prints(log_line(PROD_DBG_ERROR, "prod_check_conflict_with_ip_set", "max num is large.")));
    EXPECT_EQ(found, "192.168.0.1");
    const std::vector<Range> one(1, set[0]);
    EXPECT_THAT(
        printed([&] { found = moved(range(PROD_CONFLICT_IP_LAN, "192.168.0.1", ""), one); }),
        Prints(log_line(PROD_DBG_ERROR, "prod_check_conflict_with_ip_set", "param error..")));
    EXPECT_EQ(found, "192.168.0.1");
    EXPECT_THAT(
        printed([&] { found = moved(Range{}, one); }),
        Prints(log_line(PROD_DBG_ERROR, "prod_check_conflict_with_ip_set", "param error..")));
    EXPECT_EQ(found, "");
    EXPECT_THAT(steps, IsEmpty());
}

TEST_F(Conflicts, AnItemFilledToTheBrim)
{
    Range item;
    memset(&item, '7', sizeof(item));
    item.type = PROD_CONFLICT_IP_LAN;
    printed([&] {
        EXPECT_EQ(moved(item, {range(PROD_CONFLICT_IP_WAN, "1.1.1.1")}), std::string(15, '7'));
    });
}

TEST_F(Conflicts, WrongQuestionsForTheSearch)
{
    const Range item = range(PROD_CONFLICT_IP_LAN, "192.168.0.1");
    Range unknown = item;
    const int absurd = 0x7fffffff;
    memcpy(&unknown.type, &absurd, sizeof(absurd));
    char out[16] = "as before";
    const std::string complaint =
        log_line(PROD_DBG_ERROR, "get_ip_conflict_new_ip", "param error.");
    EXPECT_THAT(printed([&] { get_ip_conflict_new_ip(nullptr, &item, 1, out); }),
                Prints(complaint));
    EXPECT_THAT(printed([&] { get_ip_conflict_new_ip(&item, nullptr, 1, out); }),
                Prints(complaint));
    EXPECT_THAT(printed([&] { get_ip_conflict_new_ip(&item, &item, 1, nullptr); }),
                Prints(complaint));
    EXPECT_THAT(printed([&] { get_ip_conflict_new_ip(&unknown, &item, 1, out); }),
                Prints(complaint));
    EXPECT_STREQ(out, "as before");
    const Range other = unknown;
    EXPECT_EQ(moved(item, {other}), "192.168.1.1") << "an unknown kind in the set is in the way";
}

// Any set, any range, by chance, but in crowded corners of the address space.
class SearchByChance : public Conflicts
{
  protected:
    std::mt19937 random_{20260807};

    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }

    static std::string quad(unsigned int address)
    {
        const in_addr raw{htonl(address)};
        return inet_ntoa(raw);
    }

    Range some_range(unsigned int net, unsigned int mask)
    {
        return range(kind(static_cast<int>(below(9))), quad(net + below(256 * 20)), quad(mask));
    }

    /** Now and then a very wide one. */
    unsigned int some_mask() { return ~0U << (below(500) == 0 ? below(31) : 4 + below(5)); }

    /** Ends at an address that clashes with nothing, or says that there is none. */
    bool finds_a_place(const Range &item, const std::vector<Range> &set)
    {
        steps.clear();
        std::string found;
        const std::string said = printed([&] { found = moved(item, set); });
        if (said.empty()) {
            EXPECT_EQ(scan(found.c_str(), item.mask, set, item.type), static_cast<int>(set.size()))
                << found;
        }
        return said.empty();
    }
};

TEST_F(SearchByChance, EndsBeforeItHasLeftEachRangeTwice)
{
    constexpr unsigned int kNets[] = {0x0A000000, 0xC0A80000, 0x7EFFF000,
                                      0xDFFFF000, 0xA9FDF000, 0x00000000};
    int without_a_place = 0;
    int long_ways = 0;
    for (int round = 0; round < test::repetitions(2000); ++round) {
        const unsigned int net = kNets[below(std::size(kNets))];
        std::vector<Range> set;
        for (unsigned int i = 1 + below(99); i > 0; --i) {
            set.push_back(some_range(net, some_mask()));
        }
        without_a_place += finds_a_place(some_range(net, some_mask()), set) ? 0 : 1;
        EXPECT_LE(steps.size(), set.size() + 2);
        long_ways += steps.size() > 5 ? 1 : 0;
    }
    EXPECT_GT(without_a_place, test::repetitions(10)) << "or this tests little";
    EXPECT_GT(long_ways, test::repetitions(100));
}

TEST_F(SearchByChance, EndsWithMasksThatHaveGaps)
{
    for (int round = 0; round < test::repetitions(20); ++round) {
        std::vector<Range> set;
        for (int i = 0; i < 10; ++i) {
            set.push_back(some_range(0x0A000000, below(~0U)));
        }
        finds_a_place(some_range(0x0A000000, below(2) == 0 ? below(~0U) : some_mask()), set);
        EXPECT_LE(steps.size(), 70000U);
    }
}

// ---- a range on its way in --------------------------------------------------------------------

struct Verdict {
    int result;
    std::string in_the_way;
    std::string proposal;

    bool operator==(const Verdict &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Verdict &verdict)
{
    return stream << verdict.result << " [" << verdict.in_the_way << "] " << verdict.proposal;
}

Verdict check(const char *ip, const char *mask)
{
    Range item = {};
    char proposal[16] = "";
    const int result = prod_check_ip_conflict(ip, mask, &item, proposal);
    return {result, result == 1 ? described(item) : "", proposal};
}

TEST_F(Conflicts, AWanInsideTheLan)
{
    config() = {{"lan.ip", "192.168.0.1"}, {"lan.mask", "255.255.255.0"}};
    EXPECT_EQ(check("192.168.0.10", "255.255.255.0"),
              (Verdict{1, "0 192.168.0.1 255.255.255.0", "192.168.1.1"}));
    EXPECT_EQ(check("192.168.1.10", "255.255.255.0"), (Verdict{0, "", ""}));
    EXPECT_EQ(check("192.168.77.10", "255.255.0.0"),
              (Verdict{1, "0 192.168.0.1 255.255.255.0", "192.169.0.1"}));
}

TEST_F(Conflicts, TheProposalForTheLanKeepsAwayFromTheOthers)
{
    all_configured();
    config()["lan.mask"] = "255.255.255.0";
    config()["lan.portal_ip"] = "192.168.1.1";
    EXPECT_EQ(check("192.168.0.10", "255.255.255.0"),
              (Verdict{1, "0 192.168.0.1 255.255.255.0", "192.168.3.1"}));
    EXPECT_EQ(check("192.168.3.1", "255.255.255.0").result, 0);
}

TEST_F(Conflicts, TheRangeUnderTestTakesTheFirstPlace)
{
    config() = {{"lan.ip", "192.168.3.1"},
                {"lan.mask", "255.255.255.0"},
                {"wl.guest.dhcps_ip", "192.168.2.1"},
                {"wl.guest.dhcps_mask", "255.255.255.0"}};
    EXPECT_EQ(check("192.168.2.10", "255.255.255.0"),
              (Verdict{1, "2 192.168.2.1 255.255.255.0", "192.168.3.1"}))
        << "the LAN's place, so its range does not count";
    EXPECT_EQ(check("192.168.2.10", "255.255.255.252"),
              (Verdict{1, "2 192.168.2.1 255.255.255.0", "192.168.3.1"}))
        << "out of its own network as well";
}

TEST_F(Conflicts, TheClashingRangeIsCopiedAsItStands)
{
    all_configured();
    Range item;
    memset(&item, 0x5a, sizeof(item));
    char proposal[16];
    memset(proposal, 'x', sizeof(proposal));
    ASSERT_EQ(prod_check_ip_conflict("10.8.1.1", "255.255.255.0", &item, proposal), 1);
    EXPECT_EQ(item.type, PROD_CONFLICT_IP_PPPoES);
    EXPECT_EQ(item.id, 0);
    EXPECT_STREQ(item.ip, "10.8.5.1");
    EXPECT_STREQ(item.mask, "255.255.0.0");
    EXPECT_STREQ(proposal, "10.9.5.1");
}

TEST_F(Conflicts, WithoutAClashTheOutputsStay)
{
    all_configured();
    Range item;
    memset(&item, 0x5a, sizeof(item));
    const Range before = item;
    char proposal[16] = "as before";
    EXPECT_EQ(prod_check_ip_conflict("172.16.0.1", "255.255.255.0", &item, proposal), 0);
    EXPECT_EQ(prod_check_ip_conflict("no address", "255.255.255.0", &item, proposal), 0);
    printed([&] {
        EXPECT_EQ(prod_check_ip_conflict("0.0.0.0", "255.255.255.0", &item, proposal), 0);
        EXPECT_EQ(prod_check_ip_conflict("192.168.0.1", "0.0.0.0", &item, proposal), 0);
    });
    config().clear();
    EXPECT_EQ(prod_check_ip_conflict("192.168.0.1", "255.255.255.0", &item, proposal), 0);
    EXPECT_EQ(memcmp(&item, &before, sizeof(item)), 0);
    EXPECT_STREQ(proposal, "as before");
}

TEST_F(Conflicts, AWrongQuestionAboutARange)
{
    all_configured();
    Range item = range(PROD_CONFLICT_IP_WAN, "1.2.3.4");
    char proposal[16] = "as before";
    const std::string complaint =
        log_line(PROD_DBG_ERROR, "prod_check_ip_conflict", "param error.");
    const auto refused = [&](const char *ip, const char *mask, Range *where, char *out) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(prod_check_ip_conflict(ip, mask, where, out), 2); }),
                    Prints(complaint));
    };
    refused(nullptr, "255.255.255.0", &item, proposal);
    refused("192.168.0.1", nullptr, &item, proposal);
    refused("192.168.0.1", "255.255.255.0", nullptr, proposal);
    refused("192.168.0.1", "255.255.255.0", &item, nullptr);
    refused("", "255.255.255.0", &item, proposal);
    refused("192.168.0.1", "", &item, proposal);
    EXPECT_EQ(described(item), "7 1.2.3.4 255.255.255.0");
    EXPECT_STREQ(proposal, "as before");
}

TEST_F(Conflicts, TheAnswerMayTakeThePlaceOfTheQuestion)
{
    config() = {{"lan.ip", "192.168.0.1"}, {"lan.mask", "255.255.255.0"}};
    Range item = range(PROD_CONFLICT_IP_WAN, "192.168.0.10", "255.255.255.252");
    char ip[16] = "192.168.0.10";
    EXPECT_EQ(prod_check_ip_conflict(ip, item.mask, &item, ip), 1);
    EXPECT_EQ(described(item), "0 192.168.0.1 255.255.255.0");
    EXPECT_STREQ(ip, "192.168.1.1");
}

TEST_F(Conflicts, LongArgumentsAreCut)
{
    config() = {{"lan.ip", "192.168.0.1"}, {"lan.mask", "255.255.255.0"}};
    const std::string ip = "192.168.0.10 " + std::string(1000, 'x');
    const std::string mask = "255.255.255.0 " + std::string(1000, 'x');
    EXPECT_EQ(check(ip.c_str(), mask.c_str()),
              (Verdict{1, "0 192.168.0.1 255.255.255.0", "192.168.1.1"}));
}

TEST_F(Conflicts, WithHostileSettings)
{
    for (const std::string &value :
         {std::string{"0.0.0.0"}, std::string{"255.255.255.255"}, std::string{"224.0.0.1"},
          std::string{"x;0.0.0.0;y"}, test::longest_value('.'), std::string{"%s%n"},
          std::string{"223.255.255.255"}, std::string{"1;223.255.255.255"}}) {
        const test::EveryKeyReads everywhere{value};
        printed([&] {
            Range item = {};
            char proposal[16] = "";
            const int result =
                prod_check_ip_conflict("223.255.255.254", "255.255.255.0", &item, proposal);
            EXPECT_TRUE(result == 0 || result == 1) << value;
            for (int type = 0; type <= PROD_CONFLICT_IP_MAX; ++type) {
                check_ip_conflict_change_itself(kind(type), proposal);
                EXPECT_LT(strnlen(proposal, 16), 16U) << value;
            }
        });
    }
}

// ---- a configured range that must move --------------------------------------------------------

std::string must_move(PROD_CONFLICT_IP_ENUM type)
{
    char address[16];
    memset(address, 'x', sizeof(address));
    printed([&] { check_ip_conflict_change_itself(type, address); });
    EXPECT_LT(strnlen(address, sizeof(address)), sizeof(address));
    return address;
}

TEST_F(Conflicts, ARangeMovesOutOfTheWayOfAnother)
{
    all_configured();
    config()["wl.guest.dhcps_ip"] = "192.168.0.130";
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_GUEST), "192.168.2.130");
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_LAN), "192.168.2.1") << "whichever is asked about";
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_PORTAL), "");
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_PPPoES), "");
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_PPTP_SERVER), "");
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_L2TP_SERVER), "");
    config()["l2tp.ser.l2tpdserver"] = "10.0.0.9";
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_PPTP_SERVER), "10.0.1.1");
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_L2TP_SERVER), "10.0.1.9");
}

TEST_F(Conflicts, ARangeThatIsNotConfiguredNeedNotMove)
{
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_LAN), "");
    all_configured();
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_WAN), "");
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_MAX), "");
    config()["lan.ip"] = "";
    EXPECT_EQ(must_move(PROD_CONFLICT_IP_LAN), "");
}

TEST_F(Conflicts, LookingForTheRangeIsNoisy)
{
    all_configured();
    char address[16];
    const std::string miss = log_line(PROD_DBG_ERROR, "get_specific_ip_id", "no enum found. ");
    EXPECT_THAT(printed([&] { check_ip_conflict_change_itself(PROD_CONFLICT_IP_GUEST, address); }),
                Prints(miss + miss));
    config().clear();
    EXPECT_THAT(printed([&] { check_ip_conflict_change_itself(PROD_CONFLICT_IP_GUEST, address); }),
                Prints(log_line(PROD_DBG_ERROR, "get_specific_ip_id", "param error..")));
}

TEST_F(Conflicts, RangesThatCannotBeAskedAbout)
{
    all_configured();
    char address[16] = "as before";
    const std::string complaint =
        log_line(PROD_DBG_ERROR, "check_ip_conflict_change_itself", "param error.");
    for (const int type : {static_cast<int>(PROD_CONFLICT_IP_QVLAN), 9, -1}) {
        EXPECT_THAT(printed([&] { check_ip_conflict_change_itself(kind(type), address); }),
                    Prints(complaint));
    }
    EXPECT_THAT(printed([] { check_ip_conflict_change_itself(PROD_CONFLICT_IP_LAN, nullptr); }),
                Prints(complaint));
    EXPECT_STREQ(address, "as before");
}

// ---- texts ------------------------------------------------------------------------------------

const char *const kThreePoints = "error: Points' number != 3";
const char *const kFourNumbers = "error: Points' number != 4";
const char *const kInvalid = "IPAddress invalid.";

TEST(TypedAddress, OfAHost)
{
    for (const char *const text :
         {"10.0.0.0", "1.0.0.0", "223.255.255.254", "192.168.0.1", "127.0.0.1", "1.2.3.4abc",
          "01.002.0003.4", " 1. 2.\t3. 4", "+1.2.3.4", "1.2.3.-0", "1.2.3.4 5 6",
          "192.168.100.200x.y.z", "1.2.3.4         .5.6"}) {
        EXPECT_EQ(printed([&] { EXPECT_EQ(prod_check_ip(text), 0) << text; }), "");
    }
}

TEST(TypedAddress, Refused)
{
    const struct {
        const char *text;
        const char *message;
    } kRefused[] = {
        {"", kThreePoints},
        {"1.2.3", kThreePoints},
        {"1.2.3.4.5", kThreePoints},
        {"host", kThreePoints},
        {"1.2.3.4.", kThreePoints},
        {"...............................", kThreePoints},
        {"1234567890123456.2.3.4", kThreePoints},
        {"...", kFourNumbers},
        {"1.2.3.", kFourNumbers},
        {"a.b.c.d", kFourNumbers},
        {"1.2.3.x", kFourNumbers},
        {"1..2.3", kFourNumbers},
        {"1 .2.3.4", kFourNumbers},
        {"-.1.2.3", kFourNumbers},
        {"0x1.2.3.4", kFourNumbers},
        {"0.1.2.3", kInvalid},
        {"224.0.0.1", kInvalid},
        {"255.255.255.255", kInvalid},
        {"10.0.0.255", kInvalid},
        {"10.0.256.1", kInvalid},
        {"10.256.0.1", kInvalid},
        {"10.0.-1.1", kInvalid},
        {"-1.0.0.1", kInvalid},
        {"10.0.0.-1", kInvalid},
        {"10.-1.0.1", kInvalid},
        {"300.1.1.1", kInvalid},
        {"4294967297.1.1.1", kInvalid},
        {"1.1.1.4294967297", kInvalid},
        {"192.168.100.2000", kInvalid},
    };
    for (const auto &refused : kRefused) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(prod_check_ip(refused.text), 1); }),
                    Prints(log_line(PROD_DBG_ERROR, "prod_check_ip", refused.message)))
            << refused.text;
    }
    EXPECT_EQ(printed([] { EXPECT_EQ(prod_check_ip(nullptr), 1); }), "");
}

TEST(TypedAddress, OnlySuccessIsTraced)
{
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { prod_check_ip("1.2.3.4"); }),
                Prints(log_line(PROD_DBG_TRACE, "prod_check_ip", "LEAVE <<< prod_check_ip")));
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { prod_check_ip("1.2.3.255"); }),
                Prints(log_line(PROD_DBG_ERROR, "prod_check_ip", kInvalid)));
}

TEST(CommandText, FourCharactersAreRefused)
{
    for (int c = 1; c < 256; ++c) {
        const std::string text = std::string{"a"} + static_cast<char>(c) + "b";
        const bool refused = c == ';' || c == '&' || c == '|' || c == '`';
        EXPECT_EQ(prod_system_param_valid(text.c_str()), refused ? 0 : 1) << c;
        EXPECT_EQ(prod_system_param_valid(text.c_str() + 1), refused ? 0 : 1) << c;
    }
    EXPECT_EQ(prod_system_param_valid("abc"), 1);
    EXPECT_EQ(prod_system_param_valid("a|b"), 0);
    EXPECT_EQ(prod_system_param_valid("abc;"), 0);
    EXPECT_EQ(prod_system_param_valid(""), 1);
    EXPECT_EQ(prod_system_param_valid(nullptr), 0);
}

TEST(AddressFromHostNumber, InTheNetworkOfAnAddress)
{
    const struct {
        const char *ip;
        const char *mask;
        uint32_t host;
        const char *address;
    } kCases[] = {
        {"192.168.5.77", "255.255.255.0", 1, "192.168.5.1"},
        {"192.168.5.77", "255.255.0.0", 0x0102, "192.168.1.2"},
        {"192.168.5.77", "255.255.255.255", 0, "192.168.5.77"},
        {"192.168.5.77", "0.0.0.0", 0x01020304, "1.2.3.4"},
        {"192.168.5.77", "255.255.255.0", 0x0201, "192.168.7.1"},
        {"192.168.5.77", "255.255.255.0", 0xFFFFFFFF, "255.255.255.255"},
        {"192.168.5.77", "no mask", 0, "192.168.5.77"},
        {"no address", "255.255.255.0", 1, "255.255.255.1"},
        {"255.255.255.255", "255.255.255.255", 255, "255.255.255.255"},
    };
    for (const auto &c : kCases) {
        char out[16];
        memset(out, 'x', sizeof(out));
        EXPECT_EQ(check_get_new_ipaddr_by_hostid(c.ip, c.mask, c.host, out), 0);
        EXPECT_STREQ(out, c.address);
    }
    char in_place[16] = "192.168.5.77";
    EXPECT_EQ(check_get_new_ipaddr_by_hostid(in_place, "255.255.255.0", 9, in_place), 0);
    EXPECT_STREQ(in_place, "192.168.5.9");
}

TEST(AddressFromHostNumber, NullArguments)
{
    char out[16] = "as before";
    const std::string complaint =
        log_line(PROD_DBG_ERROR, "check_get_new_ipaddr_by_hostid", "arg is null.");
    EXPECT_THAT(printed([&] {
                    EXPECT_EQ(check_get_new_ipaddr_by_hostid(nullptr, "255.0.0.0", 1, out), -1);
                }),
                Prints(complaint));
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(check_get_new_ipaddr_by_hostid("1.2.3.4", nullptr, 1, out), -1); }),
        Prints(complaint));
    EXPECT_THAT(printed([&] {
                    EXPECT_EQ(check_get_new_ipaddr_by_hostid("1.2.3.4", "255.0.0.0", 1, nullptr),
                              -1);
                }),
                Prints(complaint));
    EXPECT_STREQ(out, "as before");
}

}  // namespace
