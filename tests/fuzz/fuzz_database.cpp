// SPDX-License-Identifier: MIT
// A database file that was damaged, cut short or made by somebody else: each operation keeps its
// promises or fails, and the process has a database again as soon as there is one.
#include <unistd.h>

#include <cstring>
#include <iterator>
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/database.h"
#include "support/files.hpp"

/** The medium's speed is not what is looked for. */
extern "C" int fsync(int)
{
    return 0;
}

extern "C" int fdatasync(int)
{
    return 0;
}

/** Nobody else has the database, so nobody is waited for. */
extern "C" int usleep(useconds_t)
{
    FUZZ_CHECK(false);
}

namespace
{

constexpr const char *kFile = "/cfg/database/fuzz.db";
constexpr const char *kJournal = "/cfg/database/fuzz.db-journal";
constexpr db_col_t kColumns[] = {
    {0, "ip", DB_STRING, 1, 16}, {1, "wan", DB_INT, 0, 0}, {2, "name", DB_STRING, 0, 64}};

void remove_database()
{
    unlink(kFile);
    unlink(kJournal);
}

bool init(db_table &table)
{
    return db_table_init("fuzz", &table, "port-map", kColumns, std::size(kColumns)) != 0;
}

void check_row(const db_row_t &row)
{
    FUZZ_CHECK(row.col_num == static_cast<int>(std::size(kColumns)) && row.refer == 0);
    for (int i = 0; i < row.col_num; ++i) {
        const char *const text = kColumns[i].type == DB_STRING ? row.values[i].s : nullptr;
        FUZZ_CHECK(text == nullptr || strlen(text) < static_cast<std::size_t>(kColumns[i].length));
    }
}

/** Looks at a row that may have been found, and releases it. */
void check_and_release(db_row_t *row)
{
    if (row != nullptr) {
        check_row(*row);
        FUZZ_CHECK(row->next == nullptr);
        free(row);
    }
}

/** Every operation, whatever comes of it. */
void use(db_table &table)
{
    char ip[] = "192.168.0.9";
    char name[] = "printer";
    db_val_t values[3] = {};
    values[0].s = ip;
    values[1].n = 1;
    values[2].s = name;
    db_result rows;
    const bool found = table.all(&table, &rows) != 0;
    FUZZ_CHECK(found == (rows.row_num > 0) && found == (rows.rows != nullptr));
    int count = 0;
    int last = 0;
    for (const db_row_t *row = rows.rows; row != nullptr; row = row->next, ++count) {
        check_row(*row);
        last = row->id;
    }
    FUZZ_CHECK(count == rows.row_num);
    rows.free(&rows);
    check_and_release(table.find(&table, 0, ip, 0));
    check_and_release(table.find(&table, 1, &values[1].n, 0));
    check_and_release(table.get(&table, last));
    const bool locked = table.lock(&table) != 0;
    table.set(&table, last, values);
    const int added = table.add(&table, values);
    FUZZ_CHECK(added >= 0);
    FUZZ_CHECK((table.unlock(&table) == 0) || locked);
    check_and_release(table.get(&table, added));
    table.del(&table, last);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static db_table kept;
    static const bool opened = init(kept);
    FUZZ_CHECK(opened);
    const int descriptors = test::open_descriptors();

    remove_database();
    fuzz::write_file(kFile, data, size);
    db_table table;
    if (init(table)) {
        use(table);
    }
    use(kept);

    // Back to a sound one.
    remove_database();
    FUZZ_CHECK(kept.lock(&kept) != 0);
    char ip[] = "10.0.0.1";
    db_val_t values[3] = {};
    values[0].s = ip;
    FUZZ_CHECK(kept.add(&kept, values) == 1);
    FUZZ_CHECK(kept.unlock(&kept) != 0);
    FUZZ_CHECK(test::open_descriptors() == descriptors);
    return 0;
}
