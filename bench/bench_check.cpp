// SPDX-License-Identifier: MIT
// The scan for a clash among address ranges, beside the loop that one would write over ranges that
// are numbers already and beside the same loop with the texts read on the way.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <vector>

#include "platform/address.h"
#include "prod_common_check.h"

namespace
{

constexpr int kMost = 99;  // ranges that a scan takes; 100 is its answer for an error
constexpr const char *kIp = "192.168.200.1";
constexpr const char *kMask = "255.255.255.0";

/** Networks 10.x.1.0/24, none of which is in the way. */
std::vector<PROD_IP_CONFLICT_STRU> ranges()
{
    std::vector<PROD_IP_CONFLICT_STRU> set(kMost);
    for (int i = 0; i < kMost; ++i) {
        PROD_IP_CONFLICT_STRU &range = set[static_cast<std::size_t>(i)];
        range.type = PROD_CONFLICT_IP_QVLAN;
        snprintf(range.ip, sizeof(range.ip), "10.%d.1.1", 100 + i);
        snprintf(range.mask, sizeof(range.mask), "%s", kMask);
    }
    return set;
}

std::uint32_t number(const char *text)
{
    return ntohl(inet_addr(text));
}

void library(benchmark::State &state)
{
    const std::vector<PROD_IP_CONFLICT_STRU> set = ranges();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            prod_check_conflict_with_ip_set(kIp, kMask, set.data(), kMost, PROD_CONFLICT_IP_MAX));
    }
    state.SetItemsProcessed(state.iterations() * kMost);
}
BENCHMARK(library)->Name("scan/99 ranges/library");

/** What the port alone costs: the library asks it about each range. */
void port(benchmark::State &state)
{
    const std::vector<PROD_IP_CONFLICT_STRU> set = ranges();
    for (auto _ : state) {
        for (const PROD_IP_CONFLICT_STRU &range : set) {
            benchmark::DoNotOptimize(check_ip_is_same_net(kIp, kMask, range.ip, range.mask));
        }
    }
    state.SetItemsProcessed(state.iterations() * kMost);
}
BENCHMARK(port)->Name("scan/99 ranges/the port's comparisons");

/** Each range's texts read once, the range under test before. */
void texts(benchmark::State &state)
{
    const std::vector<PROD_IP_CONFLICT_STRU> set = ranges();
    for (auto _ : state) {
        const std::uint32_t ip = number(kIp);
        const std::uint32_t mask = number(kMask);
        int found = kMost;
        for (int i = 0; i < kMost && found == kMost; ++i) {
            const PROD_IP_CONFLICT_STRU &range = set[static_cast<std::size_t>(i)];
            if (((number(range.ip) ^ ip) & number(range.mask) & mask) == 0) {
                found = i;
            }
        }
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations() * kMost);
}
BENCHMARK(texts)->Name("scan/99 ranges/a loop that reads the texts");

/** The floor: ranges that were read before. */
void numbers(benchmark::State &state)
{
    struct Net {
        std::uint32_t ip;
        std::uint32_t mask;
    };
    std::vector<Net> nets;
    for (const PROD_IP_CONFLICT_STRU &range : ranges()) {
        nets.push_back({number(range.ip), number(range.mask)});
    }
    Net asked{number(kIp), number(kMask)};
    for (auto _ : state) {
        benchmark::DoNotOptimize(asked);
        int found = kMost;
        for (int i = 0; i < kMost && found == kMost; ++i) {
            const Net &net = nets[static_cast<std::size_t>(i)];
            if (((net.ip ^ asked.ip) & net.mask & asked.mask) == 0) {
                found = i;
            }
        }
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations() * kMost);
}
BENCHMARK(numbers)->Name("scan/99 ranges/a loop over numbers");

}  // namespace

BENCHMARK_MAIN();
