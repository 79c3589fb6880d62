// SPDX-License-Identifier: MIT
#include "prod_common_system.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/hardware.h"
#include "platform/km.h"
#include "prod_common_string.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/sockets.hpp"
#include "support/time.hpp"

using test::config;
using test::console_line;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::RecordedCommands;
using test::write_text;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

std::vector<std::string> leds;  // what was set, in order
bool ntoa_fails;
bool alien_address;
int failing_option;
std::array<unsigned int, 8> alarms;  // the last ones; a handler calls alarm(), so no vector
std::size_t alarm_count;
bool fast_alarms;
std::vector<std::string> redirections;  // what the kernel-module control was asked for, in order

std::string asked(const char *what, cJSON *rule)
{
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_PrintUnformatted(rule),
                                                            &cJSON_free};
    return std::string{what} + " " + text.get();
}

}  // namespace

extern "C" {

int iof_gpio_set(gpio_id_t id, led_pattern_t pattern)
{
    leds.push_back("led " + std::to_string(id) + " " + std::to_string(pattern));
    return 0;
}

int iof_gpio_set_start(gpio_id_t, int)
{
    return 0;
}

int km_dns_redirect_add_rule(cJSON *rule)
{
    redirections.push_back(asked("add", rule));
    return -1;  // nobody looks at it
}

int km_dns_redirect_del_rule(cJSON *rule)
{
    redirections.push_back(asked("del", rule));
    return -1;
}

void show_backtrace(void)
{
    printf("<the stack>\n");
}

char *inet_ntoa(in_addr address) noexcept
{
    static const auto real = test::next(inet_ntoa, "inet_ntoa");
    return ntoa_fails ? nullptr : real(address);
}

struct hostent *gethostbyname(const char *name)
{
    if (alien_address) {
        static char address[16] = {};
        static char *addresses[] = {address, nullptr};
        static hostent host{};
        host.h_addrtype = AF_INET6;
        host.h_length = sizeof(address);
        host.h_addr_list = addresses;
        return &host;
    }
    static const auto real = test::next(gethostbyname, "gethostbyname");
    return real(name);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t size) noexcept
{
    if (failing_option != 0 && option == failing_option) {
        errno = EDOM;
        return -1;
    }
    static const auto real = test::next(setsockopt, "setsockopt");
    return real(fd, level, option, value, size);
}

#ifdef __SANITIZE_THREAD__
// The sanitizer's own waits for whoever holds standard output, which is what is tested not to
// happen.
void _exit(int status)
{
    syscall(SYS_exit_group, status);
    __builtin_unreachable();
}
#endif

/** The alarms of the fast tests come a hundred times sooner, those of five seconds and more. */
unsigned int alarm(unsigned int seconds) noexcept
{
    static const auto real = test::next(alarm, "alarm");
    alarms[alarm_count++ % alarms.size()] = seconds;
    if (!fast_alarms || seconds < 5) {
        return real(seconds);
    }
    const itimerval soon{
        {0, 0},
        {static_cast<time_t>(seconds / 100), static_cast<suseconds_t>(seconds % 100) * 10000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    return 0;
}
}

namespace
{

/* Modes, brand, language */

class System : public testing::Test
{
  protected:
    test::FreshConfig config_;
};

struct Mode {
    QX_SYSMODE mode;
    std::string name;
};

/** What get_systerm_mode() makes of these settings; the name starts as "-". */
Mode mode_of(const std::string &radio0, const std::string &radio1, const std::string &device)
{
    config() = {{"wlan0_workmode", radio0}, {"wlan1_workmode", radio1}, {"sys.workmode", device}};
    char name[16];
    memset(name, '#', sizeof(name));
    strcpy(name, "-");
    const QX_SYSMODE mode = get_systerm_mode(name);
    EXPECT_EQ(name[9], '#') << "more than nine bytes written";
    return {mode, name};
}

bool operator==(const Mode &a, const Mode &b)
{
    return a.mode == b.mode && a.name == b.name;
}

void PrintTo(const Mode &mode, std::ostream *out)
{
    *out << mode.mode << " \"" << mode.name << '"';
}

TEST_F(System, WorkingMode)
{
    EXPECT_EQ(mode_of("ap", "ap", "router"), (Mode{QX_ROUTE_MODE, "router"}));
    EXPECT_EQ(mode_of("ap", "ap", "ap"), (Mode{QX_AP_MODE, "ap"}));
    EXPECT_EQ(mode_of("apclient", "wisp", "ap"), (Mode{QX_AP_MODE, "ap"}));
    EXPECT_EQ(mode_of("", "", "ap"), (Mode{QX_AP_MODE, "ap"}));
    EXPECT_EQ(mode_of("apclient", "ap", "router"), (Mode{QX_APCLIENT_MODE, "apclient"}));
    EXPECT_EQ(mode_of("ap", "apclient", ""), (Mode{QX_APCLIENT_MODE, "apclient"}));
    EXPECT_EQ(mode_of("wisp", "apclient", "router"), (Mode{QX_APCLIENT_MODE, "apclient"}));
    EXPECT_EQ(mode_of("wisp", "ap", "router"), (Mode{QX_WISP_MODE, "wisp"}));
    EXPECT_EQ(mode_of("ap", "wisp", "wisp"), (Mode{QX_WISP_MODE, "wisp"}));
}

TEST_F(System, WorkingModeWithoutAName)
{
    EXPECT_EQ(mode_of("", "", ""), (Mode{QX_ROUTE_MODE, "-"}));
    EXPECT_EQ(mode_of("ap", "", "router"), (Mode{QX_ROUTE_MODE, "-"}));
    EXPECT_EQ(mode_of("ap", "ap", ""), (Mode{QX_ROUTE_MODE, "-"}));
    EXPECT_EQ(mode_of("AP", "AP", "ROUTER"), (Mode{QX_ROUTE_MODE, "-"}));
    config().clear();
    char name[9] = "before";
    EXPECT_EQ(get_systerm_mode(name), QX_ROUTE_MODE);
    EXPECT_STREQ(name, "before");
    EXPECT_EQ(get_systerm_mode(nullptr), QX_FAULT);
}

TEST_F(System, WorkingModeOfOversizedSettings)
{
    for (const std::string &value : {test::longest_value(), "ap" + test::longest_value(' ')}) {
        EXPECT_EQ(mode_of(value, value, value), (Mode{QX_ROUTE_MODE, "-"}));
    }
}

TEST_F(System, NumberOfTheMode)
{
    EXPECT_EQ(get_sys_mode(), HLX_SYS_MODE_BUTT);
    for (const int number : {1, 2, 3, 0, 77, -1}) {
        config()["sys.mode"] = std::to_string(number);
        EXPECT_EQ(static_cast<int>(get_sys_mode()), number);
    }
    config()["sys.mode"] = "";
    EXPECT_EQ(static_cast<int>(get_sys_mode()), 0);
    config()["sys.mode"] = "router";
    EXPECT_EQ(static_cast<int>(get_sys_mode()), 0);
    config()["sys.mode"] = test::longest_value('1');
    EXPECT_EQ(static_cast<int>(get_sys_mode()), 1111111);  // seven characters count
}

TEST_F(System, BrandAndLanguage)
{
    EXPECT_EQ(brand_is_kavro(), 1);
    EXPECT_EQ(lang_is_cn(), 1);
    for (const char *const chinese : {"", "cn", "CN", "Cn"}) {
        config()["sys.language"] = chinese;
        EXPECT_EQ(lang_is_cn(), 1) << chinese;
    }
    for (const std::string &other : {std::string{"en"}, std::string{"cn2"}, std::string{"c"},
                                     std::string{" cn"}, test::longest_value()}) {
        config()["sys.language"] = other;
        EXPECT_EQ(lang_is_cn(), 0) << other;
    }
}

/* Factory restore */

TEST_F(System, RestoringTheDatabases)
{
    const RecordedCommands commands;
    EXPECT_THAT(printed([] { systool_restore_db(); }),
                Prints(console_line(33, "systool_restore_db", "restoring database ...")));
    EXPECT_THAT(commands.all(), ElementsAre("rm -f /cfg/database/*.db", "rm -f /cfg/prod-script",
                                            "rm -f /cfg/s_brcmnand/Dcg_database.db",
                                            "rm -f /cfg/l_brcmnand/Dcg_database.db"));
}

TEST_F(System, RestoringTheImages)
{
    const RecordedCommands commands;
    EXPECT_THAT(printed([] { systool_restore_pic(); }),
                Prints(console_line(33, "systool_restore_pic", "restoring images ...")));
    EXPECT_THAT(commands.all(), ElementsAre("rm -rf /cfg/webpush",
                                            "cp -a /webroot_ro/default_images /cfg/webpush"));
}

TEST_F(System, FactoryRestoreInOrder)
{
    leds.clear();
    test::factory_defaults()["lan.ip"] = "192.168.0.1";
    std::vector<int> restores;
    const RecordedCommands commands{[&](const std::string &command) {
        leds.push_back(command);
        restores.push_back(test::config_calls().restores);
        return 0;
    }};
    EXPECT_THAT(printed([] { EXPECT_EQ(systool_restore(), 1); }),
                Prints(console_line(33, "systool_restore_db", "restoring database ...") +
                       console_line(33, "systool_restore_pic", "restoring images ...")));
    EXPECT_THAT(leds, ElementsAre("led 6 1", "led 5 1", "led 0 1", "led 4 16", "rmmod wifi_led",
                                  "led 2 1", "/usr/bin/led_ctrl.sh 1 ", "rm -f /cfg/database/*.db",
                                  "rm -f /cfg/prod-script", "rm -f /cfg/s_brcmnand/Dcg_database.db",
                                  "rm -f /cfg/l_brcmnand/Dcg_database.db", "rm -rf /cfg/webpush",
                                  "cp -a /webroot_ro/default_images /cfg/webpush", "led 6 2",
                                  "led 5 2", "led 0 2", "led 4 17", "rmmod wifi_led", "led 2 2",
                                  "/usr/bin/led_ctrl.sh 0 "));
    // The configuration is restored between the images and the second switch of the LEDs.
    EXPECT_THAT(restores, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 1, 1));
}

TEST_F(System, AConfigurationThatCannotBeRestored)
{
    const RecordedCommands commands;
    test::config_faults().restores = true;
    EXPECT_THAT(printed([] { EXPECT_EQ(systool_restore(), 1); }),
                Prints(console_line(33, "systool_restore_db", "restoring database ...") +
                       console_line(33, "systool_restore_pic", "restoring images ...") +
                       log_line(PROD_DBG_ERROR, "systool_restore", "restore value is fail.")));
    EXPECT_EQ(commands.all().back(), "/usr/bin/led_ctrl.sh 0 ");
}

TEST_F(System, FactoryRestoreForReal)
{
    write_text("/cfg/database/a.db", "a");
    write_text("/cfg/database/b.db", "b");
    write_text("/cfg/database/keep.txt", "kept");
    write_text("/cfg/prod-script", "x");
    write_text("/cfg/s_brcmnand/Dcg_database.db", "x");
    write_text("/cfg/l_brcmnand/Dcg_database.db", "x");
    write_text("/cfg/webpush/own.jpg", "own");
    write_text("/webroot_ro/default_images/default.jpg", "default");
    config()["lan.ip"] = "10.0.0.1";
    test::factory_defaults()["lan.ip"] = "192.168.0.1";
    printed([] { EXPECT_EQ(systool_restore(), 1); });
    for (const char *const gone : {"/cfg/database/a.db", "/cfg/database/b.db", "/cfg/prod-script",
                                   "/cfg/s_brcmnand/Dcg_database.db",
                                   "/cfg/l_brcmnand/Dcg_database.db", "/cfg/webpush/own.jpg"}) {
        EXPECT_FALSE(test::exists(gone)) << gone;
    }
    EXPECT_EQ(test::read_text("/cfg/database/keep.txt"), "kept");
    EXPECT_EQ(test::read_text("/cfg/webpush/default.jpg"), "default");
    EXPECT_EQ(config()["lan.ip"], "192.168.0.1");
}

/* Host names */

TEST_F(System, AddressOfAHost)
{
    write_text("/etc/hosts",
               "10.20.130.240 router.lan router\n10.0.0.9 two.lan\n10.0.0.8 two.lan\n");
    char ip[16] = "before";
    EXPECT_EQ(printed([&] { EXPECT_EQ(system_qx_gethostbyname("router", ip), HLX_OK); }), "");
    EXPECT_STREQ(ip, "10.20.130.240");
    EXPECT_EQ(system_qx_gethostbyname("two.lan", ip), HLX_OK);
    EXPECT_STREQ(ip, "10.0.0.9");
    EXPECT_EQ(system_qx_gethostbyname("255.255.255.255", ip), HLX_OK);
    EXPECT_STREQ(ip, "255.255.255.255");
}

TEST_F(System, AHostThatIsNotKnown)
{
    write_text("/etc/hosts", "fe80::1 six.lan\n");
    write_text("/etc/resolv.conf", "options timeout:1 attempts:1\n");
    char ip[16] = "before";
    for (const std::string &name : {std::string{"no.such.host"}, std::string{"six.lan"},
                                    test::longest_value(), std::string{"$(reboot)"}}) {
        EXPECT_THAT(printed([&] { EXPECT_EQ(system_qx_gethostbyname(name.c_str(), ip), HLX_ERR); }),
                    Prints(log_line(PROD_DBG_ERROR, "system_qx_gethostbyname",
                                    "Unknown host:" + name + ".")));
    }
    alien_address = true;
    EXPECT_THAT(printed([&] { EXPECT_EQ(system_qx_gethostbyname("six", ip), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "system_qx_gethostbyname", "Unknown host:six.")));
    alien_address = false;
    EXPECT_STREQ(ip, "before");
}

TEST_F(System, AnAddressWithoutAText)
{
    char ip[16] = "before";
    ntoa_fails = true;
    EXPECT_THAT(printed([&] { EXPECT_EQ(system_qx_gethostbyname("10.0.0.1", ip), HLX_ERR); }),
                Prints(log_line(PROD_DBG_ERROR, "system_qx_gethostbyname", "inet_ntoa error.")));
    ntoa_fails = false;
    EXPECT_STREQ(ip, "before");
}

TEST_F(System, AHostWithoutAName)
{
    char ip[16] = "before";
    const auto expected =
        Prints(log_line(PROD_DBG_DEBUG, "system_qx_gethostbyname", "arg is null."));
    const auto result = [](const char *name, char *out) {
        return printed_at(PROD_DBG_DEBUG,
                          [=] { EXPECT_EQ(system_qx_gethostbyname(name, out), HLX_ERR); });
    };
    EXPECT_THAT(result(nullptr, ip), expected);
    EXPECT_THAT(result("", ip), expected);
    EXPECT_THAT(result("router", nullptr), expected);
    EXPECT_EQ(printed([&] { EXPECT_EQ(system_qx_gethostbyname("", ip), HLX_ERR); }), "");
    EXPECT_STREQ(ip, "before");
}

/* The exchange with another daemon */

constexpr const char *kSocket = "/tmp/daemon";

/** A daemon that does with its connection what it is told. */
class Daemon : public test::Daemon
{
  public:
    explicit Daemon(std::function<void(int)> serve, const std::string &path = kSocket)
        : test::Daemon(path, std::move(serve))
    {
    }
};

/** Everything that comes until the other end closes or that many bytes are there. */
std::string receive(int connection, std::size_t most = SIZE_MAX)
{
    std::string text;
    char byte;
    while (text.size() < most && read(connection, &byte, 1) == 1) {
        text += byte;
    }
    return text;
}

/** A length as it travels. */
std::string wire(u32 length)
{
    return {reinterpret_cast<const char *>(&length), sizeof(length)};
}

std::string framed(const std::string &text)
{
    return wire(static_cast<u32>(text.size())) + text;
}

void answer(int connection, const std::string &bytes)
{
    EXPECT_EQ(send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
}

/** A daemon that reads one request and answers these bytes. */
std::function<void(int)> answers(const std::string &bytes)
{
    return [bytes](int connection) {
        const std::string length = receive(connection, 4);
        u32 size = 0;
        memcpy(&size, length.data(), sizeof(size));
        receive(connection, size);
        answer(connection, bytes);
    };
}

auto logs(const std::string &message)
{
    return Prints(log_line(PROD_DBG_ERROR, "send_and_recv_from_program", message));
}

TEST(SendAndRecv, ARequestAndItsResponse)
{
    std::string request;
    char response[32];
    memset(response, '#', sizeof(response));
    const int before = test::open_descriptors();
    {
        const Daemon daemon{[&](int connection) {
            request = receive(connection, 4 + 7);
            answer(connection, framed("all is well"));
        }};
        EXPECT_EQ(printed([&] {
                      EXPECT_EQ(send_and_recv_from_program(kSocket, "status?", response,
                                                           sizeof(response), 0),
                                0);
                  }),
                  "");
    }
    EXPECT_EQ(request, framed("status?"));
    EXPECT_EQ(std::string(response, sizeof(response)), "all is well" + std::string(21, '\0'));
    EXPECT_EQ(test::open_descriptors(), before);
}

/** What arrives of a response in 8 bytes of room, of which resp_len may be used. */
std::string in_room(const std::string &body, int resp_len)
{
    char response[9] = "########";
    const Daemon daemon{answers(framed(body))};
    EXPECT_EQ(send_and_recv_from_program(kSocket, "x", response, resp_len, 0), 0);
    return {response, 8};
}

TEST(SendAndRecv, TheRoomForTheResponse)
{
    EXPECT_EQ(in_room("abc", 5), (std::string{"abc\0\0###", 8}));
    EXPECT_EQ(in_room("abcde", 5), "abcde###");  // full: not terminated
    EXPECT_EQ(in_room("abcdefgh", 5), "abcde###");
    EXPECT_EQ(in_room("", 5), (std::string{"\0\0\0\0\0###", 8}));
    EXPECT_EQ(in_room("abc", 0), "########");
    EXPECT_EQ(in_room("abc", -1), "########");
}

TEST(SendAndRecv, TheLongestResponse)
{
    const std::string longest(511, 'r');
    char response[1024];
    {
        const Daemon daemon{answers(framed(longest))};
        EXPECT_EQ(send_and_recv_from_program(kSocket, "x", response, sizeof(response), 0), 0);
    }
    EXPECT_EQ(std::string(response, sizeof(response)), longest + std::string(1024 - 511, '\0'));
}

TEST(SendAndRecv, TooLongOrLyingResponses)
{
    for (const std::string &bytes :
         {framed(std::string(512, 'r')), wire(512), wire(0xFFFFFFFF) + "x", wire(0x80000000),
          wire(0x80000000) + std::string(4096, 'x')}) {
        char response[16] = "before";
        const int before = test::open_descriptors();
        {
            const Daemon daemon{answers(bytes)};
            EXPECT_THAT(printed([&] {
                            EXPECT_EQ(send_and_recv_from_program(kSocket, "x", response,
                                                                 sizeof(response), 0),
                                      -1);
                        }),
                        logs("Response too big"));
        }
        EXPECT_STREQ(response, "before");
        EXPECT_EQ(test::open_descriptors(), before);
    }
}

/** The line that an exchange with such a daemon logs when it fails. */
std::string failure(std::function<void(int)> serve)
{
    char response[16] = "before";
    const int before = test::open_descriptors();
    std::string text;
    {
        const Daemon daemon{std::move(serve)};
        text = printed([&] {
            EXPECT_EQ(send_and_recv_from_program(kSocket, "x", response, sizeof(response), 0), -1);
        });
    }
    EXPECT_STREQ(response, "before");
    EXPECT_EQ(test::open_descriptors(), before);
    return text;
}

TEST(SendAndRecv, ResponsesThatStopShort)
{
    EXPECT_THAT(failure(answers("")), logs("Failed to read response len : Success"));
    EXPECT_THAT(failure(answers("abc")), logs("Failed to read response len : Success"));
    EXPECT_THAT(failure(answers(wire(1))), logs("Failed to read response body : Success"));
    EXPECT_THAT(failure(answers(wire(511) + "short")),
                logs("Failed to read response body : Success"));
}

TEST(SendAndRecv, ADaemonThatGoesAwayRaisesNoSignal)
{
    // Closed at once: the write or the read fails, whichever meets it, and SIGPIPE would kill.
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(failure([](int) {}),
                    testing::AnyOf(logs("write : Broken pipe"),
                                   logs("Failed to read response len : Connection reset by peer"),
                                   logs("Failed to read response len : Success")));
    }
    // Gone before a large request is through: the write fails for certain.
    const std::string request(4 << 20, 'q');
    const Daemon daemon{[](int connection) { receive(connection, 100); }};
    EXPECT_THAT(printed([&] {
                    EXPECT_EQ(send_and_recv_from_program(kSocket, request.c_str(), nullptr, 0, 0),
                              -1);
                }),
                testing::AnyOf(logs("write : Broken pipe"), logs("write : Success"),
                               logs("write : Connection reset by peer")));
}

TEST(SendAndRecv, OneWayDoesNotRead)
{
    std::string request;
    {
        const Daemon daemon{[&](int connection) { request = receive(connection); }};
        EXPECT_EQ(send_and_recv_from_program(kSocket, "go", nullptr, 0, 0), 0);
    }
    EXPECT_EQ(request, framed("go"));
    {
        const Daemon daemon{[&](int connection) { request = receive(connection); }};
        EXPECT_EQ(send_and_recv_from_program(kSocket, "", nullptr, 100, 5), 0);
    }
    EXPECT_EQ(request, wire(0));
}

TEST(SendAndRecv, ADaemonThatNeverAnswers)
{
    char response[16] = "before";
    const double took = test::seconds([&] {
        const Daemon daemon{[](int connection) { receive(connection); }};
        EXPECT_THAT(printed([&] {
                        EXPECT_EQ(
                            send_and_recv_from_program(kSocket, "x", response, sizeof(response), 1),
                            -1);
                    }),
                    logs("Failed to read response len : Resource temporarily unavailable"));
    });
    EXPECT_GE(took, 0.99);
    EXPECT_LT(took, 20);
    EXPECT_STREQ(response, "before");
}

TEST(SendAndRecv, ADaemonThatStopsInItsAnswer)
{
    char response[16] = "before";
    const Daemon daemon{[](int connection) {
        answer(connection, wire(4));
        receive(connection);
    }};
    EXPECT_THAT(
        printed([&] {
            EXPECT_EQ(send_and_recv_from_program(kSocket, "x", response, sizeof(response), 1), -1);
        }),
        logs("Failed to read response body : Resource temporarily unavailable"));
}

TEST(SendAndRecv, ADaemonThatDoesNotRead)
{
    const std::string request(4 << 20, 'q');
    int done[2];
    ASSERT_EQ(pipe2(done, O_CLOEXEC), 0);
    {
        const Daemon daemon{[&](int) {
            char byte;
            EXPECT_EQ(read(done[0], &byte, 1), 0);
        }};
        EXPECT_THAT(
            printed([&] {
                EXPECT_EQ(send_and_recv_from_program(kSocket, request.c_str(), nullptr, 0, 1), -1);
            }),
            testing::AnyOf(logs("write : Resource temporarily unavailable"),
                           logs("write : Success")));  // some of it went through
        close(done[1]);
    }
    close(done[0]);
}

TEST(SendAndRecv, NobodyThere)
{
    char response[16] = "before";
    const auto text = [&](const char *path) {
        return printed([&] {
            EXPECT_EQ(send_and_recv_from_program(path, "x", response, sizeof(response), 0), -1);
        });
    };
    const int before = test::open_descriptors();
    EXPECT_THAT(text("/tmp/nobody"), logs("connect: No such file or directory"));
    write_text("/tmp/file", "");
    EXPECT_THAT(text("/tmp/file"), logs("connect: Connection refused"));
    EXPECT_THAT(text(test::longest_value().c_str()), logs("connect: No such file or directory"));
    EXPECT_EQ(printed([&] {
                  EXPECT_EQ(send_and_recv_from_program(kSocket, nullptr, response, 16, 0), -1);
                  EXPECT_EQ(send_and_recv_from_program(nullptr, "x", response, 16, 0), -1);
              }),
              "");
    EXPECT_STREQ(response, "before");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST(SendAndRecv, AHundredAndSevenCharactersOfThePath)
{
    const std::string path = "/tmp/" + std::string(102, 'p');
    char response[16] = {};
    {
        const Daemon daemon{answers(framed("yes")), path};
        EXPECT_EQ(
            send_and_recv_from_program((path + "ppp").c_str(), "x", response, sizeof(response), 0),
            0);
    }
    EXPECT_STREQ(response, "yes");
}

TEST(SendAndRecv, WithoutASocketOrItsOptions)
{
    const int before = test::open_descriptors();
    for (const auto &[option, name] :
         {std::pair{SO_SNDTIMEO, "SO_SNDTIMEO"}, std::pair{SO_RCVTIMEO, "SO_RCVTIMEO"}}) {
        const Daemon daemon{[](int connection) { EXPECT_EQ(receive(connection), ""); }};
        failing_option = option;
        EXPECT_THAT(
            printed([] { EXPECT_EQ(send_and_recv_from_program(kSocket, "x", nullptr, 0, 1), -1); }),
            logs(std::string{name} + ": Numerical argument out of domain"));
        failing_option = 0;
    }
    EXPECT_EQ(test::open_descriptors(), before);

    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const std::string text = printed([&] {
        const rlimit none{0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(send_and_recv_from_program(kSocket, "x", nullptr, 0, 0), -1);
        setrlimit(RLIMIT_NOFILE, &limit);
    });
    EXPECT_THAT(text, logs("socket: Too many open files"));
}

TEST(SendAndRecv, ManyThreadsAtOnce)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            const std::string path = kSocket + std::to_string(i);
            const std::string expected = "answer " + std::to_string(i);
            for (int round = 0; round < 20; ++round) {
                char response[64] = {};
                const Daemon daemon{answers(framed(expected)), path};
                EXPECT_EQ(
                    send_and_recv_from_program(path.c_str(), "x", response, sizeof(response), 10),
                    0);
                EXPECT_EQ(response, expected);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

/* Versions */

constexpr const char *kVersionFile = "/etc/prodversion.cfg";
constexpr const char *kPolicyFile = "/etc/policy_bak.cfg";

class Versions : public testing::Test
{
  protected:
    void TearDown() override
    {
        write_text(kVersionFile, "V1.0.0(1)\n");
        test::remove_all(kPolicyFile);
    }
};

std::string product_version(const std::string &file, unsigned int room = 64)
{
    write_text(kVersionFile, file);
    char text[64];
    memset(text, '#', sizeof(text));
    EXPECT_EQ(get_prod_version(text, room), 1) << file;
    return text;
}

TEST_F(Versions, OfTheProduct)
{
    EXPECT_EQ(product_version("V2.0(77)\n"), "V2.0(77)");
    EXPECT_EQ(product_version("V2.0(77)"), "V2.0(77)");
    EXPECT_EQ(product_version("V2.0\nline two\n\n\n"), "V2.0\nline two");
    EXPECT_EQ(product_version("\n\n"), "");
    EXPECT_EQ(product_version("V2.0 \r\n"), "V2.0 \r");
}

TEST_F(Versions, OfTheProductCutToItsRoom)
{
    EXPECT_EQ(product_version("V2.0(77)\n", 4), "V2.");
    EXPECT_EQ(product_version("V\n2.0\n", 3), "V");
    EXPECT_EQ(product_version("V2.0(77)\n", 1), "");
    EXPECT_EQ(product_version("V2.0(77)\n", 9), "V2.0(77)");
    EXPECT_EQ(product_version("V2.0(77)\n", 8), "V2.0(77");
}

TEST_F(Versions, OfAProductThatHasNone)
{
    char text[8] = "before";
    EXPECT_EQ(get_prod_version(text, 0), 0);
    EXPECT_EQ(get_prod_version(nullptr, 8), 0);
    write_text(kVersionFile, "");
    EXPECT_EQ(get_prod_version(text, 8), 0);
    test::remove_all(kVersionFile);
    EXPECT_EQ(get_prod_version(text, 8), 0);
    EXPECT_STREQ(text, "before");
}

TEST_F(Versions, OfTheHardware)
{
    char text[16];
    memset(text, '#', sizeof(text));
    EXPECT_EQ(get_hard_version(text, sizeof(text)), 0);
    EXPECT_STREQ(text, "1.0.0.0");
    EXPECT_EQ(text[8], '#');
    EXPECT_EQ(get_hard_version(text, 4), 0);
    EXPECT_STREQ(text, "1.0");
    EXPECT_EQ(get_hard_version(text, 1), 0);
    EXPECT_STREQ(text, "");
    strcpy(text, "before");
    EXPECT_EQ(get_hard_version(text, 0), 0);
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(get_hard_version(nullptr, 8), 0);
}

TEST_F(Versions, BuildNumber)
{
    const std::pair<std::string, int> kCases[] = {
        {"V2.0(77)\n", 77},
        {"V2.0(77", 77},
        {"V2.0( -5)", -5},
        {"V2.0()", 0},
        {"V2.0(x77)", 0},
        {"V2.0", 0},
        {"", 0},
        {"(77)", 0},
        {"\n(77)", 77},
        {"V(1)(2)", 1},
        {"V(a)(2)", 0},
        {"V(0x10)", 0},
        {"V(2147483647)", INT_MAX},
        {"V(12.5)", 12},
    };
    for (const auto &[text, number] : kCases) {
        write_text(kVersionFile, text);
        EXPECT_EQ(get_svn_version(), number) << text;
    }
    write_text(kVersionFile, std::string("V2\0(77)", 8));
    EXPECT_EQ(get_svn_version(), 0);
    test::remove_all(kVersionFile);
    EXPECT_EQ(get_svn_version(), 0);
}

/** What get_policy_version() leaves in a buffer that held "before". */
std::string policy_version(const std::string &file)
{
    write_text(kPolicyFile, file);
    char text[PROD_POLICY_VERSION_SIZE] = "before";
    EXPECT_EQ(get_policy_version(text, 1), 0);  // the size is not looked at
    return text;
}

TEST_F(Versions, OfThePolicies)
{
    EXPECT_EQ(policy_version("ver;1.2.3;x\n"), "1.2.3");
    EXPECT_EQ(policy_version("a;b\nver;1.2.3\nver;4\n"), "1.2.3");
    EXPECT_EQ(policy_version("# policies;over;\n"), "over");
    EXPECT_EQ(policy_version("the version; \t1.2.3 \r\n"), "1.2.3");
    EXPECT_EQ(policy_version("ver;a b;"), "a b");
    EXPECT_EQ(policy_version("ver; \n"), "");
}

TEST_F(Versions, OfPoliciesWithoutOne)
{
    for (const char *const text :
         {"", "a;b;c\n", "ver\n", "ver;", ";ver;x\n", "ver;;x\n", "VER;1\n"}) {
        EXPECT_EQ(policy_version(text), "before") << text;
    }
    // Only the first such line counts.
    EXPECT_EQ(policy_version("ver;;1\nver;2\n"), "before");
}

TEST_F(Versions, OfPoliciesInLongLines)
{
    // The 256th character begins another line.
    EXPECT_EQ(policy_version("ver;" + std::string(300, '7')), std::string(251, '7'));
    EXPECT_EQ(policy_version(std::string(255, 'x') + "ver;8\n"), "8");
    EXPECT_EQ(policy_version(std::string(253, 'x') + "ver;8\n"), "before");
}

TEST_F(Versions, OfPoliciesWithoutAFileOrABuffer)
{
    char text[PROD_POLICY_VERSION_SIZE] = "before";
    test::remove_all(kPolicyFile);
    EXPECT_EQ(get_policy_version(text, sizeof(text)), 1);
    write_text(kPolicyFile, "ver;1\n");
    EXPECT_EQ(get_policy_version(nullptr, 8), 1);
    EXPECT_STREQ(text, "before");
}

/* DNS redirection */

class DnsRedirection : public testing::Test
{
  protected:
    void SetUp() override { redirections.clear(); }
};

TEST_F(DnsRedirection, IsAskedOfTheKernelModules)
{
    EXPECT_EQ(printed_at(
                  PROD_DBG_ERROR,
                  [] {
                      add_dns_redirect_rule("www.example.net", "192.168.0.1");
                      del_dns_redirect_rule("www.example.net");
                      add_dns_redirect_rule("", "");
                  },
                  "kjson"),
              "");
    EXPECT_THAT(redirections,
                ElementsAre(R"(add {"Domain":"www.example.net","Ip":"192.168.0.1"})",
                            R"(del {"Domain":"www.example.net"})", R"(add {"Domain":"","Ip":""})"));
}

/** The trace of a rule. */
std::string shown(const char *function, const std::string &rule)
{
    char name[21];
    snprintf(name, sizeof(name), "%-20.20s", function);
    return test::literally("\033[0m[") + "[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}" +
           test::literally("] \033[0m\033[1;40;35m") + "[0-9]{4,}" +
           test::literally(std::string{" "} + name + ": >>>> " + rule + " <<<<\n\033[0m");
}

TEST_F(DnsRedirection, IsShownToWhoAsks)
{
    EXPECT_THAT(
        printed_at(
            PROD_DBG_DEBUG, [] { add_dns_redirect_rule("a.example", "192.0.2.1"); }, "kjson"),
        Prints(shown("add_dns_redirect_rule",
                     "{\n\t\"Domain\":\t\"a.example\",\n\t\"Ip\":\t\"192.0.2.1\"\n}")));
    EXPECT_THAT(printed_at(
                    PROD_DBG_TRACE, [] { del_dns_redirect_rule("a.example"); }, "kjson"),
                Prints(shown("del_dns_redirect_rule", "{\n\t\"Domain\":\t\"a.example\"\n}")));
    EXPECT_EQ(redirections.size(), 2U);
}

TEST_F(DnsRedirection, RulesThatCannotBeBuilt)
{
    const std::string add =
        log_line(PROD_DBG_ERROR, "add_dns_redirect_rule", "Failed to add dns_redirect rule");
    const std::string del =
        log_line(PROD_DBG_ERROR, "del_dns_redirect_rule", "Failed to del rule by domain");
    EXPECT_THAT(printed([] { add_dns_redirect_rule(nullptr, "192.0.2.1"); }), Prints(add));
    EXPECT_THAT(printed([] { add_dns_redirect_rule("a.example", nullptr); }), Prints(add));
    EXPECT_THAT(printed([] { del_dns_redirect_rule(nullptr); }), Prints(del));

    // Memory that runs out at each allocation in turn.
    static int left;
    static int in_use;
    cJSON_Hooks hooks{[](std::size_t size) -> void * {
                          if (left-- <= 0) {
                              return nullptr;
                          }
                          ++in_use;
                          return malloc(size);
                      },
                      [](void *block) {
                          in_use -= block != nullptr ? 1 : 0;
                          free(block);
                      }};
    cJSON_InitHooks(&hooks);
    for (int i = 0; i < 7; ++i) {
        left = i;
        EXPECT_THAT(printed([] { add_dns_redirect_rule("a.example", "192.0.2.1"); }), Prints(add))
            << i;
        left = std::min(i, 3);
        EXPECT_THAT(printed([] { del_dns_redirect_rule("a.example"); }), Prints(del)) << i;
        EXPECT_EQ(in_use, 0);
    }
    cJSON_InitHooks(nullptr);
    EXPECT_THAT(redirections, IsEmpty());
}

/* Commands */

TEST(ExecSysCmd, RunsAndTellsTheStatus)
{
    test::remove_all("/tmp/ran");
    EXPECT_EQ(printed([] { EXPECT_EQ(exec_sys_cmd("caller", 7, "touch /tmp/%s", "ran"), 0); }), "");
    EXPECT_TRUE(test::exists("/tmp/ran"));
    EXPECT_EQ(exec_sys_cmd("caller", 7, "exit %d", 3), 3 << 8);
    EXPECT_EQ(exec_sys_cmd("caller", 7, "kill -9 $$"), 9);
    EXPECT_EQ(exec_sys_cmd("caller", 7, nullptr), -1);
}

TEST(ExecSysCmd, IsLoggedForItsCaller)
{
    const RecordedCommands commands{[](const std::string &) { return 7; }};
    EXPECT_THAT(printed_at(
                    PROD_DBG_INFO,
                    [] { EXPECT_EQ(exec_sys_cmd("caller", 7, "run %s", "100%d"), 7); }, "cmd"),
                Prints(log_line(PROD_DBG_INFO, "caller", "run 100%d", "cmd")));
    EXPECT_EQ(printed_at(
                  PROD_DBG_DEBUG, [] { exec_sys_cmd("caller", 7, "run"); }, "cmd"),
              "");
    EXPECT_THAT(commands.all(), ElementsAre("run 100%d", "run"));
}

TEST(ExecSysCmd, ALongCommandIsCut)
{
    const RecordedCommands commands;
    exec_sys_cmd("caller", 7, "run %s", test::longest_value().c_str());
    EXPECT_THAT(commands.all(), ElementsAre("run " + std::string(2043, 'x')));
}

/* The soft watchdog */

struct Ending {
    int status;
    std::string printed;
};

/** Runs the code in a child, which its watchdog is to end; a hundred times sooner if fast. */
Ending ending(const std::function<void()> &code, bool fast = true)
{
    Ending result{};
    result.printed = printed([&] {
        result.status = test::status_of(test::start([&] {
            fast_alarms = fast;
            code();
            for (int i = 0; i < 20; ++i) {
                usleep(1000000);
            }
            FAIL() << "it lives";
        }));
    });
    return result;
}

/** What the watchdog says of a process of this name. */
std::string bark()
{
    return "\033\\[1;40;33m\\[PROD\\] [0-9]{4} sotf_watchdog_bark  : Soft Watchdog of [0-9]+\\(" +
           test::literally(get_self_pname()) + "\\) barked\\.\n\033\\[0m";
}

TEST(SoftWatchdog, EndsAProcessThatDoesNotFeedIt)
{
    const Ending end = ending([] { feed_soft_watchdog(5); });
    EXPECT_EQ(end.status, PROD_WATCHDOG_STATUS);
    EXPECT_THAT(end.printed, Prints(bark()));
}

TEST(SoftWatchdog, ARealSecond)
{
    Ending end;
    const double took = test::seconds([&] { end = ending([] { feed_soft_watchdog(1); }, false); });
    EXPECT_EQ(end.status, PROD_WATCHDOG_STATUS);
    EXPECT_THAT(end.printed, Prints(bark()));
    EXPECT_GE(took, 0.99);
}

TEST(SoftWatchdog, EachFeedStartsAnew)
{
    const Ending end = ending([] {
        for (int i = 0; i < 4; ++i) {
            feed_soft_watchdog(200);  // two seconds here
            usleep(600000);
        }
        feed_soft_watchdog(0);
        usleep(2200000);
        _exit(0);
    });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.printed, "");
}

TEST(SoftWatchdog, TheTimeoutIsTheAlarm)
{
    alarm_count = 0;
    feed_soft_watchdog(600);
    feed_soft_watchdog(0);
    feed_soft_watchdog(-1);
    EXPECT_EQ(alarm_count, 3U);
    EXPECT_EQ(alarms[0], 600U);
    EXPECT_EQ(alarms[1], 0U);
    EXPECT_EQ(alarms[2], 0U);
    struct sigaction action;
    ASSERT_EQ(sigaction(SIGALRM, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, sotf_watchdog_bark);
    signal(SIGALRM, SIG_DFL);
}

TEST(SoftWatchdog, FeedsAreShownToWhoAsks)
{
    const auto fed_at = [](prod_dbg_lvl_t level) {
        return printed_at(
            level,
            [] {
                feed_soft_watchdog(600);
                feed_soft_watchdog(0);
            },
            "watchdog");
    };
    EXPECT_EQ(fed_at(PROD_DBG_DEBUG), "");
    EXPECT_THAT(
        fed_at(PROD_DBG_INFO),
        Prints(console_line(36, "feed_soft_watchdog", "feed dog (timeout=600):") + "<the stack>\n" +
               console_line(36, "feed_soft_watchdog", "feed dog (timeout=0):") + "<the stack>\n"));
    signal(SIGALRM, SIG_DFL);
}

TEST(SoftWatchdog, BitesWhileAnotherThreadHoldsStandardOutput)
{
    const Ending end = ending([] {
        int held[2];
        ASSERT_EQ(pipe(held), 0);
        std::thread{[&] {
            flockfile(stdout);
            close(held[1]);
            pause();
        }}.detach();
        char byte;
        ASSERT_EQ(read(held[0], &byte, 1), 0);
        feed_soft_watchdog(5);
        for (;;) {
            usleep(1000000);
        }
    });
    EXPECT_EQ(end.status, PROD_WATCHDOG_STATUS);
    EXPECT_THAT(end.printed, Prints(bark()));
}

TEST(SoftWatchdog, BitesWhileItsOwnThreadHoldsStandardOutput)
{
    const Ending end = ending([] {
        feed_soft_watchdog(5);
        flockfile(stdout);
    });
    EXPECT_EQ(end.status, PROD_WATCHDOG_STATUS);
    EXPECT_THAT(end.printed, Prints(bark()));
}

TEST(SoftWatchdog, WhatTheProgramPrintedComesFirst)
{
    const Ending end = ending([] {
        feed_soft_watchdog(5);
        printf("still buffered ");
    });
    EXPECT_EQ(end.status, PROD_WATCHDOG_STATUS);
    EXPECT_THAT(end.printed, Prints("still buffered " + bark()));
}

TEST(SoftWatchdog, BitesAlthoughNobodyTakesTheOutput)
{
    const Ending end = ending([] {
        int full[2];
        ASSERT_EQ(pipe2(full, O_NONBLOCK), 0);
        while (write(full[1], "x", 1) == 1) {
        }
        fcntl(full[1], F_SETFL, 0);  // blocks from here on
        dup2(full[1], STDOUT_FILENO);
        feed_soft_watchdog(5);
    });
    EXPECT_EQ(end.status, PROD_WATCHDOG_STATUS);
    EXPECT_EQ(end.printed, "");
}

TEST(SoftWatchdog, BarksWhenItIsTold)
{
    const Ending end = ending([] { sotf_watchdog_bark(SIGALRM); });
    EXPECT_EQ(end.status, PROD_WATCHDOG_STATUS);
    EXPECT_THAT(end.printed, Prints(bark()));
}

}  // namespace
