// SPDX-License-Identifier: MIT
// The routes of the device, and the port mappings that LAN hosts asked for.
#include <algorithm>
#include <memory>

#include "groups.hpp"
#include "prod_common_file.h"

namespace prodctl
{

namespace
{

// More than any table of a small router; the kernel's may be anybody's.
constexpr int kRouteMax = 65536;

int run_route(const Call &call, cJSON *answer)
{
    return add_routes(call, answer);
}

std::string network_of(const cJSON *route)
{
    const std::string destination = text_of(route, "destination");
    const char *const mask = text_of(route, "mask");
    if (destination == kNoAddress && prefix_of(mask) == 0) {
        return "default";
    }
    return is_dotted_quad(destination.c_str()) && is_mask(mask)
               ? format("%s/%d", destination.c_str(), prefix_of(mask))
               : destination;
}

int run_upnp(const Call &call, cJSON *answer)
{
    const auto list = std::make_unique<UPNP_LIST_CFG_STRU>();
    if (file_get_upnp_list(list.get()) != HLX_OK) {
        return call.no("the list of the UPnP daemon cannot be read");
    }
    cJSON *const mappings = cJSON_AddArrayToObject(answer, "mappings");
    for (const UPNP_ITEM_INFO_STRU &item :
         std::span{list->upnp_item, static_cast<std::size_t>(list->count)}) {
        cJSON *const mapping = add_object_to(mappings);
        add_text(mapping, "external_host", item.ex_host);
        add_text(mapping, "external_port", item.ex_port);
        add_text(mapping, "internal_host", item.in_host);
        add_text(mapping, "internal_port", item.in_port);
        add_text(mapping, "protocol", item.protocol);
        const std::string_view words{item.desc};
        add_text(mapping, "description",
                 words.ends_with('\n') ? words.substr(0, words.size() - 1) : words);
    }
    return kYes;
}

/** "HOST:PORT"; the host of a mapping for every remote host is empty. */
std::string end_of(const cJSON *mapping, const char *host, const char *port)
{
    return format("%s:%s", text_of(mapping, host), text_of(mapping, port));
}

void show_upnp(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *mapping;
    cJSON_ArrayForEach(mapping, member(answer, "mappings"))
    {
        rows.push_back(
            {text_of(mapping, "protocol"), end_of(mapping, "external_host", "external_port"),
             end_of(mapping, "internal_host", "internal_port"), text_of(mapping, "description")});
    }
    page.table({"PROTOCOL", "EXTERNAL", "INTERNAL", "DESCRIPTION"}, rows, "No port is mapped.");
}

}  // namespace

int add_routes(const Call &call, cJSON *answer)
{
    // Routes may come and go between the count and the list.
    const int room = std::clamp(file_get_route_list_num(), 1, kRouteMax);
    std::vector<ROUTE_TABLE_ITEM_STRU> records(static_cast<std::size_t>(room));
    if (file_get_route_table_list(records.data(), room) != HLX_OK) {
        return call.no("the routes cannot be read");
    }
    cJSON *const routes = cJSON_AddArrayToObject(answer, "routes");
    for (const ROUTE_TABLE_ITEM_STRU &record : records) {
        if (record.mask[0] == '\0') {
            break;
        }
        cJSON *const route = add_object_to(routes);
        add_text(route, "destination", record.dstip);
        add_text(route, "mask", record.mask);
        add_text(route, "gateway", record.gateway);
        add_text(route, "interface", record.ifname);
        add_number(route, "metric", record.metric);
    }
    return kYes;
}

void show_routes(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *route;
    cJSON_ArrayForEach(route, member(answer, "routes"))
    {
        const std::string gateway = text_of(route, "gateway");
        rows.push_back({network_of(route), gateway != kNoAddress ? gateway : "",
                        text_of(route, "interface"), format("%d", int_of(route, "metric"))});
    }
    page.table({"DESTINATION", "GATEWAY", "INTERFACE", "METRIC"}, rows, "There is no route.");
}

constinit const Command kRouteCommand = {
    .name = "route",
    .summary = "The IPv4 routes: the kernel's, then those of the table staticroute",
    .no = "they cannot be read",
    .run = run_route,
    .show = show_routes,
};

constinit const Command kUpnpCommand = {
    .name = "upnp",
    .summary = "The port mappings that LAN hosts have made by UPnP",
    .no = "the list of the UPnP daemon cannot be read",
    .run = run_upnp,
    .show = show_upnp,
};

}  // namespace prodctl
