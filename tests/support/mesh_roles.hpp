// SPDX-License-Identifier: MIT
// What each role of the mesh network writes, as the mesh daemons agreed on it: a second list beside
// the library's tables.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace test
{

using MeshSetting = std::pair<std::string, std::string>;
using MeshSettings = std::vector<MeshSetting>;

inline MeshSettings controller_settings()
{
    return {
        {"mesh.mode", "1"},
        {"sys.workmode", "router"},
        {"dhcps.en", "1"},
        {"wlan0_workmode", "ap"},
        {"wlan1_workmode", "ap"},
        {"wlan1.x_extend_enable", "0"},
        {"wlan0.0_bss_wps_enable", "1"},
        {"wlan1.0_bss_wps_enable", "1"},
        {"wlan0.0_bss_hide", "0"},
        {"wlan1.0_bss_hide", "0"},
        {"wlan0.5_bss_hide", "1"},
        {"wlan1.5_bss_hide", "1"},
        {"wlan1.5_bss_security", "wpapsk"},
        {"wlan0.5_bss_security", "wpapsk"},
        {"steern.weak_rssi_2g", "-100"},
        {"steern.tbss_rssi_2g", "-5"},
        {"steern.weak_rssi_5g", "-100"},
        {"steern.tbss_rssi_5g", "-5"},
        {"xmesh.node_steering", "0"},
    };
}

inline MeshSettings agent_settings()
{
    return {
        {"sys.workmode", "ap"},
        {"mesh.mode", "2"},
        {"dhcps.en", "0"},
        {"wlan0_workmode", "ap"},
        {"wlan1_workmode", "apclient"},
        {"wlan1.x_extend_enable", "1"},
        {"wlan0.x_extend_wps_enable", "1"},
        {"wlan1.x_extend_wps_enable", "1"},
        {"wlan1.x_extend_node_roam_off", "1"},
        {"wlan0.0_bss_hide", "0"},
        {"wlan1.0_bss_hide", "0"},
        {"wlan0.5_bss_hide", "1"},
        {"wlan1.5_bss_hide", "1"},
    };
}

inline MeshSettings temp_controller_settings()
{
    return {
        {"sys.workmode", "router"},
        {"mesh.mode", "0"},
        {"lldp_role_flag", "0"},
        {"wlan0_workmode", "ap"},
        {"wlan1_workmode", "apclient"},
        {"wlan0.x_extend_enable", "0"},
        {"wlan0.x_extend_wps_enable", "1"},
        {"wlan1.x_extend_wps_enable", "1"},
        {"wlan0.0_bss_enable", "1"},
        {"wlan1.0_bss_enable", "1"},
        {"wlan1.0_wps_enable", "1"},
        {"wlan0.0_wps_enable", "1"},
    };
}

inline MeshSettings default_settings()
{
    MeshSettings settings = {
        {"sys.workmode", "router"},
        {"mesh.mode", "0"},
        {"mesh.map.status", "0"},
        {"easymesh.bsta_radio", "wlan1"},
        {"wl.extra_chkHz", "1"},
        {"wlan0_workmode", "ap"},
        {"wlan1_workmode", "apclient"},
        {"wlan0_maxbss", "8"},
        {"wlan1_maxbss", "8"},
        {"wlan1.x_extend_enable", "0"},
        {"wlan1.x_extend_wps_enable", "1"},
        {"wlan1.x_extend_multiap_map", "80"},
        {"wlan1.x_extend_security", "wpapsk"},
        {"wlan1.x_extend_wpapsk_crypto", "aes"},
        {"wlan1.x_extend_wpapsk_type", "psk2"},
        {"wlan1.x_extend_node_roam_off", "1"},
    };
    // The hidden backhaul BSS of either radio, of which only that of wlan0 is hidden anew.
    for (const char *const radio : {"wlan1", "wlan0"}) {
        const auto add = [&](const char *name, const char *value) {
            settings.emplace_back(std::string{radio} + ".5_bss_" + name, value);
        };
        add("brid", "0");
        add("enable", "1");
        if (std::string{radio} == "wlan0") {
            add("hide", "1");
        }
        add("macmode", "disable");
        add("macnum", "32");
        add("mcast2ucast", "1");
        add("multiap_map", "40");
        add("security", "wpapsk");
        add("ssid_encode", "utf-8");
        add("sta_denytype", "long");
        add("wpapsk_crypto", "aes");
        add("wpapsk_rekey_time", "0");
        add("wpapsk_type", "psk2");
        add("wps_enable", "1");
    }
    for (const char *const name : {"multiap_map", "enable", "brid"}) {
        for (const char *const radio : {"wlan0", "wlan1"}) {
            settings.emplace_back(std::string{radio} + ".0_bss_" + name, name[0] == 'm'   ? "20"
                                                                         : name[0] == 'e' ? "1"
                                                                                          : "0");
        }
    }
    return settings;
}

}  // namespace test
