// SPDX-License-Identifier: MIT
// The IPv6 side of an interface: the kernel's tables, the tool's listing, the resolver file, and an
// address made of a prefix and a MAC.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "prod_common_ifaddrs.h"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"

using test::console_line;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;

namespace
{

constexpr int kRed = 31;
constexpr std::size_t kTextSize = 41;

// ---- what these tests put in the place of the C library ---------------------------------------

bool popen_fails;
std::vector<std::string> tool_commands;
std::optional<std::string> tool_output;  // in the place of what the tool prints

}  // namespace

extern "C" FILE *popen(const char *command, const char *mode)
{
    tool_commands.emplace_back(command);
    if (popen_fails) {
        errno = EMFILE;
        return nullptr;
    }
    static const auto real = test::next(popen, "popen");
    if (tool_output) {
        test::write_text("/tmp/listing", *tool_output);
        return real("cat /tmp/listing", mode);
    }
    return real(command, mode);
}

namespace
{

constexpr const char *kGlobal = "20010db8000100000000000000000001";

/** One line of /proc/net/if_inet6 as the kernel prints it. */
std::string address_line(const std::string &digits, unsigned int prefix_len, unsigned int scope,
                         const std::string &device)
{
    char line[256];
    snprintf(line, sizeof(line), "%s 02 %02x %02x 80 %8s\n", digits.c_str(), prefix_len, scope,
             device.c_str());
    return line;
}

/** One line of /proc/net/ipv6_route as the kernel prints it. */
std::string route_line(const std::string &destination, unsigned int length,
                       const std::string &next_hop, unsigned int flags, const std::string &device)
{
    char line[512];
    snprintf(line, sizeof(line), "%s %02x %032d 00 %s 00000400 00000001 00000000 %08x %8s\n",
             destination.c_str(), length, 0, next_hop.c_str(), flags, device.c_str());
    return line;
}

const std::string kAnywhere(32, '0');
const std::string kRouter = "fe800000000000000000000000000001";

/** What one of the look-ups writes, or nothing when it finds nothing; it then wrote nothing. */
std::optional<std::string> text_of(int (*look_up)(const char *, char *), const char *ifname)
{
    std::array<char, kTextSize> text{};
    text.fill('\x7f');
    const int found = look_up(ifname, text.data());
    if (found == 0) {
        for (const char c : text) {
            EXPECT_EQ(c, '\x7f');
        }
        return std::nullopt;
    }
    EXPECT_EQ(found, 1);
    return text.data();
}

std::optional<std::string> gateway()
{
    return text_of([](const char *, char *gw) { return get_ipv6_def_gw(gw); }, nullptr);
}

class Ipv6Tables : public testing::Test
{
  protected:
    void addresses(const std::string &table) const { proc_.write("if_inet6", table); }
    void routes(const std::string &table) const { proc_.write("ipv6_route", table); }

    test::FakeProcNet proc_;
};

// ---- addresses of an interface ----------------------------------------------------------------

TEST_F(Ipv6Tables, TheFirstOfEachScope)
{
    addresses(address_line("00000000000000000000000000000001", 128, 0x10, "lo") +
              address_line("fe80000000000000021122fffe334455", 64, 0x20, "eth1") +
              address_line("20010db8000100000000000000000001", 56, 0x00, "eth1") +
              address_line("20010db8000200000000000000000002", 48, 0x00, "eth1") +
              address_line("fe800000000000000000000000000009", 10, 0x20, "eth1"));
    EXPECT_EQ(text_of(get_ipv6_str, "eth1"), "2001:db8:1::1");
    EXPECT_EQ(get_ipv6_prefix_len("eth1"), 56);
    EXPECT_EQ(text_of(get_link_ipv6_str, "eth1"), "fe80::211:22ff:fe33:4455");
    EXPECT_EQ(get_link_ipv6_prefix_len("eth1"), 64);
    EXPECT_EQ(text_of(get_ipv6_str, "lo"), "::1");
    EXPECT_EQ(get_ipv6_prefix_len("lo"), 128);
    EXPECT_EQ(text_of(get_link_ipv6_str, "lo"), std::nullopt);
    EXPECT_EQ(get_link_ipv6_prefix_len("lo"), 0);
}

TEST_F(Ipv6Tables, AnInterfaceWithOnlyALinkLocalAddress)
{
    addresses(address_line("fe80000000000000021122fffe334455", 64, 0x20, "eth1"));
    EXPECT_EQ(text_of(get_ipv6_str, "eth1"), std::nullopt);
    EXPECT_EQ(get_ipv6_prefix_len("eth1"), 0);
    EXPECT_EQ(text_of(get_link_ipv6_str, "eth1"), "fe80::211:22ff:fe33:4455");
}

TEST_F(Ipv6Tables, TheScopeIsItsHighNibble)
{
    for (unsigned int scope = 0; scope <= 0xFF; ++scope) {
        addresses(address_line(kGlobal, 64, scope, "eth1"));
        const bool link = (scope & 0xF0) == 0x20;
        EXPECT_EQ(get_link_ipv6_prefix_len("eth1"), link ? 64 : 0) << scope;
        EXPECT_EQ(get_ipv6_prefix_len("eth1"), link ? 0 : 64) << scope;
        EXPECT_EQ(text_of(get_link_ipv6_str, "eth1").has_value(), link) << scope;
        EXPECT_EQ(text_of(get_ipv6_str, "eth1").has_value(), !link) << scope;
    }
}

TEST_F(Ipv6Tables, NamesAreComparedWhole)
{
    addresses(address_line(kGlobal, 64, 0, "eth1"));
    for (const char *const name : {"eth", "eth11", "ETH1", "", " eth1"}) {
        EXPECT_EQ(get_ipv6_prefix_len(name), 0) << name;
        EXPECT_EQ(text_of(get_ipv6_str, name), std::nullopt) << name;
    }
    // A name in the table counts up to its 31st character.
    addresses(address_line(kGlobal, 64, 0, std::string(40, 'n')));
    EXPECT_EQ(get_ipv6_prefix_len(std::string(31, 'n').c_str()), 64);
    EXPECT_EQ(text_of(get_ipv6_str, std::string(31, 'n').c_str()), "2001:db8:1::1");
    EXPECT_EQ(get_ipv6_prefix_len(std::string(40, 'n').c_str()), 0);
}

TEST_F(Ipv6Tables, LinesThatLackAFieldArePassedOver)
{
    const std::string good = address_line(kGlobal, 64, 0, "eth1");
    for (const char *const bad : {"\n", "20010db8000100000000000000000009\n",
                                  "20010db8000100000000000000000009 02 30 00 80\n",
                                  "20010db8000100000000000000000009 02 xx 00 80 eth1\n",
                                  "20010db8000100000000000000000009 02 30 yy 80 eth1\n"}) {
        addresses(bad + good);
        EXPECT_EQ(get_ipv6_prefix_len("eth1"), 64) << bad;
        EXPECT_EQ(text_of(get_ipv6_str, "eth1"), "2001:db8:1::1") << bad;
    }
    addresses("");
    EXPECT_EQ(get_ipv6_prefix_len("eth1"), 0);
}

TEST_F(Ipv6Tables, LinesOf127Characters)
{
    // The rest of a longer line comes as the next one.
    const std::string long_line = std::string(127, 'x') + address_line(kGlobal, 64, 0, "eth1");
    addresses(long_line);
    EXPECT_EQ(get_ipv6_prefix_len("eth1"), 64);
    addresses("x" + long_line);
    EXPECT_EQ(text_of(get_ipv6_str, "eth1"), std::nullopt) << "the first digit is lost";
}

TEST_F(Ipv6Tables, DigitsBeyondThe32ndAreTheNextField)
{
    // Then everything moves by one field: the interface's number is taken for the prefix length,
    // the prefix length for the scope.
    addresses(std::string{kGlobal} + "ff 02 20 00 80 eth1\n");
    EXPECT_EQ(get_ipv6_prefix_len("eth1"), 32);
    EXPECT_EQ(text_of(get_ipv6_str, "eth1"), std::nullopt);
    EXPECT_EQ(text_of(get_link_ipv6_str, "80"), "2001:db8:1::1");
    addresses(std::string{kGlobal} + "ff 02 20 00 eth1\n");
    EXPECT_EQ(get_ipv6_prefix_len("eth1"), 0);
    EXPECT_EQ(text_of(get_link_ipv6_str, "eth1"), "2001:db8:1::1");
}

TEST_F(Ipv6Tables, AnAddressThatIsNoneIsReportedAndPassedOver)
{
    std::optional<std::string> found;
    for (const std::string digits :
         {"20010db8", "20010db800010000000000000000000g", "0x010db8000100000000000000000001",
          "+f010db8000100000000000000000001"}) {
        addresses(address_line(digits, 64, 0, "eth1") + address_line(kGlobal, 64, 0, "eth1"));
        EXPECT_THAT(printed([&] { found = text_of(get_ipv6_str, "eth1"); }),
                    Prints(console_line(kRed, "get_ipv6_str",
                                        "Failed(22) to Failed to convert " + digits +
                                            " to IPv6, Invalid argument.")));
        EXPECT_EQ(found, "2001:db8:1::1");
        addresses(address_line(digits, 64, 0x20, "eth1"));
        EXPECT_THAT(printed([&] { found = text_of(get_link_ipv6_str, "eth1"); }),
                    Prints(console_line(kRed, "get_link_ipv6_str",
                                        "Failed(22) to Failed to convert " + digits +
                                            " to IPv6, Invalid argument.")));
        EXPECT_EQ(found, std::nullopt);
    }
}

TEST_F(Ipv6Tables, ATableThatCannotBeOpened)
{
    proc_.remove("if_inet6");
    proc_.remove("ipv6_route");
    const auto complaint = [](const char *function) {
        return Prints(
            console_line(kRed, function, "Failed(2) to fopen, No such file or directory."));
    };
    char text[kTextSize] = "kept";
    EXPECT_THAT(printed([] { EXPECT_EQ(get_ipv6_prefix_len("eth1"), 0); }),
                complaint("get_ipv6_prefix_len"));
    EXPECT_THAT(printed([] { EXPECT_EQ(get_link_ipv6_prefix_len("eth1"), 0); }),
                complaint("get_link_ipv6_prefix_len"));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_ipv6_str("eth1", text), 0); }),
                complaint("get_ipv6_str"));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_link_ipv6_str("eth1", text), 0); }),
                complaint("get_link_ipv6_str"));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_ipv6_def_gw(text), 0); }),
                complaint("get_ipv6_def_gw"));
    EXPECT_STREQ(text, "kept");
}

TEST_F(Ipv6Tables, NullArguments)
{
    addresses(address_line(kGlobal, 64, 0, "eth1"));
    char text[kTextSize] = "kept";
    EXPECT_EQ(get_ipv6_prefix_len(nullptr), 0);
    EXPECT_EQ(get_link_ipv6_prefix_len(nullptr), 0);
    EXPECT_EQ(get_ipv6_str(nullptr, text), 0);
    EXPECT_EQ(get_link_ipv6_str(nullptr, text), 0);
    EXPECT_EQ(get_ipv6_str("eth1", nullptr), 0);
    EXPECT_EQ(get_link_ipv6_str("eth1", nullptr), 0);
    EXPECT_EQ(get_ipv6_def_gw(nullptr), 0);
    EXPECT_STREQ(text, "kept");
}

TEST_F(Ipv6Tables, NothingStaysOpen)
{
    addresses(address_line(kGlobal, 64, 0, "eth1"));
    routes(route_line(kAnywhere, 0, kRouter, 3, "eth1"));
    const int before = test::open_descriptors();
    get_ipv6_prefix_len("eth1");
    text_of(get_ipv6_str, "eth1");
    gateway();
    EXPECT_EQ(test::open_descriptors(), before);
}

// ---- default gateway --------------------------------------------------------------------------

TEST_F(Ipv6Tables, TheDefaultGateway)
{
    routes(route_line("20010db8000100000000000000000000", 64, kAnywhere, 1, "eth1") +
           route_line(kAnywhere, 0, kRouter, 3, "eth1") +
           route_line(kAnywhere, 0, "fe800000000000000000000000000002", 3, "eth2"));
    EXPECT_EQ(gateway(), "fe80::1");
}

TEST_F(Ipv6Tables, RoutesThatAreNoDefaultGateway)
{
    for (const std::string &route :
         {route_line(kAnywhere, 0, kRouter, 3, "lo"), route_line(kAnywhere, 0, kRouter, 2, "eth1"),
          route_line(kAnywhere, 0, kRouter, 0xFFFFFFFE, "eth1"),
          route_line(kAnywhere, 1, kRouter, 3, "eth1"),
          route_line("00000000000000000000000000000001", 0, kRouter, 3, "eth1"),
          std::string{"00000000000000000000000000000000 00\n"}, std::string{"\n"}}) {
        routes(route);
        EXPECT_EQ(gateway(), std::nullopt) << route;
        routes(route + route_line(kAnywhere, 0, kRouter, 1, "eth2"));
        EXPECT_EQ(gateway(), "fe80::1") << route;
    }
    routes("");
    EXPECT_EQ(gateway(), std::nullopt);
}

TEST_F(Ipv6Tables, ADefaultRouteWithoutAGateway)
{
    routes(route_line(kAnywhere, 0, kAnywhere, 1, "ppp1"));
    EXPECT_EQ(gateway(), "::");
}

TEST_F(Ipv6Tables, AGatewayThatIsNoneIsReportedAndPassedOver)
{
    std::optional<std::string> found;
    routes(route_line(kAnywhere, 0, "fe80", 3, "eth1") +
           route_line(kAnywhere, 0, kRouter, 3, "eth1"));
    EXPECT_THAT(
        printed([&] { found = gateway(); }),
        Prints(console_line(kRed, "get_ipv6_def_gw",
                            "Failed(22) to Failed to convert fe80 to IPv6, Invalid argument.")));
    EXPECT_EQ(found, "fe80::1");
}

TEST_F(Ipv6Tables, RoutesOf255Characters)
{
    routes(std::string(255, ' ') + route_line(kAnywhere, 0, kRouter, 3, "eth1"));
    EXPECT_EQ(gateway(), "fe80::1");
    routes(std::string(254, ' ') + route_line(kAnywhere, 0, kRouter, 3, "eth1"));
    EXPECT_EQ(gateway(), std::nullopt) << "the first digit is in the line before";
}

// ---- all addresses ----------------------------------------------------------------------------

struct Listed {
    std::vector<std::string> addresses;  // with their prefix lengths
    bool operator==(const Listed &) const = default;
};

Listed list(const char *ifname, int max = 8)
{
    std::vector<ipv6_addr_t> all(static_cast<std::size_t>(max));
    const int count = get_ipv6_addrs(ifname, all.data(), max);
    Listed listed;
    EXPECT_GE(count, 0);
    EXPECT_LE(count, max);
    for (int i = 0; i < count; ++i) {
        char text[INET6_ADDRSTRLEN];
        inet_ntop(AF_INET6, &all[static_cast<std::size_t>(i)].ip, text, sizeof(text));
        listed.addresses.push_back(std::string{text} + "/" +
                                   std::to_string(all[static_cast<std::size_t>(i)].prefix_len));
    }
    return listed;
}

class Ipv6Listing : public testing::Test
{
  protected:
    void SetUp() override
    {
        popen_fails = false;
        tool_output.reset();
        tool_commands.clear();
    }
    void TearDown() override { SetUp(); }
};

TEST_F(Ipv6Listing, OfARealInterface)
{
    test::run("ip link add v6 type veth peer name far6");
    test::run("ip address add 2001:db8:1::1/64 dev v6 nodad");
    test::run("ip address add 2001:db8:2::2/48 dev v6 nodad");
    const Listed all = list("v6");
    EXPECT_EQ(all, (Listed{{"2001:db8:2::2/48", "2001:db8:1::1/64"}}));
    EXPECT_EQ(tool_commands, std::vector<std::string>{"ip -6 address show v6"});
    EXPECT_EQ(list("v6", 1), Listed{{"2001:db8:2::2/48"}});
    EXPECT_EQ(list("far6"), Listed{});
    test::run("ip link del v6");
}

TEST_F(Ipv6Listing, LinesOfTheTool)
{
    tool_output =
        "2: eth1: <BROADCAST> mtu 1500\n"
        "    inet6 2001:db8:1::1/64 scope global \n"
        "       valid_lft forever preferred_lft forever\n"
        "    inet6 2001:db8::/x scope global\n"
        "    inet6 nonsense/64 scope global\n"
        "    inet6 2001:db8:1::2 peer 2001:db8:1::3/128 scope global\n"
        "    inet6 /64\n"
        "inet6 2001:db8:1::4/0\n"
        "    inet 10.0.0.1/8\n"
        "    inet6 " +
        std::string(41, '1') +
        "/64\n"
        "    inet6 fe80::1/10 scope link\n"
        "    inet6 " +
        std::string(200, ' ') + "2001:db8:1::5/64\n" + std::string(127, 'x') +
        " inet6 2001:db8:1::6/7\n";
    EXPECT_EQ(list("eth1"),
              (Listed{{"2001:db8:1::1/64", "2001:db8:1::4/0", "fe80::1/10", "2001:db8:1::6/7"}}));
    EXPECT_EQ(list("eth1", 2), (Listed{{"2001:db8:1::1/64", "2001:db8:1::4/0"}}));
}

TEST_F(Ipv6Listing, NothingIsRunForAbsurdArguments)
{
    ipv6_addr_t one = {};
    EXPECT_EQ(get_ipv6_addrs(nullptr, &one, 1), 0);
    EXPECT_EQ(get_ipv6_addrs("lo", nullptr, 1), 0);
    EXPECT_EQ(get_ipv6_addrs("lo", &one, 0), 0);
    EXPECT_EQ(get_ipv6_addrs("lo", &one, -1), 0);
    for (const char *const name : {"sixteen_letters_", "a b", "a/b", "a\nb", "a\tb"}) {
        EXPECT_EQ(get_ipv6_addrs(name, &one, 1), 0) << name;
    }
    EXPECT_EQ(tool_commands, std::vector<std::string>{});
}

TEST_F(Ipv6Listing, ShellCharactersInANameRunNothing)
{
    for (const std::string name : {";>ran", "$(>ran)", "`>ran`", "|>ran", "&>ran", "'>ran'",
                                   "\">ran\"", "\\;>ran", "lo;>ran", "lo>ran", "<ran", "$PATH"}) {
        EXPECT_EQ(list(name.c_str()), Listed{}) << name;
        EXPECT_FALSE(test::exists("ran")) << name;
    }
    EXPECT_EQ(tool_commands[0], "ip -6 address show \\;\\>ran");
}

TEST_F(Ipv6Listing, AToolThatCannotBeStarted)
{
    popen_fails = true;
    ipv6_addr_t one = {};
    EXPECT_THAT(printed([&] { EXPECT_EQ(get_ipv6_addrs("eth1", &one, 1), 0); }),
                Prints(console_line(kRed, "get_ipv6_addrs",
                                    "Failed(24) to popen eth1, Too many open files.")));
}

TEST_F(Ipv6Listing, NothingStaysOpen)
{
    const int before = test::open_descriptors();
    list("lo", 1);
    EXPECT_EQ(test::open_descriptors(), before);
}

// ---- name servers -----------------------------------------------------------------------------

struct Servers {
    int found;
    std::string first;
    std::string second;
    bool operator==(const Servers &) const = default;
};

void PrintTo(const Servers &servers, std::ostream *out)
{
    *out << servers.found << " '" << servers.first << "' '" << servers.second << "'";
}

Servers servers()
{
    char first[kTextSize];
    char second[kTextSize];
    memset(first, 'x', sizeof(first));
    memset(second, 'x', sizeof(second));
    const int found = get_ipv6_dns(first, second);
    return {found, first, second};
}

Servers servers_in(const std::string &text)
{
    test::write_text("/etc/resolv6.conf", text);
    return servers();
}

TEST(Ipv6Dns, TheFirstTwoServers)
{
    EXPECT_EQ(servers_in(""), (Servers{0, "", ""}));
    EXPECT_EQ(servers_in("search lan\n"), (Servers{0, "", ""}));
    EXPECT_EQ(servers_in("nameserver 2001:db8::1\n"), (Servers{1, "2001:db8::1", ""}));
    EXPECT_EQ(servers_in("nameserver 2001:db8::1\nnameserver 2001:db8::2\n"),
              (Servers{1, "2001:db8::1", "2001:db8::2"}));
    EXPECT_EQ(servers_in("nameserver 2001:db8::1\noptions x\nnameserver 2001:db8::2\n"
                         "nameserver 2001:db8::3\n"),
              (Servers{1, "2001:db8::1", "2001:db8::2"}));
}

TEST(Ipv6Dns, WhatALineMayLookLike)
{
    EXPECT_EQ(servers_in("nameserver\t \t2001:db8::1 # first\nnameserver2001:db8::2"),
              (Servers{1, "2001:db8::1", "2001:db8::2"}));
    EXPECT_EQ(servers_in(" nameserver 2001:db8::1\n#nameserver 2001:db8::2\nnameserver\n"),
              (Servers{0, "", ""}));
    EXPECT_EQ(servers_in("nameserver " + std::string(60, 'f') + "\n"),
              (Servers{1, std::string(40, 'f'), ""}));
    EXPECT_EQ(servers_in(std::string(127, '#') + "nameserver 2001:db8::1\n"),
              (Servers{1, "2001:db8::1", ""}));
}

TEST(Ipv6Dns, AFileThatIsNotThere)
{
    test::remove_all("/etc/resolv6.conf");
    Servers none{};
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [&] { none = servers(); }),
                Prints(log_line(PROD_DBG_DEBUG, "get_ipv6_dns",
                                "Failed(2) to fopen /etc/resolv6.conf, No such file or "
                                "directory.")));
    EXPECT_EQ(none, (Servers{0, "", ""}));
    EXPECT_EQ(printed([&] { servers(); }), "");
}

TEST(Ipv6Dns, NullArguments)
{
    test::write_text("/etc/resolv6.conf", "nameserver 2001:db8::1\n");
    char kept[kTextSize] = "kept";
    EXPECT_EQ(get_ipv6_dns(nullptr, kept), 0);
    EXPECT_EQ(get_ipv6_dns(kept, nullptr), 0);
    EXPECT_STREQ(kept, "kept");
}

// ---- addresses made of a MAC ------------------------------------------------------------------

using MacBytes = std::array<unsigned char, 6>;
constexpr MacBytes kMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

in6_addr parse(const char *text)
{
    in6_addr address;
    EXPECT_EQ(inet_pton(AF_INET6, text, &address), 1) << text;
    return address;
}

/** The address made, or nothing; it then left the output alone. */
std::optional<std::string> made(const char *prefix, int prefix_len, const MacBytes &mac = kMac)
{
    const in6_addr given = parse(prefix);
    const in6_addr untouched = parse("ff02::eeee");
    in6_addr out = untouched;
    char text[INET6_ADDRSTRLEN];
    if (generate_ipv6_by_mac(&given, prefix_len, mac.data(), &out) == 0) {
        EXPECT_EQ(memcmp(&out, &untouched, sizeof(out)), 0);
        return std::nullopt;
    }
    return inet_ntop(AF_INET6, &out, text, sizeof(text));
}

TEST(Ipv6ByMac, WholeBytes)
{
    EXPECT_EQ(made("2001:db8::", 64), "2001:db8::211:22ff:fe33:4455");
    EXPECT_EQ(made("2001:db8::", 64, {0x02, 0x11, 0x22, 0x33, 0x44, 0x55}),
              "2001:db8::11:22ff:fe33:4455");
    EXPECT_EQ(made("2001:db8:ffff:ffff:ffff::", 48), "2001:db8:ffff:0:211:22ff:fe33:4455");
    EXPECT_EQ(made("2001:db8:1:2:3:4:5:6", 0), "::211:22ff:fe33:4455");
    EXPECT_EQ(made("2001:db8:1:2:3:4:5:6", 120), "2001:db8:1:2:3:4:5:55");
}

TEST(Ipv6ByMac, OfALastPartialByteOnlyTheLastBitCounts)
{
    // The byte in question is 0 before: each higher bit of the prefix is lost.
    EXPECT_EQ(made("ffff:ffff:ffff:ffff::", 60), "ffff:ffff:ffff:ff10:211:22ff:fe33:4455");
    EXPECT_EQ(made("ffff:ffff:ffff:ffff::", 57), "ffff:ffff:ffff:ff80:211:22ff:fe33:4455");
    EXPECT_EQ(made("ffff:ffff:ffff:ffff::", 63), "ffff:ffff:ffff:ff02:211:22ff:fe33:4455");
    EXPECT_EQ(made("ffff:ffff:ffff:ffef::", 60), "ffff:ffff:ffff:ff00:211:22ff:fe33:4455");
    // In the MAC's part the other bits stay: 0x22 is 00100010.
    EXPECT_EQ(made("::", 83), "::2ff:fe33:4455");
    EXPECT_EQ(made("0:0:0:0:0:2000::", 83), "::22ff:fe33:4455");
    EXPECT_EQ(made("0:0:0:0:0:ff00::", 82), "::62ff:fe33:4455");
    EXPECT_EQ(made("::ffff:ffff:ffff:ffff", 127), "::ffff:ffff:ffff:ff57");
    EXPECT_EQ(made("::ffff:ffff:ffff:fff0", 127), "::ffff:ffff:ffff:ff55");
}

TEST(Ipv6ByMac, AbsurdArguments)
{
    EXPECT_EQ(made("2001:db8::", 128), std::nullopt);
    EXPECT_EQ(made("2001:db8::", -1), std::nullopt);
    in6_addr address = parse("2001:db8::");
    EXPECT_EQ(generate_ipv6_by_mac(nullptr, 64, kMac.data(), &address), 0);
    EXPECT_EQ(generate_ipv6_by_mac(&address, 64, nullptr, &address), 0);
    EXPECT_EQ(generate_ipv6_by_mac(&address, 64, kMac.data(), nullptr), 0);
    EXPECT_EQ(generate_ipv6_by_mac(&address, 64, kMac.data(), &address), 1);
    const in6_addr expected = parse("2001:db8::211:22ff:fe33:4455");
    EXPECT_EQ(memcmp(&address, &expected, sizeof(address)), 0);
}

}  // namespace
