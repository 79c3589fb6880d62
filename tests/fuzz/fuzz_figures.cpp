// SPDX-License-Identifier: MIT
// "/proc/meminfo" and "/proc/stat", as another kernel or a container's fake might have them.
#include <sys/mount.h>

#include <initializer_list>

#include "fuzz/fuzz.hpp"
#include "prod_common_systool.h"

namespace
{

constexpr const char *kMemory = "/tmp/meminfo";
constexpr const char *kCpu = "/tmp/stat";

/** Puts files of our own in the place of the kernel's. */
struct FakeProc {
    FakeProc()
    {
        fuzz::write_file(kMemory, nullptr, 0);
        fuzz::write_file(kCpu, nullptr, 0);
        FUZZ_CHECK(mount(kMemory, "/proc/meminfo", nullptr, MS_BIND, nullptr) == 0);
        FUZZ_CHECK(mount(kCpu, "/proc/stat", nullptr, MS_BIND, nullptr) == 0);
    }
};

}  // namespace

// Time passes at each look at the clock.
extern "C" u64 get_now_ms(void)
{
    static u64 now = 0;
    return now += 2000;
}

extern "C" unsigned int sleep(unsigned int)
{
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const FakeProc proc;
    fuzz::write_file(kMemory, data, size);
    int use = -1;
    FUZZ_CHECK(systool_get_memInfo(&use) == HLX_OK);
    systool_get_memfree();

    // The load between two samples that have nothing to do with each other.
    for (const std::size_t from : {std::size_t{0}, size / 2, std::size_t{0}}) {
        fuzz::write_file(kCpu, data + from, size - from);
        const int load = systool_get_cpu_percent();
        FUZZ_CHECK(load >= 0 && load <= 100);
    }
    return 0;
}
