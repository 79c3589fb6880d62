// SPDX-License-Identifier: MIT
#include "prod_common_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/net.hpp"
#include "internal/trace.hpp"
#include "internal/wan.hpp"
#include "json.h"
#include "platform/km.h"
#include "platform/text.h"
#include "prod_common_check.h"
#include "prod_common_time.h"
#include "prod_common_wan.h"

using namespace prod;

const char g_wan_ip_info[5][16] = {"/etc/wan1.ini", "/etc/wan2.ini", "/etc/wan3.ini",
                                   "/etc/wan4.ini", ""};
const char g_wan_ip_info2[5][16] = {"/etc/wan12.ini", "/etc/wan22.ini", "/etc/wan32.ini",
                                    "/etc/wan42.ini", ""};
const char g_wan_cfg_file[5][16] = {"/etc/wan1.cfg", "/etc/wan2.cfg", "/etc/wan3.cfg",
                                    "/etc/wan4.cfg", ""};

namespace
{

// ---- WAN address files -----------------------------------------------------------------------

/** The lines of a WAN address file in the order they are written. */
constexpr struct AddressLine {
    const char *key;
    char (WAN_IP_INFO_STRU::*field)[16];
} kAddressLines[] = {
    {"ip", &WAN_IP_INFO_STRU::wan_ip},      {"mask", &WAN_IP_INFO_STRU::wan_mask},
    {"gateway", &WAN_IP_INFO_STRU::wan_gw}, {"dns1", &WAN_IP_INFO_STRU::wan_dns1},
    {"dns2", &WAN_IP_INFO_STRU::wan_dns2},
};

bool valid_wan_id(Site site, int wan_id)
{
    if (!is_wan_id(wan_id)) {
        PROD_LOG_ERROR_AT(site, kProd, "invalide wan_id:%d.", wan_id);  // known to log readers
        return false;
    }
    return true;
}

/** Takes one line of an address file into the record; an empty value does not count. */
bool take_address(std::string_view line, WAN_IP_INFO_STRU *info)
{
    for (const auto &[key, field] : kAddressLines) {
        const std::size_t name_length = strlen(key);
        if (!line.starts_with(key) || line.size() == name_length || line[name_length] != '=') {
            continue;
        }
        line.remove_prefix(name_length + 1);
        const std::string_view address{line.data(), std::min(line.find('\r'), line.size())};
        if (!address.empty()) {
            copy_text(info->*field, address);
        }
        return !address.empty();
    }
    return false;
}

// ---- rates, connection times -----------------------------------------------------------------

/** The rates of one WAN in the traffic module's answer, or nullptr. */
cJSON *find_rates(const cJSON *answer, int wan_id)
{
    cJSON *wan = nullptr;
    cJSON_ArrayForEach(wan, cJSON_GetObjectItem(answer, "WanFlow"))
    {
        if (cJSON_GetInt(wan, "WanId", 0) == wan_id) {
            return cJSON_GetObjectItem(wan, "WanRate");
        }
    }
    return nullptr;
}

/** Writes a rate as a page shows it, in units of 1024. */
void show_rate(cJSON *rates, const char *name, char (&text)[64])
{
    constexpr float kPerUnit = 1.0F / 1024;
    const float rate = static_cast<float>(cJSON_GetInt(rates, name, 0)) * kPerUnit;
    snprintf(text, sizeof(text), "%.2f", static_cast<double>(rate));
}

// ---- the whole status ------------------------------------------------------------------------

/** Fills in what is known of a connected WAN; a part that cannot be had is reported and left. */
void describe_connected(Site site, WAN_ID_NUM_ENUM wan_id, const char *conntime_file,
                        WAN_STATUS_INFO_STRU *status)
{
    if (file_wan_ip_info_get(wan_id, &status->ip_info) == HLX_ERR) {
        PROD_LOG_ERROR_AT(site, kProd, "can not get wan ip info from file.");
    }
    if (prod_check_file_exist(g_wan_ip_info2[wan_id - 1]) == 1 &&
        file_wan_get_extra_ip_info(wan_id, &status->double_ip_info) == HLX_ERR) {
        PROD_LOG_ERROR_AT(site, kProd, "can not get wan double ip info from file.");
    }
    if (file_wan_flow_get(wan_id, &status->flow) == HLX_ERR) {
        PROD_LOG_ERROR_AT(site, kProd, "can not get wan flow info from file.");
    }
    file_wan_conntime_get(conntime_file, status->conntime);
}

/**
 * What a page shows of a WAN that is not connected: empty addresses, deliberately not 0.0.0.0,
 * which would be an address read from a file.
 */
void describe_unconnected(WAN_STATUS_INFO_STRU *status)
{
    for (const auto &line : kAddressLines) {
        copy_text(status->ip_info.*line.field, "");
    }
    copy_text(status->flow.up_flow, "0");
    copy_text(status->flow.down_flow, "0");
    copy_text(status->conntime, "0");
}

// ---- file helpers ----------------------------------------------------------------------------

constexpr mode_t kNewFileMode = 0644;

/** Whether a size and a NUL fit the 32 bits that sizes travel in; off_t may have no more. */
constexpr bool size_fits(off_t size)
{
    return static_cast<u64>(size) < UINT32_MAX;
}
static_assert(size_fits(0) && size_fits(INT32_MAX));

}  // namespace

HLX_RETURN_CODE file_wan_ip_save(const char *file_name, const WAN_IP_INFO_STRU *ip_info)
{
    const FunctionTrace trace{PROD_SITE};
    if (file_name == nullptr || ip_info == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return HLX_ERR;
    }
    const Stream stream{fopen(file_name, "w+e")};
    if (stream == nullptr) {
        PROD_LOG_ERROR(kProd, "fopen is fail.");
        return HLX_ERR;
    }
    for (const auto &[key, field] : kAddressLines) {
        fprintf(stream.get(), "%s=%.15s\n", key, ip_info->*field);
    }
    return trace.leave(HLX_OK);
}

void file_get_ip_info_from_ini(const char *file_name, WAN_IP_INFO_STRU *ip_info)
{
    const FunctionTrace trace{PROD_SITE};
    if (file_name == nullptr || ip_info == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return;
    }
    for (const auto &[key, field] : kAddressLines) {
        char value[INI_VALUE_SIZE] = {};
        const bool found = file_get_value_from_ini(file_name, key, value) != 0 && value[0] != '\0';
        copy_text(ip_info->*field, found ? value : kNoAddress);
    }
    trace.leave();
}

HLX_RETURN_CODE file_wan_ip_info_get(WAN_ID_NUM_ENUM wan_id, WAN_IP_INFO_STRU *ip_info)
{
    const FunctionTrace trace{PROD_SITE};
    if (!valid_wan_id(PROD_SITE, wan_id)) {
        return HLX_ERR;
    }
    if (ip_info == nullptr) {
        PROD_LOG_ERROR(kProd, "ip_info struct is NULL.");
        return HLX_ERR;
    }
    file_get_ip_info_from_ini(g_wan_ip_info[wan_id - 1], ip_info);
    return trace.leave(HLX_OK);
}

HLX_RETURN_CODE file_wan_get_extra_ip_info(WAN_ID_NUM_ENUM wan_id, WAN_IP_INFO_STRU *ip_info)
{
    const FunctionTrace trace{PROD_SITE};
    if (!valid_wan_id(PROD_SITE, wan_id)) {
        return HLX_ERR;
    }
    if (ip_info == nullptr) {
        console_print("---------%s----------%d------\n", __func__, __LINE__);
        PROD_LOG_ERROR(kProd, "ip_info struct is NULL.");
        return HLX_ERR;
    }
    file_get_ip_info_from_ini(g_wan_ip_info2[wan_id - 1], ip_info);
    return trace.leave(HLX_OK);
}

int get_wan_info_by_id(int wanid, WAN_IP_INFO_STRU *info)
{
    if (info == nullptr) {
        return 0;
    }
    void *data = nullptr;
    if (get_file_content(address_file(wanid).c_str(), &data, nullptr) == 0) {
        return 0;
    }
    const Allocated<char> text{static_cast<char *>(data)};
    *info = {};
    int found = 0;
    LineSplitter lines{text.get()};
    while (const char *const line = lines.next()) {
        found += take_address(line, info) ? 1 : 0;
    }
    return found > 0;
}

HLX_RETURN_CODE file_wan_flow_get(int wan_id, WAN_INFO_FLOW_STRU *flow)
{
    const FunctionTrace trace{PROD_SITE};
    if (flow == nullptr) {
        return HLX_ERR;
    }
    *flow = {};
    const Json answer{cJSON_CreateObject()};
    if (answer == nullptr) {
        PROD_LOG_ERROR(kProd, "cJSON_CreateObject fail.");
        return HLX_ERR;
    }
    if (km_wan_statistic_get_wan_flow(answer.get()) != 0) {
        PROD_LOG_ERROR(kProd, "km_wan_statistic_get_wan_flow fail.");
        return HLX_ERR;
    }
    kernel_json_trace(PROD_SITE, answer.get());
    cJSON *const rates = find_rates(answer.get(), wan_id);
    show_rate(rates, "UpRate", flow->up_flow);
    show_rate(rates, "DownRate", flow->down_flow);
    return trace.leave(HLX_OK);
}

int file_wan_get_up_time(const char *fname)
{
    const FunctionTrace trace{PROD_SITE};
    if (fname == nullptr) {
        return 0;
    }
    LineReader<63> reader{fname};
    if (!reader.is_open()) {
        PROD_LOG_ERROR(kProd, "fopen is fail.");
        return 0;
    }
    const char *line = reader.next();
    const auto seconds = line != nullptr ? take_number(line, "") : std::nullopt;
    return trace.leave(static_cast<int>(seconds.value_or(0)));
}

void file_wan_conntime_get(const char *file_name, char *conntime)
{
    if (conntime == nullptr) {
        return;
    }
    const int since = file_wan_get_up_time(file_name);
    snprintf(conntime, sizeof(WAN_STATUS_INFO_STRU::conntime), "%d",
             since >= 1 ? get_sys_uptime() - since : 0);
}

void get_dns_by_wanid(int wanid, char *dns1, char *dns2)
{
    constexpr std::size_t kServerSize = 32;
    constexpr std::size_t kShortestServer = 7;
    if (dns1 == nullptr || dns2 == nullptr) {
        return;
    }
    char *const servers[] = {dns1, dns2};
    for (char *const server : servers) {
        copy_text(server, kServerSize, kNoAddress);
    }
    const Text<32> path{"/etc/dns%d", wanid};
    LineReader<kServerSize - 1> reader{path.c_str()};
    for (char *const server : servers) {
        char *line;
        do {
            line = reader.next();
            if (line == nullptr) {
                return;
            }
            drop_newline(line);
        } while (strlen(line) < kShortestServer);
        copy_text(server, kServerSize, line);
    }
}

HLX_RETURN_CODE file_wan_status_info_get(HLX_L2TYPE_ENUM l2_type,
                                         HLX_WAN_CONNECT_TYPE_ENUM con_type, WAN_ID_NUM_ENUM wan_id,
                                         HLX_SYS_WORK_MODE_ENUM sys_mode,
                                         WAN_STATUS_INFO_STRU *wan_status)
{
    const FunctionTrace trace{PROD_SITE};
    if (wan_status == nullptr || !is_wan_id(wan_id) ||
        static_cast<unsigned int>(con_type) > HLX_WAN_CONNECT_BUTT) {
        PROD_LOG_ERROR(kProd, "arg is error.");
        return HLX_ERR;
    }
    if (l2_type == HLX_L2TYPE_WIRELESS) {
        // The wireless uplink's daemon answers for itself.
        PROD_LOG_ERROR(kProd, "msg type:%d.", l2_type);
        return HLX_ERR;
    }
    if (l2_type != HLX_L2TYPE_WIRED) {
        PROD_LOG_ERROR(kProd, "msg type:%d is not support.", l2_type);
        return HLX_ERR;
    }
    const Text<64> conntime_file{"/etc/conntime%d", wan_id};
    wan_status->link_status = system_wan_get_link_status(wan_id, con_type, sys_mode);
    if (wan_status->link_status == HLX_WAN_CONNECTED) {
        describe_connected(PROD_SITE, wan_id, conntime_file.c_str(), wan_status);
    } else {
        describe_unconnected(wan_status);
    }
    return trace.leave(HLX_OK);
}

int get_file_size(const char *filename, u32 *len)
{
    if (filename == nullptr) {
        return 0;
    }
    struct stat status;
    if (stat(filename, &status) != 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "stat file '%s'", filename);
        return 0;
    }
    if (!S_ISREG(status.st_mode)) {
        PROD_LOG_ERROR(kProd, "'%s' is not a file.", filename);
        return 0;
    }
    if (!size_fits(status.st_size)) {
        log_failure(PROD_SITE, EFBIG, "stat file '%s'", filename);
        return 0;
    }
    if (len != nullptr) {
        *len = static_cast<u32>(status.st_size);
    }
    return 1;
}

int get_file_content(const char *filename, void **data, u32 *len)
{
    if (filename == nullptr || data == nullptr) {
        return 0;
    }
    struct stat status;
    if (stat(filename, &status) != 0) {
        const int err = errno;
        PROD_LOG_DEBUG(kProd, "Failed(%d) to stat file %s, %s.", err, filename, strerror(err));
        return 0;
    }
    if (!S_ISREG(status.st_mode)) {
        PROD_LOG_DEBUG(kProd, "%s is not a file.", filename);
        return 0;
    }
    if (!size_fits(status.st_size)) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return 0;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (len != nullptr) {
        *len = static_cast<u32>(size);
    }

    const Stream stream = open_for_reading(filename);
    if (stream == nullptr) {
        const int err = errno;
        log_failure(PROD_SITE, err, "fopen %s", filename);
        return 0;
    }
    *data = calloc(size + 1, 1);
    if (*data == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return 0;
    }
    const std::size_t blocks = fread(*data, size, 1, stream.get());
    if (blocks != 1) {
        PROD_LOG_DEBUG(kProd, "fread %s %d!=1", filename, static_cast<int>(blocks));
    }
    return 1;
}

int write_file(const char *filename, const void *data, unsigned int len)
{
    if (filename == nullptr || data == nullptr || len == 0) {
        return 0;
    }
    // Not truncated: a shorter text leaves the old tail in place, and callers know it.
    const Fd fd{open(filename, O_WRONLY | O_CREAT | O_CLOEXEC, kNewFileMode)};
    if (!fd) {
        const int err = errno;
        log_failure(PROD_SITE, err, "open %s", filename);
        return 0;
    }
    if (write(fd.get(), data, len) < 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "write %s", filename);
        return 0;
    }
    return 1;
}

void touch_file(const char *filename)
{
    if (filename == nullptr) {
        return;
    }
    const Fd fd{open(filename, O_RDWR | O_CREAT | O_CLOEXEC, kNewFileMode)};
    if (!fd) {
        const int err = errno;
        log_failure(PROD_SITE, err, "open %s", filename);
    }
}
