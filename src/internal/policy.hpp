// SPDX-License-Identifier: MIT
// The five kinds of access-controller policies, and the records that their policy files hold.
#pragma once

#include "internal/line_reader.hpp"
#include "internal/text.hpp"
#include "prod_common_cfm.h"

namespace prod
{

struct PolicyKind {
    const char *table;   // in the database
    const char *file;    // where its rows travel
    const char *prefix;  // of a record in that file
};

inline constexpr PolicyKind kWirelessPolicy{"wl_basic_policy", "/etc/wl_policy.cfg", "wl_policy:"};
inline constexpr PolicyKind kRadioPolicy{"wl_radio_policy", "/etc/rf_policy.cfg", "rf_policy:"};
inline constexpr PolicyKind kRebootPolicy{"reboot_policy", "/etc/reboot_policy.cfg",
                                          "reboot_policy:"};
inline constexpr PolicyKind kDeployPolicy{"wl_deploy_policy", "/etc/wl_deploy_policy.cfg",
                                          "wl_deploy_policy:"};
inline constexpr PolicyKind kVlanPolicy{"qvlan_policy", "/etc/qvlan_policy.cfg", "qvlan_policy:"};

/** The row of a policy table as its record: "reboot_policy:enable=1<tab>name=night". */
class PolicyRecord
{
  public:
    explicit PolicyRecord(const char *prefix) { text_.append(prefix); }

    void add(const char *name, const char *value)
    {
        if (!first_) {
            text_.append('\t');
        }
        first_ = false;
        text_.append(Text<kItemSize>{"%s=%s", or_null(name), or_null(value)}.view());
    }

    const char *c_str() const { return text_.c_str(); }

  private:
    static constexpr std::size_t kItemSize = 256;
    static constexpr std::size_t kRecordSize = 2048;

    bool first_ = true;
    Text<kRecordSize> text_;
};

/** The records of a policy file, each as a group of SQL values: "('1','night'),". */
class PolicyReader
{
    static constexpr std::size_t kLine = 1023;
    static constexpr std::size_t kValueSize = 256;

  public:
    // An item of n characters has a value of n - 2 at most: twice that, if all are quotes, in
    // quotes of its own and with a comma.
    using Group = Text<2 * kLine + 2>;

    PolicyReader(const char *path, const char *prefix) : lines_(path), prefix_(prefix) {}

    /** The next record, or nullptr at the end. It stays until the next call. */
    const Group *next()
    {
        while (char *const line = lines_.next()) {
            if (strstr(line, prefix_) != nullptr && take(line)) {
                return &group_;
            }
        }
        return nullptr;
    }

  private:
    /** False when the line holds an item that is none, or no item at all. */
    bool take(char *line)
    {
        line[strcspn(line, "\r\n")] = '\0';
        group_.clear();
        char *state = nullptr;
        for (char *item = strtok_r(line, "\t", &state); item != nullptr;
             item = strtok_r(nullptr, "\t", &state)) {
            const char *const equals = strchr(item, '=');
            if (equals == nullptr || equals == item) {
                return false;
            }
            add(value_behind(equals));
        }
        if (group_.empty()) {
            return false;
        }
        group_.drop_last();  // the last value's comma
        group_.append("),");
        return true;
    }

    void add(std::string_view value)
    {
        char quoted[2 * kValueSize] = {};
        encode_sql_ssid(value.data(), static_cast<int>(value.size()), quoted);
        group_.append(group_.empty() ? "('" : "'");
        group_.append(quoted);
        group_.append("',");
    }

    /** What stands behind "=", from its first character that is no blank to the next blank. */
    static std::string_view value_behind(const char *equals)
    {
        const char *const value = equals + 1 + strspn(equals + 1, kBlanks);
        return {value, std::min(strcspn(value, kBlanks), kValueSize - 1)};
    }

    LineReader<kLine> lines_;
    const char *prefix_;
    Group group_;
};

}  // namespace prod
