// SPDX-License-Identifier: MIT
// The files that the WAN daemons leave: addresses, connection time, DNS servers.
#include <cstring>
#include <initializer_list>

#include "fuzz/fuzz.hpp"
#include "prod_common_file.h"
#include "prod_common_wan.h"

namespace
{

void check(const WAN_IP_INFO_STRU &info)
{
    for (const auto *const field :
         {info.wan_ip, info.wan_mask, info.wan_gw, info.wan_dns1, info.wan_dns2}) {
        FUZZ_CHECK(strnlen(field, sizeof(info.wan_ip)) < sizeof(info.wan_ip));
    }
}

/** Outputs of exactly the documented size, so that a sanitizer sees the byte behind them. */
template <std::size_t Size>
class Room
{
  public:
    Room() : bytes_(static_cast<char *>(calloc(Size, 1))) {}
    ~Room()
    {
        FUZZ_CHECK(strnlen(bytes_, Size) < Size);
        free(bytes_);
    }
    Room(const Room &) = delete;
    Room &operator=(const Room &) = delete;
    char *get() const { return bytes_; }

  private:
    char *bytes_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    for (const char *const path : {"/etc/wan1.ini", "/etc/conntime1", "/etc/dns1"}) {
        fuzz::write_file(path, data, size);
    }
    WAN_IP_INFO_STRU by_line;
    const int found = get_wan_info_by_id(1, &by_line);
    FUZZ_CHECK(found == 0 || found == 1);
    check(by_line);

    WAN_IP_INFO_STRU by_key;
    FUZZ_CHECK(file_wan_ip_info_get(WAN_ID_1, &by_key) == HLX_OK);
    check(by_key);

    const Room<256> value;
    get_value_by_wanid(1, "ip", value.get());
    const Room<32> conntime;
    file_wan_conntime_get("/etc/conntime1", conntime.get());
    const Room<32> dns1;
    const Room<32> dns2;
    get_dns_by_wanid(1, dns1.get(), dns2.get());

    // What was read can be written, and reads the same again.
    FUZZ_CHECK(file_wan_ip_save("/etc/wan1.ini", &by_line) == HLX_OK);
    WAN_IP_INFO_STRU again;
    FUZZ_CHECK(get_wan_info_by_id(1, &again) == found);
    FUZZ_CHECK(strcmp(again.wan_ip, by_line.wan_ip) == 0);
    FUZZ_CHECK(strcmp(again.wan_mask, by_line.wan_mask) == 0);
    FUZZ_CHECK(strcmp(again.wan_gw, by_line.wan_gw) == 0);
    FUZZ_CHECK(strcmp(again.wan_dns1, by_line.wan_dns1) == 0);
    FUZZ_CHECK(strcmp(again.wan_dns2, by_line.wan_dns2) == 0);
    return 0;
}
