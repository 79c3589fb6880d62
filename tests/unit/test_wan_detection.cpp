// SPDX-License-Identifier: MIT
// What kind of access a line offers, with probe programs that the test plays.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "prod_common_wan.h"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/time.hpp"

using test::config;
using test::printed;
using test::RecordedPipes;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const std::string kPppoeAnswer =
    "Access-Concentrator: isp1\n       Service-Name: internet\n"
    "AC-Ethernet-Address: 02:00:64:00:01:01\nmore\n";
const std::string kDhcpAnswer = "offer ip=\"100.64.1.7\" servermac=\"02:00:64:00:01:01\" t=1\n";
constexpr const char *kPppoe = "discovery-pppoe -I eth1 -t 2 -a 1 2>&1";
constexpr const char *kDhcp = "discovery-dhcp -i eth1 -t 2 -p 2>&1";

/** What is printed for one run of a probe; each output line comes with its line break. */
std::string run_of(const std::string &command, const std::vector<std::string> &lines = {})
{
    std::string text = "\033[1;40;36mExecuting: " + command + "\n\033[0m";
    for (const std::string &line : lines) {
        text += "\033[0mOutput: " + line + "\033[0m";
    }
    return text;
}

std::string took(const std::string &seconds)
{
    return "\033[1;40;36mIt takes " + seconds + "s.\n\033[0m";
}

class WanDetection : public testing::Test
{
  protected:
    WanDetection() { config()["port.1.ifname"] = "eth1"; }

    using Answer = std::optional<std::string>;

    /** Detects with probes that answer their attempts with these texts, in order. */
    void detect(const std::vector<Answer> &pppoe, const std::vector<Answer> &dhcp, int wan = 1)
    {
        std::size_t asked[2] = {};
        const RecordedPipes pipes{[&](const std::string &command) -> Answer {
            const bool is_dhcp = command.starts_with("discovery-dhcp");
            const std::vector<Answer> &answers = is_dhcp ? dhcp : pppoe;
            time_.pass(0.25);
            const std::size_t attempt = asked[is_dhcp ? 1 : 0]++;
            return attempt < answers.size() ? answers[attempt] : "";
        }};
        const int before = test::open_descriptors();
        output_ = printed([&] { result_ = prod_detect_wan_type(wan); });
        EXPECT_EQ(test::open_descriptors(), before);
        EXPECT_EQ(pipes.left_open(), 0U);
        commands_ = pipes.all();
    }

    test::FreshConfig fresh_;
    test::SimulatedTime time_;
    int result_ = -1;
    std::string output_;
    std::vector<std::string> commands_;
};

TEST_F(WanDetection, AConcentratorAnswersAtOnce)
{
    detect({kPppoeAnswer}, {kDhcpAnswer});
    EXPECT_EQ(result_, HLX_WAN_CONNECT_PPPOE);
    EXPECT_EQ(result_, 2);
    EXPECT_THAT(commands_, ElementsAre(kPppoe));
    EXPECT_THAT(time_.sleeps(), IsEmpty());
    EXPECT_EQ(output_,
              run_of(kPppoe, {"Access-Concentrator: isp1\n", "       Service-Name: internet\n",
                              "AC-Ethernet-Address: 02:00:64:00:01:01\n"}) +
                  took("0.250"))
        << "what follows the answer is not read";
}

TEST_F(WanDetection, AConcentratorAnswersInTheSecondAttempt)
{
    detect({"", kPppoeAnswer}, {kDhcpAnswer});
    EXPECT_EQ(result_, 2);
    EXPECT_THAT(commands_, ElementsAre(kPppoe, kPppoe));
    EXPECT_THAT(time_.sleeps(), ElementsAre(1000000));
    EXPECT_EQ(output_,
              run_of(kPppoe) +
                  run_of(kPppoe, {"Access-Concentrator: isp1\n", "       Service-Name: internet\n",
                                  "AC-Ethernet-Address: 02:00:64:00:01:01\n"}) +
                  took("1.500"));
}

TEST_F(WanDetection, InTheThirdAttemptButNotLater)
{
    detect({"", "", kPppoeAnswer}, {});
    EXPECT_EQ(result_, 2);
    EXPECT_EQ(time_.sleeps().size(), 2U);
    detect({"", "", "", kPppoeAnswer}, {"", "", "", kDhcpAnswer});
    EXPECT_EQ(result_, 1);
    EXPECT_EQ(commands_.size(), 6U);
}

TEST_F(WanDetection, OnlyADhcpServerAnswers)
{
    detect({}, {kDhcpAnswer});
    EXPECT_EQ(result_, HLX_WAN_CONNECT_DHCP);
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(commands_, ElementsAre(kPppoe, kPppoe, kPppoe, kDhcp));
    EXPECT_THAT(time_.sleeps(), ElementsAre(1000000, 1000000, 1000000));
    EXPECT_EQ(output_, run_of(kPppoe) + run_of(kPppoe) + run_of(kPppoe) + took("3.750") +
                           run_of(kDhcp, {kDhcpAnswer}) + took("0.250"));
}

TEST_F(WanDetection, NobodyAnswers)
{
    detect({"Timeout waiting for PADO packets\n"}, {"no offer within 2 seconds\n"});
    EXPECT_EQ(result_, HLX_WAN_CONNECT_STATIC);
    EXPECT_EQ(result_, 1);
    EXPECT_THAT(commands_, ElementsAre(kPppoe, kPppoe, kPppoe, kDhcp, kDhcp, kDhcp));
    EXPECT_EQ(time_.sleeps(), std::vector<long long>(6, 1000000));
    EXPECT_EQ(output_, run_of(kPppoe, {"Timeout waiting for PADO packets\n"}) + run_of(kPppoe) +
                           run_of(kPppoe) + took("3.750") +
                           run_of(kDhcp, {"no offer within 2 seconds\n"}) + run_of(kDhcp) +
                           run_of(kDhcp) + took("3.750"));
}

TEST_F(WanDetection, WhatCountsAsAnAnswer)
{
    for (const char *const line :
         {" AC-Ethernet-Address: 02:00:64:00:01:01\n", "AC-Ethernet-Address:\n",
          "ac-ethernet-address: 02:00:64:00:01:01\n", "servermac=\"02:00:64:00:01:01\"\n"}) {
        detect({line}, {kPppoeAnswer, "servermac=02:00:64:00:01:01\n", "servermac='x'\n"});
        EXPECT_EQ(result_, 1) << line;
    }
    detect({"AC-Ethernet-Address: "}, {});
    EXPECT_EQ(result_, 2) << "without an address and a line break";
    for (const char *const line :
         {"servermac=\"", "x servermac=\"y\" z\n", "a\nservermac=\"b\"\n"}) {
        detect({}, {line});
        EXPECT_EQ(result_, 0) << line;
    }
}

TEST_F(WanDetection, LongLinesAreSplit)
{
    // The rest of a line of more than 255 characters counts as a line of its own.
    const std::string full(255, 'x');
    detect({full + "AC-Ethernet-Address: y\n"}, {});
    EXPECT_EQ(result_, 2);
    EXPECT_EQ(output_, run_of(kPppoe, {full, "AC-Ethernet-Address: y\n"}) + took("0.250"));
    detect({full.substr(1) + "AC-Ethernet-Address: y\n"}, {full.substr(5) + "servermac=\""});
    EXPECT_EQ(result_, 1) << "the markers are cut in two";
}

TEST_F(WanDetection, OutputIsShownAsItIs)
{
    const std::string odd = "100% %s%n \033[31m\n";
    detect({odd}, {kDhcpAnswer});
    EXPECT_TRUE(output_.starts_with(run_of(kPppoe, {odd})));
}

TEST_F(WanDetection, AProbeThatCannotBeStartedHasFailed)
{
    detect({std::nullopt, std::nullopt, std::nullopt}, {std::nullopt, kDhcpAnswer});
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(commands_, ElementsAre(kPppoe, kPppoe, kPppoe, kDhcp, kDhcp));
    EXPECT_EQ(time_.sleeps().size(), 4U);
}

TEST_F(WanDetection, TheInterfaceOfTheWan)
{
    config()["port.3.ifname"] = "vlan4.7";
    detect({}, {}, 3);
    EXPECT_EQ(commands_.front(), "discovery-pppoe -I vlan4.7 -t 2 -a 1 2>&1");
    EXPECT_EQ(commands_.back(), "discovery-dhcp -i vlan4.7 -t 2 -p 2>&1");
    detect({}, {}, -1);
    EXPECT_EQ(commands_.front(), "discovery-pppoe -I  -t 2 -a 1 2>&1") << "no such WAN";
    EXPECT_EQ(result_, 1);
}

TEST_F(WanDetection, TheInterfaceIsLookedUpForEachAttempt)
{
    const RecordedPipes pipes{[&](const std::string &) -> Answer {
        if (pipes.all().size() == 1) {
            config().erase("port.1.ifname");
        } else {
            config()["port.1.ifname"] = "eth9";
        }
        return "";
    }};
    printed([] { prod_detect_wan_type(1); });
    EXPECT_EQ(pipes.all()[0], kPppoe);
    EXPECT_EQ(pipes.all()[1], "discovery-pppoe -I  -t 2 -a 1 2>&1") << "no trace of the old name";
    EXPECT_EQ(pipes.all()[2], "discovery-pppoe -I eth9 -t 2 -a 1 2>&1");
}

TEST_F(WanDetection, WhatCannotBeAnInterfaceIsAFailedAttempt)
{
    for (const std::string &name : {std::string{"eth1 eth2"}, std::string{"../eth1"},
                                    std::string{"sixteen_letters_"}, test::longest_value()}) {
        config()["port.1.ifname"] = name;
        const std::size_t before = time_.sleeps().size();
        detect({kPppoeAnswer}, {kDhcpAnswer});
        EXPECT_EQ(result_, 1);
        EXPECT_THAT(commands_, IsEmpty()) << name;
        EXPECT_EQ(time_.sleeps().size(), before + 6);
        EXPECT_EQ(output_, took("3.000") + took("3.000"));
    }
}

TEST_F(WanDetection, ShellCharactersInANameStayText)
{
    config()["port.1.ifname"] = "a;>/tmp$(id)`'\"";
    detect({kPppoeAnswer}, {});
    EXPECT_THAT(commands_, IsEmpty()) << "a slash is in no name";
    config()["port.1.ifname"] = "a;$(id)`'\"&|*";
    detect({kPppoeAnswer}, {});
    EXPECT_THAT(
        commands_,
        ElementsAre("discovery-pppoe -I a\\;\\$\\(id\\)\\`\\'\\\"\\&\\|\\* -t 2 -a 1 2>&1"));
}

TEST_F(WanDetection, NothingOfAHostileNameRuns)
{
    test::remove_all("/ran");
    for (const char *const name : {";>ran", "$(>ran)", "`>ran`", "|>ran", "&>ran", "x\n>ran"}) {
        config()["port.1.ifname"] = name;
        printed([] { EXPECT_EQ(prod_detect_wan_type(1), 1); });  // by the real shell
        EXPECT_FALSE(test::exists("/ran")) << name;
    }
}

// ---- accounts ---------------------------------------------------------------------------------

class Accounts : public testing::Test
{
  protected:
    Accounts()
    {
        for (const char *const wan : {"1", "3"}) {
            const std::string number = wan;
            config()["wan" + number + ".connecttype"] = "2";
            config()["ipv6.wan" + number + ".type"] = "2";
            config()["wan" + number + ".ppoe.userid"] = "user";
            config()["wan" + number + ".ppoe.pwd"] = "secret";
        }
        config()["ipv6.wan1.pppoe.user"] = "user";
        config()["ipv6.wan1.pppoe.pwd"] = "secret";
    }
    test::FreshConfig fresh_;
};

TEST_F(Accounts, TheSame)
{
    EXPECT_EQ(pppoe_v4_as_v6(1), 1);
    EXPECT_EQ(pppoe_v4_as_v6(3), 1) << "compared with the IPv6 account of WAN 1";
    config()["ipv6.wan3.pppoe.user"] = "other";
    EXPECT_EQ(pppoe_v4_as_v6(3), 1);
}

TEST_F(Accounts, Different)
{
    for (const char *const key :
         {"wan1.ppoe.userid", "wan1.ppoe.pwd", "ipv6.wan1.pppoe.user", "ipv6.wan1.pppoe.pwd"}) {
        const std::string before = config()[key];
        for (const std::string &other :
             {before + "x", before.substr(1), std::string{}, "U" + before}) {
            config()[key] = other;
            EXPECT_EQ(pppoe_v4_as_v6(1), 0) << key << " " << other;
        }
        config().erase(key);
        EXPECT_EQ(pppoe_v4_as_v6(1), 0) << key;
        config()[key] = before;
    }
    EXPECT_EQ(pppoe_v4_as_v6(1), 1);
}

TEST_F(Accounts, OnlyWhenBothSidesDialPppoe)
{
    for (const char *const key : {"wan1.connecttype", "ipv6.wan1.type"}) {
        for (const char *const type : {"0", "1", "3", "5", "", "x"}) {
            config()[key] = type;
            EXPECT_EQ(pppoe_v4_as_v6(1), 0) << key << " " << type;
        }
        config().erase(key);
        EXPECT_EQ(pppoe_v4_as_v6(1), 0);
        config()[key] = "2";
    }
    EXPECT_EQ(pppoe_v4_as_v6(2), 0) << "a WAN that is not configured";
    EXPECT_EQ(pppoe_v4_as_v6(1), 1);
}

TEST_F(Accounts, WithoutUserAndPassword)
{
    for (const char *const key :
         {"wan1.ppoe.userid", "wan1.ppoe.pwd", "ipv6.wan1.pppoe.user", "ipv6.wan1.pppoe.pwd"}) {
        config().erase(key);
    }
    EXPECT_EQ(pppoe_v4_as_v6(1), 1);
}

TEST_F(Accounts, LongOnesAreComparedToTheEnd)
{
    config()["wan1.ppoe.userid"] = test::longest_value('u');
    config()["ipv6.wan1.pppoe.user"] = test::longest_value('u');
    EXPECT_EQ(pppoe_v4_as_v6(1), 1);
    config()["ipv6.wan1.pppoe.user"].back() = 'v';
    EXPECT_EQ(pppoe_v4_as_v6(1), 0);
}

}  // namespace
