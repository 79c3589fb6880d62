// SPDX-License-Identifier: MIT
// Address ranges as hostile settings and hostile callers describe them: the first line is a typed
// address, the second a mask, the third every configuration value, and the rest fills a set.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/fuzz.hpp"
#include "prod_common_check.h"
#include "support/config.hpp"

namespace
{

bool is_terminated(const char (&text)[16])
{
    return strnlen(text, sizeof(text)) < sizeof(text);
}

void typed(const std::string &text, const std::string &mask)
{
    const bool valid = prod_check_ip(text.c_str()) == 0;
    FUZZ_CHECK(!valid || std::count(text.begin(), text.end(), '.') >= 3);
    const bool plain = text.find_first_of(";&|`") == std::string::npos;
    FUZZ_CHECK(prod_system_param_valid(text.c_str()) == (plain ? 1 : 0));
    char address[16];
    FUZZ_CHECK(check_get_new_ipaddr_by_hostid(text.c_str(), mask.c_str(), 1, address) == 0);
    FUZZ_CHECK(is_terminated(address) && prod_check_ip(address) <= 1);
}

void configured(const std::string &ip, const std::string &mask, const std::string &value)
{
    const test::FreshConfig fresh;
    const test::EveryKeyReads everywhere{value.substr(0, CFM_VALUE_SIZE - 1)};
    PROD_IP_CONFLICT_STRU set[PROD_CONFLICT_SET_SIZE] = {};
    FUZZ_CHECK(check_get_conflict_ip_list(set) == 6);
    for (int i = 0; i < 6; ++i) {
        FUZZ_CHECK(is_terminated(set[i].ip) && is_terminated(set[i].mask));
    }
    PROD_IP_CONFLICT_STRU item = {};
    char proposal[16] = "";
    const int result = prod_check_ip_conflict(ip.c_str(), mask.c_str(), &item, proposal);
    FUZZ_CHECK((result == 2) == (ip.empty() || mask.empty()));
    FUZZ_CHECK((result == 1) == (item.ip[0] != '\0') && is_terminated(proposal));
    for (int type = 0; type <= PROD_CONFLICT_IP_MAX; ++type) {
        memset(proposal, 'x', sizeof(proposal));
        const auto kind = static_cast<PROD_CONFLICT_IP_ENUM>(type);
        check_ip_conflict_change_itself(kind, proposal);
        FUZZ_CHECK(type == PROD_CONFLICT_IP_QVLAN || is_terminated(proposal));
    }
}

void by_a_caller(const std::string &ip, const std::string &mask, std::string_view bytes)
{
    // In a block of exactly their size, so that a step too far is seen.
    const std::size_t count =
        std::min<std::size_t>(bytes.size() / sizeof(PROD_IP_CONFLICT_STRU), 8);
    auto *const set =
        static_cast<PROD_IP_CONFLICT_STRU *>(malloc(count * sizeof(PROD_IP_CONFLICT_STRU) + 1));
    memcpy(static_cast<void *>(set), bytes.data(), count * sizeof(PROD_IP_CONFLICT_STRU));
    const int number = static_cast<int>(count);
    const int found = prod_check_conflict_with_ip_set(ip.c_str(), mask.c_str(), set, number,
                                                      PROD_CONFLICT_IP_MAX);
    FUZZ_CHECK(found == 100 || (found >= 0 && found <= number));
    get_specific_ip_id(PROD_CONFLICT_IP_GUEST, set, number);
    PROD_IP_CONFLICT_STRU item = {};
    item.type = PROD_CONFLICT_IP_MAX;
    strncpy(item.ip, ip.c_str(), sizeof(item.ip));
    strncpy(item.mask, mask.c_str(), sizeof(item.mask));
    char proposal[16];
    memset(proposal, 'x', sizeof(proposal));
    get_ip_conflict_new_ip(&item, set, number, proposal);
    FUZZ_CHECK(is_terminated(proposal));
    free(set);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::string_view rest{reinterpret_cast<const char *>(data), size};
    // Up to a NUL each, as a caller's text is.
    const std::string ip = fuzz::take(rest, '\n').c_str();
    const std::string mask = fuzz::take(rest, '\n').c_str();
    const std::string value = fuzz::take(rest, '\n').c_str();
    typed(ip, mask);
    configured(ip, mask, value);
    by_a_caller(ip, mask, rest);
    return 0;
}
