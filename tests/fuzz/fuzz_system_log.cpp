// SPDX-License-Identifier: MIT
// The system log, whose messages quote what hosts send.
#include <cstring>

#include "fuzz/fuzz.hpp"
#include "platform/debug.h"
#include "prod_common_file.h"

// Not to the machine's own log.
void log_debug_print(const char *, int, int, const char *, const char *, ...) {}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr int kRoom = 64;
    fuzz::write_file("/var/logs.txt", data, size);
    auto *const all = static_cast<SYSLOG_LIST_STRU *>(calloc(kRoom, sizeof(SYSLOG_LIST_STRU)));
    auto *const some = static_cast<SYSLOG_LIST_STRU *>(calloc(kRoom, sizeof(SYSLOG_LIST_STRU)));
    int count = -1;
    FUZZ_CHECK(file_syslog_get_lists(all, LOG_ALL, &count, kRoom) == HLX_OK);
    FUZZ_CHECK(count >= 0 && count <= kRoom);
    for (int i = 0; i < count; ++i) {
        FUZZ_CHECK(all[i].order[0] == '\0');
        FUZZ_CHECK(strnlen(all[i].date, sizeof(all[i].date)) < sizeof(all[i].date));
        FUZZ_CHECK(strnlen(all[i].msg, sizeof(all[i].msg)) < sizeof(all[i].msg));
        FUZZ_CHECK(all[i].date[0] != '\0' && all[i].msg[0] != '\0');
        FUZZ_CHECK(strchr(all[i].date, '\n') == nullptr && strchr(all[i].msg, '\n') == nullptr);
    }
    // Those of one type are among them in the same order.
    const int type = count > 0 ? all[count / 2].type : LOG_WAN1;
    int of_type = -1;
    FUZZ_CHECK(file_syslog_get_lists(some, type, &of_type, kRoom) == HLX_OK);
    int next = 0;
    for (int i = 0; type != LOG_ALL && i < count; ++i) {
        if (all[i].type == type) {
            FUZZ_CHECK(next < of_type && memcmp(&some[next], &all[i], sizeof(all[i])) == 0);
            ++next;
        }
    }
    free(some);
    free(all);
    return 0;
}
