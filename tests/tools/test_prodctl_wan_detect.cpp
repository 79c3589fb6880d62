// SPDX-License-Identifier: MIT
// prodctl wan detect, with probe programs that the test puts on the path.
#include <unistd.h>

#include "platform/cfm.h"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "support/network.hpp"
#include "tool.hpp"

using test::answer;
using test::Outcome;
using test::prodctl;
using test::refuses;
using testing::AllOf;
using testing::HasSubstr;

namespace
{

class Detect : public test::Fresh
{
  protected:
    static void SetUpTestSuite()
    {
        test::run("ip link add eth1 type veth peer name far1");
        ASSERT_EQ(setenv("PATH", "/tmp/probes:/usr/sbin:/usr/bin:/sbin:/bin", 1), 0);
    }

    void SetUp() override
    {
        probe("pppoe", "exit 1");
        probe("dhcp", "exit 1");
    }

    /** What a probe program does. */
    static void probe(const std::string &which, const std::string &script)
    {
        test::write_script("/tmp/probes/discovery-" + which, script + "\n");
    }
};

constexpr const char *kPppoeAnswer = "echo 'AC-Ethernet-Address: 02:00:64:00:01:01'";
constexpr const char *kDhcpAnswer = "echo 'servermac=\"02:00:64:00:01:01\"'";

TEST_F(Detect, Pppoe)
{
    probe("pppoe", kPppoeAnswer);
    const Outcome outcome = prodctl({"wan", "detect", "1", "--json"});
    EXPECT_EQ(outcome.status, 0);
    const test::Json json = answer(outcome);
    EXPECT_THAT(outcome.out, HasSubstr("{\"id\":1,\"interface\":\"eth1\",\"type\":\"pppoe\","
                                       "\"milliseconds\":"));
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("Executing: discovery-pppoe -I eth1 -t 2 -a 1 2>&1\n"),
                                   HasSubstr("Output: AC-Ethernet-Address: 02:00:64:00:01:01\n"),
                                   HasSubstr("It takes ")));
    // An answer at once needs no progress; a busy machine may have none at once.
    const double took = cJSON_GetObjectItem(json.get(), "milliseconds")->valuedouble;
    EXPECT_TRUE(took > 250 || outcome.err.find("Asking") == std::string::npos) << outcome;
    const Outcome page = prodctl({"wan", "detect", "1"});
    EXPECT_TRUE(page.out.starts_with("WAN 1 offers PPPoE\n  interface  eth1\n")) << page;
}

TEST_F(Detect, DhcpAndProgressWhileItWaits)
{
    probe("dhcp", kDhcpAnswer);
    const Outcome outcome = prodctl({"wan", "detect", "1"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out,
                test::Prints("WAN 1 offers DHCP\n  interface  eth1\n  took       [3-5]\\..*"));
    EXPECT_THAT(outcome.err, HasSubstr("Asking the line of WAN 1 (eth1)...\n"));
}

TEST_F(Detect, Neither)
{
    const Outcome outcome = prodctl({"wan", "detect", "1"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(
        outcome.out.starts_with("WAN 1 offers neither PPPoE nor DHCP: a static address is left\n"))
        << outcome;
}

TEST_F(Detect, WansThatCannotBeAsked)
{
    for (const char *const id : {"0", "5", "-1", "one", "", "1 "}) {
        refuses({"wan", "detect", id}, "prodctl wan detect",
                std::string{"'"} + id + "' is no WAN: 1 to 4");
    }
    EXPECT_EQ(prodctl({"wan", "detect"}).status, 2);
    EXPECT_EQ(prodctl({"wan", "detect", "3", "--json"}),
              (Outcome{1, "{\"error\":\"WAN 3 is not configured\"}\n",
                       "prodctl wan detect: WAN 3 is not configured\n"}));
    EXPECT_EQ(prodctl({"wan", "detect", "2"}),
              (Outcome{1, "", "prodctl wan detect: WAN 2 has no interface\n"}));
    ASSERT_NE(UnSetValue("port.1.ifname"), 0);
    EXPECT_EQ(prodctl({"wan", "detect", "1"}),
              (Outcome{1, "", "prodctl wan detect: WAN 1 has no interface\n"}));
}

TEST_F(Detect, Described)
{
    EXPECT_THAT(prodctl({"wan", "detect", "--help"}).out,
                HasSubstr("usage: prodctl wan detect WAN\n"));
    EXPECT_THAT(test::read_text(PRODCTL_SOURCES "/prodctl.1"),
                HasSubstr(".BI \"wan detect \" WAN\n"));
    EXPECT_EQ(prodctl({"--complete", "wan", "detect", ""}).out, "1\n2\n3\n4\n");
}

}  // namespace
