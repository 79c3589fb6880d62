// SPDX-License-Identifier: MIT
// The clients of the device's DHCP server.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "groups.hpp"
#include "prod_common_file.h"

namespace prodctl
{

namespace
{

struct Free {
    void operator()(void *block) const { free(block); }
};

}  // namespace

std::vector<DHCPS_CLIENT_LIST_STRU> dhcp_clients()
{
    DHCPS_CLIENT_LIST_STRU *list = nullptr;
    const int count = file_get_dhcps_clients_list(&list);
    const std::unique_ptr<DHCPS_CLIENT_LIST_STRU, Free> owner{list};
    std::vector<DHCPS_CLIENT_LIST_STRU> clients;
    for (int i = 0; i < count; ++i) {
        if (list[i].mac[0] != '\0' && list[i].ipaddr[0] != '\0') {
            clients.push_back(list[i]);
        }
    }
    return clients;
}

const char *given_name(const char *hostname)
{
    return strcmp(hostname, "(null)") == 0 ? "" : hostname;
}

void add_clients(cJSON *answer)
{
    cJSON *const clients = cJSON_AddArrayToObject(answer, "clients");
    for (const DHCPS_CLIENT_LIST_STRU &known : dhcp_clients()) {
        cJSON *const client = add_object_to(clients);
        add_text(client, "address", known.ipaddr);
        add_text(client, "mac", known.mac);
        add_text(client, "hostname", given_name(known.hostname));
    }
}

void show_clients(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *client;
    cJSON_ArrayForEach(client, member(answer, "clients"))
    {
        rows.push_back(
            {text_of(client, "address"), text_of(client, "mac"), text_of(client, "hostname")});
    }
    page.table({"ADDRESS", "MAC", "HOST NAME"}, rows, "No client has a lease.");
}

int run_lan_clients(const Call &, cJSON *answer)
{
    add_clients(answer);
    return kYes;
}

}  // namespace prodctl
