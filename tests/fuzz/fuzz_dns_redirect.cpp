// SPDX-License-Identifier: MIT
// Domains and addresses of DNS redirections, which come from the network: a line with the domain,
// the rest is the address.
#include <arpa/inet.h>
#include <dirent.h>

#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/km.h"
#include "platform/process.h"
#include "prod_common_system.h"
#include "support/files.hpp"

namespace
{

/** How many files the rules have; each is looked at. */
int count_rules()
{
    DIR *const folder = opendir(KM_DNS_REDIRECT_DIR);
    int count = 0;
    while (const dirent *const entry = folder != nullptr ? readdir(folder) : nullptr) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        ++count;
        FUZZ_CHECK(name.size() <= 253 &&
                   name.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                                          "0123456789-_.") == std::string::npos);
        FUZZ_CHECK(name.front() != '.' && name.back() != '.');
        const std::string text = test::read_text(std::string{KM_DNS_REDIRECT_DIR} + "/" + name);
        const std::size_t blank = text.find(' ');
        FUZZ_CHECK(blank != std::string::npos && text.substr(blank) == " " + name + "\n");
        const std::string address = text.substr(0, blank);
        in6_addr bytes;
        FUZZ_CHECK(inet_pton(AF_INET, address.c_str(), &bytes) == 1 ||
                   inet_pton(AF_INET6, address.c_str(), &bytes) == 1);
    }
    if (folder != nullptr) {
        closedir(folder);
    }
    return count;
}

}  // namespace

/** There is no name server to tell. */
int proc_send_signal(const char *, int)
{
    return -1;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string input{reinterpret_cast<const char *>(data), size};
    const std::size_t line_end = std::min(input.find('\n'), input.size());
    const std::string domain = input.substr(0, line_end).c_str();
    const std::string address = input.substr(std::min(line_end + 1, input.size())).c_str();

    add_dns_redirect_rule(domain.c_str(), address.c_str());
    FUZZ_CHECK(count_rules() <= 1);
    add_dns_redirect_rule(domain.c_str(), "192.0.2.1");
    const int rules = count_rules();
    FUZZ_CHECK(rules <= 1);
    del_dns_redirect_rule(domain.c_str());
    FUZZ_CHECK(count_rules() == 0);

    // Whatever text a rule may be.
    cJSON *const rule = cJSON_Parse(input.c_str());
    if (km_dns_redirect_add_rule(rule) == 0) {
        FUZZ_CHECK(count_rules() == 1);
        FUZZ_CHECK(km_dns_redirect_del_rule(rule) == 0);
    }
    FUZZ_CHECK(count_rules() == 0);
    cJSON_Delete(rule);
    return 0;
}
