// SPDX-License-Identifier: MIT
// The kinds of access-controller policies, by the names that the command line has for them.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace prodctl
{

struct PolicyKind {
    const char *name;
    const char *table;
    const char *file;
    const char *prefix;
    std::size_t columns;
};

constexpr PolicyKind kPolicyKinds[] = {
    {"wireless", "wl_basic_policy", "/etc/wl_policy.cfg", "wl_policy:", 26},
    {"radio", "wl_radio_policy", "/etc/rf_policy.cfg", "rf_policy:", 20},
    {"reboot", "reboot_policy", "/etc/reboot_policy.cfg", "reboot_policy:", 8},
    {"deployment", "wl_deploy_policy", "/etc/wl_deploy_policy.cfg", "wl_deploy_policy:", 10},
    {"vlan", "qvlan_policy", "/etc/qvlan_policy.cfg", "qvlan_policy:", 9},
};

using PolicyDatabase = std::unique_ptr<sqlite3, decltype(&sqlite3_close)>;

/** The policy database, to be read; nullptr when it cannot be opened. */
PolicyDatabase open_policies();

/** How many policies of a kind there are, -1 when that cannot be told. */
int count_policies(sqlite3 *database, const PolicyKind &kind);

/** The records of a kind in a text. */
std::vector<std::string_view> policy_records(std::string_view text, const PolicyKind &kind);

/** What an import of a record would lose or refuse; empty when all of it is taken. */
std::string policy_flaw(std::string_view record, const PolicyKind &kind);

}  // namespace prodctl
