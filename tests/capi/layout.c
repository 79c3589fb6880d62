/* SPDX-License-Identifier: MIT */
/* Prints the layout of every record that crosses the library's boundary or lies in shared memory,
 * in the form of abi/layout-*.txt. */
#include <stddef.h>
#include <stdio.h>

#include "platform/process.h"
#include "prod_common.h"

#define RECORD(type) printf("%-18s size %zu align %zu\n", #type, sizeof(type), _Alignof(type))
#define FIELD(type, field) \
    printf("  %-16s at %zu size %zu\n", #field, offsetof(type, field), sizeof(((type *)0)->field))

/* Exported data is copied into programs that are not position-independent: its size is a promise.
 */
#define TABLE(name) printf("%-18s size %zu\n", #name, sizeof(name))

int main(void)
{
    RECORD(prod_dbg_info_t);
    FIELD(prod_dbg_info_t, max_name_len);
    FIELD(prod_dbg_info_t, num);
    FIELD(prod_dbg_info_t, array);
    RECORD(prod_dbg_cb_t);
    FIELD(prod_dbg_cb_t, name);

    RECORD(msg_buf_t);
    FIELD(msg_buf_t, msg_type);
    printf("  %-16s at %zu\n", "data", offsetof(msg_buf_t, data));

    RECORD(audit_save_log_info);
    FIELD(audit_save_log_info, mac_addr);
    FIELD(audit_save_log_info, ipaddr);
    FIELD(audit_save_log_info, appid);
    FIELD(audit_save_log_info, msg);

    RECORD(DHCPS_CLIENT_LIST);
    FIELD(DHCPS_CLIENT_LIST, mac);
    FIELD(DHCPS_CLIENT_LIST, ipaddr);
    FIELD(DHCPS_CLIENT_LIST, hostname);

    RECORD(USER_INFO);
    FIELD(USER_INFO, ip);
    FIELD(USER_INFO, mac);
    FIELD(USER_INFO, pad);
    FIELD(USER_INFO, connect);
    FIELD(USER_INFO, client_type);
    FIELD(USER_INFO, up_bytes);
    FIELD(USER_INFO, last_up_bytes);
    FIELD(USER_INFO, down_bytes);
    FIELD(USER_INFO, last_down_bytes);
    FIELD(USER_INFO, up_packets);
    FIELD(USER_INFO, down_packets);
    FIELD(USER_INFO, alive_time);
    FIELD(USER_INFO, forbid);
    FIELD(USER_INFO, privilege);
    FIELD(USER_INFO, temp_enable);
    FIELD(USER_INFO, temp_up_rate);
    FIELD(USER_INFO, temp_down_rate);
    FIELD(USER_INFO, max_up_rate);
    FIELD(USER_INFO, max_down_rate);
    FIELD(USER_INFO, port_name);
    FIELD(USER_INFO, url_name);
    FIELD(USER_INFO, app_name);
    FIELD(USER_INFO, qos_name);
    FIELD(USER_INFO, thisCalcTime);
    FIELD(USER_INFO, lastCalcTime);

    RECORD(ipv6_addr_t);
    FIELD(ipv6_addr_t, ip);
    FIELD(ipv6_addr_t, prefix_len);

    RECORD(WAN_IP_INFO);
    FIELD(WAN_IP_INFO, wan_ip);
    FIELD(WAN_IP_INFO, wan_mask);
    FIELD(WAN_IP_INFO, wan_gw);
    FIELD(WAN_IP_INFO, wan_dns1);
    FIELD(WAN_IP_INFO, wan_dns2);

    RECORD(WAN_INFO_FLOW);
    FIELD(WAN_INFO_FLOW, up_flow);
    FIELD(WAN_INFO_FLOW, down_flow);

    RECORD(WAN_STATUS_INFO);
    FIELD(WAN_STATUS_INFO, link_status);
    FIELD(WAN_STATUS_INFO, ip_info);
    FIELD(WAN_STATUS_INFO, double_ip_info);
    FIELD(WAN_STATUS_INFO, flow);
    FIELD(WAN_STATUS_INFO, conntime);

    RECORD(LAN_DHCPC_IP_INFO);
    FIELD(LAN_DHCPC_IP_INFO, lan_ip);
    FIELD(LAN_DHCPC_IP_INFO, lan_mask);
    FIELD(LAN_DHCPC_IP_INFO, lan_gw);
    FIELD(LAN_DHCPC_IP_INFO, lan_dns1);
    FIELD(LAN_DHCPC_IP_INFO, lan_dns2);

    RECORD(ROUTE_TABLE_ITEM);
    FIELD(ROUTE_TABLE_ITEM, dstip);
    FIELD(ROUTE_TABLE_ITEM, mask);
    FIELD(ROUTE_TABLE_ITEM, gateway);
    FIELD(ROUTE_TABLE_ITEM, ifname);
    FIELD(ROUTE_TABLE_ITEM, metric);

    RECORD(UPNP_ITEM_INFO);
    FIELD(UPNP_ITEM_INFO, ex_host);
    FIELD(UPNP_ITEM_INFO, ex_port);
    FIELD(UPNP_ITEM_INFO, in_host);
    FIELD(UPNP_ITEM_INFO, in_port);
    FIELD(UPNP_ITEM_INFO, protocol);
    FIELD(UPNP_ITEM_INFO, desc);

    RECORD(UPNP_LIST_CFG);
    FIELD(UPNP_LIST_CFG, count);
    FIELD(UPNP_LIST_CFG, upnp_item);

    RECORD(SYSLOG_LIST);
    FIELD(SYSLOG_LIST, order);
    FIELD(SYSLOG_LIST, date);
    FIELD(SYSLOG_LIST, type);
    FIELD(SYSLOG_LIST, msg);

    RECORD(WIFI_BUFFER);
    FIELD(WIFI_BUFFER, wifi_buf);
    FIELD(WIFI_BUFFER, mib_buf);
    FIELD(WIFI_BUFFER, max_length);

    RECORD(mesh_cfg);
    FIELD(mesh_cfg, mib_name);
    FIELD(mesh_cfg, mib_value);
    TABLE(controller_cfg_table);
    TABLE(agent_cfg_table);
    TABLE(temp_controller_cfg_table);
    TABLE(xmesh_default_cfg_table);

    RECORD(mesh_attr_t);
    FIELD(mesh_attr_t, type);
    FIELD(mesh_attr_t, padding);
    FIELD(mesh_attr_t, length);
    printf("  %-16s at %zu\n", "value", offsetof(mesh_attr_t, value));

    RECORD(station_info);
    FIELD(station_info, mac);
    FIELD(station_info, link_time);
    FIELD(station_info, rssi);
    FIELD(station_info, noise);
    FIELD(station_info, quality);
    FIELD(station_info, link_rate);
    FIELD(station_info, tx_rate);
    FIELD(station_info, rx_rate);
    FIELD(station_info, tx_bytes);
    FIELD(station_info, rx_bytes);
    FIELD(station_info, tx_failures);

    RECORD(port_status);
    FIELD(port_status, link);
    FIELD(port_status, speed);
    FIELD(port_status, duplex);
    FIELD(port_status, nway);

    RECORD(PROD_IP_CONFLICE);
    FIELD(PROD_IP_CONFLICE, type);
    FIELD(PROD_IP_CONFLICE, id);
    FIELD(PROD_IP_CONFLICE, ip);
    FIELD(PROD_IP_CONFLICE, mask);

    RECORD(HLX_MSG);
    FIELD(HLX_MSG, Length);

    RECORD(DHCPS_RULE);
    FIELD(DHCPS_RULE, start_ip);
    FIELD(DHCPS_RULE, end_ip);
    FIELD(DHCPS_RULE, mask);
    FIELD(DHCPS_RULE, gateway);
    FIELD(DHCPS_RULE, dns1);
    FIELD(DHCPS_RULE, dns2);

    RECORD(db_col_t);
    FIELD(db_col_t, index);
    FIELD(db_col_t, name);
    FIELD(db_col_t, type);
    FIELD(db_col_t, unique);
    FIELD(db_col_t, length);

    RECORD(db_val_t);
    FIELD(db_val_t, n);
    FIELD(db_val_t, s);

    RECORD(db_row_t);
    FIELD(db_row_t, next);
    FIELD(db_row_t, id);
    FIELD(db_row_t, refer);
    FIELD(db_row_t, col_num);
    FIELD(db_row_t, values);

    RECORD(db_result);
    FIELD(db_result, rows);
    FIELD(db_result, row_num);
    FIELD(db_result, col_names);
    FIELD(db_result, col_num);
    FIELD(db_result, inited);
    FIELD(db_result, free);

    RECORD(db_table);
    FIELD(db_table, find);
    FIELD(db_table, get);
    FIELD(db_table, set);
    FIELD(db_table, all);
    FIELD(db_table, lock);
    FIELD(db_table, unlock);
    FIELD(db_table, add);
    FIELD(db_table, del);
    FIELD(db_table, columns);
    FIELD(db_table, col_num);
    FIELD(db_table, port);

    RECORD(rb_node);
    FIELD(rb_node, rb_parent_color);
    FIELD(rb_node, rb_right);
    FIELD(rb_node, rb_left);
    RECORD(rb_root);
    FIELD(rb_root, rb_node);
    return 0;
}
