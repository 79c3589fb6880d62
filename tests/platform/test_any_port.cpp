// SPDX-License-Identifier: MIT
// What every port must do on whatever board: the promises of the platform's headers, without a look
// at what stands behind the functions. A suite bears the name of its function. script/check-port
// runs them against any port, together with those of the other programs here that contract.txt
// names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/cfm.h"
#include "platform/database.h"
#include "platform/debug.h"
#include "platform/factory.h"
#include "platform/firmware.h"
#include "platform/hardware.h"
#include "platform/km.h"
#include "platform/wifi.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"

using test::ended_well;
using test::in_a_child;
using test::start;

namespace
{

/** Memory that ends where the next byte cannot be touched. */
class GuardedBytes
{
  public:
    explicit GuardedBytes(std::size_t size) : page_(static_cast<std::size_t>(getpagesize()))
    {
        room_ = (size + page_ - 1) / page_ * page_;
        base_ = static_cast<char *>(mmap(nullptr, room_ + page_, PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base_ == MAP_FAILED || mprotect(base_ + room_, page_, PROT_NONE) != 0) {
            abort();
        }
        bytes_ = base_ + room_ - size;
        memset(bytes_, 'u', size);
    }
    ~GuardedBytes() { munmap(base_, room_ + page_); }
    GuardedBytes(const GuardedBytes &) = delete;
    GuardedBytes &operator=(const GuardedBytes &) = delete;

    char *get() { return bytes_; }

  private:
    std::size_t page_;
    std::size_t room_;
    char *base_;
    char *bytes_;
};

// --------------------------------------------------------------------------- configuration manager

constexpr const char *kKey = "contract.key";

/** What is stored under a key, or "(absent)". */
std::string value_of(const char *key)
{
    GuardedBytes value{CFM_VALUE_SIZE};
    strcpy(value.get(), "(absent)");
    const int found = GetValue(key, value.get());
    EXPECT_EQ(found != 0, strcmp(value.get(), "(absent)") != 0);
    return value.get();
}

TEST(GetValue, AnAbsentKeyLeavesTheBuffer)
{
    EXPECT_EQ(value_of("contract.no.such.key"), "(absent)");
}

TEST(GetValue, AnEmptyValueIsFound)
{
    ASSERT_EQ(SetValue(kKey, ""), 1);
    EXPECT_EQ(value_of(kKey), "");
}

TEST(GetValue, TheLongestValueFillsTheBufferAndNoMore)
{
    const std::string longest(CFM_VALUE_SIZE - 1, 'v');
    ASSERT_EQ(SetValue(kKey, longest.c_str()), 1);
    EXPECT_EQ(value_of(kKey), longest);
    ASSERT_EQ(SetValue(kKey, "short"), 1);
    EXPECT_EQ(value_of(kKey), "short");
}

TEST(GetValue, WhatCannotBeAKey)
{
    char value[CFM_VALUE_SIZE] = "before";
    EXPECT_EQ(GetValue(nullptr, value), 0);
    EXPECT_EQ(GetValue("", value), 0);
    EXPECT_EQ(GetValue(std::string(CFM_KEY_MAX + 1, 'k').c_str(), value), 0);
    EXPECT_STREQ(value, "before");
    EXPECT_EQ(GetValue(kKey, nullptr), 0);
}

TEST(GetValue, WhatAnotherProcessStored)
{
    ASSERT_EQ(SetValue(kKey, "parent"), 1);
    EXPECT_TRUE(in_a_child([] {
        EXPECT_EQ(value_of(kKey), "parent");
        EXPECT_EQ(SetValue(kKey, "child"), 1);
    }));
    EXPECT_EQ(value_of(kKey), "child");
}

TEST(SetValue, IsOneForStored)
{
    EXPECT_EQ(SetValue(kKey, "1"), 1);
    EXPECT_EQ(SetValue(kKey, "1"), 1) << "also when it is there already";
    EXPECT_EQ(SetValue(kKey, "a=b \"c\" $d \xff"), 1);
    EXPECT_EQ(value_of(kKey), "a=b \"c\" $d \xff");
}

TEST(SetValue, WhatIsRefusedLeavesTheOldValue)
{
    ASSERT_EQ(SetValue(kKey, "old"), 1);
    EXPECT_EQ(SetValue(kKey, std::string(CFM_VALUE_SIZE, 'v').c_str()), 0);
    EXPECT_EQ(SetValue(kKey, "two\nlines"), 0);
    EXPECT_EQ(SetValue(kKey, "two\rlines"), 0);
    EXPECT_EQ(SetValue(kKey, nullptr), 0);
    EXPECT_EQ(value_of(kKey), "old");
    EXPECT_EQ(SetValue(nullptr, "1"), 0);
    EXPECT_EQ(SetValue("", "1"), 0);
    EXPECT_EQ(SetValue("a=b", "1"), 0);
    EXPECT_EQ(SetValue("#a", "1"), 0);
    EXPECT_EQ(SetValue(std::string(CFM_KEY_MAX + 1, 'k').c_str(), "1"), 0);
}

TEST(SetValue, ReadersSeeTheOldValueOrTheNewOne)
{
    ASSERT_EQ(SetValue(kKey, std::string(10, 'a').c_str()), 1);
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (const char letter : {'a', 'b', 'c'}) {
        writers.emplace_back([&stop, letter] {
            for (std::size_t length = 1; !stop; length = length * 3 % 2000 + 1) {
                EXPECT_EQ(SetValue(kKey, std::string(length, letter).c_str()), 1);
            }
        });
    }
    for (int i = 0; i < 2000; ++i) {
        const std::string value = value_of(kKey);
        EXPECT_EQ(value.find_first_not_of(value[0]), std::string::npos) << value;
    }
    stop = true;
    for (std::thread &writer : writers) {
        writer.join();
    }
}

TEST(SetValue, AKilledWriterHoldsNobodyUp)
{
    SKIP_IF_EMULATED(test::kNoRobustLocks);
    for (int round = 0; round < 20; ++round) {
        const pid_t writer = start([] {
            for (int i = 0;; ++i) {
                SetValue("contract.killed", std::to_string(i).c_str());
            }
        });
        usleep(2000);
        kill(writer, SIGKILL);
        EXPECT_FALSE(ended_well(writer));
        EXPECT_TRUE(in_a_child([] {
            alarm(10);
            EXPECT_EQ(SetValue(kKey, "after"), 1);
            EXPECT_EQ(value_of(kKey), "after");
        }));
    }
}

TEST(UnSetValue, TheKeyIsAbsentAfterwards)
{
    ASSERT_EQ(SetValue(kKey, "1"), 1);
    EXPECT_EQ(UnSetValue(kKey), 1);
    EXPECT_EQ(value_of(kKey), "(absent)");
    EXPECT_EQ(UnSetValue(kKey), 0);
    EXPECT_EQ(UnSetValue(nullptr), 0);
}

TEST(CommitCfm, KeepsWhatIsThere)
{
    ASSERT_EQ(SetValue(kKey, "kept"), 1);
    EXPECT_EQ(CommitCfm(), 1);
    EXPECT_EQ(value_of(kKey), "kept");
    EXPECT_TRUE(in_a_child([] { EXPECT_EQ(CommitCfm(), 1); }));
}

TEST(RestoreValue, NothingIsLeftOfWhatWasSet)
{
    ASSERT_EQ(SetValue(kKey, "1"), 1);
    ASSERT_EQ(CommitCfm(), 1);
    EXPECT_NE(RestoreValue(), 0);
    EXPECT_EQ(value_of(kKey), "(absent)");
    EXPECT_TRUE(in_a_child([] { EXPECT_EQ(value_of(kKey), "(absent)"); }));
}

// --------------------------------------------------------------------------- backup of a database

constexpr const char *kBackup = "/tmp/contract.backup";

/** A table of one text column in a database of its own. */
db_table notes()
{
    static constexpr db_col_t kColumns[] = {{0, "note", DB_STRING, 0, 256}};
    db_table table;
    EXPECT_NE(db_table_init("contract", &table, "notes", kColumns, 1), 0);
    return table;
}

int add_note(db_table &table, std::string text)
{
    db_val_t value;
    value.s = text.data();
    return table.add(&table, &value);
}

std::vector<std::string> all_notes(db_table &table)
{
    std::vector<std::string> texts;
    db_result result;
    table.all(&table, &result);
    for (const db_row_t *row = result.rows; row != nullptr; row = row->next) {
        texts.emplace_back(row->values[0].s != nullptr ? row->values[0].s : "(none)");
    }
    result.free(&result);
    return texts;
}

void remove_notes(db_table &table)
{
    db_result result;
    table.all(&table, &result);
    for (const db_row_t *row = result.rows; row != nullptr; row = row->next) {
        EXPECT_NE(table.del(&table, row->id), 0);
    }
    result.free(&result);
}

/** Notes that a reader of backup files could take for something else. */
const std::vector<std::string> kHostile{
    "two words",   "crc=1",        "##the qvlan configure end##", "",
    "line\nbreak", "\xff\xfe'\"%", "'; drop table notes; --"};

TEST(db_backup_save, AppendsTextThatHidesNoMarker)
{
    db_table table = notes();
    remove_notes(table);
    for (const std::string &note : kHostile) {
        ASSERT_GT(add_note(table, note), 0);
    }
    test::write_text(kBackup, "before\n");
    ASSERT_NE(db_backup_save("contract", kBackup), 0);
    const std::string text = test::read_text(kBackup);
    EXPECT_THAT(text, testing::StartsWith("before\n"));
    EXPECT_GT(text.size(), strlen("before\n"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("crc=")));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("configure end##")));
    EXPECT_EQ(text.find('\0'), std::string::npos);
}

TEST(db_backup_save, AFailureLeavesTheFile)
{
    test::write_text(kBackup, "before\n");
    EXPECT_EQ(db_backup_save("no/name", kBackup), 0);
    EXPECT_EQ(db_backup_save(nullptr, kBackup), 0);
    EXPECT_EQ(db_backup_save("contract", nullptr), 0);
    EXPECT_EQ(db_backup_save("contract", "/tmp/no.such.folder/backup"), 0);
    EXPECT_EQ(test::read_text(kBackup), "before\n");
}

TEST(db_backup_load, BringsTheRowsBack)
{
    db_table table = notes();
    remove_notes(table);
    for (const std::string &note : kHostile) {
        ASSERT_GT(add_note(table, note), 0);
    }
    test::remove_all(kBackup);
    ASSERT_NE(db_backup_save("contract", kBackup), 0);
    remove_notes(table);
    ASSERT_GT(add_note(table, "a later one"), 0);
    const std::string file = "other=1\n" + test::read_text(kBackup) + "more=2\ncrc=0\n";
    EXPECT_NE(db_backup_load("contract", file.c_str()), 0);
    EXPECT_EQ(all_notes(table), kHostile);
}

TEST(db_backup_load, WhatIsMissingOrCutIsRefusedWhole)
{
    db_table table = notes();
    remove_notes(table);
    ASSERT_GT(add_note(table, "saved"), 0);
    test::remove_all(kBackup);
    ASSERT_NE(db_backup_save("contract", kBackup), 0);
    const std::string text = test::read_text(kBackup);
    remove_notes(table);
    ASSERT_GT(add_note(table, "kept"), 0);
    const std::vector<std::string> kept{"kept"};
    for (const std::size_t length : {std::size_t{0}, text.size() / 4, text.size() / 2}) {
        EXPECT_EQ(db_backup_load("contract", text.substr(0, length).c_str()), 0) << length;
        EXPECT_EQ(all_notes(table), kept);
    }
    EXPECT_EQ(db_backup_load("contract", ("crc=" + text).c_str()), 0) << "behind the trailer";
    EXPECT_EQ(db_backup_load("another", text.c_str()), 0);
    EXPECT_EQ(db_backup_load(nullptr, text.c_str()), 0);
    EXPECT_EQ(db_backup_load("contract", nullptr), 0);
    EXPECT_EQ(all_notes(table), kept);
}

// -------------------------------------------------------------------------------- factory settings

TEST(ApmibGetValue, AMissingSettingIsAnEmptyText)
{
    GuardedBytes value{FACTORY_VALUE_SIZE};
    EXPECT_EQ(ApmibGetValue("CONTRACT_NO_SUCH_SETTING", value.get()), 0);
    EXPECT_EQ(value.get()[0], '\0');
    EXPECT_EQ(ApmibGetValue(nullptr, value.get()), 0);
    EXPECT_EQ(ApmibGetValue("HW_NIC0_ADDR", nullptr), 0);
}

TEST(ApmibGetValue, TheBaseMacIsTheBoards)
{
    GuardedBytes value{FACTORY_VALUE_SIZE};
    unsigned char mac[6];
    ASSERT_EQ(iof_mac_addr_get(mac), 0);
    char wanted[13];
    snprintf(wanted, sizeof(wanted), "%02X%02X%02X%02X%02X%02X", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    ASSERT_NE(ApmibGetValue("HW_NIC0_ADDR", value.get()), 0);
    EXPECT_STRCASEEQ(value.get(), wanted);
}

// --------------------------------------------------------------------------------- firmware images

/** What is no image, of every kind of size; each stands in front of memory that cannot be read. */
void with_what_is_no_image(const std::function<void(const char *image, long size)> &look)
{
    for (const std::size_t size : {0U, 1U, 3U, 4U, 63U, 64U, 65U, 4096U, 70000U}) {
        for (const char filler : {'\0', 'x', '\xff'}) {
            GuardedBytes image{size};
            memset(image.get(), filler, size);
            look(image.get(), static_cast<long>(size));
        }
    }
}

TEST(check_fw_type, WhatIsNoImage)
{
    with_what_is_no_image(
        [](const char *image, long size) { EXPECT_LT(check_fw_type(image, size), 0) << size; });
    EXPECT_LT(check_fw_type(nullptr, 100), 0);
}

TEST(check_fw_crc, WhatIsNoImage)
{
    with_what_is_no_image([](const char *image, long size) {
        EXPECT_LT(check_fw_crc(FW_TYPE_FLASH, image, size), 0) << size;
        EXPECT_LT(check_fw_crc(FW_TYPE_BUNDLE, image, size), 0) << size;
    });
    EXPECT_LT(check_fw_crc(FW_TYPE_FLASH, nullptr, 100), 0);
}

TEST(check_fw_valid, FilesThatAreNone)
{
    const int before = test::open_descriptors();
    EXPECT_LT(check_fw_valid(FW_TYPE_FLASH, "/tmp/no.such.image"), 0);
    EXPECT_LT(check_fw_valid(FW_TYPE_FLASH, "/tmp"), 0);
    EXPECT_LT(check_fw_valid(FW_TYPE_FLASH, nullptr), 0);
    for (const std::size_t size : {0U, 10U, 100000U}) {
        test::write_text("/tmp/image", std::string(size, 'x'));
        EXPECT_LT(check_fw_valid(FW_TYPE_FLASH, "/tmp/image"), 0) << size;
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(check_mtd_size, AFileThatCannotBeMeasured)
{
    EXPECT_LT(check_mtd_size(FW_TYPE_FLASH, "/tmp/no.such.image"), 0);
    EXPECT_LT(check_mtd_size(FW_TYPE_FLASH, nullptr), 0);
}

// ---------------------------------------------------------------------------------------- hardware

constexpr unsigned int kUntouched = 4711;

/** The LEDs of this board. */
std::vector<gpio_id_t> leds()
{
    std::vector<gpio_id_t> found;
    for (int id = LED_SYS; id < LED_END; ++id) {
        unsigned int state = 0;
        if (iof_gpio_get(static_cast<gpio_id_t>(id), &state) == 0) {
            found.push_back(static_cast<gpio_id_t>(id));
        }
    }
    return found;
}

TEST(iof_gpio_get, APatternOrNothing)
{
    for (int id = LED_SYS; id <= BTN_END; ++id) {
        unsigned int state = kUntouched;
        if (iof_gpio_get(static_cast<gpio_id_t>(id), &state) == 0) {
            EXPECT_THAT(state, testing::AnyOf(LED_ON, LED_OFF, LED_BLINK, LED_NORMAL)) << id;
        } else {
            EXPECT_EQ(state, kUntouched) << id;
        }
    }
    unsigned int state = kUntouched;
    EXPECT_NE(iof_gpio_get(BTN_RST, &state), 0) << "a button shows nothing";
}

/** For the tests of the LEDs: a board may have none, and then there is nothing to check. */
#define SKIP_WITHOUT_LEDS()                                      \
    do {                                                         \
        if (leds().empty()) {                                    \
            GTEST_SKIP() << "the board has no LED that is told"; \
        }                                                        \
    } while (0)

TEST(iof_gpio_set, IsReadBack)
{
    SKIP_WITHOUT_LEDS();
    for (const gpio_id_t led : leds()) {
        for (const led_pattern_t pattern :
             {LED_ON, LED_OFF, LED_BLINK, LED_FORCE_ON, LED_FORCE_OFF}) {
            unsigned int state = kUntouched;
            EXPECT_EQ(iof_gpio_set(led, pattern), 0) << led;
            EXPECT_EQ(iof_gpio_get(led, &state), 0) << led;
            const unsigned int wanted = pattern == LED_FORCE_ON    ? LED_ON
                                        : pattern == LED_FORCE_OFF ? LED_OFF
                                                                   : pattern;
            EXPECT_EQ(state, wanted) << led;
        }
        EXPECT_NE(iof_gpio_set(led, static_cast<led_pattern_t>(9)), 0);
        EXPECT_EQ(iof_gpio_set(led, LED_NORMAL), 0);
    }
    EXPECT_NE(iof_gpio_set(BTN_RST, LED_ON), 0);
}

TEST(iof_gpio_set_start, ResetLeavesItOff)
{
    SKIP_WITHOUT_LEDS();
    for (const gpio_id_t led : leds()) {
        unsigned int state = kUntouched;
        EXPECT_EQ(iof_gpio_set(led, LED_BLINK), 0);
        EXPECT_EQ(iof_gpio_set_start(led, 0), 0);
        EXPECT_EQ(iof_gpio_get(led, &state), 0);
        EXPECT_EQ(state, LED_OFF) << led;
        EXPECT_EQ(iof_gpio_set_start(led, 1), 0);
    }
    EXPECT_NE(iof_gpio_set_start(BTN_RST, 0), 0);
}

TEST(iof_port_status_get, ExactlyOneForALink)
{
    for (int port = 0; port < 16; ++port) {
        port_status status;
        memset(&status, 'u', sizeof(status));
        const port_status before = status;
        if (iof_port_status_get(port, &status) == 0) {
            EXPECT_LE(status.link, 1U) << port;
            EXPECT_LE(status.duplex, 1U) << port;
            EXPECT_LE(status.nway, 1U) << port;
        } else {
            EXPECT_EQ(memcmp(&status, &before, sizeof(status)), 0) << port;
        }
    }
    port_status status{};
    EXPECT_NE(iof_port_status_get(-1, &status), 0);
    EXPECT_NE(iof_port_status_get(1000, &status), 0);
}

TEST(iof_eth_name_get, NamesStayAsTheyAre)
{
    std::vector<std::pair<char *, std::string>> names;
    for (int index = LAN_1; index < PORT_CPU2 + 10; ++index) {
        char *const name = iof_eth_name_get(static_cast<eth_idx_t>(index));
        if (name != nullptr) {
            names.emplace_back(name, name);
            EXPECT_THAT(strlen(name), testing::AllOf(testing::Ge(1U), testing::Le(15U)));
        }
    }
    EXPECT_NE(iof_eth_name_get(LAN_1), nullptr) << "the LAN bridge";
    EXPECT_EQ(iof_eth_name_get(ETH_NM_INVALID), nullptr);
    for (const auto &[name, text] : names) {
        EXPECT_EQ(name, text);
    }
}

TEST(iof_mac_addr_get, ADevicesOwn)
{
    unsigned char mac[6] = {1, 1, 1, 1, 1, 1};
    ASSERT_EQ(iof_mac_addr_get(mac), 0);
    EXPECT_EQ(mac[0] & 1, 0) << "not a group's";
    const unsigned char none[6] = {};
    EXPECT_NE(memcmp(mac, none, sizeof(mac)), 0);
}

TEST(iof_mac_clone_set, OneThatIsKnownIsNoFailure)
{
    unsigned char mac[6] = {0x02, 0, 0x5e, 0x53, 0, 0x99};
    EXPECT_EQ(iof_mac_clone_set(mac), 0);
    EXPECT_EQ(iof_mac_clone_set(mac), 0);
}

TEST(iof_vlan_set, ASwitchThatIsNotThere)
{
    EXPECT_NE(iof_vlan_set(99, 1, 0), 0);
    EXPECT_NE(iof_vlan_set(-1, 1, 0), 0);
}

TEST(iof_port_restart_auto_nego, APortThatIsNotThere)
{
    EXPECT_NE(iof_port_restart_auto_nego(-1), 0);
    EXPECT_NE(iof_port_restart_auto_nego(1000), 0);
}

// --------------------------------------------------------------------------- kernel-module control

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

Json parsed(const char *text)
{
    return Json{cJSON_Parse(text), cJSON_Delete};
}

std::string text_of(const Json &object)
{
    char *const text = cJSON_PrintUnformatted(object.get());
    std::string copy = text != nullptr ? text : "";
    cJSON_free(text);
    return copy;
}

TEST(km_wan_statistic_get_wan_flow, TheShapeOfTheAnswer)
{
    const Json object = parsed(R"({"WanFlow": "an earlier one"})");
    ASSERT_EQ(km_wan_statistic_get_wan_flow(object.get()), 0);
    ASSERT_EQ(cJSON_GetArraySize(object.get()), 1) << text_of(object);
    const cJSON *const list = cJSON_GetObjectItemCaseSensitive(object.get(), "WanFlow");
    ASSERT_TRUE(cJSON_IsArray(list)) << text_of(object);
    const cJSON *wan = nullptr;
    cJSON_ArrayForEach(wan, list)
    {
        EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItemCaseSensitive(wan, "WanId")));
        const cJSON *const rate = cJSON_GetObjectItemCaseSensitive(wan, "WanRate");
        for (const char *const name : {"UpRate", "DownRate"}) {
            const cJSON *const number = cJSON_GetObjectItemCaseSensitive(rate, name);
            ASSERT_TRUE(cJSON_IsNumber(number)) << text_of(object);
            EXPECT_GE(cJSON_GetNumberValue(number), 0);
        }
    }
}

TEST(km_dns_redirect_add_rule, TheObjectStaysTheCallers)
{
    const Json rule = parsed(R"({"Domain": "contract.example", "Ip": "192.0.2.1"})");
    const std::string before = text_of(rule);
    EXPECT_EQ(km_dns_redirect_add_rule(rule.get()), 0);
    EXPECT_EQ(km_dns_redirect_add_rule(rule.get()), 0) << "a rule is replaced";
    EXPECT_EQ(text_of(rule), before);
}

TEST(km_dns_redirect_add_rule, WhatIsNoRule)
{
    for (const char *const text :
         {"{}", "7", R"({"Domain": "contract.example"})", R"({"Ip": "192.0.2.1"})",
          R"({"Domain": "", "Ip": "192.0.2.1"})", R"({"Domain": "a b", "Ip": "192.0.2.1"})",
          R"({"Domain": "../a", "Ip": "192.0.2.1"})", R"({"Domain": "a\nb", "Ip": "192.0.2.1"})",
          R"({"Domain": "contract.example", "Ip": "192.0.2"})",
          R"({"Domain": "contract.example", "Ip": 7})"}) {
        const Json rule = parsed(text);
        EXPECT_NE(km_dns_redirect_add_rule(rule.get()), 0) << text;
    }
}

TEST(km_dns_redirect_del_rule, OnceAndNoMore)
{
    const Json rule = parsed(R"({"Domain": "contract.example", "Ip": "192.0.2.1"})");
    const std::string before = text_of(rule);
    ASSERT_EQ(km_dns_redirect_add_rule(rule.get()), 0);
    EXPECT_EQ(km_dns_redirect_del_rule(rule.get()), 0);
    EXPECT_NE(km_dns_redirect_del_rule(rule.get()), 0);
    EXPECT_EQ(text_of(rule), before);
    EXPECT_NE(km_dns_redirect_del_rule(parsed("{}").get()), 0);
}

// ------------------------------------------------------------------------------------------- Wi-Fi

TEST(pav_wifi_get_osifname, ANetworkThatIsNotThere)
{
    GuardedBytes name{16};
    EXPECT_EQ(pav_wifi_get_osifname("contract.7", name.get()), -1);
    EXPECT_STREQ(name.get(), "");
    EXPECT_EQ(pav_wifi_get_osifname(nullptr, name.get()), -1);
    EXPECT_EQ(pav_wifi_get_osifname("wlan0.0", nullptr), -1);
}

TEST(pav_wifi_get_osifname, AtMostAnInterfacesName)
{
    for (const char *const bss : {"wlan0.0", "wlan0.7", "wlan1.0", "wlan1.7"}) {
        GuardedBytes name{16};
        const int result = pav_wifi_get_osifname(bss, name.get());
        EXPECT_LT(strnlen(name.get(), 16), 16U) << bss;
        EXPECT_EQ(result == 0, name.get()[0] != '\0') << bss;
    }
}

TEST(pav_wifi_get_clientlist, AnInterfaceThatIsNotThere)
{
    station_info_t list[2];
    memset(list, 'u', sizeof(list));
    station_info_t before[2];
    memcpy(before, list, sizeof(list));
    EXPECT_EQ(pav_wifi_get_clientlist("contract0", list, 2), 0);
    EXPECT_EQ(pav_wifi_get_clientlist("lo", list, 2), 0);
    EXPECT_EQ(memcmp(list, before, sizeof(list)), 0);
}

// ------------------------------------------------------------------------------------------- debug

TEST(show_backtrace, IsPrintedOrNot)
{
    const std::string text = test::printed([] {
        show_backtrace();
        printf("end");
    });
    EXPECT_EQ(text.substr(text.size() < 3 ? 0 : text.size() - 3), "end");
}

TEST(log_debug_print, GoesElsewhereAndHoldsNobodyUp)
{
    alarm(10);
    const std::string text = test::printed([] {
        for (int i = 0; i < 100; ++i) {
            log_debug_print("function", i, 2, "module", "%s", std::string(5000, 'x').c_str());
        }
    });
    alarm(0);
    EXPECT_EQ(text, "");
}

}  // namespace
