// SPDX-License-Identifier: MIT
// prodctl lock, mq and watch.
#include <signal.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "ipc/lock.h"
#include "ipc/msg_queue.h"
#include "prod_common_debug.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "tool.hpp"

using test::answer;
using test::eventually;
using test::Outcome;
using test::prodctl;
using test::refuses;
using test::Words;
using testing::HasSubstr;

namespace
{

int value_of(const char *name)
{
    const key_t key = ftok((std::string{"/var/run/lock."} + name).c_str(), 1);
    return key == -1 ? -1 : semctl(semget(key, 1, 0), 0, GETVAL);
}

// ---- lock run ---------------------------------------------------------------------------------

TEST(LockRun, TheCommandIsItself)
{
    EXPECT_EQ(
        prodctl({"lock", "run", "tool", "--", "sh", "-c", "echo out; echo err >&2; cat; exit 7"},
                "input\n"),
        (Outcome{7, "out\ninput\n", "err\n"}));
    EXPECT_EQ(prodctl({"lock", "run", "tool", "echo", "plain"}), (Outcome{0, "plain\n", ""}));
    EXPECT_EQ(prodctl({"--json", "lock", "run", "tool", "--", "echo", "--json"}),
              (Outcome{0, "--json\n", ""}));
    EXPECT_EQ(prodctl({"lock", "run", "tool", "--", "sh", "-c", "exit 2"}), (Outcome{2, "", ""}));
    EXPECT_EQ(prodctl({"lock", "run", "tool", "--", "sh", "-c", "kill -9 $$"}).status,
              128 + SIGKILL);
}

TEST(LockRun, HoldsTheLockMeanwhile)
{
    test::Child holder{[](test::Child &) {
        EXPECT_NE(prodctl({"lock", "run", "a/held", "--", "sleep", "1000"}).status, 0);
    }};
    eventually("the lock is taken", [] { return value_of("a_held") == 0; });
    EXPECT_EQ(ipc_lock_nowait("a_%s", "held"), 0);
    EXPECT_EQ(prodctl({"lock", "run", "a_held", "--timeout", "0", "--", "echo", "never"}),
              (Outcome{1, "", "prodctl lock run: the lock 'a_held' was not to be had in time\n"}));
    EXPECT_EQ(
        prodctl({"lock", "run", "a_held", "--timeout=1", "--json", "--", "echo", "never"}).out,
        "{\"error\":\"the lock 'a_held' was not to be had in time\"}\n");
    // The command may die of anything.
    test::run("killall -9 sleep");
    eventually("the lock is free", [] { return value_of("a_held") == 1; });
    holder.expect_status(0);
}

TEST(LockRun, WaitsForItsTurn)
{
    ASSERT_EQ(ipc_lock("turn"), 1);
    test::Child second{[](test::Child &) {
        EXPECT_EQ(prodctl({"lock", "run", "turn", "--", "touch", "/tmp/turn"}).status, 0);
    }};
    eventually("it waits",
               [] { return semctl(semget(ftok("/var/run/lock.turn", 1), 1, 0), 0, GETNCNT) == 1; });
    EXPECT_FALSE(test::exists("/tmp/turn"));
    ASSERT_EQ(ipc_unlock("turn"), 1);
    second.expect_status(0);
    EXPECT_TRUE(test::exists("/tmp/turn"));
    EXPECT_EQ(value_of("turn"), 1);
}

TEST(LockRun, ACommandThatCannotRunLeavesTheLockFree)
{
    EXPECT_EQ(prodctl({"lock", "run", "none", "--", "no-such-command"}),
              (Outcome{127, "",
                       "prodctl lock run: cannot run 'no-such-command': No such file or "
                       "directory\n"}));
    EXPECT_EQ(value_of("none"), 1);
    EXPECT_EQ(prodctl({"lock", "run", "none", "--json", "--", "/tmp"}).out,
              "{\"error\":\"cannot run '/tmp': Permission denied\"}\n");
    EXPECT_EQ(prodctl({"lock", "run", "none", "--", "/tmp"}).status, 126);
    EXPECT_EQ(value_of("none"), 1);
}

TEST(LockRun, WrongWords)
{
    refuses({"lock", "run", "name"}, "prodctl lock run",
            "an argument is missing, expected: NAME -- COMMAND [ARGUMENT...]");
    refuses({"lock", "run", "", "--", "true"}, "prodctl lock run", "a lock's name cannot be empty");
    for (const char *const wrong : {"-1", "1.5", "", "soon", "86401"}) {
        refuses({"lock", "run", std::string{"--timeout="} + wrong, "name", "--", "true"},
                "prodctl lock run",
                std::string{"--timeout: '"} + wrong + "' is no number from 0 to 86400");
    }
    refuses({"lock", "run", "name", "ls", "-l"}, "prodctl lock run", "unknown option '-l'");
}

// ---- mq ---------------------------------------------------------------------------------------

TEST(Mq, PutAndGet)
{
    EXPECT_EQ(prodctl({"mq", "put", "portal-sms", "call back"}), (Outcome{0, "", ""}));
    EXPECT_EQ(prodctl({"mq", "get", "35073"}), (Outcome{0, "call back\n", ""}));
    EXPECT_EQ(prodctl({"mq", "put", "0x8902", "second", "--json"}),
              (Outcome{0, "{\"queue\":35074,\"size\":256}\n", ""}));
    EXPECT_EQ(prodctl({"mq", "get", "portal-email", "--json"}),
              (Outcome{0, "{\"queue\":35074,\"text\":\"second\",\"hex\":\"7365636f6e64\"}\n", ""}));
}

TEST(Mq, TheRecordAsADaemonSeesIt)
{
    char record[64];
    EXPECT_EQ(prodctl({"mq", "put", "4711", "--size", "64"}, std::string("a\0b", 3)),
              (Outcome{0, "", ""}));
    ASSERT_EQ(mq_get(4711, record, 64, 0), 1);
    EXPECT_EQ(std::string(record, 64), std::string("a\0b", 3) + std::string(61, '\0'));

    ASSERT_EQ(mq_put(4711, "a\0\xFF", 3, 0), 1);
    const test::Json shown = answer(prodctl({"mq", "get", "4711", "--json"}));
    EXPECT_STREQ(cJSON_GetObjectItem(shown.get(), "text")->valuestring, "a");
    EXPECT_STREQ(cJSON_GetObjectItem(shown.get(), "hex")->valuestring, "6100ff");

    ASSERT_EQ(mq_put(4711, "\033[2Jx", 6, 0), 1);
    EXPECT_EQ(prodctl({"mq", "get", "4711"}).out, "?[2Jx\n") << "harmless for a terminal";
}

TEST(Mq, AnEmptyAndAFullQueue)
{
    EXPECT_EQ(prodctl({"mq", "get", "portal-facebook"}),
              (Outcome{1, "", "prodctl mq get: no record was taken\n"}));
    char record[8000] = {};
    while (mq_put(MQ_PORTAL_SEND_FACEBOOK, record, sizeof(record), 0) == 1) {
    }
    const Outcome full = prodctl({"mq", "put", "portal-facebook", "x", "--size=8000"});
    EXPECT_EQ(full.status, 1);
    EXPECT_THAT(full.err, HasSubstr("prodctl mq put: the record was not queued\n"));
    EXPECT_EQ(prodctl({"mq", "get", "portal-facebook", "--size=10"}).status, 1) << "it is longer";
    test::Child waiting{[](test::Child &) {
        EXPECT_EQ(prodctl({"mq", "put", "portal-facebook", "x", "--size=8000", "--wait"}).status,
                  0);
    }};
    usleep(300000);
    ASSERT_EQ(mq_get(MQ_PORTAL_SEND_FACEBOOK, record, sizeof(record), 0), 1);
    waiting.expect_status(0);
}

TEST(Mq, GetWaits)
{
    test::Child waiting{[](test::Child &) {
        EXPECT_EQ(prodctl({"mq", "get", "4712", "--wait"}), (Outcome{0, "at last\n", ""}));
    }};
    usleep(300000);
    EXPECT_EQ(prodctl({"mq", "put", "4712", "at last"}).status, 0);
    waiting.expect_status(0);
}

TEST(Mq, WrongWords)
{
    for (const char *const wrong : {"0", "portal", "12x", "4294967296", "", " 1", "+1"}) {
        refuses({"mq", "get", wrong}, "prodctl mq get",
                std::string{"'"} + wrong +
                    "' is no queue: portal-sms, portal-email or portal-facebook, or a number above "
                    "0");
    }
    refuses({"mq", "put", "1", "x", "--size", "0"}, "prodctl mq put",
            "--size: '0' is no number from 1 to 65536");
    refuses({"mq", "put", "1", "four", "--size", "3"}, "prodctl mq put",
            "the text is longer than the record of 3 bytes");
    refuses({"mq", "get", "1", "--size", "65537"}, "prodctl mq get",
            "--size: '65537' is no number from 1 to 65536");
}

// ---- watch ------------------------------------------------------------------------------------

/** Changes files as long as it lives, so that a watch that begins at any time sees some. */
class Busy
{
  public:
    explicit Busy(const std::string &path)
        : child_{[path](test::Child &) {
              for (;;) {
                  test::write_text(path, "x");
                  usleep(10000);
              }
          }}
    {
    }

  private:
    test::Child child_;
};

TEST(Watch, TellsWhatChanges)
{
    mkdir("/tmp/watch", 0755);
    const Busy busy{"/tmp/watch/file"};
    EXPECT_EQ(prodctl({"watch", "/tmp/watch", "--count", "2"}),
              (Outcome{0, "/tmp/watch file\n/tmp/watch file\n", ""}));
    eventually("it is there", [] { return test::exists("/tmp/watch/file"); });
    EXPECT_EQ(prodctl({"watch", "--count=1", "/tmp/watch/file", "/etc"}),
              (Outcome{0, "/tmp/watch/file\n", ""}));
    EXPECT_EQ(prodctl({"watch", "/tmp/watch", "--count", "1", "--json"}),
              (Outcome{0, "{\"changes\":[{\"path\":\"/tmp/watch\",\"name\":\"file\"}]}\n", ""}));
    const Outcome timed = prodctl({"watch", "/tmp/watch", "--timeout", "1"});
    EXPECT_EQ(timed.status, 0);
    EXPECT_THAT(timed.out, HasSubstr("/tmp/watch file\n"));
    const Outcome few = prodctl({"watch", "/tmp/watch", "--count", "1000000", "--timeout", "1"});
    EXPECT_EQ(few.status, 1) << "not as many as asked for";
    EXPECT_THAT(few.out, HasSubstr("/tmp/watch file\n"));
}

TEST(Watch, NothingChanges)
{
    mkdir("/tmp/still", 0755);
    EXPECT_EQ(prodctl({"watch", "/tmp/still", "--timeout", "1"}), (Outcome{1, "", ""}));
    EXPECT_EQ(prodctl({"watch", "/tmp/still", "--timeout", "1", "--json"}),
              (Outcome{1, "{\"changes\":[]}\n", ""}));
}

TEST(Watch, APathThatCannotBeWatched)
{
    const Outcome outcome = prodctl({"watch", "/tmp/absent", "--timeout", "1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("Failed(2) to inotify_add_watch /tmp/absent, No such file "
                                       "or directory."));
    EXPECT_THAT(outcome.err, HasSubstr("prodctl watch: '/tmp/absent' cannot be watched\n"));
}

TEST(Watch, NamesAreHarmlessForATerminal)
{
    mkdir("/tmp/hostile", 0755);
    const Busy busy{"/tmp/hostile/\033[2J\n"};
    EXPECT_EQ(prodctl({"watch", "/tmp/hostile", "--count", "1"}).out, "/tmp/hostile ?[2J?\n");
}

TEST(Watch, WrongWords)
{
    refuses({"watch"}, "prodctl watch", "an argument is missing, expected: PATH...");
    refuses({"watch", "/tmp", "--count", "0"}, "prodctl watch",
            "--count: '0' is no number from 1 to 1000000");
    refuses({"watch", "/tmp", "--timeout", "x"}, "prodctl watch",
            "--timeout: 'x' is no number from 1 to 86400");
    refuses({"watch", "/tmp", "--json"}, "prodctl watch",
            "with --json, --count or --timeout must say when the answer is complete");
}

}  // namespace
