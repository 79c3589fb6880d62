// SPDX-License-Identifier: MIT
#include "progress.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>

#include "output.hpp"

namespace prodctl
{

namespace
{

constexpr int kPatienceMs = 300;  // a wait shorter than this shows nothing
constexpr int kRefreshMs = 200;

/** Waits; true when the time has passed, false when @p descriptor became readable before. */
bool passed(int descriptor, int milliseconds)
{
    pollfd stop = {.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&stop, 1, milliseconds) == 0;
}

}  // namespace

Progress::Progress(const std::string &what)
    : what_(printable(what)), terminal_(isatty(STDERR_FILENO) == 1), stop_(eventfd(0, EFD_CLOEXEC))
{
    clock_gettime(CLOCK_MONOTONIC, &start_);
    running_ = stop_ >= 0 && pthread_create(&thread_, nullptr, run, this) == 0;
}

Progress::~Progress()
{
    if (running_) {
        eventfd_write(stop_, 1);
        pthread_join(thread_, nullptr);
    }
    if (stop_ >= 0) {
        close(stop_);
    }
}

double Progress::milliseconds() const
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - start_.tv_sec) * 1e3 +
           static_cast<double>(now.tv_nsec - start_.tv_nsec) / 1e6;
}

void *Progress::run(void *self)
{
    const auto &progress = *static_cast<const Progress *>(self);
    if (!passed(progress.stop_, kPatienceMs)) {
        return nullptr;
    }
    if (!progress.terminal_) {
        fprintf(stderr, "%s...\n", progress.what_.c_str());
        return nullptr;
    }
    do {
        progress.show();
    } while (passed(progress.stop_, kRefreshMs));
    fputs("\033[K", stderr);
    return nullptr;
}

/** The cursor stays in front, so that what the library prints meanwhile takes the line over. */
void Progress::show() const
{
    fprintf(stderr, "%s... %.1f s\033[K\r", what_.c_str(), milliseconds() / 1e3);
}

}  // namespace prodctl
