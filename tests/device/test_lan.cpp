// SPDX-License-Identifier: MIT
// The LAN of the booted device: hosts with leases, as the kernel's neighbours.
#include <gtest/gtest.h>

#include <string>

#include "prod_common_wifi.h"
#include "stories.hpp"
#include "support/files.hpp"

using story::address_of;
using story::eventually;
using story::Json;
using story::must;

namespace
{

constexpr const char *kLaptop = "02:00:5e:00:53:01";
constexpr const char *kPhone = "02:00:5e:00:53:02";
constexpr const char *kPrinter = "02:00:5e:00:53:03";

Json neighbour(const std::string &address)
{
    return Json::answer_of("prodctl lan neighbours --json")["neighbours"].where("address", address);
}

void is_known(const std::string &host, const std::string &mac, const std::string &name)
{
    const std::string address = address_of(host);
    ASSERT_EQ(address.rfind("192.168.0.", 0), 0U) << address;
    const Json found = neighbour(address);
    EXPECT_EQ(strcasecmp(found["mac"].text().c_str(), mac.c_str()), 0) << found["mac"].text();
    EXPECT_EQ(found["hostname"].text(), name);
}

TEST(Lan, HostsAreNeighboursWithNames)
{
    is_known("lan1", kLaptop, "laptop");
    is_known("lan2", kPhone, "phone");
}

TEST(Lan, AHostThatIsPluggedInLater)
{
    EXPECT_EQ(test::read_text("/etc/dhcps.leases").find("printer"), std::string::npos);
    must("lab link lan3 up && lab client lan3 start && lab wait lan3");
    is_known("lan3", kPrinter, "printer");
}

TEST(Lan, TheLeaseListIsReadAsItsReadersDo)
{
    const std::string leases = test::read_text("/etc/dhcps.leases");
    size_t hosts = 0;
    for (size_t at = 0; at < leases.size(); ++hosts) {
        const size_t end = leases.find('\n', at);
        ASSERT_NE(end, std::string::npos);
        char mac[1024];
        char address[1024];
        char name[1024];
        ASSERT_EQ(sscanf(leases.substr(at, end - at).c_str(),
                         "%*[^ ] %[^ ] %[^ ] %*[^*|:] %*[^ ] %[^\n]", mac, address, name),
                  3)
            << leases;
        const bool is_laptop = std::string(mac) == kLaptop;
        EXPECT_EQ(std::string(mac), is_laptop ? kLaptop : kPhone);
        EXPECT_EQ(std::string(address), address_of(is_laptop ? "lan1" : "lan2"));
        EXPECT_EQ(std::string(name), is_laptop ? "laptop" : "phone");
        at = end + 1;
    }
    EXPECT_EQ(hosts, 2U);
}

TEST(Lan, ALeaseGivenBackLeavesTheList)
{
    must("lab client lan2 release");
    eventually("the phone is gone", [] {
        return test::read_text("/etc/dhcps.leases").find("phone") == std::string::npos;
    });
    EXPECT_NE(test::read_text("/etc/dhcps.leases").find("laptop"), std::string::npos);
    must("lab client lan2 renew && lab wait lan2");
    is_known("lan2", kPhone, "phone");
}

TEST(Lan, StationsOfAWirelessNetwork)
{
    const char *const mac = "02:00:00:00:00:77";
    must(std::string("lab stations wl0.3 ") + mac);
    EXPECT_NE(test::read_text("/var/wifi/wl0.3.json").find(mac), std::string::npos);
    EXPECT_EQ(prod_check_smart_node(mac), 1);
    must("lab stations wl0.3");
    EXPECT_EQ(prod_check_smart_node(mac), 0);
}

TEST(Lan, WirelessNetworksThatAreOnAreInTheBridge)
{
    EXPECT_EQ(get_wifi_band_status(2), 1);
    EXPECT_EQ(get_wifi_band_status(5), 1);
    EXPECT_TRUE(test::exists("/sys/class/net/br0/brif/wl0"));
    EXPECT_TRUE(test::exists("/sys/class/net/br0/brif/wl1"));
    EXPECT_FALSE(test::exists("/sys/class/net/br0/brif/wl0.1"));
    must("ip link set wl0 down");
    EXPECT_EQ(get_wifi_band_status(2), 0);
}

TEST(Lan, TrafficBetweenTheDeviceAndAHost)
{
    const auto received = [] {
        return std::stoll(must("lab exec lan1 cat /sys/class/net/eth0/statistics/rx_bytes"));
    };
    const long long before = received();
    must("lab traffic lan1 1");
    EXPECT_GT(received() - before, 10 * 1200);
}

TEST(Lan, HostsReachTheDeviceAndTheInternet)
{
    must("lab exec lan1 ping -c 1 -W 2 192.168.0.1");
    eventually("the Internet behind the device", [] {
        return story::run("lab exec lan1 ping -c 1 -W 1 www.example.net").status == 0;
    });
    EXPECT_NE(must("lab exec lan1 nslookup www.example.net").find("198.51.100.1"),
              std::string::npos);
}

}  // namespace
