// SPDX-License-Identifier: MIT
// A settings page as JSON: fifty configuration adders beside the same cJSON calls and reads of the
// store spelled out by hand.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench.hpp"
#include "json.h"
#include "platform/cfm.h"

namespace
{

constexpr int kKeys = 3000;
constexpr int kMembersOfEach = 10;

const std::string &name(const char *prefix, int i)
{
    static std::string names[2][kMembersOfEach];
    std::string &result = names[prefix[0] == 't' ? 0 : 1][i];
    if (result.empty()) {
        result = prefix + std::to_string(i);
    }
    return result;
}

/** A store of a device's size, with the fifty values and some that are absent. */
void fill_store()
{
    for (int i = 0; i < kKeys; ++i) {
        SetValue(("filler.no" + std::to_string(i)).c_str(), "some value");
    }
    for (int i = 0; i < kMembersOfEach; ++i) {
        SetValue(name("text", i).c_str(), "192.168.100.254");
        SetValue(name("number", i).c_str(), "1500");
        if (i % 5 != 0) {
            SetValue(("wan" + std::to_string(i) + ".name").c_str(), "a wan of this device");
            SetValue(("wan" + std::to_string(i) + ".mtu").c_str(), "1492");
        }
    }
}

void add_with_library(cJSON *object)
{
    for (int i = 0; i < kMembersOfEach; ++i) {
        const char *const text = name("text", i).c_str();
        const char *const number = name("number", i).c_str();
        cJSON_AddMibStringToObject(object, text, text, "");
        cJSON_AddMibIntToObject(object, number, number, 0);
        cJSON_AddMibBoolToObject(object, number, number, 0);
        cJSON_AddFormatMibStringToObject(object, text, "", "wan%d.%s", i, "name");
        cJSON_AddFormatMibNumToObject(object, number, 0, "wan%d.%s", i, "mtu");
    }
}

void add_by_hand(cJSON *object)
{
    char value[CFM_VALUE_SIZE];
    char key[512];
    for (int i = 0; i < kMembersOfEach; ++i) {
        const char *const text = name("text", i).c_str();
        const char *const number = name("number", i).c_str();
        value[0] = '\0';
        GetValue(text, value);
        cJSON_AddStringToObject(object, text, value[0] != '\0' ? value : "");
        value[0] = '\0';
        GetValue(number, value);
        cJSON_AddNumberToObject(object, number, value[0] != '\0' ? atoi(value) : 0);
        value[0] = '\0';
        GetValue(number, value);
        cJSON_AddBoolToObject(object, number, value[0] != '\0' ? atoi(value) : 0);
        snprintf(key, sizeof(key), "wan%d.%s", i, "name");
        cJSON_AddStringToObject(object, text, GetValue(key, value) != 0 ? value : "");
        snprintf(key, sizeof(key), "wan%d.%s", i, "mtu");
        cJSON_AddNumberToObject(object, number, GetValue(key, value) != 0 ? atoi(value) : 0);
    }
}

std::string page_text(void (*add)(cJSON *))
{
    cJSON *const object = cJSON_CreateObject();
    add(object);
    char *const text = cJSON_PrintUnformatted(object);
    const std::string result = text;
    cJSON_free(text);
    cJSON_Delete(object);
    return result;
}

void page(benchmark::State &state, void (*add)(cJSON *))
{
    for (auto _ : state) {
        cJSON *const object = cJSON_CreateObject();
        add(object);
        benchmark::DoNotOptimize(object);
        cJSON_Delete(object);
    }
}

BENCHMARK_CAPTURE(page, library, add_with_library);
BENCHMARK_CAPTURE(page, by_hand, add_by_hand);

}  // namespace

int main(int argc, char **argv)
{
    bench::must_be_in_a_device();
    fill_store();
    const std::string text = page_text(add_with_library);
    if (text != page_text(add_by_hand) || text.find("1492") == std::string::npos) {
        fprintf(stderr, "The two pages differ, or hold no values.\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
