// SPDX-License-Identifier: MIT
// What a human sees while a command waits for somebody else's answer.
#pragma once

#include <pthread.h>

#include <ctime>
#include <string>

namespace prodctl
{

/**
 * A wait that may last. When it does, what is waited for appears on standard error: on a terminal
 * with the seconds that it has lasted, gone again at the end, and otherwise once, as a line. An
 * answer that comes at once shows nothing.
 */
class Progress
{
  public:
    /** @param what  what is being done: "asking 100.64.1.53 for www.example.net" */
    explicit Progress(const std::string &what);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /** How long the wait has lasted. */
    double milliseconds() const;

  private:
    static void *run(void *self);
    void show() const;

    std::string what_;
    timespec start_{};
    bool terminal_;
    int stop_;  // an eventfd, readable once the wait is over
    bool running_ = false;
    pthread_t thread_{};
};

}  // namespace prodctl
