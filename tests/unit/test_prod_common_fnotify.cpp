// SPDX-License-Identifier: MIT
// Watches last for a process's life, so each test that counts them runs in a child of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <thread>

#include "ipc/thread.h"
#include "prod_common_debug.h"
#include "prod_common_fnotify.h"
#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::error_line;
using test::log_line;
using test::printed;
using test::Prints;
using testing::ElementsAre;

namespace
{

// ---- the C library under a test's control -----------------------------------------------------

int init_errno;
int create_error;
std::atomic<int> notify_fd{-1};
std::atomic<unsigned int> last_mask;
std::atomic<std::size_t> read_size;

/** What happens right after a watch is made, before anybody knows its number. */
void (*after_watch)();

/** What reads of the inotify descriptor give before the real ones: an errno. */
std::atomic<int> read_errno;

}  // namespace

extern "C" {

int inotify_init1(int flags) noexcept
{
    static const auto next = test::next(inotify_init1, "inotify_init1");
    if (init_errno != 0) {
        errno = init_errno;
        return -1;
    }
    notify_fd = next(flags);
    return notify_fd;
}

int inotify_add_watch(int fd, const char *path, std::uint32_t mask) noexcept
{
    static const auto next = test::next(inotify_add_watch, "inotify_add_watch");
    last_mask = mask;
    const int wd = next(fd, path, mask);
    if (after_watch != nullptr) {
        after_watch();
    }
    return wd;
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *args) noexcept
{
    static const auto next = test::next(pthread_create, "pthread_create");
    return create_error != 0 ? create_error : next(thread, attributes, body, args);
}

ssize_t read(int fd, void *buffer, std::size_t size)
{
    static const auto next = test::next(read, "read");
    if (fd != notify_fd) {
        return next(fd, buffer, size);
    }
    read_size = size;
    const ssize_t got = next(fd, buffer, size);
    const int err = read_errno.exchange(0);
    if (err != 0) {
        errno = err;
        return -1;
    }
    return got;
}
}

namespace
{

// ---- what the callbacks saw -------------------------------------------------------------------

struct Change {
    std::string path;
    std::string name;
    bool operator==(const Change &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Change &change)
{
    return stream << change.path << " '" << change.name << "'";
}

std::mutex changes_mutex;
std::condition_variable changed;
std::vector<Change> changes;
std::vector<std::string> callback_threads;

void record(const char *path, const char *name)
{
    const std::lock_guard lock{changes_mutex};
    changes.push_back({path, name});
    callback_threads.emplace_back(get_thread_name());
    changed.notify_all();
}

/** The changes so far, once there are at least that many. */
std::vector<Change> seen(std::size_t at_least)
{
    std::unique_lock lock{changes_mutex};
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds{20},
                                 [=] { return changes.size() >= at_least; }))
        << changes.size() << " of " << at_least;
    return changes;
}

/** All changes before one that this makes, which is among them the next time. */
std::vector<Change> seen_until_now()
{
    static int count;
    const std::string last = "last" + std::to_string(++count);
    EXPECT_EQ(fnotify_listen("/tmp/sentinel", record), 1);
    test::write_text("/tmp/sentinel/" + last, "");
    std::unique_lock lock{changes_mutex};
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds{20}, [&] {
        return !changes.empty() && changes.back() == Change{"/tmp/sentinel", last};
    }));
    return {changes.begin(), changes.end() - 1};
}

class Notify : public testing::Test
{
  protected:
    void SetUp() override
    {
        test::remove_all("/tmp/watched");
        mkdir("/tmp/watched", 0755);
        mkdir("/tmp/sentinel", 0755);
        test::write_text("/tmp/watched/file", "text");
    }
};

/** A test whose body runs in a process that has watched nothing yet. */
#define FRESH_TEST(name)                            \
    void name##_body();                             \
    TEST_F(Notify, name)                            \
    {                                               \
        EXPECT_TRUE(test::in_a_child(name##_body)); \
    }                                               \
    void name##_body()

// ---- what is told -----------------------------------------------------------------------------

FRESH_TEST(AFolderTellsTheNameOfWhatChanged)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    EXPECT_EQ(last_mask, 0xFC2U);
    const int fd = creat("/tmp/watched/new", 0644);
    EXPECT_THAT(seen(1), ElementsAre(Change{"/tmp/watched", "new"}));
    EXPECT_EQ(write(fd, "x", 1), 1);
    EXPECT_EQ(seen(2).back(), (Change{"/tmp/watched", "new"}));
    close(fd);
    rename("/tmp/watched/new", "/tmp/watched/newer");
    EXPECT_EQ(seen(4)[2], (Change{"/tmp/watched", "new"}));
    EXPECT_EQ(seen(4)[3], (Change{"/tmp/watched", "newer"}));
    unlink("/tmp/watched/newer");
    EXPECT_EQ(seen(5).back(), (Change{"/tmp/watched", "newer"}));
    EXPECT_THAT(callback_threads, testing::Each("fnotify"));
    EXPECT_EQ(read_size, 287U);
}

FRESH_TEST(AFileTellsNoName)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched/file", record), 1);
    const int fd = open("/tmp/watched/file", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(fd, "x", 1), 1);
    EXPECT_THAT(seen(1), ElementsAre(Change{"/tmp/watched/file", ""}));
    rename("/tmp/watched/file", "/tmp/watched/moved");
    EXPECT_EQ(seen(2).back(), (Change{"/tmp/watched/file", ""}));
    close(fd);
}

FRESH_TEST(ADeletedFileIsToldAtLeastOnce)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched/file", record), 1);
    unlink("/tmp/watched/file");
    seen(1);
    const std::vector<Change> told = seen_until_now();
    EXPECT_THAT(told, testing::Each(Change{"/tmp/watched/file", ""}));
    test::write_text("/tmp/watched/file", "again");
    EXPECT_EQ(seen_until_now().size(), told.size() + 1) << "the new file is not watched";
}

FRESH_TEST(ReadingAndAttributesAreNotTold)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    ASSERT_EQ(fnotify_listen("/tmp/watched/file", record), 1);
    EXPECT_EQ(test::read_text("/tmp/watched/file"), "text");
    chmod("/tmp/watched/file", 0600);
    close(open("/tmp/watched/file", O_WRONLY | O_CLOEXEC));
    EXPECT_THAT(seen_until_now(), ElementsAre());
}

FRESH_TEST(EachPathHasItsCallback)
{
    mkdir("/tmp/watched/a", 0755);
    mkdir("/tmp/watched/b", 0755);
    ASSERT_EQ(fnotify_listen("/tmp/watched/a", record), 1);
    ASSERT_EQ(fnotify_listen("/tmp/watched/b",
                             [](const char *path, const char *name) {
                                 record(path, (std::string{"b:"} + name).c_str());
                             }),
              1);
    close(creat("/tmp/watched/b/1", 0644));
    close(creat("/tmp/watched/a/2", 0644));
    EXPECT_THAT(seen(2),
                ElementsAre(Change{"/tmp/watched/b", "b:1"}, Change{"/tmp/watched/a", "2"}));
}

FRESH_TEST(OfTwoForOnePathTheFirstIsCalled)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    ASSERT_EQ(fnotify_listen("/tmp/../tmp/watched",
                             [](const char *, const char *) { record("never", "called"); }),
              1);
    close(creat("/tmp/watched/new", 0644));
    EXPECT_THAT(seen_until_now(), ElementsAre(Change{"/tmp/watched", "new"}));
}

FRESH_TEST(WithoutACallbackNothingIsCalled)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched", nullptr), 1);
    close(creat("/tmp/watched/new", 0644));
    EXPECT_THAT(seen_until_now(), ElementsAre());
}

FRESH_TEST(ThePathIsCopied)
{
    char path[] = "/tmp/watched";
    ASSERT_EQ(fnotify_listen(path, record), 1);
    memset(path, 'x', sizeof(path) - 1);
    close(creat("/tmp/watched/new", 0644));
    EXPECT_THAT(seen(1), ElementsAre(Change{"/tmp/watched", "new"}));
}

FRESH_TEST(LongNames)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    for (const std::size_t length : {1U, 15U, 16U, 17U, 100U, 255U}) {
        const std::string name(length, 'n');
        close(creat(("/tmp/watched/" + name).c_str(), 0644));
    }
    const std::vector<Change> all = seen(6);
    EXPECT_EQ(all.front().name, "n");
    EXPECT_EQ(all.back().name, std::string(255, 'n'));
}

FRESH_TEST(ACallbackMayWatchMore)
{
    mkdir("/tmp/watched/a", 0755);
    ASSERT_EQ(fnotify_listen("/tmp/watched",
                             [](const char *path, const char *name) {
                                 EXPECT_EQ(fnotify_listen("/tmp/watched/a", record), 1);
                                 record(path, name);
                             }),
              1);
    close(creat("/tmp/watched/new", 0644));
    seen(1);
    close(creat("/tmp/watched/a/inner", 0644));
    EXPECT_EQ(seen(2)[1], (Change{"/tmp/watched/a", "inner"}));
}

FRESH_TEST(OneInstanceAndOneThreadForAll)
{
    const int before = test::open_descriptors();
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    EXPECT_EQ(test::open_descriptors(), before + 1);
    EXPECT_EQ(fcntl(notify_fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    create_error = EAGAIN;
    init_errno = EMFILE;
    EXPECT_EQ(fnotify_listen("/tmp/watched/file", record), 1);
    EXPECT_EQ(test::open_descriptors(), before + 1);
}

// ---- storms -----------------------------------------------------------------------------------

FRESH_TEST(TenThousandChangesArriveInOrder)
{
    constexpr int kChanges = 10000;
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    for (int i = 0; i < kChanges; ++i) {
        mknod(("/tmp/watched/" + std::to_string(i)).c_str(), S_IFREG | 0644, 0);
    }
    const std::vector<Change> all = seen(kChanges);
    ASSERT_EQ(all.size(), static_cast<std::size_t>(kChanges));
    for (int i = 0; i < kChanges; ++i) {
        ASSERT_EQ(all[static_cast<std::size_t>(i)], (Change{"/tmp/watched", std::to_string(i)}));
    }
}

FRESH_TEST(FromManyThreadsNoneIsLostAndEachKeepsItsOrder)
{
    constexpr int kThreads = 8;
    constexpr int kEach = 500;
    mkdir("/tmp/watched/0", 0755);
    ASSERT_EQ(fnotify_listen("/tmp/watched/0", record), 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([i] {
            // Watched while others already cause events: its first change must be told, too.
            const std::string folder = "/tmp/watched/" + std::to_string(i);
            mkdir(folder.c_str(), 0755);
            EXPECT_EQ(fnotify_listen(folder.c_str(), record), 1);
            for (int j = 0; j < kEach; ++j) {
                mknod((folder + "/" + std::to_string(j)).c_str(), S_IFREG | 0644, 0);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    std::vector<int> next(kThreads);
    for (const Change &change : seen(kThreads * kEach)) {
        const auto folder = static_cast<std::size_t>(change.path.back() - '0');
        EXPECT_EQ(change.name, std::to_string(next[folder]++));
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kEach));
}

FRESH_TEST(TheFirstEventOfANewWatchFindsItsRecord)
{
    ASSERT_EQ(fnotify_listen("/tmp/sentinel", record), 1) << "the thread is there";
    after_watch = [] {
        close(creat("/tmp/watched/early", 0644));
        usleep(200000);  // time enough to look for a record
    };
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    after_watch = nullptr;
    EXPECT_THAT(seen_until_now(), ElementsAre(Change{"/tmp/watched", "early"}));
}

// ---- failures ---------------------------------------------------------------------------------

FRESH_TEST(APathThatCannotBeWatched)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(fnotify_listen("/tmp/absent", record), 0); }),
                Prints(error_line("fnotify_listen",
                                  "Failed(2) to inotify_add_watch /tmp/absent, No such "
                                  "file or directory.")));
    EXPECT_THAT(printed([] { EXPECT_EQ(fnotify_listen(nullptr, record), 0); }),
                Prints(error_line("fnotify_listen",
                                  "Failed(14) to inotify_add_watch (null), Bad address.")));
    EXPECT_EQ(fnotify_listen("/tmp/watched", record), 1) << "the next one can";
}

FRESH_TEST(NoInstanceIsLeft)
{
    init_errno = EMFILE;
    const int before = test::open_descriptors();
    for (int i = 0; i < 2; ++i) {
        EXPECT_THAT(printed([] { EXPECT_EQ(fnotify_listen("/tmp/watched", record), 0); }),
                    Prints(error_line("fnotify_initialize",
                                      "Failed(24) to inotify_init, Too many open files.")));
    }
    EXPECT_EQ(test::open_descriptors(), before);
    init_errno = 0;
    EXPECT_EQ(fnotify_listen("/tmp/watched", record), 1);
}

FRESH_TEST(NoThreadCanBeStarted)
{
    create_error = EAGAIN;
    const int before = test::open_descriptors();
    EXPECT_THAT(
        printed([] { EXPECT_EQ(fnotify_listen("/tmp/watched", record), 0); }),
        Prints(error_line("start_thread",
                          "Failed(11) to create thread, Resource temporarily unavailable.") +
               error_line("fnotify_initialize",
                          "Failed(11) to start_thread, Resource temporarily unavailable.")));
    EXPECT_EQ(test::open_descriptors(), before) << "the instance is closed again";
    create_error = 0;
    EXPECT_EQ(fnotify_listen("/tmp/watched", record), 1);
}

#ifdef OWN_ALLOCATOR
FRESH_TEST(WithoutMemoryTheWatchesNumberIsClosed)
{
    // Watches are numbered from 1: one is made for each number up to that of a spare descriptor.
    const int spare = fcntl(open("/dev/null", O_RDONLY | O_CLOEXEC), F_DUPFD_CLOEXEC, 20);
    for (int i = 1; i < spare; ++i) {
        const std::string path = "/tmp/watched/" + std::to_string(i);
        test::write_text(path, "");
        ASSERT_EQ(fnotify_listen(path.c_str(), nullptr), 1);
    }
    constexpr const char *kPath = "/tmp/watched/file";
    EXPECT_THAT(printed([] {
                    const test::WithoutMemory refused{4 * sizeof(void *) + strlen(kPath) + 1};
                    EXPECT_EQ(fnotify_listen(kPath, record), 0);
                }),
                Prints(error_line("fnotify_listen", "Out of memory")));
    EXPECT_EQ(fcntl(spare, F_GETFD), -1);
    test::write_text(kPath, "changed");
    EXPECT_THAT(seen_until_now(), ElementsAre()) << "the watch has no record";
}
#endif

/** What the thread says about a read that fails, and that it goes on after a second. */
void expect_read_failure(int err, prod_dbg_lvl_t module_level, const std::string &expected)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    const std::size_t before = seen(0).size();
    const double passed = test::seconds([&] {
        const std::string text = test::printed_at(module_level, [=] {
            read_errno = err;
            close(creat("/tmp/watched/lost", 0644));
            while (read_errno != 0) {
                usleep(1000);
            }
            close(creat("/tmp/watched/found", 0644));
            seen(before + 1);
        });
        EXPECT_THAT(text, Prints(expected));
    });
    EXPECT_GE(passed, 0.9);
    EXPECT_EQ(seen(before + 1).back(), (Change{"/tmp/watched", "found"}));
    unlink("/tmp/watched/lost");
    unlink("/tmp/watched/found");
    seen(before + 3);
}

FRESH_TEST(AReadThatFails)
{
    const auto line = [](prod_dbg_lvl_t level, int err) {
        return log_line(level, "fnotify_thread",
                        "Failed(" + std::to_string(err) + ") to read fd " +
                            std::to_string(notify_fd) + ", " + strerror(err) + ".");
    };
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    for (const int err : {EAGAIN, EINTR}) {
        expect_read_failure(err, PROD_DBG_ERROR, "");
        expect_read_failure(err, PROD_DBG_DEBUG, line(PROD_DBG_DEBUG, err));
    }
    expect_read_failure(EINVAL, PROD_DBG_ERROR, line(PROD_DBG_ERROR, EINVAL));
}

FRESH_TEST(AChildOfForkGetsNoCallbacks)
{
    ASSERT_EQ(fnotify_listen("/tmp/watched", record), 1);
    test::Child child{[](test::Child &) {
        EXPECT_EQ(fnotify_listen("/tmp/watched/file", record), 1);
        close(creat("/tmp/watched/of_child", 0644));
        usleep(200000);  // time enough for a thread that must not be there
        EXPECT_THAT(changes, ElementsAre());
    }};
    child.expect_status(0);
    close(creat("/tmp/watched/new", 0644));
    EXPECT_THAT(seen(2),
                ElementsAre(Change{"/tmp/watched", "of_child"}, Change{"/tmp/watched", "new"}))
        << "the parent goes on";
}

}  // namespace
