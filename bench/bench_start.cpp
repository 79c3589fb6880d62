// SPDX-License-Identifier: MIT
// What the library costs a program's start: the same program with it, and with a plain C library
// that needs the same objects. The two take turns.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

namespace
{

void start(benchmark::State &state, const char *program)
{
    for (auto _ : state) {
        const char *const argv[] = {program, nullptr};
        pid_t pid;
        int status = 0;
        if (posix_spawn(&pid, program, nullptr, nullptr, const_cast<char **>(argv), nullptr) != 0 ||
            waitpid(pid, &status, 0) != pid || status != 0) {
            state.SkipWithError("the program did not run");
            return;
        }
    }
}

void with_the_library(benchmark::State &state)
{
    start(state, START_LIBRARY);
}

void with_a_plain_library(benchmark::State &state)
{
    start(state, START_PLAIN);
}

BENCHMARK(with_the_library)->UseRealTime();
BENCHMARK(with_a_plain_library)->UseRealTime();

}  // namespace

int main(int argc, char **argv)
{
    // Turns, so that whatever else the machine does meets both.
    char *arguments[16] = {argv[0],
                           const_cast<char *>("--benchmark_enable_random_interleaving=true"),
                           const_cast<char *>("--benchmark_repetitions=21"),
                           const_cast<char *>("--benchmark_min_time=0.2")};
    int count = 4;
    for (int i = 1; i < argc && count < 15; ++i) {
        arguments[count++] = argv[i];
    }
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
}
