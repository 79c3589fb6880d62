// SPDX-License-Identifier: MIT
// Whether an address range clashes with those that the device serves.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "groups.hpp"
#include "prod_common_check.h"
#include "prod_common_file.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

using Range = PROD_IP_CONFLICT_STRU;

constexpr Word kRanges[] = {
    {PROD_CONFLICT_IP_LAN, "lan"},
    {PROD_CONFLICT_IP_PORTAL, "portal"},
    {PROD_CONFLICT_IP_GUEST, "guest"},
    {PROD_CONFLICT_IP_PPPoES, "pppoe-server"},
    {PROD_CONFLICT_IP_PPTP_SERVER, "pptp-server"},
    {PROD_CONFLICT_IP_L2TP_SERVER, "l2tp-server"},
};

/** The ranges that must keep apart, and behind them the one that is asked about. */
class Ranges
{
  public:
    Ranges(const AddressRange &asked, AskedAs role) : count_(check_get_conflict_ip_list(set_))
    {
        // The last one gets a kind that none of the others has, so that all of them keep away
        // from it.
        if (role == AskedAs::kLan) {
            Range *const end = std::remove_if(set_, set_ + count_, [](const Range &range) {
                return range.type == PROD_CONFLICT_IP_LAN;
            });
            count_ = static_cast<int>(end - set_);
            add_wans();
            put(PROD_CONFLICT_IP_LAN, asked.address.c_str(), asked.mask.c_str());
        } else {
            put(PROD_CONFLICT_IP_WAN, asked.address.c_str(), asked.mask.c_str());
        }
    }

    int count() const { return count_; }
    const Range &operator[](int place) const { return set_[place]; }

    /** Whether a served range is in the way of the one that is asked about. */
    bool clashes(int place) const
    {
        const Range &asked = set_[count_];
        return prod_check_conflict_with_ip_set(asked.ip, asked.mask, &set_[place], 1,
                                               PROD_CONFLICT_IP_MAX) == 0;
    }

    /**
     * Moves a range to where it clashes with nothing; false when there is no such place, and for a
     * WAN's, which is not the device's to choose.
     */
    bool move(int place)
    {
        Range &range = set_[place];
        if (range.type == PROD_CONFLICT_IP_WAN) {
            return false;
        }
        char address[sizeof(range.ip)] = "";
        get_ip_conflict_new_ip(&range, set_, count_ + 1, address);
        memcpy(range.ip, address, sizeof(address));
        const int all = count_ + 1;
        return prod_check_conflict_with_ip_set(range.ip, range.mask, set_, all, range.type) == all;
    }

  private:
    /** The networks that the WANs are in. */
    void add_wans()
    {
        for (int id = WAN_ID_1; id <= wan_count(); ++id) {
            WAN_IP_INFO_STRU wan = {};
            file_wan_ip_info_get(static_cast<WAN_ID_NUM_ENUM>(id), &wan);
            const bool has_mask = is_mask(wan.wan_mask) && prefix_of(wan.wan_mask) > 0;
            put(PROD_CONFLICT_IP_WAN, wan.wan_ip, has_mask ? wan.wan_mask : "255.255.255.255");
            set_[count_++].id = id;
        }
    }

    /** Makes a range the last one. */
    void put(PROD_CONFLICT_IP_ENUM type, const char *ip, const char *mask)
    {
        Range &last = set_[count_];
        last = {};
        last.type = type;
        snprintf(last.ip, sizeof(last.ip), "%s", ip);
        snprintf(last.mask, sizeof(last.mask), "%s", mask);
    }

    Range set_[PROD_CONFLICT_SET_SIZE] = {};
    int count_;
};

std::string name_of(const Range &range)
{
    return range.type == PROD_CONFLICT_IP_WAN ? format("wan%d", range.id)
                                              : word_of(kRanges, range.type, "unknown");
}

std::string with_prefix(const char *address, const char *mask)
{
    if (*mask == '\0') {
        return address;
    }
    return is_mask(mask) ? format("%s/%d", address, prefix_of(mask))
                         : format("%s/%s", address, mask);
}

}  // namespace

bool add_clashes(cJSON *answer, const AddressRange &asked, AskedAs role)
{
    Ranges ranges{asked, role};
    cJSON *const clashes = cJSON_AddArrayToObject(answer, "clashes");
    for (int i = 0; i < ranges.count(); ++i) {
        if (!ranges.clashes(i)) {
            continue;
        }
        cJSON *const clash = add_object_to(clashes);
        add_text(clash, "range", name_of(ranges[i]));
        add_text(clash, "address", ranges[i].ip);
        add_text(clash, "mask", ranges[i].mask);
        add_text(clash, "proposed", ranges.move(i) ? ranges[i].ip : "");
    }
    return clashes->child != nullptr;
}

bool show_clashes(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *clash;
    cJSON_ArrayForEach(clash, member(answer, "clashes"))
    {
        rows.push_back({text_of(clash, "range"),
                        with_prefix(text_of(clash, "address"), text_of(clash, "mask")),
                        text_of(clash, "proposed")});
    }
    if (rows.empty()) {
        return false;
    }
    page.line({{with_prefix(text_of(answer, "address"), text_of(answer, "mask"))},
               {"clashes.", Tone::kBad}});
    page.table({"RANGE", "ADDRESS", "PROPOSED"}, rows);
    return true;
}

int run_lan_check(const Call &call, cJSON *answer)
{
    const std::optional<AddressRange> asked = address_range(call[0]);
    if (!asked) {
        return call.usage("'%s' is no address with a mask, such as 192.168.0.1/24", call[0]);
    }
    add_text(answer, "address", asked->address);
    add_text(answer, "mask", asked->mask);
    return add_clashes(answer, *asked, AskedAs::kAnother) ? kNo : kYes;
}

void show_lan_check(const cJSON *answer, Page &page)
{
    if (!show_clashes(answer, page)) {
        page.line({{with_prefix(text_of(answer, "address"), text_of(answer, "mask"))},
                   {"is free.", Tone::kGood}});
    }
}

}  // namespace prodctl
