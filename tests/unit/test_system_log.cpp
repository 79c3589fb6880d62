// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "prod_common_file.h"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "support/platform_log.hpp"

using test::platform_log;
using test::remove_all;
using test::write_text;

namespace
{

constexpr const char *kLog = "/var/logs.txt";

using Entries = std::vector<std::string>;

std::string shown(const SYSLOG_LIST_STRU &entry)
{
    return std::string{entry.date} + "|" + std::to_string(entry.type) + "|" + entry.msg;
}

/** The entries of a type that fit @p room records; the rest of the room must stay clear. */
Entries listed(int type = LOG_ALL, int room = 16)
{
    std::vector<SYSLOG_LIST_STRU> records(static_cast<std::size_t>(room));
    memset(records.data(), 0xAA, records.size() * sizeof(records[0]));
    int count = -1;
    EXPECT_EQ(file_syslog_get_lists(records.data(), type, &count, room), HLX_OK);
    Entries entries;
    for (int i = 0; i < room; ++i) {
        const SYSLOG_LIST_STRU &entry = records[static_cast<std::size_t>(i)];
        const SYSLOG_LIST_STRU clear = {};
        if (i < count) {
            EXPECT_EQ(memcmp(entry.order, clear.order, sizeof(clear.order)), 0);
            entries.push_back(shown(entry));
        } else {
            EXPECT_EQ(memcmp(&entry, &clear, sizeof(entry)), 0) << i;
        }
    }
    return entries;
}

/** What is read of a log that holds this text. */
Entries read_of(const std::string &text)
{
    write_text(kLog, text);
    return listed();
}

class SystemLog : public testing::Test
{
  protected:
    void SetUp() override { platform_log().clear(); }
    void TearDown() override { remove_all(kLog); }
};

TEST_F(SystemLog, EntriesInTheirOrder)
{
    write_text(kLog,
               "2026-01-02 03:04:05;1;system started\n"
               "2026-01-02 03:04:06;3;WAN 1 is connected\n"
               "2026-01-02 03:04:07;4;WAN 2 is connected; address 100.64.2.7\n"
               "2026-01-02 03:04:08;3;WAN 1 is disconnected\n");
    EXPECT_EQ(listed(), (Entries{"2026-01-02 03:04:05|1|system started",
                                 "2026-01-02 03:04:06|3|WAN 1 is connected",
                                 "2026-01-02 03:04:07|4|WAN 2 is connected; address 100.64.2.7",
                                 "2026-01-02 03:04:08|3|WAN 1 is disconnected"}));
    EXPECT_EQ(listed(LOG_WAN1), (Entries{"2026-01-02 03:04:06|3|WAN 1 is connected",
                                         "2026-01-02 03:04:08|3|WAN 1 is disconnected"}));
    EXPECT_EQ(listed(LOG_LAN_DHCP), Entries{});
    EXPECT_EQ(listed(-1), Entries{});
}

TEST_F(SystemLog, TypesHaveTheirNumbers)
{
    const LOG_SYS_TYPE in_order[] = {
        LOG_ALL, LOG_SYSTEM,   LOG_WEB_CLS_FILTER, LOG_WAN1,  LOG_WAN2,   LOG_WAN3,  LOG_WAN4,
        LOG_DBG, LOG_LAN_DHCP, LOG_WISP_DHCP,      LOG_CLEAR, LOG_RELOAD, LOG_ERROR, LOG_MAX};
    int number = 0;
    for (const LOG_SYS_TYPE type : in_order) {
        EXPECT_EQ(type, number++);
    }
    EXPECT_EQ(number, 14);
}

TEST_F(SystemLog, AsManyAsThereIsRoomFor)
{
    write_text(kLog, "a;1;one\nb;3;two\nc;1;three\nd;3;four\n");
    EXPECT_EQ(listed(LOG_ALL, 2), (Entries{"a|1|one", "b|3|two"}));
    EXPECT_EQ(listed(LOG_ALL, 4), (Entries{"a|1|one", "b|3|two", "c|1|three", "d|3|four"}));
    EXPECT_EQ(listed(LOG_WAN1, 1), Entries{"b|3|two"});
    EXPECT_EQ(listed(LOG_WAN1, 2), (Entries{"b|3|two", "d|3|four"}));
}

TEST_F(SystemLog, WithoutRoomNothingIsWritten)
{
    write_text(kLog, "a;1;one\n");
    SYSLOG_LIST_STRU record;
    SYSLOG_LIST_STRU before;
    memset(&record, 0xAA, sizeof(record));
    before = record;
    for (const int room : {0, -1, INT_MIN}) {
        int count = 77;
        EXPECT_EQ(file_syslog_get_lists(&record, LOG_ALL, &count, room), HLX_OK);
        EXPECT_EQ(count, 0) << room;
        EXPECT_EQ(memcmp(&record, &before, sizeof(record)), 0) << room;
    }
}

TEST_F(SystemLog, ALineThatIsNoEntryEndsTheReading)
{
    const std::string first = "a;1;one\n";
    const std::string last = "z;1;last\n";
    for (const std::string line :
         {"no separator\n", "b;2\n", "b;2;\n", "b;;two\n", "b;x;two\n", ";2;two\n", "b;2 ;two\n",
          "b; ;two\n", "b;-;two\n", "b;0x2;two\n"}) {
        EXPECT_EQ(read_of(first + line + last), Entries{"a|1|one"}) << line;
        EXPECT_EQ(read_of(line + last), Entries{}) << line;
    }
    EXPECT_EQ(read_of(first + std::string("b\0;2;two\n", 9) + last), Entries{"a|1|one"});
    EXPECT_EQ(read_of(""), Entries{});
}

TEST_F(SystemLog, Entry)
{
    const struct {
        std::string line;
        std::string entry;
    } rows[] = {
        {"date;5;message", "date|5|message"},
        {"date;5;message\r\n", "date|5|message\r"},
        {"date; \t5;message\n", "date|5|message"},
        {"date;+5;message\n", "date|5|message"},
        {"date;-5;message\n", "date|-5|message"},
        {"date;13;message\n", "date|13|message"},
        {"date;99999999999;message\n", "date|2147483647|message"},
        {"date;-99999999999;message\n", "date|-2147483648|message"},
        {"date;5;;a;b;\n", "date|5|;a;b;"},
        {"date;5;  message  \n", "date|5|  message  "},
        {"date;5; \n", "date|5| "},
        {"  \t date ;5;message\n", "date |5|message"},
        {"\n\n \r\n date;5;message\n\n \n", "date|5|message"},
        {"date;5;%s%n$(reboot)\x1B[31m\xFF\x80\n", "date|5|%s%n$(reboot)\x1B[31m\xFF\x80"},
        {std::string("date;5;mess\0age\n", 16), "date|5|mess"},
    };
    for (const auto &one : rows) {
        EXPECT_EQ(read_of(one.line), Entries{one.entry}) << one.line;
    }
}

TEST_F(SystemLog, WhatDoesNotFitIsCut)
{
    const std::string last = "z;1;last\n";
    for (const std::size_t length : {31U, 32U, 33U, 255U, 256U, 1000U, 2000U}) {
        const std::string date(length, 'd');
        const std::string message(length, 'm');
        EXPECT_EQ(read_of(date + ";5;" + message + "\n" + last),
                  (Entries{date.substr(0, 31) + "|5|" + message.substr(0, 255), "z|1|last"}))
            << length;
    }
}

TEST_F(SystemLog, LinesOfAnyLength)
{
    const std::string last = "z;1;last\n";
    for (const std::size_t length : {4094U, 4095U, 4096U, 4097U, 8189U, 8190U, 8191U, 100000U}) {
        std::string line = "a;5;";
        line += std::string(length - line.size(), 'm');
        EXPECT_EQ(read_of(line + "\n" + last),
                  (Entries{"a|5|" + std::string(251 + 4, 'm'), "z|1|last"}))
            << length;
        EXPECT_EQ(read_of(last + line), (Entries{"z|1|last", "a|5|" + std::string(255, 'm')}))
            << length;
        EXPECT_EQ(read_of(std::string(length, ' ') + "\n" + last), Entries{"z|1|last"}) << length;
        EXPECT_EQ(read_of(std::string(length, '\n') + last), Entries{"z|1|last"}) << length;
    }
    EXPECT_EQ(read_of(std::string(5000, 'd') + ";5;message\n" + last), Entries{});
}

TEST_F(SystemLog, ALogOfManyEntries)
{
    std::string text;
    for (int i = 0; i < 10000; ++i) {
        text += "date;" + std::to_string(i % 13) + ";message " + std::to_string(i) + "\n";
    }
    write_text(kLog, text);
    EXPECT_EQ(listed(LOG_ALL, 10001).size(), 10000U);
    EXPECT_EQ(listed(LOG_WAN1, 10000).size(), 769U);
    EXPECT_EQ(listed(LOG_ALL, 100).back(), "date|8|message 99");
}

TEST_F(SystemLog, MessagesGoToThePlatformsLogger)
{
    write_text(kLog, "a;1;one\n");
    SYSLOG_LIST_STRU record;
    int count = 77;
    const int before = test::open_descriptors();
    const std::string console = test::printed_at(
        PROD_DBG_TRACE, [&] { file_syslog_get_lists(&record, LOG_ALL, &count, 1); });
    EXPECT_EQ(console, "");
    EXPECT_EQ(platform_log(),
              (std::vector<std::string>{"file_syslog_get_lists 0 common_so: function entry!",
                                        "file_syslog_get_lists 0 common_so: function exit!"}));
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(SystemLog, WithoutALog)
{
    SYSLOG_LIST_STRU record;
    memset(&record, 0xAA, sizeof(record));
    int count = 77;
    EXPECT_EQ(file_syslog_get_lists(&record, LOG_ALL, &count, 1), HLX_ERR);
    EXPECT_EQ(count, 77);
    EXPECT_EQ(shown(record), "|0|") << "cleared before";
    EXPECT_EQ(platform_log(),
              (std::vector<std::string>{"file_syslog_get_lists 0 common_so: function entry!",
                                        "file_syslog_get_lists 3 common_so: fopen is fail."}));
}

TEST_F(SystemLog, NullArguments)
{
    write_text(kLog, "a;1;one\n");
    SYSLOG_LIST_STRU record;
    memset(&record, 0xAA, sizeof(record));
    int count = 77;
    EXPECT_EQ(file_syslog_get_lists(nullptr, LOG_ALL, &count, 1), HLX_ERR);
    EXPECT_EQ(file_syslog_get_lists(nullptr, LOG_ALL, &count, 0), HLX_ERR);
    EXPECT_EQ(file_syslog_get_lists(&record, LOG_ALL, nullptr, 1), HLX_ERR);
    EXPECT_EQ(count, 77);
    EXPECT_EQ(record.order[0], '\xAA');
}

}  // namespace
