// SPDX-License-Identifier: MIT
// prodctl route, upnp and log, on routes and files that the test makes.
#include <unistd.h>

#include "support/files.hpp"
#include "support/network.hpp"
#include "tool.hpp"

using test::FileHolds;
using test::Outcome;
using test::prodctl;
using test::refuses;
using test::Words;
using testing::EndsWith;
using testing::HasSubstr;

namespace
{

constexpr const char *kMappings = "/var/upnpmap";
constexpr const char *kLog = "/var/logs.txt";

// ---- route ------------------------------------------------------------------------------------

class Route : public testing::Test
{
  protected:
    void SetUp() override
    {
        test::run(
            "ip link add wan_a type bridge && ip link set wan_a up &&"
            "ip address add 192.0.2.7/24 dev wan_a &&"
            "ip route add default via 192.0.2.1 dev wan_a metric 7 &&"
            "ip route add 10.1.0.0/16 via 192.0.2.2 table staticroute &&"
            "ip route add default via 192.0.2.3 dev wan_a table staticroute");
    }
    void TearDown() override { test::run("ip link delete wan_a"); }
};

TEST_F(Route, KernelAndStaticRoutes)
{
    EXPECT_EQ(prodctl({"route"}), (Outcome{0,
                                           "DESTINATION   GATEWAY    INTERFACE  METRIC\n"
                                           "default       192.0.2.1  wan_a      7\n"
                                           "192.0.2.0/24  -          wan_a      0\n"
                                           "default       192.0.2.3  wan_a      0\n"
                                           "10.1.0.0/16   192.0.2.2  wan_a      0\n",
                                           ""}));
    EXPECT_EQ(prodctl({"route", "--json"}).out,
              "{\"routes\":[{\"destination\":\"0.0.0.0\",\"mask\":\"0.0.0.0\",\"gateway\":"
              "\"192.0.2.1\",\"interface\":\"wan_a\",\"metric\":7},"
              "{\"destination\":\"192.0.2.0\",\"mask\":\"255.255.255.0\",\"gateway\":\"0.0.0.0\","
              "\"interface\":\"wan_a\",\"metric\":0},"
              "{\"destination\":\"default\",\"mask\":\"255.255.255.255\",\"gateway\":"
              "\"192.0.2.3\",\"interface\":\"wan_a\",\"metric\":0},"
              "{\"destination\":\"10.1.0.0\",\"mask\":\"255.255.0.0\",\"gateway\":\"192.0.2.2\","
              "\"interface\":\"wan_a\",\"metric\":0}]}\n");
}

TEST_F(Route, NamesThatAShellWouldRunAreOnlyNames)
{
    test::run("ip link add 'a;b$(x)' type bridge && ip link set 'a;b$(x)' up");
    test::run("ip route add 10.9.0.0/16 dev 'a;b$(x)' table staticroute");
    const Outcome outcome = prodctl({"route"});
    test::run("ip link delete 'a;b$(x)'");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, EndsWith("10.9.0.0/16   -          a;b$(x)    0\n"));
}

TEST(RouteAlone, WithoutARoute)
{
    EXPECT_EQ(prodctl({"route"}), (Outcome{0, "There is no route.\n", ""}));
    EXPECT_EQ(prodctl({"route", "--json"}), (Outcome{0, "{\"routes\":[]}\n", ""}));
    refuses({"route", "10.0.0.1"}, "prodctl route", "too many arguments, expected: none");
}

TEST(RouteAlone, WithoutTheStaticRoutes)
{
    // Where the listing should go there is no folder.
    test::remove_all("/var/static_route");
    ASSERT_EQ(symlink("/nonesuch/file", "/var/static_route"), 0);
    const Outcome outcome = prodctl({"route"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("fopen is fail."));
    EXPECT_THAT(outcome.err, EndsWith("prodctl route: the routes cannot be read\n"));
    EXPECT_EQ(prodctl({"route", "--json"}).out, "{\"error\":\"the routes cannot be read\"}\n");
    test::remove_all("/var/static_route");
}

// ---- upnp -------------------------------------------------------------------------------------

TEST(Upnp, Mappings)
{
    const FileHolds file{kMappings,
                         "0.0.0.0;8080;192.168.0.7;80;TCP;web server\n"
                         "198.51.100.9;53;192.168.0.8;53;UDP;\x1B[31mred\xFF\n"};
    EXPECT_EQ(prodctl({"upnp"}),
              (Outcome{0,
                       "PROTOCOL  EXTERNAL         INTERNAL        DESCRIPTION\n"
                       "TCP       0.0.0.0:8080     192.168.0.7:80  web server\n"
                       "UDP       198.51.100.9:53  192.168.0.8:53  ?[31mred\xEF\xBF\xBD\n",
                       ""}));
    EXPECT_EQ(prodctl({"upnp", "--json"}).out,
              "{\"mappings\":[{\"external_host\":\"0.0.0.0\",\"external_port\":\"8080\","
              "\"internal_host\":\"192.168.0.7\",\"internal_port\":\"80\",\"protocol\":\"TCP\","
              "\"description\":\"web server\"},"
              "{\"external_host\":\"198.51.100.9\",\"external_port\":\"53\","
              "\"internal_host\":\"192.168.0.8\",\"internal_port\":\"53\",\"protocol\":\"UDP\","
              "\"description\":\"\\u001b[31mred\xEF\xBF\xBD\"}]}\n");
}

TEST(Upnp, WithoutMappings)
{
    {
        const FileHolds empty{kMappings, ""};
        EXPECT_EQ(prodctl({"upnp"}), (Outcome{0, "No port is mapped.\n", ""}));
        EXPECT_EQ(prodctl({"upnp", "--json"}), (Outcome{0, "{\"mappings\":[]}\n", ""}));
    }
    const FileHolds none{kMappings};
    const Outcome outcome = prodctl({"upnp", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "{\"error\":\"the list of the UPnP daemon cannot be read\"}\n");
    EXPECT_THAT(prodctl({"upnp"}).err,
                EndsWith("prodctl upnp: the list of the UPnP daemon cannot be read\n"));
}

// ---- log --------------------------------------------------------------------------------------

constexpr const char *kEntries =
    "Jan 2 03:04:05;1;The device has started.\n"
    "Jan 2 03:04:06;3;WAN 1 is connected; address 100.64.1.7\n"
    "Jan 2 03:04:07;8;lease for \x1B[31m\xFF\n"
    "Jan 2 03:04:08;77;of a type that nobody knows\n";

TEST(Log, Entries)
{
    const FileHolds file{kLog, kEntries};
    EXPECT_EQ(prodctl({"log", "list"}),
              (Outcome{0,
                       "DATE            TYPE      MESSAGE\n"
                       "Jan 2 03:04:05  system    The device has started.\n"
                       "Jan 2 03:04:06  wan1      WAN 1 is connected; address 100.64.1.7\n"
                       "Jan 2 03:04:07  lan-dhcp  lease for ?[31m\xEF\xBF\xBD\n"
                       "Jan 2 03:04:08  77        of a type that nobody knows\n",
                       ""}));
    EXPECT_EQ(prodctl({"log", "list", "--json", "--type", "77"}).status, 2);
    EXPECT_EQ(prodctl({"log", "list", "--json"}).out,
              "{\"log\":[{\"date\":\"Jan 2 03:04:05\",\"type\":1,\"type_name\":\"system\","
              "\"message\":\"The device has started.\"},"
              "{\"date\":\"Jan 2 03:04:06\",\"type\":3,\"type_name\":\"wan1\","
              "\"message\":\"WAN 1 is connected; address 100.64.1.7\"},"
              "{\"date\":\"Jan 2 03:04:07\",\"type\":8,\"type_name\":\"lan-dhcp\","
              "\"message\":\"lease for \\u001b[31m\xEF\xBF\xBD\"},"
              "{\"date\":\"Jan 2 03:04:08\",\"type\":77,\"type_name\":\"unknown\","
              "\"message\":\"of a type that nobody knows\"}]}\n");
}

TEST(Log, OfOneType)
{
    const FileHolds file{kLog, kEntries};
    const std::string wan1 =
        "{\"log\":[{\"date\":\"Jan 2 03:04:06\",\"type\":3,\"type_name\":\"wan1\","
        "\"message\":\"WAN 1 is connected; address 100.64.1.7\"}]}\n";
    EXPECT_EQ(prodctl({"log", "list", "--type", "wan1", "--json"}), (Outcome{0, wan1, ""}));
    EXPECT_EQ(prodctl({"log", "list", "--type=3", "--json"}), (Outcome{0, wan1, ""}));
    EXPECT_EQ(prodctl({"log", "list", "--type", "all"}).out, prodctl({"log", "list"}).out);
    EXPECT_EQ(prodctl({"log", "list", "--type", "0"}).out, prodctl({"log", "list"}).out);
    EXPECT_EQ(prodctl({"log", "list", "--type", "error"}), (Outcome{0, "No entry.\n", ""}));
    EXPECT_EQ(prodctl({"log", "list", "--type", "12"}), (Outcome{0, "No entry.\n", ""}));
}

TEST(Log, TypesThatAreNone)
{
    const std::string types =
        "all, system, web-filter, wan1, wan2, wan3, wan4, debug, lan-dhcp, wisp-dhcp, clear, "
        "reload or error, or 0 to 12";
    for (const std::string type : {"wan5", "", "13", "-1", "3x", "WAN1"}) {
        refuses({"log", "list", "--type", type}, "prodctl log list",
                "'" + type + "' is no type of entry: " + types);
    }
}

TEST(Log, OfAnyLength)
{
    for (const int length : {255, 256, 257, 1024, 5000}) {
        std::string text;
        for (int i = 1; i <= length; ++i) {
            text += "date;1;entry " + std::to_string(i) + "\n";
        }
        const FileHolds file{kLog, text};
        const Words lines = test::lines_of(prodctl({"log", "list"}).out);
        ASSERT_EQ(lines.size(), static_cast<std::size_t>(length) + 1);
        EXPECT_EQ(lines.back(), "date  system  entry " + std::to_string(length));
    }
}

TEST(Log, WithoutALog)
{
    {
        const FileHolds empty{kLog, ""};
        EXPECT_EQ(prodctl({"log", "list"}), (Outcome{0, "No entry.\n", ""}));
    }
    const FileHolds none{kLog};
    EXPECT_EQ(prodctl({"log", "list"}),
              (Outcome{1, "", "prodctl log list: there is no system log\n"}));
    EXPECT_EQ(prodctl({"log", "list", "--json"}).out, "{\"error\":\"there is no system log\"}\n");
}

// ---- the status page --------------------------------------------------------------------------

TEST_F(Route, OnTheStatusPage)
{
    std::string text;
    for (int i = 1; i <= 11; ++i) {
        text += "date;1;entry " + std::to_string(i) + "\n";
    }
    const FileHolds file{kLog, text};
    const std::string page = prodctl({"status"}).out;
    EXPECT_THAT(page, HasSubstr("Routes\n------\nDESTINATION   GATEWAY    INTERFACE  METRIC\n"
                                "default       192.0.2.1  wan_a      7\n"));
    EXPECT_THAT(
        page, HasSubstr("System log\n----------\nDATE  TYPE    MESSAGE\ndate  system  entry 2\n"));
    EXPECT_THAT(page, HasSubstr("date  system  entry 11\n"));
    const test::Json status = test::answer(prodctl({"status", "--json"}));
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(status.get(), "routes")), 4);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(status.get(), "log")), 10);
}

TEST(StatusPage, WithoutALogItIsNoFailure)
{
    const FileHolds none{kLog};
    const Outcome outcome = prodctl({"status"});
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_THAT(outcome.out, HasSubstr("System log\n----------\nNo entry.\n"));
    EXPECT_THAT(outcome.err, Not(HasSubstr("log")));
}

}  // namespace
