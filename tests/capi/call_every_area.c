/* SPDX-License-Identifier: MIT */
/* A C program that calls every area of the library, as a daemon of the device does. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <unistd.h>

#include "prod_common.h"

static int failures;

#define EXPECT(condition)                                                   \
    do {                                                                    \
        if (!(condition)) {                                                 \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            ++failures;                                                     \
        }                                                                   \
    } while (0)

static void debug_levels(void)
{
    EXPECT(set_dbg_level("capi", PROD_DBG_DEBUG) == 1);
    EXPECT(get_dbg_level("capi") == PROD_DBG_DEBUG);
    EXPECT(get_dbg_info() != NULL && get_dbg_info()->num == 1);
    PROD_LOG_DEBUG("capi", "%s of %d", "one", 2);
    PROD_LOG_INFO("capi", "suppressed");
    PROD_LOG_ENTER("capi");
    show_dbg_level(NULL);
    EXPECT(level2char(PROD_DBG_ERROR) == 'E');
    EXPECT(level2color(PROD_DBG_TRACE) == -1);
    EXPECT(set_dbg_level("capi", PROD_DBG_OFF) == 1);
}

static void shared_memory(void)
{
    char *memory = get_shared_memory("capi", 16);
    EXPECT(memory != NULL && memory[0] == 0);
    EXPECT(shmdt(memory) == 0);
}

static void locks(void)
{
    FILE *file = tmpfile();
    EXPECT(ipc_lock("capi/%d", 1) == 1);
    EXPECT(ipc_lock_nowait("capi_%s", "1") == 0);
    EXPECT(ipc_lock_timeout(0, "capi/1") == 0);
    EXPECT(ipc_unlock("capi/1") == 1);
    EXPECT(fd_wlock(fileno(file)) == 1 && fd_rlock(fileno(file)) == 1);
    EXPECT(fd_unlock(fileno(file)) == 1);
    fclose(file);
}

static void queues(void)
{
    char record[8] = "";
    EXPECT(get_or_create_mq(MQ_PORTAL_SEND_SMS) >= 0);
    EXPECT(mq_put(MQ_PORTAL_SEND_SMS, "record", 7, 0) == 1);
    EXPECT(mq_get(MQ_PORTAL_SEND_SMS, record, sizeof(record), 0) == 1);
    EXPECT(strcmp(record, "record") == 0);
    EXPECT(mq_get(MQ_PORTAL_SEND_SMS, record, sizeof(record), 0) == 0);
}

static void name_thread(void *name)
{
    EXPECT(strcmp(get_thread_name(), "thread") == 0);
    EXPECT(set_thread_name("%s", (const char *)name) == 1);
    EXPECT(strcmp(get_thread_name(), name) == 0);
}

static void threads(void)
{
    char name[] = "capi";
    pthread_t thread = start_thread(name_thread, name);
    EXPECT(thread != (pthread_t)-1 && pthread_join(thread, NULL) == 0);
}

static int changes[2];

static void tell(const char *path, const char *name)
{
    (void)path;
    EXPECT(write(changes[1], name, 1) == 1);
}

static void changed_files(void)
{
    char first = '\0';
    EXPECT(pipe(changes) == 0);
    EXPECT(fnotify_listen("/tmp", tell) == 1);
    touch_file("/tmp/watched");
    EXPECT(read(changes[0], &first, 1) == 1 && first == 'w');
}

static void strings(void)
{
    char text[] = "  a b ";
    char hex[8];
    char *joined = str_join("abc", "-");
    EXPECT(strcmp(str_trim(text, ' '), "a b") == 0);
    EXPECT(joined != NULL && strcmp(joined, "a-b-c") == 0);
    free(joined);
    EXPECT(strcmp(str_to_hex("abc", hex, sizeof(hex)), "616263") == 0);
    EXPECT(strcmp(get_self_pname(), "<null>") != 0);
}

static void files(void)
{
    void *data = NULL;
    u32 length = 0;
    EXPECT(write_file("/tmp/capi", "text", 4) == 1);
    EXPECT(get_file_content("/tmp/capi", &data, &length) == 1);
    EXPECT(length == 4 && strcmp(data, "text") == 0);
    free(data);
}

static void configuration(void)
{
    char value[2308] = "";
    prod_cfm_init();
    EXPECT(prod_cfm_set_val("capi.key", "7") == 1);
    EXPECT(prod_cfm_set_val("capi.key", "7") == 0);
    EXPECT(prod_cfm_get_val("capi.key", value) != 0 && strcmp(value, "7") == 0);
    EXPECT(prod_cfm_get_int_val("capi.%s", "key") == 7);
    EXPECT(prod_cfm_is_change() == 1);
    EXPECT(prod_cfm_unset_val("capi.key") == 1);
}

static void json(void)
{
    cJSON *object = cJSON_CreateObject();
    prod_cfm_set_val("capi.name", "router");
    cJSON_AddMibStringToObject(object, "name", "capi.name", "none");
    cJSON_AddFormatStringToObject(object, "text", "%d%%", 50);
    EXPECT(strcmp(cJSON_GetString(object, "name", ""), "router") == 0);
    EXPECT(strcmp(cJSON_GetString(object, "text", ""), "50%") == 0);
    EXPECT(cJSON_GetInt(object, "absent", 3) == 3);
    cJSON_Delete(object);
    prod_cfm_unset_val("capi.name");
}

static void wireless(void)
{
    char name[256];
    EXPECT(strcmp(wifi_get_mibname("wlan0", "band", name), "wlan0_band") == 0);
    EXPECT(wifi_set_bss_val(2, 0, "bss_ssid", "capi") == 1);
    EXPECT(wifi_get_bss_int_val(2, 0, "absent") == 0);
}

static void hardware_and_system(void)
{
    char mode[16] = "";
    EXPECT(get_vlan_id_by_wan_id(2) == 3);
    EXPECT(get_port_link_status(99) == 0);
    prod_cfm_set_val("sys.workmode", "ap");
    EXPECT(get_systerm_mode(mode) == QX_AP_MODE && strcmp(mode, "ap") == 0);
    EXPECT(brand_is_kavro() == 1);
    EXPECT(prod_check_file_exist("/proc") == 1);
    EXPECT(prod_check_device_exist("lo") == 1);
    EXPECT(get_now_ms() > 0);
    EXPECT(strlen(get_datetime_str()) == strlen("2026-01-31 12:00:00"));
}

static void networks(void)
{
    unsigned char mac[6];
    char text[18];
    EXPECT(ipmask_to_numeric("255.255.255.0") == 24);
    EXPECT(mac_str_to_bin("00:11:22:aa:bb:cc", mac) == 1);
    EXPECT(mac_bin_to_str(mac, text, sizeof(text)) == 1 && strcmp(text, "00:11:22:AA:BB:CC") == 0);
    prod_cfm_set_val("sys.ports", "43210");
    prod_cfm_set_val("wans.flag", "1");
    EXPECT(wanid_to_phyid(1) == 4);
    EXPECT(phyid_to_lanid(0) == 1);
}

static void ipv6(void)
{
    const unsigned char mac[6] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
    const struct in6_addr prefix = {{{0x20, 0x01, 0x0d, 0xb8}}};
    struct in6_addr address;
    ipv6_addr_t all[2];
    char text[41] = "";
    char other[41] = "";
    EXPECT(get_ipv6_prefix_len("lo") == 0 || get_ipv6_prefix_len("lo") == 128);
    EXPECT(get_link_ipv6_prefix_len("lo") == 0);
    EXPECT(get_link_ipv6_str("lo", text) == 0);
    EXPECT(get_ipv6_str("absent", text) == 0);
    EXPECT(get_ipv6_addrs("absent", all, 2) == 0);
    EXPECT(get_ipv6_def_gw(text) == 0);
    EXPECT(get_ipv6_dns(text, other) == 0 && text[0] == '\0');
    EXPECT(generate_ipv6_by_mac(&prefix, 64, mac, &address) == 1 && address.s6_addr[15] == 0x55);
    prod_cfm_set_val("wans.flag", "0");
    wan_interface_addr_init();
}

static void address_ranges(void)
{
    PROD_IP_CONFLICT_STRU lan;
    char address[16] = "";
    prod_cfm_set_val("lan.ip", "192.168.0.1");
    prod_cfm_set_val("lan.mask", "255.255.255.0");
    EXPECT(prod_check_ip_conflict("192.168.0.10", "255.255.255.0", &lan, address) == 1);
    EXPECT(lan.type == PROD_CONFLICT_IP_LAN && strcmp(lan.ip, "192.168.0.1") == 0);
    EXPECT(prod_check_ip_conflict(address, lan.mask, &lan, address) == 0);
    EXPECT(check_get_new_ipaddr_by_hostid("192.168.5.77", lan.mask, 1, address) == 0);
    EXPECT(strcmp(address, "192.168.5.1") == 0);
    EXPECT(prod_check_ip("192.168.5.1") == 0 && prod_system_param_valid("a|b") == 0);
}

static void wan_status(void)
{
    WAN_IP_INFO_STRU saved = {"100.64.1.7", "255.255.255.0", "100.64.1.1", "9.9.9.9", "1.1.1.1"};
    WAN_IP_INFO_STRU read;
    WAN_STATUS_INFO_STRU status;
    EXPECT(file_wan_ip_save(g_wan_ip_info[0], &saved) == HLX_OK);
    EXPECT(file_wan_ip_info_get(WAN_ID_1, &read) == HLX_OK);
    EXPECT(memcmp(read.wan_gw, "100.64.1.1", sizeof("100.64.1.1")) == 0);
    EXPECT(file_wan_status_info_get(HLX_L2TYPE_WIRED, HLX_WAN_CONNECT_DHCP, WAN_ID_1,
                                    HLX_SYS_MODE_ADSL_GW, &status) == HLX_OK);
    EXPECT(status.link_status == HLX_WAN_NO_WIRE && status.ip_info.wan_ip[0] == '\0');
}

int main(void)
{
    debug_levels();
    shared_memory();
    locks();
    queues();
    threads();
    strings();
    files();
    configuration();
    json();
    wireless();
    hardware_and_system();
    networks();
    ipv6();
    address_ranges();
    wan_status();
    changed_files();
    return failures != 0;
}
