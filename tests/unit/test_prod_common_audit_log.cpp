// SPDX-License-Identifier: MIT
#include "prod_common_audit_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;

namespace
{

long up_time = -1;  // of the device, unless negative
bool no_local_time;
std::string empty_folder;    // whose file system has no blocks
std::string unknown_folder;  // that cannot be queried

}  // namespace

extern "C" {

int sysinfo(struct sysinfo *info) noexcept
{
    static const auto real = test::next(sysinfo, "sysinfo");
    const int rc = real(info);
    if (up_time >= 0) {
        info->uptime = up_time;
    }
    return rc;
}

int gettimeofday(struct timeval *now, void *) noexcept
{
    *now = {1000000000, 999999};
    return 0;
}

struct tm *localtime_r(const time_t *when, struct tm *local) noexcept
{
    static const auto real = test::next(localtime_r, "localtime_r");
    return no_local_time ? nullptr : real(when, local);
}

int statfs(const char *path, struct statfs *fs) noexcept
{
    static const auto real = test::next(statfs, WIDE("statfs"));
    if (path == unknown_folder) {
        errno = EIO;
        return -1;
    }
    const int rc = real(path, fs);
    if (path == empty_folder) {
        fs->f_blocks = 0;
    }
    return rc;
}
}

namespace
{

constexpr const char *kNow = "2001-09-09 01:46:40 ";

class AuditLog : public testing::Test
{
  protected:
    void TearDown() override
    {
        up_time = -1;
        no_local_time = false;
        empty_folder.clear();
        unknown_folder.clear();
    }

    test::FreshConfig fresh_;
};
using Stay = AuditLog;
using Wording = AuditLog;
using Record = AuditLog;

// ---- length of a stay --------------------------------------------------------------------------

std::string stay(int seconds)
{
    up_time = 1000000;
    char text[64] = "";
    EXPECT_EQ(fill_stay_str_by_ontime(static_cast<int>(up_time) - seconds, text, sizeof(text)), 1);
    return text;
}

TEST_F(Stay, InDaysHoursMinutesSeconds)
{
    EXPECT_EQ(stay(86400 + 3600 + 60 + 1), "[1]day [1]hour [1]minute [1]second");
    EXPECT_EQ(stay(0), "[0]day [0]hour [0]minute [0]second");
    EXPECT_EQ(stay(59), "[0]day [0]hour [0]minute [59]second");
    EXPECT_EQ(stay(86399), "[0]day [23]hour [59]minute [59]second");
    EXPECT_EQ(stay(10 * 86400), "[10]day [0]hour [0]minute [0]second");
}

TEST_F(Stay, OfOneWhoIsStillToCome)
{
    EXPECT_EQ(stay(-90061), "[-1]day [-1]hour [-1]minute [-1]second");
    up_time = 1;
    char text[64] = "";
    EXPECT_EQ(fill_stay_str_by_ontime(INT_MAX, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "[-24855]day [-3]hour [-14]minute [-6]second");
}

TEST_F(Stay, IsCutToItsRoomAndTheRestIsZero)
{
    up_time = 100;
    char text[64];
    memset(text, '#', sizeof(text));
    EXPECT_EQ(fill_stay_str_by_ontime(100, text, 60), 1);
    EXPECT_EQ(std::string(text, 60), "[0]day [0]hour [0]minute [0]second" + std::string(26, '\0'));
    EXPECT_EQ(text[60], '#');
    memset(text, '#', sizeof(text));
    EXPECT_EQ(fill_stay_str_by_ontime(100, text, 7), 1);
    EXPECT_EQ(std::string(text, 8), std::string("[0]day\0#", 8));
    EXPECT_EQ(fill_stay_str_by_ontime(100, text, 1), 1);
    EXPECT_STREQ(text, "");
}

TEST_F(Stay, WithoutATimeOrRoom)
{
    char text[8] = "before";
    for (const int on_time : {0, -1, INT_MIN}) {
        EXPECT_THAT(
            printed([&] { EXPECT_EQ(fill_stay_str_by_ontime(on_time, text, sizeof(text)), 0); }),
            Prints(log_line(PROD_DBG_ERROR, "fill_stay_str_by_ontime", "invalid param")));
    }
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(fill_stay_str_by_ontime(1, text, 0), 0);
                  EXPECT_EQ(fill_stay_str_by_ontime(1, text, -1), 0);
                  EXPECT_EQ(fill_stay_str_by_ontime(1, nullptr, 8), 0);
              }),
              "");
    EXPECT_STREQ(text, "before");
}

// ---- time stamp --------------------------------------------------------------------------------

TEST_F(AuditLog, TimeStampWithABlankAtItsEnd)
{
    char text[32];
    memset(text, '#', sizeof(text));
    audit_log_get_time(text, sizeof(text));
    EXPECT_STREQ(text, kNow);
    EXPECT_EQ(text[21], '#');
    setenv("TZ", "GMT-8", 1);
    audit_log_get_time(text, sizeof(text));
    EXPECT_STREQ(text, "2001-09-09 09:46:40 ");
    unsetenv("TZ");
    audit_log_get_time(text, 5);
    EXPECT_STREQ(text, "2001");
    audit_log_get_time(text, 1);
    EXPECT_STREQ(text, "");
}

TEST_F(AuditLog, TimeStampsThatCannotBe)
{
    char text[32] = "before";
    audit_log_get_time(text, 0);
    audit_log_get_time(text, -1);
    audit_log_get_time(nullptr, 32);
    no_local_time = true;
    audit_log_get_time(text, sizeof(text));
    EXPECT_STREQ(text, "before");
    char message[64] = "x";
    EXPECT_EQ(fill_audit_log_msg_by_appid(4, message, sizeof(message)), 1);
    EXPECT_STREQ(message, "user x time:");
}

// ---- wording -----------------------------------------------------------------------------------

TEST_F(Wording, ByWhatItIsAbout)
{
    const struct {
        uint32_t app_id;
        std::string message;
    } kCases[] = {
        {4, std::string{"user anna time:"} + kNow},
        {5, std::string{"user staying:anna time:"} + kNow},
        {6, std::string{"user sms auth info:anna time:"} + kNow},
        {7, std::string{"user web auth info:anna time:"} + kNow},
        {8, ""},
        {9, std::string{"user anna time:"} + kNow},
        {10, std::string{"user anna time:"} + kNow},
    };
    for (const auto &[app_id, message] : kCases) {
        char text[100];
        memset(text, '#', sizeof(text));
        strcpy(text, "anna");
        EXPECT_EQ(fill_audit_log_msg_by_appid(app_id, text, 90), 1) << app_id;
        EXPECT_EQ(std::string(text, 90), message + std::string(90 - message.size(), '\0'))
            << app_id;
        EXPECT_EQ(text[90], '#');
    }
}

TEST_F(Wording, AnotherIdIsRefused)
{
    for (const auto &[app_id, shown] :
         {std::pair<uint32_t, const char *>{3, "3"}, {11, "11"}, {0, "0"}, {4294967295U, "-1"}}) {
        char text[32] = "anna";
        EXPECT_THAT(printed([&, id = app_id] {
                        EXPECT_EQ(fill_audit_log_msg_by_appid(id, text, sizeof(text)), 0);
                    }),
                    Prints(log_line(PROD_DBG_ERROR, "fill_audit_log_msg_by_appid",
                                    std::string{"app_id["} + shown + "] invalid param")));
        EXPECT_STREQ(text, "anna");
    }
}

TEST_F(Wording, IsShownToWhoAsks)
{
    char text[64] = "anna";
    EXPECT_THAT(
        printed_at(PROD_DBG_INFO, [&] { fill_audit_log_msg_by_appid(4, text, sizeof(text)); }),
        Prints(log_line(PROD_DBG_INFO, "fill_audit_log_msg_by_appid", "app_id 4 ,msg_len 64")));
    EXPECT_EQ(printed_at(PROD_DBG_DEBUG, [&] { fill_audit_log_msg_by_appid(4, text, 64); }), "");
}

TEST_F(Wording, IsCutToItsRoom)
{
    char text[400] = "anna";
    EXPECT_EQ(fill_audit_log_msg_by_appid(4, text, 12), 1);
    EXPECT_STREQ(text, "user anna t");
    // A text that fills its room has no end of its own.
    char full[5];
    memcpy(full, "annab", 5);
    EXPECT_EQ(fill_audit_log_msg_by_appid(4, full, 5), 1);
    EXPECT_EQ(std::string(full, 5), std::string("user\0", 5));
    // 255 characters are all that a message has, in whatever room.
    memset(text, '#', sizeof(text));
    memset(text, 'x', 300);
    text[300] = '\0';
    EXPECT_EQ(fill_audit_log_msg_by_appid(4, text, 390), 1);
    EXPECT_EQ(std::string(text, 390),
              "user " + std::string(250, 'x') + std::string(390 - 255, '\0'));
    EXPECT_EQ(text[390], '#');
    for (const int length : {1, 0, -1, INT_MIN}) {
        char small[8] = "anna";
        EXPECT_EQ(fill_audit_log_msg_by_appid(4, small, length), length == 1 ? 1 : 0);
        EXPECT_STREQ(small, length == 1 ? "" : "anna");
    }
}

TEST_F(Wording, WithoutAMessage)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(fill_audit_log_msg_by_appid(4, nullptr, 10), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "fill_audit_log_msg_by_appid", "invalid param")));
}

// ---- record ------------------------------------------------------------------------------------

TEST_F(Record, IsFilled)
{
    audit_save_log_info record;
    memset(&record, '#', sizeof(record));
    char text[100] = "anna";
    EXPECT_EQ(fill_audit_log_info(&record, "02:00:5E:00:53:01", "192.168.0.10", 6, text, 100), 1);
    audit_save_log_info expected = {};
    memcpy(expected.mac_addr, "02:00:5E:00:53:01", 17);
    strcpy(expected.ipaddr, "192.168.0.10");
    expected.appid = 6;
    strcpy(expected.msg, "user sms auth info:anna time:2001-09-09 01:46:40 ");
    EXPECT_EQ(memcmp(&record, &expected, sizeof(record)), 0);
    EXPECT_STREQ(text, expected.msg);
}

TEST_F(Record, LongTextsAreCut)
{
    audit_save_log_info record;
    memset(&record, '#', sizeof(record));
    std::string text(400, 'm');
    EXPECT_EQ(fill_audit_log_info(&record, std::string(100, 'a').c_str(),
                                  std::string(100, 'i').c_str(), 99, text.data(), 400),
              1);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(record.mac_addr), 32),
              std::string(31, 'a') + '\0');
    EXPECT_EQ(std::string(record.ipaddr, 32), std::string(31, 'i') + '\0');
    EXPECT_EQ(std::string(record.msg, 256), std::string(255, 'm') + '\0');
    EXPECT_EQ(record.appid, 99U);  // a text that is not worded is kept as it is
}

TEST_F(Record, TextsWithoutAnEnd)
{
    const std::vector<char> mac(31, 'a');
    const std::vector<char> ip(31, 'i');
    for (const uint32_t app_id : {4U, 99U}) {
        std::vector<char> text(20, 'm');
        audit_save_log_info record;
        EXPECT_EQ(fill_audit_log_info(&record, mac.data(), ip.data(), app_id, text.data(), 20), 1);
        EXPECT_STREQ(reinterpret_cast<char *>(record.mac_addr), std::string(31, 'a').c_str());
        EXPECT_STREQ(record.ipaddr, std::string(31, 'i').c_str());
        EXPECT_EQ(record.msg, app_id == 4 ? "user " + std::string(14, 'm') : std::string(20, 'm'));
    }
    std::string longer(40, 'm');  // than its length says
    audit_save_log_info refused;
    EXPECT_EQ(fill_audit_log_info(&refused, "mac", "ip", 99, longer.data(), 20), 1);
    EXPECT_EQ(refused.msg, std::string(20, 'm'));
    char text[] = "anna";
    audit_save_log_info record;
    EXPECT_EQ(fill_audit_log_info(&record, "mac", "ip", 4, text, 0), 1);
    EXPECT_STREQ(record.msg, "anna");
}

TEST_F(Record, MissingArguments)
{
    char text[16] = "anna";
    audit_save_log_info record;
    memset(&record, '#', sizeof(record));
    const audit_save_log_info before = record;
    for (int missing = 0; missing < 4; ++missing) {
        EXPECT_THAT(printed([&] {
                        EXPECT_EQ(fill_audit_log_info(missing == 0 ? nullptr : &record,
                                                      missing == 1 ? nullptr : "mac",
                                                      missing == 2 ? nullptr : "ip", 4,
                                                      missing == 3 ? nullptr : text, 16),
                                  0);
                    }),
                    Prints(log_line(PROD_DBG_ERROR, "fill_audit_log_info", "invalid param")));
    }
    EXPECT_STREQ(text, "anna");
    EXPECT_EQ(memcmp(&record, &before, sizeof(record)), 0);
}

// ---- storage -----------------------------------------------------------------------------------

constexpr const char *kKey = "audit.usb.storage.dir";

/** The partitions' folder under its two names, as the USB daemon has it. */
class Storage : public AuditLog
{
  protected:
    void SetUp() override
    {
        std::filesystem::create_directories("/etc/upan");
        std::filesystem::create_directories("/var");
        std::filesystem::create_symlink("/etc", "/var/etc");
    }
    void TearDown() override
    {
        AuditLog::TearDown();
        test::remove_all("/var/etc");
        test::remove_all("/etc/upan");
    }
};

TEST_F(Storage, TheFirstPartitionByName)
{
    const test::MountedFolder b{"/etc/upan/sdb1"};
    const test::MountedFolder a{"/etc/upan/sda2"};
    std::filesystem::create_directories("/etc/upan/sda1");  // not mounted
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [] { EXPECT_EQ(audit_log_set_new_usb_dir(), 1); }),
                Prints(log_line(PROD_DBG_DEBUG, "audit_log_set_new_usb_dir", "name: sda2")));
    EXPECT_EQ(config()[kKey], "sda2");
    EXPECT_EQ(test::committed_config()[kKey], "sda2");
    EXPECT_EQ(test::config_calls().writes, 1);
    EXPECT_EQ(test::config_calls().commits, 1);
}

TEST_F(Storage, WhatIsChosenAlreadyIsNotWrittenAgain)
{
    const test::MountedFolder a{"/etc/upan/sda1"};
    config()[kKey] = "sda1";
    EXPECT_EQ(audit_log_set_new_usb_dir(), 1);
    EXPECT_EQ(test::config_calls().writes, 0);
    EXPECT_EQ(test::config_calls().commits, 1);
}

TEST_F(Storage, FileSystemsWithoutBlocksAndThoseThatFailArePassedOver)
{
    const test::MountedFolder a{"/etc/upan/sda1"};
    const test::MountedFolder b{"/etc/upan/sdb1"};
    const test::MountedFolder c{"/etc/upan/sdc1"};
    empty_folder = "/var/etc/upan/sda1";
    unknown_folder = "/var/etc/upan/sdb1";
    EXPECT_THAT(printed([] { EXPECT_EQ(audit_log_set_new_usb_dir(), 1); }),
                Prints(log_line(PROD_DBG_ERROR, "audit_log_set_new_usb_dir",
                                "Statfs error '/var/etc/upan/sdb1'.")));
    EXPECT_EQ(config()[kKey], "sdc1");
    // They are looked at behind the chosen one, too.
    unknown_folder = "/var/etc/upan/sdc1";
    empty_folder.clear();
    EXPECT_THAT(printed([] { EXPECT_EQ(audit_log_set_new_usb_dir(), 1); }),
                Prints(log_line(PROD_DBG_ERROR, "audit_log_set_new_usb_dir",
                                "Statfs error '/var/etc/upan/sdc1'.")));
    EXPECT_EQ(config()[kKey], "sda1");
}

TEST_F(Storage, NothingMounted)
{
    std::filesystem::create_directories("/etc/upan/sda1");
    config()[kKey] = "sdx9";
    EXPECT_EQ(printed([] { EXPECT_EQ(audit_log_set_new_usb_dir(), 0); }), "");
    EXPECT_EQ(config()[kKey], "sdx9");
    EXPECT_EQ(test::config_calls().commits, 0);
}

TEST_F(Storage, AFolderThatIsNotThere)
{
    test::remove_all("/etc/upan");
    EXPECT_THAT(
        printed([] { EXPECT_EQ(audit_log_set_new_usb_dir(), 0); }),
        Prints(log_line(PROD_DBG_ERROR, "audit_log_set_new_usb_dir", "scandir return -1 ")));
}

TEST_F(Storage, NothingIsLeftOpen)
{
    const test::MountedFolder a{"/etc/upan/sda1"};
    audit_log_set_new_usb_dir();
    const int before = test::open_descriptors();
    audit_log_set_new_usb_dir();
    EXPECT_EQ(test::open_descriptors(), before);
}

}  // namespace
