// SPDX-License-Identifier: MIT
// Run with the board file of the virtual device, whose LEDs are ordinary files.
#include "platform/hardware.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/if_bridge.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"

using test::read_text;
using test::run;
using test::write_text;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/** In the place of a kernel whose bridge tells VLANs apart: what it is asked, what it answers. */
struct VlanKernel {
    std::vector<std::string> requests;
    std::vector<int> answers;  // errno values in order; then all succeed
    ssize_t answer_size = sizeof(nlmsghdr) + sizeof(nlmsgerr);
};
VlanKernel *vlan_kernel;

std::vector<std::string> *ethtool_requests;  // while set, every one succeeds

/** A request as "set|unset INTERFACE vlan N [untagged] [pvid]". */
std::string described(const void *data, std::size_t size)
{
    struct {
        nlmsghdr head;
        ifinfomsg link;
        rtattr nest;
        rtattr info;
        bridge_vlan_info vlan;
    } request;
    if (size != sizeof(request)) {
        return "a request of " + std::to_string(size) + " bytes";
    }
    memcpy(&request, data, size);
    EXPECT_EQ(request.head.nlmsg_len, size);
    EXPECT_EQ(request.head.nlmsg_flags, NLM_F_REQUEST | NLM_F_ACK);
    EXPECT_EQ(request.link.ifi_family, AF_BRIDGE);
    EXPECT_EQ(request.nest.rta_type, IFLA_AF_SPEC);
    EXPECT_EQ(request.nest.rta_len, 12);
    EXPECT_EQ(request.info.rta_type, IFLA_BRIDGE_VLAN_INFO);
    EXPECT_EQ(request.info.rta_len, 8);
    char ifname[IF_NAMESIZE] = "nobody";
    if_indextoname(static_cast<unsigned int>(request.link.ifi_index), ifname);
    std::string text = request.head.nlmsg_type == RTM_SETLINK   ? "set "
                       : request.head.nlmsg_type == RTM_DELLINK ? "unset "
                                                                : "? ";
    text += std::string{ifname} + " vlan " + std::to_string(request.vlan.vid);
    text += (request.vlan.flags & BRIDGE_VLAN_INFO_UNTAGGED) != 0 ? " untagged" : "";
    text += (request.vlan.flags & BRIDGE_VLAN_INFO_PVID) != 0 ? " pvid" : "";
    return text;
}

}  // namespace

extern "C" {

ssize_t send(int fd, const void *data, size_t size, int flags)
{
    if (vlan_kernel != nullptr) {
        vlan_kernel->requests.push_back(described(data, size));
        return static_cast<ssize_t>(size);
    }
    static const auto real = test::next(send, "send");
    return real(fd, data, size, flags);
}

ssize_t recv(int fd, void *data, size_t size, int flags)
{
    if (vlan_kernel != nullptr) {
        struct {
            nlmsghdr head;
            nlmsgerr error;
        } answer{};
        answer.head.nlmsg_type = NLMSG_ERROR;
        if (!vlan_kernel->answers.empty()) {
            answer.error.error = -vlan_kernel->answers.front();
            vlan_kernel->answers.erase(vlan_kernel->answers.begin());
        }
        EXPECT_GE(size, sizeof(answer));
        memcpy(data, &answer, sizeof(answer));
        return vlan_kernel->answer_size;
    }
    static const auto real = test::next(recv, "recv");
    return real(fd, data, size, flags);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void *const argument = va_arg(args, void *);
    va_end(args);
    if (ethtool_requests != nullptr && request == SIOCETHTOOL) {
        const auto *const asked = static_cast<const ifreq *>(argument);
        ethtool_value value;
        memcpy(&value, asked->ifr_data, sizeof(value));
        ethtool_requests->push_back(std::string{asked->ifr_name} + " " + std::to_string(value.cmd));
        return 0;
    }
    static const auto real = test::next(ioctl, "ioctl");
    return real(fd, request, argument);
}
}

namespace
{

constexpr const char *kBoard = "/etc/board.json";
constexpr unsigned int kUntouched = 4711;

// ------------------------------------------------------------------------------------------ LEDs

/** The attributes of one LED, as the kernel shows them. */
void make_led(const std::string &name, const std::string &trigger = "none [default-on] timer\n",
              const std::string &brightness = "0\n")
{
    const std::string folder = "/var/leds/" + name;
    write_text(folder + "/brightness", brightness);
    write_text(folder + "/max_brightness", "255\n");
    write_text(folder + "/trigger", trigger);
    write_text(folder + "/delay_on", "0\n");
    write_text(folder + "/delay_off", "0\n");
}

std::string attribute(const std::string &name, const std::string &which)
{
    return read_text("/var/leds/" + name + "/" + which);
}

unsigned int state_of(gpio_id_t id)
{
    unsigned int state = kUntouched;
    EXPECT_EQ(iof_gpio_get(id, &state), 0);
    return state;
}

class Leds : public testing::Test
{
  protected:
    void SetUp() override
    {
        test::remove_all("/var/leds");
        for (const char *const name : {"sys", "wps", "wlan24", "wlan5", "usb", "lan", "wan"}) {
            make_led(name);
        }
    }
};

TEST_F(Leds, EveryPatternIsReadBack)
{
    const std::pair<led_pattern_t, unsigned int> patterns[] = {
        {LED_ON, LED_ON},        {LED_OFF, LED_OFF},     {LED_BLINK, LED_BLINK},
        {LED_FORCE_ON, LED_ON},  {LED_BLINK, LED_BLINK}, {LED_FORCE_OFF, LED_OFF},
        {LED_NORMAL, LED_NORMAL}};
    for (const auto &[pattern, shown] : patterns) {
        EXPECT_EQ(iof_gpio_set(LED_SYS, pattern), 0);
        EXPECT_EQ(state_of(LED_SYS), shown) << pattern;
    }
    // The board names no trigger for the USB LED: on is its normal state.
    EXPECT_EQ(iof_gpio_set(LED_USB, LED_NORMAL), 0);
    EXPECT_EQ(state_of(LED_USB), unsigned{LED_ON});
}

TEST_F(Leds, WhatIsWritten)
{
    EXPECT_EQ(iof_gpio_set(LED_WAN, LED_ON), 0);
    EXPECT_EQ(attribute("wan", "trigger"), "none");
    EXPECT_EQ(attribute("wan", "brightness"), "255");
    EXPECT_EQ(iof_gpio_set(LED_WAN, LED_OFF), 0);
    EXPECT_EQ(attribute("wan", "brightness"), "0");
    EXPECT_EQ(iof_gpio_set(LED_WAN, LED_BLINK), 0);
    EXPECT_EQ(attribute("wan", "trigger"), "timer");
    EXPECT_EQ(attribute("wan", "delay_on"), "500");
    EXPECT_EQ(attribute("wan", "delay_off"), "500");
    EXPECT_EQ(iof_gpio_set(LED_SYS, LED_NORMAL), 0);
    EXPECT_EQ(attribute("sys", "trigger"), "heartbeat");
    EXPECT_EQ(attribute("lan", "trigger"), "none [default-on] timer\n");
}

TEST_F(Leds, TheKernelsListOfTriggers)
{
    make_led("lan", "none [timer] heartbeat default-on\n", "1\n");
    EXPECT_EQ(state_of(LED_LAN), unsigned{LED_BLINK});
    make_led("lan", "[none] timer heartbeat\n", "3\n");
    EXPECT_EQ(state_of(LED_LAN), unsigned{LED_ON});
    make_led("lan", "none timer [heartbeat]\n", "0\n");
    EXPECT_EQ(state_of(LED_LAN), unsigned{LED_OFF});
    make_led("sys", "none timer [heartbeat]\n", "0\n");
    EXPECT_EQ(state_of(LED_SYS), unsigned{LED_NORMAL});
    make_led("lan", std::string(10000, 'x') + "[timer]", "junk");
    EXPECT_EQ(state_of(LED_LAN), unsigned{LED_OFF});
    make_led("lan", "", "");
    EXPECT_EQ(state_of(LED_LAN), unsigned{LED_OFF});
}

TEST_F(Leds, StartAndReset)
{
    EXPECT_EQ(iof_gpio_set(LED_SYS, LED_BLINK), 0);
    EXPECT_EQ(iof_gpio_set_start(LED_SYS, 0), 0);
    EXPECT_EQ(state_of(LED_SYS), unsigned{LED_OFF});
    EXPECT_EQ(iof_gpio_set_start(LED_SYS, 1), 0);
    EXPECT_EQ(state_of(LED_SYS), unsigned{LED_NORMAL});
}

TEST_F(Leds, WhatTheBoardDoesNotHave)
{
    test::remove_all("/var/leds/wps");
    for (const gpio_id_t id : {LED_WPS, LED_RED, LED_END, BTN_RST, BTN_END, LED_GREEN}) {
        unsigned int state = kUntouched;
        EXPECT_NE(iof_gpio_get(id, &state), 0) << id;
        EXPECT_EQ(state, kUntouched);
        EXPECT_NE(iof_gpio_set(id, LED_ON), 0) << id;
        EXPECT_NE(iof_gpio_set_start(id, 0), 0) << id;
    }
    EXPECT_FALSE(test::exists("/var/leds/wps"));  // nothing is made up
    EXPECT_NE(iof_gpio_get(LED_SYS, nullptr), 0);
    EXPECT_NE(iof_gpio_set(LED_SYS, static_cast<led_pattern_t>(5)), 0);
    test::remove_all("/var/leds/lan/brightness");
    unsigned int state = kUntouched;
    EXPECT_NE(iof_gpio_get(LED_LAN, &state), 0);
    EXPECT_NE(iof_gpio_set(LED_LAN, LED_ON), 0);
    EXPECT_FALSE(test::exists("/var/leds/lan/brightness"));
    EXPECT_EQ(state, kUntouched);
}

// ----------------------------------------------------------------------------------------- ports

constexpr const char *kNoEthtool = "passes no SIOCETHTOOL on to the kernel";

class Ports : public testing::Test
{
  protected:
    static void SetUpTestSuite()
    {
        run("ip link add eth1 type veth peer name isp1");
        run("ip link add eth3 type veth peer name lan3");
        run("ip link set eth1 up && ip link set isp1 up");
    }
};

TEST_F(Ports, ALinkAndItsSpeed)
{
    SKIP_IF_EMULATED(kNoEthtool);
    const int before = test::open_descriptors();
    port_status status;
    memset(&status, 0xff, sizeof(status));
    EXPECT_EQ(iof_port_status_get(4, &status), 0);
    EXPECT_EQ(status.link, 1U);
    EXPECT_EQ(status.speed, 10000U);
    EXPECT_EQ(status.duplex, 1U);
    EXPECT_EQ(status.nway, 0U);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Ports, NoCarrierOrTakenDown)
{
    port_status status{};
    run("ip link set isp1 down");
    EXPECT_EQ(iof_port_status_get(4, &status), 0);
    EXPECT_EQ(status.link, 0U);
    run("ip link set isp1 up");
    EXPECT_EQ(iof_port_status_get(4, &status), 0);
    EXPECT_EQ(status.link, 1U);
    run("ip link set eth1 down");
    EXPECT_EQ(iof_port_status_get(4, &status), 0);
    EXPECT_EQ(status.link, 0U);
    run("ip link set eth1 up");
    EXPECT_EQ(iof_port_status_get(2, &status), 0);
    EXPECT_EQ(status.link, 0U);
}

TEST_F(Ports, WhatIsNotThere)
{
    for (const int port : {-1, 3, 5, 1000}) {  // 3 is on the board, but its interface is gone
        port_status status{9, 9, 9, 9};
        EXPECT_NE(iof_port_status_get(port, &status), 0) << port;
        EXPECT_EQ(status.link, 9U);
    }
    EXPECT_NE(iof_port_status_get(4, nullptr), 0);
}

TEST_F(Ports, ALinkThatIsNegotiated)
{
    std::vector<std::string> requests;
    ethtool_requests = &requests;
    EXPECT_EQ(iof_port_restart_auto_nego(4), 0);
    ethtool_requests = nullptr;
    EXPECT_THAT(requests, ElementsAre("eth1 " + std::to_string(ETHTOOL_NWAY_RST)));
}

TEST_F(Ports, NegotiatingAnew)
{
    SKIP_IF_EMULATED(kNoEthtool);
    // A pair of virtual devices has a link that nobody negotiates.
    const int before = test::open_descriptors();
    EXPECT_EQ(iof_port_restart_auto_nego(4), EOPNOTSUPP);
    EXPECT_EQ(test::open_descriptors(), before);
    for (const int port : {-1, 3, 5, 1000}) {
        EXPECT_EQ(iof_port_restart_auto_nego(port), ENODEV) << port;
    }
    port_status status{};
    EXPECT_EQ(iof_port_status_get(4, &status), 0);
    EXPECT_EQ(status.link, 1U);
}

// ---------------------------------------------------------------------------------------- switch

/** A bridge with the ports 4 and 2 in it; port 3 is no interface, ports 1 and 0 are their own. */
class Switch : public testing::Test
{
  protected:
    Switch()
    {
        run("ip link show eth1 >/dev/null 2>&1 || ip link add eth1 type veth peer name isp1");
        run("ip link show eth3 >/dev/null 2>&1 || ip link add eth3 type veth peer name lan3");
        run("ip link add eth4 type veth peer name lan4");
        run("ip link add br0 type bridge && ip link set eth1 master br0 && "
            "ip link set eth3 master br0");
    }
    ~Switch() override { run("ip link del br0 && ip link del eth4"); }

    /** A bridge that knows the setting, as far as this port sees it. */
    class Filtering
    {
      public:
        explicit Filtering(const char *setting)
        {
            write_text("/sys/class/net/br0/bridge/vlan_filtering", setting);
            vlan_kernel = &kernel;
        }
        ~Filtering() { vlan_kernel = nullptr; }
        static std::string setting()
        {
            return read_text("/sys/class/net/br0/bridge/vlan_filtering");
        }
        VlanKernel kernel;

      private:
        test::MountedFolder mounted_{"/sys/class/net/br0/bridge"};
    };
};

TEST_F(Switch, UntaggedPortsNeedNoVlans)
{
    const int before = test::open_descriptors();
    EXPECT_EQ(iof_vlan_set(1, 0x1F, 0), 0);
    EXPECT_EQ(iof_vlan_set(1, 0x14, 0x0B), 0) << "the others are not in the bridge";
    EXPECT_EQ(test::open_descriptors(), before);
    Filtering bridge{"0\n"};
    EXPECT_EQ(iof_vlan_set(1, 0xFFFFFFFF, 0xFFFFFFFF), 0) << "in both masks is untagged";
    EXPECT_THAT(bridge.kernel.requests, IsEmpty());
    EXPECT_EQ(Filtering::setting(), "0\n");
}

TEST_F(Switch, AKernelWithoutVlans)
{
    // Whatever this kernel can: its answer is told, and nothing is claimed that is not so.
    const bool can = test::exists("/sys/class/net/br0/bridge/vlan_filtering");
    EXPECT_EQ(iof_vlan_set(1, 0x10, 0x04), can ? 0 : EOPNOTSUPP);
    EXPECT_EQ(iof_vlan_set(1, 0x10, 0), can ? 0 : EOPNOTSUPP);
    EXPECT_EQ(iof_vlan_set(1, 0, 0), can ? 0 : EOPNOTSUPP);
    EXPECT_EQ(iof_vlan_set(1, 0x14, 0), 0);
}

TEST_F(Switch, TaggedPortsAndPortsOutside)
{
    Filtering bridge{"0\n"};
    EXPECT_EQ(iof_vlan_set(1, 0x10, 0x04), 0);
    EXPECT_THAT(bridge.kernel.requests,
                ElementsAre("set eth3 vlan 1", "set eth1 vlan 1 untagged pvid"));
    EXPECT_EQ(Filtering::setting().front(), '1');
    bridge.kernel.requests.clear();
    bridge.kernel.answers = {ENOENT};
    EXPECT_EQ(iof_vlan_set(1, 0x10, 0x01), 0) << "it was no member before";
    EXPECT_THAT(bridge.kernel.requests,
                ElementsAre("unset eth3 vlan 1", "set eth1 vlan 1 untagged pvid"));
}

TEST_F(Switch, BackToUntagged)
{
    Filtering bridge{"1\n"};
    EXPECT_EQ(iof_vlan_set(1, 0x1F, 0), 0);
    EXPECT_THAT(bridge.kernel.requests,
                ElementsAre("set eth3 vlan 1 untagged pvid", "set eth1 vlan 1 untagged pvid"));
    EXPECT_EQ(Filtering::setting().front(), '0');
}

TEST_F(Switch, TheFirstFailureIsTold)
{
    Filtering bridge{"0\n"};
    bridge.kernel.answers = {EPERM, EBUSY};
    EXPECT_EQ(iof_vlan_set(1, 0, 0x14), EPERM);
    EXPECT_EQ(bridge.kernel.requests.size(), 2U);
    EXPECT_EQ(Filtering::setting().front(), '1') << "the other steps are done";
    bridge.kernel.answers = {ENOENT};
    EXPECT_EQ(iof_vlan_set(1, 0, 0x14), ENOENT) << "only a port that leaves may be out already";
    bridge.kernel.answer_size = sizeof(nlmsghdr) + 3;
    EXPECT_EQ(iof_vlan_set(1, 0, 0x14), EPROTO);
    bridge.kernel.answer_size = 0;
    EXPECT_EQ(iof_vlan_set(1, 0, 0x14), EPROTO);
}

TEST_F(Switch, OtherSwitchesAndBoards)
{
    for (const int eth_id : {0, 2, -1, 4096}) {
        EXPECT_EQ(iof_vlan_set(eth_id, 0x1F, 0), ENODEV) << eth_id;
    }
    const test::KeptFile kept{kBoard};
    for (const char *const board :
         {"", "{}", R"({"lan_bridge": "br0", "ports": [{"id": 32, "ifname": "eth1"}]})",
          R"({"lan_bridge": 7, "ports": [{"id": 4, "ifname": "eth1"}]})",
          R"({"lan_bridge": "../br0", "ports": [{"id": 4, "ifname": "eth1"}]})",
          R"({"lan_bridge": "br9", "ports": [{"id": 4, "ifname": "eth1"}]})"}) {
        write_text(kBoard, board);
        EXPECT_EQ(iof_vlan_set(1, 0, 0), 0) << "no port, nothing to do: " << board;
    }
}

// ------------------------------------------------------------------------------------ board file

using Mac = std::array<unsigned char, 6>;
constexpr Mac kNoMac = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};

/** Runs @p code with another board file in a process of its own, which has read none yet. */
void with_board(const std::string &text, const std::function<void()> &code)
{
    const test::FileHolds board{kBoard, text};
    EXPECT_TRUE(test::in_a_child(code)) << text;
}

/** These stand before InterfaceNames, so that nobody has read the names of the real board yet. */
TEST(ABoardFile, Names)
{
    with_board(R"({"ethernet": {"LAN_1": "br7", "WAN_2": "wan", "IPTV_WAN_1": "fifteen_letters"}})",
               [] {
                   EXPECT_STREQ(iof_eth_name_get(LAN_1), "br7");
                   EXPECT_STREQ(iof_eth_name_get(WAN_2), "wan");
                   EXPECT_STREQ(iof_eth_name_get(IPTV_WAN_1), "fifteen_letters");
                   EXPECT_EQ(iof_eth_name_get(WAN_1), nullptr);
               });
    with_board(R"({"ethernet": {"LAN_1": "sixteen_letters_", "LAN_2": "", "LAN_3": 7,
                                "LAN_4": "a/b", "WAN_1": "a b"}})",
               [] {
                   for (int i = -1; i <= IPTV_MAX; ++i) {
                       EXPECT_EQ(iof_eth_name_get(static_cast<eth_idx_t>(i)), nullptr) << i;
                   }
               });
}

TEST(ABoardFile, APortWhoseDriverTellsLittle)
{
    run("ip link set lo up");
    with_board(R"({"ports": [{"id": 70, "ifname": "lo"}]})", [] {
        port_status status{9, 9, 9, 9};
        EXPECT_EQ(iof_port_status_get(70, &status), 0);
        EXPECT_EQ(status.link, 1U);
        EXPECT_EQ(status.speed, 0U);
        EXPECT_EQ(status.duplex, 0U);
        EXPECT_EQ(status.nway, 0U);
    });
}

TEST(ABoardFile, MissingOrDamaged)
{
    const std::string good = read_text(kBoard);
    ASSERT_FALSE(good.empty());
    const auto nothing = [] {
        port_status status{};
        unsigned int state = 0;
        EXPECT_EQ(iof_eth_name_get(LAN_1), nullptr);
        EXPECT_NE(iof_port_status_get(4, &status), 0);
        EXPECT_NE(iof_gpio_get(LED_SYS, &state), 0);
        EXPECT_NE(iof_gpio_set(LED_SYS, LED_ON), 0);
    };
    for (const std::string &text :
         {std::string{}, std::string{"{"}, std::string{"[]"}, std::string{"7"}, std::string{"{}"},
          std::string{R"({"leds": 7, "ports": 7, "ethernet": 7})"},
          std::string{R"({"leds": [1], "ports": [1, {}, {"id": "4"}, {"id": 4}], "ethernet": []})"},
          std::string{R"({"leds": {"path": 7, "LED_SYS": 7}})"},
          std::string{R"({"leds": {"path": "/var/leds", "LED_SYS": {}}})"},
          std::string{R"({"leds": {"path": "/var/leds", "LED_SYS": ")"} + std::string(500, 'x') +
              "\"}}",
          good.substr(0, good.size() / 2), std::string(100000, '['), std::string(5000, '\xff'),
          good + std::string(70000, ' ')}) {
        with_board(text, nothing);
    }
    with_board(good, [&] {
        test::remove_all(kBoard);
        nothing();
        // The names are asked for again until there is a board file.
        write_text(kBoard, good);
        EXPECT_STREQ(iof_eth_name_get(LAN_1), "br0");
    });
}

/** Whether an interface takes in frames for a MAC that is not its own. */
bool takes_in(const char *ifname, const std::string &mac)
{
    return test::output(std::string{"bridge fdb show dev "} + ifname).find(mac + " self") !=
           std::string::npos;
}

TEST(ABoardFile, CpuPortsTakeInCloneMacs)
{
    SKIP_IF_EMULATED("passes no RTM_NEWNEIGH on to the kernel");
    run("ip link add cpu0 type veth peer name cpu1");
    with_board(R"({"ethernet": {"PORT_CPU1": "cpu0", "PORT_CPU2": "cpu1"}})", [] {
        Mac mac = {0x02, 0x00, 0x00, 0x10, 0x00, 0x11};
        EXPECT_FALSE(takes_in("cpu0", "02:00:00:10:00:11"));
        const int descriptors = test::open_descriptors();
        EXPECT_EQ(iof_mac_clone_set(mac.data()), 0);
        EXPECT_EQ(iof_mac_clone_set(mac.data()), 0) << "known already";
        EXPECT_EQ(test::open_descriptors(), descriptors);
        mac[5] = 0x12;
        EXPECT_EQ(iof_mac_clone_set(mac.data()), 0);
        for (const char *const port : {"cpu0", "cpu1"}) {
            EXPECT_TRUE(takes_in(port, "02:00:00:10:00:11"));
            EXPECT_TRUE(takes_in(port, "02:00:00:10:00:12"));
        }
        EXPECT_FALSE(takes_in("cpu0", "02:00:00:10:00:13"));
    });
    run("ip link del cpu0");
}

TEST(ABoardFile, ACpuPortThatIsNotThere)
{
    with_board(R"({"ethernet": {"PORT_CPU1": "cpu0"}})", [] {
        Mac mac = {0x02, 0x00, 0x00, 0x10, 0x00, 0x11};
        EXPECT_NE(iof_mac_clone_set(mac.data()), 0);
    });
}

TEST(ABoardFile, ManyThreadsReadTheNamesAtOnce)
{
    with_board(read_text(kBoard), [] {
        std::latch start{8};
        std::vector<std::thread> all;
        for (int t = 0; t < 8; ++t) {
            all.emplace_back([&] {
                start.arrive_and_wait();
                for (int i = 0; i < 100; ++i) {
                    EXPECT_STREQ(iof_eth_name_get(WAN_1), "eth1");
                }
            });
        }
        for (std::thread &thread : all) {
            thread.join();
        }
    });
}

TEST(InterfaceNames, OfTheVirtualBoard)
{
    EXPECT_STREQ(iof_eth_name_get(LAN_1), "br0");
    EXPECT_STREQ(iof_eth_name_get(WAN_1), "eth1");
    EXPECT_STREQ(iof_eth_name_get(WAN_2), "eth2");
    EXPECT_STREQ(iof_eth_name_get(L_LAN_1), "eth3");
    EXPECT_STREQ(iof_eth_name_get(WLAN_5G_1), "wl1");
    EXPECT_EQ(iof_eth_name_get(WAN_3), nullptr);
    EXPECT_EQ(iof_eth_name_get(ETH_NM_INVALID), nullptr);
    EXPECT_EQ(iof_eth_name_get(IPTV_MAX), nullptr);
}

TEST(InterfaceNames, StayWhatTheyAre)
{
    char *const name = iof_eth_name_get(WAN_1);
    const test::FileHolds board{kBoard, R"({"ethernet": {"WAN_1": "other"}})"};
    EXPECT_EQ(iof_eth_name_get(WAN_1), name);
    EXPECT_STREQ(name, "eth1");
}

// ------------------------------------------------------------------------------- MAC addresses

TEST(BaseMac, IsTheBoards)
{
    Mac mac = kNoMac;
    EXPECT_EQ(iof_mac_addr_get(mac.data()), 0);
    EXPECT_EQ(mac, (Mac{0x02, 0x00, 0x00, 0x10, 0x00, 0x00}));
    EXPECT_NE(iof_mac_addr_get(nullptr), 0);
}

TEST(BaseMac, OfABoardWithoutOne)
{
    for (const char *const board :
         {"", "{}", R"({"mac": ""})", R"({"mac": 7})", R"({"mac": "02:00:00:10:00"})",
          R"({"mac": "02:00:00:10:00:00:00"})", R"({"mac": "02:00:00:10:00:0g"})"}) {
        with_board(board, [&] {
            Mac mac = kNoMac;
            EXPECT_NE(iof_mac_addr_get(mac.data()), 0) << board;
            EXPECT_EQ(mac, kNoMac) << board;
        });
    }
}

TEST(CloneMac, NothingIsToldWithoutACpuPort)
{
    Mac mac = {0x02, 0x00, 0x00, 0x10, 0x00, 0x11};
    EXPECT_EQ(iof_mac_clone_set(mac.data()), 0);
    EXPECT_NE(iof_mac_clone_set(nullptr), 0);
}

}  // namespace
