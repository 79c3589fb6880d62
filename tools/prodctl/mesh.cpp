// SPDX-License-Identifier: MIT
// The node's role in the mesh network.
#include "groups.hpp"
#include "prod_common_cfm.h"
#include "prod_common_xmesh.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr const char *kMode = "mesh.mode";

struct Role {
    const char *name;
    std::span<const mesh_cfg> settings;
    int (*take)();
};
constexpr Role kRoles[] = {
    {"controller", controller_cfg_table, set_mesh_to_controller_cfg},
    {"agent", agent_cfg_table, set_mesh_to_agent_cfg},
    {"default", xmesh_default_cfg_table, set_mesh_to_default_cfg},
    {"temp-controller", temp_controller_cfg_table, set_mesh_to_temp_controller_cfg},
};

/** @return nullptr, after a complaint, when there is no such role */
const Role *role_of(const Call &call)
{
    for (const Role &role : kRoles) {
        if (call[0] == std::string_view{role.name}) {
            return &role;
        }
    }
    static_cast<void>(
        call.usage("'%s' is no role: controller, agent, default or temp-controller", call[0]));
    return nullptr;
}

/** What "mesh.mode" says; the default and the temporary controller look the same there. */
const char *role_of_mode(const std::optional<std::string> &mode)
{
    constexpr struct {
        const char *mode;
        const char *role;
    } kModes[] = {{"0", "none"}, {"1", "controller"}, {"2", "agent"}};
    for (const auto &known : kModes) {
        if (mode == known.mode) {
            return known.role;
        }
    }
    return "unknown";
}

/** How many settings of a role are stored with another value. */
int count_different(const Role &role)
{
    int count = 0;
    for (const mesh_cfg &setting : role.settings) {
        count += config_value(setting.mib_name) != setting.mib_value;
    }
    return count;
}

// ---- show -------------------------------------------------------------------------------------

void add_roles(cJSON *answer)
{
    const std::optional<std::string> mode = config_value(kMode);
    add_text_or_null(answer, "mode", mode);
    add_text(answer, "role", role_of_mode(mode));
    cJSON *const list = cJSON_AddArrayToObject(answer, "roles");
    for (const Role &role : kRoles) {
        cJSON *const object = add_object_to(list);
        add_text(object, "role", role.name);
        add_number(object, "settings", static_cast<double>(role.settings.size()));
        add_number(object, "different", count_different(role));
    }
}

void add_settings(cJSON *answer, const Role &role)
{
    add_text(answer, "role", role.name);
    cJSON *const list = cJSON_AddArrayToObject(answer, "settings");
    for (const mesh_cfg &setting : role.settings) {
        const std::optional<std::string> stored = config_value(setting.mib_name);
        cJSON *const object = add_object_to(list);
        add_text(object, "key", setting.mib_name);
        add_text(object, "value", setting.mib_value);
        add_text_or_null(object, "stored", stored);
        add_flag(object, "same", stored == setting.mib_value);
    }
}

int run_show(const Call &call, cJSON *answer)
{
    if (call.count() == 0) {
        add_roles(answer);
        return kYes;
    }
    const Role *const role = role_of(call);
    if (role == nullptr) {
        return kUsage;
    }
    add_settings(answer, *role);
    return kYes;
}

void show_roles(const cJSON *roles, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *role;
    cJSON_ArrayForEach(role, roles)
    {
        const int different = int_of(role, "different");
        rows.push_back(
            {text_of(role, "role"), format("%d", int_of(role, "settings")),
             Cell{format("%d", different), different == 0 ? Tone::kGood : Tone::kPlain}});
    }
    page.table({"ROLE", "SETTINGS", "DIFFERENT"}, rows);
}

void show_settings(const cJSON *settings, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *setting;
    cJSON_ArrayForEach(setting, settings)
    {
        rows.push_back({text_of(setting, "key"), text_of(setting, "value"),
                        Cell{text_of(setting, "stored"),
                             flag_of(setting, "same") ? Tone::kGood : Tone::kWarning}});
    }
    page.table({"KEY", "VALUE", "STORED"}, rows);
}

void show_show(const cJSON *answer, Page &page)
{
    if (const cJSON *const settings = member(answer, "settings")) {
        show_settings(settings, page);
        return;
    }
    page.line({"mesh role", {text_of(answer, "role"), Tone::kStrong}});
    page.gap();
    show_roles(member(answer, "roles"), page);
}

// ---- set --------------------------------------------------------------------------------------

int run_set(const Call &call, cJSON *answer)
{
    const Role *const role = role_of(call);
    if (role == nullptr) {
        return kUsage;
    }
    const bool committed = role->take() != 0;
    const bool changed = prod_cfm_is_change() != 0;
    for (const mesh_cfg &setting : role->settings) {
        if (std::string_view{setting.mib_name} == kMode &&
            config_value(kMode) != setting.mib_value) {
            return call.no("the store did not take the settings");
        }
    }
    if (changed && !committed) {
        return call.no("the configuration was not made persistent");
    }
    add_text(answer, "role", role->name);
    add_flag(answer, "changed", changed);
    return kYes;
}

void show_set(const cJSON *answer, Page &page)
{
    const bool changed = flag_of(answer, "changed");
    page.line(
        {{text_of(answer, "role"), Tone::kStrong}, {changed ? "" : "(unchanged)", Tone::kFaint}});
    if (changed) {
        page.line({"committed"});
    }
}

constexpr char kRoleNames[] = "controller agent default temp-controller|";
constexpr char kRolesExplained[] =
    "ROLE is controller, agent, default (a stand-alone router) or temp-controller (a\n"
    "controller while the node is being set up). Each stands for a fixed set of settings.";

constexpr Command kCommands[] = {
    {.name = "show",
     .summary = "The present role, or the settings of one",
     .arguments = "[ROLE]",
     .max_arguments = 1,
     .details = kRolesExplained,
     .run = run_show,
     .show = show_show,
     .candidates = kRoleNames},
    {.name = "set",
     .summary = "Store the settings of a role and make them persistent",
     .arguments = "ROLE",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = kRolesExplained,
     .run = run_set,
     .show = show_set,
     .candidates = kRoleNames},
};

}  // namespace

constinit const Command kMeshGroup = {
    .name = "mesh",
    .summary = "The node's role in the mesh network",
    .children = kCommands,
};

}  // namespace prodctl
