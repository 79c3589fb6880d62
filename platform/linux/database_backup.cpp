// SPDX-License-Identifier: MIT
//
// A record database as a section of the configuration's backup file:
//
//     ##the default database begin##
//     length 83 check 0123456789abcdef
//     table servers 17
//     column host text unique
//     column port integer
//     row 4 tprinter i9100
//     ##the default database end##
//
// A table has the highest id it ever gave, a row its id and a value for each column: i and a
// number, t and a text, b and bytes, or n for none. Names, texts and bytes have everything but
// letters, digits and a few harmless characters as %XX. So whatever a value holds, there is no "="
// and no "#" in it: neither the backup's "crc=" nor a marker line. Length and check cover what
// stands between the second line and the last.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>

#include "database.hpp"
#include "file.hpp"
#include "handle.hpp"
#include "platform/database.h"

namespace platform
{
namespace
{

constexpr mode_t kPrivateFile = 0600;

constexpr int kBusyMs = 5000;  // how long another process's writing is waited for

using Connection = std::unique_ptr<sqlite3, Closer<sqlite3_close>>;
using Statement = std::unique_ptr<sqlite3_stmt, Closer<sqlite3_finalize>>;
using Sql = std::unique_ptr<char, Closer<sqlite3_free>>;

/** The file of a database. */
struct Path {
    explicit Path(const char *name)
    {
        snprintf(text, sizeof(text), "%s/%s.db", kDatabaseFolder, name);
    }
    char text[sizeof("/cfg/database/.db") + kDatabaseNameSize];
};

/** A connection for one backup, beside the one that table handles work through. */
Connection connect(const char *path)
{
    sqlite3 *handle = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
    const int rc = sqlite3_open_v2(path, &handle, flags, nullptr);
    Connection connection{handle};
    if (rc != SQLITE_OK || sqlite3_busy_timeout(handle, kBusyMs) != SQLITE_OK ||
        sqlite3_exec(handle, "PRAGMA synchronous=EXTRA; PRAGMA temp_store=MEMORY", nullptr, nullptr,
                     nullptr) != SQLITE_OK) {
        connection.reset();
    }
    return connection;
}

bool exec(sqlite3 *connection, const char *sql)
{
    return sql != nullptr && sqlite3_exec(connection, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

/** A statement ready to run; nullptr on failure. */
Statement prepare(sqlite3 *connection, const char *sql)
{
    sqlite3_stmt *statement = nullptr;
    if (sql != nullptr) {
        sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr);
    }
    return Statement{statement};
}

bool bind_text(const Statement &statement, int place, std::string_view text)
{
    return sqlite3_bind_text(statement.get(), place, text.data(), static_cast<int>(text.size()),
                             SQLITE_TRANSIENT) == SQLITE_OK;
}

std::string_view text_of(const Statement &statement, int place)
{
    const auto *const text =
        reinterpret_cast<const char *>(sqlite3_column_text(statement.get(), place));
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), place))};
}

// ---- words ------------------------------------------------------------------------------------

constexpr std::string_view kDigits = "0123456789ABCDEF";

bool is_plain(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           (c != '\0' && strchr("_-.:/@,+", c) != nullptr);
}

bool append_escaped(Buffer &out, std::string_view bytes)
{
    for (const char c : bytes) {
        const auto value = static_cast<unsigned char>(c);
        const char code[] = {'%', kDigits[value >> 4U], kDigits[value & 15U]};
        if (!out.append(is_plain(c) ? std::string_view{&c, 1} : std::string_view{code, 3})) {
            return false;
        }
    }
    return true;
}

/** Appends the bytes that a word stands for; false also when it is none. */
bool append_unescaped(Buffer &out, std::string_view word)
{
    while (!word.empty()) {
        char c = word.front();
        std::size_t length = 1;
        if (c == '%') {
            const std::size_t high = word.size() > 2 ? kDigits.find(word[1]) : kDigits.npos;
            const std::size_t low = word.size() > 2 ? kDigits.find(word[2]) : kDigits.npos;
            if (high == kDigits.npos || low == kDigits.npos) {
                return false;
            }
            c = static_cast<char>(high << 4U | low);
            length = 3;
        } else if (!is_plain(c)) {
            return false;
        }
        if (!out.append({&c, 1})) {
            return false;
        }
        word.remove_prefix(length);
    }
    return true;
}

/** Takes what stands before the next @p end off a text, and the end too. */
std::string_view take_until(std::string_view &text, char end)
{
    const std::string_view word = first_of(text, text.find(end));
    text = after(text, word.size() + 1);
    return word;
}

bool append_number(Buffer &out, const char *before, long long number)
{
    char text[32];
    const int length = snprintf(text, sizeof(text), "%s%lld", before, number);
    return out.append({text, static_cast<std::size_t>(length)});
}

/** A decimal number and nothing else. */
std::optional<long long> number_of(std::string_view word)
{
    long long number = 0;
    if (!take_number(word, number) || !word.empty()) {
        return std::nullopt;
    }
    return number;
}

// ---- the section's frame ----------------------------------------------------------------------

/** A hash that no change of a single byte leaves as it was. */
std::uint64_t check_of(std::string_view text)
{
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    }
    return hash;
}

struct Frame {
    explicit Frame(const char *database)
    {
        snprintf(begin, sizeof(begin), "\n##the %s database begin##\n", database);
        snprintf(end, sizeof(end), "##the %s database end##\n", database);
    }

    /** The line in front of a body. */
    void measure(std::string_view body)
    {
        snprintf(measures, sizeof(measures), "length %zu check %016llx\n", body.size(),
                 static_cast<unsigned long long>(check_of(body)));
    }

    char begin[kDatabaseNameSize + sizeof("\n##the  database begin##\n")];
    char end[kDatabaseNameSize + sizeof("##the  database end##\n")];
    char measures[64];
};

/** What a backup holds of a database; nothing when it holds none or a damaged one. */
std::optional<std::string_view> find_body(const char *database, std::string_view backup)
{
    Frame frame{database};
    backup = first_of(backup, backup.find("crc="));  // behind it nothing is checked
    // The last one counts: a value elsewhere in the backup may look like one, those here cannot.
    const std::size_t at = backup.rfind(frame.begin);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view rest = after(backup, at + strlen(frame.begin));
    const std::string_view measures = first_of(rest, rest.find('\n') + 1);
    const std::string_view inside = after(rest, measures.size());
    const std::string_view body = first_of(inside, inside.find('#'));
    frame.measure(body);
    if (measures != frame.measures || !after(inside, body.size()).starts_with(frame.end)) {
        return std::nullopt;
    }
    return body;
}

// ---- saving -----------------------------------------------------------------------------------

/** Calls @p visit with the name of each table of records; false when one call fails. */
template <typename Visit>
bool each_table(sqlite3 *connection, Visit visit)
{
    const Statement tables =
        prepare(connection,
                "SELECT name FROM sqlite_master AS m WHERE type='table' AND EXISTS "
                "(SELECT 1 FROM pragma_table_info(m.name) WHERE name='_id') ORDER BY name");
    if (tables == nullptr) {
        return false;
    }
    int step;
    while ((step = sqlite3_step(tables.get())) == SQLITE_ROW) {
        if (!visit(text_of(tables, 0).data())) {
            return false;
        }
    }
    return step == SQLITE_DONE;
}

/** The highest id that a table ever gave. */
long long last_id(sqlite3 *connection, const char *table)
{
    const Statement sequence = prepare(connection, "SELECT seq FROM sqlite_sequence WHERE name=?1");
    return sequence != nullptr && bind_text(sequence, 1, table) &&
                   sqlite3_step(sequence.get()) == SQLITE_ROW
               ? sqlite3_column_int64(sequence.get(), 0)
               : 0;
}

/** Writes the columns of a table and makes the statement that reads its rows. */
bool save_columns(sqlite3 *connection, const char *table, Buffer &body, Sql &query)
{
    const Statement columns = prepare(
        connection,
        "SELECT c.name, c.type, EXISTS (SELECT 1 FROM sqlite_master AS m WHERE m.type='index' AND "
        "m.name=?1||'/'||c.name) FROM pragma_table_info(?1) AS c WHERE c.name<>'_id'");
    if (columns == nullptr || !bind_text(columns, 1, table)) {
        return false;
    }
    Sql sql{sqlite3_mprintf("SELECT \"_id\"")};
    int step;
    while ((step = sqlite3_step(columns.get())) == SQLITE_ROW) {
        const std::string_view name = text_of(columns, 0);
        const bool is_integer = text_of(columns, 1) == "INTEGER";
        if (!body.append("column ") || !append_escaped(body, name) ||
            !body.append(is_integer ? " integer" : " text") ||
            !body.append(sqlite3_column_int(columns.get(), 2) != 0 ? " unique\n" : "\n")) {
            return false;
        }
        sql.reset(sqlite3_mprintf("%s,\"%w\"", sql.get(), name.data()));
    }
    query.reset(sqlite3_mprintf("%s FROM \"%w\" ORDER BY \"_id\"", sql.get(), table));
    return step == SQLITE_DONE && sql != nullptr;
}

bool save_value(const Statement &row, int place, Buffer &body)
{
    switch (sqlite3_column_type(row.get(), place)) {
        case SQLITE_NULL:
            return body.append(" n");
        case SQLITE_INTEGER:
            return append_number(body, " i", sqlite3_column_int64(row.get(), place));
        case SQLITE_BLOB: {
            const auto *const bytes =
                static_cast<const char *>(sqlite3_column_blob(row.get(), place));
            const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row.get(), place));
            return body.append(" b") && append_escaped(body, {bytes, size});
        }
        default:
            return body.append(" t") && append_escaped(body, text_of(row, place));
    }
}

bool save_table(sqlite3 *connection, const char *table, Buffer &body)
{
    Sql query;
    if (!body.append("table ") || !append_escaped(body, table) ||
        !append_number(body, " ", last_id(connection, table)) || !body.append("\n") ||
        !save_columns(connection, table, body, query)) {
        return false;
    }
    const Statement rows = prepare(connection, query.get());
    if (rows == nullptr) {
        return false;
    }
    int step;
    while ((step = sqlite3_step(rows.get())) == SQLITE_ROW) {
        bool saved = append_number(body, "row ", sqlite3_column_int64(rows.get(), 0));
        for (int i = 1; saved && i < sqlite3_column_count(rows.get()); ++i) {
            saved = save_value(rows, i, body);
        }
        if (!saved || !body.append("\n")) {
            return false;
        }
    }
    return step == SQLITE_DONE;
}

/** All tables as they were at one moment. A database that is missing has none. */
bool save_database(const char *name, Buffer &body)
{
    const Path path{name};
    if (access(path.text, F_OK) != 0 && errno == ENOENT) {
        return true;
    }
    const Connection connection = connect(path.text);
    return connection != nullptr && exec(connection.get(), "BEGIN") &&
           each_table(connection.get(),
                      [&](const char *table) { return save_table(connection.get(), table, body); });
}

/** Appends all of a text to a file or leaves the file as it was. */
bool append_to_file(const char *path, std::string_view text)
{
    const Fd fd{open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, kPrivateFile)};
    struct stat before;
    if (!fd || fstat(fd.get(), &before) != 0) {
        return false;
    }
    if (write_all(fd.get(), text)) {
        return true;
    }
    [[maybe_unused]] const int cut = ftruncate(fd.get(), before.st_size);
    return false;
}

// ---- loading ----------------------------------------------------------------------------------

/** Puts a backup in the place of all records, inside a transaction. */
class Loader
{
  public:
    explicit Loader(sqlite3 *connection) : connection_(connection) {}

    bool load(std::string_view body)
    {
        bool loaded = each_table(connection_, [&](const char *table) {
            return exec(connection_, Sql{sqlite3_mprintf("DELETE FROM \"%w\"", table)}.get());
        });
        while (loaded && !body.empty()) {
            loaded = load_line(take_until(body, '\n'));
        }
        return loaded && finish_table();
    }

  private:
    bool load_line(std::string_view line)
    {
        const std::string_view what = take_until(line, ' ');
        if (what == "table") {
            return finish_table() && begin_table(line);
        }
        if (table_ == nullptr) {
            return false;
        }
        return what == "column" ? add_column(line) : what == "row" && add_row(line);
    }

    /** A name in a block of its own; nullptr when the word is none. */
    static Allocated<char> name_of(std::string_view word)
    {
        Buffer name;
        if (!append_unescaped(name, word) || name.view().empty() ||
            memchr(name.view().data(), '\0', name.view().size()) != nullptr ||
            !name.append({"\0", 1})) {
            return nullptr;
        }
        return Allocated<char>{name.release()};
    }

    bool begin_table(std::string_view words)
    {
        table_ = name_of(take_until(words, ' '));
        const std::optional<long long> last = number_of(words);
        if (table_ == nullptr || !last || *last < 0 || *last > INT_MAX) {
            return false;
        }
        last_id_ = *last;
        columns_.reset(sqlite3_mprintf("\"_id\""));
        places_.reset(sqlite3_mprintf("?1"));
        count_ = 1;
        return exec(
            connection_,
            Sql{sqlite3_mprintf("CREATE TABLE IF NOT EXISTS \"%w\" (\"_id\" INTEGER PRIMARY "
                                "KEY AUTOINCREMENT CHECK (\"_id\" BETWEEN 1 AND %d))",
                                table_.get(), INT_MAX)}
                .get());
    }

    bool has_column(const char *column) const
    {
        const Statement query = prepare(
            connection_, "SELECT 1 FROM pragma_table_info(?1) WHERE name=?2 COLLATE NOCASE");
        return query != nullptr && bind_text(query, 1, table_.get()) &&
               bind_text(query, 2, column) && sqlite3_step(query.get()) == SQLITE_ROW;
    }

    bool add_column(std::string_view words)
    {
        const Allocated<char> name = name_of(take_until(words, ' '));
        const std::string_view type = take_until(words, ' ');
        const bool is_unique = words == "unique";
        if (name == nullptr || insert_ != nullptr || (type != "integer" && type != "text") ||
            (!words.empty() && !is_unique)) {
            return false;
        }
        if (!has_column(name.get()) &&
            !exec(connection_,
                  Sql{sqlite3_mprintf("ALTER TABLE \"%w\" ADD COLUMN \"%w\" %s", table_.get(),
                                      name.get(), type == "integer" ? "INTEGER" : "TEXT")}
                      .get())) {
            return false;
        }
        columns_.reset(sqlite3_mprintf("%s,\"%w\"", columns_.get(), name.get()));
        places_.reset(sqlite3_mprintf("%s,?%d", places_.get(), ++count_));
        return columns_ != nullptr && places_ != nullptr &&
               (!is_unique ||
                exec(connection_,
                     Sql{sqlite3_mprintf(
                             "CREATE UNIQUE INDEX IF NOT EXISTS \"%w/%w\" ON \"%w\" (\"%w\")",
                             table_.get(), name.get(), table_.get(), name.get())}
                         .get()));
    }

    bool bind(int place, std::string_view word)
    {
        const char kind = word.empty() ? '\0' : word.front();
        word = after(word, 1);
        if (kind == 'n') {
            return word.empty() && sqlite3_bind_null(insert_.get(), place) == SQLITE_OK;
        }
        if (kind == 'i') {
            const std::optional<long long> number = number_of(word);
            return number && sqlite3_bind_int64(insert_.get(), place, *number) == SQLITE_OK;
        }
        Buffer bytes;
        if ((kind != 't' && kind != 'b') || !bytes.reserve(1) || !append_unescaped(bytes, word)) {
            return false;
        }
        const std::string_view value = bytes.view();
        return kind == 't' ? bind_text(insert_, place, value)
                           : sqlite3_bind_blob(insert_.get(), place, value.data(),
                                               static_cast<int>(value.size()),
                                               SQLITE_TRANSIENT) == SQLITE_OK;
    }

    bool add_row(std::string_view words)
    {
        if (insert_ == nullptr) {
            insert_ = prepare(connection_,
                              Sql{sqlite3_mprintf("INSERT INTO \"%w\" (%s) VALUES (%s)",
                                                  table_.get(), columns_.get(), places_.get())}
                                  .get());
        }
        const std::optional<long long> id = number_of(take_until(words, ' '));
        if (insert_ == nullptr || !id || words.ends_with(' ') ||
            sqlite3_bind_int64(insert_.get(), 1, *id) != SQLITE_OK) {
            return false;
        }
        for (int place = 2; place <= count_; ++place) {
            if (!bind(place, take_until(words, ' '))) {
                return false;
            }
        }
        const bool added = words.empty() && sqlite3_step(insert_.get()) == SQLITE_DONE;
        sqlite3_reset(insert_.get());
        return added;
    }

    /** An id is never given twice: neither one from before nor one of the backup. */
    bool finish_table()
    {
        insert_.reset();
        if (table_ == nullptr || last_id_ == 0) {
            return true;
        }
        const long long last = last_id(connection_, table_.get());
        const Statement update = prepare(
            connection_, last > 0 ? "UPDATE sqlite_sequence SET seq=?2 WHERE name=?1"
                                  : "INSERT INTO sqlite_sequence (name,seq) VALUES (?1,?2)");
        return last >= last_id_ || (update != nullptr && bind_text(update, 1, table_.get()) &&
                                    sqlite3_bind_int64(update.get(), 2, last_id_) == SQLITE_OK &&
                                    sqlite3_step(update.get()) == SQLITE_DONE);
    }

    sqlite3 *connection_;
    Allocated<char> table_;
    long long last_id_ = 0;
    Sql columns_;  // of the insertion, separated by commas
    Sql places_;   // of their values
    int count_ = 0;
    Statement insert_;
};

bool load_database(const char *name, std::string_view body)
{
    const Path path{name};
    if (body.empty() && access(path.text, F_OK) != 0 && errno == ENOENT) {
        return true;  // it was missing when it was saved, too
    }
    make_database_file(path.text);
    const Connection connection = connect(path.text);
    if (connection == nullptr || !exec(connection.get(), "BEGIN IMMEDIATE")) {
        return false;
    }
    // What is not committed is gone with the connection.
    return Loader{connection.get()}.load(body) && exec(connection.get(), "COMMIT");
}

}  // namespace
}  // namespace platform

using namespace platform;

int db_backup_save(const char *table, const char *file)
{
    const Inside alone;
    Buffer body;
    Buffer section;
    if (!watch_forks() || !can_name_database(table) || file == nullptr || !body.reserve(1) ||
        !save_database(table, body)) {
        return 0;
    }
    Frame frame{table};
    frame.measure(body.view());
    return section.append(frame.begin) && section.append(frame.measures) &&
                   section.append(body.view()) && section.append(frame.end) &&
                   append_to_file(file, section.view())
               ? 1
               : 0;
}

int db_backup_load(const char *table, const char *buffer)
{
    const Inside alone;
    if (!watch_forks() || !can_name_database(table) || buffer == nullptr) {
        return 0;
    }
    const std::optional<std::string_view> body = find_body(table, buffer);
    return body && load_database(table, *body) ? 1 : 0;
}
