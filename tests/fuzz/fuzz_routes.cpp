// SPDX-License-Identifier: MIT
// The kernel's routing table and the listing of the static routes, whatever they hold.
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/process.h"
#include "prod_common_file.h"
#include "support/files.hpp"

namespace
{

constexpr const char *kStatic = "/var/static_route";

bool has_end(const char *text, std::size_t size)
{
    return strnlen(text, size) < size;
}

}  // namespace

// The listing is the input itself.
int doSystemCmd(const char *, ...)
{
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const test::FakeProcNet proc;
    proc.write("route", "heading\n" + std::string{reinterpret_cast<const char *>(data), size});
    fuzz::write_file(kStatic, data, size);

    const int count = file_get_route_list_num();
    FUZZ_CHECK(count >= 0);
    for (const int room : {0, 1, count + 1, 64}) {
        // Of exactly that size, so that a sanitizer sees the byte behind it.
        auto *const records = static_cast<ROUTE_TABLE_ITEM_STRU *>(
            calloc(static_cast<std::size_t>(room), sizeof(ROUTE_TABLE_ITEM_STRU)));
        FUZZ_CHECK(file_get_route_table_list(records, room) == HLX_OK);
        int filled = 0;
        for (int i = 0; i < room; ++i) {
            const ROUTE_TABLE_ITEM_STRU &item = records[i];
            FUZZ_CHECK(has_end(item.dstip, sizeof(item.dstip)));
            FUZZ_CHECK(has_end(item.mask, sizeof(item.mask)));
            FUZZ_CHECK(has_end(item.gateway, sizeof(item.gateway)));
            FUZZ_CHECK(has_end(item.ifname, sizeof(item.ifname)));
            FUZZ_CHECK((item.mask[0] != '\0') == (item.gateway[0] != '\0'));
            filled += item.mask[0] != '\0' ? 1 : 0;
        }
        // The list goes on where the count has stopped.
        FUZZ_CHECK(filled >= (count < room ? count : room));
        free(records);
    }
    return 0;
}
