// SPDX-License-Identifier: MIT
// The figures of a device at work, and its restart.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <list>
#include <sstream>
#include <string>
#include <vector>

#include "prod_common_system.h"
#include "prod_common_systool.h"
#include "stories.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/sockets.hpp"
#include "support/time.hpp"

using story::eventually;
using story::must;
using test::read_text;

namespace
{

std::string last_command;
std::atomic<bool> rebooted;

}  // namespace

/** The reboot itself is left out: it would end the story. */
extern "C" int system(const char *command)
{
    last_command = command;
    rebooted = true;
    return 0;
}

#ifdef __SANITIZE_THREAD__
/** Deliberate: nobody waits for the thread that restarts the device, which goes down at its end. */
extern "C" const char *__tsan_default_suppressions()
{
    return "thread:systool_reboot";
}
#endif

namespace
{

/** Processes that compute and nothing else, one for each processor, as long as this lives. */
class BusyLoops
{
  public:
    BusyLoops()
    {
        for (long i = 0; i < sysconf(_SC_NPROCESSORS_ONLN); ++i) {
            all_.emplace_back([](test::Child &) {
                const volatile bool busy = true;
                while (busy) {
                }
            });
        }
    }

  private:
    std::list<test::Child> all_;
};

/** Total and idle time of the processors, as a reader of its own. */
struct Times {
    Times()
    {
        const std::string text = read_text("/proc/stat");
        std::istringstream line{text.substr(0, text.find('\n'))};
        std::string name;
        line >> name;
        double value = 0;
        for (int i = 0; line >> value; ++i) {
            total += value;
            idle = i == 3 ? value : idle;
        }
    }
    double total = 0;
    double idle = 0;
};

TEST(Figures, CpuLoadFollowsABusyLoop)
{
    systool_get_cpu_percent();
    // Other work on the machine counts too, so the quiet second is compared with the kernel's own
    // account of it.
    sleep(1);
    systool_get_cpu_percent();
    const Times before;
    sleep(1);
    const int quiet = systool_get_cpu_percent();
    const Times after;
    const double passed = after.total - before.total;
    EXPECT_NEAR(quiet, 100 * (1 - (after.idle - before.idle) / passed), 10);
    {
        const BusyLoops loops;
        sleep(1);
        EXPECT_GE(systool_get_cpu_percent(), 90);
        EXPECT_GE(story::Json::answer_of("prodctl system cpu --json")["percent"].number(), 90);
    }
}

TEST(Figures, MemoryIsAsTheKernelTells)
{
    // The machine has other users, so the figures are compared with the kernel's at the same time.
    const auto free_kb = [] {
        const std::string text = read_text("/proc/meminfo");
        return std::stoi(text.substr(text.find("MemFree:") + 8));
    };
    EXPECT_NEAR(systool_get_memfree(), free_kb(), 32 << 10);
    const std::string text = read_text("/proc/meminfo");
    const double total = std::stod(text.substr(text.find("MemTotal:") + 9));
    int use = -1;
    ASSERT_EQ(systool_get_memInfo(&use), HLX_OK);
    EXPECT_NEAR(use, 100 * (1 - free_kb() / total), 3);
}

/** A web server in small: answers one request, and restarts the device meanwhile. */
class Page : public test::Daemon
{
  public:
    Page()
        : Daemon("/tmp/page", [](int client) {
              char request[64];
              EXPECT_GT(read(client, request, sizeof(request)), 0);
              systool_reboot();
              const std::string text{"restarting"};
              const u32 length = static_cast<u32>(text.size());
              EXPECT_EQ(write(client, &length, sizeof(length)), 4);
              EXPECT_EQ(write(client, text.data(), length), static_cast<ssize_t>(length));
              usleep(100000);
          })
    {
    }
};

void start_daemon(const std::string &name, const std::string &script)
{
    test::write_script("/tmp/" + name, script);
    must("/tmp/" + name + " </dev/null >/dev/null 2>&1 &");
    eventually(name + " runs", [&] { return story::run("prodctl check app " + name).status == 0; });
}

TEST(Figures, TheRestartLetsItsCallerAnswerFirst)
{
    start_daemon("pppd_l2tp",
                 "trap 'echo closed >/tmp/closed; exit' HUP\n"
                 "while :; do usleep 50000; done\n");
    start_daemon("multiwan", "while :; do usleep 50000; done\n");
    std::string said;
    const auto restart = [] {
        const Page page;
        char answer[64] = "";
        EXPECT_EQ(send_and_recv_from_program("/tmp/page", "restart", answer, sizeof(answer), 10),
                  0);
        EXPECT_STREQ(answer, "restarting");
        EXPECT_FALSE(rebooted) << "the caller has its answer before";
        eventually(
            "the PPP daemon has closed its connection", [] { return test::exists("/tmp/closed"); },
            2);
        EXPECT_EQ(story::run("prodctl check app multiwan").status, 0) << "its turn comes later";
        eventually("the restart", [] { return rebooted.load(); });
    };
    EXPECT_GE(test::seconds([&] { said = test::printed(restart); }), 5);
    EXPECT_EQ(story::run("prodctl check app multiwan").status, 1);
    EXPECT_EQ(last_command, "date;reboot");
    EXPECT_NE(said.find("rebooting ..."), std::string::npos) << said;
}

}  // namespace
