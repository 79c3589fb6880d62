// SPDX-License-Identifier: MIT
// The configuration's backup file: how it is made and how it is taken apart.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/cfm.h"
#include "platform/database.h"
#include "prod_common_cfm.h"
#include "prod_common_systool.h"
#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::exists;
using test::printed;
using test::read_text;
using test::write_text;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace
{

using Events = std::vector<std::string>;

/** What happened in order, while it is set: commands, requests to the databases, sleeps. */
Events *events;
const test::SimulatedTime *simulated_time;
std::size_t sleeps_told;

void happened(const std::string &what)
{
    const std::vector<long long> &sleeps = simulated_time->sleeps();
    for (; sleeps_told < sleeps.size(); ++sleeps_told) {
        events->push_back("sleep " + std::to_string(sleeps[sleeps_told] / 1000000));
    }
    if (!what.empty()) {
        events->push_back(what);
    }
}

}  // namespace

extern "C" int db_backup_save(const char *table, const char *file)
{
    if (events != nullptr) {
        happened(std::string{"save "} + table + " " + file);
        return 1;
    }
    return test::next(db_backup_save, "db_backup_save")(table, file);
}

extern "C" int db_backup_load(const char *table, const char *buffer)
{
    if (events != nullptr) {
        happened(std::string{"load "} + table + " from " + std::string{buffer}.substr(0, 8));
        return 1;
    }
    return test::next(db_backup_load, "db_backup_load")(table, buffer);
}

extern "C" PAV_RET upload_ac_policy(void)
{
    if (events != nullptr) {
        happened("upload policies");
    }
    return test::next(upload_ac_policy, "upload_ac_policy")();
}

namespace
{

constexpr const char *kBackup = "/etc/tmp.cfg";
constexpr const char *kConfig = "/webroot/default.cfg";
constexpr const char *kUrl = "/webroot/default_url.cfg";
const Events kPolicyFiles = {"/etc/wl_policy.cfg", "/etc/rf_policy.cfg", "/etc/reboot_policy.cfg",
                             "/etc/wl_deploy_policy.cfg", "/etc/qvlan_policy.cfg"};
const Events kMarkers = {"##the public configure end##", "##the url configure end##",
                         "##the wl configure end##",     "##the rf configure end##",
                         "##the reboot configure end##", "##the wldeploy configure end##",
                         "##the qvlan configure end##"};

/** CRC-32 as its definition has it, a bit at a time. */
unsigned long crc_of(const std::string &text)
{
    std::uint32_t crc = 0xffffffffU;
    for (const char c : text) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
        }
    }
    return crc ^ 0xffffffffU;
}

std::string with_trailer(const std::string &body)
{
    return body + "crc=" + std::to_string(crc_of(body)) + "\n";
}

/** A backup's text before its trailer, with the given sections in front of the markers. */
std::string body_of(const Events &sections, const std::string &databases = "")
{
    std::string text;
    for (std::size_t i = 0; i < kMarkers.size(); ++i) {
        text += sections[i];
        text += "\n" + kMarkers[i] + "\n\n";
    }
    return text + databases;
}

const Events kSections = {"a=1\nlan.ip=192.168.0.1\n", "url.1=x\n",
                          "\r\nwl_policy:a=1",         "\r\nrf_policy:a=1",
                          "\r\nreboot_policy:a=1",     "\r\nwl_deploy_policy:a=1",
                          "\r\nqvlan_policy:a=1"};

int upload(const std::string &file)
{
    return prod_systool_cfg_upload(file.c_str(), static_cast<long>(file.size()));
}

class Backup : public testing::Test
{
  protected:
    Backup()
    {
        remove_files();
        mkdir("/webroot", 0755);
        test::remove_all("/cfg/s_brcmnand");
        mkdir("/cfg/s_brcmnand", 0755);
        RestoreValue();
    }
    ~Backup() override
    {
        events = nullptr;
        remove_files();
    }

    static void remove_files()
    {
        test::remove_all("/webroot");
        test::remove_all(kBackup);
        for (const std::string &file : kPolicyFiles) {
            test::remove_all(file);
        }
    }

    /** What happens while @p code runs, with commands recorded and not run. */
    Events events_of(const std::function<void()> &code)
    {
        Events all;
        events = &all;
        simulated_time = &time_;
        sleeps_told = time_.sleeps().size();
        const test::RecordedCommands commands{[](const std::string &command) {
            happened(command);
            return 0;
        }};
        code();
        happened("");
        events = nullptr;
        return all;
    }

    test::SimulatedTime time_;
};

// ---- making ----------------------------------------------------------------------------------

TEST_F(Backup, TheCommandsInOrder)
{
    SetValue("web.default.pic.name", "default.png");
    write_text(kBackup, "content\n");
    write_text("/cfg/s_brcmnand/Dcg_database.db", "");
    char name[PROD_BACKUP_NAME_SIZE + 1] = "*************";
    const Events all = events_of([&] { EXPECT_EQ(prod_systool_sys_cfg_download(name), 0); });
    const std::string to = " >> /etc/tmp.cfg";
    EXPECT_THAT(all, testing::ElementsAreArray(Events{
                         "cfm show /etc/tmp.cfg",
                         "echo \"web.pic.name=default.png\"" + to,
                         "echo -e \"\n##the public configure end##\n\"" + to,
                         "rm -rf /etc/wl_policy.cfg",
                         "rm -rf /etc/rf_policy.cfg",
                         "rm -rf /etc/reboot_policy.cfg",
                         "rm -rf /etc/wl_deploy_policy.cfg",
                         "rm -rf /etc/qvlan_policy.cfg",
                         "echo  \"\n##the url configure end##\n\"" + to,
                         "cat /etc/wl_policy.cfg" + to,
                         "echo  \"\n##the wl configure end##\n\"" + to,
                         "cat /etc/rf_policy.cfg" + to,
                         "echo  \"\n##the rf configure end##\n\"" + to,
                         "cat /etc/reboot_policy.cfg" + to,
                         "echo  \"\n##the reboot configure end##\n\"" + to,
                         "cat /etc/wl_deploy_policy.cfg" + to,
                         "echo  \"\n##the wldeploy configure end##\n\"" + to,
                         "cat /etc/qvlan_policy.cfg" + to,
                         "echo  \"\n##the qvlan configure end##\n\"" + to,
                         "save default /etc/tmp.cfg",
                         "save auth /etc/tmp.cfg",
                         "save ac /etc/tmp.cfg",
                         "save client /etc/tmp.cfg",
                         "echo \"crc=" + std::to_string(crc_of("content\n")) + "\"" + to,
                         "sleep 1",
                     }));
    EXPECT_STREQ(name, "/etc/tmp.cfg");
}

TEST_F(Backup, ThePolicyDatabaseIsReadBetweenTheRemovalAndTheUrlMarker)
{
    char name[PROD_BACKUP_NAME_SIZE];
    const Events all = events_of([&] { prod_systool_sys_cfg_download(name); });
    // Without a database the template is asked for, which marks the place.
    const auto place =
        std::find(all.begin(), all.end(), "cp /webroot/Dcg_database.db /cfg/s_brcmnand");
    ASSERT_NE(place, all.end());
    EXPECT_EQ(*(place - 1), "rm -rf /etc/qvlan_policy.cfg");
    EXPECT_THAT(*(place + 1), HasSubstr("##the url configure end##"));
}

TEST_F(Backup, ThePictureName)
{
    const std::pair<std::string, std::string> kNames[] = {
        {"a b;c&d|e'f*?~#<>(){}[]!.png", "a b;c&d|e'f*?~#<>(){}[]!.png"},
        {"$(reboot)", "\\$(reboot)"},
        {"`reboot`", "\\`reboot\\`"},
        {"\"; reboot; \"", "\\\"; reboot; \\\""},
        {"back\\slash", "back\\\\slash"},
        {std::string(70, 'p'), std::string(63, 'p')},
        {std::string(70, '$'),
         [] {
             std::string text;
             for (int i = 0; i < 63; ++i) {
                 text += "\\$";
             }
             return text;
         }()},
    };
    char name[PROD_BACKUP_NAME_SIZE];
    for (const auto &[value, word] : kNames) {
        SetValue("web.default.pic.name", value.c_str());
        const Events all = events_of([&] { prod_systool_sys_cfg_download(name); });
        EXPECT_EQ(all[1], "echo \"web.pic.name=" + word + "\" >> /etc/tmp.cfg");
        prod_systool_sys_cfg_download(name);
        EXPECT_THAT(read_text(kBackup),
                    HasSubstr("\nweb.pic.name=" + value.substr(0, 63) + "\n\n##the public"));
    }
    for (const char *const value : {"", "unset"}) {
        SetValue("web.default.pic.name", value);
        if (*value != '\0') {
            UnSetValue("web.default.pic.name");
        }
        const Events all = events_of([&] { prod_systool_sys_cfg_download(name); });
        EXPECT_THAT(all[1], StartsWith("echo -e")) << value;
    }
}

TEST_F(Backup, WithoutAFileThereIsNoTrailer)
{
    char name[PROD_BACKUP_NAME_SIZE];
    const Events all = events_of([&] { EXPECT_EQ(prod_systool_sys_cfg_download(name), 0); });
    EXPECT_THAT(all, Not(Contains(HasSubstr("crc="))));
    EXPECT_EQ(all.back(), "sleep 1");
    EXPECT_THAT(events_of([] { EXPECT_EQ(prod_systool_sys_cfg_download(nullptr), -1); }),
                IsEmpty());
}

TEST_F(Backup, TheFileByteForByte)
{
    write_text(kConfig, "wan.x=\nlan.ip=192.168.0.1\nweb.default.pic.name=a $b\n");
    ASSERT_EQ(system("cfm Upload"), 0);
    upload_ac_policy();  // makes the database
    write_text("/etc/wl_policy.cfg", "");
    write_text("/etc/reboot_policy.cfg",
               "\r\nreboot_policy:a=1\tb=0\tc=Bob's\td=1\te=2\tf=300\tg=0\th=1"
               "\r\nreboot_policy:a=1\tb=0\tc=noon\td=1\te=2\tf=300\tg=0\th=1");
    upload_ac_policy();
    write_text("/etc/qvlan_policy.cfg", "what is left of the last time");

    char name[PROD_BACKUP_NAME_SIZE];
    ASSERT_EQ(prod_systool_sys_cfg_download(name), 0);
    const std::string body = body_of(
        {"lan.ip=192.168.0.1\nwan.x=\nweb.default.pic.name=a $b\nweb.pic.name=a $b\n", "", "", "",
         "\r\nreboot_policy:enable=1\tled_status=0\tname=Bob's\treboot_en=1\treboot_type=2"
         "\ttime=300\trecog_en=0\tbroad_en=1"
         "\r\nreboot_policy:enable=1\tled_status=0\tname=noon\treboot_en=1\treboot_type=2"
         "\ttime=300\trecog_en=0\tbroad_en=1",
         "", ""});
    const std::string file = read_text(kBackup);
    ASSERT_THAT(file, StartsWith(body));
    const std::size_t trailer = file.find("crc=");
    ASSERT_NE(trailer, std::string::npos);
    EXPECT_EQ(file, with_trailer(file.substr(0, trailer)));
    const std::string databases = file.substr(body.size(), trailer - body.size());
    std::size_t at = 0;
    for (const char *const database : {"default", "auth", "ac", "client"}) {
        const std::size_t begin = databases.find(std::string{"\n##the "} + database, at);
        ASSERT_NE(begin, std::string::npos) << database;
        at = begin + 1;
    }
}

// ---- refusing --------------------------------------------------------------------------------

TEST_F(Backup, WhatIsNoBackupChangesNothing)
{
    const std::string good = with_trailer(body_of(kSections));
    const std::size_t trailer = good.find("crc=");
    const unsigned long crc = crc_of(good.substr(0, trailer));
    const auto mismatch = [](unsigned long expected, unsigned long actual) {
        return "expected crc=" + std::to_string(expected) +
               ", actual crc=" + std::to_string(actual) + "\n";
    };
    std::string changed = good;
    changed[3] = '2';
    const std::string early = with_trailer("a=crc=7\n" + body_of(kSections));
    const struct {
        std::string file;
        std::string message;
    } kFiles[] = {
        {"x", "CRC not found 1!\n"},
        {good.substr(0, trailer), "CRC not found 1!\n"},
        {good.substr(0, trailer + 3), "CRC not found 1!\n"},
        {good.substr(0, trailer + 4), "CRC not found 2!\n"},
        {good.substr(0, trailer) + "crc=x12", "CRC not found 2!\n"},
        {good.substr(0, trailer) + "crc=" + std::to_string(crc + 1) + "\n", mismatch(crc + 1, crc)},
        {good.substr(0, trailer + 5), mismatch(std::stoul(good.substr(trailer + 4, 1)), crc)},
        {changed, mismatch(crc, crc_of(changed.substr(0, trailer)))},
        {early, mismatch(7, crc_of("a="))},
        {good.substr(0, 10) + good.substr(11),
         mismatch(crc, crc_of(good.substr(0, 10) + good.substr(11, trailer - 11)))},
        {std::string(20 << 20, 'x'), "CRC not found 1!\n"},
    };
    for (const auto &[file, message] : kFiles) {
        const Events all = events_of([&, &file = file, &message = message] {
            EXPECT_EQ(printed([&] { EXPECT_EQ(upload(file), CFG_FILE_INVALID); }), message);
        });
        EXPECT_THAT(all, IsEmpty());
        EXPECT_FALSE(exists(kConfig));
        EXPECT_FALSE(exists("/etc/wl_policy.cfg"));
    }
    EXPECT_THAT(time_.sleeps(), IsEmpty());
}

TEST_F(Backup, ATextThatHidesItsTrailerBehindANul)
{
    std::string file = with_trailer(body_of(kSections));
    file[20] = '\0';
    EXPECT_EQ(printed([&] { EXPECT_EQ(upload(file), CFG_FILE_INVALID); }), "CRC not found 1!\n");
}

TEST_F(Backup, SizesThatAreNone)
{
    const std::string good = with_trailer(body_of(kSections));
    const Events all = events_of([&] {
        EXPECT_EQ(printed([&] {
                      EXPECT_EQ(prod_systool_cfg_upload(nullptr, 10), CFG_FILE_INVALID);
                      EXPECT_EQ(prod_systool_cfg_upload(good.c_str(), 0), CFG_FILE_INVALID);
                      EXPECT_EQ(prod_systool_cfg_upload(good.c_str(), -1), CFG_FILE_INVALID);
                      EXPECT_EQ(prod_systool_cfg_upload(good.c_str(), 5), CFG_FILE_INVALID)
                          << "shorter than the trailer";
                  }),
                  "");
        EXPECT_THAT(printed([&] {
                        const long size = static_cast<long>(good.size()) - 1;
                        EXPECT_EQ(prod_systool_cfg_upload(good.c_str(), size), CFG_FILE_INVALID);
                    }),
                    StartsWith("expected crc="));
    });
    EXPECT_THAT(all, IsEmpty());
}

// ---- taking apart ----------------------------------------------------------------------------

TEST_F(Backup, AFileIsTakenApart)
{
    SetValue("wans.wanwebaddr", "203.0.113.7");
    const std::string file = with_trailer(body_of(kSections, "\ndatabases\n"));
    std::string text;
    const Events all =
        events_of([&] { text = printed([&] { EXPECT_EQ(upload(file), CFG_UPGRADE_OK); }); });
    EXPECT_THAT(all, ElementsAre("load default from a=1\nlan.", "load auth from a=1\nlan.",
                                 "upload policies", "sleep 2", "cfm Upload"));
    EXPECT_THAT(text, EndsWith("\nprod_systool_cfg_upload_Exit\n"));

    EXPECT_EQ(read_text(kConfig), kSections[0] + "\nwans.wanwebaddr=203.0.113.7\n");
    EXPECT_EQ(read_text(kUrl), "\n\n" + kSections[1] + "\n");
    for (std::size_t i = 0; i < kPolicyFiles.size(); ++i) {
        EXPECT_EQ(read_text(kPolicyFiles[i]), kMarkers[i + 1] + "\n\n" + kSections[i + 2] + "\n");
    }
    EXPECT_TRUE(exists("/cfg/s_brcmnand/Dcg_database.db")) << "the policies were uploaded";
}

TEST_F(Backup, TheWebAddressIsCut)
{
    const std::string address(300, 'a');
    SetValue("wans.wanwebaddr", address.c_str());
    const std::string file = with_trailer(body_of(kSections));
    events_of([&] { EXPECT_EQ(upload(file), CFG_UPGRADE_OK); });
    EXPECT_THAT(read_text(kConfig),
                EndsWith("\n\nwans.wanwebaddr=" + address.substr(0, 255) + "\n"));
    UnSetValue("wans.wanwebaddr");
    events_of([&] { EXPECT_EQ(upload(file), CFG_UPGRADE_OK); });
    EXPECT_THAT(read_text(kConfig), EndsWith("\n\nwans.wanwebaddr=\n"));
}

TEST_F(Backup, AMissingMarker)
{
    for (std::size_t missing = 1; missing < kMarkers.size(); ++missing) {
        remove_files();
        mkdir("/webroot", 0755);
        std::string body = body_of(kSections);
        body.replace(body.find(kMarkers[missing]), 2, "#+");
        const Events all =
            events_of([&] { EXPECT_EQ(upload(with_trailer(body)), CFG_UPLOAD_ERR); });
        EXPECT_THAT(all, ElementsAre(StartsWith("load default"), StartsWith("load auth")));
        EXPECT_THAT(time_.sleeps(), IsEmpty());
        // What stands before the place stays.
        EXPECT_EQ(read_text(kConfig), kSections[0] + "\n");
        EXPECT_EQ(read_text(kUrl).empty(), missing == 1);
        for (std::size_t i = 0; i < kPolicyFiles.size(); ++i) {
            EXPECT_TRUE(exists(kPolicyFiles[i]));
            EXPECT_EQ(read_text(kPolicyFiles[i]).empty(), i + 2 >= missing) << i;
        }
        EXPECT_FALSE(exists("/cfg/s_brcmnand/Dcg_database.db"));
    }
}

TEST_F(Backup, MarkersOutOfOrder)
{
    for (std::size_t first = 0; first + 1 < kMarkers.size(); ++first) {
        std::string body = body_of(kSections);
        const std::size_t a = body.find(kMarkers[first]);
        const std::size_t b = body.find(kMarkers[first + 1]);
        body.replace(b, kMarkers[first + 1].size(), kMarkers[first]);
        body.replace(a, kMarkers[first].size(), kMarkers[first + 1]);
        const Events all =
            events_of([&] { EXPECT_EQ(upload(with_trailer(body)), CFG_UPLOAD_ERR) << first; });
        EXPECT_THAT(all, Not(Contains("cfm Upload")));
    }
}

TEST_F(Backup, MarkersBehindTheTrailerAreNone)
{
    std::string body = body_of(kSections);
    const std::size_t last = body.find(kMarkers.back());
    events_of([&] {
        EXPECT_EQ(upload(with_trailer(body.substr(0, last)) + body.substr(last)), CFG_UPLOAD_ERR);
    });
    const std::string whole = "crc=0\n" + body;
    events_of([&] {
        EXPECT_EQ(prod_systool_cfg_upload(whole.c_str(), static_cast<long>(whole.size())),
                  CFG_UPLOAD_ERR);
    });
    EXPECT_EQ(read_text(kConfig), "");
}

TEST_F(Backup, TheFirstOfTwoEqualMarkersCounts)
{
    Events sections = kSections;
    sections[0] += "a.value=" + kMarkers[2] + "\n";  // in front of its place it is none
    sections[6] += "\n" + kMarkers[2] + "\n";
    events_of([&] { EXPECT_EQ(upload(with_trailer(body_of(sections))), CFG_UPGRADE_OK); });
    EXPECT_EQ(read_text(kConfig), sections[0] + "\nwans.wanwebaddr=\n");
    EXPECT_EQ(read_text(kPolicyFiles[0]), kMarkers[1] + "\n\n" + sections[2] + "\n");
    EXPECT_EQ(read_text(kPolicyFiles[4]), kMarkers[5] + "\n\n" + sections[6] + "\n");
}

TEST_F(Backup, WithoutThePublicMarker)
{
    SetValue("wans.wanwebaddr", "203.0.113.7");
    std::string body = body_of(kSections);
    body.erase(body.find(kMarkers[0]), kMarkers[0].size());
    events_of([&] { EXPECT_EQ(upload(with_trailer(body)), CFG_UPGRADE_OK); });
    EXPECT_EQ(read_text(kConfig), "wans.wanwebaddr=203.0.113.7\n");
    EXPECT_EQ(read_text(kUrl), "");
    EXPECT_THAT(read_text(kPolicyFiles[0]), HasSubstr(kSections[2]));
}

TEST_F(Backup, AFileThatCannotBeOpened)
{
    Events files = kPolicyFiles;
    files.insert(files.begin(), {kConfig, kUrl});
    const std::string backup = with_trailer(body_of(kSections));
    for (std::size_t i = 0; i < files.size(); ++i) {
        remove_files();
        mkdir("/webroot", 0755);
        mkdir(files[i].c_str(), 0755);
        const int before = test::open_descriptors();
        const Events all = events_of([&] { EXPECT_EQ(upload(backup), CFG_UPLOAD_ERR); });
        EXPECT_EQ(test::open_descriptors(), before);
        EXPECT_THAT(all, ElementsAre(StartsWith("load default"), StartsWith("load auth")));
        if (i >= 2) {
            EXPECT_EQ(read_text(kConfig), kSections[0] + "\n");
            EXPECT_EQ(read_text(kUrl), "");
        }
    }
}

TEST_F(Backup, AFullMediumLoadsNothing)
{
    Events sections = kSections;
    for (int i = 0; i < 2000; ++i) {
        sections[0] += "key" + std::to_string(i) + "=value\n";
    }
    const std::string file = with_trailer(body_of(sections));
    for (const char *const folder : {"/webroot", "/etc"}) {
        const test::MountedFolder full{folder};
        full.fill();
        const Events all = events_of([&] { EXPECT_EQ(upload(file), CFG_UPLOAD_ERR) << folder; });
        EXPECT_THAT(all, Not(Contains("cfm Upload")));
    }
}

TEST_F(Backup, WhatAFullMediumHoldsIsNoBackup)
{
    const test::MountedFolder full{"/etc"};
    full.fill();
    char name[PROD_BACKUP_NAME_SIZE];
    EXPECT_EQ(prod_systool_sys_cfg_download(name), 0);
    const std::string file = read_text(name);
    const Events all = events_of([&] { EXPECT_EQ(upload(file), CFG_FILE_INVALID); });
    EXPECT_THAT(all, IsEmpty());
}

TEST_F(Backup, WhatWasMadeIsTaken)
{
    SetValue("wans.wanwebaddr", "203.0.113.7");
    SetValue("lan.ip", "192.168.7.1");
    char name[PROD_BACKUP_NAME_SIZE];
    ASSERT_EQ(prod_systool_sys_cfg_download(name), 0);
    const std::string file = read_text(kBackup);
    RestoreValue();
    SetValue("wans.wanwebaddr", "203.0.113.9");
    EXPECT_EQ(upload(file), CFG_UPGRADE_OK);
    char value[CFM_VALUE_SIZE] = "";
    EXPECT_EQ(GetValue("lan.ip", value), 1);
    EXPECT_STREQ(value, "192.168.7.1");
    EXPECT_EQ(GetValue("wans.wanwebaddr", value), 1);
    EXPECT_STREQ(value, "203.0.113.9");
}

// ---- the web interface's door ----------------------------------------------------------------

TEST_F(Backup, OneDoorToBoth)
{
    char name[PROD_BACKUP_NAME_SIZE] = "";
    EXPECT_THAT(
        events_of([&] { EXPECT_EQ(prod_backup_file_handle(FILE_OPERATE_DOWNLOAD, name, 0), 0); }),
        Contains("cfm show /etc/tmp.cfg"));
    EXPECT_STREQ(name, "/etc/tmp.cfg");
    std::string file = with_trailer(body_of(kSections));
    const auto size = static_cast<long>(file.size());
    EXPECT_THAT(events_of([&] {
                    EXPECT_EQ(prod_backup_file_handle(FILE_OPERATE_UPLOAD, file.data(), size), 0);
                }),
                Contains("cfm Upload"));
    EXPECT_EQ(prod_backup_file_handle(FILE_OPERATE_DOWNLOAD, nullptr, 0), -1);
    EXPECT_EQ(prod_backup_file_handle(FILE_OPERATE_UPLOAD, nullptr, 1), -2);
    for (const int type : {-1, 1, 3}) {
        EXPECT_EQ(printed([&] {
                      const auto other = static_cast<FILE_OPERATE_ENUM>(type);
                      EXPECT_EQ(prod_backup_file_handle(other, file.data(), size), -1);
                  }),
                  "invalid type!\n");
    }
}

}  // namespace
