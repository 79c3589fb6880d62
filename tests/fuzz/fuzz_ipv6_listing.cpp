// SPDX-License-Identifier: MIT
// What the tool prints about the IPv6 addresses of an interface.
#include "fuzz/fuzz.hpp"
#include "prod_common_ifaddrs.h"

namespace
{

constexpr const char *kListing = "/tmp/listing";
constexpr int kMost = 3;

}  // namespace

/** The listing in the place of what the tool prints. */
extern "C" FILE *popen(const char * /*command*/, const char * /*mode*/)
{
    return fopen(kListing, "re");
}

extern "C" int pclose(FILE *stream)
{
    return fclose(stream);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file(kListing, data, size);
    auto *const addresses = static_cast<ipv6_addr_t *>(calloc(kMost, sizeof(ipv6_addr_t)));
    const int count = get_ipv6_addrs("eth1", addresses, kMost);
    FUZZ_CHECK(count >= 0 && count <= kMost);
    ipv6_addr_t *const one = static_cast<ipv6_addr_t *>(calloc(1, sizeof(ipv6_addr_t)));
    FUZZ_CHECK(get_ipv6_addrs("eth1", one, 1) == (count > 0 ? 1 : 0));
    free(one);
    free(addresses);
    return 0;
}
