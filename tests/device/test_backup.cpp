// SPDX-License-Identifier: MIT
// The whole device saved to a file, reset, and brought back; and files that are no backups.
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "backups.hpp"
#include "platform/cfm.h"
#include "prod_common_cfm.h"
#include "prod_common_systool.h"
#include "stories.hpp"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "support/image.hpp"
#include "support/sql.hpp"
#include "support/store.hpp"
#include "support/time.hpp"

using story::add_server;
using story::kPolicyKinds;
using story::load;
using story::must;
using story::saved;
using story::servers;
using test::read_text;
using test::Rows;
using test::stored;

namespace
{

Rows sql(const std::string &statements)
{
    return test::sql(PROD_POLICY_DATABASE, statements);
}

Rows servers_of(const char *database)
{
    Rows found;
    db_table table = servers(database);
    db_result all;
    if (table.all(&table, &all) != 0) {
        for (const db_row_t *row = all.rows; row != nullptr; row = row->next) {
            found.push_back(std::to_string(row->id) + "|" + row->values[0].s + "|" +
                            std::to_string(row->values[1].n));
        }
    }
    all.free(&all);
    return found;
}

void empty_database(const char *database)
{
    db_table table = servers(database);
    for (int id = 1; id < 10; ++id) {
        table.del(&table, id);
    }
}

/** Policies of all kinds but deployment, with what makes trouble in them. */
void add_policies()
{
    EXPECT_EQ(upload_ac_policy(), PAV_RET_OK);  // makes the database
    sql("insert into wl_basic_policy(name,ssid,auth_type) values('a','Bob''s',NULL)");
    sql("insert into wl_basic_policy(name,ssid,auth_type) values('b','two words','x')");
    sql("insert into wl_radio_policy(name,channel_24g) values('r',6)");
    sql("insert into reboot_policy values(1,0,'night',1,2,300,0,1)");
    sql("insert into qvlan_policy(name,qvlan_truck_port) values('v','lan0,lan1')");
}

std::string with_trailer(const std::string &body)
{
    return body + "crc=" +
           std::to_string(crc32(0, reinterpret_cast<const Bytef *>(body.data()),
                                static_cast<uInt>(body.size()))) +
           "\n";
}

/** All that a backup may change, as one text. */
std::string state()
{
    std::string text = must("cfm show");
    for (const char *const kind : kPolicyKinds) {
        for (const std::string &row : sql(std::string{"select * from "} + kind)) {
            text += std::string{kind} + ": " + row + "\n";
        }
    }
    for (const char *const database : {"default", "auth", "ac", "client"}) {
        for (const std::string &row : servers_of(database)) {
            text += std::string{database} + ": " + row + "\n";
        }
    }
    return text;
}

void configure()
{
    SetValue("lan.ip", "192.168.7.1");
    SetValue("wlan0.0_bss_ssid", "Bob's \"home\" $(reboot) `x` \\");
    SetValue("wans.wanwebaddr", "203.0.113.7");
    SetValue("web.default.pic.name", "a b$(touch /tmp/ran)\"`touch /tmp/ran`\\.png");
    ASSERT_NE(CommitCfm(), 0);
    add_policies();
    add_server("default", "printer = crc=1 ##the qvlan configure end##", 9100);
    add_server("auth", "guest", 1);
    add_server("ac", "access point", 2);
    add_server("client", "phone", 3);
}

TEST(Backup, SavedResetAndBroughtBack)
{
    const test::SimulatedTime no_waiting;
    configure();
    const std::string configuration = must("cfm show");
    const std::string file = saved();
    EXPECT_FALSE(test::exists("/tmp/ran"));

    // The file, byte for byte.
    const std::string record =
        "\r\nreboot_policy:enable=1\tled_status=0\tname=night\treboot_en=1"
        "\treboot_type=2\ttime=300\trecog_en=0\tbroad_en=1";
    const auto marker = [](const char *what) {
        return std::string{"\n##the "} + what + " configure end##\n\n";
    };
    const std::string body =
        configuration + "web.pic.name=a b$(touch /tmp/ran)\"`touch /tmp/ran`\\.png\n" +
        marker("public") + marker("url") + read_text("/etc/wl_policy.cfg") + marker("wl") +
        read_text("/etc/rf_policy.cfg") + marker("rf") + record + marker("reboot") +
        marker("wldeploy") + read_text("/etc/qvlan_policy.cfg") + marker("qvlan");
    ASSERT_EQ(file.substr(0, body.size()), body);
    for (const char *const database : {"default", "auth", "ac", "client"}) {
        EXPECT_EQ(db_backup_save(database, "/tmp/sections"), 1);
    }
    EXPECT_EQ(file, with_trailer(body + read_text("/tmp/sections")));

    // A reset, and a device that has lived on.
    ASSERT_NE(RestoreValue(), 0);
    SetValue("wans.wanwebaddr", "198.51.100.9");
    SetValue("newer.key", "x");
    for (const char *const kind : kPolicyKinds) {
        sql(std::string{"delete from "} + kind);
    }
    sql("insert into reboot_policy(name) values('newer')");
    for (const char *const database : {"default", "auth", "ac", "client"}) {
        empty_database(database);
        add_server(database, "newer", 4);
    }

    EXPECT_EQ(load(file), CFG_UPGRADE_OK);
    EXPECT_EQ(stored("lan.ip"), "192.168.7.1");
    EXPECT_EQ(stored("wlan0.0_bss_ssid"), "Bob's \"home\" $(reboot) `x` \\");
    EXPECT_EQ(stored("web.pic.name"), "a b$(touch /tmp/ran)\"`touch /tmp/ran`\\.png");
    EXPECT_EQ(stored("wans.wanwebaddr"), "198.51.100.9");
    EXPECT_EQ(stored("newer.key"), "(absent)");
    EXPECT_EQ(read_text("/cfg/cfm.cfg"), must("cfm show")) << "a start brings it too";
    // A blank cuts a value, what was none is a text, the rest is as it was.
    EXPECT_EQ(sql("select name,ssid,auth_type from wl_basic_policy"),
              (Rows{"a|Bob's|(null)", "b|two|x"}));
    EXPECT_EQ(sql("select name,channel_24g,enable from wl_radio_policy"), (Rows{"r|6|(null)"}));
    EXPECT_EQ(sql("select * from reboot_policy"), (Rows{"1|0|night|1|2|300|0|1"}));
    EXPECT_EQ(sql("select * from wl_deploy_policy"), Rows{});
    EXPECT_EQ(sql("select name,qvlan_truck_port from qvlan_policy"), (Rows{"v|lan0,lan1"}));
    EXPECT_EQ(servers_of("default"), (Rows{"1|printer = crc=1 ##the qvlan configure end##|9100"}));
    EXPECT_EQ(servers_of("auth"), (Rows{"1|guest|1"}));
    EXPECT_EQ(servers_of("ac"), (Rows{"2|newer|4"})) << "what was seen is not brought back";
    EXPECT_EQ(servers_of("client"), (Rows{"2|newer|4"}));
}

TEST(Backup, WhatIsNoBackup)
{
    const test::SimulatedTime no_waiting;
    configure();
    const std::string good = saved();
    SetValue("lan.ip", "192.168.8.1");
    sql("insert into reboot_policy(name) values('newer')");
    add_server("default", "newer", 4);
    const std::string before = state();
    const std::size_t trailer = good.find("crc=");

    std::string changed = good;
    changed[100] ^= 1;
    std::string edited = good;
    edited[trailer + 4] = edited[trailer + 4] == '1' ? '2' : '1';
    const std::string random = test::noise(100000);
    const std::pair<const char *, std::string> kInvalid[] = {
        {"one changed byte", changed},
        {"a cut tail", good.substr(0, good.size() / 2)},
        {"an edited trailer", edited},
        {"a trailer without its number", good.substr(0, trailer + 4)},
        {"20 MB of text", std::string(20 << 20, 'x')},
        {"20 MB in front", std::string(20 << 20, 'x') + good},
        {"random bytes", random},
        {"a value with the trailer's text", with_trailer("a=crc=1\n" + good.substr(0, trailer))},
    };
    for (const auto &[what, file] : kInvalid) {
        EXPECT_EQ(load(file), CFG_FILE_INVALID) << what;
        EXPECT_EQ(state(), before) << what;
    }

    // What has a sound checksum and lacks a marker: the databases are restored, and nothing else.
    Rows markers = {"url", "wl", "rf", "reboot", "wldeploy", "qvlan"};
    for (std::string &name : markers) {
        name = "##the " + name + " configure end##";
        std::string body = good.substr(0, trailer);
        body.replace(body.find(name), 2, "--");
        EXPECT_EQ(load(with_trailer(body)), CFG_UPLOAD_ERR) << name;
    }
    std::string body = good.substr(0, trailer);
    body.replace(body.find("##the rf configure"), 18, "##the XX configure");
    body.replace(body.find("##the wl configure"), 18, "##the rf configure");
    body.replace(body.find("##the XX configure"), 18, "##the wl configure");
    EXPECT_EQ(load(with_trailer(body)), CFG_UPLOAD_ERR) << "markers out of order";
    EXPECT_EQ(stored("lan.ip"), "192.168.8.1");
    EXPECT_EQ(sql("select name from reboot_policy"), (Rows{"night", "newer"}));
    EXPECT_EQ(servers_of("default").size(), 1U);
}

TEST(Backup, AValueThatHoldsTheTrailersText)
{
    const test::SimulatedTime no_waiting;
    SetValue("some.key", "x crc=7 y");
    const std::string file = saved();
    const std::string before = state();
    EXPECT_EQ(test::printed([&] {
                  EXPECT_EQ(load(file), CFG_FILE_INVALID);
              }).find("expected crc=7, actual crc="),
              0U);
    EXPECT_EQ(state(), before);
}

TEST(Backup, ByTheToolInRealTime)
{
    SetValue("lan.ip", "192.168.7.1");
    must("prodctl backup save /tmp/saved");
    must("cfm restore");
    must("prodctl backup verify /tmp/saved");
    EXPECT_EQ(story::Json::answer_of("prodctl backup load /tmp/saved --json")["loaded"].text(),
              "true");
    EXPECT_EQ(stored("lan.ip"), "192.168.7.1");
}

}  // namespace
