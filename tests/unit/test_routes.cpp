// SPDX-License-Identifier: MIT
// Routes of the kernel and of the table "staticroute", UPnP mappings.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "prod_common_file.h"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/files.hpp"
#include "support/network.hpp"

using test::FakeProcNet;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::RecordedCommands;
using test::remove_all;
using test::write_text;

namespace
{

constexpr const char *kStatic = "/var/static_route";
constexpr const char *kMappings = "/var/upnpmap";
constexpr const char *kCommand = "ip route ls table staticroute > /var/static_route";
constexpr const char *kHeading =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

std::string row(const std::string &columns)
{
    std::string line = columns;
    line.resize(127, ' ');
    return line + "\n";
}

const std::string kDefault = row("eth1\t00000000\t01014064\t0003\t0\t0\t1\t00000000\t0\t0\t0");
const std::string kLan = row("br0\t0000A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0");

std::string shown(const ROUTE_TABLE_ITEM_STRU &item)
{
    return std::string{item.dstip} + " " + item.mask + " " + item.gateway + " " + item.ifname +
           " " + std::to_string(item.metric);
}

using Shown = std::vector<std::string>;

/** The routes that fit @p len records; the rest of the room must stay clear. */
Shown listed(int len = 16)
{
    // Exactly the room that the function is told of, so that a sanitizer sees the byte behind it.
    std::vector<ROUTE_TABLE_ITEM_STRU> records(static_cast<std::size_t>(len));
    memset(records.data(), 0xAA, records.size() * sizeof(records[0]));
    EXPECT_EQ(file_get_route_table_list(records.data(), len), HLX_OK);
    Shown all;
    bool ended = false;
    for (const ROUTE_TABLE_ITEM_STRU &item : records) {
        const ROUTE_TABLE_ITEM_STRU clear = {};
        ended = ended || memcmp(&item, &clear, sizeof(item)) == 0;
        if (!ended) {
            all.push_back(shown(item));
        } else {
            EXPECT_EQ(memcmp(&item, &clear, sizeof(item)), 0);
        }
    }
    return all;
}

/** A kernel's table and a listing of the static routes, as a test writes them. */
class Routes : public testing::Test
{
  protected:
    FakeProcNet proc_;
    RecordedCommands commands_;

    void SetUp() override
    {
        kernel(kDefault + kLan);
        write_text(kStatic, "");
    }
    void TearDown() override { remove_all(kStatic); }

    void kernel(const std::string &rows) const { proc_.write("route", kHeading + rows); }

    /** What becomes of one static route. */
    Shown of_static(const std::string &line) const
    {
        kernel("");
        write_text(kStatic, line);
        return listed();
    }
};

// ---- both tables ------------------------------------------------------------------------------

TEST_F(Routes, KernelRoutesFirst)
{
    write_text(kStatic, "default via 10.0.0.1 dev eth1 \n10.1.0.0/16 dev br1 scope link \n");
    EXPECT_EQ(
        listed(),
        (Shown{"0.0.0.0 0.0.0.0 100.64.1.1 eth1 1", "192.168.0.0 255.255.255.0 0.0.0.0 br0 0",
               "default 255.255.255.255 10.0.0.1 eth1 0", "10.1.0.0 255.255.0.0 0.0.0.0 br1 0"}));
    EXPECT_EQ(commands_.all(), std::vector<std::string>{kCommand});
    EXPECT_EQ(file_get_route_list_num(), 4);
    EXPECT_EQ(commands_.all(), (std::vector<std::string>{kCommand, kCommand}));
}

TEST_F(Routes, NoRouteAtAll)
{
    kernel("");
    EXPECT_EQ(file_get_route_list_num(), 0);
    EXPECT_EQ(listed(), Shown{});
    proc_.write("route", "");
    EXPECT_EQ(file_get_route_list_num(), 0);
    EXPECT_EQ(listed(), Shown{});
}

TEST_F(Routes, AsManyAsThereIsRoomFor)
{
    write_text(kStatic, "10.1.0.0/16 dev br1 \n10.2.0.0/16 dev br1 \n");
    const Shown all = listed();
    ASSERT_EQ(all.size(), 4U);
    for (int len = 1; len <= 4; ++len) {
        EXPECT_EQ(listed(len), Shown(all.begin(), all.begin() + len));
    }
}

TEST_F(Routes, WithoutRoomNothingIsWritten)
{
    ROUTE_TABLE_ITEM_STRU record;
    ROUTE_TABLE_ITEM_STRU before;
    memset(&record, 0xAA, sizeof(record));
    before = record;
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(file_get_route_table_list(&record, len), HLX_OK);
        EXPECT_EQ(memcmp(&record, &before, sizeof(record)), 0) << len;
    }
    EXPECT_EQ(commands_.all(), Shown(3, kCommand)) << "the files are opened all the same";
}

TEST_F(Routes, DescriptorsAreClosed)
{
    const int before = test::open_descriptors();
    listed(1);
    listed();
    file_get_route_list_num();
    EXPECT_EQ(test::open_descriptors(), before);
}

// ---- messages ---------------------------------------------------------------------------------

TEST_F(Routes, Traces)
{
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { file_get_route_list_num(); }),
                Prints(log_line(PROD_DBG_TRACE, "file_get_route_list_num",
                                "ENTER >>> file_get_route_list_num") +
                       log_line(PROD_DBG_TRACE, "file_get_route_list_num",
                                "LEAVE <<< file_get_route_list_num")));
    ROUTE_TABLE_ITEM_STRU record;
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { file_get_route_table_list(&record, 1); }),
                Prints(log_line(PROD_DBG_TRACE, "file_get_route_table_list",
                                "ENTER >>> file_get_route_table_list") +
                       log_line(PROD_DBG_TRACE, "file_get_route_table_list",
                                "LEAVE <<< file_get_route_table_list")));
    EXPECT_EQ(printed_at(PROD_DBG_INFO,
                         [&] {
                             file_get_route_list_num();
                             file_get_route_table_list(&record, 1);
                         }),
              "");
}

TEST_F(Routes, NoTable)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(file_get_route_table_list(nullptr, 1), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "file_get_route_table_list", "arg is null.")));
    EXPECT_TRUE(commands_.all().empty());
}

TEST_F(Routes, TheKernelsTableCannotBeRead)
{
    proc_.remove("route");
    write_text(kStatic, "default via 10.0.0.1 dev eth1 \n");
    EXPECT_THAT(printed([] { EXPECT_EQ(file_get_route_list_num(), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "file_get_route_list_num", "fopen is fail.")));
    ROUTE_TABLE_ITEM_STRU record;
    memset(&record, 0xAA, sizeof(record));
    EXPECT_THAT(printed([&] { EXPECT_EQ(file_get_route_table_list(&record, 1), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "get_effective_route", "fopen is fail.")));
    EXPECT_EQ(shown(record), "    0") << "cleared before";
    EXPECT_TRUE(commands_.all().empty());
}

TEST_F(Routes, TheStaticRoutesCannotBeRead)
{
    remove_all(kStatic);
    EXPECT_THAT(printed([] { EXPECT_EQ(file_get_route_list_num(), 2); }),
                Prints(log_line(PROD_DBG_ERROR, "file_get_route_list_num", "fopen is fail.")));
    ROUTE_TABLE_ITEM_STRU records[3];
    EXPECT_THAT(printed([&] { EXPECT_EQ(file_get_route_table_list(records, 3), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "get_effective_static_route", "fopen is fail.")));
    EXPECT_EQ(shown(records[1]), "192.168.0.0 255.255.255.0 0.0.0.0 br0 0");
    EXPECT_EQ(shown(records[2]), "    0");
    EXPECT_EQ(printed_at(PROD_DBG_TRACE, [] { file_get_route_list_num(); }).find("LEAVE"),
              std::string::npos);
}

// ---- the kernel's table ------------------------------------------------------------------------

TEST_F(Routes, TheFirstByteIsTheLeastSignificant)
{
    kernel(row("eth1\t04030201\tFE0AFF00\t0\t0\t0\t-5\t0000FFFF\t0\t0\t0"));
    EXPECT_EQ(listed(), Shown{"1.2.3.4 255.255.0.0 0.255.10.254 eth1 -5"});
}

TEST_F(Routes, ALineThatIsNoRouteEndsTheCountButNotTheList)
{
    kernel(kDefault + "nonsense\n\n" + kLan);
    write_text(kStatic, "default via 10.0.0.1 dev eth1 \n");
    EXPECT_EQ(file_get_route_list_num(), 1 + 1);
    EXPECT_EQ(listed().size(), 2U + 1U);
}

TEST_F(Routes, LinesOfTheKernelsTable)
{
    const struct {
        std::string line;
        std::string route;
    } rows[] = {
        // Columns that nobody reads may be missing, those that are read may not.
        {"eth1 1 2 3 4 5 6 7", "1.0.0.0 7.0.0.0 2.0.0.0 eth1 6"},
        {"eth1 1 2 3 4 5 6", ""},
        {"eth1", ""},
        {"   eth1\t 1\t 2 3 4 5 6 7\n", "1.0.0.0 7.0.0.0 2.0.0.0 eth1 6"},
        {"eth1 0x1 0X2 * * * +6 ff\n", "1.0.0.0 255.0.0.0 2.0.0.0 eth1 6"},
        {"eth1 -1 2 3 4 5 6 7\n", "255.255.255.255 7.0.0.0 2.0.0.0 eth1 6"},
        {"eth1 g 2 3 4 5 6 7\n", ""},
        {"eth1 1 2 3 4 5 x 7\n", ""},
        {"eth1 1 2 3 4 5 6 -\n", ""},
        // Beyond 32 bits.
        {"eth1 1FFFFFFFF 2 3 4 5 99999999999 7\n",
         "255.255.255.255 7.0.0.0 2.0.0.0 eth1 2147483647"},
        // The rest of a name that is too long is where the destination should be.
        {"abcdefghijklmno 1 2 3 4 5 6 7\n", "1.0.0.0 7.0.0.0 2.0.0.0 abcdefghijklmno 6"},
        {"abcdefghijklmnox 1 2 3 4 5 6 7\n", ""},
        // A line beyond 255 characters is two.
        {std::string(255, ' ') + "eth1 1 2 3 4 5 6 7\n", "1.0.0.0 7.0.0.0 2.0.0.0 eth1 6"},
        {"eth1 1 2 3 4 5 6 7" + std::string(500, ' ') + "\n", "1.0.0.0 7.0.0.0 2.0.0.0 eth1 6"},
        {"eth1 1 2" + std::string(500, ' ') + "3 4 5 6 7\n", ""},
        {std::string("eth1 1 2 3 4 5 6\0 7\n", 20), ""},
        {"\xFF\xFE\x80 1 2 3 4 5 6 7\n", "1.0.0.0 7.0.0.0 2.0.0.0 \xFF\xFE\x80 6"},
    };
    for (const auto &one : rows) {
        kernel(one.line);
        EXPECT_EQ(listed(), one.route.empty() ? Shown{} : Shown{one.route}) << one.line;
    }
}

TEST_F(Routes, TheHeadingIsNeverARoute)
{
    proc_.write("route", kDefault + kLan);
    EXPECT_EQ(listed(), Shown{"192.168.0.0 255.255.255.0 0.0.0.0 br0 0"});
    EXPECT_EQ(file_get_route_list_num(), 1);
}

// ---- the static routes -------------------------------------------------------------------------

TEST_F(Routes, StaticRoutes)
{
    const std::string wide(40, 'w');
    const struct {
        std::string line;
        std::string route;
    } rows[] = {
        {"default via 10.0.0.1 dev eth1", "default 255.255.255.255 10.0.0.1 eth1 0"},
        {"10.1.0.0/16 dev br1 ", "10.1.0.0 255.255.0.0 0.0.0.0 br1 0"},
        {"10.1.2.3 dev br1 scope link \n", "10.1.2.3 255.255.255.255 0.0.0.0 br1 0"},
        {"unreachable 10.9.0.0 metric 5 \n", "unreachable 255.255.255.255 0.0.0.0  0"},
        {"10.1.0.0/16 via 10.0.0.1 \n", "10.1.0.0 255.255.0.0 10.0.0.1  0"},
        {"  10.1.2.3   dev   br1  \n", "10.1.2.3 255.255.255.255 0.0.0.0 br1 0"},
        // Prefix lengths.
        {"0.0.0.0/0 dev eth1\n", "0.0.0.0 0.0.0.0 0.0.0.0 eth1 0"},
        {"128.0.0.0/1 dev eth1\n", "128.0.0.0 128.0.0.0 0.0.0.0 eth1 0"},
        {"10.1.2.2/31 dev eth1\n", "10.1.2.2 255.255.255.254 0.0.0.0 eth1 0"},
        {"10.1.2.2/32 dev eth1\n", "10.1.2.2 255.255.255.255 0.0.0.0 eth1 0"},
        {"10.1.2.2/33 dev eth1\n", "10.1.2.2 255.255.255.255 0.0.0.0 eth1 0"},
        {"10.1.2.2/99999999999999999999 dev eth1\n", "10.1.2.2 255.255.255.255 0.0.0.0 eth1 0"},
        {"10.1.2.2/-8 dev eth1\n", "10.1.2.2 0.0.0.0 0.0.0.0 eth1 0"},
        {"10.1.2.2/ab dev eth1\n", "10.1.2.2 0.0.0.0 0.0.0.0 eth1 0"},
        {"/8 dev eth1 scope link\n", " 255.0.0.0 0.0.0.0 eth1 0"},
        {"default dev eth1 a/24\n", "default dev eth 255.255.255.0 0.0.0.0 eth1 0"},
        {"10.1.0.0/16/24 dev br1\n", "10.1.0.0 255.255.0.0 0.0.0.0 br1 0"},
        // What does not fit is cut.
        {wide + " via " + wide + " dev " + wide + "\n", wide.substr(0, 15) + " 255.255.255.255 " +
                                                            wide.substr(0, 15) + " " +
                                                            wide.substr(0, 15) + " 0"},
        {wide + "/8 dev a\n", wide.substr(0, 15) + " 255.0.0.0 0.0.0.0 a 0"},
        // The keywords stand anywhere, and may be all there is.
        {"10.1.0.0/16 dev via0 proto static\n", "10.1.0.0 255.255.0.0 proto via0 0"},
        {"10.1.0.0/16 vian 10.0.0.1\n", "10.1.0.0 255.255.0.0 10.0.0.1  0"},
        {"10.1.0.0/16 scope via", "10.1.0.0 255.255.0.0 0.0.0.0  0"},
        {"10.1.0.0/16 scope via ", "10.1.0.0 255.255.0.0 0.0.0.0  0"},
        {"10.1.0.0/16 scope via\n", "10.1.0.0 255.255.0.0 0.0.0.0  0"},
        {"10.1.0.0/16 scope dev", "10.1.0.0 255.255.0.0 0.0.0.0  0"},
        {"10.1.0.0/16 scope dev \n", "10.1.0.0 255.255.0.0 0.0.0.0  0"},
        {"10.1.0.0/16 scope dev a", "10.1.0.0 255.255.0.0 0.0.0.0 a 0"},
        {"                    ", " 255.255.255.255 0.0.0.0  0"},
    };
    for (const auto &one : rows) {
        EXPECT_EQ(of_static(one.line), Shown{one.route}) << one.line;
    }
}

TEST_F(Routes, AShortLineEndsTheStaticRoutes)
{
    // With its newline, a line counts from 16 characters on.
    const std::string good = "10.1.0.0/16 dev br1 \n";
    const struct {
        std::string text;
        int routes;
    } rows[] = {{good + "1.2.3.4 dev abc\n" + good, 3},
                {good + "1.2.3.4 dev ab\n" + good, 1},
                {good + "\n" + good, 1},
                {good + "1.2.3.4 dev abc", 1},
                {good + "1.2.3.4 dev abcd", 2},
                {"\n" + good, 0}};
    for (const auto &one : rows) {
        EXPECT_EQ(of_static(one.text).size(), static_cast<std::size_t>(one.routes)) << one.text;
        EXPECT_EQ(file_get_route_list_num(), one.routes) << one.text;
    }
}

TEST_F(Routes, AStaticLineBeyondTheLimitIsTwo)
{
    const std::string line = "10.1.0.0/16 dev br1" + std::string(255 - 19, ' ');
    EXPECT_EQ(of_static(line + "10.2.0.0/16 dev br2 \n"),
              (Shown{"10.1.0.0 255.255.0.0 0.0.0.0 br1 0", "10.2.0.0 255.255.0.0 0.0.0.0 br2 0"}));
    EXPECT_EQ(file_get_route_list_num(), 2);
}

TEST_F(Routes, ATableOfManyRoutes)
{
    std::string rows;
    for (int i = 0; i < 10000; ++i) {
        rows += kLan;
    }
    kernel(rows);
    EXPECT_EQ(file_get_route_list_num(), 10000);
    EXPECT_EQ(listed(10001).size(), 10000U);
    EXPECT_EQ(listed(9999).size(), 9999U);
}

// ---- the kernel itself -------------------------------------------------------------------------

TEST(RealRoutes, OfTheKernelAndOfTheTable)
{
    test::run("ip link add wan_a type bridge && ip link set wan_a up");
    test::run("ip address add 192.0.2.7/24 dev wan_a");
    test::run("ip route add default via 192.0.2.1 dev wan_a metric 7");
    test::run("ip route add 10.1.0.0/16 via 192.0.2.2 table staticroute");
    test::run("ip route add default via 192.0.2.3 dev wan_a table staticroute");
    test::run("ip route add 10.2.3.4 dev wan_a table staticroute");
    EXPECT_EQ(listed(),
              (Shown{"0.0.0.0 0.0.0.0 192.0.2.1 wan_a 7", "192.0.2.0 255.255.255.0 0.0.0.0 wan_a 0",
                     "default 255.255.255.255 192.0.2.3 wan_a 0",
                     "10.1.0.0 255.255.0.0 192.0.2.2 wan_a 0",
                     "10.2.3.4 255.255.255.255 0.0.0.0 wan_a 0"}));
    EXPECT_EQ(file_get_route_list_num(), 5);
    test::run("ip link delete wan_a");
    EXPECT_EQ(listed(), Shown{});
}

// ---- UPnP mappings -----------------------------------------------------------------------------

std::string shown(const UPNP_ITEM_INFO_STRU &item)
{
    return std::string{item.ex_host} + "|" + item.ex_port + "|" + item.in_host + "|" +
           item.in_port + "|" + item.protocol + "|" + item.desc;
}

class Upnp : public testing::Test
{
  protected:
    void TearDown() override { remove_all(kMappings); }

    static Shown mapped(const std::string &text)
    {
        write_text(kMappings, text);
        UPNP_LIST_CFG_STRU list;
        memset(&list, 0xAA, sizeof(list));
        EXPECT_EQ(file_get_upnp_list(&list), HLX_OK);
        Shown all;
        for (int i = 0; i < list.count; ++i) {
            all.push_back(shown(list.upnp_item[i]));
        }
        if (list.count < 128) {
            EXPECT_EQ(list.upnp_item[list.count].ex_host[0], '\xAA') << "beyond the count";
        }
        return all;
    }
};

TEST_F(Upnp, Mappings)
{
    EXPECT_EQ(mapped("1.2.3.4;8080;192.168.0.7;80;TCP;web server\n"
                     "0.0.0.0;53;192.168.0.8;53;UDP;name server"),
              (Shown{"1.2.3.4|8080|192.168.0.7|80|TCP|web server\n",
                     "0.0.0.0|53|192.168.0.8|53|UDP|name server"}));
    EXPECT_EQ(mapped(""), Shown{});
}

TEST_F(Upnp, LinesThatAreNoMapping)
{
    const std::string wide(100, 'w');
    const struct {
        std::string line;
        std::string mapping;
    } rows[] = {
        {"\n", "\n|||||"},
        {"text\n", "text\n|||||"},
        {";8080;a;b;c;d\n", "|||||"},
        {"a;;b;c;d;e\n", "a|||||"},
        {"a;b;c;d;e;\n", "a|b|c|d|e|\n"},
        {"a;b;c;d;e;", "a|b|c|d|e|"},
        {"a;b;c;d;e;f;g\n", "a|b|c|d|e|f"},
        {"a;b;c\n", "a|b|c\n|||"},
        {" a ; b ; c ; d ; e ; f \n", " a | b | c | d | e | f \n"},
        {"a;b;c;d;e;$(reboot)\xFF\x80\n", "a|b|c|d|e|$(reboot)\xFF\x80\n"},
        {wide.substr(0, 30) + ";" + wide.substr(0, 30) + ";" + wide.substr(0, 30) + ";" +
             wide.substr(0, 30) + ";" + wide.substr(0, 30) + ";" + wide.substr(0, 90) + "\n",
         wide.substr(0, 15) + "|" + wide.substr(0, 7) + "|" + wide.substr(0, 15) + "|" +
             wide.substr(0, 7) + "|" + wide.substr(0, 7) + "|" + wide.substr(0, 63)},
    };
    for (const auto &one : rows) {
        EXPECT_EQ(mapped(one.line), Shown{one.mapping}) << one.line;
        EXPECT_EQ(mapped(one.line + (one.line.back() == '\n' ? "" : "\n") + "a;b;c;d;e;f").back(),
                  "a|b|c|d|e|f");
    }
}

TEST_F(Upnp, ALineBeyondTheLimitIsTwo)
{
    const std::string line = "a;b;c;d;e;" + std::string(245, 'x');
    EXPECT_EQ(mapped(line + "1;2;3;4;5;6\n"),
              (Shown{"a|b|c|d|e|" + std::string(63, 'x'), "1|2|3|4|5|6\n"}));
}

TEST_F(Upnp, TheFirst128)
{
    std::string text;
    for (int i = 0; i < 129; ++i) {
        text += "1.2.3.4;" + std::to_string(i) + ";192.168.0.7;80;TCP;web\n";
    }
    const Shown all = mapped(text);
    ASSERT_EQ(all.size(), 128U);
    EXPECT_EQ(all.front(), "1.2.3.4|0|192.168.0.7|80|TCP|web\n");
    EXPECT_EQ(all.back(), "1.2.3.4|127|192.168.0.7|80|TCP|web\n");
}

TEST_F(Upnp, Messages)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(file_get_upnp_list(nullptr), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "file_get_upnp_list", "arg is null.")));
    UPNP_LIST_CFG_STRU list;
    list.count = 77;
    EXPECT_THAT(printed([&] { EXPECT_EQ(file_get_upnp_list(&list), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "file_get_upnp_list", "fopen is fail.")));
    EXPECT_EQ(list.count, 77);
    EXPECT_THAT(
        printed_at(PROD_DBG_TRACE, [&] { file_get_upnp_list(&list); }),
        Prints(log_line(PROD_DBG_TRACE, "file_get_upnp_list", "ENTER >>> file_get_upnp_list") +
               log_line(PROD_DBG_ERROR, "file_get_upnp_list", "fopen is fail.")));
    write_text(kMappings, "a;b\n");
    const int before = test::open_descriptors();
    EXPECT_THAT(
        printed_at(PROD_DBG_TRACE, [&] { file_get_upnp_list(&list); }),
        Prints(log_line(PROD_DBG_TRACE, "file_get_upnp_list", "ENTER >>> file_get_upnp_list") +
               log_line(PROD_DBG_TRACE, "file_get_upnp_list", "LEAVE <<< file_get_upnp_list")));
    EXPECT_EQ(test::open_descriptors(), before);
}

}  // namespace
