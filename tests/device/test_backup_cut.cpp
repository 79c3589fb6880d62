// SPDX-License-Identifier: MIT
// Saving and loading a backup, cut short by a kill before each of their steps, or before every Nth
// where programs run N times slower.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>

#include "backups.hpp"
#include "platform/cfm.h"
#include "platform/process.h"
#include "prod_common_cfm.h"
#include "prod_common_systool.h"
#include "stories.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/sql.hpp"
#include "support/time.hpp"

using story::kPolicyKinds;
using story::must;
using story::saved;
using test::printed;
using test::read_text;
using test::Rows;
using test::sql;

namespace
{

bool counting;  // in the child that is to be killed
int steps;      // that it has taken
int last_step;  // before which it dies

void step()
{
    if (counting && ++steps == last_step) {
        kill(getpid(), SIGKILL);
    }
}

}  // namespace

// What saving and loading are made of: commands, SQL statements, writes to files.
extern "C" {

int doSystemCmd(const char *format, ...)
{
    char command[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(command, sizeof(command), format, args);
    va_end(args);
    step();
    return system(command);
}

int sqlite3_exec(sqlite3 *database, const char *sql, int (*callback)(void *, int, char **, char **),
                 void *argument, char **message)
{
    step();
    return test::next(sqlite3_exec, "sqlite3_exec")(database, sql, callback, argument, message);
}

int sqlite3_step(sqlite3_stmt *statement)
{
    step();
    return test::next(sqlite3_step, "sqlite3_step")(statement);
}

int fflush(FILE *stream)
{
    step();
    return test::next(fflush, "fflush")(stream);
}

ssize_t write(int fd, const void *data, size_t size)
{
    step();
    return test::next(write, "write")(fd, data, size);
}
}

namespace
{

constexpr const char *kDatabases[] = {"default", "auth"};

/** What saving and loading work on. */
struct State {
    std::string settings = must("cfm show");
    std::string persistent = read_text("/cfg/cfm.cfg");
    Rows databases[2];
    Rows policies[5];

    State()
    {
        for (int i = 0; i < 2; ++i) {
            const std::string file = std::string{"/cfg/database/"} + kDatabases[i] + ".db";
            EXPECT_EQ(sql(file, "pragma integrity_check"), Rows{"ok"});
            databases[i] = sql(file, "select host, port from servers order by host");
        }
        EXPECT_EQ(sql(PROD_POLICY_DATABASE, "pragma integrity_check"), Rows{"ok"});
        for (int i = 0; i < 5; ++i) {
            policies[i] =
                sql(PROD_POLICY_DATABASE, std::string{"select * from "} + kPolicyKinds[i]);
        }
    }

    bool operator==(const State &) const = default;
};

int load(const std::string &file)
{
    int result = 0;
    printed([&] { result = story::load(file); });
    return result;
}

/** A backup of a device whose every part bears a mark. */
std::string backup_of(const std::string &mark)
{
    SetValue("lan.ip", ("192.168." + mark + ".1").c_str());
    EXPECT_NE(CommitCfm(), 0);
    for (const char *const kind : kPolicyKinds) {
        sql(PROD_POLICY_DATABASE, std::string{"delete from "} + kind);
        sql(PROD_POLICY_DATABASE,
            std::string{"insert into "} + kind + "(name) values('" + mark + "'),('more')");
    }
    for (const char *const name : kDatabases) {
        story::add_server(name, "host" + mark, 1);
    }
    return saved();
}

/**
 * Runs @p code in a process that is killed before a step.
 * @return whether it was; it is not when there are fewer steps
 */
bool cut_before(int which, const std::function<void()> &code)
{
    const int status = test::status_of(test::start([&] {
        last_step = which;
        counting = true;
        code();
        counting = false;
    }));
    EXPECT_TRUE(status == 0 || status == 128 + SIGKILL) << status;
    return status != 0;
}

class BackupCut : public testing::Test
{
  protected:
    BackupCut()
    {
        EXPECT_EQ(prod_download_ac_policy(), PAV_RET_OK);  // from the template
        first_ = backup_of("7");
        second_ = backup_of("8");
    }

    test::SimulatedTime no_waiting_;
    std::string first_;
    std::string second_;
};

TEST_F(BackupCut, SavingChangesNothing)
{
    const State before;
    int step = 1;
    while (cut_before(step, [] { saved(); })) {
        ASSERT_EQ(State{}, before) << "step " << step;
        step += test::slowdown();
    }
    EXPECT_GT(step, 40);
    EXPECT_EQ(load(saved()), CFG_UPGRADE_OK) << "what is left of the last one does not matter";
}

TEST_F(BackupCut, LoadingLeavesEveryPartAsItWasOrAsItIsToBe)
{
    ASSERT_EQ(load(second_), CFG_UPGRADE_OK);
    const State after;
    ASSERT_EQ(load(first_), CFG_UPGRADE_OK);
    const State before;
    int step = 1;
    while (cut_before(step, [&] { load(second_); })) {
        const State now;
        const std::string where = "step " + std::to_string(step);
        // The configuration is whole, on the persistent partition too, and the last to change.
        EXPECT_TRUE(now.settings == before.settings || now.settings == after.settings) << where;
        EXPECT_EQ(now.persistent, now.settings) << where;
        // So is each database, and they are the first.
        bool databases_done = true;
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(now.databases[i] == before.databases[i] ||
                        now.databases[i] == after.databases[i])
                << where;
            databases_done = databases_done && now.databases[i] == after.databases[i];
        }
        // Kinds of policies are emptied one by one and filled one by one.
        bool policies_done = true;
        bool policies_begun = false;
        for (int i = 0; i < 5; ++i) {
            EXPECT_TRUE(now.policies[i] == before.policies[i] || now.policies[i].empty() ||
                        now.policies[i] == after.policies[i])
                << where << testing::PrintToString(now.policies[i]);
            policies_done = policies_done && now.policies[i] == after.policies[i];
            policies_begun = policies_begun || now.policies[i] != before.policies[i];
        }
        EXPECT_TRUE(databases_done || !policies_begun) << where;
        EXPECT_TRUE(policies_done || now.settings == before.settings) << where;

        ASSERT_EQ(load(first_), CFG_UPGRADE_OK);
        ASSERT_EQ(State{}, before) << "another backup after " << where;
        step += test::slowdown();
    }
    EXPECT_GT(step, 60);
}

}  // namespace
