// SPDX-License-Identifier: MIT
// The record database. Each test has a database of its own name.
#include "platform/database.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/time.hpp"

using test::ended_well;
using test::in_a_child;
using test::start;

namespace
{

constexpr const char *kFolder = "/cfg/database";

constexpr db_col_t kColumns[] = {
    {0, "name", DB_STRING, 1, 8}, {1, "count", DB_INT, 0, 0}, {2, "a \"note\"", DB_STRING, 0, 32}};

struct FreeRow {
    void operator()(db_row_t *row) const { free(row); }
};
using Row = std::unique_ptr<db_row_t, FreeRow>;

struct Record {
    std::string name;
    int count;
    std::string note;
    bool operator==(const Record &) const = default;
};

Record record_of(const db_row_t &row)
{
    const auto text = [](const char *s) { return std::string{s != nullptr ? s : "(none)"}; };
    return {text(row.values[0].s), row.values[1].n, text(row.values[2].s)};
}

/** The values of a row, as long as the record lives. */
std::vector<db_val_t> values_of(const Record &record)
{
    std::vector<db_val_t> values(3);
    values[0].s = const_cast<char *>(record.name.c_str());
    values[1].n = record.count;
    values[2].s = const_cast<char *>(record.note.c_str());
    return values;
}

int add(db_table &table, const Record &record)
{
    return table.add(&table, values_of(record).data());
}

bool set(db_table &table, int id, const Record &record)
{
    return table.set(&table, id, values_of(record).data()) != 0;
}

Record get(db_table &table, int id)
{
    const Row row{table.get(&table, id)};
    return row != nullptr ? record_of(*row) : Record{"(no row)", 0, ""};
}

std::vector<Record> all(db_table &table)
{
    std::vector<Record> records;
    db_result result;
    if (table.all(&table, &result) != 0) {
        for (const db_row_t *row = result.rows; row != nullptr; row = row->next) {
            records.push_back(record_of(*row));
        }
        EXPECT_EQ(records.size(), static_cast<std::size_t>(result.row_num));
    }
    result.free(&result);
    return records;
}

class Database : public testing::Test
{
  protected:
    Database() : name_(testing::UnitTest::GetInstance()->current_test_info()->name())
    {
        std::replace(name_.begin(), name_.end(), '/', '.');
    }

    std::string file() const { return std::string{kFolder} + "/" + name_ + ".db"; }
    const char *name() const { return name_.c_str(); }

    bool init(db_table &table, const char *table_name = "things") const
    {
        return db_table_init(name(), &table, table_name, kColumns, 3) != 0;
    }

    db_table opened(const char *table_name = "things") const
    {
        db_table table;
        EXPECT_TRUE(init(table, table_name));
        return table;
    }

    /** Every operation of a handle that cannot be used. */
    static void all_fail(db_table &table)
    {
        db_result result;
        memset(&result, 0x5a, sizeof(result));
        EXPECT_EQ(table.find(&table, 0, "a", 0), nullptr);
        EXPECT_EQ(table.get(&table, 1), nullptr);
        EXPECT_FALSE(set(table, 1, {"a", 1, ""}));
        EXPECT_EQ(add(table, {"a", 1, ""}), 0);
        EXPECT_EQ(table.del(&table, 1), 0);
        EXPECT_EQ(table.lock(&table), 0);
        EXPECT_EQ(table.unlock(&table), 0);
        EXPECT_EQ(table.all(&table, &result), 0);
        EXPECT_EQ(result.rows, nullptr);
        EXPECT_EQ(result.row_num, 0);
        EXPECT_EQ(result.inited, 0);
        result.free(&result);
    }

  private:
    std::string name_;
};

TEST_F(Database, RowsComeBackAsTheyWereStored)
{
    db_table table = opened();
    ASSERT_EQ(table.col_num, 3);
    EXPECT_STREQ(table.columns[2].name, "a \"note\"");
    EXPECT_NE(table.columns, kColumns);
    const int a = add(table, {"a", 1, "first"});
    const int b = add(table, {"b", -INT_MAX - 1, "sec'ond \"\xff\x01`;--"});
    ASSERT_GT(a, 0);
    ASSERT_GT(b, a);
    const Row row{table.get(&table, b)};
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->id, b);
    EXPECT_EQ(row->refer, 0);
    EXPECT_EQ(row->next, nullptr);
    EXPECT_EQ(row->col_num, 3);
    EXPECT_EQ(record_of(*row), (Record{"b", -INT_MAX - 1, "sec'ond \"\xff\x01`;--"}));
    EXPECT_TRUE(set(table, a, {"aa", INT_MAX, ""}));
    EXPECT_EQ(get(table, a), (Record{"aa", INT_MAX, ""}));
    EXPECT_EQ(all(table), (std::vector<Record>{get(table, a), get(table, b)}));
    EXPECT_NE(table.del(&table, a), 0);
    EXPECT_EQ(table.del(&table, a), 0);
    EXPECT_FALSE(set(table, a, {"aa", 1, ""}));
    EXPECT_EQ(table.get(&table, a), nullptr);
    EXPECT_EQ(all(table).size(), 1U);
}

TEST_F(Database, RowsAreFoundByAnyColumn)
{
    db_table table = opened();
    const int a = add(table, {"a", 7, "same"});
    const int b = add(table, {"b", 8, "same"});
    const int eight = 8;
    const auto found = [&](int column, const void *value, int flags = 0) {
        const Row row{table.find(&table, column, value, flags)};
        return row != nullptr ? row->id : 0;
    };
    EXPECT_EQ(found(0, "a"), a);
    EXPECT_EQ(found(0, "b"), b);
    EXPECT_EQ(found(1, &eight), b);
    EXPECT_EQ(found(2, "same"), a);
    EXPECT_EQ(found(0, "A"), 0);
    EXPECT_EQ(found(0, "a "), 0);
    EXPECT_EQ(found(0, ""), 0);
    EXPECT_EQ(found(0, "a", 1), 0);
    EXPECT_EQ(found(0, nullptr), 0);
    EXPECT_EQ(found(-1, "a"), 0);
    EXPECT_EQ(found(3, "a"), 0);
    // Each column keeps a statement of its own.
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(found(i % 2 * 2, i % 2 == 0 ? "b" : "same"), i % 2 == 0 ? b : a);
    }
}

TEST_F(Database, AListingIsReleasedWhole)
{
    db_table table = opened();
    db_result result;
    memset(&result, 0x5a, sizeof(result));
    EXPECT_EQ(table.all(&table, &result), 0);
    EXPECT_EQ(result.rows, nullptr);
    EXPECT_EQ(result.row_num, 0);
    EXPECT_EQ(result.inited, 0);
    result.free(&result);
    for (int i = 0; i < 100; ++i) {
        ASSERT_GT(add(table, {std::to_string(i), i, std::string(31, 'n')}), 0);
    }
    ASSERT_NE(table.all(&table, &result), 0);
    EXPECT_EQ(result.row_num, 100);
    EXPECT_EQ(result.col_num, 3);
    EXPECT_EQ(result.inited, 1);
    EXPECT_STREQ(result.col_names[0], "name");
    EXPECT_STREQ(result.col_names[2], "a \"note\"");
    int expected = 0;
    for (const db_row_t *row = result.rows; row != nullptr; row = row->next) {
        EXPECT_EQ(row->values[1].n, expected++);
    }
    EXPECT_EQ(expected, 100);
    result.free(&result);
    EXPECT_EQ(result.inited, 0);
    EXPECT_EQ(result.rows, nullptr);
    EXPECT_EQ(result.col_names, nullptr);
    result.free(&result);
    result.free(nullptr);
}

TEST_F(Database, TextsThatAreTooLongAreRefused)
{
    db_table table = opened();
    const int id = add(table, {"1234567", 1, std::string(31, 'n')});
    ASSERT_GT(id, 0);
    EXPECT_EQ(add(table, {"12345678", 1, ""}), 0);
    EXPECT_EQ(add(table, {"x", 1, std::string(32, 'n')}), 0);
    EXPECT_EQ(add(table, {"x", 1, std::string(100000, 'n')}), 0);
    EXPECT_FALSE(set(table, id, {"12345678", 2, ""}));
    EXPECT_EQ(get(table, id), (Record{"1234567", 1, std::string(31, 'n')}));
    EXPECT_EQ(all(table).size(), 1U);
    // Whoever stored it, no text is longer than its column says.
    const db_col_t narrow[] = {{0, "name", DB_STRING, 1, 4}, {1, "a \"note\"", DB_STRING, 0, 2}};
    db_table cut;
    ASSERT_NE(db_table_init(name(), &cut, "things", narrow, 2), 0);
    const Row row{cut.get(&cut, id)};
    ASSERT_NE(row, nullptr);
    EXPECT_STREQ(row->values[0].s, "123");
    EXPECT_STREQ(row->values[1].s, "n");
}

TEST_F(Database, NoValueAtAll)
{
    db_table table = opened();
    db_val_t values[3] = {};
    const int a = table.add(&table, values);
    ASSERT_GT(a, 0);
    ASSERT_GT(table.add(&table, values), a);  // none is as unique as none
    EXPECT_EQ(get(table, a), (Record{"(none)", 0, "(none)"}));
    EXPECT_TRUE(set(table, a, {"", 0, ""}));
    EXPECT_EQ(get(table, a), (Record{"", 0, ""}));
    EXPECT_NE(table.set(&table, a, values), 0);
    EXPECT_EQ(get(table, a), (Record{"(none)", 0, "(none)"}));
}

TEST_F(Database, UniqueValuesStayUnique)
{
    db_table table = opened();
    const int a = add(table, {"a", 1, ""});
    const int b = add(table, {"b", 1, ""});
    EXPECT_EQ(add(table, {"a", 2, ""}), 0);
    EXPECT_FALSE(set(table, b, {"a", 2, "changed"}));
    EXPECT_EQ(get(table, b), (Record{"b", 1, ""}));
    EXPECT_TRUE(set(table, a, {"a", 2, ""}));
    EXPECT_TRUE(set(table, a, {"c", 2, ""}));
    EXPECT_TRUE(set(table, b, {"a", 2, ""}));
    // An id is not given again, or whoever remembers it would change another row.
    EXPECT_NE(table.del(&table, b), 0);
    EXPECT_GT(add(table, {"a", 1, ""}), b);
}

TEST_F(Database, NullArguments)
{
    db_table table = opened();
    const db_val_t values[3] = {};
    db_result result;
    EXPECT_EQ(db_table_init(name(), nullptr, "things", kColumns, 3), 0);
    EXPECT_EQ(table.find(nullptr, 0, "a", 0), nullptr);
    EXPECT_EQ(table.get(nullptr, 1), nullptr);
    EXPECT_EQ(table.set(nullptr, 1, values), 0);
    EXPECT_EQ(table.set(&table, 1, nullptr), 0);
    EXPECT_EQ(table.add(nullptr, values), 0);
    EXPECT_EQ(table.add(&table, nullptr), 0);
    EXPECT_EQ(table.del(nullptr, 1), 0);
    EXPECT_EQ(table.all(nullptr, &result), 0);
    EXPECT_EQ(table.all(&table, nullptr), 0);
    EXPECT_EQ(table.lock(nullptr), 0);
    EXPECT_EQ(table.unlock(nullptr), 0);
}

TEST_F(Database, NamesAreOnlyNames)
{
    db_table odd;
    const db_col_t columns[] = {{0, "\"; DROP TABLE x; --", DB_STRING, 1, 8},
                                {1, "'%w'", DB_INT, 0, 0},
                                {2, "select", DB_STRING, 0, 8}};
    ASSERT_NE(db_table_init(name(), &odd, "o'd\"d; --%s", columns, 3), 0);
    ASSERT_GT(add(odd, {"a", 5, "b"}), 0);
    EXPECT_EQ(all(odd), (std::vector<Record>{{"a", 5, "b"}}));
    const Row row{odd.find(&odd, 0, "a", 0)};
    EXPECT_NE(row, nullptr);

    db_table table;
    for (const char *const bad :
         {"", ".", "..", "../x", "a/b", "/x", ".hidden",
          "1234567890123456789012345678901234567890123456789012345678901234"}) {
        EXPECT_EQ(db_table_init(bad, &table, "things", kColumns, 3), 0) << bad;
        all_fail(table);
    }
    EXPECT_NE(db_table_init("123456789012345678901234567890123456789012345678901234567890123",
                            &table, "things", kColumns, 3),
              0);
    EXPECT_EQ(db_table_init(nullptr, &table, "things", kColumns, 3), 0);
    EXPECT_FALSE(init(table, nullptr));
    EXPECT_FALSE(init(table, ""));
    EXPECT_FALSE(init(table, "sqlite_things"));
    all_fail(table);
    EXPECT_FALSE(test::exists("/cfg/x.db"));
}

TEST_F(Database, ColumnsThatCannotBe)
{
    const auto refused = [&](const std::vector<db_col_t> &columns, int count) {
        db_table table;
        EXPECT_EQ(db_table_init(name(), &table, "absurd", columns.data(), count), 0);
        all_fail(table);
    };
    const db_col_t good = {0, "a", DB_INT, 0, 0};
    refused({good}, 0);
    refused({good}, -1);
    refused({good}, INT_MAX);
    refused({good}, INT_MIN);
    refused({{1, "a", DB_INT, 0, 0}}, 1);
    refused({{-1, "a", DB_INT, 0, 0}}, 1);
    refused({{0, nullptr, DB_INT, 0, 0}}, 1);
    refused({{0, "", DB_INT, 0, 0}}, 1);
    refused({{0, "_id", DB_INT, 0, 0}}, 1);
    refused({{0, "_ID", DB_INT, 0, 0}}, 1);
    for (const int length : {INT_MIN, -1, 0, 1, DB_LENGTH_MAX + 1, INT_MAX}) {
        refused({{0, "a", DB_STRING, 0, length}}, 1);
    }
    refused({good, {1, "A", DB_INT, 0, 0}}, 2);
    db_table table;
    EXPECT_EQ(db_table_init(name(), &table, "absurd", nullptr, 1), 0);

    std::vector<std::string> names;
    std::vector<db_col_t> most;
    for (int i = 0; i < DB_COLUMN_MAX + 1; ++i) {
        names.push_back("column " + std::to_string(i));
    }
    for (int i = 0; i < DB_COLUMN_MAX + 1; ++i) {
        most.push_back(
            {i, names[static_cast<std::size_t>(i)].c_str(), DB_STRING, i % 2, DB_LENGTH_MAX});
    }
    refused(most, DB_COLUMN_MAX + 1);
    ASSERT_NE(db_table_init(name(), &table, "absurd", most.data(), DB_COLUMN_MAX), 0);
    std::string longest(DB_LENGTH_MAX - 1, 'x');
    std::vector<db_val_t> values(DB_COLUMN_MAX);
    for (db_val_t &value : values) {
        value.s = longest.data();
    }
    const int id = table.add(&table, values.data());
    const Row row{table.find(&table, DB_COLUMN_MAX - 1, longest.c_str(), 0)};
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->id, id);
    EXPECT_EQ(row->values[DB_COLUMN_MAX - 1].s, longest);
}

TEST_F(Database, ATableGetsTheColumnsThatALaterFirmwareHas)
{
    const int id = add(*std::make_unique<db_table>(opened()), {"old", 1, "note"});
    const db_col_t later[] = {{0, "a \"note\"", DB_STRING, 0, 32},
                              {1, "mac", DB_STRING, 1, 18},
                              {2, "name", DB_STRING, 1, 8},
                              {3, "weight", DB_INT, 0, 0}};
    db_table table;
    ASSERT_NE(db_table_init(name(), &table, "things", later, 4), 0);
    const Row row{table.get(&table, id)};
    ASSERT_NE(row, nullptr);
    EXPECT_STREQ(row->values[0].s, "note");
    EXPECT_EQ(row->values[1].s, nullptr);
    EXPECT_STREQ(row->values[2].s, "old");
    EXPECT_EQ(row->values[3].n, 0);
    db_val_t values[4] = {};
    values[1].s = const_cast<char *>("02:00:00:00:00:01");
    EXPECT_GT(table.add(&table, values), 0);
    EXPECT_EQ(table.add(&table, values), 0);  // the new column is unique, too
    // The earlier one goes on with what it knows.
    db_table earlier = opened();
    EXPECT_EQ(get(earlier, id), (Record{"old", 1, "note"}));
    EXPECT_GT(add(earlier, {"new", 2, ""}), id);
}

/** Another process with the same handle, which does what it is told to, one thing at a time. */
class Neighbour
{
  public:
    explicit Neighbour(std::function<int(char)> work)
    {
        EXPECT_EQ(pipe(orders_), 0);
        EXPECT_EQ(pipe(answers_), 0);
        pid_ = start([&] {
            close(orders_[1]);
            char order;
            while (read(orders_[0], &order, 1) == 1) {
                const int answer = work(order);
                EXPECT_EQ(write(answers_[1], &answer, sizeof(answer)), ssize_t{sizeof(answer)});
            }
        });
        close(orders_[0]);
        close(answers_[1]);
    }
    ~Neighbour()
    {
        close(orders_[1]);
        close(answers_[0]);
        EXPECT_TRUE(ended_well(pid_));
    }
    Neighbour(const Neighbour &) = delete;
    Neighbour &operator=(const Neighbour &) = delete;

    void tell(char order) const { EXPECT_EQ(write(orders_[1], &order, 1), 1); }
    int answer() const
    {
        int answer = -1;
        EXPECT_EQ(read(answers_[0], &answer, sizeof(answer)), ssize_t{sizeof(answer)});
        return answer;
    }
    int ask(char order) const
    {
        tell(order);
        return answer();
    }

  private:
    int orders_[2] = {};
    int answers_[2] = {};
    pid_t pid_;
};

TEST_F(Database, ASeriesIsStoredTogether)
{
    db_table table = opened();
    db_table other = opened("other");
    const Neighbour neighbour{[&](char) { return static_cast<int>(all(table).size()); }};
    ASSERT_NE(table.lock(&table), 0);
    ASSERT_NE(other.lock(&other), 0);  // nested
    EXPECT_GT(add(table, {"a", 1, ""}), 0);
    EXPECT_GT(add(other, {"b", 1, ""}), 0);
    EXPECT_EQ(add(table, {"a", 2, ""}), 0);  // one that is refused does not end the series
    EXPECT_GT(add(table, {"c", 3, ""}), 0);
    EXPECT_NE(other.unlock(&other), 0);
    EXPECT_EQ(all(table).size(), 2U);
    EXPECT_EQ(neighbour.ask('?'), 0);
    EXPECT_NE(table.unlock(&table), 0);
    EXPECT_EQ(neighbour.ask('?'), 2);
    EXPECT_EQ(table.unlock(&table), 0);
    EXPECT_EQ(all(other).size(), 1U);
}

// ---- several at once --------------------------------------------------------------------------

TEST_F(Database, ManyProcessesAtOnce)
{
    // All of them make the database, its table and their rows; each in a series or one by one.
    constexpr int kProcesses = 8;
    constexpr int kRows = 25;
    test::all_at_once(kProcesses, [this](int p) {
        db_table table = opened();
        for (int i = 0; i < kRows; ++i) {
            const int number = p * kRows + i;
            const bool series = i % 2 == 0;
            EXPECT_NE(table.lock(&table), 0);
            if (!series) {
                EXPECT_NE(table.unlock(&table), 0);
            }
            const int id = add(table, {std::to_string(number), 1, ""});
            EXPECT_GT(id, 0);
            EXPECT_TRUE(set(table, id, {std::to_string(number), number, "moved"}));
            if (series) {
                EXPECT_NE(table.unlock(&table), 0);
            }
            for (const Record &record : all(table)) {
                EXPECT_TRUE(record.note == "moved" || record.count == 1);
            }
        }
    });
    db_table table = opened();
    int sum = 0;
    for (const Record &record : all(table)) {
        EXPECT_EQ(record.name, std::to_string(record.count));
        sum += record.count;
    }
    EXPECT_EQ(sum, (kProcesses * kRows) * (kProcesses * kRows - 1) / 2);
}

TEST_F(Database, ManyThreadsAtOnce)
{
    db_table table = opened();
    std::atomic<int> inside{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            db_table own;
            EXPECT_TRUE(init(own, t % 2 == 0 ? "things" : "other"));
            for (int i = 0; i < 20; ++i) {
                EXPECT_NE(own.lock(&own), 0);
                EXPECT_EQ(inside.fetch_add(1), 0);  // nobody else is in a series, or can change
                const std::string name = std::to_string(t * 100 + i);
                const int id = add(own, {name, i, ""});
                std::this_thread::yield();
                EXPECT_EQ(get(own, id), (Record{name, i, ""}));
                inside.fetch_sub(1);
                EXPECT_NE(own.unlock(&own), 0);
                EXPECT_TRUE(set(own, id, {name, i, "later"}));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(all(table).size(), 60U);
}

TEST_F(Database, AChildUsesTheHandleItInherited)
{
    db_table table = opened();
    const int id = add(table, {"a", 1, ""});
    EXPECT_TRUE(in_a_child([&] {
        EXPECT_EQ(get(table, id), (Record{"a", 1, ""}));
        EXPECT_TRUE(set(table, id, {"a", 2, "by the child"}));
        EXPECT_TRUE(in_a_child([&] {
            EXPECT_NE(table.lock(&table), 0);
            EXPECT_GT(add(table, {"b", 1, "by the grandchild"}), 0);
            EXPECT_NE(table.unlock(&table), 0);
        }));
        EXPECT_EQ(all(table).size(), 2U);
    }));
    EXPECT_EQ(get(table, id), (Record{"a", 2, "by the child"}));
    EXPECT_EQ(all(table).size(), 2U);
}

TEST_F(Database, ForksWhileThreadsAreBusy)
{
    SKIP_IF_EMULATED(test::kNoForkAmidThreads);
    db_table table = opened();
    const int id = add(table, {"a", 1, ""});
    std::atomic<bool> stop{false};
    std::thread busy{[&] {
        while (!stop) {
            EXPECT_NE(table.lock(&table), 0);
            EXPECT_TRUE(set(table, id, {"a", 2, "x"}));
            EXPECT_NE(table.unlock(&table), 0);
            EXPECT_EQ(all(table).size(), 1U);
        }
    }};
    for (int i = 0; i < 30; ++i) {
        EXPECT_TRUE(in_a_child([&] {
            EXPECT_EQ(get(table, id).name, "a");
            EXPECT_TRUE(set(table, id, {"a", 3, "y"}));
        }));
    }
    stop = true;
    busy.join();
}

TEST_F(Database, AChildOfAnOpenSeriesKeepsOut)
{
    db_table table = opened();
    ASSERT_NE(table.lock(&table), 0);
    EXPECT_GT(add(table, {"a", 1, ""}), 0);
    EXPECT_TRUE(in_a_child([&] {
        all_fail(table);
        db_table again;
        EXPECT_FALSE(init(again));
        EXPECT_TRUE(in_a_child([&] { all_fail(table); }));
    }));
    EXPECT_NE(table.unlock(&table), 0);
    EXPECT_EQ(all(table).size(), 1U);
    EXPECT_TRUE(in_a_child([&] { EXPECT_EQ(all(table).size(), 1U); }));
}

// ---- faults -----------------------------------------------------------------------------------

TEST_F(Database, AKilledSeriesNeverHappened)
{
    constexpr int kRows = 200;
    db_table table = opened();
    ASSERT_NE(table.lock(&table), 0);
    for (int i = 0; i < kRows; ++i) {
        ASSERT_GT(add(table, {std::to_string(i), 0, std::string(31, '0')}), 0);
    }
    ASSERT_NE(table.unlock(&table), 0);
    int in_the_middle = 0;
    unsigned int random = 1;
    for (int round = 1; round <= 60; ++round) {
        {
            test::Child writer{[&](test::Child &child) {
                child.tell();
                for (int number = 1;; ++number) {
                    table.lock(&table);
                    for (int i = 0; i < kRows; ++i) {
                        const char digit = static_cast<char>('0' + number % 10);
                        set(table, i + 1, {std::to_string(i), number, std::string(31, digit)});
                    }
                    table.unlock(&table);
                }
            }};
            writer.wait_until_told();
            random = random * 1103515245 + 12345;
            usleep(500 + random / 65536 % 8000);
        }
        in_the_middle += test::exists(file() + "-journal") ? 1 : 0;
        const std::vector<Record> rows = all(table);
        ASSERT_EQ(rows.size(), static_cast<std::size_t>(kRows));
        for (int i = 0; i < kRows; ++i) {
            const Record &row = rows[static_cast<std::size_t>(i)];
            const char digit = static_cast<char>('0' + row.count % 10);
            ASSERT_EQ(row, (Record{std::to_string(i), rows[0].count, std::string(31, digit)}));
        }
        ASSERT_TRUE(set(table, 1, rows[0]));  // nobody is left to hold a lock
    }
    EXPECT_GT(in_the_middle, 0);
}

TEST_F(Database, OneThatIsLockedForTooLong)
{
    db_table table = opened();
    const int id = add(table, {"a", 1, ""});
    test::Child holder{[&](test::Child &child) {
        ASSERT_NE(table.lock(&table), 0);
        ASSERT_TRUE(set(table, id, {"a", 2, ""}));
        child.tell();
        pause();
    }};
    holder.wait_until_told();
    // Reading goes on, writing waits so long.
    {
        const test::SimulatedTime time;
        const auto waited = [&] {
            return std::accumulate(time.sleeps().begin(), time.sleeps().end(), 0LL);
        };
        EXPECT_EQ(get(table, id), (Record{"a", 1, ""}));
        EXPECT_EQ(waited(), 0);
        EXPECT_FALSE(set(table, id, {"a", 3, ""}));
        EXPECT_EQ(waited(), 5000000);
        EXPECT_EQ(add(table, {"b", 1, ""}), 0);
        EXPECT_EQ(table.del(&table, id), 0);
        EXPECT_EQ(table.lock(&table), 0);
        EXPECT_EQ(table.unlock(&table), 0);
        db_table another;
        EXPECT_FALSE(init(another, "another"));
        all_fail(another);
        EXPECT_EQ(waited(), 5 * 5000000);
    }
    kill(holder.pid(), SIGKILL);
    holder.expect_signal(SIGKILL);
    EXPECT_TRUE(set(table, id, {"a", 4, ""}));
    EXPECT_EQ(all(table).size(), 1U);
}

TEST_F(Database, OneThatIsNoDatabase)
{
    for (const std::string &text : {std::string(5000, 'x'), std::string{"SQLite format 3\0", 16} +
                                                                std::string(4080, '\xff')}) {
        test::write_text(file(), text);
        db_table table;
        EXPECT_FALSE(init(table));
        all_fail(table);
        EXPECT_EQ(test::read_text(file()), text);  // perhaps somebody can make something of it
    }
    test::remove_all(file());
    ASSERT_EQ(mkdir(file().c_str(), 0755), 0);
    db_table table;
    EXPECT_FALSE(init(table));
    ASSERT_EQ(rmdir(file().c_str()), 0);
    EXPECT_TRUE(init(table));
    EXPECT_GT(add(table, {"a", 1, ""}), 0);
}

TEST_F(Database, OneThatIsDamagedWhileInUse)
{
    db_table table = opened();
    EXPECT_GT(add(table, {"a", 1, ""}), 0);
    test::write_text(file(), std::string(20000, 'x'));
    all_fail(table);
    test::remove_all(file());
    EXPECT_GT(add(table, {"b", 1, ""}), 0);
    EXPECT_EQ(all(table), (std::vector<Record>{{"b", 1, ""}}));
}

TEST_F(Database, OneThatIsMissing)
{
    db_table table = opened();
    db_table other = opened("other");
    EXPECT_GT(add(table, {"a", 1, ""}), 0);
    // Somebody removes it: what is written from now on must not go to the file that is gone.
    test::remove_all(file());
    EXPECT_TRUE(all(table).empty());
    EXPECT_TRUE(test::exists(file()));
    EXPECT_GT(add(other, {"b", 1, ""}), 0);
    EXPECT_TRUE(in_a_child([&] {
        EXPECT_TRUE(all(table).empty());
        EXPECT_EQ(all(other).size(), 1U);
    }));
    test::remove_all(kFolder);
    EXPECT_GT(add(table, {"c", 1, ""}), 0);
    struct stat status;
    ASSERT_EQ(stat(file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    ASSERT_EQ(stat(kFolder, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    // Without a place to put it, there is none.
    const test::MountedFolder read_only{kFolder, "size=16k", true};
    db_table nowhere;
    EXPECT_EQ(db_table_init("nowhere", &nowhere, "things", kColumns, 3), 0);
    all_fail(nowhere);
    all_fail(table);
}

TEST_F(Database, OneThatIsReadOnly)
{
    const test::MountedFolder small{kFolder, "size=1m"};
    EXPECT_TRUE(in_a_child([&] {
        db_table table = opened();
        EXPECT_GT(add(table, {"a", 1, ""}), 0);
    }));
    ASSERT_EQ(mount("", kFolder, "", MS_REMOUNT | MS_RDONLY, nullptr), 0) << strerror(errno);
    EXPECT_TRUE(in_a_child([&] {
        db_table table = opened();
        EXPECT_EQ(all(table).size(), 1U);
        EXPECT_EQ(add(table, {"b", 1, ""}), 0);
        EXPECT_FALSE(set(table, 1, {"b", 1, ""}));
        EXPECT_EQ(table.del(&table, 1), 0);
        EXPECT_EQ(table.lock(&table), 0);
        db_table other;
        EXPECT_FALSE(init(other, "other"));
        EXPECT_EQ(get(table, 1), (Record{"a", 1, ""}));
    }));
}

TEST_F(Database, OneOnAFullDisk)
{
    const test::MountedFolder small{kFolder, "size=128k"};
    db_table table = opened();
    const int id = add(table, {"a", 1, ""});
    ASSERT_GT(id, 0);
    small.fill();
    EXPECT_FALSE(set(table, id, {"a", 2, ""}));
    EXPECT_EQ(get(table, id), (Record{"a", 1, ""}));
    db_table other;
    EXPECT_FALSE(init(other, "other"));
    // Of a series that cannot be stored nothing is.
    ASSERT_NE(table.lock(&table), 0);
    for (int i = 0; i < 200; ++i) {
        set(table, id, {"a", i, std::string(31, 'x')});
        add(table, {std::to_string(i), i, std::string(31, 'x')});
    }
    EXPECT_EQ(table.unlock(&table), 0);
    EXPECT_EQ(all(table), (std::vector<Record>{{"a", 1, ""}}));
}

TEST_F(Database, ASeriesThatRunsOutOfDiskIsNotStoredInPart)
{
    const test::MountedFolder small{kFolder, "size=256k"};
    db_table table = opened();
    const int id = add(table, {"a", 1, ""});
    ASSERT_NE(table.lock(&table), 0);
    EXPECT_TRUE(set(table, id, {"a", 2, ""}));
    for (int i = 0; i < 100000 && add(table, {std::to_string(i), i, std::string(31, 'x')}) != 0;
         ++i) {
    }
    small.fill();
    EXPECT_EQ(table.unlock(&table), 0);
    EXPECT_EQ(all(table), (std::vector<Record>{{"a", 1, ""}}));
    test::remove_all(std::string{kFolder} + "/fill");
}

TEST_F(Database, DescriptorsAreNotLeaked)
{
    db_table table = opened();
    const int before = test::open_descriptors();
    for (int i = 0; i < 20; ++i) {
        test::remove_all(file());
        ASSERT_GT(add(table, {"a", 1, ""}), 0);
        db_table bad;
        EXPECT_EQ(db_table_init("../bad", &bad, "things", kColumns, 3), 0);
        EXPECT_FALSE(init(bad, "sqlite_bad"));
    }
    EXPECT_EQ(test::open_descriptors(), before);
}

}  // namespace
