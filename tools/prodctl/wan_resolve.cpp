// SPDX-License-Identifier: MIT
// Asking one name server over one WAN or interface, past the device's own resolver.
#include <net/if.h>
#include <netinet/in.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "prod_common_wan.h"
#include "progress.hpp"
#include "wan_dns.hpp"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr std::size_t kLongestName = 122;  // what the library's client asks for
constexpr std::size_t kHostNameSize = 256;

/** The interface that --via means; empty, after a complaint, when there is none. */
std::string interface_of(const Call &call, const char *via, int &status)
{
    status = kYes;
    if (const std::optional<int> wan = number(via, 0, INT_MAX)) {
        char ifname[IFNAMSIZ] = "";
        if (*wan < 1 || *wan > kWanMax) {
            status = call.usage("'%s' is no WAN: 1 to %d", via, kWanMax);
        } else if (prod_common_get_wanifname(static_cast<unsigned int>(*wan), ifname,
                                             sizeof(ifname)) == nullptr) {
            status = call.no("WAN %d has no interface", *wan);
        }
        return ifname;
    }
    const std::string_view name{via};
    if (name.empty() || name.size() >= IFNAMSIZ ||
        name.find_first_of("/ \t\r\n") != std::string_view::npos) {
        status = call.usage("'%s' is no interface", via);
    }
    return via;
}

}  // namespace

int run_resolve(const Call &call, cJSON *answer)
{
    char name[kHostNameSize] = "";
    if (call[0] != nullptr) {
        snprintf(name, sizeof(name), "%s", call[0]);
    } else if (*get_netcheck_hostname(name) == '\0') {
        return call.no("no name for the network check is set");
    }
    if (*name == '\0' || strlen(name) > kLongestName) {
        return call.usage("a name has 1 to %zu characters", kLongestName);
    }
    const char *const server = call.value("--server");
    if (server == nullptr) {
        return call.usage("--server is missing: whom to ask");
    }
    if (!is_dotted_quad(server) || strcmp(server, kNoAddress) == 0) {
        return call.usage("'%s' is no address of a server", server);
    }
    std::string ifname;
    if (const char *const via = call.value("--via")) {
        int status;
        ifname = interface_of(call, via, status);
        if (status != kYes) {
            return status;
        }
    }

    char addresses[3][INET_ADDRSTRLEN];
    int count;
    double took;
    {
        const Progress progress{format("Asking %s for %s", server, name)};
        count = prod_resolve_domain(name, ifname.c_str(), server, addresses[0], addresses[1],
                                    addresses[2]);
        took = progress.milliseconds();
    }
    if (count < 0) {
        return call.no("asking %s failed after %.1f s", server, took / 1e3);
    }
    add_text(answer, "name", name);
    add_text(answer, "server", server);
    add_text(answer, "interface", ifname);
    cJSON *const list = cJSON_AddArrayToObject(answer, "addresses");
    for (int i = 0; i < count; ++i) {
        add_text_to(list, addresses[i]);
    }
    add_number(answer, "milliseconds", std::round(took * 10) / 10);
    return count > 0 ? kYes : call.no("%s knows no address of %s", server, name);
}

void show_resolve(const cJSON *answer, Page &page)
{
    page.line({{text_of(answer, "name"), Tone::kStrong}});
    page.fields({{"addresses", joined(member(answer, "addresses"))},
                 {"server", text_of(answer, "server")},
                 {"interface", text_of(answer, "interface")},
                 {"took", format("%.1f ms", number_of(answer, "milliseconds"))}});
}

constinit const Option kResolveOptions[] = {
    {"--server", "ADDRESS", "the server to ask; must be given"},
    {"--via", "INTERFACE",
     "the interface, or the WAN (1 to 4), to ask over; the routes decide otherwise"},
};

}  // namespace prodctl
