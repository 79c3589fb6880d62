// SPDX-License-Identifier: MIT
// Whether an address range clashes with those that the device serves.
#include <cstdio>
#include <cstring>

#include "groups.hpp"
#include "prod_common_check.h"
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

/** The ranges that the device serves, and behind them the one that is asked about. */
class Ranges
{
  public:
    explicit Ranges(const AddressRange &asked) : count_(check_get_conflict_ip_list(set_))
    {
        // A kind that none of the others has, so that all of them keep away from it.
        Range &last = set_[count_];
        last.type = PROD_CONFLICT_IP_WAN;
        snprintf(last.ip, sizeof(last.ip), "%s", asked.address.c_str());
        snprintf(last.mask, sizeof(last.mask), "%s", asked.mask.c_str());
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

    /** Moves a range to where it clashes with nothing; false when there is no such place. */
    bool move(int place)
    {
        Range &range = set_[place];
        char address[sizeof(range.ip)] = "";
        get_ip_conflict_new_ip(&range, set_, count_ + 1, address);
        memcpy(range.ip, address, sizeof(address));
        const int all = count_ + 1;
        return prod_check_conflict_with_ip_set(range.ip, range.mask, set_, all, range.type) == all;
    }

  private:
    Range set_[PROD_CONFLICT_SET_SIZE] = {};
    int count_;
};

std::string with_prefix(const char *address, const char *mask)
{
    if (*mask == '\0') {
        return address;
    }
    return is_mask(mask) ? format("%s/%d", address, prefix_of(mask))
                         : format("%s/%s", address, mask);
}

}  // namespace

int run_lan_check(const Call &call, cJSON *answer)
{
    const std::optional<AddressRange> asked = address_range(call[0]);
    if (!asked) {
        return call.usage("'%s' is no address with a mask, such as 192.168.0.1/24", call[0]);
    }
    Ranges ranges{*asked};
    add_text(answer, "address", asked->address);
    add_text(answer, "mask", asked->mask);
    cJSON *const clashes = cJSON_AddArrayToObject(answer, "clashes");
    for (int i = 0; i < ranges.count(); ++i) {
        if (!ranges.clashes(i)) {
            continue;
        }
        cJSON *const clash = add_object_to(clashes);
        add_text(clash, "range", word_of(kRanges, ranges[i].type, "unknown"));
        add_text(clash, "address", ranges[i].ip);
        add_text(clash, "mask", ranges[i].mask);
        add_text(clash, "proposed", ranges.move(i) ? ranges[i].ip : "");
    }
    return cJSON_GetArraySize(clashes) == 0 ? kYes : kNo;
}

void show_lan_check(const cJSON *answer, Page &page)
{
    std::vector<std::vector<Cell>> rows;
    const cJSON *clash;
    cJSON_ArrayForEach(clash, member(answer, "clashes"))
    {
        rows.push_back({text_of(clash, "range"),
                        with_prefix(text_of(clash, "address"), text_of(clash, "mask")),
                        text_of(clash, "proposed")});
    }
    const std::string asked = with_prefix(text_of(answer, "address"), text_of(answer, "mask"));
    if (rows.empty()) {
        page.line({{asked}, {"is free.", Tone::kGood}});
        return;
    }
    page.line({{asked}, {"clashes.", Tone::kBad}});
    page.table({"RANGE", "ADDRESS", "PROPOSED"}, rows);
}

}  // namespace prodctl
