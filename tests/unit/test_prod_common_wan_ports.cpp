// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "platform/text.h"
#include "prod_common_wan.h"
#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;

namespace
{

const char *other_value;  // in the place of what a WAN's file holds

}  // namespace

extern "C" {

int file_get_value_from_ini(const char *file, const char *key, char *out)
{
    if (other_value != nullptr) {
        strcpy(out, other_value);
        return 1;
    }
    static const auto real = test::next(file_get_value_from_ini, "file_get_value_from_ini");
    return real(file, key, out);
}
}

namespace
{

class WanPorts : public testing::Test
{
  protected:
    test::FreshConfig fresh_;

    /** The switch of the board: its ports in front-panel order, and how many of them are WANs. */
    static void board(const std::string &ports, const std::string &wans)
    {
        config()["sys.ports"] = ports;
        config()["wans.flag"] = wans;
    }
};

using Numbers = std::vector<int>;

/** What a mapping gives for each number from @p from to @p to. */
Numbers each(int (*mapping)(int), int from, int to)
{
    Numbers result;
    for (int i = from; i <= to; ++i) {
        result.push_back(mapping(i));
    }
    return result;
}

// ---- tables ----------------------------------------------------------------------------------

TEST(WanTables, ByWanId)
{
    const char *const ppp[] = {"ppp1", "ppp2", "ppp3", "ppp4", ""};
    const int ethernet[] = {12, 13, 14, 15, 0};
    const char *const clients[] = {"dhcpcd_wan1", "dhcpcd_wan2", "dhcpcd_wan3", "dhcpcd_wan4"};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_STREQ(pppDevName[i], ppp[i]);
        EXPECT_EQ(wanName[i], ethernet[i]);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_STREQ(g_dhcp_dial_name[i], clients[i]);
    }
    EXPECT_EQ(sizeof(pppDevName), 40U);
    EXPECT_EQ(sizeof(g_dhcp_dial_name), 256U);
}

// ---- the four numbers of a port --------------------------------------------------------------

TEST_F(WanPorts, OneWanAndFourLans)
{
    board("43210", "1");
    EXPECT_EQ(each(wanid_to_phyid, -1, 6), (Numbers{0, 0, 4, 3, 2, 1, 0, 0}));
    EXPECT_EQ(each(lanid_to_phyid, -1, 6), (Numbers{0, 0, 0, 1, 2, 3, 4, 0}));
    EXPECT_EQ(each(web_portid_to_phyid, -1, 6), (Numbers{0, 0, 4, 3, 2, 1, 0, 0}));
    EXPECT_EQ(each(phyid_to_web_portid, -1, 5), (Numbers{0, 5, 4, 3, 2, 1, 0}));
    EXPECT_EQ(each(phyid_to_port_index, -1, 5), (Numbers{-1, 4, 3, 2, 1, 0, -1}));
    EXPECT_EQ(each(phyid_to_wanid, -1, 5), (Numbers{0, 0, 0, 0, 0, 1, 0}));
    EXPECT_EQ(each(phyid_is_wan, -1, 5), (Numbers{0, 0, 0, 0, 0, 1, 0}));
    EXPECT_EQ(each(phyid_to_lanid, -1, 5), (Numbers{0, 1, 2, 3, 4, 0, 0}));
    EXPECT_EQ(each(phyid_is_lan, -1, 5), (Numbers{0, 1, 1, 1, 1, 0, 0}));
}

TEST_F(WanPorts, TwoWans)
{
    board("01423", "2");
    EXPECT_EQ(each(phyid_to_wanid, 0, 4), (Numbers{1, 2, 0, 0, 0}));
    EXPECT_EQ(each(phyid_to_lanid, 0, 4), (Numbers{0, 0, 2, 1, 3}));
    EXPECT_EQ(wanid_to_phyid(3), 4) << "an id beyond the WANs gives a LAN's port";
    EXPECT_EQ(lanid_to_phyid(5), 0) << "and the other way round";
}

TEST_F(WanPorts, WithoutPorts)
{
    const auto all_nothing = [] {
        for (const int id : {INT_MIN, -1, 0, 1, 4, INT_MAX}) {
            EXPECT_EQ(wanid_to_phyid(id), 0);
            EXPECT_EQ(lanid_to_phyid(id), 0);
            EXPECT_EQ(web_portid_to_phyid(id), 0);
            EXPECT_EQ(phyid_to_web_portid(id), 0);
            EXPECT_EQ(phyid_to_port_index(id), -1);
            EXPECT_EQ(phyid_to_wanid(id), 0);
            EXPECT_EQ(phyid_is_wan(id), 0);
            EXPECT_EQ(phyid_to_lanid(id), 0);
            EXPECT_EQ(phyid_is_lan(id), 0);
        }
    };
    all_nothing();
    board("", "4");
    all_nothing();
    config()["wans.flag"] = "0";
    all_nothing();
}

TEST_F(WanPorts, OfAPortNamedTwiceTheFirstPlaceCounts)
{
    board("3133", "2");
    EXPECT_EQ(phyid_to_port_index(3), 0);
    EXPECT_EQ(phyid_to_web_portid(3), 1);
    EXPECT_EQ(phyid_to_wanid(3), 1);
    EXPECT_EQ(phyid_to_lanid(3), 0);
    EXPECT_EQ(lanid_to_phyid(1), 3);
}

TEST_F(WanPorts, TheNumberOfWansCountsAsItStands)
{
    board("43210", "-1");
    EXPECT_EQ(phyid_is_lan(9), 1) << "an unknown port, whose place is -1";
    EXPECT_EQ(phyid_to_lanid(9), 0);
    EXPECT_EQ(phyid_to_lanid(4), 5);
    EXPECT_EQ(phyid_to_wanid(4), 0);
    board("43210", "99");
    EXPECT_EQ(phyid_to_wanid(0), 5);
    EXPECT_EQ(phyid_to_lanid(0), 0);
    EXPECT_EQ(phyid_is_lan(0), 0);
    board("43210", "two");
    EXPECT_EQ(phyid_is_lan(4), 1);
    EXPECT_EQ(phyid_is_wan(4), 0);
}

TEST_F(WanPorts, APlaceThatIsNoDigit)
{
    board("4x\xff", "1");
    EXPECT_EQ(wanid_to_phyid(2), 'x' - '0');
    EXPECT_EQ(wanid_to_phyid(3), 255 - '0') << "bytes are unsigned";
    EXPECT_EQ(phyid_to_web_portid(255 - '0'), 3);
}

TEST_F(WanPorts, AtMost31PortsAreLookedAt)
{
    board(std::string(30, '1') + "234567", "1");
    EXPECT_EQ(wanid_to_phyid(31), 2);
    EXPECT_EQ(wanid_to_phyid(32), 0);
    EXPECT_EQ(lanid_to_phyid(1), 2);
    board(test::longest_value('7'), test::longest_value('1'));
    EXPECT_EQ(wanid_to_phyid(31), 7);
    EXPECT_EQ(wanid_to_phyid(32), 0);
    EXPECT_EQ(phyid_to_port_index(7), 0);
    EXPECT_EQ(phyid_to_lanid(8), 0);
}

TEST_F(WanPorts, NothingIsLogged)
{
    EXPECT_EQ(printed_at(PROD_DBG_TRACE,
                         [] {
                             wanid_to_phyid(1);
                             lanid_to_phyid(1);
                             web_portid_to_phyid(1);
                             phyid_to_web_portid(1);
                             phyid_to_port_index(1);
                             phyid_to_wanid(1);
                             phyid_is_wan(1);
                             phyid_to_lanid(1);
                             phyid_is_lan(1);
                             wan_name_to_id("x");
                             ifname_to_wanid("x");
                             wanid_to_vifname(1);
                             char text[256];
                             get_value_by_wanid(9, "x", text);
                             get_mac_by_wanid(2, text);
                         }),
              "");
}

// ---- names -----------------------------------------------------------------------------------

TEST_F(WanPorts, WanNames)
{
    const struct {
        const char *name;
        int id;
    } rows[] = {{"wan2", 2},
                {"WAN2", 2},
                {"wan0", 0},
                {"wan-3", -3},
                {"wan99", 99},
                {"wan 4", 4},
                {"wan2.1", 2},
                {"WAN1x", 1},
                {"Wan2", 0},
                {"wan", 0},
                {"wanx", 0},
                {"lan2", 0},
                {"", 0},
                {" wan2", 0},
                {"2", 0},
                {"wan99999999999999999999", INT_MAX},
                {"wan-99999999999999999999", INT_MIN}};
    for (const auto &row : rows) {
        EXPECT_EQ(wan_name_to_id(row.name), row.id) << row.name;
    }
    EXPECT_EQ(wan_name_to_id(nullptr), 0);
}

TEST_F(WanPorts, WanOfAnInterface)
{
    board("43210", "4");
    const struct {
        const char *name;
        int id;
    } rows[] = {{"vlan2", 1},
                {"vlan5", 4},
                {"vlan1", 0},
                {"vlan6", 0},
                {"vlan0", 0},
                {"vlan2x", 1},
                {"vlanx", 0},
                {"ppp1", 1},
                {"ppp4", 4},
                {"ppp5", 0},
                {"ppp0", 0},
                {"ppp60", 0},
                {"ppp61", 1},
                {"ppp64", 4},
                {"ppp65", 0},
                {"eth1", 1},
                {"eth4", 4},
                {"eth5", 0},
                {"eth0", 0},
                {"eth", 0},
                {"ethx", 0},
                {"wlan0", 0},
                {"", 0},
                {"br0", 0},
                {"VLAN2", 0},
                {"vlan-2147483648", 0},
                {"vlan99999999999999999999", 0},
                {"ppp-99999999999999999999", 0},
                {"ppp99999999999999999999", 0},
                {"eth2.", 2},
                {"eth2.x", 2}};
    for (const auto &row : rows) {
        EXPECT_EQ(ifname_to_wanid(row.name), row.id) << row.name;
    }
    EXPECT_EQ(ifname_to_wanid(nullptr), 0);
}

TEST_F(WanPorts, OnlyWansThatAreCounted)
{
    board("43210", "1");
    EXPECT_EQ(ifname_to_wanid("vlan2"), 1);
    EXPECT_EQ(ifname_to_wanid("vlan3"), 0);
    board("43210", "60");
    EXPECT_EQ(ifname_to_wanid("ppp60"), 60);
    EXPECT_EQ(ifname_to_wanid("ppp61"), 1);
    board("43210", "0");
    EXPECT_EQ(ifname_to_wanid("vlan2"), 0);
    board("43210", "2147483647");
    EXPECT_EQ(ifname_to_wanid("vlan99999999999999999999"), 2147483646);
}

TEST_F(WanPorts, WanOfAVlanOnAPort)
{
    board("43210", "2");
    config()["port.1.ifname"] = "eth0.5";
    config()["port.2.ifname"] = "eth0.6";
    config()["port.3.ifname"] = "eth0.7";
    EXPECT_EQ(ifname_to_wanid("eth0.5"), 1);
    EXPECT_EQ(ifname_to_wanid("eth0.6"), 2);
    EXPECT_EQ(ifname_to_wanid("eth0.7"), 0) << "a LAN's port";
    EXPECT_EQ(ifname_to_wanid("eth0.55"), 0);
    EXPECT_EQ(ifname_to_wanid("eth2.9"), 0) << "the number before the dot plays no part";
    config()["port.1.ifname"] = "ETH0.5";
    EXPECT_EQ(ifname_to_wanid("eth0.5"), 0);
}

TEST_F(WanPorts, WanOfAVlanWithHostileNames)
{
    board("4", "1");
    config()["port.1.ifname"] = "eth0.5" + test::longest_value().substr(6);
    EXPECT_EQ(ifname_to_wanid("eth0.5"), 0);
    EXPECT_EQ(ifname_to_wanid(("eth0.5" + test::longest_value()).c_str()), 0);
}

// ---- VLAN ids --------------------------------------------------------------------------------

constexpr const char *kVlanFile = "/etc/lan_wan_port";

TEST(PhyidToVid, TheFirstLineOfThePort)
{
    test::write_text(kVlanFile,
                     "lan1 0 vlan10\n\nwan1 4 vlan2\nlan2 1 vlan11\nlan9 1 vlan99\nlast 3 vlan7");
    EXPECT_EQ(phyid_to_vid(0), 10);
    EXPECT_EQ(phyid_to_vid(1), 11);
    EXPECT_EQ(phyid_to_vid(4), 2);
    EXPECT_EQ(phyid_to_vid(3), 7);
    EXPECT_EQ(phyid_to_vid(2), 0);
    EXPECT_EQ(phyid_to_vid(-1), 0);
}

TEST(PhyidToVid, LinesOfAnotherForm)
{
    const struct {
        const char *line;
        int vid;
    } rows[] = {{"name 1 vlan5", 5},
                {"name\t1\tvlan5", 5},
                {"  name   1   vlan5", 5},
                {"name 1vlan5", 5},
                {"name 1 vlan 5", 5},
                {"name 1 vlan5 more", 5},
                {"name 1 vlan-5", -5},
                {"name 1 vlan5\r", 5},
                {"1 vlan5", 0},
                {"name 1", 0},
                {"name 1 vlan", 0},
                {"name 1 5", 0},
                {"name one vlan5", 0},
                {"name", 0},
                {"name 1 VLAN5", 0},
                {"name 2 vlan5", 0},
                {"name 4294967297 vlan5", 0},
                {"name 99999999999999999999 vlan5", 0},
                {"name 1 vlan99999999999999999999", INT_MAX}};
    for (const auto &row : rows) {
        test::write_text(kVlanFile, row.line);
        EXPECT_EQ(phyid_to_vid(1), row.vid) << row.line;
    }
}

TEST(PhyidToVid, OddFiles)
{
    test::write_text(kVlanFile, "");
    EXPECT_EQ(phyid_to_vid(1), 0);
    test::write_text(kVlanFile, "\n\n\n");
    EXPECT_EQ(phyid_to_vid(1), 0);
    test::write_text(kVlanFile, std::string(100000, 'x') + " 1 vlan5\n");
    EXPECT_EQ(phyid_to_vid(1), 5);
    test::write_text(kVlanFile, std::string("name 2 vlan5\n\0name 1 vlan5\n", 27));
    EXPECT_EQ(phyid_to_vid(1), 0) << "a text ends at its NUL";
    test::write_text(kVlanFile, "\xff\xfe\x80\x01 1 vlan5\n");
    EXPECT_EQ(phyid_to_vid(1), 5);
    const int before = test::open_descriptors();
    phyid_to_vid(1);
    EXPECT_EQ(test::open_descriptors(), before);
    test::remove_all(kVlanFile);
    EXPECT_EQ(phyid_to_vid(1), 0);
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [] { phyid_to_vid(1); }),
                Prints(log_line(PROD_DBG_DEBUG, "get_file_content",
                                "Failed(2) to stat file /etc/lan_wan_port, No such file or "
                                "directory.")));
}

// ---- interface of a WAN's traffic ------------------------------------------------------------

TEST_F(WanPorts, TrafficInterface)
{
    config()["port.1.ifname"] = "eth1.2";
    config()["port.2.ifname"] = "eth2";
    EXPECT_STREQ(wanid_to_vifname(1), "eth1.2");
    EXPECT_STREQ(wanid_to_vifname(2), "eth2");
    config()["wan1.connecttype"] = "2";
    EXPECT_STREQ(wanid_to_vifname(1), "ppp1");
    EXPECT_STREQ(wanid_to_vifname(2), "eth2");
    config()["wan2.connecttype"] = "2";
    EXPECT_STREQ(wanid_to_vifname(2), "ppp2");
}

TEST_F(WanPorts, TrafficInterfaceOfAnIpv6Session)
{
    config()["port.1.ifname"] = "eth1.2";
    config()["ipv6.wan1.type"] = "2";
    EXPECT_STREQ(wanid_to_vifname(1), "eth1.2") << "IPv6 is off";
    config()["ipv6.enable"] = "1";
    EXPECT_STREQ(wanid_to_vifname(1), "ppp61");
    config()["wan1.connecttype"] = "2";
    EXPECT_STREQ(wanid_to_vifname(1), "ppp1") << "the IPv4 session comes first";
    config()["wan1.connecttype"] = "1";
    config()["ipv6.wan1.type"] = "1";
    EXPECT_STREQ(wanid_to_vifname(1), "eth1.2");
    config()["ipv6.wan4.type"] = "2";
    EXPECT_STREQ(wanid_to_vifname(4), "ppp64");
}

TEST_F(WanPorts, TrafficInterfaceLivesInOneBuffer)
{
    config()["port.1.ifname"] = "eth1.2";
    const char *const first = wanid_to_vifname(1);
    EXPECT_EQ(wanid_to_vifname(2), first);
    EXPECT_STREQ(first, "") << "WAN 2 has no interface, and WAN 1's is not left over";
    EXPECT_STREQ(wanid_to_vifname(-1), "");
    config()["wan-2147483648.connecttype"] = "2";
    EXPECT_STREQ(wanid_to_vifname(INT_MIN), "ppp-2147483648");
}

TEST_F(WanPorts, TrafficInterfaceWithHostileValues)
{
    const test::EveryKeyReads hostile{test::longest_value()};
    EXPECT_EQ(wanid_to_vifname(1), std::string(31, 'x'));
    config()["ipv6.enable"] = test::longest_value('9');
    config()["ipv6.wan1.type"] = "2" + test::longest_value();
    EXPECT_STREQ(wanid_to_vifname(1), "ppp61");
}

// ---- values of a WAN's file ------------------------------------------------------------------

std::string value_by_wanid(int wanid, const char *key)
{
    char value[256] = "untouched";
    const int found = get_value_by_wanid(wanid, key, value);
    return std::to_string(found) + " " + value;
}

TEST(GetValueByWanid, FoundAndTrimmed)
{
    test::write_text("/etc/wan1.ini", "ip=192.0.2.7\nmask=  255.255.255.0  \ngateway=\n");
    test::write_text("/etc/wan22.ini", "ip=192.0.2.22\n");
    EXPECT_EQ(value_by_wanid(1, "ip"), "1 192.0.2.7");
    EXPECT_EQ(value_by_wanid(1, "mask"), "1 255.255.255.0");
    EXPECT_EQ(value_by_wanid(1, "gateway"), "1 ");
    EXPECT_EQ(value_by_wanid(1, "dns1"), "0 untouched");
    EXPECT_EQ(value_by_wanid(22, "ip"), "1 192.0.2.22") << "the id is not checked";
    EXPECT_EQ(value_by_wanid(2, "ip"), "0 untouched");
    EXPECT_EQ(value_by_wanid(INT_MIN, "ip"), "0 untouched");
}

TEST(GetValueByWanid, NewlinesGoFirstAndBlanksThen)
{
    other_value = "\n\n  a b \n\n";
    EXPECT_EQ(value_by_wanid(1, "ip"), "1 a b");
    other_value = " \n a \n ";
    EXPECT_EQ(value_by_wanid(1, "ip"), "1 \n a \n") << "a newline behind a blank stays";
    const std::string longest = "\n" + std::string(254, 'x');
    other_value = longest.c_str();
    EXPECT_EQ(value_by_wanid(1, "ip"), "1 " + std::string(254, 'x'));
    other_value = nullptr;
}

TEST(GetValueByWanid, OddFiles)
{
    test::write_text("/etc/wan1.ini", "ip=" + std::string(5000, 'x') + "\nmask=m\n");
    const std::string value = value_by_wanid(1, "ip");
    EXPECT_EQ(value.substr(0, 3), "1 x");
    EXPECT_LE(value.size(), 2U + 255);
    EXPECT_EQ(value_by_wanid(1, "mask"), "1 m");
    test::write_text("/etc/wan1.ini", "");
    EXPECT_EQ(value_by_wanid(1, "ip"), "0 untouched");
    test::write_text("/etc/wan1.ini", std::string(1000, '\0'));
    EXPECT_EQ(value_by_wanid(1, "ip"), "0 untouched");
}

TEST(GetValueByWanid, NullArguments)
{
    test::write_text("/etc/wan1.ini", "ip=192.0.2.7\n");
    char value[256] = "untouched";
    EXPECT_EQ(get_value_by_wanid(1, nullptr, value), 0);
    EXPECT_EQ(get_value_by_wanid(1, "ip", nullptr), 0);
    EXPECT_STREQ(value, "untouched");
}

// ---- MACs ------------------------------------------------------------------------------------

std::string mac_by_wanid(int wan_id)
{
    char text[18] = "untouched";
    get_mac_by_wanid(wan_id, text);
    return text;
}

TEST_F(WanPorts, MacsCountUp)
{
    config()["wan.mac"] = "00:11:22:33:44:FE";
    EXPECT_EQ(mac_by_wanid(1), "00:11:22:33:44:FE");
    EXPECT_EQ(mac_by_wanid(0), "00:11:22:33:44:FE");
    EXPECT_EQ(mac_by_wanid(INT_MIN), "00:11:22:33:44:FE");
    EXPECT_EQ(mac_by_wanid(2), "00:11:22:33:45:FF");
    EXPECT_EQ(mac_by_wanid(3), "00:11:22:33:47:00");
    config()["wan.mac"] = "00:11:22:33:44:ff";
    EXPECT_EQ(mac_by_wanid(2), "00:11:22:33:46:00");
}

TEST_F(WanPorts, MacsWithoutABase)
{
    EXPECT_EQ(mac_by_wanid(1), "00:00:00:00:00:00");
    EXPECT_EQ(mac_by_wanid(4), "00:00:00:00:03:03");
    config()["wan.mac"] = "no MAC at all";
    EXPECT_EQ(mac_by_wanid(2), "00:00:00:00:01:01");
    config()["wan.mac"] = test::longest_value('1');
    EXPECT_EQ(mac_by_wanid(2), "11:00:00:00:01:01") << "what could be read counts";
    config()["wan.mac"] = "00:11:22:33:44:5" + test::longest_value('6');
    EXPECT_EQ(mac_by_wanid(1), "00:11:22:33:44:56") << "cut at 17 characters";
    get_mac_by_wanid(1, nullptr);
}

TEST_F(WanPorts, MacsStopAtTheVendorsByte)
{
    config()["wan.mac"] = "02:FF:FF:FF:FF:FF";
    EXPECT_THAT(printed([] { EXPECT_EQ(mac_by_wanid(4), "02:00:00:00:00:00"); }),
                Prints(log_line(PROD_DBG_ERROR, "ifaddrs_mac_increase", "mac increase is fail.")));
    config()["wan.mac"] = "02:FF:FF:FF:FF:00";
    EXPECT_THAT(printed([] { EXPECT_EQ(mac_by_wanid(4), "02:00:00:00:00:01"); }),
                Prints(log_line(PROD_DBG_ERROR, "ifaddrs_mac_increase", "mac increase is fail.")));
}

TEST_F(WanPorts, AnAbsurdWanIdDoesNotCountForHours)
{
    EXPECT_EQ(mac_by_wanid(2000000000), mac_by_wanid(64));
    EXPECT_EQ(mac_by_wanid(64), "00:00:00:00:3F:3F");
}

}  // namespace
