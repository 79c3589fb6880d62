// SPDX-License-Identifier: MIT
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "prod_common_debug.h"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "tool.hpp"

using test::answer;
using test::log_line;
using test::Outcome;
using test::Prints;
using test::prodctl;
using test::refuses;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

class Debug : public testing::Test
{
  protected:
    void SetUp() override
    {
        memset(get_dbg_info(), 0, sizeof(prod_dbg_info_t));
        test::remove_all("/var/debug.prod.log");
    }
};

// ---- set and show -----------------------------------------------------------------------------

TEST_F(Debug, SetByNameAndByNumber)
{
    const struct {
        const char *word;
        const char *number;
        prod_dbg_lvl_t level;
    } kLevels[] = {{"func", "1", PROD_DBG_FUNC},
                   {"error", "2", PROD_DBG_ERROR},
                   {"debug", "3", PROD_DBG_DEBUG},
                   {"info", "4", PROD_DBG_INFO},
                   {"trace", "5", PROD_DBG_TRACE}};
    for (const auto &level : kLevels) {
        EXPECT_EQ(prodctl({"debug", "set", "prod", level.word}),
                  (Outcome{0, std::string{"prod "} + level.word + "\n", ""}));
        EXPECT_EQ(get_dbg_level("prod"), level.level);
        EXPECT_EQ(prodctl({"debug", "set", "wifi", level.number, "--json"}).out,
                  std::string{"{\"name\":\"wifi\",\"level\":"} + level.number +
                      ",\"level_name\":\"" + level.word + "\"}\n");
        EXPECT_EQ(get_dbg_level("wifi"), level.level);
    }
    EXPECT_EQ(prodctl({"debug", "set", "prod", "off"}).out, "prod off\n");
    EXPECT_EQ(prodctl({"debug", "set", "wifi", "0"}).out, "wifi off\n");
    EXPECT_EQ(get_dbg_info()->num, 0);
}

TEST_F(Debug, SetRefuses)
{
    for (const char *const level : {"6", "-1", "loud", "", "3x", "99999999999999999999", " 3"}) {
        refuses({"debug", "set", "prod", level}, "prodctl debug set",
                std::string{"'"} + level +
                    "' is no level: off, func, error, debug, info or trace, or 0 to 5");
    }
    for (const std::string &module : {std::string{}, std::string(32, 'm')}) {
        refuses({"debug", "set", module, "3"}, "prodctl debug set",
                "a module's name has 1 to 31 characters");
    }
    EXPECT_EQ(get_dbg_info()->num, 0);
    EXPECT_EQ(prodctl({"debug", "set", std::string(31, 'm'), "3"}).status, 0);
}

TEST_F(Debug, The101stModule)
{
    for (int i = 0; i < PROD_DBG_MODULE_MAX; ++i) {
        ASSERT_EQ(set_dbg_level(("m" + std::to_string(i)).c_str(), PROD_DBG_DEBUG), 1);
    }
    const Outcome outcome = prodctl({"debug", "set", "late", "3", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "{\"error\":\"the level was not set: no table, or 100 modules are registered\"}\n");
    EXPECT_EQ(
        outcome.err,
        "prodctl debug set: the level was not set: no table, or 100 modules are registered\n");
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(
                  answer(prodctl({"debug", "show", "--json"})).get(), "modules")),
              100);
}

TEST_F(Debug, Show)
{
    EXPECT_EQ(prodctl({"debug", "show"}), (Outcome{0, "\nDEBUG status: (total 0)\n\n\n", ""}));
    EXPECT_EQ(prodctl({"debug", "show", "--json"}), (Outcome{0, "{\"modules\":[]}\n", ""}));
    set_dbg_level("prod", PROD_DBG_DEBUG);
    set_dbg_level("wifi", PROD_DBG_TRACE);
    EXPECT_EQ(prodctl({"debug", "show"}).out,
              "\nDEBUG status: (total 2)\n\n....[prod] level=3 [D]\n....[wifi] level=5 [T]\n\n");
    EXPECT_EQ(prodctl({"debug", "show", "--json"}).out,
              "{\"modules\":[{\"name\":\"prod\",\"level\":3,\"level_name\":\"debug\"},"
              "{\"name\":\"wifi\",\"level\":5,\"level_name\":\"trace\"}]}\n");
}

TEST_F(Debug, ShowOne)
{
    set_dbg_level("prod", PROD_DBG_DEBUG);
    set_dbg_level("wifi", PROD_DBG_TRACE);
    EXPECT_EQ(prodctl({"debug", "show", "wifi"}), (Outcome{0, "....[wifi] level=5 [T]\n\n", ""}));
    EXPECT_EQ(prodctl({"debug", "show", "wifi", "--json"}).out,
              "{\"modules\":[{\"name\":\"wifi\",\"level\":5,\"level_name\":\"trace\"}]}\n");
    const std::string message = "prodctl debug show: module 'lan' is not registered\n";
    EXPECT_EQ(prodctl({"debug", "show", "lan"}), (Outcome{1, "", message}));
    EXPECT_EQ(prodctl({"debug", "show", "lan", "--json"}),
              (Outcome{1, "{\"error\":\"module 'lan' is not registered\"}\n", message}));
}

TEST_F(Debug, ATableThatAnotherProcessSpoilt)
{
    prod_dbg_info_t *const info = get_dbg_info();
    info->num = 65535;
    info->max_name_len = 65535;
    for (prod_dbg_cb_t &slot : info->array) {
        memset(slot.name, '\xff', sizeof(slot.name));
        slot.valid = 1;
        slot.level = 77;
    }
    const test::Json modules = answer(prodctl({"debug", "show", "--json"}));
    const cJSON *const list = cJSON_GetObjectItem(modules.get(), "modules");
    EXPECT_EQ(cJSON_GetArraySize(list), 100);
    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(list->child, "level_name")), "unknown");
    EXPECT_EQ(prodctl({"debug", "show"}).status, 0);
}

TEST_F(Debug, NoTable)
{
    // The key file cannot be made, so there is no segment to attach.
    const test::MountedFolder nothing{"/var/run", "size=16k", true};
    for (const test::Words &call : {test::Words{"debug", "show"}, {"debug", "set", "prod", "3"}}) {
        const Outcome outcome = prodctl(call);
        EXPECT_EQ(outcome.status, 1) << outcome;
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(prodctl({"debug", "show", "--json"}).out,
              "{\"error\":\"the table of debug levels cannot be had\"}\n");
}

// ---- running processes ------------------------------------------------------------------------

/** A daemon: logs a line of level 4 again and again, each followed by a dot on another stream. */
class Daemon
{
  public:
    Daemon()
    {
        EXPECT_EQ(pipe(lines_), 0);
        EXPECT_EQ(pipe(ticks_), 0);
        EXPECT_EQ(pipe(go_), 0);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(lines_[1], STDOUT_FILENO);
            char byte;
            while (read(go_[0], &byte, 1) == 1) {
                PROD_LOG_INFO("prod", "at work");
                fflush(stdout);
                if (write(ticks_[1], ".", 1) != 1) {
                    break;
                }
            }
            _exit(0);
        }
    }
    ~Daemon()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        for (const int end : {lines_[0], lines_[1], ticks_[0], ticks_[1], go_[0], go_[1]}) {
            close(end);
        }
    }

    /** What its next log call prints. */
    std::string next() const
    {
        char byte = 0;
        EXPECT_EQ(write(go_[1], &byte, 1), 1);
        EXPECT_EQ(read(ticks_[0], &byte, 1), 1);
        // A line that was written stands in the pipe before the tick does; a mark behind it ends
        // the reading.
        EXPECT_EQ(write(lines_[1], "\n#", 2), 2);
        std::string text;
        while (!text.ends_with("\n#") && read(lines_[0], &byte, 1) == 1) {
            text += byte;
        }
        text.resize(text.size() - 2);
        return text;
    }

  private:
    int lines_[2];
    int ticks_[2];
    int go_[2];
    pid_t pid_;
};

TEST_F(Debug, ASetLevelReachesRunningProcessesAtOnce)
{
    const Daemon first;
    const Daemon second;
    EXPECT_EQ(first.next(), "");
    for (const Daemon *const daemon : {&first, &second}) {
        ASSERT_EQ(prodctl({"debug", "set", "prod", "info"}).status, 0);
        EXPECT_THAT(daemon->next(), Prints(log_line(PROD_DBG_INFO, "Daemon", "at work")));
        ASSERT_EQ(prodctl({"debug", "set", "prod", "debug"}).status, 0);
        EXPECT_EQ(daemon->next(), "") << "level 4 is above 3";
        ASSERT_EQ(prodctl({"debug", "set", "prod", "trace"}).status, 0);
        EXPECT_THAT(daemon->next(), Prints(log_line(PROD_DBG_INFO, "Daemon", "at work")));
        ASSERT_EQ(prodctl({"debug", "set", "prod", "off"}).status, 0);
        EXPECT_EQ(daemon->next(), "");
    }
}

// ---- log --------------------------------------------------------------------------------------

TEST_F(Debug, LogGoesWhereProgramsLog)
{
    EXPECT_EQ(prodctl({"debug", "log", "prod", "info", "hidden"}), (Outcome{0, "", ""}));
    set_dbg_level("prod", PROD_DBG_TRACE);
    for (const auto level : {PROD_DBG_FUNC, PROD_DBG_DEBUG, PROD_DBG_INFO, PROD_DBG_TRACE}) {
        const Outcome outcome =
            prodctl({"debug", "log", "prod", std::to_string(level), "two", "words"});
        EXPECT_THAT(outcome.out, Prints(log_line(level, "prodctl", "two words")));
        EXPECT_EQ(outcome.err, "");
    }
    EXPECT_FALSE(test::exists("/var/debug.prod.log"));
    EXPECT_THAT(
        prodctl({"debug", "log", "--function", "dhcp_event", "prod", "error", "--", "-x %s"}).out,
        Prints(log_line(PROD_DBG_ERROR, "dhcp_event", "-x %s")));
    EXPECT_THAT(test::read_text("/var/debug.prod.log"),
                HasSubstr("dhcp_event               : -x %s\n"));
}

TEST_F(Debug, LogAnswersInJson)
{
    EXPECT_EQ(prodctl({"debug", "log", "prod", "info", "x", "--json"}).out,
              "{\"name\":\"prod\",\"level\":4,\"written\":false}\n");
    const Outcome outcome = prodctl({"debug", "log", "prod", "error", "x", "--json"});
    EXPECT_EQ(outcome.out, "{\"name\":\"prod\",\"level\":2,\"written\":true}\n");
    EXPECT_THAT(outcome.err, Prints(log_line(PROD_DBG_ERROR, "prodctl", "x")));
}

TEST_F(Debug, LogRefuses)
{
    refuses({"debug", "log", "prod", "off", "x"}, "prodctl debug log",
            "'off' is no level: off, func, error, debug, info or trace, or 0 to 5");
    refuses({"debug", "log", "", "info", "x"}, "prodctl debug log",
            "a module's name has 1 to 31 characters");
    refuses({"debug", "log", "prod", "info"}, "prodctl debug log",
            "an argument is missing, expected: MODULE LEVEL TEXT...");
}

TEST_F(Debug, ALongLineIsCutAsEveryLogLine)
{
    const Outcome outcome = prodctl({"debug", "log", "prod", "error", std::string(20000, 'x')});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("\033[1;40;31m"));
    EXPECT_LT(outcome.out.size(), 10260U);
    EXPECT_GT(outcome.out.size(), 10200U);
}

}  // namespace
