// SPDX-License-Identifier: MIT
// The tables of records that name LAN hosts.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <optional>

#include "groups.hpp"
#include "prod_common_check.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

struct NamedTable {
    const char *name;
    db_table *(*open)(void);
};
constexpr NamedTable kTables[] = {{"dhcps-list", get_dhcps_list_table},
                                  {"port-map", get_port_map_table},
                                  {"ip-mac-bind", get_ip_mac_bind_table}};
constexpr char kTableCandidates[] = "dhcps-list port-map ip-mac-bind";

constexpr int kNoColumn = -1;

int column_of(const db_table &table, std::string_view name)
{
    for (int i = 0; i < table.col_num; ++i) {
        if (name == table.columns[i].name) {
            return i;
        }
    }
    return kNoColumn;
}

/** The table of a name. @return an exit status; kYes with @p table, which is open */
int open_table(const Call &call, const char *name, db_table *&table)
{
    for (const NamedTable &named : kTables) {
        if (std::string_view{name} == named.name) {
            table = named.open();
            return table != nullptr ? kYes : call.no("the record database cannot be opened");
        }
    }
    return call.usage("'%s' is none of the tables %s", name, kTableCandidates);
}

/** One value of a row, as it is written on a command line. */
struct Setting {
    int column;
    std::string text;
    int number;
};

/** Reads COLUMN=VALUE for a table. @return an exit status */
int read_setting(const Call &call, const db_table &table, std::string_view word, Setting &setting)
{
    const std::size_t equals = std::min(word.find('='), word.size());
    setting.column = column_of(table, word.substr(0, equals));
    if (equals == word.size() || setting.column == kNoColumn) {
        std::string names;
        for (int i = 0; i < table.col_num; ++i) {
            names += format("%s'%s'", i > 0 ? ", " : "", table.columns[i].name);
        }
        return call.usage("'%s' is not COLUMN=VALUE with one of the columns %s",
                          std::string{word}.c_str(), names.c_str());
    }
    setting.text = word.substr(equals + 1);
    setting.number = 0;
    const db_col_t &column = table.columns[setting.column];
    if (column.type == DB_STRING) {
        return setting.text.size() < static_cast<std::size_t>(column.length)
                   ? kYes
                   : call.usage("'%s' has room for %d characters", column.name, column.length - 1);
    }
    const std::optional<int> number = prodctl::number(setting.text.c_str(), INT_MIN, INT_MAX);
    if (!number) {
        return call.usage("'%s' is a number", column.name);
    }
    setting.number = *number;
    return kYes;
}

void add_row(cJSON *rows, const db_table &table, const db_row_t &row)
{
    cJSON *const object = add_object_to(rows);
    add_number(object, "id", row.id);
    for (int i = 0; i < row.col_num; ++i) {
        if (table.columns[i].type == DB_INT) {
            add_number(object, table.columns[i].name, row.values[i].n);
        } else {
            add_text(object, table.columns[i].name,
                     row.values[i].s != nullptr ? row.values[i].s : "");
        }
    }
}

int run_show(const Call &call, cJSON *answer)
{
    db_table *only = nullptr;
    if (call.count() > 0) {
        const int status = open_table(call, call[0], only);
        if (status != kYes) {
            return status;
        }
    }
    for (const NamedTable &named : kTables) {
        db_table *const table = named.open();
        if (table == nullptr) {
            return call.no("the record database cannot be opened");
        }
        if (only != nullptr && only != table) {
            continue;
        }
        cJSON *const rows = cJSON_AddArrayToObject(answer, named.name);
        db_result all;
        table->all(table, &all);
        for (const db_row_t *row = all.rows; row != nullptr; row = row->next) {
            add_row(rows, *table, *row);
        }
        all.free(&all);
    }
    return kYes;
}

Cell cell_of(const cJSON *value)
{
    return cJSON_IsString(value) ? Cell{value->valuestring} : Cell{format("%d", value->valueint)};
}

void show_show(const cJSON *answer, Page &page)
{
    const cJSON *table;
    cJSON_ArrayForEach(table, answer)
    {
        page.heading(table->string);
        std::vector<const char *> titles;
        std::vector<std::vector<Cell>> rows;
        const cJSON *row;
        cJSON_ArrayForEach(row, table)
        {
            titles.clear();
            rows.emplace_back();
            const cJSON *value;
            cJSON_ArrayForEach(value, row)
            {
                titles.push_back(value->string);
                rows.back().push_back(cell_of(value));
            }
        }
        page.table(titles, rows, "No record.");
    }
}

int run_get(const Call &call, cJSON *answer)
{
    db_table *table = nullptr;
    Setting wanted;
    int status = open_table(call, call[0], table);
    if (status != kYes || (status = read_setting(call, *table, call[1], wanted)) != kYes) {
        return status;
    }
    std::vector<int> columns;
    for (const char *const name : call.arguments().subspan(2)) {
        columns.push_back(column_of(*table, name));
        if (columns.back() == kNoColumn) {
            return call.usage("%s has no column '%s'", call[0], name);
        }
    }
    const void *const value = table->columns[wanted.column].type == DB_INT
                                  ? static_cast<const void *>(&wanted.number)
                                  : wanted.text.c_str();
    const std::unique_ptr<db_row_t, decltype(&free)> row{
        table->find(table, wanted.column, value, 0), free};
    if (row == nullptr) {
        return call.no("%s has no record with %s", call[0], call[1]);
    }
    cJSON *const values = cJSON_AddArrayToObject(answer, "values");
    for (const int column : columns) {
        const db_val_t &found = row->values[column];
        if (table->columns[column].type == DB_INT) {
            cJSON_AddItemToArray(values, cJSON_CreateNumber(found.n));
        } else {
            add_text_to(values, found.s != nullptr ? found.s : "");
        }
    }
    return kYes;
}

void show_get(const cJSON *answer, Page &page)
{
    const cJSON *value;
    cJSON_ArrayForEach(value, member(answer, "values"))
    {
        page.verbatim(cell_of(value).text + "\n");
    }
}

int run_add(const Call &call, cJSON *answer)
{
    db_table *table = nullptr;
    int status = open_table(call, call[0], table);
    if (status != kYes) {
        return status;
    }
    std::vector<Setting> settings(call.count() - 1);
    std::vector<db_val_t> values(static_cast<std::size_t>(table->col_num));
    for (std::size_t i = 0; i < settings.size(); ++i) {
        if ((status = read_setting(call, *table, call[i + 1], settings[i])) != kYes) {
            return status;
        }
        db_val_t &value = values[static_cast<std::size_t>(settings[i].column)];
        if (table->columns[settings[i].column].type == DB_INT) {
            value.n = settings[i].number;
        } else {
            value.s = settings[i].text.data();
        }
    }
    const int id = table->add(table, values.data());
    if (id == 0) {
        return call.no("the record cannot be stored, or a value that must be unique is another's");
    }
    add_number(answer, "id", id);
    return kYes;
}

void show_add(const cJSON *answer, Page &page)
{
    page.line({format("record %d", int_of(answer, "id"))});
}

int run_delete(const Call &call, cJSON *)
{
    db_table *table = nullptr;
    const int status = open_table(call, call[0], table);
    const std::optional<int> id = number(call[1], 1, INT_MAX);
    if (status != kYes) {
        return status;
    }
    if (!id) {
        return call.usage("'%s' is no id of a record", call[1]);
    }
    return table->del(table, *id) != 0 ? kYes : call.no("%s has no record %d", call[0], *id);
}

constexpr Command kCommands[] = {
    {.name = "show",
     .summary = "The records of all tables or of one",
     .arguments = "[TABLE]",
     .max_arguments = 1,
     .run = run_show,
     .show = show_show,
     .candidates = kTableCandidates},
    {.name = "get",
     .summary = "Values of the first record in which a column has a value, one a line",
     .arguments = "TABLE COLUMN=VALUE COLUMN...",
     .min_arguments = 3,
     .max_arguments = kAny,
     .no = "there is no such record",
     .run = run_get,
     .show = show_get,
     .candidates = kTableCandidates},
    {.name = "add",
     .summary = "Add a record; columns that are not given stay empty",
     .arguments = "TABLE COLUMN=VALUE...",
     .min_arguments = 2,
     .max_arguments = kAny,
     .no = "the record cannot be stored, or a value that must be unique is another's",
     .run = run_add,
     .show = show_add,
     .candidates = kTableCandidates},
    {.name = "del",
     .summary = "Remove a record",
     .arguments = "TABLE ID",
     .min_arguments = 2,
     .max_arguments = 2,
     .no = "there is no such record",
     .run = run_delete,
     .candidates = kTableCandidates},
};

}  // namespace

const char *table_name(const db_table *table)
{
    for (const NamedTable &named : kTables) {
        if (named.open() == table) {
            return named.name;
        }
    }
    return "";
}

constinit const Command kLanRecordsGroup = {
    .name = "records",
    .summary = "The records that name LAN hosts: DHCP pools, port forwarding, address bindings",
    .children = kCommands,
};

}  // namespace prodctl
