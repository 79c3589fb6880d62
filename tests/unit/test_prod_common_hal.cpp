// SPDX-License-Identifier: MIT
#include "prod_common_hal.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"
#include "support/time.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::RecordedCommands;
using test::run;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/** The board that the library meets here. */
struct Board {
    std::map<int, unsigned int> leds;
    std::vector<int> read;  // LEDs whose state was asked for, in order
    std::map<int, int> set_fails;
    std::vector<std::string> steps;  // what was done to it, in order
    std::map<int, port_status> ports;
    std::map<int, std::string> names;
};
Board board;

/** What the kernel is asked about an interface, and which of it fails with which error. */
struct Kernel {
    std::vector<unsigned long> calls;
    std::map<unsigned long, int> fails;
    int type = 0;
    int protocol = 0;
    bool closes_on_exec = false;
};
Kernel kernel;

}  // namespace

extern "C" {

int iof_gpio_get(gpio_id_t id, unsigned int *state)
{
    board.read.push_back(id);
    if (board.leds.count(id) == 0) {
        return 1;
    }
    *state = board.leds[id];
    return 0;
}

int iof_gpio_set(gpio_id_t id, led_pattern_t pattern)
{
    board.steps.push_back("set " + std::to_string(id) + " " + std::to_string(pattern));
    if (board.set_fails.count(id) != 0) {
        return board.set_fails[id];
    }
    board.leds[id] = pattern;
    return 0;
}

int iof_gpio_set_start(gpio_id_t id, int start)
{
    board.steps.push_back("start " + std::to_string(id) + " " + std::to_string(start));
    return 1;  // nobody looks
}

int iof_port_status_get(int port, port_status *status)
{
    if (board.ports.count(port) == 0) {
        return -1;
    }
    *status = board.ports[port];
    return 0;
}

char *iof_eth_name_get(eth_idx_t index)
{
    const auto entry = board.names.find(index);
    return entry != board.names.end() ? entry->second.data() : nullptr;
}

int ioctl(int fd, unsigned long call, ...) noexcept
{
    va_list args;
    va_start(args, call);
    void *const request = va_arg(args, void *);
    va_end(args);
    if (call == SIOCSIFFLAGS || call == SIOCSIFADDR || call == SIOCSIFNETMASK ||
        call == SIOCSIFBRDADDR) {
        kernel.calls.push_back(call);
        socklen_t size = sizeof(int);
        getsockopt(fd, SOL_SOCKET, SO_TYPE, &kernel.type, &size);
        getsockopt(fd, SOL_SOCKET, SO_PROTOCOL, &kernel.protocol, &size);
        kernel.closes_on_exec = (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
        if (kernel.fails.count(call) != 0) {
            errno = kernel.fails[call];
            return -1;
        }
    }
    static const auto real = test::next(ioctl, "ioctl");
    return real(fd, call, request);
}
}

namespace
{

class Hal : public testing::Test
{
  protected:
    Hal()
    {
        board = {};
        kernel = {};
    }

    test::FreshConfig config_;
};

/* LEDs */

struct BandLed {
    void (*set)(led_pattern_t);
    gpio_id_t led;
};

class OneBand : public Hal, public testing::WithParamInterface<BandLed>
{
  protected:
    /** What is done to the LED in one state when another is asked for. */
    std::vector<std::string> steps(unsigned int now, led_pattern_t wanted)
    {
        board = {};
        board.leds[GetParam().led] = now;
        GetParam().set(wanted);
        return board.steps;
    }

    std::string set_to(led_pattern_t pattern) const
    {
        return "set " + std::to_string(GetParam().led) + " " + std::to_string(pattern);
    }
};

INSTANTIATE_TEST_SUITE_P(Bands, OneBand,
                         testing::Values(BandLed{set_24g_wifi_led, LED_24G},
                                         BandLed{set_5g_wifi_led, LED_5G}));

TEST_P(OneBand, OffUnlessItIsOff)
{
    EXPECT_THAT(steps(LED_OFF, LED_OFF), IsEmpty());
    for (const led_pattern_t now : {LED_ON, LED_BLINK, LED_NORMAL, LED_FORCE_ON, LED_FORCE_OFF}) {
        EXPECT_THAT(steps(now, LED_OFF), ElementsAre(set_to(LED_OFF)));
    }
}

TEST_P(OneBand, OnOnlyWhenItIsOff)
{
    EXPECT_THAT(steps(LED_OFF, LED_ON), ElementsAre(set_to(LED_ON)));
    for (const led_pattern_t now : {LED_ON, LED_BLINK, LED_NORMAL, LED_FORCE_ON, LED_FORCE_OFF}) {
        EXPECT_THAT(steps(now, LED_ON), IsEmpty());
    }
}

TEST_P(OneBand, OtherPatternsDoNothing)
{
    for (const led_pattern_t wanted : {LED_BLINK, LED_NORMAL, LED_FORCE_ON, LED_FORCE_OFF}) {
        EXPECT_THAT(steps(LED_OFF, wanted), IsEmpty());
        EXPECT_THAT(steps(LED_ON, wanted), IsEmpty());
    }
}

TEST_P(OneBand, AnUnreadableLedIsNotOff)
{
    board = {};
    GetParam().set(LED_ON);
    EXPECT_THAT(board.steps, IsEmpty());
    GetParam().set(LED_OFF);
    EXPECT_THAT(board.steps, ElementsAre(set_to(LED_OFF)));
}

/** What set_all_wifi_led() does to LEDs in these states. */
std::vector<std::string> all_steps(unsigned int now_24g, unsigned int now_5g, led_pattern_t wanted)
{
    board = {};
    board.leds = {{LED_24G, now_24g}, {LED_5G, now_5g}};
    set_all_wifi_led(wanted);
    return board.steps;
}

TEST_F(Hal, AllWifiLeds)
{
    EXPECT_THAT(all_steps(LED_OFF, LED_OFF, LED_ON), ElementsAre("set 2 1", "set 3 1"));
    EXPECT_THAT(all_steps(LED_OFF, LED_OFF, LED_OFF), IsEmpty());
    EXPECT_THAT(all_steps(LED_ON, LED_ON, LED_OFF), ElementsAre("set 2 2", "set 3 2"));
    EXPECT_THAT(all_steps(LED_ON, LED_ON, LED_ON), IsEmpty());
    EXPECT_THAT(all_steps(LED_OFF, LED_BLINK, LED_OFF), ElementsAre("set 2 2", "set 3 2"));
    EXPECT_THAT(all_steps(LED_ON, LED_OFF, LED_OFF), ElementsAre("set 2 2", "set 3 2"));
    EXPECT_THAT(board.read, ElementsAre(LED_24G, LED_5G)) << "both are read, whatever the first is";
    // One on, one off, both asked for: left as they are.
    EXPECT_THAT(all_steps(LED_ON, LED_OFF, LED_ON), IsEmpty());
    EXPECT_THAT(all_steps(LED_OFF, LED_ON, LED_ON), IsEmpty());
    for (const led_pattern_t other : {LED_BLINK, LED_NORMAL, LED_FORCE_ON, LED_FORCE_OFF}) {
        EXPECT_THAT(all_steps(LED_OFF, LED_OFF, other), IsEmpty());
        EXPECT_THAT(all_steps(LED_ON, LED_ON, other), IsEmpty());
    }
}

TEST_F(Hal, WifiLedOfARate)
{
    const auto steps = [](WLAN_RATE_TYPE rate) {
        board = {};
        board.leds = {{LED_24G, LED_OFF}, {LED_5G, LED_OFF}};
        set_wifi_led_status(LED_ON, rate);
        return board.steps;
    };
    EXPECT_THAT(steps(WLAN_RATE_24G), ElementsAre("set 2 1"));
    EXPECT_THAT(steps(WLAN_RATE_5G), ElementsAre("set 3 1"));
    EXPECT_THAT(steps(WLAN_RATE_ALL), ElementsAre("set 2 1", "set 3 1"));
    EXPECT_THAT(steps(WLAN_RATE_5G2), IsEmpty());
    EXPECT_THAT(steps(static_cast<WLAN_RATE_TYPE>(0)), IsEmpty());
}

/** What set_wifi_led_by_enable() does from these states with these settings. */
std::vector<std::string> enable_steps(const std::string &enable_0, const std::string &enable_1,
                                      unsigned int now_24g, unsigned int now_5g)
{
    config()["wlan0.0_bss_enable"] = enable_0;
    config()["wlan1.0_bss_enable"] = enable_1;
    board = {};
    board.leds = {{LED_24G, now_24g}, {LED_5G, now_5g}};
    set_wifi_led_by_enable();
    return board.steps;
}

TEST_F(Hal, WifiLedsByEnable)
{
    config()["wlan0_band"] = "2";
    config()["wlan1_band"] = "5";
    EXPECT_THAT(enable_steps("0", "0", LED_ON, LED_ON), ElementsAre("set 2 2", "set 3 2"));
    EXPECT_THAT(enable_steps("0", "1", LED_ON, LED_OFF), ElementsAre("set 2 2", "set 3 1"));
    EXPECT_THAT(enable_steps("1", "0", LED_OFF, LED_ON), ElementsAre("set 3 2", "set 2 1"));
    EXPECT_THAT(enable_steps("1", "1", LED_OFF, LED_OFF), ElementsAre("set 2 1", "set 3 1"));
}

TEST_F(Hal, WifiLedsFollowTheBandsOfSwappedRadios)
{
    config()["wlan0_band"] = "5";
    config()["wlan1_band"] = "2";
    // wlan0 carries 5 GHz here.
    EXPECT_THAT(enable_steps("1", "0", LED_ON, LED_OFF), ElementsAre("set 2 2", "set 3 1"));
}

TEST_F(Hal, AnUnsetRadioCountsAsDisabled)
{
    config()["wlan0_band"] = "2";
    config()["wlan1_band"] = "5";
    std::vector<std::string> steps;
    printed([&] { steps = enable_steps("", "", LED_ON, LED_ON); });
    EXPECT_THAT(steps, ElementsAre("set 2 2", "set 3 2")) << "empty";
    config() = {{"wlan0_band", "2"}, {"wlan1_band", "5"}};
    board = {};
    board.leds = {{LED_24G, LED_ON}, {LED_5G, LED_ON}};
    printed([] { set_wifi_led_by_enable(); });
    EXPECT_THAT(board.steps, ElementsAre("set 2 2", "set 3 2")) << "absent";
}

TEST_F(Hal, FrontPanel)
{
    const RecordedCommands commands{[](const std::string &command) {
        board.steps.push_back(command);
        return 0;
    }};
    EXPECT_EQ(printed([] { hal_set_all_led(7); }), "");
    EXPECT_THAT(board.steps, ElementsAre("set 6 1", "set 5 1", "set 0 1", "start 4 0", "set 4 16",
                                         "rmmod wifi_led", "set 2 1"));
    board = {};
    EXPECT_EQ(printed([] { hal_set_all_led(0); }), "");
    EXPECT_THAT(board.steps, ElementsAre("set 6 2", "set 5 2", "set 0 2", "start 4 0", "set 4 17",
                                         "rmmod wifi_led", "set 2 2"));
}

TEST_F(Hal, EachFailingFrontPanelLedIsLogged)
{
    const RecordedCommands commands;
    board.set_fails = {{LED_WAN, 1}, {LED_LAN, -1}, {LED_SYS, 1}, {LED_USB, 1}, {LED_24G, 1}};
    std::string expected;
    for (const char *const message : {"(6,1)", "(5,1)", "(0,1)", "(4,16)", "(2,1)"}) {
        expected += log_line(PROD_DBG_ERROR, "hal_set_all_led",
                             std::string{"Failed to iof_gpio_set"} + message);
    }
    EXPECT_THAT(printed([] { hal_set_all_led(1); }), Prints(expected));
}

/* Ports */

TEST_F(Hal, PortLink)
{
    board.ports[3] = {1, 1000, 1, 1};
    board.ports[4] = {0, 0, 0, 0};
    board.ports[5] = {2, 0, 0, 0};
    EXPECT_EQ(get_port_link_status(3), 1);
    EXPECT_EQ(get_port_link_status(4), 0);
    EXPECT_EQ(get_port_link_status(5), 0);
    EXPECT_EQ(printed([] { EXPECT_EQ(get_port_link_status(9), 0); }), "");
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [] { EXPECT_EQ(get_port_link_status(9), 0); }),
                Prints(log_line(PROD_DBG_DEBUG, "get_port_link_status",
                                "Failed to iof_port_status_get(9)")));
}

/* An interface's address */

/** A pair of interfaces of this device, "veth0" and "veth1", for as long as it lives. */
class Veth
{
  public:
    Veth() { run("ip link add veth0 type veth peer name veth1"); }
    ~Veth() { run("ip link del veth0"); }
    Veth(const Veth &) = delete;
    Veth &operator=(const Veth &) = delete;
};

/** An address of veth0 as the kernel has it. */
std::string address_of(unsigned long call)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    strcpy(request.ifr_name, "veth0");
    std::string text;
    if (ioctl(fd, call, &request) == 0) {
        sockaddr_in in;
        memcpy(&in, &request.ifr_addr, sizeof(in));
        text = inet_ntoa(in.sin_addr);
    }
    close(fd);
    return text;
}

int flags_of_veth0()
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    strcpy(request.ifr_name, "veth0");
    EXPECT_EQ(ioctl(fd, SIOCGIFFLAGS, &request), 0);
    close(fd);
    return request.ifr_flags;
}

/** Runs the code and returns what it wrote to standard error. */
template <typename Code>
std::string complaint(const Code &code)
{
    testing::internal::CaptureStderr();
    code();
    return testing::internal::GetCapturedStderr();
}

TEST_F(Hal, IfconfigSetsFlagsAddressMaskAndBroadcast)
{
    const Veth veth;
    const int before = test::open_descriptors();
    EXPECT_EQ(complaint([] {
                  EXPECT_EQ(
                      ifconfig("veth0", IFF_UP | IFF_BROADCAST, "10.11.12.13", "255.255.240.0"), 0);
              }),
              "");
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_TRUE(flags_of_veth0() & IFF_UP);
    EXPECT_EQ(address_of(SIOCGIFADDR), "10.11.12.13");
    EXPECT_EQ(address_of(SIOCGIFNETMASK), "255.255.240.0");
    EXPECT_EQ(address_of(SIOCGIFBRDADDR), "10.11.15.255");
    EXPECT_THAT(kernel.calls,
                ElementsAre(SIOCSIFFLAGS, SIOCSIFADDR, SIOCSIFNETMASK, SIOCSIFBRDADDR));
    EXPECT_EQ(kernel.type, SOCK_RAW);
    EXPECT_EQ(kernel.protocol, 255);
    EXPECT_TRUE(kernel.closes_on_exec);
}

TEST_F(Hal, IfconfigWithoutAnAddressOnlySetsTheFlags)
{
    const Veth veth;
    ASSERT_EQ(ifconfig("veth0", IFF_UP, "10.0.0.1", nullptr), 0);
    kernel = {};
    EXPECT_EQ(ifconfig("veth0", 0, nullptr, "255.255.255.0"), 0);
    EXPECT_FALSE(flags_of_veth0() & IFF_UP);
    EXPECT_EQ(address_of(SIOCGIFADDR), "10.0.0.1");
    EXPECT_THAT(kernel.calls, ElementsAre(SIOCSIFFLAGS));
}

TEST_F(Hal, IfconfigWithoutAMaskLeavesMaskAndBroadcastToTheKernel)
{
    const Veth veth;
    EXPECT_EQ(ifconfig("veth0", IFF_UP, "10.0.0.1", nullptr), 0);
    EXPECT_EQ(address_of(SIOCGIFADDR), "10.0.0.1");
    EXPECT_THAT(kernel.calls, ElementsAre(SIOCSIFFLAGS, SIOCSIFADDR));
}

TEST_F(Hal, IfconfigOfAnUnknownInterface)
{
    const int before = test::open_descriptors();
    EXPECT_EQ(complaint([] { EXPECT_EQ(ifconfig("nosuch", IFF_UP, nullptr, nullptr), ENODEV); }),
              "nosuch: No such device\n");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Hal, IfconfigStopsAtTheFirstFailure)
{
    const Veth veth;
    const std::vector<unsigned long> order = {SIOCSIFFLAGS, SIOCSIFADDR, SIOCSIFNETMASK,
                                              SIOCSIFBRDADDR};
    for (std::size_t step = 0; step < order.size(); ++step) {
        kernel = {};
        kernel.fails[order[step]] = EBUSY;
        EXPECT_EQ(
            complaint([] { EXPECT_EQ(ifconfig("veth0", IFF_UP, "10.0.0.1", "255.0.0.0"), EBUSY); }),
            "veth0: Device or resource busy\n");
        EXPECT_EQ(kernel.calls.size(), step + 1);
        EXPECT_EQ(address_of(SIOCGIFADDR), step > 1 ? "10.0.0.1" : "") << "what was set stays";
    }
}

TEST_F(Hal, IfconfigWithoutTheRight)
{
    EXPECT_TRUE(test::in_a_child([] {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2] = {};
        ASSERT_EQ(syscall(SYS_capset, &header, none), 0);
        EXPECT_EQ(complaint([] { EXPECT_EQ(ifconfig("lo", IFF_UP, nullptr, nullptr), EPERM); }),
                  "lo: Operation not permitted\n");
    }));
}

TEST_F(Hal, IfconfigRefusesWhatIsNoAddress)
{
    const Veth veth;
    for (const char *const bad :
         {"", "10.0.0", "10.0.0.256", "10.0.0.1;reboot", "fe80::1", "router"}) {
        EXPECT_EQ(complaint([&] { EXPECT_EQ(ifconfig("veth0", 0, bad, nullptr), EINVAL); }),
                  "veth0: Invalid argument\n");
        EXPECT_EQ(complaint([&] { EXPECT_EQ(ifconfig("veth0", 0, "10.0.0.1", bad), EINVAL); }),
                  "veth0: Invalid argument\n");
    }
    EXPECT_EQ(complaint([] { EXPECT_EQ(ifconfig(nullptr, 0, nullptr, nullptr), EINVAL); }), "");
}

TEST_F(Hal, IfconfigUsesFifteenCharactersOfAName)
{
    const std::string name = "abcdefghijklmnopqrstuvwxyz";
    EXPECT_EQ(complaint([&] { EXPECT_EQ(ifconfig(name.c_str(), 0, nullptr, nullptr), ENODEV); }),
              name + ": No such device\n");
    run("ip link add abcdefghijklmno type veth peer name veth1");
    EXPECT_EQ(ifconfig(name.c_str(), IFF_UP, nullptr, nullptr), 0);
    run("ip link del abcdefghijklmno");
}

/* Names and VLANs from the configuration */

TEST_F(Hal, VlanOfAWan)
{
    EXPECT_EQ(get_vlan_id_by_wan_id(1), 2);
    EXPECT_EQ(get_vlan_id_by_wan_id(2), 3);
    EXPECT_EQ(get_vlan_id_by_wan_id(0), 1);
    config() = {{"iptv.enable", "1"}, {"iptv.wan.vlanid", "85"}};
    EXPECT_EQ(get_vlan_id_by_wan_id(1), 85);
    EXPECT_EQ(get_vlan_id_by_wan_id(2), 3);
    config()["iptv.enable"] = "0";
    EXPECT_EQ(get_vlan_id_by_wan_id(1), 2);
    config()["iptv.enable"] = "-1";
    config().erase("iptv.wan.vlanid");
    EXPECT_EQ(get_vlan_id_by_wan_id(1), 0);
}

TEST_F(Hal, PhysicalInterfaceOfAWan)
{
    config()["port.2.ifname"] = "eth2";
    char name[16] = "as it was";
    EXPECT_EQ(prod_common_get_phyifname(1, name, sizeof(name)), name);
    EXPECT_STREQ(name, "as it was");  // absent: untouched
    EXPECT_EQ(prod_common_get_phyifname(2, name, sizeof(name)), name);
    EXPECT_STREQ(name, "eth2");
    config()["port.2.ifname"] = "";
    prod_common_get_phyifname(2, name, sizeof(name));
    EXPECT_STREQ(name, "");
    EXPECT_EQ(prod_common_get_phyifname(2, nullptr, 16), nullptr);
}

using NameGetter = char *(*)(unsigned int, char *, unsigned int);

TEST_F(Hal, PortAndMainInterfaces)
{
    const std::pair<NameGetter, std::string> getters[] = {
        {prod_common_get_port_ifname, "port.2.ifname"},
        {prod_common_get_wan_main_ifname, "port.wan2.main_ifname"}};
    for (const auto &[get, key] : getters) {
        test::reset_config();
        char name[16];
        memset(name, 'x', sizeof(name));
        EXPECT_EQ(get(2, name, 8), name);
        EXPECT_EQ(std::string(name, sizeof(name)), std::string(8, '\0') + std::string(8, 'x'));
        EXPECT_THAT(test::keys_read(), ElementsAre(key));
        config()[key] = "vlan3";
        EXPECT_EQ(get(2, name, sizeof(name)), name);
        EXPECT_EQ(std::string(name, sizeof(name)), "vlan3" + std::string(11, '\0'));
        EXPECT_EQ(get(2, nullptr, 16), nullptr);
    }
}

TEST_F(Hal, NamesAreCutToTheRoomThereIs)
{
    const test::EveryKeyReads any{test::longest_value()};
    for (const NameGetter get : {prod_common_get_phyifname, prod_common_get_port_ifname,
                                 prod_common_get_wan_main_ifname}) {
        char room[18];
        memset(room, '#', sizeof(room));
        EXPECT_EQ(get(1, room, 16), room);
        EXPECT_EQ(std::string(room, sizeof(room)), std::string(15, 'x') + '\0' + "##");
        memset(room, '#', sizeof(room));
        get(1, room, 1);
        EXPECT_EQ(room[0], '\0');
        EXPECT_EQ(room[1], '#');
        room[0] = '#';
        get(1, room, 0);
        EXPECT_EQ(room[0], '#');
        char large[4096];
        get(4294967295U, large, sizeof(large));
        EXPECT_EQ(large, test::longest_value());
    }
}

TEST_F(Hal, EthernetNames)
{
    config() = {{"port.1.ifname", "eth1"}, {"port.2.ifname", "eth2"}, {"port.3.ifname", "eth3"}};
    board.names = {{LAN_1, "br0"}, {WAN_4, "eth4"}, {P_WAN_1, "eth0"}, {WAN_1, "wrong"}};
    EXPECT_STREQ(get_eth_name(WAN_1), "eth1");
    EXPECT_STREQ(get_eth_name(WAN_2), "eth2");
    EXPECT_STREQ(get_eth_name(WAN_3), "eth3");
    EXPECT_STREQ(get_eth_name(WAN_4), "eth4");
    EXPECT_STREQ(get_eth_name(LAN_1), "br0");
    EXPECT_STREQ(get_eth_name(P_WAN_1), "eth0");
    EXPECT_EQ(get_eth_name(IPTV_MAX), nullptr);
    EXPECT_EQ(get_eth_name(ETH_NM_INVALID), nullptr);

    config()["iptv.enable"] = "1";
    config()["iptv.wan.vlanid"] = "85";
    EXPECT_STREQ(get_eth_name(WAN_1), "vlan85");
    EXPECT_STREQ(get_eth_name(WAN_2), "eth2");
    config()["iptv.wan.vlanid"] = "-2147483648";
    EXPECT_STREQ(get_eth_name(WAN_1), "vlan-2147");
}

TEST_F(Hal, EthernetNamesDoNotOutliveTheirKey)
{
    config()["port.2.ifname"] = "eth2";
    EXPECT_STREQ(get_eth_name(WAN_2), "eth2");
    EXPECT_STREQ(get_eth_name(WAN_3), "");
    const test::EveryKeyReads any{test::longest_value()};
    EXPECT_STREQ(get_eth_name(WAN_3), "xxxxxxxxx");
}

TEST_F(Hal, EthernetNamesOfOneThreadAreNotAnothers)
{
    config() = {{"port.1.ifname", "eth1"}, {"port.2.ifname", "eth2"}};
    const char *const name = get_eth_name(WAN_1);
    std::thread{[] { EXPECT_STREQ(get_eth_name(WAN_2), "eth2"); }}.join();
    EXPECT_STREQ(name, "eth1");

    config() = {{"iptv.enable", "1"}, {"iptv.wan.vlanid", "85"}};
    const char *const vlan = get_eth_name(WAN_1);
    std::thread{[] {
        config()["iptv.wan.vlanid"] = "86";
        EXPECT_STREQ(get_eth_name(WAN_1), "vlan86");
    }}.join();
    EXPECT_STREQ(vlan, "vlan85");
}

TEST_F(Hal, OversizedAndHostileSettings)
{
    for (const std::string &value : {test::longest_value('9'), test::longest_value('\'')}) {
        const test::EveryKeyReads any{value};
        board = {};
        get_vlan_id_by_wan_id(1);
        EXPECT_LT(strlen(get_eth_name(WAN_1)), 10U);
        printed([] { set_wifi_led_by_enable(); });
    }
}

/* Commands that are tried again */

std::string attempt(int colour, const std::string &outcome, const std::string &command)
{
    return "\033[1;40;" + std::to_string(colour) + "m[caller][7][" + outcome + " to exec '" +
           command + "']\n\033[0m";
}

TEST_F(Hal, ACommandThatSucceedsRunsOnce)
{
    const test::SimulatedTime time;
    const RecordedCommands commands;
    EXPECT_EQ(
        printed([] { EXPECT_EQ(prod_common_cmd_retry("caller", 7, 3, "run %s %d", "it", 1), 0); }),
        "");
    EXPECT_THAT(commands.all(), ElementsAre("run it 1"));
    EXPECT_THAT(time.sleeps(), IsEmpty());
}

TEST_F(Hal, ACommandThatSucceedsAtLast)
{
    const test::SimulatedTime time;
    int left = 2;
    const RecordedCommands commands{[&](const std::string &) { return left-- > 0 ? 1 << 8 : 0; }};
    EXPECT_EQ(printed([] { EXPECT_EQ(prod_common_cmd_retry("caller", 7, 5, "run"), 0); }),
              attempt(31, "Failed", "run") + attempt(31, "Failed", "run") +
                  attempt(32, "Succeed", "run"));
    EXPECT_EQ(commands.all().size(), 3U);
    EXPECT_THAT(time.sleeps(), ElementsAre(200000, 200000));
}

TEST_F(Hal, ACommandThatNeverSucceeds)
{
    // Each way to fail: no shell, a status, a signal.
    for (const int status : {-1, 3 << 8, 9}) {
        const test::SimulatedTime time;
        const RecordedCommands commands{[&](const std::string &) { return status; }};
        EXPECT_EQ(printed([] { EXPECT_EQ(prod_common_cmd_retry("caller", 7, 2, "run"), 1); }),
                  attempt(31, "Failed", "run") + attempt(31, "Failed", "run"));
        EXPECT_EQ(commands.all().size(), 2U);
        EXPECT_THAT(time.sleeps(), ElementsAre(200000, 200000));  // also after the last
    }
}

TEST_F(Hal, NoTryAskedForIsNoFailure)
{
    const RecordedCommands commands;
    for (const int retry : {0, -1}) {
        EXPECT_EQ(printed([&] { EXPECT_EQ(prod_common_cmd_retry("caller", 7, retry, "run"), 0); }),
                  "");
    }
    EXPECT_EQ(prod_common_cmd_retry("caller", 7, 1, nullptr), 1);
    EXPECT_THAT(commands.all(), IsEmpty());
}

TEST_F(Hal, TheCommandIsLoggedForItsCaller)
{
    const RecordedCommands commands;
    EXPECT_THAT(
        printed_at(
            PROD_DBG_INFO,
            [] { EXPECT_EQ(prod_common_cmd_retry("caller", 7, 0, "run %s", "100%d"), 0); }, "cmd"),
        Prints(log_line(PROD_DBG_INFO, "caller", "run 100%d", "cmd")));
    EXPECT_EQ(printed_at(
                  PROD_DBG_DEBUG, [] { prod_common_cmd_retry("caller", 7, 0, "run"); }, "cmd"),
              "");
}

TEST_F(Hal, ALongCommandIsCut)
{
    const test::SimulatedTime time;
    const RecordedCommands commands{[](const std::string &) { return 1 << 8; }};
    const std::string argument = test::longest_value();
    const std::string cut = "run " + std::string(1019, 'x');
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(prod_common_cmd_retry(nullptr, 7, 1, "run %s", argument.c_str()), 1);
              }),
              "\033[1;40;31m[(null)][7][Failed to exec '" + cut + "']\n\033[0m");
    EXPECT_THAT(commands.all(), ElementsAre(cut));
}

TEST_F(Hal, ARealCommandRetriedForReal)
{
    test::remove_all("/tmp/tries");
    // Fails twice: two lines must be there for it to succeed.
    double took = 0;
    const std::string text = printed([&] {
        took = test::seconds([] {
            EXPECT_EQ(prod_common_cmd_retry("caller", 7, 5,
                                            "echo >>/tmp/tries; [ $(wc -l </tmp/tries) -eq 3 ]"),
                      0);
        });
    });
    EXPECT_EQ(test::read_text("/tmp/tries"), "\n\n\n");
    EXPECT_THAT(text, Prints("(.*Failed.*){2}.*Succeed.*"));
    EXPECT_GE(took, 0.4);
}

}  // namespace
