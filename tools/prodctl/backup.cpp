// SPDX-License-Identifier: MIT
// The configuration's backup file: made, looked at, loaded.
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "files.hpp"
#include "groups.hpp"
#include "policy.hpp"
#include "prod_common_systool.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Option kDryRun = {"--dry-run", nullptr, "only tell what would change"};

constexpr const char *kKept = "wans.wanwebaddr";  // the device's own value stands

// In the order of the file. The last one comes before the record databases.
constexpr std::string_view kMarkers[] = {
    "##the public configure end##", "##the url configure end##",
    "##the wl configure end##",     "##the rf configure end##",
    "##the reboot configure end##", "##the wldeploy configure end##",
    "##the qvlan configure end##"};

using Settings = std::map<std::string, std::string>;

/** Tells on standard error what is being done; programs that ask for JSON do not want to know. */
void progress(const Call &call, const char *what)
{
    if (!call.json()) {
        fprintf(stderr, "%s ...\n", what);
    }
}

// ---- the file ---------------------------------------------------------------------------------

Settings settings_of(std::string_view text)
{
    Settings settings;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos && equals > 0 && line[0] != '#') {
            settings[std::string{line.substr(0, equals)}] = line.substr(equals + 1);
        }
    }
    return settings;
}

struct Backup {
    std::string text;
    Settings settings;
    std::size_t policies[std::size(kPolicyKinds)] = {};
    std::vector<std::string> databases;
};

std::vector<std::string> databases_of(std::string_view text)
{
    std::vector<std::string> found;
    for (const char *const name : {"default", "auth", "ac", "client"}) {
        if (text.find(format("\n##the %s database begin##\n", name)) != std::string_view::npos) {
            found.emplace_back(name);
        }
    }
    return found;
}

/** Takes a backup apart. @return what is wrong with it, empty when it would be loaded */
std::string take_apart(Backup &backup)
{
    const std::string &text = backup.text;
    const std::size_t trailer = text.find("crc=");
    if (trailer == std::string::npos || text.find('\0') != std::string::npos) {
        return "this is no backup: there is no checksum";
    }
    char *end;
    const unsigned long expected = strtoul(text.c_str() + trailer + 4, &end, 10);
    const unsigned long actual = crc32_z(0, reinterpret_cast<const Bytef *>(text.data()), trailer);
    if (end == text.c_str() + trailer + 4 || expected != actual) {
        return "the checksum is wrong: the file is damaged, or one of its values holds \"crc=\"";
    }
    const std::string_view whole{text.data(), trailer};
    std::size_t starts[std::size(kMarkers)];
    std::size_t place = 0;
    for (std::size_t i = 0; i < std::size(kMarkers); ++i) {
        starts[i] = whole.find(kMarkers[i], place);
        if (starts[i] == std::string_view::npos) {
            return format("the line \"%s\" is missing, or not in its place",
                          std::string{kMarkers[i]}.c_str());
        }
        place = starts[i] + kMarkers[i].size();
    }
    backup.settings = settings_of(whole.substr(0, starts[0]));
    for (std::size_t i = 0; i < std::size(kPolicyKinds); ++i) {
        backup.policies[i] =
            policy_records(whole.substr(starts[i + 1], starts[i + 2] - starts[i + 1]),
                           kPolicyKinds[i])
                .size();
    }
    backup.databases = databases_of(whole.substr(place));
    return {};
}

int read_backup(const Call &call, const char *path, Backup &backup)
{
    const int status = read_file(call, path, backup.text);
    if (status != kYes) {
        return status;
    }
    const std::string flaw = take_apart(backup);
    return flaw.empty() ? kYes : call.no("%s: %s", path, flaw.c_str());
}

void add_backup(cJSON *answer, const char *path, const Backup &backup)
{
    add_text(answer, "file", path);
    add_number(answer, "size", static_cast<double>(backup.text.size()));
    add_number(answer, "settings", static_cast<double>(backup.settings.size()));
    cJSON *const policies = cJSON_AddObjectToObject(answer, "policies");
    for (std::size_t i = 0; i < std::size(kPolicyKinds); ++i) {
        add_number(policies, kPolicyKinds[i].name, static_cast<double>(backup.policies[i]));
    }
    cJSON *const databases = cJSON_AddArrayToObject(answer, "databases");
    for (const std::string &database : backup.databases) {
        add_text_to(databases, database);
    }
}

void show_backup(const cJSON *answer, Page &page)
{
    std::string policies;
    const cJSON *kind;
    cJSON_ArrayForEach(kind, member(answer, "policies"))
    {
        policies += format("%s%d %s", policies.empty() ? "" : ", ", kind->valueint, kind->string);
    }
    std::string databases;
    const cJSON *database;
    cJSON_ArrayForEach(database, member(answer, "databases"))
    {
        databases += (databases.empty() ? "" : ", ") + std::string{database->valuestring};
    }
    page.fields({{"file", text_of(answer, "file")},
                 {"size", format("%.0f bytes", number_of(answer, "size"))},
                 {"settings", format("%d", int_of(answer, "settings"))},
                 {"policies", policies},
                 {"databases", databases}});
}

// ---- commands ---------------------------------------------------------------------------------

int run_verify(const Call &call, cJSON *answer)
{
    Backup backup;
    const int status = read_backup(call, call[0], backup);
    if (status == kYes) {
        add_backup(answer, call[0], backup);
    }
    return status;
}

int run_save(const Call &call, cJSON *answer)
{
    const bool existed = access(call[0], F_OK) == 0;
    FILE *const stream = fopen(call[0], existed ? "r+e" : "we");
    if (stream == nullptr) {
        return call.no("cannot write %s: %s", call[0], strerror(errno));
    }
    progress(call, "collecting settings, policies and records");
    char made[PROD_BACKUP_NAME_SIZE] = "";
    prod_systool_sys_cfg_download(made);
    progress(call, "checking the backup");
    Backup backup;
    int status = read_backup(call, made, backup);
    if (status == kYes) {
        progress(call, "writing the file");
        const std::string &text = backup.text;
        const bool written = ftruncate(fileno(stream), 0) == 0 &&
                             fwrite(text.data(), 1, text.size(), stream) == text.size() &&
                             fflush(stream) == 0 && (fsync(fileno(stream)) == 0 || errno == EINVAL);
        if (!written) {
            status = call.no("cannot write %s: %s", call[0], strerror(errno));
        }
        add_backup(answer, call[0], backup);
    }
    fclose(stream);
    if (status != kYes && !existed) {
        remove(call[0]);
    }
    return status;
}

/** The configuration as it is now. */
bool current_settings(Settings &settings)
{
    FILE *const pipe = popen("cfm show", "re");
    if (pipe == nullptr) {
        return false;
    }
    std::string text;
    read_all(pipe, text);
    settings = settings_of(text);
    return pclose(pipe) == 0;
}

/** Whether all policies of a backup are in the database. */
bool are_policies_stored(const Backup &backup)
{
    const PolicyDatabase database = open_policies();
    for (std::size_t i = 0; i < std::size(kPolicyKinds); ++i) {
        if (database == nullptr || count_policies(database.get(), kPolicyKinds[i]) !=
                                       static_cast<int>(backup.policies[i])) {
            return false;
        }
    }
    return true;
}

/** What becomes of a setting: nothing stands for one that is absent. */
void add_change(cJSON *changes, const std::string &key, const std::optional<std::string> &before,
                const std::optional<std::string> &after)
{
    cJSON *const change = add_object_to(changes);
    add_text(change, "key", key);
    add_text_or_null(change, "old", before);
    add_text_or_null(change, "new", after);
}

void add_changes(cJSON *answer, const Settings &now, const Settings &then)
{
    cJSON *const changes = cJSON_AddArrayToObject(answer, "changes");
    for (const auto &[key, value] : now) {
        const auto found = then.find(key);
        if (found == then.end()) {
            add_change(changes, key, value, std::nullopt);
        } else if (found->second != value) {
            add_change(changes, key, value, found->second);
        }
    }
    for (const auto &[key, value] : then) {
        if (now.find(key) == now.end()) {
            add_change(changes, key, std::nullopt, value);
        }
    }
}

void add_policy_changes(cJSON *answer, const Backup &backup)
{
    const PolicyDatabase database = open_policies();
    cJSON *const policies = cJSON_AddObjectToObject(answer, "policies");
    for (std::size_t i = 0; i < std::size(kPolicyKinds); ++i) {
        const int now = database != nullptr ? count_policies(database.get(), kPolicyKinds[i]) : 0;
        cJSON *const kind = cJSON_AddObjectToObject(policies, kPolicyKinds[i].name);
        add_number(kind, "old", std::max(now, 0));
        add_number(kind, "new", static_cast<double>(backup.policies[i]));
    }
}

int run_load(const Call &call, cJSON *answer)
{
    Backup backup;
    int status = read_backup(call, call[0], backup);
    Settings now;
    if (status == kYes && !current_settings(now)) {
        status = call.no("the configuration cannot be read");
    }
    if (status != kYes) {
        return status;
    }
    Settings then = backup.settings;
    const auto kept = now.find(kKept);
    then[kKept] = kept != now.end() ? kept->second : "";
    add_changes(answer, now, then);
    add_policy_changes(answer, backup);
    if (call.given("--dry-run")) {
        add_flag(answer, "loaded", false);
        return kYes;
    }
    progress(call, "loading records, policies and settings");
    const int rc =
        prod_systool_cfg_upload(backup.text.c_str(), static_cast<long>(backup.text.size()));
    if (rc != CFG_UPGRADE_OK) {
        status = call.no("a part could not be written; settings and policies are as they were");
    } else if (!current_settings(now) || now != then) {
        status = call.no("the configuration manager did not take the settings");
    } else if (!are_policies_stored(backup)) {
        status = call.no("the settings are loaded, but not all policies were stored");
    }
    add_flag(answer, "loaded", status == kYes);
    return status;
}

void show_load(const cJSON *answer, Page &page)
{
    constexpr const char *kNotSet = "not set";
    const bool loaded = flag_of(answer, "loaded");
    const cJSON *const changes = member(answer, "changes");
    const cJSON *change;
    cJSON_ArrayForEach(change, changes)
    {
        page.line({{text_of(change, "key"), Tone::kStrong},
                   cell_of(member(change, "old"), kNotSet),
                   "->",
                   cell_of(member(change, "new"), kNotSet)});
    }
    const cJSON *kind;
    cJSON_ArrayForEach(kind, member(answer, "policies"))
    {
        page.line({format("%s policies", kind->string), format("%d", int_of(kind, "old")), "->",
                   format("%d", int_of(kind, "new"))});
    }
    const int count = cJSON_GetArraySize(changes);
    page.line({format("%d %s %s", count, count == 1 ? "setting" : "settings",
                      loaded ? "changed, loaded" : "would change")});
}

constexpr Option kLoadOptions[] = {kDryRun};

constexpr Command kCommands[] = {
    {.name = "save",
     .summary = "Write settings, policies and records to a file",
     .arguments = "FILE",
     .min_arguments = 1,
     .max_arguments = 1,
     .details =
         "The file holds passwords. It is checked before it is written: a backup that could\n"
         "not be loaded is none.",
     .no = "the backup is not whole, or FILE cannot be written",
     .run = run_save,
     .show = show_backup,
     .candidates = "@files"},
    {.name = "load",
     .summary = "Replace settings, policies and records by those of a backup",
     .arguments = "FILE",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = "Tells what changes. wans.wanwebaddr keeps its value; the databases \"ac\" and\n"
                "\"client\" of the backup are not loaded.",
     .no = "FILE is no sound backup, or could not be loaded",
     .run = run_load,
     .show = show_load,
     .options = kLoadOptions,
     .candidates = "@files"},
    {.name = "verify",
     .summary = "Tell whether a backup is whole and what it holds",
     .arguments = "FILE",
     .min_arguments = 1,
     .max_arguments = 1,
     .yes = "it could be loaded",
     .no = "it could not",
     .run = run_verify,
     .show = show_backup,
     .candidates = "@files"},
};

}  // namespace

constinit const Command kBackupGroup = {
    .name = "backup",
    .summary = "The configuration's backup file",
    .children = kCommands,
};

}  // namespace prodctl
