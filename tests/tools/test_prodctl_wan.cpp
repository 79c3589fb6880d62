// SPDX-License-Identifier: MIT
// The groups wan, lan and port, and the status page, on networks that the test lays out: WAN 1 with
// a provider at the far end of its cable, WAN 2 without a cable, a LAN bridge with neighbours.
#include <sched.h>

#include <memory>

#include "platform/cfm.h"
#include "prod_common_debug.h"
#include "prod_common_file.h"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/store.hpp"
#include "tool.hpp"

using test::answer;
using test::FileHolds;
using test::Json;
using test::Outcome;
using test::Prints;
using test::prodctl;
using test::refuses;
using test::Words;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

namespace
{

class Wan : public test::Fresh
{
  protected:
    /** For the commands that follow, the machine has been up for hours, however new it is. */
    static void SetUpTestSuite()
    {
        static bool done = false;
        if (!done) {
            ASSERT_EQ(unshare(CLONE_NEWTIME), 0) << strerror(errno);
            test::write_text("/proc/self/timens_offsets",
                             "boottime " + std::to_string(kEarlier) + " 0\n");
            done = true;
        }
    }

    void SetUp() override
    {
        test::store({{"sys.mode", "3"},
                     {"sys.ports", "43210"},
                     {"wans.flag", "2"},
                     {"wan1.connecttype", "0"},
                     {"wan2.connecttype", "1"},
                     {"port.1.ifname", "eth1"},
                     {"port.2.ifname", "eth2"},
                     {"port.3.ifname", "eth3"},
                     {"port.4.ifname", "eth4"},
                     {"port.5.ifname", "eth5"}});
        test::write_text("/etc/lan_wan_port",
                         "wan1 4 vlan2\nwan2 3 vlan3\nlan3 2 vlan1\nlan2 1 vlan1\n");
        for (const char *const path :
             {"/etc/wan1.ini", "/etc/wan12.ini", "/etc/wan2.ini", "/etc/dns1", "/etc/dns2",
              "/etc/conntime1", "/etc/dhcps.leases"}) {
            test::remove_all(path);
        }
        test::write_text("/etc/resolv.conf", "");
    }

    /** Puts the cable of WAN 1 in and gives the WAN its lease. */
    void connect()
    {
        provider_ = std::make_unique<test::Peer>("eth1", "100.64.1.100/24", "100.64.1.1/24",
                                                 "02:00:64:00:01:01");
        test::link_is_up("eth1");
        ASSERT_EQ(prodctl({"wan", "save-lease", "1", "100.64.1.100", "255.255.255.0", "100.64.1.1",
                           "100.64.1.1", "100.64.1.53"})
                      .status,
                  0);
        const double up = std::stod(test::read_text("/proc/uptime"));
        test::write_text("/etc/conntime1",
                         std::to_string(static_cast<int>(up) + kEarlier - 3725) + "\n");
    }

    static constexpr int kEarlier = 2 * 3600;
    std::unique_ptr<test::Peer> provider_;
};
using Lan = Wan;
using Status = Wan;

/** A pattern for @p text, in which RATE stands for any rate and TIME for the connection time. */
std::string pattern(const std::string &text)
{
    std::string result = test::literally(text);
    for (const auto &[word, expression] :
         {std::pair{"RATE", "[0-9]+\\.[0-9]{2}"}, {"TIME", "372[5-9]"}, {"SOON", "[5-9]"}}) {
        for (std::size_t at; (at = result.find(word)) != std::string::npos;) {
            result.replace(at, 4, expression);
        }
    }
    return result;
}

// ---- status -----------------------------------------------------------------------------------

TEST_F(Wan, StatusOfAConnectedWan)
{
    connect();
    const Outcome outcome = prodctl({"wan", "status", "1", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(
        outcome.out,
        Prints(pattern(
            "{\"wans\":[{\"id\":1,\"type\":\"dhcp\",\"status\":\"connected\","
            "\"interface\":\"eth1\",\"address\":\"100.64.1.100\",\"mask\":\"255.255.255.0\","
            "\"gateway\":\"100.64.1.1\",\"dns\":[\"100.64.1.1\",\"100.64.1.53\"],"
            "\"up_rate\":\"RATE\",\"down_rate\":\"RATE\",\"connection_time\":TIME}]}\n")));
    EXPECT_THAT(prodctl({"wan", "status", "1"}).out,
                Prints(pattern("WAN 1 connected (dhcp)\n  interface      eth1\n"
                               "  address        100.64.1.100\n  mask           255.255.255.0\n"
                               "  gateway        100.64.1.1\n"
                               "  DNS            100.64.1.1, 100.64.1.53\n"
                               "  up             RATE KiB/s\n  down           RATE KiB/s\n"
                               "  connected for  1 h 2 min SOON s (TIME s)\n")));
}

TEST_F(Wan, StatusOfAllWans)
{
    const std::string eth1 =
        "{\"id\":1,\"type\":\"dhcp\",\"status\":\"no "
        "wire\",\"interface\":\"eth1\",\"address\":\"\","
        "\"mask\":\"\",\"gateway\":\"\",\"dns\":[],\"up_rate\":\"0\",\"down_rate\":\"0\","
        "\"connection_time\":0}";
    const std::string eth2 =
        "{\"id\":2,\"type\":\"static\",\"status\":\"no wire\",\"interface\":\"eth2\","
        "\"address\":\"\",\"mask\":\"\",\"gateway\":\"\",\"dns\":[],\"up_rate\":\"0\","
        "\"down_rate\":\"0\",\"connection_time\":0}";
    EXPECT_EQ(prodctl({"wan", "status", "--json"}),
              (Outcome{0, "{\"wans\":[" + eth1 + "," + eth2 + "]}\n", ""}));
    EXPECT_EQ(prodctl({"wan", "status"}), (Outcome{0,
                                                   "WAN 1 no wire (dhcp)\n  interface  eth1\n\n"
                                                   "WAN 2 no wire (static)\n  interface  eth2\n",
                                                   ""}));
    EXPECT_EQ(prodctl({"wan", "status", "2", "--json"}).out, "{\"wans\":[" + eth2 + "]}\n");
}

TEST_F(Wan, StatusWithoutAnAddress)
{
    connect();
    test::run("ip -4 address flush dev eth1");
    EXPECT_THAT(prodctl({"wan", "status", "1", "--json"}).out,
                HasSubstr("\"status\":\"not connected\",\"interface\":\"eth1\",\"address\":\"\""));
    EXPECT_EQ(prodctl({"check", "wan", "1"}), (Outcome{1, "no\n", ""}));
    // A client that is at work, under the name that the firmware looks for.
    test::run("cp /bin/busybox /tmp/dhcpcd_wan1 && ln -sf /tmp/dhcpcd_wan1 /tmp/sleep");
    test::run("(exec -a sleep /tmp/dhcpcd_wan1 100 >/dev/null 2>&1 & echo $! >/tmp/client)");
    test::eventually("the client runs", [] {
        return prodctl({"check", "app", "dhcpcd_wan1"}).status == 0;
    });
    EXPECT_THAT(prodctl({"wan", "status", "1"}).out, HasSubstr("WAN 1 connecting (dhcp)\n"));
    test::run("kill $(cat /tmp/client)");
}

TEST_F(Wan, StatusOfADoubleAccessWan)
{
    connect();
    ASSERT_EQ(SetValue("wan1.connecttype", "0"), 1);
    test::write_text("/etc/wan12.ini", "ip=10.0.0.2\nmask=255.0.0.0\ngateway=10.0.0.1\n");
    const Outcome outcome = prodctl({"wan", "status", "1", "--json"});
    EXPECT_THAT(outcome.out,
                HasSubstr("\"second\":{\"address\":\"10.0.0.2\",\"mask\":\"255.0.0.0\","
                          "\"gateway\":\"10.0.0.1\",\"dns\":[]}}]}\n"));
    EXPECT_THAT(
        prodctl({"wan", "status", "1"}).out,
        AllOf(HasSubstr("\n  second address  10.0.0.2\n"), HasSubstr("\n  second DNS      -\n")));
}

TEST_F(Wan, StatusOfWansThatAreNot)
{
    for (const char *const id : {"0", "5", "-1", "one", "", "1 ", "99999999999"}) {
        refuses({"wan", "status", id}, "prodctl wan status",
                std::string{"'"} + id + "' is no WAN: 1 to 4");
    }
    EXPECT_EQ(prodctl({"wan", "status", "3", "--json"}),
              (Outcome{1, "{\"error\":\"WAN 3 is not configured\"}\n",
                       "prodctl wan status: WAN 3 is not configured\n"}));
    ASSERT_EQ(SetValue("wans.flag", "0"), 1);
    EXPECT_EQ(prodctl({"wan", "status"}), (Outcome{0, "No WAN is configured.\n", ""}));
    EXPECT_EQ(prodctl({"wan", "status", "--json"}), (Outcome{0, "{\"wans\":[]}\n", ""}));
}

TEST_F(Wan, UnreasonableConfiguration)
{
    ASSERT_EQ(SetValue("wans.flag", "2000000000"), 1);
    const Json all = answer(prodctl({"wan", "status", "--json"}));
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(all.get(), "wans")), 4);

    ASSERT_EQ(SetValue("wan1.connecttype", "77"), 1);
    const Outcome outcome = prodctl({"wan", "status", "1", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\"type\":\"unknown\",\"status\":\"unknown\""));
    EXPECT_THAT(outcome.err, HasSubstr("prodctl wan status: the state of WAN 1 cannot be had\n"));

    const std::string longest(CFM_VALUE_SIZE - 1, '7');
    for (const char *const key :
         {"wans.flag", "sys.ports", "sys.mode", "wan1.connecttype", "port.1.ifname"}) {
        ASSERT_EQ(SetValue(key, longest.c_str()), 1);
    }
    for (const Words &call : {Words{"--json", "wan", "status"},
                              {"--json", "wan", "ports"},
                              {"--json", "port"},
                              {"--json", "status"}}) {
        const Outcome many = prodctl(call);
        EXPECT_LT(many.status, 2) << many;
        answer(many);
    }
}

TEST_F(Wan, Check)
{
    EXPECT_EQ(prodctl({"check", "wan", "1"}), (Outcome{1, "no\n", ""}));
    connect();
    EXPECT_EQ(prodctl({"check", "wan", "1"}), (Outcome{0, "yes\n", ""}));
    EXPECT_EQ(prodctl({"check", "wan", "2", "--json"}), (Outcome{1, "{\"result\":false}\n", ""}));
    EXPECT_EQ(prodctl({"check", "wan", "4"}).status, 1) << "not configured";
    refuses({"check", "wan", "5"}, "prodctl check wan", "'5' is no WAN: 1 to 4");
}

// ---- ports ------------------------------------------------------------------------------------

TEST_F(Wan, Ports)
{
    connect();
    EXPECT_EQ(prodctl({"wan", "ports"}), (Outcome{0,
                                                  "PLACE  PHYSICAL  ROLE   INTERFACE  VLAN  LINK\n"
                                                  "1      4         WAN 1  eth1       2     up\n"
                                                  "2      3         WAN 2  eth2       3     down\n"
                                                  "3      2         LAN 3  eth3       1     down\n"
                                                  "4      1         LAN 2  eth4       1     down\n"
                                                  "5      0         LAN 1  eth5       -     down\n",
                                                  ""}));
    EXPECT_THAT(
        prodctl({"wan", "ports", "--json"}).out,
        AllOf(HasSubstr("{\"ports\":[{\"place\":1,\"physical_id\":4,\"role\":\"wan\",\"id\":1,"
                        "\"interface\":\"eth1\",\"vlan\":2,\"link\":true},"),
              HasSubstr("{\"place\":5,\"physical_id\":0,\"role\":\"lan\",\"id\":1,"
                        "\"interface\":\"eth5\",\"vlan\":0,\"link\":false}]}\n")));
}

TEST_F(Wan, NoPorts)
{
    ASSERT_EQ(SetValue("sys.ports", ""), 1);
    EXPECT_EQ(prodctl({"wan", "ports"}).out, "No port is configured.\n");
    EXPECT_EQ(prodctl({"wan", "ports", "--json"}).out, "{\"ports\":[]}\n");
    EXPECT_EQ(prodctl({"port"}).out, "No port is configured.\n");
    EXPECT_EQ(prodctl({"port", "--json"}).out, "{\"ports\":[]}\n");
}

TEST_F(Wan, PortLinks)
{
    connect();
    EXPECT_EQ(prodctl({"port"}).out,
              "PHYSICAL  LINK\n4         up\n3         down\n2         down\n1         down\n"
              "0         down\n");
    EXPECT_EQ(prodctl({"port", "4"}), (Outcome{0, "PHYSICAL  LINK\n4         up\n", ""}));
    EXPECT_EQ(prodctl({"port", "3", "--json"}),
              (Outcome{1, "{\"ports\":[{\"physical_id\":3,\"link\":false}]}\n", ""}));
    for (const char *const id : {"-1", "256", "x", ""}) {
        refuses({"port", id}, "prodctl port", std::string{"'"} + id + "' is no physical port id");
    }
}

// ---- name servers -----------------------------------------------------------------------------

TEST_F(Wan, Dns)
{
    EXPECT_EQ(prodctl({"wan", "dns"}).out, "  resolver  -\n  WAN 1     -\n  WAN 2     -\n");
    test::write_text("/etc/resolv.conf",
                     "options timeout:1\nnameserver 100.64.1.1\nnameserver 9.9.9.9\n");
    test::write_text("/etc/dns1", "100.64.1.1\n100.64.1.53\n");
    EXPECT_EQ(prodctl({"wan", "dns"}),
              (Outcome{0,
                       "  resolver  100.64.1.1, 9.9.9.9\n  WAN 1     100.64.1.1, 100.64.1.53\n"
                       "  WAN 2     -\n",
                       ""}));
    EXPECT_EQ(prodctl({"wan", "dns", "--json"}).out,
              "{\"servers\":[\"100.64.1.1\",\"9.9.9.9\"],\"wans\":[{\"id\":1,\"dns\":"
              "[\"100.64.1.1\",\"100.64.1.53\"]},{\"id\":2,\"dns\":[]}]}\n");
}

TEST_F(Wan, DnsWithOddFiles)
{
    test::write_text("/etc/resolv.conf",
                     "nameserver " + std::string(5000, '9') + "\n\xff\xfe\nnameserver\n");
    test::write_text("/etc/dns1", std::string(5000, 'x') + "\n\x01\x02\n");
    answer(prodctl({"wan", "dns", "--json"}));
    EXPECT_EQ(prodctl({"wan", "dns"}).status, 0);
}

TEST_F(Wan, DnsAddResetExchange)
{
    EXPECT_EQ(prodctl({"wan", "dns", "add", "18.8.8.81", "--json"}),
              (Outcome{0, "{\"servers\":[\"18.8.8.81\"]}\n", ""}));
    EXPECT_EQ(prodctl({"wan", "dns", "add", "9.9.9.9"}).out, "  resolver  18.8.8.81, 9.9.9.9\n");
    EXPECT_EQ(prodctl({"wan", "dns", "add", "9.9.9.9"}).out, "  resolver  18.8.8.81, 9.9.9.9\n")
        << "it is there already";
    EXPECT_EQ(prodctl({"wan", "dns", "add", "8.8.8.8", "--json"}),
              (Outcome{1, "{\"servers\":[\"18.8.8.81\",\"9.9.9.9\"]}\n",
                       "prodctl wan dns add: 8.8.8.8 was not added\n"}))
        << "its text is part of another's";
    EXPECT_EQ(prodctl({"wan", "dns", "add", "2001:db8::53"}).status, 0);
    EXPECT_EQ(prodctl({"wan", "dns", "exchange", "--json"}).out,
              "{\"servers\":[\"9.9.9.9\",\"2001:db8::53\",\"18.8.8.81\"]}\n");
    EXPECT_EQ(prodctl({"wan", "dns", "reset", "--json"}), (Outcome{0, "{\"servers\":[]}\n", ""}));
    EXPECT_THAT(test::read_text("/etc/resolv.conf"), Not(HasSubstr("nameserver")));
    for (const char *const server : {"", "8.8.8", "example.net", "8.8.8.8\nnameserver 6.6.6.6"}) {
        EXPECT_EQ(prodctl({"wan", "dns", "add", server}).status, 2) << server;
    }
}

// ---- leases -----------------------------------------------------------------------------------

TEST_F(Wan, SaveLease)
{
    EXPECT_EQ(prodctl({"wan", "save-lease", "1", "100.64.1.100", "255.255.255.0", "100.64.1.1",
                       "100.64.1.1", "100.64.1.53"}),
              (Outcome{0, "WAN 1 100.64.1.100 saved in /etc/wan1.ini\n", ""}));
    EXPECT_EQ(test::read_text("/etc/wan1.ini"),
              "ip=100.64.1.100\nmask=255.255.255.0\ngateway=100.64.1.1\ndns1=100.64.1.1\n"
              "dns2=100.64.1.53\n");
    EXPECT_EQ(prodctl({"wan", "save-lease", "2", "10.1.2.3", "255.255.255.255", "", "0.0.0.0", "",
                       "--json"}),
              (Outcome{0,
                       "{\"id\":2,\"file\":\"/etc/wan2.ini\",\"address\":\"10.1.2.3\","
                       "\"mask\":\"255.255.255.255\",\"gateway\":\"0.0.0.0\",\"dns\":[]}\n",
                       ""}));
    WAN_IP_INFO_STRU info = {};
    EXPECT_EQ(file_wan_ip_info_get(WAN_ID_2, &info), HLX_OK);
    EXPECT_STREQ(info.wan_ip, "10.1.2.3");
    EXPECT_STREQ(info.wan_gw, "0.0.0.0");
    EXPECT_STREQ(info.wan_dns1, "0.0.0.0");
    EXPECT_EQ(prodctl({"wan", "save-lease", "2", "10.1.2.4", "0.0.0.0", "10.0.0.1"}).status, 0)
        << "without name servers";
}

TEST_F(Wan, SaveLeaseChecksEachArgument)
{
    const Words good = {"wan",       "save-lease", "1",       "10.0.0.2",
                        "255.0.0.0", "10.0.0.1",   "9.9.9.9", "8.8.8.8"};
    const struct {
        std::size_t place;
        std::string text;
        std::string complaint;
    } kWrong[] = {
        {2, "0", "is no WAN: 1 to 4"},
        {2, "5", "is no WAN: 1 to 4"},
        {2, "wan1", "is no WAN: 1 to 4"},
        {3, "", "is no address of a host"},
        {3, "0.0.0.0", "is no address of a host"},
        {3, "255.255.255.255", "is no address of a host"},
        {3, "10.0.0", "is no address of a host"},
        {3, "10.0.0.256", "is no address of a host"},
        {3, "10.0.0.2;reboot", "is no address of a host"},
        {3, std::string(5000, '1'), "is no address of a host"},
        {4, "", "is no mask"},
        {4, "255.0.255.0", "is no mask"},
        {4, "24", "is no mask"},
        {5, "10.0.0.1.1", "is no address of a gateway"},
        {5, "gw", "is no address of a gateway"},
        {6, "9.9.9.9 ", "is no address of a name server"},
        {7, "2001:db8::1", "is no address of a name server"},
    };
    for (const auto &wrong : kWrong) {
        Words words = good;
        words[wrong.place] = wrong.text;
        refuses(words, "prodctl wan save-lease", "'" + wrong.text + "' " + wrong.complaint);
        EXPECT_FALSE(test::exists("/etc/wan1.ini"));
    }
    EXPECT_EQ(prodctl(good).status, 0);
}

TEST_F(Wan, SaveLeaseThatCannotBeWritten)
{
    test::run("mkdir /etc/wan3.ini");
    const Outcome outcome =
        prodctl({"wan", "save-lease", "3", "10.0.0.2", "255.0.0.0", "10.0.0.1", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "{\"error\":\"/etc/wan3.ini was not written\"}\n");
    EXPECT_THAT(outcome.err, HasSubstr("prodctl wan save-lease: /etc/wan3.ini was not written\n"));
    test::run("rmdir /etc/wan3.ini");
}

// ---- LAN --------------------------------------------------------------------------------------

/** The LAN bridge, with neighbours that the kernel knows. */
class Bridge
{
  public:
    Bridge()
    {
        test::run(
            "ip link add br0 type bridge && ip link set br0 address 02:00:00:10:00:00 up && "
            "ip address add 192.168.0.1/24 dev br0");
    }
    ~Bridge() { test::run("ip link del br0"); }

    void knows(const std::string &address, const std::string &mac) const
    {
        test::run("ip neigh replace %s lladdr %s dev br0 nud permanent", address.c_str(),
                  mac.c_str());
    }
};

TEST_F(Lan, Neighbours)
{
    connect();
    test::run("ip neigh replace 100.64.1.1 lladdr 02:00:64:00:01:01 dev eth1 nud permanent");
    const Bridge bridge;
    bridge.knows("192.168.0.100", "02:00:5e:00:53:01");
    bridge.knows("192.168.0.101", "02:00:5e:00:53:02");
    test::write_text(
        "/etc/dhcps.leases",
        "1700000000 02:00:5E:00:53:01 192.168.0.100 laptop 01:02:00:5e:00:53:01 laptop\n"
        "1700000000 02:00:5e:00:53:02 192.168.0.101 * *\n");
    EXPECT_EQ(prodctl({"lan", "neighbours", "--json"}).out,
              "{\"neighbours\":[{\"address\":\"192.168.0.100\",\"mac\":\"02:00:5e:00:53:01\","
              "\"hostname\":\"laptop\"},{\"address\":\"192.168.0.101\","
              "\"mac\":\"02:00:5e:00:53:02\",\"hostname\":\"\"}]}\n")
        << "the provider is no neighbour on the LAN";
    bridge.knows("192.168.0.20", "02:00:5e:00:53:03");
    EXPECT_EQ(prodctl({"lan", "neighbours"}).out,
              "ADDRESS        MAC                HOST NAME\n"
              "192.168.0.20   02:00:5e:00:53:03  -\n"
              "192.168.0.100  02:00:5e:00:53:01  laptop\n"
              "192.168.0.101  02:00:5e:00:53:02  -\n")
        << "in the order of the addresses";
}

TEST_F(Lan, NoNeighbours)
{
    EXPECT_EQ(prodctl({"lan", "neighbours"}), (Outcome{0, "No neighbour is known.\n", ""}));
    EXPECT_EQ(prodctl({"lan", "neighbours", "--json"}), (Outcome{0, "{\"neighbours\":[]}\n", ""}));
}

TEST_F(Lan, OddLeases)
{
    const Bridge bridge;
    bridge.knows("192.168.0.100", "02:00:5e:00:53:01");
    const std::string good = "1 02:00:5e:00:53:01 192.168.0.100 a 01:02 ";
    const std::string unnamed = "\"mac\":\"02:00:5e:00:53:01\",\"hostname\":\"\"}]}\n";
    const auto hostname_with = [](const std::string &leases) {
        test::write_text("/etc/dhcps.leases", leases);
        const Json found = answer(prodctl({"lan", "neighbours", "--json"}));
        const cJSON *const list = cJSON_GetObjectItem(found.get(), "neighbours");
        EXPECT_EQ(cJSON_GetArraySize(list), 1);
        return std::string{cJSON_GetStringValue(cJSON_GetObjectItem(list->child, "hostname"))};
    };
    EXPECT_EQ(hostname_with(good + "the laptop\n"), "the laptop");
    EXPECT_EQ(hostname_with(good + std::string(200, 'n') + "\n"), std::string(63, 'n'));
    EXPECT_EQ(hostname_with(good + "\033[31m\n"), "\033[31m");
    EXPECT_THAT(prodctl({"lan", "neighbours"}).out, Not(HasSubstr("\033")));
    for (const std::string &odd :
         {std::string{}, std::string{"\n\n"}, std::string{"1 2"}, std::string(5000, 'x'),
          std::string("\0\xff\x01 a b c", 9), std::string{"1 02:00:5e:00:53:01\n"},
          "1 " + std::string(300, 'm') + " 192.168.0.100 a 01:02 name\n",
          std::string{"1 02:00:5e:00:53:01 192.168.0.100 a b c\n"}}) {
        EXPECT_EQ(hostname_with(odd), "") << odd;
    }
    EXPECT_THAT(prodctl({"lan", "neighbours", "--json"}).out, HasSubstr(unnamed));
}

/** The neighbours beside a stand-in for /proc, which has no folder for processes that start later.
 */
Outcome neighbours_beside_a_fake()
{
    // The leak checker of an instrumented build would look for its process there and fail.
    return prodctl({"lan", "neighbours", "--json"}, "",
                   [] { setenv("ASAN_OPTIONS", "detect_leaks=0", 1); });
}

TEST_F(Lan, ANeighbourTableThatIsNotThere)
{
    const test::FakeProcNet net;
    net.remove("arp");
    EXPECT_EQ(neighbours_beside_a_fake(),
              (Outcome{1, "{\"neighbours\":[]}\n",
                       "prodctl lan neighbours: the neighbour table cannot be read\n"}));
}

TEST_F(Lan, OddNeighbourTables)
{
    const test::FakeProcNet net;
    const std::string heading =
        "IP address       HW type     Flags       HW address            Mask     Device\n";
    for (const std::string &odd :
         {std::string{}, heading, heading + "\n\n", heading + "192.168.0.9",
          std::string(100000, 'x'), heading + std::string("\0\xff\n", 3),
          heading + "192.168.0.9 0x1 0x0 02:00:5e:00:53:09 * br0\n",
          heading + "192.168.0.9 0x1 0x2 02:00:5e:00:53:09 * vlan9\n"}) {
        net.write("arp", odd);
        EXPECT_EQ(neighbours_beside_a_fake(), (Outcome{0, "{\"neighbours\":[]}\n", ""})) << odd;
    }
    net.write("arp", heading +
                         "192.168.0.9 0x1 0x2 02:00:5e:00:53:09 * vlan10\n"
                         "192.168.0.9 0x1 0x2 02:00:5e:00:53:0a * br0\n");
    EXPECT_EQ(neighbours_beside_a_fake().out,
              "{\"neighbours\":[{\"address\":\"192.168.0.9\",\"mac\":\"02:00:5e:00:53:09\","
              "\"hostname\":\"\"}]}\n")
        << "an address counts once";
}

TEST_F(Lan, Show)
{
    const Bridge bridge;
    EXPECT_EQ(prodctl({"lan", "show"}),
              (Outcome{0,
                       "br0\n  address  192.168.0.1/24\n  MAC      02:00:00:10:00:00\n"
                       "  MTU      1500\n",
                       ""}));
    EXPECT_EQ(prodctl({"lan", "show", "--json"}).out,
              "{\"interface\":\"br0\",\"address\":\"192.168.0.1\",\"prefix\":24,"
              "\"mac\":\"02:00:00:10:00:00\",\"mtu\":1500}\n");
    const FileHolds no_lan{"/etc/board.json", "{}"};
    const Outcome outcome = prodctl({"lan", "show", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "{\"error\":\"the board has no LAN\"}\n");
}

// ---- IPv6 -------------------------------------------------------------------------------------

using Ipv6 = Wan;

/** A cable with addresses on this end, which are there at once. */
class Cable
{
  public:
    explicit Cable(const std::string &name, const std::string &mac = "02:00:00:00:00:01")
        : name_(name)
    {
        test::run("ip link add %s address %s type veth peer name far0", name.c_str(), mac.c_str());
        test::run("echo 0 >/proc/sys/net/ipv6/conf/%s/accept_dad", name.c_str());
        test::run("ip link set %s up && ip link set far0 up", name.c_str());
    }
    ~Cable() { test::run("ip link del %s", name_.c_str()); }
    Cable(const Cable &) = delete;
    Cable &operator=(const Cable &) = delete;

    void address(const char *address) const
    {
        test::run("ip address add %s dev %s nodad", address, name_.c_str());
    }

  private:
    std::string name_;
};

TEST_F(Ipv6, ShowAnInterface)
{
    const Cable cable{"eth1"};
    cable.address("2001:db8:1::1/64");
    const FileHolds dns{"/etc/resolv6.conf", "nameserver 2001:db8::53\nnameserver bad\x1b[m\n"};
    EXPECT_EQ(prodctl({"ipv6", "show", "eth1", "lo"}),
              (Outcome{0,
                       "eth1\n"
                       "  global      2001:db8:1::1/64\n"
                       "  link-local  fe80::ff:fe00:1/64\n"
                       "lo\n"
                       "  global      ::1/128\n"
                       "  link-local  -\n"
                       "\n"
                       "  default gateway  -\n"
                       "  DNS              2001:db8::53, bad?[m\n",
                       ""}));
    EXPECT_EQ(prodctl({"ipv6", "show", "eth1", "--json"}).out,
              "{\"ipv6\":{\"interfaces\":[{\"interface\":\"eth1\",\"role\":\"\","
              "\"global\":{\"address\":\"2001:db8:1::1\",\"prefix\":64},"
              "\"link_local\":{\"address\":\"fe80::ff:fe00:1\",\"prefix\":64},"
              "\"addresses\":[\"2001:db8:1::1/64\",\"fe80::ff:fe00:1/64\"]}],"
              "\"gateway\":\"\",\"dns\":[\"2001:db8::53\",\"bad\\u001b[m\"]}}\n");
}

TEST_F(Ipv6, ShowTheWansAndTheLan)
{
    const Cable cable{"eth1"};
    cable.address("2001:db8:1::1/64");
    cable.address("2001:db8:2::1/48");
    test::run("ip -6 route add default via 2001:db8:1::2 dev eth1");
    const FileHolds no_dns{"/etc/resolv6.conf"};
    // The kernel's table has the two global addresses in an order of its own.
    const auto page = [](const char *global) {
        return std::string{"WAN 1 eth1\n  global         "} + global +
               "\n"
               "  link-local     fe80::ff:fe00:1/64\n"
               "  all addresses  2001:db8:2::1/48, 2001:db8:1::1/64, fe80::ff:fe00:1/64\n"
               "WAN 2 eth2\n"
               "  global      -\n"
               "  link-local  -\n"
               "LAN br0\n"
               "  global      -\n"
               "  link-local  -\n"
               "\n"
               "  default gateway  2001:db8:1::2\n"
               "  DNS              -\n";
    };
    EXPECT_THAT(prodctl({"ipv6", "show"}).out,
                AnyOf(page("2001:db8:1::1/64"), page("2001:db8:2::1/48")));
}

TEST_F(Ipv6, InterfacesThatAreNot)
{
    const Outcome outcome = prodctl({"ipv6", "show", "lo", "none"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("there is no interface 'none'"));
    EXPECT_EQ(prodctl({"ipv6", "show", ";reboot", "--json"}).out,
              "{\"error\":\"there is no interface ';reboot'\"}\n");
}

// ---- MACs of the WANs -------------------------------------------------------------------------

using Macs = Wan;

TEST_F(Macs, TheListingChangesNothing)
{
    const Cable first{"eth1"};
    ASSERT_EQ(SetValue("wlan0_maxbss", "8"), 1);
    ASSERT_EQ(SetValue("wlan1_maxbss", "8"), 1);
    ASSERT_EQ(SetValue("wan.mac", ""), 1);
    ASSERT_EQ(SetValue("wan2.macaddr", "02:aa:00:00:00:0b"), 1);
    EXPECT_EQ(prodctl({"wan", "macs"}).out,
              "WAN  INTERFACE  CONFIGURED         COMPUTED           ACTUAL\n"
              "1    eth1       -                  02:00:00:10:00:11  02:00:00:00:00:01\n"
              "2    eth2       02:aa:00:00:00:0b  02:00:00:10:01:12  -\n");
    EXPECT_EQ(prodctl({"wan", "macs", "--json"}).out,
              "{\"source\":\"board\",\"wans\":["
              "{\"id\":1,\"interface\":\"eth1\",\"configured\":\"\","
              "\"computed\":\"02:00:00:10:00:11\",\"actual\":\"02:00:00:00:00:01\","
              "\"applied\":false},"
              "{\"id\":2,\"interface\":\"eth2\",\"configured\":\"02:aa:00:00:00:0b\","
              "\"computed\":\"02:00:00:10:01:12\",\"actual\":\"\",\"applied\":false}]}\n");
}

TEST_F(Macs, Applied)
{
    const Cable first{"eth1"};
    ASSERT_EQ(SetValue("wans.flag", "1"), 1);
    ASSERT_EQ(SetValue("wan.mac", "02:00:00:20:00:00"), 1);
    const std::string wanted =
        "{\"source\":\"wan.mac\",\"wans\":[{\"id\":1,\"interface\":\"eth1\","
        "\"configured\":\"\",\"computed\":\"02:00:00:20:00:00\","
        "\"actual\":\"02:00:00:20:00:00\",\"applied\":true}]}\n";
    const Outcome outcome = prodctl({"wan", "macs", "--apply", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, wanted);
    EXPECT_THAT(outcome.err, HasSubstr("setting wan1.mac = 02:00:00:20:00:00"));
    EXPECT_EQ(prodctl({"wan", "macs", "--json"}), (Outcome{0, wanted, ""}));
}

TEST_F(Macs, AppliedWhereAnInterfaceIsMissing)
{
    const Outcome outcome = prodctl({"wan", "macs", "--apply"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("not every WAN took its MAC"));
}

TEST_F(Macs, WithoutABaseMac)
{
    ASSERT_EQ(SetValue("wan.mac", "none"), 1);
    const FileHolds board{"/etc/board.json", "{}"};
    const Outcome outcome = prodctl({"wan", "macs"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("the board has no base MAC and \"wan.mac\" is not set"));
}

TEST_F(Macs, NoWan)
{
    ASSERT_EQ(SetValue("wans.flag", "0"), 1);
    EXPECT_EQ(prodctl({"wan", "macs"}).out, "No WAN is configured.\n");
    refuses({"wan", "macs", "1"}, "prodctl wan macs", "too many arguments, expected: none");
}

// ---- the status page --------------------------------------------------------------------------

TEST_F(Status, EverythingOnOnePage)
{
    connect();
    const Bridge bridge;
    bridge.knows("192.168.0.100", "02:00:5e:00:53:01");
    set_dbg_level("prod", PROD_DBG_ERROR);
    test::write_text("/etc/resolv.conf", "nameserver 9.9.9.9\nnameserver 1.1.1.1\n");
    const FileHolds relay{"/etc/dns.conf", " -s 100.64.1.1  -s 2001:db8::53 "};
    const Outcome outcome = prodctl({"status"});
    EXPECT_EQ(outcome.status, 0);
    for (const char *const part :
         {"System\n------\n  system mode  gateway (3)\n",
          "\n\nWANs\n----\nWAN 1 connected (dhcp)\n", "\n\nWAN 2 no wire (static)\n",
          "\n\nIPv6\n----\nWAN 1 eth1\n  global      -\n  link-local  fe80::",
          "\n\nName servers\n------------\n  resolver  9.9.9.9, 1.1.1.1\n"
          "  relay     100.64.1.1, 2001:db8::53\n",
          "\n\nPorts\n-----\nPLACE  PHYSICAL",
          "\n\nNeighbours on the LAN\n---------------------\nADDRESS", "192.168.0.100",
          "\n\nDebug levels\n------------\nMODULE  LEVEL\nprod    error\n"}) {
        EXPECT_THAT(outcome.out, HasSubstr(part));
    }
    EXPECT_THAT(outcome.out, Not(HasSubstr("\n\n\n")));
}

TEST_F(Status, TheSamePartsAsTheCommands)
{
    connect();
    const Bridge bridge;
    bridge.knows("192.168.0.100", "02:00:5e:00:53:01");
    set_dbg_level("wifi", PROD_DBG_ERROR);
    const std::string page = prodctl({"status", "--json"}).out;
    for (const Words &part :
         {Words{"wan", "ports"}, {"ipv6", "show"}, {"lan", "neighbours"}, {"debug", "show"}}) {
        const std::string text = prodctl({part[0], part[1], "--json"}).out;
        EXPECT_THAT(page, HasSubstr(text.substr(1, text.size() - 3)));
    }
    EXPECT_THAT(page, HasSubstr("{\"system\":{\"mode\":3,\"mode_name\":\"gateway\","));
    EXPECT_THAT(page,
                HasSubstr(",\"wans\":[{\"id\":1,\"type\":\"dhcp\",\"status\":\"connected\","));
}

TEST_F(Status, OfABareDevice)
{
    ASSERT_EQ(SetValue("wans.flag", "0"), 1);
    ASSERT_EQ(SetValue("sys.ports", ""), 1);
    const std::string page = prodctl({"status"}).out;
    for (const char *const part :
         {"No WAN is configured.\n", "  resolver  -\n  relay     -\n", "No port is configured.\n",
          "No neighbour is known.\n", "No module is registered: only errors are written.\n"}) {
        EXPECT_THAT(page, HasSubstr(part));
    }
}

}  // namespace
