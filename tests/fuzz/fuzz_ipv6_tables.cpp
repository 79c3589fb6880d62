// SPDX-License-Identifier: MIT
// The kernel's tables of IPv6 addresses and routes, as another kernel might have them.
#include <arpa/inet.h>

#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_ifaddrs.h"
#include "support/files.hpp"

namespace
{

constexpr std::size_t kTextSize = 41;
constexpr const char *kDevice = "eth1";

/** What is found is the text of an address. */
bool finds_address(int (*look_up)(const char *, char *))
{
    auto *const text = static_cast<char *>(calloc(kTextSize, 1));
    const int found = look_up(kDevice, text);
    in6_addr address;
    FUZZ_CHECK(found == 0 || found == 1);
    FUZZ_CHECK(found == 0 ? text[0] == '\0' : inet_pton(AF_INET6, text, &address) == 1);
    free(text);
    return found == 1;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const test::FakeProcNet proc;
    const std::string table{reinterpret_cast<const char *>(data), size};
    proc.write("if_inet6", table);
    proc.write("ipv6_route", table);
    finds_address(get_ipv6_str);
    finds_address(get_link_ipv6_str);
    get_ipv6_prefix_len(kDevice);
    get_link_ipv6_prefix_len(kDevice);
    if (finds_address([](const char *, char *text) { return get_ipv6_def_gw(text); })) {
        FUZZ_CHECK(table.find("00000000000000000000000000000000") != std::string::npos);
    }
    // Lines in front of everything else are the ones that count.
    proc.write("if_inet6",
               "20010db8000100000000000000000001 02 30 00 80     eth1\n"
               "fe80000000000000021122fffe334455 02 0a 20 80     eth1\n" +
                   table);
    FUZZ_CHECK(get_ipv6_prefix_len(kDevice) == 48 && get_link_ipv6_prefix_len(kDevice) == 10);
    return 0;
}
