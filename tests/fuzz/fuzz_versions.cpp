// SPDX-License-Identifier: MIT
// "/etc/prodversion.cfg" and "/etc/policy_bak.cfg", which an image or a download brings along.
#include <cstring>
#include <initializer_list>

#include "fuzz/fuzz.hpp"
#include "prod_common_system.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file("/etc/prodversion.cfg", data, size);
    fuzz::write_file("/etc/policy_bak.cfg", data, size);

    for (const unsigned int room : {1U, 2U, 8U, 300U}) {
        char *const product = static_cast<char *>(calloc(room, 1));
        if (get_prod_version(product, room) == 1) {
            const std::size_t length = strnlen(product, room);
            FUZZ_CHECK(length < room);
            FUZZ_CHECK(length == 0 || product[length - 1] != '\n');
        }
        free(product);
    }
    get_svn_version();

    char *const policy = static_cast<char *>(calloc(PROD_POLICY_VERSION_SIZE, 1));
    FUZZ_CHECK(get_policy_version(policy, 0) == 0);
    FUZZ_CHECK(strnlen(policy, PROD_POLICY_VERSION_SIZE) < PROD_POLICY_VERSION_SIZE);
    FUZZ_CHECK(strchr(policy, ';') == nullptr);
    free(policy);
    return 0;
}
