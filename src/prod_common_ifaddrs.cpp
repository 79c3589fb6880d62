// SPDX-License-Identifier: MIT
#include "prod_common_ifaddrs.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/config.hpp"
#include "internal/console.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/neighbours.hpp"
#include "internal/net.hpp"
#include "internal/shell.hpp"
#include "internal/trace.hpp"
#include "internal/wan.hpp"
#include "json.h"
#include "platform/address.h"
#include "platform/debug.h"
#include "platform/hardware.h"
#include "platform/process.h"
#include "platform/text.h"
#include "prod_common_hal.h"
#include "prod_common_wan.h"

using namespace prod;

namespace
{

// ---- neighbours ------------------------------------------------------------------------------

/** Whether an entry is the neighbour that a caller names by a dotted quad or a mapped address. */
bool has_address(const Neighbour &entry, const char *ip)
{
    constexpr std::size_t kMappedPrefix = 7;  // "::ffff:"
    if (entry.flags != 0 && strncmp(entry.ip, ip, sizeof(entry.ip)) == 0) {
        return true;
    }
    // A mapped address matches an incomplete entry too: its MAC then reads as all zero.
    return strlen(ip) > kMappedPrefix && strcmp(entry.ip, ip + kMappedPrefix) == 0;
}

/** What both look-ups of a MAC do; below 0 only when the table was not read. */
int find_mac(Site site, const char *ip, unsigned char *mac)
{
    if (ip == nullptr || mac == nullptr) {
        return -1;
    }
    NeighbourTable table;
    if (!table.is_open()) {
        PROD_LOG_ERROR_AT(site, kProd, "fopen file is fail.");
        return -1;
    }
    int fields = 0;
    while (const Neighbour *const entry = table.next()) {
        fields = entry->fields;
        Mac found;
        if (entry->whole() && has_address(*entry, ip) &&
            ifaddrs_ethaddr_aton(entry->mac, found.data()) != 0) {
            memcpy(mac, found.data(), found.size());
            return 0;
        }
    }
    return fields;
}

/** Reports a table that could not be opened; tells whether it was. */
bool opened(Site site, const NeighbourTable &table)
{
    if (!table.is_open()) {
        const int err = errno;
        log_failure(site, err, "fopen");
        return false;
    }
    return true;
}

bool is_lan_device(const char *device)
{
    constexpr long long kLastWanVlan = 9;
    if (strcmp(device, "br0") == 0) {
        return true;
    }
    const auto vlan = take_number(device, "vlan");
    return vlan && *vlan > kLastWanVlan;
}

// ---- interfaces ------------------------------------------------------------------------------

/** Reports an interface query that did not even get a socket; tells whether it was answered. */
bool answered(Site site, const InterfaceQuery &query)
{
    if (query.result() == InterfaceQuery::Result::kNoSocket) {
        log_failure(site, query.err(), "create socket");
    }
    return query.result() == InterfaceQuery::Result::kAnswered;
}

// ---- client records --------------------------------------------------------------------------

struct Counter {
    const char *member;
    u64 USER_INFO_STRU::*field;
};
constexpr Counter kCounters[] = {
    {"UpBytes", &USER_INFO_STRU::up_bytes},
    {"DownBytes", &USER_INFO_STRU::down_bytes},
    {"LastUpBytes", &USER_INFO_STRU::last_up_bytes},
    {"LastDownBytes", &USER_INFO_STRU::last_down_bytes},
    {"ThisCalcTime", &USER_INFO_STRU::thisCalcTime},
    {"LastCalcTime", &USER_INFO_STRU::lastCalcTime},
    {"AliveTime", &USER_INFO_STRU::alive_time},
};

void read_client(cJSON *client, USER_INFO_STRU *info)
{
    copy_text(reinterpret_cast<char *>(info->ip), sizeof(info->ip),
              cJSON_GetString(client, "Ip", ""));
    for (const auto &[member, field] : kCounters) {
        const char *const text = cJSON_GetString(client, member, "");
        char *end;
        const u64 count = strtoull(text, &end, 10);
        if (end != text) {
            info->*field = count;
        }
    }
    info->connect = static_cast<u32>(cJSON_GetInt(client, "Connect", 0));
}

cJSON *find_client(cJSON *list, const char *mac)
{
    cJSON *client = nullptr;
    cJSON_ArrayForEach(client, list)
    {
        if (strcmp(cJSON_GetString(client, "Mac", ""), mac) == 0) {
            return client;
        }
    }
    return nullptr;
}

// ---- policy routing --------------------------------------------------------------------------

constexpr const char *kRuleList = "/var/ip_rule_del_tmp_13579";
using RuleCommand = Text<256>;

/** Whether a text can be a routing table's name and means itself to the shell and to grep. */
bool is_table_name(const char *table)
{
    return *table != '\0' && *table != '-' &&
           strpbrk(table, ";&|`$()<>'\"\\*?[]~# \t\r\n\v\f") == nullptr;
}

// ---- IPv6 -----------------------------------------------------------------------------------

constexpr const char *kResolver6 = "/etc/resolv6.conf";
constexpr std::size_t kIpv6TextSize = 41;  // what callers provide

/** Opens a table of the kernel; one that cannot be opened is reported. */
template <std::size_t Limit>
LineReader<Limit> open_table(Site site, const char *path)
{
    LineReader<Limit> table{path};
    if (!table.is_open()) {
        const int err = errno;
        console_line(site, kRed, "Failed(%d) to fopen, %s.", err, strerror(err));
    }
    return table;
}

enum class Scope { kLinkLocal, kOther };

Scope scope_of(unsigned int kernel_scope)
{
    constexpr unsigned int kScopeBits = 0xF0;
    constexpr unsigned int kLinkScope = 0x20;
    return (kernel_scope & kScopeBits) == kLinkScope ? Scope::kLinkLocal : Scope::kOther;
}

/** What a query for a prefix length takes from a line of the table of addresses. */
struct PrefixEntry {
    unsigned int prefix_len;
    unsigned int scope;
    char device[32];

    bool read(const char *line)
    {
        // NOLINTNEXTLINE(cert-err34-c): what the kernel prints
        return sscanf(line, "%*s %*x %x %x %*x %31s", &prefix_len, &scope, device) == 3;
    }
};

/** What a query for an address takes from it; digits beyond the 32nd belong to the next field. */
struct AddressEntry {
    char digits[33];
    unsigned int scope;
    char device[32];

    bool read(const char *line)
    {
        // NOLINTNEXTLINE(cert-err34-c): what the kernel prints
        return sscanf(line, "%32s %*x %*x %x %*x %31s", digits, &scope, device) == 3;
    }
};

/**
 * Looks through an interface's addresses of one scope until @p take takes one; false when it takes
 * none.
 */
template <typename Entry, typename Take>
bool find_ipv6(Site site, const char *ifname, Scope scope, Take take)
{
    if (ifname == nullptr) {
        return false;
    }
    auto table = open_table<127>(site, "/proc/net/if_inet6");
    Entry entry;
    while (const char *const line = table.next()) {
        if (entry.read(line) && strcmp(entry.device, ifname) == 0 &&
            scope_of(entry.scope) == scope && take(entry)) {
            return true;
        }
    }
    return false;
}

int find_prefix_len(Site site, const char *ifname, Scope scope)
{
    int found = 0;
    find_ipv6<PrefixEntry>(site, ifname, scope, [&](const PrefixEntry &entry) {
        found = static_cast<int>(entry.prefix_len);
        return true;
    });
    return found;
}

/** Reads the kernel's 32 digits; errno tells why not. */
bool parse_digits(const char *digits, in6_addr &address)
{
    constexpr std::size_t kDigits = 2 * sizeof(address.s6_addr);
    if (strlen(digits) != kDigits || strspn(digits, "0123456789abcdefABCDEF") != kDigits) {
        errno = EINVAL;
        return false;
    }
    for (unsigned char &byte : address.s6_addr) {
        sscanf(digits, "%02hhx", &byte);  // NOLINT(cert-err34-c): two digits
        digits += 2;
    }
    return true;
}

/** Writes the text of an address that the kernel shows as 32 digits; reports one that is none. */
bool convert_digits(Site site, const char *digits, char *ip)
{
    in6_addr address;
    if (parse_digits(digits, address) &&
        inet_ntop(AF_INET6, &address, ip, kIpv6TextSize) != nullptr) {
        return true;
    }
    const int err = errno;
    console_line(site, kRed, "Failed(%d) to Failed to convert %s to IPv6, %s.", err, digits,
                 strerror(err));
    return false;
}

int find_address(Site site, const char *ifname, Scope scope, char *ip)
{
    return ip != nullptr &&
           find_ipv6<AddressEntry>(site, ifname, scope, [&](const AddressEntry &entry) {
               return convert_digits(site, entry.digits, ip);
           });
}

// ---- MACs of the WANs -----------------------------------------------------------------------

/** The MAC that is configured for the WANs; all zero when there is none. */
Mac configured_wan_mac()
{
    const ConfigValue text{"wan.mac"};
    Mac mac = {};
    // A text that ends early fills only some of the bytes, which is no MAC.
    return mac_str_to_bin(text.c_str(), mac.data()) != 0 ? mac : Mac{};
}

/** Counts the board's base MAC up past the LAN bridge and every wireless BSS. */
void pass_lan_macs(Mac &mac, long long bss_count)
{
    constexpr long long kMostBss = 4096;
    const long long bridge_and_bss = 1 + std::clamp(bss_count, 0LL, kMostBss);
    for (long long i = 0; i < bridge_and_bss; ++i) {
        ifaddrs_mac_increase(mac.data(), 5);
    }
}

/**
 * Whether a setting is a MAC and nothing else: it becomes a word of a command. Not left to
 * mac_str_to_bin(), which takes a text that goes on behind the sixth number.
 */
bool is_mac_text(const char *text)
{
    Mac mac;
    return strspn(text, "0123456789abcdefABCDEF:") == strlen(text) &&
           ifaddrs_ethaddr_aton(text, mac.data()) != 0;
}

using WanCommand = Text<128>;

/** Gives a WAN's interface @p mac, or its own setting when there is one. */
void set_wan_mac(Site site, int wan_id, const Mac &mac)
{
    constexpr eth_idx_t kInterfaces[] = {WAN_1, WAN_2, WAN_3, WAN_4};
    char computed[kMacTextSize];
    mac_bin_to_str(mac.data(), computed, sizeof(computed));
    const ConfigValue own{Text<32>{"wan%d.macaddr", wan_id}.c_str()};
    const char *const text = is_mac_text(own.c_str()) ? own.c_str() : computed;
    console_line(site, kYellow, "setting wan%d.mac = %s", wan_id, text);

    const eth_idx_t index = kInterfaces[wan_id - 1];
    const bool on_vlan = index == WAN_1 && config_int("iptv.enable") != 0;
    const Text<IFNAMSIZ> vlan{"vlan%d", on_vlan ? config_int("iptv.wan.vlanid") : 0};
    const char *const ifname = on_vlan ? vlan.c_str() : get_eth_name(index);
    if (ifname == nullptr || !can_name_interface(ifname)) {
        return;
    }
    const ShellWord word{ifname};
    const WanCommand down{"ifconfig %s down", word.c_str()};
    if (!on_vlan) {
        command_trace(site, down.c_str());
    }
    doSystemCmd("%s", down.c_str());
    doSystemCmd("ifconfig %s hw ether %s", word.c_str(), text);
    doSystemCmd("ifconfig %s up", word.c_str());
}

// ---- DNS servers for the relay --------------------------------------------------------------

/** One server as the relay's options: " -s 10.0.0.1 ". */
using RelayOption = Text<32>;

/** A VPN client that can be the device's way out, and where it leaves what it learnt. */
struct VpnSource {
    const char *enabled_key;
    const char *proxy_key;
    const char *resolver_file;
    const char *ifname;
};
constexpr VpnSource kVpnSources[] = {
    {"pptp.cli.pptpEnable", "pptp.cli.pptppxy", "/etc/ppp/resolv.conf.wan0", "ppp0"},
    {"l2tp.cli.l2tpEnable", "l2tp.cli.l2tppxy", "/etc/ppp/resolv.conf.wan45", "ppp45"},
};

/** Servers as they are gathered, in the caller's text. */
class RelayOptions
{
  public:
    RelayOptions(char *text, int size) : text_(text), size_(size) {}

    /** Adds a text from outside if it is a server. */
    void add(const char *server)
    {
        if (is_server(server)) {
            add_dns_to_buf(text_, size_, server);
        }
    }

  private:
    /**
     * The relay is started with this text: what could be another option, or a shell's business, is
     * no server, nor is an address too long for an option, which would be cut to another address.
     */
    static bool is_server(const char *text)
    {
        constexpr std::size_t kShortest = 7;  // "1.1.1.1"
        constexpr std::size_t kLongest = RelayOption::capacity() - sizeof(" -s  ");
        const std::string_view server{text};
        return server.size() >= kShortest && server.size() <= kLongest && server != kNoAddress &&
               server.find_first_not_of("0123456789ABCDEFabcdef.:%") == std::string_view::npos;
    }

    char *text_;
    int size_;
};

/** The servers of the VPN that is the way out, as long as it is up. Of two only the first counts.
 */
void add_vpn_servers(RelayOptions &options)
{
    for (const VpnSource &vpn : kVpnSources) {
        if (config_int(vpn.enabled_key) != 1 || config_int(vpn.proxy_key) != 1) {
            continue;
        }
        LineReader<255> lines{vpn.resolver_file};
        char address[kIpv4TextSize];
        if (ifaddrs_get_ifip(vpn.ifname, address) == -1) {
            return;
        }
        while (const char *const line = lines.next()) {
            char server[256];
            if (sscanf(line, "nameserver %255[^\n\r]", server) == 1) {
                options.add(server);
            }
        }
        return;
    }
}

/** The servers that an operator set for a WAN, else those that its client learnt. */
void add_wan_servers(RelayOptions &options, int wan_id)
{
    const bool manual = config_int(ConfigKey{"wan%d.manual.dns.en", wan_id}.c_str()) != 0;
    for (const int i : {1, 2}) {
        if (manual) {
            options.add(ConfigValue{ConfigKey{"wan%d.manual.dns%d", wan_id, i}.c_str()}.c_str());
            continue;
        }
        char server[INI_VALUE_SIZE] = {};
        file_get_value_from_ini(address_file(wan_id).c_str(), Text<8>{"dns%d", i}.c_str(), server);
        server[strcspn(server, "\n")] = '\0';
        options.add(server);
    }
}

/** Whether a radio is the device's uplink, which counts as WAN 0. */
bool has_wireless_uplink()
{
    return ConfigValue{"wl2g.public.mode"} == "apclient" ||
           ConfigValue{"wl5g.public.mode"} == "apclient";
}

}  // namespace

int ipmask_to_numeric(const char *mask)
{
    return std::countl_one(ipv4_from(mask));
}

int ipv4_is_valid(const char *ip)
{
    const u32 address = ipv4_from(ip);
    return address != INADDR_ANY && address != INADDR_NONE;
}

int mac_str_to_bin(const char *mac_str, unsigned char *mac)
{
    if (mac_str == nullptr || mac == nullptr) {
        return 0;
    }
    // NOLINTNEXTLINE(cert-err34-c): two digits cannot overflow
    return sscanf(mac_str, "%02hhX:%02hhX:%02hhX:%02hhX:%02hhX:%02hhX", &mac[0], &mac[1], &mac[2],
                  &mac[3], &mac[4], &mac[5]) == 6;
}

int mac_bin_to_str(const unsigned char *mac, char *mac_str, unsigned int size)
{
    if (mac == nullptr || mac_str == nullptr || size == 0) {
        return 0;
    }
    snprintf(mac_str, size, "%02hhX:%02hhX:%02hhX:%02hhX:%02hhX:%02hhX", mac[0], mac[1], mac[2],
             mac[3], mac[4], mac[5]);
    return 1;
}

char *ifaddrs_get_lan_ifname(void)
{
    return get_eth_name(LAN_1);
}

int ifaddrs_get_mac_by_ip(const char *ip, unsigned char *mac)
{
    return find_mac(PROD_SITE, ip, mac);
}

int ifaddrs_get_mac_address_by_ipstr(const char *ip, unsigned char *mac)
{
    const FunctionTrace trace{PROD_SITE};
    const int result = find_mac(PROD_SITE, ip, mac);
    return result >= 0 ? trace.leave(result) : result;
}

void ifaddrs_get_macstr_by_ip(const char *ip, char *mac_str)
{
    if (mac_str == nullptr) {
        return;
    }
    Mac mac = {};
    if (ifaddrs_get_mac_by_ip(ip, mac.data()) < 0) {
        // Deliberate: the mark of a failed look-up looks like an address, and callers know it.
        copy_text(mac_str, kMacTextSize, kNoAddress);
        return;
    }
    mac_bin_to_str(mac.data(), mac_str, kMacTextSize);
}

int lan_get_macstr_by_ip(const char *ip, char *mac_str)
{
    if (ip == nullptr || mac_str == nullptr) {
        return 0;
    }
    NeighbourTable table;
    if (!opened(PROD_SITE, table)) {
        return 0;
    }
    while (const Neighbour *const entry = table.next()) {
        if (entry->complete() && strcmp(entry->ip, ip) == 0 && is_lan_device(entry->device)) {
            copy_text(mac_str, kMacTextSize, entry->mac);
            return 1;
        }
    }
    return 0;
}

int ifaddrs_get_ip_by_macstr(char *ip, const char *mac_str)
{
    if (ip == nullptr || mac_str == nullptr) {
        return 0;
    }
    NeighbourTable table;
    if (!opened(PROD_SITE, table)) {
        return 0;
    }
    while (const Neighbour *const entry = table.next()) {
        copy_text(ip, kIpv4TextSize, entry->ip);
        if (entry->complete() && strcasecmp(entry->mac, mac_str) == 0) {
            return 1;
        }
    }
    copy_text(ip, kIpv4TextSize, kNoAddress);
    return 0;
}

int get_mtu_by_ifname(const char *ifname)
{
    constexpr int kDefaultMtu = 1500;
    if (ifname == nullptr) {
        return kDefaultMtu;
    }
    const InterfaceQuery query{ifname, SIOCGIFMTU};
    if (!answered(PROD_SITE, query)) {
        if (query.result() == InterfaceQuery::Result::kRefused) {
            log_failure(PROD_SITE, query.err(), "ioctl SIOCGIFMTU %s", ifname);
        }
        return kDefaultMtu;
    }
    const int mtu = query.answer().ifr_mtu;
    return mtu != 0 ? mtu : kDefaultMtu;
}

uint32_t ifaddrs_get_interface_mask(const char *ifname)
{
    if (ifname == nullptr) {
        return 0;
    }
    const InterfaceQuery query{ifname, SIOCGIFNETMASK};
    return answered(PROD_SITE, query) ? ipv4_of(query.answer().ifr_netmask).s_addr : 0;
}

int get_mac_by_ifname(const char *ifname, unsigned char *mac)
{
    if (ifname == nullptr || mac == nullptr) {
        return 0;
    }
    const InterfaceQuery query{ifname, SIOCGIFHWADDR};
    if (!answered(PROD_SITE, query)) {
        if (query.result() == InterfaceQuery::Result::kRefused) {
            log_failure(PROD_SITE, query.err(), "get SIOCGIFHWADDR of %s", ifname);
        }
        return 0;
    }
    memcpy(mac, query.answer().ifr_hwaddr.sa_data, Mac{}.size());
    return 1;
}

void get_lan_mac(char *mac_str)
{
    if (mac_str == nullptr) {
        return;
    }
    Mac mac = {};
    if (const char *const ifname = ifaddrs_get_lan_ifname()) {
        ifaddrs_get_if_netmac(ifname, mac.data());
    }
    mac_bin_to_str(mac.data(), mac_str, kMacTextSize);
}

char *get_hostname_by_mac(DHCPS_CLIENT_LIST_STRU *dhcpList, int dhcp_num, const char *mac)
{
    if (dhcpList == nullptr || mac == nullptr) {
        return nullptr;
    }
    for (int i = 0; i < dhcp_num; ++i) {
        if (strcasecmp(dhcpList[i].mac, mac) == 0) {
            char *const name = dhcpList[i].hostname;
            return *name != '\0' && strcmp(name, "(null)") != 0 ? name : nullptr;
        }
    }
    return nullptr;
}

int get_ip_info_by_ipmac(cJSON *online_infos, const char *ip, const char *mac, USER_INFO_STRU *info)
{
    if (online_infos == nullptr || ip == nullptr || mac == nullptr || info == nullptr) {
        return 0;
    }
    cJSON *const list = cJSON_GetObjectItem(online_infos, "List");
    if (!cJSON_IsArray(list)) {
        return 0;
    }
    cJSON *const client = find_client(list, mac);
    if (dbg_enabled("json", PROD_DBG_INFO)) {
        json_trace(PROD_SITE, client != nullptr ? client : list);
    }
    if (client == nullptr) {
        PROD_LOG_DEBUG(kProd, "no online-info found for %s/%s.", ip, mac);
        return 0;
    }
    read_client(client, info);
    return 1;
}

void iprule_del_by_prio_and_table(int prio, const char *table)
{
    if (prio < 0 || table == nullptr || !is_table_name(table)) {
        return;
    }
    const RuleCommand list{"ip rule ls | grep %d | grep %s > %s", prio, table, kRuleList};
    if (!list.view().ends_with(kRuleList)) {
        return;  // no table has a name of that length, and the listing would go astray
    }
    doSystemCmd("%s", list.c_str());
    LineReader<255> rules{kRuleList};
    if (!rules.is_open()) {
        return;
    }
    // grep also lets longer numbers and names through that contain these; the delete command names
    // both exactly, so a surplus one finds nothing to delete.
    const RuleCommand remove{"ip rule del table %s prio %d", table, prio};
    while (rules.next() != nullptr) {
        doSystemCmd("%s", remove.c_str());
    }
    unlink(kRuleList);
}

// ---- IPv6 -----------------------------------------------------------------------------------

int get_ipv6_prefix_len(const char *ifname)
{
    return find_prefix_len(PROD_SITE, ifname, Scope::kOther);
}

int get_link_ipv6_prefix_len(const char *ifname)
{
    return find_prefix_len(PROD_SITE, ifname, Scope::kLinkLocal);
}

int get_ipv6_str(const char *ifname, char *ip)
{
    return find_address(PROD_SITE, ifname, Scope::kOther, ip);
}

int get_link_ipv6_str(const char *ifname, char *ip)
{
    return find_address(PROD_SITE, ifname, Scope::kLinkLocal, ip);
}

int get_ipv6_addrs(const char *ifname, ipv6_addr_t *addrs, int max)
{
    if (ifname == nullptr || addrs == nullptr || max < 1 || !can_name_interface(ifname)) {
        return 0;
    }
    const Text<128> command{"ip -6 address show %s", ShellWord{ifname}.c_str()};
    const Pipe tool{popen(command.c_str(), "re")};
    if (tool == nullptr) {
        const int err = errno;
        console_line(PROD_SITE, kRed, "Failed(%d) to popen %s, %s.", err, ifname, strerror(err));
        return 0;
    }
    int count = 0;
    char line[128];
    while (count < max && fgets(line, sizeof(line), tool.get()) != nullptr) {
        char ip[kIpv6TextSize];
        ipv6_addr_t &next = addrs[count];
        // NOLINTNEXTLINE(cert-err34-c): what the tool prints
        if (sscanf(line, " inet6 %40[^/]/%d", ip, &next.prefix_len) == 2 &&
            inet_pton(AF_INET6, ip, &next.ip) == 1) {
            ++count;
        }
    }
    return count;
}

int get_ipv6_def_gw(char *gw)
{
    constexpr unsigned int kRouteIsUp = 0x1;
    if (gw == nullptr) {
        return 0;
    }
    auto table = open_table<255>(PROD_SITE, "/proc/net/ipv6_route");
    while (const char *const line = table.next()) {
        char next_hop[33];
        unsigned int flags;
        char device[32];
        // NOLINTNEXTLINE(cert-err34-c): what the kernel prints
        if (sscanf(line, "00000000000000000000000000000000 00 %*s %*x %32s %*x %*x %*x %x %31s",
                   next_hop, &flags, device) == 3 &&
            strcmp(device, "lo") != 0 && (flags & kRouteIsUp) != 0 &&
            convert_digits(PROD_SITE, next_hop, gw)) {
            return 1;
        }
    }
    return 0;
}

int get_ipv6_dns(char *dns1, char *dns2)
{
    if (dns1 == nullptr || dns2 == nullptr) {
        return 0;
    }
    *dns1 = '\0';
    *dns2 = '\0';
    LineReader<127> resolver{kResolver6};
    if (!resolver.is_open()) {
        const int err = errno;
        PROD_LOG_DEBUG(kProd, "Failed(%d) to fopen %s, %s.", err, kResolver6, strerror(err));
        return 0;
    }
    char server[kIpv6TextSize];
    while (const char *const line = resolver.next()) {
        if (sscanf(line, "nameserver %40s", server) != 1) {
            continue;
        }
        if (*dns2 != '\0') {
            break;
        }
        copy_text(*dns1 == '\0' ? dns1 : dns2, sizeof(server), server);
    }
    return *dns1 != '\0';
}

int generate_ipv6_by_mac(const struct in6_addr *prefix, int prefix_len, const unsigned char *mac,
                         struct in6_addr *out)
{
    constexpr int kAddressBits = 128;
    constexpr unsigned char kUniversal = 0x02;
    if (prefix == nullptr || mac == nullptr || out == nullptr || prefix_len < 0 ||
        prefix_len >= kAddressBits) {
        return 0;
    }
    unsigned char bytes[16] = {0,      0,      0,
                               0,      0,      0,
                               0,      0,      static_cast<unsigned char>(mac[0] ^ kUniversal),
                               mac[1], mac[2], 0xFF,
                               0xFE,   mac[3], mac[4],
                               mac[5]};
    const auto whole = static_cast<std::size_t>(prefix_len / 8);
    memcpy(bytes, prefix->s6_addr, whole);
    if (prefix_len % 8 != 0) {
        // Deliberate: of the byte that the prefix ends in, only the prefix's last bit is taken.
        // Addresses that hosts know were formed so.
        const auto bit = static_cast<unsigned char>(1U << (8 - prefix_len % 8));
        bytes[whole] =
            static_cast<unsigned char>((bytes[whole] & ~bit) | (prefix->s6_addr[whole] & bit));
    }
    memcpy(out->s6_addr, bytes, sizeof(bytes));
    return 1;
}

// ---- MACs of the WANs -----------------------------------------------------------------------

int ifaddrs_mac_increase(unsigned char *mac, int c)
{
    constexpr const char *kModule = "common_so";
    log_debug_print(__func__, __LINE__, PROD_DBG_OFF, kModule, "function entry!");
    if (mac == nullptr || c < 1 || c > 5) {
        PROD_LOG_ERROR(kProd, "arg is err.");
        return -1;
    }
    for (int i = c; i >= 1; --i) {
        if (++mac[i] != 0) {
            log_debug_print(__func__, __LINE__, PROD_DBG_OFF, kModule, "function exit!");
            return 0;
        }
    }
    PROD_LOG_ERROR(kProd, "mac increase is fail.");
    return -1;
}

void wan_interface_addr_init(void)
{
    const int wan_count = std::min(config_int("wans.flag"), int{WAN_ID_4});
    const long long bss_count =
        static_cast<long long>(config_int("wlan0_maxbss")) + config_int("wlan1_maxbss");
    Mac mac = configured_wan_mac();
    if (mac == Mac{}) {
        console_line(PROD_SITE, kRed, "No wan mac is set! try bridge mac...");
        if (iof_mac_addr_get(mac.data()) != 0) {
            console_line(PROD_SITE, kRed, "Failed to iof_mac_addr_get");
            return;
        }
        pass_lan_macs(mac, bss_count);
    }
    for (int wan_id = 1; wan_id <= wan_count; ++wan_id) {
        set_wan_mac(PROD_SITE, wan_id, mac);
        if (iof_mac_clone_set(mac.data()) != 0) {
            console_line(PROD_SITE, kRed, "Failed to iof_mac_clone_set");
        }
        ifaddrs_mac_increase(mac.data(), 5);
        ifaddrs_mac_increase(mac.data(), 4);
    }
}

// ---- DNS servers for the relay --------------------------------------------------------------

void getAllWanDns(char *dns_buf, int size)
{
    if (dns_buf == nullptr || size <= 0) {
        return;
    }
    memset(dns_buf, 0, static_cast<std::size_t>(size));
    RelayOptions options{dns_buf, size};
    add_vpn_servers(options);
    const int lowest = has_wireless_uplink() ? WAN_ID_0 : WAN_ID_1;
    for (int wan_id = WAN_ID_4; wan_id >= lowest; --wan_id) {
        if (get_port_link_status(wanid_to_phyid(wan_id)) != 0) {
            add_wan_servers(options, wan_id);
        }
    }
    if (const Stream file{fopen("/etc/dns.conf", "we")}) {
        fputs(dns_buf, file.get());
    }
}

void add_dns_to_buf(char *dns_buf, int size, const char *dns)
{
    if (dns_buf == nullptr || dns == nullptr || size <= 0) {
        return;
    }
    const auto room = static_cast<std::size_t>(size);
    const std::size_t length = strnlen(dns_buf, room);
    if (length < room && strstr(dns_buf, RelayOption{" %s ", dns}.c_str()) == nullptr) {
        copy_text(dns_buf + length, room - length, RelayOption{" -s %s ", dns}.view());
    }
}
