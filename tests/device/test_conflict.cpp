// SPDX-License-Identifier: MIT
// The provider hands out an address inside a network that the device serves.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "prod_common_check.h"
#include "prod_common_file.h"
#include "stories.hpp"

using story::eventually;
using story::Json;
using story::must;
using story::run;

namespace
{

/** What a WAN has from the provider's server. */
WAN_IP_INFO_STRU lease_of_wan1()
{
    WAN_IP_INFO_STRU lease = {};
    EXPECT_EQ(file_wan_ip_info_get(WAN_ID_1, &lease), HLX_OK);
    return lease;
}

/** Lets the provider's server hand out addresses of a network and waits until WAN 1 has one. */
void provider_moves_to(const std::string &net)
{
    // A client whose server is gone from its network starts over.
    must("lab client wan1 stop");
    must("lab pool dhcp1 " + net);
    must("lab client wan1 start");
    eventually("WAN 1 has an address of " + net, [&] {
        return run("ip -4 -o address show dev eth1").output.find(" " + net + ".") !=
               std::string::npos;
    });
    const WAN_IP_INFO_STRU lease = lease_of_wan1();
    EXPECT_EQ(std::string{lease.wan_ip}.rfind(net + ".1", 0), 0U) << lease.wan_ip;
    EXPECT_STREQ(lease.wan_mask, "255.255.255.0");
    EXPECT_EQ(std::string{lease.wan_gw}, net + ".1");
}

/** Every range that the device can serve, close to one another. */
void all_ranges_are_served()
{
    must("cfm set lan.portal_ip 192.168.1.1");
    must("cfm set wl.guest.dhcps_ip 192.168.2.1");
    must("cfm set wl.guest.dhcps_mask 255.255.255.0");
    must("cfm set pppoeserver.info '1;192.169.5.1;192.169.5.2;20'");
    must("cfm set pptp.ser.pptpdserver 192.168.3.1");
    must("cfm set l2tp.ser.l2tpdserver 192.168.4.1");
}

TEST(Conflict, TheProviderHandsOutAnAddressOfTheLan)
{
    all_ranges_are_served();
    provider_moves_to("192.168.0");
    WAN_IP_INFO_STRU wan = lease_of_wan1();

    PROD_IP_CONFLICT_STRU in_the_way = {};
    char proposal[16] = "";
    ASSERT_EQ(prod_check_ip_conflict(wan.wan_ip, wan.wan_mask, &in_the_way, proposal), 1);
    EXPECT_EQ(in_the_way.type, PROD_CONFLICT_IP_LAN);
    EXPECT_STREQ(in_the_way.ip, "192.168.0.1");
    EXPECT_STREQ(in_the_way.mask, "255.255.255.0");
    EXPECT_STREQ(proposal, "192.168.5.1") << "the next network that nobody has";

    // In nobody's way: not of the ranges that stay, nor of the WAN.
    PROD_IP_CONFLICT_STRU other = {};
    char ignored[16] = "";
    EXPECT_EQ(prod_check_ip_conflict(proposal, in_the_way.mask, &other, ignored), 0)
        << other.ip << " is in the way";
    const Json answer =
        Json::answer_of("prodctl lan check " + std::string{proposal} + "/24 --json");
    EXPECT_EQ(answer["clashes"].text(), "[]");
    EXPECT_EQ(run("prodctl lan check " + std::string{wan.wan_ip} + "/24").status, 1);

    // The LAN takes it, and the clash is over.
    must("cfm set lan.ip " + std::string{proposal});
    EXPECT_EQ(prod_check_ip_conflict(wan.wan_ip, wan.wan_mask, &other, ignored), 0);
    check_ip_conflict_change_itself(PROD_CONFLICT_IP_LAN, ignored);
    EXPECT_STREQ(ignored, "");
}

TEST(Conflict, AnAddressOfTheGuestNetwork)
{
    all_ranges_are_served();
    provider_moves_to("192.168.2");
    WAN_IP_INFO_STRU wan = lease_of_wan1();

    PROD_IP_CONFLICT_STRU in_the_way = {};
    char proposal[16] = "";
    ASSERT_EQ(prod_check_ip_conflict(wan.wan_ip, wan.wan_mask, &in_the_way, proposal), 1);
    EXPECT_EQ(in_the_way.type, PROD_CONFLICT_IP_GUEST);
    EXPECT_STREQ(proposal, "192.168.5.1");
    const std::string table =
        "RANGE  ADDRESS         PROPOSED\nguest  192.168.2.1/24  192.168.5.1\n";
    EXPECT_EQ(run("prodctl lan check " + std::string{wan.wan_ip} + "/24").output,
              std::string{wan.wan_ip} + "/24 clashes.\n" + table);
}

TEST(Conflict, TheProvidersOwnNetworkIsInNobodysWay)
{
    all_ranges_are_served();
    const WAN_IP_INFO_STRU wan = lease_of_wan1();
    PROD_IP_CONFLICT_STRU in_the_way = {};
    char proposal[16] = "as before";
    EXPECT_EQ(prod_check_ip_conflict(wan.wan_ip, wan.wan_mask, &in_the_way, proposal), 0);
    EXPECT_STREQ(proposal, "as before");

    // And so again after a while in the LAN's.
    provider_moves_to("192.168.0");
    must("lab client wan1 stop");
    must("lab pool dhcp1");
    must("lab client wan1 start");
    must("lab wait wan1");
    EXPECT_EQ(std::string{lease_of_wan1().wan_ip}.rfind("100.64.1.", 0), 0U);
}

}  // namespace
