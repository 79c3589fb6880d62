// SPDX-License-Identifier: MIT
#include "prod_common_ifaddrs.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/address.h"
#include "platform/hardware.h"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"
#include "support/platform_log.hpp"

using test::log_line;
using test::platform_log;
using test::printed;
using test::printed_at;
using test::Prints;

namespace
{

// ---- what these tests put in the place of the platform and the C library ---------------------

const char *lan_name = "br0";
bool sockets_fail;
int answered_mtu = -1;  // -1: ask the kernel

}  // namespace

extern "C" {

char *iof_eth_name_get(eth_idx_t index)
{
    return index == LAN_1 ? const_cast<char *>(lan_name) : nullptr;
}

int socket(int domain, int type, int protocol) noexcept
{
    if (sockets_fail) {
        errno = EMFILE;
        return -1;
    }
    static const auto real = test::next(socket, "socket");
    return real(domain, type, protocol);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void *const argument = va_arg(args, void *);
    va_end(args);
    if (request == SIOCGIFMTU && answered_mtu >= 0) {
        static_cast<ifreq *>(argument)->ifr_mtu = answered_mtu;
        return 0;
    }
    static const auto real = test::next(ioctl, "ioctl");
    return real(fd, request, argument);
}
}

namespace
{

const std::string kHeading =
    "IP address       HW type     Flags       HW address            Mask     Device\n";

/** One line of the neighbour table as the kernel prints it. */
std::string entry(const std::string &ip, int flags, const std::string &mac,
                  const std::string &device)
{
    char line[256];
    snprintf(line, sizeof(line), "%-16s 0x%-10x0x%-10x%s     %-17s   %s\n", ip.c_str(), 1,
             static_cast<unsigned int>(flags), mac.c_str(), "*", device.c_str());
    return line;
}

using Mac = std::vector<unsigned char>;
const Mac kUntouched(6, 0xEE);

struct Found {
    int result;
    Mac mac;
    bool operator==(const Found &) const = default;
};

void PrintTo(const Found &found, std::ostream *out)
{
    *out << found.result << " " << testing::PrintToString(found.mac);
}

Found mac_by_ip(const char *ip)
{
    Found found{0, kUntouched};
    found.result = ifaddrs_get_mac_by_ip(ip, found.mac.data());
    // The traced variant must never differ.
    Found traced{0, kUntouched};
    traced.result = ifaddrs_get_mac_address_by_ipstr(ip, traced.mac.data());
    EXPECT_EQ(traced, found);
    return found;
}

std::string macstr_by_ip(const char *ip)
{
    char text[18] = "untouched";
    ifaddrs_get_macstr_by_ip(ip, text);
    return text;
}

std::string lan_macstr_by_ip(const char *ip)
{
    char text[18] = "untouched";
    const int result = lan_get_macstr_by_ip(ip, text);
    return std::to_string(result) + " " + text;
}

std::string ip_by_macstr(const char *mac)
{
    char ip[16] = "untouched";
    const int result = ifaddrs_get_ip_by_macstr(ip, mac);
    return std::to_string(result) + " " + ip;
}

// ---- conversions -----------------------------------------------------------------------------

TEST(IpmaskToNumeric, CountsTheLeadingOnes)
{
    EXPECT_EQ(ipmask_to_numeric("255.255.255.0"), 24);
    EXPECT_EQ(ipmask_to_numeric("255.255.255.255"), 32);
    EXPECT_EQ(ipmask_to_numeric("255.255.255.252"), 30);
    EXPECT_EQ(ipmask_to_numeric("128.0.0.0"), 1);
    EXPECT_EQ(ipmask_to_numeric("0.0.0.0"), 0);
    EXPECT_EQ(ipmask_to_numeric("255.0.255.0"), 8);
    EXPECT_EQ(ipmask_to_numeric("127.255.255.255"), 0);
}

TEST(IpmaskToNumeric, WhatIsNoAddressCountsAsAllOnes)
{
    const std::string longest(2307, '1');
    for (const char *text : {"", "mask", "255.255.255.256", "1.2.3.4.5", longest.c_str()}) {
        EXPECT_EQ(ipmask_to_numeric(text), 32) << text;
    }
    EXPECT_EQ(ipmask_to_numeric(nullptr), 32);
}

TEST(Ipv4IsValid, HostsOnly)
{
    EXPECT_EQ(ipv4_is_valid("192.168.0.1"), 1);
    EXPECT_EQ(ipv4_is_valid("0.0.0.1"), 1);
    const std::string longest(2307, '1');
    for (const char *text : {"0.0.0.0", "255.255.255.255", "", "x", "1.2.3.", longest.c_str()}) {
        EXPECT_EQ(ipv4_is_valid(text), 0) << text;
    }
    EXPECT_EQ(ipv4_is_valid(nullptr), 0);
}

TEST(MacStrToBin, ReadsSixFields)
{
    Mac mac(6);
    EXPECT_EQ(mac_str_to_bin("00:11:22:AA:BB:FF", mac.data()), 1);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0xAA, 0xBB, 0xFF}));
    EXPECT_EQ(mac_str_to_bin("aa:bb:cc:dd:ee:ff", mac.data()), 1);
    EXPECT_EQ(mac, (Mac{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}));
    EXPECT_EQ(mac_str_to_bin("1:2:3:4:5:6 and more", mac.data()), 1);
    EXPECT_EQ(mac, (Mac{1, 2, 3, 4, 5, 6}));
}

TEST(MacStrToBin, AnythingElseFails)
{
    Mac mac(6);
    const std::string longest(2307, 'f');
    for (const char *text : {"", "x", "00:11:22:33:44", "00-11-22-33-44-55", "001122334455",
                             "00:11:22:33:44:", "00:11:22:33:44:xx", longest.c_str()}) {
        EXPECT_EQ(mac_str_to_bin(text, mac.data()), 0) << text;
    }
    EXPECT_EQ(mac_str_to_bin(nullptr, mac.data()), 0);
    EXPECT_EQ(mac_str_to_bin("00:11:22:33:44:55", nullptr), 0);
    mac = kUntouched;
    EXPECT_EQ(mac_str_to_bin("00:11:22", mac.data()), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0xEE, 0xEE, 0xEE})) << "fewer fields fill only those";
}

TEST(MacBinToStr, UpperCaseAndBounded)
{
    const Mac mac{0x00, 0x1a, 0x2B, 0xcc, 0xdd, 0xff};
    char text[18];
    EXPECT_EQ(mac_bin_to_str(mac.data(), text, sizeof(text)), 1);
    EXPECT_STREQ(text, "00:1A:2B:CC:DD:FF");
    EXPECT_EQ(mac_bin_to_str(mac.data(), text, 6), 1);
    EXPECT_STREQ(text, "00:1A");
    text[0] = 'x';
    EXPECT_EQ(mac_bin_to_str(mac.data(), text, 0), 0);
    EXPECT_EQ(mac_bin_to_str(nullptr, text, sizeof(text)), 0);
    EXPECT_EQ(mac_bin_to_str(mac.data(), nullptr, 18), 0);
    EXPECT_EQ(text[0], 'x');
}

TEST(MacIncrease, CountsWithCarries)
{
    Mac mac{0x00, 0x11, 0x22, 0x33, 0x44, 0x54};
    EXPECT_EQ(ifaddrs_mac_increase(mac.data(), 5), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}));
    mac = {0x00, 0x11, 0x22, 0x33, 0x44, 0xFF};
    EXPECT_EQ(ifaddrs_mac_increase(mac.data(), 5), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x11, 0x22, 0x33, 0x45, 0x00}));
    mac = {0x00, 0x11, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(ifaddrs_mac_increase(mac.data(), 4), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0x12, 0x00, 0x00, 0x00, 0xFF}));
    mac = {0x00, 0xFE, 0, 0, 0, 0};
    EXPECT_EQ(ifaddrs_mac_increase(mac.data(), 1), 0);
    EXPECT_EQ(mac, (Mac{0x00, 0xFF, 0, 0, 0, 0}));
}

TEST(MacIncrease, TellsThePlatformsLogger)
{
    Mac mac(6, 0xFF);
    platform_log().clear();
    EXPECT_EQ(printed_at(PROD_DBG_TRACE,
                         [] {
                             Mac counted(6);
                             ifaddrs_mac_increase(counted.data(), 5);
                         }),
              "");
    EXPECT_EQ(platform_log(),
              (std::vector<std::string>{"ifaddrs_mac_increase 0 common_so: function entry!",
                                        "ifaddrs_mac_increase 0 common_so: function exit!"}));
    platform_log().clear();
    printed([&] { ifaddrs_mac_increase(mac.data(), 5); });
    EXPECT_EQ(platform_log(),
              std::vector<std::string>{"ifaddrs_mac_increase 0 common_so: function entry!"});
}

TEST(MacIncrease, TheVendorsByteNeverChanges)
{
    Mac mac{0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_THAT(printed([&] { EXPECT_EQ(ifaddrs_mac_increase(mac.data(), 5), -1); }),
                Prints(log_line(PROD_DBG_ERROR, "ifaddrs_mac_increase", "mac increase is fail.")));
    EXPECT_EQ(mac, (Mac{0, 0, 0, 0, 0, 0}));
    mac = {0x42, 0xFF, 0xFF, 0x33, 0x44, 0x55};
    printed([&] { EXPECT_EQ(ifaddrs_mac_increase(mac.data(), 2), -1); });
    EXPECT_EQ(mac, (Mac{0x42, 0, 0, 0x33, 0x44, 0x55}));
}

TEST(MacIncrease, BadArguments)
{
    const Mac before{0, 1, 2, 3, 4, 5};
    Mac mac = before;
    const std::string complaint = log_line(PROD_DBG_ERROR, "ifaddrs_mac_increase", "arg is err.");
    for (const int at : {0, 6, -1, 2147483647}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(ifaddrs_mac_increase(mac.data(), at), -1); }),
                    Prints(complaint));
    }
    EXPECT_THAT(printed([] { EXPECT_EQ(ifaddrs_mac_increase(nullptr, 5), -1); }),
                Prints(complaint));
    EXPECT_EQ(mac, before);
}

// ---- the neighbour table the kernel made -----------------------------------------------------

/** A LAN bridge, two WAN-side VLAN devices, and neighbours the kernel holds. */
class RealNeighbours : public testing::Test
{
  protected:
    static void SetUpTestSuite()
    {
        test::run("ip link add br0 type bridge");
        test::run("ip link add vlan5 type bridge");
        test::run("ip link add vlan10 type bridge");
        test::run("ip address add 192.168.7.1/24 dev br0");
        test::run("ip address add 10.5.0.1/24 dev vlan5");
        test::run("ip address add 10.10.0.1/24 dev vlan10");
        for (const char *device : {"br0", "vlan5", "vlan10"}) {
            test::run("ip link set %s up", device);
        }
        test::run("ip neigh add 192.168.7.2 lladdr 02:aa:00:00:00:02 dev br0");
        test::run("ip neigh add 10.5.0.2 lladdr 02:aa:00:00:05:02 dev vlan5");
        test::run("ip neigh add 10.10.0.2 lladdr 02:aa:00:00:0a:02 dev vlan10");
        test::run("ip neigh add 192.168.7.9 dev br0 nud incomplete");
    }

    static void TearDownTestSuite()
    {
        for (const char *device : {"br0", "vlan5", "vlan10"}) {
            test::run("ip link delete %s", device);
        }
    }
};

TEST_F(RealNeighbours, MacByAddress)
{
    EXPECT_EQ(mac_by_ip("192.168.7.2"), (Found{0, {2, 0xAA, 0, 0, 0, 2}}));
    EXPECT_EQ(mac_by_ip("10.5.0.2"), (Found{0, {2, 0xAA, 0, 0, 5, 2}}));
    EXPECT_EQ(mac_by_ip("192.168.7.3"), (Found{3, kUntouched}));
    EXPECT_EQ(macstr_by_ip("192.168.7.2"), "02:AA:00:00:00:02");
    EXPECT_EQ(macstr_by_ip("192.168.7.3"), "00:00:00:00:00:00");
}

TEST_F(RealNeighbours, AMappedAddress)
{
    EXPECT_EQ(mac_by_ip("::ffff:192.168.7.2"), (Found{0, {2, 0xAA, 0, 0, 0, 2}}));
    EXPECT_EQ(mac_by_ip("::FFFF:192.168.7.2"), (Found{0, {2, 0xAA, 0, 0, 0, 2}}));
}

TEST_F(RealNeighbours, AnIncompleteEntryMatchesAMappedAddressOnly)
{
    ASSERT_THAT(test::read_text("/proc/net/arp"),
                testing::ContainsRegex("192\\.168\\.7\\.9 +0x1 +0x0 "));
    EXPECT_EQ(mac_by_ip("192.168.7.9"), (Found{3, kUntouched}));
    EXPECT_EQ(mac_by_ip("::ffff:192.168.7.9"), (Found{0, {0, 0, 0, 0, 0, 0}}));
    EXPECT_EQ(lan_macstr_by_ip("192.168.7.9"), "0 untouched");
}

TEST_F(RealNeighbours, OnTheLanOnly)
{
    EXPECT_EQ(lan_macstr_by_ip("192.168.7.2"), "1 02:aa:00:00:00:02");
    EXPECT_EQ(lan_macstr_by_ip("10.10.0.2"), "1 02:aa:00:00:0a:02");
    EXPECT_EQ(lan_macstr_by_ip("10.5.0.2"), "0 untouched") << "vlan5 is on the WAN side";
    EXPECT_EQ(lan_macstr_by_ip("192.168.7.3"), "0 untouched");
    EXPECT_EQ(lan_macstr_by_ip("::ffff:192.168.7.2"), "0 untouched");
}

TEST_F(RealNeighbours, AddressByMac)
{
    EXPECT_EQ(ip_by_macstr("02:aa:00:00:00:02"), "1 192.168.7.2");
    EXPECT_EQ(ip_by_macstr("02:AA:00:00:0A:02"), "1 10.10.0.2");
    EXPECT_EQ(ip_by_macstr("02:AA:00:00:00:03"), "0 0.0.0.0");
    EXPECT_EQ(ip_by_macstr("00:00:00:00:00:00"), "0 0.0.0.0") << "the incomplete entry";
    EXPECT_EQ(ip_by_macstr(""), "0 0.0.0.0");
}

TEST_F(RealNeighbours, NoDescriptorIsLost)
{
    const int before = test::open_descriptors();
    mac_by_ip("192.168.7.2");
    mac_by_ip("192.168.7.3");
    lan_macstr_by_ip("192.168.7.2");
    ip_by_macstr("02:AA:00:00:00:03");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(ResolvedNeighbour, TheKernelAskedForIt)
{
    const test::Peer peer{"uplink", "198.51.100.1/24", "198.51.100.2/24", "02:bb:00:00:00:77"};
    peer.reach("198.51.100.2");
    EXPECT_EQ(mac_by_ip("198.51.100.2"), (Found{0, {2, 0xBB, 0, 0, 0, 0x77}}));
    EXPECT_EQ(ip_by_macstr("02:bb:00:00:00:77"), "1 198.51.100.2");
}

TEST(NoNeighbours, TheResultLooksLikeSuccess)
{
    EXPECT_EQ(mac_by_ip("192.168.7.2"), (Found{0, kUntouched}));
    EXPECT_EQ(macstr_by_ip("192.168.7.2"), "00:00:00:00:00:00");
    EXPECT_EQ(ip_by_macstr("02:AA:00:00:00:02"), "0 0.0.0.0");
}

// ---- tables the kernel would not make --------------------------------------------------------

class OddTables : public testing::Test
{
  protected:
    test::FakeProcNet proc_;

    void table(const std::string &lines) const { proc_.write("arp", kHeading + lines); }
};

TEST_F(OddTables, Missing)
{
    proc_.remove("arp");
    const auto all = [] {
        Mac mac = kUntouched;
        EXPECT_EQ(ifaddrs_get_mac_by_ip("1.2.3.4", mac.data()), -1);
        EXPECT_EQ(ifaddrs_get_mac_address_by_ipstr("1.2.3.4", mac.data()), -1);
        EXPECT_EQ(mac, kUntouched);
        EXPECT_EQ(macstr_by_ip("1.2.3.4"), "0.0.0.0");
        EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "0 untouched");
        EXPECT_EQ(ip_by_macstr("02:AA:00:00:00:02"), "0 untouched");
    };
    const std::string missing = "Failed(2) to fopen, No such file or directory.";
    EXPECT_THAT(
        printed(all),
        Prints(log_line(PROD_DBG_ERROR, "ifaddrs_get_mac_by_ip", "fopen file is fail.") +
               log_line(PROD_DBG_ERROR, "ifaddrs_get_mac_address_by_ipstr", "fopen file is fail.") +
               log_line(PROD_DBG_ERROR, "ifaddrs_get_mac_by_ip", "fopen file is fail.") +
               log_line(PROD_DBG_ERROR, "lan_get_macstr_by_ip", missing) +
               log_line(PROD_DBG_ERROR, "ifaddrs_get_ip_by_macstr", missing)));
}

TEST_F(OddTables, TracesOfTheTracedLookUp)
{
    const std::string name = "ifaddrs_get_mac_address_by_ipstr";
    const std::string enter = log_line(PROD_DBG_TRACE, name, "ENTER >>> " + name);
    const std::string leave = log_line(PROD_DBG_TRACE, name, "LEAVE <<< " + name);
    const auto look_up = [] {
        Mac mac(6);
        ifaddrs_get_mac_address_by_ipstr("1.2.3.4", mac.data());
    };
    table(entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0"));
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, look_up), Prints(enter + leave));
    table("");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, look_up), Prints(enter + leave));
    EXPECT_EQ(printed_at(PROD_DBG_INFO, look_up), "");
    proc_.remove("arp");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, look_up),
                Prints(enter + log_line(PROD_DBG_ERROR, name, "fopen file is fail.")));
    table(entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0"));
    EXPECT_EQ(printed_at(PROD_DBG_TRACE,
                         [] {
                             Mac mac(6);
                             ifaddrs_get_mac_by_ip("1.2.3.4", mac.data());
                         }),
              "");
}

TEST_F(OddTables, TheResultIsTheFieldCountOfTheLastLine)
{
    const std::string good = entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0");
    const struct {
        const char *last;
        int fields;
    } rows[] = {{"5.6.7.8 0x1 0x2 02:aa:00:00:00:03 * br0\n", 3},
                {"5.6.7.8 0x1 0x2 02:aa:00:00:00:03\n", 3},
                {"5.6.7.8 0x1 0x2\n", 2},
                {"5.6.7.8 0x1\n", 1},
                {"5.6.7.8 0x1 none 02:aa:00:00:00:03\n", 1},
                {"5.6.7.8", 1},
                {"\n", 0},
                {"   \t\n", 0}};
    for (const auto &row : rows) {
        table(good + row.last);
        EXPECT_EQ(mac_by_ip("9.9.9.9"), (Found{row.fields, kUntouched})) << row.last;
    }
    proc_.write("arp", "");
    EXPECT_EQ(mac_by_ip("9.9.9.9"), (Found{0, kUntouched}));
    proc_.write("arp", "only a heading without its newline");
    EXPECT_EQ(mac_by_ip("9.9.9.9"), (Found{0, kUntouched}));
}

TEST_F(OddTables, AnEntryWhoseMacIsNoneIsPassedOver)
{
    table(entry("1.2.3.4", 2, "not-a-mac", "br0") +
          entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0"));
    EXPECT_EQ(mac_by_ip("1.2.3.4"), (Found{0, {2, 0xAA, 0, 0, 0, 2}}));
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "1 not-a-mac") << "text is handed on as it stands";
}

TEST_F(OddTables, TheFirstMatchCounts)
{
    table(entry("1.2.3.4", 0, "02:aa:00:00:00:01", "br0") +
          entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0") +
          entry("1.2.3.4", 2, "02:aa:00:00:00:03", "br0") +
          entry("1.2.3.5", 2, "02:aa:00:00:00:02", "br0"));
    EXPECT_EQ(mac_by_ip("1.2.3.4"), (Found{0, {2, 0xAA, 0, 0, 0, 2}}));
    EXPECT_EQ(mac_by_ip("::ffff:1.2.3.4"), (Found{0, {2, 0xAA, 0, 0, 0, 1}}));
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "1 02:aa:00:00:00:02");
    EXPECT_EQ(ip_by_macstr("02:AA:00:00:00:02"), "1 1.2.3.4");
}

TEST_F(OddTables, OfTheCallersAddressOnlyTheFirst16CharactersCount)
{
    table(entry("111.222.111.222", 2, "02:aa:00:00:00:02", "br0"));
    EXPECT_EQ(mac_by_ip("111.222.111.222").result, 0);
    EXPECT_EQ(mac_by_ip("111.222.111.2220").result, 3);
    EXPECT_EQ(mac_by_ip(std::string(2307, '1').c_str()).result, 3);
}

TEST_F(OddTables, ShortTextsAreNotReadBeyondTheirEnd)
{
    table(entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0"));
    for (const std::size_t length : {0U, 1U, 6U, 7U, 8U}) {
        const auto text = std::make_unique<char[]>(length + 1);  // exactly that room
        memset(text.get(), ':', length);
        text[length] = '\0';
        EXPECT_EQ(mac_by_ip(text.get()), (Found{3, kUntouched})) << length;
    }
}

TEST_F(OddTables, WhichDevicesAreTheLans)
{
    const struct {
        const char *device;
        bool lan;
    } rows[] = {{"br0", true},      {"vlan10", true},
                {"vlan4094", true}, {"vlan9", false},
                {"vlan0", false},   {"vlan5", false},
                {"vlan-10", false}, {"vlan", false},
                {"vlanx", false},   {"br1", false},
                {"br", false},      {"br00", false},
                {"eth0.10", false}, {"vlan99999999999", true},
                {"vlan10.7", true}};
    for (const auto &row : rows) {
        table(entry("1.2.3.4", 2, "02:aa:00:00:00:02", row.device));
        EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), row.lan ? "1 02:aa:00:00:00:02" : "0 untouched")
            << row.device;
    }
    table("1.2.3.4 0x1 0x2 02:aa:00:00:00:02\n");
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "0 untouched") << "no device at all";
    table(entry("1.2.3.4", 2, "02:aa:00:00:00:02", "eth1") +
          entry("1.2.3.4", 2, "02:aa:00:00:00:03", "br0"));
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "1 02:aa:00:00:00:03") << "the scan goes on";
}

TEST_F(OddTables, FieldsLongerThanTheyShouldBe)
{
    table(std::string(200, '1') + " 0x1 0x2 " + std::string(40, 'a') + " * br0\n" +
          entry("1.2.3.4", 2, "02:aa:00:00:00:02", "a-device-longer-than-any"));
    EXPECT_EQ(mac_by_ip("1.2.3.4"), (Found{0, {2, 0xAA, 0, 0, 0, 2}}));
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "0 untouched");
    EXPECT_EQ(lan_macstr_by_ip(std::string(15, '1').c_str()), "0 untouched");
}

TEST_F(OddTables, ALongLineComesAsSeveral)
{
    // The 255th character of the line is the last of its first part.
    table(std::string(255, ' ') + "1.2.3.4 0x1 0x2 02:aa:00:00:00:02 * br0\n");
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "1 02:aa:00:00:00:02");
    table(std::string(254, ' ') + "1.2.3.4 0x1 0x2 02:aa:00:00:00:02 * br0\n");
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "0 untouched");
}

TEST_F(OddTables, BinaryAndEndless)
{
    std::string noise;
    for (int i = 0; i < 100000; ++i) {
        noise += static_cast<char>(i * 7919 >> 3);
    }
    table(noise + "\n" + entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0"));
    EXPECT_EQ(lan_macstr_by_ip("1.2.3.4"), "1 02:aa:00:00:00:02");
    table(std::string(1000000, 'x'));
    EXPECT_EQ(mac_by_ip("1.2.3.4"), (Found{1, kUntouched}));
    EXPECT_EQ(ip_by_macstr("02:AA:00:00:00:02"), "0 0.0.0.0");
    table(std::string(1000, '\0') + "\n");
    EXPECT_EQ(mac_by_ip("1.2.3.4"), (Found{0, kUntouched}));
}

TEST_F(OddTables, NullArguments)
{
    table(entry("1.2.3.4", 2, "02:aa:00:00:00:02", "br0"));
    EXPECT_EQ(printed([] {
                  Mac mac = kUntouched;
                  char text[18] = "untouched";
                  EXPECT_EQ(ifaddrs_get_mac_by_ip(nullptr, mac.data()), -1);
                  EXPECT_EQ(ifaddrs_get_mac_by_ip("1.2.3.4", nullptr), -1);
                  EXPECT_EQ(ifaddrs_get_mac_address_by_ipstr(nullptr, mac.data()), -1);
                  EXPECT_EQ(ifaddrs_get_mac_address_by_ipstr("1.2.3.4", nullptr), -1);
                  EXPECT_EQ(mac, kUntouched);
                  EXPECT_EQ(macstr_by_ip(nullptr), "0.0.0.0");
                  ifaddrs_get_macstr_by_ip("1.2.3.4", nullptr);
                  EXPECT_EQ(lan_get_macstr_by_ip(nullptr, text), 0);
                  EXPECT_EQ(lan_get_macstr_by_ip("1.2.3.4", nullptr), 0);
                  EXPECT_EQ(ifaddrs_get_ip_by_macstr(text, nullptr), 0);
                  EXPECT_EQ(ifaddrs_get_ip_by_macstr(nullptr, "02:aa:00:00:00:02"), 0);
                  EXPECT_STREQ(text, "untouched");
              }),
              "");
}

// ---- interfaces ------------------------------------------------------------------------------

/** An interface with an odd MTU, a mask and a MAC of its own, and one without an address. */
class RealInterfaces : public testing::Test
{
  protected:
    static void SetUpTestSuite()
    {
        test::run("ip link add wan_eth type bridge");
        test::run("ip link set wan_eth address 02:cc:01:02:03:04 mtu 1400 up");
        test::run("ip address add 203.0.113.5/28 dev wan_eth");
        test::run("ip link add bare_eth type bridge");
        test::run("ip link add fifteen_letters type bridge");
        test::run("ip link set fifteen_letters address 02:cc:0f:0f:0f:0f mtu 1300");
        test::run("ip address add 203.0.114.5/30 dev fifteen_letters");
    }

    static void TearDownTestSuite()
    {
        for (const char *device : {"wan_eth", "bare_eth", "fifteen_letters"}) {
            test::run("ip link delete %s", device);
        }
    }
};

TEST_F(RealInterfaces, Mtu)
{
    EXPECT_EQ(get_mtu_by_ifname("wan_eth"), 1400);
    EXPECT_EQ(get_mtu_by_ifname("fifteen_letters"), 1300);
    EXPECT_EQ(get_mtu_by_ifname("fifteen_letters_and_more"), 1300) << "cut at 15 characters";
    EXPECT_EQ(get_mtu_by_ifname(nullptr), 1500);
    answered_mtu = 0;
    EXPECT_EQ(get_mtu_by_ifname("wan_eth"), 1500);
    answered_mtu = -1;
}

TEST_F(RealInterfaces, MtuFailures)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(get_mtu_by_ifname("none"), 1500); }),
                Prints(log_line(PROD_DBG_ERROR, "get_mtu_by_ifname",
                                "Failed(19) to ioctl SIOCGIFMTU none, No such device.")));
    EXPECT_THAT(printed([] { EXPECT_EQ(get_mtu_by_ifname(""), 1500); }),
                Prints(log_line(PROD_DBG_ERROR, "get_mtu_by_ifname",
                                "Failed(19) to ioctl SIOCGIFMTU , No such device.")));
}

TEST_F(RealInterfaces, Mask)
{
    EXPECT_EQ(ifaddrs_get_interface_mask("wan_eth"), inet_addr("255.255.255.240"));
    EXPECT_EQ(ifaddrs_get_interface_mask("fifteen_letters_and_more"), inet_addr("255.255.255.252"));
    EXPECT_EQ(printed([] {
                  EXPECT_EQ(ifaddrs_get_interface_mask("bare_eth"), 0U);
                  EXPECT_EQ(ifaddrs_get_interface_mask("none"), 0U);
                  EXPECT_EQ(ifaddrs_get_interface_mask(nullptr), 0U);
              }),
              "");
}

TEST_F(RealInterfaces, MacOfAnInterface)
{
    Mac mac = kUntouched;
    EXPECT_EQ(get_mac_by_ifname("wan_eth", mac.data()), 1);
    EXPECT_EQ(mac, (Mac{2, 0xCC, 1, 2, 3, 4}));
    EXPECT_EQ(get_mac_by_ifname("fifteen_letters_and_more", mac.data()), 1);
    EXPECT_EQ(mac, (Mac{2, 0xCC, 15, 15, 15, 15}));
    mac = kUntouched;
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_mac_by_ifname("none", mac.data()), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "get_mac_by_ifname",
                                "Failed(19) to get SIOCGIFHWADDR of none, No such device.")));
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(get_mac_by_ifname(nullptr, mac.data()), 0);
                  EXPECT_EQ(get_mac_by_ifname("wan_eth", nullptr), 0);
              }),
              "");
    EXPECT_EQ(mac, kUntouched);
}

TEST_F(RealInterfaces, NoSocket)
{
    sockets_fail = true;
    const std::string text = printed([] {
        Mac mac = kUntouched;
        EXPECT_EQ(get_mtu_by_ifname("wan_eth"), 1500);
        EXPECT_EQ(ifaddrs_get_interface_mask("wan_eth"), 0U);
        EXPECT_EQ(get_mac_by_ifname("wan_eth", mac.data()), 0);
        EXPECT_EQ(mac, kUntouched);
    });
    sockets_fail = false;
    const std::string message = "Failed(24) to create socket, Too many open files.";
    EXPECT_THAT(text, Prints(log_line(PROD_DBG_ERROR, "get_mtu_by_ifname", message) +
                             log_line(PROD_DBG_ERROR, "ifaddrs_get_interface_mask", message) +
                             log_line(PROD_DBG_ERROR, "get_mac_by_ifname", message)));
}

TEST_F(RealInterfaces, SocketsAreClosed)
{
    const int before = test::open_descriptors();
    Mac mac(6);
    get_mtu_by_ifname("wan_eth");
    ifaddrs_get_interface_mask("wan_eth");
    ifaddrs_get_interface_mask("bare_eth");
    get_mac_by_ifname("wan_eth", mac.data());
    printed([&] {
        get_mtu_by_ifname("none");
        get_mac_by_ifname("none", mac.data());
    });
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(RealInterfaces, TheLansNameAndMac)
{
    const auto lan_mac = [] {
        char text[18] = "untouched";
        get_lan_mac(text);
        return std::string{text};
    };
    EXPECT_STREQ(ifaddrs_get_lan_ifname(), "br0");
    lan_name = "wan_eth";
    EXPECT_STREQ(ifaddrs_get_lan_ifname(), "wan_eth");
    EXPECT_EQ(lan_mac(), "02:CC:01:02:03:04");
    lan_name = "none";
    EXPECT_EQ(lan_mac(), "00:00:00:00:00:00");
    lan_name = nullptr;
    EXPECT_EQ(ifaddrs_get_lan_ifname(), nullptr);
    EXPECT_EQ(lan_mac(), "00:00:00:00:00:00");
    lan_name = "br0";
    get_lan_mac(nullptr);
}

// ---- client records --------------------------------------------------------------------------

TEST(GetHostnameByMac, TheFirstThatMatches)
{
    DHCPS_CLIENT_LIST_STRU list[] = {{"02:AA:00:00:00:01", "192.168.0.2", "laptop"},
                                     {"02:AA:00:00:00:02", "192.168.0.3", ""},
                                     {"02:AA:00:00:00:03", "192.168.0.4", "(null)"},
                                     {"02:AA:00:00:00:01", "192.168.0.5", "later"},
                                     {"02:AA:00:00:00:02", "192.168.0.6", "later"}};
    EXPECT_EQ(get_hostname_by_mac(list, 5, "02:AA:00:00:00:01"), list[0].hostname);
    EXPECT_STREQ(get_hostname_by_mac(list, 5, "02:aa:00:00:00:01"), "laptop");
    EXPECT_EQ(get_hostname_by_mac(list, 5, "02:AA:00:00:00:02"), nullptr) << "it gave no name";
    EXPECT_EQ(get_hostname_by_mac(list, 5, "02:AA:00:00:00:03"), nullptr);
    EXPECT_EQ(get_hostname_by_mac(list, 5, "02:AA:00:00:00:04"), nullptr);
    EXPECT_EQ(get_hostname_by_mac(list, 1, "02:AA:00:00:00:02"), nullptr);
    EXPECT_EQ(get_hostname_by_mac(list, 0, "02:AA:00:00:00:01"), nullptr);
    EXPECT_EQ(get_hostname_by_mac(list, -1, "02:AA:00:00:00:01"), nullptr);
    EXPECT_EQ(get_hostname_by_mac(nullptr, 5, "02:AA:00:00:00:01"), nullptr);
    EXPECT_EQ(get_hostname_by_mac(list, 5, nullptr), nullptr);
}

/** A parsed view of the online clients. */
class OnlineClients : public testing::Test
{
  protected:
    static constexpr const char *kMac = "02:AA:00:00:00:01";

    void SetUp() override { memset(&info_, 0xEE, sizeof(info_)); }

    int look_up(const std::string &json, const char *mac = kMac)
    {
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> view{cJSON_Parse(json.c_str()),
                                                                   cJSON_Delete};
        EXPECT_NE(view, nullptr) << json;
        return get_ip_info_by_ipmac(view.get(), "192.168.0.2", mac, &info_);
    }

    const char *ip() const { return reinterpret_cast<const char *>(info_.ip); }

    USER_INFO_STRU info_;
};

TEST_F(OnlineClients, FillsTheDocumentedFieldsAndNoOther)
{
    EXPECT_EQ(look_up(R"({"List":[
        {"Mac":"02:AA:00:00:00:02","Ip":"192.168.0.9"},
        {"Mac":"02:AA:00:00:00:01","Ip":"192.168.0.2","Connect":3,"UpBytes":"1",
         "DownBytes":"18446744073709551615","LastUpBytes":"3","LastDownBytes":"4",
         "ThisCalcTime":"5","LastCalcTime":"6","AliveTime":"7"},
        {"Mac":"02:AA:00:00:00:01","Ip":"192.168.0.7"}]})"),
              1);
    EXPECT_STREQ(ip(), "192.168.0.2");
    EXPECT_EQ(info_.connect, 3U);
    EXPECT_EQ(info_.up_bytes, 1U);
    EXPECT_EQ(info_.down_bytes, 18446744073709551615ULL);
    EXPECT_EQ(info_.last_up_bytes, 3U);
    EXPECT_EQ(info_.last_down_bytes, 4U);
    EXPECT_EQ(info_.thisCalcTime, 5U);
    EXPECT_EQ(info_.lastCalcTime, 6U);
    EXPECT_EQ(info_.alive_time, 7U);

    USER_INFO_STRU expected;
    memset(&expected, 0xEE, sizeof(expected));
    memcpy(expected.ip, info_.ip, sizeof(expected.ip));
    expected.connect = info_.connect;
    expected.up_bytes = info_.up_bytes;
    expected.down_bytes = info_.down_bytes;
    expected.last_up_bytes = info_.last_up_bytes;
    expected.last_down_bytes = info_.last_down_bytes;
    expected.thisCalcTime = info_.thisCalcTime;
    expected.lastCalcTime = info_.lastCalcTime;
    expected.alive_time = info_.alive_time;
    EXPECT_EQ(memcmp(&info_, &expected, sizeof(info_)), 0);
}

TEST_F(OnlineClients, MissingMembers)
{
    EXPECT_EQ(look_up(R"({"List":[{"Mac":"02:AA:00:00:00:01","UpBytes":5,"DownBytes":"many"}]})"),
              1);
    EXPECT_STREQ(ip(), "");
    EXPECT_EQ(info_.connect, 0U);
    EXPECT_EQ(info_.up_bytes, 0xEEEEEEEEEEEEEEEEULL) << "a number where a text belongs";
    EXPECT_EQ(info_.down_bytes, 0xEEEEEEEEEEEEEEEEULL) << "no number";
}

TEST_F(OnlineClients, ALongAddressIsCut)
{
    EXPECT_EQ(look_up(R"({"List":[{"Mac":"02:AA:00:00:00:01","Ip":")" + std::string(2307, '1') +
                      R"("}]})"),
              1);
    EXPECT_STREQ(ip(), std::string(31, '1').c_str());
    EXPECT_EQ(info_.mac[0], 0xEE);
}

TEST_F(OnlineClients, TheMacIsComparedExactly)
{
    const std::string view = R"({"List":[{"Mac":"02:AA:00:00:00:01"},{"Ip":"1.2.3.4"}]})";
    const std::string text =
        printed_at(PROD_DBG_DEBUG, [&] { EXPECT_EQ(look_up(view, "02:aa:00:00:00:01"), 0); });
    EXPECT_THAT(text, Prints(log_line(PROD_DBG_DEBUG, "get_ip_info_by_ipmac",
                                      "no online-info found for 192.168.0.2/02:aa:00:00:00:01.")));
    EXPECT_EQ(printed([&] { look_up(view, "02:aa:00:00:00:01"); }), "");
    EXPECT_EQ(info_.connect, 0xEEEEEEEEU);
    EXPECT_EQ(look_up(view, ""), 1) << "a client without a MAC has an empty one";
    EXPECT_STREQ(ip(), "1.2.3.4");
}

TEST_F(OnlineClients, ViewsWithoutAList)
{
    for (const char *view :
         {"{}", "[]", "null", "7", R"({"List":null})", R"({"List":"x"})", R"({"List":{}})"}) {
        EXPECT_EQ(printed_at(PROD_DBG_DEBUG, [&] { EXPECT_EQ(look_up(view), 0) << view; }), "");
    }
    for (const char *view : {R"({"List":[]})", R"({"List":[1,null,"x",[],{}]})",
                             R"({"List":[{"Mac":1},{"Mac":null}]})"}) {
        EXPECT_NE(printed_at(PROD_DBG_DEBUG, [&] { EXPECT_EQ(look_up(view), 0) << view; }), "");
    }
}

TEST_F(OnlineClients, NullArguments)
{
    cJSON *const view = cJSON_Parse(R"({"List":[{"Mac":"m"}]})");
    EXPECT_EQ(get_ip_info_by_ipmac(nullptr, "i", "m", &info_), 0);
    EXPECT_EQ(get_ip_info_by_ipmac(view, nullptr, "m", &info_), 0);
    EXPECT_EQ(get_ip_info_by_ipmac(view, "i", nullptr, &info_), 0);
    EXPECT_EQ(get_ip_info_by_ipmac(view, "i", "m", nullptr), 0);
    EXPECT_EQ(get_ip_info_by_ipmac(view, "i", "m", &info_), 1);
    cJSON_Delete(view);
}

TEST_F(OnlineClients, TheViewIsTraced)
{
    const std::string view = R"({"List":[{"Mac":"a"},{"Mac":"02:AA:00:00:00:01"}]})";
    const std::string start = test::literally("\033[0m[") + "[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}" +
                              test::literally("] \033[0m\033[1;40;35m") + "[0-9]{4} " +
                              test::literally("get_ip_info_by_ipmac: >>>> ");
    const std::string end = test::literally(" <<<<\n\033[0m");
    EXPECT_THAT(printed_at(
                    PROD_DBG_INFO, [&] { look_up(view); }, "json"),
                Prints(start + test::literally("{\n\t\"Mac\":\t\"02:AA:00:00:00:01\"\n}") + end));
    EXPECT_THAT(printed_at(
                    PROD_DBG_INFO, [&] { look_up(view, "none"); }, "json"),
                Prints(start +
                       test::literally("[{\n\t\t\"Mac\":\t\"a\"\n\t}, {\n\t\t\"Mac\":\t"
                                       "\"02:AA:00:00:00:01\"\n\t}]") +
                       end));
    EXPECT_EQ(printed_at(
                  PROD_DBG_DEBUG, [&] { look_up(view); }, "json"),
              "");
}

// ---- policy-routing rules --------------------------------------------------------------------

constexpr const char *kRuleList = "/var/ip_rule_del_tmp_13579";

std::vector<std::string> commands_for(int prio, const char *table, const std::string &listed)
{
    test::write_text(kRuleList, listed);
    const test::RecordedCommands commands;
    iprule_del_by_prio_and_table(prio, table);
    return commands.all();
}

TEST(IpruleDel, OneDeleteForEachLine)
{
    const std::string list = "ip rule ls | grep 100 | grep main > /var/ip_rule_del_tmp_13579";
    const std::string remove = "ip rule del table main prio 100";
    EXPECT_EQ(commands_for(100, "main", "100: anything\n\nwhatever\n"),
              (std::vector<std::string>{list, remove, remove, remove}));
    EXPECT_FALSE(test::exists(kRuleList));
    EXPECT_EQ(commands_for(100, "main", ""), std::vector<std::string>{list});
    EXPECT_FALSE(test::exists(kRuleList));
    EXPECT_EQ(commands_for(100, "main", std::string(256, 'x')),
              (std::vector<std::string>{list, remove, remove}))
        << "what is beyond 255 characters counts as the next line";
}

TEST(IpruleDel, WithoutAListNothingIsDeleted)
{
    test::remove_all(kRuleList);
    const test::RecordedCommands commands;
    EXPECT_EQ(printed_at(PROD_DBG_TRACE, [] { iprule_del_by_prio_and_table(0, "t1"); }), "");
    EXPECT_EQ(commands.all(), std::vector<std::string>{
                                  "ip rule ls | grep 0 | grep t1 > /var/ip_rule_del_tmp_13579"});
}

TEST(IpruleDel, NoSuchRule)
{
    EXPECT_TRUE(commands_for(-1, "main", "x\n").empty());
    EXPECT_TRUE(commands_for(100, nullptr, "x\n").empty());
    EXPECT_TRUE(commands_for(100, "", "x\n").empty());
    EXPECT_EQ(test::read_text(kRuleList), "x\n") << "nothing was touched";
    test::remove_all(kRuleList);
}

TEST(IpruleDel, TextThatTheShellWouldInterpretIsRefused)
{
    for (const char *table :
         {"main;reboot", "a&b",   "a|b",  "`id`", "$(id)", "$HOME", "a>b", "a<b",
          "'a'",         "\"a\"", "a b",  "a\tb", "a\nb",  "a\rb",  "(a)", "a\\b",
          "*",           "a?",    "[ab]", "~",    "#a",    "-v",    "\v",  "\f"}) {
        EXPECT_TRUE(commands_for(100, table, "x\n").empty()) << table;
    }
    EXPECT_TRUE(commands_for(100, std::string(2307, 't').c_str(), "x\n").empty())
        << "a listing that went astray would make old lines count";
    for (const char *table : {"main", "254", "wan_1", "wan-2.b", "a:b@c+d"}) {
        EXPECT_EQ(commands_for(100, table, "x\n").size(), 2U) << table;
    }
}

TEST(IpruleDel, TheLongestTableName)
{
    const std::string before = "ip rule ls | grep 7 | grep ";
    const std::string behind = " > /var/ip_rule_del_tmp_13579";
    const std::string fits(255 - before.size() - behind.size(), 't');
    EXPECT_EQ(commands_for(7, fits.c_str(), ""), std::vector<std::string>{before + fits + behind});
    EXPECT_TRUE(commands_for(7, (fits + "t").c_str(), "").empty());
}

TEST(IpruleDel, RealRules)
{
    const auto rules = [](const char *grep) {
        return test::output("ip rule ls | grep " + std::string{grep} + " | wc -l");
    };
    test::run("ip rule add from 10.0.0.1 prio 117 table 77");
    test::run("ip rule add from 10.0.0.2 prio 117 table 77");
    test::run("ip rule add from 10.0.0.3 prio 117 table 78");
    test::run("ip rule add from 10.0.0.4 prio 118 table 77");
    iprule_del_by_prio_and_table(117, "77");
    EXPECT_EQ(rules("117:.*lookup.77"), "0\n");
    EXPECT_EQ(rules("117:.*lookup.78"), "1\n");
    EXPECT_EQ(rules("118:.*lookup.77"), "1\n");
    EXPECT_FALSE(test::exists(kRuleList));

    test::run("ip rule add from 10.0.0.1 prio 11 table main");
    iprule_del_by_prio_and_table(11, "main");
    EXPECT_EQ(rules("^11:"), "0\n");
    EXPECT_EQ(rules("^117:"), "1\n");
    test::run("ip rule del prio 117");
    test::run("ip rule del prio 118");
}

}  // namespace
