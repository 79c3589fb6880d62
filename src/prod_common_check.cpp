// SPDX-License-Identifier: MIT
#include "prod_common_check.h"

#include <dirent.h>
#include <linux/if_bridge.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>
#include <span>
#include <utility>

#include "internal/config.hpp"
#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/net.hpp"
#include "internal/proc.hpp"
#include "internal/text.hpp"
#include "internal/usb.hpp"
#include "internal/wan.hpp"
#include "platform/address.h"
#include "platform/cfm.h"
#include "platform/database.h"

using namespace prod;

namespace
{

// ---- address ranges that clash --------------------------------------------------------------

constexpr std::size_t kRangeValue = 256;
constexpr int kCannotScan = PROD_CONFLICT_SET_SIZE;
constexpr const char *kMask24 = "255.255.255.0";
constexpr const char *kMask16 = "255.255.0.0";

/** What a key holds: an address, or a record whose second field is one. */
enum class AddressIn { kValue, kRecord };

/** Where the configuration keeps a range. */
struct RangeSource {
    PROD_CONFLICT_IP_ENUM type;
    AddressIn address_in;
    const char *ip_key;
    const char *mask_key;    // nullptr where the mask is fixed
    const char *fixed_mask;  // nullptr where it is configured
};
constexpr RangeSource kRangeSources[] = {
    {PROD_CONFLICT_IP_LAN, AddressIn::kValue, "lan.ip", "lan.mask", nullptr},
    {PROD_CONFLICT_IP_PORTAL, AddressIn::kValue, "lan.portal_ip", nullptr, kMask24},
    {PROD_CONFLICT_IP_GUEST, AddressIn::kValue, "wl.guest.dhcps_ip", "wl.guest.dhcps_mask",
     nullptr},
    {PROD_CONFLICT_IP_PPPoES, AddressIn::kRecord, "pppoeserver.info", nullptr, kMask16},
    {PROD_CONFLICT_IP_PPTP_SERVER, AddressIn::kValue, "pptp.ser.pptpdserver", nullptr, kMask24},
    {PROD_CONFLICT_IP_L2TP_SERVER, AddressIn::kValue, "l2tp.ser.l2tpdserver", nullptr, kMask24},
};

/** Reads a range; false when its address is not set. */
bool read_range(const RangeSource &source, PROD_IP_CONFLICT_STRU &range)
{
    const ConfigValue value{source.ip_key, kRangeValue};
    if (!value.found()) {
        return false;
    }
    range.type = source.type;
    range.ip[0] = '\0';
    if (source.address_in == AddressIn::kRecord) {
        sscanf(value.c_str(), " %*[^;];%15[^;];* ", range.ip);
    } else {
        copy_text(range.ip, value.c_str());
    }
    copy_text(range.mask, source.mask_key != nullptr ? ConfigValue{source.mask_key}.c_str()
                                                     : source.fixed_mask);
    return true;
}

/** The kind of a range as a number: a caller may have put anything there. */
u32 kind_of(const PROD_IP_CONFLICT_STRU &range)
{
    u32 kind;
    memcpy(&kind, &range.type, sizeof(kind));
    return kind;
}

bool is_kind(PROD_CONFLICT_IP_ENUM type)
{
    return static_cast<u32>(type) <= PROD_CONFLICT_IP_MAX;
}

/** An address or mask out of a range, which a caller may have filled to the brim. */
Ipv4Text text_of(const char (&field)[kIpv4TextSize])
{
    Ipv4Text text;
    text.append(std::string_view{field, strnlen(field, sizeof(field))});
    return text;
}

bool is_no_address(std::string_view text)
{
    return text.empty() || text == kNoAddress;
}

/** Takes a candidate out of a range that is in its way: out of the wider network of the two. */
bool leave(const PROD_IP_CONFLICT_STRU &in_the_way, const char *mask,
           char (&candidate)[kIpv4TextSize])
{
    const u32 step_mask = std::min(ipv4_from(text_of(in_the_way.mask).c_str()), ipv4_from(mask));
    char next[kIpv4TextSize] = {};
    if (ifaddrs_ip_increase(candidate, step_mask, next, 0) != 0) {
        return false;
    }
    copy_text(candidate, text_of(next).view());
    return true;
}

// ---- the LAN moves --------------------------------------------------------------------------

constexpr const char *kDatabase = "default";
constexpr const char *kLanBridge = "br0";
constexpr int kMostListed = 4096;
constexpr std::size_t kListedSize = 256;

enum DhcpColumn {
    kDhcpEnable,
    kDhcpInterface,
    kDhcpStart,
    kDhcpEnd,
    kDhcpGateway,
    kDhcpMask,
    kDhcpLease,
    kDhcpMainDns,
    kDhcpSecDns,
    kDhcpColumns
};
constexpr db_col_t kDhcpsList[] = {
    {kDhcpEnable, "enable", DB_INT, 0, 0},       {kDhcpInterface, "interface", DB_STRING, 1, 10},
    {kDhcpStart, "start ip", DB_STRING, 0, 16},  {kDhcpEnd, "end ip", DB_STRING, 0, 16},
    {kDhcpGateway, "gateway", DB_STRING, 0, 16}, {kDhcpMask, "mask", DB_STRING, 0, 16},
    {kDhcpLease, "lease", DB_INT, 0, 0},         {kDhcpMainDns, "main dns", DB_STRING, 0, 16},
    {kDhcpSecDns, "sec dns", DB_STRING, 0, 16}};

constexpr int kPortMapIp = 1;
constexpr db_col_t kPortMap[] = {
    {0, "enabled", DB_INT, 0, 0},         {kPortMapIp, "ip", DB_STRING, 0, 16},
    {2, "protocol", DB_INT, 0, 0},        {3, "wan", DB_INT, 0, 0},
    {4, "inner-port", DB_STRING, 0, 128}, {5, "outer-port", DB_STRING, 0, 128},
    {6, "name", DB_STRING, 0, 64}};

constexpr int kIpMacBindIp = 0;
constexpr db_col_t kIpMacBind[] = {{kIpMacBindIp, "ip", DB_STRING, 1, 16},
                                   {1, "mac", DB_STRING, 1, 18},
                                   {2, "remark", DB_STRING, 0, 100}};

constexpr int kMostColumns = kDhcpColumns;
static_assert(std::size(kDhcpsList) == kDhcpColumns && std::size(kPortMap) <= kMostColumns &&
              std::size(kIpMacBind) <= kMostColumns);

using Table = std::atomic<db_table *>;
using Row = Allocated<db_row_t>;

/** A table that the process opens on first use and keeps. */
db_table *open_once(Table &kept, const char *name, std::span<const db_col_t> columns)
{
    db_table *table = kept.load(std::memory_order_acquire);
    if (table != nullptr) {
        return table;
    }
    // Published when it is whole: other threads may be here too, and one of them may fork.
    Allocated<db_table> mine{static_cast<db_table *>(malloc(sizeof(db_table)))};
    if (mine == nullptr || db_table_init(kDatabase, mine.get(), name, columns.data(),
                                         static_cast<int>(columns.size())) == 0) {
        return nullptr;
    }
    return kept.compare_exchange_strong(table, mine.get()) ? mine.release() : table;
}

/** An address as inet_addr() gives it; nothing for text that is none. */
std::optional<u32> address_in(const char *text)
{
    const u32 address = text != nullptr ? inet_addr(text) : INADDR_NONE;
    return address != INADDR_NONE ? std::optional<u32>{address} : std::nullopt;
}

/** The dotted quad of an address as inet_addr() gives it. */
Ipv4Text quad(u32 address)
{
    return ipv4_text(ntohl(address));
}

constexpr u32 kUp = 1;
constexpr u32 kDown = ~u32{0};

/** The address so many places further up. */
u32 further(u32 address, u32 places)
{
    return htonl(ntohl(address) + places);
}

/**
 * From where to where hosts move. Addresses and masks are as inet_addr() gives them, and so are the
 * sums: where a mask was lengthened, carries go where the machine's byte order takes them.
 */
struct Move {
    u32 lan;
    u32 mask;
    u32 old_mask;

    u32 network() const { return lan & mask; }
    bool leads_out(u32 host) const { return (host & mask) != network(); }
    u32 moved(u32 host) const { return (host & ~old_mask) + network(); }
    /** As the daemon of the port-forwarding rules keeps its hosts. */
    u32 moved_forward(u32 host) const { return htonl((ntohl(host) & ~old_mask) + network()); }
};

/** How an address is held apart from the rest of its record. */
enum class Record { kLease, kRule };

/** Moves the address in front of a record. One without address or rest stays as it is. */
void move_record(const char *key, Record kind, const Move &move)
{
    static_assert(kValueSize == 2308, "the patterns leave room for a NUL");
    char address[kValueSize];
    char rest[kValueSize];
    const bool is_rule = kind == Record::kRule;
    const ConfigValue value{key, is_rule ? kListedSize : kValueSize};
    const int parts = is_rule ? sscanf(value.c_str(), "%2307[^;];%2307s", address, rest)
                              : sscanf(value.c_str(), "%2307[^;]%2307s", address, rest);
    const std::optional<u32> host = parts == 2 ? address_in(address) : std::nullopt;
    if (host) {
        // With room for more than the store takes: what would be cut is refused instead.
        SetValue(key, Text<kValueSize + kIpv4TextSize>{"%s%s%s", quad(move.moved(*host)).c_str(),
                                                       is_rule ? ";" : "", rest}
                          .c_str());
    }
}

/** Moves the address that is a key's whole value. @return where to, nothing when there is none */
std::optional<u32> move_value(const char *key, const Move &move)
{
    const std::optional<u32> host = address_in(ConfigValue{key}.c_str());
    if (!host) {
        return std::nullopt;
    }
    const u32 moved = move.moved(*host);
    SetValue(key, quad(moved).c_str());
    return moved;
}

/** A row's values, some of them replaced by other addresses. */
class Changed
{
  public:
    explicit Changed(const db_row_t &row)
    {
        std::copy_n(row.values, std::min(row.col_num, kMostColumns), values_);
    }
    Changed(const Changed &) = delete;
    Changed &operator=(const Changed &) = delete;

    void put(int column, u32 address)
    {
        copy_text(quads_[column], quad(address).view());
        values_[column].s = quads_[column];
    }
    const db_val_t *values() const { return values_; }

  private:
    db_val_t values_[kMostColumns] = {};
    char quads_[kMostColumns][kIpv4TextSize];
};

/** Moves the host in a column of each row; a row without an address there stays as it is. */
void move_rows(db_table *table, const db_result &rows, int column, const Move &move,
               u32 (Move::*rule)(u32) const)
{
    for (const db_row_t *row = rows.rows; row != nullptr; row = row->next) {
        const std::optional<u32> host =
            column < row->col_num ? address_in(row->values[column].s) : std::nullopt;
        if (host) {
            Changed changed{*row};
            changed.put(column, (move.*rule)(*host));
            table->set(table, row->id, changed.values());
        }
    }
}

/** Moves the records of a numbered list. */
void move_list(const char *count_key, const char *prefix, Record kind, const Move &move)
{
    const int count = std::clamp(config_int(count_key), 0, kMostListed);
    for (int i = 1; i <= count; ++i) {
        move_record(ConfigKey{"%s%d", prefix, i}.c_str(), kind, move);
    }
}

// ---- presence -------------------------------------------------------------------------------

constexpr const char *kDiskNameFile = "/tmp/UDiskname";
constexpr int kBridgePorts = 32;
constexpr std::size_t kMountLine = 255;

/** The interface numbers of a bridge's first ports, 0 where there is none. */
bool bridge_ports(const char *bridge, int (&ports)[kBridgePorts])
{
    const Fd fd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!fd) {
        return false;
    }
    unsigned long args[4] = {BRCTL_GET_PORT_LIST, reinterpret_cast<unsigned long>(ports),
                             kBridgePorts, 0};
    ifreq request{};
    copy_text(request.ifr_name, bridge);
    request.ifr_data = reinterpret_cast<char *>(args);
    return ioctl(fd.get(), SIOCDEVPRIVATE, &request) >= 0;
}

/** Whether a blank-delimited word that starts somewhere in the line is exactly the path. */
bool names_path(const char *line, const char *path)
{
    const std::size_t length = strlen(path);
    for (const char *at = strstr(line, path); at != nullptr; at = strstr(at + 1, path)) {
        const auto after = static_cast<unsigned char>(at[length]);
        if (after == '\0' || isspace(after)) {
            return true;
        }
    }
    return false;
}

/** The folder of the USB partitions, which the USB daemon may be about to make. */
Dir open_partition_folder()
{
    Dir folder{opendir(kPartitionFolder)};
    if (folder == nullptr) {
        sleep(1);
        folder.reset(opendir(kPartitionFolder));
    }
    return folder;
}

void append_partition(char *out, int size, const char *name)
{
    if (out == nullptr || size <= 0) {
        return;
    }
    const auto room = static_cast<std::size_t>(size);
    const std::size_t used = strnlen(out, room);
    if (used < room) {
        snprintf(out + used, room - used, "%s~", name);
    }
}

/** The item of a number, as it stands in a text that is cut up for it; nullptr beyond the last. */
char *find_item(char *text, const char *delimiters, int index)
{
    char *state = nullptr;
    char *item = strtok_r(text, delimiters, &state);
    for (int i = 0; i < index && item != nullptr; ++i) {
        item = strtok_r(nullptr, delimiters, &state);
    }
    return item;
}

}  // namespace

// ---- address ranges that clash --------------------------------------------------------------

int check_get_conflict_ip_list(PROD_IP_CONFLICT_STRU *set)
{
    const FunctionTrace trace{PROD_SITE};
    if (set == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return 0;
    }
    int count = 0;
    for (const RangeSource &source : kRangeSources) {
        if (read_range(source, set[count])) {
            ++count;
        }
    }
    return trace.leave(count);
}

int get_specific_ip_id(PROD_CONFLICT_IP_ENUM type, const PROD_IP_CONFLICT_STRU *set, int maxNum)
{
    if (!is_kind(type) || set == nullptr || maxNum == 0) {
        PROD_LOG_ERROR(kProd, "param error..");
        return maxNum;
    }
    for (int i = 0; i < maxNum; ++i) {
        if (kind_of(set[i]) == static_cast<u32>(type)) {
            return i;
        }
        PROD_LOG_ERROR(kProd, "no enum found. ");
    }
    return maxNum;
}

int prod_check_conflict_with_ip_set(const char *ip, const char *mask,
                                    const PROD_IP_CONFLICT_STRU *set, int MaxNum,
                                    PROD_CONFLICT_IP_ENUM exceptType)
{
    if (ip == nullptr || mask == nullptr || set == nullptr || is_no_address(ip) ||
        is_no_address(mask)) {
        PROD_LOG_ERROR(kProd, "param error..");
        return kCannotScan;
    }
    if (MaxNum >= PROD_CONFLICT_SET_SIZE) {
        PROD_LOG_ERROR(kProd, "max num is large.");
        return kCannotScan;
    }
    for (int i = 0; i < MaxNum; ++i) {
        const Ipv4Text other = text_of(set[i].ip);
        const u32 kind = kind_of(set[i]);
        if (is_no_address(other.view()) || kind == static_cast<u32>(exceptType)) {
            continue;
        }
        if (check_ip_is_same_net(ip, mask, other.c_str(), text_of(set[i].mask).c_str()) != 0) {
            PROD_LOG_INFO(kProd, "ip [type:%d][ip:%s] conflict with ip set type %d[%s].",
                          static_cast<int>(exceptType), ip, static_cast<int>(kind), other.c_str());
            return i;
        }
    }
    return MaxNum;
}

void get_ip_conflict_new_ip(const PROD_IP_CONFLICT_STRU *item, const PROD_IP_CONFLICT_STRU *set,
                            int setNum, char *newIp)
{
    if (item == nullptr || set == nullptr || newIp == nullptr ||
        kind_of(*item) > PROD_CONFLICT_IP_MAX) {
        PROD_LOG_ERROR(kProd, "param error.");
        return;
    }
    // A port may go host by host, and the widest range of the device has 65,536.
    constexpr int kMostSteps = 70000;
    constexpr int kMostFailures = 2;
    const Ipv4Text mask = text_of(item->mask);
    char candidate[kIpv4TextSize];
    copy_text(candidate, text_of(item->ip).view());
    int failures = 0;
    for (int steps = 0;; ++steps) {
        const int clash =
            prod_check_conflict_with_ip_set(candidate, mask.c_str(), set, setNum, item->type);
        if (clash >= setNum || clash == kCannotScan) {
            break;
        }
        if (steps == kMostSteps || failures == kMostFailures) {
            PROD_LOG_ERROR(kProd, "no free address for [type:%d][ip:%s].",
                           static_cast<int>(item->type), text_of(item->ip).c_str());
            break;
        }
        failures = leave(set[clash], mask.c_str(), candidate) ? 0 : failures + 1;
    }
    copy_text(newIp, kIpv4TextSize, candidate);
}

int prod_check_ip_conflict(const char *ip, const char *mask, PROD_IP_CONFLICT_STRU *item,
                           char *NewIp)
{
    enum { kFree, kClashes, kBadArgument };
    if (ip == nullptr || mask == nullptr || item == nullptr || NewIp == nullptr || *ip == '\0' ||
        *mask == '\0') {
        PROD_LOG_ERROR(kProd, "param error.");
        return kBadArgument;
    }
    PROD_IP_CONFLICT_STRU set[PROD_CONFLICT_SET_SIZE] = {};
    const int count = check_get_conflict_ip_list(set);
    const int clash = prod_check_conflict_with_ip_set(ip, mask, set, count, PROD_CONFLICT_IP_MAX);
    if (clash == kCannotScan || clash >= count) {
        return kFree;
    }
    // The range under test takes the first place, so that the new address keeps away from it.
    const PROD_IP_CONFLICT_STRU in_the_way = set[clash];
    copy_text(set[0].ip, ip);
    copy_text(set[0].mask, mask);
    *item = in_the_way;
    item->type = PROD_CONFLICT_IP_MAX;
    get_ip_conflict_new_ip(item, set, count, NewIp);
    item->type = in_the_way.type;
    return kClashes;
}

void check_ip_conflict_change_itself(PROD_CONFLICT_IP_ENUM type, char *newIp)
{
    if (!is_kind(type) || type == PROD_CONFLICT_IP_QVLAN || newIp == nullptr) {
        PROD_LOG_ERROR(kProd, "param error.");
        return;
    }
    newIp[0] = '\0';
    PROD_IP_CONFLICT_STRU set[PROD_CONFLICT_SET_SIZE] = {};
    const int count = check_get_conflict_ip_list(set);
    const int own = get_specific_ip_id(type, set, count);
    if (own >= count) {
        return;
    }
    char found[kIpv4TextSize] = {};
    get_ip_conflict_new_ip(&set[own], set, count, found);
    if (strncmp(found, set[own].ip, sizeof(found)) != 0) {
        copy_text(newIp, kIpv4TextSize, found);
    }
}

int prod_check_ip(const char *ip)
{
    constexpr std::size_t kLongest = 16;  // one character more than the longest address
    constexpr int kNumbers = 4;
    if (ip == nullptr) {
        return 1;
    }
    char text[kLongest + 1];
    copy_text(text, std::string_view{ip, strnlen(ip, kLongest)});
    if (std::count(text, text + strlen(text), '.') != kNumbers - 1) {
        PROD_LOG_ERROR(kProd, "error: Points' number != 3");
        return 1;
    }
    long long numbers[kNumbers];
    const char *rest = text;
    for (int i = 0; i < kNumbers; ++i) {
        const auto number = take_number(rest, i > 0 ? "." : "");
        if (!number) {
            PROD_LOG_ERROR(kProd, "error: Points' number != 4");
            return 1;
        }
        numbers[i] = *number;
    }
    const bool in_range = std::all_of(
        numbers, numbers + kNumbers, [](long long number) { return number >= 0 && number <= 255; });
    if (!in_range || numbers[0] < 1 || numbers[0] > 223 || numbers[3] > 254) {
        PROD_LOG_ERROR(kProd, "IPAddress invalid.");
        return 1;
    }
    PROD_LOG_LEAVE(kProd);
    return 0;
}

int prod_system_param_valid(const char *str)
{
    return str != nullptr && strpbrk(str, ";&|`") == nullptr;
}

int check_get_new_ipaddr_by_hostid(const char *ipAddr, const char *mask, uint32_t hostId,
                                   char *outIp)
{
    if (ipAddr == nullptr || mask == nullptr || outIp == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return -1;
    }
    const Ipv4Text address = ipv4_text((ipv4_from(ipAddr) & ipv4_from(mask)) | hostId);
    copy_text(outIp, kIpv4TextSize, address.view());
    return 0;
}

// ---- the LAN moves --------------------------------------------------------------------------

void prod_check_change_lanip_handle(const char *ip, const char *mask, const char *oip,
                                    const char *omask)
{
    if (ip == nullptr || mask == nullptr || oip == nullptr || omask == nullptr) {
        return;
    }
    db_table *const pools = get_dhcps_list_table();
    Row pool{pools != nullptr ? pools->find(pools, kDhcpInterface, kLanBridge, 0) : nullptr};
    if (pool == nullptr) {
        return;
    }
    const u32 lan = inet_addr(ip);
    const u32 lan_mask = inet_addr(mask);
    const u32 old_mask = inet_addr(omask);
    check_lanip_change_sync_dhcps(lan, lan_mask, inet_addr(oip), old_mask,
                                  static_cast<unsigned int>(pool->id));
    pool.reset();
    if (strncmp(ip, oip, kIpv4TextSize) != 0) {
        check_lanip_change_sync_dmz(lan, lan_mask, old_mask);
        check_lanip_change_sync_lan_control(lan, lan_mask, old_mask);
        check_lanip_change_sync_virtual(lan, lan_mask, old_mask);
        check_lanip_change_sync_nat(lan, lan_mask, old_mask);
        check_lanip_change_sync_logserver(lan, lan_mask, old_mask);
        check_lanip_change_sync_ipmac_bind(lan, lan_mask, old_mask);
    }
}

void check_lanip_change_sync_dhcps(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanIp,
                                   uint32_t uOldLanMask, unsigned int uindex)
{
    db_table *const pools = get_dhcps_list_table();
    const Row row{pools != nullptr ? pools->get(pools, static_cast<int>(uindex)) : nullptr};
    if (row == nullptr || row->col_num < kDhcpColumns) {
        PROD_LOG_ERROR(kProd, "ifname is not exist!");
        return;
    }
    const Move move{uLanIp, uLanMask, uOldLanMask};
    const u32 host_part = ~uLanMask;
    Changed pool{*row};
    const auto put_end = [&](int column, u32 address, u32 inwards) {
        pool.put(column, address == uLanIp ? further(uLanIp, inwards) : address);
    };
    if (uLanIp != uOldLanIp) {
        for (const auto &[column, inwards] : {std::pair{kDhcpStart, kUp}, {kDhcpEnd, kDown}}) {
            const std::optional<u32> end = address_in(row->values[column].s);
            if (end && host_part != 0) {
                // By the new mask, so that the pool ends up in the new network, whatever its size.
                put_end(column, (*end & host_part) + move.network(), inwards);
            }
        }
        pool.put(kDhcpGateway, uLanIp);
        pool.put(kDhcpMainDns, uLanIp);
        pools->set(pools, row->id, pool.values());
        const char *const interface = row->values[kDhcpInterface].s;
        if (interface != nullptr && strcasecmp(interface, kLanBridge) == 0) {
            move_list("dhcps.Staticnum", "dhcps.Staticip", Record::kLease, move);
        }
    }
    if (uLanMask != uOldLanMask) {
        if (host_part != 0) {
            put_end(kDhcpStart, further(move.network(), 1), kUp);
            put_end(kDhcpEnd, further(move.network(), ntohl(host_part) - 1), kDown);
        }
        pool.put(kDhcpGateway, uLanIp);
        pool.put(kDhcpMainDns, uLanIp);
        pool.put(kDhcpMask, uLanMask);
        pools->set(pools, row->id, pool.values());
    }
}

void check_lanip_change_sync_dmz(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask)
{
    const Move move{uLanIp, uLanMask, uOldLanMask};
    const int wans = configured_wans();
    for (int i = 1; i <= wans; ++i) {
        const std::optional<u32> host = move_value(ConfigKey{"wan%d.dmzip", i}.c_str(), move);
        // A DMZ that leads to the device itself would open it to the Internet.
        if (host && (*host == uLanIp || move.leads_out(*host))) {
            SetValue(ConfigKey{"wan%d.dmzen", i}.c_str(), "0");
        }
    }
}

void check_lanip_change_sync_lan_control(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask)
{
    constexpr const char *kKey = "lan.webip";
    if (ConfigValue{kKey} == kNoAddress) {
        return;
    }
    const Move move{uLanIp, uLanMask, uOldLanMask};
    const std::optional<u32> host = move_value(kKey, move);
    if (host && move.leads_out(*host)) {
        SetValue("lan.webipen", "0");
    }
}

void check_lanip_change_sync_virtual(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask)
{
    db_table *const forwards = get_port_map_table();
    db_result rows;
    if (forwards == nullptr || forwards->all(forwards, &rows) == 0) {
        return;
    }
    forwards->lock(forwards);
    move_rows(forwards, rows, kPortMapIp, {uLanIp, uLanMask, uOldLanMask}, &Move::moved_forward);
    forwards->unlock(forwards);
    rows.free(&rows);
}

void check_lanip_change_sync_nat(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask)
{
    move_list("adv.snat.listnum", "adv.snat.list", Record::kRule, {uLanIp, uLanMask, uOldLanMask});
}

void check_lanip_change_sync_logserver(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask)
{
    move_list("adv.logs.listnum", "adv.logs.list", Record::kRule, {uLanIp, uLanMask, uOldLanMask});
}

void check_lanip_change_sync_ipmac_bind(uint32_t uLanIp, uint32_t uLanMask, uint32_t uOldLanMask)
{
    db_table *const bindings = get_ip_mac_bind_table();
    db_result rows;
    if (bindings == nullptr || bindings->all(bindings, &rows) == 0) {
        return;
    }
    // Without a lock: each binding stands for itself.
    move_rows(bindings, rows, kIpMacBindIp, {uLanIp, uLanMask, uOldLanMask}, &Move::moved);
    rows.free(&rows);
}

db_table *get_dhcps_list_table(void)
{
    static constinit Table table{nullptr};
    return open_once(table, "dhcps-list", kDhcpsList);
}

db_table *get_port_map_table(void)
{
    static constinit Table table{nullptr};
    return open_once(table, "port-map", kPortMap);
}

db_table *get_ip_mac_bind_table(void)
{
    static constinit Table table{nullptr};
    return open_once(table, "ip-mac-bind", kIpMacBind);
}

// ---- presence -------------------------------------------------------------------------------

int prod_check_file_exist(const char *path)
{
    struct stat status;
    return path != nullptr && stat(path, &status) == 0;
}

int check_usbdevice_working(void)
{
    const FunctionTrace trace{PROD_SITE};
    struct stat status;
    return trace.leave(stat(kDiskNameFile, &status) == 0 && status.st_size != 0 ? 1 : 0);
}

int prod_check_app_exist(const char *name)
{
    const Dir proc{name != nullptr ? opendir("/proc") : nullptr};
    if (proc == nullptr) {
        return 0;
    }
    while (const dirent *const entry = readdir(proc.get())) {
        if (isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0) {
            continue;
        }
        const ProcessStat stat{static_cast<int>(strtol(entry->d_name, nullptr, 10))};
        const std::string_view found = stat.name();
        if (!found.empty() && found == name) {
            return 1;
        }
    }
    return 0;
}

int prod_check_mount_exist(const char *text)
{
    constexpr std::string_view kBefore = "/bin/mount | grep '";
    constexpr std::string_view kAfter = "'";
    constexpr std::string_view kDash = "[-]";  // grep takes a text that starts with one for options
    Text<128> command;
    // A quote would end the text early, and a cut command would not end it at all.
    if (text == nullptr || strchr(text, '\'') != nullptr) {
        return 0;
    }
    std::string_view rest{text};
    command.append(kBefore);
    if (rest.starts_with('-')) {
        command.append(kDash);
        rest.remove_prefix(1);
    }
    if (command.size() + rest.size() + kAfter.size() >= command.capacity()) {
        return 0;
    }
    command.append(rest);
    command.append(kAfter);
    const Pipe mounts{popen(command.c_str(), "re")};
    if (mounts == nullptr) {
        return 0;
    }
    const int first = fgetc(mounts.get());
    return first != EOF && first != '\n';
}

int prod_check_device_exist(const char *ifname)
{
    return ifname != nullptr && if_nametoindex(ifname) != 0;
}

int prod_check_device_in_bridge(const char *ifname, const char *bridge)
{
    if (ifname == nullptr || bridge == nullptr) {
        return 0;
    }
    int ports[kBridgePorts] = {};
    if (!bridge_ports(bridge, ports)) {
        return 0;
    }
    for (const int port : ports) {
        char name[IF_NAMESIZE];
        if (port != 0 && if_indextoname(static_cast<unsigned int>(port), name) != nullptr &&
            strcmp(name, ifname) == 0) {
            return 1;
        }
    }
    return 0;
}

int check_dir_is_mounts(const char *name)
{
    if (name == nullptr) {
        return 0;
    }
    const Text<256> path{"%s/%s", kPartitionMounts, name};
    LineReader<kMountLine> mounts{"/proc/mounts"};
    while (const char *const line = mounts.next()) {
        if (names_path(line, path.c_str())) {
            return 1;
        }
    }
    return 0;
}

int find_usb_partitions(char *out, int size)
{
    const Dir folder = open_partition_folder();
    if (folder == nullptr) {
        return 0;
    }
    int count = 0;
    while (const dirent *const entry = readdir(folder.get())) {
        if (check_dir_is_mounts(entry->d_name) == 1) {
            ++count;
            append_partition(out, size, entry->d_name);
        }
    }
    return count;
}

void check_modify_item_in_rule(char *pRule, const char *pDelimiter, int iItemIndex,
                               const char *pItem)
{
    if (pRule == nullptr || pDelimiter == nullptr || pItem == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is null.");
        return;
    }
    if (iItemIndex < 0) {
        PROD_LOG_ERROR(kProd, "index is error.");
        return;
    }
    char items[PROD_RULE_SIZE];
    std::string_view rest{pRule, strnlen(pRule, PROD_RULE_SIZE - 1)};
    copy_text(items, rest);
    const char *const item = find_item(items, pDelimiter, iItemIndex);
    if (item == nullptr) {
        return;
    }
    const auto start = static_cast<std::size_t>(item - items);
    rest.remove_prefix(start + strlen(item));
    if (*pItem == '\0' && !rest.empty()) {
        rest.remove_prefix(1);  // an item goes with the delimiter after it
    }
    Text<PROD_RULE_SIZE> result;
    result.append(std::string_view{pRule, start});
    result.append(std::string_view{pItem});
    result.append(rest);
    memcpy(pRule, result.c_str(), result.size() + 1);
}

void update_timestamps(const char *key)
{
    constexpr long long kStep = 2;  // more than one, so that a reader with whole seconds sees it
    constexpr long long kZoneWithoutOffset = 12;
    if (key == nullptr) {
        return;
    }
    const long long stored = ConfigValue{key}.to_long_long();
    const long long zone = config_int("sys.timezone");
    const long long now =
        static_cast<long long>(time(nullptr)) - 3600 * (zone - kZoneWithoutOffset);
    const u64 next = static_cast<u64>(stored >= now ? stored : now) + kStep;
    SetValue(key, Text<32>{"%llu", next}.c_str());
    CommitCfm();
}
