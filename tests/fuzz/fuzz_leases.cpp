// SPDX-License-Identifier: MIT
// The DHCP server's lease file, whose host names are the clients' own words.
#include <cstring>

#include "fuzz/fuzz.hpp"
#include "prod_common_file.h"

namespace
{

/** How many lines fgets() would take from a text into 1024 bytes. */
int lines_in(const std::uint8_t *data, std::size_t size)
{
    constexpr std::size_t kLongest = 1023;
    int lines = 0;
    while (size > 0) {
        const std::size_t most = size < kLongest ? size : kLongest;
        const void *const newline = memchr(data, '\n', most);
        const std::size_t length =
            newline != nullptr
                ? static_cast<std::size_t>(static_cast<const std::uint8_t *>(newline) - data) + 1
                : most;
        data += length;
        size -= length;
        ++lines;
    }
    return lines;
}

template <std::size_t Size>
void check_text(const char (&text)[Size])
{
    FUZZ_CHECK(strnlen(text, Size) < Size);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file("/etc/dhcps.leases", data, size);
    DHCPS_CLIENT_LIST_STRU *clients = nullptr;
    const int count = file_get_dhcps_clients_list(&clients);
    FUZZ_CHECK(count == lines_in(data, size));
    FUZZ_CHECK((clients != nullptr) == (count > 0));
    for (int i = 0; i < count; ++i) {
        const DHCPS_CLIENT_LIST_STRU &client = clients[i];
        check_text(client.mac);
        check_text(client.ipaddr);
        check_text(client.hostname);
        // A client has a MAC and is called something; what is no client has nothing.
        FUZZ_CHECK((client.mac[0] == '\0') == (client.hostname[0] == '\0'));
        FUZZ_CHECK(client.mac[0] != '\0' || client.ipaddr[0] == '\0');
    }
    free(clients);
    return 0;
}
