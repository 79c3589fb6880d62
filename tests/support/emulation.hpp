// SPDX-License-Identifier: MIT
// Tests where the programs run under an emulator, which is slower than the device and not a whole
// kernel.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

namespace test
{

/** How many times longer than at the machine's speed a test may wait for something. */
inline int slowdown()
{
    const char *const times = getenv("PROD_SLOWDOWN");
    return times != nullptr ? atoi(times) : 1;
}

inline bool is_emulated()
{
    return getenv("PROD_EMULATED") != nullptr;
}

}  // namespace test

/** Skips a test that needs what the emulator does not do; @p what says what that is. */
#define SKIP_IF_EMULATED(what)                 \
    if (test::is_emulated()) {                 \
        GTEST_SKIP() << "qemu-user: " << what; \
    }                                          \
    static_assert(true)
