// SPDX-License-Identifier: MIT
// The kernel's list of flash partitions, for a board whose file names none.
#include <unistd.h>

#include <cstring>

#include "firmware_tool.h"
#include "fuzz/fuzz.hpp"
#include "platform/firmware.h"
#include "support/files.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const test::FakeProcNet proc;
    static const int linked = symlink("/tmp/mtd", "/proc/mtd");
    FUZZ_CHECK(linked == 0);
    fuzz::write_file("/tmp/mtd", data, size);
    test::write_text("/etc/board.json", "{}");

    char path[FW_PATH_SIZE];
    memset(path, '#', sizeof(path));
    u64 room = 7;
    const int result = fw_partition(path, &room);
    if (result == 0) {
        FUZZ_CHECK(strncmp(path, "/dev/mtdblock", 13) == 0 && strlen(path) < sizeof(path));
    } else {
        FUZZ_CHECK(result == FW_CHECK_NO_PARTITION && path[0] == '#' && room == 7);
    }
    return 0;
}
