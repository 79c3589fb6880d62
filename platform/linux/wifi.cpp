// SPDX-License-Identifier: MIT
#include "platform/wifi.h"

#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "board.hpp"
#include "interface.hpp"

using platform::Json;
using platform::member;
using platform::text_of;

namespace
{

// ---- stations by the kernel's nl80211 ----------------------------------------------------------

using NlSocket = std::unique_ptr<nl_sock, platform::Closer<nl_socket_free>>;
using NlMessage = std::unique_ptr<nl_msg, platform::Closer<nlmsg_free>>;

constexpr timeval kLongestWait{1, 0};  // for a driver that does not answer

/** A list of stations being filled. */
struct StationList {
    station_info_t *records;
    int capacity;
    int count;

    /** Room for one more, zeroed, or nullptr. */
    station_info_t *add()
    {
        if (count >= capacity) {
            return nullptr;
        }
        station_info_t *const record = &records[count++];
        *record = {};
        return record;
    }
};

/** Megabits a second with one decimal; empty when the driver does not tell. */
template <std::size_t N>
void write_rate(char (&out)[N], nlattr *rate)
{
    nlattr *parts[NL80211_RATE_INFO_MAX + 1];
    if (rate == nullptr || nla_parse_nested(parts, NL80211_RATE_INFO_MAX, rate, nullptr) != 0) {
        return;
    }
    nlattr *const wide = parts[NL80211_RATE_INFO_BITRATE32];
    nlattr *const narrow = parts[NL80211_RATE_INFO_BITRATE];
    u32 units = 0;
    if (wide != nullptr && nla_len(wide) >= 4) {
        units = nla_get_u32(wide);
    } else if (narrow != nullptr && nla_len(narrow) >= 2) {
        units = nla_get_u16(narrow);
    } else {
        return;
    }
    snprintf(out, N, "%" PRIu32 ".%" PRIu32, units / 10, units % 10);
}

/** Signal as drivers of this kind show it: -100 dBm and less is 0 %, -50 dBm and more 100 %. */
int quality_of(int dbm)
{
    const int percent = 2 * (dbm + 100);
    return percent < 0 ? 0 : percent > 100 ? 100 : percent;
}

u64 counter(nlattr *wide, nlattr *narrow)
{
    if (wide != nullptr && nla_len(wide) >= 8) {
        return nla_get_u64(wide);
    }
    return narrow != nullptr && nla_len(narrow) >= 4 ? nla_get_u32(narrow) : 0;
}

void fill_station(station_info_t &station, nlattr *info)
{
    nlattr *parts[NL80211_STA_INFO_MAX + 1];
    if (nla_parse_nested(parts, NL80211_STA_INFO_MAX, info, nullptr) != 0) {
        return;
    }
    nlattr *const since = parts[NL80211_STA_INFO_CONNECTED_TIME];
    if (since != nullptr && nla_len(since) >= 4) {
        snprintf(station.link_time, sizeof(station.link_time), "%" PRIu32, nla_get_u32(since));
    }
    nlattr *const signal = parts[NL80211_STA_INFO_SIGNAL];
    if (signal != nullptr && nla_len(signal) >= 1) {
        const int byte = nla_get_u8(signal);
        const int dbm = byte < 128 ? byte : byte - 256;
        snprintf(station.rssi, sizeof(station.rssi), "%d", dbm);
        snprintf(station.quality, sizeof(station.quality), "%d", quality_of(dbm));
    }
    write_rate(station.tx_rate, parts[NL80211_STA_INFO_TX_BITRATE]);
    write_rate(station.rx_rate, parts[NL80211_STA_INFO_RX_BITRATE]);
    memcpy(station.link_rate, station.tx_rate, sizeof(station.link_rate));
    station.tx_bytes =
        counter(parts[NL80211_STA_INFO_TX_BYTES64], parts[NL80211_STA_INFO_TX_BYTES]);
    station.rx_bytes =
        counter(parts[NL80211_STA_INFO_RX_BYTES64], parts[NL80211_STA_INFO_RX_BYTES]);
    station.tx_failures =
        static_cast<unsigned long>(counter(nullptr, parts[NL80211_STA_INFO_TX_FAILED]));
}

int take_station(nl_msg *message, void *list)
{
    nlattr *parts[NL80211_ATTR_MAX + 1];
    auto *const head = static_cast<genlmsghdr *>(nlmsg_data(nlmsg_hdr(message)));
    if (nla_parse(parts, NL80211_ATTR_MAX, genlmsg_attrdata(head, 0), genlmsg_attrlen(head, 0),
                  nullptr) != 0 ||
        parts[NL80211_ATTR_MAC] == nullptr || nla_len(parts[NL80211_ATTR_MAC]) < 6) {
        return NL_SKIP;
    }
    station_info_t *const station = static_cast<StationList *>(list)->add();
    if (station == nullptr) {
        return NL_SKIP;
    }
    const auto *const mac = static_cast<const unsigned char *>(nla_data(parts[NL80211_ATTR_MAC]));
    snprintf(station->mac, sizeof(station->mac), "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1],
             mac[2], mac[3], mac[4], mac[5]);
    if (parts[NL80211_ATTR_STA_INFO] != nullptr) {
        fill_station(*station, parts[NL80211_ATTR_STA_INFO]);
    }
    return NL_OK;
}

/** A kernel without radios has no such family: then there are no stations. */
void ask_kernel(unsigned int ifindex, StationList &list)
{
    const NlSocket socket{nl_socket_alloc()};
    if (socket == nullptr || genl_connect(socket.get()) != 0) {
        return;
    }
    const int family = genl_ctrl_resolve(socket.get(), NL80211_GENL_NAME);
    const NlMessage message{nlmsg_alloc()};
    if (family < 0 || message == nullptr ||
        genlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, NLM_F_DUMP,
                    NL80211_CMD_GET_STATION, 0) == nullptr ||
        nla_put_u32(message.get(), NL80211_ATTR_IFINDEX, ifindex) != 0 ||
        nl_socket_modify_cb(socket.get(), NL_CB_VALID, NL_CB_CUSTOM, take_station, &list) != 0 ||
        nl_send_auto(socket.get(), message.get()) < 0) {
        return;
    }
    setsockopt(nl_socket_get_fd(socket.get()), SOL_SOCKET, SO_RCVTIMEO, &kLongestWait,
               sizeof(kLongestWait));
    nl_recvmsgs_default(socket.get());
}

// ---- stations by a scenario's file -------------------------------------------------------------

struct TextField {
    const char *name;
    std::size_t offset;
    std::size_t size;
};
#define TEXT_FIELD(field)                                                      \
    TextField                                                                  \
    {                                                                          \
#field, offsetof(station_info_t, field), sizeof(station_info_t::field) \
    }
constexpr TextField kTextFields[] = {
    TEXT_FIELD(mac),     TEXT_FIELD(link_time), TEXT_FIELD(rssi),    TEXT_FIELD(noise),
    TEXT_FIELD(quality), TEXT_FIELD(link_rate), TEXT_FIELD(tx_rate), TEXT_FIELD(rx_rate),
};
#undef TEXT_FIELD

u64 number_of(const cJSON *item)
{
    constexpr double kTooMuch = 9007199254740992.0;  // what a JSON number holds exactly
    const bool fits =
        cJSON_IsNumber(item) != 0 && item->valuedouble >= 0 && item->valuedouble < kTooMuch;
    return fits ? static_cast<u64>(item->valuedouble) : 0;
}

void fill_station(station_info_t &station, const cJSON *entry)
{
    for (const TextField &field : kTextFields) {
        const cJSON *const item = member(entry, field.name);
        char *const out = reinterpret_cast<char *>(&station) + field.offset;
        if (text_of(item) != nullptr) {
            snprintf(out, field.size, "%s", text_of(item));
        } else if (cJSON_IsNumber(item) != 0) {
            snprintf(out, field.size, "%g", item->valuedouble);
        }
    }
    station.tx_bytes = number_of(member(entry, "tx_bytes"));
    station.rx_bytes = number_of(member(entry, "rx_bytes"));
    station.tx_failures = static_cast<unsigned long>(number_of(member(entry, "tx_failures")));
}

void read_station_file(const char *path, StationList &list)
{
    const Json file = platform::read_json(path);
    const cJSON *entry;
    cJSON_ArrayForEach(entry, member(file.get(), "stations"))
    {
        if (text_of(member(entry, "mac")) == nullptr) {
            continue;
        }
        station_info_t *const station = list.add();
        if (station == nullptr) {
            return;
        }
        fill_station(*station, entry);
    }
}

/** The station file that the board names for a system interface, or nullptr. */
const char *station_file(const cJSON *board, const char *os_ifname)
{
    const cJSON *bss;
    cJSON_ArrayForEach(bss, member(board, "wifi"))
    {
        const char *const ifname = platform::interface_of(member(bss, "ifname"));
        if (ifname != nullptr && strcmp(ifname, os_ifname) == 0) {
            return text_of(member(bss, "stations"));
        }
    }
    return nullptr;
}

}  // namespace

int pav_wifi_get_osifname(const char *cfg_ifname, char *os_ifname)
{
    if (os_ifname == nullptr) {
        return -1;
    }
    os_ifname[0] = '\0';
    const Json board = platform::read_board();
    const cJSON *const bss = member(member(board.get(), "wifi"), cfg_ifname);
    const char *const ifname = platform::interface_of(member(bss, "ifname"));
    if (ifname == nullptr) {
        return -1;
    }
    memcpy(os_ifname, ifname, strlen(ifname) + 1);
    return 0;
}

int pav_wifi_check_downup(const char *os_ifname)
{
    platform::Interface device{os_ifname};
    return device.ask(SIOCGIFFLAGS) && (device.answer().ifr_flags & IFF_UP) != 0 ? 1 : 0;
}

int pav_wifi_get_clientlist(const char *os_ifname, station_info_t *list, int capacity)
{
    if (os_ifname == nullptr || list == nullptr || capacity <= 0) {
        return 0;
    }
    StationList stations{list, capacity, 0};
    const Json board = platform::read_board();
    const char *const file = station_file(board.get(), os_ifname);
    const unsigned int ifindex = file == nullptr ? if_nametoindex(os_ifname) : 0;
    if (file != nullptr) {
        read_station_file(file, stations);
    } else if (ifindex != 0) {
        ask_kernel(ifindex, stations);
    }
    return stations.count;
}
