// SPDX-License-Identifier: MIT
// prodctl lan check.
#include "platform/cfm.h"
#include "tool.hpp"

using test::Outcome;
using test::prodctl;
using test::refuses;

namespace
{

class LanCheck : public testing::Test
{
  protected:
    void SetUp() override
    {
        for (const char *const key : kKeys) {
            UnSetValue(key);
        }
        SetValue("lan.ip", "192.168.0.1");
        SetValue("lan.mask", "255.255.255.0");
    }

    static constexpr const char *kKeys[] = {"lan.ip",
                                            "lan.mask",
                                            "lan.portal_ip",
                                            "wl.guest.dhcps_ip",
                                            "pppoeserver.info",
                                            "wl.guest.dhcps_mask",
                                            "pptp.ser.pptpdserver",
                                            "l2tp.ser.l2tpdserver"};
};

std::string json(const char *range)
{
    return prodctl({"lan", "check", range, "--json"}).out;
}

TEST_F(LanCheck, AFreeRange)
{
    EXPECT_EQ(prodctl({"lan", "check", "192.168.1.10/24"}),
              (Outcome{0, "192.168.1.10/24 is free.\n", ""}));
    EXPECT_EQ(
        prodctl({"lan", "check", "192.168.1.10/255.255.255.0", "--json"}),
        (Outcome{0, "{\"address\":\"192.168.1.10\",\"mask\":\"255.255.255.0\",\"clashes\":[]}\n",
                 ""}));
}

TEST_F(LanCheck, AClash)
{
    const Outcome clash = {1,
                           "192.168.0.10/24 clashes.\n"
                           "RANGE  ADDRESS         PROPOSED\n"
                           "lan    192.168.0.1/24  192.168.1.1\n",
                           ""};
    EXPECT_EQ(prodctl({"lan", "check", "192.168.0.10/24"}), clash);
    EXPECT_EQ(prodctl({"lan", "check", "192.168.0.10/255.255.255.0"}), clash);
    EXPECT_EQ(prodctl({"lan", "check", "192.168.0.10/24", "--json"}),
              (Outcome{1,
                       "{\"address\":\"192.168.0.10\",\"mask\":\"255.255.255.0\",\"clashes\":["
                       "{\"range\":\"lan\",\"address\":\"192.168.0.1\","
                       "\"mask\":\"255.255.255.0\",\"proposed\":\"192.168.1.1\"}]}\n",
                       ""}));
}

TEST_F(LanCheck, EveryRangeInTheWayGetsAPlaceOfItsOwn)
{
    SetValue("lan.portal_ip", "192.168.1.1");
    SetValue("wl.guest.dhcps_ip", "192.168.2.1");
    SetValue("wl.guest.dhcps_mask", "255.255.255.128");
    SetValue("pppoeserver.info", "1;10.8.5.1;x");
    SetValue("pptp.ser.pptpdserver", "192.168.3.1");
    SetValue("l2tp.ser.l2tpdserver", "10.1.0.1");
    EXPECT_EQ(prodctl({"lan", "check", "192.168.2.200/23"}),
              (Outcome{1,
                       "192.168.2.200/23 clashes.\n"
                       "RANGE        ADDRESS         PROPOSED\n"
                       "guest        192.168.2.1/25  192.168.4.1\n"
                       "pptp-server  192.168.3.1/24  192.168.5.1\n",
                       ""}));
    EXPECT_EQ(prodctl({"lan", "check", "10.9.0.0/8"}).out,
              "10.9.0.0/8 clashes.\n"
              "RANGE         ADDRESS      PROPOSED\n"
              "pppoe-server  10.8.5.1/16  11.8.5.1\n"
              "l2tp-server   10.1.0.1/24  11.1.0.1\n");
    EXPECT_EQ(prodctl({"lan", "check", "192.168.1.1/32"}).out,
              "192.168.1.1/32 clashes.\n"
              "RANGE   ADDRESS         PROPOSED\n"
              "portal  192.168.1.1/24  192.168.4.1\n");
}

TEST_F(LanCheck, WhereThereIsNoPlace)
{
    SetValue("lan.ip", "223.255.255.1");
    const Outcome outcome = prodctl({"lan", "check", "223.255.255.9/24"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "223.255.255.9/24 clashes.\n"
              "RANGE  ADDRESS           PROPOSED\n"
              "lan    223.255.255.1/24  -\n");
    EXPECT_THAT(json("223.255.255.9/24"), testing::HasSubstr("\"proposed\":\"\""));
}

TEST_F(LanCheck, ARangeWithoutAMaskIsASingleAddress)
{
    UnSetValue("lan.mask");
    EXPECT_EQ(prodctl({"lan", "check", "192.168.0.2/32"}).status, 0);
    const Outcome outcome = prodctl({"lan", "check", "192.168.0.2/24"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "192.168.0.2/24 clashes.\n"
              "RANGE  ADDRESS      PROPOSED\n"
              "lan    192.168.0.1  -\n");
    for (const char *const key : kKeys) {
        UnSetValue(key);
    }
    EXPECT_EQ(prodctl({"lan", "check", "192.168.0.2/24"}).status, 0);
}

TEST_F(LanCheck, WrongArguments)
{
    for (const char *const range :
         {"", "192.168.0.1", "192.168.0.1/", "/24", "192.168.0.1/0", "192.168.0.1/33",
          "192.168.0.1/-1", "192.168.0.1/24x", "192.168.0.1/255.0.255.0", "192.168.0.1/0.0.0.0",
          "192.168.0.1/24/24", "192.168.0/24", "0.0.0.0/24", "255.255.255.255/24", "lan/24",
          "192.168.0.1/255.255.255"}) {
        refuses({"lan", "check", range}, "prodctl lan check",
                std::string{"'"} + range + "' is no address with a mask, such as 192.168.0.1/24");
    }
    refuses({"lan", "check"}, "prodctl lan check",
            "an argument is missing, expected: ADDRESS/MASK");
    refuses({"lan", "check", "1.2.3.4/8", "1.2.3.4/8"}, "prodctl lan check",
            "too many arguments, expected: ADDRESS/MASK");
}

}  // namespace
