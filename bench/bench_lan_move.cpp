// SPDX-License-Identifier: MIT
// The LAN's move over 1,000 port-forwarding rows, beside the same updates by plain SQLite: prepared
// once, in one transaction, on a file of its own that is kept as carefully.
#include <arpa/inet.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench.hpp"
#include "prod_common_check.h"

using bench::must;

namespace
{

constexpr int kRows = 1000;

std::string host_of(int i)
{
    return "192.168." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 2);
}

db_table *filled_table()
{
    db_table *const table = get_port_map_table();
    must(table != nullptr, "port-map");
    db_result rows;
    const bool filled = table->all(table, &rows) != 0;
    rows.free(&rows);
    if (filled) {
        return table;
    }
    must(table->lock(table) != 0, "lock");
    for (int i = 0; i < kRows; ++i) {
        std::string ip = host_of(i);
        std::string port = std::to_string(1024 + i);
        std::string name = "rule " + port;
        db_val_t values[7] = {};
        values[0].n = 1;
        values[1].s = ip.data();
        values[2].n = 6;
        values[3].n = 1;
        values[4].s = port.data();
        values[5].s = port.data();
        values[6].s = name.data();
        must(table->add(table, values) > 0, "add");
    }
    must(table->unlock(table) != 0, "unlock");
    return table;
}

/** The library's move of the port-forwarding rules, from one network to the other and back. */
void move_by_library(benchmark::State &state)
{
    filled_table();
    const uint32_t mask = inet_addr("255.255.0.0");
    const uint32_t lans[] = {inet_addr("10.7.0.1"), inet_addr("192.168.0.1")};
    int round = 0;
    for (auto _ : state) {
        check_lanip_change_sync_virtual(lans[round++ % 2], mask, mask);
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(move_by_library)->Unit(benchmark::kMillisecond);

/** As the library: each row read, its host moved, all its values written. */
void move_by_handle(benchmark::State &state)
{
    db_table *const table = filled_table();
    std::string hosts[2] = {"10.7.1.1", "192.168.1.1"};
    int round = 0;
    for (auto _ : state) {
        db_result rows;
        must(table->all(table, &rows) != 0, "all");
        std::string &host = hosts[round++ % 2];
        must(table->lock(table) != 0, "lock");
        for (db_row_t *row = rows.rows; row != nullptr; row = row->next) {
            row->values[1].s = host.data();
            must(table->set(table, row->id, row->values) != 0, "set");
        }
        must(table->unlock(table) != 0, "unlock");
        rows.free(&rows);
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(move_by_handle)->Unit(benchmark::kMillisecond);

class Plain
{
  public:
    Plain()
    {
        must(sqlite3_open("/cfg/database/plain.db", &db_) == SQLITE_OK, "open");
        exec("PRAGMA synchronous=EXTRA");
        exec("DROP TABLE IF EXISTS t");
        exec(
            "CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT, enabled INTEGER, ip TEXT, "
            "protocol INTEGER, wan INTEGER, inner TEXT, outer TEXT, name TEXT)");
        exec("BEGIN");
        for (int i = 0; i < kRows; ++i) {
            const std::string port = std::to_string(1024 + i);
            exec(("INSERT INTO t VALUES(NULL,1,'" + host_of(i) + "',6,1,'" + port + "','" + port +
                  "','rule " + port + "')")
                     .c_str());
        }
        exec("COMMIT");
        must(sqlite3_prepare_v2(db_, "UPDATE t SET ip=?1 WHERE id=?2", -1, &update_, nullptr) ==
                 SQLITE_OK,
             "prepare");
    }
    ~Plain()
    {
        sqlite3_finalize(update_);
        sqlite3_close(db_);
    }
    Plain(const Plain &) = delete;
    Plain &operator=(const Plain &) = delete;

    void exec(const char *sql) const
    {
        must(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
    }
    void set(int id, const std::string &ip) const
    {
        sqlite3_bind_text(update_, 1, ip.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_int(update_, 2, id);
        must(sqlite3_step(update_) == SQLITE_DONE, "update");
        sqlite3_reset(update_);
    }

  private:
    sqlite3 *db_ = nullptr;
    sqlite3_stmt *update_ = nullptr;
};

/** The floor: the new texts are known, nothing is read, one value of each row is written. */
void move_by_plain_sqlite(benchmark::State &state)
{
    filled_table();  // makes the folder
    const Plain plain;
    std::vector<std::string> hosts[2];
    for (int i = 0; i < kRows; ++i) {
        hosts[0].push_back("10.7." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 2));
        hosts[1].push_back(host_of(i));
    }
    int round = 0;
    for (auto _ : state) {
        const std::vector<std::string> &next = hosts[round++ % 2];
        plain.exec("BEGIN IMMEDIATE");
        for (int i = 0; i < kRows; ++i) {
            plain.set(i + 1, next[static_cast<std::size_t>(i)]);
        }
        plain.exec("COMMIT");
    }
    state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(move_by_plain_sqlite)->Unit(benchmark::kMillisecond);

/** What each row would cost without the lock. */
void one_row_by_itself(benchmark::State &state)
{
    db_table *const table = filled_table();
    db_row_t *const row = table->get(table, 1);
    must(row != nullptr, "get");
    std::string hosts[2] = {"10.7.1.1", "192.168.1.1"};
    int round = 0;
    for (auto _ : state) {
        row->values[1].s = hosts[round++ % 2].data();
        must(table->set(table, 1, row->values) != 0, "set");
    }
    free(row);
}
BENCHMARK(one_row_by_itself)->Unit(benchmark::kMillisecond);

}  // namespace

MAIN_IN_A_DEVICE()
