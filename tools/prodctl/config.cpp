// SPDX-License-Identifier: MIT
// The configuration's working copy.
#include <cstring>

#include "groups.hpp"
#include "prod_common_cfm.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Option kCommit = {"--commit", nullptr, "make the working copy persistent afterwards"};
constexpr Option kFile = {"--file", "FILE", "take the settings from a file's lines KEY=VALUE"};

struct Setting {
    std::string key;
    std::string value;
};

// ---- reading settings -------------------------------------------------------------------------

std::optional<Setting> split(std::string_view text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) {
        return std::nullopt;
    }
    return Setting{std::string{text.substr(0, equals)}, std::string{text.substr(equals + 1)}};
}

/** The lines of a file. @return an exit status */
int read_lines(const Call &call, const char *path, std::vector<Setting> &settings)
{
    const bool standard_input = strcmp(path, "-") == 0;
    FILE *const stream = standard_input ? stdin : fopen(path, "re");
    if (stream == nullptr) {
        return call.no("cannot open %s: %s", path, strerror(errno));
    }
    char *line = nullptr;
    std::size_t room = 0;
    ssize_t length;
    int status = kYes;
    for (int number = 1; status == kYes && (length = getline(&line, &room, stream)) >= 0;
         ++number) {
        std::string_view text{line, static_cast<std::size_t>(length)};
        while (text.ends_with('\n') || text.ends_with('\r')) {
            text.remove_suffix(1);
        }
        if (text.empty() || text.starts_with('#')) {
            continue;
        }
        if (text.find('\0') != std::string_view::npos) {
            status = call.no("line %d of %s holds a zero byte", number, path);
        } else if (const std::optional<Setting> setting = split(text)) {
            settings.push_back(*setting);
        } else {
            status = call.no("line %d of %s is not KEY=VALUE", number, path);
        }
    }
    if (status == kYes && ferror(stream)) {
        status = call.no("cannot read %s: %s", path, strerror(errno));
    }
    free(line);
    if (!standard_input) {
        fclose(stream);
    }
    return status;
}

/** KEY VALUE, or KEY=VALUE each. @return an exit status */
int read_arguments(const Call &call, std::vector<Setting> &settings)
{
    if (call.count() == 2 && strchr(call[0], '=') == nullptr) {
        settings.push_back({call[0], call[1]});
        return kYes;
    }
    for (const char *const argument : call.arguments()) {
        const std::optional<Setting> setting = split(argument);
        if (!setting) {
            return call.usage("'%s' is not KEY=VALUE", argument);
        }
        settings.push_back(*setting);
    }
    return kYes;
}

/** All settings of a call, each one possible: nothing is stored while one is not. */
int read_settings(const Call &call, std::vector<Setting> &settings)
{
    if (call.given("--file") == (call.count() > 0)) {
        return call.usage("give either settings or --file");
    }
    const int status = call.given("--file") ? read_lines(call, call.value("--file"), settings)
                                            : read_arguments(call, settings);
    if (status != kYes) {
        return status;
    }
    for (const Setting &setting : settings) {
        const char *flaw = key_flaw(setting.key);
        if (flaw == nullptr) {
            flaw = value_flaw(setting.value);
        }
        if (flaw != nullptr) {
            return call.given("--file") ? call.no("%s: %s", setting.key.c_str(), flaw)
                                        : call.usage("%s: %s", setting.key.c_str(), flaw);
        }
    }
    return kYes;
}

// ---- writing ----------------------------------------------------------------------------------

void add_setting(cJSON *settings, const Setting &setting, const std::optional<std::string> &old,
                 bool changed)
{
    cJSON *const object = add_object_to(settings);
    add_text(object, "key", setting.key);
    add_text_or_null(object, "old", old);
    add_text(object, "new", setting.value);
    add_flag(object, "changed", changed);
}

int commit(const Call &call)
{
    return prod_cfm_commit() != 0 ? kYes : call.no("the configuration was not made persistent");
}

/** Commits when asked to, and says so in the answer. */
int finish(const Call &call, cJSON *answer, int changed, int status)
{
    add_number(answer, "changed", changed);
    if (call.given("--commit") && status == kYes) {
        status = commit(call);
        add_flag(answer, "committed", status == kYes);
    } else {
        add_flag(answer, "committed", false);
    }
    return status;
}

Cell shown(const cJSON *value)
{
    const bool empty = cJSON_IsString(value) && *value->valuestring == '\0';
    return empty ? Cell{"empty", Tone::kFaint} : cell_of(value, "not set");
}

void show_settings(const cJSON *answer, Page &page, const char *verb)
{
    int count = 0;
    const cJSON *setting;
    cJSON_ArrayForEach(setting, member(answer, "settings"))
    {
        ++count;
        if (flag_of(setting, "changed")) {
            page.line({{text_of(setting, "key"), Tone::kStrong},
                       shown(member(setting, "old")),
                       "->",
                       shown(member(setting, "new"))});
        }
    }
    page.line({format("%d of %d %s%s", int_of(answer, "changed"), count, verb,
                      flag_of(answer, "committed") ? ", committed" : "")});
}

// ---- commands ---------------------------------------------------------------------------------

/** Whether all arguments are keys. @return an exit status */
int check_keys(const Call &call)
{
    for (const char *const key : call.arguments()) {
        if (const char *const flaw = key_flaw(key)) {
            return call.usage("%s: %s", key, flaw);
        }
    }
    return kYes;
}

int run_get(const Call &call, cJSON *answer)
{
    int status = check_keys(call);
    if (status != kYes) {
        return status;
    }
    cJSON *const values = cJSON_AddObjectToObject(answer, "values");
    for (const char *const key : call.arguments()) {
        const std::optional<std::string> value = config_value(key);
        if (value && !call.json()) {
            cJSON_AddStringToObject(values, key, value->c_str());  // byte for byte, for scripts
        } else {
            add_text_or_null(values, utf8(key).c_str(), value);
        }
        if (!value) {
            status = call.no("%s is not set", key);
        }
    }
    return status;
}

void show_get(const cJSON *answer, Page &page)
{
    // One value stands alone, for scripts.
    const cJSON *const values = member(answer, "values");
    const bool one = cJSON_GetArraySize(values) == 1;
    const cJSON *value;
    cJSON_ArrayForEach(value, values)
    {
        if (cJSON_IsString(value)) {
            page.verbatim(one ? format("%s\n", value->valuestring)
                              : format("%s=%s\n", value->string, value->valuestring));
        }
    }
}

int run_set(const Call &call, cJSON *answer)
{
    std::vector<Setting> settings;
    int status = read_settings(call, settings);
    if (status != kYes) {
        return status;
    }
    cJSON *const list = cJSON_AddArrayToObject(answer, "settings");
    int changed = 0;
    for (const Setting &setting : settings) {
        const std::optional<std::string> old = config_value(setting.key);
        prod_cfm_init();
        prod_cfm_set_val(setting.key.c_str(), setting.value.c_str());
        // The count of changes tells of the attempt, only the store itself of the success.
        const bool tried = prod_cfm_is_change() != 0;
        const bool taken = !tried || config_value(setting.key) == setting.value;
        if (!taken) {
            status = call.no("%s: the store did not take the value", setting.key.c_str());
        }
        add_setting(list, setting, old, tried && taken);
        changed += tried && taken;
    }
    return finish(call, answer, changed, status);
}

void show_set(const cJSON *answer, Page &page)
{
    show_settings(answer, page, "changed");
}

int run_changes(const Call &call, cJSON *answer)
{
    std::vector<Setting> settings;
    const int status = read_settings(call, settings);
    if (status != kYes) {
        return status;
    }
    cJSON *const list = cJSON_AddArrayToObject(answer, "settings");
    int changed = 0;
    for (const Setting &setting : settings) {
        const std::optional<std::string> old = config_value(setting.key);
        // As the setters see it: an absent key holds the empty text.
        const bool differs = old.value_or("") != setting.value;
        add_setting(list, setting, old, differs);
        changed += differs;
    }
    add_number(answer, "changed", changed);
    return changed > 0 ? kYes : kNo;
}

void show_changes(const cJSON *answer, Page &page)
{
    show_settings(answer, page, "would change");
}

int run_unset(const Call &call, cJSON *answer)
{
    int status = check_keys(call);
    if (status != kYes) {
        return status;
    }
    int changed = 0;
    cJSON *const removed = cJSON_AddArrayToObject(answer, "removed");
    for (const char *const key : call.arguments()) {
        if (prod_cfm_unset_val(key) == 0) {
            status = call.no("%s holds no value", key);
        } else if (config_value(key)) {
            status = call.no("%s was not removed", key);
        } else {
            add_text_to(removed, key);
            ++changed;
        }
    }
    return finish(call, answer, changed, status);
}

void show_unset(const cJSON *answer, Page &page)
{
    const cJSON *key;
    cJSON_ArrayForEach(key, member(answer, "removed"))
    {
        page.line({{key->valuestring, Tone::kStrong}, "removed"});
    }
    if (flag_of(answer, "committed")) {
        page.line({"committed"});
    }
}

int run_commit(const Call &call, cJSON *answer)
{
    const int status = commit(call);
    if (status == kYes) {
        add_flag(answer, "committed", true);
    }
    return status;
}

void show_commit(const cJSON *, Page &page)
{
    page.line({"committed"});
}

constexpr Option kSetOptions[] = {kFile, kCommit};
constexpr Option kChangesOptions[] = {kFile};
constexpr Option kUnsetOptions[] = {kCommit};

constexpr Command kCommands[] = {
    {.name = "get",
     .summary = "The value of a key, or of several",
     .arguments = "KEY...",
     .min_arguments = 1,
     .max_arguments = kAny,
     .details = "One value is printed as it is, several as KEY=VALUE.",
     .no = "a key is not set",
     .run = run_get,
     .show = show_get},
    {.name = "set",
     .summary = "Store values and tell which of them changed",
     .arguments = "[KEY VALUE | KEY=VALUE...]",
     .max_arguments = kAny,
     .details =
         "Nothing is stored when one of the settings is impossible, and what holds the\n"
         "value already is left alone. Put -- before a value that starts with a dash. FILE -\n"
         "is standard input; blank lines and lines with # in front do not count.",
     .no = "FILE cannot be read, a value was not taken, or the commit failed",
     .run = run_set,
     .show = show_set,
     .options = kSetOptions},
    {.name = "unset",
     .summary = "Remove keys",
     .arguments = "KEY...",
     .min_arguments = 1,
     .max_arguments = kAny,
     .no = "a key holds no value",
     .run = run_unset,
     .show = show_unset,
     .options = kUnsetOptions},
    {.name = "changes",
     .summary = "Tell which settings would change, without storing any",
     .arguments = "[KEY VALUE | KEY=VALUE...]",
     .max_arguments = kAny,
     .details = "Compares settings with the working copy. With the file that holds the persistent\n"
                "configuration as FILE it shows what was changed and not committed yet.",
     .yes = "something would change",
     .no = "nothing would change",
     .run = run_changes,
     .show = show_changes,
     .options = kChangesOptions},
    {.name = "commit",
     .summary = "Make the working copy persistent",
     .run = run_commit,
     .show = show_commit},
};

}  // namespace

constinit const Command kConfigGroup = {
    .name = "config",
    .summary = "The configuration: the working copy that every program shares",
    .children = kCommands,
};

}  // namespace prodctl
