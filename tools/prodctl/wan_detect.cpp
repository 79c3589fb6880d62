// SPDX-License-Identifier: MIT
// What kind of access the line behind a WAN offers.
#include <net/if.h>

#include <cmath>

#include "groups.hpp"
#include "prod_common_hal.h"
#include "prod_common_wan.h"
#include "progress.hpp"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr Word kKinds[] = {{HLX_WAN_CONNECT_DHCP, "dhcp"},
                           {HLX_WAN_CONNECT_STATIC, "static"},
                           {HLX_WAN_CONNECT_PPPOE, "pppoe"}};

}  // namespace

int run_wan_detect(const Call &call, cJSON *answer)
{
    const std::optional<int> id = number(call[0], 1, kWanMax);
    if (!id) {
        return call.usage("'%s' is no WAN: 1 to %d", call[0], kWanMax);
    }
    if (*id > wan_count()) {
        return call.no("WAN %d is not configured", *id);
    }
    char ifname[PROD_IFNAME_SIZE] = "";
    prod_common_get_phyifname(static_cast<unsigned int>(*id), ifname, sizeof(ifname));
    if (if_nametoindex(ifname) == 0) {
        return call.no("WAN %d has no interface", *id);
    }
    int kind;
    double took;
    {
        const Progress progress{format("Asking the line of WAN %d (%s)", *id, ifname)};
        kind = prod_detect_wan_type(*id);
        took = progress.milliseconds();
    }
    add_number(answer, "id", *id);
    add_text(answer, "interface", ifname);
    add_text(answer, "type", word_of(kKinds, kind, "unknown"));
    add_number(answer, "milliseconds", std::round(took));
    return kYes;
}

void show_wan_detect(const cJSON *answer, Page &page)
{
    const std::string_view type = text_of(answer, "type");
    page.line({{format("WAN %d", int_of(answer, "id")), Tone::kStrong},
               {type == "pppoe"  ? "offers PPPoE"
                : type == "dhcp" ? "offers DHCP"
                                 : "offers neither PPPoE nor DHCP: a static address is left",
                type == "static" ? Tone::kWarning : Tone::kGood}});
    page.fields({{"interface", text_of(answer, "interface")},
                 {"took", format("%.1f s", number_of(answer, "milliseconds") / 1e3)}});
}

}  // namespace prodctl
