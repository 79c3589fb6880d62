// SPDX-License-Identifier: MIT
// The groups system, led, check and str.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "platform/cfm.h"
#include "prod_common_system.h"
#include "prod_common_time.h"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/sockets.hpp"
#include "tool.hpp"

using test::answer;
using test::FileHolds;
using test::Outcome;
using test::prodctl;
using test::refuses;
using test::Words;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

using System = test::Fresh;
using Led = test::Fresh;
using Check = test::Fresh;
using Str = test::Fresh;

// ---- modes and clocks -------------------------------------------------------------------------

TEST_F(System, Mode)
{
    const struct {
        const char *mode;
        const char *work_mode;
        const char *radios;
        const char *json;
    } kModes[] = {
        {"1", "router", "ap",
         "{\"mode\":1,\"mode_name\":\"adsl-gateway\",\"work_mode\":\"router\"}\n"},
        {"2", "ap", "ap", "{\"mode\":2,\"mode_name\":\"adsl-bridge\",\"work_mode\":\"ap\"}\n"},
        {"3", "router", "wisp", "{\"mode\":3,\"mode_name\":\"gateway\",\"work_mode\":\"wisp\"}\n"},
        {"3", "router", "apclient",
         "{\"mode\":3,\"mode_name\":\"gateway\",\"work_mode\":\"apclient\"}\n"},
        {nullptr, "nonesuch", "nonesuch",
         "{\"mode\":4,\"mode_name\":\"not set\",\"work_mode\":\"router\"}\n"},
        {"77", "router", "ap",
         "{\"mode\":77,\"mode_name\":\"unknown\",\"work_mode\":\"router\"}\n"},
    };
    for (const auto &mode : kModes) {
        mode.mode != nullptr ? SetValue("sys.mode", mode.mode) : UnSetValue("sys.mode");
        SetValue("sys.workmode", mode.work_mode);
        SetValue("wlan0_workmode", mode.radios);
        SetValue("wlan1_workmode", mode.radios);
        EXPECT_EQ(prodctl({"system", "mode", "--json"}), (Outcome{0, mode.json, ""}));
    }
    EXPECT_EQ(prodctl({"system", "mode"}).out,
              "  system mode  unknown (77)\n  work mode    router\n");
}

TEST_F(System, Uptime)
{
    const int before = get_sys_uptime();
    const test::Json uptime = answer(prodctl({"system", "uptime", "--json"}));
    const int seconds = cJSON_GetObjectItem(uptime.get(), "uptime")->valueint;
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, get_sys_uptime());
    EXPECT_THAT(prodctl({"system", "uptime"}).out,
                testing::MatchesRegex("[0-9]+ s \\(.*[0-9]+ s\\)\n"));
}

TEST_F(System, Time)
{
    EXPECT_THAT(prodctl({"system", "time"}).out,
                testing::MatchesRegex("[0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+\n"));
    EXPECT_EQ(prodctl({"system", "time", "--at", "1000000000"}).out, "2001-09-09 01:46:40\n");
    const u64 before = get_now_ms();
    const Outcome outcome = prodctl({"system", "time", "--at=0", "--json"});
    EXPECT_THAT(
        outcome.out,
        StartsWith("{\"time\":\"1970-01-01 00:00:00\",\"date\":\"1970-01-01\",\"zone\":\"\","
                   "\"monotonic_ms\":"));
    const double now = cJSON_GetObjectItem(answer(outcome).get(), "monotonic_ms")->valuedouble;
    EXPECT_GE(now, static_cast<double>(before));
    EXPECT_LE(now, static_cast<double>(get_now_ms()));
    for (const char *const at : {"-1", "2147483648", "now", ""}) {
        refuses({"system", "time", "--at", at}, "prodctl system time",
                std::string{"--at: '"} + at + "' is no number from 0 to 2147483647");
    }
}

TEST_F(System, TimeInTheConfiguredZone)
{
    test::remove_all("/etc/localtime");
    ASSERT_EQ(SetValue("sys.timezone.offset", "28800"), 1);
    const Outcome outcome =
        prodctl({"system", "time", "--zone-from-config", "--at", "1000000000", "--json"});
    EXPECT_THAT(outcome.out, StartsWith("{\"time\":\"2001-09-09 09:46:40\",\"date\":\"2001-09-09\","
                                        "\"zone\":\"GMT-8\""));
    struct stat link;
    EXPECT_EQ(lstat("/etc/localtime", &link), 0) << "the device's zone is set too";
    test::remove_all("/etc/localtime");
}

// ---- watchdog ---------------------------------------------------------------------------------

TEST_F(System, TheWatchdogPassesLinesOn)
{
    const std::string lines = "first\n\nlast, without an end";
    EXPECT_EQ(prodctl({"system", "watchdog", "5"}, lines), (Outcome{0, lines, ""}));
    EXPECT_EQ(prodctl({"system", "watchdog", "5", "--json"}, lines),
              (Outcome{0, "{\"lines\":3}\n", ""}));
    EXPECT_EQ(prodctl({"system", "watchdog", "5"}, ""), (Outcome{0, "", ""}));
}

TEST_F(System, TheWatchdogBarksWhenNothingComes)
{
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    ASSERT_EQ(write(input[1], "alive\n", 6), 6);
    const Outcome outcome =
        prodctl({"system", "watchdog", "1"}, "", [&] { dup2(input[0], STDIN_FILENO); });
    EXPECT_EQ(outcome.status, PROD_WATCHDOG_STATUS);
    EXPECT_EQ(outcome.out, "alive\n");
    EXPECT_THAT(outcome.err, HasSubstr("(prodctl) barked."));
    close(input[0]);
    close(input[1]);
}

TEST_F(System, EachLineFeedsTheWatchdog)
{
    int input[2];
    ASSERT_EQ(pipe(input), 0);
    std::thread daemon{[&] {
        for (int i = 0; i < 4; ++i) {
            usleep(800000);  // four of these are longer than the time-out
            EXPECT_EQ(write(input[1], ".\n", 2), 2);
        }
        close(input[1]);
    }};
    const Outcome outcome = prodctl({"system", "watchdog", "3"}, "", [&] {
        dup2(input[0], STDIN_FILENO);
        close(input[0]);
        close(input[1]);
    });
    daemon.join();
    EXPECT_EQ(outcome, (Outcome{0, ".\n.\n.\n.\n", ""}));
    close(input[0]);
}

TEST_F(System, TheWatchdogRefuses)
{
    for (const char *const timeout : {"0", "-1", "86401", "soon", ""}) {
        refuses({"system", "watchdog", timeout}, "prodctl system watchdog",
                std::string{"'"} + timeout + "' is no number of seconds from 1 to 86400");
    }
}

// ---- names and other daemons ------------------------------------------------------------------

TEST_F(System, Resolve)
{
    const FileHolds hosts{"/etc/hosts", "192.0.2.7 printer.lan\n"};
    EXPECT_EQ(prodctl({"system", "resolve", "printer.lan"}), (Outcome{0, "192.0.2.7\n", ""}));
    EXPECT_EQ(prodctl({"system", "resolve", "printer.lan", "--json"}).out,
              "{\"name\":\"printer.lan\",\"address\":\"192.0.2.7\"}\n");
    const Outcome outcome = prodctl({"system", "resolve", "nonesuch.invalid", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "{\"error\":\"nonesuch.invalid has no IPv4 address\"}\n");
    EXPECT_EQ(prodctl({"system", "resolve", ""}).status, 1);
}

/** A daemon that answers one request with a text behind its length. */
class OneAnswer
{
  public:
    OneAnswer(const std::string &text, unsigned int length)
        : daemon_("/tmp/daemon", [this, text, length](int peer) {
              unsigned int size = 0;
              char bytes[64] = "";
              EXPECT_EQ(recv(peer, &size, sizeof(size), MSG_WAITALL), 4);
              EXPECT_EQ(recv(peer, bytes, size, MSG_WAITALL), static_cast<ssize_t>(size));
              request_ = bytes;
              send(peer, &length, sizeof(length), MSG_NOSIGNAL);
              send(peer, text.data(), text.size(), MSG_NOSIGNAL);
          })
    {
    }
    std::string request()
    {
        daemon_.join();
        return request_;
    }

  private:
    std::string request_;
    test::Daemon daemon_;
};

TEST_F(System, Request)
{
    OneAnswer first{"fine, thanks", 12};
    EXPECT_EQ(prodctl({"system", "request", "/tmp/daemon", "how are you"}),
              (Outcome{0, "fine, thanks\n", ""}));
    EXPECT_EQ(first.request(), "how are you");
    OneAnswer second{"\"fine\"\n", 7};
    EXPECT_EQ(prodctl({"system", "request", "/tmp/daemon", "x", "--timeout", "2", "--json"}),
              (Outcome{0, "{\"response\":\"\\\"fine\\\"\\n\"}\n", ""}));
    EXPECT_EQ(second.request(), "x");
}

TEST_F(System, RequestsWithoutAResponse)
{
    {
        const OneAnswer too_long{"x", 512};
        EXPECT_EQ(prodctl({"system", "request", "/tmp/daemon", "x"}).status, 1);
    }
    {
        const OneAnswer lies{"", 0x7fffffff};
        EXPECT_EQ(prodctl({"system", "request", "/tmp/daemon", "x", "--json"}).out,
                  "{\"error\":\"/tmp/daemon gave no answer\"}\n");
    }
    const Outcome nobody = prodctl({"system", "request", "/tmp/nonesuch", "x"});
    EXPECT_EQ(nobody.status, 1);
    EXPECT_THAT(nobody.err, HasSubstr("prodctl system request: /tmp/nonesuch gave no answer\n"));
    refuses({"system", "request", "/tmp/daemon", "x", "--timeout", "0"}, "prodctl system request",
            "--timeout: '0' is no number from 1 to 86400");
}

// ---- LEDs -------------------------------------------------------------------------------------

std::string brightness(const std::string &led)
{
    std::string text = test::read_text("/var/leds/" + led + "/brightness");
    std::erase(text, '\n');
    return text;
}

TEST_F(Led, ShowAndSet)
{
    EXPECT_EQ(prodctl({"led", "set", "sys", "on"}), (Outcome{0, "LED  PATTERN\nsys  on\n", ""}));
    EXPECT_EQ(brightness("sys"), "255");
    EXPECT_EQ(prodctl({"led", "show", "sys", "--json"}),
              (Outcome{0, "{\"leds\":[{\"name\":\"sys\",\"pattern\":\"on\"}]}\n", ""}));
    EXPECT_EQ(prodctl({"led", "set", "sys", "off", "--json"}).out,
              "{\"leds\":[{\"name\":\"sys\",\"pattern\":\"off\"}]}\n");
    EXPECT_EQ(brightness("sys"), "0");
    EXPECT_THAT(prodctl({"led", "show"}).out, StartsWith("LED  PATTERN\nsys  off\n"));
    EXPECT_EQ(prodctl({"led", "set", "24g", "blink"}).out, "LED  PATTERN\n24g  blink\n");
}

TEST_F(Led, Groups)
{
    ASSERT_EQ(prodctl({"led", "set", "all", "on"}).status, 0);
    for (const char *const led : {"sys", "usb", "lan", "wan", "wlan24"}) {
        EXPECT_EQ(brightness(led), "255") << led;
    }
    ASSERT_EQ(prodctl({"led", "set", "all", "off"}).status, 0);
    EXPECT_EQ(brightness("sys"), "0");
    ASSERT_EQ(prodctl({"led", "set", "5g", "off"}).status, 0);
    EXPECT_THAT(
        prodctl({"led", "set", "wifi", "on", "--json"}).out,
        HasSubstr("{\"name\":\"24g\",\"pattern\":\"on\"},{\"name\":\"5g\",\"pattern\":\"on\"}"));
    ASSERT_EQ(prodctl({"led", "set", "wifi", "off"}).status, 0);
    EXPECT_EQ(brightness("wlan5"), "0");

    for (const auto &[key, value] : {std::pair{"wlan0_band", "2"},
                                     {"wlan1_band", "5"},
                                     {"wlan0.0_bss_enable", "0"},
                                     {"wlan1.0_bss_enable", "1"}}) {
        ASSERT_EQ(SetValue(key, value), 1);
    }
    EXPECT_THAT(
        prodctl({"led", "set", "wifi", "auto", "--json"}).out,
        HasSubstr("{\"name\":\"24g\",\"pattern\":\"off\"},{\"name\":\"5g\",\"pattern\":\"on\"}"));
}

TEST_F(Led, WrongNamesAndPatterns)
{
    const std::string leds = "sys, wps, 24g, 5g, usb, lan, wan, red, blue or green";
    refuses({"led", "show", "nose"}, "prodctl led show", "'nose' is no LED: " + leds);
    refuses({"led", "show", "all"}, "prodctl led show", "'all' is no LED: " + leds);
    refuses({"led", "set", "nose", "on"}, "prodctl led set", "'nose' is no LED: " + leds);
    refuses({"led", "set", "sys", "dim"}, "prodctl led set",
            "'dim' is no pattern: on, off, blink, normal, force-on or force-off");
    refuses({"led", "set", "all", "blink"}, "prodctl led set",
            "'all' is set on or off, not 'blink'");
    refuses({"led", "set", "wifi", "blink"}, "prodctl led set",
            "'wifi' is set on or off or auto, not 'blink'");
}

TEST_F(Led, ThatTheBoardHasNot)
{
    EXPECT_EQ(prodctl({"led", "show", "red", "--json"}),
              (Outcome{1, "{\"error\":\"the board has no LED red\"}\n",
                       "prodctl led show: the board has no LED red\n"}));
    EXPECT_EQ(prodctl({"led", "set", "red", "on"}),
              (Outcome{1, "", "prodctl led set: the board cannot set LED red to on\n"}));
    const FileHolds board{"/etc/board.json", "{}"};
    EXPECT_EQ(prodctl({"led", "show"}), (Outcome{0, "The board has no LED.\n", ""}));
    EXPECT_EQ(prodctl({"led", "show", "--json"}).out, "{\"leds\":[]}\n");
}

// ---- checks -----------------------------------------------------------------------------------

void yes(const Words &question)
{
    EXPECT_EQ(prodctl(question), (Outcome{0, "yes\n", ""}));
    Words json = question;
    json.push_back("--json");
    EXPECT_EQ(prodctl(json), (Outcome{0, "{\"result\":true}\n", ""}));
}

void no(const Words &question)
{
    EXPECT_EQ(prodctl(question), (Outcome{1, "no\n", ""}));
    Words json = question;
    json.push_back("--json");
    EXPECT_EQ(prodctl(json), (Outcome{1, "{\"result\":false}\n", ""}));
}

TEST_F(Check, File)
{
    yes({"check", "file", "/etc"});
    no({"check", "file", "/nonesuch"});
    no({"check", "file", ""});
    no({"check", "file", std::string(5000, 'x')});
}

TEST_F(Check, App)
{
    yes({"check", "app", "prodctl"});
    no({"check", "app", "prodct"});
    no({"check", "app", ""});
}

TEST_F(Check, Mount)
{
    yes({"check", "mount", "on /proc type proc"});
    no({"check", "mount", "on /nonesuch"});
    no({"check", "mount", "$(touch /tmp/ran)"});
    EXPECT_FALSE(test::exists("/tmp/ran"));
    const std::string complaint = "the text holds a single quote or more than 107 characters";
    refuses({"check", "mount", "'; touch /tmp/ran; '"}, "prodctl check mount", complaint);
    EXPECT_FALSE(test::exists("/tmp/ran"));
    no({"check", "mount", std::string(107, 'x')});
    refuses({"check", "mount", std::string(108, 'x')}, "prodctl check mount", complaint);
    EXPECT_EQ(prodctl({"check", "mount", "--", '-' + std::string(104, 'x')}).out, "no\n");
    refuses({"check", "mount", "--", '-' + std::string(105, 'x')}, "prodctl check mount",
            "the text holds a single quote or more than 105 characters");
}

TEST_F(Check, DeviceAndBridge)
{
    no({"check", "device", "br7"});
    test::run(
        "ip link add br7 type bridge && ip link add port7 type veth peer name far7 && ip link set "
        "port7 master br7");
    yes({"check", "device", "br7"});
    no({"check", "device", std::string(300, 'x')});
    no({"check", "bridge", "port7", "br8"});
    no({"check", "bridge", "lo", "br7"});
    if (!test::is_emulated()) {
        yes({"check", "bridge", "port7", "br7"});
    }
    test::run("ip link del port7 && ip link del br7");
}

TEST_F(Check, UsbAndPartition)
{
    no({"check", "usb"});
    test::write_text("/tmp/UDiskname", "sda\n");
    yes({"check", "usb"});
    test::remove_all("/tmp/UDiskname");
    no({"check", "partition", "sda1"});
    test::run("mkdir -p /etc/upan/sda1 && mount -t tmpfs none /etc/upan/sda1");
    yes({"check", "partition", "sda1"});
    no({"check", "partition", "sda"});
    test::run("umount /etc/upan/sda1 && rm -r /etc/upan");
}

TEST_F(Check, Host)
{
    yes({"check", "host", "192.0.2.1"});
    for (const char *const text :
         {"0.0.0.0", "255.255.255.255", "192.0.2", "host", "", "1.2.3.4.5"}) {
        no({"check", "host", text});
    }
}

TEST_F(Check, Address)
{
    yes({"check", "address", "192.0.2.1"});
    yes({"check", "address", "10.0.0.0"});
    // The library says why not.
    for (const char *const text : {"224.0.0.1", "10.0.0.255", "0.1.2.3", "1.2.3", ""}) {
        const Outcome outcome = prodctl({"check", "address", text, "--json"});
        EXPECT_EQ(outcome.status, 1) << text;
        EXPECT_EQ(outcome.out, "{\"result\":false}\n") << text;
    }
}

TEST_F(Check, Param)
{
    yes({"check", "param", "abc"});
    yes({"check", "param", ""});
    for (const char *const text : {"a;b", "a&b", "a|b", "a`b"}) {
        no({"check", "param", text});
    }
}

// ---- texts ------------------------------------------------------------------------------------

TEST_F(Str, Conversions)
{
    EXPECT_EQ(prodctl({"str", "hex", "aZ\xff"}), (Outcome{0, "615aff\n", ""}));
    EXPECT_EQ(prodctl({"str", "hex", ""}).out, "\n");
    EXPECT_EQ(prodctl({"str", "unhex", "615AfF"}), (Outcome{0, "aZ\xff\n", ""}));
    EXPECT_EQ(prodctl({"str", "unhex", "615aff", "--json"}).out,
              "{\"result\":\"aZ\xef\xbf\xbd\"}\n");
    EXPECT_EQ(prodctl({"str", "mac", "02005e005301"}), (Outcome{0, "02:00:5E:00:53:01\n", ""}));
    EXPECT_EQ(prodctl({"str", "hash", "ab"}).out, std::to_string(97 * 131 + 98) + "\n");
    EXPECT_EQ(prodctl({"str", "hash", "ab", "--json"}).out, "{\"result\":12805}\n");
}

TEST_F(Str, WrongDigits)
{
    for (const char *const digits : {"6", "6x", "0x61"}) {
        refuses({"str", "unhex", digits}, "prodctl str unhex",
                std::string{"'"} + digits + "' is no text of hexadecimal pairs");
    }
    for (const char *const digits : {"", "02005e00530", "02005e0053011", "02:00:5e:00:53:01"}) {
        refuses({"str", "mac", digits}, "prodctl str mac",
                std::string{"'"} + digits + "' has not 12 hexadecimal digits");
    }
}

}  // namespace
