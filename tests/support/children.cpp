// SPDX-License-Identifier: MIT
#include "support/children.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace test
{

namespace
{

[[noreturn]] void end_as_expected()
{
    fflush(stdout);
    _exit(testing::Test::HasFailure() ? 1 : 0);
}

}  // namespace

pid_t start(const std::function<void()> &code)
{
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        code();
        end_as_expected();
    }
    return child;
}

int status_of(pid_t child)
{
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool ended_well(pid_t child)
{
    return status_of(child) == 0;
}

bool in_a_child(const std::function<void()> &code)
{
    return ended_well(start(code));
}

Child::Child(const std::function<void(Child &)> &body)
{
    if (pipe2(told_, O_CLOEXEC) != 0) {
        abort();
    }
    pid_ = start([&] {
        close(told_[0]);
        body(*this);
    });
    close(told_[1]);
}

Child::~Child()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(told_[0]);
}

void Child::tell() const
{
    close(told_[1]);
}

void Child::wait_until_told() const
{
    char byte;
    EXPECT_EQ(read(told_[0], &byte, 1), 0);
}

int Child::status()
{
    const int result = status_of(pid_);
    pid_ = -1;
    return result;
}

void Child::expect_status(int expected)
{
    EXPECT_EQ(status(), expected);
}

void Child::expect_signal(int expected)
{
    EXPECT_EQ(status(), 128 + expected);
}

NamedProcess::NamedProcess(const char *name)
    : Child{[name](Child &child) {
          prctl(PR_SET_NAME, name);
          child.tell();
          for (;;) {
              pause();
          }
      }}
{
    wait_until_told();
}

void all_at_once(int processes, const std::function<void(int)> &body)
{
    int go[2];
    if (pipe2(go, O_CLOEXEC) != 0) {
        abort();
    }
    std::vector<pid_t> children;
    children.reserve(static_cast<std::size_t>(processes));
    for (int i = 0; i < processes; ++i) {
        children.push_back(start([&] {
            close(go[1]);
            char byte;
            EXPECT_EQ(read(go[0], &byte, 1), 0);
            body(i);
        }));
    }
    close(go[0]);
    close(go[1]);  // all are let go together
    for (const pid_t child : children) {
        EXPECT_TRUE(ended_well(child));
    }
}

}  // namespace test
