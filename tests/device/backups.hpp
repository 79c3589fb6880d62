// SPDX-License-Identifier: MIT
// What the stories about backups put into a device's databases, and the backups themselves.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/database.h"
#include "prod_common_systool.h"
#include "support/files.hpp"

namespace story
{

/** The tables of the policy database. */
inline constexpr const char *kPolicyKinds[] = {"wl_basic_policy", "wl_radio_policy",
                                               "reboot_policy", "wl_deploy_policy", "qvlan_policy"};

/** A table of a record database. */
inline db_table servers(const char *database)
{
    static constexpr db_col_t kColumns[] = {{0, "host", DB_STRING, 1, 64},
                                            {1, "port", DB_INT, 0, 0}};
    db_table table;
    EXPECT_NE(db_table_init(database, &table, "servers", kColumns, 2), 0) << database;
    return table;
}

inline void add_server(const char *database, const std::string &host, int port)
{
    db_table table = servers(database);
    db_val_t values[2];
    values[0].s = const_cast<char *>(host.c_str());
    values[1].n = port;
    EXPECT_GT(table.add(&table, values), 0);
}

/** What a backup of the device holds. */
inline std::string saved()
{
    char name[PROD_BACKUP_NAME_SIZE];
    EXPECT_EQ(prod_systool_sys_cfg_download(name), 0);
    return test::read_text(name);
}

inline int load(const std::string &file)
{
    return prod_systool_cfg_upload(file.c_str(), static_cast<long>(file.size()));
}

}  // namespace story
