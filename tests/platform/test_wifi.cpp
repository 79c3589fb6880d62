// SPDX-License-Identifier: MIT
// This kernel has no radios. Stations come from the files that the board names; the way over
// nl80211 is walked with messages that the test makes in the kernel's place.
#include "platform/wifi.h"

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"

using test::write_text;

namespace
{

constexpr const char *kBoard = "/etc/board.json";
constexpr const char *kStations = "/var/wifi/wl0.json";

TEST(InterfaceOfABss, ByTheBoardFile)
{
    char name[16];
    EXPECT_EQ(pav_wifi_get_osifname("wlan0.0", name), 0);
    EXPECT_STREQ(name, "wl0");
    EXPECT_EQ(pav_wifi_get_osifname("wlan1.7", name), 0);
    EXPECT_STREQ(name, "wl1.7");
    for (const char *const bss : {"wlan0.8", "wlan0", "", "wl0"}) {
        strcpy(name, "left over");
        EXPECT_EQ(pav_wifi_get_osifname(bss, name), -1) << bss;
        EXPECT_STREQ(name, "");
    }
    EXPECT_EQ(pav_wifi_get_osifname(nullptr, name), -1);
    EXPECT_EQ(pav_wifi_get_osifname("wlan0.0", nullptr), -1);
}

TEST(InterfaceOfABss, NamesThatCannotBe)
{
    const test::FileHolds board{kBoard, R"({"wifi": {"a": {"ifname": "sixteen_letters_"},
        "b": {"ifname": 7}, "c": 7, "d": {"ifname": "fifteen_letters"}}})"};
    char name[17] = "";
    name[16] = 'w';
    for (const char *const bss : {"a", "b", "c"}) {
        EXPECT_EQ(pav_wifi_get_osifname(bss, name), -1) << bss;
        EXPECT_STREQ(name, "");
    }
    EXPECT_EQ(pav_wifi_get_osifname("d", name), 0);
    EXPECT_STREQ(name, "fifteen_letters");
    EXPECT_EQ(name[16], 'w');
}

TEST(InterfaceIsUp, ByTheKernel)
{
    test::run("ip link add wl0 type veth peer name air0");
    EXPECT_EQ(pav_wifi_check_downup("wl0"), 0);
    test::run("ip link set wl0 up");
    EXPECT_NE(pav_wifi_check_downup("wl0"), 0);
    test::run("ip link set wl0 down");
    EXPECT_EQ(pav_wifi_check_downup("wl0"), 0);
    EXPECT_EQ(pav_wifi_check_downup("none0"), 0);
    EXPECT_EQ(pav_wifi_check_downup(""), 0);
    EXPECT_EQ(pav_wifi_check_downup(nullptr), 0);
    EXPECT_EQ(pav_wifi_check_downup(std::string(500, 'x').c_str()), 0);
}

std::vector<station_info_t> stations_of(const char *ifname, int capacity = 128)
{
    std::vector<station_info_t> list(static_cast<std::size_t>(capacity) + 1);
    memset(list.data(), 0x77, list.size() * sizeof(list[0]));
    const int count = pav_wifi_get_clientlist(ifname, list.data(), capacity);
    EXPECT_LE(count, capacity);
    EXPECT_EQ(list.back().mac[0], 0x77);
    list.resize(static_cast<std::size_t>(count));
    return list;
}

TEST(StationsOfAFile, EveryField)
{
    write_text(kStations, R"({"stations": [
        {"mac": "02:00:00:00:00:01", "link_time": 125, "rssi": "-51", "noise": "-95",
         "quality": 80, "link_rate": "866.7", "tx_rate": "433.3", "rx_rate": 6.5,
         "tx_bytes": 5000000000, "rx_bytes": 7, "tx_failures": 3},
        {"mac": "02:00:00:00:00:02"}]})");
    const auto list = stations_of("wl0");
    ASSERT_EQ(list.size(), 2U);
    EXPECT_STREQ(list[0].mac, "02:00:00:00:00:01");
    EXPECT_STREQ(list[0].link_time, "125");
    EXPECT_STREQ(list[0].rssi, "-51");
    EXPECT_STREQ(list[0].noise, "-95");
    EXPECT_STREQ(list[0].quality, "80");
    EXPECT_STREQ(list[0].link_rate, "866.7");
    EXPECT_STREQ(list[0].tx_rate, "433.3");
    EXPECT_STREQ(list[0].rx_rate, "6.5");
    EXPECT_EQ(list[0].tx_bytes, 5000000000U);
    EXPECT_EQ(list[0].rx_bytes, 7U);
    EXPECT_EQ(list[0].tx_failures, 3U);
    EXPECT_STREQ(list[1].mac, "02:00:00:00:00:02");
    EXPECT_STREQ(list[1].rssi, "");
    EXPECT_EQ(list[1].tx_bytes, 0U);
}

TEST(StationsOfAFile, NoMoreThanThereIsRoomFor)
{
    std::string text = "{\"stations\": [{\"mac\": \"m\"}";
    for (int i = 0; i < 200; ++i) {
        text += ", {\"mac\": \"02:00:00:00:00:01\"}";
    }
    write_text(kStations, text + "]}");
    EXPECT_EQ(stations_of("wl0").size(), 128U);
    EXPECT_EQ(stations_of("wl0", 1).size(), 1U);
    EXPECT_EQ(stations_of("wl0", 0).size(), 0U);
    station_info_t one;
    EXPECT_EQ(pav_wifi_get_clientlist("wl0", &one, -1), 0);
    EXPECT_EQ(pav_wifi_get_clientlist("wl0", nullptr, 1), 0);
    EXPECT_EQ(pav_wifi_get_clientlist(nullptr, &one, 1), 0);
}

TEST(StationsOfAFile, Damaged)
{
    for (const std::string &text :
         {std::string{}, std::string{"{"}, std::string{"[]"}, std::string{"{\"stations\": 7}"},
          std::string{"{\"stations\": [7, {}, {\"mac\": 7}]}"}, std::string(5000, '\xff')}) {
        write_text(kStations, text);
        EXPECT_EQ(stations_of("wl0").size(), 0U) << text;
    }
    write_text(kStations, "{\"stations\": [{\"mac\": \"" + std::string(5000, 'm') +
                              "\", \"rssi\": -1e300, \"tx_bytes\": -1, \"rx_bytes\": 1e300}]}");
    const auto list = stations_of("wl0");
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(std::string{list[0].mac}, std::string(17, 'm'));
    EXPECT_LT(strlen(list[0].rssi), sizeof(list[0].rssi));
    EXPECT_EQ(list[0].tx_bytes, 0U);
    EXPECT_EQ(list[0].rx_bytes, 0U);
    test::remove_all(kStations);
    EXPECT_EQ(stations_of("wl0").size(), 0U);
}

// ------------------------------------------------------------------------------- over nl80211

bool kernel_has_radios = false;
std::vector<nl_msg *> kernel_messages;
nl_recvmsg_msg_cb_t station_taker;
void *station_list;

TEST(StationsOfTheKernel, AKernelWithoutRadiosHasNone)
{
    test::run("ip link add other0 type veth peer name air1");
    const int before = test::open_descriptors();
    EXPECT_EQ(stations_of("other0").size(), 0U);
    EXPECT_EQ(stations_of("none0").size(), 0U);
    EXPECT_EQ(test::open_descriptors(), before);
}

nl_msg *station_message(const unsigned char *mac, int mac_size)
{
    nl_msg *const message = nlmsg_alloc();
    genlmsg_put(message, 0, 0, 0, 0, 0, NL80211_CMD_NEW_STATION, 0);
    if (mac != nullptr) {
        nla_put(message, NL80211_ATTR_MAC, mac_size, mac);
    }
    return message;
}

TEST(StationsOfTheKernel, AttributesBecomeTexts)
{
    test::run("ip link show other0 >/dev/null 2>&1 || ip link add other0 type veth peer name air1");
    const unsigned char mac[] = {0x02, 0xab, 0, 0, 0, 0x1f};
    nl_msg *const full = station_message(mac, 6);
    nlattr *const info = nla_nest_start(full, NL80211_ATTR_STA_INFO);
    nla_put_u32(full, NL80211_STA_INFO_CONNECTED_TIME, 3600);
    nla_put_u8(full, NL80211_STA_INFO_SIGNAL, static_cast<u8>(-61));
    nlattr *rate = nla_nest_start(full, NL80211_STA_INFO_TX_BITRATE);
    nla_put_u32(full, NL80211_RATE_INFO_BITRATE32, 8667);
    nla_nest_end(full, rate);
    rate = nla_nest_start(full, NL80211_STA_INFO_RX_BITRATE);
    nla_put_u16(full, NL80211_RATE_INFO_BITRATE, 65);
    nla_nest_end(full, rate);
    nla_put_u64(full, NL80211_STA_INFO_TX_BYTES64, 5000000000);
    nla_put_u32(full, NL80211_STA_INFO_RX_BYTES, 77);
    nla_put_u32(full, NL80211_STA_INFO_TX_FAILED, 9);
    nla_nest_end(full, info);

    nl_msg *const narrow = station_message(mac, 6);  // attributes of too few bytes
    nlattr *const bad = nla_nest_start(narrow, NL80211_ATTR_STA_INFO);
    nla_put_u8(narrow, NL80211_STA_INFO_CONNECTED_TIME, 1);
    nla_put_u8(narrow, NL80211_STA_INFO_TX_BYTES64, 1);
    nla_put_u8(narrow, NL80211_STA_INFO_TX_BITRATE, 1);
    nla_nest_end(narrow, bad);

    kernel_has_radios = true;
    kernel_messages = {full, narrow, station_message(mac, 3), station_message(nullptr, 0)};
    const auto list = stations_of("other0");
    const auto first = stations_of("other0", 1);
    kernel_has_radios = false;
    for (nl_msg *const message : kernel_messages) {
        nlmsg_free(message);
    }

    ASSERT_EQ(list.size(), 2U);
    EXPECT_STREQ(list[0].mac, "02:AB:00:00:00:1F");
    EXPECT_STREQ(list[0].link_time, "3600");
    EXPECT_STREQ(list[0].rssi, "-61");
    EXPECT_STREQ(list[0].noise, "");
    EXPECT_STREQ(list[0].quality, "78");
    EXPECT_STREQ(list[0].tx_rate, "866.7");
    EXPECT_STREQ(list[0].link_rate, "866.7");
    EXPECT_STREQ(list[0].rx_rate, "6.5");
    EXPECT_EQ(list[0].tx_bytes, 5000000000U);
    EXPECT_EQ(list[0].rx_bytes, 77U);
    EXPECT_EQ(list[0].tx_failures, 9U);
    EXPECT_STREQ(list[1].link_time, "");
    EXPECT_EQ(list[1].tx_bytes, 0U);
    EXPECT_EQ(first.size(), 1U);
}

}  // namespace

// Standing in for libnl where it would talk to the kernel.

extern "C" {

int genl_connect(nl_sock *socket)
{
    return kernel_has_radios ? 0 : test::next(genl_connect, "genl_connect")(socket);
}

int genl_ctrl_resolve(nl_sock *socket, const char *name)
{
    return kernel_has_radios ? 28
                             : test::next(genl_ctrl_resolve, "genl_ctrl_resolve")(socket, name);
}

int nl_socket_modify_cb(nl_sock *socket, nl_cb_type type, nl_cb_kind kind,
                        nl_recvmsg_msg_cb_t taker, void *list)
{
    station_taker = taker;
    station_list = list;
    return test::next(nl_socket_modify_cb, "nl_socket_modify_cb")(socket, type, kind, taker, list);
}

int nl_send_auto(nl_sock *socket, nl_msg *message)
{
    return kernel_has_radios ? 1 : test::next(nl_send_auto, "nl_send_auto")(socket, message);
}

int nl_recvmsgs_default(nl_sock *socket)
{
    if (!kernel_has_radios) {
        return test::next(nl_recvmsgs_default, "nl_recvmsgs_default")(socket);
    }
    for (nl_msg *const message : kernel_messages) {
        station_taker(message, station_list);
    }
    return 0;
}
}
