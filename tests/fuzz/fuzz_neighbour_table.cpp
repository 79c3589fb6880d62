// SPDX-License-Identifier: MIT
// The kernel's neighbour table, as another kernel or a container's fake might have it.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_ifaddrs.h"
#include "support/files.hpp"

namespace
{

constexpr std::size_t kIpSize = 16;
constexpr std::size_t kMacTextSize = 18;

void look_up(const char *ip)
{
    auto *const mac = static_cast<unsigned char *>(calloc(6, 1));
    const int result = ifaddrs_get_mac_by_ip(ip, mac);
    FUZZ_CHECK(result >= 0 && result <= 3);
    FUZZ_CHECK(ifaddrs_get_mac_address_by_ipstr(ip, mac) == result);
    free(mac);

    auto *const text = static_cast<char *>(calloc(kMacTextSize, 1));
    ifaddrs_get_macstr_by_ip(ip, text);
    FUZZ_CHECK(strlen(text) == kMacTextSize - 1);
    if (lan_get_macstr_by_ip(ip, text) == 1) {
        FUZZ_CHECK(strnlen(text, kMacTextSize) < kMacTextSize);
        auto *const found = static_cast<char *>(calloc(kIpSize, 1));
        FUZZ_CHECK(ifaddrs_get_ip_by_macstr(found, text) == 1);
        FUZZ_CHECK(strnlen(found, kIpSize) < kIpSize && found[0] != '\0');
        free(found);
    }
    free(text);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const test::FakeProcNet proc;
    const std::string table{reinterpret_cast<const char *>(data), size};
    proc.write("arp", table);
    look_up("192.168.7.2");
    look_up("::ffff:192.168.7.2");
    // The address of the first entry, whatever it is.
    const std::string entry = table.substr(std::min(table.find('\n'), table.size() - 1) + 1);
    look_up(entry.substr(0, entry.find(' ')).c_str());
    return 0;
}
