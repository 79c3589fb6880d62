// SPDX-License-Identifier: MIT
// What the logging path does not do: no system call for a suppressed message, no heap allocation
// for any. The allocator is counted here, so this program is not built with the sanitizers' own.
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "prod_common_debug.h"
#include "support/allocator.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/emulation.hpp"

namespace
{
std::atomic<int> allocations;
}

extern "C" {
void *malloc(std::size_t size)
{
    ++allocations;
    return test::real_malloc(size);
}
void *calloc(std::size_t count, std::size_t size)
{
    ++allocations;
    return test::real_calloc(count, size);
}
void *realloc(void *block, std::size_t size)
{
    ++allocations;
    return test::real_realloc(block, size);
}
}

namespace
{

/** From here on any system call but exit kills the process. */
void forbid_system_calls()
{
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog filter{sizeof(program) / sizeof(program[0]), program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        _exit(1);
    }
}

/** How a child ends that runs `code` without system calls. */
int without_system_calls(void (*code)())
{
    return test::status_of(test::start([code] {
        get_dbg_level("attached");
        forbid_system_calls();
        code();
        syscall(SYS_exit, 0);
    }));
}

void log_suppressed()
{
    for (int i = 0; i < 100; ++i) {
        PROD_LOG_DEBUG("cost", "%d", i);
        PROD_LOG_TRACE("cost", "%d", i);
        PROD_LOG_DEBUG("nobody", "%d", i);
    }
}

TEST(LoggingCost, ASuppressedMessageMakesNoSystemCall)
{
    SKIP_IF_EMULATED("has no seccomp filters");
    set_dbg_level("cost", PROD_DBG_ERROR);
    EXPECT_EQ(without_system_calls(log_suppressed), 0);
    // The proof can fail: a written message is killed.
    EXPECT_EQ(without_system_calls([] { PROD_LOG_ERROR("cost", "written"); }), 128 + SIGSYS);
    set_dbg_level("cost", PROD_DBG_OFF);
}

TEST(LoggingCost, ASuppressedMessageAllocatesNothing)
{
    set_dbg_level("cost", PROD_DBG_ERROR);
    get_dbg_level("cost");
    const int before = allocations;
    log_suppressed();
    EXPECT_EQ(allocations, before);
    set_dbg_level("cost", PROD_DBG_OFF);
}

TEST(LoggingCost, AWrittenMessageAllocatesNothing)
{
    set_dbg_level("cost", PROD_DBG_TRACE);
    get_dbg_level("cost");
    PROD_LOG_DEBUG("cost", "the C library reads the time zone once");
    fflush(stdout);
    test::printed([] {
        const int before = allocations;
        PROD_LOG_ERROR("cost", "%d %s", 1, "error");
        PROD_LOG_DEBUG("cost", "%d %s", 1, "debug");
        PROD_LOG_INFO("cost", "%d %s", 1, "info");
        PROD_LOG_TRACE("cost", "%d %s", 1, "trace, into the buffer that stdio has by now");
        EXPECT_EQ(allocations, before);
    });
    set_dbg_level("cost", PROD_DBG_OFF);
}

TEST(LoggingCost, TheCountIsReal)
{
    const int before = allocations;
    void *volatile block = malloc(1);
    free(block);
    EXPECT_EQ(allocations, before + 1);
}

}  // namespace
