// SPDX-License-Identifier: MIT
// The lists of the status pages: routes, UPnP mappings, DHCP clients, neighbours, log entries.
#include "prod_common_file.h"

#include <fcntl.h>
#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>

#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/line_scan.hpp"
#include "internal/log.hpp"
#include "internal/net.hpp"
#include "internal/trace.hpp"
#include "platform/text.h"

using namespace prod;

namespace
{

// ---- routes and UPnP mappings ----------------------------------------------------------------

// ---- DHCP clients and neighbours -------------------------------------------------------------

constexpr const char *kLeases = "/etc/dhcps.leases";
constexpr std::size_t kLongestLease = 1023;
using LeaseLines = DescriptorLines<kLongestLease>;

// Other daemons and their tools have the same record.
static_assert(sizeof(DHCPS_CLIENT_LIST_STRU) == 98);

/**
 * Locks or unlocks a whole file, for the processes that ask. A lock that is in the way is not
 * waited for: the page that wants the list is better served by one read in the middle of a change
 * than by none at all.
 * @return 1 when the lock was set, else 0
 */
int lock_set(int fd, int type)
{
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    if (type != F_UNLCK) {
        struct flock other = lock;  // the answer overwrites the question
        if (fcntl(fd, F_GETLK, &other) < 0) {
            log_failure(PROD_SITE, errno, "F_GETLK");
            return 0;
        }
        if (other.l_type != F_UNLCK) {
            PROD_LOG_ERROR(kProd, "already locked by pid_%d (t=%d)", static_cast<int>(other.l_pid),
                           other.l_type);
            return 0;
        }
    }
    if (fcntl(fd, F_SETLKW, &lock) < 0) {
        log_failure(PROD_SITE, errno, "F_SETLKW(%d)", type);
        return 0;
    }
    return 1;
}

/** Shows a host name in UTF-8, whatever the client sent: nothing, GBK, or no text at all. */
void copy_host_name(char (&out)[64], std::string_view name)
{
    if (name.empty()) {
        copy_text(out, "(null)");
        return;
    }
    char text[kLongestLease + 1];
    copy_text(text, name);
    char converted[4 * kLongestLease + 1];
    const bool is_better = system_get_code_format(text) == CODE_FORMAT_GBK &&
                           system_convert_code_format("utf-8", text, converted) != 0;
    copy_text(out, is_better ? converted : text);
}

/**
 * Reads a lease: "%*[^ ] %[^ ] %[^ ] %*[^*|:] %*[^ ] %[^\n]". The server writes expiry, MAC,
 * address, name and client id; the host name is what follows the word with the first ":", "|" or
 * "*", which is the id. A client without a name has "*" in its place, and there the line ends.
 */
void read_lease(std::string_view line, DHCPS_CLIENT_LIST_STRU *client)
{
    LineScan scan{line};
    scan.until<' '>();
    scan.blanks();
    const std::string_view mac = scan.until<' '>();
    scan.blanks();
    const std::string_view address = scan.until<' '>();
    scan.blanks();
    scan.until<'*', '|', ':'>();
    scan.blanks();
    scan.until<' '>();
    scan.blanks();
    const std::string_view host_name = scan.until<'\n'>();
    if (mac.empty()) {
        return;
    }
    copy_text(client->mac, mac);
    copy_text(client->ipaddr, address);
    copy_host_name(client->hostname, host_name);
}

/** Reads the file again for as many clients as there is room for. */
void read_leases(LeaseLines &lines, std::span<DHCPS_CLIENT_LIST_STRU> clients)
{
    lines.rewind();
    for (DHCPS_CLIENT_LIST_STRU &client : clients) {
        const std::string_view line = lines.next();
        if (line.empty()) {
            return;
        }
        read_lease(line, &client);
    }
}

/** Whether the status at the start of the LAN client's file is that of a lease. */
bool has_lease(Site site, FILE *stream)
{
    long long status;
    // NOLINTNEXTLINE(cert-err34-c): a number beyond the range is not 1 either
    if (fscanf(stream, "%lld", &status) != 1) {
        PROD_LOG_ERROR_AT(site, kProd, "get status is fail.");
        return false;
    }
    if (status != 1) {
        PROD_LOG_ERROR_AT(site, kProd, "status is error.");
        return false;
    }
    return true;
}

constexpr struct LanAddressLine {
    const char *key;
    char (LAN_DHCPC_IP_INFO_STRU::*field)[16];
} kLanAddressLines[] = {
    {"ip", &LAN_DHCPC_IP_INFO_STRU::lan_ip},      {"mask", &LAN_DHCPC_IP_INFO_STRU::lan_mask},
    {"gateway", &LAN_DHCPC_IP_INFO_STRU::lan_gw}, {"dns1", &LAN_DHCPC_IP_INFO_STRU::lan_dns1},
    {"dns2", &LAN_DHCPC_IP_INFO_STRU::lan_dns2},
};

/**
 * The address of an entry of the printed neighbour table when it is that of a MAC, else the empty
 * text. Columns: address, hardware type, flags, MAC, mask, device. An overlong address takes up two
 * columns for the first pattern and one for the second.
 */
std::string_view address_for(const char *line, const char *mac)
{
    const std::string_view text{line};
    LineScan scan{text};  // "%15s %*s %*s %17s"
    const std::string_view address = scan.word(kIpv4TextSize - 1);
    scan.word();
    scan.word();
    char found[kMacTextSize];
    copy_text(found, scan.word(kMacTextSize - 1));
    if (found[0] == '\0' || strncasecmp(found, mac, kMacTextSize - 1) != 0) {
        return {};
    }
    LineScan flags_scan{text};  // "%*s %*s %15s"
    flags_scan.word();
    flags_scan.word();
    const bool is_incomplete = flags_scan.word().starts_with("0x0");
    return is_incomplete ? std::string_view{} : address;
}

// ---- system log ------------------------------------------------------------------------------

}  // namespace

// ---- routes and UPnP mappings ----------------------------------------------------------------

// ---- DHCP clients and neighbours -------------------------------------------------------------

int file_get_dhcps_clients_list(DHCPS_CLIENT_LIST_STRU **pplist)
{
    if (pplist == nullptr) {
        return 0;
    }
    const FunctionTrace trace{PROD_SITE};
    // Not a stream: the list is all the memory that reading it takes.
    const Fd file{open(kLeases, O_RDONLY | O_CLOEXEC)};
    if (!file) {
        const int err = errno;
        // Log readers know the message as it is.
        PROD_LOG_DEBUG(kProd, "Failed(%d) to fopen is fail., %s.", err, strerror(err));
        return 0;
    }
    const bool locked = lock_set(file.get(), F_RDLCK) == 1;
    LeaseLines lines{file.get()};
    int count = 0;
    while (!lines.next().empty()) {
        ++count;
    }
    if (count > 0) {
        const auto size = static_cast<std::size_t>(count);
        auto *const list = static_cast<DHCPS_CLIENT_LIST_STRU *>(calloc(size, sizeof(**pplist)));
        if (list == nullptr) {
            PROD_LOG_ERROR(kProd, "Out of memory.");
            count = 0;
        } else {
            read_leases(lines, {list, size});
            *pplist = list;
        }
    }
    if (locked) {
        lock_set(file.get(), F_UNLCK);
    }
    return trace.leave(count);
}

HLX_RETURN_CODE file_lan_dhcpc_get_ipinfo_and_status(LAN_DHCPC_IP_INFO_STRU *lan_ip_info)
{
    const FunctionTrace trace{PROD_SITE};
    if (lan_ip_info == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return HLX_ERR;
    }
    const Stream status = open_for_reading("/etc/lan.cfg");
    if (status == nullptr) {
        const int err = errno;
        PROD_LOG_DEBUG(kProd, "Failed(%d) to fopen, %s.", err, strerror(err));
        return HLX_ERR;
    }
    if (!has_lease(PROD_SITE, status.get())) {
        return HLX_ERR;
    }
    for (const auto &[key, field] : kLanAddressLines) {
        char value[INI_VALUE_SIZE] = {};
        const bool found = file_get_value_from_ini("/etc/lan.ini", key, value) != 0;
        copy_text(lan_ip_info->*field, found ? value : kNoAddress);
    }
    return trace.leave(HLX_OK);
}

HLX_RETURN_CODE find_ip_in_arpfile(const char *mac, char *ip)
{
    const FunctionTrace trace{PROD_SITE};
    if (mac == nullptr || ip == nullptr) {
        return HLX_ERR;
    }
    const Pipe table{popen("cat /proc/net/arp", "re")};
    if (table == nullptr) {
        copy_text(ip, kIpv4TextSize, kNoAddress);
        PROD_LOG_ERROR(kProd, "popen is fail.");
        return HLX_ERR;
    }
    char line[256];
    [[maybe_unused]] const char *const heading = fgets(line, sizeof(line), table.get());
    while (fgets(line, sizeof(line), table.get()) != nullptr) {
        const std::string_view address = address_for(line, mac);
        if (!address.empty()) {
            copy_text(ip, kIpv4TextSize, address);
            return HLX_OK;
        }
    }
    copy_text(ip, kIpv4TextSize, kNoAddress);
    return trace.leave(HLX_ERR);
}

// ---- system log ------------------------------------------------------------------------------
