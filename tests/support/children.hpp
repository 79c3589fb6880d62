// SPDX-License-Identifier: MIT
// Other processes that a test needs beside its own.
#pragma once

#include <sys/types.h>

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

}  // namespace test
