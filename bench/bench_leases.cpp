// SPDX-License-Identifier: MIT
// The lease list and the search for a neighbour, each beside its plain form (fgets and sscanf with
// the format's own pattern) and beside reading the bytes alone. The neighbour table comes from a
// file in place of the command, whose start would hide everything else.
#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench.hpp"
#include "platform/text.h"
#include "prod_common_file.h"

using bench::count_lines;
using bench::must;

namespace
{

constexpr const char *kLeases = "/etc/dhcps.leases";
constexpr const char *kTable = "/tmp/table";

}  // namespace

extern "C" FILE *popen(const char *, const char *)
{
    return fopen(kTable, "re");
}

extern "C" int pclose(FILE *stream)
{
    return fclose(stream);
}

namespace
{

/** Writes a file of that many lines. */
template <typename Line>
void lay_out(const char *path, benchmark::State &state, const char *heading, Line line)
{
    FILE *const file = fopen(path, "we");
    must(file != nullptr, path);
    fputs(heading, file);
    for (int i = 0; i < state.range(0); ++i) {
        line(file, i);
    }
    must(fclose(file) == 0, path);
}

void lay_out_leases(benchmark::State &state)
{
    lay_out(kLeases, state, "", [](FILE *file, int i) {
        fprintf(file,
                "1700000000 02:00:5e:%02x:%02x:%02x 10.%d.%d.%d host-%d "
                "01:02:00:5e:%02x:%02x:%02x host-%d\n",
                i >> 16, i >> 8 & 0xFF, i & 0xFF, i >> 16, i >> 8 & 0xFF, i & 0xFF, i, i >> 16,
                i >> 8 & 0xFF, i & 0xFF, i);
    });
}

void lay_out_table(benchmark::State &state)
{
    lay_out(kTable, state,
            "IP address       HW type     Flags       HW address            Mask     Device\n",
            [](FILE *file, int i) {
                char address[32];
                snprintf(address, sizeof(address), "10.%d.%d.%d", i >> 16, i >> 8 & 0xFF, i & 0xFF);
                fprintf(file, "%-16s 0x1         0x%-10x02:00:5e:%02x:%02x:%02x     *        br0\n",
                        address, i % 10 == 0 ? 0U : 2U, i >> 16, i >> 8 & 0xFF, i & 0xFF);
            });
}

void read_bytes(const char *path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    char block[4096];
    while (read(fd, block, sizeof(block)) > 0) {
        benchmark::DoNotOptimize(block);
    }
    close(fd);
}

// ---- leases -----------------------------------------------------------------------------------

void leases(benchmark::State &state)
{
    lay_out_leases(state);
    for (auto _ : state) {
        DHCPS_CLIENT_LIST_STRU *list = nullptr;
        if (file_get_dhcps_clients_list(&list) != state.range(0)) {
            state.SkipWithError("clients are missing");
        }
        free(list);
    }
    count_lines(state);
}
BENCHMARK(leases)->Name("leases/library") LINES;

void lock_whole(int fd, short type)
{
    struct flock lock = {};
    lock.l_type = type;
    struct flock other = lock;
    if (type != F_UNLCK) {
        fcntl(fd, F_GETLK, &other);
    }
    fcntl(fd, F_SETLKW, &lock);
}

int plain_leases(DHCPS_CLIENT_LIST_STRU **list)
{
    FILE *const file = fopen(kLeases, "re");
    lock_whole(fileno(file), F_RDLCK);
    char line[1024];
    int count = 0;
    while (fgets(line, sizeof(line), file) != nullptr) {
        ++count;
    }
    *list = static_cast<DHCPS_CLIENT_LIST_STRU *>(
        calloc(static_cast<std::size_t>(count), sizeof(**list)));
    rewind(file);
    for (int i = 0; i < count && fgets(line, sizeof(line), file) != nullptr; ++i) {
        char mac[1024] = "";
        char address[1024] = "";
        char name[1024] = "";
        if (sscanf(line, "%*[^ ] %[^ ] %[^ ] %*[^*|:] %*[^ ] %[^\n]", mac, address, name) < 1) {
            continue;
        }
        DHCPS_CLIENT_LIST_STRU &client = (*list)[i];
        memccpy(client.mac, mac, 0, sizeof(client.mac) - 1);
        memccpy(client.ipaddr, address, 0, sizeof(client.ipaddr) - 1);
        memccpy(client.hostname, name, 0, sizeof(client.hostname) - 1);
        benchmark::DoNotOptimize(system_get_code_format(name));
    }
    lock_whole(fileno(file), F_UNLCK);
    fclose(file);
    return count;
}

void leases_plain(benchmark::State &state)
{
    lay_out_leases(state);
    for (auto _ : state) {
        DHCPS_CLIENT_LIST_STRU *list = nullptr;
        if (plain_leases(&list) != state.range(0)) {
            state.SkipWithError("clients are missing");
        }
        free(list);
    }
    count_lines(state);
}
BENCHMARK(leases_plain)->Name("leases/fgets+sscanf") LINES;

void leases_bytes(benchmark::State &state)
{
    lay_out_leases(state);
    for (auto _ : state) {
        read_bytes(kLeases);
    }
    count_lines(state);
}
BENCHMARK(leases_bytes)->Name("leases/bytes alone") LINES;

// ---- neighbours -------------------------------------------------------------------------------

constexpr const char *kAbsent = "02:00:5f:00:00:00";

void neighbours(benchmark::State &state)
{
    lay_out_table(state);
    for (auto _ : state) {
        char ip[16];
        if (find_ip_in_arpfile(kAbsent, ip) != HLX_ERR) {
            state.SkipWithError("a neighbour that is not there");
        }
    }
    count_lines(state);
}
BENCHMARK(neighbours)->Name("neighbours/library") LINES;

bool plain_search(const char *mac, char *ip)
{
    FILE *const table = fopen(kTable, "re");
    char line[256];
    bool found = false;
    must(fgets(line, sizeof(line), table) != nullptr, kTable);
    while (!found && fgets(line, sizeof(line), table) != nullptr) {
        char flags[16] = "";
        char known[18] = "";
        sscanf(line, "%*s %*s %15s %*s %*s %*s", flags);
        found = strncmp(flags, "0x0", 3) != 0 &&
                sscanf(line, "%15s %*s %*s %17s %*s %*s", ip, known) == 2 &&
                strncasecmp(known, mac, 17) == 0;
    }
    fclose(table);
    return found;
}

void neighbours_plain(benchmark::State &state)
{
    lay_out_table(state);
    for (auto _ : state) {
        char ip[16];
        if (plain_search(kAbsent, ip)) {
            state.SkipWithError("a neighbour that is not there");
        }
    }
    count_lines(state);
}
BENCHMARK(neighbours_plain)->Name("neighbours/fgets+sscanf") LINES;

void neighbours_bytes(benchmark::State &state)
{
    lay_out_table(state);
    for (auto _ : state) {
        read_bytes(kTable);
    }
    count_lines(state);
}
BENCHMARK(neighbours_bytes)->Name("neighbours/bytes alone") LINES;

}  // namespace

MAIN_IN_A_DEVICE()
