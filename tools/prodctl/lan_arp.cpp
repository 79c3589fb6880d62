// SPDX-License-Identifier: MIT
// The kernel's neighbour table, and the address behind a MAC.
#include <net/if_arp.h>

#include <cstring>

#include "files.hpp"
#include "groups.hpp"
#include "platform/address.h"
#include "prod_common_file.h"

namespace prodctl
{

namespace
{

constexpr std::size_t kLineSize = 256;
constexpr std::size_t kEntryMax = 4096;

bool is_mac(const char *text)
{
    unsigned char mac[6];
    return strlen(text) == strlen("00:11:22:33:44:55") && ifaddrs_ethaddr_aton(text, mac) != 0;
}

const char *state_of(const ArpEntry &entry)
{
    if ((entry.flags & ATF_PERM) != 0) {
        return "permanent";
    }
    return (entry.flags & ATF_COM) != 0 ? "complete" : "incomplete";
}

int find_address(const Call &call, const char *mac, cJSON *answer)
{
    if (!is_mac(mac)) {
        return call.usage("'%s' is no MAC such as 00:11:22:aa:bb:cc", mac);
    }
    char address[16];
    if (find_ip_in_arpfile(mac, address) != HLX_OK) {
        return call.no("no neighbour has the MAC %s", mac);
    }
    add_text(answer, "mac", mac);
    add_text(answer, "address", address);
    return kYes;
}

}  // namespace

std::optional<std::vector<ArpEntry>> arp_table()
{
    const File file{fopen("/proc/net/arp", "re")};
    if (file == nullptr) {
        return std::nullopt;
    }
    std::vector<ArpEntry> table;
    char line[kLineSize];
    [[maybe_unused]] const char *const heading = fgets(line, sizeof(line), file.get());
    while (table.size() < kEntryMax && fgets(line, sizeof(line), file.get()) != nullptr) {
        char address[16] = "";
        char mac[18] = "";
        char interface[16] = "";
        unsigned int flags = 0;
        // NOLINTNEXTLINE(cert-err34-c): what the kernel prints
        if (sscanf(line, "%15s %*s %x %17s %*s %15s", address, &flags, mac, interface) >= 1) {
            table.push_back({address, mac, interface, flags});
        }
    }
    return table;
}

int run_lan_arp(const Call &call, cJSON *answer)
{
    if (call.count() > 0) {
        return find_address(call, call[0], answer);
    }
    const std::optional<std::vector<ArpEntry>> table = arp_table();
    if (!table) {
        return call.no(kNoArpTable);
    }
    cJSON *const entries = cJSON_AddArrayToObject(answer, "arp");
    for (const ArpEntry &known : *table) {
        const bool has_mac = (known.flags & (ATF_COM | ATF_PERM)) != 0;
        cJSON *const entry = add_object_to(entries);
        add_text(entry, "address", known.address);
        add_text(entry, "mac", has_mac ? known.mac : "");
        add_text(entry, "state", state_of(known));
        add_text(entry, "interface", known.interface);
    }
    return kYes;
}

void show_lan_arp(const cJSON *answer, Page &page)
{
    if (const char *const address = text_of(answer, "address"); *address != '\0') {
        page.line({address});
        return;
    }
    std::vector<std::vector<Cell>> rows;
    const cJSON *entry;
    cJSON_ArrayForEach(entry, member(answer, "arp"))
    {
        const char *const state = text_of(entry, "state");
        const bool is_incomplete = strcmp(state, "incomplete") == 0;
        rows.push_back({text_of(entry, "address"), text_of(entry, "mac"),
                        Cell{state, is_incomplete ? Tone::kWarning : Tone::kPlain},
                        text_of(entry, "interface")});
    }
    page.table({"ADDRESS", "MAC", "STATE", "INTERFACE"}, rows, "No neighbour is known.");
}

}  // namespace prodctl
