// SPDX-License-Identifier: MIT
// The file that lists the stations of a radio on a machine without radios.
#include <algorithm>
#include <cstring>

#include "fuzz/fuzz.hpp"
#include "platform/wifi.h"
#include "support/files.hpp"

namespace
{

constexpr const char *kStations = "/var/wifi/fuzz.json";
constexpr int kCapacity = 3;

template <std::size_t N>
bool ends(const char (&text)[N])
{
    return strnlen(text, N) < N;
}

void check(const station_info_t &station)
{
    FUZZ_CHECK(ends(station.mac) && ends(station.link_time) && ends(station.rssi));
    FUZZ_CHECK(ends(station.noise) && ends(station.quality) && ends(station.link_rate));
    FUZZ_CHECK(ends(station.tx_rate) && ends(station.rx_rate));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    test::write_text("/etc/board.json",
                     R"({"wifi": {"a": {"ifname": "wl0", "stations": "/var/wifi/fuzz.json"}}})");
    test::write_text(kStations, "");
    fuzz::write_file(kStations, data, size);

    constexpr std::size_t kRoom = kCapacity * sizeof(station_info_t);
    auto *const list = static_cast<station_info_t *>(malloc(kRoom));
    memset(list, '#', kRoom);
    const int count = pav_wifi_get_clientlist("wl0", list, kCapacity);
    FUZZ_CHECK(count >= 0 && count <= kCapacity);
    std::for_each_n(list, count, check);
    const char *const unused = reinterpret_cast<const char *>(list + count);
    FUZZ_CHECK(std::all_of(unused, reinterpret_cast<const char *>(list) + kRoom,
                           [](char c) { return c == '#'; }));
    free(list);
    return 0;
}
