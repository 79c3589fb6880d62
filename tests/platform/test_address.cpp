// SPDX-License-Identifier: MIT
#include "platform/address.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/files.hpp"

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
    ASSERT_EQ(system("ip link add mac0 address 02:11:22:33:44:55 type veth peer name mac1"), 0);
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
    EXPECT_EQ(ifaddrs_get_if_netmac(nullptr, mac), -1);
    EXPECT_EQ(ifaddrs_get_if_netmac("", mac), -1);
    EXPECT_EQ(ifaddrs_get_if_netmac("sixteen_letters_", mac), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ifaddrs_get_if_netmac(std::string(5000, 'n').c_str(), mac), -1);
    EXPECT_EQ(ifaddrs_get_if_netmac("lo", nullptr), -1);
    EXPECT_EQ(hex(mac), "09:09:09:09:09:09");
}

TEST(MacOfInterface, APointToPointLinkHasNone)
{
    ASSERT_EQ(system("ip tuntap add dev tun7 mode tun"), 0);
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

TEST(AddressOfInterface, IsTheKernels)
{
    ASSERT_EQ(
        system("ip link add ip0 type veth peer name ip1 &&"
               "ip address add 100.100.100.254/24 dev ip0 && ip address add 10.0.0.1/8 dev ip0"),
        0);
    char address[16] = "xxxxxxxxxxxxxxx";
    const int before = test::open_descriptors();
    EXPECT_EQ(ifaddrs_get_ifip("ip0", address), 0);
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_STREQ(address, "100.100.100.254");
}

TEST(AddressOfInterface, Failures)
{
    ASSERT_EQ(system("ip link add bare0 type veth peer name bare1"), 0);
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
