// SPDX-License-Identifier: MIT
// The group bridge, on a switch that the test lays out.
#include "platform/cfm.h"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/store.hpp"
#include "tool.hpp"

using test::answer;
using test::Outcome;
using test::prodctl;
using testing::HasSubstr;

namespace
{

constexpr const char *kForwarding = "/proc/sys/net/ipv4/ip_forward";

class Bridge : public test::Fresh
{
  protected:
    /** All ports in one bridge, no forwarding. */
    Bridge()
    {
        test::store({{"sys.ports", "432"}, {"wans.flag", "1"}});
        test::write_text(kForwarding, "0");
        test::run("ip link add br0 type bridge");
        for (const char *const n : {"1", "2", "3"}) {
            test::run("ip link add eth%s type veth peer name far%s", n, n);
            test::run("ip link set eth%s master br0", n);
        }
    }
    ~Bridge() override { test::run("for n in 1 2 3; do ip link del eth$n; done; ip link del br0"); }

    static std::string json(bool forwarding, bool first, bool second, bool third)
    {
        const auto flag = [](bool value) { return std::string{value ? "true" : "false"}; };
        const auto port = [&](int place, int phyid, const char *role, bool inside) {
            return "{\"place\":" + std::to_string(place) +
                   ",\"physical_id\":" + std::to_string(phyid) + ",\"role\":\"" + role +
                   "\",\"interface\":\"eth" + std::to_string(place) +
                   "\",\"in_bridge\":" + flag(inside) + "}";
        };
        return "{\"bridge\":\"br0\",\"forwarding\":" + flag(forwarding) + ",\"ports\":[" +
               port(1, 4, "wan", first) + "," + port(2, 3, "lan", second) + "," +
               port(3, 2, "lan", third) + "]}\n";
    }
};

TEST_F(Bridge, ShowOfASwitch)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    EXPECT_EQ(prodctl({"bridge", "show", "--json"}),
              (Outcome{1, json(false, true, true, true),
                       "prodctl bridge show: port 1 (eth1) of the WAN is in br0\n"}));
    EXPECT_EQ(prodctl({"bridge", "show"}).out,
              "br0 IPv4 forwarding off\n"
              "PLACE  PHYSICAL  ROLE  INTERFACE  STATE\n"
              "1      4         WAN   eth1       in the bridge\n"
              "2      3         LAN   eth2       in the bridge\n"
              "3      2         LAN   eth3       in the bridge\n");
}

TEST_F(Bridge, Update)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    test::run("ip link set eth3 nomaster");
    const Outcome outcome = prodctl({"bridge", "update", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, json(false, false, true, true));
    EXPECT_EQ(prodctl({"bridge", "show", "--json"}),
              (Outcome{0, json(false, false, true, true), ""}));
    EXPECT_EQ(prodctl({"bridge", "update"}).status, 0) << "a second time changes nothing";
    EXPECT_EQ(test::read_text(kForwarding), "0\n");
}

TEST_F(Bridge, LeaveSwitchOnly)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    const Outcome outcome = prodctl({"bridge", "leave-switch-only", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, json(true, false, true, true)) << "pure JSON";
    EXPECT_THAT(outcome.err, HasSubstr(">>>> ethswctl -c wan -i eth1 -o enable <<<<"));
    EXPECT_THAT(test::output("ip link show br0"), HasSubstr("link/ether 02:00:00:10:00:00"));
    EXPECT_THAT(test::output("ip address show br0"), HasSubstr("inet 192.168.0.1/24 "));
    EXPECT_THAT(prodctl({"bridge", "leave-switch-only"}).out,
                HasSubstr("br0 IPv4 forwarding on\n"));
}

TEST_F(Bridge, APortThatIsNotThere)
{
    SKIP_IF_EMULATED(test::kNoBridgePorts);
    test::run("ip link del eth2");
    const Outcome outcome = prodctl({"bridge", "leave-switch-only", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, json(true, false, false, true));
    EXPECT_THAT(outcome.err, HasSubstr("prodctl bridge leave-switch-only: port 2 (eth2) of the LAN "
                                       "is not in br0\n"));
    test::run("ip link add eth2 type veth peer name far2");
}

TEST_F(Bridge, NoPorts)
{
    EXPECT_EQ(SetValue("sys.ports", ""), 1);
    EXPECT_EQ(prodctl({"bridge", "update"}),
              (Outcome{0, "br0 IPv4 forwarding off\nNo port is configured.\n", ""}));
}

TEST_F(Bridge, OddSettings)
{
    EXPECT_EQ(SetValue("port.2.ifname", "$(reboot);\033[31m"), 1);
    EXPECT_EQ(SetValue("sys.ports", std::string(2000, 'x').c_str()), 1);
    EXPECT_EQ(SetValue("wans.flag", "0"), 1);
    const Outcome outcome = prodctl({"bridge", "update", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(answer(outcome).get(), "ports")), 31);
    EXPECT_EQ(prodctl({"bridge", "show"}).out.find('\033'), std::string::npos);
}

TEST_F(Bridge, WrongCommandLines)
{
    EXPECT_EQ(prodctl({"bridge"}).status, 2);
    EXPECT_EQ(prodctl({"bridge", "update", "br1"}).status, 2);
    EXPECT_EQ(prodctl({"bridge", "move"}).status, 2);
    EXPECT_EQ(prodctl({"--complete", "bridge", ""}).out, "show\nupdate\nleave-switch-only\n");
    const std::string page = test::read_text(PRODCTL_SOURCES "/prodctl.1");
    for (const char *const command : {"show", "update", "leave-switch-only"}) {
        EXPECT_THAT(page, HasSubstr(std::string{".B bridge "} + command + "\n"));
    }
}

}  // namespace
