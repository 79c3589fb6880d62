// SPDX-License-Identifier: MIT
// Rates are measured with frames of a known size that really pass the WAN's interface.
#include "platform/km.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/children.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"
#include "support/time.hpp"

using test::read_text;
using test::run;
using test::seconds;
using test::write_text;
using Clock = std::chrono::steady_clock;
using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

namespace
{

/** The descriptors that became streams. */
struct Streams {
    int opened;
    int inheritable;
};
Streams streams;

}  // namespace

extern "C" FILE *fdopen(int fd, const char *mode) noexcept
{
    ++streams.opened;
    streams.inheritable += (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0 ? 1 : 0;
    static const auto real = test::next(fdopen, "fdopen");
    return real(fd, mode);
}

namespace
{

constexpr const char *kBoard = "/etc/board.json";
constexpr const char *kSamples = "/var/run/wan_flow.samples";

struct Rates {
    int up = -1;
    int down = -1;
};

/** What one call says about a WAN; -1 when the WAN is not in it. */
Rates rates_of(int wan)
{
    const Json object{cJSON_CreateObject(), &cJSON_Delete};
    EXPECT_EQ(km_wan_statistic_get_wan_flow(object.get()), 0);
    const cJSON *flow;
    cJSON_ArrayForEach(flow, cJSON_GetObjectItemCaseSensitive(object.get(), "WanFlow"))
    {
        const cJSON *const rate = cJSON_GetObjectItemCaseSensitive(flow, "WanRate");
        if (cJSON_GetObjectItemCaseSensitive(flow, "WanId")->valueint == wan) {
            return {cJSON_GetObjectItemCaseSensitive(rate, "UpRate")->valueint,
                    cJSON_GetObjectItemCaseSensitive(rate, "DownRate")->valueint};
        }
    }
    return {};
}

/** Sends frames out of an interface, at an even pace, for as long as it lives. */
class Blaster
{
  public:
    Blaster(const char *ifname, int bytes_per_second) : bytes_per_second_(bytes_per_second)
    {
        fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        to_.sll_family = AF_PACKET;
        to_.sll_ifindex = static_cast<int>(if_nametoindex(ifname));
        to_.sll_halen = ETH_ALEN;
        memset(to_.sll_addr, 0xff, ETH_ALEN);
        thread_ = std::thread{[this] { send_frames(); }};
    }
    /** Bytes sent so far. */
    long long sent() const { return sent_; }

    ~Blaster()
    {
        stop_ = true;
        thread_.join();
        close(fd_);
    }

  private:
    void send_frames()
    {
        const std::string frame(1000, '\xff');
        const auto start = Clock::now();
        while (!stop_) {
            const std::chrono::duration<double> time = Clock::now() - start;
            if (static_cast<double>(sent_) < time.count() * bytes_per_second_) {
                EXPECT_EQ(sendto(fd_, frame.data(), frame.size(), 0,
                                 reinterpret_cast<const sockaddr *>(&to_), sizeof(to_)),
                          1000);
                sent_ += 1000;
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds{2});
            }
        }
    }

    int bytes_per_second_;
    int fd_;
    sockaddr_ll to_{};
    std::atomic<long long> sent_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

void wait_ms(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds{ms});
}

class WanFlow : public testing::Test
{
  protected:
    static void SetUpTestSuite()
    {
        // Without IPv6 an interface that nobody uses is silent.
        run("for f in /proc/sys/net/ipv6/conf/*/disable_ipv6; do echo 1 > $f; done");
        run("ip link add eth1 type veth peer name isp1");
        run("ip link add eth2 type veth peer name isp2");
        run("for i in eth1 eth2 isp1 isp2; do ip link set $i up; done");
    }
    void SetUp() override { test::remove_all(kSamples); }

  private:
    const test::KeptFile board_{kBoard};
};

TEST_F(WanFlow, AnIdleWanHasNone)
{
    for (const int wan : {1, 2}) {
        EXPECT_EQ(rates_of(wan).up, 0);
        EXPECT_EQ(rates_of(wan).down, 0);
    }
    EXPECT_EQ(rates_of(3).up, -1);
}

/** What a blaster sent between two moments, in bytes a second. */
class Meter
{
  public:
    explicit Meter(const Blaster &blaster) : blaster_(blaster) { restart(); }

    /** The rate since the last call. */
    int rate()
    {
        const long long sent = blaster_.sent() - sent_;
        const std::chrono::duration<double> time = Clock::now() - at_;
        restart();
        return static_cast<int>(static_cast<double>(sent) / time.count());
    }

  private:
    void restart()
    {
        sent_ = blaster_.sent();
        at_ = Clock::now();
    }

    const Blaster &blaster_;
    long long sent_ = 0;
    Clock::time_point at_;
};

TEST_F(WanFlow, TheRateOfRealTraffic)
{
    const Blaster up{"eth1", 200000};
    const Blaster down{"isp1", 800000};
    rates_of(1);
    Meter up_meter{up};
    Meter down_meter{down};
    for (int i = 0; i < 3; ++i) {
        wait_ms(2000);
        const Rates one = rates_of(1);
        const int sent_up = up_meter.rate();
        const int sent_down = down_meter.rate();
        EXPECT_NEAR(one.up, sent_up, sent_up / 4);
        EXPECT_NEAR(one.down, sent_down, sent_down / 4);
        EXPECT_GT(sent_down, 200000);
        const Rates two = rates_of(2);
        EXPECT_EQ(two.up, 0);
        EXPECT_EQ(two.down, 0);
    }
}

TEST_F(WanFlow, AFirstCallTakesItsOwnShortWindow)
{
    const Blaster down{"isp1", 1000000};
    wait_ms(50);
    Rates first;
    const double time = seconds([&] { first = rates_of(1); });
    EXPECT_GT(time, 0.1);
    EXPECT_NEAR(first.down, 1000000, 500000);
    // From then on nobody waits, whatever the process, and however soon.
    double least = 60;
    for (int i = 0; i < 20; ++i) {
        least = std::min(least, seconds([] {
                             EXPECT_TRUE(test::in_a_child([] {
                                 const int rate = rates_of(1).down;
                                 EXPECT_GT(rate, 0);
                                 EXPECT_LT(rate, 4000000);
                             }));
                         }));
    }
    EXPECT_LT(least, 0.15) << "a call that takes its own window takes longer each time";
}

TEST_F(WanFlow, TheRateFollowsTheTraffic)
{
    {
        const Blaster down{"isp1", 500000};
        rates_of(1);
        wait_ms(500);
        EXPECT_NEAR(rates_of(1).down, 500000, 200000);
    }
    rates_of(1);
    wait_ms(200);
    rates_of(1);
    wait_ms(200);
    EXPECT_EQ(rates_of(1).down, 0);
}

TEST_F(WanFlow, CountersThatStartAgain)
{
    {
        const Blaster down{"isp2", 500000};
        rates_of(2);
        wait_ms(300);
    }
    run("ip link del eth2 && ip link add eth2 type veth peer name isp2 && "
        "echo 1 > /proc/sys/net/ipv6/conf/eth2/disable_ipv6 && "
        "echo 1 > /proc/sys/net/ipv6/conf/isp2/disable_ipv6 && "
        "ip link set eth2 up && ip link set isp2 up");
    EXPECT_EQ(rates_of(2).down, 0);
}

TEST_F(WanFlow, ADamagedSamplesFile)
{
    for (const std::string &text :
         {std::string(10000, '\xff'), std::string(10000, '\0'), std::string{"1 eth1 5\n"},
          std::string{"1 eth1 99999999999999999999 18446744073709551615 0\n"},
          std::string{"1 eth1 -5 0 0\n1 eth1 0 0 0\n"}, "1 " + std::string(1000, 'x') + " 1 1 1\n",
          std::string{"-1 eth1 1 1 1\n0 eth1 1 1 1\n"}}) {
        write_text(kSamples, text);
        const Rates one = rates_of(1);
        EXPECT_EQ(one.up, 0) << text;
        EXPECT_EQ(one.down, 0) << text;
    }
    std::string many;
    for (int i = 1; i < 1000; ++i) {
        many += std::to_string(i) + " eth1 1 1 1\n";
    }
    write_text(kSamples, many);
    EXPECT_EQ(rates_of(1).down, 0);
}

TEST_F(WanFlow, NoProgramInheritsTheSamplesFile)
{
    rates_of(1);
    streams = {};
    rates_of(1);
    EXPECT_EQ(streams.opened, 1);
    // Whoever did, would keep its lock for as long as that program runs.
    EXPECT_EQ(streams.inheritable, 0);
}

TEST_F(WanFlow, WithoutARoomToRemember)
{
    const test::MountedFolder read_only{"/var/run", "size=16k", true};
    const Blaster down{"isp1", 1000000};
    wait_ms(50);
    EXPECT_NEAR(rates_of(1).down, 1000000, 500000);
    EXPECT_NEAR(rates_of(1).down, 1000000, 500000);
}

TEST_F(WanFlow, ManyCallersAtOnce)
{
    const Blaster down{"isp1", 500000};
    rates_of(1);
    wait_ms(300);
    test::all_at_once(8, [](int) {
        for (int i = 0; i < 30; ++i) {
            const int rate = rates_of(1).down;
            EXPECT_GE(rate, 0);
            EXPECT_LT(rate, 20000000);
            wait_ms(5);
        }
    });
    wait_ms(500);
    EXPECT_NEAR(rates_of(1).down, 500000, 300000);
}

TEST_F(WanFlow, ThePppLinkCountsWhileItIsThere)
{
    write_text(kBoard, R"({"wans": [{"id": 1, "interfaces": ["ppp1", "eth2"]}]})");
    EXPECT_EQ(rates_of(1).down, 0);
    run("ip link add ppp1 type veth peer name bras1 && ip link set ppp1 up && ip link set bras1 "
        "up");
    {
        const Blaster down{"bras1", 500000};
        rates_of(1);
        wait_ms(500);
        EXPECT_NEAR(rates_of(1).down, 500000, 200000);
        EXPECT_EQ(rates_of(2).up, -1);
    }
    run("ip link del ppp1");
    EXPECT_EQ(rates_of(1).down, 0);
}

TEST_F(WanFlow, ALookOfMoreThanTenSecondsAgoIsNone)
{
    write_text(kBoard, R"({"wans": [{"id": 1, "interfaces": ["lo"]}]})");
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto serves = [&](long long seconds_ago) {
        const std::string at =
            " " + std::to_string((now.tv_sec - seconds_ago) * 1000000000LL) + " ";
        write_text(kSamples, "1 lo" + at + "0 0\n");
        rates_of(1);
        return read_text(kSamples).find(at) != std::string::npos;  // what served is kept
    };
    EXPECT_TRUE(serves(3));
    EXPECT_FALSE(serves(12));
}

TEST_F(WanFlow, AWanWithoutAnInterface)
{
    write_text(kBoard, R"({"wans": [{"id": 7, "interfaces": ["none0"]}, {"id": 8}]})");
    const test::SimulatedTime time;
    EXPECT_EQ(rates_of(7).up, 0);
    EXPECT_EQ(rates_of(8).down, 0);
    EXPECT_TRUE(time.sleeps().empty()) << "there is nothing to wait for";
}

TEST_F(WanFlow, ARememberedLookOfAnImpossibleTimeIsNone)
{
    write_text(kBoard, R"({"wans": [{"id": 1, "interfaces": ["lo"]}]})");
    for (const char *const time : {"-9223372036854775808", "-1", "0"}) {
        const std::string line = std::string{"1 lo "} + time + " 0 0\n";
        write_text(kSamples, line + line);
        EXPECT_GE(seconds([] { EXPECT_GE(rates_of(1).down, 0); }), 0.1) << time;
        EXPECT_EQ(read_text(kSamples).find(std::string{"1 lo "} + time + " "), std::string::npos);
    }
}

TEST_F(WanFlow, BoardFilesThatNameNoWans)
{
    const Json object{cJSON_CreateObject(), &cJSON_Delete};
    EXPECT_NE(km_wan_statistic_get_wan_flow(nullptr), 0);
    for (const char *const text : {"", "{}", "{\"wans\": 7}", "{\"wans\": {}}"}) {
        write_text(kBoard, text);
        EXPECT_NE(km_wan_statistic_get_wan_flow(object.get()), 0) << text;
        EXPECT_EQ(object->child, nullptr);
    }
    write_text(kBoard, R"({"wans": [7, {}, {"id": "1"}, {"id": -1}, {"id": 0}]})");
    EXPECT_EQ(km_wan_statistic_get_wan_flow(object.get()), 0);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(object.get(), "WanFlow")), 0);
    test::remove_all(kBoard);
    EXPECT_NE(km_wan_statistic_get_wan_flow(object.get()), 0);
}

TEST_F(WanFlow, AnObjectUsedTwiceHoldsOneAnswer)
{
    const Json object{cJSON_CreateObject(), &cJSON_Delete};
    EXPECT_EQ(km_wan_statistic_get_wan_flow(object.get()), 0);
    EXPECT_EQ(km_wan_statistic_get_wan_flow(object.get()), 0);
    EXPECT_EQ(cJSON_GetArraySize(object.get()), 1);
}

// ---- DNS redirection -------------------------------------------------------------------------

/** Stands for the LAN's name server: counts the SIGHUPs it gets. */
class NameServer
{
  public:
    NameServer()
    {
        EXPECT_EQ(pipe(ends_), 0);
        pid_ = fork();
        if (pid_ == 0) {
            sigset_t hup;
            sigemptyset(&hup);
            sigaddset(&hup, SIGHUP);
            sigprocmask(SIG_BLOCK, &hup, nullptr);
            prctl(PR_SET_NAME, "dnsmasq");
            write(ends_[1], "r", 1);
            for (int signo = 0; sigwait(&hup, &signo) == 0;) {
                write(ends_[1], "h", 1);
            }
            _exit(0);
        }
        EXPECT_EQ(next(kPatienceMs), 'r');
    }
    ~NameServer()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        close(ends_[0]);
        close(ends_[1]);
    }

    /** Whether it was told since the last question. */
    bool was_told(int patience_ms = kPatienceMs) { return next(patience_ms) == 'h'; }

  private:
    static constexpr int kPatienceMs = 20000;

    char next(int patience_ms)
    {
        pollfd ready{ends_[0], POLLIN, 0};
        char byte = 0;
        return poll(&ready, 1, patience_ms) == 1 && read(ends_[0], &byte, 1) == 1 ? byte : '-';
    }

    int ends_[2];
    pid_t pid_;
};

Json rule(const char *domain, const char *address = nullptr)
{
    Json object{cJSON_CreateObject(), &cJSON_Delete};
    cJSON_AddStringToObject(object.get(), "Domain", domain);
    if (address != nullptr) {
        cJSON_AddStringToObject(object.get(), "Ip", address);
    }
    return object;
}

class DnsRedirection : public testing::Test
{
  protected:
    void SetUp() override { test::remove_all(KM_DNS_REDIRECT_DIR); }

    static std::string rule_of(const std::string &domain)
    {
        return read_text(std::string{KM_DNS_REDIRECT_DIR} + "/" + domain);
    }
    static std::size_t rules()
    {
        std::size_t count = 0;
        std::error_code none;
        for ([[maybe_unused]] const auto &entry :
             std::filesystem::directory_iterator{KM_DNS_REDIRECT_DIR, none}) {
            ++count;
        }
        return count;
    }
    static bool add(const char *domain, const char *address)
    {
        return km_dns_redirect_add_rule(rule(domain, address).get()) == 0;
    }
    static bool del(const char *domain)
    {
        return km_dns_redirect_del_rule(rule(domain).get()) == 0;
    }
};

TEST_F(DnsRedirection, ARuleIsAHostsFile)
{
    NameServer server;
    EXPECT_TRUE(add("www.example.net", "192.168.0.77"));
    EXPECT_EQ(rule_of("www.example.net"), "192.168.0.77 www.example.net\n");
    EXPECT_TRUE(server.was_told());
    struct stat status;
    ASSERT_EQ(stat(KM_DNS_REDIRECT_DIR "/www.example.net", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U) << "the server runs as another user";
    EXPECT_TRUE(add("www.example.net", "192.168.0.78"));
    EXPECT_EQ(rule_of("www.example.net"), "192.168.0.78 www.example.net\n");
    EXPECT_TRUE(server.was_told());
    EXPECT_TRUE(add("ip6.example.net", "2001:DB8::0:1"));
    EXPECT_EQ(rule_of("ip6.example.net"), "2001:db8::1 ip6.example.net\n");
    EXPECT_EQ(rules(), 2U);
    EXPECT_TRUE(server.was_told());
    EXPECT_TRUE(del("www.example.net"));
    EXPECT_EQ(rules(), 1U);
    EXPECT_TRUE(server.was_told());
    EXPECT_FALSE(del("www.example.net"));
    EXPECT_FALSE(server.was_told(300));
}

TEST_F(DnsRedirection, WithoutANameServer)
{
    const int before = test::open_descriptors();
    EXPECT_TRUE(add("router", "192.168.0.1"));
    EXPECT_TRUE(del("router"));
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(DnsRedirection, NamesInAnyCaseAndWithADotAtTheirEnd)
{
    EXPECT_TRUE(add("WWW.Example.NET.", "192.168.0.77"));
    EXPECT_EQ(rule_of("www.example.net"), "192.168.0.77 www.example.net\n");
    EXPECT_TRUE(del("www.example.NET"));
    const std::string label(63, 'x');
    const std::string longest = label + "." + label + "." + label + "." + std::string(61, 'x');
    ASSERT_EQ(longest.size(), 253U);
    EXPECT_TRUE(add(longest.c_str(), "192.168.0.77"));
    EXPECT_EQ(rule_of(longest), "192.168.0.77 " + longest + "\n");
    EXPECT_FALSE(add((longest + "x").c_str(), "192.168.0.77"));
    EXPECT_TRUE(add("_dns.x-1.9", "192.168.0.77"));
}

TEST_F(DnsRedirection, NamesThatAreNone)
{
    write_text("/var/run/victim", "precious");
    for (const std::string name :
         {"", ".", "..", "a..b", ".a", "a..", "../victim", "/var/run/victim", "a/b", "a b", "a\n",
          "*", "*.example.net", "a\\b", "caf\xc3\xa9.example", "#a", "a~"}) {
        EXPECT_FALSE(add(name.c_str(), "192.168.0.77")) << name;
        EXPECT_FALSE(del(name.c_str())) << name;
    }
    EXPECT_FALSE(add((std::string(64, 'x') + ".example").c_str(), "192.168.0.77"));
    EXPECT_EQ(rules(), 0U);
    EXPECT_EQ(read_text("/var/run/victim"), "precious");
}

TEST_F(DnsRedirection, AddressesThatAreNone)
{
    for (const char *const address :
         {"", "192.168.0", "192.168.0.256", "192.168.0.1 ", " 192.168.0.1", "192.168.0.1\n", "host",
          "1", "0x7f.1", ":::", "fe80::1%eth0", "192.168.0.1/24"}) {
        EXPECT_FALSE(add("www.example.net", address)) << address;
    }
    EXPECT_EQ(rules(), 0U);
}

TEST_F(DnsRedirection, ObjectsThatAreNoRules)
{
    EXPECT_NE(km_dns_redirect_add_rule(nullptr), 0);
    EXPECT_NE(km_dns_redirect_del_rule(nullptr), 0);
    for (const char *const text : {"{}", "[]", "7", R"({"Domain":7,"Ip":7})", R"({"Domain":"a"})",
                                   R"({"Ip":"192.0.2.1"})", R"({"domain":"a","ip":"192.0.2.1"})"}) {
        const Json object{cJSON_Parse(text), &cJSON_Delete};
        EXPECT_NE(km_dns_redirect_add_rule(object.get()), 0) << text;
        EXPECT_NE(km_dns_redirect_del_rule(object.get()), 0) << text;
        const Json again{cJSON_Parse(text), &cJSON_Delete};
        EXPECT_TRUE(cJSON_Compare(object.get(), again.get(), 1)) << "the object stays as it is";
    }
}

TEST_F(DnsRedirection, WithoutRoomNothingChanges)
{
    const test::MountedFolder full{KM_DNS_REDIRECT_DIR, "size=16k"};
    ASSERT_TRUE(add("a.example", "192.168.0.77"));
    full.fill();
    EXPECT_FALSE(add("a.example", "192.168.0.78"));
    EXPECT_FALSE(add("b.example", "192.168.0.78"));
    EXPECT_EQ(rule_of("a.example"), "192.168.0.77 a.example\n");
    EXPECT_EQ(rules(), 2U) << "nothing is left but the rule and the filler";
}

TEST_F(DnsRedirection, ManyCallersAtOnce)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const std::string name = "host" + std::to_string(i) + ".example";
            for (int round = 0; round < 50; ++round) {
                EXPECT_TRUE(add(name.c_str(), "192.168.0.77"));
                EXPECT_TRUE(add("shared.example", "192.168.0.78"));
                EXPECT_TRUE(del(name.c_str()));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(rules(), 1U);
    EXPECT_EQ(rule_of("shared.example"), "192.168.0.78 shared.example\n");
}

}  // namespace
