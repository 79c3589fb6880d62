// SPDX-License-Identifier: MIT
// ethswctl on a bridge of the test's own.
#include "support/files.hpp"
#include "support/network.hpp"
#include "tool.hpp"

using test::Outcome;
using test::program;
using test::Words;
using testing::HasSubstr;

namespace
{

const Outcome kDone = {0, "", ""};

Outcome ethswctl(const std::string &ifname, const char *how)
{
    return program({ETHSWCTL, "-c", "wan", "-i", ifname, "-o", how});
}

/** "0" is disabled, "3" forwarding. */
std::string state(const std::string &ifname)
{
    return test::read_text("/sys/class/net/" + ifname + "/brport/state");
}

class Port : public testing::Test
{
  protected:
    Port()
    {
        test::run("ip link add br0 type bridge && ip link set br0 up");
        for (const char *const n : {"1", "2"}) {
            test::run("ip link add eth%s type veth peer name far%s", n, n);
            test::run("ip link set eth%s master br0 up && ip link set far%s up", n, n);
            test::link_is_up(std::string{"eth"} + n);
        }
    }
    ~Port() override { test::run("ip link del eth1; ip link del eth2; ip link del br0"); }
};

TEST_F(Port, WanOperationOnAndOff)
{
    ASSERT_EQ(state("eth1"), "3\n");
    EXPECT_EQ(ethswctl("eth1", "enable"), kDone);
    EXPECT_EQ(state("eth1"), "0\n");
    EXPECT_EQ(state("eth2"), "3\n");
    EXPECT_EQ(ethswctl("eth1", "enable"), kDone) << "again";
    EXPECT_EQ(state("eth1"), "0\n");
    EXPECT_EQ(ethswctl("eth1", "disable"), kDone);
    EXPECT_EQ(state("eth1"), "3\n");
    EXPECT_EQ(ethswctl("eth1", "disable"), kDone) << "again";
    EXPECT_EQ(state("eth1"), "3\n");
    EXPECT_THAT(test::output("ip link show master br0"), HasSubstr("eth1")) << "membership stays";
}

TEST_F(Port, BesideBrctl)
{
    EXPECT_EQ(ethswctl("eth1", "enable"), kDone);
    test::run("brctl delif br0 eth1");
    EXPECT_EQ(ethswctl("eth1", "enable"), kDone) << "in no bridge there is nothing to do";
    EXPECT_EQ(ethswctl("eth1", "disable"), kDone);
    test::run("brctl addif br0 eth1");
    EXPECT_EQ(state("eth1"), "3\n") << "a port that enters starts without the state";
}

TEST_F(Port, WithoutALink)
{
    test::run("ip link set far1 down");
    test::eventually("eth1 is disabled", [] { return state("eth1") == "0\n"; });
    EXPECT_EQ(ethswctl("eth1", "disable"), kDone);
    EXPECT_EQ(state("eth1"), "0\n");
    test::run("ip link set far1 up");
    test::eventually("eth1 forwards again", [] { return state("eth1") == "3\n"; });
}

TEST_F(Port, WhatTheKernelRefuses)
{
    for (const char *const name : {"eth9", "", "sixteen_letters_", "../eth1"}) {
        EXPECT_EQ(ethswctl(name, "enable"),
                  (Outcome{1, "", std::string{"ethswctl: "} + name + ": No such device\n"}));
    }
    test::run("ip link set br0 type bridge stp_state 1");
    EXPECT_EQ(ethswctl("eth1", "enable"),
              (Outcome{1, "", "ethswctl: eth1: Device or resource busy\n"}));
}

TEST(CommandLine, Help)
{
    test::explains_itself(ETHSWCTL, "usage: ethswctl -c wan -i INTERFACE -o enable|disable",
                          TOOL_SOURCES "/ethswctl.1", {"-c", "-i", "-o", "--help"});
}

TEST(CommandLine, Completion)
{
    const auto completes = [](const Words &words) {
        return test::bash_completes(TOOL_SOURCES "/ethswctl.bash", ETHSWCTL, words);
    };
    EXPECT_EQ(completes({""}), (Words{"-c", "-i", "-o", "--help"}));
    EXPECT_EQ(completes({"-c", ""}), Words{"wan"});
    EXPECT_EQ(completes({"-c", "wan", "-i", "l"}), Words{"lo"});
    EXPECT_EQ(completes({"-o", ""}), (Words{"enable", "disable"}));
    EXPECT_EQ(completes({"-o", "d"}), Words{"disable"});
}

TEST(CommandLine, Wrong)
{
    for (const auto &[words, why] : {
             std::pair{Words{}, "-c, -i and -o are all needed"},
             {Words{"-c", "wan", "-i", "eth1"}, "-c, -i and -o are all needed"},
             {Words{"-c", "wan", "-o", "enable"}, "-c, -i and -o are all needed"},
             {Words{"-i", "eth1", "-o", "enable"}, "-c, -i and -o are all needed"},
             {Words{"-c", "lan"}, "-c takes wan"},
             {Words{"-o", "on"}, "-o takes enable or disable"},
             {Words{"-o"}, "an option is unknown or lacks its value"},
             {Words{"-x"}, "an option is unknown or lacks its value"},
             // The words of a command with an empty name.
             {Words{"-c", "wan", "-i", "-o", "enable"}, "there are no arguments but options"},
         }) {
        Words all = {ETHSWCTL};
        all.insert(all.end(), words.begin(), words.end());
        const Outcome outcome = program(all);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(outcome.err.starts_with(std::string{"ethswctl: "} + why + "\nusage: "))
            << outcome;
    }
}

}  // namespace
