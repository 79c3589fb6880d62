// SPDX-License-Identifier: MIT
//
// What SQLite asks of its users, and where it is met:
// - A connection is used by one thread at a time, and a transaction belongs to a connection, not to
//   a thread: each process has one connection per database, and one recursive mutex lets one thread
//   at a time in. lock() keeps the mutex until unlock().
// - A connection does not survive fork(), not even to be closed. A child forgets what it inherited
//   and opens its own; the fork waits until no thread is inside, so that the engine's own state is
//   whole. In the midst of a series that state holds the parent's file locks, which the child does
//   not have: such a child must keep out.
// - No descriptor of the file is ever opened and closed beside the engine's own, since that would
//   drop the process's locks: an existing file is left to the engine.
//
// The rollback journal and not a write-ahead log: it leaves one file when nothing is going on,
// needs no shared memory, which not every flash file system has, and reads from a read-only
// partition.
#include "platform/database.h"

#include <fcntl.h>
#include <pthread.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "database.hpp"
#include "file.hpp"

namespace platform
{
namespace
{

constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kPrivateFile = 0600;

// How long another process's transaction is waited for: 5 seconds. Looked at often, since one that
// writes without a pause leaves only short gaps.
constexpr useconds_t kBusyPause = 2000;
constexpr int kBusyPauses = 2500;

// Guards everything below. Taken once more for each lock() that has not met its unlock().
pthread_mutex_t inside = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

struct Freer {
    void operator()(void *memory) const { sqlite3_free(memory); }
};
using Sql = std::unique_ptr<char, Freer>;

/** An SQL text under construction, empty when memory was short. */
class SqlText
{
  public:
    SqlText() : text_(sqlite3_str_new(nullptr)) {}
    ~SqlText() { sqlite3_free(sqlite3_str_finish(text_)); }
    SqlText(const SqlText &) = delete;
    SqlText &operator=(const SqlText &) = delete;

    /** @param format  "%w" is an identifier inside double quotes */
    template <typename... Values>
    SqlText &add(const char *format, Values... values)
    {
        sqlite3_str_appendf(text_, format, values...);
        return *this;
    }

    Sql take()
    {
        Sql done{sqlite3_str_finish(text_)};
        text_ = sqlite3_str_new(nullptr);
        return done;
    }

  private:
    sqlite3_str *text_;
};

/** A prepared statement for one use; made ready for the next one at the end. */
class Use
{
  public:
    explicit Use(sqlite3_stmt *statement) : statement_(statement) {}
    ~Use()
    {
        if (statement_ != nullptr) {
            sqlite3_reset(statement_);
            sqlite3_clear_bindings(statement_);
        }
    }
    Use(const Use &) = delete;
    Use &operator=(const Use &) = delete;

    explicit operator bool() const { return statement_ != nullptr; }
    sqlite3_stmt *get() const { return statement_; }
    bool has_row() const { return sqlite3_step(statement_) == SQLITE_ROW; }
    bool is_done() const { return sqlite3_step(statement_) == SQLITE_DONE; }

    bool bind(int place, int value) const
    {
        return sqlite3_bind_int(statement_, place, value) == SQLITE_OK;
    }
    /** @param text  stays until the use ends */
    bool bind(int place, const char *text) const
    {
        return sqlite3_bind_text(statement_, place, text, -1, SQLITE_STATIC) == SQLITE_OK;
    }

  private:
    sqlite3_stmt *statement_;
};

struct Database;

enum Kind { kGet, kSet, kAll, kAdd, kDel, kFind };  // kFind + n searches column n

/** A table as this process knows it. Lives as long as the process. */
struct Table {
    Table *next;
    Database *database;
    const char *name;
    db_col_t *columns;
    int col_num;
    bool ready;  // it is there, with all its columns
    sqlite3_stmt *statements[kFind + DB_COLUMN_MAX];

    bool is(const char *table_name, const db_col_t *wanted, int count) const;
    bool fits(const db_val_t *values) const;
    bool bind(const Use &use, const db_val_t *values) const;
    Sql sql(int kind) const;
    sqlite3_stmt *statement(int kind);
    bool make_ready();
    bool create();
};

/** A database as this process knows it. Lives as long as the process. */
struct Database {
    Database *next;
    char name[kDatabaseNameSize];
    Table *tables;
    sqlite3 *connection;
    int depth;      // of nested locks
    bool shut_out;  // forked in the midst of a series

    bool open();
    void close();
    bool exec(const char *sql) const
    {
        return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    /** The engine itself would begin a write to what it can only read. */
    bool begin() const
    {
        return sqlite3_db_readonly(connection, "main") == 0 && exec("BEGIN IMMEDIATE");
    }
    /** Some failures end a transaction: what came after them would be written one by one. */
    bool series_is_broken() const { return depth > 0 && sqlite3_get_autocommit(connection) != 0; }
    Table *table(const char *table_name, const db_col_t *columns, int count);
};

Database *databases;

// ---- fork -------------------------------------------------------------------------------------

void before_fork()
{
    pthread_mutex_lock(&inside);
}

void after_fork()
{
    pthread_mutex_unlock(&inside);
}

void start_child()
{
    // Not to be unlocked by a child: its owner was the thread of the parent.
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&inside, &recursive);
    pthread_mutexattr_destroy(&recursive);
    for (Database *database = databases; database != nullptr; database = database->next) {
        database->shut_out = database->shut_out || database->depth > 0;
        database->depth = 0;
        database->connection = nullptr;
        for (Table *table = database->tables; table != nullptr; table = table->next) {
            table->ready = false;
            memset(table->statements, 0, sizeof(table->statements));
        }
    }
}

// ---- databases --------------------------------------------------------------------------------

/** The database of that name; nullptr when memory is short. */
Database *find_database(const char *name)
{
    for (Database *database = databases; database != nullptr; database = database->next) {
        if (strcmp(database->name, name) == 0) {
            return database;
        }
    }
    auto *const database = static_cast<Database *>(calloc(1, sizeof(Database)));
    if (database != nullptr) {
        copy_text(database->name, name);
        database->next = databases;
        databases = database;
    }
    return database;
}

int wait_for_another(void *, int pauses)
{
    if (pauses >= kBusyPauses) {
        return 0;
    }
    usleep(kBusyPause);
    return 1;
}

/** Has the connection, to the file that bears the name now. */
bool Database::open()
{
    if (connection != nullptr) {
        int moved = 0;
        if (depth > 0 || (sqlite3_file_control(connection, "main", SQLITE_FCNTL_HAS_MOVED,
                                               &moved) == SQLITE_OK &&
                          moved == 0)) {
            return true;
        }
        close();
    }
    if (shut_out) {
        return false;
    }
    const Sql path{sqlite3_mprintf("%s/%s.db", kDatabaseFolder, name)};
    if (path == nullptr) {
        return false;
    }
    make_database_file(path.get());
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.get(), &connection, flags, nullptr) == SQLITE_OK &&
        sqlite3_busy_handler(connection, wait_for_another, nullptr) == SQLITE_OK &&
        // Or a misspelt column would be a text.
        sqlite3_db_config(connection, SQLITE_DBCONFIG_DQS_DML, 0, nullptr) == SQLITE_OK &&
        exec("PRAGMA synchronous=EXTRA; PRAGMA temp_store=MEMORY")) {
        return true;
    }
    close();
    return false;
}

void Database::close()
{
    for (Table *table = tables; table != nullptr; table = table->next) {
        table->ready = false;
        for (sqlite3_stmt *&statement : table->statements) {
            sqlite3_finalize(statement);
            statement = nullptr;
        }
    }
    sqlite3_close(connection);
    connection = nullptr;
}

// ---- tables -----------------------------------------------------------------------------------

bool is_column(const db_col_t &column, int index)
{
    if (column.index != index || column.name == nullptr || *column.name == '\0' ||
        sqlite3_stricmp(column.name, "_id") == 0) {
        return false;
    }
    return column.type == DB_INT ||
           (column.type == DB_STRING && column.length > 1 && column.length <= DB_LENGTH_MAX);
}

bool are_columns(const db_col_t *columns, int count)
{
    if (columns == nullptr || count < 1 || count > DB_COLUMN_MAX) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        if (!is_column(columns[i], i)) {
            return false;
        }
        for (int j = 0; j < i; ++j) {
            if (sqlite3_stricmp(columns[i].name, columns[j].name) == 0) {
                return false;
            }
        }
    }
    return true;
}

bool Table::is(const char *table_name, const db_col_t *wanted, int count) const
{
    if (strcmp(name, table_name) != 0 || col_num != count) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        const db_col_t &a = columns[i];
        const db_col_t &b = wanted[i];
        if (strcmp(a.name, b.name) != 0 || a.type != b.type || a.unique != b.unique ||
            a.length != b.length) {
            return false;
        }
    }
    return true;
}

/** Copies a text to where @p room points and moves on. */
const char *keep_text(char *&room, const char *text)
{
    char *const kept = room;
    room = stpcpy(room, text) + 1;
    return kept;
}

/** The table of those columns, not yet made ready; nullptr when memory is short. */
Table *Database::table(const char *table_name, const db_col_t *columns, int count)
{
    for (Table *table = tables; table != nullptr; table = table->next) {
        if (table->is(table_name, columns, count)) {
            return table;
        }
    }
    std::size_t names = strlen(table_name) + 1;
    for (int i = 0; i < count; ++i) {
        names += strlen(columns[i].name) + 1;
    }
    const std::size_t columns_size = static_cast<std::size_t>(count) * sizeof(db_col_t);
    void *const block = calloc(1, sizeof(Table) + columns_size + names);
    if (block == nullptr) {
        return nullptr;
    }
    auto *const table = static_cast<Table *>(block);
    table->columns = reinterpret_cast<db_col_t *>(table + 1);
    char *room = reinterpret_cast<char *>(table->columns + count);
    table->name = keep_text(room, table_name);
    for (int i = 0; i < count; ++i) {
        table->columns[i] = columns[i];
        table->columns[i].name = keep_text(room, columns[i].name);
    }
    table->col_num = count;
    table->database = this;
    table->next = tables;
    tables = table;
    return table;
}

/** The text of one of the statements that the operations are made of. */
Sql Table::sql(int kind) const
{
    SqlText text;
    if (kind == kDel) {
        return text.add("DELETE FROM \"%w\" WHERE \"_id\"=?1", name).take();
    }
    if (kind == kSet) {
        text.add("UPDATE \"%w\" SET ", name);
        for (int i = 0; i < col_num; ++i) {
            text.add("%s\"%w\"=?%d", i > 0 ? "," : "", columns[i].name, i + 1);
        }
        return text.add(" WHERE \"_id\"=?%d", col_num + 1).take();
    }
    if (kind == kAdd) {
        text.add("INSERT INTO \"%w\" (", name);
        for (int i = 0; i < col_num; ++i) {
            text.add("%s\"%w\"", i > 0 ? "," : "", columns[i].name);
        }
        text.add(") VALUES (?1");
        for (int i = 1; i < col_num; ++i) {
            text.add(",?%d", i + 1);
        }
        return text.add(")").take();
    }
    text.add("SELECT \"_id\"");
    for (int i = 0; i < col_num; ++i) {
        text.add(",\"%w\"", columns[i].name);
    }
    text.add(" FROM \"%w\"", name);
    if (kind == kGet) {
        text.add(" WHERE \"_id\"=?1");
    } else if (kind >= kFind) {
        text.add(" WHERE \"%w\"=?1", columns[kind - kFind].name);
    }
    return text.add(" ORDER BY \"_id\"%s", kind >= kFind ? " LIMIT 1" : "").take();
}

/** A statement, kept once it is prepared; nullptr on failure. */
sqlite3_stmt *Table::statement(int kind)
{
    sqlite3_stmt *&kept = statements[kind];
    if (kept == nullptr) {
        const Sql text = sql(kind);
        if (text != nullptr) {
            sqlite3_prepare_v3(database->connection, text.get(), -1, SQLITE_PREPARE_PERSISTENT,
                               &kept, nullptr);
        }
    }
    return kept;
}

/** Makes what is missing of the table, which is nothing once the device was in use. */
bool Table::make_ready()
{
    // That all rows can be asked for means that all is there; it writes nothing.
    ready = ready || statement(kAll) != nullptr;
    if (!ready && database->depth > 0) {
        ready = create();
    } else if (!ready && database->begin()) {
        ready = create() && database->exec("COMMIT");
        if (!ready) {
            database->exec("ROLLBACK");
        }
    }
    return ready;
}

bool Table::create()
{
    const Sql table{sqlite3_mprintf(
        "CREATE TABLE IF NOT EXISTS \"%w\" (\"_id\" INTEGER PRIMARY KEY AUTOINCREMENT "
        "CHECK (\"_id\" BETWEEN 1 AND %d))",
        name, INT_MAX)};
    if (table == nullptr || !database->exec(table.get())) {
        return false;
    }
    for (int i = 0; i < col_num; ++i) {
        const db_col_t &column = columns[i];
        const char *const type = column.type == DB_INT ? "INTEGER" : "TEXT";
        const Sql add{
            sqlite3_mprintf("ALTER TABLE \"%w\" ADD COLUMN \"%w\" %s", name, column.name, type)};
        const Sql index{sqlite3_mprintf("CREATE UNIQUE INDEX \"%w/%w\" ON \"%w\" (\"%w\")", name,
                                        column.name, name, column.name)};
        // One that is there already cannot be added.
        if (add != nullptr && index != nullptr && database->exec(add.get()) && column.unique != 0 &&
            !database->exec(index.get())) {
            return false;
        }
    }
    return statement(kAll) != nullptr;
}

/** Whether the values can be stored in this table. */
bool Table::fits(const db_val_t *values) const
{
    for (int i = 0; i < col_num; ++i) {
        if (columns[i].type == DB_STRING && values[i].s != nullptr) {
            const auto length = static_cast<std::size_t>(columns[i].length);
            if (strnlen(values[i].s, length) == length) {
                return false;
            }
        }
    }
    return true;
}

bool Table::bind(const Use &use, const db_val_t *values) const
{
    for (int i = 0; i < col_num; ++i) {
        if (!(columns[i].type == DB_INT ? use.bind(i + 1, values[i].n)
                                        : use.bind(i + 1, values[i].s))) {
            return false;
        }
    }
    return true;
}

// ---- rows -------------------------------------------------------------------------------------

/** A column of the statement's row, as long as a text of that column may be. */
std::string_view text_of(sqlite3_stmt *statement, int place, const db_col_t &column)
{
    const auto *const text = reinterpret_cast<const char *>(sqlite3_column_text(statement, place));
    return {text, text != nullptr ? strnlen(text, static_cast<std::size_t>(column.length) - 1) : 0};
}

/** The statement's row as one block of memory; nullptr when memory is short. */
db_row_t *copy_row(sqlite3_stmt *statement, const Table &table)
{
    const auto count = static_cast<std::size_t>(table.col_num);
    std::size_t size = sizeof(db_row_t) + count * sizeof(db_val_t);
    for (int i = 0; i < table.col_num; ++i) {
        if (table.columns[i].type == DB_STRING) {
            size += text_of(statement, i + 1, table.columns[i]).size() + 1;
        }
    }
    void *const block = malloc(size);
    if (block == nullptr) {
        return nullptr;
    }
    auto *const row = static_cast<db_row_t *>(block);
    *row = {};
    row->id = sqlite3_column_int(statement, 0);
    row->col_num = table.col_num;
    row->values = reinterpret_cast<db_val_t *>(row + 1);
    char *room = reinterpret_cast<char *>(row->values + count);
    for (int i = 0; i < table.col_num; ++i) {
        if (table.columns[i].type == DB_INT) {
            row->values[i] = {};
            row->values[i].n = sqlite3_column_int(statement, i + 1);
            continue;
        }
        const std::string_view text = text_of(statement, i + 1, table.columns[i]);
        row->values[i].s = text.data() != nullptr ? room : nullptr;
        if (text.data() != nullptr) {
            memcpy(room, text.data(), text.size());
            room[text.size()] = '\0';
            room += text.size() + 1;
        }
    }
    return row;
}

/** The names of a table's columns in one block; nullptr when memory is short. */
char **copy_names(const Table &table)
{
    std::size_t size = sizeof(char *);  // nullptr behind the last
    for (int i = 0; i < table.col_num; ++i) {
        size += sizeof(char *) + strlen(table.columns[i].name) + 1;
    }
    auto *const names = static_cast<char **>(malloc(size));
    if (names == nullptr) {
        return nullptr;
    }
    char *room = reinterpret_cast<char *>(names + table.col_num + 1);
    names[table.col_num] = nullptr;
    for (int i = 0; i < table.col_num; ++i) {
        names[i] = room;
        keep_text(room, table.columns[i].name);
    }
    return names;
}

// ---- operations -------------------------------------------------------------------------------

Table *table_of(const db_table *handle)
{
    return handle != nullptr ? static_cast<Table *>(handle->port) : nullptr;
}

/** Work on the table of a handle, if it can be used. */
class Operation
{
  public:
    explicit Operation(const db_table *handle) : Operation(table_of(handle)) {}
    explicit Operation(Table *table)
        : table_(table != nullptr && table->database->open() && table->make_ready() ? table
                                                                                    : nullptr)
    {
    }

    explicit operator bool() const { return table_ != nullptr; }
    Table &table() const { return *table_; }
    Database &database() const { return *table_->database; }
    bool can_write() const { return table_ != nullptr && !database().series_is_broken(); }
    bool changed_a_row() const { return sqlite3_changes(database().connection) == 1; }

  private:
    Inside alone_;
    Table *table_;
};

/** The row that a statement with one thing to look for finds. */
template <typename Value>
db_row_t *look_up(Table &table, int kind, Value value)
{
    const Use use{table.statement(kind)};
    return use && use.bind(1, value) && use.has_row() ? copy_row(use.get(), table) : nullptr;
}

db_row_t *find_row(db_table *handle, int column, const void *value, int flags)
{
    const Operation operation{handle};
    if (!operation || value == nullptr || flags != 0 || column < 0 ||
        column >= operation.table().col_num) {
        return nullptr;
    }
    Table &table = operation.table();
    return table.columns[column].type == DB_INT
               ? look_up(table, kFind + column, *static_cast<const int *>(value))
               : look_up(table, kFind + column, static_cast<const char *>(value));
}

db_row_t *get_row(db_table *handle, int row_id)
{
    const Operation operation{handle};
    return operation ? look_up(operation.table(), kGet, row_id) : nullptr;
}

int set_row(db_table *handle, int row_id, const db_val_t *values)
{
    const Operation operation{handle};
    if (!operation.can_write() || values == nullptr || !operation.table().fits(values)) {
        return 0;
    }
    Table &table = operation.table();
    const Use use{table.statement(kSet)};
    return use && table.bind(use, values) && use.bind(table.col_num + 1, row_id) && use.is_done() &&
                   operation.changed_a_row()
               ? 1
               : 0;
}

int add_row(db_table *handle, const db_val_t *values)
{
    const Operation operation{handle};
    if (!operation.can_write() || values == nullptr || !operation.table().fits(values)) {
        return 0;
    }
    Table &table = operation.table();
    const Use use{table.statement(kAdd)};
    return use && table.bind(use, values) && use.is_done()
               ? static_cast<int>(sqlite3_last_insert_rowid(operation.database().connection))
               : 0;
}

int delete_row(db_table *handle, int row_id)
{
    const Operation operation{handle};
    if (!operation.can_write()) {
        return 0;
    }
    const Use use{operation.table().statement(kDel)};
    return use && use.bind(1, row_id) && use.is_done() && operation.changed_a_row() ? 1 : 0;
}

void free_listing(db_result *result)
{
    if (result == nullptr || result->inited != 1) {
        return;
    }
    for (db_row_t *row = result->rows; row != nullptr;) {
        db_row_t *const next = row->next;
        free(row);
        row = next;
    }
    free(result->col_names);
    *result = {};
    result->free = free_listing;
}

/** Fills an empty listing. False, with what is there so far in it, on failure. */
bool list_rows(Table &table, db_result &result)
{
    const Use use{table.statement(kAll)};
    result.inited = 1;
    result.col_names = copy_names(table);
    if (!use || result.col_names == nullptr) {
        return false;
    }
    result.col_num = table.col_num;
    db_row_t **last = &result.rows;
    int step;
    while ((step = sqlite3_step(use.get())) == SQLITE_ROW) {
        *last = copy_row(use.get(), table);
        if (*last == nullptr) {
            return false;
        }
        last = &(*last)->next;
        ++result.row_num;
    }
    return step == SQLITE_DONE;
}

int all_rows(db_table *handle, db_result *result)
{
    if (result == nullptr) {
        return 0;
    }
    *result = {};
    result->free = free_listing;
    const Operation operation{handle};
    if (operation && list_rows(operation.table(), *result) && result->row_num > 0) {
        return 1;
    }
    free_listing(result);
    return 0;
}

int lock_table(db_table *handle)
{
    const Operation operation{handle};
    if (!operation) {
        return 0;
    }
    Database &database = operation.database();
    if (database.depth == 0 && !database.begin()) {
        return 0;
    }
    ++database.depth;
    pthread_mutex_lock(&inside);
    return 1;
}

int unlock_table(db_table *handle)
{
    const Inside alone;
    const Table *const table = table_of(handle);
    if (table == nullptr || table->database->depth == 0) {
        return 0;
    }
    Database &database = *table->database;
    const bool broken = database.series_is_broken();
    --database.depth;
    pthread_mutex_unlock(&inside);
    if (database.depth > 0) {
        return broken ? 0 : 1;
    }
    if (!broken && database.exec("COMMIT")) {
        return 1;
    }
    database.exec("ROLLBACK");
    return 0;
}

}  // namespace

bool can_name_database(const char *name)
{
    const std::size_t length = name != nullptr ? strnlen(name, kDatabaseNameSize) : 0;
    return length > 0 && length < kDatabaseNameSize && name[0] != '.' &&
           strchr(name, '/') == nullptr;
}

void make_database_file(const char *path)
{
    mkdir(kDatabaseFolder, kPrivateFolder);
    const Fd made{open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kPrivateFile)};
}

Inside::Inside()
{
    pthread_mutex_lock(&inside);
}

Inside::~Inside()
{
    pthread_mutex_unlock(&inside);
}

bool watch_forks()
{
    static bool watching = false;
    watching = watching || pthread_atfork(before_fork, after_fork, start_child) == 0;
    return watching;
}

}  // namespace platform

using namespace platform;

int db_table_init(const char *db_name, db_table *table, const char *table_name,
                  const db_col_t *columns, int column_count)
{
    if (table == nullptr) {
        return 0;
    }
    *table = {find_row, get_row,    set_row, all_rows, lock_table, unlock_table,
              add_row,  delete_row, nullptr, 0,        nullptr};
    if (!can_name_database(db_name) || table_name == nullptr || *table_name == '\0' ||
        !are_columns(columns, column_count)) {
        return 0;
    }
    const Inside alone;
    Database *const database = watch_forks() ? find_database(db_name) : nullptr;
    Table *const entry =
        database != nullptr ? database->table(table_name, columns, column_count) : nullptr;
    if (!Operation{entry}) {
        return 0;
    }
    table->columns = entry->columns;
    table->col_num = entry->col_num;
    table->port = entry;
    return 1;
}
