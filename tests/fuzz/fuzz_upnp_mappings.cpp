// SPDX-License-Identifier: MIT
// The UPnP daemon's mappings, which any LAN host may describe as it likes.
#include <cstring>

#include "fuzz/fuzz.hpp"
#include "prod_common_file.h"

namespace
{

template <std::size_t Size>
bool has_end(const char (&text)[Size])
{
    return strnlen(text, Size) < Size;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::write_file("/var/upnpmap", data, size);
    auto *const list = static_cast<UPNP_LIST_CFG_STRU *>(calloc(1, sizeof(UPNP_LIST_CFG_STRU)));
    FUZZ_CHECK(file_get_upnp_list(list) == HLX_OK);
    FUZZ_CHECK(list->count >= (size > 0 ? 1 : 0) && list->count <= 128);
    for (int i = 0; i < list->count; ++i) {
        const UPNP_ITEM_INFO_STRU &item = list->upnp_item[i];
        FUZZ_CHECK(has_end(item.ex_host) && has_end(item.ex_port) && has_end(item.in_host) &&
                   has_end(item.in_port) && has_end(item.protocol) && has_end(item.desc));
        // A field is there only behind those in front of it.
        FUZZ_CHECK(item.desc[0] == '\0' || item.protocol[0] != '\0');
        FUZZ_CHECK(item.protocol[0] == '\0' || item.in_port[0] != '\0');
        FUZZ_CHECK(item.in_port[0] == '\0' || item.in_host[0] != '\0');
        FUZZ_CHECK(item.in_host[0] == '\0' || item.ex_port[0] != '\0');
        FUZZ_CHECK(item.ex_port[0] == '\0' || item.ex_host[0] != '\0');
        FUZZ_CHECK(strchr(item.desc, ';') == nullptr);
    }
    free(list);
    return 0;
}
