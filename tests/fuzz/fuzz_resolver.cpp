// SPDX-License-Identifier: MIT
// "/etc/resolv.conf", read and edited.
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_wan.h"
#include "support/files.hpp"

namespace
{

constexpr const char *kFile = "/etc/resolv.conf";
constexpr std::size_t kServerSize = 256;

int count_servers()
{
    auto *const server = static_cast<char *>(calloc(kServerSize, 1));
    int count = 0;
    while (get_dns_server_by_idx(count, server) == 1) {
        FUZZ_CHECK(strnlen(server, kServerSize) < kServerSize && server[0] != '\0');
        ++count;
    }
    FUZZ_CHECK(server[0] == '\0');
    free(server);
    return count;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file(kFile, data, size);
    count_servers();

    exchange_dns_server();
    const std::string exchanged = test::read_text(kFile);
    FUZZ_CHECK(exchanged.size() >= size);  // never truncated
    count_servers();

    add_dns_server("192.0.2.53");
    FUZZ_CHECK(test::read_text(kFile).find("192.0.2.53") != std::string::npos);

    reset_dns_cfg();
    FUZZ_CHECK(test::read_text(kFile) == "options timeout:1\noptions attempts:1\n");
    FUZZ_CHECK(count_servers() == 0);
    return 0;
}
