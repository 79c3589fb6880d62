// SPDX-License-Identifier: MIT
// "/etc/country_code.cfg", which a region's image brings along.
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_wifi.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file("/etc/country_code.cfg", data, size);

    // A country that seeds name, and one that this file surely has when it has any.
    std::string first{reinterpret_cast<const char *>(data), size};
    first = first.substr(0, first.find(';'));
    for (const std::string &country : {std::string{"US"}, first}) {
        char *const forced = static_cast<char *>(calloc(8, 1));
        prod_get_dfs_channel_forced(country.c_str(), nullptr, forced);
        FUZZ_CHECK(strnlen(forced, 8) < 8);
        FUZZ_CHECK(strchr(forced, ';') == nullptr);
        free(forced);
    }
    return 0;
}
