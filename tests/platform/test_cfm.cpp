// SPDX-License-Identifier: MIT
// The configuration manager. Each test that needs a store of a known content lays out its files and
// then works in a process of its own, since a process keeps the store that it opened.
#include "platform/cfm.h"

#include <gtest/gtest.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/store.hpp"

extern "C" {
int madvise(void *address, size_t size, int advice) noexcept;
int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept;
ssize_t write(int fd, const void *data, size_t size);
int fsync(int fd);
int rename(const char *from, const char *to) noexcept;
}

#ifdef __SANITIZE_THREAD__
/** The sanitizer does not see that a timed wait has got a mutex whose holder died. */
extern "C" const char *__tsan_default_suppressions()
{
    return "mutex:~Turn";
}
#endif

using test::ended_well;
using test::in_a_child;
using test::read_text;
using test::start;
using test::stored;
using test::write_text;

namespace
{

constexpr const char *kPersistent = "/cfg/cfm.cfg";
constexpr const char *kDefaults = "/etc/default.cfg";
constexpr const char *kWorkingCopy = "/var/run/cfm";

bool set(const std::string &key, const std::string &value)
{
    return SetValue(key.c_str(), value.c_str()) != 0;
}

/** Runs @p code in a process of its own, which finds a device as after a boot. */
void after_boot(const std::function<void()> &code)
{
    test::remove_all(kWorkingCopy);
    EXPECT_TRUE(in_a_child(code));
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
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
        EXPECT_EQ(stored("sys.mode"), "3");
        EXPECT_EQ(stored("no.such"), "(absent)");
        EXPECT_EQ(stored("# factory"), "(absent)");
    });
}

TEST_F(Cfm, ThePersistentFileReplacesTheDefaultsWhole)
{
    write_text(kPersistent, "lan.ip=10.0.0.1\nempty=\nformula=a=b= c \r\n");
    after_boot([] {
        EXPECT_EQ(stored("lan.ip"), "10.0.0.1");
        EXPECT_EQ(stored("sys.mode"), "(absent)");
        EXPECT_EQ(stored("empty"), "");
        EXPECT_EQ(stored("formula"), "a=b= c ");
    });
}

TEST_F(Cfm, SetAndUnset)
{
    after_boot([] {
        EXPECT_EQ(SetValue("a", "1"), 1);
        EXPECT_EQ(stored("a"), "1");
        EXPECT_EQ(SetValue("a", "22"), 1);
        EXPECT_EQ(stored("a"), "22");
        EXPECT_EQ(SetValue("a", "22"), 1);
        EXPECT_EQ(SetValue("a", ""), 1);
        EXPECT_EQ(stored("a"), "");
        EXPECT_EQ(UnSetValue("a"), 1);
        EXPECT_EQ(stored("a"), "(absent)");
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

TEST_F(Cfm, KeysAndValuesThatCannotBe)
{
    after_boot([] {
        char value[CFM_VALUE_SIZE] = "untouched";
        EXPECT_EQ(GetValue(nullptr, value), 0);
        EXPECT_EQ(GetValue("", value), 0);
        EXPECT_EQ(GetValue("lan.ip", nullptr), 0);
        EXPECT_STREQ(value, "untouched");
        for (const std::string &key :
             {std::string{}, std::string{"a=b"}, std::string{"#a"}, std::string{"a\nb"},
              std::string{"a\rb"}, std::string(CFM_KEY_MAX + 1, 'k')}) {
            EXPECT_FALSE(set(key, "1")) << key;
            EXPECT_EQ(stored(key), "(absent)") << key;
            EXPECT_EQ(UnSetValue(key.c_str()), 0) << key;
        }
        EXPECT_EQ(SetValue(nullptr, "1"), 0);
        EXPECT_EQ(SetValue("lan.ip", nullptr), 0);
        EXPECT_EQ(UnSetValue(nullptr), 0);
        EXPECT_FALSE(set("lan.ip", "1\n2"));
        EXPECT_FALSE(set("lan.ip", "1\r"));
        EXPECT_FALSE(set("lan.ip", std::string(CFM_VALUE_SIZE, 'v')));
        EXPECT_FALSE(set("lan.ip", std::string(100000, 'v')));
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
    });
}

TEST_F(Cfm, TheLongestKeyAndValue)
{
    const std::string key(CFM_KEY_MAX, 'k');
    const std::string value(CFM_VALUE_SIZE - 1, '=');
    const std::string bytes = "\x01\t \xff\x80`$(reboot)'\"\\#";
    after_boot([&] {
        EXPECT_TRUE(set(key, value));
        EXPECT_TRUE(set("bytes", bytes));
        EXPECT_EQ(stored(key), value);
        EXPECT_EQ(CommitCfm(), 1);
    });
    after_boot([&] {
        EXPECT_EQ(stored(key), value);
        EXPECT_EQ(stored("bytes"), bytes);
    });
}

TEST_F(Cfm, DamagedLinesOfAFileArePassedOver)
{
    write_text(kPersistent, "good=1\nno equals sign\n=no key\n" + std::string(600, 'k') +
                                "=1\nlong=" + std::string(CFM_VALUE_SIZE, 'v') + "\nzero=" +
                                std::string(1, '\0') + "\n \t\n# a comment=1\r\nlast=2");
    after_boot([] {
        EXPECT_EQ(stored("good"), "1");
        EXPECT_EQ(stored("last"), "2");
        EXPECT_EQ(stored("long"), "(absent)");
        EXPECT_EQ(stored("zero"), "(absent)");
        EXPECT_EQ(CommitCfm(), 1);
    });
    EXPECT_EQ(read_text(kPersistent), "good=1\nlast=2\n");
}

TEST_F(Cfm, APersistentFileWithoutASettingIsNone)
{
    for (const std::string &text :
         {std::string{}, std::string{"\n\n"}, std::string(5000, '\xff'), std::string(5000, '\0')}) {
        write_text(kPersistent, text);
        after_boot([] { EXPECT_EQ(stored("lan.ip"), "192.168.1.1"); });
    }
    test::remove_all(kPersistent);
    ASSERT_EQ(mkdir(kPersistent, 0755), 0);
    after_boot([] { EXPECT_EQ(stored("lan.ip"), "192.168.1.1"); });
    test::remove_all(kPersistent);
}

TEST_F(Cfm, ADeviceWithoutAnyFileStartsEmpty)
{
    test::remove_all(kDefaults);
    after_boot([] {
        EXPECT_EQ(stored("lan.ip"), "(absent)");
        EXPECT_EQ(RestoreValue(), 0);
        EXPECT_TRUE(set("lan.ip", "1"));
        EXPECT_EQ(stored("lan.ip"), "1");
        EXPECT_EQ(RestoreValue(), 0);
        EXPECT_EQ(stored("lan.ip"), "1");
    });
}

TEST_F(Cfm, TheFilesAreLoadedOnce)
{
    after_boot([] {
        EXPECT_EQ(UnSetValue("lan.ip"), 1);
        EXPECT_EQ(UnSetValue("sys.mode"), 1);
    });
    EXPECT_TRUE(in_a_child([] { EXPECT_EQ(stored("lan.ip"), "(absent)"); }));

    // Many at once on a fresh device: what one has set, no other loads away.
    test::remove_all(kWorkingCopy);
    test::all_at_once(40, [](int i) {
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
        EXPECT_TRUE(set("own" + std::to_string(i), "1"));
    });
    EXPECT_TRUE(in_a_child([] {
        for (int i = 0; i < 40; ++i) {
            EXPECT_EQ(stored("own" + std::to_string(i)), "1");
        }
    }));
}

TEST_F(Cfm, AnUnchangedValueWritesNothing)
{
    const std::string data = std::string{kWorkingCopy} + "/data.mdb";
    after_boot([&] {
        EXPECT_TRUE(set("a", "1"));
        const std::string before = read_text(data);
        for (int i = 0; i < 100; ++i) {
            EXPECT_TRUE(set("a", "1"));
            EXPECT_EQ(UnSetValue("absent"), 0);
        }
        EXPECT_TRUE(read_text(data) == before);
        EXPECT_TRUE(set("a", "2"));
        EXPECT_FALSE(read_text(data) == before);
    });
}

TEST_F(Cfm, RestoreGoesBackToTheDefaults)
{
    write_text(kPersistent, "lan.ip=10.0.0.1\nextra=1\n");
    after_boot([] {
        EXPECT_TRUE(set("more", "1"));
        EXPECT_NE(RestoreValue(), 0);
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
        EXPECT_EQ(stored("extra"), "(absent)");
        EXPECT_EQ(stored("more"), "(absent)");
    });
    EXPECT_EQ(read_text(kPersistent), "lan.ip=192.168.1.1\nsys.mode=3\n");
}

TEST_F(Cfm, ARestoreThatCannotBeWrittenChangesNothing)
{
    after_boot([] {
        EXPECT_TRUE(set("lan.ip", "10.0.0.1"));
        {
            const test::MountedFolder full{"/cfg"};
            full.fill();
            EXPECT_EQ(RestoreValue(), 0);
            EXPECT_EQ(stored("lan.ip"), "10.0.0.1");
        }
        ASSERT_EQ(mkdir(kPersistent, 0755), 0);  // a rename over it fails, at the last moment
        EXPECT_EQ(RestoreValue(), 0);
        EXPECT_EQ(stored("lan.ip"), "10.0.0.1");
        EXPECT_FALSE(test::exists("/cfg/cfm.cfg.new"));
        ASSERT_EQ(rmdir(kPersistent), 0);
        for (const char *const damaged : {"", "# only a comment\n", "no setting"}) {
            write_text(kDefaults, damaged);
            EXPECT_EQ(RestoreValue(), 0);
        }
        EXPECT_EQ(stored("lan.ip"), "10.0.0.1");
    });
}

TEST_F(Cfm, ACommitThatCannotBeWrittenLeavesTheOldFile)
{
    after_boot([] {
        {
            const test::MountedFolder full{"/cfg", "size=32k"};
            write_text(kPersistent, "lan.ip=old\n");
            EXPECT_TRUE(set("big", std::string(2000, 'b')));
            EXPECT_TRUE(set("big2", std::string(2307, 'b')));
            full.fill();
            EXPECT_EQ(CommitCfm(), 0);
            EXPECT_EQ(read_text(kPersistent), "lan.ip=old\n");
            EXPECT_FALSE(test::exists("/cfg/cfm.cfg.new"));
        }
        {
            const test::MountedFolder read_only{"/cfg", "size=16k", true};
            EXPECT_EQ(CommitCfm(), 0);
        }
        const int before = test::open_descriptors();
        EXPECT_EQ(CommitCfm(), 1);
        EXPECT_EQ(test::open_descriptors(), before);
    });
}

// ------------------------------------------------------------------------------------------ faults

TEST_F(Cfm, WithoutARoomForTheWorkingCopy)
{
    const auto nothing_works = [] {
        EXPECT_EQ(stored("lan.ip"), "(absent)");
        EXPECT_FALSE(set("a", "1"));
        EXPECT_EQ(UnSetValue("lan.ip"), 0);
        EXPECT_EQ(CommitCfm(), 0);
        EXPECT_EQ(RestoreValue(), 0);
    };
    write_text(kPersistent, "lan.ip=old\n");
    EXPECT_TRUE(in_a_child([&] {
        const test::MountedFolder read_only{"/var/run", "size=16k", true};
        nothing_works();
    }));
    EXPECT_TRUE(in_a_child([&] {
        const int before = test::open_descriptors();
        {
            const test::MountedFolder full{"/var/run"};
            full.fill();
            nothing_works();
        }
        EXPECT_EQ(test::open_descriptors(), before);
        // The same process has its configuration as soon as there is room.
        EXPECT_EQ(stored("lan.ip"), "old");
    }));
    EXPECT_TRUE(in_a_child([&] {
        test::remove_all(kWorkingCopy);
        write_text(kWorkingCopy, "a file in the folder's place");
        nothing_works();
        test::remove_all(kWorkingCopy);
    }));
    EXPECT_EQ(read_text(kPersistent), "lan.ip=old\n");
}

TEST_F(Cfm, AMissingRunFolder)
{
    EXPECT_TRUE(in_a_child([] {
        const test::MountedFolder empty_var{"/var"};
        EXPECT_EQ(stored("lan.ip"), "(absent)");
        EXPECT_FALSE(set("a", "1"));
    }));
}

TEST_F(Cfm, AFullRunFolderKeepsWhatItHas)
{
    EXPECT_TRUE(in_a_child([] {
        const test::MountedFolder small{"/var/run", "size=512k"};
        EXPECT_TRUE(set("a", "1"));
        small.fill();
        int fitting = 0;
        while (fitting < 1000 && set("k" + std::to_string(fitting), std::string(2000, 'v'))) {
            ++fitting;
        }
        EXPECT_LT(fitting, 1000);
        EXPECT_EQ(stored("a"), "1");
        EXPECT_EQ(CommitCfm(), 1);
        EXPECT_EQ(unlink("/var/run/fill"), 0);
        EXPECT_TRUE(set("a", "2"));
        EXPECT_EQ(stored("a"), "2");
    }));
}

TEST_F(Cfm, ADamagedWorkingCopyIsMadeAnew)
{
    const std::string data = std::string{kWorkingCopy} + "/data.mdb";
    const std::string readers = std::string{kWorkingCopy} + "/lock.mdb";
    const std::string noise(200000, '\x5a');
    for (const std::string &text : {noise, noise.substr(0, 10), std::string(8192, '\0')}) {
        for (const std::string &file : {data, readers}) {
            after_boot([] { EXPECT_EQ(stored("lan.ip"), "192.168.1.1"); });
            write_text(file, text);
            EXPECT_TRUE(in_a_child([] {
                EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
                EXPECT_TRUE(set("a", "1"));
            })) << file;
            EXPECT_TRUE(in_a_child([] { EXPECT_EQ(stored("a"), "1"); }));
        }
    }
}

TEST_F(Cfm, ACutWorkingCopyIsMadeAnew)
{
    const std::string data = std::string{kWorkingCopy} + "/data.mdb";
    for (const int pages : {1, 2, 3, 4, 10, 20}) {
        after_boot([] {
            for (int i = 0; i < 100; ++i) {
                EXPECT_TRUE(set("k" + std::to_string(i), std::string(1000, 'v')));
            }
        });
        ASSERT_EQ(truncate(data.c_str(), pages * 4096 + 100), 0);
        EXPECT_TRUE(in_a_child([] {
            EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
            EXPECT_TRUE(set("a", "1"));
        })) << pages;
    }
}

TEST_F(Cfm, AStoreThatHasOutgrownItsRoom)
{
    after_boot([] {
        const std::string value(2307, 'v');
        int fitting = 0;
        while (fitting < 50000 && set("k" + std::to_string(fitting), value)) {
            ++fitting;
        }
        EXPECT_GT(fitting, 3000);
        EXPECT_LT(fitting, 50000);
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
        EXPECT_EQ(stored("k0"), value);
        EXPECT_NE(RestoreValue(), 0);
        EXPECT_TRUE(set("k0", value));
    });
}

// ------------------------------------------------------------------------- processes and threads

TEST_F(Cfm, ADaemonThatForks)
{
    after_boot([] {
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
        const pid_t child = start([] {
            EXPECT_TRUE(set("child", "1"));
            EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
            EXPECT_TRUE(in_a_child([] {
                EXPECT_EQ(stored("child"), "1");
                EXPECT_TRUE(set("grandchild", "1"));
            }));
        });
        EXPECT_TRUE(set("parent", "1"));
        EXPECT_TRUE(ended_well(child));
        EXPECT_EQ(stored("child"), "1");
        EXPECT_EQ(stored("grandchild"), "1");
        for (int i = 0; i < test::repetitions(300); ++i) {
            EXPECT_TRUE(in_a_child([&] { EXPECT_TRUE(set("n", std::to_string(i))); }));
            EXPECT_EQ(stored("n"), std::to_string(i));
        }
    });
}

bool madvise_fails = false;

TEST_F(Cfm, ADaemonThatForksOnAKernelThatWipesNothing)
{
    after_boot([] {
        madvise_fails = true;
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
        const pid_t child = start([] {
            EXPECT_TRUE(set("child", "1"));
            EXPECT_TRUE(in_a_child([] { EXPECT_EQ(stored("child"), "1"); }));
        });
        EXPECT_TRUE(set("parent", "1"));
        EXPECT_TRUE(ended_well(child));
        EXPECT_EQ(stored("child"), "1");
    });
}

TEST_F(Cfm, Threads)
{
    after_boot([] {
        std::vector<std::thread> all;
        for (int t = 0; t < 12; ++t) {
            all.emplace_back([t] {
                const std::string key = "thread" + std::to_string(t);
                for (int i = 0; i < 200; ++i) {
                    const std::string value(static_cast<std::size_t>(i) * 10, 'x');
                    EXPECT_TRUE(set(key, value));
                    EXPECT_EQ(stored(key), value);
                    EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
                    if (i % 50 == 0) {
                        EXPECT_EQ(CommitCfm(), 1);
                    }
                }
            });
        }
        for (std::thread &thread : all) {
            thread.join();
        }
    });
}

TEST_F(Cfm, AForkAmidThreads)
{
    SKIP_IF_EMULATED(test::kNoForkAmidThreads);
    after_boot([] {
        std::atomic<bool> stop{false};
        std::vector<std::thread> all;
        for (int t = 0; t < 3; ++t) {
            all.emplace_back([&, t] {
                for (int i = 0; !stop; ++i) {
                    EXPECT_TRUE(set("thread" + std::to_string(t), std::to_string(i)));
                    EXPECT_EQ(CommitCfm(), 1);
                }
            });
        }
        for (int i = 0; i < 50; ++i) {
            EXPECT_TRUE(in_a_child([] {
                alarm(20);
                EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
                EXPECT_TRUE(set("child", "1"));
                EXPECT_EQ(CommitCfm(), 1);
            }));
        }
        stop = true;
        for (std::thread &thread : all) {
            thread.join();
        }
    });
}

TEST_F(Cfm, SlotsOfTheDeadAreUsedAgain)
{
    after_boot([] { EXPECT_EQ(stored("lan.ip"), "192.168.1.1"); });
    for (int round = 0; round < 21; ++round) {  // 2100, and there are 2048
        std::vector<pid_t> all;
        for (int i = 0; i < 100; ++i) {
            all.push_back(start([] {
                EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
                raise(SIGKILL);
            }));
        }
        for (const pid_t pid : all) {
            EXPECT_EQ(test::status_of(pid), 128 + SIGKILL);
        }
    }
    EXPECT_TRUE(in_a_child([] {
        EXPECT_EQ(stored("lan.ip"), "192.168.1.1");
        EXPECT_TRUE(set("a", "1"));
    }));
}

/** A value that shows when it is not whole. */
bool whole(const std::string &value)
{
    return value.find_first_not_of(value[0]) == std::string::npos && value.size() == 1900;
}

TEST_F(Cfm, TwoHundredKilledAtRandomPoints)
{
    SKIP_IF_EMULATED(test::kNoRobustLocks);
    after_boot([] { EXPECT_TRUE(set("shared", std::string(1900, 'a'))); });
    const pid_t witness = start([] {
        for (int i = 0; i < 1500; ++i) {
            EXPECT_TRUE(whole(stored("shared")));
            EXPECT_TRUE(set("witness", std::to_string(i)));
            EXPECT_EQ(stored("witness"), std::to_string(i));
            usleep(500);
        }
    });
    srand(4711);
    for (int round = 0; round < 10; ++round) {
        std::vector<pid_t> all;
        for (int i = 0; i < 20; ++i) {
            all.push_back(start([i] {
                for (unsigned int n = 0;; ++n) {
                    if (i % 2 == 0) {
                        set("shared", std::string(1900, static_cast<char>('a' + n % 26)));
                    } else if (!whole(stored("shared"))) {
                        _exit(1);
                    }
                }
            }));
        }
        for (const pid_t pid : all) {
            usleep(static_cast<useconds_t>(rand() % 2000));
            kill(pid, SIGKILL);
        }
        for (const pid_t pid : all) {
            EXPECT_EQ(test::status_of(pid), 128 + SIGKILL);
        }
        EXPECT_TRUE(in_a_child([] {
            EXPECT_TRUE(whole(stored("shared")));
            EXPECT_TRUE(set("after", "1"));
            EXPECT_EQ(UnSetValue("after"), 1);
            EXPECT_EQ(CommitCfm(), 1);
        }));
    }
    EXPECT_TRUE(ended_well(witness));
}

bool dies_unlocking;  // this process, once somebody waits for what it unlocks

/** Killed after it gave up its turn and before it woke the next, which then nobody does. */
TEST_F(Cfm, AWakeUpThatIsLostHoldsNobodyUp)
{
    after_boot([] { EXPECT_TRUE(set("shared", "before")); });
    test::Child unlocker{[](test::Child &child) {
        EXPECT_TRUE(set("shared", "opened"));
        dies_unlocking = true;
        child.tell();
        set("shared", "unlocked");
    }};
    unlocker.wait_until_told();
    EXPECT_TRUE(in_a_child([] {
        alarm(20);
        while (stored("shared") != "unlocked") {
            usleep(1000);
        }
        EXPECT_TRUE(set("shared", "waited for"));
    }));
    unlocker.expect_signal(SIGKILL);
    EXPECT_TRUE(in_a_child([] { EXPECT_EQ(stored("shared"), "waited for"); }));
}

// ------------------------------------------------------------------------------ a killed commit

int calls_to_live = -1;  // negative: for ever

/** Counts the calls a commit makes; ends the process before the last that it may live to see. */
bool last_call()
{
    return calls_to_live > 0 && --calls_to_live == 0;
}

TEST_F(Cfm, ACommitKilledAtAnyOfItsCalls)
{
    std::string old_text;
    std::string new_text;
    for (int i = 0; i < 2000; ++i) {
        const std::string number = std::to_string(10000 + i);
        old_text += "k" + number + "=old value\n";
        new_text += "k" + number + "=the new value\n";
    }
    bool survived = false;
    int killed = 0;
    for (int calls = 1; !survived && calls < 100; ++calls) {
        test::remove_all(kWorkingCopy);
        write_text(kPersistent, old_text);
        const pid_t pid = start([&] {
            for (int i = 0; i < 2000; ++i) {
                EXPECT_TRUE(set("k" + std::to_string(10000 + i), "the new value"));
            }
            calls_to_live = calls;
            EXPECT_EQ(CommitCfm(), 1);
            calls_to_live = -1;
        });
        survived = ended_well(pid);
        killed += survived ? 0 : 1;
        const std::string text = read_text(kPersistent);
        EXPECT_TRUE(text == (survived ? new_text : old_text) || text == new_text) << calls;
        EXPECT_TRUE(in_a_child([] {
            alarm(10);
            EXPECT_EQ(CommitCfm(),
                      1);  // no lock is left behind, nor is the unfinished file in the way
        }));
        EXPECT_TRUE(read_text(kPersistent) == new_text);
    }
    EXPECT_TRUE(survived);
    EXPECT_GE(killed, 5);
}

TEST_F(Cfm, ACommitKilledAtRandomMoments)
{
    after_boot([] {
        for (int i = 0; i < 500; ++i) {
            EXPECT_TRUE(set("k" + std::to_string(i), std::string(500, 'a')));
        }
        EXPECT_EQ(CommitCfm(), 1);
    });
    const std::size_t size = read_text(kPersistent).size();
    srand(815);
    int in_the_middle = 0;
    for (int round = 0; round < 60; ++round) {
        {
            const test::Child writer{[](test::Child &child) {
                EXPECT_EQ(CommitCfm(), 1);
                child.tell();
                for (;;) {
                    CommitCfm();
                }
            }};
            writer.wait_until_told();
            usleep(static_cast<useconds_t>(rand() % 4000));
        }
        in_the_middle += test::exists("/cfg/cfm.cfg.new") ? 1 : 0;
        EXPECT_EQ(read_text(kPersistent).size(), size);
        test::remove_all("/cfg/cfm.cfg.new");
    }
    EXPECT_GT(in_the_middle, 0) << "or this proves nothing";
}

}  // namespace

// Standing in for the C library's: passes through, unless a test wants a fault.

int madvise(void *address, size_t size, int advice) noexcept
{
    if (madvise_fails) {
        errno = EINVAL;
        return -1;
    }
    return test::next(madvise, "madvise")(address, size, advice);
}

int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept
{
    constexpr int kPolls = 200;
    for (int poll = 0; dies_unlocking && poll < kPolls; ++poll) {
        const auto word =
            static_cast<unsigned int>(__atomic_load_n(&mutex->__data.__lock, __ATOMIC_RELAXED));
        if ((word & FUTEX_WAITERS) != 0) {
            __atomic_store_n(&mutex->__data.__lock, 0, __ATOMIC_RELEASE);
            raise(SIGKILL);
        }
        usleep(10000);
    }
    static const auto pass = test::next(pthread_mutex_unlock, "pthread_mutex_unlock");
    return pass(mutex);
}

ssize_t write(int fd, const void *data, size_t size)
{
    static const auto pass = test::next(write, "write");
    if (last_call()) {
        pass(fd, data, size / 2);
        raise(SIGKILL);
    }
    if (calls_to_live > 0 && size > 8192) {
        size = 8192;  // as a slow medium would: many writes to be killed in
    }
    return pass(fd, data, size);
}

int fsync(int fd)
{
    if (last_call()) {
        raise(SIGKILL);
    }
    return test::next(fsync, "fsync")(fd);
}

int rename(const char *from, const char *to) noexcept
{
    if (last_call()) {
        raise(SIGKILL);
    }
    return test::next(rename, "rename")(from, to);
}
