// SPDX-License-Identifier: MIT
#include "prod_common_xmesh.h"

#include <endian.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

#include "internal/factory.hpp"
#include "internal/text.hpp"
#include "internal/wifi.hpp"
#include "prod_common_cfm.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_string.h"

using namespace prod;

const mesh_cfg controller_cfg_table[19] = {
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
    // Thresholds that no client crosses.
    {"steern.weak_rssi_2g", "-100"},
    {"steern.tbss_rssi_2g", "-5"},
    {"steern.weak_rssi_5g", "-100"},
    {"steern.tbss_rssi_5g", "-5"},
    {"xmesh.node_steering", "0"},
};

const mesh_cfg agent_cfg_table[13] = {
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

const mesh_cfg temp_controller_cfg_table[12] = {
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
    // Without the "bss_" that such keys have elsewhere; so they stay.
    {"wlan1.0_wps_enable", "1"},
    {"wlan0.0_wps_enable", "1"},
};

const mesh_cfg xmesh_default_cfg_table[49] = {
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
    // The hidden backhaul BSS of either radio.
    {"wlan1.5_bss_brid", "0"},
    {"wlan1.5_bss_enable", "1"},
    {"wlan1.5_bss_macmode", "disable"},
    {"wlan1.5_bss_macnum", "32"},
    {"wlan1.5_bss_mcast2ucast", "1"},
    {"wlan1.5_bss_multiap_map", "40"},
    {"wlan1.5_bss_security", "wpapsk"},
    {"wlan1.5_bss_ssid_encode", "utf-8"},
    {"wlan1.5_bss_sta_denytype", "long"},
    {"wlan1.5_bss_wpapsk_crypto", "aes"},
    {"wlan1.5_bss_wpapsk_rekey_time", "0"},
    {"wlan1.5_bss_wpapsk_type", "psk2"},
    {"wlan1.5_bss_wps_enable", "1"},
    {"wlan0.5_bss_brid", "0"},
    {"wlan0.5_bss_enable", "1"},
    {"wlan0.5_bss_hide", "1"},
    {"wlan0.5_bss_macmode", "disable"},
    {"wlan0.5_bss_macnum", "32"},
    {"wlan0.5_bss_mcast2ucast", "1"},
    {"wlan0.5_bss_multiap_map", "40"},
    {"wlan0.5_bss_security", "wpapsk"},
    {"wlan0.5_bss_ssid_encode", "utf-8"},
    {"wlan0.5_bss_sta_denytype", "long"},
    {"wlan0.5_bss_wpapsk_crypto", "aes"},
    {"wlan0.5_bss_wpapsk_rekey_time", "0"},
    {"wlan0.5_bss_wpapsk_type", "psk2"},
    {"wlan0.5_bss_wps_enable", "1"},
    {"wlan0.0_bss_multiap_map", "20"},
    {"wlan1.0_bss_multiap_map", "20"},
    {"wlan0.0_bss_enable", "1"},
    {"wlan1.0_bss_enable", "1"},
    {"wlan0.0_bss_brid", "0"},
    {"wlan1.0_bss_brid", "0"},
};

namespace
{

// ---- roles -----------------------------------------------------------------------------------

/** Over temp_controller_cfg_table as long as the factory tests the device by its radios. */
constexpr mesh_cfg kUntested[] = {
    {"wlan0_workmode", "ap"},
    {"wlan1_workmode", "ap"},
    {"wlan0_autochannel_type", "0"},
    {"wlan1_autochannel_type", "0"},
};

constexpr std::size_t kSerialNumberSize = 32;
constexpr std::size_t kTestFlagSize = 60;

void write_settings(std::span<const mesh_cfg> settings)
{
    for (const mesh_cfg &setting : settings) {
        prod_cfm_set_val(setting.mib_name, setting.mib_value);
    }
}

int commit_changes()
{
    return prod_cfm_is_change() != 0 && prod_cfm_commit() != 0 ? 1 : 0;
}

int take_role(std::span<const mesh_cfg> settings)
{
    prod_cfm_init();
    write_settings(settings);
    return commit_changes();
}

// ---- MAC texts -------------------------------------------------------------------------------

constexpr std::size_t kMacSize = 6;
constexpr std::size_t kMacDigits = 2 * kMacSize;
constexpr std::size_t kMacFormat = kMacDigits + kMacSize - 1;
constexpr std::size_t kPair = 3;  // two digits and what separates them from the next

/** The first characters of a text, with NULs in place of those that it has not. */
template <std::size_t Count>
std::array<char, Count> first_characters(const char *text)
{
    std::array<char, Count> characters{};
    memcpy(characters.data(), text, strnlen(text, Count));
    return characters;
}

}  // namespace

int set_mesh_to_controller_cfg(void)
{
    return take_role(controller_cfg_table);
}

int set_mesh_to_agent_cfg(void)
{
    return take_role(agent_cfg_table);
}

int set_mesh_to_default_cfg(void)
{
    prod_cfm_init();
    prod_cfm_set_val("serial.number", FactoryValue{"QX_ATE_SN", kSerialNumberSize}.c_str());
    write_settings(xmesh_default_cfg_table);
    return commit_changes();
}

int set_mesh_to_temp_controller_cfg(void)
{
    prod_cfm_init();
    write_settings(temp_controller_cfg_table);
    if (FactoryValue{"QX_FINISH_TSTFLAG", kTestFlagSize}.to_int() == 0) {
        write_settings(kUntested);
    }
    return commit_changes();
}

char *xmesh_wifi_get_bss_mac(const char *mibif, char *mac)
{
    if (mibif == nullptr || mac == nullptr) {
        return nullptr;
    }
    unsigned char bytes[kMacSize];
    if (get_mac_by_ifname(OsIfName{mibif}.c_str(), bytes) != 0) {
        snprintf(mac, kMacDigits + 1, "%02hhX%02hhX%02hhX%02hhX%02hhX%02hhX", bytes[0], bytes[1],
                 bytes[2], bytes[3], bytes[4], bytes[5]);
    }
    return *mac != '\0' ? mac : nullptr;
}

int xmesh_mac_str_to_format(char *mac_format, const char *str)
{
    if (mac_format == nullptr || str == nullptr) {
        return 0;
    }
    const auto digits = first_characters<kMacDigits>(str);
    memset(mac_format, ':', kMacFormat);
    mac_format[kMacFormat] = '\0';
    for (std::size_t i = 0; i < kMacSize; ++i) {
        memcpy(mac_format + i * kPair, &digits[2 * i], 2);
    }
    str_to_upper(mac_format);
    return *mac_format != '\0' ? 1 : 0;
}

int xmesh_mac_format_to_str(const char *mac_str, char *str)
{
    if (mac_str == nullptr || str == nullptr) {
        return 0;
    }
    const auto format = first_characters<kMacFormat>(mac_str);
    for (std::size_t i = 0; i < kMacSize; ++i) {
        memcpy(str + 2 * i, &format[i * kPair], 2);
    }
    str[kMacDigits] = '\0';
    str_to_upper(str);
    return *str != '\0' ? 1 : 0;
}

void mesh_set_attr(mesh_attr_t **pattr, uint16_t type, uint32_t length, const void *data)
{
    if (pattr == nullptr || *pattr == nullptr || (data == nullptr && length != 0)) {
        return;
    }
    mesh_attr_t *const record = *pattr;
    record->type = htobe16(type);
    record->length = htobe32(length);
    if (length != 0) {
        memcpy(record->value, data, length);
    }
    *pattr = reinterpret_cast<mesh_attr_t *>(record->value + length);
}

void mesh_set_attr_u8(mesh_attr_t **pattr, uint16_t type, uint8_t value)
{
    mesh_set_attr(pattr, type, sizeof(value), &value);
}

void mesh_set_attr_u16(mesh_attr_t **pattr, uint16_t type, uint16_t value)
{
    value = htobe16(value);
    mesh_set_attr(pattr, type, sizeof(value), &value);
}

void mesh_set_attr_u32(mesh_attr_t **pattr, uint16_t type, uint32_t value)
{
    value = htobe32(value);
    mesh_set_attr(pattr, type, sizeof(value), &value);
}

void mesh_set_attr_u64(mesh_attr_t **pattr, uint16_t type, uint64_t value)
{
    value = htobe64(value);
    mesh_set_attr(pattr, type, sizeof(value), &value);
}

void mesh_set_attr_str(mesh_attr_t **pattr, uint16_t type, const char *text)
{
    const std::size_t length = text != nullptr ? strlen(text) + 1 : 0;
    mesh_set_attr(pattr, type, static_cast<uint32_t>(length), text);
}

int mesh_get_attr(const void *list, uint32_t list_len, uint16_t type, void **val, uint32_t *len)
{
    const auto *record = static_cast<const mesh_attr_t *>(list);
    std::size_t left = list != nullptr ? list_len : 0;
    while (left >= sizeof(*record)) {
        const std::size_t length = be32toh(record->length);
        left -= sizeof(*record);
        if (length > left) {
            return 0;  // it says more than there is
        }
        if (be16toh(record->type) == type) {
            if (val != nullptr) {
                *val = const_cast<u8 *>(record->value);
            }
            if (len != nullptr) {
                *len = static_cast<uint32_t>(length);
            }
            return 1;
        }
        record = reinterpret_cast<const mesh_attr_t *>(record->value + length);
        left -= length;
    }
    return 0;
}
