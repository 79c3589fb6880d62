// SPDX-License-Identifier: MIT
// What the library costs a program's start: the same program with it, with a plain C library that
// exports and calls the same names, and with one of a single function. They take turns, so that
// whatever else the machine does meets all of them.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <string>
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
    struct {
        const char *name;
        const char *program;
        std::vector<double> times;
    } contenders[] = {
        {"library", PROD_COMMON, {}}, {"twin", START_TWIN, {}}, {"one_function", START_PLAIN, {}}};
    for (auto _ : state) {
        for (auto &[name, program, times] : contenders) {
            times.push_back(run(program));
            if (times.back() < 0) {
                state.SkipWithError("a program did not run");
                return;
            }
        }
    }
    const double library = median(contenders[0].times);
    for (auto &[name, program, times] : contenders) {
        state.counters[std::string{name} + "_us"] = median(times);
        state.counters[std::string{"library/"} + name] = library / median(times);
    }
}
BENCHMARK(start)->Iterations(kTurns)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
