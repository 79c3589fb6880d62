// SPDX-License-Identifier: MIT
// prodctl's groups backup and policy.
#include <sys/stat.h>

#include <string>

#include "platform/cfm.h"
#include "prod_common_cfm.h"
#include "support/files.hpp"
#include "support/store.hpp"
#include "tool.hpp"

using test::exists;
using test::Outcome;
using test::prodctl;
using test::read_text;
using test::refuses;
using test::stored;
using test::write_text;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

constexpr const char *kFile = "/tmp/saved";
constexpr const char *kRecords = "/tmp/records";

const std::string kNight =
    "reboot_policy:enable=1\tled_status=0\tname=Bob's\treboot_en=1\treboot_type=2\ttime=300"
    "\trecog_en=0\tbroad_en=1";

class BackupTool : public test::Fresh
{
  protected:
    BackupTool()
    {
        clear();
        test::store({{"wans.wanwebaddr", "203.0.113.7"}});
    }
    ~BackupTool() override { clear(); }

    static void clear()
    {
        test::remove_all(PROD_POLICY_DATABASE);
        test::remove_all(kFile);
        test::remove_all(kRecords);
    }
};

using PolicyTool = BackupTool;

// ---- policies --------------------------------------------------------------------------------

TEST_F(PolicyTool, ImportListExport)
{
    EXPECT_EQ(prodctl({"policy", "list"}),
              (Outcome{1, "",
                       "prodctl policy list: there is no policy database; \"prodctl policy init\" "
                       "makes one\n"}));
    EXPECT_EQ(prodctl({"policy", "init"}), (Outcome{0, "", ""}));
    EXPECT_EQ(prodctl({"policy", "list"}).out, "There is no policy.\n");

    write_text(kRecords, kNight + "\r\n\r\n" + kNight + "\nsomething else\n");
    const std::string counts =
        "{\"records\":{\"wireless\":0,\"radio\":0,\"reboot\":2,\"deployment\":0,\"vlan\":0}}\n";
    EXPECT_EQ(prodctl({"policy", "import", kRecords, "--dry-run", "--json"}),
              (Outcome{0, counts, ""}));
    EXPECT_EQ(prodctl({"policy", "list"}).out, "There is no policy.\n");
    const Outcome imported = prodctl({"policy", "import", kRecords, "--json"});
    EXPECT_EQ(imported.status, 0);
    EXPECT_EQ(imported.out, counts);
    EXPECT_EQ(prodctl({"policy", "list"}).out,
              "KIND    NAME   ENABLED\nreboot  Bob's  1\nreboot  Bob's  1\n");
    EXPECT_THAT(prodctl({"policy", "list", "reboot"}).out, HasSubstr("reboot_type  2\n"));
    EXPECT_EQ(prodctl({"policy", "list", "vlan", "--json"}).out, "{\"policies\":{\"vlan\":[]}}\n");
    EXPECT_THAT(prodctl({"policy", "list", "reboot", "--json"}).out,
                StartsWith("{\"policies\":{\"reboot\":[{\"enable\":\"1\",\"led_status\":\"0\","
                           "\"name\":\"Bob's\","));

    EXPECT_EQ(prodctl({"policy", "export"}), (Outcome{0, kNight + "\n" + kNight + "\n", ""}));
    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(
                     test::answer(prodctl({"policy", "export", "--json"})).get(), "text")),
                 (kNight + "\n" + kNight + "\n").c_str());
    EXPECT_EQ(prodctl({"policy", "init", "/tmp/other.db", "--json"}),
              (Outcome{0, "{\"file\":\"/tmp/other.db\"}\n", ""}));
    EXPECT_EQ(prodctl({"policy", "export", kFile, "--json"}).out,
              "{\"records\":{\"wireless\":0,\"radio\":0,\"reboot\":2,\"deployment\":0,\"vlan\":0},"
              "\"file\":\"/tmp/saved\"}\n");
    EXPECT_EQ(read_text(kFile), kNight + "\n" + kNight + "\n");
    EXPECT_EQ(prodctl({"policy", "import", "-"}, kNight).status, 0);
    EXPECT_EQ(prodctl({"policy", "export"}).out, kNight + "\n");
}

TEST_F(PolicyTool, RecordsThatWouldNotArriveWhole)
{
    EXPECT_EQ(prodctl({"policy", "import", "-"}, kNight).status, 0);
    const std::pair<std::string, std::string> kWrong[] = {
        {"", "- holds no policy"},
        {"nothing\n", "- holds no policy"},
        {"reboot_policy:enable=1", "a reboot policy has 1 columns instead of 8"},
        {"wl_policy:enable", "a wireless policy has 'enable' where COLUMN=VALUE should be"},
        {"wl_policy:=1", "a wireless policy has '=1' where COLUMN=VALUE should be"},
        {"rf_policy:name=a b", "a radio policy has a blank in name, which would be cut there"},
        {"qvlan_policy:name=" + std::string(256, 'x'),
         "a vlan policy has more than 255 characters in name"},
        {"wl_deploy_policy:name=" + std::string(1002, 'x'),
         "a deployment policy has 1024 characters, more than 1023"},
    };
    for (const auto &[text, complaint] : kWrong) {
        const Outcome outcome = prodctl({"policy", "import", "-"}, text);
        EXPECT_EQ(outcome.status, 1) << text;
        EXPECT_EQ(outcome.err, "prodctl policy import: " + complaint + "\n");
    }
    EXPECT_EQ(prodctl({"policy", "export"}).out, kNight + "\n") << "nothing changed";
    refuses({"policy", "list", "wifi"}, "prodctl policy list",
            "'wifi' is no kind of policy: wireless, radio, reboot, deployment or vlan");
}

TEST_F(PolicyTool, FilesThatCannotBeUsed)
{
    EXPECT_EQ(prodctl({"policy", "import", "/nonesuch"}).err,
              "prodctl policy import: cannot open /nonesuch: No such file or directory\n");
    EXPECT_EQ(prodctl({"policy", "export", "/nonesuch/file"}).err,
              "prodctl policy export: cannot write /nonesuch/file: No such file or directory\n");
    refuses({"policy", "init", ""}, "prodctl policy init", "the name of a file cannot be empty");
    EXPECT_EQ(prodctl({"policy", "init", "/nonesuch/file"}).err,
              "prodctl policy init: cannot open /nonesuch/file: unable to open database file\n");
    write_text(PROD_POLICY_DATABASE, std::string(4096, 'x'));
    EXPECT_THAT(prodctl({"policy", "list"}).err, EndsWith("file is not a database\n"));
    EXPECT_EQ(prodctl({"policy", "export"}).status, 1);
    EXPECT_THAT(prodctl({"policy", "import", "-"}, kNight).err,
                HasSubstr("prodctl policy import: the vlan policies were not stored\n"));
}

// ---- the backup ------------------------------------------------------------------------------

TEST_F(BackupTool, SaveVerifyLoad)
{
    ASSERT_EQ(prodctl({"policy", "import", "-"}, kNight).status, 0);
    SetValue("lan.ip", "192.168.7.1");
    SetValue("new.key", "x=y");
    const Outcome saved = prodctl({"backup", "save", kFile});
    EXPECT_EQ(saved.status, 0) << saved.err;
    EXPECT_THAT(saved.err, HasSubstr("collecting settings, policies and records ...\n"));
    EXPECT_THAT(saved.err, HasSubstr("writing the file ...\n"));
    EXPECT_EQ(read_text(kFile), read_text("/etc/tmp.cfg"));
    EXPECT_THAT(saved.out, HasSubstr("0 wireless, 0 radio, 1 reboot, 0 deployment, 0 vlan"));

    const Outcome verified = prodctl({"backup", "verify", kFile, "--json"});
    EXPECT_EQ(verified.status, 0);
    EXPECT_THAT(verified.out,
                HasSubstr("\"policies\":{\"wireless\":0,\"radio\":0,\"reboot\":1,\"deployment\":0,"
                          "\"vlan\":0},\"databases\":[\"default\",\"auth\",\"ac\",\"client\"]}"));

    SetValue("wans.wanwebaddr", "203.0.113.9");
    SetValue("lan.ip", "192.168.8.1");
    UnSetValue("new.key");
    SetValue("newer.key", "z");
    ASSERT_EQ(prodctl({"policy", "import", "-"}, kNight + "\n" + kNight).status, 0);
    const std::string changes =
        "lan.ip 192.168.8.1 -> 192.168.7.1\nnewer.key z -> not set\n"
        "new.key not set -> x=y\nweb.pic.name not set -> default.png\n"
        "wireless policies 0 -> 0\nradio policies 0 -> 0\nreboot policies 2 -> 1\n"
        "deployment policies 0 -> 0\nvlan policies 0 -> 0\n4 settings ";
    EXPECT_EQ(prodctl({"backup", "load", kFile, "--dry-run"}),
              (Outcome{0, changes + "would change\n", ""}));
    EXPECT_EQ(stored("lan.ip"), "192.168.8.1");

    const Outcome loaded = prodctl({"backup", "load", kFile});
    EXPECT_EQ(loaded.status, 0) << loaded.err;
    EXPECT_EQ(loaded.out, changes + "changed, loaded\n");
    EXPECT_THAT(loaded.err, HasSubstr("loading records, policies and settings ...\n"));
    EXPECT_EQ(stored("lan.ip"), "192.168.7.1");
    EXPECT_EQ(stored("new.key"), "x=y");
    EXPECT_EQ(stored("newer.key"), "(absent)");
    EXPECT_EQ(stored("wans.wanwebaddr"), "203.0.113.9");
    EXPECT_EQ(prodctl({"policy", "export"}).out, kNight + "\n");

    const Outcome again = prodctl({"backup", "load", kFile, "--dry-run", "--json"});
    EXPECT_THAT(again.out, StartsWith("{\"changes\":[],\"policies\":{\"wireless\":{\"old\":0,"
                                      "\"new\":0},"));
    EXPECT_THAT(again.out, EndsWith(",\"loaded\":false}\n"));
}

TEST_F(BackupTool, PoliciesThatAreNotStored)
{
    ASSERT_EQ(prodctl({"policy", "import", "-"}, kNight).status, 0);
    SetValue("lan.ip", "192.168.7.1");
    ASSERT_EQ(prodctl({"backup", "save", kFile}).status, 0);
    SetValue("lan.ip", "192.168.8.1");
    write_text(PROD_POLICY_DATABASE, std::string(4096, 'x'));
    const Outcome loaded = prodctl({"backup", "load", kFile, "--json"});
    EXPECT_EQ(loaded.status, 1);
    EXPECT_THAT(loaded.out, EndsWith(",\"loaded\":false}\n"));
    EXPECT_THAT(loaded.err, HasSubstr("prodctl backup load: the settings are loaded, but not all "
                                      "policies were stored\n"));
    EXPECT_EQ(stored("lan.ip"), "192.168.7.1");
}

TEST_F(BackupTool, WhatIsNoBackup)
{
    ASSERT_EQ(prodctl({"backup", "save", kFile, "--json"}).status, 0);
    const std::string good = read_text(kFile);
    const std::string path = std::string{kFile} + ": ";
    std::string changed = good;
    changed[10] = changed[10] == 'x' ? 'y' : 'x';
    std::string hidden = good;
    hidden[10] = '\0';
    const std::string checksum =
        "the checksum is wrong: the file is damaged, or one of its values holds \"crc=\"\n";
    const std::pair<std::string, std::string> kFiles[] = {
        {"", "this is no backup: there is no checksum\n"},
        {good.substr(0, good.size() / 2), "this is no backup: there is no checksum\n"},
        {hidden, "this is no backup: there is no checksum\n"},
        {changed, checksum},
        {good.substr(0, good.find("crc=") + 4), checksum},
        {"crc=0\n" + good,
         "the line \"##the public configure end##\" is missing, or not in its place\n"},
    };
    for (const auto &[text, complaint] : kFiles) {
        write_text(kFile, text);
        EXPECT_EQ(prodctl({"backup", "verify", kFile}),
                  (Outcome{1, "", "prodctl backup verify: " + path + complaint}));
        EXPECT_EQ(prodctl({"backup", "load", kFile}),
                  (Outcome{1, "", "prodctl backup load: " + path + complaint}));
    }
    EXPECT_EQ(prodctl({"backup", "verify", "/nonesuch"}).err,
              "prodctl backup verify: cannot open /nonesuch: No such file or directory\n");
}

TEST_F(BackupTool, WhatCannotBeLoadedIsNotSaved)
{
    SetValue("some.key", "crc=1");
    const Outcome outcome = prodctl({"backup", "save", kFile});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("one of its values holds \"crc=\"\n"));
    EXPECT_FALSE(exists(kFile));
    write_text(kFile, "older");
    EXPECT_EQ(prodctl({"backup", "save", kFile}).status, 1);
    EXPECT_EQ(read_text(kFile), "older");
    EXPECT_EQ(prodctl({"backup", "save", "/nonesuch/file"}).err,
              "prodctl backup save: cannot write /nonesuch/file: No such file or directory\n");
}

TEST_F(BackupTool, AFileThatDoesNotTakeIt)
{
    const test::MountedFolder full{"/tmp/full"};
    full.fill();
    const Outcome outcome = prodctl({"backup", "save", "/tmp/full/saved"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, EndsWith("No space left on device\n"));
    EXPECT_FALSE(exists("/tmp/full/saved"));
}

TEST_F(BackupTool, AConfigurationThatIsNotTaken)
{
    ASSERT_EQ(prodctl({"backup", "save", kFile}).status, 0);
    SetValue("lan.ip", "192.168.8.1");
    {
        const test::MountedFolder full{"/webroot"};
        full.fill();
        const Outcome outcome = prodctl({"backup", "load", kFile, "--json"});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.err, HasSubstr("a part could not be written; settings and policies are "
                                           "as they were\n"));
    }
    EXPECT_EQ(stored("lan.ip"), "192.168.8.1");
}

}  // namespace
