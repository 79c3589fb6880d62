// SPDX-License-Identifier: MIT
// The settings that follow the LAN: records in the real database, keys in the store in memory.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "prod_common_check.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/config.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::Prints;

namespace
{

constexpr const char *kFile = "/cfg/database/default.db";

using Cells = std::vector<std::string>;

/** Adds a row of a table from texts and numbers; "(none)" is no text. @return its id */
int add(db_table *table, Cells cells)
{
    std::vector<db_val_t> values(cells.size());
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (table->columns[i].type == DB_INT) {
            values[i].n = std::stoi(cells[i]);
        } else {
            values[i].s = cells[i] != "(none)" ? cells[i].data() : nullptr;
        }
    }
    const int id = table->add(table, values.data());
    EXPECT_GT(id, 0);
    return id;
}

Cells cells_of(const db_table &table, const db_row_t &row)
{
    Cells cells;
    for (int i = 0; i < row.col_num; ++i) {
        const db_val_t &value = row.values[i];
        cells.push_back(table.columns[i].type == DB_INT ? std::to_string(value.n)
                        : value.s != nullptr            ? std::string{value.s}
                                                        : std::string{"(none)"});
    }
    return cells;
}

Cells get(db_table *table, int id)
{
    const std::unique_ptr<db_row_t, decltype(&free)> row{table->get(table, id), free};
    return row != nullptr ? cells_of(*table, *row) : Cells{};
}

/** One column of all rows, in the order of their ids. */
Cells column(db_table *table, std::size_t place)
{
    Cells cells;
    db_result rows;
    table->all(table, &rows);
    for (const db_row_t *row = rows.rows; row != nullptr; row = row->next) {
        cells.push_back(cells_of(*table, *row)[place]);
    }
    rows.free(&rows);
    return cells;
}

void clear(db_table *table)
{
    ASSERT_NE(table, nullptr);
    db_result rows;
    table->all(table, &rows);
    for (const db_row_t *row = rows.rows; row != nullptr; row = row->next) {
        EXPECT_NE(table->del(table, row->id), 0);
    }
    rows.free(&rows);
}

u32 ip(const char *text)
{
    return inet_addr(text);
}

const u32 kOld = ip("192.168.0.1");
const u32 kNew = ip("192.168.1.1");
const u32 kMask = ip("255.255.255.0");

class LanMove : public testing::Test
{
  protected:
    void SetUp() override
    {
        clear(get_dhcps_list_table());
        clear(get_port_map_table());
        clear(get_ip_mac_bind_table());
    }

    static int add_pool(const char *first = "192.168.0.100", const char *last = "192.168.0.200",
                        const char *interface = "br0")
    {
        return add(get_dhcps_list_table(), {"1", interface, first, last, "192.168.0.1",
                                            "255.255.255.0", "86400", "192.168.0.1", "9.9.9.9"});
    }
    static Cells pool(int id) { return get(get_dhcps_list_table(), id); }

    /** Start and end of the pool after a move of its own. */
    static std::pair<std::string, std::string> ends(int id)
    {
        const Cells cells = pool(id);
        return {cells.at(2), cells.at(3)};
    }

    test::FreshConfig fresh_;
};
using Ends = std::pair<std::string, std::string>;

// First of all: once opened, a table is the process's.
TEST(LanTables, OnesThatCannotBeOpenedAreTriedAgain)
{
    test::write_text(kFile, std::string(5000, 'x'));
    EXPECT_EQ(get_dhcps_list_table(), nullptr);
    EXPECT_EQ(get_port_map_table(), nullptr);
    EXPECT_EQ(get_ip_mac_bind_table(), nullptr);
    check_lanip_change_sync_virtual(kNew, kMask, kMask);
    check_lanip_change_sync_ipmac_bind(kNew, kMask, kMask);
    prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
    test::remove_all(kFile);
    EXPECT_NE(get_dhcps_list_table(), nullptr);
    EXPECT_NE(get_port_map_table(), nullptr);
    EXPECT_NE(get_ip_mac_bind_table(), nullptr);
}

TEST_F(LanMove, TheTablesAreTheProcesss)
{
    db_table *const pools = get_dhcps_list_table();
    EXPECT_EQ(pools, get_dhcps_list_table());
    ASSERT_EQ(pools->col_num, 9);
    const db_col_t pool[] = {{0, "enable", DB_INT, 0, 0},       {1, "interface", DB_STRING, 1, 10},
                             {2, "start ip", DB_STRING, 0, 16}, {3, "end ip", DB_STRING, 0, 16},
                             {4, "gateway", DB_STRING, 0, 16},  {5, "mask", DB_STRING, 0, 16},
                             {6, "lease", DB_INT, 0, 0},        {7, "main dns", DB_STRING, 0, 16},
                             {8, "sec dns", DB_STRING, 0, 16}};
    const db_col_t forward[] = {
        {0, "enabled", DB_INT, 0, 0},         {1, "ip", DB_STRING, 0, 16},
        {2, "protocol", DB_INT, 0, 0},        {3, "wan", DB_INT, 0, 0},
        {4, "inner-port", DB_STRING, 0, 128}, {5, "outer-port", DB_STRING, 0, 128},
        {6, "name", DB_STRING, 0, 64}};
    const db_col_t binding[] = {{0, "ip", DB_STRING, 1, 16},
                                {1, "mac", DB_STRING, 1, 18},
                                {2, "remark", DB_STRING, 0, 100}};
    const auto has = [](const db_table *table, const auto &columns) {
        ASSERT_EQ(table->col_num, static_cast<int>(std::size(columns)));
        for (int i = 0; i < table->col_num; ++i) {
            EXPECT_EQ(table->columns[i].index, i);
            EXPECT_STREQ(table->columns[i].name, columns[i].name);
            EXPECT_EQ(table->columns[i].type, columns[i].type);
            EXPECT_EQ(table->columns[i].unique, columns[i].unique);
            EXPECT_EQ(table->columns[i].length, columns[i].length);
        }
    };
    has(pools, pool);
    has(get_port_map_table(), forward);
    has(get_ip_mac_bind_table(), binding);
    EXPECT_TRUE(test::exists(kFile));
}

// ---- the pool ---------------------------------------------------------------------------------

TEST_F(LanMove, ThePoolFollowsTheAddress)
{
    const int id = add_pool();
    prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
    EXPECT_EQ(pool(id), (Cells{"1", "br0", "192.168.1.100", "192.168.1.200", "192.168.1.1",
                               "255.255.255.0", "86400", "192.168.1.1", "9.9.9.9"}));
}

TEST_F(LanMove, ThePoolFillsANetworkOfAnotherMask)
{
    const int id =
        add(get_dhcps_list_table(), {"1", "br0", "192.168.0.100", "192.168.0.200", "192.168.0.254",
                                     "255.255.255.0", "86400", "8.8.8.8", "9.9.9.9"});
    config() = {{"wans.flag", "1"},
                {"wan1.dmzip", "192.168.0.5"},
                {"dhcps.Staticnum", "1"},
                {"dhcps.Staticip1", "192.168.0.7;m"}};
    const test::Config before = config();
    prod_check_change_lanip_handle("192.168.0.1", "255.255.0.0", "192.168.0.1", "255.255.255.0");
    EXPECT_EQ(pool(id), (Cells{"1", "br0", "192.168.0.2", "192.168.255.254", "192.168.0.1",
                               "255.255.0.0", "86400", "192.168.0.1", "9.9.9.9"}));
    EXPECT_EQ(config(), before);
}

TEST_F(LanMove, AnEndOfThePoolIsNeverTheLansOwnAddress)
{
    const int start = add_pool("192.168.0.1", "192.168.0.200");
    const int end = add_pool("192.168.0.100", "192.168.0.254", "br1");
    check_lanip_change_sync_dhcps(kNew, kMask, kOld, kMask, static_cast<unsigned>(start));
    EXPECT_EQ(ends(start), (Ends{"192.168.1.2", "192.168.1.200"}));
    check_lanip_change_sync_dhcps(ip("192.168.1.254"), kMask, kOld, kMask,
                                  static_cast<unsigned>(end));
    EXPECT_EQ(ends(end), (Ends{"192.168.1.100", "192.168.1.253"}));
    // The same for the pool of another mask.
    check_lanip_change_sync_dhcps(kOld, ip("255.255.255.128"), kOld, kMask,
                                  static_cast<unsigned>(end));
    EXPECT_EQ(ends(end), (Ends{"192.168.0.2", "192.168.0.126"}));
    check_lanip_change_sync_dhcps(ip("192.168.0.126"), ip("255.255.255.128"), kOld, kMask,
                                  static_cast<unsigned>(end));
    EXPECT_EQ(ends(end), (Ends{"192.168.0.1", "192.168.0.125"}));
}

TEST_F(LanMove, ThePoolIsCutByTheNewMaskAndTheLeasesByTheOldOne)
{
    const int id = add_pool("10.0.3.100", "10.0.4.200");
    config() = {{"dhcps.Staticnum", "1"}, {"dhcps.Staticip1", "10.0.3.7;m"}};
    const u32 wide = ip("255.255.0.0");
    // Both changed: the mask's rule has the last word about the pool.
    check_lanip_change_sync_dhcps(ip("172.16.9.1"), kMask, ip("10.0.0.1"), wide,
                                  static_cast<unsigned>(id));
    EXPECT_EQ(ends(id), (Ends{"172.16.9.2", "172.16.9.254"}));
    EXPECT_EQ(pool(id)[5], "255.255.255.0");
    // (0.0.3.7 kept by the old mask) + 172.16.9.0, byte by byte on a little-endian machine
    EXPECT_EQ(config()["dhcps.Staticip1"], "172.16.12.7;m");
    // Only the address: cut by the mask that stays.
    const int other = add_pool("10.0.3.100", "10.0.4.200", "br1");
    check_lanip_change_sync_dhcps(ip("172.16.9.1"), kMask, ip("10.0.0.1"), kMask,
                                  static_cast<unsigned>(other));
    EXPECT_EQ(ends(other), (Ends{"172.16.9.100", "172.16.9.200"}));
}

TEST_F(LanMove, AMaskWithoutHostsLeavesThePoolsEnds)
{
    const int id = add_pool();
    check_lanip_change_sync_dhcps(kNew, ip("255.255.255.255"), kOld, kMask,
                                  static_cast<unsigned>(id));
    EXPECT_EQ(pool(id), (Cells{"1", "br0", "192.168.0.100", "192.168.0.200", "192.168.1.1",
                               "255.255.255.255", "86400", "192.168.1.1", "9.9.9.9"}));
}

TEST_F(LanMove, StaticLeasesFollowOnlyForTheBridge)
{
    const int other = add_pool("192.168.0.10", "192.168.0.20", "br1");
    const int upper = add_pool("192.168.0.10", "192.168.0.20", "BR0");
    config() = {{"dhcps.Staticnum", "9"},
                {"dhcps.Staticip1", "192.168.0.50;02:00:00:00:00:01;printer"},
                {"dhcps.Staticip2", "192.168.0.51;02:00:00:00:00:02;living room"},
                {"dhcps.Staticip3", "192.168.0.52"},
                {"dhcps.Staticip4", ";02:00:00:00:00:04"},
                {"dhcps.Staticip5", ""},
                {"dhcps.Staticip6", "192.168.0.53;"},
                {"dhcps.Staticip7", "somewhere;02:00:00:00:00:07"},
                {"dhcps.Staticip9", "192.168.0.54;x"},
                {"dhcps.Staticip10", "192.168.0.55;beyond"}};
    test::Config expected = config();
    check_lanip_change_sync_dhcps(kNew, kMask, kOld, kMask, static_cast<unsigned>(other));
    EXPECT_EQ(config(), expected);
    check_lanip_change_sync_dhcps(kNew, kMask, kOld, kMask, static_cast<unsigned>(upper));
    expected["dhcps.Staticip1"] = "192.168.1.50;02:00:00:00:00:01;printer";
    expected["dhcps.Staticip2"] = "192.168.1.51;02:00:00:00:00:02;living";
    expected["dhcps.Staticip6"] = "192.168.1.53;";
    expected["dhcps.Staticip9"] = "192.168.1.54;x";
    EXPECT_EQ(config(), expected);
}

TEST_F(LanMove, APoolThatIsMissing)
{
    const std::string message =
        log_line(PROD_DBG_ERROR, "check_lanip_change_sync_dhcps", "ifname is not exist!");
    EXPECT_THAT(printed([] { check_lanip_change_sync_dhcps(kNew, kMask, kOld, kMask, 12345); }),
                Prints(message));
    EXPECT_THAT(printed([] { check_lanip_change_sync_dhcps(kNew, kMask, kOld, kMask, UINT_MAX); }),
                Prints(message));
}

TEST_F(LanMove, APoolWithoutAddresses)
{
    const int id = add(get_dhcps_list_table(),
                       {"0", "br0", "(none)", "", "(none)", "(none)", "0", "(none)", "(none)"});
    prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
    EXPECT_EQ(pool(id), (Cells{"0", "br0", "(none)", "", "192.168.1.1", "(none)", "0",
                               "192.168.1.1", "(none)"}));
}

// ---- keys -------------------------------------------------------------------------------------

TEST_F(LanMove, TheDmzHostsFollow)
{
    config() = {{"wans.flag", "5"},  {"wan1.dmzip", "192.168.0.66"},
                {"wan1.dmzen", "1"}, {"wan2.dmzip", "192.168.0.1"},
                {"wan2.dmzen", "1"}, {"wan3.dmzip", ""},
                {"wan3.dmzen", "1"}, {"wan5.dmzip", "none"},
                {"wan5.dmzen", "1"}, {"wan6.dmzip", "192.168.0.7"},
                {"wan6.dmzen", "1"}};
    test::Config expected = config();
    check_lanip_change_sync_dmz(kNew, kMask, kMask);
    expected["wan1.dmzip"] = "192.168.1.66";
    expected["wan2.dmzip"] = "192.168.1.1";
    expected["wan2.dmzen"] = "0";
    EXPECT_EQ(config(), expected);
    // A host that the smaller network has no room for.
    config() = {{"wans.flag", "1"}, {"wan1.dmzip", "192.168.3.66"}, {"wan1.dmzen", "1"}};
    check_lanip_change_sync_dmz(kNew, kMask, ip("255.255.0.0"));
    EXPECT_EQ(config()["wan1.dmzip"], "192.168.4.66");
    EXPECT_EQ(config()["wan1.dmzen"], "0");
}

TEST_F(LanMove, TheManagementAddressFollows)
{
    const auto moved = [](const char *address, const char *old_mask = "255.255.255.0") {
        config() = {{"lan.webip", address}, {"lan.webipen", "1"}};
        check_lanip_change_sync_lan_control(kNew, kMask, ip(old_mask));
        return std::pair{config()["lan.webip"], config()["lan.webipen"]};
    };
    EXPECT_EQ(moved("192.168.0.9"), (Ends{"192.168.1.9", "1"}));
    EXPECT_EQ(moved("192.168.0.1"), (Ends{"192.168.1.1", "1"}));  // the LAN's own stays allowed
    EXPECT_EQ(moved("0.0.0.0"), (Ends{"0.0.0.0", "1"}));
    EXPECT_EQ(moved(""), (Ends{"", "1"}));
    EXPECT_EQ(moved("any"), (Ends{"any", "1"}));
    EXPECT_EQ(moved("10.7.3.9", "255.0.0.0"), (Ends{"192.175.4.9", "0"}));
    config() = {};
    check_lanip_change_sync_lan_control(kNew, kMask, kMask);
    EXPECT_TRUE(config().empty());
}

TEST_F(LanMove, RulesAndLogServersFollow)
{
    const auto move = [](const std::string &list, void (*sync)(uint32_t, uint32_t, uint32_t)) {
        const std::string rest(300, 'r');
        config() = {{list + "num", "8"},
                    {list + "1", "192.168.0.20;1;100.64.1.9;wan1"},
                    {list + "2", "192.168.0.21;one two"},
                    {list + "3", "192.168.0.22;"},
                    {list + "4", "192.168.0.23"},
                    {list + "5", ";x"},
                    {list + "6", "nobody;x"},
                    {list + "7", "192.168.0.24;" + rest},
                    {list + "8", "192.168.0.25; \tx;y"},
                    {list + "9", "192.168.0.26;beyond"}};
        test::Config expected = config();
        expected[list + "1"] = "192.168.1.20;1;100.64.1.9;wan1";
        expected[list + "2"] = "192.168.1.21;one";
        expected[list + "7"] = "192.168.1.24;" + rest.substr(0, 255 - 13);
        expected[list + "8"] = "192.168.1.25;x;y";
        sync(kNew, kMask, kMask);
        EXPECT_EQ(config(), expected);
    };
    move("adv.snat.list", check_lanip_change_sync_nat);
    move("adv.logs.list", check_lanip_change_sync_logserver);
}

TEST_F(LanMove, CountsThatAreAbsurd)
{
    add_pool();
    for (const char *const count : {"2147483647", "-1", "", "x"}) {
        config() = {{"dhcps.Staticnum", count},
                    {"wans.flag", count},
                    {"adv.snat.listnum", count},
                    {"adv.logs.listnum", count},
                    {"wan64.dmzip", "192.168.0.3"},
                    {"wan65.dmzip", "192.168.0.3"},
                    {"dhcps.Staticip4096", "192.168.0.3;a"},
                    {"dhcps.Staticip4097", "192.168.0.3;a"},
                    {"adv.snat.list4096", "192.168.0.3;a"},
                    {"adv.snat.list4097", "192.168.0.3;a"},
                    {"adv.logs.list4096", "192.168.0.3;a"},
                    {"adv.logs.list4097", "192.168.0.3;a"}};
        prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1",
                                       "255.255.255.0");
        const bool large = count[0] == '2';
        EXPECT_EQ(config()["wan64.dmzip"], large ? "192.168.1.3" : "192.168.0.3");
        EXPECT_EQ(config()["wan65.dmzip"], "192.168.0.3");
        for (const std::string list : {"dhcps.Staticip", "adv.snat.list", "adv.logs.list"}) {
            EXPECT_EQ(config()[list + "4096"], large ? "192.168.1.3;a" : "192.168.0.3;a") << list;
            EXPECT_EQ(config()[list + "4097"], "192.168.0.3;a");
        }
    }
}

TEST_F(LanMove, ValuesOfAnyLength)
{
    add_pool();
    const std::string rest(2307 - 9, 'x');
    config() = {{"dhcps.Staticnum", "2"},
                {"dhcps.Staticip1", "1.2.3.45;" + rest},
                {"dhcps.Staticip2", "192.168.0.1;" + rest.substr(3)}};
    prod_check_change_lanip_handle("192.168.100.1", "255.255.255.0", "192.168.0.1",
                                   "255.255.255.0");
    // What the store would have to cut stays as it was.
    EXPECT_EQ(config()["dhcps.Staticip1"], "1.2.3.45;" + rest);
    EXPECT_EQ(config()["dhcps.Staticip2"], "192.168.0.1;" + rest.substr(3));
    {
        const test::EveryKeyReads hostile{test::longest_value('9')};
        config() = {{"dhcps.Staticnum", "1"},
                    {"wans.flag", "1"},
                    {"adv.snat.listnum", "1"},
                    {"adv.logs.listnum", "1"}};
        const test::Config before = config();
        prod_check_change_lanip_handle("192.168.100.1", "255.255.255.0", "192.168.0.1",
                                       "255.255.255.0");
        EXPECT_EQ(config(), before);
    }
    config() = {};
    const test::EveryKeyReads hostile{"192.168.0.5;" + std::string(2000, ';')};
    prod_check_change_lanip_handle("192.168.100.1", "255.255.255.0", "192.168.0.1",
                                   "255.255.255.0");
    EXPECT_EQ(config()["adv.snat.list1"].size(), 255U + 2);
}

// ---- rows -------------------------------------------------------------------------------------

TEST_F(LanMove, PortForwardingMixesTheByteOrders)
{
    db_table *const forwards = get_port_map_table();
    const int id = add(forwards, {"1", "192.168.0.100", "6", "1", "80", "8080", "web \"server\""});
    const int none = add(forwards, {"1", "(none)", "6", "1", "(none)", "", "none"});
    const int odd = add(forwards, {"0", "nobody", "6", "1", "1-2", "3,4", ""});
    check_lanip_change_sync_virtual(kNew, kMask, kMask);
    EXPECT_EQ(get(forwards, id),
              (Cells{"1", "192.1.168.192", "6", "1", "80", "8080", "web \"server\""}));
    EXPECT_EQ(get(forwards, none), (Cells{"1", "(none)", "6", "1", "(none)", "", "none"}));
    EXPECT_EQ(get(forwards, odd), (Cells{"0", "nobody", "6", "1", "1-2", "3,4", ""}));
    clear(forwards);
    check_lanip_change_sync_virtual(kNew, kMask, kMask);
    EXPECT_TRUE(column(forwards, 0).empty());
}

TEST_F(LanMove, BindingsFollow)
{
    db_table *const bindings = get_ip_mac_bind_table();
    add(bindings, {"192.168.0.10", "02:00:00:00:00:01", "it's \"mine\""});
    add(bindings, {"192.168.1.11", "02:00:00:00:00:02", "(none)"});
    add(bindings, {"192.168.0.11", "02:00:00:00:00:03", ""});
    add(bindings, {"(none)", "02:00:00:00:00:04", ""});
    check_lanip_change_sync_ipmac_bind(kNew, kMask, kMask);
    EXPECT_EQ(column(bindings, 0),
              (Cells{"192.168.1.10", "192.168.1.11", "192.168.0.11", "(none)"}));
    EXPECT_EQ(column(bindings, 1), (Cells{"02:00:00:00:00:01", "02:00:00:00:00:02",
                                          "02:00:00:00:00:03", "02:00:00:00:00:04"}));
    EXPECT_EQ(column(bindings, 2), (Cells{"it's \"mine\"", "(none)", "", ""}));
}

// What the handles are asked for, by way of their operations.
std::vector<std::string> asked;

TEST_F(LanMove, OnlyPortForwardingIsLocked)
{
    db_table *const forwards = get_port_map_table();
    db_table *const bindings = get_ip_mac_bind_table();
    add(forwards, {"1", "192.168.0.100", "6", "1", "80", "8080", "a"});
    add(forwards, {"1", "192.168.0.101", "6", "1", "80", "8080", "b"});
    add(bindings, {"192.168.0.10", "02:00:00:00:00:01", ""});
    const db_table operations[2] = {*forwards, *bindings};
    for (db_table *const table : {forwards, bindings}) {
        table->lock = [](db_table *) {
            asked.emplace_back("lock");
            return 0;
        };
        table->unlock = [](db_table *) {
            asked.emplace_back("unlock");
            return 0;
        };
        table->set = [](db_table *, int, const db_val_t *) {
            asked.emplace_back("set");
            return 0;
        };
    }
    check_lanip_change_sync_virtual(kNew, kMask, kMask);
    EXPECT_EQ(asked, (Cells{"lock", "set", "set", "unlock"}));
    asked.clear();
    check_lanip_change_sync_ipmac_bind(kNew, kMask, kMask);
    EXPECT_EQ(asked, (Cells{"set"}));
    *forwards = operations[0];
    *bindings = operations[1];
}

// ---- all of it --------------------------------------------------------------------------------

void fill_everything()
{
    add(get_port_map_table(), {"1", "192.168.0.100", "6", "1", "80", "8080", "a"});
    add(get_ip_mac_bind_table(), {"192.168.0.10", "02:00:00:00:00:01", ""});
    config() = {{"dhcps.Staticnum", "1"},
                {"dhcps.Staticip1", "192.168.0.50;m"},
                {"wans.flag", "2"},
                {"wan1.dmzip", "192.168.0.2"},
                {"wan2.dmzip", "192.168.0.1"},
                {"wan2.dmzen", "1"},
                {"lan.webip", "192.168.0.9"},
                {"adv.snat.listnum", "1"},
                {"adv.snat.list1", "192.168.0.4;r"},
                {"adv.logs.listnum", "1"},
                {"adv.logs.list1", "192.168.0.5;r"},
                {"lan.ip", "192.168.0.1"}};
}

TEST_F(LanMove, EverythingFollows)
{
    const int id = add_pool();
    fill_everything();
    prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
    EXPECT_EQ(ends(id), (Ends{"192.168.1.100", "192.168.1.200"}));
    EXPECT_EQ(column(get_port_map_table(), 1), (Cells{"192.1.168.192"}));
    EXPECT_EQ(column(get_ip_mac_bind_table(), 0), (Cells{"192.168.1.10"}));
    EXPECT_EQ(config(), (test::Config{{"dhcps.Staticnum", "1"},
                                      {"dhcps.Staticip1", "192.168.1.50;m"},
                                      {"wans.flag", "2"},
                                      {"wan1.dmzip", "192.168.1.2"},
                                      {"wan2.dmzip", "192.168.1.1"},
                                      {"wan2.dmzen", "0"},
                                      {"lan.webip", "192.168.1.9"},
                                      {"adv.snat.listnum", "1"},
                                      {"adv.snat.list1", "192.168.1.4;r"},
                                      {"adv.logs.listnum", "1"},
                                      {"adv.logs.list1", "192.168.1.5;r"},
                                      {"lan.ip", "192.168.0.1"}}));
    EXPECT_EQ(test::config_calls().commits, 0);
    // In that order.
    const std::vector<std::string> &keys = test::keys_read();
    const auto place = [&](const char *key) {
        return std::find(keys.begin(), keys.end(), key) - keys.begin();
    };
    EXPECT_LT(place("dhcps.Staticnum"), place("wans.flag"));
    EXPECT_LT(place("wans.flag"), place("lan.webip"));
    EXPECT_LT(place("lan.webip"), place("adv.snat.listnum"));
    EXPECT_LT(place("adv.snat.listnum"), place("adv.logs.listnum"));
}

/** While it lives, the operations of a table are noted in "asked", beside the keys that are read.
 */
class Watched
{
  public:
    explicit Watched(db_table *table) : table_(table), operations_(*table)
    {
        if (known.empty()) {
            asked.clear();
            keys_ = 0;
        }
        known[table] = operations_;
        table->find = [](db_table *of, int column, const void *value, int flags) {
            note(of, "find " + std::to_string(column) + " " + static_cast<const char *>(value) +
                         " " + std::to_string(flags));
            return known[of].find(of, column, value, flags);
        };
        table->get = [](db_table *of, int row) {
            note(of, "get");
            return known[of].get(of, row);
        };
        table->all = [](db_table *of, db_result *result) {
            note(of, "all");
            return known[of].all(of, result);
        };
        table->lock = [](db_table *of) {
            note(of, "lock");
            return known[of].lock(of);
        };
        table->unlock = [](db_table *of) {
            note(of, "unlock");
            return known[of].unlock(of);
        };
        table->set = [](db_table *of, int row, const db_val_t *values) {
            note(of, "set");
            return known[of].set(of, row, values);
        };
    }
    ~Watched()
    {
        *table_ = operations_;
        known.erase(table_);
    }
    Watched(const Watched &) = delete;
    Watched &operator=(const Watched &) = delete;

    /** Notes the keys that were read since. */
    static void note_keys()
    {
        for (const auto &keys = test::keys_read(); keys_ < keys.size(); ++keys_) {
            if (asked.empty() || asked.back() != keys[keys_]) {
                asked.push_back(keys[keys_]);
            }
        }
    }

  private:
    static void note(db_table *of, const std::string &what)
    {
        note_keys();
        asked.push_back(std::string{of == get_dhcps_list_table() ? "pools"
                                    : of == get_port_map_table() ? "forwards"
                                                                 : "bindings"} +
                        " " + what);
    }

    inline static std::map<db_table *, db_table> known;
    inline static std::size_t keys_ = 0;
    db_table *table_;
    db_table operations_;
};

TEST_F(LanMove, InThisOrder)
{
    add_pool();
    fill_everything();
    const Watched pools{get_dhcps_list_table()};
    const Watched forwards{get_port_map_table()};
    const Watched bindings{get_ip_mac_bind_table()};
    prod_check_change_lanip_handle("192.169.0.1", "255.255.0.0", "192.168.0.1", "255.255.255.0");
    Watched::note_keys();
    // Each write of a key reads it first. The pool is stored for the address and for the mask.
    EXPECT_EQ(asked, (Cells{"pools find 1 br0 0", "pools get",       "pools set",
                            "dhcps.Staticnum",    "dhcps.Staticip1", "pools set",
                            "wans.flag",          "wan1.dmzip",      "wan2.dmzip",
                            "wan2.dmzen",         "lan.webip",       "forwards all",
                            "forwards lock",      "forwards set",    "forwards unlock",
                            "adv.snat.listnum",   "adv.snat.list1",  "adv.logs.listnum",
                            "adv.logs.list1",     "bindings all",    "bindings set"}));
    asked.clear();
    prod_check_change_lanip_handle("192.169.0.1", "255.255.255.0", "192.169.0.1", "255.255.0.0");
    Watched::note_keys();
    EXPECT_EQ(asked, (Cells{"pools find 1 br0 0", "pools get", "pools set"}));
}

TEST_F(LanMove, TheAddressFirstAndThenTheMask)
{
    const int id = add_pool();
    db_table *const pools = get_dhcps_list_table();
    const db_table operations = *pools;
    asked.clear();
    pools->set = [](db_table *, int, const db_val_t *values) {
        asked.insert(asked.end(), {values[2].s, values[3].s, values[4].s, values[5].s});
        return 0;
    };
    check_lanip_change_sync_dhcps(kNew, ip("255.255.0.0"), kOld, kMask, static_cast<unsigned>(id));
    *pools = operations;
    EXPECT_EQ(asked, (Cells{"192.168.0.100", "192.168.0.200", "192.168.1.1", "255.255.255.0",
                            "192.168.0.1", "192.168.255.254", "192.168.1.1", "255.255.0.0"}));
}

TEST_F(LanMove, WithoutAPoolOfTheBridgeNothingFollows)
{
    const int other = add_pool("192.168.0.10", "192.168.0.20", "br1");
    fill_everything();
    const test::Config before = config();
    EXPECT_EQ(printed([] {
                  prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1",
                                                 "255.255.255.0");
              }),
              "");
    EXPECT_EQ(config(), before);
    EXPECT_EQ(ends(other), (Ends{"192.168.0.10", "192.168.0.20"}));
    EXPECT_EQ(column(get_port_map_table(), 1), (Cells{"192.168.0.100"}));
    EXPECT_EQ(column(get_ip_mac_bind_table(), 0), (Cells{"192.168.0.10"}));
    EXPECT_TRUE(test::keys_read().empty());
}

TEST_F(LanMove, OnlyAnotherTextIsAnotherAddress)
{
    const int id = add_pool();
    fill_everything();
    const test::Config before = config();
    prod_check_change_lanip_handle("192.168.0.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
    EXPECT_EQ(config(), before);
    // 16 characters are compared; the pool looks at the address itself.
    prod_check_change_lanip_handle("192.168.0.1    and this", "255.255.255.0",
                                   "192.168.0.1    and that", "255.255.255.0");
    EXPECT_EQ(config(), before);
    EXPECT_EQ(ends(id), (Ends{"192.168.0.100", "192.168.0.200"}));
    config()["wan1.dmzip"] = "192.168.9.2";
    prod_check_change_lanip_handle("192.168.0.1    a", "255.255.255.0", "192.168.0.1    b",
                                   "255.255.255.0");
    EXPECT_EQ(config()["wan1.dmzip"], "192.168.0.2");
}

TEST_F(LanMove, NullArguments)
{
    const int id = add_pool();
    for (int i = 0; i < 4; ++i) {
        const char *texts[] = {"192.168.1.1", "255.255.255.0", "192.168.0.1", "255.255.255.0"};
        texts[i] = nullptr;
        prod_check_change_lanip_handle(texts[0], texts[1], texts[2], texts[3]);
    }
    EXPECT_EQ(ends(id), (Ends{"192.168.0.100", "192.168.0.200"}));
}

// ---- faults -----------------------------------------------------------------------------------

TEST_F(LanMove, SettingsThatCannotBeStoredArePassedOver)
{
    const int id = add_pool();
    fill_everything();
    test::config_faults().writes = true;
    prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
    EXPECT_EQ(ends(id), (Ends{"192.168.1.100", "192.168.1.200"}));
    EXPECT_EQ(column(get_ip_mac_bind_table(), 0), (Cells{"192.168.1.10"}));
    EXPECT_EQ(config()["adv.logs.list1"], "192.168.0.5;r");
}

TEST_F(LanMove, ADatabaseThatIsNoneMovesNothing)
{
    add_pool();
    fill_everything();
    const test::Config before = config();
    test::write_text(kFile, std::string(5000, 'x'));
    prod_check_change_lanip_handle("192.168.1.1", "255.255.255.0", "192.168.0.1", "255.255.255.0");
    EXPECT_EQ(config(), before);
    EXPECT_THAT(
        printed([] { check_lanip_change_sync_dhcps(kNew, kMask, kOld, kMask, 1); }),
        Prints(log_line(PROD_DBG_ERROR, "check_lanip_change_sync_dhcps", "ifname is not exist!")));
    check_lanip_change_sync_virtual(kNew, kMask, kMask);
    check_lanip_change_sync_ipmac_bind(kNew, kMask, kMask);
    test::remove_all(kFile);
}

TEST_F(LanMove, KilledAnywhereItLeavesWholeRows)
{
    constexpr int kRows = 150;
    db_table *const forwards = get_port_map_table();
    db_table *const bindings = get_ip_mac_bind_table();
    const int id = add_pool();
    forwards->lock(forwards);
    for (int i = 0; i < kRows; ++i) {
        const std::string n = std::to_string(i);
        add(forwards, {"1", "192.168.0." + n, "6", "1", n, n, "forward " + n});
        if (i % 10 == 0) {
            add(bindings, {"192.168.0." + n, "02:" + n, "binding " + n});
        }
    }
    forwards->unlock(forwards);
    int different_forwards = 0;
    int cut_short = 0;
    unsigned int random = 1;
    for (int round = 0; round < 80; ++round) {
        {
            test::Child mover{[](test::Child &child) {
                child.tell();
                for (int i = 0;; ++i) {
                    const bool back = i % 2 != 0;
                    const char *const there = "192.168.1.1";
                    const char *const here = "192.168.0.1";
                    prod_check_change_lanip_handle(back ? here : there, "255.255.255.0",
                                                   back ? there : here, "255.255.255.0");
                }
            }};
            mover.wait_until_told();
            random = random * 1103515245 + 12345;
            // Longer and longer, so that a slow machine gets as far, too.
            usleep((500 + random / 65536 % 6000) *
                   static_cast<useconds_t>((1 + round / 8) * test::slowdown()));
        }
        cut_short += test::exists(std::string{kFile} + "-journal") ? 1 : 0;

        const Cells moved = pool(id);
        const std::string net = moved[4].substr(0, 10);
        EXPECT_TRUE(net == "192.168.0." || net == "192.168.1.") << net;
        EXPECT_EQ(moved, (Cells{"1", "br0", net + "100", net + "200", net + "1", "255.255.255.0",
                                "86400", net + "1", "9.9.9.9"}));
        // The forwards are one series: all of them have the same network.
        const Cells hosts = column(forwards, 1);
        ASSERT_EQ(hosts.size(), std::size_t{kRows});
        const Cells names = column(forwards, 6);
        for (std::size_t i = 0; i < kRows; ++i) {
            EXPECT_EQ(names[i], "forward " + std::to_string(i));
            // All as they were made, or what became of them: one text for all.
            EXPECT_EQ(hosts[i],
                      hosts[0] == "192.168.0.0" ? "192.168.0." + std::to_string(i) : hosts[0]);
        }
        different_forwards += hosts[0] != "192.168.0.0" ? 1 : 0;
        for (const std::string &remark : column(bindings, 2)) {
            EXPECT_EQ(remark.rfind("binding ", 0), 0U);
        }
        if (HasFailure()) {
            break;
        }
    }
    EXPECT_GT(different_forwards, 0);
    EXPECT_GT(cut_short, 0);
}

}  // namespace
