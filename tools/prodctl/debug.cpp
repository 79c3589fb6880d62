// SPDX-License-Identifier: MIT
// Debug levels: what each module writes, and one more writer.
#include <cstring>

#include "groups.hpp"
#include "prod_common_debug.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Word kLevels[] = {{PROD_DBG_OFF, "off"},     {PROD_DBG_FUNC, "func"},
                            {PROD_DBG_ERROR, "error"}, {PROD_DBG_DEBUG, "debug"},
                            {PROD_DBG_INFO, "info"},   {PROD_DBG_TRACE, "trace"}};
constexpr char kLevelCandidates[] = "@modules|off func error debug info trace";

std::optional<int> level_of(const char *text)
{
    const std::optional<int> level = value_of(kLevels, text);
    return level ? level : number(text, PROD_DBG_OFF, PROD_DBG_TRACE);
}

int wrong_level(const Call &call, const char *text)
{
    return call.usage("'%s' is no level: %s, or 0 to 5", text, listed(kLevels).c_str());
}

bool is_module_name(const char *name)
{
    const std::size_t length = strlen(name);
    return length > 0 && length < PROD_DBG_NAME_SIZE;
}

int wrong_module(const Call &call)
{
    return call.usage("a module's name has 1 to %d characters", PROD_DBG_NAME_SIZE - 1);
}

void add_level(cJSON *object, const char *module, unsigned int level)
{
    add_text(object, "name", module);
    add_number(object, "level", level);
    add_text(object, "level_name", word_of(kLevels, static_cast<int>(level), "unknown"));
}

int add_module(const Call &call, cJSON *answer, const char *wanted)
{
    const prod_dbg_lvl_t level = get_dbg_level(wanted);
    if (level == PROD_DBG_OFF) {
        return call.no("module '%s' is not registered", wanted);
    }
    add_level(add_object_to(cJSON_AddArrayToObject(answer, "modules")), wanted, level);
    return kYes;
}

int run_show(const Call &call, cJSON *answer)
{
    const int status =
        call[0] != nullptr ? add_module(call, answer, call[0]) : add_modules(call, answer);
    if (status == kYes && !call.json()) {
        // People get the library's own table, the one that every program of the device can print.
        cJSON_AddStringToObject(answer, "table",
                                Console::captured(show_dbg_level, call[0]).c_str());
    }
    return status;
}

void show_show(const cJSON *answer, Page &page)
{
    const char *const table = text_of(answer, "table");
    page.verbatim(page.colour() ? table : without_colour(table));
}

int run_set(const Call &call, cJSON *answer)
{
    const char *const module = call[0];
    if (!is_module_name(module)) {
        return wrong_module(call);
    }
    const std::optional<int> level = level_of(call[1]);
    if (!level) {
        return wrong_level(call, call[1]);
    }
    if (set_dbg_level(module, static_cast<prod_dbg_lvl_t>(*level)) == 0) {
        return call.no("the level was not set: no table, or %d modules are registered",
                       PROD_DBG_MODULE_MAX);
    }
    add_level(answer, module, static_cast<unsigned int>(*level));
    return kYes;
}

void show_set(const cJSON *answer, Page &page)
{
    page.line({{text_of(answer, "name"), Tone::kStrong}, text_of(answer, "level_name")});
}

int run_log(const Call &call, cJSON *answer)
{
    const char *const module = call[0];
    if (!is_module_name(module)) {
        return wrong_module(call);
    }
    const std::optional<int> level = level_of(call[1]);
    if (!level || *level == PROD_DBG_OFF) {
        return wrong_level(call, call[1]);
    }
    std::string text;
    for (const char *const word : call.arguments().subspan(2)) {
        text += text.empty() ? "" : " ";
        text += word;
    }
    const char *const function = call.given("--function") ? call.value("--function") : "prodctl";
    const bool written =
        *level == PROD_DBG_ERROR || *level <= static_cast<int>(get_dbg_level(module));

    if (call.json()) {
        prod_debug(function, 0, *level, module, "%s", text.c_str());
    } else {
        const Console::Passthrough speak;
        prod_debug(function, 0, *level, module, "%s", text.c_str());
    }
    add_text(answer, "name", module);
    add_number(answer, "level", *level);
    add_flag(answer, "written", written);
    return kYes;
}

constexpr Option kLogOptions[] = {
    {"--function", "NAME", "the function's name in the line (default: prodctl)"},
};

constexpr Command kCommands[] = {
    {.name = "show",
     .summary = "The level of each registered module, or of one",
     .arguments = "[MODULE]",
     .max_arguments = 1,
     .no = "MODULE is not registered",
     .run = run_show,
     .show = show_show,
     .candidates = "@modules"},
    {.name = "set",
     .summary = "Change what a module writes, in every running process at once",
     .arguments = "MODULE LEVEL",
     .min_arguments = 2,
     .max_arguments = 2,
     .details = "LEVEL is off, func, error, debug, info or trace, or its number from 0 to 5. A\n"
                "module writes lines of its level and below; errors are always written. A new\n"
                "module is registered, \"off\" removes it.",
     .no = "the table is full or cannot be had",
     .run = run_set,
     .show = show_set,
     .candidates = kLevelCandidates},
    {.name = "log",
     .summary = "Write one log line, as the device's programs do",
     .arguments = "MODULE LEVEL TEXT...",
     .min_arguments = 3,
     .max_arguments = kAny,
     .details = "The line goes to standard output (with --json: standard error) when the level of\n"
                "MODULE allows, and errors also to /var/debug.MODULE.log. Words are joined with\n"
                "blanks; put -- before a text that starts with a dash.",
     .run = run_log,
     .options = kLogOptions,
     .candidates = kLevelCandidates},
};

}  // namespace

int add_modules(const Call &call, cJSON *answer)
{
    const prod_dbg_info_t *const info = get_dbg_info();
    if (info == nullptr) {
        return call.no("the table of debug levels cannot be had");
    }
    cJSON *const modules = cJSON_AddArrayToObject(answer, "modules");
    int left = info->num;
    for (const prod_dbg_cb_t &slot : info->array) {
        if (slot.valid && left-- > 0) {
            const std::string name{slot.name, strnlen(slot.name, sizeof(slot.name) - 1)};
            add_level(add_object_to(modules), name.c_str(), slot.level);
        }
    }
    return kYes;
}

void show_modules(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *module;
    cJSON_ArrayForEach(module, member(answer, "modules"))
    {
        rows.push_back({text_of(module, "name"), text_of(module, "level_name")});
    }
    page.table({"MODULE", "LEVEL"}, rows, "No module is registered: only errors are written.");
}

constinit const Command kDebugGroup = {
    .name = "debug",
    .summary = "Debug levels of the device's modules, and log lines",
    .children = kCommands,
};

}  // namespace prodctl
