// SPDX-License-Identifier: MIT
// SQL on database files, for programs linked with SQLite.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

namespace test
{

using Rows = std::vector<std::string>;
using Database = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

/** Opens a database file, which is made when there is none. */
inline Database database(const std::string &path)
{
    sqlite3 *handle = nullptr;
    EXPECT_EQ(sqlite3_open(path.c_str(), &handle), SQLITE_OK) << path;
    return {handle, &sqlite3_close};
}

/** Runs SQL; its rows, with "|" between their columns and "NULL" for what is none. */
inline Rows sql(const std::string &path, const std::string &statements)
{
    const Database file = database(path);
    Rows rows;
    const auto add = [](void *out, int count, char **values, char **) {
        std::string row;
        for (int i = 0; i < count; ++i) {
            row += (i > 0 ? "|" : "") + std::string{values[i] != nullptr ? values[i] : "NULL"};
        }
        static_cast<Rows *>(out)->push_back(row);
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(file.get(), statements.c_str(), add, &rows, nullptr), SQLITE_OK)
        << path << ": " << statements << ": " << sqlite3_errmsg(file.get());
    return rows;
}

}  // namespace test
