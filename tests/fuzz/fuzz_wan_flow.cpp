// SPDX-License-Identifier: MIT
// The remembered looks at the WANs' counters, which the default port computes rates from.
#include <cmath>
#include <ctime>

#include "fuzz/fuzz.hpp"
#include "platform/km.h"
#include "support/files.hpp"

/** A look without its wait. */
extern "C" int nanosleep(const timespec *, timespec *)
{
    return 0;
}

namespace
{

constexpr const char *kSamples = "/var/run/wan_flow.samples";

bool is_rate(const cJSON *flow, const char *name)
{
    const cJSON *const rates = cJSON_GetObjectItemCaseSensitive(flow, "WanRate");
    const cJSON *const rate = cJSON_GetObjectItemCaseSensitive(rates, name);
    return cJSON_IsNumber(rate) != 0 && std::isfinite(rate->valuedouble) && rate->valuedouble >= 0;
}

void ask()
{
    cJSON *const object = cJSON_CreateObject();
    FUZZ_CHECK(km_wan_statistic_get_wan_flow(object) == 0);
    const cJSON *const flows = cJSON_GetObjectItemCaseSensitive(object, "WanFlow");
    FUZZ_CHECK(cJSON_GetArraySize(flows) == 2);
    const cJSON *flow;
    int wan = 0;
    cJSON_ArrayForEach(flow, flows)
    {
        FUZZ_CHECK(cJSON_GetObjectItemCaseSensitive(flow, "WanId")->valueint == ++wan);
        FUZZ_CHECK(is_rate(flow, "UpRate") && is_rate(flow, "DownRate"));
    }
    cJSON_Delete(object);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    test::write_text("/etc/board.json",
                     R"({"wans": [{"id": 1, "interfaces": ["lo"]}, {"id": 2}]})");
    fuzz::write_file(kSamples, data, size);
    ask();
    // What it remembered itself is at most two looks at each WAN.
    FUZZ_CHECK(test::read_text(kSamples).size() <= 4 * 100);
    ask();
    return 0;
}
