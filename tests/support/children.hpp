// SPDX-License-Identifier: MIT
// Other processes that a test needs beside its own.
#pragma once

#include <sys/types.h>

#include <functional>

namespace test
{

/** Starts @p code in a child, which ends with it: well unless an expectation failed. */
pid_t start(const std::function<void()> &code);

/** Waits for a child's end; its exit status, or 128 and the signal that ended it. */
int status_of(pid_t child);

/** Waits for a child; whether it ended well. */
bool ended_well(pid_t child);

/** Runs @p code in a child; whether it ended well. */
bool in_a_child(const std::function<void()> &code);

/** A child of the test that runs @p body; it is killed, if it still runs, when this goes. */
class Child
{
  public:
    /** @param body  what the child runs; returning from it ends the child as start() does */
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

/** A process of a given name for as long as this lives. */
class NamedProcess : public Child
{
  public:
    explicit NamedProcess(const char *name);
};

/**
 * Starts that many processes, lets them go together, and expects each to end well.
 * @param body  called in each with its number
 */
void all_at_once(int processes, const std::function<void(int)> &body);

}  // namespace test
