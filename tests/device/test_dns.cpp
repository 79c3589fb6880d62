// SPDX-License-Identifier: MIT
// Name servers of the booted device: the provider's are asked over each WAN, and gathered for a
// relay that then works with them.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "prod_common_ifaddrs.h"
#include "prod_common_wan.h"
#include "stories.hpp"
#include "support/files.hpp"
#include "support/time.hpp"

using story::eventually;
using story::must;

namespace
{

// ---- asking -----------------------------------------------------------------------------------

struct Answer {
    int count;
    std::set<std::string> addresses;
    double seconds;

    bool operator==(const std::set<std::string> &expected) const
    {
        return count == static_cast<int>(expected.size()) && addresses == expected;
    }
};

Answer resolve(const char *name, const char *ifname = "eth1", const char *server = "100.64.1.1")
{
    char text[3][16] = {};
    Answer answer{};
    answer.seconds = test::seconds([&] {
        answer.count = prod_resolve_domain(name, ifname, server, text[0], text[1], text[2]);
    });
    for (int i = 0; i < answer.count; ++i) {
        answer.addresses.insert(text[i]);
    }
    return answer;
}

const std::set<std::string> kOne = {"203.0.113.1"};
const std::set<std::string> kThree = {"203.0.113.31", "203.0.113.32", "203.0.113.33"};

TEST(Dns, ANameWithOneAddress)
{
    EXPECT_TRUE(resolve("one.example.org") == kOne);
    EXPECT_TRUE(resolve("one.example.org", "eth1", "100.64.1.53") == kOne);
    EXPECT_TRUE(resolve("one.example.org", nullptr) == kOne);
    char name[256];
    EXPECT_TRUE(resolve(get_netcheck_hostname(name)) == std::set<std::string>{"198.51.100.1"});
}

TEST(Dns, NamesWithMoreAddresses)
{
    EXPECT_TRUE(resolve("three.example.org") == kThree);
    const Answer five = resolve("five.example.org");
    EXPECT_EQ(five.count, 3);
    EXPECT_EQ(five.addresses.size(), 3U);
    for (const std::string &address : five.addresses) {
        EXPECT_EQ(address.rfind("203.0.113.5", 0), 0U) << address;
    }
}

TEST(Dns, AnAliasOfAnAlias)
{
    EXPECT_TRUE(resolve("shop.example.org") == kThree);
    EXPECT_TRUE(resolve("web.example.org") == kThree);
}

TEST(Dns, ANameThatIsNotThere)
{
    const Answer none = resolve("none.example.org");
    EXPECT_EQ(none.count, 0);
    EXPECT_LT(none.seconds, 1.9) << "the refusal is not waited for";
    EXPECT_EQ(resolve("").count, 0);
    EXPECT_EQ(resolve("one..example.org").count, 0);
}

TEST(Dns, NobodyAnswers)
{
    must("lab server dns stop");
    const Answer nothing = resolve("one.example.org");
    EXPECT_EQ(nothing.count, -1);
    EXPECT_GT(nothing.seconds, 1.9);
    EXPECT_LT(nothing.seconds, 3.9) << "it does not wait a second time";
    must("lab server dns start");
    eventually("the server is back",
               [] { return story::run("nslookup one.example.org 100.64.1.1").status == 0; });
    EXPECT_TRUE(resolve("one.example.org") == kOne);
}

TEST(Dns, EachWanIsAskedByItself)
{
    EXPECT_TRUE(resolve("one.example.org", "eth2", "100.64.2.1") == kOne);
    must("lab link wan1 down");
    EXPECT_EQ(resolve("one.example.org", "eth1", "100.64.1.1").count, -1);
    EXPECT_TRUE(resolve("one.example.org", "eth2", "100.64.2.53") == kOne);
    EXPECT_EQ(
        story::run("prodctl wan resolve one.example.org --server 100.64.2.1 --via 2")
            .output.find("one.example.org\n  addresses  203.0.113.1\n  server     100.64.2.1\n"
                         "  interface  eth2\n"),
        0U);
    EXPECT_EQ(story::run("prodctl wan resolve --server 100.64.1.1 --via 1 2>/dev/null").status, 1);
}

// ---- gathering --------------------------------------------------------------------------------

constexpr const char *kBoth = " -s 100.64.2.1  -s 100.64.2.53  -s 100.64.1.1  -s 100.64.1.53 ";

/** What is gathered now. */
std::string gathered()
{
    char text[512];
    getAllWanDns(text, sizeof(text));
    return text;
}

/** Waits until these are gathered and left for the relay, by the library or by a lease's script. */
void offered(const std::string &servers)
{
    eventually("servers:" + servers, [&servers] {
        return gathered() == servers && test::read_text("/etc/dns.conf") == servers;
    });
}

TEST(Dns, BothWansOfferTheirServers)
{
    eventually("gathered with the last lease",
               [] { return test::read_text("/etc/dns.conf") == kBoth; });
    offered(kBoth);
    must("lab client wan2 release");
    offered(" -s 100.64.1.1  -s 100.64.1.53 ");
    must("lab client wan2 renew && lab wait wan2");
    offered(kBoth);
}

TEST(Dns, AnOperatorsServers)
{
    must(
        "cfm set wan1.manual.dns.en 1 && cfm set wan1.manual.dns1 9.9.9.9 &&"
        "cfm set wan1.manual.dns2 100.64.2.1");
    offered(" -s 100.64.2.1  -s 100.64.2.53  -s 9.9.9.9 ");
    must("cfm set wan1.manual.dns1 '9.9.9.9 -k;reboot'");
    offered(" -s 100.64.2.1  -s 100.64.2.53 ");
}

TEST(Dns, TheServersOfAVpn)
{
    must("cfm set pptp.cli.pptpEnable 1 && cfm set pptp.cli.pptppxy 1");
    test::write_text("/etc/ppp/resolv.conf.wan0", "nameserver 10.64.1.1\nnameserver 100.64.2.53\n");
    offered(kBoth);  // not connected
    must("ip link add ppp0 type bridge && ip address add 10.64.1.100/32 dev ppp0");
    offered(" -s 10.64.1.1  -s 100.64.2.53  -s 100.64.2.1  -s 100.64.1.1  -s 100.64.1.53 ");
    must("ip link delete ppp0");
    offered(kBoth);
}

TEST(Dns, AWanWithoutACableOffersNone)
{
    must("cfm set wan1.manual.dns.en 1 && cfm set wan1.manual.dns1 9.9.9.9");
    must("lab link wan1 down");
    offered(" -s 100.64.2.1  -s 100.64.2.53 ");
    must("lab link wan2 down");
    offered("");
}

TEST(Dns, ARelayIsStartedWithThem)
{
    const std::string relay =
        "dnsmasq --no-daemon --conf-file=/dev/null --pid-file= --no-resolv --no-hosts "
        "--bind-interfaces --listen-address=127.0.0.1 --all-servers ";
    must("ip link set lo up");
    offered(kBoth);
    // As they stand they are options of this program too, only others: it writes a server as -S.
    must(relay + "--test $(cat /etc/dns.conf) 2>&1");
    must(relay + "$(sed 's/-s /-S /g' /etc/dns.conf) >/dev/null 2>&1 & echo $! >/run/relay.pid");
    eventually("the relay listens", [] {
        return story::run("nslookup one.example.org 127.0.0.1 2>/dev/null").status == 0;
    });
    EXPECT_TRUE(resolve("shop.example.org", "lo", "127.0.0.1") == kThree);
    must("lab link wan2 down");
    EXPECT_TRUE(resolve("five.example.org", nullptr, "127.0.0.1").count == 3) << "over WAN 1";
    must("kill $(cat /run/relay.pid)");
}

}  // namespace
