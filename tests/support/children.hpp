// SPDX-License-Identifier: MIT
// Other processes that a test needs beside its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace test
{

/** A child of the test that runs @p body; it is killed, if it still runs, when this goes. */
class Child
{
  public:
    /** @param body  what the child runs; returning from it ends the child with status 0 */
    explicit Child(const std::function<void(Child &)> &body);
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    pid_t pid() const { return pid_; }

    /** In the child: lets wait_until_told() return. */
    void tell() const;
    /** Waits for the child's tell(), or its end. */
    void wait_until_told() const;

    /** Waits for the child's end; its exit status, or 128 and the signal that ended it. */
    int status();
    void expect_status(int expected);
    void expect_signal(int expected);

  private:
    pid_t pid_;
    int told_[2];
};

/**
 * Starts that many processes, lets them go together, and expects each to return 0.
 * @param body  called in each with its number
 */
void all_at_once(int processes, const std::function<int(int)> &body);

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
