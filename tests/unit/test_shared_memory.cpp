// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ipc/shared_memory.h"
#include "support/capture.hpp"
#include "support/files.hpp"

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
    static const auto real =
        reinterpret_cast<void *(*)(int, const void *, int)>(dlsym(RTLD_NEXT, "shmat"));
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
    const std::string registry = test::read_text("/var/run/id.shm");
    int count = 0;
    for (std::size_t at = 0; (at = registry.find(key_file + "\n", at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
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

TEST(GetSharedMemory, OfManyAtOnceOneRegisters)
{
    constexpr int kProcesses = 40;
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    for (int i = 0; i < kProcesses; ++i) {
        if (fork() == 0) {
            close(start[1]);
            char byte;
            if (read(start[0], &byte, 1) != 0) {
                _exit(2);
            }
            _exit(get_shared_memory("race", 128) != nullptr ? 0 : 1);
        }
    }
    close(start[0]);
    close(start[1]);  // all are let go together
    for (int i = 0; i < kProcesses; ++i) {
        int status = 1;
        wait(&status);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(lines_about("/var/run/shm.race"), 1);
}

}  // namespace
