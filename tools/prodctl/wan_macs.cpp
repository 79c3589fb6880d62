// SPDX-License-Identifier: MIT
// The MACs of the WANs: what is configured, what comes out of it, what the interfaces have.
#include <algorithm>
#include <array>
#include <cstring>

#include "groups.hpp"
#include "platform/address.h"
#include "platform/hardware.h"
#include "prod_common_cfm.h"
#include "prod_common_hal.h"
#include "prod_common_ifaddrs.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

using Mac = std::array<unsigned char, 6>;
constexpr std::size_t kMacTextSize = 18;
constexpr long long kMostBss = 4096;  // as many as the library counts past

constexpr eth_idx_t kInterfaces[kWanMax] = {WAN_1, WAN_2, WAN_3, WAN_4};

std::string mac_text(const Mac &mac)
{
    char text[kMacTextSize] = "";
    mac_bin_to_str(mac.data(), text, sizeof(text));
    return text;
}

/** The first WAN's MAC and where it comes from; nothing when it comes from nowhere. */
struct Origin {
    Mac mac;
    const char *source;
};

std::optional<Origin> first_mac()
{
    Mac mac = {};
    if (mac_str_to_bin(config_value("wan.mac").value_or("").c_str(), mac.data()) != 0 &&
        mac != Mac{}) {
        return Origin{mac, "wan.mac"};
    }
    if (iof_mac_addr_get(mac.data()) != 0) {
        return std::nullopt;
    }
    // Behind the LAN bridge and the wireless networks of both radios.
    const long long bss_count = static_cast<long long>(prod_cfm_get_int_val("wlan0_maxbss")) +
                                prod_cfm_get_int_val("wlan1_maxbss");
    for (long long i = 0; i <= std::clamp(bss_count, 0LL, kMostBss); ++i) {
        ifaddrs_mac_increase(mac.data(), 5);
    }
    return Origin{mac, "board"};
}

/** A WAN's own setting when it is a MAC, as the library would take it. */
std::string own_mac(int id)
{
    const std::string text = config_value(format("wan%d.macaddr", id)).value_or("");
    Mac mac;
    return text.find_first_not_of("0123456789abcdefABCDEF:") == std::string::npos &&
                   ifaddrs_ethaddr_aton(text.c_str(), mac.data()) != 0
               ? text
               : std::string{};
}

/** Whether an interface's MAC is the one that a text stands for. */
bool same_mac(const std::string &wanted, const Mac &actual)
{
    Mac mac = {};
    return mac_str_to_bin(wanted.c_str(), mac.data()) != 0 && mac == actual;
}

void add_wan_mac(cJSON *wans, int id, const Mac *computed)
{
    const char *const name = get_eth_name(kInterfaces[id - 1]);
    const std::string ifname = name != nullptr ? name : "";
    const std::string configured = own_mac(id);
    Mac actual = {};
    const bool there = !ifname.empty() && get_mac_by_ifname(ifname.c_str(), actual.data()) != 0;

    cJSON *const wan = add_object_to(wans);
    add_number(wan, "id", id);
    add_text(wan, "interface", ifname);
    add_text(wan, "configured", configured);
    add_text(wan, "computed", computed != nullptr ? mac_text(*computed) : "");
    add_text(wan, "actual", there ? mac_text(actual) : "");
    // Without a MAC for the first WAN nothing is applied, configured ones neither.
    add_flag(wan, "applied",
             there && computed != nullptr &&
                 same_mac(configured.empty() ? mac_text(*computed) : configured, actual));
}

}  // namespace

constinit const Option kWanMacsOptions[1] = {
    {"--apply", nullptr, "give the interfaces their MACs, which takes each down and up again"}};

int run_wan_macs(const Call &call, cJSON *answer)
{
    if (call.given("--apply")) {
        wan_interface_addr_init();
    }
    std::optional<Origin> origin = first_mac();
    add_text(answer, "source", origin ? origin->source : "");
    cJSON *const wans = cJSON_AddArrayToObject(answer, "wans");
    bool all_applied = true;
    for (int id = 1; id <= wan_count(); ++id) {
        add_wan_mac(wans, id, origin ? &origin->mac : nullptr);
        if (origin) {
            ifaddrs_mac_increase(origin->mac.data(), 5);
            ifaddrs_mac_increase(origin->mac.data(), 4);
        }
        all_applied = all_applied && flag_of(cJSON_GetArrayItem(wans, id - 1), "applied");
    }
    if (!origin) {
        return call.no("the board has no base MAC and \"wan.mac\" is not set");
    }
    return !call.given("--apply") || all_applied ? kYes : call.no("not every WAN took its MAC");
}

void show_wan_macs(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *wan;
    cJSON_ArrayForEach(wan, member(answer, "wans"))
    {
        const bool applied = flag_of(wan, "applied");
        rows.push_back({format("%d", int_of(wan, "id")), text_of(wan, "interface"),
                        text_of(wan, "configured"), text_of(wan, "computed"),
                        Cell{text_of(wan, "actual"), applied ? Tone::kGood : Tone::kWarning}});
    }
    page.table({"WAN", "INTERFACE", "CONFIGURED", "COMPUTED", "ACTUAL"}, rows,
               "No WAN is configured.");
}

}  // namespace prodctl
