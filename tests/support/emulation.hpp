// SPDX-License-Identifier: MIT
// Tests where the programs run under an emulator, which is slower than the device and not a whole
// kernel.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace test
{

/** How many times longer than at the machine's speed a test may wait for something. */
inline int slowdown()
{
    const char *const times = getenv("PROD_SLOWDOWN");
    return times != nullptr ? atoi(times) : 1;
}

/**
 * How often to repeat what is done @p count times at the machine's speed, in search of what only
 * chance brings about.
 */
inline int repetitions(int count)
{
    return std::max(1, count / slowdown());
}

inline bool is_emulated()
{
    return getenv("PROD_EMULATED") != nullptr;
}

/** The kernel frees what mutexes in shared memory a killed process held; of emulated ones it has no
 * list. */
inline constexpr const char *kNoRobustLocks = "keeps the mutexes of a killed process locked";

/** What its other threads hold of the emulator's own locks at a fork stays locked in the child. */
inline constexpr const char *kNoForkAmidThreads = "may hang after a fork amid busy threads";

inline constexpr const char *kNoMemoryLimit = "sets no limit to a program's memory";

inline constexpr const char *kNoBridgePorts =
    "passes no SIOCDEVPRIVATE on to the kernel, which tells the ports of a bridge";

inline constexpr const char *kNoAuxdata =
    "passes no PACKET_AUXDATA on to the kernel, which discovery-dhcp asks for";

/**
 * What a process that renamed itself to @p name reads there: the emulator makes its own
 * /proc/self/stat up, with the name of the program.
 */
inline std::string own_name(const char *name)
{
    return std::string{is_emulated() ? program_invocation_short_name : name}.substr(0, 15);
}

}  // namespace test

/** Skips a test that needs what the emulator does not do; @p what says what that is. */
#define SKIP_IF_EMULATED(what)                 \
    if (test::is_emulated()) {                 \
        GTEST_SKIP() << "qemu-user: " << what; \
    }                                          \
    static_assert(true)
