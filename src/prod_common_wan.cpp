// SPDX-License-Identifier: MIT
#include "prod_common_wan.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "internal/config.hpp"
#include "internal/dns_message.hpp"
#include "internal/factory.hpp"
#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/net.hpp"
#include "internal/shell.hpp"
#include "internal/trace.hpp"
#include "internal/wan.hpp"
#include "platform/address.h"
#include "platform/hardware.h"
#include "platform/process.h"
#include "platform/text.h"
#include "prod_common_cfm.h"
#include "prod_common_file.h"
#include "prod_common_hal.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_string.h"
#include "prod_common_system.h"
#include "prod_common_time.h"

using namespace prod;

const char pppDevName[5][8] = {"ppp1", "ppp2", "ppp3", "ppp4", ""};
const int wanName[5] = {WAN_1, WAN_2, WAN_3, WAN_4, 0};
const char g_dhcp_dial_name[4][64] = {"dhcpcd_wan1", "dhcpcd_wan2", "dhcpcd_wan3", "dhcpcd_wan4"};

namespace
{

// ---- port numbers ----------------------------------------------------------------------------

/** The ports in front-panel order, as "sys.ports" has them now. */
class Ports
{
  public:
    explicit Ports(std::size_t size = kPlacesSize) : places_("sys.ports", size) {}

    int count() const { return static_cast<int>(strlen(places_.c_str())); }

    /** Physical id of the port at a place, from 0; 0 when there is no such place. */
    int at(long long index) const
    {
        // Not checked for being a digit; a byte from 128 up gives a large id, never a negative one.
        return index >= 0 && index < count()
                   ? static_cast<unsigned char>(places_.c_str()[index]) - '0'
                   : 0;
    }

    /** First place of a physical id, from 0; -1 when there is none. */
    int index_of(int phyid) const
    {
        for (int i = 0; i < count(); ++i) {
            if (at(i) == phyid) {
                return i;
            }
        }
        return -1;
    }

  private:
    static constexpr std::size_t kPlacesSize = 32;
    ConfigValue places_;
};

/** The first so many ports are WANs; compared as it stands, however odd. */
int wan_count()
{
    return config_int("wans.flag");
}

int get_ports_num()
{
    return Ports{}.count();
}

/** The WAN whose port carries an interface of the form "eth<n>.<m>". */
int get_wanid_by_ifname(const char *ifname)
{
    const Ports ports;
    for (int i = 0; i < ports.count(); ++i) {
        const int phyid = ports.at(i);
        char port_ifname[32] = {};
        if (phyid_is_wan(phyid) != 0 &&
            prod_common_get_port_ifname(static_cast<unsigned int>(i) + 1, port_ifname,
                                        sizeof(port_ifname)) != nullptr &&
            strcmp(port_ifname, ifname) == 0) {
            return phyid_to_wanid(phyid);
        }
    }
    return 0;
}

/** The WAN that an interface's name stands for, not yet checked for range. */
long long wanid_in_name(const char *ifname)
{
    constexpr long long kIpv6Ppp = 60;  // ppp61 is the IPv6 session of WAN 1
    const char *rest = ifname;
    if (const auto n = take_number(rest, "vlan")) {
        return *n - 1;
    }
    if (const auto n = take_number(rest, "ppp")) {
        return *n > kIpv6Ppp ? *n - kIpv6Ppp : *n;
    }
    if (const auto n = take_number(rest, "eth")) {
        return take_number(rest, ".") ? get_wanid_by_ifname(ifname) : *n;
    }
    return 0;
}

// ---- link status -----------------------------------------------------------------------------

/** What carries the traffic of a WAN. */
enum class Carrier { kNone, kEthernet, kPpp };

/** The process whose running means that a WAN without an address is on its way to one. */
enum class Client { kNone, kDhcp, kPpp };

struct ConnectType {
    Carrier gateway;
    Carrier adsl_gateway;
    Client client;
};
constexpr ConnectType kConnectTypes[HLX_WAN_CONNECT_BUTT] = {
    {Carrier::kEthernet, Carrier::kNone, Client::kDhcp},  // HLX_WAN_CONNECT_DHCP
    {Carrier::kEthernet, Carrier::kNone, Client::kNone},  // HLX_WAN_CONNECT_STATIC
    {Carrier::kPpp, Carrier::kPpp, Client::kPpp},         // HLX_WAN_CONNECT_PPPOE
    {Carrier::kPpp, Carrier::kNone, Client::kPpp},        // HLX_WAN_CONNECT_PPTP
    {Carrier::kPpp, Carrier::kNone, Client::kPpp},        // HLX_WAN_CONNECT_L2TP
    {Carrier::kPpp, Carrier::kPpp, Client::kPpp},         // HLX_WAN_CONNECT_PPPOE_DOUBLE
    {Carrier::kNone, Carrier::kNone, Client::kDhcp},      // HLX_WAN_CONNECT_IPOA_DHCP
    {Carrier::kNone, Carrier::kNone, Client::kNone},      // HLX_WAN_CONNECT_IPOA_STATIC
    {Carrier::kNone, Carrier::kPpp, Client::kPpp},        // HLX_WAN_CONNECT_PPPOA
};
constexpr ConnectType kUnknownType = {Carrier::kNone, Carrier::kNone, Client::kNone};

const ConnectType &connect_type(int type)
{
    return type >= 0 && type < HLX_WAN_CONNECT_BUTT ? kConnectTypes[type] : kUnknownType;
}

char *carrier_name(Carrier carrier, int wan_id)
{
    switch (carrier) {
        case Carrier::kEthernet:
            return get_eth_name(static_cast<eth_idx_t>(wanName[wan_id - 1]));
        case Carrier::kPpp:
            return const_cast<char *>(pppDevName[wan_id - 1]);
        case Carrier::kNone:
            break;
    }
    return nullptr;
}

char *get_gw_wan_ifname(int wan_id, HLX_WAN_CONNECT_TYPE_ENUM wantype)
{
    return carrier_name(connect_type(wantype).gateway, wan_id);
}

char *get_adsl_gw_wan_ifname(int wan_id, HLX_WAN_CONNECT_TYPE_ENUM wantype)
{
    return carrier_name(connect_type(wantype).adsl_gateway, wan_id);
}

/** Whether a WAN's client process runs; WAN 1 may also be waiting for its IPv6 side. */
HLX_WAN_LINK_STATUS_ENUM status_by_process(Site site, const char *process, int wan_id)
{
    if (monitor_check_exist(process) != 0 ||
        (wan_id == WAN_ID_1 && monitor_check_exist("dhcp6c") != 0)) {
        PROD_LOG_GATED_AT(site, PROD_DBG_DEBUG, kProd, "wan%d is connecting.", wan_id);
        return HLX_WAN_CONNECTING;
    }
    PROD_LOG_GATED_AT(site, PROD_DBG_DEBUG, kProd, "wan%d is not connected.", wan_id);
    return HLX_WAN_NOT_CONNECTED;
}

using ProcessName = Text<32>;

HLX_WAN_LINK_STATUS_ENUM get_dhcp_wan_link_status(WAN_ID_NUM_ENUM wan_id)
{
    const ProcessName client{"dhcpcd_wan%d", wan_id};
    const HLX_WAN_LINK_STATUS_ENUM status = status_by_process(PROD_SITE, client.c_str(), wan_id);
    PROD_LOG_LEAVE(kProd);
    return status;
}

HLX_WAN_LINK_STATUS_ENUM get_ppp_vpn_wan_link_status(WAN_ID_NUM_ENUM wan_id)
{
    const ProcessName client{"pppd_wan%d", wan_id};
    const HLX_WAN_LINK_STATUS_ENUM status = status_by_process(PROD_SITE, client.c_str(), wan_id);
    PROD_LOG_LEAVE(kProd);
    return status;
}

/** State of a WAN in gateway mode. */
HLX_WAN_LINK_STATUS_ENUM gateway_status(Site site, WAN_ID_NUM_ENUM wan_id,
                                        HLX_WAN_CONNECT_TYPE_ENUM con_type,
                                        HLX_SYS_WORK_MODE_ENUM sys_mode)
{
    if (get_port_link_status(wanid_to_phyid(wan_id)) == 0) {
        PROD_LOG_GATED_AT(site, PROD_DBG_DEBUG, kProd, "wan%d is not wire.", wan_id);
        return HLX_WAN_NO_WIRE;
    }
    const char *const ifname = ifaddrs_get_wan_ifname(wan_id, sys_mode, con_type);
    if (ifname == nullptr) {
        PROD_LOG_ERROR_AT(site, kProd, "get ifname for wan%d fail.", wan_id);
        return HLX_WAN_NO_WIRE;
    }
    char address[kIpv4TextSize] = {};
    if (system_wan_ip_get(ifname, address, wan_id) == 0) {
        return HLX_WAN_CONNECTED;
    }
    switch (connect_type(con_type).client) {
        case Client::kDhcp:
            return get_dhcp_wan_link_status(wan_id);
        case Client::kPpp:
            return get_ppp_vpn_wan_link_status(wan_id);
        case Client::kNone:
            break;
    }
    return HLX_WAN_NOT_CONNECTED;
}

// ---- resolver file ---------------------------------------------------------------------------

constexpr const char *kResolverFile = "/etc/resolv.conf";
constexpr std::size_t kServerSize = 256;

/** The whole resolver file as text, or nothing. */
Allocated<char> resolver_text()
{
    void *data = nullptr;
    if (get_file_content(kResolverFile, &data, nullptr) == 0) {
        return nullptr;
    }
    return Allocated<char>{static_cast<char *>(data)};
}

/** Reads the server that a line names, if it does. */
bool read_server(const char *line, char (&server)[kServerSize])
{
    return sscanf(line, "nameserver %255s", server) == 1;
}

// ---- kind of access -------------------------------------------------------------------------

constexpr int kProbeAttempts = 3;
constexpr unsigned int kProbePause = 1;  // seconds

/** A program that asks the line for one kind of access. */
struct Probe {
    const char *before;  // its command, before and behind the interface
    const char *after;
    bool (*is_answer)(std::string_view line);  // whether what it prints means success
};

constexpr Probe kPppoeProbe = {"discovery-pppoe -I ", " -t 2 -a 1 2>&1", [](std::string_view line) {
                                   return line.starts_with("AC-Ethernet-Address: ");
                               }};

constexpr Probe kDhcpProbe = {"discovery-dhcp -i ", " -t 2 -p 2>&1", [](std::string_view line) {
                                  return line.find("servermac=\"") != std::string_view::npos;
                              }};

/** Runs a probe once, with a name read anew: the WAN may be set up meanwhile. */
bool probe_once(int wanid, const Probe &probe)
{
    char name[32] = {};
    prod_common_get_phyifname(static_cast<unsigned int>(wanid), name, sizeof(name));
    if (!can_name_interface(name)) {
        return false;
    }
    const Text<256> command{"%s%s%s", probe.before, ShellWord{name}.c_str(), probe.after};
    console_print("\033[1;%d;%dmExecuting: %s\n\033[0m", kBackground, kCyan, command.c_str());
    const Pipe pipe{popen(command.c_str(), "re")};
    char line[256];
    while (pipe != nullptr && fgets(line, sizeof(line), pipe.get()) != nullptr) {
        console_print("\033[0mOutput: %s\033[0m", line);
        if (probe.is_answer(line)) {
            return true;
        }
    }
    return false;
}

/** Runs a probe until it succeeds or its attempts are used up, and shows how long that took. */
bool is_answered(int wanid, const Probe &probe)
{
    const u64 start = get_now_ms();
    bool answered = false;
    for (int attempt = 0; attempt < kProbeAttempts && !answered; ++attempt) {
        answered = probe_once(wanid, probe);
        if (!answered) {
            sleep(kProbePause);  // after the last attempt too
        }
    }
    const u64 took = get_now_ms() - start;
    console_print("\033[1;%d;%dmIt takes %llu.%03llus.\n\033[0m", kBackground, kCyan, took / 1000,
                  took % 1000);
    return answered;
}

/** Whether two keys hold the same text; an absent key holds an empty one. */
bool hold_the_same(const char *key, const char *other_key)
{
    return ConfigValue{key} == ConfigValue{other_key}.c_str();
}

// ---- name resolution ------------------------------------------------------------------------

constexpr timeval kDnsPatience = {.tv_sec = 2, .tv_usec = 0};
constexpr uint16_t kDnsPort = 53;

/** A datagram: a query on its way out, then the answer to it. */
struct DnsMessage {
    unsigned char bytes[kDnsMessageSize];
    std::size_t size;
};

bool set_option(const Fd &fd, int option, const void *value, std::size_t size)
{
    return setsockopt(fd.get(), SOL_SOCKET, option, value, static_cast<socklen_t>(size)) == 0;
}

/** Sends the datagram, whole. */
bool send_to(const Fd &fd, const char *server, const DnsMessage &message)
{
    sockaddr_in destination = {};
    destination.sin_family = AF_INET;
    destination.sin_port = htons(kDnsPort);
    // A text that is no address becomes the broadcast one, where a socket may not send just so.
    destination.sin_addr.s_addr = inet_addr(server);
    errno = 0;  // a part that was sent leaves none
    return sendto(fd.get(), message.bytes, message.size, 0,
                  reinterpret_cast<const sockaddr *>(&destination),
                  sizeof(destination)) == static_cast<ssize_t>(message.size);
}

/** Puts what arrives in place of the query; nothing of that stays behind it. */
bool receive(const Fd &fd, DnsMessage &message)
{
    const ssize_t got = recv(fd.get(), message.bytes, sizeof(message.bytes), 0);
    message.size = got > 0 ? static_cast<std::size_t>(got) : 0;
    memset(message.bytes + message.size, 0, sizeof(message.bytes) - message.size);
    return got >= 0;
}

/** Asks a server. @return nullptr, or the step that failed, with errno as it left it */
const char *exchange(DnsMessage &message, const char *server, const char *ifname)
{
    const Fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (!fd) {
        return "create socket";
    }
    if (!set_option(fd, SO_SNDTIMEO, &kDnsPatience, sizeof(kDnsPatience))) {
        return "socket set send time";
    }
    if (!set_option(fd, SO_RCVTIMEO, &kDnsPatience, sizeof(kDnsPatience))) {
        return "socket set recv time";
    }
    if (ifname != nullptr && *ifname != '\0') {
        char device[32] = {};
        memcpy(device, ifname, strnlen(ifname, IFNAMSIZ));
        if (!set_option(fd, SO_BINDTODEVICE, device, sizeof(device))) {
            return "bind interface";
        }
    }
    if (!send_to(fd, server, message)) {
        return "send request";
    }
    return receive(fd, message) ? nullptr : "recv response";
}

// ---- bridge and switch ----------------------------------------------------------------------

constexpr const char *kForwarding = "/proc/sys/net/ipv4/ip_forward";
constexpr int kLanSwitch = 1;
constexpr std::size_t kAllPlacesSize = 64;  // what a change of the whole device looks at
constexpr std::size_t kFactoryMacDigits = 12;

/** Logs a command and runs it; nobody looks at its result. */
PROD_PRINTF(2, 3) void run_logged(Site site, const char *format, ...)
{
    Text<256> command;
    va_list args;
    va_start(args, format);
    command.vappend(format, args);
    va_end(args);
    PROD_LOG_GATED_AT(site, PROD_DBG_INFO, kProd, "<CMD> %s", command.c_str());
    doSystemCmd("%s", command.c_str());
}

void move_ports(Site site)
{
    const Ports ports;
    for (int i = 0; i < ports.count(); ++i) {
        char name[32];
        prod_common_get_port_ifname(static_cast<unsigned int>(i) + 1, name, sizeof(name));
        if (!can_name_interface(name)) {
            continue;
        }
        const bool is_wan = phyid_to_wanid(ports.at(i)) != 0;
        run_logged(site, "brctl %s br0 %s", is_wan ? "delif" : "addif", ShellWord{name}.c_str());
    }
}

/** Tells every port which side it is on. @return the ports as bits of a mask */
unsigned int assign_ports()
{
    unsigned int mask = 0;
    const Ports ports{kAllPlacesSize};
    for (int i = 0; i < ports.count(); ++i) {
        const int phyid = ports.at(i);
        if (phyid >= 0 && phyid < 32) {
            mask |= 1U << phyid;
        }
        ethswctl_wan_set_by_main_ifname(phyid, phyid_to_wanid(phyid) != 0);
    }
    return mask;
}

void set_bridge_mac(Site site)
{
    const FactoryValue mac{"HW_NIC0_ADDR", 64};
    const char *const digits = mac.c_str();
    if (strlen(digits) != kFactoryMacDigits ||
        strspn(digits, "0123456789abcdefABCDEF") != kFactoryMacDigits) {
        return;
    }
    Text<32> address{"%.2s", digits};
    for (std::size_t i = 2; i < kFactoryMacDigits; i += 2) {
        address.appendf(":%.2s", digits + i);
    }
    run_logged(site, "ifconfig br0 hw ether %s", address.c_str());
}

void set_bridge_address(Site site)
{
    const ConfigValue ip{"lan.ip", 64};
    in_addr address;
    // inet_aton() takes what follows a blank for a comment; a shell would not.
    if (inet_aton(ip.c_str(), &address) != 0) {
        run_logged(site, "ifconfig br0 %s", ShellWord{ip.c_str()}.c_str());
    }
}

void bcm_leave_switch_only_mode()
{
    run_logged(PROD_SITE, "brctl addbr br0");
    const int eth_id = kLanSwitch;
    const unsigned int untag_bit = assign_ports();
    const unsigned int tag_bit = 0;
    const int result = iof_vlan_set(eth_id, untag_bit, tag_bit);
    if (result != 0) {
        PROD_LOG_ERROR(kProd, "Failed(%d) to %s", result,
                       "iof_vlan_set(eth_id, untag_bit, tag_bit)");
    }
    update_bridge_test();
    set_bridge_mac(PROD_SITE);
    set_bridge_address(PROD_SITE);
    PROD_LOG_INFO(kProd, "%s to file `%s`: 1", "Write", kForwarding);
    do_file_cmd(kForwarding, 0, "1");
}

}  // namespace

int wanid_to_phyid(int wan_id)
{
    return Ports{}.at(wan_id - 1LL);
}

int lanid_to_phyid(int lan_id)
{
    const Ports ports;
    return ports.at(static_cast<long long>(ports.count()) - lan_id);
}

int web_portid_to_phyid(int webid)
{
    return Ports{}.at(webid - 1LL);
}

int phyid_to_web_portid(int phyid)
{
    return phyid_to_port_index(phyid) + 1;
}

int phyid_to_port_index(int phyid)
{
    return Ports{}.index_of(phyid);
}

int phyid_to_wanid(int phyid)
{
    const int index = phyid_to_port_index(phyid);
    return index >= 0 && index + 1 <= wan_count() ? index + 1 : 0;
}

int phyid_is_wan(int phyid)
{
    return phyid_to_wanid(phyid) > 0;
}

int phyid_to_lanid(int phyid)
{
    const int index = phyid_to_port_index(phyid);
    // LANs count from the last place on, against the order of the WANs.
    return index >= 0 && index >= wan_count() ? std::max(get_ports_num() - index, 0) : 0;
}

int phyid_is_lan(int phyid)
{
    return wan_count() <= phyid_to_port_index(phyid);
}

int wan_name_to_id(const char *name)
{
    if (name == nullptr) {
        return 0;
    }
    for (const char *const prefix : {"wan", "WAN"}) {
        const char *rest = name;
        if (const auto id = take_number(rest, prefix)) {
            return static_cast<int>(*id);
        }
    }
    return 0;
}

int ifname_to_wanid(const char *ifname)
{
    if (ifname == nullptr) {
        return 0;
    }
    const long long candidate = wanid_in_name(ifname);
    return candidate >= 1 && candidate <= wan_count() ? static_cast<int>(candidate) : 0;
}

int phyid_to_vid(int phyid)
{
    void *data = nullptr;
    if (get_file_content("/etc/lan_wan_port", &data, nullptr) == 0) {
        return 0;
    }
    const Allocated<char> text{static_cast<char *>(data)};
    LineSplitter lines{text.get()};
    while (const char *const line = lines.next()) {
        long long port;
        long long vid;
        // NOLINTNEXTLINE(cert-err34-c): a number beyond the type counts as its end
        if (sscanf(line, "%*s %lld vlan%lld", &port, &vid) == 2 && port == phyid) {
            return static_cast<int>(std::clamp<long long>(vid, INT_MIN, INT_MAX));
        }
    }
    return 0;
}

char *wanid_to_vifname(int wanid)
{
    static char name[32];
    const int connect_type = prod_cfm_get_int_val("wan%d.connecttype", wanid);
    const int ipv6_type = prod_cfm_get_int_val("ipv6.wan%d.type", wanid);
    name[0] = '\0';  // an absent interface must not leave another WAN's name
    if (connect_type == HLX_WAN_CONNECT_PPPOE) {
        snprintf(name, sizeof(name), "ppp%d", wanid);
    } else if (config_int("ipv6.enable") != 0 && ipv6_type == HLX_WAN_CONNECT_PPPOE) {
        snprintf(name, sizeof(name), "ppp6%d", wanid);
    } else {
        prod_common_get_phyifname(static_cast<unsigned int>(wanid), name, sizeof(name));
    }
    return name;
}

int get_value_by_wanid(int wanid, const char *key, char *value)
{
    if (key == nullptr || value == nullptr) {
        return 0;
    }
    char found[INI_VALUE_SIZE] = {};
    if (file_get_value_from_ini(address_file(wanid).c_str(), key, found) == 0) {
        return 0;
    }
    str_trim(found, '\n');
    str_trim(found, ' ');
    copy_text(value, sizeof(found), found);
    return 1;
}

void get_mac_by_wanid(int wan_id, char *mac_str)
{
    if (mac_str == nullptr) {
        return;
    }
    Mac mac = {};
    const ConfigValue base{"wan.mac", kMacTextSize};
    if (!base.empty()) {
        mac_str_to_bin(base.c_str(), mac.data());
    }
    for (int i = 1; i < std::min(wan_id, kMostWans); ++i) {
        if (ifaddrs_mac_increase(mac.data(), 5) != 0 || ifaddrs_mac_increase(mac.data(), 4) != 0) {
            break;
        }
    }
    mac_bin_to_str(mac.data(), mac_str, kMacTextSize);
}

HLX_WAN_LINK_STATUS_ENUM system_wan_get_link_status(WAN_ID_NUM_ENUM wan_id,
                                                    HLX_WAN_CONNECT_TYPE_ENUM con_type,
                                                    HLX_SYS_WORK_MODE_ENUM sys_mode)
{
    const FunctionTrace trace{PROD_SITE};
    // With a DSL modem in the device no Ethernet port tells anything: as a gateway it never claims
    // a link, as a bridge it always does.
    if (!is_wan_id(wan_id) || sys_mode == HLX_SYS_MODE_ADSL_GW) {
        return trace.leave(HLX_WAN_NO_WIRE);
    }
    if (sys_mode == HLX_SYS_MODE_ADSL_BR) {
        return trace.leave(HLX_WAN_CONNECTED);
    }
    return trace.leave(gateway_status(PROD_SITE, wan_id, con_type, sys_mode));
}

char *ifaddrs_get_wan_ifname(int wanid, int sysmode, HLX_WAN_CONNECT_TYPE_ENUM wantype)
{
    const int type = wantype;
    if (!is_wan_id(wanid) || type < 0 || type >= HLX_WAN_CONNECT_BUTT ||
        sysmode < HLX_SYS_MODE_ADSL_GW || sysmode > HLX_SYS_MODE_GW) {
        PROD_LOG_DEBUG(kProd, "arg is error: wanid=%d sysmode=%d wantype=%d", wanid, sysmode, type);
        return nullptr;
    }
    switch (sysmode) {
        case HLX_SYS_MODE_GW:
            return get_gw_wan_ifname(wanid, wantype);
        case HLX_SYS_MODE_ADSL_GW:
            return get_adsl_gw_wan_ifname(wanid, wantype);
        default:
            return nullptr;  // a bridge has no WAN interface of its own
    }
}

int system_wan_ip_get(const char *ifname, char *if_addr, WAN_ID_NUM_ENUM wan_id)
{
    const FunctionTrace trace{PROD_SITE};
    if (ifname == nullptr || if_addr == nullptr) {
        return -1;
    }
    // WAN 1 may be up with IPv6 alone; its IPv6 client leaves this file then.
    const bool has_ipv6 = wan_id == WAN_ID_1 && open_for_reading("/etc/ipv6_wan1.ini") != nullptr;
    const int without_ipv4 = has_ipv6 ? 0 : -1;

    const InterfaceQuery query{ifname, SIOCGIFADDR};
    switch (query.result()) {
        case InterfaceQuery::Result::kAnswered: {
            const in_addr address = ipv4_of(query.answer().ifr_addr);
            inet_ntop(AF_INET, &address, if_addr, kIpv4TextSize);
            return trace.leave(0);
        }
        case InterfaceQuery::Result::kNoSocket:
            log_failure(PROD_SITE, query.err(), "create socket is fail.");
            break;
        case InterfaceQuery::Result::kRefused:
            PROD_LOG_DEBUG(kProd, "Failed(%d) to get ip info for `%s`, %s.", query.err(), ifname,
                           strerror(query.err()));
            break;
    }
    return trace.leave(without_ipv4);
}

int ifaddrs_compare_with_wan_ip(const char *wan_ip, const char *wan_mask, const char *test_ip)
{
    constexpr int kNullArgument = 2;
    const FunctionTrace trace{PROD_SITE};
    if (wan_ip == nullptr || wan_mask == nullptr || test_ip == nullptr) {
        PROD_LOG_ERROR(kProd, "arg is err.");
        return kNullArgument;
    }
    const u32 net = ipv4_from(wan_ip) & ipv4_from(wan_mask);
    const u32 test = ipv4_from(test_ip);
    const auto host_bits = static_cast<u32>(32 - ifaddrs_ipmask_to_numeric(wan_mask));
    const u32 size = host_bits < 32 ? u32{1} << host_bits : 0;
    const u32 broadcast = net + size - 1;
    return trace.leave(net < test && test < broadcast ? 1 : 0);
}

HLX_WAN_CONNECT_TYPE_ENUM getWanConnType(int wanid)
{
    const Text<256> key{"wan%d.connecttype", wanid};
    const ConfigValue type{key.c_str(), 256};
    return static_cast<HLX_WAN_CONNECT_TYPE_ENUM>(type.found() ? type.to_int()
                                                               : HLX_WAN_CONNECT_DHCP);
}

HLX_WAN_CONNECT_TYPE_ENUM get_wisp_connect_type(void)
{
    constexpr struct {
        std::string_view mode;
        HLX_WAN_CONNECT_TYPE_ENUM type;
    } kModes[] = {{"dhcp", HLX_WAN_CONNECT_DHCP},
                  {"static", HLX_WAN_CONNECT_STATIC},
                  {"pppoe", HLX_WAN_CONNECT_PPPOE}};
    const ConfigValue configured{"wl.wisp.access_mode", 256};
    for (const auto &[mode, type] : kModes) {
        if (configured == mode) {
            return type;
        }
    }
    return HLX_WAN_CONNECT_DHCP;
}

int get_dns_server_by_idx(int idx, char *dns_ip)
{
    if (idx < 0 || dns_ip == nullptr) {
        return 0;
    }
    const Allocated<char> text = resolver_text();
    if (text == nullptr) {
        return 0;
    }
    int number = 0;
    char server[kServerSize];
    LineSplitter lines{text.get()};
    while (const char *const line = lines.next()) {
        if (!read_server(line, server)) {
            continue;
        }
        copy_text(dns_ip, kServerSize, server);
        if (number++ == idx) {
            return 1;
        }
    }
    dns_ip[0] = '\0';
    return 0;
}

void reset_dns_cfg(void)
{
    do_file_cmd(kResolverFile, 0, "options timeout:%d\n", 1);
    do_file_cmd(kResolverFile, 1, "options attempts:%d\n", 1);
}

void add_dns_server(const char *dns)
{
    if (dns == nullptr) {
        return;
    }
    const Allocated<char> text = resolver_text();
    if (text != nullptr && strstr(text.get(), dns) == nullptr) {
        do_file_cmd(kResolverFile, 1, "nameserver %s\n", dns);
    }
}

void exchange_dns_server(void)
{
    const Allocated<char> text = resolver_text();
    if (text == nullptr) {
        return;
    }
    Text<512> result;
    const char *first_server = nullptr;
    char ignored[kServerSize];
    LineSplitter lines{text.get()};
    while (const char *const line = lines.next()) {
        if (first_server == nullptr && read_server(line, ignored)) {
            first_server = line;
        } else {
            result.appendf("%s\n", line);
        }
    }
    if (first_server != nullptr) {
        result.appendf("%s\n", first_server);
    }
    // Written over the old text: what a shorter result leaves of its end stays.
    write_file(kResolverFile, result.c_str(), static_cast<unsigned int>(result.size()));
}

void wisp_set_webpage_status(int status)
{
    do_file_cmd("/var/wisp_webpage_status", 0, "status=%d\n", status);
}

char *prod_common_get_wanifname(unsigned int wanid, char *ifname, unsigned int ifname_len)
{
    const int id = static_cast<int>(wanid);
    const HLX_SYS_WORK_MODE_ENUM mode = get_sys_mode();
    char *const name = ifaddrs_get_wan_ifname(id, mode, getWanConnType(id));
    if (name != nullptr && ifname != nullptr) {
        copy_text(ifname, ifname_len, name);
    }
    return name;
}

// ---- kind of access -------------------------------------------------------------------------

int prod_detect_wan_type(int wanid)
{
    if (is_answered(wanid, kPppoeProbe)) {
        return HLX_WAN_CONNECT_PPPOE;
    }
    return is_answered(wanid, kDhcpProbe) ? HLX_WAN_CONNECT_DHCP : HLX_WAN_CONNECT_STATIC;
}

int pppoe_v4_as_v6(int wanid)
{
    if (prod_cfm_get_int_val("wan%d.connecttype", wanid) != HLX_WAN_CONNECT_PPPOE ||
        prod_cfm_get_int_val("ipv6.wan%d.type", wanid) != HLX_WAN_CONNECT_PPPOE) {
        return 0;
    }
    // The IPv6 account is that of WAN 1, whichever WAN is asked for.
    return hold_the_same(ConfigKey{"wan%d.ppoe.userid", wanid}.c_str(), "ipv6.wan1.pppoe.user") &&
                   hold_the_same(ConfigKey{"wan%d.ppoe.pwd", wanid}.c_str(), "ipv6.wan1.pppoe.pwd")
               ? 1
               : 0;
}

// ---- name resolution ------------------------------------------------------------------------

int prod_resolve_domain(const char *domain, const char *interface_name, const char *dnsserver,
                        char *ipaddr1, char *ipaddr2, char *ipaddr3)
{
    if (domain == nullptr || dnsserver == nullptr || ipaddr1 == nullptr || *dnsserver == '\0' ||
        strcmp(dnsserver, kNoAddress) == 0) {
        return -1;
    }
    DnsMessage message;
    message.size = make_dns_query(domain, message.bytes);
    if (message.size == 0) {
        return -1;
    }
    if (const char *const failed_step = exchange(message, dnsserver, interface_name)) {
        perror(failed_step);
        return -1;
    }
    // A third address has no place without a second one.
    char *const texts[] = {ipaddr1, ipaddr2, ipaddr3};
    const auto wanted =
        static_cast<std::size_t>(std::find(texts, std::end(texts), nullptr) - texts);
    in_addr addresses[std::size(texts)];
    const std::size_t found = parse_dns_answer({message.bytes, message.size}, {addresses, wanted});
    for (std::size_t i = 0; i < found; ++i) {
        inet_ntop(AF_INET, &addresses[i], texts[i], kIpv4TextSize);
    }
    return static_cast<int>(found);
}

char *get_netcheck_hostname(char *domain)
{
    constexpr std::size_t kSize = 256;
    if (domain == nullptr) {
        return nullptr;
    }
    copy_text(domain, kSize, ConfigValue{"netcheck.hostname"}.c_str());
    if (*domain == '\0') {
        const char *const key = lang_is_cn() != 0 ? "netcheck.hostname.cn" : "netcheck.hostname.en";
        copy_text(domain, kSize, ConfigValue{key}.c_str());
    }
    return domain;
}

// ---- bridge and switch ----------------------------------------------------------------------

void update_bridge(void)
{
    move_ports(PROD_SITE);
}

void update_bridge_test(void)
{
    move_ports(PROD_SITE);
}

void ethswctl_wan_switch(const char *ifname, int enable)
{
    if (ifname == nullptr || !can_name_interface(ifname)) {
        return;
    }
    const Text<256> command{"ethswctl -c wan -i %s -o %s", ShellWord{ifname}.c_str(),
                            enable != 0 ? "enable" : "disable"};
    command_trace(PROD_SITE, command.c_str());
    doSystemCmd("%s", command.c_str());
}

int ethswctl_wan_set_by_main_ifname(int phy_port, int enable)
{
    const Text<32> key{"ports.phy.%d.eth", phy_port};
    const ConfigValue ifname{key.c_str(), 128};
    ethswctl_wan_switch(ifname.c_str(), enable);
    return 0;
}

void leave_switch_only_mode(void)
{
    bcm_leave_switch_only_mode();
}

void down_lan_phy_connect(void)
{
    const Ports ports;
    for (int i = 0; i < ports.count(); ++i) {
        if (phyid_is_lan(ports.at(i)) != 0) {
            iof_port_restart_auto_nego(ports.at(i));
        }
    }
}
