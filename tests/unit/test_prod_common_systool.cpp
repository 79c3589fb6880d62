// SPDX-License-Identifier: MIT
#include "prod_common_systool.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/process.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::console_line;
using test::log_line;
using test::printed;
using test::Prints;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr const char *kMemory = "/proc/meminfo";
constexpr const char *kCpu = "/proc/stat";

/** What the next openings of a file find instead of it; the last text serves all that follow. */
struct Instead {
    std::vector<std::string> texts;
    int error = 0;  // of each opening, unless 0
    std::size_t opened = 0;
};
std::map<std::string, Instead> instead;

bool no_local_time;
int thread_error;
pthread_t reboot_thread;
bool default_attributes;

/** What the reboot does to the device, and how long after its start. */
struct Step {
    std::string what;
    long long seconds;
    bool operator==(const Step &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const Step &step)
{
    return stream << step.what << " at " << step.seconds << " s";
}

std::mutex mutex;
std::condition_variable changed;
std::vector<Step> steps;
bool held;  // the reboot's first step waits for the end of this
const test::SimulatedTime *simulated;

void record(const std::string &what)
{
    std::unique_lock lock{mutex};
    changed.wait(lock, [] { return !held; });
    long long slept = 0;
    if (simulated != nullptr) {
        for (const long long us : simulated->sleeps()) {
            slept += us;
        }
    }
    steps.push_back({what, slept / 1000000});
    changed.notify_all();
}

}  // namespace

extern "C" {

int open(const char *path, int flags, ...)
{
    static const auto real = test::next(open, "open64");
    const auto found = instead.find(path);
    if (found == instead.end()) {
        va_list args;
        va_start(args, flags);
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
        va_end(args);
        return real(path, flags, mode);
    }
    Instead &file = found->second;
    const std::size_t turn = file.opened++;
    if (file.error != 0) {
        errno = file.error;
        return -1;
    }
    test::write_text("/tmp/instead", file.texts[std::min(turn, file.texts.size() - 1)]);
    return real("/tmp/instead", flags);
}

struct tm *localtime_r(const time_t *when, struct tm *local) noexcept
{
    static const auto real = test::next(localtime_r, "localtime_r");
    return no_local_time ? nullptr : real(when, local);
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) noexcept
{
    static const auto real = test::next(pthread_create, "pthread_create");
    if (thread_error != 0) {
        return thread_error;
    }
    const int result = real(thread, attributes, body, argument);
    if (body == systool_reboot_thread) {
        reboot_thread = *thread;
        default_attributes = attributes == nullptr;
    }
    return result;
}

int system(const char *command)
{
    record(std::string{"run "} + command);
    dprintf(STDOUT_FILENO, "output of %s\n", command);  // past stdio, as a command's own
    return 0;
}

int proc_send_signal(const char *process_name, int signo)
{
    record("signal " + std::to_string(signo) + " to " + process_name);
    return -1;
}

int monitor_stop(const char *process_name)
{
    record(std::string{"stop "} + process_name);
    return -1;
}
}

namespace
{

class Figures : public testing::Test
{
  protected:
    void TearDown() override
    {
        instead.clear();
        no_local_time = false;
    }
};
using Memory = Figures;
using Cpu = Figures;
using CurrentTime = Figures;

// ---- memory ------------------------------------------------------------------------------------

/** What systool_get_memInfo() makes of a text. */
int use_of(const std::string &text)
{
    instead[kMemory] = {{text}};
    int use = -7;
    EXPECT_EQ(systool_get_memInfo(&use), HLX_OK);
    return use;
}

int free_of(const std::string &text)
{
    instead[kMemory] = {{text}};
    return systool_get_memfree();
}

TEST_F(Memory, UseInPerCent)
{
    EXPECT_EQ(use_of("MemTotal:        1000 kB\nMemFree:          250 kB\n"), 75);
    EXPECT_EQ(use_of("MemTotal: 1000 kB\nMemFree: 331 kB\nMemAvailable: 900 kB\n"), 66);
    EXPECT_EQ(use_of("MemTotal: 1000 kB\nMemFree: 1000 kB\n"), 0);
    EXPECT_EQ(use_of("MemTotal: 1000 kB\nMemFree: 0 kB"), 100);
    EXPECT_EQ(use_of("MemTotal: 3\nMemFree: 1\n"), 66);  // without a unit
}

TEST_F(Memory, OfAMachineWithMuch)
{
    EXPECT_EQ(use_of("MemTotal: 33554432 kB\nMemFree: 16777216 kB\n"), 50);
    EXPECT_EQ(use_of("MemTotal: 2147483647 kB\nMemFree: 1 kB\n"), 99);
}

TEST_F(Memory, FiguresThatCannotBeRead)
{
    for (const char *const text :
         {"", "\n", "MemTotal: 1000 kB\n", "MemTotal: 1000 kB\n\n", "MemTotal: 1000 kB\nMemFree:\n",
          "MemTotal: much\nMemFree: 250 kB\n", "1000\n250\n",
          "MemTotal: 0 kB\nMemFree: 250 kB\n"}) {
        EXPECT_EQ(use_of(text), 100) << text;
    }
}

TEST_F(Memory, AFileThatCannotBeOpened)
{
    instead[kMemory] = {{}, EACCES};
    int use = -7;
    EXPECT_THAT(
        printed([&] { EXPECT_EQ(systool_get_memInfo(&use), HLX_ERR); }),
        Prints(log_line(PROD_DBG_ERROR, "systool_get_memInfo", "getMemInfo: open file error.")));
    EXPECT_EQ(use, -7);
    EXPECT_EQ(printed([] { EXPECT_EQ(systool_get_memfree(), -1); }), "");
    EXPECT_EQ(printed([] { EXPECT_EQ(systool_get_memInfo(nullptr), HLX_ERR); }), "");
}

TEST_F(Memory, FreeInKilobytes)
{
    EXPECT_EQ(free_of("MemTotal:        1000 kB\nMemFree:          250 kB\n"), 250);
    EXPECT_EQ(free_of("a line of no interest\nMemFree: 12\n"), 12);
    // The first line is what fits 63 characters; what it has beyond is the second one.
    EXPECT_EQ(free_of(std::string(63, 'x') + "y 7 kB\nMemFree: 250 kB\n"), 7);
    EXPECT_EQ(free_of(std::string(62, 'x') + "\nMemFree: 250 kB\n"), 250);
    for (const char *const text :
         {"", "MemTotal: 1000 kB\n", "MemTotal: 1000 kB\nMemFree:\n", "a 1\nMemFree: none\n"}) {
        EXPECT_EQ(free_of(text), -1) << text;
    }
}

TEST_F(Memory, OfThisMachine)
{
    int use = -7;
    EXPECT_EQ(systool_get_memInfo(&use), HLX_OK);
    EXPECT_GT(use, 0);
    EXPECT_LE(use, 100);
    const int before = test::open_descriptors();
    EXPECT_GT(systool_get_memfree(), 0);
    EXPECT_EQ(test::open_descriptors(), before);
}

// ---- CPU load ----------------------------------------------------------------------------------

/** Runs @p code in a process that has never asked for the load. */
void in_a_fresh_process(const std::function<void()> &code)
{
    EXPECT_TRUE(test::in_a_child(code));
}

/** The kernel's line after so much time, and how much of it the processors were idle. */
std::string stat_line(long long total, long long idle)
{
    return "cpu  " + std::to_string(total - idle) + " 0 0 " + std::to_string(idle) +
           " 0 0 0 0 0 0\ncpu0 1 2 3 4 5 6 7 8 9 10\n";
}

std::size_t readings()
{
    return instead[kCpu].opened;
}

constexpr time_t kUpFor = 100000;
constexpr long long kSecond = 1000000;

TEST_F(Cpu, TheFirstCallTakesASecond)
{
    for (const double up_for : {100000.0, 1620.0, 0.5, 0.0}) {
        in_a_fresh_process([=] {
            instead[kCpu] = {{stat_line(1000, 900), stat_line(1100, 950)}};
            test::SimulatedTime time{0};
            time.pass(up_for);
            EXPECT_EQ(systool_get_cpu_percent(), 50 * 100 / 101) << up_for;
            EXPECT_THAT(time.sleeps(), ElementsAre(kSecond)) << up_for;
            EXPECT_EQ(readings(), 2U);
        });
    }
}

TEST_F(Cpu, WithinASecondNothingIsRead)
{
    in_a_fresh_process([] {
        instead[kCpu] = {{stat_line(1000, 900), stat_line(1100, 950), stat_line(1200, 960)}};
        test::SimulatedTime time{kUpFor};
        const int load = systool_get_cpu_percent();
        time.pass(0.949);
        EXPECT_EQ(systool_get_cpu_percent(), load);
        EXPECT_EQ(readings(), 2U);
        time.pass(0.001);
        EXPECT_EQ(systool_get_cpu_percent(), 90 * 100 / 101);
        EXPECT_EQ(readings(), 3U);
        EXPECT_THAT(time.sleeps(), ElementsAre(kSecond));
    });
}

TEST_F(Cpu, EachSampleIsComparedWithTheOneBefore)
{
    in_a_fresh_process([] {
        instead[kCpu] = {{stat_line(1000, 1000), stat_line(2000, 2000), stat_line(3000, 2500),
                          stat_line(4000, 3250), stat_line(5000, 4250)}};
        test::SimulatedTime time{kUpFor};
        EXPECT_EQ(systool_get_cpu_percent(), 0);
        for (const int load : {500 * 100 / 1001, 250 * 100 / 1001, 0}) {
            time.pass(60);
            EXPECT_EQ(systool_get_cpu_percent(), load);
        }
        EXPECT_EQ(time.sleeps().size(), 1U);
    });
}

TEST_F(Cpu, AnOldSampleIsNone)
{
    in_a_fresh_process([] {
        instead[kCpu] = {{stat_line(1000, 1000), stat_line(1100, 1100), stat_line(2100, 1100),
                          stat_line(9000, 1100), stat_line(9100, 1150)}};
        test::SimulatedTime time{kUpFor};
        EXPECT_EQ(systool_get_cpu_percent(), 0);
        time.pass(3600);
        EXPECT_EQ(systool_get_cpu_percent(), 1000 * 100 / 1001);
        EXPECT_EQ(time.sleeps().size(), 1U);
        time.pass(3600.001);
        EXPECT_EQ(systool_get_cpu_percent(), 50 * 100 / 101);
        EXPECT_EQ(time.sleeps().size(), 2U);
        EXPECT_EQ(readings(), 5U);
    });
}

TEST_F(Cpu, AllTenNumbersAreTheTotal)
{
    in_a_fresh_process([] {
        instead[kCpu] = {{"cpu  0 0 0 0 0 0 0 0 0 0\n", "cpu  1 2 3 4 5 6 7 8 9 10\n"}};
        const test::SimulatedTime time{kUpFor};
        EXPECT_EQ(systool_get_cpu_percent(), (55 - 4) * 100 / 56);
    });
    in_a_fresh_process([] {
        instead[kCpu] = {{"cpu  0 0 0 0\n", "cpu  1 2 3 4\n"}};  // older kernels have fewer
        const test::SimulatedTime time{kUpFor};
        EXPECT_EQ(systool_get_cpu_percent(), (10 - 4) * 100 / 11);
    });
}

TEST_F(Cpu, ALongTimeOfManyProcessors)
{
    in_a_fresh_process([] {
        constexpr long long kMuch = 900000000000000;
        instead[kCpu] = {{stat_line(kMuch, kMuch / 2), stat_line(kMuch + 1000, kMuch / 2 + 250)}};
        const test::SimulatedTime time{kUpFor};
        EXPECT_EQ(systool_get_cpu_percent(), 750 * 100 / 1001);
    });
}

TEST_F(Cpu, NumbersThatRunBackwardsOrCannotBe)
{
    const std::string absurd(60, '9');
    for (const auto &[one, other] : {std::pair{stat_line(2000, 1000), stat_line(1000, 0)},
                                     {stat_line(1000, 0), stat_line(1000, 1000)},
                                     {"cpu 0 0 0 0\n", "cpu " + absurd + " 1 1 1 1 1 1 1 1 1\n"},
                                     {"cpu 0 0 0 " + absurd + "\n", "cpu 9 9 9 0\n"},
                                     {"cpu 0 0 0 0\n", "cpu -" + absurd + " -1 -1 -1\n"}}) {
        in_a_fresh_process([one = one, other = other] {
            instead[kCpu] = {{one, other}};
            const test::SimulatedTime time{kUpFor};
            const int load = systool_get_cpu_percent();
            EXPECT_GE(load, 0) << other;
            EXPECT_LE(load, 100) << other;
        });
    }
}

TEST_F(Cpu, MoreIdleThanTimeIsNoLoad)
{
    in_a_fresh_process([] {
        instead[kCpu] = {{"cpu 1000 0 0 0\n", "cpu 0 0 0 900\n"}};
        const test::SimulatedTime time{kUpFor};
        EXPECT_EQ(systool_get_cpu_percent(), 0);
    });
}

TEST_F(Cpu, TooFewNumbers)
{
    for (const char *const text : {"", "\n", "cpu\n", "cpu 1 2 3\n", "cpu 1 2 3 x 5\n"}) {
        in_a_fresh_process([=] {
            instead[kCpu] = {{text}};
            const test::SimulatedTime time{kUpFor};
            EXPECT_EQ(systool_get_cpu_percent(), 0) << text;
            EXPECT_EQ(readings(), 1U);
            EXPECT_THAT(time.sleeps(), IsEmpty());
            // It was no sample: the next call is the first one again.
            instead[kCpu] = {{stat_line(1000, 900), stat_line(1100, 950)}};
            EXPECT_EQ(systool_get_cpu_percent(), 50 * 100 / 101);
            EXPECT_THAT(time.sleeps(), ElementsAre(kSecond));
        });
    }
}

TEST_F(Cpu, AFileThatCannotBeOpened)
{
    in_a_fresh_process([] {
        instead[kCpu] = {{}, EMFILE};
        EXPECT_THAT(
            printed([] { EXPECT_EQ(systool_get_cpu_percent(), 0); }),
            Prints(log_line(PROD_DBG_ERROR, "systool_get_cpu_percent",
                            std::string{"Failed(24) to fopen, "} + strerror(EMFILE) + ".")));
    });
}

TEST_F(Cpu, OfThisMachineInARealSecond)
{
    in_a_fresh_process([] {
        int load = -1;
        EXPECT_GE(test::seconds([&] { load = systool_get_cpu_percent(); }), 1);
        EXPECT_GE(load, 0);
        EXPECT_LE(load, 100);
    });
}

// ---- current time ------------------------------------------------------------------------------

TEST_F(CurrentTime, InTheZoneOfTheDevice)
{
    const test::SimulatedTime time{1000000000};
    char text[PROD_CURTIME_SIZE];
    memset(text, '#', sizeof(text));
    systool_get_curtime(text);
    EXPECT_STREQ(text, "2001-09-09 01:46:40");
    EXPECT_EQ(text[20], '#');
    setenv("TZ", "GMT-8", 1);
    systool_get_curtime(text);
    EXPECT_STREQ(text, "2001-09-09 09:46:40");
    unsetenv("TZ");
    systool_get_curtime(nullptr);
}

TEST_F(CurrentTime, ThatCannotBeHad)
{
    no_local_time = true;
    char text[PROD_CURTIME_SIZE] = "";
    systool_get_curtime(text);
    EXPECT_STREQ(text, "2007-09-06 10:01:06");
}

// ---- reboot ------------------------------------------------------------------------------------

class Reboot : public testing::Test
{
  protected:
    void SetUp() override
    {
        steps.clear();
        simulated = &time_;
    }
    void TearDown() override
    {
        simulated = nullptr;
        thread_error = 0;
    }

    test::SimulatedTime time_;
};

const std::vector<Step> kSteps = {
    {"signal 1 to pppd_l2tp", 0}, {"stop multiwan", 3}, {"run date;reboot", 5}};

TEST_F(Reboot, StepByStep)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(systool_reboot_thread(nullptr), nullptr); }),
                Prints(console_line(33, "systool_reboot_thread", "rebooting ...") +
                       "output of date;reboot\n"));
    EXPECT_EQ(steps, kSteps);
    EXPECT_THAT(time_.sleeps(), ElementsAre(3 * kSecond, 2 * kSecond));
}

TEST_F(Reboot, TheCallerGoesOnAtOnce)
{
    {
        const std::lock_guard lock{mutex};
        held = true;
    }
    systool_reboot();
    std::unique_lock lock{mutex};
    EXPECT_THAT(steps, IsEmpty());
    held = false;
    changed.notify_all();
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds{20},
                                 [] { return steps.size() == kSteps.size(); }));
    EXPECT_EQ(steps, kSteps);
    lock.unlock();
    EXPECT_TRUE(default_attributes);
    EXPECT_EQ(pthread_join(reboot_thread, nullptr), 0);  // so it was not detached
}

TEST_F(Reboot, AThreadThatCannotBeStarted)
{
    thread_error = EAGAIN;
    EXPECT_THAT(
        printed([] { systool_reboot(); }),
        Prints(log_line(PROD_DBG_ERROR, "systool_reboot",
                        std::string{"Failed(11) to start the reboot, "} + strerror(EAGAIN) + ".")));
    EXPECT_THAT(steps, IsEmpty());
}

}  // namespace
