// SPDX-License-Identifier: MIT
// lan clients and lan arp, on the files that other daemons leave and on the kernel's own table.
#include <cstdlib>

#include "support/files.hpp"
#include "support/network.hpp"
#include "tool.hpp"

using test::answer;
using test::FileHolds;
using test::Outcome;
using test::prodctl;
using test::refuses;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr const char *kLeases = "/etc/dhcps.leases";
constexpr const char *kLease = "1700000000 02:00:5e:00:53:01 192.168.0.100 laptop 01:02 laptop\n";
constexpr const char *kUnnamed = "1700000000 02:00:5e:00:53:02 192.168.0.20 * 01:02\n";

// ---- clients ----------------------------------------------------------------------------------

TEST(Clients, InTheOrderOfTheList)
{
    const FileHolds leases{kLeases, std::string{kLease} + kUnnamed};
    EXPECT_EQ(prodctl({"lan", "clients"}), (Outcome{0,
                                                    "ADDRESS        MAC                HOST NAME\n"
                                                    "192.168.0.100  02:00:5e:00:53:01  laptop\n"
                                                    "192.168.0.20   02:00:5e:00:53:02  -\n",
                                                    ""}));
    EXPECT_EQ(prodctl({"lan", "clients", "--json"}),
              (Outcome{0,
                       "{\"clients\":[{\"address\":\"192.168.0.100\","
                       "\"mac\":\"02:00:5e:00:53:01\",\"hostname\":\"laptop\"},"
                       "{\"address\":\"192.168.0.20\",\"mac\":\"02:00:5e:00:53:02\","
                       "\"hostname\":\"\"}]}\n",
                       ""}));
}

TEST(Clients, None)
{
    const Outcome none{0, "No client has a lease.\n", ""};
    {
        const FileHolds leases{kLeases};
        EXPECT_EQ(prodctl({"lan", "clients"}), none);
        EXPECT_EQ(prodctl({"lan", "clients", "--json"}), (Outcome{0, "{\"clients\":[]}\n", ""}));
    }
    for (const char *const odd : {"", "\n\n", "garbage\n", "1 02:00:5e:00:53:01"}) {
        const FileHolds leases{kLeases, odd};
        EXPECT_EQ(prodctl({"lan", "clients"}), none) << odd;
    }
}

TEST(Clients, HostNamesDoNoHarm)
{
    const std::string head = "1 02:00:5e:00:53:01 192.168.0.100 - 01:02 ";
    const FileHolds leases{kLeases, head + "\033[31mred\a\x7F\n" + head + "\xFF\x80\n" + head +
                                        "\xD6\xD0\xB9\xFA\n" + head + "\"\\\n"};
    EXPECT_EQ(prodctl({"lan", "clients"}).out,
              "ADDRESS        MAC                HOST NAME\n"
              "192.168.0.100  02:00:5e:00:53:01  ?[31mred??\n"
              "192.168.0.100  02:00:5e:00:53:01  \xEF\xBF\xBD\xEF\xBF\xBD\n"
              "192.168.0.100  02:00:5e:00:53:01  \xE4\xB8\xAD\xE5\x9B\xBD\n"
              "192.168.0.100  02:00:5e:00:53:01  \"\\\n");
    const test::Json list = answer(prodctl({"lan", "clients", "--json"}));
    const cJSON *const clients = cJSON_GetObjectItem(list.get(), "clients");
    ASSERT_EQ(cJSON_GetArraySize(clients), 4);
    EXPECT_STREQ(cJSON_GetObjectItem(clients->child, "hostname")->valuestring, "\033[31mred\a\x7F");
}

TEST(Clients, OnTheStatusPage)
{
    const FileHolds leases{kLeases, kLease};
    EXPECT_THAT(prodctl({"status"}).out, HasSubstr("DHCP clients\n"
                                                   "------------\n"
                                                   "ADDRESS        MAC                HOST NAME\n"
                                                   "192.168.0.100  02:00:5e:00:53:01  laptop\n"));
    EXPECT_THAT(prodctl({"status", "--json"}).out,
                HasSubstr("\"clients\":[{\"address\":\"192.168.0.100\""));
}

// ---- the neighbour table ----------------------------------------------------------------------

/** Neighbours that the kernel knows, on a bridge that nobody is on. */
class Arp : public testing::Test
{
  protected:
    Arp()
    {
        test::run(
            "ip link add br7 type bridge && ip link set br7 up && "
            "ip address add 192.168.77.1/24 dev br7");
    }
    ~Arp() override { test::run("ip link del br7"); }

    static void knows(const char *address, const char *mac, const char *state)
    {
        test::run("ip neigh replace %s lladdr %s dev br7 nud %s", address, mac, state);
    }
};

TEST_F(Arp, TheTable)
{
    EXPECT_EQ(prodctl({"lan", "arp"}), (Outcome{0, "No neighbour is known.\n", ""}));
    EXPECT_EQ(prodctl({"lan", "arp", "--json"}), (Outcome{0, "{\"arp\":[]}\n", ""}));
    knows("192.168.77.9", "02:00:5e:00:53:09", "permanent");
    EXPECT_EQ(prodctl({"lan", "arp"}),
              (Outcome{0,
                       "ADDRESS       MAC                STATE      INTERFACE\n"
                       "192.168.77.9  02:00:5e:00:53:09  permanent  br7\n",
                       ""}));
    knows("192.168.77.9", "02:00:5e:00:53:09", "reachable");
    EXPECT_EQ(prodctl({"lan", "arp", "--json"}).out,
              "{\"arp\":[{\"address\":\"192.168.77.9\",\"mac\":\"02:00:5e:00:53:09\","
              "\"state\":\"complete\",\"interface\":\"br7\"}]}\n");
}

TEST_F(Arp, ANeighbourThatHasNotAnswered)
{
    test::run("ip neigh replace 192.168.77.8 dev br7 nud incomplete");
    EXPECT_EQ(prodctl({"lan", "arp", "--json"}).out,
              "{\"arp\":[{\"address\":\"192.168.77.8\",\"mac\":\"\","
              "\"state\":\"incomplete\",\"interface\":\"br7\"}]}\n");
    EXPECT_EQ(prodctl({"lan", "arp", "00:00:00:00:00:00"}).status, 1);
}

TEST_F(Arp, TheAddressOfAMac)
{
    knows("192.168.77.9", "02:00:5e:00:53:0a", "reachable");
    EXPECT_EQ(prodctl({"lan", "arp", "02:00:5E:00:53:0A"}), (Outcome{0, "192.168.77.9\n", ""}));
    EXPECT_EQ(prodctl({"lan", "arp", "02:00:5e:00:53:0a", "--json"}),
              (Outcome{0, "{\"mac\":\"02:00:5e:00:53:0a\",\"address\":\"192.168.77.9\"}\n", ""}));
    EXPECT_EQ(prodctl({"lan", "arp", "02:00:5e:00:53:0b"}),
              (Outcome{1, "", "prodctl lan arp: no neighbour has the MAC 02:00:5e:00:53:0b\n"}));
}

TEST_F(Arp, WhatIsNoMac)
{
    for (const char *const wrong : {"", "02:00:5e:00:53", "2:0:5e:0:53:a", "02-00-5e-00-53-0a",
                                    "02:00:5e:00:53:0g", "02:00:5e:00:53:0a:0b", "192.168.77.9"}) {
        refuses({"lan", "arp", wrong}, "prodctl lan arp",
                std::string{"'"} + wrong + "' is no MAC such as 00:11:22:aa:bb:cc");
    }
}

TEST(ArpTable, OddOnes)
{
    const test::FakeProcNet net;
    const auto arp = [] {
        // The leak checker of an instrumented build would look for its process there and fail.
        return prodctl({"lan", "arp", "--json"}, "",
                       [] { setenv("ASAN_OPTIONS", "detect_leaks=0", 1); });
    };
    for (const char *const odd : {"", "heading\n", "heading\n\n \n"}) {
        net.write("arp", odd);
        EXPECT_EQ(arp(), (Outcome{0, "{\"arp\":[]}\n", ""})) << odd;
    }
    net.write("arp", "heading\n\033[1m 0x1 0xff 02 * \xFF\n");
    EXPECT_EQ(arp().out,
              "{\"arp\":[{\"address\":\"\\u001b[1m\",\"mac\":\"02\",\"state\":\"permanent\","
              "\"interface\":\"\xEF\xBF\xBD\"}]}\n");
    net.remove("arp");
    EXPECT_EQ(arp(), (Outcome{1, "{\"error\":\"the neighbour table cannot be read\"}\n",
                              "prodctl lan arp: the neighbour table cannot be read\n"}));
}

// ---- completion -------------------------------------------------------------------------------

TEST(Completion, OffersTheLists)
{
    const test::Words words =
        test::bash_completes(PRODCTL_SOURCES "/prodctl.bash", PRODCTL, {"lan", ""});
    EXPECT_THAT(words, Contains("arp"));
    EXPECT_THAT(words, Contains("clients"));
}

}  // namespace
