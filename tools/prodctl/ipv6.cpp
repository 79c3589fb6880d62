// SPDX-License-Identifier: MIT
// The IPv6 side: addresses of interfaces, default gateway, name servers.
#include <arpa/inet.h>

#include <array>

#include "groups.hpp"
#include "prod_common_check.h"
#include "prod_common_hal.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_wan.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr std::size_t kTextSize = 41;
constexpr int kAddressMax = 16;

/** Adds the address that one pair of look-ups finds; nothing when there is none. */
void add_address(cJSON *interface, const char *name, const char *ifname,
                 int (*text)(const char *, char *), int (*prefix_length)(const char *))
{
    char address[kTextSize] = "";
    if (text(ifname, address) == 0) {
        return;
    }
    cJSON *const found = cJSON_AddObjectToObject(interface, name);
    add_text(found, "address", address);
    add_number(found, "prefix", prefix_length(ifname));
}

void add_interface(cJSON *interfaces, const std::string &role, const char *ifname)
{
    cJSON *const interface = add_object_to(interfaces);
    add_text(interface, "interface", ifname);
    add_text(interface, "role", role);
    add_address(interface, "global", ifname, get_ipv6_str, get_ipv6_prefix_len);
    add_address(interface, "link_local", ifname, get_link_ipv6_str, get_link_ipv6_prefix_len);

    cJSON *const all = cJSON_AddArrayToObject(interface, "addresses");
    std::array<ipv6_addr_t, kAddressMax> addresses{};
    const int count = get_ipv6_addrs(ifname, addresses.data(), kAddressMax);
    for (int i = 0; i < count; ++i) {
        const ipv6_addr_t &address = addresses[static_cast<std::size_t>(i)];
        char text[kTextSize] = "";
        inet_ntop(AF_INET6, &address.ip, text, sizeof(text));
        add_text_to(all, format("%s/%d", text, address.prefix_len));
    }
}

/** The WANs and the LAN, as far as they have an interface. */
void add_known_interfaces(cJSON *interfaces)
{
    for (int id = 1; id <= wan_count(); ++id) {
        char ifname[PROD_IFNAME_SIZE] = "";
        prod_common_get_wanifname(static_cast<unsigned int>(id), ifname, sizeof(ifname));
        if (ifname[0] != '\0') {
            add_interface(interfaces, format("WAN %d", id), ifname);
        }
    }
    if (const char *const lan = ifaddrs_get_lan_ifname()) {
        add_interface(interfaces, "LAN", lan);
    }
}

/** Adds the member "ipv6" and returns its interfaces, an empty array. */
cJSON *add_ipv6_side(cJSON *answer)
{
    cJSON *const ipv6 = cJSON_AddObjectToObject(answer, "ipv6");
    cJSON *const interfaces = cJSON_AddArrayToObject(ipv6, "interfaces");
    char gateway[kTextSize] = "";
    get_ipv6_def_gw(gateway);
    add_text(ipv6, "gateway", gateway);
    cJSON *const servers = cJSON_AddArrayToObject(ipv6, "dns");
    char first[kTextSize];
    char second[kTextSize];
    if (get_ipv6_dns(first, second) != 0) {
        for (const char *const server : {first, second}) {
            if (*server != '\0') {
                add_text_to(servers, server);
            }
        }
    }
    return interfaces;
}

int run_show(const Call &call, cJSON *answer)
{
    for (const char *const ifname : call.arguments()) {
        if (prod_check_device_exist(ifname) == 0) {
            return call.no("there is no interface '%s'", ifname);
        }
    }
    if (call.count() == 0) {
        add_ipv6(answer);
        return kYes;
    }
    cJSON *const interfaces = add_ipv6_side(answer);
    for (const char *const ifname : call.arguments()) {
        add_interface(interfaces, "", ifname);
    }
    return kYes;
}

/** "2001:db8::1/64", empty when there is no such address. */
std::string with_prefix(const cJSON *interface, const char *name)
{
    const cJSON *const address = member(interface, name);
    return address != nullptr
               ? format("%s/%d", text_of(address, "address"), int_of(address, "prefix"))
               : std::string{};
}

constexpr Command kCommands[] = {
    {.name = "show",
     .summary = "Addresses of interfaces, the default gateway and the name servers",
     .arguments = "[INTERFACE...]",
     .max_arguments = kAny,
     .details = "Without INTERFACE the WANs and the LAN bridge are shown.",
     .no = "there is no such interface",
     .run = run_show,
     .show = show_ipv6},
};

}  // namespace

void add_ipv6(cJSON *answer)
{
    add_known_interfaces(add_ipv6_side(answer));
}

void show_ipv6(const cJSON *answer, Page &page)
{
    const cJSON *const ipv6 = member(answer, "ipv6");
    const cJSON *interface;
    cJSON_ArrayForEach(interface, member(ipv6, "interfaces"))
    {
        const std::string role = text_of(interface, "role");
        const std::string ifname = text_of(interface, "interface");
        page.line({{role.empty() ? ifname : role, Tone::kStrong},
                   {role.empty() ? std::string{} : ifname, Tone::kPlain}});
        std::vector<Field> fields = {{"global", with_prefix(interface, "global")},
                                     {"link-local", with_prefix(interface, "link_local")}};
        if (cJSON_GetArraySize(member(interface, "addresses")) > 2) {
            fields.push_back({"all addresses", joined(member(interface, "addresses"))});
        }
        page.fields(fields);
    }
    page.gap();
    page.fields(
        {{"default gateway", text_of(ipv6, "gateway")}, {"DNS", joined(member(ipv6, "dns"))}});
}

constinit const Command kIpv6Group = {
    .name = "ipv6",
    .summary = "The IPv6 side: addresses, default gateway, name servers",
    .children = kCommands,
};

}  // namespace prodctl
