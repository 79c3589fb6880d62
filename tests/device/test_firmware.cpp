// SPDX-License-Identifier: MIT
// Firmware upgrades on the whole device. A story goes on after a restart: the same test runs again,
// with PROD_BOOT counting the starts, and finds what the one before has left in /cfg.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "internal/daemons.hpp"
#include "platform/firmware.h"
#include "platform/process.h"
#include "prod_common_flash.h"
#include "stories.hpp"
#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/image.hpp"
#include "support/interpose.hpp"

using story::must;
using test::exists;
using test::firmware_image;
using test::noise;
using test::read_text;
using test::remove_all;
using test::write_text;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr const char *kFlash = "/cfg/flash/firmware";
constexpr int kWans = 2;

constexpr const char *kCutAt = "/tmp/cut_at";
int steps_to_go = -1;  // this process is killed in front of the step behind them; negative: never

/** A step of the upgrade in front of its writer. */
void step(const char *what)
{
    if (steps_to_go >= 0 && steps_to_go-- == 0) {
        write_text(kCutAt, what);
        kill(getpid(), SIGKILL);
    }
}

}  // namespace

extern "C" int system(const char *command)
{
    step(command);
    return test::next(system, "system")(command);
}

extern "C" int monitor_stop(const char *process_name)
{
    step(process_name);
    return test::next(monitor_stop, "monitor_stop")(process_name);
}

namespace
{

int boot()
{
    return atoi(getenv("PROD_BOOT"));
}

/**
 * Has a command restart the device; a story that gets to the end of this has failed. One that has
 * failed before does not restart it, since the next boot would not know.
 */
void restart_by(const std::string &command)
{
    ASSERT_FALSE(testing::Test::HasFailure());
    must(command);
    sleep(60);
    FAIL() << "the device does not restart";
}

/**
 * Starts a daemon of that name, which tells in /cfg/stops when it is asked to end. The kernel names
 * a process after the file that it was started from.
 */
void start_daemon(const std::string &name)
{
    must("mkdir -p /tmp/daemons; ln -sf /bin/busybox /tmp/daemons/" + name);
    must("(exec -a sh /tmp/daemons/" + name + " -c 'trap \"kill \\$!; echo " + name +
         " >>/cfg/stops; exit\" TERM; sleep 1000 & touch /tmp/daemons/" + name +
         ".up; wait' </dev/null >/dev/null 2>&1 &)");
}

void daemons_are_up(const std::vector<std::string> &names)
{
    for (const std::string &name : names) {
        story::eventually(name + " is up", [&] { return exists("/tmp/daemons/" + name + ".up"); });
    }
}

/** What an upgrade stops, in order. */
std::vector<std::string> daemons_of_the_list()
{
    std::vector<std::string> names{prod::kMultiWanManager};
    for (int wan = 1; wan <= kWans; ++wan) {
        for (const char *const name : prod::kWanDaemons) {
            names.push_back(std::string{name} + "_wan" + std::to_string(wan));
        }
    }
    names.insert(names.end(), std::begin(prod::kDaemons), std::end(prod::kDaemons));
    return names;
}

std::string lines(const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names) {
        text += name + "\n";
    }
    return text;
}

bool is_up(const char *ifname)
{
    const std::string flags = read_text(std::string{"/sys/class/net/"} + ifname + "/flags");
    return (strtol(flags.c_str(), nullptr, 16) & 1) != 0;
}

/** The IMS daemon: starts the upgrade, answers its client, and goes on living. */
[[noreturn]] void be_imsd()
{
    prctl(PR_SET_NAME, "imsd");
    setenv("PATH", ("/tmp/bin:" + std::string{getenv("PATH")}).c_str(), 1);
    write_text("/cfg/answer", std::to_string(prod_upgrade_image_to_flash()));
    for (;;) {
        pause();
    }
}

TEST(Firmware, AnUpgradeFromAGoodImage)
{
    if (boot() == 1) {
        const pid_t imsd = fork();  // before this process asks for its own name
        if (imsd == 0) {
            while (!exists("/tmp/go")) {
                usleep(10000);
            }
            be_imsd();
        }
        ASSERT_EQ(must("cfm get wans.flag"), std::to_string(kWans) + "\n");
        must("cfm set sys.name upgraded && cfm commit");
        const std::string image = firmware_image(noise(3000000), "virtual-router 2.0");
        write_text("/cfg/expected", image);
        write_text(PROD_FW_IMAGE, image);
        std::vector<std::string> names = daemons_of_the_list();
        names.insert(names.end(), {"httpd", "skyrelctl", "appmgr"});
        for (const std::string &name : names) {
            start_daemon(name);
        }
        daemons_are_up(names);
        ASSERT_TRUE(is_up("br0"));
        // Looks around when the writer is started, and lets it do its work.
        test::write_script("/tmp/bin/upgrade",
                           "{ echo \"$@\"; cat /sys/class/net/br0/flags; cat /proc/[0-9]*/comm; } "
                           ">/cfg/seen 2>/dev/null\n"
                           "exec /usr/bin/upgrade \"$@\" >/cfg/console 2>&1\n");
        restart_by("touch /tmp/go");
    }
    std::vector<std::string> names = daemons_of_the_list();
    names.insert(names.end(), {"httpd", "skyrelctl", "appmgr"});
    EXPECT_EQ(read_text("/cfg/stops"), lines(names));
    EXPECT_EQ(read_text("/cfg/answer"), "0");
    const std::string seen = read_text("/cfg/seen");
    EXPECT_EQ(seen.substr(0, seen.find('\n')), "2 /var/image " + test::own_name("imsd"));
    EXPECT_THAT(seen, HasSubstr("\n0x1002\n"));  // the bridge: broadcast, multicast, not up
    EXPECT_THAT(seen, HasSubstr("\nimsd\n"));
    for (const std::string &name : names) {
        EXPECT_THAT(seen, Not(HasSubstr("\n" + name.substr(0, 15) + "\n")));
    }
    EXPECT_THAT(read_text("/cfg/console"), HasSubstr("written and read back"));
    EXPECT_EQ(read_text(kFlash), read_text("/cfg/expected"));
    // And it is a device like any other again.
    EXPECT_FALSE(exists(PROD_FW_IMAGE));
    EXPECT_TRUE(is_up("br0"));
    EXPECT_EQ(must("cfm get sys.name"), "upgraded\n");
    EXPECT_THAT(must("prodctl wan status 1"), HasSubstr("connected"));
}

TEST(Firmware, BadImagesAreRefusedBeforeAnyDaemonIsStopped)
{
    const std::string good = firmware_image(noise(100000));
    std::string header = good;
    header[8] = static_cast<char>(header[8] ^ 1);
    std::string contents = good;
    contents[5000] = static_cast<char>(contents[5000] ^ 1);
    enum class Left { kKept, kDeleted, kKeptWithMarker };
    const struct {
        const char *what;
        std::string image;
        Left left;
        off_t size = 0;  // when it is longer than that
    } kCases[] = {
        {"empty", "", Left::kKept},
        {"header damaged", header, Left::kKept},
        {"contents damaged", contents, Left::kKept},
        {"cut short", good.substr(0, 50000), Left::kKept},
        {"something behind it", good + "x", Left::kKept},
        {"no image", noise(100000), Left::kKeptWithMarker},
        {"a bundle", firmware_image("x", test::kImageForThisBoard, "multi"), Left::kKeptWithMarker},
        {"a root file system", firmware_image("x", test::kImageForThisBoard, "ramdisk"),
         Left::kKeptWithMarker},
        {"for another board", firmware_image("x", "another-router"), Left::kKeptWithMarker},
        {"too large for the flash", firmware_image(std::string(33554432, 'x')), Left::kDeleted},
        {"too large for any device", good, Left::kKept, PROD_FW_LARGEST + 1},
    };
    const std::vector<std::string> daemons{"multiwan", "telnetd", "httpd", "imsd", "mesh_manager"};
    for (const std::string &name : daemons) {
        start_daemon(name);
    }
    daemons_are_up(daemons);
    for (const bool marker : {false, true}) {
        marker ? write_text(PROD_FW_KEEP_MARKER, "") : remove_all(PROD_FW_KEEP_MARKER);
        for (const auto &kCase : kCases) {
            SCOPED_TRACE(kCase.what);
            write_text(PROD_FW_IMAGE, kCase.image);
            ASSERT_EQ(kCase.size > 0 ? truncate(PROD_FW_IMAGE, kCase.size) : 0, 0);
            EXPECT_EQ(prod_upgrade_image_to_flash(), -1);
            EXPECT_EQ(exists(PROD_FW_IMAGE),
                      kCase.left == Left::kKept || (kCase.left == Left::kKeptWithMarker && marker));
        }
        remove_all(PROD_FW_IMAGE);
        EXPECT_EQ(prod_upgrade_image_to_flash(), -1);
    }
    for (const std::string &name : daemons) {
        EXPECT_NE(monitor_check_exist(name.c_str()), 0) << name;
    }
    EXPECT_FALSE(exists("/cfg/stops"));
    EXPECT_TRUE(is_up("br0"));
    EXPECT_EQ(read_text(kFlash), "");
    EXPECT_EQ(boot(), 1);
}

TEST(Firmware, AnUpgradeByTheTool)
{
    if (boot() == 1) {
        write_text("/cfg/new.img", firmware_image(noise(1000000)));
        EXPECT_EQ(must("prodctl firmware check /cfg/new.img --json"),
                  "{\"file\":\"/cfg/new.img\",\"size\":1000064,\"type\":2,\"valid\":true}\n");
        // Telnet takes the terminal with it.
        must(
            "ln -s /bin/busybox /tmp/telnetd; (exec -a sh /tmp/telnetd -c 'trap \"killall -HUP "
            "prodctl; killall -INT prodctl; killall -TERM prodctl; killall -PIPE prodctl; "
            "touch /cfg/hung_up; exit\" TERM; sleep 1000 & wait' </dev/null >/dev/null 2>&1 &)");
        story::eventually("telnet is up", [] { return monitor_check_exist("telnetd") != 0; });
        restart_by("(prodctl firmware write /cfg/new.img >/cfg/console 2>&1 &)");
    }
    EXPECT_TRUE(exists("/cfg/hung_up"));
    EXPECT_EQ(read_text(kFlash), read_text("/cfg/new.img"));
    EXPECT_THAT(read_text("/cfg/console"), HasSubstr("asked for by prodctl\n"));
    EXPECT_EQ(must("prodctl firmware check /cfg/flash/firmware"),
              "/cfg/flash/firmware 1000064 bytes, type flash can be written\n");
}

TEST(Firmware, AnUpgradeCutInFrontOfItsWriter)
{
    if (boot() == 1) {
        const std::string old = firmware_image(noise(100000), "virtual-router old");
        ASSERT_EQ(must("cfm get wans.flag"), std::to_string(kWans) + "\n");
        must("cfm set sys.name kept && cfm commit");
        write_text("/cfg/old", old);
        write_text(kFlash, old);
        write_text(PROD_FW_IMAGE, firmware_image(noise(150000)));
        std::vector<std::string> steps = daemons_of_the_list();
        steps.insert(steps.begin(), "echo disable > /proc/watchdog");
        steps.insert(steps.end(), {"httpd", "skyrelctl", "appmgr", "ifconfig br0 down",
                                   "upgrade 2 /var/image " + test::own_name("imsd")});
        for (std::size_t i = 0; i < steps.size(); ++i) {
            SCOPED_TRACE(steps[i]);
            const pid_t imsd = test::start([i] {  // before this process asks for its own name
                prctl(PR_SET_NAME, "imsd");
                steps_to_go = static_cast<int>(i);
                prod_systool_write_image(nullptr);
            });
            ASSERT_EQ(test::status_of(imsd), 128 + SIGKILL);
            ASSERT_EQ(read_text(kCutAt), steps[i]);
            ASSERT_TRUE(read_text(kFlash) == old);
            ASSERT_EQ(must("cfm get sys.name"), "kept\n");
            ASSERT_EQ(is_up("br0"), i + 1 < steps.size());
        }
        // Somebody pulls the plug of what is left.
        restart_by("reboot");
    }
    EXPECT_TRUE(read_text(kFlash) == read_text("/cfg/old"));
    EXPECT_EQ(must("cfm get sys.name"), "kept\n");
    EXPECT_TRUE(is_up("br0"));
    EXPECT_THAT(must("prodctl wan status 1"), HasSubstr("connected"));
}

TEST(Firmware, AWriterCutAtEachStep)
{
    constexpr int kSteps = 11;
    if (boot() == 1) {
        write_text("/cfg/old", firmware_image(noise(100000), "virtual-router old"));
        write_text("/cfg/new", firmware_image(noise(150000)));
        must("cp /cfg/old /cfg/flash/firmware");
        must("cfm set sys.name kept && cfm commit");
    } else {
        // Whatever the step, the device has booted, with its settings, and knows what it has.
        EXPECT_EQ(must("cfm get sys.name"), "kept\n");
        EXPECT_THAT(must("prodctl wan status 1"), HasSubstr("connected"));
        const std::string flash = read_text(kFlash);
        const std::string old = read_text("/cfg/old");
        const std::string image = read_text("/cfg/new");
        const int status = story::run("prodctl firmware check /cfg/flash/firmware").status;
        EXPECT_EQ(status, flash == old || flash == image ? 0 : 1);
        write_text("/cfg/outcomes", read_text("/cfg/outcomes") + (flash == old     ? 'o'
                                                                  : flash == image ? 'n'
                                                                                   : '-'));
    }
    if (boot() == kSteps + 2) {
        EXPECT_EQ(read_text("/cfg/outcomes"), "oo-------nnn");
    } else {
        must("cp /cfg/new " PROD_FW_IMAGE);
        // The last time nothing cuts it, and it restarts the device itself.
        restart_by(
            "LD_PRELOAD=" FLASH_FAULTS " ASAN_OPTIONS=verify_asan_link_order=0 FLASH_FAULT='kill " +
            std::to_string(boot()) + "' upgrade 2 /var/image story >/dev/null 2>&1 || reboot");
    }
}

}  // namespace
