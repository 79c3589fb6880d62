// SPDX-License-Identifier: MIT
// WANs: state, ports, and the lease that a DHCP client reports.
#include <cstdlib>
#include <cstring>

#include "groups.hpp"
#include "prod_common_file.h"
#include "prod_common_hal.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_system.h"
#include "prod_common_wan.h"
#include "wan_dns.hpp"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Word kTypes[] = {
    {HLX_WAN_CONNECT_DHCP, "dhcp"},           {HLX_WAN_CONNECT_STATIC, "static"},
    {HLX_WAN_CONNECT_PPPOE, "pppoe"},         {HLX_WAN_CONNECT_PPTP, "pptp"},
    {HLX_WAN_CONNECT_L2TP, "l2tp"},           {HLX_WAN_CONNECT_PPPOE_DOUBLE, "pppoe-double"},
    {HLX_WAN_CONNECT_IPOA_DHCP, "ipoa-dhcp"}, {HLX_WAN_CONNECT_IPOA_STATIC, "ipoa-static"},
    {HLX_WAN_CONNECT_PPPOA, "pppoa"},
};

constexpr Word kStatuses[] = {
    {HLX_WAN_NO_WIRE, "no wire"},
    {HLX_WAN_NOT_CONNECTED, "not connected"},
    {HLX_WAN_CONNECTING, "connecting"},
    {HLX_WAN_CONNECTED, "connected"},
    {HLX_WAN_CONNECTED_NO_WAN, "connected no wan"},
};
constexpr char kUnknown[] = "unknown";

Tone tone_of(const char *status)
{
    switch (value_of(kStatuses, status).value_or(HLX_WAN_LINK_STATUS_BUTT)) {
        case HLX_WAN_CONNECTED:
            return Tone::kGood;
        case HLX_WAN_CONNECTING:
        case HLX_WAN_CONNECTED_NO_WAN:
            return Tone::kWarning;
        default:
            return Tone::kBad;
    }
}

int wrong_wan(const Call &call, const char *text)
{
    return call.usage("'%s' is no WAN: 1 to %d", text, kWanMax);
}

void add_addresses(cJSON *object, const WAN_IP_INFO_STRU &info)
{
    add_text(object, "address", info.wan_ip);
    add_text(object, "mask", info.wan_mask);
    add_text(object, "gateway", info.wan_gw);
    add_servers(object, {info.wan_dns1, info.wan_dns2});
}

// ---- status -----------------------------------------------------------------------------------

int add_wan(const Call &call, cJSON *wans, int id)
{
    const HLX_WAN_CONNECT_TYPE_ENUM type = getWanConnType(id);
    WAN_STATUS_INFO_STRU status = {};
    const bool known =
        file_wan_status_info_get(HLX_L2TYPE_WIRED, type, static_cast<WAN_ID_NUM_ENUM>(id),
                                 get_sys_mode(), &status) == HLX_OK;
    char ifname[PROD_IFNAME_SIZE] = "";
    prod_common_get_wanifname(static_cast<unsigned int>(id), ifname, sizeof(ifname));

    cJSON *const wan = add_object_to(wans);
    add_number(wan, "id", id);
    add_text(wan, "type", word_of(kTypes, type, kUnknown));
    add_text(wan, "status", known ? word_of(kStatuses, status.link_status, kUnknown) : kUnknown);
    add_text(wan, "interface", ifname);
    add_addresses(wan, status.ip_info);
    add_text(wan, "up_rate", status.flow.up_flow);
    add_text(wan, "down_rate", status.flow.down_flow);
    add_number(wan, "connection_time", static_cast<double>(strtoll(status.conntime, nullptr, 10)));
    if (status.double_ip_info.wan_ip[0] != '\0') {
        add_addresses(cJSON_AddObjectToObject(wan, "second"), status.double_ip_info);
    }
    return known ? kYes : call.no("the state of WAN %d cannot be had", id);
}

int run_status(const Call &call, cJSON *answer)
{
    if (call[0] == nullptr) {
        return add_wans(call, answer, 1, wan_count());
    }
    const std::optional<int> id = number(call[0], 1, kWanMax);
    if (!id) {
        return wrong_wan(call, call[0]);
    }
    if (*id > wan_count()) {
        return call.no("WAN %d is not configured", *id);
    }
    return add_wans(call, answer, *id, *id);
}

std::string rate(const cJSON *wan, const char *name)
{
    const char *const text = text_of(wan, name);
    return *text != '\0' ? format("%s KiB/s", text) : std::string{};
}

std::string connection_time(const cJSON *wan)
{
    const auto seconds = static_cast<long long>(number_of(wan, "connection_time"));
    const std::string plain = format("%lld s", seconds);
    const std::string time = duration(seconds);
    return time == plain ? plain : format("%s (%s)", time.c_str(), plain.c_str());
}

/** What only a connected WAN has. */
void add_fields(std::vector<Field> &fields, const cJSON *wan)
{
    fields.push_back({"address", text_of(wan, "address")});
    fields.push_back({"mask", text_of(wan, "mask")});
    fields.push_back({"gateway", text_of(wan, "gateway")});
    fields.push_back({"DNS", joined(member(wan, "dns"))});
    fields.push_back({"up", rate(wan, "up_rate")});
    fields.push_back({"down", rate(wan, "down_rate")});
    fields.push_back({"connected for", connection_time(wan)});
    if (const cJSON *const second = member(wan, "second")) {
        fields.push_back({"second address", text_of(second, "address")});
        fields.push_back({"second mask", text_of(second, "mask")});
        fields.push_back({"second gateway", text_of(second, "gateway")});
        fields.push_back({"second DNS", joined(member(second, "dns"))});
    }
}

void show_wan(const cJSON *wan, Page &page)
{
    const char *const status = text_of(wan, "status");
    page.line({{format("WAN %d", int_of(wan, "id")), Tone::kStrong},
               {status, tone_of(status)},
               {format("(%s)", text_of(wan, "type")), Tone::kFaint}});
    std::vector<Field> fields = {{"interface", text_of(wan, "interface")}};
    if (strcmp(status, word_of(kStatuses, HLX_WAN_CONNECTED, "")) == 0) {
        add_fields(fields, wan);
    }
    page.fields(fields);
}

// ---- ports ------------------------------------------------------------------------------------

int run_ports(const Call &, cJSON *answer)
{
    add_ports(answer);
    return kYes;
}

// ---- leases -----------------------------------------------------------------------------------

/** Copies one address of a lease. An empty text, what a lease without it gives, is 0.0.0.0. */
template <std::size_t N>
bool take(char (&field)[N], const char *text)
{
    const char *const address = text != nullptr && *text != '\0' ? text : kNoAddress;
    if (!is_dotted_quad(address)) {
        return false;
    }
    snprintf(field, N, "%s", address);
    return true;
}

int run_save_lease(const Call &call, cJSON *answer)
{
    const std::optional<int> id = number(call[0], 1, kWanMax);
    if (!id) {
        return wrong_wan(call, call[0]);
    }
    WAN_IP_INFO_STRU info = {};
    if (!take(info.wan_ip, call[1]) || ipv4_is_valid(info.wan_ip) == 0) {
        return call.usage("'%s' is no address of a host", call[1]);
    }
    if (!take(info.wan_mask, call[2]) || !is_mask(info.wan_mask) || *call[2] == '\0') {
        return call.usage("'%s' is no mask", call[2]);
    }
    if (!take(info.wan_gw, call[3])) {
        return call.usage("'%s' is no address of a gateway", call[3]);
    }
    if (!take(info.wan_dns1, call[4])) {
        return call.usage("'%s' is no address of a name server", call[4]);
    }
    if (!take(info.wan_dns2, call[5])) {
        return call.usage("'%s' is no address of a name server", call[5]);
    }
    const char *const file = g_wan_ip_info[*id - 1];
    if (file_wan_ip_save(file, &info) != HLX_OK) {
        return call.no("%s was not written", file);
    }
    add_number(answer, "id", *id);
    add_text(answer, "file", file);
    add_addresses(answer, info);
    return kYes;
}

void show_save_lease(const cJSON *answer, Page &page)
{
    page.line({{format("WAN %d", int_of(answer, "id")), Tone::kStrong},
               text_of(answer, "address"),
               "saved in",
               text_of(answer, "file")});
}

// ---- commands ---------------------------------------------------------------------------------

constexpr Command kCommands[] = {
    {.name = "status",
     .summary = "Link state, addresses, rates and connection time of each WAN",
     .arguments = "[WAN]",
     .max_arguments = 1,
     .details = "WAN is 1 to 4; without it all configured WANs are shown. Rates are in 1024 bytes\n"
                "a second. A WAN that is not connected is no failure: 'check wan' asks for that.",
     .no = "WAN is not configured or its state cannot be had",
     .run = run_status,
     .show = show_wans,
     .candidates = "1 2 3 4"},
    {.name = "ports",
     .summary = "The Ethernet ports: numbers, WAN or LAN, interface, VLAN, link",
     .run = run_ports,
     .show = show_ports},
    {.name = "dns",
     .summary = "The name servers of the resolver file and of each WAN",
     .run = run_dns,
     .show = show_dns,
     .children = kWanDnsCommands},
    {.name = "resolve",
     .summary = "Ask one name server over one interface for the addresses of a name",
     .arguments = "[NAME]",
     .max_arguments = 1,
     .details =
         "Without NAME the name of the network check is resolved. At most three addresses are\n"
         "shown, and an answer is waited for 2 seconds.",
     .yes = "the name has an address",
     .no = "it has none, or no answer came",
     .run = run_resolve,
     .show = show_resolve,
     .options = kResolveOptions},
    {.name = "macs",
     .summary = "The MAC of each WAN: configured, computed from the first one's, and actual",
     .no = "with --apply: not every WAN has its MAC; or there is none for the first WAN",
     .run = run_wan_macs,
     .show = show_wan_macs,
     .options = kWanMacsOptions},
    {.name = "detect",
     .summary = "Find out what kind of access the line behind a WAN offers",
     .arguments = "WAN",
     .min_arguments = 1,
     .max_arguments = 1,
     .details =
         "WAN is 1 to 4. A PPPoE access concentrator is looked for, then a DHCP server; when\n"
         "neither answers the type is static. Takes up to 20 seconds. No setting changes.",
     .no = "WAN is not configured or has no interface",
     .run = run_wan_detect,
     .show = show_wan_detect,
     .candidates = "1 2 3 4"},
    {.name = "save-lease",
     .summary = "Write a WAN's address file; for the script of its DHCP client",
     .arguments = "WAN ADDRESS MASK GATEWAY [DNS1 [DNS2]]",
     .min_arguments = 4,
     .max_arguments = 6,
     .details = "GATEWAY, DNS1 and DNS2 may be empty or 0.0.0.0 where the lease has none.",
     .run = run_save_lease,
     .show = show_save_lease,
     .candidates = "1 2 3 4|"},
};

}  // namespace

int add_wans(const Call &call, cJSON *answer, int first, int last)
{
    cJSON *const wans = cJSON_AddArrayToObject(answer, "wans");
    int status = kYes;
    for (int id = first; id <= last; ++id) {
        status = add_wan(call, wans, id) == kYes ? status : kNo;
    }
    return status;
}

void show_wans(const cJSON *answer, Page &page)
{
    const cJSON *wan;
    cJSON_ArrayForEach(wan, member(answer, "wans"))
    {
        page.gap();
        show_wan(wan, page);
    }
    if (member(answer, "wans")->child == nullptr) {
        page.line({{"No WAN is configured.", Tone::kFaint}});
    }
}

void add_ports(cJSON *answer)
{
    cJSON *const ports = cJSON_AddArrayToObject(answer, "ports");
    const int places = static_cast<int>(port_places().size());
    for (int place = 1; place <= places; ++place) {
        const int physical = web_portid_to_phyid(place);
        const int wan = phyid_to_wanid(physical);
        char ifname[PROD_IFNAME_SIZE] = "";
        prod_common_get_port_ifname(static_cast<unsigned int>(place), ifname, sizeof(ifname));

        cJSON *const port = add_object_to(ports);
        add_number(port, "place", place);
        add_number(port, "physical_id", physical);
        const int lan = phyid_to_lanid(physical);
        add_text(port, "role", wan > 0 ? "wan" : lan > 0 ? "lan" : "none");
        add_number(port, "id", wan > 0 ? wan : lan);
        add_text(port, "interface", ifname);
        add_number(port, "vlan", phyid_to_vid(physical));
        add_flag(port, "link", get_port_link_status(physical) != 0);
    }
}

void show_ports(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *port;
    cJSON_ArrayForEach(port, member(answer, "ports"))
    {
        const std::string role = text_of(port, "role");
        const bool link = flag_of(port, "link");
        const int vlan = int_of(port, "vlan");
        rows.push_back(
            {format("%d", int_of(port, "place")), format("%d", int_of(port, "physical_id")),
             role == "none" ? std::string{}
                            : format("%s %d", role == "wan" ? "WAN" : "LAN", int_of(port, "id")),
             text_of(port, "interface"), vlan > 0 ? format("%d", vlan) : std::string{},
             Cell{link ? "up" : "down", link ? Tone::kGood : Tone::kFaint}});
    }
    page.table({"PLACE", "PHYSICAL", "ROLE", "INTERFACE", "VLAN", "LINK"}, rows,
               "No port is configured.");
}

constinit const Command kWanGroup = {
    .name = "wan",
    .summary = "WANs: state, ports, name servers, leases",
    .children = kCommands,
};

}  // namespace prodctl
