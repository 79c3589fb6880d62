// SPDX-License-Identifier: MIT
// The LAN moves to another address or mask.
#include <arpa/inet.h>
#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
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
    std::string key;  // of the configuration; empty for a record's value
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

    /** A value of a stored row as it would be by then. */
    std::string value_of(const db_table &table, const db_row_t &row, int column) const
    {
        for (const Change &change : changes_) {
            if (change.table == &table && change.row == row.id && change.column == column) {
                return change.after;
            }
        }
        return text_in(table, row.values[column], column);
    }

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

    /** Whether another row would have the value by then, and must not. */
    bool is_taken(const Change &change) const
    {
        if (change.table->columns[change.column].unique == 0) {
            return false;
        }
        const Row other{change.table->find(change.table, change.column, change.after.c_str(), 0),
                        free};
        bool taken = other != nullptr && other->id != change.row;
        for (const Change &earlier : changes_) {
            if (earlier.table == change.table && earlier.column == change.column &&
                earlier.row != change.row) {
                const bool moved_away = other != nullptr && earlier.row == other->id;
                taken = earlier.after == change.after || (taken && !moved_away);
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
    Stage stages_[3] = {{get_dhcps_list_table}, {get_port_map_table}, {get_ip_mac_bind_table}};
    std::vector<Change> changes_;
};

struct Move {
    AddressRange to;
    AddressRange from;
};

/** Stores the LAN's address. @return whether it is stored now; of no use in a rehearsal */
bool store_address(const AddressRange &range)
{
    prod_cfm_set_val("lan.ip", range.address.c_str());
    prod_cfm_set_val("lan.mask", range.mask.c_str());
    return config_value("lan.ip") == range.address && config_value("lan.mask") == range.mask;
}

void store_what_follows(const Move &move)
{
    prod_check_change_lanip_handle(move.to.address.c_str(), move.to.mask.c_str(),
                                   move.from.address.c_str(), move.from.mask.c_str());
}

/** The row of the LAN's pool; the table is open. */
Row lan_pool()
{
    db_table *const pools = get_dhcps_list_table();
    return {pools->find(pools, 1, "br0", 0), free};
}

/**
 * Stores the ends of the LAN's pool where a device without its row takes them from, or such a
 * device would serve the old network.
 * @param value  tells a value of the row
 */
template <typename Value>
void keep_first_pool_in_step(Value value)
{
    constexpr struct {
        int column;
        const char *key;
    } kEnds[] = {{2, "dhcps.startip"}, {3, "dhcps.endip"}};
    const Row pool = lan_pool();
    for (const auto &[column, key] : kEnds) {
        const std::string end =
            pool != nullptr ? value(*get_dhcps_list_table(), *pool, column) : std::string{};
        if (!end.empty() && config_value(key)) {
            prod_cfm_set_val(key, end.c_str());
        }
    }
}

/** Whether a LAN can have that address: a host's, in a network with room for others. */
bool can_be_lan(const AddressRange &range)
{
    constexpr int kWidest = 8;
    constexpr int kNarrowest = 30;
    in_addr address;
    in_addr mask;
    inet_pton(AF_INET, range.address.c_str(), &address);
    inet_pton(AF_INET, range.mask.c_str(), &mask);
    const std::uint32_t first = ntohl(address.s_addr) >> 24;
    const std::uint32_t host_part = ntohl(~mask.s_addr);
    const std::uint32_t host = ntohl(address.s_addr) & host_part;
    const int prefix = prefix_of(range.mask.c_str());
    return first >= 1 && first <= 223 && first != 127 && prefix >= kWidest &&
           prefix <= kNarrowest && host != 0 && host != host_part;
}

std::vector<Change> rehearse(const Move &move)
{
    Rehearsal rehearsal;
    store_address(move.to);
    store_what_follows(move);
    keep_first_pool_in_step([&](const db_table &table, const db_row_t &pool, int column) {
        return rehearsal.value_of(table, pool, column);
    });
    std::vector<Change> changes = rehearsal.take();
    std::erase_if(changes, [](const Change &change) { return change.before == change.after; });
    return changes;
}

/** Gives the LAN's bridge the address; what else it has stays. */
bool set_bridge_address(const AddressRange &range)
{
    const char *const ifname = ifaddrs_get_lan_ifname();
    return ifname != nullptr && doSystemCmd("ifconfig '%s' %s netmask %s", ifname,
                                            range.address.c_str(), range.mask.c_str()) == 0;
}

std::string name_of(const Change &change)
{
    return change.table != nullptr ? format("%s %d %s", table_name(change.table), change.row,
                                            change.table->columns[change.column].name)
                                   : change.key;
}

void add_change(cJSON *changes, const Change &change)
{
    cJSON *const object = add_object_to(changes);
    add_text(object, "setting", name_of(change));
    add_text(object, "before", change.before);
    add_text(object, "after", change.after);
}

/** The two steps that all others rest on. @return false, and nothing has moved, when one fails */
bool take_address(const Call &call, const Move &move)
{
    if (!set_bridge_address(move.to)) {
        call.no("the LAN's bridge cannot have that address: nothing was changed");
        return false;
    }
    if (!store_address(move.to)) {
        store_address(move.from);
        call.no(set_bridge_address(move.from)
                    ? "lan.ip and lan.mask cannot be stored: nothing was changed"
                    : "lan.ip and lan.mask cannot be stored: only the bridge has moved");
        return false;
    }
    return true;
}

/**
 * What follows the address.
 * @param changes  what was expected; receives what became of each
 * @return an exit status
 */
int take_along(const Call &call, const Move &move, std::vector<Change> &changes)
{
    store_what_follows(move);
    keep_first_pool_in_step([](const db_table &table, const db_row_t &pool, int column) {
        return text_in(table, pool.values[column], column);
    });
    int kept = 0;
    for (Change &change : changes) {
        const std::string now = present(change);
        kept += now != change.after ? 1 : 0;
        change.after = now;
    }
    int status = kYes;
    if (kept > 0) {
        status = call.no("the LAN has moved, but %d of the settings could not be changed", kept);
    }
    if (prod_cfm_commit() == 0) {
        status = call.no(
            "the LAN has moved, but the configuration could not be made persistent: 'prodctl "
            "config commit' tries again");
    }
    if (prod_cfm_get_int_val("dhcps.en") == 1 && doSystemCmd("service restart dhcps") != 0) {
        status = call.no(
            "the LAN has moved, but the DHCP server could not be restarted: it serves the old "
            "network");
    }
    return status;
}

}  // namespace

int run_lan_move(const Call &call, cJSON *answer)
{
    const std::optional<AddressRange> to = address_range(call[0]);
    if (!to || !can_be_lan(*to)) {
        return call.usage("'%s' is not ADDRESS/MASK of a host, with a mask of 8 to 30 bits",
                          call[0]);
    }
    const Move move{*to,
                    {config_value("lan.ip").value_or(""), config_value("lan.mask").value_or("")}};
    if (!is_dotted_quad(move.from.address.c_str()) || !is_mask(move.from.mask.c_str())) {
        return call.no("lan.ip and lan.mask do not tell where the LAN is now");
    }
    if (get_dhcps_list_table() == nullptr || get_port_map_table() == nullptr ||
        get_ip_mac_bind_table() == nullptr) {
        return call.no("the record database cannot be opened");
    }
    if (lan_pool() == nullptr) {
        return call.no("dhcps-list has no record of br0: nothing would follow the LAN");
    }
    const bool dry_run = call.given("--dry-run");
    std::vector<Change> changes = rehearse(move);
    const bool moves = !dry_run && !changes.empty();
    if (moves && !take_address(call, move)) {
        return kNo;
    }
    const int status = moves ? take_along(call, move, changes) : kYes;
    add_text(answer, "address", to->address);
    add_text(answer, "mask", to->mask);
    add_flag(answer, "dry_run", dry_run);
    cJSON *const list = cJSON_AddArrayToObject(answer, "changes");
    for (const Change &change : changes) {
        add_change(list, change);
    }
    add_clashes(answer, *to, AskedAs::kLan);
    return status;
}

void show_lan_move(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *change;
    cJSON_ArrayForEach(change, member(answer, "changes"))
    {
        rows.push_back({text_of(change, "setting"),
                        text_of(change, "before"),
                        {text_of(change, "after"), Tone::kStrong}});
    }
    page.table({"SETTING", "BEFORE", "AFTER"}, rows, "Nothing to change.");
    if (!rows.empty() && flag_of(answer, "dry_run")) {
        page.gap();
        page.line({{"Nothing was changed.", Tone::kFaint}});
    }
    if (member(answer, "clashes")->child != nullptr) {
        page.gap();
        show_clashes(answer, page);
    }
}

}  // namespace prodctl

/** The store's own function, but for a rehearsal: the library calls whichever it finds first. */
int SetValue(const char *key, const char *value)
{
    using prodctl::Rehearsal;
    if (Rehearsal *const rehearsal = Rehearsal::current()) {
        rehearsal->note({.key = key, .after = value});
        return 1;
    }
    static auto *const store =
        reinterpret_cast<int (*)(const char *, const char *)>(dlsym(RTLD_NEXT, "SetValue"));
    return store != nullptr ? store(key, value) : 0;
}
