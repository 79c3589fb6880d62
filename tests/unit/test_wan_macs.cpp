// SPDX-License-Identifier: MIT
// The MACs of the WANs: which there are, on which interface, by which commands.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "platform/hardware.h"
#include "prod_common_ifaddrs.h"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/files.hpp"

using test::config;
using test::console_line;
using test::literally;
using test::printed;
using test::Prints;

namespace
{

constexpr int kRed = 31;
constexpr int kYellow = 33;
constexpr const char *kFunction = "wan_interface_addr_init";

using Mac = std::array<unsigned char, 6>;
using Lines = std::vector<std::string>;

// ---- what these tests put in the place of the platform ----------------------------------------

struct Board {
    int base_result = 0;
    Mac base = {0x00, 0x11, 0x22, 0x33, 0x44, 0x00};
    int base_reads = 0;
    int clone_result = 0;
    std::vector<Mac> clones;
    const char *wan4 = "eth4";
};
Board board;

}  // namespace

extern "C" {

int iof_mac_addr_get(unsigned char *mac)
{
    ++board.base_reads;
    memcpy(mac, board.base.data(), board.base.size());
    return board.base_result;
}

int iof_mac_clone_set(unsigned char *mac)
{
    Mac clone;
    memcpy(clone.data(), mac, clone.size());
    board.clones.push_back(clone);
    return board.clone_result;
}

char *iof_eth_name_get(eth_idx_t index)
{
    return index == WAN_4 ? const_cast<char *>(board.wan4) : nullptr;
}
}

namespace
{

class WanMacs : public testing::Test
{
  protected:
    void SetUp() override
    {
        board = {};
        config()["wans.flag"] = "2";
        config()["wlan0_maxbss"] = "8";
        config()["wlan1_maxbss"] = "8";
        config()["port.1.ifname"] = "eth1";
        config()["port.2.ifname"] = "eth2";
        config()["port.3.ifname"] = "eth3";
    }

    /** What is printed; the commands are in commands_. */
    std::string init()
    {
        const test::RecordedCommands recorded;
        std::string out = printed(wan_interface_addr_init);
        commands_ = recorded.all();
        return out;
    }

    test::FreshConfig fresh_;
    Lines commands_;
};

Lines commands_for(const std::string &ifname, const std::string &mac)
{
    return {"ifconfig " + ifname + " down", "ifconfig " + ifname + " hw ether " + mac,
            "ifconfig " + ifname + " up"};
}

Lines operator+(Lines first, const Lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/** The time-stamped trace line, its function cut to the column's 20 characters. */
std::string trace(const std::string &command)
{
    return literally("\033[0m[") + "[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}" +
           literally("] \033[0m\033[1;40;35m") + "[0-9]{4}" +
           literally(" wan_interface_addr_i: >>>> " + command + " <<<<\n\033[0m");
}

std::string setting(int wan, const std::string &mac)
{
    return console_line(kYellow, kFunction, "setting wan" + std::to_string(wan) + ".mac = " + mac);
}

std::string failure(const std::string &message)
{
    return console_line(kRed, kFunction, message);
}

const std::string kNoWanMac = "No wan mac is set! try bridge mac...";

// ---- where the MACs come from -----------------------------------------------------------------

TEST_F(WanMacs, FollowTheBridgeAndEveryBss)
{
    const std::string out = init();
    EXPECT_EQ(commands_, commands_for("eth1", "00:11:22:33:44:11") +
                             commands_for("eth2", "00:11:22:33:45:12"));
    EXPECT_THAT(out, Prints(failure(kNoWanMac) + setting(1, "00:11:22:33:44:11") +
                            trace("ifconfig eth1 down") + setting(2, "00:11:22:33:45:12") +
                            trace("ifconfig eth2 down")));
    EXPECT_EQ(board.clones, (std::vector<Mac>{{0x00, 0x11, 0x22, 0x33, 0x44, 0x11},
                                              {0x00, 0x11, 0x22, 0x33, 0x45, 0x12}}));
}

TEST_F(WanMacs, StartWithTheConfiguredOne)
{
    config()["wan.mac"] = "02:00:00:10:fe:ff";
    config()["wans.flag"] = "3";
    const std::string out = init();
    EXPECT_EQ(commands_, commands_for("eth1", "02:00:00:10:FE:FF") +
                             commands_for("eth2", "02:00:00:11:00:00") +
                             commands_for("eth3", "02:00:00:11:01:01"));
    EXPECT_THAT(out, Prints(setting(1, "02:00:00:10:FE:FF") + trace("ifconfig eth1 down") +
                            setting(2, "02:00:00:11:00:00") + trace("ifconfig eth2 down") +
                            setting(3, "02:00:00:11:01:01") + trace("ifconfig eth3 down")));
    EXPECT_EQ(board.base_reads, 0);
}

TEST_F(WanMacs, AConfiguredOneThatIsNone)
{
    for (const char *const text : {"00:00:00:00:00:00", "02:00", "02:00:00:10:00", "mac", "g"}) {
        config()["wan.mac"] = text;
        init();
        EXPECT_EQ(commands_[1], "ifconfig eth1 hw ether 00:11:22:33:44:11") << text;
    }
    EXPECT_EQ(board.base_reads, 5);
}

TEST_F(WanMacs, AnOverrideIsForTheInterfaceOnly)
{
    config()["wan2.macaddr"] = "0a:bb:cc:dd:ee:f";
    const std::string out = init();
    EXPECT_EQ(commands_,
              commands_for("eth1", "00:11:22:33:44:11") + commands_for("eth2", "0a:bb:cc:dd:ee:f"));
    EXPECT_THAT(out, Prints(failure(kNoWanMac) + setting(1, "00:11:22:33:44:11") +
                            trace("ifconfig eth1 down") + setting(2, "0a:bb:cc:dd:ee:f") +
                            trace("ifconfig eth2 down")));
    ASSERT_EQ(board.clones.size(), 2U);
    EXPECT_EQ(board.clones[1], (Mac{0x00, 0x11, 0x22, 0x33, 0x45, 0x12}));
}

TEST_F(WanMacs, AnOverrideThatIsNoMacIsIgnored)
{
    for (const char *const text :
         {"", "02:00:00", "02:00:00:10:00:11;reboot", "02:00:00:10:00:11 $(reboot)", "$(reboot)",
          "02:00:00:10:00:11`reboot`", " 02:00:00:10:00:11", "02:00:00:10:00:11\n",
          "::::::", "02:00:00:10:00:11:22", "02:00:00:10:00:112", "02:00:00:10:00:11:"}) {
        config()["wan1.macaddr"] = text;
        init();
        EXPECT_EQ(commands_[1], "ifconfig eth1 hw ether 00:11:22:33:44:11") << text;
    }
}

TEST_F(WanMacs, ABoardWithoutABaseMac)
{
    board.base_result = -1;
    EXPECT_THAT(init(), Prints(failure(kNoWanMac) + failure("Failed to iof_mac_addr_get")));
    EXPECT_EQ(commands_, Lines{});
    EXPECT_EQ(board.clones.size(), 0U);
}

TEST_F(WanMacs, ASwitchThatRefusesIsPassedOver)
{
    board.clone_result = -1;
    EXPECT_THAT(
        init(),
        Prints(failure(kNoWanMac) + setting(1, "00:11:22:33:44:11") + trace("ifconfig eth1 down") +
               failure("Failed to iof_mac_clone_set") + setting(2, "00:11:22:33:45:12") +
               trace("ifconfig eth2 down") + failure("Failed to iof_mac_clone_set")));
    EXPECT_EQ(commands_.size(), 6U);
}

TEST_F(WanMacs, FailingCommandsArePassedOver)
{
    const test::RecordedCommands recorded{[](const std::string &) { return 256; }};
    printed(wan_interface_addr_init);
    EXPECT_EQ(recorded.all().size(), 6U);
    EXPECT_EQ(board.clones.size(), 2U);
}

// ---- how many ---------------------------------------------------------------------------------

TEST_F(WanMacs, NoWans)
{
    for (const char *const count : {"0", "", "-1", "x"}) {
        config()["wans.flag"] = count;
        board.base_reads = 0;
        EXPECT_THAT(init(), Prints(failure(kNoWanMac)));
        EXPECT_EQ(commands_, Lines{});
        EXPECT_EQ(board.base_reads, 1) << count;
        EXPECT_EQ(board.clones.size(), 0U);
    }
}

TEST_F(WanMacs, AtMostFour)
{
    for (const char *const count : {"4", "5", "2147483647", "99999999999"}) {
        config()["wans.flag"] = count;
        board.clones.clear();
        init();
        EXPECT_EQ(commands_, commands_for("eth1", "00:11:22:33:44:11") +
                                 commands_for("eth2", "00:11:22:33:45:12") +
                                 commands_for("eth3", "00:11:22:33:46:13") +
                                 commands_for("eth4", "00:11:22:33:47:14"))
            << count;
        EXPECT_EQ(board.clones.size(), 4U);
    }
}

TEST_F(WanMacs, CountsOfBssThatAreAbsurd)
{
    config()["wans.flag"] = "1";
    const struct {
        const char *first;
        const char *second;
        const char *mac;
    } cases[] = {
        {"0", "0", "00:11:22:33:44:01"},   {"", "", "00:11:22:33:44:01"},
        {"-5", "3", "00:11:22:33:44:01"},  {"-1", "3", "00:11:22:33:44:03"},
        {"255", "0", "00:11:22:33:45:00"}, {"2147483647", "2147483647", "00:11:22:33:54:01"}};
    for (const auto &[first, second, mac] : cases) {
        config()["wlan0_maxbss"] = first;
        config()["wlan1_maxbss"] = second;
        init();
        EXPECT_EQ(commands_, commands_for("eth1", mac)) << first << " " << second;
    }
}

TEST_F(WanMacs, CarriesThatLeaveTheMacAreLostButEveryWanIsSet)
{
    config()["wan.mac"] = "00:FF:FF:FF:FF:FF";
    const std::string out = init();
    EXPECT_EQ(commands_, commands_for("eth1", "00:FF:FF:FF:FF:FF") +
                             commands_for("eth2", "00:00:00:00:01:00"));
    EXPECT_NE(out.find("mac increase is fail."), std::string::npos);
}

// ---- on which interface -----------------------------------------------------------------------

TEST_F(WanMacs, TheFirstWanIsOnAVlanWithIptv)
{
    config()["iptv.enable"] = "1";
    config()["iptv.wan.vlanid"] = "85";
    const std::string out = init();
    EXPECT_EQ(commands_, commands_for("vlan85", "00:11:22:33:44:11") +
                             commands_for("eth2", "00:11:22:33:45:12"));
    EXPECT_THAT(out, Prints(failure(kNoWanMac) + setting(1, "00:11:22:33:44:11") +
                            setting(2, "00:11:22:33:45:12") + trace("ifconfig eth2 down")));
    config()["iptv.wan.vlanid"] = "";
    init();
    EXPECT_EQ(commands_[0], "ifconfig vlan0 down");
    config()["iptv.enable"] = "0";
    init();
    EXPECT_EQ(commands_[0], "ifconfig eth1 down");
}

TEST_F(WanMacs, AWanThatTheBoardDoesNotHave)
{
    config()["wans.flag"] = "4";
    board.wan4 = nullptr;
    init();
    EXPECT_EQ(commands_.size(), 9U);
    EXPECT_EQ(board.clones.size(), 4U);
}

TEST_F(WanMacs, ShellCharactersInANameRunNothing)
{
    config()["wans.flag"] = "1";
    for (const std::string name : {";>ran", "$(>ran)", "`>ran`", "|>ran", "'>ran'", "\">ran\"",
                                   "lo;>ran", "a\\;>ran", "&>ran"}) {
        config()["port.1.ifname"] = name;
        const std::string out = printed(wan_interface_addr_init);  // by the real shell
        EXPECT_FALSE(test::exists("ran")) << name;
        init();
        EXPECT_EQ(commands_.size(), 3U) << name;
    }
    EXPECT_EQ(commands_[0], "ifconfig \\&\\>ran down");
    for (const char *const name : {"a b", "a/b", "a\nb", "\t"}) {
        config()["port.1.ifname"] = name;
        EXPECT_THAT(init(), Prints(failure(kNoWanMac) + setting(1, "00:11:22:33:44:11")));
        EXPECT_EQ(commands_, Lines{}) << name;
    }
}

TEST_F(WanMacs, LongValuesInEveryKey)
{
    const test::EveryKeyReads longest{test::longest_value('7')};
    config() = {{"wans.flag", "4"}};
    init();
    EXPECT_EQ(board.clones.size(), 4U);
    ASSERT_EQ(commands_.size(), 12U);
    EXPECT_EQ(commands_[3], "ifconfig 777777777 down") << "nine characters of a name count";
}

}  // namespace
