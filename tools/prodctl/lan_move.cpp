// SPDX-License-Identifier: MIT
// The LAN moves to another address or mask.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "groups.hpp"
#include "platform/cfm.h"
#include "platform/process.h"
#include "prod_common_cfm.h"
#include "prod_common_check.h"
#include "prod_common_ifaddrs.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

struct Change {
    std::string key;        // of the configuration; empty for a record's value
    db_table *table = nullptr;
    int row = 0;
    int column = 0;
    std::string before = {};
    std::string after = {};
};

using Row = std::unique_ptr<db_row_t, decltype(&free)>;

std::string text_in(const db_table &table, const db_val_t &value, int column)
{
    if (table.columns[column].type == DB_INT) {
        return std::to_string(value.n);
    }
    return value.s != nullptr ? value.s : "";
}

/** What stands in a change's place now. */
std::string present(const Change &change)
{
    if (change.table == nullptr) {
        return config_value(change.key).value_or("");
    }
    const Row row{change.table->get(change.table, change.row), free};
    return row != nullptr ? text_in(*change.table, row->values[change.column], change.column) : "";
}

/**
 * While it lives, what this process would write is noted and not written: SetValue() below and the
 * tables' operations come here. So the library itself tells what a move would change.
 */
class Rehearsal
{
  public:
    Rehearsal()
    {
        running = this;
        for (Stage &stage : stages_) {
            stage.table = stage.open();
            if (stage.table != nullptr) {
                stage.operations = *stage.table;
                stage.table->set = note_row;
                stage.table->lock = note_nothing;
                stage.table->unlock = note_nothing;
            }
        }
    }
    ~Rehearsal()
    {
        for (const Stage &stage : stages_) {
            if (stage.table != nullptr) {
                *stage.table = stage.operations;
            }
        }
        running = nullptr;
    }
    Rehearsal(const Rehearsal &) = delete;
    Rehearsal &operator=(const Rehearsal &) = delete;

    static Rehearsal *current() { return running; }
    std::vector<Change> take() { return std::move(changes_); }

    void note(Change change)
    {
        for (Change &earlier : changes_) {
            if (earlier.key == change.key && earlier.table == change.table &&
                earlier.row == change.row && earlier.column == change.column) {
                earlier.after = std::move(change.after);
                return;
            }
        }
        change.before = present(change);
        if (change.before != change.after) {
            changes_.push_back(std::move(change));
        }
    }

  private:
    struct Stage {
        db_table *(*open)(void);
        db_table *table = nullptr;
        db_table operations = {};
    };

    /** Whether another row has, or would have by then, a value that must be its own. */
    bool is_taken(const Change &change) const
    {
        if (change.table->columns[change.column].unique == 0) {
            return false;
        }
        const Row other{
            change.table->find(change.table, change.column, change.after.c_str(), 0), free};
        bool taken = other != nullptr && other->id != change.row;
        for (const Change &earlier : changes_) {
            if (earlier.table == change.table && earlier.column == change.column &&
                earlier.row != change.row) {
                taken = taken && earlier.row != other->id;
                if (earlier.after == change.after) {
                    return true;
                }
            }
        }
        return taken;
    }

    static int note_row(db_table *table, int row, const db_val_t *values)
    {
        const Row stored{table->get(table, row), free};
        if (stored == nullptr) {
            return 0;
        }
        std::vector<Change> changes;
        for (int i = 0; i < table->col_num; ++i) {
            changes.push_back({.key = {},
                               .table = table,
                               .row = row,
                               .column = i,
                               .after = text_in(*table, values[i], i)});
            if (changes.back().after == text_in(*table, stored->values[i], i)) {
                continue;
            }
            if (running->is_taken(changes.back())) {
                return 0;
            }
        }
        for (Change &change : changes) {
            running->note(std::move(change));
        }
        return 1;
    }

    static int note_nothing(db_table *) { return 1; }

    inline static Rehearsal *running = nullptr;
    Stage stages_[3] = {
        {get_dhcps_list_table}, {get_port_map_table}, {get_ip_mac_bind_table}};
    std::vector<Change> changes_;
};

struct Move {
    AddressRange to;
    AddressRange from;

    void store() const
    {
        prod_cfm_set_val("lan.ip", to.address.c_str());
        prod_cfm_set_val("lan.mask", to.mask.c_str());
        prod_check_change_lanip_handle(to.address.c_str(), to.mask.c_str(), from.address.c_str(),
                                       from.mask.c_str());
    }
};

/** Whether a LAN can have that address: one of a host, in a network with room for others. */
bool can_be_lan(const AddressRange &range)
{
    constexpr int kWidest = 8;
    constexpr int kNarrowest = 30;
    const int prefix = prefix_of(range.mask.c_str());
    if (prod_check_ip_quietly(range.address.c_str()) != 0 || prefix < kWidest ||
        prefix > kNarrowest) {
        return false;
    }
    return true;
}

}  // namespace

}  // namespace prodctl
