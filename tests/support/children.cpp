// SPDX-License-Identifier: MIT
#include "support/children.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace test
{

namespace
{

int wait_for(pid_t child)
{
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Child::Child(const std::function<void(Child &)> &body)
{
    if (pipe2(told_, O_CLOEXEC) != 0) {
        abort();
    }
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        close(told_[0]);
        body(*this);
        _exit(0);
    }
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
    const int result = wait_for(pid_);
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

void all_at_once(int processes, const std::function<int(int)> &body)
{
    int start[2];
    if (pipe2(start, O_CLOEXEC) != 0) {
        abort();
    }
    fflush(nullptr);
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            close(start[1]);
            char byte;
            _exit(read(start[0], &byte, 1) == 0 ? body(i) : 127);
        }
        children.push_back(child);
    }
    close(start[0]);
    close(start[1]);  // all are let go together
    for (const pid_t child : children) {
        EXPECT_EQ(wait_for(child), 0);
    }
}

}  // namespace test
