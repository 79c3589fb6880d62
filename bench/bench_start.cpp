// SPDX-License-Identifier: MIT
// What the library costs a program's start: the same program with it, and with a plain C library
// that needs the same objects. The two take turns, so that whatever else the machine does meets
// both.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace
{

constexpr int kTurns = 4000;

/** Microseconds from a program's start to its end; negative when it did not run. */
double run(const char *program)
{
    const char *const argv[] = {program, nullptr};
    const auto start = std::chrono::steady_clock::now();
    pid_t pid;
    int status = 0;
    if (posix_spawn(&pid, program, nullptr, nullptr, const_cast<char **>(argv), nullptr) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
        return -1;
    }
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
        .count();
}

double median(std::vector<double> &times)
{
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

void start(benchmark::State &state)
{
    std::vector<double> with_the_library;
    std::vector<double> with_a_plain_one;
    for (auto _ : state) {
        with_the_library.push_back(run(START_LIBRARY));
        with_a_plain_one.push_back(run(START_PLAIN));
        if (with_the_library.back() < 0 || with_a_plain_one.back() < 0) {
            state.SkipWithError("a program did not run");
            return;
        }
    }
    state.counters["library_us"] = median(with_the_library);
    state.counters["plain_us"] = median(with_a_plain_one);
    state.counters["ratio"] = median(with_the_library) / median(with_a_plain_one);
}
BENCHMARK(start)->Iterations(kTurns)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
