// SPDX-License-Identifier: MIT
#include "prod_common_check.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/capture.hpp"
#include "support/children.hpp"
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
using test::run;
using test::write_text;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

std::string unreadable_folder;
std::function<void()> after_missing;  // what happens once a folder was not there

/** What a bridge answers when the kernel is not asked. */
struct BridgeAnswer {
    std::vector<int> ports = {};
    int result = 0;
    std::string bridge = {};  // what was asked
    unsigned long args[4] = {};
};
std::optional<BridgeAnswer> bridge_answer;

}  // namespace

extern "C" {

DIR *opendir(const char *name)
{
    if (name == unreadable_folder) {
        errno = EACCES;
        return nullptr;
    }
    static const auto real = test::next(opendir, "opendir");
    DIR *const folder = real(name);
    if (folder == nullptr && after_missing) {
        std::exchange(after_missing, nullptr)();
    }
    return folder;
}

int ioctl(int fd, unsigned long call, ...) noexcept
{
    va_list list;
    va_start(list, call);
    void *const argument = va_arg(list, void *);
    va_end(list);
    if (call == SIOCDEVPRIVATE && bridge_answer) {
        const auto *const request = static_cast<const ifreq *>(argument);
        BridgeAnswer &answer = *bridge_answer;
        answer.bridge.assign(request->ifr_name, sizeof(request->ifr_name));
        memcpy(answer.args, request->ifr_data, sizeof(answer.args));
        std::copy(answer.ports.begin(), answer.ports.end(),
                  reinterpret_cast<int *>(answer.args[1]));
        errno = EOPNOTSUPP;
        return answer.result;
    }
    static const auto real = test::next(ioctl, "ioctl");
    return real(fd, call, argument);
}
}

namespace
{

/* Files */

TEST(ProdCheckFileExist, FollowsLinks)
{
    write_text("/tmp/file", "");
    test::remove_all("/tmp/link");
    EXPECT_EQ(prod_check_file_exist("/tmp/file"), 1);
    EXPECT_EQ(prod_check_file_exist("/tmp"), 1);
    EXPECT_EQ(prod_check_file_exist("/tmp/missing"), 0);
    EXPECT_EQ(prod_check_file_exist(""), 0);
    EXPECT_EQ(prod_check_file_exist(nullptr), 0);
    ASSERT_EQ(symlink("/tmp/missing", "/tmp/link"), 0);
    EXPECT_EQ(prod_check_file_exist("/tmp/link"), 0);
}

TEST(CheckUsbdeviceWorking, ADiskNameMustBeThere)
{
    test::remove_all("/tmp/UDiskname");
    EXPECT_EQ(check_usbdevice_working(), 0);
    write_text("/tmp/UDiskname", "");
    EXPECT_EQ(check_usbdevice_working(), 0);
    write_text("/tmp/UDiskname", "sda1");
    EXPECT_EQ(printed([] { EXPECT_EQ(check_usbdevice_working(), 1); }), "");
    EXPECT_THAT(printed_at(PROD_DBG_TRACE, [] { EXPECT_EQ(check_usbdevice_working(), 1); }),
                Prints(log_line(PROD_DBG_TRACE, "check_usbdevice_working",
                                "ENTER >>> check_usbdevice_working") +
                       log_line(PROD_DBG_TRACE, "check_usbdevice_working",
                                "LEAVE <<< check_usbdevice_working")));
    test::remove_all("/tmp/UDiskname");
}

/* Processes */

TEST(ProdCheckAppExist, FindsAProcessByItsExactName)
{
    EXPECT_EQ(prod_check_app_exist("dhcpcd_wan1"), 0);
    {
        const test::NamedProcess daemon{"dhcpcd_wan1"};
        const int before = test::open_descriptors();
        EXPECT_EQ(prod_check_app_exist("dhcpcd_wan1"), 1);
        EXPECT_EQ(test::open_descriptors(), before);
        for (const char *const other : {"dhcpcd_wan", "dhcpcd_wan11", "DHCPCD_WAN1", "", " "}) {
            EXPECT_EQ(prod_check_app_exist(other), 0) << other;
        }
    }
    EXPECT_EQ(prod_check_app_exist("dhcpcd_wan1"), 0);
    EXPECT_EQ(prod_check_app_exist(nullptr), 0);
}

TEST(ProdCheckAppExist, TheKernelKeepsFifteenCharacters)
{
    const test::NamedProcess daemon{"a_long_daemon_name"};
    EXPECT_EQ(prod_check_app_exist("a_long_daemon_name"), 0);
    EXPECT_EQ(prod_check_app_exist("a_long_daemon_n"), 1);
}

TEST(ProdCheckAppExist, OddNames)
{
    const test::NamedProcess blank{"my daemon"};
    EXPECT_EQ(prod_check_app_exist("my daemon"), 1);
    const test::NamedProcess open{"a (b) c"};
    EXPECT_EQ(prod_check_app_exist("a (b"), 1);
    EXPECT_EQ(prod_check_app_exist("a (b) c"), 0);
    const test::NamedProcess unnamed{""};
    EXPECT_EQ(prod_check_app_exist(""), 0);
}

TEST(ProdCheckAppExist, WithoutProc)
{
    const test::NamedProcess daemon{"dhcpcd_wan1"};
    unreadable_folder = "/proc";
    EXPECT_EQ(prod_check_app_exist("dhcpcd_wan1"), 0);
    unreadable_folder.clear();
    EXPECT_EQ(prod_check_app_exist("dhcpcd_wan1"), 1);
}

TEST(ProdCheckAppExist, MalformedEntriesAreSkipped)
{
    const test::MountedFolder proc{"/proc", "size=1m"};
    const std::string binary{"\0\xff\x01(x) S", 7};
    write_text("/proc/1/stat", "");
    write_text("/proc/2/stat", "no number (daemon) S 1");
    write_text("/proc/3/stat", binary);
    write_text("/proc/4/stat", "4 daemon S 1");
    write_text("/proc/5/stat", "5 () S 1");
    write_text("/proc/6/stat", "6 (\n");
    write_text("/proc/7/stat", "\n7 (daemon) S 1");  // the second line does not count
    write_text("/proc/8/stat", std::string(1023, '8') + " (daemon) S 1");  // beyond the limit
    std::filesystem::create_directories("/proc/9");                        // gone meanwhile
    write_text("/proc/self/stat", "10 (daemon) S 1");                      // not a number
    write_text("/proc/11/stat", "11 (" + std::string(2000, 'x'));
    write_text("/proc/12x/stat", "12 (other) S 1");
    EXPECT_EQ(prod_check_app_exist("daemon"), 0);
    EXPECT_EQ(prod_check_app_exist(""), 0);
    EXPECT_EQ(prod_check_app_exist(std::string(1023 - 4, 'x').c_str()), 1);
    EXPECT_EQ(prod_check_app_exist("other"), 0);  // the entry's number is looked up, 12
    write_text("/proc/12/stat", "12   (daemon) S 1\n");
    EXPECT_EQ(prod_check_app_exist("daemon"), 1);
    write_text("/proc/12/stat", "12 (daemon");  // cut short
    EXPECT_EQ(prod_check_app_exist("daemon"), 1);
}

/* Mounts */

TEST(ProdCheckMountExist, LooksAnywhereInTheMountTable)
{
    const test::MountedFolder disk{"/tmp/disk"};
    EXPECT_EQ(prod_check_mount_exist("/tmp/disk"), 1);
    EXPECT_EQ(prod_check_mount_exist("tmpfs"), 1);
    EXPECT_EQ(prod_check_mount_exist("size=16k"), 1);
    EXPECT_EQ(prod_check_mount_exist("on /tmp/disk type"), 1);
    EXPECT_EQ(prod_check_mount_exist("/tmp/nodisk"), 0);
    EXPECT_EQ(prod_check_mount_exist(""), 1);
    EXPECT_EQ(prod_check_mount_exist(nullptr), 0);
}

TEST(ProdCheckMountExist, NothingInTheTextRuns)
{
    test::remove_all("/tmp/ran");
    for (const char *const text :
         {"$(touch /tmp/ran)", "`touch /tmp/ran`", "\" ; touch /tmp/ran ; \"", "; touch /tmp/ran",
          "' ; touch /tmp/ran ; '", "nosuch\ntouch /tmp/ran", "\\", "/tmp' /tmp/ran'"}) {
        EXPECT_EQ(prod_check_mount_exist(text), 0) << text;
    }
    EXPECT_FALSE(test::exists("/tmp/ran"));
}

TEST(ProdCheckMountExist, ATextIsNeverAnOption)
{
    for (const char *const text : {"-v", "-c", "--help", "-e/", "-f/proc/mounts"}) {
        EXPECT_EQ(prod_check_mount_exist(text), 0) << text;
    }
    const test::MountedFolder disk{"/tmp/my-v"};
    EXPECT_EQ(prod_check_mount_exist("-v"), 1);
    EXPECT_EQ(prod_check_mount_exist("-"), 1);
    EXPECT_EQ(prod_check_mount_exist(("-" + std::string(2307, 'd')).c_str()), 0);
    const std::string longest = "-" + std::string(104, 'd');
    const test::MountedFolder long_disk{"/tmp/my" + longest + "d"};
    EXPECT_EQ(prod_check_mount_exist(longest.c_str()), 1);
    EXPECT_EQ(prod_check_mount_exist((longest + "d").c_str()), 0) << "does not fit";
}

TEST(ProdCheckMountExist, ATextThatDoesNotFitIsNotFound)
{
    const std::string longest(107, 'd');
    const test::MountedFolder disk{"/tmp/" + longest};
    EXPECT_EQ(prod_check_mount_exist(longest.c_str()), 1);
    EXPECT_EQ(prod_check_mount_exist(("/" + longest).c_str()), 0);
    EXPECT_EQ(prod_check_mount_exist(std::string(2307, 'd').c_str()), 0);
}

/** Files of the device's USB partitions, as its daemon lays them out. */
class Partitions : public testing::Test
{
  protected:
    Partitions()
    {
        std::filesystem::create_directories("/etc/upan");
        test::remove_all("/var/etc");
        std::filesystem::create_symlink("/etc", "/var/etc");  // one folder, two paths
    }
    ~Partitions() override
    {
        test::remove_all("/var/etc");
        test::remove_all("/etc/upan");
    }
};

TEST_F(Partitions, AMountPointIsAWholeWord)
{
    const test::MountedFolder ten{"/etc/upan/sda10"};
    EXPECT_EQ(check_dir_is_mounts("sda10"), 1);
    EXPECT_EQ(check_dir_is_mounts("sda1"), 0);
    const test::MountedFolder one{"/etc/upan/sda1"};
    EXPECT_EQ(check_dir_is_mounts("sda1"), 1);
    EXPECT_EQ(check_dir_is_mounts("sda"), 0);
    EXPECT_EQ(check_dir_is_mounts(""), 0);
    EXPECT_EQ(check_dir_is_mounts("."), 0);
    EXPECT_EQ(check_dir_is_mounts(nullptr), 0);
    EXPECT_EQ(check_dir_is_mounts(std::string(2307, 'x').c_str()), 0);
}

/** What check_dir_is_mounts("sda1") says of a mount table. */
int in_table(const std::string &table)
{
    const test::MountedFolder proc{"/proc", "size=1m"};
    write_text("/proc/mounts", table);
    return check_dir_is_mounts("sda1");
}

TEST_F(Partitions, MountTables)
{
    EXPECT_EQ(in_table("/dev/sda1 /etc/upan/sda1 vfat rw 0 0\n"), 1);
    EXPECT_EQ(in_table("/dev/sda1 /etc/upan/sda1\tvfat\n"), 1);
    EXPECT_EQ(in_table("/dev/sda1 /etc/upan/sda1"), 1);
    EXPECT_EQ(in_table("a / x\n\n/dev/sda1 /etc/upan/sda1\n"), 1);
    EXPECT_EQ(in_table("/etc/upan/sda1 /mnt ext4\n"), 1);        // anywhere in the line
    EXPECT_EQ(in_table("/dev/sda1 /mnt/etc/upan/sda1 x\n"), 1);  // the word starts at the path
    EXPECT_EQ(in_table("/etc/upan/sda10 /etc/upan/sda1 vfat\n"), 1);
    EXPECT_EQ(in_table("/dev/sda1 /etc/upan/sda1x vfat\n"), 0);
    EXPECT_EQ(in_table("/dev/sda1 /etc/upan/sda1/x vfat\n"), 0);
    EXPECT_EQ(in_table("/dev/sda1 /etc/upan vfat\n"), 0);
    EXPECT_EQ(in_table(""), 0);
    EXPECT_EQ(in_table(std::string{"\0/etc/upan/sda1 \n", 17}), 0);
    EXPECT_EQ(in_table(std::string(100000, 'x')), 0);
    // 255 characters are a line; what is cut in two there is not seen.
    EXPECT_EQ(in_table(std::string(255 - 14, ' ') + "/etc/upan/sda1 vfat\n"), 1);
    EXPECT_EQ(in_table(std::string(255 - 13, ' ') + "/etc/upan/sda1 vfat\n"), 0);
    EXPECT_EQ(in_table(std::string(255, ' ') + "/etc/upan/sda1 vfat\n"), 1);
}

TEST_F(Partitions, WithoutAMountTable)
{
    const test::MountedFolder one{"/etc/upan/sda1"};
    const test::MountedFolder proc{"/proc"};
    EXPECT_EQ(check_dir_is_mounts("sda1"), 0);
}

TEST_F(Partitions, AreListedInFolderOrder)
{
    const test::MountedFolder one{"/etc/upan/sda1"};
    const test::MountedFolder two{"/etc/upan/sda2"};
    std::filesystem::create_directories("/etc/upan/sdb1");  // not mounted
    std::string expected;
    for (const auto &entry : std::filesystem::directory_iterator{"/var/etc/upan"}) {
        const std::string name = entry.path().filename();
        if (name != "sdb1") {
            expected += name + "~";
        }
    }
    const int before = test::open_descriptors();
    char out[64] = {};
    EXPECT_EQ(find_usb_partitions(out, sizeof(out)), 2);
    EXPECT_EQ(out, expected);
    EXPECT_THAT(std::string{out}, testing::AnyOf("sda1~sda2~", "sda2~sda1~"));
    EXPECT_EQ(find_usb_partitions(nullptr, 0), 2);
    EXPECT_EQ(test::open_descriptors(), before);

    strcpy(out, "before ");  // the output is not cleared
    EXPECT_EQ(find_usb_partitions(out, sizeof(out)), 2);
    EXPECT_EQ(out, "before " + expected);
}

TEST_F(Partitions, AreBoundedByTheRoomThereIs)
{
    const test::MountedFolder one{"/etc/upan/sda1"};
    const test::MountedFolder two{"/etc/upan/sda2"};
    char whole[64] = {};
    find_usb_partitions(whole, sizeof(whole));
    for (int size = 1; size <= 12; ++size) {
        char out[64];
        memset(out, '#', sizeof(out));
        out[0] = '\0';
        EXPECT_EQ(find_usb_partitions(out, size), 2);
        EXPECT_EQ(std::string{out},
                  std::string{whole}.substr(0, static_cast<std::size_t>(size - 1)));
        EXPECT_EQ(out[size], '#');
    }
    char out[4] = "###";
    EXPECT_EQ(find_usb_partitions(out, 3), 2);  // full already
    EXPECT_EQ(find_usb_partitions(out, 0), 2);
    EXPECT_EQ(find_usb_partitions(out, -1), 2);
    EXPECT_STREQ(out, "###");
}

TEST_F(Partitions, AMissingFolderGetsASecond)
{
    test::remove_all("/var/etc");
    char out[16] = {};
    {
        const test::SimulatedTime time;
        EXPECT_EQ(find_usb_partitions(out, sizeof(out)), 0);
        EXPECT_THAT(time.sleeps(), ElementsAre(1000000));
        EXPECT_STREQ(out, "");
    }
    // The slow story: the folder comes while the wait lasts.
    const test::MountedFolder one{"/etc/upan/sda1"};
    after_missing = [] { std::filesystem::create_symlink("/etc", "/var/etc"); };
    EXPECT_GE(test::seconds([&] { EXPECT_EQ(find_usb_partitions(out, sizeof(out)), 1); }), 0.99);
    EXPECT_STREQ(out, "sda1~");
}

/* Interfaces */

TEST(ProdCheckDeviceExist, AsksTheKernel)
{
    EXPECT_EQ(prod_check_device_exist("lo"), 1);
    EXPECT_EQ(prod_check_device_exist("nosuch"), 0);
    EXPECT_EQ(prod_check_device_exist(""), 0);
    EXPECT_EQ(prod_check_device_exist(nullptr), 0);
    EXPECT_EQ(prod_check_device_exist(std::string(2307, 'x').c_str()), 0);
    run("ip link add veth0 type veth peer name veth1");
    EXPECT_EQ(prod_check_device_exist("veth0"), 1);
    run("ip link del veth0");
    EXPECT_EQ(prod_check_device_exist("veth0"), 0);
}

/** A bridge "br7" with the port "veth0"; "veth1" is none of its ports. */
class Bridge : public testing::Test
{
  protected:
    Bridge()
    {
        run("ip link add br7 type bridge");
        run("ip link add veth0 type veth peer name veth1");
        run("ip link set veth0 master br7");
    }
    ~Bridge() override
    {
        bridge_answer.reset();
        run("ip link del br7");
        run("ip link del veth0");
    }

    /** Whether this kernel still answers the legacy call. */
    static bool kernel_answers()
    {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        __bridge_info info;
        unsigned long args[4] = {BRCTL_GET_BRIDGE_INFO, reinterpret_cast<unsigned long>(&info), 0,
                                 0};
        ifreq request{};
        strcpy(request.ifr_name, "br7");
        request.ifr_data = reinterpret_cast<char *>(args);
        const bool answers = ioctl(fd, SIOCDEVPRIVATE, &request) >= 0;
        close(fd);
        return answers;
    }
};

TEST_F(Bridge, ARealOne)
{
    const int before = test::open_descriptors();
    EXPECT_EQ(prod_check_device_in_bridge("veth0", "br7"), kernel_answers() ? 1 : 0);
    EXPECT_EQ(prod_check_device_in_bridge("veth1", "br7"), 0);
    EXPECT_EQ(prod_check_device_in_bridge("br7", "br7"), 0);
    EXPECT_EQ(prod_check_device_in_bridge("veth0", "nosuch"), 0);
    EXPECT_EQ(prod_check_device_in_bridge("veth0", "veth1"), 0);
    EXPECT_EQ(prod_check_device_in_bridge("veth0", ""), 0);
    EXPECT_EQ(prod_check_device_in_bridge("", "br7"), 0);
    EXPECT_EQ(prod_check_device_in_bridge(nullptr, "br7"), 0);
    EXPECT_EQ(prod_check_device_in_bridge("veth0", nullptr), 0);
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(Bridge, ThePortListIsAskedForAndWalked)
{
    const int veth0 = static_cast<int>(if_nametoindex("veth0"));
    bridge_answer = BridgeAnswer{.ports = {0, 999999, 0, veth0}, .result = 4};
    EXPECT_EQ(prod_check_device_in_bridge("veth0", "br7"), 1);
    EXPECT_EQ(bridge_answer->bridge, std::string{"br7"} + std::string(13, '\0'));
    EXPECT_EQ(bridge_answer->args[0], 7U);
    EXPECT_EQ(bridge_answer->args[2], 32U);
    EXPECT_EQ(bridge_answer->args[3], 0U);
    EXPECT_EQ(prod_check_device_in_bridge("veth1", "br7"), 0);
    EXPECT_EQ(prod_check_device_in_bridge("veth", "br7"), 0);

    std::vector<int> ports(32);
    ports[31] = veth0;
    bridge_answer = BridgeAnswer{.ports = ports};
    EXPECT_EQ(prod_check_device_in_bridge("veth0", "br7"), 1);
}

TEST_F(Bridge, AKernelThatDoesNotAnswer)
{
    const int veth0 = static_cast<int>(if_nametoindex("veth0"));
    bridge_answer = BridgeAnswer{.ports = {veth0}, .result = -1};
    EXPECT_EQ(prod_check_device_in_bridge("veth0", "br7"), 0);
}

TEST_F(Bridge, OverlongNames)
{
    bridge_answer = BridgeAnswer{};
    EXPECT_EQ(prod_check_device_in_bridge("veth0", std::string(2307, 'b').c_str()), 0);
    EXPECT_EQ(bridge_answer->bridge, std::string(15, 'b') + '\0');
}

/* Rule texts */

/** The rule after a change. */
std::string changed(const std::string &rule, const char *delimiters, int index,
                    const std::string &item)
{
    char text[PROD_RULE_SIZE + 1];
    memset(text, '#', sizeof(text));
    strcpy(text, rule.c_str());
    EXPECT_EQ(printed([&] { check_modify_item_in_rule(text, delimiters, index, item.c_str()); }),
              "");
    EXPECT_EQ(text[PROD_RULE_SIZE], '#');
    return text;
}

TEST(CheckModifyItemInRule, ReplacesAnItem)
{
    EXPECT_EQ(changed("a;b;c", ";", 1, "x"), "a;x;c");
    EXPECT_EQ(changed("a;b;c", ";", 0, "long"), "long;b;c");
    EXPECT_EQ(changed("a;b;c", ";", 2, "x"), "a;b;x");
    EXPECT_EQ(changed("alpha;beta;c", ";", 1, "x"), "alpha;x;c");
    EXPECT_EQ(changed("a", ";", 0, "x"), "x");
    EXPECT_EQ(changed("a,b;c", ";,", 1, "x"), "a,x;c");
    EXPECT_EQ(changed("a;b;c", "", 0, "x"), "x");
}

TEST(CheckModifyItemInRule, EmptyItemsDoNotCount)
{
    EXPECT_EQ(changed(";;a;;b;", ";", 1, "x"), ";;a;;x;");
    EXPECT_EQ(changed(";;a;;b;", ";", 0, "x"), ";;x;;b;");
}

TEST(CheckModifyItemInRule, AnEmptyItemGoesWithItsDelimiter)
{
    EXPECT_EQ(changed("a;b;c", ";", 1, ""), "a;c");
    EXPECT_EQ(changed("a;b;c", ";", 0, ""), "b;c");
    EXPECT_EQ(changed("a;b;c", ";", 2, ""), "a;b;");  // no delimiter after the last
    EXPECT_EQ(changed("a;;c", ";", 0, ""), ";c");
    EXPECT_EQ(changed("a", ";", 0, ""), "");
}

TEST(CheckModifyItemInRule, BeyondTheLastItemNothingChanges)
{
    EXPECT_EQ(changed("a;b;c", ";", 5, "x"), "a;b;c");
    EXPECT_EQ(changed("a;b;c", ";", 3, ""), "a;b;c");
    EXPECT_EQ(changed("a;b;c", ";", INT_MAX, "x"), "a;b;c");
    EXPECT_EQ(changed("", ";", 0, "x"), "");
    EXPECT_EQ(changed(";;;", ";", 0, "x"), ";;;");
}

TEST(CheckModifyItemInRule, BadArguments)
{
    char rule[PROD_RULE_SIZE] = "a;b;c";
    const auto arg_is_null =
        Prints(log_line(PROD_DBG_ERROR, "check_modify_item_in_rule", "arg is null."));
    EXPECT_THAT(printed([] { check_modify_item_in_rule(nullptr, ";", 0, "x"); }), arg_is_null);
    EXPECT_THAT(printed([&] { check_modify_item_in_rule(rule, nullptr, 0, "x"); }), arg_is_null);
    EXPECT_THAT(printed([&] { check_modify_item_in_rule(rule, ";", -1, nullptr); }), arg_is_null);
    EXPECT_THAT(printed([&] { check_modify_item_in_rule(rule, ";", -1, "x"); }),
                Prints(log_line(PROD_DBG_ERROR, "check_modify_item_in_rule", "index is error.")));
    EXPECT_STREQ(rule, "a;b;c");
}

TEST(CheckModifyItemInRule, TheRuleStaysWithinItsBuffer)
{
    const std::string longest(2307 - 4, 'y');
    EXPECT_EQ(changed("a;b;" + longest, ";", 1, "xyz"), "a;xyz;" + longest.substr(2));
    EXPECT_EQ(changed("a;b;" + longest, ";", 2, "z"), "a;b;z");
    EXPECT_EQ(changed("a;b;c", ";", 1, test::longest_value()), "a;" + std::string(2305, 'x'));
    EXPECT_EQ(changed("a;b;c", ";", 2, std::string(5000, 'x')), "a;b;" + std::string(2303, 'x'));
}

TEST(CheckModifyItemInRule, OfALongerRuleOnly2307CharactersCount)
{
    char rule[4000];
    memset(rule, 'y', sizeof(rule));  // no end anywhere
    memcpy(rule, "aaa;", 4);
    check_modify_item_in_rule(rule, ";", 0, "x");
    EXPECT_EQ(std::string{rule}, "x;" + std::string(2307 - 4, 'y'));
    EXPECT_EQ(rule[PROD_RULE_SIZE], 'y');
}

TEST(CheckModifyItemInRule, TheItemMayBePartOfTheRule)
{
    char rule[PROD_RULE_SIZE] = "a;b;c";
    check_modify_item_in_rule(rule, ";", 0, rule + 2);
    EXPECT_STREQ(rule, "b;c;b;c");
}

/* Stored times */

constexpr const char *kKey = "sys.list.timestamp";

class UpdateTimestamps : public testing::Test
{
  protected:
    /** What a stored time becomes. */
    static std::string after(const std::string &stored)
    {
        config()[kKey] = stored;
        update_timestamps(kKey);
        EXPECT_EQ(test::committed_config()[kKey], config()[kKey]);
        return config()[kKey];
    }

    test::FreshConfig config_;
    test::SimulatedTime time_{1700000000};
};

TEST_F(UpdateTimestamps, MovesToNowAndTwo)
{
    config()["sys.timezone"] = "12";
    EXPECT_EQ(after("5"), "1700000002");
    EXPECT_EQ(after(""), "1700000002");
    EXPECT_EQ(after("no number"), "1700000002");
    EXPECT_EQ(after("-1"), "1700000002");
    config().erase(kKey);
    update_timestamps(kKey);
    EXPECT_EQ(config()[kKey], "1700000002");
}

TEST_F(UpdateTimestamps, NeverGoesBack)
{
    config()["sys.timezone"] = "12";
    EXPECT_EQ(after("1700000000"), "1700000002");
    EXPECT_EQ(after("1699999999"), "1700000002");
    EXPECT_EQ(after("1700000001"), "1700000003");
    EXPECT_EQ(after("9000000000"), "9000000002");
    EXPECT_EQ(after("9223372036854775806"), "9223372036854775808");
}

TEST_F(UpdateTimestamps, CountsInTheDevicesZone)
{
    config()["sys.timezone"] = "20";
    EXPECT_EQ(after("0"), std::to_string(1700000002 - 8 * 3600));
    config()["sys.timezone"] = "4";
    EXPECT_EQ(after("0"), std::to_string(1700000002 + 8 * 3600));
    config().erase("sys.timezone");  // 0
    EXPECT_EQ(after("0"), std::to_string(1700000002 + 12 * 3600));
}

TEST_F(UpdateTimestamps, StoresOnceAndCommitsOnce)
{
    test::config_calls() = {};
    after("0");
    EXPECT_EQ(test::config_calls().writes, 1);
    EXPECT_EQ(test::config_calls().commits, 1);
    update_timestamps(nullptr);
    EXPECT_EQ(test::config_calls().writes, 1);
    EXPECT_EQ(test::config_calls().commits, 1);
}

TEST_F(UpdateTimestamps, OversizedValues)
{
    EXPECT_EQ(after("99999999999999999999"), "9223372036854775809");
    const test::EveryKeyReads any{test::longest_value('1')};
    update_timestamps(kKey);
    EXPECT_EQ(config()[kKey], "9223372036854775809");
}

}  // namespace
