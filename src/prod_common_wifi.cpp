// SPDX-License-Identifier: MIT
#include "prod_common_wifi.h"

#include <strings.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "internal/config.hpp"
#include "internal/console.hpp"
#include "internal/handle.hpp"
#include "internal/line_reader.hpp"
#include "internal/log.hpp"
#include "internal/wifi.hpp"
#include "platform/process.h"
#include "prod_common_cfm.h"
#include "prod_common_string.h"

using namespace prod;

namespace
{

constexpr const char *kNetctrl = "netctrl";

constexpr int kRate24G = 2;
constexpr int kRate5G = 5;
constexpr const char *kRadio24G = "wlan0";
constexpr const char *kRadio5G = "wlan1";

// Rooms that callers give without saying so.
constexpr std::size_t kPrefixSize = sizeof("security.ipbind.list");  // the longest
constexpr std::size_t kRadioSize = sizeof("wlan0");
constexpr std::size_t kNumberSize = 21;
constexpr std::size_t kWorkmodeSize = 256;
constexpr int kBssMax = 64;  // more cannot be configured, whatever "web_maxbss" says

// ---- names -----------------------------------------------------------------------------------

/** A key prefix: text, with the index counted from `first` behind it when there is one. */
struct Prefix {
    const char *text;
    int first;
};
constexpr int kNotNumbered = -1;

/** By PREFLAG; the kinds beyond have no prefix. */
constexpr Prefix kPrefixes[] = {
    {"wan", 1},
    {"lan", kNotNumbered},
    {kRadio24G, kNotNumbered},
    {"wlan0.", 0},
    {kRadio5G, kNotNumbered},
    {"wlan1.", 0},
    {"wlan0.x", kNotNumbered},
    {"wlan1.x", kNotNumbered},
    {"security.ipbind.list", kNotNumbered},
};
static_assert(std::size(kPrefixes) == WL5G2_SSID);

/** Key of a radio's setting; empty for a NULL name. */
ConfigKey radio_key(int rate, const char *name)
{
    return name != nullptr ? ConfigKey{"%s_%s", or_null(wifi_get_radio_prefix(rate)), name}
                           : ConfigKey{};
}

/** Key of a BSS's setting; empty for a NULL name. */
ConfigKey bss_key(int rate, int index, const char *name)
{
    return name != nullptr
               ? ConfigKey{"%s.%d_%s", or_null(wifi_get_radio_prefix(rate)), index, name}
               : ConfigKey{};
}

OsIfName bss_ifname(const char *prefix, int index)
{
    return OsIfName{ConfigKey{"%s.%d", or_null(prefix), index}.c_str()};
}

// ---- typed access ----------------------------------------------------------------------------

int read_text(const ConfigKey &key, char *value)
{
    return !key.empty() && value != nullptr ? prod_cfm_get_val(key.c_str(), value) : 0;
}

int write_text(const ConfigKey &key, const char *value)
{
    return !key.empty() ? prod_cfm_set_val(key.c_str(), value) : 0;
}

ConfigValue read_number(const ConfigKey &key)
{
    return ConfigValue{key.c_str(), kNumberSize};
}

// ---- questions -------------------------------------------------------------------------------

/** The "bss_enable" of a radio's first BSS as it stands. */
ConfigValue first_bss_enable(const char *radio)
{
    return ConfigValue{ConfigKey{"%s.0_bss_enable", radio}.c_str()};
}

constexpr int kSlotsOfRadio = 5;
constexpr int kSlots = 2 * kSlotsOfRadio;
constexpr std::size_t kBandSize = 16;  // of the caller's list of slots

bool broadcasts(int rate, int bss, const char *ssid)
{
    return wifi_get_bss_int_val(rate, bss, "bss_enable") != 0 &&
           ConfigValue{bss_key(rate, bss, "bss_ssid").c_str()} == ssid;
}

constexpr int kSmartNodeBss = 3;
constexpr std::size_t kStationsMax = 128;

// ---- countries -------------------------------------------------------------------------------

constexpr const char *kCountryFile = "/etc/country_code.cfg";
constexpr std::size_t kCountryLine = 63;

/** A line of the country file: "<country>;<revision>;<forced DFS channel>". */
struct Country {
    char code[8];
    char revision[4];
    char dfs_channel_forced[8];
};

/** Takes the next field, which is not empty and may be cut; false when there is none. */
template <std::size_t Size>
bool take_field(const char *&line, char (&field)[Size])
{
    const std::size_t length = strcspn(line, ";");
    if (length == 0) {
        return false;
    }
    copy_text(field, {line, length});
    line += length;
    line += *line == ';' ? 1 : 0;
    return true;
}

/** The last field of a line keeps its newline: those who read it expect it so. */
bool parse_country(const char *line, Country &country)
{
    return take_field(line, country.code) && take_field(line, country.revision) &&
           take_field(line, country.dfs_channel_forced);
}

// ---- messages --------------------------------------------------------------------------------

using Frame = Allocated<HLX_MSG>;

/** A frame that carries a text without its NUL; none when there is no memory. */
Frame make_frame(const char *text)
{
    const std::size_t length = strlen(text);
    if (length > static_cast<std::size_t>(INT_MAX)) {
        return nullptr;
    }
    Frame frame{static_cast<HLX_MSG *>(calloc(1, offsetof(HLX_MSG, Body) + length))};
    if (frame != nullptr) {
        frame->Length = static_cast<int>(length);
        memcpy(frame->Body, text, length);
    }
    return frame;
}

}  // namespace

int getMibPrefix(char *namePre, PREFLAG flag, int index)
{
    if (namePre == nullptr) {
        console_line(PROD_SITE, kRed, "namePre is null");
        return -1;
    }
    const auto kind = static_cast<std::size_t>(flag);
    if (kind < std::size(kPrefixes)) {
        const Prefix &prefix = kPrefixes[kind];
        if (prefix.first == kNotNumbered) {
            copy_text(namePre, kPrefixSize, prefix.text);
        } else {
            snprintf(namePre, kPrefixSize, "%s%lld", prefix.text,
                     static_cast<long long>(index) + prefix.first);
        }
    }
    return 1;
}

char *wifi_get_mibname(const char *ifname, const char *mib, char *mib_name)
{
    if (ifname == nullptr || mib == nullptr || mib_name == nullptr) {
        PROD_LOG_ERROR(kProd, "wifi mib error!");
        return nullptr;
    }
    sprintf(mib_name, "%s_%s", ifname, mib);
    return mib_name;
}

char *wifi_get_radio_prefix(int rate)
{
    switch (rate) {
        case kRate24G:
            return const_cast<char *>(kRadio24G);
        case kRate5G:
            return const_cast<char *>(kRadio5G);
        default:
            PROD_LOG_ERROR(kProd, "Unexpected rate %d", rate);
            return nullptr;
    }
}

void wifi_get_mib_radio(int wl_rate, char *radio)
{
    if (radio == nullptr) {
        return;
    }
    if (wl_rate == kRate24G) {
        copy_text(radio, kRadioSize, ConfigValue{"wlan0_band"} == "2" ? kRadio24G : kRadio5G);
    } else if (wl_rate == kRate5G) {
        copy_text(radio, kRadioSize, ConfigValue{"wlan1_band"} == "5" ? kRadio5G : kRadio24G);
    }
}

char *wifi_get_bss_ifname(int rate, int index, char *ifname)
{
    if (ifname != nullptr) {
        copy_text(ifname, kIfNameSize, bss_ifname(wifi_get_radio_prefix(rate), index).c_str());
    }
    return ifname;
}

int wifi_get_radio_val(int rate, const char *name, char *value)
{
    return read_text(radio_key(rate, name), value);
}

int wifi_get_radio_int_val(int rate, const char *name)
{
    return read_number(radio_key(rate, name)).to_int();
}

int wifi_set_radio_val(int rate, const char *name, const char *value)
{
    return write_text(radio_key(rate, name), value);
}

int wifi_set_radio_int_val(int rate, const char *name, int value)
{
    return wifi_set_radio_val(rate, name, Text<kNumberSize>{"%d", value}.c_str());
}

int wifi_get_bss_val(int rate, int index, const char *name, char *value)
{
    return read_text(bss_key(rate, index, name), value);
}

int wifi_get_bss_int_val(int rate, int index, const char *name)
{
    return read_number(bss_key(rate, index, name)).to_int();
}

double wifi_get_bss_double_val(int rate, int index, const char *name)
{
    return read_number(bss_key(rate, index, name)).to_double();
}

int wifi_set_bss_val(int rate, int index, const char *name, const char *value)
{
    return write_text(bss_key(rate, index, name), value);
}

int wifi_set_bss_int_val(int rate, int index, const char *name, int value)
{
    return wifi_set_bss_val(rate, index, name, Text<kNumberSize>{"%d", value}.c_str());
}

int wifi_set_bss_double_val(int rate, int index, const char *name, double value)
{
    return wifi_set_bss_val(rate, index, name, Text<kNumberSize>{"%f", value}.c_str());
}

char *get_wifi_workmode(void)
{
    const ConfigValue of_24g{"wlan0_workmode", kWorkmodeSize};
    const ConfigValue of_5g{"wlan1_workmode", kWorkmodeSize};
    for (const char *const mode : {"apclient", "wisp"}) {
        if (of_24g == mode || of_5g == mode) {
            return const_cast<char *>(mode);
        }
    }
    return const_cast<char *>("ap");
}

int wifi_get_bss_enable(const char *name)
{
    const FunctionTrace trace{PROD_SITE, kNetctrl};
    if (name == nullptr) {
        return -1;
    }
    const std::string_view radio{name};
    if (radio == kRadio24G || radio == kRadio5G) {
        const ConfigValue enable = first_bss_enable(name);
        if (!enable.empty()) {
            return trace.leave(enable.to_int());
        }
    } else if (radio == "wlan") {
        const ConfigValue of_24g = first_bss_enable(kRadio24G);
        const ConfigValue of_5g = first_bss_enable(kRadio5G);
        if (!of_24g.empty() && !of_5g.empty()) {
            return trace.leave(of_24g.to_int() != 0 || of_5g.to_int() != 0 ? 1 : 0);
        }
    }
    console_print("[%s %d]:    wifi enable mib error!\n", __func__, __LINE__);
    return -1;
}

int get_wifi_band_status(int rate)
{
    // Every other rate is the 5 GHz radio here, without a complaint.
    const int radio = rate == kRate24G ? kRate24G : kRate5G;
    if (wifi_get_radio_int_val(radio, "enable") == 0) {
        return 0;
    }
    const int configured = wifi_get_radio_int_val(radio, "web_maxbss");
    const int count = configured < kBssMax ? configured : kBssMax;
    for (int bss = 0; bss < count; ++bss) {
        if (pav_wifi_check_downup(bss_ifname(wifi_get_radio_prefix(radio), bss).c_str()) != 0) {
            return 1;
        }
    }
    return 0;
}

int get_wifi_status(void)
{
    return get_wifi_band_status(kRate24G) == 1 || get_wifi_band_status(kRate5G) == 1 ? 1 : 0;
}

void check_same_ssid(const char *ssid, char *band)
{
    if (ssid == nullptr || band == nullptr) {
        return;
    }
    for (int slot = 0; slot < kSlots; ++slot) {
        const int rate = slot < kSlotsOfRadio ? kRate24G : kRate5G;
        const std::size_t length = strnlen(band, kBandSize);
        if (length < kBandSize && broadcasts(rate, slot % kSlotsOfRadio, ssid)) {
            snprintf(band + length, kBandSize - length, "%d,", slot + 1);
        }
    }
    if (strnlen(band, kBandSize) < kBandSize) {
        str_trim_right(band, ',');
    }
}

int prod_check_smart_node(const char *client_mac)
{
    if (client_mac == nullptr || strlen(client_mac) >= sizeof(station_info_t::mac)) {
        return 0;
    }
    std::array<station_info_t, kStationsMax> stations;
    const OsIfName ifname = bss_ifname(kRadio24G, kSmartNodeBss);
    const int reported = pav_wifi_get_clientlist(ifname.c_str(), stations.data(), kStationsMax);
    const std::size_t count = reported > 0 ? static_cast<std::size_t>(reported) : 0;
    for (std::size_t i = 0; i < count && i < stations.size(); ++i) {
        if (strncasecmp(stations[i].mac, client_mac, sizeof(stations[i].mac)) == 0) {
            return 1;
        }
    }
    return 0;
}

void prod_get_dfs_channel_forced(const char *country_code, [[maybe_unused]] const char *country_rev,
                                 char *dfs_channel_forced)
{
    if (country_code == nullptr || dfs_channel_forced == nullptr) {
        return;
    }
    LineReader<kCountryLine> lines{kCountryFile};
    while (const char *const line = lines.next()) {
        Country country;
        if (parse_country(line, country) && strcmp(country.code, country_code) == 0) {
            copy_text(dfs_channel_forced, sizeof(country.dfs_channel_forced),
                      country.dfs_channel_forced);
            return;
        }
    }
}

int send_msg_to_wlan_server(const char *text)
{
    const FunctionTrace trace{PROD_SITE};
    // A text that does not fit a console line is shown cut, and sent whole.
    console_line(PROD_SITE, kCyan, "*********** msg |%.4096s| to wlan_server ********\n",
                 or_null(text));
    if (text == nullptr) {
        PROD_LOG_ERROR(kProd, "data = nil");
        return -1;
    }
    Frame frame = make_frame(text);
    if (frame == nullptr) {
        PROD_LOG_ERROR(kProd, "out of memory");
        return -1;
    }
    const int sent = hlx_proc_send_msg(frame.get(), WLAN_SERVER_SOCKET_PATH);
    const int err = errno;
    frame.reset();
    if (sent < 0) {
        log_failure(PROD_SITE, err, "hlx_proc_send_msg WLAN_SERVER_SOCKET_PATH");
        return -1;
    }
    return trace.leave(0);
}
