// SPDX-License-Identifier: MIT
#include "prod_common_hal.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/config.hpp"
#include "internal/handle.hpp"
#include "internal/log.hpp"
#include "internal/shell.hpp"
#include "internal/text.hpp"
#include "prod_common_wifi.h"

using namespace prod;

namespace
{

constexpr const char *kCmd = "cmd";  // the module of commands
constexpr std::size_t kRetriedCommandSize = 1024;
constexpr useconds_t kRetryPause = 200000;
constexpr std::size_t kEthNameSize = 10;
constexpr int kAnyRawProtocol = 255;  // only ioctls go through the socket

using PortKey = Text<64>;

/** An LED that cannot be read is neither on nor off. */
unsigned int led_state(gpio_id_t led)
{
    unsigned int state = 0;
    iof_gpio_get(led, &state);
    return state;
}

void set_band_led(gpio_id_t led, led_pattern_t wanted)
{
    const bool is_off = led_state(led) == LED_OFF;
    if ((wanted == LED_OFF && !is_off) || (wanted == LED_ON && is_off)) {
        iof_gpio_set(led, wanted);
    }
}

void set_panel_led(Site site, gpio_id_t led, led_pattern_t pattern)
{
    if (iof_gpio_set(led, pattern) != 0) {
        PROD_LOG_ERROR_AT(site, kProd, "Failed to iof_gpio_set(%d,%d)", led, pattern);
    }
}

bool radio_is_enabled(WLAN_RATE_TYPE rate)
{
    char radio[16] = {};
    wifi_get_mib_radio(rate, radio);
    return wifi_get_bss_enable(radio) > 0;  // below 0: the radio has no such setting
}

bool iptv_is_on()
{
    return config_int("iptv.enable") != 0;
}

bool read_address(const char *text, in_addr *address)
{
    if (inet_pton(AF_INET, text, address) != 1) {
        errno = EINVAL;
        return false;
    }
    return true;
}

/** An interface as the kernel's address calls see it. */
class Interface
{
  public:
    explicit Interface(const char *name)
        : socket_(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, kAnyRawProtocol))
    {
        copy_text(request_.ifr_name, name);
    }

    /** Everything below sets errno when it fails; without a socket nothing works. */
    bool is_open() const { return static_cast<bool>(socket_); }

    bool set_flags(int flags)
    {
        request_.ifr_flags = static_cast<short>(flags);
        return ioctl(socket_.get(), SIOCSIFFLAGS, &request_) == 0;
    }

    bool set_address(unsigned long call, in_addr address)
    {
        sockaddr_in in{};
        in.sin_family = AF_INET;
        in.sin_addr = address;
        memcpy(&request_.ifr_addr, &in, sizeof(in));
        return ioctl(socket_.get(), call, &request_) == 0;
    }

  private:
    Fd socket_;
    ifreq request_{};
};

bool configure(const char *name, int flags, const char *addr, const char *netmask)
{
    Interface device{name};
    if (!device.is_open() || !device.set_flags(flags)) {
        return false;
    }
    if (addr == nullptr) {
        return true;
    }
    in_addr address;
    if (!read_address(addr, &address) || !device.set_address(SIOCSIFADDR, address)) {
        return false;
    }
    if (netmask == nullptr) {
        return true;
    }
    in_addr mask;
    if (!read_address(netmask, &mask) || !device.set_address(SIOCSIFNETMASK, mask)) {
        return false;
    }
    return device.set_address(SIOCSIFBRDADDR, in_addr{address.s_addr | ~mask.s_addr});
}

/** Fills in the name stored under a key; an absent key gives an empty one. */
char *read_name(const char *key, char *ifname, std::size_t size)
{
    if (ifname != nullptr) {
        memset(ifname, 0, size);
        copy_text(ifname, size, ConfigValue{key}.c_str());
    }
    return ifname;
}

bool succeeded(int status)
{
    return status != -1 && WEXITSTATUS(status) == 0 && WTERMSIG(status) == 0;
}

void print_attempt(Colour colour, Site site, const char *outcome, const char *command)
{
    console_print("\033[1;%d;%dm[%s][%d][%s to exec '%s']\n\033[0m", kBackground, colour,
                  or_null(site.func), site.line, outcome, command);
}

}  // namespace

void set_24g_wifi_led(led_pattern_t wl_led_sta)
{
    set_band_led(LED_24G, wl_led_sta);
}

void set_5g_wifi_led(led_pattern_t wl_led_sta)
{
    set_band_led(LED_5G, wl_led_sta);
}

void set_all_wifi_led(led_pattern_t wl_led_sta)
{
    const unsigned int state_24g = led_state(LED_24G);
    const unsigned int state_5g = led_state(LED_5G);
    const bool both_off = state_24g == LED_OFF && state_5g == LED_OFF;
    // With one on and the other off a request for both on is left alone, on purpose.
    if ((wl_led_sta == LED_ON && both_off) || (wl_led_sta == LED_OFF && !both_off)) {
        iof_gpio_set(LED_24G, wl_led_sta);
        iof_gpio_set(LED_5G, wl_led_sta);
    }
}

void set_wifi_led_status(led_pattern_t wl_led_sta, WLAN_RATE_TYPE wl_rate)
{
    switch (wl_rate) {
        case WLAN_RATE_24G:
            set_24g_wifi_led(wl_led_sta);
            break;
        case WLAN_RATE_5G:
            set_5g_wifi_led(wl_led_sta);
            break;
        case WLAN_RATE_ALL:
            set_all_wifi_led(wl_led_sta);
            break;
        case WLAN_RATE_5G2:
        default:
            break;  // a second 5 GHz radio has no LED
    }
}

void set_wifi_led_by_enable(void)
{
    const bool on_24g = radio_is_enabled(WLAN_RATE_24G);
    const bool on_5g = radio_is_enabled(WLAN_RATE_5G);
    if (on_24g == on_5g) {
        set_all_wifi_led(on_24g ? LED_ON : LED_OFF);
    } else if (on_5g) {
        set_24g_wifi_led(LED_OFF);
        set_5g_wifi_led(LED_ON);
    } else {
        set_5g_wifi_led(LED_OFF);
        set_24g_wifi_led(LED_ON);
    }
}

void hal_set_all_led(int on)
{
    const led_pattern_t pattern = on != 0 ? LED_ON : LED_OFF;
    set_panel_led(PROD_SITE, LED_WAN, pattern);
    set_panel_led(PROD_SITE, LED_LAN, pattern);
    set_panel_led(PROD_SITE, LED_SYS, pattern);
    iof_gpio_set_start(LED_USB, 0);
    set_panel_led(PROD_SITE, LED_USB, on != 0 ? LED_FORCE_ON : LED_FORCE_OFF);
    run_command("rmmod wifi_led");  // else the driver goes on driving the band LEDs
    set_panel_led(PROD_SITE, LED_24G, pattern);
    // LED_5G is deliberately not touched.
}

int get_port_link_status(int port_id)
{
    port_status status{};
    if (iof_port_status_get(port_id, &status) != 0) {
        PROD_LOG_DEBUG(kProd, "Failed to iof_port_status_get(%d)", port_id);
        return 0;
    }
    return status.link == 1;
}

int ifconfig(const char *name, int flags, const char *addr, const char *netmask)
{
    if (name == nullptr) {
        return EINVAL;
    }
    if (!configure(name, flags, addr, netmask)) {
        const int err = errno;
        perror(name);
        return err;
    }
    return 0;
}

int get_vlan_id_by_wan_id(unsigned int wan_id)
{
    if (wan_id == WAN_ID_1 && iptv_is_on()) {
        return config_int("iptv.wan.vlanid");
    }
    return static_cast<int>(wan_id + 1);
}

char *prod_common_get_phyifname(unsigned int wanid, char *ifname, unsigned int ifname_len)
{
    if (ifname == nullptr) {
        return nullptr;
    }
    const ConfigValue value{PortKey{"port.%d.ifname", static_cast<int>(wanid)}.c_str()};
    if (value.found()) {
        copy_text(ifname, ifname_len, value.c_str());
    }
    return ifname;
}

char *prod_common_get_port_ifname(unsigned int port_index, char *ifname, unsigned int ifname_len)
{
    return read_name(PortKey{"port.%d.ifname", static_cast<int>(port_index)}.c_str(), ifname,
                     ifname_len);
}

char *prod_common_get_wan_main_ifname(unsigned int wanid, char *ifname, unsigned int ifname_len)
{
    return read_name(PortKey{"port.wan%d.main_ifname", static_cast<int>(wanid)}.c_str(), ifname,
                     ifname_len);
}

char *get_eth_name(eth_idx_t if_id)
{
    // Of each thread, since the status of a WAN is decided with such a name and asked for by many.
    [[gnu::tls_model("initial-exec")]] static thread_local char vlan_name[kEthNameSize];
    [[gnu::tls_model("initial-exec")]] static thread_local char port_name[kEthNameSize];
    if (if_id < WAN_1 || if_id > WAN_3) {
        return iof_eth_name_get(if_id);
    }
    if (if_id == WAN_1 && iptv_is_on()) {
        copy_text(vlan_name, Text<kEthNameSize>{"vlan%d", config_int("iptv.wan.vlanid")}.view());
        return vlan_name;
    }
    return read_name(PortKey{"port.%d.ifname", if_id - WAN_1 + 1}.c_str(), port_name,
                     sizeof(port_name));
}

int prod_common_cmd_retry(const char *func, int line, int retry, const char *fmt, ...)
{
    if (fmt == nullptr) {
        return 1;
    }
    const Site site{func, line};
    Text<kRetriedCommandSize> command;
    va_list args;
    va_start(args, fmt);
    command.vappend(fmt, args);
    va_end(args);
    PROD_LOG_GATED_AT(site, PROD_DBG_INFO, kCmd, "%s", command.c_str());

    for (int left = retry; left > 0; --left) {
        if (succeeded(system(command.c_str()))) {
            if (left < retry) {
                print_attempt(kGreen, site, "Succeed", command.c_str());
            }
            return 0;
        }
        print_attempt(kRed, site, "Failed", command.c_str());
        usleep(kRetryPause);
    }
    return retry > 0;  // no try asked for is no failure
}
