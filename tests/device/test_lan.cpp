// SPDX-License-Identifier: MIT
// The LAN of the booted device: hosts with leases, as the kernel's neighbours.
#include <gtest/gtest.h>

#include <string>

#include "stories.hpp"
#include "support/files.hpp"

using story::eventually;
using story::Json;
using story::must;

namespace
{

constexpr const char *kLaptop = "02:00:5e:00:53:01";
constexpr const char *kPhone = "02:00:5e:00:53:02";
constexpr const char *kPrinter = "02:00:5e:00:53:03";

std::string address_of(const std::string &host)
{
    return must("ip netns exec " + host +
                " ip -4 -o address show dev eth0 scope global | sed 's/.* inet //;s,/.*,,' | tr -d "
                "'\\n'");
}

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
