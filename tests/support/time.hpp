// SPDX-License-Identifier: MIT
// Time under a test's control. The C library's sleeps and clocks are interposed in every test
// program; they pass through until a SimulatedTime lives.
#pragma once

#include <ctime>
#include <functional>
#include <vector>

namespace test
{

/** How long @p code takes, in seconds. */
double seconds(const std::function<void()> &code);

/** While it lives, SIGALRM comes every second: a busy machine may not be waiting yet at the first.
 */
class Alarms
{
  public:
    Alarms();
    ~Alarms();
    Alarms(const Alarms &) = delete;
    Alarms &operator=(const Alarms &) = delete;
};

/**
 * While it lives, sleeps return at once and move the simulated clocks, wall clock and monotonic
 * clock alike, and are recorded.
 */
class SimulatedTime
{
  public:
    /** Whose time: every thread's, or that of the thread that it lives in. */
    enum class Of { kProcess, kThread };

    explicit SimulatedTime(time_t now = kNow, Of of = Of::kProcess);
    explicit SimulatedTime(Of of) : SimulatedTime(kNow, of) {}
    ~SimulatedTime();
    SimulatedTime(const SimulatedTime &) = delete;
    SimulatedTime &operator=(const SimulatedTime &) = delete;

    /** Moves the clocks. */
    void pass(double seconds);

    /** Every sleep asked for so far, in microseconds. */
    const std::vector<long long> &sleeps() const;

  private:
    static constexpr time_t kNow = 1000000000;
};

}  // namespace test
