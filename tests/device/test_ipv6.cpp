// SPDX-License-Identifier: MIT
// The IPv6 side of the booted device: what the kernel makes of the provider's router
// advertisements.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "prod_common_ifaddrs.h"
#include "stories.hpp"
#include "support/files.hpp"

using story::eventually;
using story::Json;
using story::must;

namespace
{

Json interface(const std::string &name)
{
    return Json::answer_of("prodctl ipv6 show " + name + " --json")["ipv6"]["interfaces"].where(
        "interface", name);
}

/** The address that an interface of a host has by itself, as the kernel's own tool tells it. */
std::string link_local_of(const std::string &host, const std::string &ifname)
{
    return must(host + " ip -6 -o address show dev " + ifname +
                " scope link | sed -n 's/.* inet6 \\([^/]*\\).*/\\1/p' | tr -d '\\n'");
}

/** The address of a prefix that follows from the MAC of an interface. */
std::string address_by_mac(const char *prefix, const char *ifname)
{
    in6_addr network;
    in6_addr address;
    unsigned char mac[6];
    char text[INET6_ADDRSTRLEN] = "";
    EXPECT_EQ(inet_pton(AF_INET6, prefix, &network), 1);
    EXPECT_EQ(get_mac_by_ifname(ifname, mac), 1);
    EXPECT_EQ(generate_ipv6_by_mac(&network, 64, mac, &address), 1);
    return inet_ntop(AF_INET6, &address, text, sizeof(text));
}

TEST(Ipv6, Wan1HasTheProvidersPrefix)
{
    const Json wan = interface("eth1");
    const std::string global = address_by_mac("2001:db8:1::", "eth1");
    const std::string link_local = address_by_mac("fe80::", "eth1");
    EXPECT_EQ(wan["global"]["address"].text(), global);
    EXPECT_EQ(wan["global"]["prefix"].text(), "64");
    EXPECT_EQ(wan["link_local"]["address"].text(), link_local);
    EXPECT_EQ(wan["link_local"]["prefix"].text(), "64");
    EXPECT_EQ(wan["addresses"].text(), "[\"" + global + "/64\",\"" + link_local + "/64\"]");
    must("lab exec isp ping -6 -c 1 -W 2 " + global);
}

TEST(Ipv6, TheGatewayAndTheServersAreTheProviders)
{
    const Json ipv6 = Json::answer_of("prodctl ipv6 show --json")["ipv6"];
    EXPECT_EQ(ipv6["gateway"].text(), link_local_of("lab exec isp", "wan1"));
    EXPECT_EQ(ipv6["dns"].text(), "[\"2001:db8:1::1\",\"2001:db8:1::53\"]");
    EXPECT_EQ(ipv6["interfaces"].where("role", "WAN 1")["interface"].text(), "eth1");
    EXPECT_EQ(ipv6["interfaces"].where("role", "LAN")["interface"].text(), "br0");
    must("ping -6 -c 1 -W 2 2001:db8:1::53");
}

TEST(Ipv6, Wan2HasOnlyItsLinkLocalAddress)
{
    const Json wan = interface("eth2");
    EXPECT_FALSE(wan["global"].is_there());
    EXPECT_EQ(wan["link_local"]["address"].text(), link_local_of("", "eth2"));
    char text[41] = "kept";
    EXPECT_EQ(get_ipv6_str("eth2", text), 0);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(get_ipv6_prefix_len("eth2"), 0);
    EXPECT_EQ(get_link_ipv6_str("eth2", text), 1);
    EXPECT_EQ(get_link_ipv6_prefix_len("eth2"), 64);
}

TEST(Ipv6, AProviderThatFallsSilentAndComesBack)
{
    must("service stop ipv6 && lab server ra1 stop");
    must("ip link set eth1 down && ip link set eth1 up");  // which forgets addresses and routes
    must("service start ipv6");
    eventually("no server is known", [] { return !test::exists("/etc/resolv6.conf"); });
    const Json silent = Json::answer_of("prodctl ipv6 show --json")["ipv6"];
    EXPECT_EQ(silent["gateway"].text(), "");
    EXPECT_EQ(silent["dns"].text(), "[]");
    EXPECT_FALSE(interface("eth1")["global"].is_there());

    must("lab server ra1 start");
    must("lab wait ipv6");
    EXPECT_EQ(interface("eth1")["global"]["address"].text(),
              address_by_mac("2001:db8:1::", "eth1"));
    EXPECT_EQ(Json::answer_of("prodctl ipv6 show --json")["ipv6"]["gateway"].text(),
              link_local_of("lab exec isp", "wan1"));
}

TEST(Ipv6, OnTheStatusPage)
{
    const std::string page = must("prodctl status");
    for (const std::string &line :
         {std::string{"WAN 1 eth1\n  global      "} + address_by_mac("2001:db8:1::", "eth1") +
              "/64\n",
          std::string{"  DNS              2001:db8:1::1, 2001:db8:1::53\n"}}) {
        EXPECT_NE(page.find(line), std::string::npos) << page;
    }
}

}  // namespace
