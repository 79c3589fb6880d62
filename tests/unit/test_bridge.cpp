// SPDX-License-Identifier: MIT
// The bridge and the switch, with a board and a shell that the test plays.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "platform/factory.h"
#include "platform/hardware.h"
#include "platform/process.h"
#include "prod_common_wan.h"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/files.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::RecordedCommands;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

std::string factory_mac;
int vlan_result;
std::vector<std::string> steps;  // what was done in order, commands included

}  // namespace

extern "C" {

int iof_vlan_set(int eth_id, unsigned int untag_bit, unsigned int tag_bit)
{
    char text[64];
    snprintf(text, sizeof(text), "vlan %d 0x%X 0x%X", eth_id, untag_bit, tag_bit);
    steps.emplace_back(text);
    return vlan_result;
}

int iof_port_restart_auto_nego(int port)
{
    steps.push_back("nego " + std::to_string(port));
    return -1;  // nobody looks at it
}

int ApmibGetValue(const char *name, char *value)
{
    steps.push_back(std::string{"factory "} + name);
    strcpy(value, factory_mac.c_str());
    return factory_mac.empty() ? 0 : 1;
}

int do_file_cmd(const char *path, int mode, const char *format, ...)
{
    char text[64];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    if (std::string{path}.starts_with("/proc/")) {  // the debug table registers itself too
        steps.push_back(std::string{"file "} + path + " " + std::to_string(mode) + " " + text);
    }
    return -1;
}
}

namespace
{

constexpr const char *kForwarding = "/proc/sys/net/ipv4/ip_forward";

std::string trace(const std::string &command)
{
    return "\033\\[0m\\[[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}\\] \033\\[0m\033\\[1;40;35m[0-9]{4} "
           "ethswctl_wan_switch : >>>> " +
           test::literally(command) + " <<<<\n\033\\[0m";
}

class Bridge : public testing::Test
{
  protected:
    Bridge()
    {
        factory_mac = "02AaBbCc0010";
        vlan_result = 0;
        config()["sys.ports"] = "43210";
        config()["wans.flag"] = "1";
        config()["lan.ip"] = "192.168.0.1";
        for (int i = 0; i < 5; ++i) {
            const std::string name = "eth" + std::to_string(i + 1);
            config()["port." + std::to_string(i + 1) + ".ifname"] = name;
            config()["ports.phy." + std::to_string(4 - i) + ".eth"] = name;
        }
    }

    /** What @p code has done, in order; every command fails, which nobody minds. */
    std::vector<std::string> done(void (*code)(), prod_dbg_lvl_t level = PROD_DBG_ERROR)
    {
        steps.clear();
        const RecordedCommands commands{[](const std::string &command) {
            steps.push_back(command);
            return -1;
        }};
        output_ = level > PROD_DBG_ERROR ? printed_at(level, code) : printed(code);
        return steps;
    }

    test::FreshConfig fresh_;
    std::string output_;
};

// ---- ports of the bridge ----------------------------------------------------------------------

TEST_F(Bridge, WansLeaveItAndLansEnterIt)
{
    EXPECT_THAT(done(update_bridge),
                ElementsAre("brctl delif br0 eth1", "brctl addif br0 eth2", "brctl addif br0 eth3",
                            "brctl addif br0 eth4", "brctl addif br0 eth5"));
    EXPECT_EQ(output_, "");
    config()["wans.flag"] = "2";
    EXPECT_THAT(done(update_bridge_test),
                ElementsAre("brctl delif br0 eth1", "brctl delif br0 eth2", "brctl addif br0 eth3",
                            "brctl addif br0 eth4", "brctl addif br0 eth5"));
}

TEST_F(Bridge, CommandsAreLoggedUnderTheNameOfTheFunction)
{
    config()["sys.ports"] = "43";
    for (const auto &[code, name] : {std::pair{&update_bridge, "update_bridge"},
                                     {&update_bridge_test, "update_bridge_test"}}) {
        done(code, PROD_DBG_INFO);
        EXPECT_THAT(output_, Prints(log_line(PROD_DBG_INFO, name, "<CMD> brctl delif br0 eth1") +
                                    log_line(PROD_DBG_INFO, name, "<CMD> brctl addif br0 eth2")));
        done(code, PROD_DBG_DEBUG);
        EXPECT_EQ(output_, "");
    }
}

TEST_F(Bridge, OddPorts)
{
    config()["sys.ports"] = "";
    EXPECT_THAT(done(update_bridge), IsEmpty());
    config().erase("sys.ports");
    EXPECT_THAT(done(update_bridge), IsEmpty());
    config()["sys.ports"] = "44";
    EXPECT_THAT(done(update_bridge), ElementsAre("brctl delif br0 eth1", "brctl delif br0 eth2"))
        << "a port that is listed twice counts at its first place, and moves twice";
    config()["sys.ports"] = "4x";
    EXPECT_THAT(done(update_bridge), ElementsAre("brctl delif br0 eth1", "brctl addif br0 eth2"));
    config()["sys.ports"] = test::longest_value('3');
    EXPECT_EQ(done(update_bridge).size(), 31U);
}

TEST_F(Bridge, NamesThatAreNone)
{
    config()["sys.ports"] = "43210";
    config()["port.1.ifname"] = "eth1;reboot";
    config()["port.2.ifname"] = "eth2 eth3";
    config()["port.3.ifname"] = "../eth";
    config()["port.4.ifname"] = "sixteen_letters_";
    config().erase("port.5.ifname");
    EXPECT_THAT(done(update_bridge),
                ElementsAre("brctl delif br0 eth1\\;reboot", "brctl addif br0 "));
}

// ---- WAN operation ----------------------------------------------------------------------------

TEST_F(Bridge, AnInterfaceIsSwitched)
{
    EXPECT_THAT(done([] { ethswctl_wan_switch("eth1", 1); }),
                ElementsAre("ethswctl -c wan -i eth1 -o enable"));
    EXPECT_THAT(output_, Prints(trace("ethswctl -c wan -i eth1 -o enable")));
    EXPECT_THAT(done([] { ethswctl_wan_switch("eth1", 0); }),
                ElementsAre("ethswctl -c wan -i eth1 -o disable"));
    EXPECT_THAT(output_, Prints(trace("ethswctl -c wan -i eth1 -o disable")));
    EXPECT_THAT(done([] { ethswctl_wan_switch("eth1.100", -7); }),
                ElementsAre("ethswctl -c wan -i eth1.100 -o enable"));
}

TEST_F(Bridge, ANameThatCannotBeSwitched)
{
    for (const char *const name : {"a b", "a/b", "sixteen_letters_", "a\tb", "a\nb"}) {
        static const char *what;
        what = name;
        EXPECT_THAT(done([] { ethswctl_wan_switch(what, 1); }), IsEmpty()) << name;
        EXPECT_EQ(output_, "");
    }
    EXPECT_THAT(done([] { ethswctl_wan_switch(nullptr, 1); }), IsEmpty());
    EXPECT_THAT(done([] { ethswctl_wan_switch("$(reboot)`'", 1); }),
                ElementsAre("ethswctl -c wan -i \\$\\(reboot\\)\\`\\' -o enable"));
    EXPECT_THAT(done([] { ethswctl_wan_switch("", 0); }),
                ElementsAre("ethswctl -c wan -i  -o disable"));
}

TEST_F(Bridge, APortIsSwitchedByItsInterface)
{
    EXPECT_THAT(done([] { EXPECT_EQ(ethswctl_wan_set_by_main_ifname(4, 1), 0); }),
                ElementsAre("ethswctl -c wan -i eth1 -o enable"));
    EXPECT_THAT(output_, Prints(trace("ethswctl -c wan -i eth1 -o enable")));
    EXPECT_THAT(done([] { EXPECT_EQ(ethswctl_wan_set_by_main_ifname(9, 0), 0); }),
                ElementsAre("ethswctl -c wan -i  -o disable"));
    config()["ports.phy.-1.eth"] = "odd";
    EXPECT_THAT(done([] { EXPECT_EQ(ethswctl_wan_set_by_main_ifname(-1, 0), 0); }),
                ElementsAre("ethswctl -c wan -i odd -o disable"));
    config()["ports.phy.4.eth"] = test::longest_value();
    EXPECT_THAT(done([] { EXPECT_EQ(ethswctl_wan_set_by_main_ifname(4, 0), 0); }), IsEmpty());
}

// ---- from a switch to a router ----------------------------------------------------------------

TEST_F(Bridge, LeavingSwitchOnlyMode)
{
    EXPECT_THAT(
        done(leave_switch_only_mode),
        ElementsAre("brctl addbr br0", "ethswctl -c wan -i eth1 -o enable",
                    "ethswctl -c wan -i eth2 -o disable", "ethswctl -c wan -i eth3 -o disable",
                    "ethswctl -c wan -i eth4 -o disable", "ethswctl -c wan -i eth5 -o disable",
                    "vlan 1 0x1F 0x0", "brctl delif br0 eth1", "brctl addif br0 eth2",
                    "brctl addif br0 eth3", "brctl addif br0 eth4", "brctl addif br0 eth5",
                    "factory HW_NIC0_ADDR", "ifconfig br0 hw ether 02:Aa:Bb:Cc:00:10",
                    "ifconfig br0 192.168.0.1", std::string{"file "} + kForwarding + " 0 1"));
    EXPECT_THAT(output_, Prints(trace("ethswctl -c wan -i eth1 -o enable") +
                                trace("ethswctl -c wan -i eth2 -o disable") +
                                trace("ethswctl -c wan -i eth3 -o disable") +
                                trace("ethswctl -c wan -i eth4 -o disable") +
                                trace("ethswctl -c wan -i eth5 -o disable")));
}

TEST_F(Bridge, WhatIsLoggedOnTheWay)
{
    config()["sys.ports"] = "4";
    done(leave_switch_only_mode, PROD_DBG_INFO);
    const auto line = [](const std::string &message) {
        return log_line(PROD_DBG_INFO, "bcm_leave_switch_only_mode", message);
    };
    EXPECT_THAT(output_,
                Prints(line("<CMD> brctl addbr br0") + trace("ethswctl -c wan -i eth1 -o enable") +
                       log_line(PROD_DBG_INFO, "update_bridge_test", "<CMD> brctl delif br0 eth1") +
                       line("<CMD> ifconfig br0 hw ether 02:Aa:Bb:Cc:00:10") +
                       line("<CMD> ifconfig br0 192.168.0.1") +
                       line("Write to file `/proc/sys/net/ipv4/ip_forward`: 1")));
}

TEST_F(Bridge, AVlanThatCannotBeSet)
{
    vlan_result = -5;
    EXPECT_EQ(done(leave_switch_only_mode).back(), std::string{"file "} + kForwarding + " 0 1");
    config()["sys.ports"] = "4";
    done(leave_switch_only_mode);
    EXPECT_THAT(output_,
                Prints(trace("ethswctl -c wan -i eth1 -o enable") +
                       log_line(PROD_DBG_ERROR, "bcm_leave_switch_only_mode",
                                "Failed(-5) to iof_vlan_set(eth_id, untag_bit, tag_bit)")));
}

TEST_F(Bridge, TwicePortsAndPortsBeyondAMask)
{
    config()["sys.ports"] = "44";
    config().erase("port.2.ifname");
    EXPECT_THAT(done(leave_switch_only_mode),
                ElementsAre("brctl addbr br0", "ethswctl -c wan -i eth1 -o enable",
                            "ethswctl -c wan -i eth1 -o enable", "vlan 1 0x10 0x0",
                            "brctl delif br0 eth1", "brctl delif br0 ", "factory HW_NIC0_ADDR",
                            "ifconfig br0 hw ether 02:Aa:Bb:Cc:00:10", "ifconfig br0 192.168.0.1",
                            std::string{"file "} + kForwarding + " 0 1"));
    // '/' is -1, 'O' 31, 'P' 32, 0xFF 207.
    config()["sys.ports"] =
        "/OP\xff"
        "0";
    EXPECT_THAT(done(leave_switch_only_mode), testing::Contains("vlan 1 0x80000001 0x0"));
    config()["sys.ports"] = "";
    EXPECT_THAT(done(leave_switch_only_mode), testing::Contains("vlan 1 0x0 0x0"));
}

TEST_F(Bridge, PortsBeyondTheUsualCount)
{
    // The change of the device looks at 63 places; who is a WAN is decided within 31.
    config()["sys.ports"] = test::longest_value('1');
    const std::vector<std::string> all = done(leave_switch_only_mode);
    EXPECT_EQ(std::count(all.begin(), all.end(), "ethswctl -c wan -i eth4 -o enable"), 63);
}

TEST_F(Bridge, AFactoryMacThatIsNone)
{
    for (const char *const mac :
         {"", "02AABBCC001", "02AABBCC00100", "02AABBCC001g", "02:AA:BB:CC:0", "$(reboot)ABC"}) {
        factory_mac = mac;
        const std::vector<std::string> all = done(leave_switch_only_mode);
        EXPECT_EQ(all[all.size() - 3], "factory HW_NIC0_ADDR") << mac;
        EXPECT_EQ(all[all.size() - 2], "ifconfig br0 192.168.0.1") << mac;
    }
    factory_mac = std::string(FACTORY_VALUE_SIZE - 1, 'A');
    EXPECT_EQ(done(leave_switch_only_mode).size(), 15U);
}

TEST_F(Bridge, ALanAddressThatIsNone)
{
    for (const std::string &ip :
         {std::string{}, std::string{"192.168.0.1;reboot"}, std::string{"lan"},
          std::string{"$(reboot)"}, test::longest_value('1')}) {
        config()["lan.ip"] = ip;
        const std::vector<std::string> all = done(leave_switch_only_mode);
        EXPECT_EQ(all[all.size() - 2], "ifconfig br0 hw ether 02:Aa:Bb:Cc:00:10") << ip;
    }
    config().erase("lan.ip");
    EXPECT_EQ(done(leave_switch_only_mode).size(), 15U);
    config()["lan.ip"] = "192.168.0.1 ;reboot";
    const std::vector<std::string> all = done(leave_switch_only_mode);
    EXPECT_EQ(all[all.size() - 2], "ifconfig br0 192.168.0.1\\ \\;reboot") << "one word";
    // 63 characters count, blanks among them.
    config()["lan.ip"] = "192.168.0.1" + std::string(60, ' ');
    std::string command = "ifconfig br0 192.168.0.1";
    for (int i = 0; i < 52; ++i) {
        command += "\\ ";
    }
    EXPECT_THAT(done(leave_switch_only_mode), testing::Contains(command));
}

// ---- auto-negotiation -------------------------------------------------------------------------

TEST_F(Bridge, LanPortsNegotiateAnew)
{
    EXPECT_THAT(done(down_lan_phy_connect), ElementsAre("nego 3", "nego 2", "nego 1", "nego 0"));
    config()["wans.flag"] = "3";
    EXPECT_THAT(done(down_lan_phy_connect), ElementsAre("nego 1", "nego 0"));
    config()["wans.flag"] = "9";
    EXPECT_THAT(done(down_lan_phy_connect), IsEmpty());
    config()["wans.flag"] = "1";
    config()["sys.ports"] = "433";
    EXPECT_THAT(done(down_lan_phy_connect), ElementsAre("nego 3", "nego 3"));
    config()["wans.flag"] = "0";
    config()["sys.ports"] = test::longest_value('3');
    EXPECT_EQ(done(down_lan_phy_connect).size(), 31U);
    config().erase("sys.ports");
    EXPECT_THAT(done(down_lan_phy_connect), IsEmpty());
}

// ---- hostile settings and a real shell ---------------------------------------------------------

TEST_F(Bridge, NothingOfAHostileSettingRuns)
{
    test::remove_all("/ran");
    for (const char *const value : {";>ran", "$(>ran)", "`>ran`", "|>ran", "&>ran", "x\n>ran",
                                    "';>ran;'", "\";>ran;\"", "\\;>ran"}) {
        const test::FreshConfig fresh;
        const test::EveryKeyReads everywhere{value};
        factory_mac = value;
        config()["sys.ports"] = "4321";
        printed([] {
            update_bridge();
            leave_switch_only_mode();
            down_lan_phy_connect();
        });
        EXPECT_FALSE(test::exists("/ran")) << value;
        EXPECT_FALSE(test::exists("ran")) << value;
    }
}

}  // namespace
