// SPDX-License-Identifier: MIT
// The LAN bridge and who is on it.
#include <arpa/inet.h>

#include <cstdint>
#include <set>

#include "groups.hpp"
#include "prod_common_ifaddrs.h"
#include "prod_common_wan.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

/** The addresses of the neighbour table in their order, each once. */
std::set<std::uint32_t> known_addresses(const std::vector<ArpEntry> &table)
{
    std::set<std::uint32_t> addresses;
    for (const ArpEntry &entry : table) {
        in_addr address;
        if (inet_pton(AF_INET, entry.address.c_str(), &address) == 1) {
            addresses.insert(ntohl(address.s_addr));
        }
    }
    return addresses;
}

std::string dotted_quad(std::uint32_t address)
{
    return format("%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF,
                  address & 0xFF);
}

int run_neighbours(const Call &call, cJSON *answer)
{
    return add_neighbours(call, answer);
}

int run_show(const Call &call, cJSON *answer)
{
    const char *const ifname = ifaddrs_get_lan_ifname();
    if (ifname == nullptr) {
        return call.no("the board has no LAN");
    }
    char address[16] = "";
    // Any id but that of WAN 1, which may count as addressed without an IPv4 address.
    system_wan_ip_get(ifname, address, WAN_ID_0);
    char mac[18] = "";
    get_lan_mac(mac);
    add_text(answer, "interface", ifname);
    add_text(answer, "address", address);
    add_number(answer, "prefix", __builtin_popcount(ifaddrs_get_interface_mask(ifname)));
    add_text(answer, "mac", mac);
    add_number(answer, "mtu", get_mtu_by_ifname(ifname));
    return kYes;
}

void show_show(const cJSON *answer, Page &page)
{
    page.line({{text_of(answer, "interface"), Tone::kStrong}});
    const char *const address = text_of(answer, "address");
    page.fields({{"address", *address != '\0' ? format("%s/%d", address, int_of(answer, "prefix"))
                                              : std::string{}},
                 {"MAC", text_of(answer, "mac")},
                 {"MTU", format("%d", int_of(answer, "mtu"))}});
}

constexpr Option kMoveOptions[] = {{"--dry-run", nullptr, "only show what would change"}};

const Command kCommands[] = {
    {.name = "arp",
     .summary = "The kernel's neighbours on all interfaces, or the address of one",
     .arguments = "[MAC]",
     .max_arguments = 1,
     .details = "Without MAC, each entry of the neighbour table with its state: \"complete\", "
                "\"permanent\"\n"
                "or \"incomplete\" when nobody has answered yet.",
     .no = "no neighbour has that MAC",
     .run = run_lan_arp,
     .show = show_lan_arp},
    {.name = "check",
     .summary = "Whether an address range clashes with those that the device serves",
     .arguments = "ADDRESS/MASK",
     .min_arguments = 1,
     .max_arguments = 1,
     .details =
         "MASK is a prefix length or a dotted quad. Looked at are the ranges of the LAN, the\n"
         "portal, the guest network and the PPPoE, PPTP and L2TP servers; for each that\n"
         "clashes an address is proposed at which it would not.",
     .yes = "it is free",
     .no = "it clashes",
     .run = run_lan_check,
     .show = show_lan_check},
    {.name = "clients",
     .summary = "The clients of the DHCP server: address, MAC and host name",
     .details = "Host names are those that the clients gave, in UTF-8.",
     .run = run_lan_clients,
     .show = show_clients},
    {.name = "move",
     .summary = "Move the LAN, with every setting that names one of its hosts",
     .arguments = "ADDRESS/MASK",
     .min_arguments = 1,
     .max_arguments = 1,
     .details =
         "MASK is a prefix length or a dotted quad. The bridge gets the address, the settings\n"
         "follow and are made persistent, the DHCP server starts again on its new pool. Hosts\n"
         "keep their old addresses until they renew their leases. Each setting is shown as it\n"
         "was before and as it is after; then the networks of other ranges and of WANs that are\n"
         "in the way of the new LAN, which moves all the same.",
     .no = "the LAN stays, or a setting could not be changed",
     .run = run_lan_move,
     .show = show_lan_move,
     .options = kMoveOptions},
    {.name = "neighbours",
     .summary = "The neighbours on the LAN with their MACs and host names",
     .details = "Host names are those that DHCP clients gave.",
     .run = run_neighbours,
     .show = show_neighbours},
    kLanRecordsGroup,
    {.name = "show",
     .summary = "The LAN bridge: address, MAC, MTU",
     .run = run_show,
     .show = show_show},
};

}  // namespace

int add_neighbours(const Call &call, cJSON *answer)
{
    std::vector<DHCPS_CLIENT_LIST_STRU> clients = dhcp_clients();
    cJSON *const neighbours = cJSON_AddArrayToObject(answer, "neighbours");
    const std::optional<std::vector<ArpEntry>> table = arp_table();
    if (!table) {
        return call.no(kNoArpTable);
    }
    for (const std::uint32_t known : known_addresses(*table)) {
        const std::string address = dotted_quad(known);
        char mac[18] = "";
        if (lan_get_macstr_by_ip(address.c_str(), mac) == 0) {
            continue;  // not on the LAN, or the kernel is still asking for it
        }
        const char *const name =
            get_hostname_by_mac(clients.data(), static_cast<int>(clients.size()), mac);
        cJSON *const neighbour = add_object_to(neighbours);
        add_text(neighbour, "address", address);
        add_text(neighbour, "mac", mac);
        add_text(neighbour, "hostname", name != nullptr ? given_name(name) : "");
    }
    return kYes;
}

void show_neighbours(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *neighbour;
    cJSON_ArrayForEach(neighbour, member(answer, "neighbours"))
    {
        rows.push_back({text_of(neighbour, "address"), text_of(neighbour, "mac"),
                        text_of(neighbour, "hostname")});
    }
    page.table({"ADDRESS", "MAC", "HOST NAME"}, rows, "No neighbour is known.");
}

constinit const Command kLanGroup = {
    .name = "lan",
    .summary = "The LAN and its neighbours",
    .children = kCommands,
};

}  // namespace prodctl
