// SPDX-License-Identifier: MIT
// Conversions of text that a shell on the device has no tool for.
#include <cstdio>

#include "groups.hpp"
#include "prod_common_string.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

void show_result(const cJSON *answer, Page &page)
{
    page.verbatim(format("%s\n", text_of(answer, "result")));
}

int run_hex(const Call &call, cJSON *answer)
{
    add_text(answer, "result", hex_of(call[0]));
    return kYes;
}

int run_unhex(const Call &call, cJSON *answer)
{
    const std::optional<std::string> text = text_of_hex(call[0]);
    if (!text) {
        return call.usage("'%s' is no text of hexadecimal pairs", call[0]);
    }
    if (call.json()) {
        add_text(answer, "result", *text);
    } else {
        cJSON_AddStringToObject(answer, "result", text->c_str());
    }
    return kYes;
}

int run_mac(const Call &call, cJSON *answer)
{
    constexpr std::size_t kDigits = 12;
    const std::string_view digits = call[0];
    if (digits.size() != kDigits ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos) {
        return call.usage("'%s' has not 12 hexadecimal digits", call[0]);
    }
    char mac[32];
    snprintf(mac, sizeof(mac), "%s", call[0]);
    mac_str_32(mac);
    add_text(answer, "result", str_to_upper(mac));
    return kYes;
}

int run_hash(const Call &call, cJSON *answer)
{
    add_number(answer, "result", bkdr_hash(call[0]));
    return kYes;
}

void show_hash(const cJSON *answer, Page &page)
{
    page.verbatim(format("%.0f\n", number_of(answer, "result")));
}

constexpr Command kCommands[] = {
    {.name = "hex",
     .summary = "A text as hexadecimal digits",
     .arguments = "TEXT",
     .min_arguments = 1,
     .max_arguments = 1,
     .run = run_hex,
     .show = show_result},
    {.name = "unhex",
     .summary = "The text that hexadecimal digits stand for, up to a zero byte",
     .arguments = "DIGITS",
     .min_arguments = 1,
     .max_arguments = 1,
     .run = run_unhex,
     .show = show_result},
    {.name = "mac",
     .summary = "Twelve hexadecimal digits as a MAC, upper-case with colons",
     .arguments = "DIGITS",
     .min_arguments = 1,
     .max_arguments = 1,
     .run = run_mac,
     .show = show_result},
    {.name = "hash",
     .summary = "The hash that the firmware keys texts by",
     .arguments = "TEXT",
     .min_arguments = 1,
     .max_arguments = 1,
     .run = run_hash,
     .show = show_hash},
};

}  // namespace

constinit const Command kStrGroup = {
    .name = "str",
    .summary = "Conversions of text",
    .children = kCommands,
};

}  // namespace prodctl
