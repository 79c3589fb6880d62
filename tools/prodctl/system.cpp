// SPDX-License-Identifier: MIT
// The device as a whole: modes, clocks, watchdog, names, other daemons.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "groups.hpp"
#include "prod_common_system.h"
#include "prod_common_time.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Word kModes[] = {{HLX_SYS_MODE_ADSL_GW, "adsl-gateway"},
                           {HLX_SYS_MODE_ADSL_BR, "adsl-bridge"},
                           {HLX_SYS_MODE_GW, "gateway"},
                           {HLX_SYS_MODE_BUTT, "not set"}};
constexpr Word kWorkModes[] = {{QX_ROUTE_MODE, "router"},
                               {QX_WISP_MODE, "wisp"},
                               {QX_APCLIENT_MODE, "apclient"},
                               {QX_AP_MODE, "ap"},
                               {QX_FAULT, "fault"}};

// ---- modes and clocks -------------------------------------------------------------------------

void add_modes(cJSON *object)
{
    const HLX_SYS_WORK_MODE_ENUM mode = get_sys_mode();
    char name[PROD_MODE_NAME_SIZE] = "";
    const QX_SYSMODE work_mode = get_systerm_mode(name);
    add_number(object, "mode", mode);
    add_text(object, "mode_name", word_of(kModes, mode, "unknown"));
    // Settings that fit no mode make it a router, without a name of their own.
    add_text(object, "work_mode",
             name[0] != '\0' ? name : word_of(kWorkModes, work_mode, "unknown"));
}

std::string mode_text(const cJSON *object)
{
    return format("%s (%d)", text_of(object, "mode_name"), int_of(object, "mode"));
}

int run_mode(const Call &, cJSON *answer)
{
    add_modes(answer);
    return kYes;
}

void show_mode(const cJSON *answer, Page &page)
{
    page.fields({{"system mode", mode_text(answer)}, {"work mode", text_of(answer, "work_mode")}});
}

int run_uptime(const Call &, cJSON *answer)
{
    add_number(answer, "uptime", get_sys_uptime());
    return kYes;
}

void show_uptime(const cJSON *answer, Page &page)
{
    const int seconds = int_of(answer, "uptime");
    page.line({format("%d s", seconds), {format("(%s)", duration(seconds).c_str()), Tone::kFaint}});
}

constexpr Option kTimeOptions[] = {
    {"--at", "SECONDS", "show that second of the epoch instead of now"},
    {"--zone-from-config", nullptr, "first set the zone from sys.timezone.offset"},
};

int run_time(const Call &call, cJSON *answer)
{
    std::optional<int> at;
    if (!call.read_number("--at", 0, INT_MAX, at)) {
        return kUsage;
    }
    if (call.given("--zone-from-config")) {
        set_timezone_env();
    }
    const char *const zone = getenv("TZ");
    add_text(answer, "time", at ? get_datetime_str_by_sec(*at) : get_datetime_str());
    add_text(answer, "date", at ? get_date_str_by_sec(*at) : get_date_str());
    add_text(answer, "zone", zone != nullptr ? zone : "");
    add_number(answer, "monotonic_ms", static_cast<double>(get_now_ms()));
    return kYes;
}

void show_time(const cJSON *answer, Page &page)
{
    page.line({text_of(answer, "time"), {text_of(answer, "zone"), Tone::kFaint}});
}

// ---- watchdog ---------------------------------------------------------------------------------

int run_watchdog(const Call &call, cJSON *answer)
{
    const std::optional<int> timeout = number(call[0], 1, kDay);
    if (!timeout) {
        return call.usage("'%s' is no number of seconds from 1 to %d", call[0], kDay);
    }
    double lines = 0;
    char *line = nullptr;
    std::size_t room = 0;
    ssize_t length;
    bool passed = true;
    feed_soft_watchdog(*timeout);
    while (passed && (length = getline(&line, &room, stdin)) >= 0) {
        feed_soft_watchdog(*timeout);
        ++lines;
        if (!call.json()) {
            passed = Console::pass({line, static_cast<std::size_t>(length)});
        }
    }
    feed_soft_watchdog(0);
    free(line);
    if (!passed) {
        return call.no("cannot write to standard output");
    }
    add_number(answer, "lines", lines);
    return kYes;
}

// ---- names and other daemons ------------------------------------------------------------------

int run_resolve(const Call &call, cJSON *answer)
{
    char address[16] = "";
    if (system_qx_gethostbyname(call[0], address) != HLX_OK) {
        return call.no("%s has no IPv4 address", call[0]);
    }
    add_text(answer, "name", call[0]);
    add_text(answer, "address", address);
    return kYes;
}

void show_resolve(const cJSON *answer, Page &page)
{
    page.line({text_of(answer, "address")});
}

constexpr Option kRequestOptions[] = {
    {"--timeout", "SECONDS", "longest wait for the daemon (default: 5)"}};

int run_request(const Call &call, cJSON *answer)
{
    std::optional<int> timeout = 5;
    if (!call.read_number("--timeout", 1, kDay, timeout)) {
        return kUsage;
    }
    char response[PROD_RESPONSE_SIZE] = "";
    if (send_and_recv_from_program(call[0], call[1], response, sizeof(response), *timeout) != 0) {
        return call.no("%s gave no answer", call[0]);
    }
    if (call.json()) {
        add_text(answer, "response", response);
    } else {
        cJSON_AddStringToObject(answer, "response", response);
    }
    return kYes;
}

void show_request(const cJSON *answer, Page &page)
{
    page.verbatim(format("%s\n", text_of(answer, "response")));
}

constexpr Option kRestoreOptions[] = {{"--yes", nullptr, "do it"}};

constexpr Command kCommands[] = {
    {.name = "mode",
     .summary = "The system mode and the work mode",
     .run = run_mode,
     .show = show_mode},
    {.name = "uptime",
     .summary = "Time since the device started",
     .run = run_uptime,
     .show = show_uptime},
    {.name = "time",
     .summary = "Date and time of the device",
     .details =
         "--zone-from-config sets the zone of the device, /etc/localtime, and not only of this\n"
         "process.",
     .run = run_time,
     .show = show_time,
     .options = kTimeOptions},
    {.name = "watchdog",
     .summary = "Pass standard input on, under the soft watchdog",
     .arguments = "TIMEOUT",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = "Each line of standard input feeds the watchdog and is passed to standard output.\n"
                "When none comes for TIMEOUT seconds the watchdog ends this process with status\n"
                "16; at the end of the input the status is 0. So a script's sign of life can be\n"
                "watched: \"daemon | prodctl system watchdog 30\".",
     .no = "standard output cannot be written (16 when the watchdog barked)",
     .run = run_watchdog},
    {.name = "resolve",
     .summary = "The first IPv4 address of a host name",
     .arguments = "NAME",
     .min_arguments = 1,
     .max_arguments = 1,
     .no = "the name has no IPv4 address",
     .run = run_resolve,
     .show = show_resolve},
    {.name = "request",
     .summary = "Send a request to a daemon's local socket and show its response",
     .arguments = "SOCKET TEXT",
     .min_arguments = 2,
     .max_arguments = 2,
     .no = "there was no response, or one of 512 bytes or more",
     .run = run_request,
     .show = show_request,
     .options = kRequestOptions,
     .candidates = "@files|"},
    {.name = "memory",
     .summary = "Memory in use and free",
     .no = "the kernel does not tell",
     .run = run_memory,
     .show = show_memory},
    {.name = "cpu", .summary = "CPU load over one second", .run = run_cpu, .show = show_cpu},
    {.name = "versions",
     .summary = "Versions of firmware, hardware and policies",
     .run = run_versions,
     .show = show_versions},
    {.name = "reboot",
     .summary = "Close the uplinks and restart the device, which takes five seconds",
     .run = run_reboot},
    {.name = "restore",
     .summary = "Put databases, images and configuration back to those of the factory",
     .details =
         "The device must restart afterwards: \"prodctl system restore --yes && prodctl system\n"
         "reboot\".",
     .run = run_restore,
     .options = kRestoreOptions},
};

}  // namespace

void add_system(cJSON *answer)
{
    cJSON *const system = cJSON_AddObjectToObject(answer, "system");
    add_modes(system);
    add_number(system, "uptime", get_sys_uptime());
    add_text(system, "time", get_datetime_str());
}

void show_system(const cJSON *answer, Page &page)
{
    const cJSON *const system = member(answer, "system");
    page.fields({{"system mode", mode_text(system)},
                 {"work mode", text_of(system, "work_mode")},
                 {"time", text_of(system, "time")},
                 {"up for", duration(int_of(system, "uptime"))}});
}

constinit const Command kSystemGroup = {
    .name = "system",
    .summary = "The device as a whole: modes, clocks, figures, versions, restart, other daemons",
    .children = kCommands,
};

}  // namespace prodctl
