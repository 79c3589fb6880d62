// SPDX-License-Identifier: MIT
#include "platform/hardware.h"

#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/if_bridge.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "board.hpp"
#include "file.hpp"
#include "interface.hpp"
#include "platform/address.h"
#include "rtnetlink.hpp"

using platform::Fd;
using platform::Json;
using platform::member;
using platform::text_of;

namespace
{

// ---- LEDs --------------------------------------------------------------------------------------

struct LedName {
    gpio_id_t id;
    const char *name;
};
constexpr LedName kLeds[] = {
    {LED_SYS, "LED_SYS"},   {LED_WPS, "LED_WPS"},     {LED_24G, "LED_24G"}, {LED_5G, "LED_5G"},
    {LED_USB, "LED_USB"},   {LED_LAN, "LED_LAN"},     {LED_WAN, "LED_WAN"}, {LED_RED, "LED_RED"},
    {LED_BLUE, "LED_BLUE"}, {LED_GREEN, "LED_GREEN"},
};

constexpr const char *kNoTrigger = "none";
constexpr const char *kBlinkTrigger = "timer";
constexpr const char *kBlinkTime = "500";   // milliseconds on, and as many off
constexpr std::size_t kTriggerRoom = 4096;  // the kernel lists every trigger it knows

/**
 * An LED of the kernel's LED class: a folder of attributes. The board file names the folder, or an
 * object with the folder's "name" and the trigger ("normal") that drives the LED when nobody else
 * does.
 */
class Led
{
  public:
    explicit Led(gpio_id_t id) : board_(platform::read_board())
    {
        const cJSON *const leds = member(board_.get(), "leds");
        const char *const path = text_of(member(leds, "path"));
        for (const LedName &led : kLeds) {
            const cJSON *const entry = led.id == id ? member(leds, led.name) : nullptr;
            const char *const name =
                cJSON_IsObject(entry) != 0 ? text_of(member(entry, "name")) : text_of(entry);
            if (name != nullptr && path != nullptr) {
                normal_ = text_of(member(entry, "normal"));
                const int length = snprintf(folder_, sizeof(folder_), "%s/%s", path, name);
                exists_ = length < static_cast<int>(sizeof(folder_)) && access(folder_, F_OK) == 0;
            }
        }
    }

    bool exists() const { return exists_; }
    /** The trigger of LED_NORMAL, nullptr when the board names none. */
    const char *normal() const { return normal_; }

    bool write(const char *attribute, const char *text) const
    {
        const Fd fd{open_attribute(attribute, O_WRONLY | O_TRUNC)};
        const auto length = static_cast<ssize_t>(strlen(text));
        return fd && ::write(fd.get(), text, static_cast<std::size_t>(length)) == length;
    }

    /** Reads an attribute without its line end. */
    bool read(const char *attribute, char *text, std::size_t size) const
    {
        const Fd fd{open_attribute(attribute, O_RDONLY)};
        const ssize_t got = fd ? ::read(fd.get(), text, size - 1) : -1;
        if (got < 0) {
            return false;
        }
        text[got] = '\0';
        text[strcspn(text, "\n")] = '\0';
        return true;
    }

  private:
    int open_attribute(const char *attribute, int how) const
    {
        char path[sizeof(folder_) + 32];
        snprintf(path, sizeof(path), "%s/%s", folder_, attribute);
        return open(path, how | O_CLOEXEC);
    }

    Json board_;
    const char *normal_ = nullptr;
    char folder_[256];
    bool exists_ = false;
};

/** The trigger in force: the bracketed one of the kernel's list, or a lone name. */
std::string_view active_trigger(std::string_view list)
{
    const std::size_t open = list.find('[');
    if (open == std::string_view::npos) {
        return list;
    }
    list.remove_prefix(open + 1);
    return platform::first_of(list, list.find(']'));
}

int number_in(const char *text)
{
    std::string_view digits{text};
    int number = 0;
    return platform::take_number(digits, number) ? number : 0;
}

bool steady(const Led &led, bool on)
{
    char brightness[16] = "0";
    if (on && (!led.read("max_brightness", brightness, sizeof(brightness)) ||
               number_in(brightness) <= 0)) {
        return false;
    }
    return led.write("trigger", kNoTrigger) && led.write("brightness", brightness);
}

bool blink(const Led &led)
{
    // The delays exist only once the trigger is set.
    return led.write("trigger", kBlinkTrigger) && led.write("delay_on", kBlinkTime) &&
           led.write("delay_off", kBlinkTime);
}

bool follow_board(const Led &led)
{
    return led.normal() != nullptr ? led.write("trigger", led.normal()) : steady(led, true);
}

// ---- ports -------------------------------------------------------------------------------------

/** The link settings with room for the link-mode masks that follow, at most 3 of 127 words. */
union LinkSettings {
    ethtool_link_settings head;
    char room[sizeof(ethtool_link_settings) + std::size_t{3} * 127 * sizeof(u32)];
};

/** False when the driver does not tell. */
bool read_link_settings(platform::Interface &device, LinkSettings &settings)
{
    memset(&settings, 0, sizeof(settings));
    settings.head.cmd = ETHTOOL_GLINKSETTINGS;
    // The first answer only tells, as a negative number, how long the masks are.
    if (!device.ask(SIOCETHTOOL, &settings) || settings.head.link_mode_masks_nwords >= 0) {
        return false;
    }
    settings.head.link_mode_masks_nwords = static_cast<__s8>(-settings.head.link_mode_masks_nwords);
    settings.head.cmd = ETHTOOL_GLINKSETTINGS;
    return device.ask(SIOCETHTOOL, &settings);
}

bool read_port(const char *ifname, port_status &status)
{
    platform::Interface device{ifname};
    if (!device.ask(SIOCGIFFLAGS)) {
        return false;
    }
    const auto flags = static_cast<unsigned int>(device.answer().ifr_flags);
    ethtool_value link{ETHTOOL_GLINK, 0};
    const bool told = device.ask(SIOCETHTOOL, &link);
    const bool carrier = told ? link.data != 0 : (flags & IFF_RUNNING) != 0;
    status.link = (flags & IFF_UP) != 0 && carrier ? 1 : 0;
    LinkSettings settings;
    if (read_link_settings(device, settings)) {
        status.speed =
            settings.head.speed != static_cast<u32>(SPEED_UNKNOWN) ? settings.head.speed : 0;
        status.duplex = settings.head.duplex == DUPLEX_FULL ? 1 : 0;
        status.nway = settings.head.autoneg == AUTONEG_ENABLE ? 1 : 0;
    }
    return true;
}

/** The interface behind a switch port; nullptr when the board has no such port. */
const char *port_interface(const cJSON *board, int port)
{
    const cJSON *entry;
    cJSON_ArrayForEach(entry, member(board, "ports"))
    {
        const cJSON *const id = member(entry, "id");
        if (cJSON_IsNumber(id) != 0 && id->valueint == port) {
            return platform::interface_of(member(entry, "ifname"));
        }
    }
    return nullptr;
}

// ---- interface names ---------------------------------------------------------------------------

struct EthName {
    eth_idx_t index;
    const char *name;
};
constexpr EthName kEthNames[] = {
    {LAN_1, "LAN_1"},           {LAN_2, "LAN_2"},           {LAN_3, "LAN_3"},
    {LAN_4, "LAN_4"},           {L_LAN_1, "L_LAN_1"},       {L_LAN_2, "L_LAN_2"},
    {L_LAN_3, "L_LAN_3"},       {L_LAN_4, "L_LAN_4"},       {P_LAN_1, "P_LAN_1"},
    {P_LAN_2, "P_LAN_2"},       {P_LAN_3, "P_LAN_3"},       {P_LAN_4, "P_LAN_4"},
    {WAN_1, "WAN_1"},           {WAN_2, "WAN_2"},           {WAN_3, "WAN_3"},
    {WAN_4, "WAN_4"},           {P_WAN_1, "P_WAN_1"},       {P_WAN_2, "P_WAN_2"},
    {P_WAN_3, "P_WAN_3"},       {P_WAN_4, "P_WAN_4"},       {WLAN_24G_1, "WLAN_24G_1"},
    {WLAN_24G_2, "WLAN_24G_2"}, {WLAN_24G_3, "WLAN_24G_3"}, {WLAN_24G_4, "WLAN_24G_4"},
    {WLAN_5G_1, "WLAN_5G_1"},   {WLAN_5G_2, "WLAN_5G_2"},   {WLAN_5G_3, "WLAN_5G_3"},
    {WLAN_5G_4, "WLAN_5G_4"},   {WLAN_6G_1, "WLAN_6G_1"},   {WLAN_6G_2, "WLAN_6G_2"},
    {WLAN_6G_3, "WLAN_6G_3"},   {WLAN_6G_4, "WLAN_6G_4"},   {PORT_CPU1, "PORT_CPU1"},
    {PORT_CPU2, "PORT_CPU2"},   {IPTV_LAN_1, "IPTV_LAN_1"}, {IPTV_LAN_2, "IPTV_LAN_2"},
    {IPTV_LAN_3, "IPTV_LAN_3"}, {IPTV_LAN_4, "IPTV_LAN_4"}, {IPTV_WAN_1, "IPTV_WAN_1"},
};

/** Names by index, empty where the board has none. */
struct EthTable {
    char names[IPTV_MAX][IFNAMSIZ];
};

/**
 * The names that callers hold on to: read once in a process, since a board's interfaces are not
 * renamed while it runs, and never freed. A board file that is not there yet is asked for again.
 */
constinit std::atomic<EthTable *> eth_table{nullptr};

EthTable *read_eth_table()
{
    const Json board = platform::read_board();
    const cJSON *const names = member(board.get(), "ethernet");
    if (cJSON_IsObject(names) == 0) {
        return nullptr;
    }
    platform::Allocated<EthTable> fresh{static_cast<EthTable *>(calloc(1, sizeof(EthTable)))};
    if (fresh == nullptr) {
        return nullptr;
    }
    for (const EthName &entry : kEthNames) {
        const char *const name = platform::interface_of(member(names, entry.name));
        if (name != nullptr) {
            platform::copy_text(fresh->names[entry.index], name);
        }
    }
    EthTable *seen = nullptr;
    return eth_table.compare_exchange_strong(seen, fresh.get(), std::memory_order_acq_rel)
               ? fresh.release()
               : seen;
}

// ---- MAC addresses -----------------------------------------------------------------------------

constexpr std::size_t kMacBytes = 6;

/** Makes an interface take in frames for one more MAC. @return 0 or an errno value */
int take_in(const char *ifname, const unsigned char *mac)
{
    struct {
        nlmsghdr head;
        ndmsg entry;
        rtattr address;
        unsigned char mac[kMacBytes];
    } request{};
    request.head.nlmsg_len = NLMSG_LENGTH(sizeof(request.entry)) + RTA_LENGTH(kMacBytes);
    request.head.nlmsg_type = RTM_NEWNEIGH;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL;
    request.entry.ndm_family = AF_BRIDGE;
    request.entry.ndm_ifindex = static_cast<int>(if_nametoindex(ifname));
    request.entry.ndm_state = NUD_PERMANENT;
    request.entry.ndm_flags = NTF_SELF;
    request.address.rta_type = NDA_LLADDR;
    request.address.rta_len = RTA_LENGTH(kMacBytes);
    memcpy(request.mac, mac, kMacBytes);
    if (request.entry.ndm_ifindex == 0) {
        return ENODEV;
    }
    const int err = platform::ask_rtnetlink(request.head);
    return err == EEXIST ? 0 : err;
}

// ---- switch ------------------------------------------------------------------------------------

constexpr int kSwitch = 1;        // the board's only one
constexpr int kSwitchPorts = 32;  // as many as a mask has bits

/** What a port is to the switch's VLAN. */
enum class Membership { kNone, kTagged, kUntagged };

Membership membership_of(int port, unsigned int untag_bit, unsigned int tag_bit)
{
    const unsigned int bit = 1U << port;
    return (untag_bit & bit) != 0 ? Membership::kUntagged
           : (tag_bit & bit) != 0 ? Membership::kTagged
                                  : Membership::kNone;
}

/** Puts a port of a bridge into a VLAN or takes it out. @return 0 or an errno value */
int set_membership(const char *ifname, int vlan, Membership membership)
{
    struct {
        nlmsghdr head;
        ifinfomsg link;
        rtattr nest;
        rtattr info;
        bridge_vlan_info vlan;
    } request{};
    request.head.nlmsg_len = sizeof(request);
    request.head.nlmsg_type = membership == Membership::kNone ? RTM_DELLINK : RTM_SETLINK;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    request.link.ifi_family = AF_BRIDGE;
    request.link.ifi_index = static_cast<int>(if_nametoindex(ifname));
    request.nest.rta_type = IFLA_AF_SPEC;
    request.nest.rta_len = sizeof(request.nest) + sizeof(request.info) + sizeof(request.vlan);
    request.info.rta_type = IFLA_BRIDGE_VLAN_INFO;
    request.info.rta_len = sizeof(request.info) + sizeof(request.vlan);
    request.vlan.vid = static_cast<u16>(vlan);
    // Frames that come without a tag belong to the VLAN as well.
    request.vlan.flags =
        membership == Membership::kUntagged ? BRIDGE_VLAN_INFO_UNTAGGED | BRIDGE_VLAN_INFO_PVID : 0;

    const int err = platform::ask_rtnetlink(request.head);
    const bool was_none = membership == Membership::kNone && err == ENOENT;
    return was_none ? 0 : err;
}

/** The bridge that the kernel switches the ports of the LAN with. */
class SwitchBridge
{
  public:
    explicit SwitchBridge(const char *name) : name_(name != nullptr ? name : "") {}

    bool has(const char *ifname) const
    {
        char path[kPathSize];
        snprintf(path, sizeof(path), "/sys/class/net/%s/brif/%s", name_, ifname);
        return access(path, F_OK) == 0;
    }

    bool tells_vlans_apart() const
    {
        char setting = '0';
        const Fd fd{open_setting(O_RDONLY)};
        return fd && read(fd.get(), &setting, 1) == 1 && setting == '1';
    }

    /** @return 0 or an errno value */
    int tell_vlans_apart(bool whether) const
    {
        const Fd fd{open_setting(O_WRONLY)};
        if (!fd) {
            return errno == ENOENT ? EOPNOTSUPP : errno;
        }
        return write(fd.get(), whether ? "1" : "0", 1) == 1 ? 0 : errno;
    }

  private:
    static constexpr std::size_t kPathSize = 64 + std::size_t{2} * IFNAMSIZ;

    int open_setting(int how) const
    {
        char path[kPathSize];
        snprintf(path, sizeof(path), "/sys/class/net/%s/bridge/vlan_filtering", name_);
        return open(path, how | O_CLOEXEC);
    }

    const char *name_;
};

}  // namespace

int iof_gpio_get(gpio_id_t id, unsigned int *state)
{
    const Led led{id};
    char list[kTriggerRoom];
    char brightness[16];
    if (state == nullptr || !led.exists() || !led.read("trigger", list, sizeof(list)) ||
        !led.read("brightness", brightness, sizeof(brightness))) {
        return -1;
    }
    const std::string_view trigger = active_trigger(list);
    if (trigger == kBlinkTrigger) {
        *state = LED_BLINK;
    } else if (led.normal() != nullptr && trigger == led.normal()) {
        *state = LED_NORMAL;
    } else {
        *state = number_in(brightness) > 0 ? LED_ON : LED_OFF;
    }
    return 0;
}

int iof_gpio_set(gpio_id_t id, led_pattern_t pattern)
{
    const Led led{id};
    if (!led.exists()) {
        return -1;
    }
    bool done = false;
    switch (pattern) {
        case LED_ON:
        case LED_FORCE_ON:
            done = steady(led, true);
            break;
        case LED_OFF:
        case LED_FORCE_OFF:
            done = steady(led, false);
            break;
        case LED_BLINK:
            done = blink(led);
            break;
        case LED_NORMAL:
            done = follow_board(led);
            break;
    }
    return done ? 0 : -1;
}

int iof_gpio_set_start(gpio_id_t id, int start)
{
    const Led led{id};
    return led.exists() && (start != 0 ? follow_board(led) : steady(led, false)) ? 0 : -1;
}

int iof_port_status_get(int port, port_status *status)
{
    if (status == nullptr) {
        return -1;
    }
    const Json board = platform::read_board();
    port_status now{};
    if (!read_port(port_interface(board.get(), port), now)) {
        return -1;
    }
    *status = now;
    return 0;
}

char *iof_eth_name_get(eth_idx_t index)
{
    if (index < 0 || index >= IPTV_MAX) {
        return nullptr;
    }
    EthTable *table = eth_table.load(std::memory_order_acquire);
    if (table == nullptr) {
        table = read_eth_table();
    }
    return table != nullptr && table->names[index][0] != '\0' ? table->names[index] : nullptr;
}

int iof_mac_addr_get(unsigned char *mac)
{
    const Json board = platform::read_board();
    return ifaddrs_ethaddr_aton(text_of(member(board.get(), "mac")), mac) != 0 ? 0 : -1;
}

int iof_mac_clone_set(unsigned char *mac)
{
    if (mac == nullptr) {
        return -1;
    }
    // The kernel itself keeps the filters of an interface in step with its address. What it cannot
    // see is a switch between that interface and the CPU: the interface to it must let the MAC in.
    int result = 0;
    for (const eth_idx_t index : {PORT_CPU1, PORT_CPU2}) {
        const char *const cpu_port = iof_eth_name_get(index);
        if (cpu_port != nullptr && take_in(cpu_port, mac) != 0) {
            result = -1;
        }
    }
    return result;
}

int iof_vlan_set(int eth_id, unsigned int untag_bit, unsigned int tag_bit)
{
    if (eth_id != kSwitch) {
        return ENODEV;
    }
    const Json board = platform::read_board();
    const SwitchBridge bridge{platform::interface_of(member(board.get(), "lan_bridge"))};
    const char *switched[kSwitchPorts] = {};
    bool all_untagged = true;
    for (int port = 0; port < kSwitchPorts; ++port) {
        const char *const ifname = port_interface(board.get(), port);
        if (ifname != nullptr && bridge.has(ifname)) {
            switched[port] = ifname;
            all_untagged =
                all_untagged && membership_of(port, untag_bit, tag_bit) == Membership::kUntagged;
        }
    }
    // A bridge that does not look at tags at all is just this, on any kernel.
    if (all_untagged && !bridge.tells_vlans_apart()) {
        return 0;
    }
    int first_error = 0;
    for (int port = 0; port < kSwitchPorts; ++port) {
        const int err =
            switched[port] != nullptr
                ? set_membership(switched[port], eth_id, membership_of(port, untag_bit, tag_bit))
                : 0;
        first_error = first_error != 0 ? first_error : err;
    }
    const int err = bridge.tell_vlans_apart(!all_untagged);
    return first_error != 0 ? first_error : err;
}

int iof_port_restart_auto_nego(int port)
{
    const Json board = platform::read_board();
    const char *const ifname = port_interface(board.get(), port);
    if (ifname == nullptr) {
        return ENODEV;
    }
    platform::Interface device{ifname};
    ethtool_value restart{ETHTOOL_NWAY_RST, 0};
    return device.ask(SIOCETHTOOL, &restart) ? 0 : errno;
}
