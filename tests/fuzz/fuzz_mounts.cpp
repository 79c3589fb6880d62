// SPDX-License-Identifier: MIT
// What the kernel tells under /proc: its list of mounts and its line about a process, whose name
// the process chose itself.
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/process.h"
#include "prod_common_check.h"
#include "support/files.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text{reinterpret_cast<const char *>(data), size};
    const test::MountedFolder proc{"/proc", "size=128k"};

    test::write_text("/proc/mounts", text);
    const int mounted = check_dir_is_mounts("sda1");
    FUZZ_CHECK(mounted == 0 || text.find("/etc/upan/sda1") != std::string::npos);
    // Whatever stands before it, a sound line is found.
    test::write_text("/proc/mounts", text + "\n/dev/sdb /etc/upan/sdb2 vfat rw 0 0\n");
    FUZZ_CHECK(check_dir_is_mounts("sdb2") == 1);
    FUZZ_CHECK(check_dir_is_mounts("sda1") == mounted);

    test::write_text("/proc/7/stat", text);
    test::write_text("/proc/8/stat", "8 (other) S 1 8 8 0\n");
    const int runs = prod_check_app_exist("app");
    FUZZ_CHECK(runs == 0 || text.find("(app") != std::string::npos);
    FUZZ_CHECK(prod_check_app_exist("other") == 1);
    FUZZ_CHECK(prod_check_app_exist("") == 0);
    const int known = monitor_check_exist("app");
    FUZZ_CHECK(known == 0 || text.find("(app)") != std::string::npos);
    FUZZ_CHECK(monitor_check_exist("other") != 0);
    return 0;
}
