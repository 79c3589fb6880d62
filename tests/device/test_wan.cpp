// SPDX-License-Identifier: MIT
// The WANs of the booted device: real leases from the provider's servers, cables that are pulled,
// servers that stop.
#include <gtest/gtest.h>

#include <string>

#include "stories.hpp"
#include "support/files.hpp"

using story::eventually;
using story::Json;
using story::must;
using story::run;

namespace
{

Json wan(int id)
{
    return Json::answer_of("prodctl wan status --json")["wans"].where("id", std::to_string(id));
}

std::string status_of(int id)
{
    return wan(id)["status"].text();
}

void becomes(int id, const std::string &status)
{
    eventually("WAN " + std::to_string(id) + " is " + status,
               [&] { return status_of(id) == status; });
}

/** The address that the provider's server gave to the device on a WAN: the other side's truth. */
std::string leased_address(int id)
{
    const std::string name = std::to_string(id);
    std::string address =
        must("cut -d' ' -f3 /run/isp-dhcp" + name + ".leases | head -n 1 | tr -d '\\n'");
    EXPECT_EQ(address.rfind("100.64." + name + ".", 0), 0U) << address;
    return address;
}

void is_connected_with_its_lease(int id)
{
    const std::string net = "100.64." + std::to_string(id);
    const std::string address = leased_address(id);
    const Json status = wan(id);
    EXPECT_EQ(status["status"].text(), "connected");
    EXPECT_EQ(status["interface"].text(), "eth" + std::to_string(id));
    EXPECT_EQ(status["address"].text(), address);
    EXPECT_EQ(status["mask"].text(), "255.255.255.0");
    EXPECT_EQ(status["gateway"].text(), net + ".1");
    EXPECT_EQ(status["dns"].text(), "[\"" + net + ".1\",\"" + net + ".53\"]");
    EXPECT_EQ(test::read_text("/etc/wan" + std::to_string(id) + ".ini"),
              "ip=" + address + "\nmask=255.255.255.0\ngateway=" + net + ".1\ndns1=" + net +
                  ".1\ndns2=" + net + ".53\n");
}

TEST(Wan, Wan1HasItsLease)
{
    is_connected_with_its_lease(1);
    EXPECT_EQ(test::read_text("/etc/dns1"), "100.64.1.1\n100.64.1.53\n");
    EXPECT_NE(must("nslookup www.example.net").find("198.51.100.1"), std::string::npos);
}

TEST(Wan, Wan2HasItsLease)
{
    is_connected_with_its_lease(2);
}

TEST(Wan, ACablePulledAndPluggedInAgain)
{
    const std::string address = wan(1)["address"].text();
    must("lab link wan1 down");
    becomes(1, "no wire");
    const Json unplugged = wan(1);
    EXPECT_EQ(unplugged["address"].text(), "");
    EXPECT_EQ(unplugged["connection_time"].number(), 0);
    EXPECT_EQ(status_of(2), "connected");

    must("lab link wan1 up");
    becomes(1, "connected");
    EXPECT_EQ(wan(1)["address"].text(), address);
}

TEST(Wan, WithoutAServerTheClientKeepsTrying)
{
    must("lab server dhcp1 stop");
    must("lab client wan1 release");
    becomes(1, "connecting");
    EXPECT_FALSE(test::exists("/etc/wan1.ini"));
    EXPECT_FALSE(test::exists("/etc/conntime1"));
    must("lab client wan1 renew");
    EXPECT_EQ(status_of(1), "connecting");
    EXPECT_NE(run("lab wait wan1 1").status, 0);

    must("lab client wan1 stop");
    becomes(1, "not connected");
    EXPECT_EQ(status_of(2), "connected");

    must("lab server dhcp1 start");
    must("lab client wan1 start");
    must("lab wait wan1");
    is_connected_with_its_lease(1);
}

TEST(Wan, TheSecondWanLosesItsLeaseAlone)
{
    must("lab client wan2 stop");
    becomes(2, "not connected");
    must("lab link wan2 down");
    becomes(2, "no wire");
    is_connected_with_its_lease(1);
}

TEST(Wan, RatesFollowTheTraffic)
{
    must("(lab traffic wan1 6 >/dev/null &)");
    eventually("traffic shows in both directions", [] {
        const Json status = wan(1);
        return status["up_rate"].number() > 0 && status["down_rate"].number() > 0;
    });
    eventually(
        "no rate without traffic", [] { return wan(1)["up_rate"].number() == 0; }, 30);
}

TEST(Wan, TheConnectionTimeCounts)
{
    const double start = wan(1)["connection_time"].number();
    EXPECT_GE(start, 0);
    EXPECT_LT(start, 60);
    eventually("two seconds more", [&] { return wan(1)["connection_time"].number() >= start + 2; });
    const auto uptime = [] { return std::stoi(test::read_text("/proc/uptime")); };
    const int since = std::stoi(test::read_text("/etc/conntime1"));
    const int before = uptime() - since;
    const double told = wan(1)["connection_time"].number();
    EXPECT_GE(told, before - 1);
    EXPECT_LE(told, uptime() - since + 1);

    const int released = uptime();
    must("lab client wan1 release && lab client wan1 renew && lab wait wan1");
    const double anew = wan(1)["connection_time"].number();
    EXPECT_LE(anew, uptime() - released + 1) << "a new connection, a new time";
}

TEST(Wan, APppoeConcentratorAnswers)
{
    for (const std::string id : {"1", "2"}) {
        EXPECT_NE(
            must("pppoe-discovery -t 1 -a 1 -I eth" + id).find("Access-Concentrator: isp" + id),
            std::string::npos);
    }
    must("lab server pppoe1 stop");
    EXPECT_EQ(run("pppoe-discovery -t 1 -a 1 -I eth1 2>&1").output.find("Access-Concentrator"),
              std::string::npos);
    EXPECT_NE(must("pppoe-discovery -t 1 -a 1 -I eth2").find("Access-Concentrator: isp2"),
              std::string::npos);
}

}  // namespace
