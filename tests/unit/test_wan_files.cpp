// SPDX-License-Identifier: MIT
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <climits>
#include <cstring>
#include <string>

#include "platform/hardware.h"
#include "platform/km.h"
#include "platform/process.h"
#include "prod_common_file.h"
#include "support/capture.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"

using test::config;
using test::error_line;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::read_text;
using test::remove_all;
using test::write_text;

namespace
{

// ---- the board, the traffic module and the up-time, as a test sets them ----------------------

bool linked;
long uptime = 1000;
std::string answer;  // of the traffic module; none at all when empty
bool readers_fail;   // what no file can bring about

using AddressReader = HLX_RETURN_CODE(WAN_ID_NUM_ENUM, WAN_IP_INFO_STRU *);

}  // namespace

extern "C" {

int iof_port_status_get(int, port_status *status)
{
    *status = {};
    status->link = linked ? 1 : 0;
    return 0;
}

char *iof_eth_name_get(eth_idx_t)
{
    return nullptr;
}

int monitor_check_exist(const char *)
{
    return 0;
}

int km_wan_statistic_get_wan_flow(cJSON *object)
{
    if (answer.empty()) {
        return -1;
    }
    cJSON *const parsed = cJSON_Parse(answer.c_str());
    while (parsed->child != nullptr) {
        cJSON *const member = cJSON_DetachItemViaPointer(parsed, parsed->child);
        cJSON_AddItemToObject(object, member->string, member);
    }
    cJSON_Delete(parsed);
    return 0;
}

HLX_RETURN_CODE file_wan_ip_info_get(WAN_ID_NUM_ENUM wan_id, WAN_IP_INFO_STRU *ip_info)
{
    static const auto real = test::next(file_wan_ip_info_get, "file_wan_ip_info_get");
    return readers_fail ? HLX_ERR : real(wan_id, ip_info);
}

HLX_RETURN_CODE file_wan_get_extra_ip_info(WAN_ID_NUM_ENUM wan_id, WAN_IP_INFO_STRU *ip_info)
{
    static const auto real = test::next(file_wan_get_extra_ip_info, "file_wan_get_extra_ip_info");
    return readers_fail ? HLX_ERR : real(wan_id, ip_info);
}

int sysinfo(struct sysinfo *info) noexcept
{
    *info = {};
    info->uptime = uptime;
    return 0;
}
}

namespace
{

constexpr const char *kWan1 = "/etc/wan1.ini";
constexpr const char *kWan12 = "/etc/wan12.ini";
constexpr const char *kLease =
    "ip=192.0.2.7\nmask=255.255.255.0\ngateway=192.0.2.1\ndns1=9.9.9.9\ndns2=1.1.1.1\n";

/** Entry and exit traces around what else a function logs. */
std::string traced(const std::string &function, const std::string &inner = "")
{
    return log_line(PROD_DBG_TRACE, function, "ENTER >>> " + function) + inner +
           log_line(PROD_DBG_TRACE, function, "LEAVE <<< " + function);
}

WAN_IP_INFO_STRU filled_record(int byte = 0xEE)
{
    WAN_IP_INFO_STRU info;
    memset(&info, byte, sizeof(info));
    return info;
}

std::string shown(const WAN_IP_INFO_STRU &info)
{
    return std::string{info.wan_ip} + "|" + info.wan_mask + "|" + info.wan_gw + "|" +
           info.wan_dns1 + "|" + info.wan_dns2;
}

bool untouched(const WAN_IP_INFO_STRU &info)
{
    const WAN_IP_INFO_STRU before = filled_record();
    return memcmp(&info, &before, sizeof(info)) == 0;
}

std::string read_by_key(const std::string &text)
{
    write_text(kWan1, text);
    WAN_IP_INFO_STRU info = filled_record();
    EXPECT_EQ(file_wan_ip_info_get(WAN_ID_1, &info), HLX_OK);
    return shown(info);
}

std::string read_by_line(const std::string &text, int expected)
{
    write_text(kWan1, text);
    WAN_IP_INFO_STRU info = filled_record();
    EXPECT_EQ(get_wan_info_by_id(1, &info), expected) << text;
    return shown(info);
}

// ---- tables ----------------------------------------------------------------------------------

TEST(WanFileTables, ByWanId)
{
    for (int i = 0; i < 4; ++i) {
        const std::string id = std::to_string(i + 1);
        EXPECT_EQ(g_wan_ip_info[i], "/etc/wan" + id + ".ini");
        EXPECT_EQ(g_wan_ip_info2[i], "/etc/wan" + id + "2.ini");
        EXPECT_EQ(g_wan_cfg_file[i], "/etc/wan" + id + ".cfg");
    }
    EXPECT_STREQ(g_wan_ip_info[4], "");
    EXPECT_STREQ(g_wan_ip_info2[4], "");
    EXPECT_STREQ(g_wan_cfg_file[4], "");
}

// ---- the writer ------------------------------------------------------------------------------

TEST(FileWanIpSave, WritesExactlyTheFiveLines)
{
    const WAN_IP_INFO_STRU info = {"192.0.2.7", "255.255.255.0", "192.0.2.1", "9.9.9.9", "1.1.1.1"};
    write_text(kWan1, std::string(1000, 'x'));
    EXPECT_EQ(file_wan_ip_save(kWan1, &info), HLX_OK);
    EXPECT_EQ(read_text(kWan1), kLease);
    remove_all(kWan1);
    EXPECT_EQ(file_wan_ip_save(kWan1, &info), HLX_OK);
    EXPECT_EQ(read_text(kWan1), kLease);
    const WAN_IP_INFO_STRU empty = {};
    EXPECT_EQ(file_wan_ip_save(kWan1, &empty), HLX_OK);
    EXPECT_EQ(read_text(kWan1), "ip=\nmask=\ngateway=\ndns1=\ndns2=\n");
}

TEST(FileWanIpSave, BothReadersUnderstandIt)
{
    const WAN_IP_INFO_STRU saved = {"192.0.2.7", "255.255.255.0", "192.0.2.1", "9.9.9.9",
                                    "1.1.1.1"};
    ASSERT_EQ(file_wan_ip_save(kWan1, &saved), HLX_OK);
    WAN_IP_INFO_STRU by_key = filled_record();
    WAN_IP_INFO_STRU by_line = filled_record();
    EXPECT_EQ(file_wan_ip_info_get(WAN_ID_1, &by_key), HLX_OK);
    EXPECT_EQ(get_wan_info_by_id(1, &by_line), 1);
    EXPECT_EQ(shown(by_key), shown(saved));
    EXPECT_EQ(shown(by_line), shown(saved));
}

TEST(FileWanIpSave, AFieldWithoutItsNulIsReadOnlyToItsEnd)
{
    const WAN_IP_INFO_STRU info = filled_record('7');
    EXPECT_EQ(file_wan_ip_save(kWan1, &info), HLX_OK);
    const std::string field(15, '7');
    EXPECT_EQ(read_text(kWan1), "ip=" + field + "\nmask=" + field + "\ngateway=" + field +
                                    "\ndns1=" + field + "\ndns2=" + field + "\n");
}

TEST(FileWanIpSave, Failures)
{
    const WAN_IP_INFO_STRU info = {};
    EXPECT_THAT(printed([&] { EXPECT_EQ(file_wan_ip_save(nullptr, &info), HLX_ERR); }),
                Prints(error_line("file_wan_ip_save", "arg is null.")));
    write_text(kWan1, kLease);
    EXPECT_THAT(printed([] { EXPECT_EQ(file_wan_ip_save(kWan1, nullptr), HLX_ERR); }),
                Prints(error_line("file_wan_ip_save", "arg is null.")));
    EXPECT_EQ(read_text(kWan1), kLease);
    EXPECT_THAT(printed([&] { EXPECT_EQ(file_wan_ip_save("/no/such/file", &info), HLX_ERR); }),
                Prints(error_line("file_wan_ip_save", "fopen is fail.")));
    const int before = test::open_descriptors();
    file_wan_ip_save(kWan1, &info);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(FileWanIpSave, AFullDiskIsNotReported)
{
    const WAN_IP_INFO_STRU info = {"192.0.2.7", "255.255.255.0", "192.0.2.1", "9.9.9.9", "1.1.1.1"};
    const int before = test::open_descriptors();
    EXPECT_EQ(printed([&] { EXPECT_EQ(file_wan_ip_save("/dev/full", &info), HLX_OK); }), "");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(FileWanIpSave, Traces)
{
    const WAN_IP_INFO_STRU info = {};
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { file_wan_ip_save(kWan1, &info); }),
                Prints(traced("file_wan_ip_save")));
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { file_wan_ip_save(nullptr, &info); }),
                Prints(log_line(PROD_DBG_TRACE, "file_wan_ip_save", "ENTER >>> file_wan_ip_save") +
                       error_line("file_wan_ip_save", "arg is null.")));
}

// ---- the reader by key -----------------------------------------------------------------------

TEST(FileWanIpInfoGet, KeysInAnyOrderAmongOthers)
{
    EXPECT_EQ(read_by_key(kLease), "192.0.2.7|255.255.255.0|192.0.2.1|9.9.9.9|1.1.1.1");
    EXPECT_EQ(read_by_key("dns2=5.5.5.5\nlease=3600\n\nip=1.1.1.1\ndns1=4.4.4.4\ngateway=3.3.3.3\n"
                          "mask=2.2.2.2"),
              "1.1.1.1|2.2.2.2|3.3.3.3|4.4.4.4|5.5.5.5");
}

TEST(FileWanIpInfoGet, WhatIsMissingOrEmpty)
{
    const char *const none = "0.0.0.0|0.0.0.0|0.0.0.0|0.0.0.0|0.0.0.0";
    EXPECT_EQ(read_by_key("ip=\nmask=255.0.0.0\n"), "0.0.0.0|255.0.0.0|0.0.0.0|0.0.0.0|0.0.0.0");
    EXPECT_EQ(read_by_key(""), none);
    EXPECT_EQ(read_by_key("ip"), none);
    EXPECT_EQ(read_by_key(std::string(5000, '\0')), none);
    EXPECT_EQ(read_by_key(std::string(100000, 'x')), none);
    remove_all(kWan1);
    WAN_IP_INFO_STRU info = filled_record();
    EXPECT_EQ(file_wan_ip_info_get(WAN_ID_1, &info), HLX_OK);
    EXPECT_EQ(shown(info), none);
}

TEST(FileWanIpInfoGet, LongValuesAreCut)
{
    const std::string address(15, '1');
    EXPECT_EQ(
        read_by_key("ip=" + std::string(16, '1') + "\nmask=" + std::string(255, '2') +
                    "\ngateway=" + std::string(2307, '3') + "\ndns1=4.4.4.4\n"),
        address + "|" + std::string(15, '2') + "|" + std::string(15, '3') + "|4.4.4.4|0.0.0.0");
}

TEST(FileWanIpInfoGet, WanIds)
{
    for (int id = 1; id <= 4; ++id) {
        write_text(g_wan_ip_info[id - 1], "ip=10.0.0." + std::to_string(id) + "\n");
        write_text(g_wan_ip_info2[id - 1], "ip=10.0.2." + std::to_string(id) + "\n");
        WAN_IP_INFO_STRU info = filled_record();
        EXPECT_EQ(file_wan_ip_info_get(static_cast<WAN_ID_NUM_ENUM>(id), &info), HLX_OK);
        EXPECT_EQ(info.wan_ip, "10.0.0." + std::to_string(id));
        EXPECT_EQ(file_wan_get_extra_ip_info(static_cast<WAN_ID_NUM_ENUM>(id), &info), HLX_OK);
        EXPECT_EQ(info.wan_ip, "10.0.2." + std::to_string(id));
        EXPECT_STREQ(info.wan_dns2, "0.0.0.0");
    }
    for (int id = 1; id <= 4; ++id) {
        remove_all(g_wan_ip_info[id - 1]);
        remove_all(g_wan_ip_info2[id - 1]);
    }
}

TEST(FileWanIpInfoGet, Failures)
{
    const struct {
        const char *name;
        HLX_RETURN_CODE (*get)(WAN_ID_NUM_ENUM, WAN_IP_INFO_STRU *);
        std::string before_null_message;
    } rows[] = {{"file_wan_ip_info_get", file_wan_ip_info_get, ""},
                {"file_wan_get_extra_ip_info", file_wan_get_extra_ip_info,
                 "---------file_wan_get_extra_ip_info----------[0-9]+------\n"}};
    for (const auto &row : rows) {
        WAN_IP_INFO_STRU info = filled_record();
        for (const int id : {0, 5, 6, -1}) {
            EXPECT_THAT(
                printed(
                    [&] { EXPECT_EQ(row.get(static_cast<WAN_ID_NUM_ENUM>(id), &info), HLX_ERR); }),
                Prints(error_line(row.name, "invalide wan_id:" + std::to_string(id) + ".")));
        }
        EXPECT_THAT(
            printed([&] { EXPECT_EQ(row.get(WAN_ID_1, nullptr), HLX_ERR); }),
            Prints(row.before_null_message + error_line(row.name, "ip_info struct is NULL.")));
        EXPECT_THAT(printed([&] { EXPECT_EQ(row.get(WAN_ID_BUTT, nullptr), HLX_ERR); }),
                    Prints(error_line(row.name, "invalide wan_id:5.")));
        EXPECT_TRUE(untouched(info));
    }
}

TEST(FileWanIpInfoGet, Traces)
{
    WAN_IP_INFO_STRU info;
    const std::string reader = traced("file_get_ip_info_from_ini");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { file_wan_ip_info_get(WAN_ID_1, &info); }),
                Prints(traced("file_wan_ip_info_get", reader)));
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { file_wan_get_extra_ip_info(WAN_ID_1, &info); }),
                Prints(traced("file_wan_get_extra_ip_info", reader)));
    EXPECT_EQ(printed_at(PROD_DBG_INFO, [&] { file_wan_ip_info_get(WAN_ID_1, &info); }), "");
}

TEST(FileGetIpInfoFromIni, AnyFile)
{
    write_text("/tmp/lease.ini", kLease);
    WAN_IP_INFO_STRU info = filled_record();
    file_get_ip_info_from_ini("/tmp/lease.ini", &info);
    EXPECT_EQ(shown(info), "192.0.2.7|255.255.255.0|192.0.2.1|9.9.9.9|1.1.1.1");
    const std::string null = error_line("file_get_ip_info_from_ini", "arg is null.");
    info = filled_record();
    EXPECT_THAT(printed([&] {
                    file_get_ip_info_from_ini(nullptr, &info);
                    file_get_ip_info_from_ini("/tmp/lease.ini", nullptr);
                }),
                Prints(null + null));
    EXPECT_TRUE(untouched(info));
}

// ---- the reader by line ----------------------------------------------------------------------

TEST(GetWanInfoById, KeysInAnyOrderAmongOthers)
{
    EXPECT_EQ(read_by_line(kLease, 1), "192.0.2.7|255.255.255.0|192.0.2.1|9.9.9.9|1.1.1.1");
    EXPECT_EQ(read_by_line("dns2=5.5.5.5\nlease=3600\n\nip=1.1.1.1\ndns1=4.4.4.4\r\n", 1),
              "1.1.1.1|||4.4.4.4|5.5.5.5");
    EXPECT_EQ(read_by_line("ip=1.1.1.1\nip=2.2.2.2\n", 1), "2.2.2.2||||");
}

TEST(GetWanInfoById, AnEmptyValueStaysEmpty)
{
    EXPECT_EQ(read_by_line("ip=\nmask=255.0.0.0\n", 1), "|255.0.0.0|||");
    EXPECT_EQ(read_by_line("ip=\n", 0), "||||");
    EXPECT_EQ(read_by_line("ip=\r\n", 0), "||||");
}

TEST(GetWanInfoById, LongValuesAreCut)
{
    EXPECT_EQ(read_by_line("ip=1234567890123456\nmask=" + std::string(100000, '2'), 1),
              "123456789012345|" + std::string(15, '2') + "|||");
    EXPECT_EQ(read_by_line("ip=123456789012345\rx\n", 1), "123456789012345||||");
}

TEST(GetWanInfoById, LinesOfAnotherForm)
{
    for (const char *line : {" ip=1.1.1.1", "IP=1.1.1.1", "ip =1.1.1.1", "ip", "ip1=1.1.1.1",
                             "xip=1.1.1.1", "=1.1.1.1", "dns=1.1.1.1", "dns3=1.1.1.1", "ipv6=x"}) {
        EXPECT_EQ(read_by_line(line, 0), "||||") << line;
    }
    EXPECT_EQ(read_by_line("ip= 1.1.1.1", 1), " 1.1.1.1||||") << "blanks are the value's";
    EXPECT_EQ(read_by_line("ip==", 1), "=||||");
}

TEST(GetWanInfoById, OddFiles)
{
    EXPECT_EQ(read_by_line("", 0), "||||");
    EXPECT_EQ(read_by_line(std::string("\0ip=1.1.1.1\n", 12), 0), "||||");
    EXPECT_EQ(read_by_line("\xff\xfe\nip=1.1.1.1\n\x80", 1), "1.1.1.1||||");
    EXPECT_EQ(read_by_line(std::string(100000, '\n') + "ip=1.1.1.1", 1), "1.1.1.1||||");
    const int before = test::open_descriptors();
    read_by_line(kLease, 1);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(GetWanInfoById, WithoutAFileNothingIsTouched)
{
    remove_all(kWan1);
    WAN_IP_INFO_STRU info = filled_record();
    EXPECT_EQ(get_wan_info_by_id(1, &info), 0);
    EXPECT_EQ(get_wan_info_by_id(INT_MIN, &info), 0);
    EXPECT_TRUE(untouched(info));
    write_text(kWan1, kLease);
    EXPECT_EQ(get_wan_info_by_id(1, nullptr), 0);
    EXPECT_EQ(printed_at(PROD_DBG_TRACE, [&] { get_wan_info_by_id(1, &info); }), "");
}

// ---- rates -----------------------------------------------------------------------------------

std::string rates(int wan_id, HLX_RETURN_CODE expected = HLX_OK)
{
    WAN_INFO_FLOW_STRU flow;
    memset(&flow, 'x', sizeof(flow));
    EXPECT_EQ(file_wan_flow_get(wan_id, &flow), expected);
    return std::string{flow.up_flow} + " up " + flow.down_flow + " down";
}

TEST(FileWanFlowGet, InUnitsOf1024)
{
    answer = R"({"WanFlow":[{"WanId":2,"WanRate":{"UpRate":1,"DownRate":2}},
                            {"WanId":1,"WanRate":{"UpRate":1536,"DownRate":12800}},
                            {"WanId":1,"WanRate":{"UpRate":7,"DownRate":7}}]})";
    EXPECT_EQ(rates(1), "1.50 up 12.50 down");
    EXPECT_EQ(rates(2), "0.00 up 0.00 down");
    EXPECT_EQ(rates(3), "0.00 up 0.00 down") << "the module does not know it";
    EXPECT_EQ(rates(0), "0.00 up 0.00 down");
    answer = R"({"WanFlow":[{"WanId":1,"WanRate":{"UpRate":2147483647,"DownRate":-2048}}]})";
    EXPECT_EQ(rates(1), "2097152.00 up -2.00 down");
    answer = R"({"WanFlow":[{"WanId":1,"WanRate":{"UpRate":16777217,"DownRate":5}}]})";
    EXPECT_EQ(rates(1), "16384.00 up 0.00 down") << "single precision";
}

TEST(FileWanFlowGet, AnswersOfAnotherForm)
{
    for (const char *text :
         {"{}", R"({"WanFlow":null})", R"({"WanFlow":7})", R"({"WanFlow":[]})",
          R"({"WanFlow":[1,"x",null,[]]})", R"({"WanFlow":[{"WanId":"1","WanRate":{"UpRate":1}}]})",
          R"({"WanFlow":[{"WanId":1}]})", R"({"WanFlow":[{"WanId":1,"WanRate":7}]})",
          R"({"WanFlow":[{"WanId":1,"WanRate":{"UpRate":"2048"}}]})"}) {
        answer = text;
        EXPECT_EQ(rates(1), "0.00 up 0.00 down") << text;
    }
    answer = R"({"WanFlow":[{"WanId":1,"WanRate":{"UpRate":1e300,"DownRate":2048}}]})";
    EXPECT_EQ(rates(1), "2097152.00 up 2.00 down");
}

TEST(FileWanFlowGet, Failures)
{
    answer.clear();
    EXPECT_THAT(printed([] { EXPECT_EQ(rates(1, HLX_ERR), " up  down"); }),
                Prints(error_line("file_wan_flow_get", "km_wan_statistic_get_wan_flow fail.")));
    cJSON_Hooks hooks = {[](std::size_t) -> void * { return nullptr; }, free};
    cJSON_InitHooks(&hooks);
    EXPECT_THAT(printed([] { EXPECT_EQ(rates(1, HLX_ERR), " up  down"); }),
                Prints(error_line("file_wan_flow_get", "cJSON_CreateObject fail.")));
    cJSON_InitHooks(nullptr);
    EXPECT_EQ(printed([] { EXPECT_EQ(file_wan_flow_get(1, nullptr), HLX_ERR); }), "");
}

int blocks;

TEST(FileWanFlowGet, TheAnswerIsGivenBackOnEveryPath)
{
    cJSON_Hooks hooks = {[](std::size_t size) {
                             ++blocks;
                             return malloc(size);
                         },
                         [](void *block) {
                             blocks -= block != nullptr ? 1 : 0;
                             free(block);
                         }};
    cJSON_InitHooks(&hooks);
    answer.clear();
    printed([] { rates(1, HLX_ERR); });
    EXPECT_EQ(blocks, 0);
    answer = R"({"WanFlow":[{"WanId":1,"WanRate":{"UpRate":1}}]})";
    printed_at(
        PROD_DBG_DEBUG, [] { rates(1); }, "kjson");
    EXPECT_EQ(blocks, 0);
    cJSON_InitHooks(nullptr);
}

TEST(FileWanFlowGet, TheAnswerIsTraced)
{
    answer = R"({"WanFlow":[]})";
    const std::string line = test::literally("\033[0m[") + "[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}" +
                             test::literally("] \033[0m\033[1;40;35m") + "[0-9]{4} " +
                             test::literally(
                                 "file_wan_flow_get   : >>>> {\n\t\"WanFlow\":\t[]\n}"
                                 " <<<<\n\033[0m");
    EXPECT_THAT(printed_at(
                    PROD_DBG_DEBUG, [] { rates(1); }, "kjson"),
                Prints(line));
    EXPECT_EQ(printed_at(
                  PROD_DBG_ERROR, [] { rates(1); }, "kjson"),
              "");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { rates(1); }), Prints(traced("file_wan_flow_get")));
}

// ---- connection time -------------------------------------------------------------------------

constexpr const char *kConntime = "/etc/conntime1";

int up_time(const std::string &text)
{
    write_text(kConntime, text);
    return file_wan_get_up_time(kConntime);
}

std::string conntime(const std::string &text)
{
    write_text(kConntime, text);
    char result[32] = "untouched";
    file_wan_conntime_get(kConntime, result);
    return result;
}

TEST(FileWanGetUpTime, TheNumberOfTheFirstLine)
{
    const std::pair<std::string, int> rows[] = {{"123", 123},
                                                {"123\n456\n", 123},
                                                {"123 DHCP\n", 123},
                                                {"123abc", 123},
                                                {"-5", -5},
                                                {"0", 0},
                                                {"", 0},
                                                {"\n123\n", 0},
                                                {"x123", 0},
                                                {"2147483647", INT_MAX},
                                                {"99999999999999999999", INT_MAX},
                                                {"-99999999999999999999", INT_MIN},
                                                {std::string(100000, '1'), INT_MAX},
                                                {std::string(1000, '\0'), 0},
                                                {std::string("12\0"
                                                             "34",
                                                             5),
                                                 12},
                                                {"\xff\xfe", 0},
                                                {std::string(63, ' ') + "5", 0}};
    for (const auto &[text, seconds] : rows) {
        EXPECT_EQ(up_time(text), seconds) << text.substr(0, 40);
    }
}

TEST(FileWanGetUpTime, FailuresAndTraces)
{
    remove_all(kConntime);
    EXPECT_THAT(printed([] { EXPECT_EQ(file_wan_get_up_time(kConntime), 0); }),
                Prints(error_line("file_wan_get_up_time", "fopen is fail.")));
    EXPECT_EQ(printed([] { EXPECT_EQ(file_wan_get_up_time(nullptr), 0); }), "");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { up_time("1"); }),
                Prints(traced("file_wan_get_up_time")));
    const int before = test::open_descriptors();
    up_time("1");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(FileWanConntimeGet, SinceTheConnectionCameUp)
{
    uptime = 1000;
    EXPECT_EQ(conntime("400"), "600");
    EXPECT_EQ(conntime("1"), "999");
    EXPECT_EQ(conntime("1000"), "0");
    EXPECT_EQ(conntime("0"), "0");
    EXPECT_EQ(conntime("-7"), "0");
    EXPECT_EQ(conntime(""), "0");
    EXPECT_EQ(conntime("1500"), "-500") << "a time to come";
    EXPECT_EQ(conntime("99999999999"), "-2147482647");
    remove_all(kConntime);
    char result[32] = "untouched";
    EXPECT_THAT(printed([&] { file_wan_conntime_get(kConntime, result); }),
                Prints(error_line("file_wan_get_up_time", "fopen is fail.")));
    EXPECT_STREQ(result, "0");
    EXPECT_EQ(printed([&] {
                  strcpy(result, "untouched");
                  file_wan_conntime_get(nullptr, result);
                  file_wan_conntime_get(kConntime, nullptr);
              }),
              "");
    EXPECT_STREQ(result, "0");
}

// ---- DNS servers -----------------------------------------------------------------------------

std::string servers(const std::string &text)
{
    write_text("/etc/dns3", text);
    char dns1[32] = "untouched";
    char dns2[32] = "untouched";
    get_dns_by_wanid(3, dns1, dns2);
    return std::string{dns1} + "|" + dns2;
}

TEST(GetDnsByWanid, TheFirstTwoOf7CharactersAndMore)
{
    EXPECT_EQ(servers("9.9.9.9\n1.1.1.1\n8.8.8.8\n"), "9.9.9.9|1.1.1.1");
    EXPECT_EQ(servers("1.1.1\n9.9.9.9\n\n8.8.8\n8.8.8.8"), "9.9.9.9|8.8.8.8");
    EXPECT_EQ(servers("9.9.9.9"), "9.9.9.9|0.0.0.0");
    EXPECT_EQ(servers("123456\n"), "0.0.0.0|0.0.0.0");
    EXPECT_EQ(servers(""), "0.0.0.0|0.0.0.0");
    EXPECT_EQ(servers("not an address\r\n"), "not an address\r|0.0.0.0") << "copied whole";
}

TEST(GetDnsByWanid, LongLinesComeInPieces)
{
    const std::string piece(31, 'a');
    EXPECT_EQ(servers(piece + "\n1.1.1.1\n"), piece + "|1.1.1.1");
    EXPECT_EQ(servers(piece + "bbbbbbb\n1.1.1.1\n"), piece + "|bbbbbbb");
    EXPECT_EQ(servers(std::string(100000, 'a')), piece + "|" + piece);
    EXPECT_EQ(servers(std::string(1000, '\0') + "\n9.9.9.9\n"), "9.9.9.9|0.0.0.0");
}

TEST(GetDnsByWanid, WithoutAFile)
{
    remove_all("/etc/dns3");
    char dns1[32] = "untouched";
    char dns2[32] = "untouched";
    EXPECT_EQ(printed_at(PROD_DBG_TRACE, [&] { get_dns_by_wanid(3, dns1, dns2); }), "");
    EXPECT_STREQ(dns1, "0.0.0.0");
    EXPECT_STREQ(dns2, "0.0.0.0");
    strcpy(dns1, "untouched");
    get_dns_by_wanid(3, dns1, nullptr);
    get_dns_by_wanid(3, nullptr, dns1);
    EXPECT_STREQ(dns1, "untouched");
    get_dns_by_wanid(INT_MIN, dns1, dns2);
    EXPECT_STREQ(dns1, "0.0.0.0");
}

// ---- the whole status ------------------------------------------------------------------------

/** A device in gateway mode whose WAN 1 has an address on a real interface. */
class WanStatusInfo : public testing::Test
{
  protected:
    test::FreshConfig fresh_;
    WAN_STATUS_INFO_STRU status_;

    static void SetUpTestSuite()
    {
        test::run("ip link add wan_a type bridge");
        test::run("ip address add 192.0.2.7/24 dev wan_a");
    }

    static void TearDownTestSuite() { test::run("ip link delete wan_a"); }

    void SetUp() override
    {
        config()["sys.ports"] = "43210";
        config()["port.1.ifname"] = "wan_a";
        linked = true;
        uptime = 1000;
        answer = R"({"WanFlow":[{"WanId":1,"WanRate":{"UpRate":1536,"DownRate":12800}}]})";
        write_text(kWan1, kLease);
        write_text(kConntime, "400 udhcpc\n");
        remove_all(kWan12);
        memset(&status_, 0xEE, sizeof(status_));
    }

    HLX_RETURN_CODE get(int l2_type = HLX_L2TYPE_WIRED, int con_type = HLX_WAN_CONNECT_DHCP,
                        int wan_id = WAN_ID_1, int sys_mode = HLX_SYS_MODE_GW)
    {
        return file_wan_status_info_get(static_cast<HLX_L2TYPE_ENUM>(l2_type),
                                        static_cast<HLX_WAN_CONNECT_TYPE_ENUM>(con_type),
                                        static_cast<WAN_ID_NUM_ENUM>(wan_id),
                                        static_cast<HLX_SYS_WORK_MODE_ENUM>(sys_mode), &status_);
    }

    bool nothing_written() const
    {
        WAN_STATUS_INFO_STRU before;
        memset(&before, 0xEE, sizeof(before));
        return memcmp(&status_, &before, sizeof(before)) == 0;
    }
};

TEST_F(WanStatusInfo, Connected)
{
    EXPECT_EQ(get(), HLX_OK);
    EXPECT_EQ(status_.link_status, HLX_WAN_CONNECTED);
    EXPECT_EQ(shown(status_.ip_info), "192.0.2.7|255.255.255.0|192.0.2.1|9.9.9.9|1.1.1.1");
    EXPECT_TRUE(untouched(status_.double_ip_info));
    EXPECT_STREQ(status_.flow.up_flow, "1.50");
    EXPECT_STREQ(status_.flow.down_flow, "12.50");
    EXPECT_STREQ(status_.conntime, "600");
}

TEST_F(WanStatusInfo, ConnectedTwice)
{
    write_text(kWan12, "ip=10.64.0.3\nmask=255.192.0.0\n");
    EXPECT_EQ(get(), HLX_OK);
    EXPECT_EQ(shown(status_.ip_info), "192.0.2.7|255.255.255.0|192.0.2.1|9.9.9.9|1.1.1.1");
    EXPECT_EQ(shown(status_.double_ip_info), "10.64.0.3|255.192.0.0|0.0.0.0|0.0.0.0|0.0.0.0");
}

TEST_F(WanStatusInfo, EachWanHasFilesAndRatesOfItsOwn)
{
    config()["wans.flag"] = "4";
    config()["port.3.ifname"] = "wan_a";
    answer = R"({"WanFlow":[{"WanId":1,"WanRate":{"UpRate":1024,"DownRate":1024}},
                            {"WanId":3,"WanRate":{"UpRate":3072,"DownRate":4096}}]})";
    write_text("/etc/wan3.ini", "ip=10.3.0.1\n");
    write_text("/etc/wan32.ini", "ip=10.3.0.2\n");
    write_text("/etc/conntime3", "300\n");
    EXPECT_EQ(get(HLX_L2TYPE_WIRED, HLX_WAN_CONNECT_DHCP, WAN_ID_3), HLX_OK);
    EXPECT_EQ(status_.link_status, HLX_WAN_CONNECTED);
    EXPECT_STREQ(status_.ip_info.wan_ip, "10.3.0.1");
    EXPECT_STREQ(status_.double_ip_info.wan_ip, "10.3.0.2");
    EXPECT_STREQ(status_.flow.up_flow, "3.00");
    EXPECT_STREQ(status_.flow.down_flow, "4.00");
    EXPECT_STREQ(status_.conntime, "700");
    for (const char *const file : {"/etc/wan3.ini", "/etc/wan32.ini", "/etc/conntime3"}) {
        remove_all(file);
    }
}

TEST_F(WanStatusInfo, ConnectedWithoutItsFiles)
{
    remove_all(kWan1);
    remove_all(kConntime);
    answer.clear();
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(get(), HLX_OK); }),
        Prints(error_line("file_wan_flow_get", "km_wan_statistic_get_wan_flow fail.") +
               error_line("file_wan_status_info_get", "can not get wan flow info from file.") +
               error_line("file_wan_get_up_time", "fopen is fail.")));
    EXPECT_EQ(status_.link_status, HLX_WAN_CONNECTED);
    EXPECT_EQ(shown(status_.ip_info), "0.0.0.0|0.0.0.0|0.0.0.0|0.0.0.0|0.0.0.0");
    EXPECT_STREQ(status_.flow.up_flow, "");
    EXPECT_STREQ(status_.conntime, "0");
}

TEST_F(WanStatusInfo, APartThatCannotBeHadIsReportedAndLeftOut)
{
    write_text(kWan12, kLease);
    readers_fail = true;
    const std::string name = "file_wan_status_info_get";
    EXPECT_THAT(printed([&] { EXPECT_EQ(get(), HLX_OK); }),
                Prints(error_line(name, "can not get wan ip info from file.") +
                       error_line(name, "can not get wan double ip info from file.")));
    readers_fail = false;
    EXPECT_TRUE(untouched(status_.ip_info));
    EXPECT_TRUE(untouched(status_.double_ip_info));
    EXPECT_STREQ(status_.flow.up_flow, "1.50");
    EXPECT_STREQ(status_.conntime, "600");
}

TEST_F(WanStatusInfo, NotConnected)
{
    linked = false;
    EXPECT_EQ(get(), HLX_OK);
    EXPECT_EQ(status_.link_status, HLX_WAN_NO_WIRE);
    EXPECT_EQ(shown(status_.ip_info), "||||");
    EXPECT_TRUE(untouched(status_.double_ip_info));
    EXPECT_STREQ(status_.flow.up_flow, "0");
    EXPECT_STREQ(status_.flow.down_flow, "0");
    EXPECT_STREQ(status_.conntime, "0");
    linked = true;
    memset(&status_, 0xEE, sizeof(status_));
    EXPECT_EQ(get(HLX_L2TYPE_WIRED, HLX_WAN_CONNECT_PPPOE), HLX_OK);
    EXPECT_EQ(status_.link_status, HLX_WAN_NOT_CONNECTED);
    EXPECT_EQ(shown(status_.ip_info), "||||");
    EXPECT_STREQ(status_.flow.up_flow, "0");
    EXPECT_STREQ(status_.conntime, "0");
}

TEST_F(WanStatusInfo, TheModeDecidesFirst)
{
    EXPECT_EQ(get(HLX_L2TYPE_WIRED, HLX_WAN_CONNECT_DHCP, WAN_ID_1, HLX_SYS_MODE_ADSL_GW), HLX_OK);
    EXPECT_EQ(status_.link_status, HLX_WAN_NO_WIRE);
    linked = false;
    EXPECT_EQ(get(HLX_L2TYPE_WIRED, HLX_WAN_CONNECT_BUTT, WAN_ID_1, HLX_SYS_MODE_ADSL_BR), HLX_OK);
    EXPECT_EQ(status_.link_status, HLX_WAN_CONNECTED);
    EXPECT_STREQ(status_.ip_info.wan_ip, "192.0.2.7");
}

TEST_F(WanStatusInfo, TheTypeAfterTheLastIsAccepted)
{
    EXPECT_THAT(printed([&] { EXPECT_EQ(get(HLX_L2TYPE_WIRED, HLX_WAN_CONNECT_BUTT), HLX_OK); }),
                Prints(error_line("system_wan_get_link_status", "get ifname for wan1 fail.")));
    EXPECT_EQ(status_.link_status, HLX_WAN_NO_WIRE);
}

TEST_F(WanStatusInfo, BadArguments)
{
    const std::string bad = error_line("file_wan_status_info_get", "arg is error.");
    const int rows[][2] = {{0, 0}, {0, 5}, {0, -1}, {10, 1}, {-1, 1}, {INT_MAX, INT_MIN}};
    for (const auto &[con_type, wan_id] : rows) {
        EXPECT_THAT(printed([&, con = con_type, wan = wan_id] {
                        EXPECT_EQ(get(HLX_L2TYPE_WIRED, con, wan), HLX_ERR);
                    }),
                    Prints(bad));
    }
    EXPECT_THAT(printed([] {
                    EXPECT_EQ(file_wan_status_info_get(HLX_L2TYPE_WIRED, HLX_WAN_CONNECT_DHCP,
                                                       WAN_ID_1, HLX_SYS_MODE_GW, nullptr),
                              HLX_ERR);
                }),
                Prints(bad));
    EXPECT_THAT(printed([&] { EXPECT_EQ(get(HLX_L2TYPE_WIRELESS, 10), HLX_ERR); }), Prints(bad));
    EXPECT_TRUE(nothing_written());
}

TEST_F(WanStatusInfo, OnlyWiredWansAreServed)
{
    EXPECT_THAT(printed([&] { EXPECT_EQ(get(HLX_L2TYPE_WIRELESS), HLX_ERR); }),
                Prints(error_line("file_wan_status_info_get", "msg type:1.")));
    for (const int type : {2, 3, -1}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(get(type), HLX_ERR); }),
                    Prints(error_line("file_wan_status_info_get",
                                      "msg type:" + std::to_string(type) + " is not support.")));
    }
    EXPECT_TRUE(nothing_written());
}

TEST_F(WanStatusInfo, Traces)
{
    write_text(kWan12, "");
    const std::string by_key = traced("file_get_ip_info_from_ini");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { get(); }),
                Prints(traced("file_wan_status_info_get",
                              traced("system_wan_get_link_status", traced("system_wan_ip_get")) +
                                  traced("file_wan_ip_info_get", by_key) +
                                  traced("file_wan_get_extra_ip_info", by_key) +
                                  traced("file_wan_flow_get") + traced("file_wan_get_up_time"))));
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [&] { get(HLX_L2TYPE_WIRELESS); }),
                Prints(log_line(PROD_DBG_TRACE, "file_wan_status_info_get",
                                "ENTER >>> file_wan_status_info_get") +
                       error_line("file_wan_status_info_get", "msg type:1.")));
}

TEST_F(WanStatusInfo, NothingLeaks)
{
    write_text(kWan12, kLease);
    const int before = test::open_descriptors();
    get();
    linked = false;
    get();
    EXPECT_EQ(test::open_descriptors(), before);
}

}  // namespace
