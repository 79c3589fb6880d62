/* SPDX-License-Identifier: MIT */
/* A C program that calls every area of the library, as a daemon of the device does. */
#include <arpa/inet.h>
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

static void lan_move(void)
{
    db_table *table = get_ip_mac_bind_table();
    db_val_t values[3];
    db_row_t *row;
    EXPECT(table != NULL && table->col_num == 3);
    if (table == NULL)
        return;
    values[0].s = "192.168.0.9";
    values[1].s = "02:00:00:00:00:09";
    values[2].s = NULL;
    EXPECT(table->add(table, values) > 0);
    check_lanip_change_sync_ipmac_bind(inet_addr("192.168.1.1"), inet_addr("255.255.255.0"),
                                       inet_addr("255.255.255.0"));
    row = table->find(table, 0, "192.168.1.9", 0);
    EXPECT(row != NULL && strcmp(row->values[1].s, "02:00:00:00:00:09") == 0);
    free(row);
}

static void encodings(void)
{
    char text[8];
    char *converted = encode_chinese("utf8", "abc");
    EXPECT(converted != NULL && strcmp(converted, "abc") == 0);
    free(converted);
    converted = encode_str_to_utf8("abc");
    EXPECT(converted != NULL && strcmp(converted, "abc") == 0);
    free(converted);
    EXPECT(get_gb2312("abc") == 0);
    prod_encode64(text, "abc", sizeof(text));
    EXPECT(strcmp(text, "YWJj") == 0);
    EXPECT(prod_decode64(text, "YWJj", sizeof(text)) == 0 && strcmp(text, "abc") == 0);
}

static void count_call(rb_node *node, void *calls)
{
    (void)node;
    ++*(int *)calls;
}

static void tree(void)
{
    rb_root root = {NULL};
    rb_node low = {0, NULL, NULL};
    rb_node high = {0, NULL, NULL};
    rb_node other;
    rb_node *deepest;
    int calls = 0;
    root.rb_node = &low;
    rb_insert_color(&low, &root);
    rb_set_parent(&high, &low);
    rb_set_color(&high, 0);
    low.rb_right = &high;
    rb_insert_color(&high, &root);
    rb_augment_insert(&high, count_call, &calls);
    rb_augment_path(&high, count_call, &calls);
    EXPECT(calls == 4);
    EXPECT(rb_first(&root) == &low && rb_last(&root) == &high);
    EXPECT(rb_next(&low) == &high && rb_prev(&high) == &low);
    rb_replace_node(&high, &other, &root);
    EXPECT(rb_last(&root) == &other);
    deepest = rb_augment_erase_begin(&other);
    rb_erase(&other, &root);
    rb_augment_erase_end(deepest, count_call, &calls);
    EXPECT(deepest == &low && calls == 5 && rb_next(&low) == NULL);
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

static void policies(void)
{
    char values[PROD_POLICY_TEXT_SIZE] = "";
    EXPECT(write_file("/etc/reboot_policy.cfg", "reboot_policy:enable=1\tname=Bob's", 34) == 1);
    assem_policy_data("/etc/reboot_policy.cfg", "reboot_policy:", values);
    EXPECT(strcmp(values, "('1','Bob''s'),") == 0);
    EXPECT(upload_ac_policy() == PAV_RET_OK);
    EXPECT(prod_download_ac_policy() == PAV_RET_OK);
    EXPECT(prod_backup_file_handle(FILE_OPERATE_BUTT, values, 0) == -1);
    EXPECT(prod_systool_cfg_upload("no backup", 9) == CFG_FILE_INVALID);
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

static void mesh(void)
{
    unsigned char message[64];
    char text[18];
    char mac[13] = "";
    void *value = NULL;
    u32 length = 0;
    mesh_attr_t *place = (mesh_attr_t *)message;
    mesh_set_attr_u8(&place, MESH_ATTR_CPU_USAGE, 7);
    mesh_set_attr_u16(&place, MESH_ATTR_UPPER_NODE_RATE, 0x1234);
    mesh_set_attr_str(&place, MESH_ATTR_NAME, "capi");
    EXPECT((unsigned char *)place - message == 9 + 10 + 13);
    length = (u32)((unsigned char *)place - message);
    EXPECT(mesh_get_attr(message, length, MESH_ATTR_NAME, &value, &length) == 1);
    EXPECT(length == 5 && strcmp(value, "capi") == 0);
    EXPECT(xmesh_mac_str_to_format(text, "aabbccddeeff") == 1);
    EXPECT(strcmp(text, "AA:BB:CC:DD:EE:FF") == 0);
    EXPECT(xmesh_mac_format_to_str(text, mac) == 1 && strcmp(mac, "AABBCCDDEEFF") == 0);
    EXPECT(set_mesh_to_agent_cfg() == 1 && set_mesh_to_agent_cfg() == 0);
    EXPECT(prod_cfm_get_int_val("%s", agent_cfg_table[1].mib_name) == 2);
    EXPECT(set_mesh_to_default_cfg() == 1 && prod_cfm_get_int_val("mesh.mode") == 0);
}

static void firmware(void)
{
    static char text[] = "no image";
    int type = 0;
    EXPECT(flash_check_fw_type_and_crc(text, &type, sizeof(text)) == FW_VALID_IMAGE && type < 0);
    EXPECT(flash_check_fw_type_and_crc(NULL, &type, 0) == FW_UPLOAD_ERROR);
    EXPECT(flash_check_fw("/tmp/no_such_image", type) == FW_INVALID_FORMAT);
    EXPECT(systool_file_handle(FILE_OPERATE_SIMPLE_UPGRADE, text, sizeof(text)) == -1);
    EXPECT(g_fw_type == type);
    EXPECT(prod_upgrade_image_to_flash() == -1);
    kill_other_upgrade_process(UPGRADE_BUTT);
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
    EXPECT(pppoe_v4_as_v6(1) == 0);
    EXPECT(ethswctl_wan_set_by_main_ifname(9, 0) == 0);
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

static void name_servers(void)
{
    char text[256] = "";
    char name[256];
    add_dns_to_buf(text, sizeof(text), "9.9.9.9");
    EXPECT(strcmp(text, " -s 9.9.9.9 ") == 0);
    getAllWanDns(text, sizeof(text));
    EXPECT(text[0] == '\0');
    prod_cfm_set_val("netcheck.hostname", "www.example.net");
    EXPECT(strcmp(get_netcheck_hostname(name), "www.example.net") == 0);
    EXPECT(prod_resolve_domain(name, "", "0.0.0.0", text, NULL, NULL) == -1);
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

static void clients_and_neighbours(void)
{
    DHCPS_CLIENT_LIST_STRU *clients = NULL;
    LAN_DHCPC_IP_INFO_STRU lan;
    char address[16] = "";
    char lease[] = "1700000000 02:00:5e:00:53:01 192.168.0.100 laptop 01:02 laptop\n";
    unlink("/etc/dhcps.leases");
    EXPECT(write_file("/etc/dhcps.leases", lease, (unsigned int)strlen(lease)) == 1);
    EXPECT(file_get_dhcps_clients_list(&clients) == 1);
    EXPECT(clients != NULL && strcmp(clients[0].hostname, "laptop") == 0);
    free(clients);
    EXPECT(file_lan_dhcpc_get_ipinfo_and_status(&lan) == HLX_ERR);
    EXPECT(find_ip_in_arpfile("02:00:5e:00:53:99", address) == HLX_ERR);
    EXPECT(strcmp(address, "0.0.0.0") == 0);
}

static void status_lists(void)
{
    ROUTE_TABLE_ITEM_STRU routes[2];
    UPNP_LIST_CFG_STRU mappings;
    SYSLOG_LIST_STRU entries[2];
    int count = -1;
    EXPECT(file_get_route_list_num() >= 0);
    EXPECT(file_get_route_table_list(routes, 2) == HLX_OK);
    EXPECT(write_file("/var/upnpmap", "1.2.3.4;80;192.168.0.2;8080;TCP;web\n", 36) == 1);
    EXPECT(file_get_upnp_list(&mappings) == HLX_OK && mappings.count == 1);
    EXPECT(strcmp(mappings.upnp_item[0].in_port, "8080") == 0);
    EXPECT(write_file("/var/logs.txt", "2026-01-02 03:04:05;3;up\n", 25) == 1);
    EXPECT(file_syslog_get_lists(entries, LOG_WAN1, &count, 2) == HLX_OK && count == 1);
    EXPECT(entries[0].type == LOG_WAN1 && strcmp(entries[0].msg, "up") == 0);
}

static void figures_and_storage(void)
{
    int memory = -1;
    char now[PROD_CURTIME_SIZE];
    char version[PROD_POLICY_VERSION_SIZE];
    char disks[128];
    char record[PROD_USB_RECORD_SIZE];
    char message[PROD_AUDIT_MSG_SIZE] = "anna";
    audit_save_log_info info;
    EXPECT(systool_get_memInfo(&memory) == HLX_OK && memory >= 0 && memory <= 100);
    EXPECT(systool_get_memfree() > 0);
    systool_get_curtime(now);
    EXPECT(strlen(now) == 19);
    EXPECT(get_prod_version(version, sizeof(version)) == 1 && get_svn_version() == 1);
    EXPECT(get_hard_version(version, sizeof(version)) == 0 && strcmp(version, "1.0.0.0") == 0);
    EXPECT(get_policy_version(version, sizeof(version)) == 0 && strcmp(version, "1.0.0") == 0);
    add_dns_redirect_rule("capi.example", "192.0.2.1");
    del_dns_redirect_rule("capi.example");
    EXPECT(fill_audit_log_info(&info, "00:11:22:AA:BB:CC", "192.0.2.1", 4, message,
                               sizeof(message)) == 1);
    EXPECT(strncmp(info.msg, "user anna time:", 15) == 0 && info.appid == 4);
    EXPECT(audit_log_set_new_usb_dir() == 0);
    prod_common_usb_get_diskname(disks, sizeof(disks));
    EXPECT(prod_common_write_usb_volume_to_file("sdz9", record, 0) == (int)strlen(record));
}

int main(void)
{
    debug_levels();
    shared_memory();
    locks();
    queues();
    threads();
    strings();
    lan_move();
    encodings();
    tree();
    files();
    configuration();
    policies();
    json();
    wireless();
    mesh();
    firmware();
    hardware_and_system();
    networks();
    ipv6();
    address_ranges();
    wan_status();
    status_lists();
    name_servers();
    clients_and_neighbours();
    figures_and_storage();
    changed_files();
    return failures != 0;
}
