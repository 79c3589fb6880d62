// SPDX-License-Identifier: MIT
// The WANs of the booted device get their MACs, and leases under them.
#include <gtest/gtest.h>

#include <string>

#include "stories.hpp"
#include "support/files.hpp"

using story::Json;
using story::must;

namespace
{

std::string mac_of(const std::string &ifname)
{
    return must("tr -d '\\n' </sys/class/net/" + ifname + "/address");
}

/** Gives the WANs their MACs; each client then asks for a lease anew. */
void apply()
{
    must("lab client wan1 stop && lab client wan2 stop");
    must("prodctl wan macs --apply");
    must("lab client wan1 start && lab client wan2 start && lab wait wan1 && lab wait wan2");
}

/** The provider's own book: whether the lease of a WAN's address is a MAC's. */
void has_its_lease_as(int wan, const std::string &mac)
{
    const std::string id = std::to_string(wan);
    const Json status =
        Json::answer_of("prodctl wan status " + id + " --json")["wans"].where("id", id);
    EXPECT_EQ(status["status"].text(), "connected");
    const std::string leases = test::read_text("/run/isp-dhcp" + id + ".leases");
    EXPECT_NE(leases.find(" " + mac + " " + status["address"].text() + " "), std::string::npos)
        << leases;
}

TEST(WanMacs, BehindTheBoardsOwnWithoutConfiguredOnes)
{
    must("cfm set wan.mac '' && ip link set eth1 address 02:00:00:00:00:01");
    apply();
    // The bridge's and eight of each radio stand between the board's MAC and the first WAN's.
    EXPECT_EQ(mac_of("br0"), "02:00:00:10:00:00");
    EXPECT_EQ(mac_of("eth1"), "02:00:00:10:00:11");
    EXPECT_EQ(mac_of("eth2"), "02:00:00:10:01:12");
    has_its_lease_as(1, "02:00:00:10:00:11");
    has_its_lease_as(2, "02:00:00:10:01:12");
    EXPECT_EQ(Json::answer_of("prodctl wan macs --json")["source"].text(), "board");
}

TEST(WanMacs, ConfiguredForAllAndForOne)
{
    must("cfm set wan.mac 02:00:00:20:fe:ff && cfm set wan2.macaddr 02:00:00:30:00:02");
    apply();
    EXPECT_EQ(mac_of("eth1"), "02:00:00:20:fe:ff");
    EXPECT_EQ(mac_of("eth2"), "02:00:00:30:00:02");
    has_its_lease_as(1, "02:00:00:20:fe:ff");
    has_its_lease_as(2, "02:00:00:30:00:02");

    must("cfm set wan2.macaddr ''");
    apply();
    EXPECT_EQ(mac_of("eth1"), "02:00:00:20:fe:ff");
    EXPECT_EQ(mac_of("eth2"), "02:00:00:21:00:00");
    has_its_lease_as(2, "02:00:00:21:00:00");
}

TEST(WanMacs, TheListingChangesNothing)
{
    must("cfm set wan.mac 02:00:00:20:00:00");
    // Those of IPv6 are still being checked for duplicates.
    const char *const all_links = "ip -o link; ip -4 -o address";
    const std::string before = must(all_links);
    const Json wans = Json::answer_of("prodctl wan macs --json")["wans"];
    EXPECT_EQ(wans.where("id", "1")["computed"].text(), "02:00:00:20:00:00");
    EXPECT_EQ(wans.where("id", "1")["actual"].text(), "02:00:00:10:00:11");
    EXPECT_EQ(wans.where("id", "2")["computed"].text(), "02:00:00:20:01:01");
    EXPECT_EQ(must(all_links), before);
}

// The first WAN then runs on a VLAN of the provider's line. The kernel of a PC may not have VLANs:
// here a cable bears the VLAN's name and leads to the same servers.
TEST(WanMacs, OnTheVlanWithIptv)
{
    must("lab client wan1 stop && lab server dhcp1 stop");
    must("ip -n isp link set wan1 down && ip -n isp address flush dev wan1");
    must("ip -n isp link set wan1 name line1");
    must("ip link add vlan85 type veth peer name wan1 netns isp");
    must("ip -n isp address add 100.64.1.1/24 dev wan1 && ip -n isp link set wan1 up");
    must("lab server dhcp1 start");
    must("cfm set iptv.enable 1 && cfm set iptv.wan.vlanid 85 && cfm set wan.mac ''");
    const std::string port = mac_of("eth1");

    must("prodctl wan macs --apply");
    EXPECT_EQ(mac_of("vlan85"), "02:00:00:10:00:11");
    EXPECT_EQ(mac_of("eth2"), "02:00:00:10:01:12");
    EXPECT_EQ(mac_of("eth1"), port) << "only the VLAN is the WAN's";
    EXPECT_EQ(
        Json::answer_of("prodctl wan macs --json")["wans"].where("id", "1")["interface"].text(),
        "vlan85");

    must("WAN=1 udhcpc -i vlan85 -s /rom/dhcpc-event -f -q -n -t 5 -T 1");
    const std::string leases = test::read_text("/run/isp-dhcp1.leases");
    const std::string address = must(
        "ip -4 -o address show dev vlan85 | sed -n 's/.* inet \\([0-9.]*\\).*/\\1/p' | tr -d "
        "'\\n'");
    EXPECT_NE(leases.find(" 02:00:00:10:00:11 " + address + " "), std::string::npos) << leases;
    must("ping -c 1 -W 2 -I vlan85 100.64.1.1");
}

}  // namespace
