// SPDX-License-Identifier: MIT
// LEDs and port links.
#include <cstring>

#include "groups.hpp"
#include "prod_common_hal.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Word kLeds[] = {
    {LED_SYS, "sys"}, {LED_WPS, "wps"}, {LED_24G, "24g"}, {LED_5G, "5g"},     {LED_USB, "usb"},
    {LED_LAN, "lan"}, {LED_WAN, "wan"}, {LED_RED, "red"}, {LED_BLUE, "blue"}, {LED_GREEN, "green"}};

constexpr Word kPatterns[] = {
    {LED_ON, "on"},         {LED_OFF, "off"},           {LED_BLINK, "blink"},
    {LED_NORMAL, "normal"}, {LED_FORCE_ON, "force-on"}, {LED_FORCE_OFF, "force-off"}};

// ---- LEDs -------------------------------------------------------------------------------------

/** Adds an LED that the board has. */
bool add_led(cJSON *leds, const Word &led)
{
    unsigned int state = 0;
    if (iof_gpio_get(static_cast<gpio_id_t>(led.value), &state) != 0) {
        return false;
    }
    cJSON *const object = add_object_to(leds);
    add_text(object, "name", led.name);
    add_text(object, "pattern", word_of(kPatterns, static_cast<int>(state), "unknown"));
    return true;
}

void add_leds(cJSON *answer)
{
    cJSON *const leds = cJSON_AddArrayToObject(answer, "leds");
    for (const Word &led : kLeds) {
        add_led(leds, led);
    }
}

int wrong_led(const Call &call)
{
    return call.usage("'%s' is no LED: %s", call[0], listed(kLeds).c_str());
}

int run_led_show(const Call &call, cJSON *answer)
{
    if (call[0] == nullptr) {
        add_leds(answer);
        return kYes;
    }
    const std::optional<int> led = value_of(kLeds, call[0]);
    if (!led) {
        return wrong_led(call);
    }
    cJSON *const leds = cJSON_CreateArray();
    if (!add_led(leds, {*led, call[0]})) {
        cJSON_Delete(leds);
        return call.no("the board has no LED %s", call[0]);
    }
    cJSON_AddItemToObject(answer, "leds", leds);
    return kYes;
}

void show_leds(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *led;
    cJSON_ArrayForEach(led, member(answer, "leds"))
    {
        rows.push_back({text_of(led, "name"), text_of(led, "pattern")});
    }
    page.table({"LED", "PATTERN"}, rows, "The board has no LED.");
}

/** The LEDs that the library switches as a group. */
int set_group(const Call &call, std::string_view group, std::string_view pattern)
{
    if (group == "wifi" && pattern == "auto") {
        set_wifi_led_by_enable();
        return kYes;
    }
    if (pattern != "on" && pattern != "off") {
        return call.usage("'%s' is set on or off%s, not '%s'", call[0],
                          group == "wifi" ? " or auto" : "", call[1]);
    }
    const bool on = pattern == "on";
    if (group == "wifi") {
        set_wifi_led_status(on ? LED_ON : LED_OFF, WLAN_RATE_ALL);
    } else {
        hal_set_all_led(on);
    }
    return kYes;
}

int run_led_set(const Call &call, cJSON *answer)
{
    const std::string_view name = call[0];
    if (name == "all" || name == "wifi") {
        const int status = set_group(call, name, call[1]);
        if (status == kYes) {
            add_leds(answer);
        }
        return status;
    }
    const std::optional<int> led = value_of(kLeds, name);
    if (!led) {
        return wrong_led(call);
    }
    const std::optional<int> pattern = value_of(kPatterns, call[1]);
    if (!pattern) {
        return call.usage("'%s' is no pattern: %s", call[1], listed(kPatterns).c_str());
    }
    if (iof_gpio_set(static_cast<gpio_id_t>(*led), static_cast<led_pattern_t>(*pattern)) != 0) {
        return call.no("the board cannot set LED %s to %s", call[0], call[1]);
    }
    return run_led_show(call, answer);
}

constexpr Command kLedCommands[] = {
    {.name = "show",
     .summary = "What each LED of the board shows, or one",
     .arguments = "[LED]",
     .max_arguments = 1,
     .details = "LED is sys, wps, 24g, 5g, usb, lan, wan, red, blue or green.",
     .no = "the board has no such LED",
     .run = run_led_show,
     .show = show_leds,
     .candidates = "sys wps 24g 5g usb lan wan red blue green"},
    {.name = "set",
     .summary = "Make an LED, or a group of them, show a pattern",
     .arguments = "LED PATTERN",
     .min_arguments = 2,
     .max_arguments = 2,
     .details =
         "LED as for show, with PATTERN on, off, blink, normal, force-on or force-off; or\n"
         "\"all\" (the front panel, as the factory restore does) with on or off, or \"wifi\"\n"
         "(both bands) with on, off or auto: as the radios are enabled. \"wifi on\" works\n"
         "only when both are off.",
     .no = "the board has no such LED",
     .run = run_led_set,
     .show = show_leds,
     .candidates =
         "all wifi sys wps 24g 5g usb lan wan red blue green|on off blink normal force-on "
         "force-off auto|"},
};

// ---- ports ------------------------------------------------------------------------------------

constexpr int kPhysicalMax = 255;

void add_port(cJSON *ports, int physical, bool link)
{
    cJSON *const port = add_object_to(ports);
    add_number(port, "physical_id", physical);
    add_flag(port, "link", link);
}

int run_port(const Call &call, cJSON *answer)
{
    if (call[0] == nullptr) {
        cJSON *const ports = cJSON_AddArrayToObject(answer, "ports");
        for (const char digit : port_places()) {
            add_port(ports, digit - '0', get_port_link_status(digit - '0') != 0);
        }
        return kYes;
    }
    const std::optional<int> physical = number(call[0], 0, kPhysicalMax);
    if (!physical) {
        return call.usage("'%s' is no physical port id", call[0]);
    }
    const bool link = get_port_link_status(*physical) != 0;
    add_port(cJSON_AddArrayToObject(answer, "ports"), *physical, link);
    return link ? kYes : kNo;
}

void show_port(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *port;
    cJSON_ArrayForEach(port, member(answer, "ports"))
    {
        const bool link = flag_of(port, "link");
        rows.push_back({format("%d", int_of(port, "physical_id")),
                        Cell{link ? "up" : "down", link ? Tone::kGood : Tone::kFaint}});
    }
    page.table({"PHYSICAL", "LINK"}, rows, "No port is configured.");
}

}  // namespace

constinit const Command kLedGroup = {
    .name = "led",
    .summary = "The board's LEDs",
    .children = kLedCommands,
};

constinit const Command kPortCommand = {
    .name = "port",
    .summary = "The links of the switch ports, or of one",
    .arguments = "[PHYSICAL-ID]",
    .max_arguments = 1,
    .yes = "done; the link of that port is up",
    .no = "the link of that port is down, or the board has no such port",
    .run = run_port,
    .show = show_port,
};

}  // namespace prodctl
