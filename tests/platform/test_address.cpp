// SPDX-License-Identifier: MIT
#include "platform/address.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/files.hpp"
#include "support/network.hpp"

namespace
{

std::string hex(const unsigned char *mac)
{
    char text[18];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

TEST(MacFromText, SixFields)
{
    unsigned char mac[6];
    EXPECT_NE(ifaddrs_ethaddr_aton("00:11:22:aa:BB:fF", mac), 0);
    EXPECT_EQ(hex(mac), "00:11:22:aa:bb:ff");
    EXPECT_NE(ifaddrs_ethaddr_aton("1:2:3:4:5:a", mac), 0);
    EXPECT_EQ(hex(mac), "01:02:03:04:05:0a");
}

TEST(MacFromText, OtherTextIsRefused)
{
    for (const char *const text :
         {"", ":", "00:11:22:33:44", "00:11:22:33:44:", "00:11:22:33:44:55:66",
          "00:11:22:33:44:55 ", " 00:11:22:33:44:55", "00-11-22-33-44-55", "001122334455",
          "00:11:22:33:44:5g", "000:11:22:33:44:55", "-1:11:22:33:44:55", "00:11::33:44:55"}) {
        unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
        EXPECT_EQ(ifaddrs_ethaddr_aton(text, mac), 0) << text;
        EXPECT_EQ(hex(mac), "09:09:09:09:09:09") << text;
    }
    unsigned char mac[6];
    EXPECT_EQ(ifaddrs_ethaddr_aton(nullptr, mac), 0);
    EXPECT_EQ(ifaddrs_ethaddr_aton("00:11:22:33:44:55", nullptr), 0);
}

TEST(MacOfInterface, IsTheKernels)
{
    test::run("ip link add mac0 address 02:11:22:33:44:55 type veth peer name mac1");
    unsigned char mac[6] = {};
    const int before = test::open_descriptors();
    EXPECT_EQ(ifaddrs_get_if_netmac("mac0", mac), 0);
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_EQ(hex(mac), "02:11:22:33:44:55");
}

TEST(MacOfInterface, Failures)
{
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(ifaddrs_get_if_netmac("none0", mac), -1);
    EXPECT_EQ(errno, ENODEV);
    const std::string longest(5000, 'n');
    for (const char *const name :
         {static_cast<const char *>(nullptr), "", "sixteen_letters_", longest.c_str()}) {
        errno = 0;
        EXPECT_EQ(ifaddrs_get_if_netmac(name, mac), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    errno = 0;
    EXPECT_EQ(ifaddrs_get_if_netmac("lo", nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(hex(mac), "09:09:09:09:09:09");
}

TEST(MacOfInterface, APointToPointLinkHasNone)
{
    test::run("ip tuntap add dev tun7 mode tun");
    unsigned char mac[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(ifaddrs_get_if_netmac("tun7", mac), -1);
    EXPECT_EQ(errno, EAFNOSUPPORT);
    EXPECT_EQ(hex(mac), "09:09:09:09:09:09");
}

TEST(PrefixLength, OfAMask)
{
    EXPECT_EQ(ifaddrs_ipmask_to_numeric("255.255.255.0"), 24);
    EXPECT_EQ(ifaddrs_ipmask_to_numeric("255.255.255.255"), 32);
    EXPECT_EQ(ifaddrs_ipmask_to_numeric("128.0.0.0"), 1);
    EXPECT_EQ(ifaddrs_ipmask_to_numeric("0.0.0.0"), 0);
    EXPECT_EQ(ifaddrs_ipmask_to_numeric("255.0.255.0"), 8);
    EXPECT_EQ(ifaddrs_ipmask_to_numeric("no mask"), 32);
    EXPECT_EQ(ifaddrs_ipmask_to_numeric(""), 32);
    EXPECT_EQ(ifaddrs_ipmask_to_numeric(nullptr), 32);
}

TEST(SameNet, UnderTheShorterMask)
{
    const struct {
        const char *ip1;
        const char *mask1;
        const char *ip2;
        const char *mask2;
        bool same;
    } kCases[] = {
        {"192.168.0.1", "255.255.255.0", "192.168.0.200", "255.255.255.0", true},
        {"192.168.0.1", "255.255.255.0", "192.168.1.1", "255.255.255.0", false},
        {"192.168.0.1", "255.255.255.0", "192.168.1.1", "255.255.0.0", true},
        {"10.8.5.1", "255.255.0.0", "10.8.255.254", "255.255.255.252", true},
        {"10.8.5.1", "255.255.0.0", "10.9.0.1", "255.255.255.252", false},
        {"1.2.3.4", "255.255.255.255", "1.2.3.4", "255.255.255.255", true},
        {"1.2.3.4", "255.255.255.255", "1.2.3.5", "255.255.255.255", false},
        {"1.2.3.4", "0.0.0.0", "200.2.3.5", "255.255.255.255", true},
        {"255.255.255.255", "255.255.255.0", "255.255.255.1", "255.255.255.0", true},
        {"0.0.0.0", "255.0.0.0", "128.0.0.0", "128.0.0.0", false},
        // With gaps: they share 10.1.2.x, and 10.1.2.x with 10.2.3.x nothing.
        {"10.1.2.3", "255.0.255.0", "10.1.9.9", "255.255.0.0", true},
        {"10.1.2.3", "255.0.255.0", "10.2.3.9", "255.255.255.0", false},
    };
    for (const auto &c : kCases) {
        EXPECT_EQ(check_ip_is_same_net(c.ip1, c.mask1, c.ip2, c.mask2) != 0, c.same)
            << c.ip1 << " " << c.ip2;
        EXPECT_EQ(check_ip_is_same_net(c.ip2, c.mask2, c.ip1, c.mask1) != 0, c.same)
            << c.ip2 << " " << c.ip1;
    }
}

TEST(SameNet, TextThatIsNone)
{
    for (const char *const none : {"", "host", "1.2.3.256", "1.2.3.4x", "1.2.3.4.5"}) {
        EXPECT_EQ(check_ip_is_same_net(none, "0.0.0.0", "1.2.3.4", "0.0.0.0"), 0) << none;
        EXPECT_EQ(check_ip_is_same_net("1.2.3.4", "0.0.0.0", none, "0.0.0.0"), 0) << none;
        EXPECT_NE(check_ip_is_same_net("1.2.3.4", none, "1.2.3.4", none), 0) << "a host's mask";
        EXPECT_EQ(check_ip_is_same_net("1.2.3.4", none, "1.2.3.5", none), 0) << "a host's mask";
    }
    EXPECT_EQ(check_ip_is_same_net(nullptr, "0.0.0.0", "1.2.3.4", "0.0.0.0"), 0);
    EXPECT_EQ(check_ip_is_same_net("1.2.3.4", "0.0.0.0", nullptr, "0.0.0.0"), 0);
    EXPECT_NE(check_ip_is_same_net("1.2.3.4", nullptr, "1.2.3.4", nullptr), 0);
    EXPECT_EQ(check_ip_is_same_net("1.2.3.4", nullptr, "1.2.3.5", nullptr), 0);
}

/** The address after one; "none" when there is none. */
std::string after(const char *ip, u32 step_mask)
{
    char next[16] = "as before";
    const int result = ifaddrs_ip_increase(ip, step_mask, next, 0);
    EXPECT_TRUE(result == 0 || (result == -1 && strcmp(next, "as before") == 0)) << next;
    return result == 0 ? next : "none";
}

TEST(NextAddress, SameHostInTheNextNetwork)
{
    EXPECT_EQ(after("192.168.0.1", 0xFFFFFF00), "192.168.1.1");
    EXPECT_EQ(after("192.168.0.77", 0xFFFFFF00), "192.168.1.77");
    EXPECT_EQ(after("192.168.255.1", 0xFFFFFF00), "192.169.0.1");
    EXPECT_EQ(after("10.8.5.1", 0xFFFF0000), "10.9.5.1");
    EXPECT_EQ(after("10.255.5.1", 0xFFFF0000), "11.0.5.1");
    EXPECT_EQ(after("192.168.0.1", 0xFFFFFF80), "192.168.0.129");
    EXPECT_EQ(after("192.168.0.129", 0xFFFFFF80), "192.168.1.1");
    EXPECT_EQ(after("192.168.0.255", 0xFFFFFFFF), "192.168.1.0");
    EXPECT_EQ(after("10.1.2.3", 0xFF000000), "11.1.2.3");
    EXPECT_EQ(after("10.1.2.3", 0x80000000), "138.1.2.3");
    EXPECT_EQ(after("10.1.2.3", 0xFF00FF00), "10.1.3.3") << "gaps are passed over";
}

TEST(NextAddress, WhereNoHostsAre)
{
    EXPECT_EQ(after("126.255.255.9", 0xFFFFFF00), "128.0.0.9") << "loopback";
    EXPECT_EQ(after("127.3.4.9", 0xFFFFFF00), "128.3.5.9");
    EXPECT_EQ(after("126.1.2.3", 0xFF000000), "128.1.2.3");
    EXPECT_EQ(after("169.253.255.9", 0xFFFFFF00), "169.255.0.9") << "link-local";
    EXPECT_EQ(after("169.253.5.9", 0xFFFF0000), "169.255.5.9");
    EXPECT_EQ(after("168.254.5.9", 0xFF000000), "170.254.5.9");
    EXPECT_EQ(after("0.0.0.9", 0xFFFFFF00), "1.0.1.9") << "this network";
}

TEST(NextAddress, TheEnd)
{
    EXPECT_EQ(after("223.255.254.9", 0xFFFFFF00), "223.255.255.9");
    EXPECT_EQ(after("223.255.255.9", 0xFFFFFF00), "none");
    EXPECT_EQ(after("223.255.255.254", 0xFFFFFFFF), "223.255.255.255");
    EXPECT_EQ(after("223.255.255.255", 0xFFFFFFFF), "none");
    EXPECT_EQ(after("223.1.2.3", 0xFF000000), "none");
    EXPECT_EQ(after("224.0.0.1", 0xFFFFFF00), "none");
    EXPECT_EQ(after("255.255.255.255", 0xFFFFFFFF), "none");
    EXPECT_EQ(after("192.168.0.1", 0x80000000), "none");
    EXPECT_EQ(after("192.168.0.1", 0), "none") << "there is one network only";
    EXPECT_EQ(after("10.0.0.1", 0), "none");
}

TEST(NextAddress, WrongArguments)
{
    EXPECT_EQ(after("", 0xFFFFFF00), "none");
    EXPECT_EQ(after("host", 0xFFFFFF00), "none");
    EXPECT_EQ(after("1.2.3.256", 0xFFFFFF00), "none");
    EXPECT_EQ(after(nullptr, 0xFFFFFF00), "none");
    EXPECT_EQ(ifaddrs_ip_increase("1.2.3.4", 0xFFFFFF00, nullptr, 0), -1);
    char in_place[16] = "192.168.0.1";
    EXPECT_EQ(ifaddrs_ip_increase(in_place, 0xFFFFFF00, in_place, 0), 0);
    EXPECT_STREQ(in_place, "192.168.1.1");
}

TEST(NextAddress, AlwaysComesToAnEnd)
{
    for (const u32 mask : {0xFFFF0000U, 0xFFFFC000U, 0xFE000000U}) {
        std::string ip = "0.0.0.1";
        int steps = 0;
        for (; ip != "none" && steps < 70000 * 4; ++steps) {
            ip = after(ip.c_str(), mask);
        }
        EXPECT_EQ(ip, "none");
    }
}

TEST(AddressOfInterface, IsTheKernels)
{
    test::run(
        "ip link add ip0 type veth peer name ip1 &&"
        "ip address add 100.100.100.254/24 dev ip0 && ip address add 10.0.0.1/8 dev ip0");
    char address[16] = "xxxxxxxxxxxxxxx";
    const int before = test::open_descriptors();
    EXPECT_EQ(ifaddrs_get_ifip("ip0", address), 0);
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_STREQ(address, "100.100.100.254");
}

TEST(AddressOfInterface, Failures)
{
    test::run("ip link add bare0 type veth peer name bare1");
    char address[16] = "as it was";
    EXPECT_EQ(ifaddrs_get_ifip("bare0", address), -1);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(ifaddrs_get_ifip("none0", address), -1);
    EXPECT_EQ(errno, ENODEV);
    for (const char *const name : {static_cast<const char *>(nullptr), "", "sixteen_letters_"}) {
        errno = 0;
        EXPECT_EQ(ifaddrs_get_ifip(name, address), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_STREQ(address, "as it was");
    errno = 0;
    EXPECT_EQ(ifaddrs_get_ifip("lo", nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
