// SPDX-License-Identifier: MIT
// Daemons ask for months: whatever a getter allocates it gives back. Some keep a little from their
// first call (a stream's buffer, an open converter), none keeps anything from a later one.
//
// PROD_HEAP_CALLS in the device's environment sets how often each is called: a million before a
// release, by "device/launch … -- env PROD_HEAP_CALLS=1000000 …". GTEST_TOTAL_SHARDS and
// GTEST_SHARD_INDEX beside it share the getters out among several devices.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <ostream>

#include "platform/cfm.h"
#include "platform/process.h"
#include "prod_common.h"
#include "support/allocator.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/time.hpp"

extern "C" void __libc_free(void *block);

namespace
{

struct Getter {
    const char *name;
    void (*call)();
};

void PrintTo(const Getter &getter, std::ostream *out)
{
    *out << getter.name;
}

char text[8192];
unsigned char mac[6];
int number;
WAN_IP_INFO_STRU ip_info;
WAN_STATUS_INFO_STRU wan_status;
WAN_INFO_FLOW_STRU flow;
LAN_DHCPC_IP_INFO_STRU lan_lease;
ROUTE_TABLE_ITEM_STRU routes[8];
UPNP_LIST_CFG_STRU mappings;
SYSLOG_LIST_STRU entries[8];
PROD_IP_CONFLICT_STRU ranges[64];
ipv6_addr_t addresses[4];

int clients()
{
    DHCPS_CLIENT_LIST_STRU *list = nullptr;
    const int count = file_get_dhcps_clients_list(&list);
    static_cast<void>(get_hostname_by_mac(list, count, "02:00:00:00:00:09"));
    free(list);
    return count;
}

int log_entries()
{
    int count = 0;
    file_syslog_get_lists(entries, LOG_ALL, &count, static_cast<int>(std::size(entries)));
    return count;
}

u32 file_bytes()
{
    void *data = nullptr;
    u32 length = 0;
    get_file_content("/etc/wan1.ini", &data, &length);
    free(data);
    return length;
}

/** The bytes of an attribute that is put into a list and looked up there. */
u32 attribute_bytes()
{
    unsigned char list[16] = {};
    auto *end = reinterpret_cast<mesh_attr_t *>(list);
    mesh_set_attr_u32(&end, 7, 0x01020304);
    u32 length = 0;
    mesh_get_attr(list, 12, 7, nullptr, &length);
    return length;
}

/** What comes out of a queue that a record was put into, under a lock. */
int queued()
{
    const int record = 7;
    int taken = 0;
    ipc_lock("heap_%d", 1);
    mq_put(MQ_PORTAL_SEND_SMS, &record, sizeof(record), 0);
    mq_get(MQ_PORTAL_SEND_SMS, &taken, sizeof(taken), 0);
    ipc_unlock("heap_%d", 1);
    return taken;
}

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
    GETTER(getMibPrefix(text, WL2G_SSID, 1)), GETTER(wifi_get_bss_ifname(0, 1, text)),
    GETTER(wifi_get_mib_radio(0, text)), GETTER(wifi_get_radio_prefix(0)),
    GETTER(free(encode_str_to_utf8("text"))), GETTER(prod_encode64(text, "text", 8)),
    GETTER(free(str_replace("a-b", "-", "+"))), GETTER(get_gb2312("text")),
    GETTER(clients()), GETTER(file_get_route_list_num()),
    GETTER(file_get_route_table_list(routes, std::size(routes))),
    GETTER(file_get_upnp_list(&mappings)), GETTER(log_entries()), GETTER(file_bytes()),
    GETTER(file_lan_dhcpc_get_ipinfo_and_status(&lan_lease)),
    GETTER(file_wan_flow_get(1, &flow)),
    GETTER(file_wan_status_info_get(HLX_L2TYPE_WIRED, getWanConnType(1), WAN_ID_1,
                                    get_sys_mode(), &wan_status)),
    GETTER(find_ip_in_arpfile("02:00:00:00:00:09", text)),
    GETTER(get_ipv6_addrs("lo", addresses, std::size(addresses))),
    GETTER(check_get_conflict_ip_list(ranges)), GETTER(get_dhcps_list_table()),
    GETTER(systool_get_cpu_percent()), GETTER(systool_get_memInfo(&number)),
    GETTER(audit_log_get_time(text, 64)), GETTER(find_usb_partitions(text, 128)),
    GETTER(get_eth_name(WAN_4)), GETTER(get_thread_name()),
    GETTER(xmesh_wifi_get_bss_mac("wlan0", text)), GETTER(attribute_bytes()), GETTER(queued()),
};
// clang-format on

constexpr const char *kAddresses = "/tmp/addresses";  // as the command shows them

/** Blocks that the whole process holds. */
std::atomic<long> blocks;

/** A device that has something to tell. */
void fill_device()
{
    ASSERT_NE(RestoreValue(), 0);
    test::run("ip link set lo up");
    test::write_text("/etc/dhcps.leases",
                     "1700000000 02:00:00:00:00:09 192.168.0.9 laptop 01:02:00:00:00:00:09\n");
    test::write_text("/etc/wan1.ini", "[wan]\nip=192.0.2.7\nmask=255.255.255.0\n");
    test::write_text("/etc/lan.cfg", "1");
    test::write_text("/var/static_route", "10.1.0.0/16 via 192.0.2.1 dev br0\n");
    test::write_text("/var/upnpmap", "80;192.0.2.1;80;192.168.0.9;TCP;web\n");
    test::write_text("/var/logs.txt", "2026-01-02 03:04:05;1;system started\n");
    ASSERT_EQ(clients(), 1);
    ASSERT_EQ(log_entries(), 1);
    ASSERT_GT(file_bytes(), 0U);
    ASSERT_EQ(file_get_upnp_list(&mappings), HLX_OK);
    ASSERT_EQ(mappings.count, 1);
    ASSERT_EQ(file_get_route_list_num(), 1);
    test::write_text(kAddresses, "    inet6 ::1/128 scope host\n");
    ASSERT_EQ(get_ipv6_addrs("lo", addresses, std::size(addresses)), 1);
    ASSERT_EQ(attribute_bytes(), 4U);
    ASSERT_EQ(queued(), 7);
}

class HeapGrowth : public testing::TestWithParam<Getter>
{
  protected:
    static void SetUpTestSuite() { fill_device(); }
};

TEST_P(HeapGrowth, TheGetterKeepsNothing)
{
    const test::SimulatedTime no_waits;
    const char *const wish = getenv("PROD_HEAP_CALLS");
    const long calls = wish != nullptr ? strtol(wish, nullptr, 10) : 100;
    ASSERT_GT(calls, 0);
    // What it has to say is not looked at here.
    fflush(stdout);
    const int console = dup(STDOUT_FILENO);
    ASSERT_NE(freopen("/dev/null", "we", stdout), nullptr);
    constexpr long kFirstCalls = 3;
    for (long i = 0; i < kFirstCalls; ++i) {
        GetParam().call();
    }
    const long before = blocks;
    for (long i = 0; i < calls; ++i) {
        GetParam().call();
    }
    const long grown = blocks - before;
    fflush(stdout);
    dup2(console, STDOUT_FILENO);
    close(console);
    EXPECT_EQ(grown, 0) << GetParam().name;
}
INSTANTIATE_TEST_SUITE_P(All, HeapGrowth, testing::ValuesIn(kGetters));

TEST(HeapCount, ALeakIsSeen)
{
    const long before = blocks;
    char *const kept = strdup("kept");
    EXPECT_EQ(blocks, before + 1);
    free(kept);
    EXPECT_EQ(blocks, before);
}

}  // namespace

// What a command takes is its own process's: what it prints is in a file.

int doSystemCmd(const char *, ...)
{
    return 0;
}

FILE *popen(const char *command, const char *)
{
    return fopen(strstr(command, "arp") != nullptr ? "/proc/net/arp" : kAddresses, "re");
}

int pclose(FILE *stream)
{
    return fclose(stream);
}

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
