// SPDX-License-Identifier: MIT
// What kind of access the provider's line offers, asked of its real servers.
#include <gtest/gtest.h>

#include <string>

#include "stories.hpp"
#include "support/emulation.hpp"
#include "support/time.hpp"

using story::Json;
using story::must;

namespace
{

/** What detection finds out, and how long it takes. */
struct Detected {
    explicit Detected(int wan)
    {
        seconds = test::seconds([&] {
            const Json answer = Json::answer_of("prodctl wan detect " + std::to_string(wan) +
                                                " --json 2>/tmp/shown");
            type = answer["type"].text();
            EXPECT_EQ(answer["interface"].text(), "eth" + std::to_string(wan));
        });
    }
    std::string type;
    double seconds;
};

/** How often a text stands in what detection showed. */
int shown(const std::string &text)
{
    return std::stoi(must("grep -c '" + text + "' /tmp/shown || true"));
}

TEST(WanDetect, AConcentratorAnswersAtOnce)
{
    for (const int wan : {1, 2}) {
        const Detected detected{wan};
        EXPECT_EQ(detected.type, "pppoe");
        EXPECT_EQ(shown("Executing: discovery-pppoe -I eth"), 1);
        EXPECT_EQ(shown("Executing: discovery-dhcp"), 0) << "no need to ask for DHCP";
        EXPECT_EQ(shown("Output: AC-Ethernet-Address: 02:00:64:00:0" + std::to_string(wan) + ":01"),
                  1);
        EXPECT_LT(detected.seconds, 9) << "it does not try three times";
    }
}

TEST(WanDetect, AConcentratorThatStartsForTheSecondAttempt)
{
    must("lab server pppoe1 stop");
    // Between the first run's end and the second's start is a second.
    must(
        "(until pidof discovery-pppoe; do usleep 10000; done;"
        " while pidof discovery-pppoe; do usleep 10000; done;"
        " lab server pppoe1 start) >/dev/null 2>&1 &");
    const Detected detected{1};
    EXPECT_EQ(detected.type, "pppoe");
    EXPECT_EQ(shown("Executing: discovery-pppoe -I eth1"), 2);
    EXPECT_GE(detected.seconds, 3);
    EXPECT_LT(detected.seconds, 9) << "it does not try a third time";
}

TEST(WanDetect, OnlyADhcpServerAnswers)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    must("lab server pppoe1 stop");
    const Detected detected{1};
    EXPECT_EQ(detected.type, "dhcp");
    EXPECT_EQ(shown("Executing: discovery-pppoe -I eth1"), 3);
    EXPECT_EQ(shown("Executing: discovery-dhcp -i eth1"), 1);
    EXPECT_EQ(shown("Output: servermac=\"02:00:64:00:01:01\" server=\"100.64.1.1\" "), 1);
    EXPECT_GE(detected.seconds, 9) << "three runs of 2 seconds, each with its pause";
    EXPECT_LT(detected.seconds, 18) << "one answer over DHCP is enough";
}

/** The whole wait, for real: six runs of two seconds and six pauses of one. */
TEST(WanDetect, NobodyAnswers)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    must("lab server pppoe2 stop");
    must("lab server dhcp2 stop");
    const Detected detected{2};
    EXPECT_EQ(detected.type, "static");
    EXPECT_EQ(shown("Executing: discovery-pppoe -I eth2"), 3);
    EXPECT_EQ(shown("Executing: discovery-dhcp -i eth2"), 3);
    EXPECT_EQ(shown("It takes 9\\.\\|It takes 1[0-7]\\."), 2) << "a line for each protocol";
    EXPECT_GE(detected.seconds, 18);
}

TEST(WanDetect, TheLeaseOfTheWanStays)
{
    SKIP_IF_EMULATED(test::kNoAuxdata);
    const std::string before = must("cat /etc/wan1.ini");
    must("discovery-dhcp -i eth1 -t 2 -p");
    EXPECT_EQ(Detected{1}.type, "pppoe");
    EXPECT_EQ(must("cat /etc/wan1.ini"), before);
    EXPECT_EQ(
        Json::answer_of("prodctl wan status 1 --json")["wans"].where("id", "1")["status"].text(),
        "connected");
}

}  // namespace
