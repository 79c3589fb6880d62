// SPDX-License-Identifier: MIT
// The system log.
#include <unistd.h>

#include <algorithm>

#include "groups.hpp"
#include "prod_common_file.h"

namespace prodctl
{

namespace
{

constexpr char kLog[] = "/var/logs.txt";
constexpr int kFirstRoom = 256;
constexpr int kEntryMax = 65536;
constexpr std::size_t kEntriesOfStatusPage = 10;

constexpr const char *kType = "--type";

constexpr Word kTypes[] = {{LOG_ALL, "all"},
                           {LOG_SYSTEM, "system"},
                           {LOG_WEB_CLS_FILTER, "web-filter"},
                           {LOG_WAN1, "wan1"},
                           {LOG_WAN2, "wan2"},
                           {LOG_WAN3, "wan3"},
                           {LOG_WAN4, "wan4"},
                           {LOG_DBG, "debug"},
                           {LOG_LAN_DHCP, "lan-dhcp"},
                           {LOG_WISP_DHCP, "wisp-dhcp"},
                           {LOG_CLEAR, "clear"},
                           {LOG_RELOAD, "reload"},
                           {LOG_ERROR, "error"}};

/** The entries of a type; nothing when there is no log. */
std::optional<std::vector<SYSLOG_LIST_STRU>> entries_of(int type)
{
    // How many there are is known when there was room left.
    for (int room = kFirstRoom;; room *= 4) {
        std::vector<SYSLOG_LIST_STRU> entries(static_cast<std::size_t>(room));
        int count = 0;
        if (file_syslog_get_lists(entries.data(), type, &count, room) != HLX_OK) {
            return std::nullopt;
        }
        if (count < room || room >= kEntryMax) {
            entries.resize(static_cast<std::size_t>(count));
            return entries;
        }
    }
}

void add_entries(cJSON *answer, std::span<const SYSLOG_LIST_STRU> entries)
{
    cJSON *const log = cJSON_AddArrayToObject(answer, "log");
    for (const SYSLOG_LIST_STRU &entry : entries) {
        cJSON *const object = add_object_to(log);
        add_text(object, "date", entry.date);
        add_number(object, "type", entry.type);
        add_text(object, "type_name", word_of(kTypes, entry.type, "unknown"));
        add_text(object, "message", entry.msg);
    }
}

int run_list(const Call &call, cJSON *answer)
{
    std::optional<int> type = LOG_ALL;
    if (call.given(kType)) {
        const char *const wanted = call.value(kType);
        type = value_of(kTypes, wanted);
        if (!type) {
            type = number(wanted, LOG_ALL, LOG_MAX - 1);
        }
        if (!type) {
            return call.usage("'%s' is no type of entry: %s, or 0 to %d", wanted,
                              listed(kTypes).c_str(), LOG_MAX - 1);
        }
    }
    const auto entries = entries_of(*type);
    if (!entries) {
        return call.no("there is no system log");
    }
    add_entries(answer, *entries);
    return kYes;
}

constexpr Option kListOptions[] = {
    {kType, "TYPE", "only entries of that type"},
};

constexpr Command kCommands[] = {
    {.name = "list",
     .summary = "The entries of the system log, the oldest first",
     .details =
         "TYPE is all, system, web-filter, wan1 to wan4, debug, lan-dhcp, wisp-dhcp, clear,\n"
         "reload or error, or its number from 0 to 12.",
     .no = "there is no system log",
     .run = run_list,
     .show = show_log,
     .options = kListOptions},
};

}  // namespace

void add_log(cJSON *answer)
{
    // A log that nobody has written to yet is no failure, and asking for it would be one.
    const auto entries = access(kLog, R_OK) == 0 ? entries_of(LOG_ALL) : std::nullopt;
    const std::span<const SYSLOG_LIST_STRU> all =
        entries ? std::span{*entries} : std::span<const SYSLOG_LIST_STRU>{};
    add_entries(answer, all.last(std::min(all.size(), kEntriesOfStatusPage)));
}

void show_log(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *entry;
    cJSON_ArrayForEach(entry, member(answer, "log"))
    {
        rows.push_back({text_of(entry, "date"),
                        std::string_view{text_of(entry, "type_name")} != "unknown"
                            ? text_of(entry, "type_name")
                            : format("%d", int_of(entry, "type")),
                        text_of(entry, "message")});
    }
    page.table({"DATE", "TYPE", "MESSAGE"}, rows, "No entry.");
}

constinit const Command kLogGroup = {
    .name = "log",
    .summary = "The system log",
    .children = kCommands,
};

}  // namespace prodctl
