// SPDX-License-Identifier: MIT
// The groups of commands, and the parts of their answers that the status page puts together.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command.hpp"
#include "platform/database.h"
#include "prod_common_types.h"
#include "words.hpp"

namespace prodctl
{

extern const Command kStatusCommand;
extern const Command kDebugGroup;
extern const Command kLogGroup;
extern const Command kConfigGroup;
extern const Command kWanGroup;
extern const Command kLanGroup;
extern const Command kIpv6Group;
extern const Command kBridgeGroup;
extern const Command kRouteCommand;
extern const Command kUpnpCommand;
extern const Command kWifiGroup;
extern const Command kMeshGroup;
extern const Command kLedGroup;
extern const Command kPortCommand;
extern const Command kFirmwareGroup;
extern const Command kSystemGroup;
extern const Command kCheckGroup;
extern const Command kStrGroup;
extern const Command kEncodeCommand;
extern const Command kDecodeCommand;
extern const Command kLockGroup;
extern const Command kMqGroup;
extern const Command kWatchCommand;
extern const Command kAuditGroup;
extern const Command kUsbGroup;
extern const Command kDnsRedirectGroup;
extern const Command kPolicyGroup;
extern const Command kBackupGroup;

// Commands of the group system.
int run_memory(const Call &call, cJSON *answer);
void show_memory(const cJSON *answer, Page &page);
int run_cpu(const Call &call, cJSON *answer);
void show_cpu(const cJSON *answer, Page &page);
int run_versions(const Call &call, cJSON *answer);
void show_versions(const cJSON *answer, Page &page);
int run_reboot(const Call &call, cJSON *answer);
int run_restore(const Call &call, cJSON *answer);

// Commands that have a source file of their own.
int run_wan_macs(const Call &call, cJSON *answer);
void show_wan_macs(const cJSON *answer, Page &page);
extern const Option kWanMacsOptions[1];
int run_lan_check(const Call &call, cJSON *answer);
void show_lan_check(const cJSON *answer, Page &page);
int run_wan_detect(const Call &call, cJSON *answer);
void show_wan_detect(const cJSON *answer, Page &page);
int run_lan_move(const Call &call, cJSON *answer);
void show_lan_move(const cJSON *answer, Page &page);
int run_lan_clients(const Call &call, cJSON *answer);
int run_lan_arp(const Call &call, cJSON *answer);
void show_lan_arp(const cJSON *answer, Page &page);
extern const Command kLanRecordsGroup;
/** The clients of the DHCP server; lines of its list that are no clients are left out. */
std::vector<DHCPS_CLIENT_LIST_STRU> dhcp_clients();
/** The host name that a client gave, "" for none. */
const char *given_name(const char *hostname);

/** An entry of the kernel's neighbour table. */
struct ArpEntry {
    std::string address;
    std::string mac;
    std::string interface;
    unsigned int flags;  // ATF_...
};
/** The table as it stands; nothing when it cannot be read. */
std::optional<std::vector<ArpEntry>> arp_table();
constexpr char kNoArpTable[] = "the neighbour table cannot be read";

/** The name of one of the tables that lan records shows. */
const char *table_name(const db_table *table);

/** What a range that is asked about would be: the LAN, in place of the present one, or one more. */
enum class AskedAs { kLan, kAnother };
/**
 * Adds the ranges that are in the way of one; of the LAN also the networks of the WANs.
 * @return whether there are any
 */
bool add_clashes(cJSON *answer, const AddressRange &asked, AskedAs role);
/** Shows them with the range itself, "address" and "mask". @return whether there are any */
bool show_clashes(const cJSON *answer, Page &page);

// Each adds one member to an answer and shows it again.
int add_modules(const Call &call, cJSON *answer);
void show_modules(const cJSON *answer, Page &page);
int add_wans(const Call &call, cJSON *answer, int first, int last);
void show_wans(const cJSON *answer, Page &page);
void add_ipv6(cJSON *answer);
void show_ipv6(const cJSON *answer, Page &page);
void add_name_servers(cJSON *answer);
void show_name_servers(const cJSON *answer, Page &page);
void add_ports(cJSON *answer);
void show_ports(const cJSON *answer, Page &page);
void add_clients(cJSON *answer);
void show_clients(const cJSON *answer, Page &page);
int add_neighbours(const Call &call, cJSON *answer);
void show_neighbours(const cJSON *answer, Page &page);
int add_routes(const Call &call, cJSON *answer);
void show_routes(const cJSON *answer, Page &page);
/** The newest entries of the system log. */
void add_log(cJSON *answer);
void show_log(const cJSON *answer, Page &page);
void add_system(cJSON *answer);
void show_system(const cJSON *answer, Page &page);

}  // namespace prodctl
