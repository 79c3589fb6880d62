// SPDX-License-Identifier: MIT
#include "prod_common_debug.h"

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>
#include <vector>

#include "ipc/shared_memory.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::log_line;
using test::printed;
using test::Prints;

namespace
{

constexpr int kRed = 31;
constexpr int kShortColumn = 15;

bool shmdt_fails;

}  // namespace

extern "C" int shmdt(const void *address) noexcept
{
    static const auto real = test::next(shmdt, "shmdt");
    const int result = real(address);
    if (shmdt_fails) {
        errno = EINVAL;
        return -1;
    }
    return result;
}

namespace
{

std::string diagnostic(const std::string &function, const std::string &message)
{
    return test::console_line(kRed, function, message, kShortColumn);
}

/** Each test starts with an empty table, which the process stays attached to. */
class Debug : public testing::Test
{
  protected:
    void SetUp() override
    {
        memset(get_dbg_info(), 0, sizeof(prod_dbg_info_t));
        test::remove_all("/var/debug.prod.log");
    }

    static std::string name_of(int i) { return "module" + std::to_string(i); }
};

// ---- the table -------------------------------------------------------------------------------

TEST_F(Debug, AnUnknownModuleIsOff)
{
    EXPECT_EQ(get_dbg_level("prod"), PROD_DBG_OFF);
    EXPECT_EQ(get_dbg_info()->num, 0);
}

TEST_F(Debug, RegisterChangeRemove)
{
    EXPECT_EQ(set_dbg_level("prod", PROD_DBG_DEBUG), 1);
    EXPECT_EQ(get_dbg_level("prod"), PROD_DBG_DEBUG);
    EXPECT_EQ(get_dbg_info()->num, 1);
    EXPECT_EQ(get_dbg_info()->max_name_len, 4);
    EXPECT_EQ(set_dbg_level("prod", PROD_DBG_TRACE), 1);
    EXPECT_EQ(get_dbg_level("prod"), PROD_DBG_TRACE);
    EXPECT_EQ(get_dbg_info()->num, 1);
    EXPECT_EQ(set_dbg_level("prod", PROD_DBG_OFF), 1);
    EXPECT_EQ(get_dbg_level("prod"), PROD_DBG_OFF);
    EXPECT_EQ(get_dbg_info()->num, 0);
    EXPECT_EQ(get_dbg_info()->max_name_len, 4) << "the column never shrinks";
}

TEST_F(Debug, NamesAreExactAndCaseSensitive)
{
    set_dbg_level("prod", PROD_DBG_DEBUG);
    for (const char *other : {"pro", "prodd", "Prod", "", "p", "prod "}) {
        EXPECT_EQ(get_dbg_level(other), PROD_DBG_OFF) << other;
    }
    // Shorter than a word, exactly a word, and longer, each beside a neighbour of its kind.
    for (const char *name : {"a", "ab", "abc", "abcd", "abcde", "abcdefghi", "xbcdefghi"}) {
        EXPECT_EQ(get_dbg_level(name), PROD_DBG_OFF) << name;
        set_dbg_level(name, PROD_DBG_INFO);
        EXPECT_EQ(get_dbg_level(name), PROD_DBG_INFO) << name;
    }
}

TEST_F(Debug, OneAddressMayNameDifferentModules)
{
    set_dbg_level("one", PROD_DBG_DEBUG);
    set_dbg_level("two", PROD_DBG_TRACE);
    char name[8] = "one";
    EXPECT_EQ(get_dbg_level(name), PROD_DBG_DEBUG);
    EXPECT_EQ(get_dbg_level(name), PROD_DBG_DEBUG);
    strcpy(name, "two");
    EXPECT_EQ(get_dbg_level(name), PROD_DBG_TRACE);
    strcpy(name, "six");
    EXPECT_EQ(get_dbg_level(name), PROD_DBG_OFF);
    strcpy(name, "one");
    EXPECT_EQ(get_dbg_level(name), PROD_DBG_DEBUG);
    set_dbg_level("one", PROD_DBG_OFF);
    EXPECT_EQ(get_dbg_level(name), PROD_DBG_OFF);
    set_dbg_level("three", PROD_DBG_INFO);  // takes the slot that "one" had
    EXPECT_EQ(get_dbg_level(name), PROD_DBG_OFF);
}

TEST_F(Debug, LevelZeroForAnUnknownModule)
{
    EXPECT_EQ(set_dbg_level("unknown", PROD_DBG_OFF), 1);
    EXPECT_EQ(get_dbg_info()->num, 0);
    EXPECT_EQ(get_dbg_info()->array[0].valid, 0U);
    EXPECT_EQ(get_dbg_info()->max_name_len, 7);
}

TEST_F(Debug, The101stModuleIsRefused)
{
    for (int i = 0; i < PROD_DBG_MODULE_MAX; ++i) {
        ASSERT_EQ(set_dbg_level(name_of(i).c_str(), PROD_DBG_DEBUG), 1) << i;
    }
    EXPECT_EQ(set_dbg_level("late", PROD_DBG_DEBUG), 0);
    EXPECT_EQ(set_dbg_level("late", PROD_DBG_OFF), 0);
    EXPECT_EQ(get_dbg_level("late"), PROD_DBG_OFF);
    EXPECT_EQ(get_dbg_info()->num, PROD_DBG_MODULE_MAX);
    for (int i = 0; i < PROD_DBG_MODULE_MAX; ++i) {
        EXPECT_EQ(get_dbg_level(name_of(i).c_str()), PROD_DBG_DEBUG) << i;
    }
    EXPECT_EQ(set_dbg_level(name_of(99).c_str(), PROD_DBG_INFO), 1) << "a known one still changes";
    EXPECT_EQ(get_dbg_level(name_of(99).c_str()), PROD_DBG_INFO);
}

TEST_F(Debug, AFreedSlotIsUsedAgain)
{
    for (int i = 0; i < 5; ++i) {
        set_dbg_level(name_of(i).c_str(), PROD_DBG_DEBUG);
    }
    set_dbg_level(name_of(1).c_str(), PROD_DBG_OFF);
    EXPECT_EQ(get_dbg_level(name_of(4).c_str()), PROD_DBG_DEBUG);
    set_dbg_level("again", PROD_DBG_INFO);
    EXPECT_STREQ(get_dbg_info()->array[1].name, "again");
    EXPECT_EQ(get_dbg_info()->num, 5);
}

TEST_F(Debug, AChangeOfTheLastModuleBehindAGapFindsIt)
{
    set_dbg_level("a", PROD_DBG_DEBUG);
    set_dbg_level("b", PROD_DBG_DEBUG);
    set_dbg_level("a", PROD_DBG_OFF);
    set_dbg_level("b", PROD_DBG_TRACE);
    EXPECT_EQ(get_dbg_info()->num, 1);
    EXPECT_EQ(get_dbg_level("b"), PROD_DBG_TRACE);
    EXPECT_EQ(get_dbg_info()->array[0].valid, 0U);
}

TEST_F(Debug, SlotsBeyondNumAreNotRead)
{
    prod_dbg_info_t *const info = get_dbg_info();
    set_dbg_level("a", PROD_DBG_DEBUG);
    strcpy(info->array[5].name, "b");
    info->array[5].valid = 1;
    info->array[5].level = PROD_DBG_TRACE;
    EXPECT_EQ(get_dbg_level("b"), PROD_DBG_OFF);
    info->num = 2;
    EXPECT_EQ(get_dbg_level("b"), PROD_DBG_TRACE);
    info->num = 1;
    EXPECT_EQ(get_dbg_level("b"), PROD_DBG_OFF) << "a remembered place does not outlive num";
}

TEST_F(Debug, ALongNameIsStoredCutAndNotFoundWhole)
{
    const std::string whole(40, 'n');
    EXPECT_EQ(set_dbg_level(whole.c_str(), PROD_DBG_DEBUG), 1);
    EXPECT_EQ(get_dbg_level(whole.c_str()), PROD_DBG_OFF);
    EXPECT_EQ(get_dbg_level(whole.substr(0, 31).c_str()), PROD_DBG_DEBUG);
    EXPECT_EQ(get_dbg_level(whole.substr(0, 32).c_str()), PROD_DBG_OFF);
    EXPECT_EQ(get_dbg_info()->max_name_len, 31);
}

TEST_F(Debug, ATableThatAnotherProgramSpoiled)
{
    prod_dbg_info_t *const info = get_dbg_info();
    memset(info, 0xFF, sizeof(*info));  // no name has a NUL, num and max_name_len are 65535
    EXPECT_EQ(get_dbg_level("prod"), PROD_DBG_OFF);
    const std::string longest(31, '\xff');
    EXPECT_EQ(get_dbg_level((longest + '\xff').c_str()), PROD_DBG_OFF);
    const std::string shown = printed([] { show_dbg_level(nullptr); });
    EXPECT_THAT(shown, testing::HasSubstr("total 65535"));
    EXPECT_THAT(shown, testing::HasSubstr("[" + longest + "] level=2147483647"));
    const std::string line = printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", "lost"); });
    EXPECT_EQ(line.size(), 10U + 10239 - 5 + 4) << "the column takes all the room";
    EXPECT_EQ(set_dbg_level("prod", PROD_DBG_DEBUG), 0) << "no slot is free";
}

TEST_F(Debug, ASpoiledCountDoesNotWrapToNone)
{
    set_dbg_level("a", PROD_DBG_DEBUG);
    get_dbg_info()->num = 65535;
    EXPECT_EQ(set_dbg_level("b", PROD_DBG_TRACE), 1);
    EXPECT_EQ(get_dbg_level("a"), PROD_DBG_DEBUG);
    EXPECT_EQ(get_dbg_level("b"), PROD_DBG_TRACE);
}

TEST_F(Debug, ALevelIsSeenByOtherProcessesAtOnce)
{
    int go[2];
    int done[2];
    ASSERT_EQ(pipe(go), 0);
    ASSERT_EQ(pipe(done), 0);
    const pid_t child = test::start([&] {
        close(go[1]);
        char byte;
        while (read(go[0], &byte, 1) == 1) {
            byte = static_cast<char>('0' + get_dbg_level("shared"));
            ASSERT_EQ(write(done[1], &byte, 1), 1);
        }
    });
    close(go[0]);
    const auto asked = [&] {
        char byte = 'x';
        EXPECT_EQ(write(go[1], &byte, 1), 1);
        EXPECT_EQ(read(done[0], &byte, 1), 1);
        return byte;
    };
    EXPECT_EQ(asked(), '0');
    set_dbg_level("shared", PROD_DBG_TRACE);
    EXPECT_EQ(asked(), '5');
    set_dbg_level("shared", PROD_DBG_DEBUG);
    EXPECT_EQ(asked(), '3');
    close(go[1]);
    EXPECT_TRUE(test::ended_well(child));
}

TEST_F(Debug, BadArguments)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(get_dbg_level(nullptr), PROD_DBG_OFF); }),
                Prints(diagnostic("get_dbg_level", "invalid parameters")));
    EXPECT_THAT(printed([] { EXPECT_EQ(set_dbg_level(nullptr, PROD_DBG_DEBUG), 0); }),
                Prints(diagnostic("set_dbg_level", "invalid parameters")));
}

TEST_F(Debug, SettingDetachesWhatItAttached)
{
    set_dbg_level("prod", PROD_DBG_DEBUG);
    shmid_ds status;
    const int id = shmget(ftok("/var/run/shm.prod.debug.info", 1), 0, 0);
    ASSERT_EQ(shmctl(id, IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_nattch, 1U) << "only this process's lasting attachment";
    EXPECT_EQ(status.shm_segsz, 3604U);
}

TEST_F(Debug, AFailureToDetachIsReportedAndTheChangeStands)
{
    shmdt_fails = true;
    EXPECT_THAT(printed([] { EXPECT_EQ(set_dbg_level("prod", PROD_DBG_DEBUG), 1); }),
                Prints("\033\\[1;40;31m\\[PROD\\] [0-9]{4} set_dbg_level  : "
                       "Failed\\(22\\) to shmdt\\(0x[0-9a-f]+\\), Invalid argument\\.\n\033\\[0m"));
    shmdt_fails = false;
    EXPECT_EQ(get_dbg_level("prod"), PROD_DBG_DEBUG);
}

TEST_F(Debug, AnAttachedProcessLogsWhySettingFails)
{
    const std::string text = printed([] {
        rename("/var/run", "/var/run.away");
        EXPECT_EQ(set_dbg_level("prod", PROD_DBG_DEBUG), 0);
        rename("/var/run.away", "/var/run");
    });
    EXPECT_THAT(text,
                Prints(log_line(PROD_DBG_ERROR, "touch_file",
                                "Failed(2) to open /var/run/shm.prod.debug.info, No such file or "
                                "directory.") +
                       test::console_line(kRed, "get_shared_memory",
                                          "Failed(2) to call ftok(/var/run/shm.prod.debug.info, No "
                                          "such file or directory.") +
                       diagnostic("set_dbg_level", "Failed to get shared memory!")));
}

// ---- letters and colours ---------------------------------------------------------------------

TEST_F(Debug, LettersAndColours)
{
    const std::string letters = "-FEDIT--";
    const int colours[] = {30, 34, 31, 36, 37, -1, 30, 30};
    for (int level = 0; level < 8; ++level) {
        EXPECT_EQ(level2char(static_cast<prod_dbg_lvl_t>(level)),
                  letters[static_cast<std::size_t>(level)]);
        EXPECT_EQ(level2color(static_cast<prod_dbg_lvl_t>(level)), colours[level]);
    }
}

// ---- show_dbg_level --------------------------------------------------------------------------

TEST_F(Debug, ShowsTheTable)
{
    set_dbg_level("cfm", PROD_DBG_INFO);
    set_dbg_level("common_so", PROD_DBG_TRACE);
    const std::string cfm = "\033[0m....[cfm      ] level=4\033[0m\033[1;40;37m [I]\n\033[0m";
    const std::string common = "\033[0m....[common_so] level=5\033[0m\033[0m [T]\n\033[0m";
    const std::string all = "\nDEBUG status: (total 2)\n\n" + cfm + common + "\n";
    EXPECT_EQ(printed([] { show_dbg_level(nullptr); }), all);
    EXPECT_EQ(printed([] { show_dbg_level(""); }), all);
    EXPECT_EQ(printed([] { show_dbg_level("cfm"); }), cfm + "\n");
    EXPECT_EQ(printed([] { show_dbg_level("none"); }), "\n");
}

// ---- prod_debug ------------------------------------------------------------------------------

TEST_F(Debug, WhichLinesPass)
{
    // Without registration only errors and lines of level 0 pass.
    for (const int level : {-1, 1, 3, 4, 5, 6}) {
        EXPECT_EQ(printed([&] { prod_debug("f", 1, level, "prod", "x"); }), "") << level;
    }
    EXPECT_NE(printed([] { prod_debug("f", 1, 0, "prod", "x"); }), "");
    EXPECT_NE(printed([] { prod_debug("f", 1, 2, "prod", "x"); }), "");

    for (int registered = 1; registered <= 7; ++registered) {
        set_dbg_level("prod", static_cast<prod_dbg_lvl_t>(registered));
        for (int level = 0; level <= 8; ++level) {
            const bool passes = level == PROD_DBG_ERROR || level <= registered;
            EXPECT_EQ(!printed([&] { prod_debug("f", 1, level, "prod", "x"); }).empty(), passes)
                << level << " at " << registered;
        }
        EXPECT_EQ(printed([] { prod_debug("f", 1, -1, "prod", "x"); }), "");
    }
}

TEST_F(Debug, TheLineToTheLetter)
{
    setenv("TZ", "UTC", 1);
    tzset();
    set_dbg_level("common_so", PROD_DBG_DEBUG);
    set_dbg_level("prod", PROD_DBG_TRACE);
    const test::SimulatedTime time{1709474529};  // 3 March 2024, 14:02:09
    test::remove_all("/var/debug.common_so.log");
    EXPECT_EQ(
        printed([] { prod_debug("touch_file", 77, PROD_DBG_ERROR, "common_so", "no %s", "room"); }),
        "\033[1;40;31m14:02:09 [common_so.E]   77 touch_file               : no room\n\033[0m");
    EXPECT_EQ(test::read_text("/var/debug.common_so.log"),
              "0303 14:02:09 [common_so.E]   77 touch_file               : no room\n");
    EXPECT_EQ(printed([] { prod_debug("touch_file", 12345, PROD_DBG_DEBUG, "prod", "x"); }),
              "\033[1;40;36m14:02:09 [     prod.D] 12345 touch_file               : x\n\033[0m");
    EXPECT_EQ(printed([] {
                  prod_debug("a_function_with_a_very_long_name", -5, PROD_DBG_TRACE, "prod", "x");
              }),
              "\033[0m14:02:09 [     prod.T]   -5 a_function_with_a_very_lo: x\n\033[0m");
    EXPECT_EQ(printed([] { prod_debug("f", 0, PROD_DBG_OFF, "m", "x"); }),
              "\033[1;40;30m14:02:09 [        m.-]    0 f                        : x\n\033[0m");
    EXPECT_EQ(printed([] { prod_debug("f", 9999, PROD_DBG_FUNC, "prod", "x"); }),
              "\033[1;40;34m14:02:09 [     prod.F] 9999 f                        : x\n\033[0m");
    EXPECT_EQ(printed([] { prod_debug("f", 1, PROD_DBG_INFO, "prod", "x"); }),
              "\033[1;40;37m14:02:09 [     prod.I]    1 f                        : x\n\033[0m");
    EXPECT_FALSE(test::exists("/var/debug.prod.log")) << "only errors are kept";
}

TEST_F(Debug, ANameLongerThanTheColumnIsPrintedWhole)
{
    set_dbg_level("ab", PROD_DBG_DEBUG);
    EXPECT_THAT(printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "longer", "x"); }),
                testing::HasSubstr(" [longer.E] "));
}

TEST_F(Debug, ExactlyOneNewlineEndsTheLine)
{
    for (const char *ending : {"", "\n", "\n\n", "\n\n\n\n"}) {
        EXPECT_THAT(printed([&] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", "text%s", ending); }),
                    Prints(log_line(PROD_DBG_ERROR, "f", "text")));
    }
    EXPECT_THAT(printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", "two\nlines\n"); }),
                Prints(log_line(PROD_DBG_ERROR, "f", "two\nlines")));
}

TEST_F(Debug, ANulInTheMessageEndsIt)
{
    EXPECT_THAT(printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", "a\n%cb\n", '\0'); }),
                Prints(log_line(PROD_DBG_ERROR, "f", "a")));
    const std::string kept = test::read_text("/var/debug.prod.log");
    EXPECT_EQ(kept.substr(kept.size() - 4), ": a\n");
}

TEST_F(Debug, ALongMessageIsCutAt10239Characters)
{
    const std::string message(20000, 'm');
    const std::string text =
        printed([&] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", "%s", message.c_str()); });
    // Without the five of the date, with the colours on both sides.
    EXPECT_EQ(text.size(), 10U + 10239 - 5 + 4);
    EXPECT_EQ(text.substr(text.size() - 5), "m\033[0m") << "the newline is lost";
    EXPECT_EQ(test::read_text("/var/debug.prod.log").size(), 10239U);
}

TEST_F(Debug, NothingIsWrittenForNulls)
{
    EXPECT_EQ(printed([] { prod_debug(nullptr, 1, PROD_DBG_ERROR, "prod", "x"); }), "");
    EXPECT_THAT(printed([] { prod_debug("f", 1, PROD_DBG_ERROR, nullptr, "x"); }),
                Prints(diagnostic("get_dbg_level", "invalid parameters")));
    EXPECT_EQ(printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", nullptr); }), "");
    EXPECT_FALSE(test::exists("/var/debug.prod.log"));
}

TEST_F(Debug, ErrnoIsKept)
{
    // A file that cannot be opened for writing.
    ASSERT_EQ(mkdir("/var/debug.prod.log", 0755), 0);
    printed([] {
        errno = ENOTTY;
        prod_debug("f", 1, PROD_DBG_ERROR, "prod", "x");
        EXPECT_EQ(errno, ENOTTY);
    });
}

TEST_F(Debug, AllButTracesAreOutAtOnce)
{
    set_dbg_level("prod", static_cast<prod_dbg_lvl_t>(7));
    for (const int level : {0, 1, 2, 3, 4, 5, 6}) {
        const std::string text = printed([=] {
            const pid_t child = fork();
            if (child == 0) {
                setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
                prod_debug("f", 1, level, "prod", "x");
                raise(SIGKILL);  // what is still in the buffer is lost
            }
            EXPECT_EQ(test::status_of(child), 128 + SIGKILL);
        });
        EXPECT_EQ(text.empty(), level == PROD_DBG_TRACE) << level;
    }
}

TEST_F(Debug, WhatTheProgramPrintedBeforeComesFirst)
{
    EXPECT_THAT(printed([] {
                    printf("before ");
                    prod_debug("f", 1, PROD_DBG_ERROR, "prod", "x");
                    printf("after");
                }),
                Prints("before " + log_line(PROD_DBG_ERROR, "f", "x") + "after"));
}

// ---- the module's file -----------------------------------------------------------------------

TEST_F(Debug, ErrorsAreAppendedUntilTheFileIsFull)
{
    const auto one_error = [] { printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", "x"); }); };
    one_error();
    const std::string line = test::read_text("/var/debug.prod.log");
    one_error();
    EXPECT_EQ(test::read_text("/var/debug.prod.log").size(), 2 * line.size());

    test::write_text("/var/debug.prod.log", std::string(204799, 'x'));
    one_error();
    EXPECT_EQ(test::read_text("/var/debug.prod.log").size(), 204799 + line.size());

    test::write_text("/var/debug.prod.log", std::string(204800, 'x'));
    one_error();
    EXPECT_EQ(test::read_text("/var/debug.prod.log").size(), line.size()) << "the newest line only";
}

TEST_F(Debug, ThePathOfTheFileIsCut)
{
    const std::string name(100, 'n');
    printed([&] { prod_debug("f", 1, PROD_DBG_ERROR, name.c_str(), "x"); });
    const std::string cut = ("/var/debug." + name).substr(0, 61);
    EXPECT_TRUE(test::exists(cut));
    test::remove_all(cut);
}

TEST_F(Debug, AFullDiskLosesTheLineSilently)
{
    const test::MountedFolder full{"/var"};
    full.fill();
    EXPECT_THAT(printed([] { prod_debug("f", 1, PROD_DBG_ERROR, "prod", "x"); }),
                Prints(log_line(PROD_DBG_ERROR, "f", "x")));
}

/** From several threads at once, some of them the first to need the table. */
void log_from_threads()
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int line = 0; line < 100; ++line) {
                prod_debug("f", 1, PROD_DBG_ERROR, "threads", "whole");
                PROD_LOG_DEBUG("threads", "suppressed");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// ---- the macros for daemons ------------------------------------------------------------------

int evaluated;

int count_up()
{
    return ++evaluated;
}

TEST_F(Debug, ArgumentsOfASuppressedMessageAreNotEvaluated)
{
    evaluated = 0;
    EXPECT_EQ(printed([] {
                  PROD_LOG_DEBUG("prod", "%d", count_up());
                  PROD_LOG_INFO("prod", "%d", count_up());
                  PROD_LOG_TRACE("prod", "%d", count_up());
              }),
              "");
    EXPECT_EQ(evaluated, 0);
    set_dbg_level("prod", PROD_DBG_INFO);
    const std::string text = printed([] {
        PROD_LOG_DEBUG("prod", "%d", count_up());
        PROD_LOG_INFO("prod", "%d", count_up());
        PROD_LOG_TRACE("prod", "%d", count_up());
        PROD_LOG_ERROR("prod", "%d", count_up());
    });
    EXPECT_THAT(text, Prints(log_line(PROD_DBG_DEBUG, "operator()", "1") +
                             log_line(PROD_DBG_INFO, "operator()", "2") +
                             log_line(PROD_DBG_ERROR, "operator()", "3")));
}

void traced_function()
{
    PROD_LOG_ENTER("prod");
    PROD_LOG_LEAVE("prod");
}

TEST_F(Debug, FunctionTraces)
{
    EXPECT_THAT(test::printed_at(PROD_DBG_TRACE, traced_function),
                Prints(log_line(PROD_DBG_TRACE, "traced_function", "ENTER >>> traced_function") +
                       log_line(PROD_DBG_TRACE, "traced_function", "LEAVE <<< traced_function")));
    EXPECT_EQ(test::printed_at(PROD_DBG_INFO, traced_function), "");
}

// ---- without the table -----------------------------------------------------------------------

/** What this program prints when started anew for @p what: it has not attached the table yet. */
std::string printed_before_attaching(const char *what)
{
    return printed([&] {
        EXPECT_TRUE(test::in_a_child([=] {
            execl(program_invocation_name, "test", what, nullptr);
            FAIL() << strerror(errno);
        }));
    });
}

TEST_F(Debug, ThreadsMayLogAtOnce)
{
    test::remove_all("/var/debug.threads.log");
    const std::string text = printed_before_attaching("--threads-once");
    int lines = 0;
    for (std::size_t at = 0; at < text.size(); ++lines) {
        const std::size_t end = text.find("\033[0m", at) + 4;
        ASSERT_THAT(text.substr(at, end - at),
                    Prints(log_line(PROD_DBG_ERROR, "f", "whole", "threads")));
        at = end;
    }
    EXPECT_EQ(lines, 800);
    const std::string kept = test::read_text("/var/debug.threads.log");
    EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 800);
}

class WithoutTable : public testing::TestWithParam<bool>
{
};

TEST_P(WithoutTable, LoggingStaysAliveAndSilentInside)
{
    // /var/run missing, or there and read-only: the key file cannot be made either way.
    std::unique_ptr<test::MountedFolder> cover;
    if (GetParam()) {
        cover = std::make_unique<test::MountedFolder>("/var/run", "", true);
    } else {
        rename("/var/run", "/var/run.away");
    }
    const std::string failed = test::console_line(
        kRed, "get_shared_memory",
        "Failed(2) to call ftok(/var/run/shm.prod.debug.info, No such file or directory.");
    const std::string no_table =
        failed + diagnostic("get_dbg_info", "Failed to get shared memory!");
    const std::string log = printed_before_attaching("--log-once");
    const std::string level = printed_before_attaching("--level-once");
    const std::string set = printed_before_attaching("--set-once");
    const std::string show = printed_before_attaching("--show-once");
    cover.reset();
    if (!GetParam()) {
        rename("/var/run.away", "/var/run");
    }
    EXPECT_THAT(log,
                Prints(no_table + no_table + diagnostic("get_dbg_level", "invalid parameters")));
    EXPECT_THAT(level, Prints(no_table + diagnostic("get_dbg_level", "invalid parameters")));
    EXPECT_THAT(set, Prints(failed + diagnostic("set_dbg_level", "Failed to get shared memory!")));
    EXPECT_THAT(show, Prints(no_table));
}

INSTANTIATE_TEST_SUITE_P(VarRun, WithoutTable, testing::Bool(),
                         [](const auto &row) { return row.param ? "ReadOnly" : "Missing"; });

/** What printed_before_attaching() runs in its fresh process. */
const bool ran_once = [] {
    FILE *const line = fopen("/proc/self/cmdline", "re");
    char text[256] = {};
    const std::size_t size = fread(text, 1, sizeof(text) - 1, line);
    fclose(line);
    const std::string what = size > 5 ? text + strlen(text) + 1 : "";
    if (what == "--log-once") {
        prod_debug("f", 1, PROD_DBG_ERROR, "prod", "lost");
    } else if (what == "--level-once") {
        get_dbg_level("prod");
    } else if (what == "--threads-once") {
        log_from_threads();
    } else if (what == "--set-once") {
        set_dbg_level("prod", PROD_DBG_DEBUG);
    } else if (what == "--show-once") {
        show_dbg_level(nullptr);
    } else {
        return false;
    }
    fflush(stdout);
    _exit(0);
}();

}  // namespace
