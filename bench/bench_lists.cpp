// SPDX-License-Identifier: MIT
// The lists of the status pages beside fgets and sscanf with the same patterns, and beside reading
// the bytes alone.
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench.hpp"
#include "platform/debug.h"
#include "platform/process.h"
#include "prod_common_file.h"

using bench::count_lines;
using bench::write_text;

// What a list costs beside its lines: a shell for the static routes, the system's log.
int doSystemCmd(const char *, ...)
{
    return 0;
}
void log_debug_print(const char *, int, int, const char *, const char *, ...) {}

namespace
{

constexpr const char *kRoutes = "/proc/net/route";
constexpr const char *kStatic = "/var/static_route";
constexpr const char *kLog = "/var/logs.txt";

int lines_of(const benchmark::State &state)
{
    return static_cast<int>(state.range(0));
}

std::size_t room_of(const benchmark::State &state)
{
    return static_cast<std::size_t>(state.range(0));
}

/** A kernel's table of that many routes, in place of the one that the kernel would have to make. */
void make_routes(int lines)
{
    static bool covered = false;
    if (!covered) {
        bench::must(
            mount("tmpfs", "/proc", "tmpfs", 0, nullptr) == 0 && mkdir("/proc/net", 0755) == 0,
            "/proc");
        covered = true;
    }
    std::string text =
        "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
    for (int i = 0; i < lines; ++i) {
        char line[129];
        const int length =
            snprintf(line, sizeof(line), "eth%d\t%08X\t%08X\t0003\t0\t0\t%d\t%08X\t0\t0\t0", i % 4,
                     static_cast<unsigned int>(i) * 2654435761U,
                     static_cast<unsigned int>(i) * 40503U, i % 300, 0x00FFFFFFU);
        text += line;
        text += std::string(127 - static_cast<std::size_t>(length), ' ') + "\n";
    }
    write_text(kRoutes, text);
    write_text(kStatic, "");
}

void make_static_routes(int lines)
{
    make_routes(0);
    std::string text;
    for (int i = 0; i < lines; ++i) {
        text += "10." + std::to_string(i % 256) + "." + std::to_string(i / 256 % 256) +
                ".0/24 via 192.168.0." + std::to_string(i % 250 + 1) + " dev br0 \n";
    }
    write_text(kStatic, text);
}

void make_log(int lines)
{
    std::string text;
    for (int i = 0; i < lines; ++i) {
        text += "2026-01-02 03:04:" + std::to_string(10 + i % 50) + ";" +
                std::to_string(1 + i % 12) + ";WAN 1 is connected, address 100.64.1." +
                std::to_string(i % 250) + ", gateway 100.64.1.1.\n";
    }
    write_text(kLog, text);
}

void read_bytes(benchmark::State &state, const char *path)
{
    char block[4096];
    for (auto _ : state) {
        FILE *const file = fopen(path, "re");
        while (fread(block, 1, sizeof(block), file) > 0) {
            benchmark::ClobberMemory();
        }
        fclose(file);
    }
    count_lines(state);
}

// ---- routes -----------------------------------------------------------------------------------

void list_routes(benchmark::State &state)
{
    std::vector<ROUTE_TABLE_ITEM_STRU> records(room_of(state));
    for (auto _ : state) {
        if (file_get_route_table_list(records.data(), lines_of(state)) != HLX_OK ||
            records.back().mask[0] == '\0') {
            state.SkipWithError("not all were read");
        }
    }
    count_lines(state);
}

void routes(benchmark::State &state)
{
    make_routes(lines_of(state));
    list_routes(state);
}
BENCHMARK(routes)->Name("routes/library") LINES;

void routes_by_sscanf(benchmark::State &state)
{
    make_routes(lines_of(state));
    std::vector<ROUTE_TABLE_ITEM_STRU> records(room_of(state));
    for (auto _ : state) {
        FILE *const file = fopen(kRoutes, "re");
        char line[256];
        fgets(line, sizeof(line), file);
        std::size_t count = 0;
        while (count < records.size() && fgets(line, sizeof(line), file) != nullptr) {
            unsigned int destination;
            unsigned int gateway;
            unsigned int mask;
            ROUTE_TABLE_ITEM_STRU &record = records[count];
            count += sscanf(line, " %15s%X%X%*s%*s%*s%d%X%*s%*s%*s ", record.ifname, &destination,
                            &gateway, &record.metric, &mask) == 5
                         ? 1U
                         : 0U;
            benchmark::DoNotOptimize(destination + gateway + mask);
        }
        fclose(file);
        if (count != records.size()) {
            state.SkipWithError("not all were read");
        }
    }
    count_lines(state);
}
BENCHMARK(routes_by_sscanf)->Name("routes/fgets+sscanf") LINES;

void routes_bytes(benchmark::State &state)
{
    make_routes(lines_of(state));
    read_bytes(state, kRoutes);
}
BENCHMARK(routes_bytes)->Name("routes/bytes") LINES;

void routes_count(benchmark::State &state)
{
    make_routes(lines_of(state));
    for (auto _ : state) {
        if (file_get_route_list_num() != lines_of(state)) {
            state.SkipWithError("not all were counted");
        }
    }
    count_lines(state);
}
BENCHMARK(routes_count)->Name("routes counted/library") LINES;

void static_routes(benchmark::State &state)
{
    make_static_routes(lines_of(state));
    list_routes(state);
}
BENCHMARK(static_routes)->Name("static routes/library") LINES;

// ---- the system log ---------------------------------------------------------------------------

void entries(benchmark::State &state)
{
    make_log(lines_of(state));
    std::vector<SYSLOG_LIST_STRU> records(room_of(state));
    for (auto _ : state) {
        int count = 0;
        file_syslog_get_lists(records.data(), LOG_ALL, &count, lines_of(state));
        if (count != lines_of(state)) {
            state.SkipWithError("not all were read");
        }
    }
    count_lines(state);
}
BENCHMARK(entries)->Name("log/library") LINES;

void entries_by_sscanf(benchmark::State &state)
{
    make_log(lines_of(state));
    std::vector<SYSLOG_LIST_STRU> records(room_of(state));
    for (auto _ : state) {
        FILE *const file = fopen(kLog, "re");
        char line[1024];
        std::size_t count = 0;
        while (count < records.size() && fgets(line, sizeof(line), file) != nullptr) {
            SYSLOG_LIST_STRU &record = records[count];
            count += sscanf(line, "%[^;];%d;%[^\n]\n", record.date, &record.type, record.msg) == 3
                         ? 1U
                         : 0U;
        }
        fclose(file);
        if (count != records.size()) {
            state.SkipWithError("not all were read");
        }
    }
    count_lines(state);
}
BENCHMARK(entries_by_sscanf)->Name("log/fgets+sscanf") LINES;

void entries_bytes(benchmark::State &state)
{
    make_log(lines_of(state));
    read_bytes(state, kLog);
}
BENCHMARK(entries_bytes)->Name("log/bytes") LINES;

}  // namespace

MAIN_IN_A_DEVICE()
