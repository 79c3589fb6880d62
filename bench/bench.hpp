// SPDX-License-Identifier: MIT
// What the benchmarks lay their data out with.
#pragma once

#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace bench
{

/** Ends the program unless what it needs was done. */
inline void must(bool done, const char *what)
{
    if (!done) {
        fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, what, strerror(errno));
        exit(1);
    }
}

inline void write_text(const char *path, const std::string &text)
{
    FILE *const file = fopen(path, "we");
    must(file != nullptr && fwrite(text.data(), 1, text.size(), file) == text.size() &&
             fclose(file) == 0,
         path);
}

/** What is measured changes the system it runs on. */
inline void must_be_in_a_device()
{
    if (getenv("PROD_DEVICE") == nullptr) {
        fprintf(stderr, "Run this through device/launch: it changes the system it runs on.\n");
        exit(2);
    }
}

/** For benchmarks whose argument is a number of lines. */
inline void count_lines(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace bench

/** The numbers of lines of files that are read line by line. */
#define LINES ->Arg(100)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond)

/** main() of a benchmark that needs nothing laid out first. */
#define MAIN_IN_A_DEVICE()                   \
    int main(int argc, char **argv)          \
    {                                        \
        bench::must_be_in_a_device();        \
        benchmark::Initialize(&argc, argv);  \
        benchmark::RunSpecifiedBenchmarks(); \
        return 0;                            \
    }
