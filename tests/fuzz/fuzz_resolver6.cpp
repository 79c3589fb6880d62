// SPDX-License-Identifier: MIT
// "/etc/resolv6.conf", as a DHCPv6 client or anybody else may have written it.
#include <cstring>

#include "fuzz/fuzz.hpp"
#include "prod_common_ifaddrs.h"

namespace
{

constexpr std::size_t kTextSize = 41;

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file("/etc/resolv6.conf", data, size);
    auto *const first = static_cast<char *>(calloc(kTextSize, 1));
    auto *const second = static_cast<char *>(calloc(kTextSize, 1));
    const int found = get_ipv6_dns(first, second);
    FUZZ_CHECK(strnlen(first, kTextSize) < kTextSize && strnlen(second, kTextSize) < kTextSize);
    FUZZ_CHECK(found == (first[0] != '\0' ? 1 : 0));
    FUZZ_CHECK(second[0] == '\0' || found == 1);
    free(first);
    free(second);
    return 0;
}
