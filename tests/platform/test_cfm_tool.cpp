// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/files.hpp"

using test::read_text;
using test::write_text;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

/** Runs a command line; returns its exit status. */
int run(const std::string &command)
{
    const int status = system((command + " >/tmp/out 2>/tmp/err").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string out()
{
    return read_text("/tmp/out");
}

std::string err()
{
    return read_text("/tmp/err");
}

class CfmTool : public testing::Test
{
  protected:
    void SetUp() override
    {
        test::remove_all("/var/run/cfm");
        test::remove_all("/cfg/cfm.cfg");
        write_text("/etc/default.cfg", "# factory\nb=2\na=1\n");
    }
};

TEST_F(CfmTool, GetSetUnset)
{
    EXPECT_EQ(run("cfm get a"), 0);
    EXPECT_EQ(out(), "1\n");
    EXPECT_EQ(run("cfm get none"), 1);
    EXPECT_EQ(out() + err(), "");
    EXPECT_EQ(run("cfm set a 'x = \"y\" $z'"), 0);
    EXPECT_EQ(run("cfm get a"), 0);
    EXPECT_EQ(out(), "x = \"y\" $z\n");
    EXPECT_EQ(system("cfm get a >/dev/full 2>/tmp/err") >> 8, 1);
    EXPECT_EQ(err(), "cfm: a: No space left on device\n");
    EXPECT_EQ(run("cfm set a ''"), 0);
    EXPECT_EQ(run("cfm get a"), 0);
    EXPECT_EQ(out(), "\n");
    EXPECT_EQ(run("cfm set a=b 1"), 1);
    EXPECT_EQ(err(), "cfm: a=b: not stored\n");
    EXPECT_EQ(run("cfm unset a"), 0);
    EXPECT_EQ(run("cfm unset a"), 1);
    EXPECT_EQ(run("cfm get a"), 1);
}

TEST_F(CfmTool, ShowIsSorted)
{
    EXPECT_EQ(run("cfm set c 3"), 0);
    EXPECT_EQ(run("cfm show"), 0);
    EXPECT_EQ(out(), "a=1\nb=2\nc=3\n");
    write_text("/tmp/shown", std::string(1000, 'x'));
    EXPECT_EQ(run("cfm show /tmp/shown"), 0);
    EXPECT_EQ(out(), "");
    EXPECT_EQ(read_text("/tmp/shown"), "a=1\nb=2\nc=3\n");
    EXPECT_EQ(run("cfm show /tmp/no/such"), 1);
    EXPECT_EQ(err(), "cfm: /tmp/no/such: No such file or directory\n");
    EXPECT_EQ(run("cfm show /dev/full"), 1);
    EXPECT_EQ(system("cfm show >/dev/full 2>/dev/null") >> 8, 1);
    EXPECT_EQ(run("cfm unset a; cfm unset b; cfm unset c; cfm show"), 0);
    EXPECT_EQ(out(), "");
}

TEST_F(CfmTool, CommitAndRestore)
{
    EXPECT_EQ(run("cfm set a 9"), 0);
    EXPECT_FALSE(test::exists("/cfg/cfm.cfg"));
    EXPECT_EQ(run("cfm commit"), 0);
    EXPECT_EQ(read_text("/cfg/cfm.cfg"), "a=9\nb=2\n");
    EXPECT_EQ(run("cfm restore"), 0);
    EXPECT_EQ(read_text("/cfg/cfm.cfg"), "a=1\nb=2\n");
    test::remove_all("/etc/default.cfg");
    EXPECT_EQ(run("cfm restore"), 1);
    EXPECT_EQ(err(), "cfm: restore: nothing changed\n");
}

TEST_F(CfmTool, UploadReplacesAllAndCommits)
{
    write_text("/tmp/up", "x=1\r\n\n# comment\ny=a=b\nx=2");
    EXPECT_EQ(run("cfm Upload /tmp/up"), 0);
    EXPECT_EQ(run("cfm show"), 0);
    EXPECT_EQ(out(), "x=2\ny=a=b\n");
    EXPECT_EQ(read_text("/cfg/cfm.cfg"), "x=2\ny=a=b\n");
    write_text("/webroot/default.cfg", "z=1\n");
    EXPECT_EQ(run("cfm Upload"), 0);
    EXPECT_EQ(read_text("/cfg/cfm.cfg"), "z=1\n");
}

TEST_F(CfmTool, WhatShowWritesUploadTakes)
{
    EXPECT_EQ(run("cfm set long " + std::string(2307, 'v')), 0);
    EXPECT_EQ(run("cfm set long " + std::string(2308, 'v')), 1);
    EXPECT_EQ(run("cfm set ' blank ' ' = '"), 0);
    EXPECT_EQ(run("cfm show /tmp/backup"), 0);
    EXPECT_EQ(run("cfm restore"), 0);
    EXPECT_EQ(run("cfm Upload /tmp/backup"), 0);
    EXPECT_EQ(read_text("/cfg/cfm.cfg"), read_text("/tmp/backup"));
}

TEST_F(CfmTool, AFileThatIsNotSoundChangesNothing)
{
    EXPECT_EQ(run("cfm set a kept"), 0);
    const std::string good = "x=1\ny=2\n";
    for (const std::string &text :
         {std::string{}, std::string{"\n# nothing\n"}, good + "no equals sign\n", good + "=1\n",
          good + std::string(512, 'k') + "=1\n", good + "k=" + std::string(2308, 'v') + "\n",
          good + "k=a\rb\n", good + std::string("k=\0\n", 4), std::string(20000, '\xff')}) {
        write_text("/tmp/up", text);
        EXPECT_EQ(run("cfm Upload /tmp/up"), 1);
        EXPECT_EQ(err(), "cfm: /tmp/up: not taken, nothing changed\n");
    }
    EXPECT_EQ(run("cfm Upload /tmp/no.such"), 1);
    EXPECT_EQ(run("cfm Upload /tmp"), 1);
    test::remove_all("/webroot/default.cfg");
    EXPECT_EQ(run("cfm Upload"), 1);
    EXPECT_EQ(err(), "cfm: /webroot/default.cfg: No such file or directory\n");
}

TEST_F(CfmTool, NothingChangesWhenNothingCanBeWritten)
{
    EXPECT_EQ(run("cfm set a kept; cfm commit"), 0);
    write_text("/tmp/up", "x=1\n");
    {
        const test::MountedFolder read_only{"/cfg", "size=16k", true};
        EXPECT_EQ(run("cfm Upload /tmp/up"), 1);
        EXPECT_EQ(run("cfm commit"), 1);
        EXPECT_EQ(err(), "cfm: commit: not written\n");
    }
    EXPECT_EQ(run("cfm get a"), 0);
    EXPECT_EQ(out(), "kept\n");
    EXPECT_EQ(read_text("/cfg/cfm.cfg"), "a=kept\nb=2\n");
    test::remove_all("/var/run/cfm");
    const test::MountedFolder no_run{"/var/run", "size=16k", true};
    EXPECT_EQ(run("cfm show"), 1);
    EXPECT_EQ(err(), "cfm: show: the configuration cannot be read\n");
}

TEST_F(CfmTool, Usage)
{
    EXPECT_EQ(run("cfm --help"), 0);
    EXPECT_THAT(out(), HasSubstr("usage: cfm COMMAND"));
    EXPECT_EQ(run("cd /tmp; cfm show --help"), 0);
    EXPECT_THAT(out(), HasSubstr("usage: cfm COMMAND"));
    EXPECT_FALSE(test::exists("/tmp/--help"));
    const struct {
        const char *line;
        const char *why;
    } wrong[] = {{"cfm", "a command is missing"},
                 {"cfm nonsense", "nonsense: unknown command"},
                 {"cfm get", "get: an argument is missing"},
                 {"cfm get a b", "get: too many arguments"},
                 {"cfm set a", "set: an argument is missing"},
                 {"cfm commit now", "commit: too many arguments"},
                 {"cfm show a b", "show: too many arguments"},
                 {"cfm upload /tmp/up", "upload: unknown command"}};
    for (const auto &[line, why] : wrong) {
        EXPECT_EQ(run(line), 2) << line;
        EXPECT_THAT(err(), StartsWith(std::string{"cfm: "} + why + "\nusage: cfm COMMAND")) << line;
        EXPECT_EQ(out(), "") << line;
    }
}

}  // namespace
