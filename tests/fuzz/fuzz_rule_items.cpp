// SPDX-License-Identifier: MIT
// One item of a rule text, replaced: any rule, any delimiters, any item.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/fuzz.hpp"
#include "prod_common_check.h"

namespace
{

/** The new rule; false when there is no such item. */
bool modify(std::string &rule, const std::string &delimiters, int index, const std::string &item)
{
    std::size_t start = rule.find_first_not_of(delimiters);
    std::size_t end = rule.find_first_of(delimiters, start);
    for (int i = 0; i < index && start != std::string::npos; ++i) {
        start = rule.find_first_not_of(delimiters, end);
        end = rule.find_first_of(delimiters, start);
    }
    if (index < 0 || start == std::string::npos) {
        return false;
    }
    end = std::min(end, rule.size());
    const std::string rest = rule.substr(std::min(rule.size(), end + (item.empty() ? 1 : 0)));
    rule = (rule.substr(0, start) + item + rest).substr(0, PROD_RULE_SIZE - 1);
    return true;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const int index = size > 0 ? static_cast<signed char>(data[0]) : 0;
    std::string_view rest{reinterpret_cast<const char *>(data), size};
    rest.remove_prefix(std::min<std::size_t>(size, 1));
    const std::string delimiters = fuzz::take(rest);
    const std::string item = fuzz::take(rest);
    std::string rule = fuzz::take(rest);

    // Of exactly the documented size; a rule that fills it has no NUL.
    auto *const buffer = static_cast<char *>(calloc(PROD_RULE_SIZE, 1));
    memcpy(buffer, rule.data(), std::min<std::size_t>(rule.size(), PROD_RULE_SIZE));
    const std::string before{buffer, PROD_RULE_SIZE};
    rule = rule.substr(0, PROD_RULE_SIZE - 1);

    check_modify_item_in_rule(buffer, delimiters.c_str(), index, item.c_str());
    if (modify(rule, delimiters, index, item)) {
        FUZZ_CHECK(strnlen(buffer, PROD_RULE_SIZE) < PROD_RULE_SIZE && rule == buffer);
    } else {
        FUZZ_CHECK(memcmp(buffer, before.data(), PROD_RULE_SIZE) == 0);
    }
    free(buffer);
    return 0;
}
