// SPDX-License-Identifier: MIT
// The device's own DNS client, against servers of the test's that answer whatever it likes.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "internal/dns_message.hpp"
#include "prod_common_wan.h"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/network.hpp"
#include "support/time.hpp"

using namespace std::string_literals;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace
{

// ---- system calls that fail when a test says so -----------------------------------------------

std::string failing;  // the name of the call
int failing_option;   // of setsockopt
int error;
bool short_send;

struct Option {
    int name;
    std::string value;
};
std::vector<Option> options_set;
int sockets_made;
int socket_type;

bool fails(const char *call)
{
    if (failing != call) {
        return false;
    }
    errno = error;
    return true;
}

}  // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    if (domain == AF_INET) {
        ++sockets_made;
        socket_type = type;
        if (fails("socket")) {
            return -1;
        }
    }
    return test::next(socket, "socket")(domain, type, protocol);
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t size) noexcept
{
    if (level == SOL_SOCKET) {
        options_set.push_back({name, {static_cast<const char *>(value), size}});
        if (name == failing_option && fails("setsockopt")) {
            return -1;
        }
    }
    return test::next(setsockopt, "setsockopt")(fd, level, name, value, size);
}

ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *to,
               socklen_t to_size)
{
    if (fails("sendto")) {
        return -1;
    }
    const ssize_t sent = test::next(sendto, "sendto")(fd, data, size, flags, to, to_size);
    return short_send ? sent - 1 : sent;
}

ssize_t recv(int fd, void *data, size_t size, int flags)
{
    return fails("recv") ? -1 : test::next(recv, "recv")(fd, data, size, flags);
}
}

namespace
{

// ---- messages ---------------------------------------------------------------------------------

std::string u16(unsigned int value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string label(const std::string &text)
{
    return static_cast<char>(text.size()) + text;
}

const std::string kEnd(1, '\0');
const std::string kName = label("www") + label("example") + label("net") + kEnd;
const std::string kQuestion = kName + u16(1) + u16(1);
const std::string kToQuestion = "\xC0\x0C"s;

std::string header(unsigned int questions, unsigned int answers)
{
    return u16(0xFF00) + u16(0x8180) + u16(questions) + u16(answers) + u16(0) + u16(0);
}

std::string record(unsigned int type, const std::string &data,
                   const std::string &owner = kToQuestion)
{
    return owner + u16(type) + u16(1) + u16(0) + u16(300) +
           u16(static_cast<unsigned int>(data.size())) + data;
}

std::string address(int last)
{
    return record(1, "\xC6\x33\x64"s + static_cast<char>(last));
}

/** A well-formed answer with these records. */
std::string message(const std::vector<std::string> &records)
{
    std::string text = header(1, static_cast<unsigned int>(records.size())) + kQuestion;
    for (const std::string &one : records) {
        text += one;
    }
    return text;
}

// ---- a server ---------------------------------------------------------------------------------

/** Listens on port 53 of an address of this device and answers each query with the same bytes. */
class Server
{
  public:
    explicit Server(std::string response, const char *at = "127.0.0.53", bool silent = false)
        : response_(std::move(response)), silent_(silent), fd_(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        sockaddr_in local = {};
        local.sin_family = AF_INET;
        local.sin_port = htons(53);
        local.sin_addr.s_addr = inet_addr(at);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&local), sizeof(local)), 0);
        EXPECT_EQ(pipe(stop_), 0);
        thread_ = std::thread{[this] { serve(); }};
    }

    ~Server()
    {
        EXPECT_EQ(write(stop_[1], "", 1), 1);
        thread_.join();
        close(fd_);
        close(stop_[0]);
        close(stop_[1]);
    }

    /** The queries so far. */
    std::vector<std::string> queries()
    {
        const std::lock_guard lock{mutex_};
        return queries_;
    }

  private:
    void serve()
    {
        for (;;) {
            pollfd ready[] = {{fd_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
            poll(ready, 2, -1);
            if (ready[0].revents != 0) {
                answer();
            } else if (ready[1].revents != 0) {
                return;
            }
        }
    }

    void answer()
    {
        char query[2048];
        sockaddr_in from;
        socklen_t size = sizeof(from);
        const ssize_t got =
            recvfrom(fd_, query, sizeof(query), 0, reinterpret_cast<sockaddr *>(&from), &size);
        {
            const std::lock_guard lock{mutex_};
            queries_.emplace_back(query, static_cast<std::size_t>(got));
        }
        if (!silent_) {
            test::next(sendto, "sendto")(fd_, response_.data(), response_.size(), 0,
                                         reinterpret_cast<sockaddr *>(&from), size);
        }
    }

    const std::string response_;
    const bool silent_;
    const int fd_;
    int stop_[2];
    std::mutex mutex_;
    std::vector<std::string> queries_;
    std::thread thread_;
};

struct Result {
    int count;
    std::string texts[3];
    std::string said;  // on standard error
};

/** Resolves with @p room texts for addresses. */
Result resolve(const char *domain = "www.example.net", const char *ifname = nullptr,
               const char *server = "127.0.0.53", int room = 3)
{
    char texts[3][16] = {"untouched", "untouched", "untouched"};
    const int before = test::open_descriptors();
    CaptureStderr();
    const int count =
        prod_resolve_domain(domain, ifname, server, texts[0], room > 1 ? texts[1] : nullptr,
                            room > 2 ? texts[2] : nullptr);
    Result result{count, {texts[0], texts[1], texts[2]}, GetCapturedStderr()};
    EXPECT_EQ(test::open_descriptors(), before);
    return result;
}

/** What an answer resolves to: "2 198.51.100.1 198.51.100.2". */
std::string resolved(const std::string &response, int room = 3)
{
    const Server server{response};
    const Result result = resolve("www.example.net", nullptr, "127.0.0.53", room);
    EXPECT_EQ(result.said, "");
    std::string text = std::to_string(result.count);
    for (int i = 0; i < 3; ++i) {
        if (i < result.count) {
            text += " " + result.texts[i];
        } else {
            EXPECT_EQ(result.texts[i], "untouched");
        }
    }
    return text;
}

class ResolveDomain : public testing::Test
{
  protected:
    static void SetUpTestSuite() { test::run("ip link set lo up"); }

    void SetUp() override
    {
        failing.clear();
        failing_option = 0;
        short_send = false;
        options_set.clear();
        sockets_made = 0;
    }
    void TearDown() override { SetUp(); }
};

// ---- the query --------------------------------------------------------------------------------

TEST_F(ResolveDomain, TheQueryByteByByte)
{
    Server server{message({address(1)})};
    EXPECT_EQ(resolve().count, 1);
    ASSERT_EQ(server.queries().size(), 1U);
    EXPECT_EQ(server.queries()[0],
              "\xFF\x00\x01\x00\x00\x01\x00\x00\x00\x00\x00\x00"
              "\x03www\x07"
              "example\x03net\x00\x00\x01\x00\x01"s);
    EXPECT_EQ(socket_type, SOCK_DGRAM | SOCK_CLOEXEC);
    ASSERT_EQ(options_set.size(), 2U);
    const timeval two_seconds = {2, 0};
    for (const Option &option : options_set) {
        EXPECT_EQ(option.value,
                  std::string(reinterpret_cast<const char *>(&two_seconds), sizeof(two_seconds)));
    }
    EXPECT_EQ(options_set[0].name, SO_SNDTIMEO);
    EXPECT_EQ(options_set[1].name, SO_RCVTIMEO);
}

/** The name in the question that is sent for a domain. */
std::string name_asked(const std::string &domain)
{
    Server server{message({})};
    EXPECT_EQ(resolve(domain.c_str()).count, 0);
    const std::string query = server.queries().at(0);
    EXPECT_EQ(query.substr(query.size() - 4), u16(1) + u16(1));
    return query.substr(12, query.size() - 16);
}

TEST_F(ResolveDomain, LabelsAreTakenAsTheyAre)
{
    EXPECT_EQ(name_asked("localhost"), label("localhost") + kEnd);
    EXPECT_EQ(name_asked("a.b."), label("a") + label("b") + "\0\0"s);
    EXPECT_EQ(name_asked("a..b"), label("a") + "\0"s + label("b") + kEnd);
    EXPECT_EQ(name_asked("."), "\0\0\0"s);
    EXPECT_EQ(name_asked(""), "\0\0"s);
    EXPECT_EQ(name_asked(std::string(100, 'l')), label(std::string(100, 'l')) + kEnd);
}

TEST_F(ResolveDomain, ANameHas122CharactersAtMost)
{
    const std::string longest = std::string(60, 'a') + "." + std::string(61, 'b');
    EXPECT_EQ(name_asked(longest),
              label(std::string(60, 'a')) + label(std::string(61, 'b')) + kEnd);
    for (const std::string &longer : {longest + "c", longest + ".", std::string(5000, 'd')}) {
        Server server{message({address(1)})};
        sockets_made = 0;
        const Result result = resolve(longer.c_str());
        EXPECT_EQ(result.count, -1);
        EXPECT_EQ(result.said, "");
        EXPECT_EQ(result.texts[0], "untouched");
        EXPECT_EQ(sockets_made, 0) << "nothing was sent";
    }
}

TEST_F(ResolveDomain, NothingIsSentWithoutWhatItNeeds)
{
    char text[16] = "untouched";
    Server server{message({address(1)})};
    CaptureStderr();
    EXPECT_EQ(prod_resolve_domain(nullptr, nullptr, "127.0.0.53", text, nullptr, nullptr), -1);
    EXPECT_EQ(prod_resolve_domain("a.b", nullptr, nullptr, text, nullptr, nullptr), -1);
    EXPECT_EQ(prod_resolve_domain("a.b", nullptr, "", text, nullptr, nullptr), -1);
    EXPECT_EQ(prod_resolve_domain("a.b", nullptr, "0.0.0.0", text, nullptr, nullptr), -1);
    EXPECT_EQ(prod_resolve_domain("a.b", nullptr, "127.0.0.53", nullptr, text, text), -1);
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(sockets_made, 1) << "the server's own";
    EXPECT_TRUE(server.queries().empty());
}

// ---- steps that fail --------------------------------------------------------------------------

void fails_at(const std::string &step, int err, const char *ifname = nullptr)
{
    const Result result = resolve("www.example.net", ifname);
    EXPECT_EQ(result.count, -1);
    EXPECT_EQ(result.said, step + ": " + strerror(err) + "\n");
    EXPECT_EQ(result.texts[0], "untouched");
}

TEST_F(ResolveDomain, EachFailingStepIsNamed)
{
    Server server{message({address(1)})};
    const struct {
        const char *call;
        int option;
        int err;
        const char *step;
    } kSteps[] = {
        {"socket", 0, EMFILE, "create socket"},
        {"setsockopt", SO_SNDTIMEO, ENOMEM, "socket set send time"},
        {"setsockopt", SO_RCVTIMEO, EDOM, "socket set recv time"},
        {"setsockopt", SO_BINDTODEVICE, EPERM, "bind interface"},
        {"sendto", 0, EHOSTUNREACH, "send request"},
        {"recv", 0, EINTR, "recv response"},
    };
    for (const auto &[call, option, err, step] : kSteps) {
        failing = call;
        failing_option = option;
        error = err;
        fails_at(step, err, "lo");
    }
    failing.clear();
    short_send = true;
    fails_at("send request", 0);
}

TEST_F(ResolveDomain, NobodyAnswers)
{
    // Nothing arrives, and on a socket that is not connected the kernel reports no refusal.
    const Server silent{"", "127.0.0.53", true};
    const double took = test::seconds([] { fails_at("recv response", EAGAIN); });
    EXPECT_GE(took, 1.9);
    EXPECT_LT(took, 3.9) << "it does not wait a second time";
}

TEST_F(ResolveDomain, AServerThatIsNoAddress)
{
    for (const char *const server : {"dns.example.net", "1.2.3.4.5", "255.255.255.255", " "}) {
        const Result result = resolve("www.example.net", nullptr, server);
        EXPECT_EQ(result.count, -1) << server;
        EXPECT_EQ(result.said.substr(0, 14), "send request: ") << server;
    }
}

// ---- the interface ----------------------------------------------------------------------------

TEST_F(ResolveDomain, TheSocketIsBoundToTheInterface)
{
    const Server server{message({address(1)})};
    EXPECT_EQ(resolve("www.example.net", "lo").count, 1);
    ASSERT_EQ(options_set.size(), 3U);
    EXPECT_EQ(options_set[2].name, SO_BINDTODEVICE);
    EXPECT_EQ(options_set[2].value, "lo" + std::string(30, '\0'));

    options_set.clear();
    EXPECT_EQ(resolve("www.example.net", "").count, 1);
    EXPECT_EQ(options_set.size(), 2U);

    options_set.clear();
    fails_at("bind interface", ENODEV, "an_interface_name_beyond_all_bounds");
    EXPECT_EQ(options_set[2].value, "an_interface_nam" + std::string(16, '\0'));
    fails_at("bind interface", ENODEV, std::string(5000, 'n').c_str());
}

TEST_F(ResolveDomain, TheInterfaceIsTheOnlyWay)
{
    test::run(
        "ip link add away0 type bridge && ip address add 192.0.2.1/24 dev away0 &&"
        "ip link set away0 up");
    Server server{message({address(1)})};
    failing = "recv";  // what was sent, if anything, was sent over there
    error = EAGAIN;
    EXPECT_EQ(resolve("www.example.net", "away0").count, -1);
    // The server takes one query after the other: with this one's answer all before are noted.
    failing.clear();
    EXPECT_EQ(resolve("www.example.net", "lo").count, 1);
    EXPECT_EQ(server.queries().size(), 1U) << "the first did not come";
    test::run("ip link delete away0");
}

// ---- answers ----------------------------------------------------------------------------------

TEST_F(ResolveDomain, AsManyAddressesAsThereIsRoomFor)
{
    const std::string four = message({address(1), address(2), address(3), address(4)});
    EXPECT_EQ(resolved(four), "3 198.51.100.1 198.51.100.2 198.51.100.3");
    EXPECT_EQ(resolved(four, 2), "2 198.51.100.1 198.51.100.2");
    EXPECT_EQ(resolved(four, 1), "1 198.51.100.1");
    EXPECT_EQ(resolved(message({address(1)})), "1 198.51.100.1");
    EXPECT_EQ(resolved(message({})), "0");
    EXPECT_EQ(resolved(message({record(1, "\xFF\xFF\xFF\xFE"s)})), "1 255.255.255.254");
}

TEST_F(ResolveDomain, NoThirdAddressWithoutASecond)
{
    const Server server{message({address(1), address(2), address(3)})};
    char first[16];
    char third[16] = "untouched";
    EXPECT_EQ(prod_resolve_domain("a.b", nullptr, "127.0.0.53", first, nullptr, third), 1);
    EXPECT_STREQ(first, "198.51.100.1");
    EXPECT_STREQ(third, "untouched");
}

TEST_F(ResolveDomain, AChainOfNames)
{
    const std::string chain = record(5, label("web") + "\xC0\x10"s);
    EXPECT_EQ(resolved(message({chain, address(1), address(2)})), "2 198.51.100.1 198.51.100.2");
    EXPECT_EQ(resolved(message({chain, record(5, kName, "\xC0\x2D"s), address(7)})),
              "1 198.51.100.7");
}

TEST_F(ResolveDomain, RecordsOfOtherKinds)
{
    EXPECT_EQ(resolved(message({record(28, std::string(16, 'x')), record(1, "abc"),
                                record(1, "abcde"), record(16, ""), address(9)})),
              "1 198.51.100.9");
}

TEST_F(ResolveDomain, IdFlagsAndClassAreNotLookedAt)
{
    std::string answer = message({address(1)});
    answer.replace(0, 4, "\x12\x34\x00\x03"s);  // another id; a query; no such name
    answer[answer.size() - 11] = 3;             // class CHAOS
    EXPECT_EQ(resolved(answer), "1 198.51.100.1");
}

TEST_F(ResolveDomain, QuestionsAreSkippedAsManyAsThereAre)
{
    EXPECT_EQ(resolved(header(0, 1) + record(1, "\x0A\x00\x00\x01"s, "\0\0"s)), "1 10.0.0.1");
    EXPECT_EQ(resolved(header(3, 1) + kQuestion + kEnd + u16(1) + u16(1) + kQuestion + address(1)),
              "1 198.51.100.1");
}

TEST_F(ResolveDomain, NamesWrittenOutAreMisread)
{
    // The record's fields are looked for behind two bytes: "ww" where the type would be.
    EXPECT_EQ(resolved(message({record(1, "\x0A\x00\x00\x01"s, kName), address(1)})), "0");
    // A name of two bytes fits by chance.
    EXPECT_EQ(resolved(message({record(1, "\x0A\x00\x00\x01"s, "\0\0"s)})), "1 10.0.0.1");
}

TEST_F(ResolveDomain, EveryTruncationGivesWhatIsWhole)
{
    const std::string whole = message({address(1), record(5, "\xC0\x0C"s), address(2)});
    const std::size_t first_end = 12 + kQuestion.size() + 16;
    std::vector<char> guarded;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        guarded.assign(whole.begin(), whole.begin() + static_cast<long>(size));
        guarded.shrink_to_fit();
        in_addr addresses[3];
        const std::size_t found = prod::parse_dns_answer(
            {reinterpret_cast<const unsigned char *>(guarded.data()), guarded.size()}, addresses);
        EXPECT_EQ(found, size < first_end ? 0U : size < whole.size() ? 1U : 2U) << size;
    }
    EXPECT_EQ(resolved(""), "0");
    EXPECT_EQ(resolved(whole.substr(0, 11)), "0");
    EXPECT_EQ(resolved(whole.substr(0, first_end - 1)), "0");
    EXPECT_EQ(resolved(whole.substr(0, whole.size() - 1)), "1 198.51.100.1");
}

TEST_F(ResolveDomain, LyingAnswers)
{
    const std::string one = kQuestion + address(1);
    EXPECT_EQ(resolved(header(1, 0xFFFF) + one), "1 198.51.100.1");
    EXPECT_EQ(resolved(header(0xFFFF, 1) + one), "0");
    EXPECT_EQ(resolved(header(2, 1) + one), "0");
    EXPECT_EQ(resolved(header(1, 0) + one), "0");

    std::string data_too_long = message({address(1), record(16, "text"), address(2)});
    data_too_long[data_too_long.size() - 16 - 5] = 'x';  // 120 bytes of text
    EXPECT_EQ(resolved(data_too_long), "1 198.51.100.1");
    std::string most = message({record(16, "text")});
    most.replace(most.size() - 6, 2, "\xFF\xFF");
    EXPECT_EQ(resolved(most), "0");
}

TEST_F(ResolveDomain, NamesThatLeadNowhereEndTheReading)
{
    const std::size_t start = message({}).size();
    const auto at = [](std::size_t offset) { return "\xC0"s + static_cast<char>(offset); };
    const auto owned_by = [&](const std::string &owner) {
        return resolved(message({address(1), record(1, "\x0A\x00\x00\x01"s, owner), address(3)}));
    };
    EXPECT_EQ(owned_by(at(start + 16)), "1 198.51.100.1") << "to itself";
    EXPECT_EQ(owned_by(at(200)), "1 198.51.100.1") << "behind the end";
    EXPECT_EQ(owned_by("\x3F\x01"s), "1 198.51.100.1") << "a label longer than the message";
    EXPECT_EQ(resolved(message({record(5, at(start + 12)), address(1)})), "0") << "an alias";
    EXPECT_EQ(resolved(message({record(5, at(start + 14) + at(start + 12)), address(1)})), "0")
        << "two pointers to each other";
    const std::string alias = record(5, label("web") + "\xC0\x10"s);
    EXPECT_EQ(resolved(message({alias, record(1, "\x0A\x00\x00\x01"s, at(start + 12))})),
              "1 10.0.0.1");
    EXPECT_EQ(resolved(message({alias, record(1, "\x0A\x00\x00\x01"s, at(start + 13))})), "0")
        << "into the middle of a label";
    EXPECT_EQ(resolved(message({address(1)}) + "\xC0"), "1 198.51.100.1");
    std::string half = header(1, 2) + kQuestion + address(1) + record(5, "\xC0"s);
    EXPECT_EQ(resolved(half), "1 198.51.100.1");
}

TEST_F(ResolveDomain, OwnersBeyondOffset255)
{
    // Only the second byte of a pointer counts. What it then leads to may be anything, but the
    // records themselves are read right.
    std::vector<std::string> records;
    for (int i = 0; i < 24; ++i) {
        records.push_back(record(5, label("host-" + std::to_string(10 + i)) + "\xC0\x10"s));
    }
    const std::string far = "\xC1"s;
    for (const int second : {0x00, 0x2C, 0x2E, 0x30, 0xF0, 0xFF}) {
        std::vector<std::string> all = records;
        all.push_back(record(5, "\xC1"s + static_cast<char>(second)));
        all.push_back(record(1, "\x0A\x00\x00\x01"s, far + static_cast<char>(second)));
        const std::string answer = message(all);
        ASSERT_GT(answer.size(), 0x1FFU);
        EXPECT_EQ(resolved(answer), "1 10.0.0.1") << second;
    }
}

TEST_F(ResolveDomain, OverLongAnswersAreReadAsFarAsTheyFit)
{
    std::vector<std::string> records{address(1)};
    for (int i = 0; i < 10; ++i) {
        records.push_back(record(16, std::string(200, 't')));
    }
    records.push_back(address(2));
    ASSERT_GT(message(records).size(), prod::kDnsMessageSize);
    EXPECT_EQ(resolved(message(records)), "1 198.51.100.1");
    EXPECT_EQ(resolved(std::string(9000, '\xFF')), "0");
    EXPECT_EQ(resolved(std::string(1024, '\0')), "0");
}

TEST_F(ResolveDomain, TheQueryIsNotReadAsItsAnswer)
{
    // A header alone, with counts: the question and a record's room stood behind it in the query.
    EXPECT_EQ(resolved(header(1, 1)), "0");
    EXPECT_EQ(resolved(header(0, 1)), "0");
}

// ---- names ------------------------------------------------------------------------------------

struct Decoded {
    bool whole;
    std::string text;
    bool operator==(const Decoded &) const = default;
};

Decoded decoded(const std::string &bytes, std::size_t at = 0, const std::string &before = "")
{
    prod::DnsName name{};
    memcpy(name.data(), before.data(), before.size());
    std::size_t length = before.size();
    const std::vector<unsigned char> exact(bytes.begin(), bytes.end());
    const bool whole = prod::parse_dns_name(exact, at, name, length);
    EXPECT_EQ(name[length], '\0');
    return {whole, {name.data(), length}};
}

TEST(DnsName, Labels)
{
    EXPECT_EQ(decoded(kName), (Decoded{true, "www.example.net"}));
    EXPECT_EQ(decoded(kEnd), (Decoded{true, ""}));
    EXPECT_EQ(decoded(kName, 4), (Decoded{true, "example.net"}));
    EXPECT_EQ(decoded(kName, 0, "at "), (Decoded{true, "at www.example.net"}));
    EXPECT_EQ(decoded(label(std::string(0xBF, 'l')) + kEnd),
              (Decoded{true, std::string(0xBF, 'l')}));
}

TEST(DnsName, Pointers)
{
    EXPECT_EQ(decoded(kName + label("ftp") + "\xC0\x04"s, kName.size()),
              (Decoded{true, "ftp.example.net"}));
    EXPECT_EQ(decoded(kName + "\xC0\x00"s, kName.size()), (Decoded{true, "www.example.net"}));
    EXPECT_EQ(decoded(kEnd + label("a") + "\xC0\x00"s, 1), (Decoded{true, "a"}));
    EXPECT_EQ(decoded(kName + "\xFF\x04"s, kName.size()), (Decoded{true, "example.net"}))
        << "the first byte's other bits do not count";
}

TEST(DnsName, Nowhere)
{
    EXPECT_EQ(decoded("\xC0\x00"s), (Decoded{false, ""}));
    EXPECT_EQ(decoded(""), (Decoded{false, ""}));
    EXPECT_EQ(decoded(kName, 900), (Decoded{false, ""}));
    EXPECT_EQ(decoded("\x03ww"s), (Decoded{false, ""}));
    EXPECT_EQ(decoded("\x03www"s), (Decoded{false, "www"}));
    EXPECT_EQ(decoded(label("www") + "\xC0"s), (Decoded{false, "www"}));
    EXPECT_EQ(decoded(label("www") + "\xC0\x00"s).whole, false) << "round and round";
}

/** A name that jumps @p jumps times. */
std::string jumping(int jumps)
{
    std::string text;
    for (int i = 0; i < jumps; ++i) {
        text += "\xC0"s + static_cast<char>(2 * (i + 1));
    }
    return text + label("end") + kEnd;
}

TEST(DnsName, Limits)
{
    EXPECT_EQ(decoded(jumping(64)), (Decoded{true, "end"}));
    EXPECT_EQ(decoded(jumping(65)), (Decoded{false, ""}));
    std::string labels;
    std::string text;
    for (int i = 0; i < 128; ++i) {
        labels += label("x");
        text += i > 0 ? ".x" : "x";
    }
    EXPECT_EQ(decoded(labels + kEnd), (Decoded{true, text}));
    EXPECT_FALSE(decoded(labels + label("x") + kEnd).whole);
    // 255 characters are kept.
    const std::string five = label(std::string(100, 'a')) + label(std::string(100, 'b')) +
                             label(std::string(100, 'c')) + kEnd;
    EXPECT_EQ(decoded(five), (Decoded{true, std::string(100, 'a') + "." + std::string(100, 'b') +
                                                "." + std::string(53, 'c')}));
}

TEST(DnsName, PointerBits)
{
    for (int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(prod::is_pointer(byte) != 0, byte >= 0xC0) << byte;
    }
}

// ---- the name to ask for ----------------------------------------------------------------------

std::string netcheck_hostname()
{
    char name[256];
    memset(name, 'x', sizeof(name));
    EXPECT_EQ(get_netcheck_hostname(name), name);
    return {name, strnlen(name, sizeof(name))};
}

TEST(NetcheckHostname, OneForAllOrOneForEachLanguage)
{
    const test::FreshConfig fresh;
    EXPECT_EQ(netcheck_hostname(), "");
    test::config()["netcheck.hostname.cn"] = "cn.example.net";
    test::config()["netcheck.hostname.en"] = "en.example.net";
    EXPECT_EQ(netcheck_hostname(), "cn.example.net") << "the language that is none set";
    test::config()["sys.language"] = "en";
    EXPECT_EQ(netcheck_hostname(), "en.example.net");
    test::config()["sys.language"] = "cn";
    EXPECT_EQ(netcheck_hostname(), "cn.example.net");
    test::config()["netcheck.hostname"] = "www.example.net";
    EXPECT_EQ(netcheck_hostname(), "www.example.net");
    test::config()["netcheck.hostname"] = "";
    EXPECT_EQ(netcheck_hostname(), "cn.example.net");
}

TEST(NetcheckHostname, IsCutAt255Characters)
{
    const test::FreshConfig fresh;
    for (const char *const key : {"netcheck.hostname", "netcheck.hostname.cn"}) {
        test::reset_config();
        test::config()[key] = test::longest_value('n');
        EXPECT_EQ(netcheck_hostname(), std::string(255, 'n')) << key;
    }
    EXPECT_EQ(get_netcheck_hostname(nullptr), nullptr);
}

}  // namespace
