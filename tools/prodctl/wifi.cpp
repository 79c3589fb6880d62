// SPDX-License-Identifier: MIT
// Wireless settings by radio and BSS.
#include <algorithm>
#include <cstring>

#include "groups.hpp"
#include "prod_common_cfm.h"
#include "prod_common_hal.h"
#include "prod_common_wifi.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr int kBssMax = 64;
constexpr std::size_t kNameMax = 480;  // of a setting: with its prefix it still makes a key

constexpr Word kRadios[] = {{2, "2"}, {5, "5"}, {2, "wlan0"}, {5, "wlan1"}};
constexpr Option kCommit[] = {{"--commit", nullptr, "make the working copy persistent afterwards"}};

/** A radio, or a BSS of it, and a setting's name. */
struct Place {
    int rate = 0;
    std::optional<int> bss;
    const char *name = nullptr;
    std::string key;
};

/** "2", "5", "wlan0", "wlan1", each with "." and a BSS number or without. */
std::optional<Place> place_of(std::string_view text)
{
    const std::size_t dot = text.find('.');
    const std::optional<int> rate = value_of(kRadios, text.substr(0, dot));
    if (!rate) {
        return std::nullopt;
    }
    Place place;
    place.rate = *rate;
    if (dot != std::string_view::npos) {
        place.bss = number(std::string{text.substr(dot + 1)}.c_str(), 0, kBssMax - 1);
        if (!place.bss) {
            return std::nullopt;
        }
    }
    return place;
}

int read_place(const Call &call, Place &place)
{
    const std::optional<Place> found = place_of(call[0]);
    if (!found) {
        return call.usage("'%s' is neither a radio (2 or 5) nor a BSS of one (2.0 to 5.%d)",
                          call[0], kBssMax - 1);
    }
    place = *found;
    place.name = call[1];
    const char *const flaw = key_flaw(place.name);
    if (flaw != nullptr || strlen(place.name) > kNameMax) {
        return call.usage("%s: this cannot be the name of a setting", place.name);
    }
    char key[CFM_KEY_MAX + 1];
    const std::string prefix = place.bss
                                   ? format("%s.%d", wifi_get_radio_prefix(place.rate), *place.bss)
                                   : wifi_get_radio_prefix(place.rate);
    place.key = wifi_get_mibname(prefix.c_str(), place.name, key);
    return kYes;
}

std::optional<std::string> value_at(const Place &place)
{
    char value[CFM_VALUE_SIZE] = "";
    const int found = place.bss ? wifi_get_bss_val(place.rate, *place.bss, place.name, value)
                                : wifi_get_radio_val(place.rate, place.name, value);
    if (found == 0) {
        return std::nullopt;
    }
    return value;
}

int run_get(const Call &call, cJSON *answer)
{
    Place place;
    if (read_place(call, place) != kYes) {
        return kUsage;
    }
    const std::optional<std::string> value = value_at(place);
    if (!value) {
        return call.no("%s is not set", place.key.c_str());
    }
    add_text(answer, "key", place.key);
    if (call.json()) {
        add_text(answer, "value", *value);
    } else {
        cJSON_AddStringToObject(answer, "value", value->c_str());  // byte for byte, for scripts
    }
    return kYes;
}

void show_get(const cJSON *answer, Page &page)
{
    page.verbatim(format("%s\n", text_of(answer, "value")));
}

int run_set(const Call &call, cJSON *answer)
{
    Place place;
    if (read_place(call, place) != kYes) {
        return kUsage;
    }
    const char *const value = call[2];
    if (const char *const flaw = value_flaw(value)) {
        return call.usage("%s: %s", place.key.c_str(), flaw);
    }
    const bool tried = (place.bss ? wifi_set_bss_val(place.rate, *place.bss, place.name, value)
                                  : wifi_set_radio_val(place.rate, place.name, value)) != 0;
    if (tried && value_at(place) != value) {
        return call.no("%s: the store did not take the value", place.key.c_str());
    }
    add_text(answer, "key", place.key);
    add_text(answer, "value", value);
    add_flag(answer, "changed", tried);
    if (call.given("--commit")) {
        const bool committed = prod_cfm_commit() != 0;
        add_flag(answer, "committed", committed);
        return committed ? kYes : call.no("the configuration was not made persistent");
    }
    add_flag(answer, "committed", false);
    return kYes;
}

void show_set(const cJSON *answer, Page &page)
{
    page.line({{text_of(answer, "key"), Tone::kStrong},
               "=",
               text_of(answer, "value"),
               {flag_of(answer, "changed") ? "" : "(unchanged)", Tone::kFaint}});
    if (flag_of(answer, "committed")) {
        page.line({"committed"});
    }
}

// ---- status -----------------------------------------------------------------------------------

void add_radio(cJSON *radios, int rate)
{
    cJSON *const radio = add_object_to(radios);
    add_number(radio, "radio", rate);
    add_text(radio, "prefix", wifi_get_radio_prefix(rate));
    add_flag(radio, "enabled", wifi_get_radio_int_val(rate, "enable") != 0);
    add_flag(radio, "up", get_wifi_band_status(rate) != 0);

    cJSON *const list = cJSON_AddArrayToObject(radio, "bss");
    const int count = std::clamp(wifi_get_radio_int_val(rate, "web_maxbss"), 0, kBssMax);
    for (int index = 0; index < count; ++index) {
        char ifname[PROD_IFNAME_SIZE] = "";
        char ssid[CFM_VALUE_SIZE] = "";
        wifi_get_bss_ifname(rate, index, ifname);
        wifi_get_bss_val(rate, index, "bss_ssid", ssid);
        cJSON *const bss = add_object_to(list);
        add_number(bss, "index", index);
        add_flag(bss, "enabled", wifi_get_bss_int_val(rate, index, "bss_enable") != 0);
        add_text(bss, "ssid", ssid);
        add_text(bss, "interface", ifname);
    }
}

int run_status(const Call &, cJSON *answer)
{
    add_text(answer, "work_mode", get_wifi_workmode());
    cJSON *const radios = cJSON_AddArrayToObject(answer, "radios");
    for (const int rate : {2, 5}) {
        add_radio(radios, rate);
    }
    return kYes;
}

void show_status(const cJSON *answer, Page &page)
{
    page.line({"work mode", {text_of(answer, "work_mode"), Tone::kStrong}});
    const cJSON *radio;
    cJSON_ArrayForEach(radio, member(answer, "radios"))
    {
        const bool up = flag_of(radio, "up");
        page.gap();
        page.line({{int_of(radio, "radio") == 2 ? "2.4 GHz" : "5 GHz", Tone::kStrong},
                   {up ? "up" : "down", up ? Tone::kGood : Tone::kBad},
                   {flag_of(radio, "enabled") ? "" : "(disabled)", Tone::kFaint}});
        std::vector<std::vector<Cell>> rows;
        const cJSON *bss;
        cJSON_ArrayForEach(bss, member(radio, "bss"))
        {
            const bool enabled = flag_of(bss, "enabled");
            rows.push_back({format("%d", int_of(bss, "index")),
                            Cell{enabled ? "on" : "off", enabled ? Tone::kGood : Tone::kFaint},
                            text_of(bss, "interface"), text_of(bss, "ssid")});
        }
        if (!rows.empty()) {
            page.table({"BSS", "STATE", "INTERFACE", "SSID"}, rows);
        }
    }
}

int run_send(const Call &call, cJSON *answer)
{
    if (send_msg_to_wlan_server(call[0]) != 0) {
        return call.no("the WLAN server did not take the command");
    }
    add_text(answer, "sent", call[0]);
    return kYes;
}

void show_send(const cJSON *answer, Page &page)
{
    page.line({"sent", text_of(answer, "sent")});
}

constexpr char kPlaces[] =
    "RADIO is 2 (2.4 GHz) or 5, or wlan0 or wlan1, and RADIO.BSS one of its BSSs, counted\n"
    "from 0: \"2 band\" is wlan0_band, \"5.0 bss_ssid\" is wlan1.0_bss_ssid.";
constexpr char kPlaceCandidates[] =
    "2 5 2.0 2.1 2.2 2.3 5.0 5.1 5.2 5.3 wlan0 wlan1|bss_enable bss_ssid band enable web_maxbss "
    "workmode|";

constexpr Command kCommands[] = {
    {.name = "status",
     .summary = "Work mode, radios and their BSSs",
     .run = run_status,
     .show = show_status},
    {.name = "get",
     .summary = "A setting of a radio or of a BSS",
     .arguments = "RADIO[.BSS] NAME",
     .min_arguments = 2,
     .max_arguments = 2,
     .details = kPlaces,
     .no = "it is not set",
     .run = run_get,
     .show = show_get,
     .candidates = kPlaceCandidates},
    {.name = "set",
     .summary = "Store a setting of a radio or of a BSS",
     .arguments = "RADIO[.BSS] NAME VALUE",
     .min_arguments = 3,
     .max_arguments = 3,
     .details = kPlaces,
     .run = run_set,
     .show = show_set,
     .options = kCommit,
     .candidates = kPlaceCandidates},
    {.name = "send",
     .summary = "Send a command to the WLAN server, which applies wireless changes",
     .arguments = "TEXT",
     .min_arguments = 1,
     .max_arguments = 1,
     .run = run_send,
     .show = show_send},
};

}  // namespace

constinit const Command kWifiGroup = {
    .name = "wifi",
    .summary = "Wireless settings by radio and BSS",
    .children = kCommands,
};

}  // namespace prodctl
