// SPDX-License-Identifier: MIT
// discovery-dhcp: asks a line for DHCP servers without taking a lease or touching the interface.
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "dhcp_offer.hpp"

namespace
{

enum ExitCode : int { kAnswered = 0, kNoAnswer = 1, kUsage = 2 };

constexpr int kDefaultSeconds = 3;
constexpr int kMostSeconds = 3600;
constexpr int kRepeatMs = 1000;
constexpr std::size_t kLargestPacket = 4096;

constexpr const char *kHelp =
    "usage: discovery-dhcp -i INTERFACE [-t SECONDS] [-p]\n"
    "\n"
    "Asks whether a DHCP server answers on a line, and prints its offer as one line of\n"
    "name=\"value\" fields: servermac, server, ip, mask, router, dns, lease, domain.\n"
    "No lease is taken and the interface stays as it is; it must be up.\n"
    "\n"
    "  -i INTERFACE  the Ethernet interface to ask on\n"
    "  -t SECONDS    how long to wait, 1 to 3600 (default 3); the question is repeated every "
    "second\n"
    "  -p            ask for a private answer, to this interface alone and not to everybody on "
    "the\n"
    "                line; a few servers and relays answer only everybody\n"
    "  -h, --help    this text\n"
    "\n"
    "Exit status: 0 a server answered; 1 none did, or the question could not be asked or "
    "its\nanswer written; 2 wrong usage.\n";

struct Arguments {
    const char *ifname = nullptr;
    int seconds = kDefaultSeconds;
    bool private_answer = false;
};

int failed(const char *where, const char *what)
{
    fprintf(stderr, "discovery-dhcp: %s: %s\n", where, what);
    return kNoAnswer;
}

long long now_ms()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

/** Keeps everything from a socket but IPv4 datagrams to a DHCP client. */
bool attach_filter(int socket)
{
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9),  // protocol
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, dhcp::kUdp, 0, 6),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 6),  // not the first fragment
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x1FFF, 4, 0),
        BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),  // length of the IP header
        BPF_STMT(BPF_LD | BPF_H | BPF_IND, 2),   // destination port
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, dhcp::kClientPort, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, kLargestPacket),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program = {sizeof(steps) / sizeof(steps[0]), steps};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)) == 0;
}

/** An Ethernet interface as IPv4 packets go over it, whether it has an address or not. */
class Line
{
  public:
    ~Line()
    {
        if (socket_ >= 0) {
            close(socket_);
        }
    }
    Line() = default;
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    /** @return what is wrong, nullptr when nothing is */
    const char *open(const char *ifname)
    {
        ifreq request{};
        const std::size_t length = strlen(ifname);
        if (length == 0 || length >= sizeof(request.ifr_name)) {
            return strerror(ENODEV);
        }
        memcpy(request.ifr_name, ifname, length);
        // Nothing is received before the filter is in place: protocol 0 is none.
        socket_ = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (socket_ < 0 || ioctl(socket_, SIOCGIFHWADDR, &request) != 0) {
            return strerror(errno);
        }
        if (request.ifr_hwaddr.sa_family != ARPHRD_ETHER) {
            return "not an Ethernet interface";
        }
        memcpy(mac_.data(), request.ifr_hwaddr.sa_data, mac_.size());
        address_.sll_family = AF_PACKET;
        address_.sll_protocol = htons(ETH_P_IP);
        address_.sll_ifindex = static_cast<int>(if_nametoindex(ifname));
        const int on = 1;
        if (!attach_filter(socket_) ||
            setsockopt(socket_, SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on)) != 0 ||
            bind(socket_, reinterpret_cast<const sockaddr *>(&address_), sizeof(address_)) != 0) {
            return strerror(errno);
        }
        return nullptr;
    }

    const dhcp::Mac &mac() const { return mac_; }

    bool send_to_all(const std::vector<std::uint8_t> &packet) const
    {
        sockaddr_ll to = address_;
        to.sll_halen = ETH_ALEN;
        memset(to.sll_addr, 0xFF, ETH_ALEN);
        return sendto(socket_, packet.data(), packet.size(), 0,
                      reinterpret_cast<const sockaddr *>(&to), sizeof(to)) >= 0;
    }

    /** One received packet. */
    struct Packet {
        std::array<std::uint8_t, kLargestPacket> data;
        std::size_t size = 0;
        bool summed = true;
        dhcp::Mac sender{};
    };

    /** Waits for a packet. @return whether one came; a signal or a fault of the line is none */
    bool receive(Packet &packet, int milliseconds) const
    {
        pollfd wait = {socket_, POLLIN, 0};
        if (poll(&wait, 1, milliseconds) <= 0) {
            return false;
        }
        sockaddr_ll from{};
        iovec part = {packet.data.data(), packet.data.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(tpacket_auxdata))];
        msghdr message{};
        message.msg_name = &from;
        message.msg_namelen = sizeof(from);
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        const ssize_t got = recvmsg(socket_, &message, 0);
        if (got < 0) {
            return false;
        }
        packet.size = static_cast<std::size_t>(got);
        packet.summed = is_summed(message);
        memcpy(packet.sender.data(), from.sll_addr, packet.sender.size());
        return true;
    }

  private:
    static bool is_summed(msghdr &message)
    {
        for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr;
             part = CMSG_NXTHDR(&message, part)) {
            if (part->cmsg_level == SOL_PACKET && part->cmsg_type == PACKET_AUXDATA) {
                tpacket_auxdata about;
                memcpy(&about, CMSG_DATA(part), sizeof(about));
                return (about.tp_status & TP_STATUS_CSUMNOTREADY) == 0;
            }
        }
        return true;
    }

    int socket_ = -1;
    dhcp::Mac mac_{};
    sockaddr_ll address_{};
};

/** Waits for an offer until @p deadline. */
bool print_offer(const Line &line, std::uint32_t xid, long long deadline)
{
    for (long long left; (left = deadline - now_ms()) > 0;) {
        Line::Packet packet;
        if (!line.receive(packet, static_cast<int>(left))) {
            continue;
        }
        const auto offer = dhcp::offer_in(dhcp::Bytes{packet.data}.first(packet.size),
                                          packet.summed, xid, line.mac());
        if (offer) {
            printf("%s\n", dhcp::line_of(*offer, packet.sender).c_str());
            return true;
        }
    }
    return false;
}

int discover(const Arguments &arguments)
{
    Line line;
    if (const char *const flaw = line.open(arguments.ifname)) {
        return failed(arguments.ifname, flaw);
    }
    std::uint32_t xid = 0;
    if (getrandom(&xid, sizeof(xid), 0) != sizeof(xid)) {
        return failed(arguments.ifname, strerror(errno));
    }
    const auto question = dhcp::discover(xid, line.mac(), !arguments.private_answer);
    const long long end = now_ms() + arguments.seconds * 1000LL;
    for (long long now; (now = now_ms()) < end;) {
        if (!line.send_to_all(question)) {
            return failed(arguments.ifname, strerror(errno));
        }
        if (print_offer(line, xid, std::min(end, now + kRepeatMs))) {
            const bool written = fflush(stdout) == 0 && ferror(stdout) == 0;
            return written ? kAnswered : failed("standard output", strerror(errno));
        }
    }
    fprintf(stderr, "discovery-dhcp: %s: no server answered within %d s\n", arguments.ifname,
            arguments.seconds);
    return kNoAnswer;
}

bool read_seconds(const char *text, int &seconds)
{
    const char *const end = text + strlen(text);
    const auto [rest, error] = std::from_chars(text, end, seconds);
    return error == std::errc{} && rest == end && seconds >= 1 && seconds <= kMostSeconds;
}

int wrong_usage(const char *why)
{
    fprintf(stderr, "discovery-dhcp: %s\n%s", why, kHelp);
    return kUsage;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kHelp, stdout);
        return kAnswered;
    }
    Arguments arguments;
    opterr = 0;
    for (int option; (option = getopt(argc, argv, "i:t:ph")) != -1;) {
        switch (option) {
            case 'i':
                arguments.ifname = optarg;
                break;
            case 't':
                if (!read_seconds(optarg, arguments.seconds)) {
                    return wrong_usage("-t takes 1 to 3600 seconds");
                }
                break;
            case 'p':
                arguments.private_answer = true;
                break;
            case 'h':
                fputs(kHelp, stdout);
                return kAnswered;
            default:
                return wrong_usage("an option is unknown or lacks its value");
        }
    }
    if (optind < argc) {
        return wrong_usage("there are no arguments but options");
    }
    if (arguments.ifname == nullptr) {
        return wrong_usage("an interface is missing");
    }
    return discover(arguments);
}
