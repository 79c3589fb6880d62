// SPDX-License-Identifier: MIT
// The DNS servers that are gathered for the relay.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/address.h"
#include "platform/hardware.h"
#include "platform/text.h"
#include "prod_common_ifaddrs.h"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"

using test::config;
using test::read_text;
using test::write_text;

namespace
{

// ---- the board, as a test sets it -------------------------------------------------------------

std::set<int> linked_ports;
std::vector<int> ports_asked;
std::map<std::string, std::string> addresses;  // of interfaces
std::vector<std::string> interfaces_asked;
const char *ini_value;  // what another port's reader delivers, in place of the file's

}  // namespace

extern "C" {

int iof_port_status_get(int port, port_status *status)
{
    ports_asked.push_back(port);
    *status = {};
    status->link = linked_ports.count(port) != 0 ? 1 : 0;
    return 0;
}

int file_get_value_from_ini(const char *file, const char *key, char *out)
{
    if (ini_value != nullptr) {
        strcpy(out, ini_value);
        return 1;
    }
    static const auto real = test::next(file_get_value_from_ini, "file_get_value_from_ini");
    return real(file, key, out);
}

int ifaddrs_get_ifip(const char *ifname, char *addr)
{
    interfaces_asked.emplace_back(ifname);
    const auto found = addresses.find(ifname);
    if (found == addresses.end()) {
        return -1;
    }
    strcpy(addr, found->second.c_str());
    return 0;
}
}

namespace
{

constexpr const char *kConfFile = "/etc/dns.conf";
constexpr const char *kPptpFile = "/etc/ppp/resolv.conf.wan0";
constexpr const char *kL2tpFile = "/etc/ppp/resolv.conf.wan45";

/** Four WANs on the ports 4 to 1; port 0 is a LAN's and also where WAN 0 is looked for. */
class RelayDns : public testing::Test
{
  protected:
    test::FreshConfig fresh_;

    void SetUp() override
    {
        config()["sys.ports"] = "43210";
        config()["wans.flag"] = "4";
        linked_ports = {1, 2, 3, 4};
        ports_asked.clear();
        addresses = {{"ppp0", "10.1.1.2"}, {"ppp45", "10.2.2.2"}};
        interfaces_asked.clear();
        ini_value = nullptr;
        for (int n = 0; n <= 4; ++n) {
            test::remove_all(ini(n));
        }
        for (const char *const file : {kConfFile, kPptpFile, kL2tpFile}) {
            test::remove_all(file);
        }
    }

    void TearDown() override { SetUp(); }

    static std::string ini(int wan) { return "/etc/wan" + std::to_string(wan) + ".ini"; }

    static void learnt(int wan, const std::string &dns1, const std::string &dns2 = "0.0.0.0")
    {
        write_text(ini(wan), "ip=100.64.1.7\nmask=255.255.255.0\ngateway=100.64.1.1\ndns1=" + dns1 +
                                 "\ndns2=" + dns2 + "\n");
    }

    static void manual(int wan, const std::string &dns1, const std::string &dns2 = "")
    {
        const std::string prefix = "wan" + std::to_string(wan) + ".manual.dns";
        config()[prefix + ".en"] = "1";
        config()[prefix + "1"] = dns1;
        config()[prefix + "2"] = dns2;
    }

    static void pptp_is_the_way_out()
    {
        config()["pptp.cli.pptpEnable"] = "1";
        config()["pptp.cli.pptppxy"] = "1";
    }

    static void l2tp_is_the_way_out()
    {
        config()["l2tp.cli.l2tpEnable"] = "1";
        config()["l2tp.cli.l2tppxy"] = "1";
    }

    /** What is gathered; it must be zeroed to its end, and the same in the file. */
    static std::string gathered(int size = 512)
    {
        std::vector<char> buffer(static_cast<std::size_t>(size), 'x');
        getAllWanDns(buffer.data(), size);
        const std::string text = buffer.data();
        for (std::size_t i = text.size(); i < buffer.size(); ++i) {
            EXPECT_EQ(buffer[i], '\0') << i;
        }
        EXPECT_TRUE(test::exists(kConfFile));
        EXPECT_EQ(read_text(kConfFile), text);
        return text;
    }
};

// ---- one server more --------------------------------------------------------------------------

std::string with(std::string text, const char *dns, int size)
{
    std::vector<char> buffer(static_cast<std::size_t>(size) + 1, '\0');
    strcpy(buffer.data(), text.c_str());
    buffer.back() = '!';
    add_dns_to_buf(buffer.data(), size, dns);
    EXPECT_EQ(buffer.back(), '!');
    return {buffer.data(), strnlen(buffer.data(), buffer.size() - 1)};
}

TEST(AddDnsToBuf, AppendsAnOption)
{
    EXPECT_EQ(with("", "10.0.0.1", 64), " -s 10.0.0.1 ");
    EXPECT_EQ(with(" -s 10.0.0.1 ", "8.8.4.4", 64), " -s 10.0.0.1  -s 8.8.4.4 ");
    EXPECT_EQ(with("", "", 64), " -s  ");  // what counts as a server is the caller's business
}

TEST(AddDnsToBuf, ListsAServerOnce)
{
    const std::string both = " -s 10.0.0.1  -s 8.8.4.4 ";
    EXPECT_EQ(with(both, "10.0.0.1", 64), both);
    EXPECT_EQ(with(both, "8.8.4.4", 64), both);
    EXPECT_EQ(with(both, "0.0.0.1", 64), both + " -s 0.0.0.1 ");
    EXPECT_EQ(with(both, "8.8.4.40", 64), both + " -s 8.8.4.40 ");
    EXPECT_EQ(with("10.0.0.1", "10.0.0.1", 64), "10.0.0.1 -s 10.0.0.1 ") << "not between blanks";
}

TEST(AddDnsToBuf, CutsWhatHasNoRoom)
{
    const std::string one = " -s 10.0.0.1 ";
    EXPECT_EQ(with(one, "8.8.4.4", 25), one + " -s 8.8.4.4");
    EXPECT_EQ(with(one, "8.8.4.4", 26), one + " -s 8.8.4.4 ");
    EXPECT_EQ(with(one, "8.8.4.4", 15), one + " ");
    EXPECT_EQ(with(one, "8.8.4.4", 14), one);
    EXPECT_EQ(with("", "8.8.4.4", 2), " ");
    EXPECT_EQ(with("", "8.8.4.4", 1), "");
}

TEST(AddDnsToBuf, CutsAnOptionAt31Characters)
{
    EXPECT_EQ(with("", "2001:db8:1111:2222:3333::53", 64), " -s 2001:db8:1111:2222:3333::53");
    EXPECT_EQ(with("", "2001:db8:1111:2222:333::53", 64), " -s 2001:db8:1111:2222:333::53 ");
    EXPECT_EQ(with("", std::string(5000, '1').c_str(), 64), " -s " + std::string(27, '1'));
}

TEST(AddDnsToBuf, NothingToDo)
{
    add_dns_to_buf(nullptr, 64, "8.8.8.8");
    EXPECT_EQ(with("", nullptr, 64), "");
    char untouched[] = "xy";
    add_dns_to_buf(untouched, 0, "8.8.8.8");
    add_dns_to_buf(untouched, -1, "8.8.8.8");
    EXPECT_STREQ(untouched, "xy");
    char no_end[4] = {'a', 'b', 'c', 'd'};  // no text at all
    add_dns_to_buf(no_end, sizeof(no_end), "8.8.8.8");
    EXPECT_EQ(std::string(no_end, 4), "abcd");
}

// ---- WANs -------------------------------------------------------------------------------------

TEST_F(RelayDns, LearntFromTheLastWanToTheFirst)
{
    learnt(1, "100.64.1.1", "100.64.1.53");
    learnt(2, "100.64.2.1", "100.64.2.53");
    learnt(3, "100.64.3.1");
    learnt(4, "100.64.4.1");
    EXPECT_EQ(gathered(),
              " -s 100.64.4.1  -s 100.64.3.1  -s 100.64.2.1  -s 100.64.2.53  -s 100.64.1.1  "
              "-s 100.64.1.53 ");
    EXPECT_EQ(ports_asked, (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(RelayDns, NothingKnownIsAnEmptyText)
{
    write_text(kConfFile, " -s 9.9.9.9  -s 149.112.112.112 ");
    EXPECT_EQ(gathered(), "");
}

TEST_F(RelayDns, TheSameServerOfTwoWansIsListedOnce)
{
    learnt(1, "10.0.0.1", "8.8.4.4");
    learnt(2, "8.8.4.4", "10.0.0.1");
    EXPECT_EQ(gathered(), " -s 8.8.4.4  -s 10.0.0.1 ");
}

TEST_F(RelayDns, AnOperatorsServersReplaceTheLearntOnes)
{
    learnt(1, "100.64.1.1", "100.64.1.53");
    manual(1, "9.9.9.9", "149.112.112.112");
    EXPECT_EQ(gathered(), " -s 9.9.9.9  -s 149.112.112.112 ");
    config()["wan1.manual.dns.en"] = "2";
    EXPECT_EQ(gathered(), " -s 9.9.9.9  -s 149.112.112.112 ");
    config()["wan1.manual.dns.en"] = "0";
    EXPECT_EQ(gathered(), " -s 100.64.1.1  -s 100.64.1.53 ");
    manual(1, "", "");
    EXPECT_EQ(gathered(), "") << "on, but none set";
}

TEST_F(RelayDns, AWanWithoutLinkHasNone)
{
    learnt(1, "100.64.1.1");
    manual(2, "9.9.9.9");
    linked_ports = {4};
    EXPECT_EQ(gathered(), " -s 100.64.1.1 ");
    linked_ports = {3};
    EXPECT_EQ(gathered(), " -s 9.9.9.9 ");
    linked_ports = {};
    EXPECT_EQ(gathered(), "");
}

TEST_F(RelayDns, Wan0CountsWhileARadioIsAClient)
{
    linked_ports.insert(0);
    learnt(0, "192.168.43.1");
    learnt(1, "100.64.1.1");
    EXPECT_EQ(gathered(), " -s 100.64.1.1 ");
    EXPECT_EQ(ports_asked, (std::vector<int>{1, 2, 3, 4}));
    for (const char *const key : {"wl2g.public.mode", "wl5g.public.mode"}) {
        ports_asked.clear();
        config()[key] = "apclient";
        EXPECT_EQ(gathered(), " -s 100.64.1.1  -s 192.168.43.1 ") << key;
        EXPECT_EQ(ports_asked, (std::vector<int>{1, 2, 3, 4, 0}));
        for (const char *const other : {"ap", "apclient2", "APCLIENT", ""}) {
            config()[key] = other;
            EXPECT_EQ(gathered(), " -s 100.64.1.1 ") << key << other;
        }
    }
    config()["wl5g.public.mode"] = "apclient";
    manual(0, "9.9.9.9");
    EXPECT_EQ(gathered(), " -s 100.64.1.1  -s 9.9.9.9 ");
    linked_ports.erase(0);
    EXPECT_EQ(gathered(), " -s 100.64.1.1 ");
}

TEST_F(RelayDns, WhatIsAServer)
{
    const struct {
        const char *text;
        bool listed;
    } kCases[] = {
        {"1.1.1.1", true},
        {"0.0.0.0", false},
        {"1.1.1.", false},
        {"", false},
        {"255.255.255.255", true},
        {"0.0.0.00", true},
        {"2001:DB8::53", true},
        {"fe80::1%2", true},
        {"2001:db8:1111:2222:333::53", true},
        {"2001:db8:1111:2222:3333::53", false},  // its option would be another address
        {"1.1.1.1 ", false},
        {" 1.1.1.1", false},
        {"8.8.8.8;reboot", false},
        {"8.8.8.8\t-k", false},
        {"$(reboot)", false},
        {"`reboot`", false},
        {"dns.example.net", false},
        {"8.8.8.8\n9.9.9.9", false},
    };
    for (const auto &[text, listed] : kCases) {
        manual(1, text);
        EXPECT_EQ(gathered(), listed ? " -s " + std::string(text) + " " : "") << text;
    }
    manual(1, test::longest_value('1'));
    EXPECT_EQ(gathered(), "");
}

TEST_F(RelayDns, ALearntServerEndsWithItsLine)
{
    write_text(ini(1), "dns1=100.64.1.1\r\ndns2=100.64.1.53");
    EXPECT_EQ(gathered(), " -s 100.64.1.1  -s 100.64.1.53 ");
    write_text(ini(1), "dns2=100.64.1.53\n");
    EXPECT_EQ(gathered(), " -s 100.64.1.53 ");
    ini_value = "100.64.1.7\nsomething else\n";
    EXPECT_EQ(gathered(), " -s 100.64.1.7 ");
    ini_value = nullptr;
    write_text(ini(1), "dns1=" + std::string(5000, '1') + "\ndns2=\n");
    EXPECT_EQ(gathered(), "");
}

TEST_F(RelayDns, HostileSettings)
{
    // Everything is switched on, and no server is one.
    for (const std::string &value : {std::string{"1;reboot"}, "1" + std::string(2306, ';')}) {
        const test::EveryKeyReads all{value};
        EXPECT_EQ(gathered(), "") << value.substr(0, 20);
    }
}

// ---- VPN --------------------------------------------------------------------------------------

TEST_F(RelayDns, AVpnThatIsTheWayOutComesFirst)
{
    pptp_is_the_way_out();
    write_text(kPptpFile, "nameserver 10.1.1.1\nnameserver 10.1.1.53\n");
    learnt(1, "100.64.1.1");
    EXPECT_EQ(gathered(), " -s 10.1.1.1  -s 10.1.1.53  -s 100.64.1.1 ");
    EXPECT_EQ(interfaces_asked, (std::vector<std::string>{"ppp0"}));
}

TEST_F(RelayDns, L2tpHasItsOwnFileAndInterface)
{
    l2tp_is_the_way_out();
    write_text(kPptpFile, "nameserver 10.1.1.1\n");
    write_text(kL2tpFile, "nameserver 10.2.2.1\n");
    EXPECT_EQ(gathered(), " -s 10.2.2.1 ");
    EXPECT_EQ(interfaces_asked, (std::vector<std::string>{"ppp45"}));
}

TEST_F(RelayDns, OfTwoVpnsOnlyPptpIsRead)
{
    pptp_is_the_way_out();
    l2tp_is_the_way_out();
    write_text(kPptpFile, "nameserver 10.1.1.1\n");
    write_text(kL2tpFile, "nameserver 10.2.2.1\n");
    EXPECT_EQ(gathered(), " -s 10.1.1.1 ");
    addresses.erase("ppp0");
    EXPECT_EQ(gathered(), "") << "not even while PPTP is down";
}

TEST_F(RelayDns, AVpnMustBeOnAndTheWayOut)
{
    write_text(kPptpFile, "nameserver 10.1.1.1\n");
    write_text(kL2tpFile, "nameserver 10.2.2.1\n");
    for (const char *const one : {"0", "2", "", "-1"}) {
        pptp_is_the_way_out();
        config()["pptp.cli.pptpEnable"] = one;
        EXPECT_EQ(gathered(), "") << one;
        pptp_is_the_way_out();
        config()["pptp.cli.pptppxy"] = one;
        EXPECT_EQ(gathered(), "") << one;
        l2tp_is_the_way_out();
        EXPECT_EQ(gathered(), " -s 10.2.2.1 ") << one;
        config()["l2tp.cli.l2tpEnable"] = one;
        EXPECT_EQ(gathered(), "") << one;
        l2tp_is_the_way_out();
        config()["l2tp.cli.l2tppxy"] = one;
        EXPECT_EQ(gathered(), "") << one;
    }
    EXPECT_EQ(interfaces_asked.size(), 4U);
}

TEST_F(RelayDns, AVpnThatIsDownHasNoServers)
{
    pptp_is_the_way_out();
    EXPECT_EQ(gathered(), "") << "no file";
    write_text(kPptpFile, "nameserver 10.1.1.1\n");
    addresses.erase("ppp0");
    EXPECT_EQ(gathered(), "") << "no address";
    const int before = test::open_descriptors();
    EXPECT_EQ(gathered(), "");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(RelayDns, LinesOfAVpnsFile)
{
    pptp_is_the_way_out();
    write_text(kPptpFile,
               "# written by pppd\n"
               "nameserver 10.1.1.1\r\n"
               "search example.net\n"
               "nameserver\t  10.1.1.2\n"
               "nameserver 10.1.1.1\n"
               "nameserver 0.0.0.0\n"
               "nameserver 1.1.1\n"
               " nameserver 10.1.1.3\n"
               "nameserver 10.1.1.4 # not this\n"
               "nameserver\n"
               "\n"
               "nameserver 10.1.1.5");
    EXPECT_EQ(gathered(), " -s 10.1.1.1  -s 10.1.1.2  -s 10.1.1.5 ");

    // A line is looked at in pieces of 255 characters.
    write_text(kPptpFile, std::string(255, '#') + "nameserver 10.1.1.6\n" + "nameserver " +
                              std::string(300, '1') + "\nnameserver 10.1.1.7\n");
    EXPECT_EQ(gathered(), " -s 10.1.1.6  -s 10.1.1.7 ");
}

// ---- the text and the file --------------------------------------------------------------------

TEST_F(RelayDns, TooSmallATextCutsTheLastOption)
{
    learnt(2, "10.0.0.1");
    learnt(1, "8.8.4.4");
    EXPECT_EQ(gathered(26), " -s 10.0.0.1  -s 8.8.4.4 ");
    EXPECT_EQ(gathered(20), " -s 10.0.0.1  -s 8.");
    EXPECT_EQ(gathered(14), " -s 10.0.0.1 ");
    EXPECT_EQ(gathered(1), "");
}

TEST_F(RelayDns, WithoutAFileTheTextIsOnlyReturned)
{
    learnt(1, "10.0.0.1");
    test::remove_all(kConfFile);
    test::run("mkdir /etc/dns.conf");
    char text[64];
    const int before = test::open_descriptors();
    getAllWanDns(text, sizeof(text));
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_STREQ(text, " -s 10.0.0.1 ");
}

TEST_F(RelayDns, NothingToFill)
{
    learnt(1, "10.0.0.1");
    getAllWanDns(nullptr, 64);
    char text[] = "xy";
    getAllWanDns(text, 0);
    getAllWanDns(text, -5);
    EXPECT_STREQ(text, "xy");
    EXPECT_FALSE(test::exists(kConfFile));
    EXPECT_TRUE(ports_asked.empty());
}

}  // namespace
