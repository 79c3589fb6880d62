// SPDX-License-Identifier: MIT
// DNS redirection: names that the device's name server answers for with an address of its own.
#include <arpa/inet.h>
#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "files.hpp"
#include "groups.hpp"
#include "platform/km.h"
#include "prod_common_system.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr std::size_t kLongestDomain = 253;
constexpr std::size_t kLongestLabel = 63;

bool is_label(std::string_view text)
{
    constexpr std::string_view kCharacters{
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"};
    return !text.empty() && text.size() <= kLongestLabel &&
           text.find_first_not_of(kCharacters) == std::string_view::npos;
}

/** Whether a text is a domain name; the dot at its end may be left out. */
bool is_domain(std::string_view text)
{
    if (text.ends_with('.')) {
        text.remove_suffix(1);
    }
    if (text.size() > kLongestDomain) {
        return false;
    }
    for (std::size_t dot = text.find('.'); dot != std::string_view::npos; dot = text.find('.')) {
        if (!is_label(text.substr(0, dot))) {
            return false;
        }
        text.remove_prefix(dot + 1);
    }
    return is_label(text);
}

bool is_address(const char *text)
{
    in6_addr address;
    return inet_pton(AF_INET, text, &address) == 1 || inet_pton(AF_INET6, text, &address) == 1;
}

struct Rule {
    std::string domain;
    std::string address;
};

/** The rules in force, by domain; nothing when the port does not show them. */
std::optional<std::vector<Rule>> rules()
{
    const std::unique_ptr<DIR, int (*)(DIR *)> folder{opendir(KM_DNS_REDIRECT_DIR), closedir};
    if (folder == nullptr) {
        return std::nullopt;
    }
    std::vector<Rule> found;
    while (const dirent *const entry = readdir(folder.get())) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        const std::string path = std::string{KM_DNS_REDIRECT_DIR} + "/" + entry->d_name;
        const File file{fopen(path.c_str(), "re")};
        char address[INET6_ADDRSTRLEN];
        char domain[kLongestDomain + 1];
        if (file != nullptr && fscanf(file.get(), "%45s %253s", address, domain) == 2) {
            found.push_back({domain, address});
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Rule &a, const Rule &b) { return a.domain < b.domain; });
    return found;
}

/** Whether a rule for a domain is in force; nothing when the port does not show it. */
std::optional<bool> has_rule(std::string domain)
{
    const std::optional<std::vector<Rule>> all = rules();
    if (!all) {
        return std::nullopt;
    }
    if (domain.ends_with('.')) {
        domain.pop_back();
    }
    return std::any_of(all->begin(), all->end(), [&](const Rule &rule) {
        return strcasecmp(rule.domain.c_str(), domain.c_str()) == 0;
    });
}

int run_add(const Call &call, cJSON *answer)
{
    if (!is_domain(call[0])) {
        return call.usage("'%s' is no domain name", call[0]);
    }
    if (!is_address(call[1])) {
        return call.usage("'%s' is no IP address", call[1]);
    }
    add_dns_redirect_rule(call[0], call[1]);
    if (!has_rule(call[0]).value_or(true)) {
        return call.no("the rule for %s was not taken", call[0]);
    }
    add_text(answer, "domain", call[0]);
    add_text(answer, "address", call[1]);
    return kYes;
}

int run_del(const Call &call, cJSON *answer)
{
    if (!is_domain(call[0])) {
        return call.usage("'%s' is no domain name", call[0]);
    }
    if (!has_rule(call[0]).value_or(true)) {
        return call.no("there is no rule for %s", call[0]);
    }
    del_dns_redirect_rule(call[0]);
    add_text(answer, "domain", call[0]);
    return kYes;
}

int run_list(const Call &call, cJSON *answer)
{
    const std::optional<std::vector<Rule>> all = rules();
    if (!all) {
        return call.no("%s cannot be read", KM_DNS_REDIRECT_DIR);
    }
    cJSON *const list = cJSON_AddArrayToObject(answer, "rules");
    for (const Rule &rule : *all) {
        cJSON *const item = add_object_to(list);
        add_text(item, "domain", rule.domain);
        add_text(item, "address", rule.address);
    }
    return kYes;
}

void show_list(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *rule;
    cJSON_ArrayForEach(rule, member(answer, "rules"))
    {
        rows.push_back({text_of(rule, "domain"), text_of(rule, "address")});
    }
    page.table({"DOMAIN", "ADDRESS"}, rows, "No name is redirected.");
}

constexpr Command kCommands[] = {
    {.name = "add",
     .summary = "Answer for a domain with an address",
     .arguments = "DOMAIN ADDRESS",
     .min_arguments = 2,
     .max_arguments = 2,
     .details = "A rule for the same domain is replaced. Rules last until the device restarts. A\n"
                "host keeps the answers that it has got before as long as those allow.",
     .no = "the rule was not taken",
     .run = run_add},
    {.name = "del",
     .summary = "Take the redirection of a domain back",
     .arguments = "DOMAIN",
     .min_arguments = 1,
     .max_arguments = 1,
     .no = "there is no rule for the domain",
     .run = run_del},
    {.name = "list",
     .summary = "The redirections in force",
     .no = "the port does not show them",
     .run = run_list,
     .show = show_list},
};

}  // namespace

constinit const Command kDnsRedirectGroup = {
    .name = "dns-redirect",
    .summary = "Names that the device's name server answers for itself",
    .children = kCommands,
};

}  // namespace prodctl
