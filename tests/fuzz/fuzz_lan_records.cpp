// SPDX-License-Identifier: MIT
// Leases, rules and rows as hostile settings hold them, on a LAN that moves: the first 12 bytes are
// its new address and its new and old mask, the rest is each setting and, cut to its columns, each
// row. What comes out is held against rules written down a second time.
#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <string>

#include "fuzz/fuzz.hpp"
#include "prod_common_check.h"
#include "support/config.hpp"

namespace
{

constexpr int kColumnsMax = 9;
constexpr std::size_t kTextSize = 16;

/** What every text of every row holds; and what became of the rows, by the table's name. */
std::string row_text;
std::map<std::string, std::string> stored;

struct FakeTable {
    std::string name;
    int columns;
};
FakeTable tables[3];

const FakeTable &of(const db_table *table)
{
    return *static_cast<const FakeTable *>(table->port);
}

/** A row as a database returns one: a single block, all its texts in it. */
db_row_t *make_row(const db_table *table)
{
    const auto count = static_cast<std::size_t>(of(table).columns);
    auto *const row = static_cast<db_row_t *>(
        calloc(1, sizeof(db_row_t) + count * (sizeof(db_val_t) + kTextSize)));
    row->id = 1;
    row->col_num = of(table).columns;
    row->values = reinterpret_cast<db_val_t *>(row + 1);
    char *room = reinterpret_cast<char *>(row->values + count);
    for (int i = 0; i < row->col_num; ++i, room += kTextSize) {
        if (table->columns[i].type == DB_STRING) {
            row_text.copy(room, kTextSize - 1);
            row->values[i].s = room;
        }
    }
    return row;
}

void release(db_result *result)
{
    free(result->rows);
    result->rows = nullptr;
}

int store_row(db_table *table, int, const db_val_t *values)
{
    std::string &row = stored[of(table).name];
    row.clear();
    for (int i = 0; i < of(table).columns; ++i) {
        const bool is_text = table->columns[i].type == DB_STRING;
        FUZZ_CHECK(!is_text || strlen(values[i].s) < kTextSize);
        row += (is_text ? std::string{values[i].s} : std::to_string(values[i].n)) + "|";
    }
    return 1;
}

std::optional<std::uint32_t> address_in(const std::string &text)
{
    in_addr address;
    const bool is_one = inet_aton(text.c_str(), &address) != 0 && address.s_addr != INADDR_NONE;
    return is_one ? std::optional<std::uint32_t>{address.s_addr} : std::nullopt;
}

std::string quad(std::uint32_t address)
{
    const in_addr in{address};
    return inet_ntoa(in);
}

struct Lan {
    std::uint32_t address;
    std::uint32_t mask;
    std::uint32_t old_mask;

    std::uint32_t moved(std::uint32_t host) const { return (host & ~old_mask) + (address & mask); }
};

/** A record after the move; @p separator stands between its address and its rest. */
std::string moved_record(const std::string &record, const std::string &separator, const Lan &lan)
{
    const std::size_t end = record.find(';');
    if (end == std::string::npos || end == 0) {
        return record;
    }
    std::string rest = record.substr(end + separator.size());
    if (!separator.empty()) {
        rest.erase(0, std::min(rest.find_first_not_of(" \t\n\v\f\r"), rest.size()));
    }
    rest = rest.substr(0, rest.find_first_of(" \t\n\v\f\r"));
    const auto host = address_in(record.substr(0, end));
    const std::string moved = host ? quad(lan.moved(*host)) + separator + rest : record;
    return rest.empty() || moved.size() >= CFM_VALUE_SIZE ? record : moved;
}

/** A value that is an address, after the move; others stay. */
std::string moved_value(const std::string &value, const Lan &lan)
{
    const auto host = address_in(value);
    return host ? quad(lan.moved(*host)) : value;
}

/** A rule as far as it counts; one that does not move stays whole. */
std::string moved_rule(const std::string &rule, const Lan &lan)
{
    const std::string counts = rule.substr(0, 255);
    const std::string moved = moved_record(counts, ";", lan);
    return moved == counts ? rule : moved;
}

/** What a binding or a rule of port forwarding keeps beside its address. */
std::string others(const std::string &row, int place)
{
    std::string rest;
    std::size_t at = 0;
    for (int i = 0; at < row.size(); ++i) {
        const std::size_t end = row.find('|', at);
        rest += i != place ? row.substr(at, end - at) + "|" : "";
        at = end + 1;
    }
    return rest;
}

}  // namespace

extern "C" int db_table_init(const char *, db_table *table, const char *name,
                             const db_col_t *columns, int count)
{
    auto *const fake = std::find_if(std::begin(tables), std::end(tables), [&](const auto &known) {
        return known.name.empty() || known.name == name;
    });
    FUZZ_CHECK(fake != std::end(tables) && count <= kColumnsMax);
    *fake = {name, count};
    *table = {};
    table->columns = columns;
    table->col_num = count;
    table->port = fake;
    table->find = [](db_table *of, int, const void *, int) { return make_row(of); };
    table->get = [](db_table *of, int) { return make_row(of); };
    table->set = store_row;
    table->all = [](db_table *of, db_result *result) {
        *result = {};
        result->rows = make_row(of);
        result->row_num = 1;
        result->free = release;
        return 1;
    };
    table->lock = [](db_table *) { return 1; };
    table->unlock = [](db_table *) { return 1; };
    return 1;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Lan lan;
    if (size < sizeof(lan)) {
        return 0;
    }
    memcpy(&lan, data, sizeof(lan));
    const std::string bytes{reinterpret_cast<const char *>(data) + sizeof(lan), size - sizeof(lan)};
    const std::string text = std::string{bytes.c_str()}.substr(0, CFM_VALUE_SIZE - 1);
    row_text = text.substr(0, kTextSize - 1);
    row_text.erase(std::remove(row_text.begin(), row_text.end(), '|'), row_text.end());
    stored.clear();

    const test::FreshConfig fresh;
    test::config() = {
        {"dhcps.Staticnum", "1"}, {"dhcps.Staticip1", text}, {"wans.flag", "1"},
        {"wan1.dmzip", text},     {"lan.webip", text},       {"adv.snat.listnum", "1"},
        {"adv.snat.list1", text}, {"adv.logs.listnum", "1"}, {"adv.logs.list1", text}};
    check_lanip_change_sync_dhcps(lan.address, lan.mask, ~lan.address, lan.old_mask, 1);
    const bool of_the_lan = strcasecmp(row_text.c_str(), "br0") == 0;
    check_lanip_change_sync_dmz(lan.address, lan.mask, lan.old_mask);
    check_lanip_change_sync_lan_control(lan.address, lan.mask, lan.old_mask);
    check_lanip_change_sync_virtual(lan.address, lan.mask, lan.old_mask);
    check_lanip_change_sync_nat(lan.address, lan.mask, lan.old_mask);
    check_lanip_change_sync_logserver(lan.address, lan.mask, lan.old_mask);
    check_lanip_change_sync_ipmac_bind(lan.address, lan.mask, lan.old_mask);

    auto &config = test::config();
    FUZZ_CHECK(config["dhcps.Staticip1"] == (of_the_lan ? moved_record(text, "", lan) : text));
    FUZZ_CHECK(config["adv.snat.list1"] == moved_rule(text, lan));
    FUZZ_CHECK(config["adv.logs.list1"] == moved_rule(text, lan));
    FUZZ_CHECK(config["wan1.dmzip"] == moved_value(text, lan));
    FUZZ_CHECK(config["lan.webip"] == (text == "0.0.0.0" ? text : moved_value(text, lan)));
    const auto host = address_in(row_text);
    FUZZ_CHECK(stored.count("dhcps-list") == 1);
    FUZZ_CHECK(stored.count("port-map") == (host ? 1U : 0U));
    FUZZ_CHECK(stored.count("ip-mac-bind") == (host ? 1U : 0U));
    if (host) {
        const std::uint32_t forward =
            htonl((ntohl(*host) & ~lan.old_mask) + (lan.address & lan.mask));
        const std::string t = row_text + "|";
        FUZZ_CHECK(stored["port-map"].rfind("0|" + quad(forward) + "|0|0|", 0) == 0);
        FUZZ_CHECK(others(stored["port-map"], 1) == "0|0|0|" + t + t + t);
        FUZZ_CHECK(stored["ip-mac-bind"] == quad(lan.moved(*host)) + "|" + t + t);
    }
    return 0;
}
