// SPDX-License-Identifier: MIT
// ethswctl: switches an Ethernet port to or from WAN operation, on a machine whose switch is the
// kernel's bridge.
#include <linux/if_bridge.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "rtnetlink.hpp"

namespace
{

enum ExitCode : int { kDone = 0, kFailed = 1, kUsage = 2 };

constexpr const char *kHelp =
    "usage: ethswctl -c wan -i INTERFACE -o enable|disable\n"
    "\n"
    "Switches an Ethernet port to WAN operation, or back to LAN operation. A port in WAN "
    "operation\n"
    "is cut off from the bridge that it is in: the bridge takes no frames from it and sends none\n"
    "there. Membership stays as it is, so that this may come before or after the port is moved\n"
    "with brctl; for a port that is in no bridge there is nothing to do.\n"
    "\n"
    "  -c wan             what is controlled\n"
    "  -i INTERFACE       the port's interface\n"
    "  -o enable|disable  WAN operation on, or off\n"
    "  -h, --help         this text\n"
    "\n"
    "Exit status: 0 done; 1 there is no such interface or the kernel refused; 2 wrong usage.\n";

int failed(const char *ifname, const char *why)
{
    fprintf(stderr, "ethswctl: %s: %s\n", ifname, why);
    return kFailed;
}

bool is_in_bridge(const char *ifname)
{
    char path[64];
    snprintf(path, sizeof(path), "/sys/class/net/%s/brport", ifname);
    return access(path, F_OK) == 0;
}

/** Sets what a bridge does with a port's frames, BR_STATE_... @return 0 or an errno value */
int set_port_state(unsigned int ifindex, std::uint8_t state)
{
    struct {
        nlmsghdr head;
        ifinfomsg link;
        rtattr port;
        rtattr attribute;
        std::uint8_t state;
        std::uint8_t padding[3];
    } request{};
    request.head.nlmsg_len = sizeof(request);
    request.head.nlmsg_type = RTM_SETLINK;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    request.link.ifi_family = AF_BRIDGE;
    request.link.ifi_index = static_cast<int>(ifindex);
    request.port.rta_type = IFLA_PROTINFO | NLA_F_NESTED;
    request.port.rta_len = sizeof(request) - offsetof(decltype(request), port);
    request.attribute.rta_type = IFLA_BRPORT_STATE;
    request.attribute.rta_len = sizeof(request.attribute) + sizeof(request.state);
    request.state = state;

    return platform::ask_rtnetlink(request.head);
}

int switch_port(const char *ifname, bool to_wan)
{
    const unsigned int ifindex = if_nametoindex(ifname);
    if (ifindex == 0) {
        return failed(ifname, strerror(errno));
    }
    if (!is_in_bridge(ifname)) {
        return kDone;
    }
    const int err = set_port_state(ifindex, to_wan ? BR_STATE_DISABLED : BR_STATE_FORWARDING);
    // A port without a link forwards nothing yet; the bridge sees to it when the link comes.
    const bool later = !to_wan && err == ENETDOWN;
    return err == 0 || later ? kDone : failed(ifname, strerror(err));
}

int wrong_usage(const char *why)
{
    fprintf(stderr, "ethswctl: %s\n%s", why, kHelp);
    return kUsage;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kHelp, stdout);
        return kDone;
    }
    bool controls_wan = false;
    const char *ifname = nullptr;
    std::optional<bool> to_wan;
    opterr = 0;
    for (int option; (option = getopt(argc, argv, "c:i:o:h")) != -1;) {
        const std::string_view value = optarg != nullptr ? optarg : "";
        switch (option) {
            case 'c':
                if (value != "wan") {
                    return wrong_usage("-c takes wan");
                }
                controls_wan = true;
                break;
            case 'i':
                ifname = optarg;
                break;
            case 'o':
                if (value != "enable" && value != "disable") {
                    return wrong_usage("-o takes enable or disable");
                }
                to_wan = value == "enable";
                break;
            case 'h':
                fputs(kHelp, stdout);
                return kDone;
            default:
                return wrong_usage("an option is unknown or lacks its value");
        }
    }
    if (optind < argc) {
        return wrong_usage("there are no arguments but options");
    }
    if (!controls_wan || ifname == nullptr || !to_wan) {
        return wrong_usage("-c, -i and -o are all needed");
    }
    return switch_port(ifname, *to_wan);
}
