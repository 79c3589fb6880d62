// SPDX-License-Identifier: MIT
// The lists of the status pages on the booted device: routes, port mappings, the system log.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

#include "stories.hpp"
#include "support/files.hpp"

using story::eventually;
using story::Json;
using story::must;

namespace
{

std::string shown(const Json &route)
{
    return route["destination"].text() + " " + route["mask"].text() + " " +
           route["gateway"].text() + " " + route["interface"].text() + " " + route["metric"].text();
}

/** Where a route stands in the list; -1 when it does not. */
int place_of(const std::string &wanted)
{
    int place = 0;
    for (const Json &route : Json::answer_of("prodctl route --json")["routes"].items()) {
        if (shown(route) == wanted) {
            return place;
        }
        ++place;
    }
    return -1;
}

std::string entries(const std::string &type)
{
    return must("prodctl log list --type " + type);
}

bool told(const std::string &type, const std::string &message)
{
    return entries(type).find(message) != std::string::npos;
}

// ---- routes -----------------------------------------------------------------------------------

TEST(Lists, RoutesOfTheKernel)
{
    EXPECT_GE(place_of("0.0.0.0 0.0.0.0 100.64.1.1 eth1 1"), 0);
    EXPECT_GE(place_of("0.0.0.0 0.0.0.0 100.64.2.1 eth2 2"), 0);
    EXPECT_GE(place_of("192.168.0.0 255.255.255.0 0.0.0.0 br0 0"), 0);
    must("lab client wan2 release");
    EXPECT_EQ(place_of("0.0.0.0 0.0.0.0 100.64.2.1 eth2 2"), -1);
    EXPECT_GE(place_of("0.0.0.0 0.0.0.0 100.64.1.1 eth1 1"), 0);
}

TEST(Lists, StaticRoutesFollow)
{
    const auto all = [] {
        return Json::answer_of("prodctl route --json")["routes"].items().size();
    };
    const std::size_t before = all();
    must("ip route add 10.77.0.0/16 via 192.168.0.77 table staticroute");
    must("ip route add 10.78.0.1 dev br0 table staticroute");
    must("ip route add default via 100.64.2.1 dev eth2 table staticroute");
    must("ip link add 'via$(reboot);x' type bridge && ip link set 'via$(reboot);x' up");
    must("ip route add 10.79.0.0/30 dev 'via$(reboot);x' table staticroute");
    EXPECT_EQ(all(), before + 4);
    const int first = static_cast<int>(before);
    EXPECT_EQ(place_of("default 255.255.255.255 100.64.2.1 eth2 0"), first);
    EXPECT_EQ(place_of("10.77.0.0 255.255.0.0 192.168.0.77 br0 0"), first + 1);
    EXPECT_EQ(place_of("10.78.0.1 255.255.255.255 0.0.0.0 br0 0"), first + 2);
    EXPECT_NE(must("prodctl route").find("10.79.0.0/30"), std::string::npos);
    must("ip route del 10.77.0.0/16 table staticroute");
    EXPECT_EQ(place_of("10.77.0.0 255.255.0.0 192.168.0.77 br0 0"), -1);
    EXPECT_EQ(all(), before + 3);
}

// ---- port mappings ----------------------------------------------------------------------------

TEST(Lists, PortMappings)
{
    EXPECT_EQ(story::run("prodctl upnp 2>/dev/null").status, 1) << "no UPnP daemon yet";
    test::write_text("/var/upnpmap",
                     "0.0.0.0;8080;192.168.0.100;80;TCP;web server of the laptop\n" +
                         std::string(300, ';') + "\n;;;;;\n" +
                         "0.0.0.0;5060;192.168.0.101;5060;UDP;" + std::string(200, 'x') + "\n");
    const auto mappings = Json::answer_of("prodctl upnp --json")["mappings"].items();
    ASSERT_EQ(mappings.size(), 5U) << "the long line is two";
    EXPECT_EQ(mappings[0]["internal_host"].text(), "192.168.0.100");
    EXPECT_EQ(mappings[0]["description"].text(), "web server of the laptop");
    EXPECT_EQ(mappings[1]["external_host"].text(), "");
    EXPECT_EQ(mappings[4]["internal_port"].text(), "5060");
    EXPECT_EQ(mappings[4]["description"].text(), std::string(63, 'x'));
}

// ---- the system log ---------------------------------------------------------------------------

TEST(Lists, TheLogTellsOfTheWans)
{
    eventually("the device has started", [] { return told("system", "The device has started."); });
    eventually("WAN 1 is up", [] { return told("wan1", "WAN 1 is connected, address 100.64.1."); });
    eventually("WAN 2 is up", [] { return told("wan2", "gateway 100.64.2.1."); });
    EXPECT_FALSE(told("wan1", "WAN 2"));
    EXPECT_FALSE(told("wan1", "disconnected"));
    must("lab client wan1 release");
    eventually("WAN 1 is down", [] { return told("wan1", "WAN 1 is disconnected."); });
    EXPECT_FALSE(told("wan2", "disconnected"));
    EXPECT_TRUE(told("all", "WAN 1 is disconnected."));
}

TEST(Lists, TheLogTellsOfLeases)
{
    eventually("the laptop's lease", [] { return told("lan-dhcp", "02:00:5e:00:53:01 laptop"); });
    EXPECT_TRUE(told("lan-dhcp", "DHCPACK(br0)"));
    EXPECT_FALSE(told("all", "(wan1)")) << "the provider's servers have a log of their own";
    EXPECT_EQ(Json::answer_of("prodctl status --json")["log"].items().size(), 10U);
}

/** Tells the system's log something without the help of logger, which sees to the form. */
void tells(const std::string &datagram)
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un log = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    ASSERT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&log), sizeof(log)), 0);
    EXPECT_EQ(send(fd, datagram.data(), datagram.size(), 0), static_cast<ssize_t>(datagram.size()));
    close(fd);
}

TEST(Lists, NoMessageEndsTheLog)
{
    for (const char *const odd :
         {"<13>", "<13> ", "<13>\n", "<13>;ct 17 10:11:12 user: x", "<13>O;t 17 10:11:12 user: x",
          "<13>Oct 17 10:11:;2 user: x", "<13>Oct 17 10:11:12 ", "<13>Oct 17 10:11:12 user:", ""}) {
        tells(odd);
    }
    tells("<13>Oct 17 10:11:12 user: a;b/c;d");
    must("logger -t web-filter 'the last'");
    eventually("the list goes on", [] { return told("web-filter", "the last"); });
    EXPECT_TRUE(told("system", "user: a;b/c;d"));
}

TEST(Lists, TheLogTakesWhatItIsGiven)
{
    const std::string wide(1000, 'w');
    must("logger -t dhcps 'lease for ;9;$(reboot) \x1B[31m%s%n'");
    must("logger -t wan1 " + wide);
    must("logger -p user.err 'no tag of ours'");
    must("logger -p user.debug 'for nobody'");
    must("logger -t web-filter 'the last'");
    eventually("all are there", [] { return told("web-filter", "the last"); });
    EXPECT_TRUE(told("lan-dhcp", "lease for ;9;$(reboot) "));
    EXPECT_EQ(told("lan-dhcp", "\x1B"), false);
    EXPECT_TRUE(told("wan1", wide.substr(0, 255) + "\n"));
    EXPECT_TRUE(told("error", "no tag of ours"));
    EXPECT_FALSE(told("all", "for nobody"));
}

TEST(Lists, ALogThatGrowsIsCut)
{
    must("for i in $(seq 1 500); do logger -t dhcps \"number $i.\"; done");
    eventually("the last is there", [] { return told("lan-dhcp", "number 500."); });
    EXPECT_FALSE(told("lan-dhcp", "number 1."));
    EXPECT_TRUE(told("lan-dhcp", "number 450."));
    const auto log = Json::answer_of("prodctl log list --json")["log"].items();
    EXPECT_LT(log.size(), 400U);
    EXPECT_EQ(log.back()["message"].text(), "number 500.");
}

}  // namespace
