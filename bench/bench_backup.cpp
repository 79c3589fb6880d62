// SPDX-License-Identifier: MIT
// The backup file of a device with 3,000 settings and 500 policies: how much of its making and
// loading is shell commands; its checksum beside zlib's; policy records as SQL values beside
// reading their file.
#include <dlfcn.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench.hpp"
#include "platform/process.h"
#include "prod_common_cfm.h"
#include "prod_common_systool.h"

using bench::must;
using bench::write_text;

namespace
{

using Clock = std::chrono::steady_clock;

constexpr int kKeys = 3000;
constexpr int kPolicies = 500;
constexpr const char *kRecords = "/etc/reboot_policy.cfg";

struct Commands {
    double seconds = 0;
    int count = 0;
} commands;

}  // namespace

extern "C" {

/** The waits are known; they are not what is measured. */
unsigned int sleep(unsigned int)
{
    return 0;
}

int doSystemCmd(const char *format, ...)
{
    char command[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(command, sizeof(command), format, args);
    va_end(args);
    static const auto real =
        reinterpret_cast<int (*)(const char *, ...)>(dlsym(RTLD_NEXT, "doSystemCmd"));
    const auto start = Clock::now();
    const int status = real("%s", command);
    commands.seconds += std::chrono::duration<double>(Clock::now() - start).count();
    ++commands.count;
    return status;
}
}

namespace
{

/** The number that the next process gets; nothing else makes processes here. */
int next_process()
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    return child;
}

/** While it lives, what the library and its commands print goes nowhere. */
class Silence
{
  public:
    Silence()
    {
        fflush(stdout);
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        for (int fd = 1; fd <= 2; ++fd) {
            kept_[fd - 1] = dup(fd);
            dup2(nothing, fd);
        }
        close(nothing);
    }
    ~Silence()
    {
        fflush(stdout);
        for (int fd = 1; fd <= 2; ++fd) {
            dup2(kept_[fd - 1], fd);
            close(kept_[fd - 1]);
        }
    }

  private:
    int kept_[2];
};

std::string record(int i)
{
    return "\r\nreboot_policy:enable=1\tled_status=0\tname=policy" + std::to_string(i) +
           "\treboot_en=1\treboot_type=2\ttime=300\trecog_en=0\tbroad_en=1";
}

std::string read_file(const char *path)
{
    std::string text;
    FILE *const file = fopen(path, "re");
    must(file != nullptr, path);
    char block[65536];
    for (std::size_t size; (size = fread(block, 1, sizeof(block), file)) > 0;) {
        text.append(block, size);
    }
    fclose(file);
    return text;
}

void fill_device()
{
    std::string settings;
    for (int i = 0; i < kKeys; ++i) {
        settings += "section" + std::to_string(i % 40) + ".key" + std::to_string(i) + "=value " +
                    std::to_string(i) + std::string(static_cast<std::size_t>(i % 40), 'v') + "\n";
    }
    write_text("/webroot/default.cfg", settings);
    must(system("cfm Upload") == 0, "cfm Upload");
    const Silence silence;
    upload_ac_policy();  // makes the database
    std::string records;
    for (int i = 0; i < kPolicies; ++i) {
        records += record(i);
    }
    write_text(kRecords, records);
    upload_ac_policy();
}

/** Runs @p work and reports the share of its commands. */
template <typename Work>
void split(benchmark::State &state, Work work)
{
    double whole = 0;
    commands = {};
    int processes = 0;
    for (auto _ : state) {
        const Silence silence;
        const int before = next_process();
        const auto start = Clock::now();
        work();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        processes += next_process() - before - 1;
        whole += seconds;
        state.SetIterationTime(seconds);
    }
    const auto rounds = static_cast<double>(state.iterations());
    state.counters["commands"] = commands.count / rounds;
    state.counters["processes"] = processes / rounds;
    state.counters["ms_in_commands"] = commands.seconds * 1e3 / rounds;
    state.counters["ms_besides"] = (whole - commands.seconds) * 1e3 / rounds;
}

void save(benchmark::State &state)
{
    char name[PROD_BACKUP_NAME_SIZE];
    split(state, [&] { prod_systool_sys_cfg_download(name); });
}

void load(benchmark::State &state)
{
    char name[PROD_BACKUP_NAME_SIZE];
    {
        const Silence silence;
        prod_systool_sys_cfg_download(name);
    }
    const std::string file = read_file(name);
    split(state, [&] {
        const auto size = static_cast<long>(file.size());
        if (prod_systool_cfg_upload(file.c_str(), size) != CFG_UPGRADE_OK) {
            state.SkipWithError("not loaded");
        }
    });
}

/** A file that is refused for its checksum alone. */
std::string spoilt(std::size_t size)
{
    return std::string(size, 'x') + "crc=1\n";
}

void checksum_library(benchmark::State &state)
{
    const std::string file = spoilt(static_cast<std::size_t>(state.range(0)));
    const Silence silence;
    for (auto _ : state) {
        const auto size = static_cast<long>(file.size());
        must(prod_systool_cfg_upload(file.c_str(), size) == CFG_FILE_INVALID, "refused");
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void checksum_zlib(benchmark::State &state)
{
    const std::string file = spoilt(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc32(0, reinterpret_cast<const Bytef *>(file.data()),
                                       static_cast<uInt>(state.range(0))));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

/** As many records as make a full statement. */
std::string some_records()
{
    std::string text;
    for (int i = 0; i < 180; ++i) {
        text += record(i);
    }
    return text;
}

void records_library(benchmark::State &state)
{
    const std::string text = some_records();
    write_text(kRecords, text);
    static char out[PROD_POLICY_TEXT_SIZE];
    for (auto _ : state) {
        out[0] = '\0';
        assem_policy_data(kRecords, "reboot_policy:", out);
        benchmark::DoNotOptimize(out[0]);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(text.size()));
}

void records_fgets(benchmark::State &state)
{
    const std::string text = some_records();
    write_text(kRecords, text);
    for (auto _ : state) {
        FILE *const file = fopen(kRecords, "re");
        char line[1024];
        while (fgets(line, sizeof(line), file) != nullptr) {
            benchmark::DoNotOptimize(line[0]);
        }
        fclose(file);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<long>(text.size()));
}

BENCHMARK(save)->Name("backup/save")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(load)->Name("backup/load")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(checksum_library)
    ->Name("checksum/prod_systool_cfg_upload")
    ->Arg(200 << 10)
    ->Arg(16 << 20);
BENCHMARK(checksum_zlib)->Name("checksum/zlib")->Arg(200 << 10)->Arg(16 << 20);
BENCHMARK(records_library)->Name("records/assem_policy_data");
BENCHMARK(records_fgets)->Name("records/fgets");

}  // namespace

int main(int argc, char **argv)
{
    bench::must_be_in_a_device();
    fill_device();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
