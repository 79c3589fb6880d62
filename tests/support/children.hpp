// SPDX-License-Identifier: MIT
// Code of a test that runs in a process of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace test
{

/** Starts @p code in a child, which ends with it: well unless an expectation failed. */
inline pid_t start(const std::function<void()> &code)
{
    const pid_t pid = fork();
    if (pid == 0) {
        code();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    return pid;
}

/** Waits for a child; whether it ended well. */
inline bool ended_well(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/** Runs @p code in a child; whether it ended well. */
inline bool in_a_child(const std::function<void()> &code)
{
    return ended_well(start(code));
}

}  // namespace test
