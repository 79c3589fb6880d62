// SPDX-License-Identifier: MIT
#include "prod_common_wifi.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "platform/process.h"
#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/store.hpp"

using test::config;
using test::console_line;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::stored;
using test::write_text;

namespace
{

/** The Wi-Fi driver, as each test sets it up. */
struct Driver {
    std::map<std::string, std::string> names;  // by configuration name
    std::set<std::string> up;
    std::vector<std::string> asked_up;
    std::vector<station_info_t> stations;
    std::string stations_of;
    int capacity = 0;
    int reported = -1;  // instead of the number of stations
} driver;

/** What the WLAN server got, and whether sending works. */
struct Server {
    std::vector<std::string> messages;
    std::string path;
    int result = 0;
    int error = 0;
} server;

}  // namespace

extern "C" {

int pav_wifi_get_osifname(const char *cfg_ifname, char *os_ifname)
{
    const auto entry = driver.names.find(cfg_ifname);
    if (entry == driver.names.end()) {
        return -1;
    }
    strcpy(os_ifname, entry->second.c_str());
    return 0;
}

int pav_wifi_check_downup(const char *os_ifname)
{
    driver.asked_up.emplace_back(os_ifname);
    return driver.up.count(os_ifname) != 0 ? 4 : 0;
}

int pav_wifi_get_clientlist(const char *os_ifname, station_info_t *list, int capacity)
{
    driver.stations_of = os_ifname;
    driver.capacity = capacity;
    int count = 0;
    for (const station_info_t &station : driver.stations) {
        if (count < capacity) {
            list[count++] = station;
        }
    }
    return driver.reported >= 0 ? driver.reported : count;
}

int hlx_proc_send_msg(HLX_MSG *frame, const char *socket_path)
{
    server.messages.emplace_back(frame->Body, static_cast<std::size_t>(frame->Length));
    server.path = socket_path;
    errno = server.error;
    return server.result;
}

// Lets a failed allocation be looked at under the sanitizers too.
const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}
const char *__tsan_default_options()
{
    return "allocator_may_return_null=1";
}
}

namespace
{

class Wifi : public testing::Test
{
  protected:
    Wifi()
    {
        driver = {};
        server = {};
    }

  private:
    test::FreshConfig fresh_;
};

// ---- prefixes --------------------------------------------------------------------------------

std::string prefix_of(PREFLAG flag, int index)
{
    char prefix[21] = "untouched";
    EXPECT_EQ(getMibPrefix(prefix, flag, index), 1);
    return prefix;
}

TEST_F(Wifi, PrefixesByKind)
{
    EXPECT_EQ(prefix_of(WAN, 0), "wan1");
    EXPECT_EQ(prefix_of(WAN, 3), "wan4");
    EXPECT_EQ(prefix_of(LAN, 3), "lan");
    EXPECT_EQ(prefix_of(WL2G_PUBLIC, 3), "wlan0");
    EXPECT_EQ(prefix_of(WL2G_SSID, 2), "wlan0.2");
    EXPECT_EQ(prefix_of(WL5G_PUBLIC, 3), "wlan1");
    EXPECT_EQ(prefix_of(WL5G_SSID, 0), "wlan1.0");
    EXPECT_EQ(prefix_of(WL2G_EXTRA, 3), "wlan0.x");
    EXPECT_EQ(prefix_of(WL5G_EXTRA, 3), "wlan1.x");
    EXPECT_EQ(prefix_of(IPMAC_BIND, 3), "security.ipbind.list");
    for (const int none : {9, 10, 11, 12, 15}) {
        EXPECT_EQ(prefix_of(static_cast<PREFLAG>(none), 3), "untouched") << none;
    }
    EXPECT_EQ(prefix_of(WL2G_SSID, INT_MIN), "wlan0.-2147483648");
    EXPECT_EQ(prefix_of(WAN, INT_MAX), "wan2147483648");
}

TEST_F(Wifi, APrefixNeedsABuffer)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(getMibPrefix(nullptr, WAN, 0), -1); }),
                Prints(console_line(31, "getMibPrefix", "namePre is null")));
}

TEST_F(Wifi, Mibnames)
{
    char name[64] = "before";
    EXPECT_EQ(wifi_get_mibname("wlan0.1", "bss_ssid", name), name);
    EXPECT_STREQ(name, "wlan0.1_bss_ssid");
    strcpy(name, "before");
    const std::string error = log_line(PROD_DBG_ERROR, "wifi_get_mibname", "wifi mib error!");
    EXPECT_THAT(printed([&] { EXPECT_EQ(wifi_get_mibname(nullptr, "a", name), nullptr); }),
                Prints(error));
    EXPECT_THAT(printed([&] { EXPECT_EQ(wifi_get_mibname("a", nullptr, name), nullptr); }),
                Prints(error));
    EXPECT_THAT(printed([&] { EXPECT_EQ(wifi_get_mibname("a", "b", nullptr), nullptr); }),
                Prints(error));
    EXPECT_STREQ(name, "before");
}

TEST_F(Wifi, RadioPrefixes)
{
    EXPECT_EQ(printed([] {
                  EXPECT_STREQ(wifi_get_radio_prefix(2), "wlan0");
                  EXPECT_STREQ(wifi_get_radio_prefix(5), "wlan1");
              }),
              "");
    for (const int rate : {6, 0, -2, INT_MAX}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(wifi_get_radio_prefix(rate), nullptr); }),
                    Prints(log_line(PROD_DBG_ERROR, "wifi_get_radio_prefix",
                                    "Unexpected rate " + std::to_string(rate))));
    }
}

TEST_F(Wifi, TheRadioThatCarriesABand)
{
    const auto radio_of = [](int rate) {
        char radio[6] = "xxxxx";
        wifi_get_mib_radio(rate, radio);
        return std::string{radio};
    };
    EXPECT_EQ(radio_of(2), "wlan1") << "not configured";
    EXPECT_EQ(radio_of(5), "wlan0") << "not configured";
    config() = {{"wlan0_band", "2"}, {"wlan1_band", "5"}};
    EXPECT_EQ(radio_of(2), "wlan0");
    EXPECT_EQ(radio_of(5), "wlan1");
    config() = {{"wlan0_band", "5"}, {"wlan1_band", "2"}};
    EXPECT_EQ(radio_of(2), "wlan1");
    EXPECT_EQ(radio_of(5), "wlan0");
    config() = {{"wlan0_band", "2 "}, {"wlan1_band", "55"}};
    EXPECT_EQ(radio_of(2), "wlan1") << "compared as text";
    EXPECT_EQ(radio_of(5), "wlan0");
    EXPECT_EQ(printed([&] { EXPECT_EQ(radio_of(6), "xxxxx"); }), "");
    wifi_get_mib_radio(2, nullptr);
}

TEST_F(Wifi, InterfaceNamesOfBSSs)
{
    driver.names = {{"wlan0.3", "wl0.3"}, {"wlan1.0", "wl1"}, {"(null).1", "odd"}};
    char name[16] = "before";
    EXPECT_EQ(wifi_get_bss_ifname(2, 3, name), name);
    EXPECT_STREQ(name, "wl0.3");
    EXPECT_EQ(wifi_get_bss_ifname(5, 0, name), name);
    EXPECT_STREQ(name, "wl1");
    EXPECT_EQ(wifi_get_bss_ifname(5, 1, name), name);
    EXPECT_STREQ(name, "") << "the driver knows none";
    EXPECT_THAT(printed([&] { wifi_get_bss_ifname(7, 1, name); }),
                Prints(log_line(PROD_DBG_ERROR, "wifi_get_radio_prefix", "Unexpected rate 7")));
    EXPECT_STREQ(name, "odd");
    EXPECT_EQ(wifi_get_bss_ifname(2, 3, nullptr), nullptr);
}

TEST_F(Wifi, ADriversLongNameIsCut)
{
    driver.names = {{"wlan0.0", std::string(200, 'n')}};
    char name[16];
    EXPECT_STREQ(wifi_get_bss_ifname(2, 0, name), "nnnnnnnnnnnnnnn");
}

// ---- typed access ----------------------------------------------------------------------------

TEST_F(Wifi, RadioSettings)
{
    char value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(wifi_get_radio_val(2, "channel", value), 0);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(wifi_set_radio_val(2, "channel", "11"), 1);
    EXPECT_EQ(wifi_set_radio_val(2, "channel", "11"), 0);
    EXPECT_EQ(stored("wlan0_channel"), "11");
    EXPECT_EQ(wifi_get_radio_val(2, "channel", value), 1);
    EXPECT_STREQ(value, "11");
    EXPECT_EQ(wifi_get_radio_int_val(2, "channel"), 11);
    EXPECT_EQ(wifi_get_radio_int_val(5, "channel"), 0);
    EXPECT_EQ(wifi_set_radio_int_val(5, "channel", -36), 1);
    EXPECT_EQ(wifi_set_radio_int_val(5, "channel", -36), 0);
    EXPECT_EQ(stored("wlan1_channel"), "-36");
    EXPECT_EQ(wifi_get_radio_int_val(5, "channel"), -36);
}

TEST_F(Wifi, BssSettings)
{
    char value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(wifi_get_bss_val(5, 2, "bss_ssid", value), 0);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(wifi_set_bss_val(5, 2, "bss_ssid", "home"), 1);
    EXPECT_EQ(wifi_set_bss_val(5, 2, "bss_ssid", "home"), 0);
    EXPECT_EQ(stored("wlan1.2_bss_ssid"), "home");
    EXPECT_EQ(wifi_get_bss_val(5, 2, "bss_ssid", value), 1);
    EXPECT_STREQ(value, "home");
    EXPECT_EQ(wifi_get_bss_int_val(5, 2, "bss_ssid"), 0);
    EXPECT_EQ(wifi_get_bss_double_val(5, 2, "bss_ssid"), 0.0);

    EXPECT_EQ(wifi_set_bss_int_val(2, 0, "bss_enable", 1), 1);
    EXPECT_EQ(wifi_set_bss_int_val(2, 0, "bss_enable", 1), 0);
    EXPECT_EQ(stored("wlan0.0_bss_enable"), "1");
    EXPECT_EQ(wifi_get_bss_int_val(2, 0, "bss_enable"), 1);
    EXPECT_EQ(wifi_get_bss_int_val(2, 1, "bss_enable"), 0);

    EXPECT_EQ(wifi_set_bss_double_val(2, 0, "power", 1.5), 1);
    EXPECT_EQ(wifi_set_bss_double_val(2, 0, "power", 1.5), 0);
    EXPECT_EQ(stored("wlan0.0_power"), "1.500000");
    EXPECT_EQ(wifi_get_bss_double_val(2, 0, "power"), 1.5);
    EXPECT_EQ(wifi_set_bss_double_val(2, 0, "power", -1e15), 1);
    EXPECT_EQ(stored("wlan0.0_power"), "-1000000000000000.00") << "20 characters at most";
}

TEST_F(Wifi, AnUnknownRateMakesAKeyOfItsOwn)
{
    config() = {{"(null)_a", "1"}, {"(null).4_a", "2.5"}};
    const std::string error =
        log_line(PROD_DBG_ERROR, "wifi_get_radio_prefix", "Unexpected rate 6");
    EXPECT_THAT(printed([] { EXPECT_EQ(wifi_get_radio_int_val(6, "a"), 1); }), Prints(error));
    EXPECT_THAT(printed([] { EXPECT_EQ(wifi_get_bss_double_val(6, 4, "a"), 2.5); }), Prints(error));
    EXPECT_THAT(printed([] { EXPECT_EQ(wifi_set_radio_val(6, "b", "x"), 1); }), Prints(error));
    EXPECT_EQ(stored("(null)_b"), "x");
}

TEST_F(Wifi, HowMuchOfALongNumberCounts)
{
    config() = {{"wlan0_a", std::string(18, ' ') + "123"},
                {"wlan0.1_a", std::string(18, ' ') + "123"}};
    EXPECT_EQ(wifi_get_radio_int_val(2, "a"), 12);
    EXPECT_EQ(wifi_get_bss_int_val(2, 1, "a"), 12);
    EXPECT_EQ(wifi_get_bss_double_val(2, 1, "a"), 12.0);
}

TEST_F(Wifi, ALongNameIsCut)
{
    const std::string name(600, 'n');
    EXPECT_EQ(wifi_set_radio_val(2, name.c_str(), "1"), 1);
    EXPECT_EQ(wifi_set_bss_val(2, 7, name.c_str(), "2"), 1);
    EXPECT_EQ(stored("wlan0_" + std::string(505, 'n')), "1");
    EXPECT_EQ(stored("wlan0.7_" + std::string(503, 'n')), "2");
}

TEST_F(Wifi, NullsReadAndWriteNothing)
{
    char value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(wifi_get_radio_val(2, nullptr, value), 0);
                  EXPECT_EQ(wifi_get_radio_val(2, "a", nullptr), 0);
                  EXPECT_EQ(wifi_get_radio_int_val(2, nullptr), 0);
                  EXPECT_EQ(wifi_set_radio_val(2, nullptr, "1"), 0);
                  EXPECT_EQ(wifi_set_radio_val(2, "a", nullptr), 0);
                  EXPECT_EQ(wifi_set_radio_int_val(2, nullptr, 1), 0);
                  EXPECT_EQ(wifi_get_bss_val(2, 0, nullptr, value), 0);
                  EXPECT_EQ(wifi_get_bss_val(2, 0, "a", nullptr), 0);
                  EXPECT_EQ(wifi_get_bss_int_val(2, 0, nullptr), 0);
                  EXPECT_EQ(wifi_get_bss_double_val(2, 0, nullptr), 0.0);
                  EXPECT_EQ(wifi_set_bss_val(2, 0, nullptr, "1"), 0);
                  EXPECT_EQ(wifi_set_bss_val(2, 0, "a", nullptr), 0);
                  EXPECT_EQ(wifi_set_bss_int_val(2, 0, nullptr, 1), 0);
                  EXPECT_EQ(wifi_set_bss_double_val(2, 0, nullptr, 1), 0);
              }),
              "");
    EXPECT_STREQ(value, "before");
    EXPECT_TRUE(config().empty());
    EXPECT_EQ(test::config_calls().writes, 0);
}

// ---- work mode -------------------------------------------------------------------------------

TEST_F(Wifi, TheWorkMode)
{
    const struct {
        const char *of_24g;
        const char *of_5g;
        const char *mode;
    } cases[] = {
        {"ap", "ap", "ap"},
        {"", "", "ap"},
        {"wisp", "ap", "wisp"},
        {"ap", "wisp", "wisp"},
        {"apclient", "ap", "apclient"},
        {"ap", "apclient", "apclient"},
        {"wisp", "apclient", "apclient"},
        {"apclient", "wisp", "apclient"},
        {"WISP", "apclient2", "ap"},
    };
    EXPECT_STREQ(get_wifi_workmode(), "ap") << "nothing configured";
    for (const auto &row : cases) {
        config() = {{"wlan0_workmode", row.of_24g}, {"wlan1_workmode", row.of_5g}};
        EXPECT_STREQ(get_wifi_workmode(), row.mode) << row.of_24g << " and " << row.of_5g;
    }
}

// ---- wifi_get_bss_enable ---------------------------------------------------------------------

constexpr const char *kMibError = "\\[wifi_get_bss_enable [0-9]+\\]:    wifi enable mib error!\n";

TEST_F(Wifi, WhetherABssIsEnabled)
{
    config() = {{"wlan0.0_bss_enable", "1"}, {"wlan1.0_bss_enable", "0"}};
    EXPECT_EQ(printed([] {
                  EXPECT_EQ(wifi_get_bss_enable("wlan0"), 1);
                  EXPECT_EQ(wifi_get_bss_enable("wlan1"), 0);
                  EXPECT_EQ(wifi_get_bss_enable("wlan"), 1);
                  config() = {{"wlan0.0_bss_enable", "0"}, {"wlan1.0_bss_enable", "-7"}};
                  EXPECT_EQ(wifi_get_bss_enable("wlan1"), -7) << "the number as it is";
                  EXPECT_EQ(wifi_get_bss_enable("wlan"), 1);
                  config() = {{"wlan0.0_bss_enable", "0"}, {"wlan1.0_bss_enable", "no"}};
                  EXPECT_EQ(wifi_get_bss_enable("wlan1"), 0);
                  EXPECT_EQ(wifi_get_bss_enable("wlan"), 0);
              }),
              "");
}

TEST_F(Wifi, ABssWithoutAnAnswer)
{
    config() = {{"wlan0.0_bss_enable", "1"}, {"wlan1.0_bss_enable", ""}};
    for (const char *name : {"wlan1", "wlan", "wlan2", "", "wlan0.0", "WLAN0"}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(wifi_get_bss_enable(name), -1); }), Prints(kMibError))
            << name;
    }
    config() = {{"wlan1.0_bss_enable", "1"}};
    for (const char *name : {"wlan0", "wlan"}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(wifi_get_bss_enable(name), -1); }), Prints(kMibError))
            << name;
    }
    EXPECT_EQ(printed([] { EXPECT_EQ(wifi_get_bss_enable(nullptr), -1); }), "");
}

TEST_F(Wifi, TheTraceOfTheQuestion)
{
    config() = {{"wlan0.0_bss_enable", "1"}};
    const std::string enter =
        log_line(PROD_DBG_TRACE, "wifi_get_bss_enable", "ENTER >>> wifi_get_bss_enable", "netctrl");
    const std::string leave =
        log_line(PROD_DBG_TRACE, "wifi_get_bss_enable", "LEAVE <<< wifi_get_bss_enable", "netctrl");
    const auto ask = [](const char *name) {
        return printed_at(
            PROD_DBG_TRACE, [&] { wifi_get_bss_enable(name); }, "netctrl");
    };
    EXPECT_THAT(ask("wlan0"), Prints(enter + leave));
    EXPECT_THAT(ask("wlan1"), Prints(enter + kMibError));
    EXPECT_THAT(ask(nullptr), Prints(enter));
    EXPECT_EQ(printed_at(
                  PROD_DBG_INFO, [] { wifi_get_bss_enable("wlan0"); }, "netctrl"),
              "");
}

// ---- whether anything is up ------------------------------------------------------------------

TEST_F(Wifi, ABandIsUpWhenOneOfItsBSSsIs)
{
    config() = {{"wlan0_enable", "1"}, {"wlan0_web_maxbss", "3"}};
    driver.names = {{"wlan0.0", "a0"}, {"wlan0.1", "a1"}, {"wlan0.2", "a2"}, {"wlan0.3", "a3"}};
    EXPECT_EQ(get_wifi_band_status(2), 0);
    EXPECT_EQ(driver.asked_up, (std::vector<std::string>{"a0", "a1", "a2"}));

    driver.up = {"a3"};
    EXPECT_EQ(get_wifi_band_status(2), 0) << "not one of the first three";
    driver.up = {"a1"};
    driver.asked_up.clear();
    EXPECT_EQ(get_wifi_band_status(2), 1);
    EXPECT_EQ(driver.asked_up, (std::vector<std::string>{"a0", "a1"})) << "the first is enough";
    EXPECT_EQ(get_wifi_status(), 1);

    config()["wlan0_enable"] = "0";
    driver.asked_up.clear();
    EXPECT_EQ(get_wifi_band_status(2), 0) << "disabled";
    EXPECT_TRUE(driver.asked_up.empty());
    EXPECT_EQ(get_wifi_status(), 0);
}

TEST_F(Wifi, EveryOtherRateIsThe5GHzRadio)
{
    config() = {{"wlan1_enable", "1"}, {"wlan1_web_maxbss", "1"}};
    driver.names = {{"wlan1.0", "b0"}};
    driver.up = {"b0"};
    EXPECT_EQ(printed([] {
                  for (const int rate : {5, 6, 0, -1}) {
                      EXPECT_EQ(get_wifi_band_status(rate), 1) << rate;
                  }
                  EXPECT_EQ(get_wifi_band_status(2), 0);
                  EXPECT_EQ(get_wifi_status(), 1);
              }),
              "");
}

TEST_F(Wifi, TheNumberOfBSSsIsBounded)
{
    config() = {{"wlan0_enable", "1"}, {"wlan0_web_maxbss", "2000000000"}};
    EXPECT_EQ(get_wifi_band_status(2), 0);
    EXPECT_EQ(driver.asked_up.size(), 64U);
    config()["wlan0_web_maxbss"] = "-1";
    driver.asked_up.clear();
    EXPECT_EQ(get_wifi_band_status(2), 0);
    EXPECT_TRUE(driver.asked_up.empty());
}

// ---- check_same_ssid -------------------------------------------------------------------------

/** Slots 1 to 10 as their keys: the radio and the BSS. */
std::string bss(int slot)
{
    return (slot <= 5 ? "wlan0." + std::to_string(slot - 1) : "wlan1." + std::to_string(slot - 6));
}

/** What is listed when the given slots broadcast "home" and the others do not. */
std::string listed(const std::vector<int> &slots)
{
    config().clear();
    for (const int slot : slots) {
        config()[bss(slot) + "_bss_enable"] = "1";
        config()[bss(slot) + "_bss_ssid"] = "home";
    }
    char band[17] = {};
    band[16] = '!';
    check_same_ssid("home", band);
    EXPECT_EQ(band[16], '!');
    return band;
}

TEST_F(Wifi, SlotsOfASsid)
{
    EXPECT_EQ(listed({}), "");
    EXPECT_EQ(listed({1, 6}), "1,6");
    for (int slot = 1; slot <= 10; ++slot) {
        EXPECT_EQ(listed({slot}), std::to_string(slot));
    }
    EXPECT_EQ(listed({10, 5, 2}), "2,5,10");
    EXPECT_EQ(listed({6, 7, 8, 9, 10}), "6,7,8,9,10");
    EXPECT_EQ(listed({1, 2, 3, 4, 5, 6, 7, 8}), "1,2,3,4,5,6,7,8");
    EXPECT_EQ(listed({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}), "1,2,3,4,5,6,7,8") << "15 characters";
    EXPECT_EQ(listed({1, 2, 3, 4, 5, 6, 7, 10}), "1,2,3,4,5,6,7,1") << "cut at 15 characters";
}

TEST_F(Wifi, SlotsThatDoNotCount)
{
    config() = {
        {"wlan0.0_bss_enable", "0"},   {"wlan0.0_bss_ssid", "home"}, {"wlan0.1_bss_ssid", "home"},
        {"wlan0.2_bss_enable", "1"},   {"wlan0.2_bss_ssid", "Home"}, {"wlan0.3_bss_enable", "1"},
        {"wlan0.3_bss_ssid", "home "}, {"wlan0.4_bss_enable", "2"},  {"wlan0.4_bss_ssid", "home"},
        {"wlan0.5_bss_enable", "1"},   {"wlan0.5_bss_ssid", "home"}, {"wlan1.5_bss_enable", "1"},
        {"wlan1.5_bss_ssid", "home"}};
    char band[16] = "";
    check_same_ssid("home", band);
    EXPECT_STREQ(band, "5");
    check_same_ssid(nullptr, band);
    check_same_ssid("home", nullptr);
    EXPECT_STREQ(band, "5");
}

TEST_F(Wifi, AListThatIsFullAlready)
{
    config() = {{"wlan0.0_bss_enable", "1"}, {"wlan0.0_bss_ssid", "home"}};
    char band[] = "1,2,3,4,5,6,7,8,,,";
    check_same_ssid("home", band);
    EXPECT_STREQ(band, "1,2,3,4,5,6,7,8,,,") << "16 bytes without an end are left alone";
}

// ---- the smart node --------------------------------------------------------------------------

station_info_t station(const char *mac)
{
    station_info_t result = {};
    strcpy(result.mac, mac);
    return result;
}

TEST_F(Wifi, StationsOfTheSmartNode)
{
    driver.names = {{"wlan0.3", "wl0.3"}};
    EXPECT_EQ(prod_check_smart_node("00:11:22:AA:BB:CC"), 0);
    EXPECT_EQ(driver.stations_of, "wl0.3");
    EXPECT_EQ(driver.capacity, 128);

    driver.stations = {station("00:11:22:33:44:55"), station("00:11:22:aa:bb:cc")};
    EXPECT_EQ(prod_check_smart_node("00:11:22:AA:BB:CC"), 1);
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44:55"), 1);
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44:56"), 0);
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44"), 0);
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44:55:66"), 0);
    EXPECT_EQ(prod_check_smart_node(""), 0);
    EXPECT_EQ(prod_check_smart_node(nullptr), 0);
}

TEST_F(Wifi, ADriverThatLiesAboutItsStations)
{
    driver.stations.assign(127, station("00:00:00:00:00:00"));
    driver.stations.push_back(station("00:11:22:33:44:55"));
    driver.stations.push_back(station("00:11:22:33:44:56"));
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44:55"), 1) << "the 128th";
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44:56"), 0) << "no room for it";
    driver.reported = INT_MAX;
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44:57"), 0);
    driver.reported = 0;
    EXPECT_EQ(prod_check_smart_node("00:11:22:33:44:55"), 0);

    // A MAC without its NUL never matches and is not read on.
    driver.reported = -1;
    station_info_t open = {};
    memset(&open, 'A', sizeof(open));
    driver.stations = {open};
    EXPECT_EQ(prod_check_smart_node(std::string(17, 'A').c_str()), 0);
    EXPECT_EQ(prod_check_smart_node(std::string(18, 'A').c_str()), 0);
    EXPECT_EQ(prod_check_smart_node(std::string(5000, 'A').c_str()), 0);
}

// ---- countries -------------------------------------------------------------------------------

constexpr const char *kCountryFile = "/etc/country_code.cfg";

/** The forced channel of a country with a given file. */
std::string channel(const std::string &file, const char *country)
{
    write_text(kCountryFile, file);
    char forced[9] = "before!!";
    prod_get_dfs_channel_forced(country, nullptr, forced);
    EXPECT_EQ(forced[8], '\0');
    return forced;
}

TEST_F(Wifi, TheForcedChannelOfACountry)
{
    const std::string file = "US;0;36\nDE;1;100\nDE;2;104\nJP;3;1;rest\nCN;4;149";
    EXPECT_EQ(channel(file, "US"), "36\n") << "with the newline of the line";
    EXPECT_EQ(channel(file, "DE"), "100\n") << "the first of two";
    EXPECT_EQ(channel(file, "JP"), "1") << "closed by a semicolon";
    EXPECT_EQ(channel(file, "CN"), "149") << "no newline at the end";
    EXPECT_EQ(channel(file, "FR"), "before!!");
    EXPECT_EQ(channel(file, "us"), "before!!");
    EXPECT_EQ(channel(file, "D"), "before!!");
    EXPECT_EQ(channel(file, ""), "before!!");
    EXPECT_EQ(channel(file, nullptr), "before!!");
    EXPECT_EQ(channel("US;0;36\r\n", "US"), "36\r\n");
    prod_get_dfs_channel_forced("US", "0", nullptr);
}

TEST_F(Wifi, TheRevisionIsNotLookedAt)
{
    write_text(kCountryFile, "US;7;36;\n");
    char forced[8] = "";
    prod_get_dfs_channel_forced("US", "8", forced);
    EXPECT_STREQ(forced, "36");
}

TEST_F(Wifi, LinesThatAreNoCountry)
{
    using namespace std::string_literals;
    const std::string good = "US;0;36;\n";
    for (const std::string &bad :
         {"\n"s, "US\n"s, "US;\n"s, "US;0\n"s, "US;0;"s, "US;;44;\n"s, ";US;44;\n"s, ";;;\n"s,
          " US;0;44;\n"s, "USA;0;44;\n"s, "US\0;0;44;\n"s, "\0US;0;44;\n"s, "\xFF\xFE;\x80;\x81\n"s,
          std::string(200, ';') + "\n", std::string(100000, 'x') + "\n", std::string(300, '\0')}) {
        if (bad.back() == '\n') {
            EXPECT_EQ(channel(bad + good, "US"), "36") << testing::PrintToString(bad);
        }
        EXPECT_EQ(channel(bad, "US"), "before!!") << testing::PrintToString(bad);
    }
}

TEST_F(Wifi, LongFieldsAreCut)
{
    EXPECT_EQ(channel("COUNTRY;0;36;\n", "COUNTRY"), "36") << "7 characters fit";
    EXPECT_EQ(channel("COUNTRYCODE;0;36;\n", "COUNTRY"), "36");
    EXPECT_EQ(channel("COUNTRYCODE;0;36;\n", "COUNTRYCODE"), "before!!");
    EXPECT_EQ(channel("US;revision;36;\n", "US"), "36");
    EXPECT_EQ(channel("US;0;1234567;\n", "US"), "1234567");
    EXPECT_EQ(channel("US;0;123456789;\n", "US"), "1234567");
    EXPECT_EQ(channel("US;0;123456789\n", "US"), "1234567");
    // 63 characters make a line; what is beyond comes as the next.
    EXPECT_EQ(channel("DE;0;" + std::string(58, 'x') + "US;0;36;\n", "US"), "36");
    EXPECT_EQ(channel("DE;0;" + std::string(57, 'x') + "US;0;36;\n", "US"), "before!!");
}

TEST_F(Wifi, WithoutACountryFile)
{
    char forced[8] = "before";
    test::remove_all(kCountryFile);
    const int descriptors = test::open_descriptors();
    EXPECT_EQ(printed([&] { prod_get_dfs_channel_forced("US", "0", forced); }), "");
    EXPECT_STREQ(forced, "before");
    EXPECT_EQ(channel("", "US"), "before!!") << "empty";
    test::remove_all(kCountryFile);
    ASSERT_EQ(mkdir(kCountryFile, 0755), 0);
    prod_get_dfs_channel_forced("US", "0", forced);
    EXPECT_STREQ(forced, "before") << "a folder";
    test::remove_all(kCountryFile);
    EXPECT_EQ(test::open_descriptors(), descriptors);
}

// ---- messages --------------------------------------------------------------------------------

constexpr const char *kSend = "send_msg_to_wlan_server";

/** The line that is always printed. Its colour is nobody's business. */
std::string announcement(const std::string &text)
{
    return "\033\\[1;40;3[0-9]m\\[PROD\\] [0-9]{4} send_msg_to_wlan_ser: " +
           test::literally("*********** msg |" + text + "| to wlan_server ********\n\n\033[0m");
}

TEST_F(Wifi, AMessageIsFramed)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(send_msg_to_wlan_server("op=1,string_info=5"), 0); }),
                Prints(announcement("op=1,string_info=5")));
    EXPECT_EQ(server.messages, std::vector<std::string>{"op=1,string_info=5"});
    EXPECT_EQ(server.path, "/var/wlan_server_socket");
    EXPECT_THAT(printed([] { EXPECT_EQ(send_msg_to_wlan_server(""), 0); }),
                Prints(announcement("")));
    EXPECT_EQ(server.messages.back(), "");
}

TEST_F(Wifi, TheTraceOfAMessage)
{
    const std::string enter = log_line(PROD_DBG_TRACE, kSend, "ENTER >>> send_msg_to_wlan_server");
    const std::string leave = log_line(PROD_DBG_TRACE, kSend, "LEAVE <<< send_msg_to_wlan_server");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { send_msg_to_wlan_server("a"); }),
                Prints(enter + announcement("a") + leave));
    EXPECT_THAT(printed_at(PROD_DBG_INFO, [] { send_msg_to_wlan_server("a"); }),
                Prints(announcement("a")));
    server.result = -1;
    server.error = ENOENT;
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { send_msg_to_wlan_server("a"); }),
                Prints(enter + announcement("a") +
                       log_line(PROD_DBG_ERROR, kSend,
                                "Failed(2) to hlx_proc_send_msg WLAN_SERVER_SOCKET_PATH, No such "
                                "file or directory.")));
}

TEST_F(Wifi, AMessageThatCannotBeSent)
{
    server.result = -5;
    server.error = ECONNREFUSED;
    EXPECT_THAT(printed([] { EXPECT_EQ(send_msg_to_wlan_server("a"), -1); }),
                Prints(announcement("a") +
                       log_line(PROD_DBG_ERROR, kSend,
                                "Failed(111) to hlx_proc_send_msg WLAN_SERVER_SOCKET_PATH, "
                                "Connection refused.")));
    EXPECT_EQ(server.messages.size(), 1U) << "not tried again";
    server.result = 1;
    EXPECT_THAT(printed([] { EXPECT_EQ(send_msg_to_wlan_server("a"), 0); }),
                Prints(announcement("a")));
}

TEST_F(Wifi, NoMessage)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(send_msg_to_wlan_server(nullptr), -1); }),
                Prints(announcement("(null)") + log_line(PROD_DBG_ERROR, kSend, "data = nil")));
    EXPECT_TRUE(server.messages.empty());
}

TEST_F(Wifi, ALongMessageIsShownCutAndSentWhole)
{
    const std::string text(100000, 'm');
    EXPECT_THAT(printed([&] { EXPECT_EQ(send_msg_to_wlan_server(text.c_str()), 0); }),
                Prints(announcement(text.substr(0, 4096))));
    EXPECT_EQ(server.messages, std::vector<std::string>{text});
}

/** A text of `pages` x 16 MiB that takes memory only once. */
class HugeText
{
  public:
    explicit HugeText(std::size_t pages) : size_(pages * kPage + 1)
    {
        const int memory = memfd_create("text", MFD_CLOEXEC);
        const std::string page(kPage, 'x');
        EXPECT_EQ(write(memory, page.data(), kPage), static_cast<ssize_t>(kPage));
        text_ = static_cast<char *>(
            mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        for (std::size_t i = 0; i < pages; ++i) {
            mmap(text_ + i * kPage, kPage, PROT_READ, MAP_SHARED | MAP_FIXED | MAP_POPULATE, memory,
                 0);
        }
        close(memory);
    }
    ~HugeText() { munmap(text_, size_); }
    HugeText(const HugeText &) = delete;
    HugeText &operator=(const HugeText &) = delete;
    const char *c_str() const { return text_; }

  private:
    static constexpr std::size_t kPage = 16UL << 20;
    std::size_t size_;
    char *text_;
};

/** Allows this process hardly more memory than it has for as long as it lives. */
class NoMoreMemory
{
  public:
    NoMoreMemory()
    {
        getrlimit(RLIMIT_AS, &before_);
        rlimit limit = before_;
        const std::string pages = test::read_text("/proc/self/statm");
        limit.rlim_cur = strtoull(pages.c_str(), nullptr, 10) * 4096 + (8UL << 20);
        EXPECT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
    }
    ~NoMoreMemory() { setrlimit(RLIMIT_AS, &before_); }
    NoMoreMemory(const NoMoreMemory &) = delete;
    NoMoreMemory &operator=(const NoMoreMemory &) = delete;

  private:
    rlimit before_;
};

const std::string kOutOfMemory =
    announcement(std::string(4096, 'x')) + log_line(PROD_DBG_ERROR, kSend, "out of memory");

TEST_F(Wifi, NoMemoryForTheFrame)
{
    SKIP_IF_EMULATED(test::kNoMemoryLimit);
    const HugeText text{2};
    EXPECT_THAT(printed([&] {
                    const NoMoreMemory limit;
                    EXPECT_EQ(send_msg_to_wlan_server(text.c_str()), -1);
                }),
                Prints(kOutOfMemory));
    EXPECT_TRUE(server.messages.empty());
}

#ifndef __SANITIZE_THREAD__  // which would keep four times the text in shadow memory
TEST_F(Wifi, ALengthThatDoesNotFitTheFrame)
{
    const HugeText text{128};  // 2 GiB
    EXPECT_THAT(printed([&] { EXPECT_EQ(send_msg_to_wlan_server(text.c_str()), -1); }),
                Prints(kOutOfMemory));
    EXPECT_TRUE(server.messages.empty());
}
#endif

// ---- hostile values --------------------------------------------------------------------------

TEST_F(Wifi, TheLongestValueInEveryKey)
{
    driver.names = {{"wlan0.3", std::string(200, 'n')}};
    for (const char c : {'1', 'x', ';', '%', '$', '\xFF'}) {
        const test::EveryKeyReads longest{test::longest_value(c)};
        config().clear();
        char value[CFM_VALUE_SIZE] = "";
        printed([&] {
            EXPECT_EQ(wifi_get_radio_val(2, "a", value), 1);
            EXPECT_EQ(value, test::longest_value(c));
            EXPECT_EQ(wifi_get_bss_val(2, 0, "a", value), 1);
            EXPECT_EQ(value, test::longest_value(c));
            EXPECT_EQ(wifi_set_radio_int_val(2, "b", 1), 1);
            EXPECT_EQ(wifi_set_bss_double_val(2, 0, "b", 1), 1);
            EXPECT_STREQ(get_wifi_workmode(), "ap");
            wifi_get_radio_int_val(2, "a");
            wifi_get_bss_int_val(2, 0, "a");
            EXPECT_EQ(wifi_get_bss_double_val(2, 0, "a"), c == '1' ? 11111111111111111111.0 : 0.0);
            char radio[6] = "";
            wifi_get_mib_radio(2, radio);
            EXPECT_STREQ(radio, "wlan1");
            wifi_get_bss_enable("wlan");
            EXPECT_EQ(get_wifi_status(), 0);
            char band[16] = "";
            check_same_ssid(test::longest_value(c).c_str(), band);
            EXPECT_STREQ(band, c == '1' ? "1,2,3,4,5,6,7,8" : "");
        });
    }
}

}  // namespace
