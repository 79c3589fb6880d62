// SPDX-License-Identifier: MIT
// discovery-dhcp on a cable whose far end is a server that the test plays: honest, silent or
// hostile.
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "dhcp_offer.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/time.hpp"
#include "tool.hpp"

using dhcp::Bytes;
using test::Outcome;
using test::program;
using test::Words;
using testing::HasSubstr;

namespace
{

using Packet = std::vector<std::uint8_t>;
constexpr dhcp::Mac kClient = {0x02, 0, 0, 0x10, 0, 0x11};
constexpr dhcp::Mac kServer = {0x02, 0, 0x64, 0, 1, 1};
constexpr std::uint32_t kXid = 0x01020304;

// ---- packets ----------------------------------------------------------------------------------

void store(Packet &packet, std::size_t at, unsigned int value)
{
    packet[at] = static_cast<std::uint8_t>(value >> 8);
    packet[at + 1] = static_cast<std::uint8_t>(value);
}

/** Computes the checksums of a packet with an IP header of 20 bytes anew. */
Packet summed(Packet packet)
{
    store(packet, 10, 0);
    store(packet, 26, 0);
    const Bytes whole{packet};
    store(packet, 10, dhcp::checksum(dhcp::sum_of(whole.first(20))));
    store(packet, 26, dhcp::checksum(dhcp::udp_sum(whole.subspan(12, 8), whole.subspan(20))));
    return packet;
}

const Packet kOptions = {53, 1,  2,   54, 4, 100, 64, 1,  1,   1,   4,   255, 255, 255, 0,
                         3,  4,  100, 64, 1, 1,   6,  8,  100, 64,  1,   1,   100, 64,  1,
                         53, 51, 4,   0,  0, 14,  16, 15, 3,   'l', 'a', 'n', 255};

/** An offer with these options behind the cookie. */
Packet offer(const Packet &options = kOptions, std::uint32_t xid = kXid,
             const dhcp::Mac &client = kClient)
{
    Packet packet(28 + 240);
    packet[28] = 2;
    packet[29] = 1;
    packet[30] = 6;
    store(packet, 32, xid >> 16);
    store(packet, 34, xid & 0xFFFF);
    const std::uint8_t address[] = {100, 64, 1, 100};
    std::copy_n(address, 4, &packet[28 + 16]);
    std::copy_n(client.data(), 6, &packet[28 + 28]);
    std::copy_n(dhcp::kCookie.data(), 4, &packet[28 + 236]);
    packet.insert(packet.end(), options.begin(), options.end());
    packet[0] = 0x45;
    store(packet, 2, static_cast<unsigned int>(packet.size()));
    packet[8] = 64;
    packet[9] = 17;
    const std::uint8_t from[] = {100, 64, 1, 1};
    std::copy_n(from, 4, &packet[12]);
    std::fill_n(&packet[16], 4, std::uint8_t{255});
    store(packet, 20, 67);
    store(packet, 22, 68);
    store(packet, 24, static_cast<unsigned int>(packet.size()) - 20);
    return summed(packet);
}

const std::string kLine =
    "servermac=\"02:00:64:00:01:01\" server=\"100.64.1.1\" ip=\"100.64.1.100\" "
    "mask=\"255.255.255.0\" router=\"100.64.1.1\" dns=\"100.64.1.1 100.64.1.53\" lease=\"3600\" "
    "domain=\"lan\"";

/** What is made of a packet that ends where its block of memory does; empty when it is no offer. */
std::string line(const Packet &packet, bool is_summed = true, std::uint32_t xid = kXid)
{
    const Packet exact{packet};
    const auto found = dhcp::offer_in(Bytes{exact}, is_summed, xid, kClient);
    return found ? dhcp::line_of(*found, kServer) : "";
}

Packet with(Packet packet, std::size_t at, unsigned int byte)
{
    packet[at] = static_cast<std::uint8_t>(byte);
    return summed(packet);
}

/** Offers that must not count, each with what is wrong with it. */
std::vector<std::pair<std::string, Packet>> hostile_offers(std::uint32_t xid,
                                                           const dhcp::Mac &client)
{
    const auto made = [&](const Packet &options) { return offer(options, xid, client); };
    const Packet good = made(kOptions);
    Packet bad_ip_sum = good;
    bad_ip_sum[10] ^= 1;
    Packet bad_udp_sum = good;
    bad_udp_sum[26] ^= 1;
    Packet bad_byte = good;
    bad_byte[28 + 16] ^= 1;
    Packet no_address = good;
    std::fill_n(&no_address[28 + 16], 4, std::uint8_t{0});
    // Without a checksum, which would be wrong as well.
    const auto of_udp_size = [&](unsigned int size) {
        Packet packet = good;
        store(packet, 24, size);
        store(packet, 26, 0);
        return packet;
    };
    // A header that ends in the middle of itself, and what follows is right all the same.
    Packet short_header = good;
    short_header.erase(short_header.begin() + 16, short_header.begin() + 20);
    short_header[0] = 0x44;
    store(short_header, 2, static_cast<unsigned int>(short_header.size()));
    store(short_header, 10, 0);
    store(short_header, 10, dhcp::checksum(dhcp::sum_of(Bytes{short_header}.first(16))));
    store(short_header, 22, 0);
    const Packet other_mac = with(good, 28 + 33, client[5] ^ 1U);
    const Packet head = {53, 1, 2, 54, 4, 100, 64, 1, 1};
    const auto plus = [&](Packet more) {
        more.insert(more.begin(), head.begin(), head.end());
        return made(more);
    };
    return {
        {"IPv6", with(good, 0, 0x65)},
        {"IP header of 16 bytes", short_header},
        {"IP header of 60 bytes", with(good, 0, 0x4F)},
        {"IP length beyond the packet", with(good, 2, 0x40)},
        {"IP length below its header", with(with(good, 2, 0), 3, 10)},
        {"IP length below the headers", with(with(good, 2, 0), 3, 27)},
        {"more fragments", with(good, 6, 0x20)},
        {"a later fragment", with(good, 7, 1)},
        {"TCP", with(good, 9, 6)},
        {"IP checksum", bad_ip_sum},
        {"UDP checksum", bad_udp_sum},
        {"a changed byte", bad_byte},
        {"from another port", with(good, 21, 68)},
        {"to another port", with(good, 23, 67)},
        {"UDP length beyond the packet", of_udp_size(0x4000)},
        {"UDP length below its header", of_udp_size(7)},
        {"UDP length within the message", of_udp_size(8 + 239)},
        {"a request", with(good, 28, 1)},
        {"no Ethernet", with(good, 29, 6)},
        {"length of the MAC", with(good, 30, 16)},
        {"wrong xid", with(good, 35, (xid & 0xFF) ^ 1)},
        {"for another host", other_mac},
        {"no cookie", with(good, 28 + 239, 98)},
        {"no address", summed(no_address)},
        {"no options", made({255})},
        {"no end, and an option too long", made({53, 1, 2, 54, 4, 100, 64, 1, 1, 1, 4, 255, 255})},
        {"an option without its length", plus({1})},
        {"an option of 255 bytes", plus({12, 255, 'x'})},
        {"an option one byte too long", plus({12, 2, 'x'})},
        {"an ACK", made({53, 1, 5, 54, 4, 100, 64, 1, 1, 255})},
        {"a type of no byte", made({53, 0, 54, 4, 100, 64, 1, 1, 255})},
        {"a type of two bytes", made({53, 2, 2, 2, 54, 4, 100, 64, 1, 1, 255})},
        {"no type", made({54, 4, 100, 64, 1, 1, 255})},
        {"no server", made({53, 1, 2, 255})},
        {"a server of three bytes", made({53, 1, 2, 54, 3, 100, 64, 1, 255})},
        {"a mask of five bytes", plus({1, 5, 255, 255, 255, 0, 0, 255})},
        {"a lease of one byte", plus({51, 1, 1, 255})},
        {"half a router", plus({3, 2, 100, 64, 255})},
        {"a router and a half", plus({3, 6, 100, 64, 1, 1, 100, 64, 255})},
        {"no router in the list", plus({3, 0, 255})},
        {"a server and a byte", plus({6, 5, 100, 64, 1, 1, 9, 255})},
        {"nothing", {}},
        {"one byte", {0x45}},
        {"zeros", Packet(300)},
        {"ones", Packet(300, 0xFF)},
    };
}

// ---- the reader -------------------------------------------------------------------------------

TEST(Offer, EveryField)
{
    EXPECT_EQ(line(offer()), kLine);
}

TEST(Offer, OnlyWhatIsThere)
{
    EXPECT_EQ(line(offer({54, 4, 1, 2, 3, 4, 0, 0, 53, 1, 2})),
              "servermac=\"02:00:64:00:01:01\" server=\"1.2.3.4\" ip=\"100.64.1.100\"")
        << "padding in between, and no end mark";
    EXPECT_EQ(line(offer({53, 1, 2, 54, 4, 1, 2, 3, 4, 53, 1, 9, 54, 1, 0, 255, 1, 9})),
              "servermac=\"02:00:64:00:01:01\" server=\"1.2.3.4\" ip=\"100.64.1.100\"")
        << "the first of a kind, and nothing behind the end";
}

TEST(Offer, LinksPadAndHeadersHaveOptions)
{
    Packet padded = offer();
    padded.resize(padded.size() + 40, 0xFF);
    EXPECT_EQ(line(padded), kLine);

    Packet wide = offer();
    wide.insert(wide.begin() + 20, {1, 1, 1, 0});
    wide[0] = 0x46;
    store(wide, 2, static_cast<unsigned int>(wide.size()));
    store(wide, 10, 0);
    store(wide, 10, dhcp::checksum(dhcp::sum_of(Bytes{wide}.first(24))));
    EXPECT_EQ(line(wide), kLine);
}

TEST(Offer, Checksums)
{
    Packet none = offer();
    store(none, 26, 0);
    EXPECT_EQ(line(none), kLine) << "a sender may leave it out";
    Packet odd = offer({53, 1, 2, 54, 4, 1, 2, 3, 4, 255, 0});
    EXPECT_NE(line(odd), "") << "an odd number of bytes";
    odd = offer({53, 1, 2, 54, 4, 1, 2, 3, 4, 255});
    EXPECT_NE(line(odd), "");
    Packet later = offer();
    store(later, 26, 0x1234);
    EXPECT_EQ(line(later), "");
    EXPECT_EQ(line(later, false), kLine) << "the hardware that sums is not there";
}

TEST(Offer, WhatIsNone)
{
    for (const auto &[what, packet] : hostile_offers(kXid, kClient)) {
        EXPECT_EQ(line(packet), "") << what;
    }
    const Packet good = offer();
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_EQ(line({good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)}), "");
    }
}

TEST(Offer, ANameIsNoWayOutOfItsField)
{
    const std::string name = "a\"b\\c d\n\x1b\x7f\xff\tx";
    Packet options = {53, 1, 2, 54, 4, 1, 2, 3, 4, 15, static_cast<std::uint8_t>(name.size())};
    options.insert(options.end(), name.begin(), name.end());
    EXPECT_THAT(line(offer(options)), testing::EndsWith(" domain=\"a?b?c?d?????x\""));
}

TEST(Question, IsAWholeDiscover)
{
    const Packet packet = dhcp::discover(kXid, kClient, true);
    ASSERT_EQ(packet.size(), 28U + 300U);
    EXPECT_EQ(dhcp::checksum(dhcp::sum_of(Bytes{packet}.first(20))), 0);
    EXPECT_EQ(
        dhcp::checksum(dhcp::udp_sum(Bytes{packet}.subspan(12, 8), Bytes{packet}.subspan(20))), 0);
    EXPECT_EQ(dhcp::u16_at(packet, 2), packet.size());
    EXPECT_EQ(dhcp::u16_at(packet, 20), 68);
    EXPECT_EQ(dhcp::u16_at(packet, 22), 67);
    EXPECT_EQ(dhcp::u16_at(packet, 24), 308);
    EXPECT_EQ(packet[28], 1);
    EXPECT_EQ(dhcp::u32_at(packet, 32), kXid);
    EXPECT_EQ(dhcp::u16_at(packet, 38), 0x8000);
    EXPECT_EQ(dhcp::u16_at(dhcp::discover(kXid, kClient, false), 38), 0);
    EXPECT_TRUE(std::equal(kClient.begin(), kClient.end(), &packet[56]));
    const dhcp::Options options{Bytes{packet}.subspan(268)};
    EXPECT_TRUE(options.sound());
    EXPECT_EQ(options[dhcp::kMessageType][0], dhcp::kDiscover);
    EXPECT_EQ(options[dhcp::kClientId].size(), 7U);
    EXPECT_TRUE(options.has(dhcp::kWanted));
}

// ---- on a cable -------------------------------------------------------------------------------

class Line : public testing::Test
{
  protected:
    Line()
    {
        test::run(
            "ip link add eth1 address 02:00:00:10:00:11 type veth peer name isp1 address "
            "02:00:64:00:01:01");
        test::run("ip link set eth1 up && ip link set isp1 up");
        test::link_is_up("eth1");
        socket_ = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        address_.sll_family = AF_PACKET;
        address_.sll_protocol = htons(ETH_P_IP);
        address_.sll_ifindex = static_cast<int>(if_nametoindex("isp1"));
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr *>(&address_), sizeof(address_)),
                  0);
    }
    ~Line() override
    {
        close(socket_);
        test::run("ip link del eth1");
    }

    void send(const Packet &packet, bool to_all = true) const
    {
        sockaddr_ll to = address_;
        to.sll_halen = ETH_ALEN;
        std::copy_n(kClient.data(), ETH_ALEN, to.sll_addr);
        if (to_all) {
            std::fill_n(to.sll_addr, ETH_ALEN, std::uint8_t{0xFF});
        }
        sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&to),
               sizeof(to));
    }

    /**
     * Runs the tool with a server that is called with each question, and @p in_child in its process
     * just before.
     */
    template <typename Serve>
    Outcome ask(
        const Words &options, Serve serve, const std::function<void()> &in_child = [] {})
    {
        const int stop = eventfd(0, EFD_CLOEXEC);
        std::thread server{[&] {
            pollfd waits[] = {{socket_, POLLIN, 0}, {stop, POLLIN, 0}};
            while (poll(waits, 2, -1) > 0 && waits[1].revents == 0) {
                Packet question(2048);
                sockaddr_ll from{};
                socklen_t size = sizeof(from);
                const ssize_t got = recvfrom(socket_, question.data(), question.size(), 0,
                                             reinterpret_cast<sockaddr *>(&from), &size);
                question.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
                if (from.sll_pkttype != PACKET_OUTGOING && question.size() > 240 &&
                    question[23] == 67) {
                    questions_.push_back(question);
                    serve(question);
                }
            }
        }};
        Words words = {DISCOVERY_DHCP, "-i", "eth1"};
        words.insert(words.end(), options.begin(), options.end());
        Outcome outcome = program(words, "", in_child);
        eventfd_write(stop, 1);
        server.join();
        close(stop);
        return outcome;
    }

    static std::uint32_t xid_of(const Packet &question) { return dhcp::u32_at(question, 32); }

    int socket_;
    sockaddr_ll address_{};
    std::vector<Packet> questions_;
};

TEST_F(Line, AnOffer)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const Outcome outcome = ask({"-t", "2", "-p"}, [&](const Packet &question) {
        send(offer(kOptions, xid_of(question)), false);
    });
    EXPECT_EQ(outcome, (Outcome{0, kLine + "\n", ""}));
    ASSERT_EQ(questions_.size(), 1U);
    EXPECT_EQ(questions_[0], dhcp::discover(xid_of(questions_[0]), kClient, false));
}

TEST_F(Line, AnOfferThatCannotBeWritten)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const Outcome outcome = ask(
        {}, [&](const Packet &question) { send(offer(kOptions, xid_of(question))); },
        [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    EXPECT_EQ(outcome,
              (Outcome{1, "", "discovery-dhcp: standard output: No space left on device\n"}));
}

TEST_F(Line, EveryQuestionHasItsNumber)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const auto serve = [&](const Packet &question) { send(offer(kOptions, xid_of(question))); };
    EXPECT_EQ(ask({}, serve).status, 0);
    EXPECT_EQ(ask({}, serve).status, 0);
    ASSERT_EQ(questions_.size(), 2U);
    EXPECT_NE(xid_of(questions_[0]), xid_of(questions_[1]));
    EXPECT_EQ(dhcp::u16_at(questions_[0], 38), 0x8000) << "an answer to everybody";
}

TEST_F(Line, Silence)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const double took = test::seconds([this] {
        EXPECT_EQ(ask({}, [](const Packet &) {}),
                  (Outcome{1, "", "discovery-dhcp: eth1: no server answered within 3 s\n"}));
    });
    EXPECT_GE(took, 2.99) << "unless told otherwise";
    ASSERT_EQ(questions_.size(), 3U) << "asked again every second";
    EXPECT_EQ(questions_.front(), questions_.back());
}

TEST_F(Line, HostileAnswersArePassedOver)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const Outcome outcome = ask({"-t", "3"}, [&](const Packet &question) {
        for (const auto &[what, packet] : hostile_offers(xid_of(question), kClient)) {
            send(packet);
        }
        send(offer(kOptions, xid_of(question)));
    });
    EXPECT_EQ(outcome, (Outcome{0, kLine + "\n", ""}));
    EXPECT_EQ(questions_.size(), 1U);
}

TEST_F(Line, OnlyHostileAnswers)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const Outcome outcome = ask({"-t", "1"}, [&](const Packet &question) {
        for (const auto &[what, packet] : hostile_offers(xid_of(question), kClient)) {
            send(packet);
        }
    });
    EXPECT_EQ(outcome, (Outcome{1, "", "discovery-dhcp: eth1: no server answered within 1 s\n"}));
    EXPECT_FALSE(questions_.empty());
}

TEST_F(Line, TheCableIsPulled)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const Outcome outcome =
        ask({"-t", "5"}, [&](const Packet &) { test::run("ip link set eth1 down"); });
    EXPECT_EQ(outcome, (Outcome{1, "", "discovery-dhcp: eth1: Network is down\n"}));
}

TEST_F(Line, InterfacesThatCannotBeAsked)
{
    test::run("ip link set lo up");
    for (const auto &[name, why] : {std::pair{"eth9", "No such device"},
                                    {"", "No such device"},
                                    {"sixteen_letters_", "No such device"},
                                    {"lo", "not an Ethernet interface"}}) {
        EXPECT_EQ(program({DISCOVERY_DHCP, "-i", name, "-t", "1"}),
                  (Outcome{1, "", std::string{"discovery-dhcp: "} + name + ": " + why + "\n"}));
    }
}

TEST_F(Line, AnInterfaceThatIsDown)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    test::run("ip link set eth1 down");
    EXPECT_EQ(program({DISCOVERY_DHCP, "-i", "eth1"}),
              (Outcome{1, "", "discovery-dhcp: eth1: Network is down\n"}));
}

// ---- the command line -------------------------------------------------------------------------

TEST(CommandLine, Help)
{
    test::explains_itself(DISCOVERY_DHCP, "usage: discovery-dhcp -i INTERFACE [-t SECONDS] [-p]",
                          TOOL_SOURCES "/discovery-dhcp.1", {"-i", "-t", "-p", "--help"});
}

TEST(CommandLine, Completion)
{
    const auto completes = [](const Words &words) {
        return test::bash_completes(TOOL_SOURCES "/discovery-dhcp.bash", DISCOVERY_DHCP, words);
    };
    EXPECT_EQ(completes({""}), (Words{"-i", "-t", "-p", "--help"}));
    EXPECT_EQ(completes({"-i", "l"}), Words{"lo"});
    EXPECT_EQ(completes({"-i", "lo", "-t", ""}), Words{});
    EXPECT_EQ(completes({"-i", "lo", "--"}), Words{"--help"});
}

TEST(CommandLine, Wrong)
{
    for (const auto &[words, why] : {
             std::pair{Words{}, "an interface is missing"},
             {Words{"-t", "2"}, "an interface is missing"},
             {Words{"-i"}, "an option is unknown or lacks its value"},
             {Words{"-x"}, "an option is unknown or lacks its value"},
             {Words{"-i", "eth1", "-t"}, "an option is unknown or lacks its value"},
             {Words{"-i", "eth1", "-t", "0"}, "-t takes 1 to 3600 seconds"},
             {Words{"-i", "eth1", "-t", "3601"}, "-t takes 1 to 3600 seconds"},
             {Words{"-i", "eth1", "-t", "2s"}, "-t takes 1 to 3600 seconds"},
             {Words{"-i", "eth1", "-t", ""}, "-t takes 1 to 3600 seconds"},
             {Words{"-i", "eth1", "-t", "99999999999"}, "-t takes 1 to 3600 seconds"},
             {Words{"-i", "eth1", "more"}, "there are no arguments but options"},
         }) {
        Words all = {DISCOVERY_DHCP};
        all.insert(all.end(), words.begin(), words.end());
        const Outcome outcome = program(all);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(outcome.err.starts_with(std::string{"discovery-dhcp: "} + why + "\nusage: "))
            << outcome;
    }
}

}  // namespace
