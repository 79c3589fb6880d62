// SPDX-License-Identifier: MIT
// The booted device leaves switch-only mode: its ports find their sides, and the LAN still works.
#include <gtest/gtest.h>

#include <string>

#include "stories.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"

using story::Json;
using story::must;
using story::run;

namespace
{

/** One switch: every port in the bridge, which has neither its own MAC nor an address. */
void become_a_switch()
{
    must("lab client wan1 stop; lab client wan2 stop");
    must("ip -4 address flush dev eth1; ip -4 address flush dev eth2");
    must("for port in eth1 eth2; do brctl addif br0 $port; done");
    must("ip -4 address flush dev br0; ip link set br0 address 02:00:00:99:99:99");
    must("echo 0 >/proc/sys/net/ipv4/ip_forward");
}

/** The ports of the bridge, in the kernel's words. */
std::string bridge_ports()
{
    return must("ls /sys/class/net/br0/brif | grep '^eth' | tr '\\n' ' '");
}

void is_a_router()
{
    EXPECT_EQ(bridge_ports(), "eth3 eth4 eth5 ") << "exactly the LAN ports";
    EXPECT_NE(must("ip link show br0").find("link/ether 02:00:00:10:00:00 "), std::string::npos)
        << "the factory MAC";
    EXPECT_NE(must("ip address show br0").find("inet 192.168.0.1/24 "), std::string::npos);
    EXPECT_EQ(test::read_text("/proc/sys/net/ipv4/ip_forward"), "1\n");
}

TEST(Bridge, LeavesSwitchOnlyMode)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    become_a_switch();
    ASSERT_EQ(bridge_ports(), "eth1 eth2 eth3 eth4 eth5 ");
    EXPECT_EQ(run("prodctl bridge show 2>/dev/null").status, 1);

    const Json answer = Json::answer_of("prodctl bridge leave-switch-only --json 2>/tmp/shown");
    is_a_router();
    EXPECT_EQ(answer["forwarding"].text(), "true");
    for (const auto &[ifname, inside] : {std::pair{"eth1", "false"},
                                         {"eth2", "false"},
                                         {"eth3", "true"},
                                         {"eth4", "true"},
                                         {"eth5", "true"}}) {
        EXPECT_EQ(answer["ports"].where("interface", ifname)["in_bridge"].text(), inside) << ifname;
    }
    EXPECT_EQ(test::read_text("/tmp/shown").find("Failed("), std::string::npos)
        << "the switch takes its VLAN";

    must("lab client wan1 start && lab wait wan1");
    must("lab exec lan1 ping -q -c 1 -W 2 192.168.0.1");
    must("lab exec lan1 ping -q -c 1 -W 2 198.51.100.1");
}

TEST(Bridge, ARouterStaysOne)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    must("prodctl bridge leave-switch-only 2>/dev/null");
    is_a_router();
    must("prodctl bridge update 2>/dev/null");
    is_a_router();
    must("lab exec lan1 ping -q -c 1 -W 2 198.51.100.1");
}

TEST(Bridge, WithoutABridgeAtFirst)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    must("ip link del br0");
    must("prodctl bridge leave-switch-only 2>/dev/null");
    is_a_router();
}

TEST(Bridge, APortChangesSides)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    must("cfm set wans.flag 1 && prodctl bridge update 2>/dev/null");
    EXPECT_EQ(bridge_ports(), "eth2 eth3 eth4 eth5 ");
    must("cfm set wans.flag 2 && prodctl bridge update 2>/dev/null");
    EXPECT_EQ(bridge_ports(), "eth3 eth4 eth5 ");
}

TEST(Bridge, APortInWanOperationIsCutOff)
{
    must("lab exec lan1 ping -q -c 1 -W 2 192.168.0.1");
    must("ethswctl -c wan -i eth3 -o enable");
    EXPECT_NE(run("lab exec lan1 ping -q -c 1 -W 1 192.168.0.1").status, 0);
    EXPECT_EQ(bridge_ports(), "eth3 eth4 eth5 ");
    must("ethswctl -c wan -i eth3 -o disable");
    must("lab exec lan1 ping -q -c 1 -W 2 192.168.0.1");
}

}  // namespace
