// SPDX-License-Identifier: MIT
// The station list of a Wi-Fi driver: the number it reports, and records that may hold anything.
#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_wifi.h"

namespace
{

const std::uint8_t *bytes;
std::size_t bytes_left;
int reported;

}  // namespace

extern "C" int pav_wifi_get_osifname(const char *cfg_ifname, char *os_ifname)
{
    strcpy(os_ifname, cfg_ifname);
    return 0;
}

extern "C" int pav_wifi_get_clientlist(const char *, station_info_t *list, int capacity)
{
    // As a driver that copies what it has into the room it was given, whole records or not.
    const std::size_t room = static_cast<std::size_t>(capacity) * sizeof(station_info_t);
    memset(list, 0, room);
    memcpy(list, bytes, std::min(bytes_left, room));
    return reported;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr std::size_t kMac = sizeof(station_info_t::mac);
    reported = INT_MAX;
    if (size >= sizeof(reported)) {
        memcpy(&reported, data, sizeof(reported));
        data += sizeof(reported);
        size -= sizeof(reported);
    }
    bytes = data;
    bytes_left = size;

    prod_check_smart_node("00:11:22:33:44:55");
    const std::string first{reinterpret_cast<const char *>(data), std::min(size, kMac)};
    const bool is_text = !first.empty() && strlen(first.c_str()) < first.size();
    const int found = prod_check_smart_node(first.c_str());
    FUZZ_CHECK(found == 0 || found == 1);
    FUZZ_CHECK(!is_text || reported <= 0 || found == 1);
    return 0;
}
