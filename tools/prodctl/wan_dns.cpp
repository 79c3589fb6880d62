// SPDX-License-Identifier: MIT
// Name servers: those of the resolver file and of the WANs, and those gathered for the relay.
#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include "groups.hpp"
#include "prod_common_file.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_wan.h"
#include "wan_dns.hpp"
#include "words.hpp"

namespace prodctl
{

namespace
{

// ---- the resolver file ------------------------------------------------------------------------

void add_resolver(cJSON *answer, const char *name = "servers")
{
    cJSON *const servers = cJSON_AddArrayToObject(answer, name);
    char server[256] = "";
    for (int i = 0; get_dns_server_by_idx(i, server) != 0; ++i) {
        add_text_to(servers, server);
    }
}

bool listed_server(const cJSON *answer, const char *server)
{
    const cJSON *item;
    cJSON_ArrayForEach(item, member(answer, "servers"))
    {
        if (strcmp(item->valuestring, server) == 0) {
            return true;
        }
    }
    return false;
}

int run_dns_add(const Call &call, cJSON *answer)
{
    const char *const server = call[0];
    in6_addr address;
    if (!is_dotted_quad(server) && inet_pton(AF_INET6, server, &address) != 1) {
        return call.usage("'%s' is no address", server);
    }
    add_dns_server(server);
    add_resolver(answer);
    // Told by the file itself: a server whose text is part of another one's is not added.
    return listed_server(answer, server) ? kYes : call.no("%s was not added", server);
}

int run_dns_reset(const Call &call, cJSON *answer)
{
    reset_dns_cfg();
    add_resolver(answer);
    return cJSON_GetArraySize(member(answer, "servers")) == 0
               ? kYes
               : call.no("the resolver file was not reset");
}

int run_dns_exchange(const Call &, cJSON *answer)
{
    exchange_dns_server();
    add_resolver(answer);
    return kYes;
}

// ---- the relay --------------------------------------------------------------------------------

constexpr char kRelayFile[] = "/etc/dns.conf";
constexpr char kSeparator[] = " ";

/** What the relay is started with now; nothing when no servers were gathered yet. */
std::optional<std::string> relay_options()
{
    void *data = nullptr;
    if (get_file_content(kRelayFile, &data, nullptr) == 0) {
        return std::nullopt;
    }
    std::string text = static_cast<const char *>(data);
    free(data);
    return text;
}

/** Adds the array "relay" with the servers of a text of options: " -s 10.0.0.1 ". */
void add_relay_servers(cJSON *object, std::string options)
{
    cJSON *const servers = cJSON_AddArrayToObject(object, "relay");
    char *state = nullptr;
    const char *before = "";
    for (const char *word = strtok_r(options.data(), kSeparator, &state); word != nullptr;
         word = strtok_r(nullptr, kSeparator, &state)) {
        if (strcmp(before, "-s") == 0) {
            add_text_to(servers, word);
        }
        before = word;
    }
}

int run_dns_collect(const Call &call, cJSON *answer)
{
    char options[4096];
    getAllWanDns(options, sizeof(options));
    add_relay_servers(answer, options);
    add_text(answer, "file", kRelayFile);
    add_text(answer, "options", options);
    return relay_options() == options ? kYes : call.no("%s was not written", kRelayFile);
}

void show_dns_collect(const cJSON *answer, Page &page)
{
    const std::string servers = joined(member(answer, "relay"));
    page.fields({{"relay", servers},
                 {"options", text_of(answer, "options")},
                 {"file", text_of(answer, "file")}});
}

}  // namespace

void add_servers(cJSON *object, std::initializer_list<const char *> servers)
{
    cJSON *const list = cJSON_AddArrayToObject(object, "dns");
    for (const char *const server : servers) {
        if (*server != '\0' && strcmp(server, kNoAddress) != 0) {
            add_text_to(list, server);
        }
    }
}

int run_dns(const Call &, cJSON *answer)
{
    add_resolver(answer);
    cJSON *const wans = cJSON_AddArrayToObject(answer, "wans");
    for (int id = 1; id <= wan_count(); ++id) {
        char first[32] = "";
        char second[32] = "";
        get_dns_by_wanid(id, first, second);
        cJSON *const wan = add_object_to(wans);
        add_number(wan, "id", id);
        add_servers(wan, {first, second});
    }
    return kYes;
}

void show_dns(const cJSON *answer, Page &page)
{
    std::vector<Field> fields = {{"resolver", joined(member(answer, "servers"))}};
    std::vector<std::string> names;
    names.reserve(kWanMax);  // the fields point at them
    const cJSON *wan;
    cJSON_ArrayForEach(wan, member(answer, "wans"))
    {
        names.push_back(format("WAN %d", int_of(wan, "id")));
        fields.push_back({names.back().c_str(), joined(member(wan, "dns"))});
    }
    page.fields(fields);
}

void add_name_servers(cJSON *answer)
{
    cJSON *const servers = cJSON_AddObjectToObject(answer, "name_servers");
    add_resolver(servers, "resolver");
    add_relay_servers(servers, relay_options().value_or(""));
}

void show_name_servers(const cJSON *answer, Page &page)
{
    const cJSON *const servers = member(answer, "name_servers");
    page.fields({{"resolver", joined(member(servers, "resolver"))},
                 {"relay", joined(member(servers, "relay"))}});
}

constinit const Command kWanDnsCommands[] = {
    {.name = "add",
     .summary = "Append a server to the resolver file unless it is there",
     .arguments = "SERVER",
     .min_arguments = 1,
     .max_arguments = 1,
     .no = "the resolver file does not list SERVER afterwards",
     .run = run_dns_add,
     .show = show_dns},
    {.name = "reset",
     .summary = "Remove all servers from the resolver file",
     .run = run_dns_reset,
     .show = show_dns},
    {.name = "exchange",
     .summary = "Move the resolver file's first server behind the others",
     .run = run_dns_exchange,
     .show = show_dns},
    {.name = "collect",
     .summary = "Gather the servers that the WANs and the VPN offer for the DNS relay",
     .details = "They are left in /etc/dns.conf as the relay's options.",
     .no = "/etc/dns.conf was not written",
     .run = run_dns_collect,
     .show = show_dns_collect},
};

}  // namespace prodctl
