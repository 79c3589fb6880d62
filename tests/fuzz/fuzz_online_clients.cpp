// SPDX-License-Identifier: MIT
// The view of the online clients, JSON from another daemon.
#include <cstring>
#include <initializer_list>

#include "fuzz/fuzz.hpp"
#include "prod_common_ifaddrs.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    cJSON *const view = cJSON_ParseWithLength(reinterpret_cast<const char *>(data), size);
    if (view == nullptr) {
        return 0;
    }
    auto *const info = static_cast<USER_INFO_STRU *>(calloc(1, sizeof(USER_INFO_STRU)));
    for (const char *const mac : {"02:AA:00:00:00:01", ""}) {
        const int found = get_ip_info_by_ipmac(view, "192.168.7.2", mac, info);
        FUZZ_CHECK(found == 0 || found == 1);
        FUZZ_CHECK(info->ip[sizeof(info->ip) - 1] == 0);
    }
    free(info);
    cJSON_Delete(view);
    return 0;
}
