// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <random>
#include <thread>

#include "ipc/lock.h"
#include "prod_common_debug.h"
#include "prod_common_string.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

// ---- the C library under a test's control -----------------------------------------------------

/** Results that semop() and semctl() give instead of running; 0 runs them. */
int semop_errno;
int semop_failures;  // how many times
int semctl_errno;
bool uptime_is_simulated;

bool recording = true;  // not while threads are about
std::vector<sembuf> operations;
int lookups;

}  // namespace

extern "C" {

int semop(int id, sembuf *records, std::size_t count) noexcept
{
    static const auto next = test::next(semop, "semop");
    if (recording) {
        operations.push_back(records[0]);
    }
    if (semop_failures > 0) {
        --semop_failures;
        errno = semop_errno;
        return -1;
    }
    return next(id, records, count);
}

int semget(key_t key, int count, int flags) noexcept
{
    static const auto next = test::next(semget, "semget");
    if (recording) {
        ++lookups;
    }
    return next(key, count, flags);
}

int semctl(int id, int number, int command, ...) noexcept
{
    static const auto next = test::next(semctl, "semctl");
    va_list args;
    va_start(args, command);
    void *const argument = va_arg(args, void *);
    va_end(args);
    if (command == SETVAL && semctl_errno != 0) {
        errno = semctl_errno;
        return -1;
    }
    return next(id, number, command, argument);
}

int sysinfo(struct sysinfo *info) noexcept
{
    static const auto next = test::next(sysinfo, "sysinfo");
    if (!uptime_is_simulated) {
        return next(info);
    }
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    *info = {};
    info->uptime = now.tv_sec;
    return 0;
}
}

namespace
{

/** How a waiting call behaves, without the waiting. */
struct SimulatedUptime {
    SimulatedUptime() { uptime_is_simulated = true; }
    ~SimulatedUptime() { uptime_is_simulated = false; }
    test::SimulatedTime time;
};

class Lock : public testing::Test
{
  protected:
    void SetUp() override
    {
        operations.clear();
        lookups = 0;
    }
    void TearDown() override { semop_failures = semctl_errno = 0; }
};

int id_of(const std::string &name)
{
    return semget(ftok(("/var/run/lock." + name).c_str(), 1), 1, 0);
}

int value_of(const std::string &name)
{
    return semctl(id_of(name), 0, GETVAL);
}

int lines_about(const std::string &name)
{
    return test::occurrences(" /var/run/lock." + name + "\n", test::read_text("/var/run/id.lock"));
}

/** A process that holds a lock until it is killed. */
class Holder
{
  public:
    explicit Holder(const char *name)
        : child_([name](test::Child &child) {
              ipc_lock("%s", name);
              child.tell();
              pause();
          })
    {
        child_.wait_until_told();
    }

  private:
    test::Child child_;
};

// ---- taking and releasing ---------------------------------------------------------------------

TEST_F(Lock, IsHeldFromLockToUnlock)
{
    EXPECT_EQ(ipc_lock("pair"), 1);
    EXPECT_EQ(value_of("pair"), 0);
    EXPECT_EQ(ipc_lock_nowait("pair"), 0) << "it is not re-entrant";
    EXPECT_EQ(ipc_unlock("pair"), 1);
    EXPECT_EQ(value_of("pair"), 1);
    EXPECT_EQ(ipc_lock_nowait("pair"), 1);
    EXPECT_EQ(ipc_unlock("pair"), 1);
    EXPECT_EQ(ipc_lock_timeout(5, "pair"), 1);
    EXPECT_EQ(ipc_unlock("pair"), 1);
    EXPECT_EQ(value_of("pair"), 1);
}

TEST_F(Lock, OperationsCarryUndoAndWaitOrNot)
{
    const auto flags = [](const std::function<void()> &code) {
        operations.clear();
        code();
        EXPECT_EQ(operations.size(), 1U);
        EXPECT_EQ(operations[0].sem_num, 0);
        return std::pair<int, int>{operations[0].sem_op, operations[0].sem_flg};
    };
    EXPECT_EQ(flags([] { ipc_lock("flags"); }), std::pair(-1, SEM_UNDO));
    EXPECT_EQ(flags([] { ipc_unlock("flags"); }), std::pair(1, SEM_UNDO));
    EXPECT_EQ(flags([] { ipc_lock_nowait("flags"); }), std::pair(-1, SEM_UNDO | IPC_NOWAIT));
    EXPECT_EQ(flags([] { ipc_lock_timeout(0, "flags"); }), std::pair(-1, SEM_UNDO | IPC_NOWAIT));
    EXPECT_EQ(flags([] { ipc_unlock("flags"); }), std::pair(1, SEM_UNDO));
}

TEST_F(Lock, TheNameIsAFormat)
{
    EXPECT_EQ(ipc_lock("radio%d.%s", 5, "scan"), 1);
    EXPECT_EQ(ipc_lock_nowait("%s", "radio5.scan"), 0);
    EXPECT_EQ(ipc_lock_timeout(0, "radio%s.scan", "5"), 0);
    EXPECT_EQ(ipc_unlock("radio5.%s", "scan"), 1);
    EXPECT_TRUE(test::exists("/var/run/lock.radio5.scan"));
}

TEST_F(Lock, ASlashCountsAsAnUnderscore)
{
    EXPECT_EQ(ipc_lock("/etc/dhcps/%s", "a/b"), 1);
    EXPECT_EQ(ipc_lock_nowait("_etc_dhcps_a_b"), 0);
    EXPECT_TRUE(test::exists("/var/run/lock._etc_dhcps_a_b"));
    EXPECT_EQ(ipc_unlock("_etc/dhcps_a/b"), 1);
}

TEST_F(Lock, TheFirst113CharactersOfANameCount)
{
    const std::string name(113, 'n');
    EXPECT_EQ(ipc_lock("%sx", name.c_str()), 1);
    EXPECT_EQ(ipc_lock_nowait("%sy", name.c_str()), 0);
    EXPECT_EQ(ipc_lock_nowait("%s", name.c_str()), 0);
    EXPECT_EQ(ipc_lock_nowait("%s", name.substr(1).c_str()), 1);
    EXPECT_TRUE(test::exists("/var/run/lock." + name));
    EXPECT_FALSE(test::exists("/var/run/lock." + name + "x"));
}

TEST_F(Lock, TheCreatorRegistersIt)
{
    EXPECT_EQ(ipc_lock("registered"), 1);
    EXPECT_EQ(ipc_unlock("registered"), 1);
    char expected[256];
    snprintf(expected, sizeof(expected), "0x%08x id=%8d %5d/%-15s %s\n",
             static_cast<unsigned int>(ftok("/var/run/lock.registered", 1)), id_of("registered"),
             static_cast<int>(getpid()), "test_unit_lock", "/var/run/lock.registered");
    EXPECT_THAT(test::read_text("/var/run/id.lock"), HasSubstr(expected));
    EXPECT_EQ(lines_about("registered"), 1);
    semid_ds status;
    ASSERT_EQ(semctl(id_of("registered"), 0, IPC_STAT, &status), 0);
    EXPECT_EQ(status.sem_perm.mode & 0777, 0666);
    EXPECT_EQ(status.sem_nsems, 1U);
}

TEST_F(Lock, UnlockingAFreeLockLetsTwoIn)
{
    EXPECT_EQ(ipc_unlock("raised"), 1);
    EXPECT_EQ(value_of("raised"), 2);
    EXPECT_EQ(ipc_lock_nowait("raised"), 1);
    EXPECT_EQ(ipc_lock_nowait("raised"), 1);
    EXPECT_EQ(ipc_lock_nowait("raised"), 0);
}

TEST_F(Lock, AHolderThatDiesReleasesIt)
{
    {
        const Holder holder{"dies"};
        EXPECT_EQ(value_of("dies"), 0);
        EXPECT_EQ(ipc_lock_nowait("dies"), 0);
    }
    EXPECT_EQ(ipc_lock("dies"), 1);
    EXPECT_EQ(ipc_unlock("dies"), 1);
}

TEST_F(Lock, AChildDoesNotHaveIt)
{
    ipc_lock("forked");
    test::Child{[](test::Child &) { EXPECT_EQ(ipc_lock_nowait("forked"), 0); }}.expect_status(0);
    EXPECT_EQ(value_of("forked"), 0) << "nor did its end release it";
    ipc_unlock("forked");
}

TEST_F(Lock, ExecKeepsIt)
{
    {
        const test::Child holder{[](test::Child &) {
            ipc_lock("kept");
            execl("/bin/sleep", "sleep", "60", nullptr);  // which tells: the pipe closes
            _exit(127);
        }};
        holder.wait_until_told();
        EXPECT_EQ(ipc_lock_nowait("kept"), 0);
    }
    EXPECT_EQ(ipc_lock_nowait("kept"), 1);
    EXPECT_EQ(ipc_unlock("kept"), 1);
}

// ---- what is said about a lock that is taken --------------------------------------------------

TEST_F(Lock, ATakenLockIsSaidAtLevelThreeOnly)
{
    const Holder holder{"quiet"};
    for (const prod_dbg_lvl_t level : {PROD_DBG_FUNC, PROD_DBG_ERROR}) {
        EXPECT_EQ(printed_at(level, [] { EXPECT_EQ(ipc_lock_nowait("quiet"), 0); }), "");
    }
    EXPECT_EQ(printed([] { EXPECT_EQ(ipc_lock_nowait("quiet"), 0); }), "");
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [] { EXPECT_EQ(ipc_lock_nowait("quiet"), 0); }),
                Prints(log_line(PROD_DBG_DEBUG, "do_sema_op",
                                "Failed(11) to acquire semaphore @ test_unit_lock, Resource "
                                "temporarily unavailable.")));
}

std::string failed_op(int err, const std::string &what)
{
    return log_line(PROD_DBG_ERROR, "do_sema_op",
                    "Failed(" + std::to_string(err) + ") to " + what +
                        " semaphore @ test_unit_lock, " + strerror(err) + ".");
}

TEST_F(Lock, AnyOtherFailureIsAnError)
{
    semop_errno = ENOSPC;
    semop_failures = 1;
    EXPECT_THAT(printed([] { EXPECT_EQ(ipc_lock_nowait("failing"), 0); }),
                Prints(failed_op(ENOSPC, "acquire")));
    semop_failures = 1;
    EXPECT_THAT(printed([] { EXPECT_EQ(ipc_lock_timeout(60, "failing"), 0); }),
                Prints(failed_op(ENOSPC, "acquire")))
        << "it is not tried again";
    semop_failures = 1;
    EXPECT_THAT(printed([] { EXPECT_EQ(ipc_unlock("failing"), 0); }),
                Prints(failed_op(ENOSPC, "release")));
}

TEST_F(Lock, LockGoesOnUntilItHasIt)
{
    const test::SimulatedTime time;
    std::string expected;
    for (const int err : {EINTR, EIDRM, EAGAIN, ENOMEM}) {
        semop_errno = err;
        semop_failures = 1;
        EXPECT_THAT(printed([] { EXPECT_EQ(ipc_lock("stubborn"), 1); }),
                    Prints(failed_op(err, "acquire")));
        EXPECT_EQ(ipc_unlock("stubborn"), 1);
    }
    EXPECT_THAT(time.sleeps(), ElementsAre(1000000, 1000000, 1000000, 1000000));
    semop_failures = 3;
    EXPECT_EQ(printed([] { EXPECT_EQ(ipc_lock("stubborn"), 1); }).empty(), false);
    EXPECT_EQ(time.sleeps().size(), 7U);
}

TEST_F(Lock, UnlockTriesAgainAfterASignal)
{
    const test::SimulatedTime time;
    ipc_lock("signalled");
    for (const int err : {EINTR, EAGAIN}) {
        semop_errno = err;
        semop_failures = 2;
        EXPECT_THAT(printed([] { EXPECT_EQ(ipc_unlock("signalled"), 1); }),
                    Prints(failed_op(err, "release") + failed_op(err, "release")));
        ipc_lock("signalled");
    }
    EXPECT_THAT(time.sleeps(), ElementsAre(1000000, 1000000, 1000000, 1000000));
}

/** Runs @p code in a process in which no line of the log can be written. */
void without_output(const std::function<bool()> &code)
{
    test::Child child{[&](test::Child &) {
        set_dbg_level("prod", PROD_DBG_DEBUG);
        setvbuf(stdout, nullptr, _IONBF, 0);
        close(STDOUT_FILENO);
        EXPECT_TRUE(code());
        set_dbg_level("prod", PROD_DBG_OFF);
    }};
    child.expect_status(0);
}

TEST_F(Lock, ALogThatFailsHidesNoErrno)
{
    const Holder holder{"unheard"};
    without_output([] {
        const SimulatedUptime uptime;
        operations.clear();
        return ipc_lock_timeout(3, "unheard") == 0 && operations.size() == 31;
    });
    without_output([] {
        const SimulatedUptime uptime;
        semop_errno = EINTR;
        semop_failures = 2;
        return ipc_unlock("alone") == 1 && uptime.time.sleeps().size() == 2;
    });
}

// ---- the time-out -----------------------------------------------------------------------------

TEST_F(Lock, WithoutTimeItIsTriedOnce)
{
    const Holder holder{"once"};
    const SimulatedUptime uptime;
    for (const int seconds : {0, -1}) {
        operations.clear();
        EXPECT_EQ(ipc_lock_timeout(seconds, "once"), 0);
        EXPECT_EQ(operations.size(), 1U);
    }
    EXPECT_TRUE(uptime.time.sleeps().empty());
}

TEST_F(Lock, IsTriedEvery100MillisecondsForThatLong)
{
    const Holder holder{"tried"};
    const SimulatedUptime uptime;
    EXPECT_EQ(ipc_lock_timeout(3, "tried"), 0);
    EXPECT_EQ(operations.size(), 31U);
    EXPECT_EQ(uptime.time.sleeps(), std::vector<long long>(30, 100000));
    EXPECT_EQ(lookups, 31) << "nothing is remembered between tries";
}

TEST_F(Lock, IsTakenAsSoonAsItIsFree)
{
    auto holder = std::make_unique<Holder>("freed");
    std::thread killer{[&] {
        usleep(300000);
        holder.reset();
    }};
    EXPECT_EQ(ipc_lock_timeout(60, "freed"), 1);
    killer.join();
    EXPECT_EQ(ipc_unlock("freed"), 1);
}

TEST_F(Lock, TheRealTimeoutIsInUptime)
{
    const Holder holder{"real"};
    const double passed = test::seconds([] { EXPECT_EQ(ipc_lock_timeout(2, "real"), 0); });
    EXPECT_GE(passed, 0.99) << "whole seconds of uptime, the first of which had begun";
}

// ---- semaphores that cannot be had ------------------------------------------------------------

TEST_F(Lock, ANullNameIsRefused)
{
    const std::string message =
        log_line(PROD_DBG_ERROR, "get_sem_id", "Failed to get sem id, invalid arguments.");
    // Without the format attribute, with which the compiler refuses these calls.
    int (*const unlock)(const char *, ...) = ipc_unlock;
    int (*const lock_timeout)(int, const char *, ...) = ipc_lock_timeout;
    int (*const lock_nowait)(const char *, ...) = ipc_lock_nowait;
    for (const int stale : {EAGAIN, EINTR}) {
        // An errno that is left over from something else must not look like a reason to wait.
        EXPECT_THAT(printed([=] {
                        errno = stale;
                        EXPECT_EQ(unlock(nullptr), 0);
                        errno = stale;
                        EXPECT_EQ(lock_timeout(60, nullptr), 0);
                        errno = stale;
                        EXPECT_EQ(lock_nowait(nullptr), 0);
                    }),
                    Prints(message + message + message));
    }
    EXPECT_TRUE(operations.empty());
}

TEST_F(Lock, ANullNameIsWaitedForWithoutEnd)
{
    test::Child child{[](test::Child &) {
        alarm(2);
        int (*const lock)(const char *, ...) = ipc_lock;
        lock(nullptr);
    }};
    child.expect_signal(SIGALRM);
}

TEST_F(Lock, AKeyFileThatCannotBeMade)
{
    const test::MountedFolder read_only{"/var/run", "size=16k", true};
    const std::string touched = log_line(PROD_DBG_ERROR, "touch_file",
                                         "Failed(30) to open /var/run/lock.keyless, Read-only "
                                         "file system.");
    const std::string message =
        log_line(PROD_DBG_ERROR, "get_sem_id",
                 "Failed(2) to call ftok(/var/run/lock.keyless), No such file or directory.");
    EXPECT_THAT(printed([] { EXPECT_EQ(ipc_lock_nowait("keyless"), 0); }),
                Prints(touched + message));
    EXPECT_THAT(printed([] {
                    errno = EINTR;
                    EXPECT_EQ(ipc_unlock("keyless"), 0);
                }),
                Prints(touched + message));
}

TEST_F(Lock, ASemaphoreThatCannotBeInitialized)
{
    semctl_errno = EACCES;
    EXPECT_THAT(printed([] { EXPECT_EQ(ipc_lock_nowait("raw"), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "get_sem_id",
                                "Failed(13) to initialize semaphore, Permission denied.")));
    EXPECT_EQ(lines_about("raw"), 1) << "the line comes before the value";
    semctl_errno = 0;
    EXPECT_EQ(printed([] { EXPECT_EQ(ipc_lock_nowait("raw"), 0); }), "") << "held by nobody";
}

TEST_F(Lock, NoSemaphoreIsLeft)
{
    ipc_lock("before");  // so that only the limit is met below
    ipc_unlock("before");
    test::write_text("/proc/sys/kernel/sem", "1 1 1 1\n");
    EXPECT_THAT(printed([] { EXPECT_EQ(ipc_lock_nowait("one too many"), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "get_sem_id",
                                "Failed(28) to create semaphore, No space left on device.")));
    EXPECT_EQ(ipc_lock_nowait("before"), 1) << "those that exist go on working";
    EXPECT_EQ(ipc_unlock("before"), 1);
    test::write_text("/proc/sys/kernel/sem", "32000 1024000000 500 32000\n");
    EXPECT_EQ(ipc_lock_nowait("one too many"), 1);
}

TEST_F(Lock, ASemaphoreThatIsRemovedIsMadeAnew)
{
    ipc_lock("removed");
    semctl(id_of("removed"), 0, IPC_RMID);
    EXPECT_EQ(ipc_lock_nowait("removed"), 1);
    EXPECT_EQ(lines_about("removed"), 2);

    // Under a waiting process too, which takes the new one a second later.
    test::Child waiting{[](test::Child &) { EXPECT_EQ(ipc_lock("removed"), 1); }};
    while (semctl(id_of("removed"), 0, GETNCNT) != 1) {
        usleep(10000);
    }
    semctl(id_of("removed"), 0, IPC_RMID);
    waiting.expect_status(0);
}

TEST_F(Lock, AKeyFileThatIsDeletedIsMadeAnew)
{
    ipc_lock("key");
    ipc_unlock("key");
    unlink("/var/run/lock.key");
    EXPECT_EQ(ipc_lock("key"), 1);
    EXPECT_TRUE(test::exists("/var/run/lock.key"));
    EXPECT_EQ(ipc_unlock("key"), 1);
}

// ---- many processes ---------------------------------------------------------------------------

/** What all processes of a test share. */
struct Shared {
    volatile long counter;  // only ever changed under the lock
    volatile int canary;    // who is inside
    std::atomic<int> overlaps;
};

class SharedBlock
{
  public:
    SharedBlock()
        : block_(static_cast<Shared *>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~SharedBlock() { munmap(block_, sizeof(Shared)); }
    SharedBlock(const SharedBlock &) = delete;
    SharedBlock &operator=(const SharedBlock &) = delete;
    Shared *operator->() const { return block_; }

  private:
    Shared *block_;
};

/** Goes in, looks whether it is alone, and counts. */
void visit(const SharedBlock &shared, const char *name)
{
    ipc_lock("%s", name);
    const int me = getpid();
    if (shared->canary != 0) {
        ++shared->overlaps;
    }
    shared->canary = me;
    shared->counter = shared->counter + 1;
    if (shared->canary != me) {
        ++shared->overlaps;
    }
    shared->canary = 0;
    ipc_unlock("%s", name);
}

TEST_F(Lock, ThirtyTwoProcessesNeverOverlap)
{
    constexpr int kProcesses = 32;
    const int cycles = test::repetitions(20000);
    const SharedBlock shared;
    test::all_at_once(kProcesses, [&](int) {
        recording = false;
        for (int i = 0; i < cycles; ++i) {
            visit(shared, "crowd");
        }
    });
    EXPECT_EQ(shared->counter, static_cast<long>(kProcesses) * cycles);
    EXPECT_EQ(shared->overlaps, 0);
    EXPECT_EQ(value_of("crowd"), 1);
    EXPECT_EQ(lines_about("crowd"), 1);
}

TEST_F(Lock, ThreadsOfOneProcessNeverOverlap)
{
    constexpr int kThreads = 8;
    constexpr int kCycles = 500;
    long counter = 0;
    std::atomic<int> inside = 0;
    int overlaps = 0;
    test::Child child{[&](test::Child &) {
        recording = false;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&] {
                for (int j = 0; j < kCycles; ++j) {
                    while (ipc_lock_nowait("threads") == 0) {
                        usleep(100);
                    }
                    overlaps += inside.exchange(1);
                    ++counter;
                    inside = 0;
                    ipc_unlock("threads");
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        EXPECT_EQ(counter, kThreads * kCycles);
        EXPECT_EQ(overlaps, 0);
    }};
    child.expect_status(0);
}

TEST_F(Lock, HoldersKilledAtRandomPointsFreeIt)
{
    constexpr int kRounds = 300;
    const SharedBlock shared;
    visit(shared, "killed");
    std::minstd_rand random{20260101};
    for (int i = 0; i < kRounds; ++i) {
        {
            const test::Child victim{[&](test::Child &) {
                recording = false;
                for (;;) {
                    visit(shared, "killed");
                }
            }};
            usleep(static_cast<useconds_t>(random() % 5000));
        }
        shared->canary = 0;
        ASSERT_EQ(value_of("killed"), 1) << "round " << i;
    }
    EXPECT_EQ(ipc_lock_nowait("killed"), 1);
    EXPECT_EQ(ipc_unlock("killed"), 1);
    EXPECT_GT(shared->counter, kRounds) << "they did reach it";
    EXPECT_EQ(lines_about("killed"), 1);
}

TEST_F(Lock, OfSixtyFourFirstUsersOneCreatesIt)
{
    for (int round = 0; round < 5; ++round) {
        const std::string name = "first" + std::to_string(round);
        const SharedBlock shared;
        test::all_at_once(64, [&](int) { visit(shared, name.c_str()); });
        EXPECT_EQ(shared->counter, 64);
        EXPECT_EQ(shared->overlaps, 0);
        EXPECT_EQ(value_of(name), 1);
        EXPECT_EQ(lines_about(name), 1);
    }
}

// ---- locks on open files ----------------------------------------------------------------------

class FileLock : public testing::Test
{
  protected:
    void SetUp() override { fd_ = open(kPath, O_RDWR | O_CREAT | O_CLOEXEC, 0644); }
    void TearDown() override { close(fd_); }

    /** What another process finds at that place of the file: the lock in its way. */
    static short seen_by_another(short wanted, off_t at = 0)
    {
        test::Child child{[=](test::Child &) {
            const int fd = open(kPath, O_RDWR | O_CLOEXEC);
            struct flock lock = {};
            lock.l_type = wanted;
            lock.l_start = at;
            lock.l_len = 1;
            fcntl(fd, F_GETLK, &lock);
            _exit(lock.l_type);
        }};
        return static_cast<short>(child.status());
    }

    static constexpr const char *kPath = "/tmp/locked";
    int fd_ = -1;
};

TEST_F(FileLock, SharedExclusiveAndNone)
{
    EXPECT_EQ(fd_rlock(fd_), 1);
    EXPECT_EQ(seen_by_another(F_WRLCK), F_RDLCK);
    EXPECT_EQ(seen_by_another(F_RDLCK), F_UNLCK);
    EXPECT_EQ(fd_wlock(fd_), 1);
    EXPECT_EQ(seen_by_another(F_RDLCK), F_WRLCK);
    EXPECT_EQ(seen_by_another(F_RDLCK, 1LL << 40), F_WRLCK) << "however long the file grows";
    EXPECT_EQ(fd_unlock(fd_), 1);
    EXPECT_EQ(seen_by_another(F_WRLCK), F_UNLCK);
    EXPECT_EQ(fd_unlock(fd_), 1) << "nothing to remove";
}

TEST_F(FileLock, WaitsForAPartAndLocksTheWhole)
{
    // The other's lock is on a few bytes; asking about it must not narrow this one.
    test::Child holder{[](test::Child &child) {
        const int fd = open(kPath, O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_start = 100;
        lock.l_len = 10;
        fcntl(fd, F_SETLKW, &lock);
        child.tell();
        usleep(200000);
    }};
    holder.wait_until_told();
    EXPECT_EQ(fd_wlock(fd_), 1);
    holder.expect_status(0);
    EXPECT_EQ(seen_by_another(F_RDLCK, 0), F_WRLCK);
    EXPECT_EQ(seen_by_another(F_RDLCK, 105), F_WRLCK);
    EXPECT_EQ(seen_by_another(F_RDLCK, 5000), F_WRLCK);
}

TEST_F(FileLock, FailuresAreLogged)
{
    const auto message = [](int err, int type, int fd) {
        return log_line(PROD_DBG_ERROR, "fd_lock_op",
                        "Failed(" + std::to_string(err) + ") to lock(" + std::to_string(type) +
                            ") fd " + std::to_string(fd) + " @ test_unit_lock, " + strerror(err) +
                            ".");
    };
    EXPECT_THAT(printed([] { EXPECT_EQ(fd_rlock(-1), 0); }), Prints(message(EBADF, 0, -1)));
    EXPECT_THAT(printed([] { EXPECT_EQ(fd_wlock(-1), 0); }), Prints(message(EBADF, 1, -1)));
    EXPECT_THAT(printed([] { EXPECT_EQ(fd_unlock(-1), 0); }), Prints(message(EBADF, 2, -1)));
    const int reading = open(kPath, O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(fd_rlock(reading), 1);
    EXPECT_THAT(printed([=] { EXPECT_EQ(fd_wlock(reading), 0); }),
                Prints(message(EBADF, 1, reading)));
    close(reading);
}

TEST_F(FileLock, ASignalEndsTheWait)
{
    test::Child holder{[](test::Child &child) {
        const int fd = open(kPath, O_RDWR | O_CLOEXEC);
        fd_wlock(fd);
        child.tell();
        pause();
    }};
    holder.wait_until_told();
    struct sigaction quiet = {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGALRM, &quiet, nullptr);
    const test::Alarms every_second;
    EXPECT_THAT(printed([this] { EXPECT_EQ(fd_wlock(fd_), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "fd_lock_op",
                                "Failed(4) to lock(1) fd " + std::to_string(fd_) +
                                    " @ test_unit_lock, Interrupted system call.")));
}

}  // namespace
