// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "ipc/shared_memory.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"

using test::console_line;
using test::printed;
using test::Prints;

namespace
{

constexpr int kRed = 31;

bool shmat_fails;

}  // namespace

extern "C" void *shmat(int id, const void *address, int flags) noexcept
{
    if (shmat_fails) {
        errno = ENOMEM;
        return reinterpret_cast<void *>(-1);
    }
    static const auto real = test::next(shmat, "shmat");
    return real(id, address, flags);
}

namespace
{

std::string message(const std::string &text)
{
    return console_line(kRed, "get_shared_memory", text);
}

int lines_about(const std::string &key_file)
{
    return test::occurrences(key_file + "\n", test::read_text("/var/run/id.shm"));
}

TEST(GetSharedMemory, TwoCallsMapTheSameMemory)
{
    auto *const first = static_cast<char *>(get_shared_memory("pair", 64));
    auto *const second = static_cast<char *>(get_shared_memory("pair", 64));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(first[0], 0);
    EXPECT_EQ(first[63], 0);
    strcpy(first, "seen");
    EXPECT_STREQ(second, "seen");
    EXPECT_EQ(lines_about("/var/run/shm.pair"), 1);
    shmdt(first);
    shmdt(second);
}

TEST(GetSharedMemory, RegistersWhatItCreated)
{
    void *const address = get_shared_memory("registered", 16);
    ASSERT_NE(address, nullptr);
    const key_t key = ftok("/var/run/shm.registered", 1);
    const int id = shmget(key, 16, 0);
    char expected[256];
    snprintf(expected, sizeof(expected), "0x%08x id=%8d %5d/%-15s %s\n",
             static_cast<unsigned int>(key), id, static_cast<int>(getpid()), "test_unit_share",
             "/var/run/shm.registered");
    EXPECT_THAT(test::read_text("/var/run/id.shm"), testing::HasSubstr(expected));
    shmid_ds status;
    ASSERT_EQ(shmctl(id, IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_perm.mode & 0777, 0666);
    EXPECT_EQ(status.shm_segsz, 16U);
    shmdt(address);
}

TEST(GetSharedMemory, ANullNameIsRefused)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(get_shared_memory(nullptr, 1), nullptr); }),
                Prints(message("Failed to get shared memory, invalid arguments.")));
}

TEST(GetSharedMemory, AKeyFileInAFolderThatIsMissing)
{
    const std::string text = printed([] { EXPECT_EQ(get_shared_memory("no/such", 1), nullptr); });
    EXPECT_THAT(text, Prints(test::log_line(PROD_DBG_ERROR, "touch_file",
                                            "Failed(2) to open /var/run/shm.no/such, No such file "
                                            "or directory.") +
                             message("Failed(2) to call ftok(/var/run/shm.no/such, No such file "
                                     "or directory.")));
}

TEST(GetSharedMemory, ALongNameIsCut)
{
    const std::string name(200, 'n');
    void *const address = get_shared_memory(name.c_str(), 1);
    ASSERT_NE(address, nullptr);
    EXPECT_TRUE(test::exists("/var/run/shm." + std::string(114, 'n')));
    shmdt(address);
}

TEST(GetSharedMemory, ALargerSizeThanTheSegmentIsRefused)
{
    void *const address = get_shared_memory("small", 4096);
    ASSERT_NE(address, nullptr);
    EXPECT_THAT(printed([] { EXPECT_EQ(get_shared_memory("small", 8192), nullptr); }),
                Prints(message("Failed(22) to create shared memory small, Invalid argument.")));
    shmdt(address);
}

TEST(GetSharedMemory, ASegmentThatCannotBeCreated)
{
    EXPECT_THAT(printed([] { EXPECT_EQ(get_shared_memory("empty", 0), nullptr); }),
                Prints(message("Failed(22) to create shared memory empty, Invalid argument.")));
    EXPECT_EQ(lines_about("/var/run/shm.empty"), 0);
}

TEST(GetSharedMemory, ASegmentThatCannotBeAttachedStaysUnregistered)
{
    shmat_fails = true;
    const std::string text = printed([] { EXPECT_EQ(get_shared_memory("detached", 16), nullptr); });
    shmat_fails = false;
    const int id = shmget(ftok("/var/run/shm.detached", 1), 16, 0);
    ASSERT_GE(id, 0) << "created all the same";
    EXPECT_THAT(text, Prints(message("Failed(12) to attach shared memory detached(" +
                                     std::to_string(id) + "), Cannot allocate memory.")));
    void *const address = get_shared_memory("detached", 16);
    EXPECT_NE(address, nullptr);
    EXPECT_EQ(lines_about("/var/run/shm.detached"), 0) << "only its creator registers it";
    shmdt(address);
}

TEST(GetSharedMemory, NoSegmentIsLeft)
{
    void *const before = get_shared_memory("before", 16);
    test::write_text("/proc/sys/kernel/shmmni", "0\n");
    EXPECT_THAT(printed([] { EXPECT_EQ(get_shared_memory("one too many", 16), nullptr); }),
                Prints(message("Failed(28) to create shared memory one too many, No space left on "
                               "device.")));
    void *const again = get_shared_memory("before", 16);
    EXPECT_NE(again, nullptr) << "those that exist go on working";
    test::write_text("/proc/sys/kernel/shmmni", "4096\n");
    EXPECT_EQ(lines_about("/var/run/shm.one too many"), 0);
    void *const now = get_shared_memory("one too many", 16);
    EXPECT_NE(now, nullptr);
    for (void *const address : {before, again, now}) {
        shmdt(address);
    }
}

/** What the next call finds after @p lose has taken away what leads to the segment of that name. */
void expect_made_anew(const char *name, const std::function<void(const std::string &)> &lose)
{
    const std::string key_file = std::string{"/var/run/shm."} + name;
    auto *const lost = static_cast<char *>(get_shared_memory(name, 64));
    ASSERT_NE(lost, nullptr);
    strcpy(lost, "old");
    lose(key_file);
    auto *const fresh = static_cast<char *>(get_shared_memory(name, 64));
    ASSERT_NE(fresh, nullptr);
    EXPECT_STREQ(fresh, "");
    strcpy(fresh, "new");
    EXPECT_STREQ(lost, "old") << "whoever has it attached keeps it";
    EXPECT_EQ(lines_about(key_file), 2);
    shmdt(lost);
    shmdt(fresh);
}

TEST(GetSharedMemory, ASegmentThatIsRemovedIsMadeAnew)
{
    expect_made_anew("removed", [](const std::string &key_file) {
        ASSERT_EQ(shmctl(shmget(ftok(key_file.c_str(), 1), 64, 0), IPC_RMID, nullptr), 0);
    });
}

TEST(GetSharedMemory, AKeyFileThatIsMadeAnewNamesAnotherSegment)
{
    expect_made_anew("key", [](const std::string &key_file) {
        // Kept elsewhere: the key comes from its inode, whose number must not be free again.
        ASSERT_EQ(rename(key_file.c_str(), "/var/run/kept"), 0);
    });
}

TEST(GetSharedMemory, OfSixtyFourFirstUsersOneCreatesIt)
{
    constexpr int kProcesses = 64;
    for (int round = 0; round < 5; ++round) {
        const std::string name = "race" + std::to_string(round);
        test::all_at_once(kProcesses, [&](int number) {
            void *const bytes = get_shared_memory(name.c_str(), kProcesses);
            ASSERT_NE(bytes, nullptr);
            static_cast<char *>(bytes)[number] = 1;
        });
        auto *const bytes = static_cast<char *>(get_shared_memory(name.c_str(), kProcesses));
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(std::count(bytes, bytes + kProcesses, 1), kProcesses) << "all had the same one";
        EXPECT_EQ(lines_about("/var/run/shm." + name), 1);
        shmdt(bytes);
    }
}

}  // namespace
