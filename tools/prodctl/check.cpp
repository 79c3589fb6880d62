// SPDX-License-Identifier: MIT
// Yes-or-no questions for scripts: the exit status is the answer.
#include <cstring>

#include "groups.hpp"
#include "prod_common_check.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_system.h"
#include "prod_common_wan.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

// The longest texts that the library asks for; one behind a dash has less room.
constexpr std::size_t kMountTextMax = 107;
constexpr std::size_t kDashedTextMax = 105;

int answered(cJSON *answer, bool yes)
{
    add_flag(answer, "result", yes);
    return yes ? kYes : kNo;
}

void show_answer(const cJSON *answer, Page &page)
{
    const bool yes = flag_of(answer, "result");
    page.line({{yes ? "yes" : "no", yes ? Tone::kGood : Tone::kBad}});
}

int run_file(const Call &call, cJSON *answer)
{
    return answered(answer, prod_check_file_exist(call[0]) != 0);
}

int run_app(const Call &call, cJSON *answer)
{
    return answered(answer, prod_check_app_exist(call[0]) != 0);
}

int run_mount(const Call &call, cJSON *answer)
{
    // The library cannot ask for these, and "no" would be a lie.
    const std::size_t most = *call[0] == '-' ? kDashedTextMax : kMountTextMax;
    if (strchr(call[0], '\'') != nullptr || strlen(call[0]) > most) {
        return call.usage("the text holds a single quote or more than %zu characters", most);
    }
    return answered(answer, prod_check_mount_exist(call[0]) != 0);
}

int run_device(const Call &call, cJSON *answer)
{
    return answered(answer, prod_check_device_exist(call[0]) != 0);
}

int run_bridge(const Call &call, cJSON *answer)
{
    return answered(answer, prod_check_device_in_bridge(call[0], call[1]) != 0);
}

int run_usb(const Call &, cJSON *answer)
{
    return answered(answer, check_usbdevice_working() != 0);
}

int run_partition(const Call &call, cJSON *answer)
{
    return answered(answer, check_dir_is_mounts(call[0]) != 0);
}

int run_host(const Call &call, cJSON *answer)
{
    return answered(answer, is_dotted_quad(call[0]) && ipv4_is_valid(call[0]) != 0);
}

int run_address(const Call &call, cJSON *answer)
{
    return answered(answer, prod_check_ip(call[0]) == 0);
}

int run_param(const Call &call, cJSON *answer)
{
    return answered(answer, prod_system_param_valid(call[0]) != 0);
}

int run_wan(const Call &call, cJSON *answer)
{
    const std::optional<int> id = number(call[0], 1, kWanMax);
    if (!id) {
        return call.usage("'%s' is no WAN: 1 to %d", call[0], kWanMax);
    }
    const bool connected =
        *id <= wan_count() &&
        system_wan_get_link_status(static_cast<WAN_ID_NUM>(*id), getWanConnType(*id),
                                   get_sys_mode()) == HLX_WAN_CONNECTED;
    return answered(answer, connected);
}

constexpr Command kCommands[] = {
    {.name = "file",
     .summary = "Whether a path exists, links followed",
     .arguments = "PATH",
     .min_arguments = 1,
     .max_arguments = 1,
     .yes = "yes",
     .no = "no",
     .run = run_file,
     .show = show_answer,
     .candidates = "@files"},
    {.name = "app",
     .summary = "Whether a process of exactly that name runs",
     .arguments = "NAME",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = "The kernel keeps 15 characters of a name, so a longer one is never found.",
     .yes = "yes",
     .no = "no",
     .run = run_app,
     .show = show_answer},
    {.name = "mount",
     .summary = "Whether the list of mounts holds a text",
     .arguments = "TEXT",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = "TEXT is a basic regular expression, without single quotes.",
     .yes = "yes",
     .no = "no",
     .run = run_mount,
     .show = show_answer},
    {.name = "device",
     .summary = "Whether a network interface exists",
     .arguments = "INTERFACE",
     .min_arguments = 1,
     .max_arguments = 1,
     .yes = "yes",
     .no = "no",
     .run = run_device,
     .show = show_answer},
    {.name = "bridge",
     .summary = "Whether an interface is a port of a bridge",
     .arguments = "INTERFACE BRIDGE",
     .min_arguments = 2,
     .max_arguments = 2,
     .yes = "yes",
     .no = "no",
     .run = run_bridge,
     .show = show_answer},
    {.name = "wan",
     .summary = "Whether a WAN is connected",
     .arguments = "WAN",
     .min_arguments = 1,
     .max_arguments = 1,
     .yes = "yes",
     .no = "no",
     .run = run_wan,
     .show = show_answer,
     .candidates = "1 2 3 4"},
    {.name = "usb",
     .summary = "Whether a USB disk is attached",
     .yes = "yes",
     .no = "no",
     .run = run_usb,
     .show = show_answer},
    {.name = "partition",
     .summary = "Whether a USB partition is mounted",
     .arguments = "NAME",
     .min_arguments = 1,
     .max_arguments = 1,
     .yes = "yes",
     .no = "no",
     .run = run_partition,
     .show = show_answer},
    {.name = "host",
     .summary = "Whether a text can be the IPv4 address of a host",
     .arguments = "ADDRESS",
     .min_arguments = 1,
     .max_arguments = 1,
     .yes = "yes",
     .no = "no",
     .run = run_host,
     .show = show_answer},
    {.name = "address",
     .summary = "Whether a text that a user typed is the IPv4 address of a unicast host",
     .arguments = "TEXT",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = "Stricter than host: the first number is 1 to 223, the last at most 254.",
     .yes = "yes",
     .no = "no",
     .run = run_address,
     .show = show_answer},
    {.name = "param",
     .summary = "Whether a text holds none of the characters ; & | and the back-quote",
     .arguments = "TEXT",
     .min_arguments = 1,
     .max_arguments = 1,
     .yes = "yes",
     .no = "no",
     .run = run_param,
     .show = show_answer},
};

}  // namespace

constinit const Command kCheckGroup = {
    .name = "check",
    .summary = "Yes-or-no questions for scripts",
    .children = kCommands,
};

}  // namespace prodctl
