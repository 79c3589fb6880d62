// SPDX-License-Identifier: MIT
// Everything about the device on one page.
#include "groups.hpp"
#include "words.hpp"

namespace prodctl
{

namespace
{

int run_status(const Call &call, cJSON *answer)
{
    add_system(answer);
    int status = add_wans(call, answer, 1, wan_count());
    add_ipv6(answer);
    add_name_servers(answer);
    add_ports(answer);
    add_clients(answer);
    status = add_neighbours(call, answer) == kYes ? status : kNo;
    status = add_routes(call, answer) == kYes ? status : kNo;
    add_log(answer);
    return add_modules(call, answer) == kYes ? status : kNo;
}

void show_status(const cJSON *answer, Page &page)
{
    struct Section {
        const char *title;
        void (*show)(const cJSON *answer, Page &page);
    };
    constexpr Section kSections[] = {{"System", show_system},
                                     {"WANs", show_wans},
                                     {"IPv6", show_ipv6},
                                     {"Name servers", show_name_servers},
                                     {"Ports", show_ports},
                                     {"DHCP clients", show_clients},
                                     {"Neighbours on the LAN", show_neighbours},
                                     {"Routes", show_routes},
                                     {"System log", show_log},
                                     {"Debug levels", show_modules}};
    for (const Section &section : kSections) {
        page.heading(section.title);
        section.show(answer, page);
    }
}

}  // namespace

constinit const Command kStatusCommand = {
    .name = "status",
    .summary = "The device on one page: modes, WANs, IPv6, DNS, ports, clients, routes, log",
    .no = "a part of it cannot be had",
    .run = run_status,
    .show = show_status,
};

}  // namespace prodctl
