// SPDX-License-Identifier: MIT
#include "prod_common_xmesh.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/factory.h"
#include "platform/wifi.h"
#include "prod_common_cfm.h"
#include "prod_common_ifaddrs.h"
#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/mesh_attributes.hpp"
#include "support/mesh_roles.hpp"
#include "support/network.hpp"

using test::config;
using test::config_calls;
using test::log_line;
using test::printed;
using test::Prints;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace
{

/** What the factory wrote into the device; each as any text, however long. */
std::map<std::string, std::string> factory;
std::vector<std::string> factory_asked;

/** The Wi-Fi driver's interface names by configuration name. */
std::map<std::string, std::string> interfaces;

}  // namespace

extern "C" {

int ApmibGetValue(const char *name, char *value)
{
    factory_asked.emplace_back(name);
    const auto setting = factory.find(name);
    // Nothing is written for a missing one: a port may do that too.
    return setting != factory.end() ? (strcpy(value, setting->second.c_str()), 1) : 0;
}

int pav_wifi_get_osifname(const char *cfg_ifname, char *os_ifname)
{
    const auto entry = interfaces.find(cfg_ifname);
    // A result that nobody looks at.
    return entry != interfaces.end() ? (strcpy(os_ifname, entry->second.c_str()), -1) : 0;
}
}

namespace
{

class Mesh : public testing::Test
{
  protected:
    Mesh()
    {
        factory.clear();
        factory_asked.clear();
        interfaces.clear();
    }

  private:
    test::FreshConfig fresh_;
};

// ---- tables ----------------------------------------------------------------------------------

std::vector<test::MeshSetting> rows(const mesh_cfg *table, std::size_t count)
{
    std::vector<test::MeshSetting> result;
    for (std::size_t i = 0; i < count; ++i) {
        result.emplace_back(table[i].mib_name, table[i].mib_value);
    }
    return result;
}

template <std::size_t Count>
std::vector<test::MeshSetting> rows(const mesh_cfg (&table)[Count])
{
    return rows(table, Count);
}

TEST_F(Mesh, TablesRowByRow)
{
    EXPECT_THAT(rows(controller_cfg_table), ElementsAreArray(test::controller_settings()));
    EXPECT_THAT(rows(agent_cfg_table), ElementsAreArray(test::agent_settings()));
    EXPECT_THAT(rows(temp_controller_cfg_table),
                ElementsAreArray(test::temp_controller_settings()));
    EXPECT_THAT(rows(xmesh_default_cfg_table), ElementsAreArray(test::default_settings()));
    EXPECT_EQ(std::size(controller_cfg_table), 19U);
    EXPECT_EQ(std::size(agent_cfg_table), 13U);
    EXPECT_EQ(std::size(temp_controller_cfg_table), 12U);
    EXPECT_EQ(std::size(xmesh_default_cfg_table), 49U);
}

// ---- roles -----------------------------------------------------------------------------------

struct Role {
    const char *name;
    int (*take)();
    std::vector<test::MeshSetting> settings;
};

std::vector<Role> roles()
{
    return {{"controller", set_mesh_to_controller_cfg, test::controller_settings()},
            {"agent", set_mesh_to_agent_cfg, test::agent_settings()},
            {"default", set_mesh_to_default_cfg, test::default_settings()},
            {"temp-controller", set_mesh_to_temp_controller_cfg, test::temp_controller_settings()}};
}

test::Config as_config(const std::vector<test::MeshSetting> &settings)
{
    return {settings.begin(), settings.end()};
}

/** The keys of a role's rows, in their order. */
std::vector<std::string> keys_of(const std::vector<test::MeshSetting> &settings)
{
    std::vector<std::string> keys;
    for (const auto &[key, value] : settings) {
        keys.push_back(key);
    }
    return keys;
}

TEST_F(Mesh, ARoleIsWrittenAndCommittedOnce)
{
    factory["QX_FINISH_TSTFLAG"] = "1";
    for (const Role &role : roles()) {
        test::reset_config();
        config()["other.key"] = "stays";
        EXPECT_EQ(printed([&] { EXPECT_EQ(role.take(), 1) << role.name; }), "");
        test::Config wanted = as_config(role.settings);
        wanted["other.key"] = "stays";
        EXPECT_EQ(config(), wanted) << role.name;
        EXPECT_EQ(test::committed_config(), wanted) << role.name;
        EXPECT_EQ(config_calls().writes, static_cast<int>(role.settings.size())) << role.name;
        EXPECT_EQ(config_calls().commits, 1) << role.name;

        EXPECT_EQ(role.take(), 0) << role.name;
        EXPECT_EQ(config_calls().writes, static_cast<int>(role.settings.size())) << role.name;
        EXPECT_EQ(config_calls().commits, 1) << role.name;
        EXPECT_EQ(prod_cfm_is_change(), 0) << role.name;
    }
}

TEST_F(Mesh, RowsAreWrittenInOrder)
{
    factory["QX_FINISH_TSTFLAG"] = "1";
    for (const Role &role : roles()) {
        test::reset_config();
        role.take();
        // Each write is preceded by the reads of its comparisons; the keys come as the rows do.
        std::vector<std::string> keys;
        for (const std::string &key : test::keys_read()) {
            if (key != "serial.number" && (keys.empty() || keys.back() != key)) {
                keys.push_back(key);
            }
        }
        EXPECT_THAT(keys, ElementsAreArray(keys_of(role.settings))) << role.name;
    }
}

TEST_F(Mesh, OneValueThatDiffersIsEnough)
{
    factory["QX_FINISH_TSTFLAG"] = "1";
    for (const Role &role : roles()) {
        for (const auto &[key, value] : role.settings) {
            test::reset_config();
            config() = as_config(role.settings);
            config()[key] += " ";
            EXPECT_EQ(role.take(), 1) << role.name << " " << key;
            EXPECT_EQ(config(), as_config(role.settings)) << role.name << " " << key;
            EXPECT_EQ(config_calls().writes, 1) << role.name << " " << key;
            EXPECT_EQ(config_calls().commits, 1) << role.name << " " << key;
        }
    }
}

TEST_F(Mesh, EarlierChangesOfTheProcessDoNotCount)
{
    factory["QX_FINISH_TSTFLAG"] = "1";
    for (const Role &role : roles()) {
        test::reset_config();
        config() = as_config(role.settings);
        ASSERT_EQ(prod_cfm_set_val("other.key", "changed"), 1);
        EXPECT_EQ(role.take(), 0) << role.name;
        EXPECT_EQ(config_calls().commits, 0) << role.name;
    }
}

TEST_F(Mesh, ACommitThatFails)
{
    factory["QX_FINISH_TSTFLAG"] = "1";
    for (const Role &role : roles()) {
        test::reset_config();
        test::config_faults().commits = true;
        EXPECT_EQ(role.take(), 0) << role.name;
        EXPECT_EQ(prod_cfm_is_change(), 1) << role.name;
        EXPECT_EQ(config_calls().commits, 1) << role.name;
        EXPECT_EQ(config(), as_config(role.settings)) << role.name << ": nothing is taken back";
    }
}

TEST_F(Mesh, FromRoleToRole)
{
    factory["QX_FINISH_TSTFLAG"] = "1";
    EXPECT_EQ(set_mesh_to_controller_cfg(), 1);
    EXPECT_EQ(config()["mesh.mode"], "1");
    EXPECT_EQ(set_mesh_to_agent_cfg(), 1);
    EXPECT_EQ(config()["mesh.mode"], "2");
    EXPECT_EQ(config()["sys.workmode"], "ap");
    EXPECT_EQ(config()["xmesh.node_steering"], "0") << "the agent's table does not name it";
    EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1);
    EXPECT_EQ(config()["mesh.mode"], "0");
    EXPECT_EQ(set_mesh_to_default_cfg(), 1);
    EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 0) << "what differs is in neither's table";
    EXPECT_EQ(config_calls().commits, 4);
}

TEST_F(Mesh, TheFactorysSerialNumber)
{
    config() = as_config(test::default_settings());
    factory["QX_ATE_SN"] = "SN-1234";
    EXPECT_EQ(set_mesh_to_default_cfg(), 1) << "the serial number alone";
    EXPECT_EQ(config()["serial.number"], "SN-1234");
    EXPECT_EQ(test::keys_read().front(), "serial.number") << "before the table";
    EXPECT_THAT(factory_asked, ElementsAre("QX_ATE_SN"));
    EXPECT_EQ(set_mesh_to_default_cfg(), 0);
    EXPECT_EQ(config_calls().writes, 1);

    factory.clear();
    EXPECT_EQ(set_mesh_to_default_cfg(), 1) << "a missing one empties it";
    EXPECT_EQ(config()["serial.number"], "");
    EXPECT_EQ(set_mesh_to_default_cfg(), 0);

    factory["QX_ATE_SN"] = std::string(FACTORY_VALUE_SIZE - 1, 's');
    EXPECT_EQ(set_mesh_to_default_cfg(), 1);
    EXPECT_EQ(config()["serial.number"], std::string(31, 's'));
    EXPECT_EQ(set_mesh_to_default_cfg(), 0);
}

TEST_F(Mesh, OnlyTheDefaultAsksForTheSerialNumber)
{
    set_mesh_to_controller_cfg();
    set_mesh_to_agent_cfg();
    EXPECT_THAT(factory_asked, IsEmpty());
    set_mesh_to_temp_controller_cfg();
    EXPECT_THAT(factory_asked, ElementsAre("QX_FINISH_TSTFLAG"));
    EXPECT_EQ(config().count("serial.number"), 0U);
}

TEST_F(Mesh, BeforeTheFactoryTestIsFinished)
{
    test::Config untested = as_config(test::temp_controller_settings());
    untested["wlan0_workmode"] = "ap";
    untested["wlan1_workmode"] = "ap";
    untested["wlan0_autochannel_type"] = "0";
    untested["wlan1_autochannel_type"] = "0";
    for (const char *const flag : {"", "0", "00", "-0", " 0", "x", "x1", "0x1", "off"}) {
        test::reset_config();
        factory["QX_FINISH_TSTFLAG"] = flag;
        EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1) << flag;
        EXPECT_EQ(config(), untested) << flag;
        EXPECT_EQ(test::committed_config(), untested) << flag;
        // The 12 rows and four settings more, of which one is as the table has it.
        EXPECT_EQ(config_calls().writes, 15) << flag;
        EXPECT_EQ(config_calls().commits, 1) << flag;

        EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1) << flag << ": there and back again";
        EXPECT_EQ(config(), untested) << flag;
        EXPECT_EQ(config_calls().writes, 17) << flag;
        EXPECT_EQ(config_calls().commits, 2) << flag;
    }
    test::reset_config();
    factory.clear();
    EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1);
    EXPECT_EQ(config(), untested) << "a missing flag";
}

TEST_F(Mesh, AfterTheFactoryTest)
{
    for (const std::string &flag :
         {std::string{"1"}, std::string{"-1"}, std::string{" 7x"}, "1" + std::string(2306, '0'),
          // Of 60 bytes the last is the NUL: the digit that counts is the last that is left.
          std::string(58, '0') + "1"}) {
        test::reset_config();
        factory["QX_FINISH_TSTFLAG"] = flag;
        EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1) << flag;
        EXPECT_EQ(config(), as_config(test::temp_controller_settings())) << flag;
        EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 0) << flag;
    }
    test::reset_config();
    factory["QX_FINISH_TSTFLAG"] = std::string(59, '0') + "1";
    EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1);
    EXPECT_EQ(config()["wlan1_workmode"], "ap") << "what is cut off does not count";
}

TEST_F(Mesh, HostileTextUnderEveryKeyIsReplaced)
{
    factory["QX_FINISH_TSTFLAG"] = "1";
    for (const Role &role : roles()) {
        test::reset_config();
        const test::EveryKeyReads hostile{test::longest_value()};
        EXPECT_EQ(role.take(), 1) << role.name;
        for (const auto &[key, value] : role.settings) {
            EXPECT_EQ(config()[key], value) << role.name;
        }
    }
}

// ---- MAC texts -------------------------------------------------------------------------------

TEST_F(Mesh, TheMacOfABss)
{
    test::run("ip link add wl1.5 type veth peer name air");
    test::run("ip link set wl1.5 address 02:ab:cd:0e:f1:23");
    interfaces["wlan1.5"] = "wl1.5";
    char mac[13] = "";
    EXPECT_EQ(printed([&] { EXPECT_EQ(xmesh_wifi_get_bss_mac("wlan1.5", mac), mac); }), "");
    EXPECT_STREQ(mac, "02ABCD0EF123");
    test::run("ip link del wl1.5");
}

TEST_F(Mesh, TheMacOfABssThatCannotBeHad)
{
    char mac[13] = "";
    interfaces["wlan1.4"] = "wl1.4";
    for (const char *const bss : {"wlan1.4", "wlan1.5", ""}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(xmesh_wifi_get_bss_mac(bss, mac), nullptr); }),
                    testing::HasSubstr("get_mac_by_ifname"))
            << bss;
        EXPECT_EQ(std::string(mac, sizeof(mac)), std::string(sizeof(mac), '\0')) << bss;
    }
    strcpy(mac, "before");
    printed([&] { EXPECT_EQ(xmesh_wifi_get_bss_mac("wlan1.5", mac), mac); });
    EXPECT_STREQ(mac, "before") << "what the caller left there is taken for an answer";
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(xmesh_wifi_get_bss_mac(nullptr, mac), nullptr);
                  EXPECT_EQ(xmesh_wifi_get_bss_mac("wlan1.5", nullptr), nullptr);
              }),
              "");
    EXPECT_STREQ(mac, "before");
}

TEST_F(Mesh, ADriversLongInterfaceName)
{
    interfaces["wlan1.5"] = std::string(200, 'n');
    char mac[13] = "";
    printed([&] { EXPECT_EQ(xmesh_wifi_get_bss_mac("wlan1.5", mac), nullptr); });
}

/** A result and the bytes that a buffer then holds; what the function left alone is "#". */
struct Written {
    int result;
    std::string bytes;
    bool operator==(const Written &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const Written &written)
{
    return stream << written.result << " " << testing::PrintToString(written.bytes);
}

Written formatted(const char *digits)
{
    char room[20];
    memset(room, '#', sizeof(room));
    const int result = xmesh_mac_str_to_format(room, digits);
    return {result, {room, sizeof(room)}};
}

Written plain(const char *format)
{
    char room[15];
    memset(room, '#', sizeof(room));
    const int result = xmesh_mac_format_to_str(format, room);
    return {result, {room, sizeof(room)}};
}

TEST_F(Mesh, DigitsToMacText)
{
    EXPECT_EQ(formatted("aabbccddeeff"), (Written{1, std::string("AA:BB:CC:DD:EE:FF\0##", 20)}));
    EXPECT_EQ(formatted("02aBcD0eF123"), (Written{1, std::string("02:AB:CD:0E:F1:23\0##", 20)}));
    EXPECT_EQ(formatted("aabbccddeeff00"), (Written{1, std::string("AA:BB:CC:DD:EE:FF\0##", 20)}))
        << "twelve count";
    EXPECT_EQ(formatted("not  a  mac."), (Written{1, std::string("NO:T : A:  :MA:C.\0##", 20)}))
        << "whatever they are";
}

TEST_F(Mesh, MacTextToDigits)
{
    EXPECT_EQ(plain("aa:bb:cc:dd:ee:ff"), (Written{1, std::string("AABBCCDDEEFF\0##", 15)}));
    EXPECT_EQ(plain("0a-1b c2.D3x4e/5F"), (Written{1, std::string("0A1BC2D34E5F\0##", 15)}))
        << "separators are not looked at";
    EXPECT_EQ(plain("aa:bb:cc:dd:ee:ff:00"), (Written{1, std::string("AABBCCDDEEFF\0##", 15)}));
}

/** A text at the end of its allocation, so that a sanitizer sees every step behind it. */
template <typename Function>
void with_exact(const std::string &text, Function function)
{
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    function(exact.data());
}

TEST_F(Mesh, ShortTextsEndInNuls)
{
    const std::string digits = "aabbccddeeff";
    const std::string as_text[] = {"",
                                   "A",
                                   "AA:",
                                   "AA:B",
                                   "AA:BB:",
                                   "AA:BB:C",
                                   "AA:BB:CC:",
                                   "AA:BB:CC:D",
                                   "AA:BB:CC:DD:",
                                   "AA:BB:CC:DD:E",
                                   "AA:BB:CC:DD:EE:",
                                   "AA:BB:CC:DD:EE:F"};
    for (std::size_t length = 0; length < digits.size(); ++length) {
        with_exact(digits.substr(0, length), [&](const char *text) {
            const Written written = formatted(text);
            EXPECT_EQ(written.result, length > 0 ? 1 : 0) << length;
            EXPECT_STREQ(written.bytes.c_str(), as_text[length].c_str());
            EXPECT_EQ(written.bytes.substr(17), std::string("\0##", 3)) << length;
        });
    }
    const std::string format = "aa:bb:cc:dd:ee:ff";
    const std::string as_digits[] = {
        "",         "A",         "AA",         "AA",         "AAB",        "AABB",
        "AABB",     "AABBC",     "AABBCC",     "AABBCC",     "AABBCCD",    "AABBCCDD",
        "AABBCCDD", "AABBCCDDE", "AABBCCDDEE", "AABBCCDDEE", "AABBCCDDEEF"};
    for (std::size_t length = 0; length < format.size(); ++length) {
        with_exact(format.substr(0, length), [&](const char *text) {
            const Written written = plain(text);
            EXPECT_EQ(written.result, length > 0 ? 1 : 0) << length;
            EXPECT_EQ(written.bytes,
                      as_digits[length] + std::string(13 - as_digits[length].size(), '\0') + "##");
        });
    }
}

TEST_F(Mesh, MacTextsInPlace)
{
    char text[18] = "aabbccddeeff";
    EXPECT_EQ(xmesh_mac_str_to_format(text, text), 1);
    EXPECT_STREQ(text, "AA:BB:CC:DD:EE:FF");
    EXPECT_EQ(xmesh_mac_format_to_str(text, text), 1);
    EXPECT_STREQ(text, "AABBCCDDEEFF");
}

TEST_F(Mesh, MacTextsNeedBothArguments)
{
    char text[18] = "before";
    EXPECT_EQ(xmesh_mac_str_to_format(nullptr, "aabbccddeeff"), 0);
    EXPECT_EQ(xmesh_mac_str_to_format(text, nullptr), 0);
    EXPECT_EQ(xmesh_mac_format_to_str(nullptr, text), 0);
    EXPECT_EQ(xmesh_mac_format_to_str("aa:bb:cc:dd:ee:ff", nullptr), 0);
    EXPECT_STREQ(text, "before");
}

// ---- attribute records -----------------------------------------------------------------------

constexpr char kUntouched = '#';

/** What an encoder writes at the beginning of a buffer, up to the place it moves to. */
class Encoded
{
  public:
    /** @param at  where the record begins, so that every alignment comes about */
    template <typename Encoder>
    Encoded(std::size_t at, Encoder encoder) : at_(at)
    {
        memset(room_, kUntouched, sizeof(room_));
        auto *place = reinterpret_cast<mesh_attr_t *>(room_ + at);
        encoder(&place);
        end_ = static_cast<std::size_t>(reinterpret_cast<char *>(place) - room_);
    }

    std::string bytes() const { return {room_ + at_, end_ - at_}; }
    std::size_t moved() const { return end_ - at_; }
    bool rest_untouched() const
    {
        const std::string before(room_, at_);
        const std::string behind(room_ + end_, sizeof(room_) - end_);
        return (before + behind).find_first_not_of(kUntouched) == std::string::npos;
    }

  private:
    std::size_t at_;
    std::size_t end_;
    char room_[64];
};

template <typename Encoder>
void encodes(Encoder encoder, const std::string &bytes)
{
    for (std::size_t at = 0; at < 8; ++at) {
        const Encoded encoded{at, encoder};
        EXPECT_EQ(encoded.bytes(), bytes) << at;
        EXPECT_EQ(encoded.moved(), bytes.size()) << at;
        EXPECT_TRUE(encoded.rest_untouched()) << at;
    }
}

TEST_F(Mesh, RecordsAsTheyStandInAMessage)
{
    encodes([](mesh_attr_t **p) { mesh_set_attr_u8(p, MESH_ATTR_CPU_USAGE, 0x9A); },
            std::string("\x00\x08##\x00\x00\x00\x01\x9A", 9));
    encodes([](mesh_attr_t **p) { mesh_set_attr_u16(p, MESH_ATTR_UPPER_NODE_RATE, 0x1234); },
            std::string("\x00\x0B##\x00\x00\x00\x02\x12\x34", 10));
    encodes([](mesh_attr_t **p) { mesh_set_attr_u32(p, MESH_ATTR_UPTIME, 0x89ABCDEF); },
            std::string("\x00\x07##\x00\x00\x00\x04\x89\xAB\xCD\xEF", 12));
    encodes([](mesh_attr_t **p) { mesh_set_attr_u64(p, MESH_ATTR_TIMESTAMP, 0x0123456789ABCDEF); },
            std::string("\x00\x00##\x00\x00\x00\x08\x01\x23\x45\x67\x89\xAB\xCD\xEF", 16));
    encodes([](mesh_attr_t **p) { mesh_set_attr_str(p, MESH_ATTR_TIMESYN, "ab"); },
            std::string("\x00\x19##\x00\x00\x00\x03"
                        "ab\0",
                        11));
    encodes([](mesh_attr_t **p) { mesh_set_attr_str(p, 0xFEDC, ""); },
            std::string("\xFE\xDC##\x00\x00\x00\x01\0", 9));
    encodes([](mesh_attr_t **p) { mesh_set_attr_str(p, MESH_ATTR_SSID, nullptr); },
            std::string("\x00\x13##\x00\x00\x00\x00", 8));
    encodes([](mesh_attr_t **p) { mesh_set_attr(p, MESH_ATTR_MAC, 6, "\x02\0\0\xFF\0\x01"); },
            std::string("\x00\x01##\x00\x00\x00\x06\x02\0\0\xFF\0\x01", 14));
    encodes([](mesh_attr_t **p) { mesh_set_attr(p, MESH_ATTR_IP, 0, "not looked at"); },
            std::string("\x00\x02##\x00\x00\x00\x00", 8));
    encodes([](mesh_attr_t **p) { mesh_set_attr(p, MESH_ATTR_IP, 0, nullptr); },
            std::string("\x00\x02##\x00\x00\x00\x00", 8));
}

TEST_F(Mesh, ALongRecord)
{
    const std::string value(0x012345, 'v');
    std::vector<char> room(value.size() + 8, kUntouched);
    auto *place = reinterpret_cast<mesh_attr_t *>(room.data());
    mesh_set_attr(&place, MESH_ATTR_NAME, static_cast<uint32_t>(value.size()), value.data());
    EXPECT_EQ(reinterpret_cast<char *>(place), room.data() + room.size());
    EXPECT_EQ(std::string(room.data(), room.size()),
              std::string("\x00\x04##\x00\x01\x23\x45", 8) + value);
}

TEST_F(Mesh, NothingToWriteOrNowhereToWriteIt)
{
    encodes([](mesh_attr_t **p) { mesh_set_attr(p, MESH_ATTR_MAC, 1, nullptr); }, "");
    mesh_set_attr(nullptr, MESH_ATTR_MAC, 1, "x");
    mesh_set_attr_u8(nullptr, MESH_ATTR_MAC, 1);
    mesh_set_attr_u16(nullptr, MESH_ATTR_MAC, 1);
    mesh_set_attr_u32(nullptr, MESH_ATTR_MAC, 1);
    mesh_set_attr_u64(nullptr, MESH_ATTR_MAC, 1);
    mesh_set_attr_str(nullptr, MESH_ATTR_MAC, "x");
    mesh_attr_t *nowhere = nullptr;
    mesh_set_attr(&nowhere, MESH_ATTR_MAC, 1, "x");
    mesh_set_attr(&nowhere, MESH_ATTR_MAC, 0, nullptr);
    mesh_set_attr_str(&nowhere, MESH_ATTR_MAC, "x");
    EXPECT_EQ(nowhere, nullptr);
}

/** The list that most tests look into, written by the library. */
std::string encoded_list()
{
    std::string list(512, kUntouched);
    auto *place = reinterpret_cast<mesh_attr_t *>(list.data());
    mesh_set_attr_str(&place, MESH_ATTR_NAME, "living room");
    mesh_set_attr(&place, MESH_ATTR_MAC, 6, "\x02\0\0\xFF\0\x01");
    mesh_set_attr_u8(&place, MESH_ATTR_CPU_USAGE, 97);
    mesh_set_attr_str(&place, MESH_ATTR_REMARK, nullptr);
    mesh_set_attr_u16(&place, MESH_ATTR_UPPER_NODE_RATE, 866);
    mesh_set_attr_str(&place, MESH_ATTR_NAME, "the second of that type");
    mesh_set_attr_u32(&place, MESH_ATTR_UPTIME, 86400);
    mesh_set_attr_u64(&place, MESH_ATTR_TIMESTAMP, 1700000000123);
    mesh_set_attr_str(&place, 0xFFFF, "");
    list.resize(static_cast<std::size_t>(reinterpret_cast<char *>(place) - list.data()));
    return list;
}

/** The value of the first record of a type, by the library; nothing when there is none. */
std::optional<std::string> found(const std::string &list, uint16_t type)
{
    // Exactly as large as the list, for the sanitizer.
    const std::vector<char> exact(list.begin(), list.end());
    void *value = nullptr;
    uint32_t length = 0xDEAD;
    const int result =
        mesh_get_attr(exact.data(), static_cast<uint32_t>(exact.size()), type, &value, &length);
    if (result == 0) {
        EXPECT_EQ(value, nullptr) << "untouched";
        EXPECT_EQ(length, 0xDEADU) << "untouched";
        return std::nullopt;
    }
    EXPECT_EQ(result, 1);
    const char *const start = static_cast<const char *>(value);
    EXPECT_GE(start, exact.data() + 8);
    EXPECT_LE(start + length, exact.data() + exact.size());
    return std::string(start, length);
}

TEST_F(Mesh, OurRecordsReadByAnother)
{
    const auto records = test::mesh_records(encoded_list());
    EXPECT_THAT(records,
                ElementsAre(test::MeshRecord{4, std::string("living room\0", 12)},
                            test::MeshRecord{1, std::string("\x02\0\0\xFF\0\x01", 6)},
                            test::MeshRecord{8, "a"}, test::MeshRecord{5, ""},
                            test::MeshRecord{11, "\x03\x62"},
                            test::MeshRecord{4, std::string("the second of that type\0", 24)},
                            test::MeshRecord{7, std::string("\0\x01\x51\x80", 4)},
                            test::MeshRecord{0, std::string("\0\0\x01\x8B\xCF\xE5\x68\x7B", 8)},
                            test::MeshRecord{65535, std::string(1, '\0')}));
}

TEST_F(Mesh, AnothersRecordsReadByUs)
{
    const std::string list = test::mesh_message({{MESH_ATTR_SSID, "home"},
                                                 {MESH_ATTR_MESHID, ""},
                                                 {MESH_ATTR_SSID, "the second of that type"},
                                                 {MESH_ATTR_BOUNDARY, std::string(300, 'b')},
                                                 {0x1300, "not the SSID"}});
    EXPECT_EQ(found(list, MESH_ATTR_SSID), "home");
    EXPECT_EQ(found(list, MESH_ATTR_MESHID), "");
    EXPECT_EQ(found(list, MESH_ATTR_BOUNDARY), std::string(300, 'b'));
    EXPECT_EQ(found(list, 0x1300), "not the SSID");
    EXPECT_EQ(found(list, MESH_ATTR_TIMESTAMP), std::nullopt);
    EXPECT_EQ(found(list, MESH_ATTR_TIMESYN), std::nullopt);
}

TEST_F(Mesh, EveryTruncationOfAList)
{
    const std::string list = encoded_list();
    for (std::size_t length = 0; length <= list.size(); ++length) {
        const std::string cut = list.substr(0, length);
        for (const int wanted : {4, 1, 8, 5, 11, 7, 0, 0xFFFF, 2, 25}) {
            const auto type = static_cast<uint16_t>(wanted);
            EXPECT_EQ(found(cut, type), test::first_of(test::mesh_records(cut), type))
                << length << " " << type;
        }
    }
    EXPECT_EQ(found(list, 0xFFFF), std::string(1, '\0')) << "the last one";
    EXPECT_EQ(found(list.substr(0, list.size() - 1), 0xFFFF), std::nullopt);
    EXPECT_EQ(found(list.substr(0, list.size() - 1), 4), std::string("living room\0", 12));
}

TEST_F(Mesh, AListAtEveryAlignment)
{
    const std::string list = encoded_list();
    for (std::size_t at = 0; at < 8; ++at) {
        const std::string moved = std::string(at, kUntouched) + list;
        void *value = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(mesh_get_attr(moved.data() + at, static_cast<uint32_t>(list.size()),
                                MESH_ATTR_UPTIME, &value, &length),
                  1);
        EXPECT_EQ(std::string(static_cast<char *>(value), length),
                  std::string("\0\x01\x51\x80", 4));
    }
}

TEST_F(Mesh, LengthsThatLie)
{
    const std::string good = test::mesh_message({{MESH_ATTR_MAC, "abcdef"}});
    const std::string next = test::mesh_message({{MESH_ATTR_IP, "next"}});
    struct Case {
        const char *length;  // big-endian
        bool mac;
        bool ip;
    };
    for (const Case &lie :
         {Case{"\x00\x00\x00\x06", true, true},
          Case{"\x00\x00\x00\x12", true, false},   // all that is left
          Case{"\x00\x00\x00\x13", false, false},  // and one more
          Case{"\x00\x00\x00\x00", true, false}, Case{"\x06\x00\x00\x00", false, false},
          Case{"\x7F\xFF\xFF\xFF", false, false},
          Case{"\xFF\xFF\xFF\xF8", false, false},  // wraps round to the start
          Case{"\xFF\xFF\xFF\xF7", false, false}, Case{"\xFF\xFF\xFF\xFF", false, false}}) {
        std::string list = good + next;
        list.replace(4, 4, std::string(lie.length, 4));
        EXPECT_EQ(found(list, MESH_ATTR_MAC).has_value(), lie.mac) << list;
        EXPECT_EQ(found(list, MESH_ATTR_IP).has_value(), lie.ip) << list;
    }
}

TEST_F(Mesh, WhatIsNotAskedForIsNotWritten)
{
    const std::string list = test::mesh_message({{MESH_ATTR_IP, "four"}});
    const auto size = static_cast<uint32_t>(list.size());
    void *value = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(mesh_get_attr(list.data(), size, MESH_ATTR_IP, nullptr, nullptr), 1);
    EXPECT_EQ(mesh_get_attr(list.data(), size, MESH_ATTR_IP, &value, nullptr), 1);
    EXPECT_EQ(value, list.data() + 8) << "in place";
    EXPECT_EQ(mesh_get_attr(list.data(), size, MESH_ATTR_IP, nullptr, &length), 1);
    EXPECT_EQ(length, 4U);
    EXPECT_EQ(mesh_get_attr(list.data(), size, MESH_ATTR_MAC, nullptr, nullptr), 0);
    EXPECT_EQ(mesh_get_attr(nullptr, size, MESH_ATTR_IP, &value, &length), 0);
    EXPECT_EQ(mesh_get_attr(list.data(), 0, MESH_ATTR_IP, &value, &length), 0);
    EXPECT_EQ(value, list.data() + 8) << "as it was";
    EXPECT_EQ(length, 4U);
}

TEST_F(Mesh, TypesHaveTheirNumbers)
{
    const mesh_attr_type_t in_order[] = {MESH_ATTR_TIMESTAMP,
                                         MESH_ATTR_MAC,
                                         MESH_ATTR_IP,
                                         MESH_ATTR_SN,
                                         MESH_ATTR_NAME,
                                         MESH_ATTR_REMARK,
                                         MESH_ATTR_VERSION,
                                         MESH_ATTR_UPTIME,
                                         MESH_ATTR_CPU_USAGE,
                                         MESH_ATTR_MEM_USAGE,
                                         MESH_ATTR_UPPER_NODE_MAC,
                                         MESH_ATTR_UPPER_NODE_RATE,
                                         MESH_ATTR_UPPER_NODE_TYPE,
                                         MESH_ATTR_UPPER_NODE_RSSI,
                                         MESH_ATTR_24G_BBSS_MAC,
                                         MESH_ATTR_5G_BBSS_MAC,
                                         MESH_ATTR_REMOTE_ADDR,
                                         MESH_ATTR_MESHID,
                                         MESH_ATTR_FREQ_BAND,
                                         MESH_ATTR_SSID,
                                         MESH_ATTR_CLEANT_RSSI,
                                         MESH_ATTR_BOUNDARY,
                                         MESH_ATTR_STA_IFNAME,
                                         MESH_ATTR_TIME,
                                         MESH_ATTR_TIMEZONE,
                                         MESH_ATTR_TIMESYN};
    ASSERT_EQ(std::size(in_order), 26U);
    for (std::size_t i = 0; i < std::size(in_order); ++i) {
        EXPECT_EQ(static_cast<std::size_t>(in_order[i]), i);
    }
}

}  // namespace
