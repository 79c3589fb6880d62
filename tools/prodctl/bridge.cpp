// SPDX-License-Identifier: MIT
// The LAN bridge: which ports are in it, and the change from a switch to a router.
#include <cstring>

#include "files.hpp"
#include "groups.hpp"
#include "prod_common_check.h"
#include "prod_common_hal.h"
#include "prod_common_wan.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr char kBridge[] = "br0";  // the one that the library works on
constexpr char kForwarding[] = "/proc/sys/net/ipv4/ip_forward";

bool is_forwarding()
{
    const File file{fopen(kForwarding, "re")};
    return file != nullptr && fgetc(file.get()) == '1';
}

/** Adds the ports as they are now. @return kNo when one of them is on the wrong side */
int add_bridge(const Call &call, cJSON *answer)
{
    int status = kYes;
    add_text(answer, "bridge", kBridge);
    add_flag(answer, "forwarding", is_forwarding());
    cJSON *const ports = cJSON_AddArrayToObject(answer, "ports");
    const int places = static_cast<int>(port_places().size());
    for (int place = 1; place <= places; ++place) {
        const int phyid = web_portid_to_phyid(place);
        char ifname[PROD_IFNAME_SIZE] = "";
        prod_common_get_port_ifname(static_cast<unsigned int>(place), ifname, sizeof(ifname));
        const bool is_wan = phyid_to_wanid(phyid) != 0;
        const bool inside = *ifname != '\0' && prod_check_device_in_bridge(ifname, kBridge) == 1;
        cJSON *const port = add_object_to(ports);
        add_number(port, "place", place);
        add_number(port, "physical_id", phyid);
        add_text(port, "role", is_wan ? "wan" : "lan");
        add_text(port, "interface", ifname);
        add_flag(port, "in_bridge", inside);
        if (inside == is_wan) {
            status = call.no("port %d (%s) of the %s is %s %s", place, ifname,
                             is_wan ? "WAN" : "LAN", inside ? "in" : "not in", kBridge);
        }
    }
    return status;
}

void show_bridge(const cJSON *answer, Page &page)
{
    page.line({{text_of(answer, "bridge"), Tone::kStrong},
               flag_of(answer, "forwarding") ? Cell{"IPv4 forwarding on", Tone::kGood}
                                             : Cell{"IPv4 forwarding off", Tone::kWarning}});
    const cJSON *const ports = member(answer, "ports");
    std::vector<std::vector<Cell>> rows;
    const cJSON *port;
    cJSON_ArrayForEach(port, ports)
    {
        const bool inside = flag_of(port, "in_bridge");
        const bool is_wan = strcmp(text_of(port, "role"), "wan") == 0;
        rows.push_back({format("%d", int_of(port, "place")),
                        format("%d", int_of(port, "physical_id")),
                        is_wan ? "WAN" : "LAN",
                        text_of(port, "interface"),
                        {inside ? "in the bridge" : "on its own",
                         inside == is_wan ? Tone::kBad : Tone::kGood}});
    }
    page.table({"PLACE", "PHYSICAL", "ROLE", "INTERFACE", "STATE"}, rows, "No port is configured.");
}

int run_update(const Call &call, cJSON *answer)
{
    update_bridge();
    return add_bridge(call, answer);
}

int run_leave_switch_only(const Call &call, cJSON *answer)
{
    leave_switch_only_mode();
    const int status = add_bridge(call, answer);
    return flag_of(answer, "forwarding") ? status : call.no("IPv4 forwarding is off");
}

constexpr Command kCommands[] = {
    {.name = "show",
     .summary = "Which ports are in the bridge",
     .yes = "every LAN port is in the bridge and no WAN port",
     .no = "a port is on the wrong side",
     .run = add_bridge,
     .show = show_bridge},
    {.name = "update",
     .summary = "Put every LAN port into the bridge and take every WAN port out",
     .no = "a port is on the wrong side still",
     .run = run_update,
     .show = show_bridge},
    {.name = "leave-switch-only",
     .summary = "Make a router of a device whose ports are all one switch",
     .details =
         "Switches the ports to WAN and LAN operation, moves them as 'update' does, gives the\n"
         "bridge the factory MAC and the LAN address, and switches IPv4 forwarding on.",
     .no = "a port is on the wrong side still, or forwarding is off",
     .run = run_leave_switch_only,
     .show = show_bridge},
};

}  // namespace

constinit const Command kBridgeGroup = {
    .name = "bridge",
    .summary = "The LAN bridge: its ports, and the change from a switch to a router",
    .children = kCommands,
};

}  // namespace prodctl
