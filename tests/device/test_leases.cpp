// SPDX-License-Identifier: MIT
// The clients of the device's DHCP server, by whatever name, and the neighbours of the device.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "prod_common_file.h"
#include "stories.hpp"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"

using story::address_of;
using story::eventually;
using story::Json;
using story::must;
using test::log_line;
using test::printed;
using test::Prints;

namespace
{

constexpr const char *kLeases = "/etc/dhcps.leases";
constexpr const char *kLaptop = "02:00:5e:00:53:01";
constexpr const char *kPhone = "02:00:5e:00:53:02";

/** The host name that the library has for a MAC; nothing when it is no client. */
std::optional<std::string> host_name_of(const std::string &mac)
{
    DHCPS_CLIENT_LIST_STRU *list = nullptr;
    const int count = file_get_dhcps_clients_list(&list);
    const std::unique_ptr<DHCPS_CLIENT_LIST_STRU, decltype(&free)> owner{list, free};
    for (int i = 0; i < count; ++i) {
        if (mac == list[i].mac) {
            EXPECT_EQ(std::string{list[i].ipaddr}.rfind("192.168.0.", 0), 0U) << list[i].ipaddr;
            return list[i].hostname;
        }
    }
    return std::nullopt;
}

/** A text as one word of a shell command. */
std::string quoted(const std::string &text)
{
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? std::string{"'\\''"} : std::string{c};
    }
    return word + "'";
}

/** Lets the laptop come anew by that name. */
void rename_laptop(const std::string &name)
{
    must("lab client lan1 stop");
    eventually("the laptop is gone", [] { return !host_name_of(kLaptop); });
    must("lab hostname lan1 " + quoted(name) + " && lab client lan1 start && lab wait lan1");
}

TEST(Leases, HostNamesAreShownWhateverTheyAre)
{
    std::string gbk_63;
    std::string utf8_63;
    for (int i = 0; i < 21; ++i) {
        gbk_63 += "\xB9\xFA";
        utf8_63 += "\xE5\x9B\xBD";
    }
    const struct {
        std::string given;
        std::string read;
    } kNames[] = {
        {"\xE5\xAE\xA2\xE5\x8E\x85", "\xE5\xAE\xA2\xE5\x8E\x85"},  // UTF-8
        {"\xBF\xCD\xCC\xFC 2", "\xE5\xAE\xA2\xE5\x8E\x85 2"},      // the same in GBK
        {"", "(null)"},
        {std::string(63, 'n'), std::string(63, 'n')},
        {std::string(200, 'n'), std::string(63, 'n')},
        {gbk_63 + gbk_63, utf8_63},
        {"*", "*"},
        {"a:b|c*d e", "a:b|c*d e"},
        {"$(reboot)`reboot`;reboot|\"'\\n%s%n", "$(reboot)`reboot`;reboot|\"'\\n%s%n"},
        {"\033[31mred\033]0;title\a", "\033[31mred\033]0;title\a"},
        {"two\n1 02:00:5e:00:53:99 192.168.0.250 x 01:02 forged",
         "two 1 02:00:5e:00:53:99 192.168.0.250 x 01:02 forged"},
        {"laptop", "laptop"},
    };
    for (const auto &[given, read] : kNames) {
        rename_laptop(given);
        EXPECT_EQ(host_name_of(kLaptop), read) << given;
        EXPECT_EQ(host_name_of(kPhone), "phone") << "beside " << given;
        const Json clients = Json::answer_of("prodctl lan clients --json")["clients"];
        EXPECT_EQ(clients.items().size(), 2U);
        EXPECT_EQ(clients.where("mac", kLaptop)["hostname"].text(), given.empty() ? "" : read);
        const std::string page = must("prodctl lan clients");
        EXPECT_EQ(page.find_first_of("\033\a"), std::string::npos) << page;
        EXPECT_EQ(std::count(page.begin(), page.end(), '\n'), 3) << page;
    }
}

TEST(Leases, ALockIsNotWaitedFor)
{
    test::Child server{[](test::Child &child) {
        const int fd = open(kLeases, O_RDWR | O_CLOEXEC);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        fcntl(fd, F_SETLK, &lock);
        child.tell();
        pause();
    }};
    server.wait_until_told();
    EXPECT_THAT(
        printed([] { EXPECT_EQ(host_name_of(kLaptop), "laptop"); }),
        Prints(log_line(PROD_DBG_ERROR, "lock_set",
                        "already locked by pid_" + std::to_string(server.pid()) + " (t=1)")));
    const Json clients = Json::answer_of("prodctl lan clients --json 2>/tmp/said")["clients"];
    EXPECT_EQ(clients.items().size(), 2U);
    EXPECT_EQ(clients.where("mac", kLaptop)["address"].text(), address_of("lan1"));
    EXPECT_EQ(clients.where("mac", kPhone)["address"].text(), address_of("lan2"));
    EXPECT_NE(test::read_text("/tmp/said").find("already locked by pid_"), std::string::npos);
}

TEST(Leases, TheNeighboursOfTheDevice)
{
    char ip[16] = "";
    EXPECT_EQ(find_ip_in_arpfile("02:00:5E:00:53:01", ip), HLX_OK);
    EXPECT_EQ(ip, address_of("lan1"));
    EXPECT_EQ(must(std::string{"prodctl lan arp "} + kPhone), address_of("lan2") + "\n");

    // Nobody is at that address: the kernel asks, and has no MAC meanwhile.
    must("ping -c 1 -W 1 192.168.0.77 >/dev/null || true");
    EXPECT_NE(test::read_text("/proc/net/arp").find("192.168.0.77 "), std::string::npos);
    EXPECT_EQ(find_ip_in_arpfile("00:00:00:00:00:00", ip), HLX_ERR);
    EXPECT_STREQ(ip, "0.0.0.0");

    const Json table = Json::answer_of("prodctl lan arp --json")["arp"];
    const Json laptop = table.where("address", address_of("lan1"));
    EXPECT_EQ(laptop["mac"].text(), kLaptop);
    EXPECT_EQ(laptop["state"].text(), "complete");
    EXPECT_EQ(laptop["interface"].text(), "br0");
    const Json nobody = table.where("address", "192.168.0.77");
    EXPECT_EQ(nobody["mac"].text(), "");
    EXPECT_EQ(nobody["state"].text(), "incomplete");
}

TEST(Leases, OnTheStatusPage)
{
    const Json clients = Json::answer_of("prodctl status --json")["clients"];
    EXPECT_EQ(clients.where("mac", kLaptop)["address"].text(), address_of("lan1"));
    EXPECT_EQ(clients.where("mac", kPhone)["hostname"].text(), "phone");
    const std::string page = must("prodctl status");
    EXPECT_NE(page.find("\nDHCP clients\n------------\n"), std::string::npos) << page;
}

}  // namespace
