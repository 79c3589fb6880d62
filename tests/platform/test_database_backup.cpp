// SPDX-License-Identifier: MIT
// Record databases in the backup file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/database.h"
#include "support/files.hpp"
#include "support/sql.hpp"

using test::exists;
using test::read_text;
using test::Rows;
using test::write_text;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace
{

constexpr const char *kBackup = "/tmp/backup";
constexpr const char *kDefault = "/cfg/database/default.db";

Rows sql(const std::string &statements)
{
    mkdir("/cfg/database", 0700);
    return test::sql(kDefault, statements);
}

/** A name or a text in SQL, between quotes of either kind. */
std::string quoted(const std::string &text, char quote = '"')
{
    std::string result(1, quote);
    for (const char c : text) {
        result += c == quote ? std::string(2, c) : std::string(1, c);
    }
    return result + quote;
}

/** A table as the record database makes it. */
std::string table_sql(const std::string &name)
{
    return "CREATE TABLE " + quoted(name) +
           " (\"_id\" INTEGER PRIMARY KEY AUTOINCREMENT CHECK (\"_id\" BETWEEN 1 AND "
           "2147483647));";
}

/** All of the database: what is in it and how it is made, as SQL literals. */
Rows contents()
{
    if (!exists(kDefault)) {
        return {};
    }
    Rows all = sql("select type, name from sqlite_master order by name");
    for (const std::string &table :
         sql("select name from sqlite_master where type='table' order by name")) {
        const std::string literal = quoted(table, '\'');
        std::string columns = literal;
        for (const std::string &name : sql("select name from pragma_table_info(" + literal + ")")) {
            columns += ",quote(" + quoted(name) + ")";
        }
        const Rows rows = sql("select " + columns + " from " + quoted(table) + " order by 1, 2");
        all.insert(all.end(), rows.begin(), rows.end());
    }
    return all;
}

/** What db_backup_save() makes of a database. */
std::string saved(const char *name = "default")
{
    test::remove_all(kBackup);
    EXPECT_EQ(db_backup_save(name, kBackup), 1);
    return read_text(kBackup);
}

class DatabaseBackup : public testing::Test
{
  protected:
    DatabaseBackup() { clear(); }
    ~DatabaseBackup() override { clear(); }

    static void clear()
    {
        test::remove_all("/cfg/database");
        test::remove_all(kBackup);
    }

    /** A database whose values hold every byte. */
    static void make_hostile()
    {
        sql(table_sql("servers") + "alter table servers add column \"host\" TEXT;" +
            "alter table servers add column \"port\" INTEGER;" +
            "create unique index \"servers/host\" on servers(host);" +
            table_sql("a \"b\" %w 'c'=#\n") +
            "alter table \"a \"\"b\"\" %w 'c'=#\n\" add column \"x y\" TEXT;" +
            "insert into servers(host,port) values('printer',9100),(NULL,NULL),('',-1),"
            "('crc=1',0),('##the qvlan configure end##',9223372036854775807),"
            "('\n##the default database begin##\nlength 0 check 0\n',2147483647),"
            "('\xff\xfe\x80',-9223372036854775807),(x'00ff61',1),('100%41 %',2);" +
            "insert into \"a \"\"b\"\" %w 'c'=#\n\"(\"x y\") values('v');" +
            "delete from servers where port=2;");
        const test::Database db = test::database(kDefault);
        sqlite3_stmt *insert = nullptr;
        sqlite3_prepare_v2(db.get(), "insert into servers(host) values(?1)", -1, &insert, nullptr);
        std::string bytes;
        for (int i = 0; i < 256; ++i) {
            bytes += static_cast<char>(i);
        }
        sqlite3_bind_text(insert, 1, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
        EXPECT_EQ(sqlite3_step(insert), SQLITE_DONE);
        sqlite3_finalize(insert);
    }
};

TEST_F(DatabaseBackup, ASectionOfText)
{
    sql(table_sql("servers") + "alter table servers add column host TEXT;" +
        "create unique index \"servers/host\" on servers(host);" +
        "alter table servers add column port INTEGER;" +
        "insert into servers values(4,'two words',9100),(7,NULL,-1);" +
        "delete from servers where _id=7;");
    EXPECT_EQ(saved(),
              "\n##the default database begin##\n"
              "length 85 check b2912634f3d03e2c\n"
              "table servers 7\ncolumn host text unique\ncolumn port integer\n"
              "row 4 ttwo%20words i9100\n"
              "##the default database end##\n");
}

TEST_F(DatabaseBackup, ItIsAppended)
{
    write_text(kBackup, "before");
    EXPECT_EQ(db_backup_save("auth", kBackup), 1);
    EXPECT_EQ(db_backup_save("ac", kBackup), 1);
    EXPECT_THAT(read_text(kBackup), StartsWith("before\n##the auth database begin##\n"));
    EXPECT_THAT(read_text(kBackup),
                HasSubstr("##the auth database end##\n\n##the ac database begin##\n"));
    EXPECT_FALSE(exists("/cfg/database/auth.db")) << "saving makes no database";
}

TEST_F(DatabaseBackup, EveryByteSurvives)
{
    make_hostile();
    const Rows before = contents();
    const std::string text = saved();
    EXPECT_THAT(text, Not(HasSubstr("crc=")));
    EXPECT_THAT(text, Not(HasSubstr("configure end##")));
    EXPECT_EQ(text.find('\0'), std::string::npos);

    test::remove_all(kDefault);
    EXPECT_EQ(db_backup_load("default", text.c_str()), 1);
    EXPECT_EQ(contents(), before);
    sql("create table check_bytes(x); insert into check_bytes select hex(host) from servers "
        "where _id=10");
    std::string digits;
    for (int i = 0; i < 256; ++i) {
        char byte[3];
        snprintf(byte, sizeof(byte), "%02X", static_cast<unsigned int>(i));
        digits += byte;
    }
    EXPECT_THAT(contents(), testing::Contains("check_bytes|'" + digits + "'"));
    sql("drop table check_bytes");
    struct stat status;
    EXPECT_EQ(stat(kDefault, &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);

    sql("update servers set port=5; delete from servers where _id<5");
    EXPECT_EQ(db_backup_load("default", text.c_str()), 1);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(saved(), text);
    ASSERT_EQ(stat(kBackup, &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << "it holds passwords";
}

TEST_F(DatabaseBackup, ItIsFoundInAWholeFile)
{
    make_hostile();
    const Rows before = contents();
    const std::string section = saved();
    const std::string other = saved("auth");
    sql("delete from servers");
    // What a value elsewhere forges does not count.
    const std::string forged =
        "a=1\r\nwl_policy:a=x\n##the default database begin##\nlength 0 check cbf29ce484222325\n"
        "##the default database end##\n";
    EXPECT_EQ(db_backup_load("default", (forged + section + other + "crc=1\n").c_str()), 1);
    EXPECT_EQ(contents(), before);
    sql("delete from servers");
    EXPECT_EQ(db_backup_load("default", ("crc=1\n" + section).c_str()), 0) << "behind the trailer";
    EXPECT_EQ(db_backup_load("default", (section + "crc=1\n" + forged).c_str()), 1);
    EXPECT_EQ(contents(), before);
}

TEST_F(DatabaseBackup, AnEmptyDatabase)
{
    const std::string nothing = saved();
    EXPECT_EQ(nothing,
              "\n##the default database begin##\nlength 0 check cbf29ce484222325\n"
              "##the default database end##\n");
    EXPECT_EQ(db_backup_load("default", nothing.c_str()), 1);
    EXPECT_FALSE(exists(kDefault));
    make_hostile();
    EXPECT_EQ(db_backup_load("default", nothing.c_str()), 1);
    sql("insert into servers(host) values('new')");
    EXPECT_THAT(contents(), testing::Contains("servers|11|'new'|NULL")) << "ids go on";
}

TEST_F(DatabaseBackup, WhatTheSectionDoesNotKnow)
{
    sql(table_sql("t") + "alter table t add column a TEXT; insert into t values(3,'x')");
    const std::string text = saved();
    test::remove_all(kDefault);
    sql(table_sql("t") + "alter table t add column b INTEGER; alter table t add column a TEXT;" +
        "insert into t values(90,5,'y');" + table_sql("other") +
        "insert into other default values; create table foreign_one(x);"
        "insert into foreign_one values(1)");
    EXPECT_EQ(db_backup_load("default", text.c_str()), 1);
    EXPECT_THAT(contents(), ElementsAre("table|foreign_one", "table|other", "table|sqlite_sequence",
                                        "table|t", "foreign_one|1", "sqlite_sequence|'other'|1",
                                        "sqlite_sequence|'t'|90", "t|3|NULL|'x'"));
}

TEST_F(DatabaseBackup, IdsGoOnFromTheHigherOfNowAndThen)
{
    const auto next_id = [] {
        sql("insert into t(a) values('new')");
        return contents().back();
    };
    sql(table_sql("t") +
        "alter table t add column a TEXT; insert into t values(3,'x'),(7,'y');"
        "delete from t where _id=7");
    const std::string text = saved();
    for (const char *const now : {"1", "5", "40"}) {
        test::remove_all(kDefault);
        sql(table_sql("t") + "alter table t add column a TEXT; insert into t values(" + now +
            ",'z')");
        EXPECT_EQ(db_backup_load("default", text.c_str()), 1);
        EXPECT_EQ(next_id(), std::string{"t|"} + (now[1] != '\0' ? "41" : "8") + "|'new'");
    }
    test::remove_all(kDefault);
    EXPECT_EQ(db_backup_load("default", text.c_str()), 1);
    EXPECT_EQ(next_id(), "t|8|'new'");
}

TEST_F(DatabaseBackup, WhateverIsDamagedIsRefusedWhole)
{
    sql(table_sql("t") + "alter table t add column a TEXT; insert into t values(3,'x'),(4,'y')");
    const std::string text = saved();
    sql("update t set a='now'");
    const Rows now = contents();
    for (std::size_t length = 0; length < text.size() - 1; ++length) {
        EXPECT_EQ(db_backup_load("default", text.substr(0, length).c_str()), 0) << length;
    }
    for (std::size_t place = 0; place < text.size(); ++place) {
        for (const char c : {'\0', '\n', '0', '#', '\xff'}) {
            std::string changed = text;
            changed[place] = c;
            if (changed != text) {
                EXPECT_EQ(db_backup_load("default", changed.c_str()), 0) << place << " " << c;
            }
        }
        EXPECT_EQ(
            db_backup_load("default", (text.substr(0, place) + text.substr(place + 1)).c_str()), 0)
            << place;
    }
    EXPECT_EQ(contents(), now);
}

/** A section whose frame is sound, around any body. */
std::string framed(const std::string &body)
{
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : body) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    }
    char measures[64];
    snprintf(measures, sizeof(measures), "length %zu check %016llx\n", body.size(),
             static_cast<unsigned long long>(hash));
    return std::string{"\n##the default database begin##\n"} + measures + body +
           "##the default database end##\n";
}

TEST_F(DatabaseBackup, ASoundFrameAroundNonsense)
{
    const std::string kTable = "table t 5\ncolumn a text\ncolumn b integer unique\n";
    sql(table_sql("t") + "alter table t add column a TEXT; insert into t values(3,'x')");
    const Rows before = contents();
    for (const std::string &body : {
             std::string{"row 1 tx i1\n"},
             std::string{"column a text\n"},
             std::string{"nonsense\n"},
             std::string{"\n"},
             std::string{"table\n"},
             std::string{"table t\n"},
             std::string{"table t x\n"},
             std::string{"table t -1\n"},
             std::string{"table t 2147483648\n"},
             std::string{"table  5\n"},
             std::string{"table %00 5\n"},
             std::string{"table a%00b 5\n"},
             std::string{"table sqlite_sequence 5\n"},
             std::string{"table sqlite_master 5\n"},
             std::string{"table t\" 5\n"},
             kTable + "column c blob\n",
             kTable + "column c text uniq\n",
             kTable + "column c\n",
             kTable + "column  text\n",
             kTable + "row 1 tx i1\ncolumn c text\n",
             kTable + "row 0 tx i1\n",
             kTable + "row -1 tx i1\n",
             kTable + "row 2147483648 tx i1\n",
             kTable + "row x tx i1\n",
             kTable + "row 1 tx\n",
             kTable + "row 1 tx i1 i1\n",
             kTable + "row 1 tx i1 \n",
             kTable + "row 1 tx  i1\n",
             kTable + "row 1 x i1\n",
             kTable + "row 1 t% i1\n",
             kTable + "row 1 t%4 i1\n",
             kTable + "row 1 t%4g i1\n",
             kTable + "row 1 t%4a i1\n",
             kTable + "row 1 t= i1\n",
             kTable + "row 1 nx i1\n",
             kTable + "row 1 n i\n",
             kTable + "row 1 n i1x\n",
             kTable + "row 1 n i9223372036854775808\n",
             kTable + "row 1 tx i1\nrow 1 ty i2\n",
             kTable + "row 1 tx i1\nrow 2 ty i1\n",
         }) {
        EXPECT_EQ(db_backup_load("default", framed(body).c_str()), 0) << body;
        EXPECT_EQ(contents(), before) << body;
    }
    EXPECT_EQ(db_backup_load("default", framed(kTable + "row 1 tx i1\nrow 2 t i2").c_str()), 1);
}

TEST_F(DatabaseBackup, WhatCannotBeOpenedOrWritten)
{
    sql(table_sql("t") + "insert into t default values");
    const std::string text = saved();
    const Rows before = contents();

    EXPECT_EQ(db_backup_save("default", "/nonesuch/backup"), 0);
    EXPECT_EQ(db_backup_save("default", "/tmp"), 0);
    for (const char *const name : {"", "a/b", ".", "..", ".hidden"}) {
        EXPECT_EQ(db_backup_save(name, kBackup), 0);
        EXPECT_EQ(db_backup_load(name, text.c_str()), 0);
    }
    const std::string long_name(64, 'n');
    EXPECT_EQ(db_backup_save(long_name.c_str(), kBackup), 0);
    EXPECT_EQ(db_backup_save(nullptr, kBackup), 0);
    EXPECT_EQ(db_backup_save("default", nullptr), 0);
    EXPECT_EQ(db_backup_load(nullptr, text.c_str()), 0);
    EXPECT_EQ(db_backup_load("default", nullptr), 0);
    EXPECT_EQ(db_backup_load("auth", text.c_str()), 0) << "no section of that name";
    EXPECT_EQ(read_text(kBackup), text);

    write_text("/cfg/database/auth.db", std::string(4096, 'x'));
    EXPECT_EQ(db_backup_save("auth", kBackup), 0) << "no database";
    EXPECT_EQ(read_text(kBackup), text);
    EXPECT_EQ(contents(), before);
}

TEST_F(DatabaseBackup, AFullMedium)
{
    {
        const test::MountedFolder full{"/tmp/full"};
        write_text("/tmp/full/backup", "before");
        sql(table_sql("t") + "alter table t add column a TEXT; insert into t values(1,'" +
            std::string(200000, 'x') + "')");
        EXPECT_EQ(db_backup_save("default", "/tmp/full/backup"), 0);
        EXPECT_EQ(read_text("/tmp/full/backup"), "before");
    }
    const std::string text = saved();
    test::remove_all("/cfg/database");
    const test::MountedFolder small{"/cfg/database", "size=64k"};
    sql(table_sql("t") + "insert into t default values");
    const Rows before = contents();
    EXPECT_EQ(db_backup_load("default", text.c_str()), 0);
    EXPECT_EQ(contents(), before);
}

TEST_F(DatabaseBackup, AFolderThatCannotBeWritten)
{
    sql(table_sql("t") + "insert into t default values");
    const std::string text = saved();
    test::remove_all("/cfg/database");
    const test::MountedFolder read_only{"/cfg/database", "size=64k", true};
    EXPECT_EQ(db_backup_load("default", text.c_str()), 0);
    EXPECT_THAT(contents(), IsEmpty());
}

}  // namespace
