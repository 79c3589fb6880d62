// SPDX-License-Identifier: MIT
// A policy file of an uploaded backup, on its way into an SQL statement.
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_cfm.h"

namespace
{

constexpr const char *kFile = "/etc/reboot_policy.cfg";

/** Takes 'text' off, with each quote of the text doubled. */
bool take_literal(const char *&sql)
{
    if (*sql++ != '\'') {
        return false;
    }
    while (*sql != '\0') {
        if (*sql++ == '\'' && *sql++ != '\'') {
            --sql;
            return true;
        }
    }
    return false;
}

/** Whether a text is ('value','value'), any number of times: nothing that was read is SQL. */
bool is_values(const char *sql)
{
    while (*sql != '\0') {
        if (*sql != '(') {
            return false;
        }
        do {
            ++sql;
            if (!take_literal(sql)) {
                return false;
            }
        } while (*sql == ',');
        if (strncmp(sql, "),", 2) != 0) {
            return false;
        }
        sql += 2;
    }
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file(kFile, data, size);
    auto *const out = static_cast<char *>(calloc(1, PROD_POLICY_TEXT_SIZE));
    assem_policy_data(kFile, "reboot_policy:", out);
    FUZZ_CHECK(memchr(out, '\0', PROD_POLICY_TEXT_SIZE) != nullptr);
    FUZZ_CHECK(is_values(out));

    // Behind what is there already, and only as far as it fits.
    memset(out, 'x', PROD_POLICY_TEXT_SIZE - 40);
    out[PROD_POLICY_TEXT_SIZE - 40] = '\0';
    assem_policy_data(kFile, "reboot_policy:", out);
    FUZZ_CHECK(memchr(out, '\0', PROD_POLICY_TEXT_SIZE) != nullptr);
    FUZZ_CHECK(is_values(out + PROD_POLICY_TEXT_SIZE - 40));
    free(out);
    return 0;
}
