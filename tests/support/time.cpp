// SPDX-License-Identifier: MIT
#include "support/time.hpp"

#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>

#include "support/interpose.hpp"

namespace
{

bool simulated_everywhere;
thread_local bool simulated_here;
std::atomic<long long> simulated_us;  // a thread may sleep while another waits for it
std::vector<long long> sleeps_us;

bool is_simulated()
{
    return simulated_everywhere || simulated_here;
}

void sleep_for(long long us)
{
    sleeps_us.push_back(us);
    simulated_us += us;
}

}  // namespace

extern "C" {

int usleep(useconds_t us)
{
    if (!is_simulated()) {
        return test::next(usleep, "usleep")(us);
    }
    sleep_for(us);
    return 0;
}

unsigned int sleep(unsigned int seconds)
{
    if (!is_simulated()) {
        return test::next(sleep, "sleep")(seconds);
    }
    sleep_for(seconds * 1000000LL);
    return 0;
}

int nanosleep(const struct timespec *wanted, struct timespec *left)
{
    if (!is_simulated()) {
        return test::next(nanosleep, "nanosleep")(wanted, left);
    }
    sleep_for(wanted->tv_sec * 1000000LL + wanted->tv_nsec / 1000);
    return 0;
}

time_t time(time_t *out) noexcept
{
    if (!is_simulated()) {
        static const auto real_time = test::next(time, "time");
        return real_time(out);
    }
    const auto now = static_cast<time_t>(simulated_us / 1000000);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

int clock_gettime(clockid_t clock, struct timespec *now) noexcept
{
    if (!is_simulated()) {
        static const auto real_clock_gettime = test::next(clock_gettime, "clock_gettime");
        return real_clock_gettime(clock, now);
    }
    const long long us = simulated_us;
    now->tv_sec = static_cast<time_t>(us / 1000000);
    now->tv_nsec = static_cast<long>(us % 1000000 * 1000);
    return 0;
}
}

namespace test
{

double seconds(const std::function<void()> &code)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    code();
    return std::chrono::duration<double>{Clock::now() - start}.count();
}

Alarms::Alarms()
{
    const itimerval every_second = {{1, 0}, {1, 0}};
    setitimer(ITIMER_REAL, &every_second, nullptr);
}

Alarms::~Alarms()
{
    const itimerval none = {};
    setitimer(ITIMER_REAL, &none, nullptr);
}

SimulatedTime::SimulatedTime(time_t now, Of of)
{
    simulated_us = now * 1000000LL;
    sleeps_us.clear();
    (of == Of::kThread ? simulated_here : simulated_everywhere) = true;
}

SimulatedTime::~SimulatedTime()
{
    simulated_everywhere = false;
    simulated_here = false;
}

void SimulatedTime::pass(double seconds)
{
    simulated_us += llround(seconds * 1e6);
}

const std::vector<long long> &SimulatedTime::sleeps() const
{
    return sleeps_us;
}

}  // namespace test
