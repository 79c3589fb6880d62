// SPDX-License-Identifier: MIT
// Daemons ask for months: whatever a getter allocates it gives back. Some keep a little from their
// first call (a stream's buffer, an open converter), none keeps anything from a later one.
//
// PROD_HEAP_CALLS sets how often each is called: 1000000 before a release.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "prod_common.h"
#include "support/allocator.hpp"

extern "C" void __libc_free(void *block);

namespace
{

struct Getter {
    const char *name;
    void (*call)();
};

char text[8192];
unsigned char mac[6];
WAN_IP_INFO_STRU ip_info;

// clang-format off
#define GETTER(call) {#call, [] { static_cast<void>(call); }}
constexpr Getter kGetters[] = {
    GETTER(get_dbg_level("prod")), GETTER(get_dbg_info()), GETTER(get_self_pname()),
    GETTER(prod_cfm_get_val("lan.ip", text)), GETTER(prod_cfm_get_fmt_val("wan%d.proto", text, 1)),
    GETTER(prod_cfm_get_int_val("lan.vlan")), GETTER(prod_cfm_get_uint_val("lan.vlan")),
    GETTER(prod_cfm_get_double_val("lan.vlan")), GETTER(prod_cfm_is_change()),
    GETTER(lanx_to_sw_port(1)), GETTER(wanid_to_sw_port(1)), GETTER(check_dir_is_mounts("upan")),
    GETTER(file_wan_ip_info_get(WAN_ID_1, &ip_info)),
    GETTER(file_wan_get_extra_ip_info(WAN_ID_1, &ip_info)), GETTER(get_wan_info_by_id(1, &ip_info)),
    GETTER(file_get_ip_info_from_ini("/etc/wan1.ini", &ip_info)),
    GETTER(file_wan_get_up_time("/etc/wan1.ini")), GETTER(file_wan_conntime_get("/etc/wan1.ini", text)),
    GETTER(get_dns_by_wanid(1, text, text + 64)),
    GETTER(get_port_link_status(1)), GETTER(get_vlan_id_by_wan_id(1)),
    GETTER(prod_common_get_phyifname(1, text, 64)), GETTER(prod_common_get_port_ifname(1, text, 64)),
    GETTER(prod_common_get_wan_main_ifname(1, text, 64)),
    GETTER(ifaddrs_get_lan_ifname()), GETTER(ifaddrs_get_mac_by_ip("192.168.0.9", mac)),
    GETTER(ifaddrs_get_macstr_by_ip("192.168.0.9", text)),
    GETTER(lan_get_macstr_by_ip("192.168.0.9", text)),
    GETTER(ifaddrs_get_ip_by_macstr(text, "02:00:00:00:00:09")), GETTER(get_mtu_by_ifname("lo")),
    GETTER(ifaddrs_get_interface_mask("lo")), GETTER(get_mac_by_ifname("lo", mac)),
    GETTER(get_lan_mac(text)), GETTER(get_ipv6_prefix_len("lo")),
    GETTER(get_link_ipv6_prefix_len("lo")), GETTER(get_ipv6_str("lo", text)),
    GETTER(get_link_ipv6_str("lo", text)), GETTER(get_ipv6_def_gw(text)),
    GETTER(get_ipv6_dns(text, text + 64)), GETTER(getAllWanDns(text, 1024)),
    GETTER(get_systerm_mode(text)), GETTER(get_sys_mode()), GETTER(brand_is_kavro()),
    GETTER(lang_is_cn()), GETTER(get_prod_version(text, 64)), GETTER(get_hard_version(text, 64)),
    GETTER(get_svn_version()), GETTER(get_policy_version(text, 64)),
    GETTER(systool_get_memfree()), GETTER(systool_get_curtime(text)), GETTER(get_now_us()),
    GETTER(get_now_ms()), GETTER(get_sys_uptime()), GETTER(get_date_str()),
    GETTER(get_datetime_str()), GETTER(get_date_str_by_sec(1)), GETTER(get_datetime_str_by_sec(1)),
    GETTER(prod_common_usb_get_diskname(text, 128)), GETTER(wanid_to_phyid(1)),
    GETTER(lanid_to_phyid(1)), GETTER(web_portid_to_phyid(1)), GETTER(phyid_to_web_portid(1)),
    GETTER(phyid_to_port_index(1)), GETTER(phyid_to_wanid(1)), GETTER(phyid_is_wan(1)),
    GETTER(phyid_to_lanid(1)), GETTER(phyid_is_lan(1)), GETTER(wan_name_to_id("wan1")),
    GETTER(ifname_to_wanid("eth1")), GETTER(phyid_to_vid(1)), GETTER(wanid_to_vifname(1)),
    GETTER(get_value_by_wanid(1, "wan%d.proto", text)), GETTER(get_mac_by_wanid(1, text)),
    GETTER(system_wan_get_link_status(WAN_ID_1, getWanConnType(1), get_sys_mode())),
    GETTER(ifaddrs_get_wan_ifname(1, 0, getWanConnType(1))),
    GETTER(system_wan_ip_get("lo", text, WAN_ID_1)), GETTER(getWanConnType(1)),
    GETTER(get_wisp_connect_type()), GETTER(get_dns_server_by_idx(1, text)),
    GETTER(prod_common_get_wanifname(1, text, 64)), GETTER(get_netcheck_hostname(text)),
    GETTER(wifi_get_mibname("wlan0", "ssid", text)), GETTER(wifi_get_radio_val(0, "channel", text)),
    GETTER(wifi_get_radio_int_val(0, "channel")), GETTER(wifi_get_bss_val(0, 0, "ssid", text)),
    GETTER(wifi_get_bss_int_val(0, 0, "hide")), GETTER(wifi_get_bss_double_val(0, 0, "hide")),
    GETTER(get_wifi_workmode()), GETTER(wifi_get_bss_enable("wlan0")),
    GETTER(get_wifi_band_status(0)), GETTER(get_wifi_status()),
    GETTER(free(encode_str_to_utf8("text"))),
};
// clang-format on

/** Blocks that the whole process holds. */
std::atomic<long> blocks;

TEST(HeapGrowth, NoGetterKeepsAnything)
{
    const char *const wish = getenv("PROD_HEAP_CALLS");
    const long calls = wish != nullptr ? strtol(wish, nullptr, 10) : 100;
    ASSERT_GT(calls, 0);
    // What they have to say is not looked at here; what grew is told when all is done.
    fflush(stdout);
    const int console = dup(STDOUT_FILENO);
    ASSERT_NE(freopen("/dev/null", "we", stdout), nullptr);
    long grown[std::size(kGetters)] = {};
    long *growth = grown;
    constexpr long kFirstCalls = 3;
    for (const Getter &getter : kGetters) {
        for (long i = 0; i < kFirstCalls; ++i) {
            getter.call();
        }
        const long before = blocks;
        for (long i = 0; i < calls; ++i) {
            getter.call();
        }
        *growth++ = blocks - before;
    }
    fflush(stdout);
    dup2(console, STDOUT_FILENO);
    close(console);
    for (std::size_t i = 0; i < std::size(kGetters); ++i) {
        EXPECT_EQ(grown[i], 0) << kGetters[i].name;
    }
}

TEST(HeapGrowth, ALeakIsSeen)
{
    const long before = blocks;
    char *const kept = strdup("kept");
    EXPECT_EQ(blocks, before + 1);
    free(kept);
    EXPECT_EQ(blocks, before);
}

}  // namespace

// The process's allocator, counting.

void *malloc(std::size_t size)
{
    void *const block = test::real_malloc(size);
    blocks += block != nullptr;
    return block;
}

void *calloc(std::size_t count, std::size_t size)
{
    void *const block = test::real_calloc(count, size);
    blocks += block != nullptr;
    return block;
}

void *realloc(void *block, std::size_t size)
{
    void *const moved = test::real_realloc(block, size);
    blocks += (moved != nullptr) - (block != nullptr && (moved != nullptr || size == 0));
    return moved;
}

void free(void *block)
{
    blocks -= block != nullptr;
    __libc_free(block);
}
