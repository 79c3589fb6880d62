// SPDX-License-Identifier: MIT
// Policies of the access controller.
#include "policy.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "files.hpp"
#include "groups.hpp"
#include "prod_common_cfm.h"

namespace prodctl
{

namespace
{

constexpr Option kDryRun = {"--dry-run", nullptr, "only tell what would happen"};

const PolicyKind *kind_of(const char *name)
{
    for (const PolicyKind &kind : kPolicyKinds) {
        if (strcmp(kind.name, name) == 0) {
            return &kind;
        }
    }
    return nullptr;
}

bool add_policies(sqlite3 *database, const PolicyKind &kind, cJSON *policies)
{
    cJSON *const rows = cJSON_AddArrayToObject(policies, kind.name);
    const auto add = [](void *out, int count, char **values, char **names) {
        cJSON *const policy = add_object_to(static_cast<cJSON *>(out));
        for (int i = 0; i < count; ++i) {
            add_text_or_null(
                policy, names[i],
                values[i] != nullptr ? std::optional<std::string>{values[i]} : std::nullopt);
        }
        return 0;
    };
    return sqlite3_exec(database, format("select * from %s", kind.table).c_str(), add, rows,
                        nullptr) == SQLITE_OK;
}

int run_list(const Call &call, cJSON *answer)
{
    const PolicyKind *const only = call.count() > 0 ? kind_of(call[0]) : nullptr;
    if (call.count() > 0 && only == nullptr) {
        return call.usage("'%s' is no kind of policy: wireless, radio, reboot, deployment or vlan",
                          call[0]);
    }
    const PolicyDatabase database = open_policies();
    if (database == nullptr) {
        return call.no("there is no policy database; \"prodctl policy init\" makes one");
    }
    cJSON *const policies = cJSON_AddObjectToObject(answer, "policies");
    for (const PolicyKind &kind : kPolicyKinds) {
        if (only != nullptr && only != &kind) {
            continue;
        }
        if (!add_policies(database.get(), kind, policies)) {
            return call.no("%s: %s", kind.table, sqlite3_errmsg(database.get()));
        }
    }
    return kYes;
}

Cell value_cell(const cJSON *value)
{
    return cell_of(value, "none");
}

/** One kind is shown with all columns, several as a table. */
void show_list(const cJSON *answer, Page &page)
{
    const cJSON *const policies = member(answer, "policies");
    const bool one_kind = cJSON_GetArraySize(policies) == 1;
    std::vector<std::vector<Cell>> rows;
    const cJSON *kind;
    cJSON_ArrayForEach(kind, policies)
    {
        const cJSON *policy;
        cJSON_ArrayForEach(policy, kind)
        {
            rows.push_back({kind->string, value_cell(member(policy, "name")),
                            value_cell(member(policy, "enable"))});
            if (one_kind) {
                std::vector<Field> fields;
                const cJSON *column;
                cJSON_ArrayForEach(column, policy)
                {
                    fields.push_back({column->string, value_cell(column)});
                }
                page.gap();
                page.fields(fields);
            }
        }
    }
    if (rows.empty()) {
        page.line({{"There is no policy.", Tone::kFaint}});
    } else if (!one_kind) {
        page.table({"KIND", "NAME", "ENABLED"}, rows);
    }
}

bool write_text(const char *path, std::string_view text)
{
    FILE *const stream = fopen(path, "we");
    if (stream == nullptr) {
        return false;
    }
    const bool written = fwrite(text.data(), 1, text.size(), stream) == text.size();
    return fclose(stream) == 0 && written;
}

int run_export(const Call &call, cJSON *answer)
{
    for (const PolicyKind &kind : kPolicyKinds) {
        remove(kind.file);
    }
    if (prod_download_ac_policy() != PAV_RET_OK) {
        return call.no("the policies cannot be read");
    }
    std::string all;
    cJSON *const records = cJSON_AddObjectToObject(answer, "records");
    for (const PolicyKind &kind : kPolicyKinds) {
        std::string text;
        if (access(kind.file, F_OK) == 0) {  // a kind without policies has none
            const int status = read_file(call, kind.file, text);
            if (status != kYes) {
                return status;
            }
        }
        const std::vector<std::string_view> found = policy_records(text, kind);
        add_number(records, kind.name, static_cast<double>(found.size()));
        for (const std::string_view record : found) {
            all.append(record).append("\n");
        }
    }
    if (call.count() > 0) {
        add_text(answer, "file", call[0]);
        if (!write_text(call[0], all)) {
            return call.no("cannot write %s: %s", call[0], strerror(errno));
        }
    } else if (call.json()) {
        add_text(answer, "text", all);
    } else {
        cJSON_AddStringToObject(answer, "text", all.c_str());  // byte for byte
    }
    return kYes;
}

void show_records(const cJSON *answer, Page &page)
{
    std::vector<Field> fields;
    const cJSON *count;
    cJSON_ArrayForEach(count, member(answer, "records"))
    {
        fields.push_back({count->string, format("%d", count->valueint)});
    }
    page.fields(fields);
}

void show_export(const cJSON *answer, Page &page)
{
    if (member(answer, "text") != nullptr) {
        page.verbatim(text_of(answer, "text"));
        return;
    }
    show_records(answer, page);
}

int run_import(const Call &call, cJSON *answer)
{
    std::string text;
    int status = read_file_or_input(call, call[0], text);
    if (status != kYes) {
        return status;
    }
    cJSON *const counts = cJSON_AddObjectToObject(answer, "records");
    std::size_t total = 0;
    for (const PolicyKind &kind : kPolicyKinds) {
        const std::vector<std::string_view> records = policy_records(text, kind);
        total += records.size();
        add_number(counts, kind.name, static_cast<double>(records.size()));
        for (const std::string_view record : records) {
            const std::string flaw = policy_flaw(record, kind);
            if (!flaw.empty()) {
                status = call.no("a %s policy %s", kind.name, flaw.c_str());
            }
        }
    }
    if (total == 0) {
        return call.no("%s holds no policy", call[0]);
    }
    if (status != kYes || call.given("--dry-run")) {
        return status;
    }
    for (const PolicyKind &kind : kPolicyKinds) {
        std::string records;
        for (const std::string_view record : policy_records(text, kind)) {
            records.append("\r\n").append(record);
        }
        if (!write_text(kind.file, records)) {
            return call.no("cannot write %s: %s", kind.file, strerror(errno));
        }
    }
    upload_ac_policy();
    const PolicyDatabase database = open_policies();
    for (const PolicyKind &kind : kPolicyKinds) {
        const int wanted = static_cast<int>(policy_records(text, kind).size());
        if (database == nullptr || count_policies(database.get(), kind) != wanted) {
            status = call.no("the %s policies were not stored", kind.name);
        }
    }
    return status;
}

int run_init(const Call &call, cJSON *answer)
{
    const char *const path = call.count() > 0 ? call[0] : PROD_POLICY_DATABASE;
    if (*path == '\0') {  // to the engine that is a database in memory, gone at once
        return call.usage("the name of a file cannot be empty");
    }
    sqlite3 *handle = nullptr;
    const int rc = sqlite3_open(path, &handle);
    const PolicyDatabase database{handle, &sqlite3_close};
    if (rc != SQLITE_OK) {
        return call.no("cannot open %s: %s", path, sqlite3_errmsg(handle));
    }
    sqlite_create_policy_table(handle);
    for (const PolicyKind &kind : kPolicyKinds) {
        if (count_policies(handle, kind) < 0) {
            return call.no("%s was not made", kind.table);
        }
    }
    add_text(answer, "file", path);
    return kYes;
}

constexpr Option kImportOptions[] = {kDryRun};

constexpr Command kCommands[] = {
    {.name = "list",
     .summary = "The policies, or all columns of those of one kind",
     .arguments = "[KIND]",
     .max_arguments = 1,
     .no = "the policies cannot be read",
     .run = run_list,
     .show = show_list,
     .candidates = "wireless radio reboot deployment vlan"},
    {.name = "export",
     .summary = "Write the policies as records, one a line",
     .arguments = "[FILE]",
     .max_arguments = 1,
     .no = "the policies cannot be read, or FILE not written",
     .run = run_export,
     .show = show_export,
     .candidates = "@files"},
    {.name = "import",
     .summary = "Replace all policies by the records of a file",
     .arguments = "FILE",
     .min_arguments = 1,
     .max_arguments = 1,
     .details = "Every record is looked at first: with one that would be dropped or cut nothing\n"
                "changes. FILE - is standard input.",
     .no = "FILE cannot be read, holds no policy or an unsound one, or was not stored",
     .run = run_import,
     .show = show_records,
     .options = kImportOptions,
     .candidates = "@files"},
    {.name = "init",
     .summary = "Make the policy database, or one in another file, where it is missing",
     .arguments = "[FILE]",
     .max_arguments = 1,
     .no = "the file cannot be written, or is no database",
     .run = run_init,
     .candidates = "@files"},
};

}  // namespace

PolicyDatabase open_policies()
{
    sqlite3 *handle = nullptr;
    const int rc = sqlite3_open_v2(PROD_POLICY_DATABASE, &handle, SQLITE_OPEN_READWRITE, nullptr);
    PolicyDatabase database{handle, &sqlite3_close};
    if (rc != SQLITE_OK) {
        database.reset();
    }
    return database;
}

int count_policies(sqlite3 *database, const PolicyKind &kind)
{
    int count = -1;
    const auto take = [](void *out, int, char **values, char **) {
        *static_cast<int *>(out) = static_cast<int>(strtol(values[0], nullptr, 10));
        return 0;
    };
    sqlite3_exec(database, format("select count(*) from %s", kind.table).c_str(), take, &count,
                 nullptr);
    return count;
}

std::vector<std::string_view> policy_records(std::string_view text, const PolicyKind &kind)
{
    std::vector<std::string_view> records;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (line.starts_with(kind.prefix)) {
            records.push_back(line);
        }
    }
    return records;
}

std::string policy_flaw(std::string_view record, const PolicyKind &kind)
{
    constexpr std::size_t kLongestLine = 1023;
    constexpr std::size_t kLongestValue = 255;
    if (record.size() > kLongestLine) {
        return format("has %zu characters, more than %zu", record.size(), kLongestLine);
    }
    std::size_t columns = 0;
    record.remove_prefix(strlen(kind.prefix));
    while (!record.empty()) {
        const std::string_view item = record.substr(0, record.find('\t'));
        record.remove_prefix(std::min(record.size(), item.size() + 1));
        if (item.empty()) {
            continue;
        }
        ++columns;
        const std::size_t equals = item.find('=');
        if (equals == std::string_view::npos || equals == 0) {
            return format("has '%s' where COLUMN=VALUE should be", std::string{item}.c_str());
        }
        const std::string_view value = item.substr(equals + 1);
        const std::string name{item.substr(0, equals)};
        if (value.find(' ') != std::string_view::npos) {
            return format("has a blank in %s, which would be cut there", name.c_str());
        }
        if (value.size() > kLongestValue) {
            return format("has more than %zu characters in %s", kLongestValue, name.c_str());
        }
    }
    return columns == kind.columns
               ? std::string{}
               : format("has %zu columns instead of %zu", columns, kind.columns);
}

constinit const Command kPolicyGroup = {
    .name = "policy",
    .summary = "What the access controller pushes to its access points",
    .children = kCommands,
};

}  // namespace prodctl
