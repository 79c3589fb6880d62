// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <set>
#include <string>
#include <vector>

#include "platform/hardware.h"
#include "platform/process.h"
#include "prod_common_wan.h"
#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::read_text;
using test::write_text;

namespace
{

// ---- the board and its processes, as a test sets them ----------------------------------------

std::set<int> linked_ports;
std::set<std::string> running;
std::vector<std::string> asked;  // processes that were looked for
bool sockets_fail;
const char *other_ifname;  // in the place of what the connection type gives

}  // namespace

extern "C" {

int iof_port_status_get(int port, port_status *status)
{
    *status = {};
    status->link = linked_ports.count(port) != 0 ? 1 : 0;
    return 0;
}

char *iof_eth_name_get(eth_idx_t index)
{
    return index == WAN_4 ? const_cast<char *>("wan_d") : nullptr;
}

int monitor_check_exist(const char *process_name)
{
    asked.emplace_back(process_name);
    return running.count(process_name) != 0 ? 1 : 0;
}

char *ifaddrs_get_wan_ifname(int wanid, int sysmode, HLX_WAN_CONNECT_TYPE_ENUM wantype)
{
    static const auto real = test::next(ifaddrs_get_wan_ifname, "ifaddrs_get_wan_ifname");
    return other_ifname != nullptr ? const_cast<char *>(other_ifname)
                                   : real(wanid, sysmode, wantype);
}

int socket(int domain, int type, int protocol) noexcept
{
    if (sockets_fail) {
        errno = EMFILE;
        return -1;
    }
    static const auto real = test::next(socket, "socket");
    return real(domain, type, protocol);
}
}

namespace
{

constexpr const char *kIpv6File = "/etc/ipv6_wan1.ini";

/** Four WAN ports, of which those of WAN 1 and 3 have an address. */
class WanStatus : public testing::Test
{
  protected:
    test::FreshConfig fresh_;

    static void SetUpTestSuite()
    {
        for (const char *const device : {"wan_a", "wan_b", "wan_c", "wan_d", "ppp1"}) {
            test::run("ip link add %s type bridge", device);
        }
        test::run("ip address add 192.0.2.7/24 dev wan_a");
        test::run("ip address add 198.51.100.9/24 dev wan_c");
    }

    static void TearDownTestSuite()
    {
        for (const char *const device : {"wan_a", "wan_b", "wan_c", "wan_d", "ppp1"}) {
            test::run("ip link delete %s", device);
        }
    }

    void SetUp() override
    {
        config()["sys.ports"] = "43210";
        config()["wans.flag"] = "4";
        config()["port.1.ifname"] = "wan_a";
        config()["port.2.ifname"] = "wan_b";
        config()["port.3.ifname"] = "wan_c";
        linked_ports = {1, 2, 3, 4};
        running.clear();
        asked.clear();
        test::remove_all(kIpv6File);
    }

    static HLX_WAN_LINK_STATUS_ENUM status(int wan_id, int con_type = HLX_WAN_CONNECT_DHCP,
                                           int sys_mode = HLX_SYS_MODE_GW)
    {
        return system_wan_get_link_status(static_cast<WAN_ID_NUM_ENUM>(wan_id),
                                          static_cast<HLX_WAN_CONNECT_TYPE_ENUM>(con_type),
                                          static_cast<HLX_SYS_WORK_MODE_ENUM>(sys_mode));
    }

    static std::string ip_of(const char *ifname, int wan_id)
    {
        char address[16] = "untouched";
        const int result = system_wan_ip_get(ifname, address, static_cast<WAN_ID_NUM_ENUM>(wan_id));
        return std::to_string(result) + " " + address;
    }
};

// ---- the decision ----------------------------------------------------------------------------

TEST_F(WanStatus, ConnectedWithAnAddress)
{
    EXPECT_EQ(status(1), HLX_WAN_CONNECTED);
    EXPECT_EQ(status(3, HLX_WAN_CONNECT_STATIC), HLX_WAN_CONNECTED);
    EXPECT_TRUE(asked.empty());
}

TEST_F(WanStatus, NoCable)
{
    linked_ports = {1, 2, 3};
    EXPECT_EQ(status(1), HLX_WAN_NO_WIRE);
    EXPECT_THAT(
        printed_at(PROD_DBG_DEBUG, [] { status(1); }),
        Prints(log_line(PROD_DBG_DEBUG, "system_wan_get_link_status", "wan1 is not wire.")));
    EXPECT_EQ(printed([] { status(1); }), "");
}

TEST_F(WanStatus, NoAddressYet)
{
    EXPECT_EQ(status(2), HLX_WAN_NOT_CONNECTED);
    running = {"dhcpcd_wan2"};
    EXPECT_EQ(status(2), HLX_WAN_CONNECTING);
    running = {"dhcpcd_wan1", "dhcp6c"};
    EXPECT_EQ(status(2), HLX_WAN_NOT_CONNECTED) << "only WAN 1 waits for its IPv6 client";
    running = {"dhcpcd_wan4"};
    EXPECT_EQ(status(4), HLX_WAN_CONNECTING);
}

TEST_F(WanStatus, WhichProcessAWanWaitsFor)
{
    const std::vector<std::string> dhcp{"dhcpcd_wan2"};
    const std::vector<std::string> ppp{"pppd_wan2"};
    const struct {
        int con_type;
        std::vector<std::string> processes;
    } rows[] = {{HLX_WAN_CONNECT_DHCP, dhcp}, {HLX_WAN_CONNECT_STATIC, {}},
                {HLX_WAN_CONNECT_PPPOE, ppp}, {HLX_WAN_CONNECT_PPTP, ppp},
                {HLX_WAN_CONNECT_L2TP, ppp},  {HLX_WAN_CONNECT_PPPOE_DOUBLE, ppp}};
    for (const auto &row : rows) {
        asked.clear();
        running.clear();
        EXPECT_EQ(status(2, row.con_type), HLX_WAN_NOT_CONNECTED) << row.con_type;
        EXPECT_EQ(asked, row.processes) << row.con_type;
        running = {"dhcpcd_wan2", "pppd_wan2", "dhcp6c"};
        EXPECT_EQ(status(2, row.con_type),
                  row.processes.empty() ? HLX_WAN_NOT_CONNECTED : HLX_WAN_CONNECTING)
            << row.con_type;
    }
}

TEST_F(WanStatus, WhichProcessAnAtmWanWaitsFor)
{
    // In gateway mode these types have no interface; were there one, this would count.
    other_ifname = "none";
    running = {"dhcpcd_wan2"};
    EXPECT_EQ(status(2, HLX_WAN_CONNECT_IPOA_DHCP), HLX_WAN_CONNECTING);
    EXPECT_EQ(status(2, HLX_WAN_CONNECT_IPOA_STATIC), HLX_WAN_NOT_CONNECTED);
    EXPECT_EQ(status(2, HLX_WAN_CONNECT_PPPOA), HLX_WAN_NOT_CONNECTED);
    running = {"pppd_wan2"};
    EXPECT_EQ(status(2, HLX_WAN_CONNECT_IPOA_DHCP), HLX_WAN_NOT_CONNECTED);
    EXPECT_EQ(status(2, HLX_WAN_CONNECT_PPPOA), HLX_WAN_CONNECTING);
    for (const int type : {9, 15, 100, -1}) {
        EXPECT_EQ(status(2, type), HLX_WAN_NOT_CONNECTED) << type;
    }
    other_ifname = nullptr;
}

TEST_F(WanStatus, Wan1AlsoWaitsForItsIpv6Client)
{
    test::run("ip address del 192.0.2.7/24 dev wan_a");
    EXPECT_EQ(status(1), HLX_WAN_NOT_CONNECTED);
    EXPECT_EQ(asked, (std::vector<std::string>{"dhcpcd_wan1", "dhcp6c"}));
    asked.clear();
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_PPPOE), HLX_WAN_NOT_CONNECTED);
    EXPECT_EQ(asked, (std::vector<std::string>{"pppd_wan1", "dhcp6c"}));
    running = {"dhcp6c"};
    EXPECT_EQ(status(1), HLX_WAN_CONNECTING);
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_PPPOE), HLX_WAN_CONNECTING);
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_STATIC), HLX_WAN_NOT_CONNECTED);
    running = {"dhcpcd_wan1"};
    EXPECT_EQ(status(1), HLX_WAN_CONNECTING);
    running = {"pppd_wan1"};
    EXPECT_EQ(status(1), HLX_WAN_NOT_CONNECTED);
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_PPPOE), HLX_WAN_CONNECTING);
    test::run("ip address add 192.0.2.7/24 dev wan_a");
}

TEST_F(WanStatus, AnIpv6OnlyWan1IsConnected)
{
    test::run("ip address del 192.0.2.7/24 dev wan_a");
    write_text(kIpv6File, "");
    EXPECT_EQ(status(1), HLX_WAN_CONNECTED);
    EXPECT_EQ(status(2), HLX_WAN_NOT_CONNECTED);
    test::run("ip address add 192.0.2.7/24 dev wan_a");
}

TEST_F(WanStatus, PppCarriesTheSession)
{
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_PPPOE), HLX_WAN_NOT_CONNECTED);
    test::run("ip address add 203.0.113.5/32 dev ppp1");
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_PPPOE), HLX_WAN_CONNECTED);
    test::run("ip address del 203.0.113.5/32 dev ppp1");
}

TEST_F(WanStatus, TheModeOfTheDevice)
{
    running = {"dhcpcd_wan1"};
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_DHCP, HLX_SYS_MODE_ADSL_GW), HLX_WAN_NO_WIRE);
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_PPPOE, HLX_SYS_MODE_ADSL_GW), HLX_WAN_NO_WIRE);
    linked_ports.clear();
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_DHCP, HLX_SYS_MODE_ADSL_BR), HLX_WAN_CONNECTED);
    EXPECT_EQ(status(4, HLX_WAN_CONNECT_BUTT, HLX_SYS_MODE_ADSL_BR), HLX_WAN_CONNECTED);
    linked_ports = {4};
    EXPECT_EQ(status(1, HLX_WAN_CONNECT_DHCP, HLX_SYS_MODE_BUTT), HLX_WAN_NO_WIRE);
}

TEST_F(WanStatus, NoSuchWan)
{
    for (const int wan_id : {0, 5, 6, -1}) {
        for (const int mode : {1, 2, 3, 4}) {
            EXPECT_EQ(status(wan_id, HLX_WAN_CONNECT_DHCP, mode), HLX_WAN_NO_WIRE) << wan_id;
        }
    }
}

TEST_F(WanStatus, TypesWithoutAnInterface)
{
    for (const int type : {6, 7, 8, 9, 15, 100, -1}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(status(2, type), HLX_WAN_NO_WIRE); }),
                    Prints(log_line(PROD_DBG_ERROR, "system_wan_get_link_status",
                                    "get ifname for wan2 fail.")))
            << type;
    }
}

TEST_F(WanStatus, Traces)
{
    const auto line = [](prod_dbg_lvl_t level, const char *function, const std::string &text) {
        return log_line(level, function, text);
    };
    const auto enter = [](const std::string &function) {
        return log_line(PROD_DBG_TRACE, function, "ENTER >>> " + function);
    };
    const auto leave = [](const std::string &function) {
        return log_line(PROD_DBG_TRACE, function, "LEAVE <<< " + function);
    };
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { status(1); }),
                Prints(enter("system_wan_get_link_status") + enter("system_wan_ip_get") +
                       leave("system_wan_ip_get") + leave("system_wan_get_link_status")));
    const std::string no_address =
        line(PROD_DBG_DEBUG, "system_wan_ip_get",
             "Failed(99) to get ip info for `wan_b`, Cannot assign requested address.");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { status(2); }),
                Prints(enter("system_wan_get_link_status") + enter("system_wan_ip_get") +
                       no_address + leave("system_wan_ip_get") +
                       line(PROD_DBG_DEBUG, "get_dhcp_wan_link_status", "wan2 is not connected.") +
                       leave("get_dhcp_wan_link_status") + leave("system_wan_get_link_status")));
    running = {"dhcpcd_wan2"};
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [] { status(2); }),
                Prints(no_address +
                       line(PROD_DBG_DEBUG, "get_dhcp_wan_link_status", "wan2 is connecting.")));
    running = {"pppd_wan2"};
    const std::string no_ppp = line(PROD_DBG_DEBUG, "system_wan_ip_get",
                                    "Failed(19) to get ip info for `ppp2`, No such device.");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { status(2, HLX_WAN_CONNECT_PPPOE); }),
                Prints(enter("system_wan_get_link_status") + enter("system_wan_ip_get") + no_ppp +
                       leave("system_wan_ip_get") +
                       line(PROD_DBG_DEBUG, "get_ppp_vpn_wan_link_status", "wan2 is connecting.") +
                       leave("get_ppp_vpn_wan_link_status") + leave("system_wan_get_link_status")));
    running.clear();
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [] { status(2, HLX_WAN_CONNECT_PPPOE); }),
                Prints(no_ppp + line(PROD_DBG_DEBUG, "get_ppp_vpn_wan_link_status",
                                     "wan2 is not connected.")));
}

TEST_F(WanStatus, HostileConfiguration)
{
    config().clear();
    const test::EveryKeyReads hostile{test::longest_value('9')};
    linked_ports = {9};
    EXPECT_EQ(status(1), HLX_WAN_NOT_CONNECTED);
    char name[64] = "untouched";
    EXPECT_EQ(prod_common_get_wanifname(1, name, sizeof(name)), nullptr);
    EXPECT_STREQ(name, "untouched");
}

// ---- the interface of a WAN ------------------------------------------------------------------

TEST_F(WanStatus, InterfacesByModeAndType)
{
    const struct {
        int type;
        const char *gateway[4];
        const char *adsl_gateway[4];
    } rows[] = {
        {HLX_WAN_CONNECT_DHCP, {"wan_a", "wan_b", "wan_c", "wan_d"}, {}},
        {HLX_WAN_CONNECT_STATIC, {"wan_a", "wan_b", "wan_c", "wan_d"}, {}},
        {HLX_WAN_CONNECT_PPPOE, {"ppp1", "ppp2", "ppp3", "ppp4"}, {"ppp1", "ppp2", "ppp3", "ppp4"}},
        {HLX_WAN_CONNECT_PPTP, {"ppp1", "ppp2", "ppp3", "ppp4"}, {}},
        {HLX_WAN_CONNECT_L2TP, {"ppp1", "ppp2", "ppp3", "ppp4"}, {}},
        {HLX_WAN_CONNECT_PPPOE_DOUBLE,
         {"ppp1", "ppp2", "ppp3", "ppp4"},
         {"ppp1", "ppp2", "ppp3", "ppp4"}},
        {HLX_WAN_CONNECT_IPOA_DHCP, {}, {}},
        {HLX_WAN_CONNECT_IPOA_STATIC, {}, {}},
        {HLX_WAN_CONNECT_PPPOA, {}, {"ppp1", "ppp2", "ppp3", "ppp4"}},
    };
    EXPECT_EQ(
        printed_at(PROD_DBG_DEBUG,
                   [&] {
                       for (const auto &row : rows) {
                           const auto type = static_cast<HLX_WAN_CONNECT_TYPE_ENUM>(row.type);
                           for (int id = 1; id <= 4; ++id) {
                               EXPECT_STREQ(ifaddrs_get_wan_ifname(id, HLX_SYS_MODE_GW, type),
                                            row.gateway[id - 1])
                                   << row.type;
                               EXPECT_STREQ(ifaddrs_get_wan_ifname(id, HLX_SYS_MODE_ADSL_GW, type),
                                            row.adsl_gateway[id - 1])
                                   << row.type;
                               EXPECT_EQ(ifaddrs_get_wan_ifname(id, HLX_SYS_MODE_ADSL_BR, type),
                                         nullptr);
                           }
                       }
                   }),
        "");
    EXPECT_EQ(ifaddrs_get_wan_ifname(2, HLX_SYS_MODE_GW, HLX_WAN_CONNECT_PPPOE), pppDevName[1]);
}

TEST_F(WanStatus, InterfaceArgumentsOutOfRange)
{
    const int rows[][3] = {{0, 3, 0},  {5, 3, 0}, {-1, 3, 0}, {1, 0, 0},  {1, 4, 0},
                           {1, -1, 0}, {1, 3, 9}, {1, 3, 15}, {1, 3, -1}, {INT_MIN, INT_MAX, 100}};
    for (const auto &[wanid, sysmode, wantype] : rows) {
        const std::string message = "arg is error: wanid=" + std::to_string(wanid) +
                                    " sysmode=" + std::to_string(sysmode) +
                                    " wantype=" + std::to_string(wantype);
        const auto ask = [wanid = wanid, sysmode = sysmode, wantype = wantype] {
            EXPECT_EQ(ifaddrs_get_wan_ifname(wanid, sysmode,
                                             static_cast<HLX_WAN_CONNECT_TYPE_ENUM>(wantype)),
                      nullptr);
        };
        EXPECT_THAT(printed_at(PROD_DBG_DEBUG, ask),
                    Prints(log_line(PROD_DBG_DEBUG, "ifaddrs_get_wan_ifname", message)));
        EXPECT_EQ(printed(ask), "");
    }
}

TEST_F(WanStatus, TheInterfaceAsTheDeviceIsNow)
{
    config()["sys.mode"] = "3";
    char name[16] = "untouched";
    EXPECT_STREQ(prod_common_get_wanifname(1, name, sizeof(name)), "wan_a");
    EXPECT_STREQ(name, "wan_a");
    config()["wan1.connecttype"] = "2";
    EXPECT_EQ(prod_common_get_wanifname(1, name, sizeof(name)), pppDevName[0]);
    EXPECT_STREQ(name, "ppp1");
    EXPECT_EQ(prod_common_get_wanifname(1, nullptr, 0), pppDevName[0]);
    EXPECT_EQ(prod_common_get_wanifname(1, name, 3), pppDevName[0]);
    EXPECT_STREQ(name, "pp");
    EXPECT_EQ(prod_common_get_wanifname(1, name, 0), pppDevName[0]);
    EXPECT_STREQ(name, "pp");
    EXPECT_EQ(prod_common_get_wanifname(0, name, sizeof(name)), nullptr);
    EXPECT_EQ(prod_common_get_wanifname(4294967295U, name, sizeof(name)), nullptr);
    config()["wan1.connecttype"] = "99";
    EXPECT_EQ(prod_common_get_wanifname(1, name, sizeof(name)), nullptr);
    config().erase("sys.mode");
    EXPECT_EQ(prod_common_get_wanifname(2, name, sizeof(name)), nullptr) << "no mode is set";
    EXPECT_STREQ(name, "pp");
}

// ---- the address -----------------------------------------------------------------------------

TEST_F(WanStatus, AddressOfAnInterface)
{
    EXPECT_EQ(ip_of("wan_a", 1), "0 192.0.2.7");
    EXPECT_EQ(ip_of("wan_c", 3), "0 198.51.100.9");
    EXPECT_EQ(ip_of("wan_b", 2), "-1 untouched");
    EXPECT_EQ(ip_of("wan_b", 1), "-1 untouched");
    EXPECT_EQ(ip_of("none", 1), "-1 untouched");
    EXPECT_EQ(ip_of("a_name_that_is_much_too_long", 1), "-1 untouched");
    test::run("ip link add fifteen_letters type bridge");
    test::run("ip address add 203.0.113.9/30 dev fifteen_letters");
    EXPECT_EQ(ip_of("fifteen_letters_and_more", 2), "0 203.0.113.9") << "15 characters count";
    test::run("ip link delete fifteen_letters");
}

TEST_F(WanStatus, AddressWithIpv6Alone)
{
    write_text(kIpv6File, "anything");
    EXPECT_EQ(ip_of("wan_b", 1), "0 untouched");
    EXPECT_EQ(ip_of("wan_b", 2), "-1 untouched");
    EXPECT_EQ(ip_of("wan_a", 1), "0 192.0.2.7");
}

TEST_F(WanStatus, AddressFailures)
{
    sockets_fail = true;
    const std::string failed = log_line(PROD_DBG_ERROR, "system_wan_ip_get",
                                        "Failed(24) to create socket is fail., Too many open "
                                        "files.");
    EXPECT_THAT(printed([] { EXPECT_EQ(ip_of("wan_a", 1), "-1 untouched"); }), Prints(failed));
    write_text(kIpv6File, "");
    EXPECT_THAT(printed([] { EXPECT_EQ(ip_of("wan_a", 1), "0 untouched"); }), Prints(failed));
    sockets_fail = false;
    char address[16] = "untouched";
    EXPECT_EQ(system_wan_ip_get(nullptr, address, WAN_ID_1), -1);
    EXPECT_EQ(system_wan_ip_get("wan_a", nullptr, WAN_ID_1), -1);
    EXPECT_STREQ(address, "untouched");
}

TEST_F(WanStatus, NoDescriptorIsLost)
{
    write_text(kIpv6File, "");
    const int before = test::open_descriptors();
    ip_of("wan_a", 1);
    ip_of("wan_b", 1);
    ip_of("none", 2);
    EXPECT_EQ(test::open_descriptors(), before);
}

// ---- hosts of the WAN's subnet ---------------------------------------------------------------

TEST(CompareWithWanIp, HostsOfTheSubnet)
{
    const struct {
        const char *ip;
        const char *mask;
        const char *test;
        int result;
    } rows[] = {
        {"192.168.1.5", "255.255.255.0", "192.168.1.255", 0},
        {"192.168.1.5", "255.255.255.0", "192.168.1.254", 1},
        {"192.168.1.5", "255.255.255.0", "192.168.1.1", 1},
        {"192.168.1.5", "255.255.255.0", "192.168.1.5", 1},
        {"192.168.1.5", "255.255.255.0", "192.168.1.0", 0},
        {"192.168.1.5", "255.255.255.0", "192.168.2.1", 0},
        {"192.168.1.5", "255.255.255.0", "192.168.0.255", 0},
        {"10.1.2.3", "255.255.255.252", "10.1.2.1", 1},
        {"10.1.2.3", "255.255.255.252", "10.1.2.2", 1},
        {"10.1.2.3", "255.255.255.252", "10.1.2.3", 0},
        {"10.1.2.3", "255.255.255.252", "10.1.2.4", 0},
        {"10.1.2.3", "255.255.255.254", "10.1.2.2", 0},
        {"10.1.2.3", "255.255.255.254", "10.1.2.3", 0},
        {"10.1.2.3", "255.255.255.255", "10.1.2.3", 0},
        {"255.255.255.254", "255.255.255.0", "255.255.255.1", 1},
        {"255.255.255.254", "255.255.255.0", "255.255.255.255", 0},
        {"10.1.2.3", "128.0.0.0", "126.0.0.1", 1},
        {"10.1.2.3", "128.0.0.0", "127.255.255.255", 0},
        {"200.1.2.3", "128.0.0.0", "255.255.255.254", 1},
        {"10.1.2.3", "0.0.0.0", "0.0.0.1", 1},
        {"10.1.2.3", "0.0.0.0", "255.255.255.254", 1},
        {"10.1.2.3", "0.0.0.0", "0.0.0.0", 0},
        {"10.1.2.3", "0.0.0.0", "255.255.255.255", 0},
        {"10.1.2.3", "no mask", "10.1.2.3", 0},
        {"no address", "255.255.255.0", "10.1.2.3", 0},
        {"10.1.2.3", "255.255.255.0", "no address", 0},
        {"", "", "", 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(ifaddrs_compare_with_wan_ip(row.ip, row.mask, row.test), row.result)
            << row.ip << "/" << row.mask << " " << row.test;
    }
}

TEST(CompareWithWanIp, NullArgumentsAndTraces)
{
    const char *const name = "ifaddrs_compare_with_wan_ip";
    const std::string complaint = log_line(PROD_DBG_ERROR, name, "arg is err.");
    const auto all_nulls = [] {
        EXPECT_EQ(ifaddrs_compare_with_wan_ip(nullptr, "255.0.0.0", "10.0.0.1"), 2);
        EXPECT_EQ(ifaddrs_compare_with_wan_ip("10.0.0.2", nullptr, "10.0.0.1"), 2);
        EXPECT_EQ(ifaddrs_compare_with_wan_ip("10.0.0.2", "255.0.0.0", nullptr), 2);
    };
    EXPECT_THAT(printed(all_nulls), Prints(complaint + complaint + complaint));
    EXPECT_THAT(
        printed_at(PROD_DBG_TRACE,
                   [] { ifaddrs_compare_with_wan_ip("10.0.0.2", "255.0.0.0", "10.0.0.1"); }),
        Prints(log_line(PROD_DBG_TRACE, name, std::string{"ENTER >>> "} + name) +
               log_line(PROD_DBG_TRACE, name, std::string{"LEAVE <<< "} + name)));
}

// ---- connection types ------------------------------------------------------------------------

TEST_F(WanStatus, ConnectionTypes)
{
    EXPECT_EQ(getWanConnType(1), HLX_WAN_CONNECT_DHCP);
    config()["wan1.connecttype"] = "2";
    config()["wan2.connecttype"] = "8pppoa";
    config()["wan3.connecttype"] = "";
    config()["wan4.connecttype"] = "x";
    config()["wan-1.connecttype"] = "4";
    EXPECT_EQ(getWanConnType(1), HLX_WAN_CONNECT_PPPOE);
    EXPECT_EQ(getWanConnType(2), HLX_WAN_CONNECT_PPPOA);
    EXPECT_EQ(getWanConnType(3), HLX_WAN_CONNECT_DHCP);
    EXPECT_EQ(getWanConnType(4), HLX_WAN_CONNECT_DHCP);
    EXPECT_EQ(getWanConnType(-1), HLX_WAN_CONNECT_L2TP);
    config()["wan1.connecttype"] = std::string(255, ' ') + "2";
    EXPECT_EQ(getWanConnType(1), HLX_WAN_CONNECT_DHCP) << "cut at 255 characters";
    config()["wan1.connecttype"] = std::string(254, ' ') + "2";
    EXPECT_EQ(getWanConnType(1), HLX_WAN_CONNECT_PPPOE);
    config()["wan1.connecttype"] = test::longest_value();
    EXPECT_EQ(getWanConnType(1), HLX_WAN_CONNECT_DHCP);
}

TEST_F(WanStatus, WirelessUplinkTypes)
{
    EXPECT_EQ(get_wisp_connect_type(), HLX_WAN_CONNECT_DHCP);
    const std::pair<std::string, int> rows[] = {{"dhcp", 0},
                                                {"static", 1},
                                                {"pppoe", 2},
                                                {"PPPOE", 0},
                                                {"pppoe ", 0},
                                                {"", 0},
                                                {"l2tp", 0},
                                                {test::longest_value(), 0},
                                                {"static" + test::longest_value().substr(6), 0}};
    for (const auto &[mode, type] : rows) {
        config()["wl.wisp.access_mode"] = mode;
        EXPECT_EQ(get_wisp_connect_type(), type) << mode;
    }
}

// ---- resolver file ---------------------------------------------------------------------------

constexpr const char *kResolver = "/etc/resolv.conf";

std::string server(int idx)
{
    char text[256] = "untouched";
    const int found = get_dns_server_by_idx(idx, text);
    return std::to_string(found) + " " + text;
}

TEST(Resolver, ServersByIndex)
{
    write_text(kResolver,
               "options timeout:1\nnameserver 9.9.9.9\n\n# none\nnameserver   1.1.1.1  "
               "trailing\nnameserver8.8.8.8");
    EXPECT_EQ(server(0), "1 9.9.9.9");
    EXPECT_EQ(server(1), "1 1.1.1.1");
    EXPECT_EQ(server(2), "1 8.8.8.8");
    EXPECT_EQ(server(3), "0 ");
    EXPECT_EQ(server(INT_MAX), "0 ");
    EXPECT_EQ(server(-1), "0 untouched");
    EXPECT_EQ(server(INT_MIN), "0 untouched");
    EXPECT_EQ(get_dns_server_by_idx(0, nullptr), 0);
}

TEST(Resolver, OneServer)
{
    write_text(kResolver, "nameserver 9.9.9.9\n");
    EXPECT_EQ(server(1), "0 ");
}

TEST(Resolver, OddFiles)
{
    test::remove_all(kResolver);
    EXPECT_EQ(server(0), "0 untouched");
    write_text(kResolver, "");
    EXPECT_EQ(server(0), "0 ");
    write_text(kResolver, "nameserver\nnameserver \nname server 9.9.9.9\nNAMESERVER 9.9.9.9\n");
    EXPECT_EQ(server(0), "0 ");
    write_text(kResolver, "nameserver " + std::string(5000, '9') + "\nnameserver 1.1.1.1\n");
    EXPECT_EQ(server(0), "1 " + std::string(255, '9'));
    EXPECT_EQ(server(1), "1 1.1.1.1");
    write_text(kResolver, std::string("nameserver 9.9.9.9\n\0nameserver 1.1.1.1\n", 40));
    EXPECT_EQ(server(0), "1 9.9.9.9");
    EXPECT_EQ(server(1), "0 ") << "a text ends at its NUL";
    write_text(kResolver, "\xff\x01\x80nameserver 9.9.9.9\nnameserver \xff\xfe\n");
    EXPECT_EQ(server(0), "1 \xff\xfe");
}

TEST(Resolver, Reset)
{
    write_text(kResolver, "nameserver 9.9.9.9\nand a long rest of the old text\n");
    reset_dns_cfg();
    EXPECT_EQ(read_text(kResolver), "options timeout:1\noptions attempts:1\n");
    test::remove_all(kResolver);
    reset_dns_cfg();
    EXPECT_EQ(read_text(kResolver), "options timeout:1\noptions attempts:1\n");
}

TEST(Resolver, Add)
{
    write_text(kResolver, "options timeout:1\n");
    add_dns_server("18.8.8.81");
    EXPECT_EQ(read_text(kResolver), "options timeout:1\nnameserver 18.8.8.81\n");
    add_dns_server("8.8.8.8");
    EXPECT_EQ(read_text(kResolver), "options timeout:1\nnameserver 18.8.8.81\n")
        << "its text is there already";
    add_dns_server("9.9.9.9");
    add_dns_server("9.9.9.9");
    EXPECT_EQ(read_text(kResolver),
              "options timeout:1\nnameserver 18.8.8.81\nnameserver 9.9.9.9\n");
    const std::string before = read_text(kResolver);
    add_dns_server(nullptr);
    add_dns_server("");
    EXPECT_EQ(read_text(kResolver), before);
    const std::string longest = test::longest_value('7');
    add_dns_server(longest.c_str());
    EXPECT_EQ(read_text(kResolver), before + "nameserver " + longest + "\n");
    add_dns_server("%s%n$(id)");
    EXPECT_EQ(read_text(kResolver), before + "nameserver " + longest + "\nnameserver %s%n$(id)\n");
}

TEST(Resolver, AddWithoutAFile)
{
    test::remove_all(kResolver);
    add_dns_server("9.9.9.9");
    EXPECT_FALSE(test::exists(kResolver));
    write_text(kResolver, "");
    add_dns_server("9.9.9.9");
    EXPECT_EQ(read_text(kResolver), "nameserver 9.9.9.9\n");
}

std::string exchanged(const std::string &text)
{
    write_text(kResolver, text);
    exchange_dns_server();
    return read_text(kResolver);
}

TEST(Resolver, ExchangeRotates)
{
    EXPECT_EQ(exchanged("options timeout:1\nnameserver 1.1.1.1\nnameserver 2.2.2.2\nsearch lan\n"),
              "options timeout:1\nnameserver 2.2.2.2\nsearch lan\nnameserver 1.1.1.1\n");
    EXPECT_EQ(exchanged("nameserver 1.1.1.1\nnameserver 2.2.2.2\nnameserver 3.3.3.3\n"),
              "nameserver 2.2.2.2\nnameserver 3.3.3.3\nnameserver 1.1.1.1\n");
    EXPECT_EQ(exchanged("nameserver 1.1.1.1\n"), "nameserver 1.1.1.1\n");
    EXPECT_EQ(exchanged("options timeout:1\n"), "options timeout:1\n");
    EXPECT_EQ(exchanged("nameserver 1.1.1.1\nsearch lan"), "search lan\nnameserver 1.1.1.1\n");
}

TEST(Resolver, ExchangeLeavesTheOldEnd)
{
    EXPECT_EQ(exchanged("nameserver 1.1.1.1\n\n\nnameserver 2.2.2.2\n"),
              "nameserver 2.2.2.2\nnameserver 1.1.1.1\n2\n");
    EXPECT_EQ(exchanged("\n\n\n"), "\n\n\n") << "nothing to write";
    EXPECT_EQ(exchanged(""), "");
}

TEST(Resolver, ExchangeIsCutAt511Bytes)
{
    const std::string line = "search " + std::string(492, 'x') + "\n";  // 500 bytes
    const std::string text = "nameserver 1.1.1.1\n" + line;
    EXPECT_EQ(exchanged(text), line + "nameserver " + text.substr(511));
    const std::string longer = "search " + std::string(600, 'x') + "\n";
    EXPECT_EQ(exchanged("nameserver 1.1.1.1\n" + longer),
              longer.substr(0, 511) + ("nameserver 1.1.1.1\n" + longer).substr(511))
        << "the server that was held back is lost";
}

TEST(Resolver, ExchangeOfOddFiles)
{
    const std::string binary("\xff\0nameserver 1.1.1.1\n", 21);
    EXPECT_EQ(exchanged(binary), "\xff\n" + binary.substr(2));
    const std::string endless(100000, 'x');
    EXPECT_EQ(exchanged(endless), endless);
    test::remove_all(kResolver);
    exchange_dns_server();
    EXPECT_FALSE(test::exists(kResolver));
}

TEST(Resolver, NothingLeaks)
{
    write_text(kResolver, "nameserver 1.1.1.1\nnameserver 2.2.2.2\n");
    const int before = test::open_descriptors();
    server(0);
    server(5);
    add_dns_server("3.3.3.3");
    exchange_dns_server();
    reset_dns_cfg();
    EXPECT_EQ(test::open_descriptors(), before);
}

// ---- page of the wireless uplink -------------------------------------------------------------

TEST(WispPage, Status)
{
    wisp_set_webpage_status(17);
    EXPECT_EQ(read_text("/var/wisp_webpage_status"), "status=17\n");
    wisp_set_webpage_status(-1);
    EXPECT_EQ(read_text("/var/wisp_webpage_status"), "status=-1\n");
    wisp_set_webpage_status(3);
    EXPECT_EQ(read_text("/var/wisp_webpage_status"), "status=3\n");
}

}  // namespace
