// SPDX-License-Identifier: MIT
// The access-controller policies: the database, its tables, and the files that their rows travel
// in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "prod_common_cfm.h"
#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/sql.hpp"

using test::exists;
using test::literally;
using test::printed;
using test::Prints;
using test::read_text;
using test::Rows;
using test::write_text;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace
{

using Statements = std::vector<std::string>;

/** What sqlite3_exec() is asked to run while it is set. */
Statements *asked;

/** Answers instead of SQLite while it is set. */
std::function<int(const std::string &, char **)> answer;

}  // namespace

extern "C" int sqlite3_exec(sqlite3 *database, const char *sql,
                            int (*callback)(void *, int, char **, char **), void *argument,
                            char **message)
{
    static const auto real = test::next(sqlite3_exec, "sqlite3_exec");
    static int depth = 0;  // SQLite has requests of its own to itself
    if (depth > 0) {
        return real(database, sql, callback, argument, message);
    }
    if (asked != nullptr) {
        asked->push_back(sql);
    }
    if (answer) {
        return answer(sql, message);
    }
    ++depth;
    const int rc = real(database, sql, callback, argument, message);
    --depth;
    return rc;
}

namespace
{

constexpr const char *kFolder = "/cfg/s_brcmnand";
constexpr const char *kDatabase = "/cfg/s_brcmnand/Dcg_database.db";
constexpr const char *kTemplate = "/webroot/Dcg_database.db";

constexpr const char *kWireless = "/etc/wl_policy.cfg";
constexpr const char *kRadio = "/etc/rf_policy.cfg";
constexpr const char *kReboot = "/etc/reboot_policy.cfg";
constexpr const char *kDeploy = "/etc/wl_deploy_policy.cfg";
constexpr const char *kVlan = "/etc/qvlan_policy.cfg";
const Statements kFiles = {kWireless, kRadio, kReboot, kDeploy, kVlan};

/** The tables as they are in databases on devices, in the order of their creation. */
const std::pair<std::string, std::string> kSchema[] = {
    {"wl_radio_policy",
     "CREATE TABLE wl_radio_policy("
     "enable char(1),name char(34),RF_basic_setting_24g char(1),"
     "expand_channel_24g char(1),        country_code_24g char(1),"
     "network_mode_24g char(1), bandwidth_24g char(1),TXpower_24g char(1),"
     "        channel_24g char(1),RF_basic_setting_5g char(1),"
     "expand_channel_5g char(1),country_code_5g char(1),"
     "        network_mode_5g char(1), bandwidth_5g char(1),TXpower_5g char(1),"
     "channel_5g char(1),        rssi_24g int,rssi_5g int,sta_timeout_24g int,"
     "sta_timeout_5g int"
     ")"},
    {"wl_deploy_policy",
     "CREATE TABLE wl_deploy_policy("
     "enable interger,name char(64),penetration interger,deploy interger,"
     "drivpwr interger,        beacon interger, lead_code interger, short_gi interger,"
     " force_speed interger, suppo_speed interger"
     ")"},
    {"wl_basic_policy",
     "CREATE TABLE wl_basic_policy("
     "enable char(1),name char(34),ssid_id char(1),wl_basic_set char(1),"
     "        client_number char(1),vlan_id smallint,ssid char(64),"
     "ssid_length char(1),        secure_mode char(1),auth_type char(1),key char(65),"
     "key_length char(1),        key_time int,radius_server interger,"
     "radius_port smallint,        mult2uni_en char(1),broad_reply_en char(1),"
     "cn_format char(1),qos_type char(1),auto_allBandwidth int,auto_up_max int,"
     "        auto_down_max int,hand_ssid_up_max int,hand_ssid_down_max int,"
     "hand_user_up_max int,hand_user_down_max int"
     ")"},
    {"reboot_policy",
     "CREATE TABLE reboot_policy("
     "enable char(1), led_status char(1),name char(64),reboot_en char(1),"
     "        reboot_type char(1),time smallint, recog_en char(1), broad_en char(1)"
     ")"},
    {"qvlan_policy",
     "CREATE TABLE qvlan_policy("
     "enable interger ,name char(32),open_qvlan interger,qvlan_pvid interger,"
     "manage_vlan interger         ,lan0_vlanid interger,lan1_vlanid interger,"
     "lan2_vlanid interger,qvlan_truck_port char(10)"
     ")"}};

Rows sql(const std::string &statements, const char *path = kDatabase)
{
    return test::sql(path, statements);
}

/** A reboot policy as SQL values, with that name. */
std::string reboot_values(const std::string &name)
{
    return "(1,0,'" + name + "',1,2,300,0,1)";
}

std::string reboot_record(const std::string &name)
{
    return "\r\nreboot_policy:enable=1\tled_status=0\tname=" + name +
           "\treboot_en=1\treboot_type=2\ttime=300\trecog_en=0\tbroad_en=1";
}

class Policies : public testing::Test
{
  protected:
    Policies() { clear(); }
    ~Policies() override
    {
        asked = nullptr;
        answer = nullptr;
        clear();
    }

    static void clear()
    {
        test::remove_all(kFolder);
        test::remove_all("/webroot");
        for (const std::string &file : kFiles) {
            test::remove_all(file);
        }
        mkdir("/webroot", 0755);
        mkdir(kFolder, 0755);
    }

    /** A database with its tables and no rows. */
    static void make_database(const char *path = kDatabase)
    {
        const test::Database db = test::database(path);
        EXPECT_EQ(sqlite_create_policy_table(db.get()), PAV_RET_OK);
    }

    /** What the library asks SQLite for while @p code runs. */
    static Statements statements_of(const std::function<void()> &code)
    {
        Statements all;
        asked = &all;
        code();
        asked = nullptr;
        return all;
    }

    static std::string upload()
    {
        return printed([] { EXPECT_EQ(upload_ac_policy(), PAV_RET_OK); });
    }

    static std::string error_line(const std::string &text, int code)
    {
        return "upload_ac_policy,[0-9]+,errmsg=" + literally(text) +
               ",ret=" + std::to_string(code) + "\n";
    }
};

// ---- tables ----------------------------------------------------------------------------------

TEST_F(Policies, TheSchemaIsTheOneInTheField)
{
    make_database();
    for (const auto &[table, statement] : kSchema) {
        EXPECT_THAT(sql("select sql from sqlite_master where name='" + table + "'"),
                    ElementsAre(statement));
    }
    EXPECT_THAT(sql("select count(*) from sqlite_master"), ElementsAre("5"));
}

TEST_F(Policies, EachCreatesItsTableInAnOrderOfItsOwn)
{
    const std::pair<PAV_RET (*)(sqlite3 *), std::size_t> kCreators[] = {
        {sqlite_create_table_rf_policy, 0},    {sqlite_create_table_wl_deploy_policy, 1},
        {sqlite_create_table_wl_policy, 2},    {sqlite_create_table_reboot_policy, 3},
        {sqlite_create_table_qvlan_policy, 4},
    };
    Statements wanted;
    for (const auto &[create, place] : kCreators) {
        test::remove_all(kDatabase);
        const test::Database db = test::database(kDatabase);
        std::string statement = kSchema[place].second;
        statement.replace(0, sizeof("CREATE TABLE ") - 1, "create table if not exists ");
        EXPECT_THAT(statements_of([&] { EXPECT_EQ(create(db.get()), PAV_RET_OK); }),
                    ElementsAre(statement));
        EXPECT_THAT(sql("select name from sqlite_master"), ElementsAre(kSchema[place].first));
        wanted.push_back(statement);
    }
    test::remove_all(kDatabase);
    EXPECT_EQ(statements_of([] { make_database(); }), wanted);
}

TEST_F(Policies, CreatingTwiceIsNoError)
{
    make_database();
    sql("insert into reboot_policy values" + reboot_values("night"));
    EXPECT_EQ(printed([] { make_database(); }), "");
    EXPECT_THAT(sql("select name from reboot_policy"), ElementsAre("night"));
}

TEST_F(Policies, AFailureToCreateIsToldAndOnlyOneFunctionReturnsIt)
{
    answer = [](const std::string &, char **message) {
        *message = sqlite3_mprintf("out of luck");
        return SQLITE_ERROR;
    };
    const struct {
        PAV_RET (*create)(sqlite3 *);
        const char *name;
        PAV_RET result;
    } kCreators[] = {
        {sqlite_create_table_rf_policy, "sqlite_create_table_rf_policy", PAV_RET_OK},
        {sqlite_create_table_wl_policy, "sqlite_create_table_wl_policy", PAV_RET_OK},
        {sqlite_create_table_reboot_policy, "sqlite_create_table_reboot_policy", PAV_RET_OK},
        {sqlite_create_table_qvlan_policy, "sqlite_create_table_qvlan_policy", PAV_RET_OK},
        {sqlite_create_table_wl_deploy_policy, "sqlite_create_table_wl_deploy_policy",
         PAV_RET_ERROR},
    };
    const auto complaint = [](const char *name, int code, const std::string &reason) {
        return literally(std::string{"Error->src/prod_common_cfm.c: "} + name) + "\\([0-9]+\\)" +
               literally("--Create database failue ,Error code:" + std::to_string(code) +
                         ",Reason:" + reason + "\n");
    };
    const test::Database db = test::database(kDatabase);
    std::string all;
    for (const auto &creator : kCreators) {
        const std::string text =
            printed([&] { EXPECT_EQ(creator.create(db.get()), creator.result); });
        EXPECT_THAT(text, Prints(complaint(creator.name, SQLITE_ERROR, "out of luck")));
    }
    EXPECT_EQ(printed([&] { EXPECT_EQ(sqlite_create_policy_table(db.get()), PAV_RET_OK); }).size(),
              printed([&] {
                  for (const auto &creator : kCreators) {
                      creator.create(db.get());
                  }
              }).size());

    answer = nullptr;  // SQLite itself has no text when there is no database
    for (const auto &creator : kCreators) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(creator.create(nullptr), creator.result); }),
                    Prints(complaint(creator.name, SQLITE_MISUSE, "(null)")));
    }
}

TEST_F(Policies, ATableThatAlreadyExistsIsNoFailureToOneFunction)
{
    answer = [](const std::string &, char **message) {
        *message = sqlite3_mprintf("table x already exists");
        return SQLITE_ERROR;
    };
    const test::Database db = test::database(kDatabase);
    EXPECT_EQ(
        printed([&] { EXPECT_EQ(sqlite_create_table_wl_deploy_policy(db.get()), PAV_RET_OK); }),
        "");
    EXPECT_THAT(printed([&] { sqlite_create_table_rf_policy(db.get()); }),
                HasSubstr("Reason:table x already exists\n"));
}

// ---- rows to files ---------------------------------------------------------------------------

using Callback = int (*)(void *, int, char **, char **);

int call(Callback callback, std::vector<const char *> names, std::vector<const char *> values)
{
    return callback(nullptr, static_cast<int>(names.size()), const_cast<char **>(values.data()),
                    const_cast<char **>(names.data()));
}

const struct {
    Callback callback;
    const char *file;
    const char *prefix;
} kCallbacks[] = {
    {wl_policy_callback, kWireless, "wl_policy:"},
    {rf_policy_callback, kRadio, "rf_policy:"},
    {reboot_policy_callback, kReboot, "reboot_policy:"},
    {wl_deploy_policy_callback, kDeploy, "wl_deploy_policy:"},
    {qvlan_policy_callback, kVlan, "qvlan_policy:"},
};

TEST_F(Policies, ARowIsAppendedAsARecord)
{
    for (const auto &kind : kCallbacks) {
        const std::string prefix = std::string{"\r\n"} + kind.prefix;
        EXPECT_EQ(call(kind.callback, {"enable", "name", "time"}, {"1", "night shift", nullptr}),
                  0);
        EXPECT_EQ(read_text(kind.file), prefix + "enable=1\tname=night shift\ttime=(null)");
        EXPECT_EQ(call(kind.callback, {"enable"}, {""}), 0);
        EXPECT_EQ(call(kind.callback, {}, {}), 0);
        EXPECT_EQ(read_text(kind.file),
                  prefix + "enable=1\tname=night shift\ttime=(null)" + prefix + "enable=" + prefix);
    }
    EXPECT_EQ(kFiles.size(), 5U);
}

TEST_F(Policies, ItemsAndRecordsAreCut)
{
    const std::string text(3000, 'v');
    EXPECT_EQ(call(reboot_policy_callback, {"a", "b"}, {text.c_str(), "1"}), 0);
    EXPECT_EQ(read_text(kReboot), "\r\nreboot_policy:a=" + text.substr(0, 253) + "\tb=1");

    const std::vector<const char *> names(9, "a");
    const std::vector<const char *> values(9, text.c_str());
    test::remove_all(kReboot);
    EXPECT_EQ(call(reboot_policy_callback, names, values), 0);
    const std::string record = read_text(kReboot);
    EXPECT_EQ(record.size(), 2U + 2047U);
    EXPECT_THAT(record, EndsWith("\ta=" + text.substr(0, 239)));
}

TEST_F(Policies, ACallbackWithoutAFileOrARow)
{
    mkdir(kVlan, 0755);
    EXPECT_EQ(call(qvlan_policy_callback, {"a"}, {"1"}), -1);
    char *row[] = {const_cast<char *>("a")};
    EXPECT_EQ(reboot_policy_callback(nullptr, 1, nullptr, row), -1);
    EXPECT_EQ(reboot_policy_callback(nullptr, 1, row, nullptr), -1);
    EXPECT_FALSE(exists(kReboot));
}

TEST_F(Policies, ACallbackOnAFullMediumIsNoFailure)
{
    const test::MountedFolder full{"/etc"};
    write_text(kReboot, "");
    full.fill();
    EXPECT_EQ(call(reboot_policy_callback, {"a"}, {"1"}), 0);
    EXPECT_EQ(read_text(kReboot), "");
}

#ifdef OWN_ALLOCATOR
TEST_F(Policies, ACallbackWithoutMemory)
{
    {
        const test::WithoutMemory refused{2048, SIZE_MAX};
        EXPECT_EQ(call(reboot_policy_callback, {"a"}, {"1"}), -1);
    }
    EXPECT_FALSE(exists(kReboot));
}
#endif

TEST_F(Policies, DownloadWritesEveryRow)
{
    make_database();
    sql("insert into wl_basic_policy(name,ssid,auth_type) values('w','Bob''s home',NULL)");
    sql("insert into wl_radio_policy(name,channel_24g) values('r',6)");
    sql("insert into reboot_policy values" + reboot_values("night") + "," + reboot_values("noon"));
    sql("insert into wl_deploy_policy values(1,'d',2,3,4,5,6,7,8,9)");
    sql("insert into qvlan_policy values(1,'v',1,10,20,30,40,50,'lan0,lan1')");

    const test::RecordedCommands commands;
    const Statements asked_for =
        statements_of([] { EXPECT_EQ(prod_download_ac_policy(), PAV_RET_OK); });
    EXPECT_THAT(asked_for,
                ElementsAre("select * from wl_basic_policy", "select * from wl_radio_policy",
                            "select * from reboot_policy", "select * from wl_deploy_policy",
                            "select * from qvlan_policy"));
    EXPECT_THAT(commands.all(), IsEmpty());
    EXPECT_EQ(read_text(kReboot), reboot_record("night") + reboot_record("noon"));
    EXPECT_EQ(read_text(kDeploy),
              "\r\nwl_deploy_policy:enable=1\tname=d\tpenetration=2\tdeploy=3\tdrivpwr=4\tbeacon=5"
              "\tlead_code=6\tshort_gi=7\tforce_speed=8\tsuppo_speed=9");
    EXPECT_EQ(read_text(kVlan),
              "\r\nqvlan_policy:enable=1\tname=v\topen_qvlan=1\tqvlan_pvid=10\tmanage_vlan=20"
              "\tlan0_vlanid=30\tlan1_vlanid=40\tlan2_vlanid=50\tqvlan_truck_port=lan0,lan1");
    const std::string wireless = read_text(kWireless);
    EXPECT_THAT(wireless, StartsWith("\r\nwl_policy:enable=(null)\tname=w\tssid_id=(null)\t"));
    EXPECT_THAT(wireless, HasSubstr("\tssid=Bob's home\t"));
    EXPECT_THAT(wireless, EndsWith("\thand_user_down_max=(null)"));
    EXPECT_EQ(std::count(wireless.begin(), wireless.end(), '\t'), 25);
    const std::string radio = read_text(kRadio);
    EXPECT_THAT(radio, HasSubstr("\tchannel_24g=6\t"));
    EXPECT_EQ(std::count(radio.begin(), radio.end(), '\t'), 19);
}

TEST_F(Policies, DownloadOfAnEmptyTableMakesNoFile)
{
    make_database();
    sql("insert into qvlan_policy(name) values('v')");
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_OK);
    for (const std::string &file : kFiles) {
        EXPECT_EQ(exists(file), file == kVlan) << file;
    }
}

TEST_F(Policies, DownloadAppends)
{
    make_database();
    sql("insert into reboot_policy values" + reboot_values("night"));
    write_text(kReboot, "old");
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_OK);
    EXPECT_EQ(read_text(kReboot), "old" + reboot_record("night"));
}

TEST_F(Policies, DownloadTakesTheFactoryTemplateWhenThereIsNoDatabase)
{
    make_database(kTemplate);
    sql("insert into reboot_policy values" + reboot_values("factory"), kTemplate);
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_OK);
    EXPECT_EQ(read_text(kReboot), reboot_record("factory"));
    EXPECT_EQ(read_text(kDatabase), read_text(kTemplate));

    test::remove_all(kDatabase);
    const test::RecordedCommands commands;
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR) << "there is no table";
    EXPECT_THAT(commands.all(), ElementsAre("cp /webroot/Dcg_database.db /cfg/s_brcmnand"));
}

TEST_F(Policies, WhatADownloadMadeInVainIsRemoved)
{
    // Without a template there is a database without tables, which an upload could not fill.
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR);
    EXPECT_FALSE(exists(kDatabase));
    write_text(kReboot, reboot_record("night"));
    EXPECT_THAT(upload(), StartsWith("policy database file isn't exist! Create it now.\n"));
    EXPECT_THAT(sql("select name from reboot_policy"), ElementsAre("night"));

    // Half a copy gives way to a whole one.
    make_database(kTemplate);
    sql("insert into reboot_policy values" + reboot_values("factory"), kTemplate);
    test::remove_all(kDatabase);
    test::remove_all(kReboot);
    {
        const std::string whole = read_text(kTemplate);
        const test::RecordedCommands killed{[&](const std::string &) {
            write_text(kDatabase, whole.substr(0, whole.size() / 2));
            return SIGKILL;
        }};
        EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR);
    }
    EXPECT_FALSE(exists(kDatabase));
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_OK);
    EXPECT_EQ(read_text(kReboot), reboot_record("factory"));

    // What was there is never removed.
    sql("drop table qvlan_policy");
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR);
    EXPECT_THAT(sql("select name from reboot_policy"), ElementsAre("factory"));
}

TEST_F(Policies, DownloadStopsAtTheFirstTableThatCannotBeRead)
{
    make_database();
    sql("insert into wl_basic_policy(name) values('w')");
    sql("insert into qvlan_policy(name) values('v')");
    sql("drop table reboot_policy");
    const int before = test::open_descriptors();
    EXPECT_EQ(printed([] { EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR); }), "");
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_TRUE(exists(kWireless));
    EXPECT_FALSE(exists(kVlan));
}

TEST_F(Policies, DownloadWithoutAFolderOrWithARefusingCallback)
{
    test::remove_all(kFolder);
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR);
    mkdir(kFolder, 0755);
    make_database();
    sql("insert into wl_basic_policy(name) values('w')");
    mkdir(kWireless, 0755);
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR);
}

// ---- files to values -------------------------------------------------------------------------

/** What a reboot policy file's text makes. */
std::string assembled(const std::string &text, const char *prefix = "reboot_policy:")
{
    write_text(kReboot, text);
    std::string out(PROD_POLICY_TEXT_SIZE, '\0');
    assem_policy_data(kReboot, prefix, out.data());
    return out.c_str();
}

TEST_F(Policies, RecordsAsValues)
{
    const std::map<std::string, std::string> kTexts = {
        {"", ""},
        {"\r\nreboot_policy:enable=1\tname=night", "('1','night'),"},
        {"reboot_policy:a=1\n\nreboot_policy:a=2", "('1'),('2'),"},
        {"rf_policy:a=1\nreboot_policy:a=2\nother", "('2'),"},
        {"behind the prefix reboot_policy:a=1", "('1'),"},
        // Cut at the first CR and at the first LF.
        {"reboot_policy:a=1\rb=2\tc=3\nreboot_policy:a=4\n\r", "('1'),('4'),"},
        // Blanks.
        {"reboot_policy:a=one two\tb=  three four\tc=   ", "('one','three',''),"},
        {"reboot_policy:a=\vx\fy\t b=1", "('x','1'),"},
        // Empty values, and items that vanish.
        {"reboot_policy:a=\tb=2\tc=", "('','2',''),"},
        {"reboot_policy:a=1\t\t\tb=2\t", "('1','2'),"},
        {"\treboot_policy:a=1", "('1'),"},
        // Of an item the first "=" counts.
        {"reboot_policy:a=b=c", "('b=c'),"},
        // Items that are none.
        {"reboot_policy:\nreboot_policy:a=1", "('1'),"},
        {"reboot_policy:a\tb=1\nreboot_policy:a=1", "('1'),"},
        {"reboot_policy:a=1\nreboot_policy:a=2\tb\tc=3\nreboot_policy:a=4", "('1'),('4'),"},
        {"reboot_policy:a=1\t=2\nreboot_policy:a=4", "('4'),"},
        {"=reboot_policy:1\n", ""},
        // Quotes.
        {"reboot_policy:a=Bob's\tb='", "('Bob''s',''''),"},
        {"reboot_policy:a=');drop table reboot_policy;--", "(''');drop'),"},
    };
    for (const auto &[text, values] : kTexts) {
        EXPECT_EQ(assembled(text), values) << text;
    }
}

TEST_F(Policies, LongValuesAndQuotes)
{
    const std::string quotes(300, '\'');
    EXPECT_EQ(assembled("reboot_policy:a=" + quotes), "('" + std::string(510, '\'') + "'),");
    // Four values of 250 quotes fit a line of 1023 characters, and make one of 2000.
    std::string line = "reboot_policy:";
    std::string wanted = "(";
    for (int i = 0; i < 3; ++i) {
        line += "a=" + quotes.substr(0, 250) + "\t";
        wanted += "'" + std::string(500, '\'') + "',";
    }
    wanted.back() = ')';
    EXPECT_EQ(assembled(line), wanted + ",");
    EXPECT_EQ(assembled("reboot_policy:" + std::string(400, 'n') + "=1"), "('1'),");
}

TEST_F(Policies, OfALineSomeCharactersCountAtATime)
{
    const std::string longest =
        "reboot_policy:a=" + std::string(200, 'v') + "\tb=" + std::string(1023 - 219, 'w');
    EXPECT_EQ(assembled(longest + "\nreboot_policy:a=1"),
              "('" + std::string(200, 'v') + "','" + std::string(255, 'w') + "'),('1'),");
    // What is beyond comes as a line of its own.
    EXPECT_EQ(assembled(longest + "reboot_policy:a=1"),
              "('" + std::string(200, 'v') + "','" + std::string(255, 'w') + "'),('1'),");
    EXPECT_EQ(assembled(longest.substr(0, 1018) + "reboot_policy:a=1").find("'1'"),
              std::string::npos)
        << "a prefix in two halves is none";
}

TEST_F(Policies, ValuesAreAppendedWhileTheyFit)
{
    write_text(kReboot, "reboot_policy:a=12\nreboot_policy:a=1\nreboot_policy:a=2");
    const std::size_t room = sizeof("('1'),") - 1;
    std::string out(PROD_POLICY_TEXT_SIZE, '\0');
    const std::string before(PROD_POLICY_TEXT_SIZE - 1 - room, 'x');
    before.copy(out.data(), before.size());
    out += "beyond";
    assem_policy_data(kReboot, "reboot_policy:", out.data());
    EXPECT_EQ(std::string{out.c_str()}, before + "('1'),");
    EXPECT_THAT(out, EndsWith(std::string{"\0beyond", 7}));

    // A text that fills the buffer without an end is left alone.
    std::string full(PROD_POLICY_TEXT_SIZE, 'x');
    assem_policy_data(kReboot, "reboot_policy:", full.data());
    EXPECT_EQ(full, std::string(PROD_POLICY_TEXT_SIZE, 'x'));
}

TEST_F(Policies, WithoutAFileNothingIsAppended)
{
    char out[PROD_POLICY_TEXT_SIZE] = "before";
    assem_policy_data("/etc/nonesuch", "reboot_policy:", out);
    EXPECT_STREQ(out, "before");
    write_text(kReboot, "reboot_policy:a=1");
    assem_policy_data(nullptr, "reboot_policy:", out);
    assem_policy_data(kReboot, nullptr, out);
    assem_policy_data(kReboot, "reboot_policy:", nullptr);
    EXPECT_STREQ(out, "before");
    write_text(kReboot, std::string{"reboot_policy:a=1\0\tb=2\n", 23});
    assem_policy_data(kReboot, "reboot_policy:", out);
    EXPECT_STREQ(out, "before('1'),") << "a line ends at a NUL";
}

// ---- files to database -----------------------------------------------------------------------

TEST_F(Policies, UploadIntoAMissingDatabase)
{
    write_text(kReboot, reboot_record("night") + reboot_record("noon"));
    std::string text;
    const Statements asked_for = statements_of([&] { text = upload(); });
    ASSERT_EQ(asked_for.size(), 10U);
    EXPECT_EQ(asked_for[5], "insert into wl_basic_policy value");
    EXPECT_EQ(asked_for[6],
              "insert into reboot_policy values('1','0','night','1','2','300','0','1'),"
              "('1','0','noon','1','2','300','0','1')");
    EXPECT_EQ(asked_for[7], "insert into wl_radio_policy value");
    EXPECT_EQ(asked_for[8], "insert into wl_deploy_policy value");
    EXPECT_EQ(asked_for[9], "insert into qvlan_policy value");
    const std::string empty = error_line("near \"value\": syntax error", 1);
    EXPECT_THAT(text, Prints("policy database file isn't exist! Create it now\\.\n" + empty +
                             empty + empty + empty));
    EXPECT_THAT(sql("select * from reboot_policy"),
                ElementsAre("1|0|night|1|2|300|0|1", "1|0|noon|1|2|300|0|1"));
    EXPECT_THAT(sql("select count(*) from sqlite_master"), ElementsAre("5"));
}

TEST_F(Policies, UploadReplacesWhatIsThere)
{
    make_database();
    sql("insert into reboot_policy values" + reboot_values("old"));
    sql("insert into qvlan_policy(name) values('old')");
    write_text(kReboot, reboot_record("night"));
    const Statements asked_for = statements_of([] { upload(); });
    ASSERT_EQ(asked_for.size(), 10U);
    EXPECT_THAT(Statements(asked_for.begin(), asked_for.begin() + 5),
                ElementsAre("delete from wl_basic_policy", "delete  from wl_radio_policy",
                            "delete  from reboot_policy", "delete  from wl_deploy_policy",
                            "delete  from qvlan_policy"));
    EXPECT_THAT(sql("select name from reboot_policy"), ElementsAre("night"));
    EXPECT_THAT(sql("select name from qvlan_policy"), IsEmpty());
}

TEST_F(Policies, WhatWasDownloadedIsUploaded)
{
    make_database();
    sql("insert into wl_basic_policy(name,ssid,auth_type,key) "
        "values('a','Bob''s',NULL,''),('b','two words','x','it''''s')");
    sql("insert into reboot_policy values" + reboot_values("night"));
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_OK);
    upload();
    EXPECT_THAT(sql("select name,ssid,auth_type,key from wl_basic_policy"),
                ElementsAre("a|Bob's|(null)|", "b|two|x|it''s"));
    EXPECT_THAT(sql("select * from reboot_policy"), ElementsAre("1|0|night|1|2|300|0|1"));
}

TEST_F(Policies, UploadStopsAtATableThatCannotBeEmptied)
{
    make_database();
    sql("insert into wl_basic_policy(name) values('w')");
    sql("insert into reboot_policy values" + reboot_values("old"));
    sql("drop table wl_radio_policy");
    write_text(kReboot, reboot_record("night"));
    EXPECT_THAT(upload(), Prints(error_line("no such table: wl_radio_policy", 1)));
    EXPECT_THAT(sql("select name from wl_basic_policy"), IsEmpty());
    EXPECT_THAT(sql("select name from reboot_policy"), ElementsAre("old"));
}

TEST_F(Policies, AKindThatCannotBeInsertedHoldsUpNoOther)
{
    make_database();
    write_text(kWireless, "wl_policy:a=1");
    write_text(kReboot, reboot_record("night"));
    write_text(kRadio, "rf_policy:a=1");
    write_text(kDeploy, "\r\nwl_deploy_policy:a=1\tb=d\tc=2\td=3\te=4\tf=5\tg=6\th=7\ti=8\tj=9");
    write_text(kVlan, "qvlan_policy:a=1");
    EXPECT_THAT(
        upload(),
        Prints(error_line("table wl_basic_policy has 26 columns but 1 values were supplied", 1) +
               error_line("table wl_radio_policy has 20 columns but 1 values were supplied", 1) +
               error_line("table qvlan_policy has 9 columns but 1 values were supplied", 1)));
    EXPECT_THAT(sql("select name from reboot_policy"), ElementsAre("night"));
    EXPECT_THAT(sql("select name from wl_deploy_policy"), ElementsAre("d"));
}

TEST_F(Policies, UploadWithoutAFolder)
{
    test::remove_all(kFolder);
    const int before = test::open_descriptors();
    EXPECT_EQ(printed([] { EXPECT_EQ(upload_ac_policy(), PAV_RET_ERROR); }), "sql open error\n");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Policies, MoreRecordsThanAnOrdinaryStatementHolds)
{
    make_database();
    std::string file;
    for (int i = 0; i < 5000; ++i) {
        file += reboot_record("policy" + std::to_string(i));
    }
    write_text(kReboot, file);
    upload();
    EXPECT_THAT(sql("select count(distinct name) from reboot_policy"), ElementsAre("5000"));
}

TEST_F(Policies, AStatementOfAnyLengthIsWhole)
{
    make_database();
    for (std::size_t length = 235; length < 255; ++length) {
        std::string file;
        std::string values;
        for (int i = 0; i < 81; ++i) {
            const std::string name(i == 78 ? 240 : i == 79 ? length : 220, 'n');
            file += reboot_record(name);
            values +=
                (i > 0 ? "," : "") + std::string{"('1','0','"} + name + "','1','2','300','0','1')";
        }
        write_text(kReboot, file);
        const Statements asked_for = statements_of([] { upload(); });
        ASSERT_EQ(asked_for[6], "insert into reboot_policy values" + values) << length;
    }
}

TEST_F(Policies, AFileThatIsNoDatabase)
{
    write_text(kDatabase, std::string(4096, 'x'));
    EXPECT_EQ(prod_download_ac_policy(), PAV_RET_ERROR);
    EXPECT_THAT(upload(), Prints(error_line("file is not a database", 26)));
}

TEST_F(Policies, ADatabaseThatSomebodyHolds)
{
    make_database();
    const test::Database holder = test::database(kDatabase);
    ASSERT_EQ(sqlite3_exec(holder.get(), "begin exclusive", nullptr, nullptr, nullptr), 0);
    EXPECT_THAT(upload(), Prints(error_line("database is locked", SQLITE_BUSY)));
}

TEST_F(Policies, ADatabaseOnAFullMedium)
{
    const test::MountedFolder small{kFolder, "size=64k"};
    make_database();
    sql("insert into qvlan_policy(name) values('v')");
    small.fill();
    write_text(kReboot, reboot_record("night"));
    EXPECT_THAT(upload(), Prints(error_line("database or disk is full", SQLITE_FULL)));
    EXPECT_THAT(sql("pragma integrity_check"), ElementsAre("ok"));
    EXPECT_THAT(sql("select name from qvlan_policy"), ElementsAre("v"));
}

#ifdef OWN_ALLOCATOR
TEST_F(Policies, UploadWithoutMemory)
{
    make_database();
    sql("insert into reboot_policy values" + reboot_values("old"));
    write_text(kWireless, "wl_policy:a=1");
    const auto upload_without = [](std::size_t size) {
        const test::WithoutMemory refused{size, SIZE_MAX};
        return upload();
    };
    EXPECT_EQ(upload_without(20480), "malloc failed\n");
    EXPECT_THAT(sql("select * from reboot_policy"), IsEmpty());

    // A statement that cannot grow is as one that cannot be had.
    std::string file;
    for (int i = 0; i < 1000; ++i) {
        file += reboot_record("policy");
    }
    write_text(kReboot, file);
    EXPECT_THAT(upload_without(20481), EndsWith("malloc failed\n"));
    EXPECT_THAT(sql("select * from reboot_policy"), IsEmpty());
}
#endif

}  // namespace
