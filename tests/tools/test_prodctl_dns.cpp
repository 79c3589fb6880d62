// SPDX-License-Identifier: MIT
// Name servers on the command line: asking one, and gathering those for the relay. The provider is
// dnsmasq at the far end of WAN 1's cable.
#include <unistd.h>

#include "platform/cfm.h"
#include "prod_common_wan.h"
#include "support/capture.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/store.hpp"
#include "tool.hpp"

using test::FileHolds;
using test::Outcome;
using test::Prints;
using test::prodctl;
using test::refuses;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr const char *kRelayFile = "/etc/dns.conf";

/** A name server on an address of this device, with three names. */
class NameServer
{
  public:
    explicit NameServer(const std::string &address)
        : child_{[&address](test::Child &) {
              const std::string listen = "--listen-address=" + address;
              execlp("dnsmasq", "dnsmasq", "--no-daemon", "--conf-file=/dev/null",
                     "--pid-file=", "--no-resolv", "--no-hosts", "--bind-interfaces",
                     listen.c_str(), "--host-record=www.example.net,198.51.100.1",
                     "--host-record=two.example.net,198.51.100.1",
                     "--host-record=two.example.net,198.51.100.2", "--local=/example.net/",
                     static_cast<char *>(nullptr));
              _exit(127);
          }}
    {
        const std::string socket = ":0035 ";
        test::eventually("the server listens", [&] {
            return test::read_text("/proc/net/udp").find(socket) != std::string::npos;
        });
    }

  private:
    test::Child child_;
};

class Resolve : public test::Fresh
{
  protected:
    void SetUp() override
    {
        test::store({{"sys.mode", "3"},
                     {"sys.ports", "43210"},
                     {"wans.flag", "2"},
                     {"wan1.connecttype", "0"},
                     {"wan2.connecttype", "8"},
                     {"port.1.ifname", "eth1"},
                     {"netcheck.hostname", "www.example.net"}});
        test::run("ip link set lo up");
    }
};

TEST_F(Resolve, AnAddress)
{
    const NameServer server{"127.0.0.1"};
    const Outcome plain = prodctl({"wan", "resolve", "www.example.net", "--server", "127.0.0.1"});
    EXPECT_EQ(plain.status, 0);
    EXPECT_EQ(plain.err, "");
    EXPECT_THAT(plain.out, Prints("www\\.example\\.net\n"
                                  "  addresses  198\\.51\\.100\\.1\n"
                                  "  server     127\\.0\\.0\\.1\n"
                                  "  interface  -\n"
                                  "  took       [0-9]+\\.[0-9] ms\n"));
    const Outcome json = prodctl(
        {"wan", "resolve", "--server=127.0.0.1", "two.example.net", "--via", "lo", "--json"});
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(json.err, "");
    const std::string list =
        "(\"198\\.51\\.100\\.1\",\"198\\.51\\.100\\.2\"|"
        "\"198\\.51\\.100\\.2\",\"198\\.51\\.100\\.1\")";
    EXPECT_THAT(json.out,
                Prints("\\{\"name\":\"two\\.example\\.net\",\"server\":\"127\\.0\\.0\\.1\","
                       "\"interface\":\"lo\",\"addresses\":\\[" +
                       list + "\\],\"milliseconds\":[0-9]+(\\.[0-9])?\\}\n"));
}

TEST_F(Resolve, TheNameOfTheNetworkCheck)
{
    const NameServer server{"127.0.0.1"};
    EXPECT_THAT(prodctl({"wan", "resolve", "--server", "127.0.0.1"}).out,
                HasSubstr("www.example.net\n  addresses  198.51.100.1\n"));
    for (const char *const key :
         {"netcheck.hostname", "netcheck.hostname.cn", "netcheck.hostname.en"}) {
        UnSetValue(key);
    }
    EXPECT_EQ(prodctl({"wan", "resolve", "--server", "127.0.0.1"}),
              (Outcome{1, "", "prodctl wan resolve: no name for the network check is set\n"}));
}

TEST_F(Resolve, AnUnknownName)
{
    const NameServer server{"127.0.0.1"};
    const Outcome outcome =
        prodctl({"wan", "resolve", "none.example.net", "--server", "127.0.0.1", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\"addresses\":[],"));
    EXPECT_EQ(outcome.err, "prodctl wan resolve: 127.0.0.1 knows no address of none.example.net\n");
}

TEST_F(Resolve, OverAWan)
{
    const test::Peer provider{"eth1", "100.64.1.100/24", "100.64.1.1/24", "02:00:64:00:01:01"};
    // Nobody serves names there, and the device does not ask itself.
    const NameServer server{"100.64.1.100"};
    const Outcome outcome = prodctl(
        {"wan", "resolve", "www.example.net", "--server", "100.64.1.1", "--via", "1", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out,
                Prints("\\{\"error\":\"asking 100\\.64\\.1\\.1 failed after [23]\\.[0-9] "
                       "s\"\\}\n"));
    EXPECT_THAT(
        outcome.err,
        Prints("Asking 100\\.64\\.1\\.1 for www\\.example\\.net\\.\\.\\.\n"
               "recv response: Resource temporarily unavailable\n"
               "prodctl wan resolve: asking 100\\.64\\.1\\.1 failed after [23]\\.[0-9] s\n"));
}

TEST_F(Resolve, AnInterfaceThatIsNotThere)
{
    const Outcome outcome =
        prodctl({"wan", "resolve", "www.example.net", "--server", "127.0.0.1", "--via", "none0"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(
        outcome.err,
        Prints("bind interface: No such device\n"
               "prodctl wan resolve: asking 127\\.0\\.0\\.1 failed after [01]\\.[0-9] s\n"));
    EXPECT_EQ(prodctl({"wan", "resolve", "a.b", "--server", "127.0.0.1", "--via", "2"}),
              (Outcome{1, "", "prodctl wan resolve: WAN 2 has no interface\n"}));
}

TEST_F(Resolve, WrongUsage)
{
    const std::string command = "prodctl wan resolve";
    refuses({"wan", "resolve", "a.b"}, command, "--server is missing: whom to ask");
    for (const char *const server : {"", "0.0.0.0", "1.2.3", "dns.example.net", "::1"}) {
        refuses({"wan", "resolve", "a.b", "--server", server}, command,
                "'" + std::string(server) + "' is no address of a server");
    }
    for (const std::string &name : {std::string{}, std::string(123, 'n'), std::string(5000, 'n')}) {
        refuses({"wan", "resolve", name, "--server", "127.0.0.1"}, command,
                "a name has 1 to 122 characters");
    }
    for (const char *const via : {"", "sixteen_letters_", "a/b", "a b"}) {
        refuses({"wan", "resolve", "a.b", "--server", "127.0.0.1", "--via", via}, command,
                "'" + std::string(via) + "' is no interface");
    }
    for (const char *const via : {"0", "5"}) {
        refuses({"wan", "resolve", "a.b", "--server", "127.0.0.1", "--via", via}, command,
                "'" + std::string(via) + "' is no WAN: 1 to 4");
    }
}

// ---- waiting ----------------------------------------------------------------------------------

TEST_F(Resolve, ATerminalShowsHowLongItWaits)
{
    test::run(
        "ip link add quiet0 type bridge && ip address add 192.0.2.1/24 dev quiet0 &&"
        "ip link set quiet0 up");
    const Outcome outcome = test::with_errors_on_a_terminal(
        {"wan", "resolve", "a.b", "--server", "192.0.2.7", "--via", "quiet0"});
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err,
                Prints("Asking 192\\.0\\.2\\.7 for a\\.b\\.\\.\\. 0\\.[3-9] s\033\\[K"
                       "(Asking 192\\.0\\.2\\.7 for a\\.b\\.\\.\\. [0123]\\.[0-9] s\033\\[K)+"
                       "recv response: Resource temporarily unavailable\n"
                       "(Asking[^\n]*)?\033\\[K"
                       "prodctl wan resolve: asking 192\\.0\\.2\\.7 failed after "
                       "[23]\\.[0-9] s\n"));
    EXPECT_THAT(outcome.err, HasSubstr("... 1."));
    test::run("ip link delete quiet0");
}

// ---- the relay --------------------------------------------------------------------------------

class Collect : public Resolve
{
  protected:
    FileHolds none_{kRelayFile};
    FileHolds ini_{"/etc/wan1.ini"};
};

TEST_F(Collect, NothingIsOffered)
{
    EXPECT_EQ(prodctl({"wan", "dns", "collect"}),
              (Outcome{0, "  relay    -\n  options  -\n  file     /etc/dns.conf\n", ""}));
    EXPECT_EQ(prodctl({"wan", "dns", "collect", "--json"}),
              (Outcome{0, "{\"relay\":[],\"file\":\"/etc/dns.conf\",\"options\":\"\"}\n", ""}));
    EXPECT_TRUE(test::exists(kRelayFile));
}

TEST_F(Collect, TheServersOfAWan)
{
    const test::Peer provider{"eth1", "100.64.1.100/24", "100.64.1.1/24", "02:00:64:00:01:01"};
    test::link_is_up("eth1");
    test::write_text("/etc/wan1.ini", "dns1=100.64.1.1\ndns2=100.64.1.53\n");
    EXPECT_EQ(prodctl({"wan", "dns", "collect"}),
              (Outcome{0,
                       "  relay    100.64.1.1, 100.64.1.53\n"
                       "  options   -s 100.64.1.1  -s 100.64.1.53 \n"
                       "  file     /etc/dns.conf\n",
                       ""}));
    EXPECT_EQ(test::read_text(kRelayFile), " -s 100.64.1.1  -s 100.64.1.53 ");
    EXPECT_EQ(prodctl({"wan", "dns", "collect", "--json"}).out,
              "{\"relay\":[\"100.64.1.1\",\"100.64.1.53\"],\"file\":\"/etc/dns.conf\","
              "\"options\":\" -s 100.64.1.1  -s 100.64.1.53 \"}\n");
}

TEST_F(Collect, AFileThatCannotBeWritten)
{
    const test::MountedFolder etc{"/etc", "size=16k", true};
    const Outcome outcome = prodctl({"wan", "dns", "collect"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "prodctl wan dns collect: /etc/dns.conf was not written\n");
}

}  // namespace
