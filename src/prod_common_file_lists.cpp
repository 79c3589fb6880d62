// SPDX-License-Identifier: MIT
// The lists of the status pages: routes, UPnP mappings, DHCP clients, neighbours, log entries.
#include "prod_common_file.h"

#include <fcntl.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <type_traits>

#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/line_scanner.hpp"
#include "internal/log.hpp"
#include "internal/net.hpp"
#include "internal/trace.hpp"
#include "platform/debug.h"
#include "platform/process.h"
#include "platform/text.h"

using namespace prod;

namespace
{

// ---- routes and UPnP mappings ----------------------------------------------------------------

constexpr std::size_t kListLine = 255;
using ListReader = LineReader<kListLine>;
constexpr std::size_t kLongestWord = 15;  // the room that addresses and interface names have

/**
 * Clears the records that no list entry came for. The others are cleared when their turn comes: a
 * long list does not stay in the cache from a first pass to a second.
 */
template <typename Record>
void clear_rest(Record *records, int filled, int room)
{
    if (room > filled) {
        memset(records + filled, 0, static_cast<std::size_t>(room - filled) * sizeof(Record));
    }
}

/** Shows an address of the kernel's table: its first number is the least significant byte. */
void show_kernel_address(char (&out)[kIpv4TextSize], u32 address)
{
    write_ipv4(out, __builtin_bswap32(address));
}

/** What the library reads of a line of the kernel's routing table. */
struct KernelRoute {
    std::string_view ifname;
    u32 destination;
    u32 gateway;
    int metric;
    u32 mask;

    /** Whether the line is a route: " %15s%X%X%*s%*s%*s%d%X", before columns of no interest. */
    bool read(const char *line)
    {
        LineScanner scanner{line};
        ifname = scanner.word(kLongestWord);
        return !ifname.empty() && scanner.hexadecimal(destination) &&
               scanner.hexadecimal(gateway) && scanner.skip_word() && scanner.skip_word() &&
               scanner.skip_word() && scanner.decimal(metric) && scanner.hexadecimal(mask);
    }
};

/** The kernel's routing table behind its heading. */
struct KernelRoutes : ListReader {
    KernelRoutes() : ListReader("/proc/net/route") { next(); }
};

/** The static routes, as the policy routing has them now. */
class StaticRoutes
{
  public:
    StaticRoutes() : reader_(dump()) {}
    bool is_open() const { return reader_.is_open(); }

    /** The next route's line, or nullptr at the end, which also a line too short for one is. */
    const char *next()
    {
        constexpr std::size_t kShortestLine = 16;
        const char *const line = reader_.next();
        return line != nullptr && strlen(line) >= kShortestLine ? line : nullptr;
    }

  private:
    static const char *dump()
    {
        constexpr const char *kFile = "/var/static_route";
        doSystemCmd("ip route ls table %s > %s", "staticroute", kFile);
        return kFile;
    }

    ListReader reader_;
};

/** The word that follows @p keyword and a blank; empty when there is none. */
std::string_view word_behind(const char *line, const char *keyword)
{
    // Any place counts, also one inside an interface's name.
    const char *const found = strstr(line, keyword);
    const std::size_t offset = strlen(keyword) + 1;
    if (found == nullptr || strnlen(found, offset) < offset) {
        return {};
    }
    return LineScanner{found + offset}.word(kLongestWord);
}

/** Takes one line of the static routes apart; without an interface @p iface stays as it is. */
void file_get_static_route_list_info(const char *line, char (&dstip)[16], char (&mask)[16],
                                     char (&gw)[16], char (&iface)[16])
{
    constexpr int kWholeAddress = 32;
    int prefix = kWholeAddress;
    if (const char *const slash = strchr(line, '/')) {
        copy_text(dstip, std::string_view{line, static_cast<std::size_t>(slash - line)});
        LineScanner{slash + 1}.decimal(prefix);
        prefix = std::min(prefix, kWholeAddress);
    } else {
        copy_text(dstip, LineScanner{line}.word(kLongestWord));
    }
    const u32 bits = prefix > 0 ? UINT32_MAX << (kWholeAddress - prefix) : 0;
    write_ipv4(mask, bits);

    const std::string_view gateway = word_behind(line, "via");
    copy_text(gw, gateway.empty() ? kNoAddress : gateway);
    const std::string_view device = word_behind(line, "dev");
    if (!device.empty()) {
        copy_text(iface, device);
    }
}

/** @return 0, or 1 when the kernel's table cannot be opened */
int get_effective_route(ROUTE_TABLE_ITEM_STRU *route_table, int len, int *count)
{
    KernelRoutes lines;
    if (!lines.is_open()) {
        PROD_LOG_ERROR(kProd, "fopen is fail.");
        return 1;
    }
    while (*count < len) {
        const char *const line = lines.next();
        if (line == nullptr) {
            break;
        }
        KernelRoute route;
        if (!route.read(line)) {
            continue;
        }
        ROUTE_TABLE_ITEM_STRU &item = route_table[(*count)++];
        item = {};
        show_kernel_address(item.dstip, route.destination);
        show_kernel_address(item.mask, route.mask);
        show_kernel_address(item.gateway, route.gateway);
        copy_text(item.ifname, route.ifname);
        item.metric = route.metric;
    }
    return 0;
}

/** @return 0, or 1 when the listing of the static routes cannot be opened */
int get_effective_static_route(ROUTE_TABLE_ITEM_STRU *route_table, int len, int *count)
{
    StaticRoutes lines;
    if (!lines.is_open()) {
        PROD_LOG_ERROR(kProd, "fopen is fail.");
        return 1;
    }
    while (*count < len) {
        const char *const line = lines.next();
        if (line == nullptr) {
            break;
        }
        ROUTE_TABLE_ITEM_STRU &item = route_table[(*count)++];
        item = {};
        file_get_static_route_list_info(line, item.dstip, item.mask, item.gateway, item.ifname);
    }
    return 0;
}

/** Takes one line of the mappings apart; what it lacks is empty. */
void read_mapping(const char *line, UPNP_ITEM_INFO_STRU *item)
{
    *item = {};
    LineScanner scanner{line};
    const auto take = [&scanner](auto &field) {
        const std::string_view text = scanner.until<';'>();
        copy_text(field, text);
        return !text.empty() && scanner.literal(';');
    };
    // The last field runs on to the next ";", so it keeps the newline.
    static_cast<void>(take(item->ex_host) && take(item->ex_port) && take(item->in_host) &&
                      take(item->in_port) && take(item->protocol) && take(item->desc));
}

// ---- DHCP clients and neighbours -------------------------------------------------------------

constexpr const char *kLeases = "/etc/dhcps.leases";
constexpr std::size_t kLongestLease = 1023;
using LeaseLines = LineReader<kLongestLease>;

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
void read_lease(const char *line, DHCPS_CLIENT_LIST_STRU *client)
{
    LineScanner scanner{line};
    scanner.until<' '>();
    scanner.skip_blanks();
    const std::string_view mac = scanner.until<' '>();
    scanner.skip_blanks();
    const std::string_view address = scanner.until<' '>();
    scanner.skip_blanks();
    scanner.until<'*', '|', ':'>();
    scanner.skip_blanks();
    scanner.until<' '>();
    scanner.skip_blanks();
    const std::string_view host_name = scanner.until<'\n'>();
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
        const char *const line = lines.next();
        if (line == nullptr) {
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
    LineScanner scanner{line};  // "%15s %*s %*s %17s"
    const std::string_view address = scanner.word(kIpv4TextSize - 1);
    scanner.skip_word();
    scanner.skip_word();
    char found[kMacTextSize];
    copy_text(found, scanner.word(kMacTextSize - 1));
    if (found[0] == '\0' || strncasecmp(found, mac, kMacTextSize - 1) != 0) {
        return {};
    }
    LineScanner flags_scanner{line};  // "%*s %*s %15s"
    flags_scanner.skip_word();
    flags_scanner.skip_word();
    const bool is_incomplete = flags_scanner.word(kLongestWord).starts_with("0x0");
    return is_incomplete ? std::string_view{} : address;
}

// ---- system log ------------------------------------------------------------------------------

constexpr const char *kLogModule = "common_so";
enum LogLevel : int { kEntryAndExit = 0, kFailure = 3 };

/** An entry of the system log, in the line that it was read from. */
struct LogEntry {
    std::string_view date;
    int type;
    std::string_view message;

    /** Whether what is left of a line is an entry: "%[^;];%d;%[^\n]". */
    bool read(LineScanner scanner)
    {
        date = scanner.until<';'>();
        if (date.empty() || !scanner.literal(';') || !scanner.decimal(type) ||
            !scanner.literal(';')) {
            return false;
        }
        message = scanner.until<'\n'>();
        return !message.empty();
    }
};

/**
 * The entries of the system log. Its messages quote what hosts send, so a line of any length is one
 * entry, and one that is none ends the log.
 */
class SystemLog
{
  public:
    bool is_open() const { return lines_.is_open(); }

    /** The next entry, or nullptr at the end. It stays until the next call. */
    const LogEntry *next()
    {
        lines_.skip_rest();
        while (const char *const line = lines_.next()) {
            LineScanner scanner{line};
            scanner.skip_blanks();
            if (!scanner.at_end()) {
                return entry_.read(scanner) ? &entry_ : nullptr;
            }
        }
        return nullptr;
    }

  private:
    LineReader<4095> lines_{"/var/logs.txt"};
    LogEntry entry_;
};

}  // namespace

// ---- routes and UPnP mappings ----------------------------------------------------------------

int file_get_route_list_num(void)
{
    const FunctionTrace trace{PROD_SITE};
    int count = 0;
    {
        KernelRoutes kernel;
        if (!kernel.is_open()) {
            PROD_LOG_ERROR(kProd, "fopen is fail.");
            return 0;
        }
        // Unlike the list, which leaves such a line out, counting ends at one that is no route.
        for (KernelRoute route; const char *const line = kernel.next();) {
            if (!route.read(line)) {
                break;
            }
            ++count;
        }
    }
    StaticRoutes listed;
    if (!listed.is_open()) {
        PROD_LOG_ERROR(kProd, "fopen is fail.");
        return count;
    }
    while (listed.next() != nullptr) {
        ++count;
    }
    return trace.leave(count);
}

HLX_RETURN_CODE file_get_route_table_list(ROUTE_TABLE_ITEM_STRU *route_table, int len)
{
    const FunctionTrace trace{PROD_SITE};
    if (route_table == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return HLX_ERR;
    }
    int count = 0;
    const bool read = get_effective_route(route_table, len, &count) == 0 &&
                      get_effective_static_route(route_table, len, &count) == 0;
    clear_rest(route_table, count, len);
    return read ? trace.leave(HLX_OK) : HLX_ERR;
}

HLX_RETURN_CODE file_get_upnp_list(UPNP_LIST_CFG_STRU *upnp_list)
{
    const FunctionTrace trace{PROD_SITE};
    if (upnp_list == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return HLX_ERR;
    }
    ListReader lines{"/var/upnpmap"};
    if (!lines.is_open()) {
        PROD_LOG_ERROR(kProd, "fopen is fail.");
        return HLX_ERR;
    }
    constexpr int kMost = std::extent_v<decltype(UPNP_LIST_CFG_STRU::upnp_item)>;
    int count = 0;
    while (count < kMost) {
        const char *const line = lines.next();
        if (line == nullptr) {
            break;
        }
        read_mapping(line, &upnp_list->upnp_item[count++]);
    }
    upnp_list->count = count;
    return trace.leave(HLX_OK);
}

// ---- DHCP clients and neighbours -------------------------------------------------------------

int file_get_dhcps_clients_list(DHCPS_CLIENT_LIST_STRU **pplist)
{
    if (pplist == nullptr) {
        return 0;
    }
    const FunctionTrace trace{PROD_SITE};
    LeaseLines lines{kLeases};
    if (!lines.is_open()) {
        const int err = errno;
        // Log readers know the message as it is.
        PROD_LOG_DEBUG(kProd, "Failed(%d) to fopen is fail., %s.", err, strerror(err));
        return 0;
    }
    const bool locked = lock_set(lines.fd(), F_RDLCK) == 1;
    int count = 0;
    while (lines.next() != nullptr) {
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
        lock_set(lines.fd(), F_UNLCK);
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
    // Past the stream: no signal that comes meanwhile ends the table early.
    DescriptorLines<kListLine> lines{fileno(table.get())};
    lines.next();  // the heading
    while (const char *const line = lines.next()) {
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

HLX_RETURN_CODE file_syslog_get_lists(SYSLOG_LIST_STRU *log_list, int logtype, int *list_num,
                                      int arry_len)
{
    log_debug_print(__func__, __LINE__, kEntryAndExit, kLogModule, "function entry!");
    if (log_list == nullptr || list_num == nullptr) {
        return HLX_ERR;
    }
    SystemLog log;
    if (!log.is_open()) {
        clear_rest(log_list, 0, arry_len);
        log_debug_print(__func__, __LINE__, kFailure, kLogModule, "fopen is fail.");
        return HLX_ERR;
    }
    int count = 0;
    while (count < arry_len) {
        const LogEntry *const entry = log.next();
        if (entry == nullptr) {
            break;
        }
        if (logtype != LOG_ALL && logtype != entry->type) {
            continue;
        }
        SYSLOG_LIST_STRU &item = log_list[count++];
        item = {};
        item.type = entry->type;
        copy_text(item.date, entry->date);
        copy_text(item.msg, entry->message);
    }
    clear_rest(log_list, count, arry_len);
    *list_num = count;
    log_debug_print(__func__, __LINE__, kEntryAndExit, kLogModule, "function exit!");
    return HLX_OK;
}
