// SPDX-License-Identifier: MIT
// The LAN of the booted device moves, and with it whatever names its hosts.
#include <gtest/gtest.h>

#include <string>

#include "stories.hpp"

using story::address_of;
using story::eventually;
using story::Json;
using story::must;

namespace
{

std::string setting(const std::string &key)
{
    std::string value = must("cfm get " + key);
    return value.substr(0, value.find('\n'));
}

std::string record(const std::string &table, const std::string &which, const std::string &column)
{
    std::string value =
        must("prodctl lan records get " + table + " '" + which + "' '" + column + "'");
    return value.substr(0, value.find('\n'));
}

std::string pool(const std::string &column)
{
    return record("dhcps-list", "interface=br0", column);
}

std::string bridge_address()
{
    const Json lan = Json::answer_of("prodctl lan show --json");
    return lan["address"].text() + "/" + lan["prefix"].text();
}

/** The host asks for a new lease; the old one is refused where its network has gone. */
void takes_a_lease(const std::string &host, const std::string &start_of_address)
{
    must("lab client " + host + " renew");
    eventually(host + " has a lease of the new pool",
               [&] { return address_of(host).rfind(start_of_address, 0) == 0; });
}

/** Everything that names a host of the LAN. */
void settle()
{
    must(
        "prodctl config set dhcps.Staticnum=2 "
        "'dhcps.Staticip1=192.168.0.50;02:00:5e:00:53:02;phone'"
        " 'dhcps.Staticip2=192.168.0.51;02:00:5e:00:53:09;box' wans.flag=2"
        " wan1.dmzip=192.168.0.66 wan1.dmzen=1 wan2.dmzip=192.168.0.1 wan2.dmzen=1"
        " lan.webip=192.168.0.9 lan.webipen=1"
        " adv.snat.listnum=2 'adv.snat.list1=192.168.0.20;100.64.1.9;1'"
        " 'adv.snat.list2=192.168.0.21;100.64.1.8;0'"
        " adv.logs.listnum=1 'adv.logs.list1=192.168.0.30;514;1' --commit");
    must(
        "prodctl lan records add port-map enabled=1 ip=192.168.0.100 protocol=6 wan=1"
        " inner-port=80 outer-port=8080 name=web");
    must("prodctl lan records add ip-mac-bind ip=192.168.0.50 mac=02:00:5e:00:53:02 remark=phone");
}

std::string everything()
{
    return must("cfm show && prodctl lan records show");
}

TEST(LanMove, EverythingFollowsTheAddress)
{
    settle();
    const std::string before = everything();
    const std::string rehearsed = must("prodctl lan move 192.168.1.1/24 --dry-run --json");
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(bridge_address(), "192.168.0.1/24");

    const Json moved = Json::answer_of("prodctl lan move 192.168.1.1/255.255.255.0 --json");
    EXPECT_EQ(bridge_address(), "192.168.1.1/24");
    EXPECT_EQ(setting("lan.ip"), "192.168.1.1");
    EXPECT_EQ(setting("lan.mask"), "255.255.255.0");
    EXPECT_EQ(pool("start ip"), "192.168.1.100");
    EXPECT_EQ(pool("end ip"), "192.168.1.200");
    EXPECT_EQ(setting("dhcps.startip"), "192.168.1.100");
    EXPECT_EQ(setting("dhcps.endip"), "192.168.1.200");
    EXPECT_EQ(pool("gateway"), "192.168.1.1");
    EXPECT_EQ(pool("main dns"), "192.168.1.1");
    EXPECT_EQ(setting("dhcps.Staticip1"), "192.168.1.50;02:00:5e:00:53:02;phone");
    EXPECT_EQ(setting("dhcps.Staticip2"), "192.168.1.51;02:00:5e:00:53:09;box");
    EXPECT_EQ(setting("wan1.dmzip"), "192.168.1.66");
    EXPECT_EQ(setting("wan1.dmzen"), "1");
    EXPECT_EQ(setting("wan2.dmzip"), "192.168.1.1");
    EXPECT_EQ(setting("wan2.dmzen"), "0");
    EXPECT_EQ(setting("lan.webip"), "192.168.1.9");
    EXPECT_EQ(setting("lan.webipen"), "1");
    EXPECT_EQ(setting("adv.snat.list1"), "192.168.1.20;100.64.1.9;1");
    EXPECT_EQ(setting("adv.snat.list2"), "192.168.1.21;100.64.1.8;0");
    EXPECT_EQ(setting("adv.logs.list1"), "192.168.1.30;514;1");
    EXPECT_EQ(record("port-map", "name=web", "ip"), "192.1.168.192");
    EXPECT_EQ(record("ip-mac-bind", "remark=phone", "ip"), "192.168.1.50");
    // The rehearsal told just that.
    std::string told = moved["changes"].text();
    EXPECT_NE(rehearsed.find(told), std::string::npos) << rehearsed << told;
    EXPECT_EQ(moved["changes"].items().size(), 18U) << told;
    // It is committed.
    EXPECT_EQ(must("grep -c '^lan.ip=192.168.1.1$' /cfg/cfm.cfg"), "1\n");

    takes_a_lease("lan1", "192.168.1.1");
    takes_a_lease("lan2", "192.168.1.50");  // its static lease
    eventually("hosts reach the device",
               [] { return story::run("lab exec lan1 ping -c 1 -W 1 192.168.1.1").status == 0; });
}

TEST(LanMove, AnotherMaskIsAnotherPool)
{
    settle();
    must("prodctl lan move 192.168.0.1/16");
    EXPECT_EQ(bridge_address(), "192.168.0.1/16");
    EXPECT_EQ(setting("lan.mask"), "255.255.0.0");
    EXPECT_EQ(pool("start ip"), "192.168.0.2");
    EXPECT_EQ(pool("end ip"), "192.168.255.254");
    EXPECT_EQ(pool("mask"), "255.255.0.0");
    // Only the pool follows a mask.
    EXPECT_EQ(setting("dhcps.Staticip1"), "192.168.0.50;02:00:5e:00:53:02;phone");
    EXPECT_EQ(setting("wan1.dmzip"), "192.168.0.66");
    EXPECT_EQ(setting("wan2.dmzen"), "1");
    EXPECT_EQ(setting("lan.webip"), "192.168.0.9");
    EXPECT_EQ(record("port-map", "name=web", "ip"), "192.168.0.100");
    EXPECT_EQ(record("ip-mac-bind", "remark=phone", "ip"), "192.168.0.50");
    // A host whose old address is still in the network may keep it; its mask is the new one.
    must("lab client lan1 release && lab client lan1 renew && lab wait lan1");
    EXPECT_NE(must("ip -n lan1 -4 -o address show dev eth0").find("/16 "), std::string::npos);
}

TEST(LanMove, WithoutAPoolNothingMoves)
{
    settle();
    must("prodctl lan records del dhcps-list 1");
    const std::string before = everything();
    const story::Outcome outcome = story::run("prodctl lan move 192.168.1.1/24 2>&1");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "prodctl lan move: dhcps-list has no record of br0: nothing would follow the LAN\n");
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(bridge_address(), "192.168.0.1/24");
}

}  // namespace
