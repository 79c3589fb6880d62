// SPDX-License-Identifier: MIT
// What the command that prints the neighbour table prints.
#include <cstring>
#include <initializer_list>

#include "fuzz/fuzz.hpp"
#include "prod_common_file.h"

namespace
{

constexpr const char *kTable = "/tmp/table";
constexpr std::size_t kIpSize = 16;
constexpr std::size_t kMacSize = 18;

}  // namespace

// A file stands in for the command's output.
extern "C" FILE *popen(const char *command, const char *)
{
    FUZZ_CHECK(strcmp(command, "cat /proc/net/arp") == 0);
    return fopen(kTable, "re");
}

extern "C" int pclose(FILE *stream)
{
    return fclose(stream);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file(kTable, data, size);
    // A MAC that seeds have, none, and the last bytes of the table, whatever they are.
    char last[kMacSize] = {};
    const std::size_t length = size < kMacSize - 1 ? size : kMacSize - 1;
    if (length > 0) {
        memcpy(last, data + size - length, length);
    }
    for (const char *const mac : {"02:00:5E:00:53:01", "", static_cast<const char *>(last)}) {
        auto *const ip = static_cast<char *>(malloc(kIpSize));
        const HLX_RETURN_CODE result = find_ip_in_arpfile(mac, ip);
        FUZZ_CHECK(result == HLX_OK || result == HLX_ERR);
        FUZZ_CHECK(strnlen(ip, kIpSize) < kIpSize && ip[0] != '\0');
        FUZZ_CHECK(result == HLX_OK || strcmp(ip, "0.0.0.0") == 0);
        FUZZ_CHECK(mac[0] != '\0' || result == HLX_ERR);
        free(ip);
    }
    return 0;
}
