// SPDX-License-Identifier: MIT
// The logging path beside what one would write or pick instead: a suppressed message beside
// spdlog's, a walk of the table with strcmp, and written lines beside the bare system calls.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/sinks/ansicolor_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench.hpp"
#include "prod_common_debug.h"

namespace
{

constexpr int kMany = PROD_DBG_MODULE_MAX;

std::string name_of(int i, bool long_prefix)
{
    return (long_prefix ? "common_module_daemon_no" : "m") + std::to_string(100 + i);
}

/** Registers `count` modules at the level of errors, and nothing else. */
std::vector<std::string> register_modules(int count, bool long_prefix = false)
{
    memset(get_dbg_info(), 0, sizeof(prod_dbg_info_t));
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.push_back(name_of(i, long_prefix));
        set_dbg_level(names.back().c_str(), PROD_DBG_ERROR);
    }
    return names;
}

// ---- suppressed ------------------------------------------------------------------------------

void suppressed(benchmark::State &state, int count, int which, bool long_prefix)
{
    const auto names = register_modules(count, long_prefix);
    const char *const name = names[static_cast<std::size_t>(which)].c_str();
    int value = 0;
    for (auto _ : state) {
        PROD_LOG_DEBUG(name, "wan%d is connecting.", value);
        benchmark::DoNotOptimize(++value);
    }
}

void suppressed_spdlog(benchmark::State &state)
{
    const auto logger = spdlog::stdout_color_mt("bench");
    logger->set_level(spdlog::level::err);
    int value = 0;
    for (auto _ : state) {
        logger->debug("wan{} is connecting.", value);
        benchmark::DoNotOptimize(++value);
    }
    spdlog::drop("bench");
}
BENCHMARK(suppressed_spdlog);

// ---- an absent name --------------------------------------------------------------------------

__attribute__((noinline)) prod_dbg_lvl_t plain_walk(const prod_dbg_info_t *info, const char *name)
{
    unsigned int seen = 0;
    for (int i = 0; i < PROD_DBG_MODULE_MAX && seen < info->num; ++i) {
        if (info->array[i].valid) {
            ++seen;
            if (strcmp(info->array[i].name, name) == 0) {
                return static_cast<prod_dbg_lvl_t>(info->array[i].level);
            }
        }
    }
    return PROD_DBG_OFF;
}

void absent(benchmark::State &state, bool plain, bool long_prefix)
{
    register_modules(kMany, long_prefix);
    const std::string name = long_prefix ? "common_module_daemon_none" : "none";
    for (auto _ : state) {
        benchmark::DoNotOptimize(plain ? plain_walk(get_dbg_info(), name.c_str())
                                       : get_dbg_level(name.c_str()));
    }
}
BENCHMARK_CAPTURE(absent, plain_walk, true, false);
BENCHMARK_CAPTURE(absent, library, false, false);
BENCHMARK_CAPTURE(absent, plain_walk_long_prefix, true, true);
BENCHMARK_CAPTURE(absent, library_long_prefix, false, true);

// ---- written ---------------------------------------------------------------------------------

/** Standard output sent elsewhere for as long as this lives. */
class Redirected
{
  public:
    explicit Redirected(const char *path) : console_(dup(STDOUT_FILENO))
    {
        fflush(stdout);
        const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        dup2(fd, STDOUT_FILENO);
        close(fd);
    }
    ~Redirected()
    {
        fflush(stdout);
        dup2(console_, STDOUT_FILENO);
        close(console_);
    }

  private:
    int console_;
};

constexpr char kLine[] =
    "\033[1;40;36m14:02:09 [m100.D]   77 touch_file               : wan1 is connecting.\n\033[0m";
constexpr char kFileLine[] =
    "0303 14:02:09 [m100.D]   77 touch_file               : wan1 is connecting.\n";
constexpr int kLinesPerFile = 2000;

void written_bare(benchmark::State &state, const char *path)
{
    const Redirected output{path};
    int lines = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(STDOUT_FILENO, kLine, sizeof(kLine) - 1));
        if (++lines % kLinesPerFile == 0) {
            benchmark::DoNotOptimize(ftruncate(STDOUT_FILENO, 0));
        }
    }
}

void written(benchmark::State &state, const char *path)
{
    register_modules(1);
    set_dbg_level("m100", PROD_DBG_DEBUG);
    const Redirected output{path};
    int lines = 0;
    for (auto _ : state) {
        prod_debug("touch_file", 77, PROD_DBG_DEBUG, "m100", "wan%d is connecting.", 1);
        if (++lines % kLinesPerFile == 0) {
            benchmark::DoNotOptimize(ftruncate(STDOUT_FILENO, 0));
        }
    }
}

void written_spdlog(benchmark::State &state, const char *path)
{
    const Redirected output{path};
    const auto sink =
        std::make_shared<spdlog::sinks::ansicolor_stdout_sink_mt>(spdlog::color_mode::always);
    spdlog::logger logger{"m100", sink};
    logger.set_level(spdlog::level::debug);
    logger.flush_on(spdlog::level::debug);
    logger.set_pattern("%^%H:%M:%S [%n.%L] %4# %-25!: %v%$");
    int lines = 0;
    for (auto _ : state) {
        logger.log(spdlog::source_loc{"file.cpp", 77, "touch_file"}, spdlog::level::debug,
                   "wan{} is connecting.", 1);
        if (++lines % kLinesPerFile == 0) {
            benchmark::DoNotOptimize(ftruncate(STDOUT_FILENO, 0));
        }
    }
}

constexpr char kTarget[] = "/tmp/bench.out";
BENCHMARK_CAPTURE(written_bare, null, "/dev/null");
BENCHMARK_CAPTURE(written, null, "/dev/null");
BENCHMARK_CAPTURE(written_spdlog, null, "/dev/null");
BENCHMARK_CAPTURE(written_bare, file, kTarget);
BENCHMARK_CAPTURE(written, file, kTarget);
BENCHMARK_CAPTURE(written_spdlog, file, kTarget);

void error_bare(benchmark::State &state)
{
    const Redirected output{"/dev/null"};
    unlink("/var/debug.bare.log");
    int lines = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(STDOUT_FILENO, kLine, sizeof(kLine) - 1));
        const int how = ++lines % kLinesPerFile == 0 ? O_TRUNC : O_APPEND;
        const int fd = open("/var/debug.bare.log", O_WRONLY | O_CREAT | O_CLOEXEC | how, 0644);
        benchmark::DoNotOptimize(write(fd, kFileLine, sizeof(kFileLine) - 1));
        close(fd);
    }
}
BENCHMARK(error_bare);

void error_library(benchmark::State &state)
{
    register_modules(1);
    const Redirected output{"/dev/null"};
    unlink("/var/debug.m100.log");
    for (auto _ : state) {
        prod_debug("touch_file", 77, PROD_DBG_ERROR, "m100", "wan%d is connecting.", 1);
    }
}
BENCHMARK(error_library);

}  // namespace

int main(int argc, char **argv)
{
    bench::must_be_in_a_device();
    for (const int count : {1, 10, 50, 100}) {
        for (const auto &[place, which] :
             {std::pair{"first", 0}, {"middle", count / 2}, {"last", count - 1}}) {
            benchmark::RegisterBenchmark(
                ("suppressed/" + std::to_string(count) + "/" + place).c_str(),
                [count = count, which = which](benchmark::State &state) {
                    suppressed(state, count, which, false);
                });
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
