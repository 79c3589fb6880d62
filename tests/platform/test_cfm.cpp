// SPDX-License-Identifier: MIT
// The configuration manager. Each test that needs a store of a known content lays out its files and
// then works in a process of its own, since a process keeps the store that it opened.
#include "platform/cfm.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/files.hpp"

using test::read_text;
using test::write_text;

namespace
{

constexpr const char *kPersistent = "/cfg/cfm.cfg";
constexpr const char *kDefaults = "/etc/default.cfg";
constexpr const char *kWorkingCopy = "/var/run/cfm";

/** What is stored under a key, or "(absent)". */
std::string value_of(const std::string &key)
{
    char value[CFM_VALUE_SIZE] = "(absent)";
    const int found = GetValue(key.c_str(), value);
    EXPECT_EQ(found != 0, strcmp(value, "(absent)") != 0);
    return value;
}

bool set(const std::string &key, const std::string &value)
{
    return SetValue(key.c_str(), value.c_str()) != 0;
}

/** Starts @p code in a process of its own. */
pid_t start(const std::function<void()> &code)
{
    const pid_t pid = fork();
    if (pid == 0) {
        code();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    return pid;
}

/** Waits for a process; whether it ended well. */
bool ended_well(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/** Runs @p code in a process of its own, which finds a device as after a boot. */
void after_boot(const std::function<void()> &code)
{
    test::remove_all(kWorkingCopy);
    EXPECT_TRUE(ended_well(start(code)));
}

class Cfm : public testing::Test
{
  protected:
    void SetUp() override
    {
        test::remove_all(kPersistent);
        write_text(kDefaults, "# factory\n\nlan.ip=192.168.1.1\nsys.mode=3\n");
    }
};

TEST_F(Cfm, StartsWithTheDefaults)
{
    after_boot([] {
        EXPECT_EQ(value_of("lan.ip"), "192.168.1.1");
        EXPECT_EQ(value_of("sys.mode"), "3");
        EXPECT_EQ(value_of("no.such"), "(absent)");
        EXPECT_EQ(value_of("# factory"), "(absent)");
    });
}

TEST_F(Cfm, ThePersistentFileReplacesTheDefaultsWhole)
{
    write_text(kPersistent, "lan.ip=10.0.0.1\nempty=\nformula=a=b= c \r\n");
    after_boot([] {
        EXPECT_EQ(value_of("lan.ip"), "10.0.0.1");
        EXPECT_EQ(value_of("sys.mode"), "(absent)");
        EXPECT_EQ(value_of("empty"), "");
        EXPECT_EQ(value_of("formula"), "a=b= c ");
    });
}

TEST_F(Cfm, SetAndUnset)
{
    after_boot([] {
        EXPECT_EQ(SetValue("a", "1"), 1);
        EXPECT_EQ(value_of("a"), "1");
        EXPECT_EQ(SetValue("a", "22"), 1);
        EXPECT_EQ(value_of("a"), "22");
        EXPECT_EQ(SetValue("a", "22"), 1);
        EXPECT_EQ(SetValue("a", ""), 1);
        EXPECT_EQ(value_of("a"), "");
        EXPECT_EQ(UnSetValue("a"), 1);
        EXPECT_EQ(value_of("a"), "(absent)");
        EXPECT_EQ(UnSetValue("a"), 0);
    });
}

TEST_F(Cfm, CommitWritesSortedLines)
{
    after_boot([] {
        EXPECT_TRUE(set("b", "x=y \"$z\""));
        EXPECT_TRUE(set("a", ""));
        EXPECT_EQ(CommitCfm(), 1);
    });
    EXPECT_EQ(read_text(kPersistent), "a=\nb=x=y \"$z\"\nlan.ip=192.168.1.1\nsys.mode=3\n");
    EXPECT_FALSE(test::exists("/cfg/cfm.cfg.new"));
}

}  // namespace
