// SPDX-License-Identifier: MIT
// lan move and lan records, on a bridge that the test makes.
#include <cstdlib>

#include "platform/cfm.h"
#include "prod_common_check.h"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/store.hpp"
#include "tool.hpp"

using test::Outcome;
using test::prodctl;
using test::refuses;
using testing::HasSubstr;

namespace
{

constexpr const char *kFile = "/cfg/database/default.db";

class Lan : public test::Fresh
{
  protected:
    void SetUp() override
    {
        test::remove_all(kFile);
        test::store({{"lan.ip", "192.168.0.1"},
                     {"lan.mask", "255.255.255.0"},
                     {"dhcps.en", "0"},
                     {"dhcps.Staticnum", "0"},
                     {"wans.flag", "1"},
                     {"wan1.dmzip", "192.168.0.1"},
                     {"wan1.dmzen", "1"}});
        ASSERT_NE(CommitCfm(), 0);
        test::run(
            "ip link del br0 2>/dev/null; ip link add br0 type bridge; ip link set br0 up;"
            "ip address add 192.168.0.1/24 broadcast + dev br0");
    }

    static Outcome add_pool()
    {
        return prodctl({"lan", "records", "add", "dhcps-list", "interface=br0",
                        "start ip=192.168.0.100", "end ip=192.168.0.200", "gateway=192.168.0.1",
                        "mask=255.255.255.0", "lease=3600", "enable=1"});
    }
};

TEST_F(Lan, RecordsAreAddedShownAndDeleted)
{
    EXPECT_EQ(add_pool(), (Outcome{0, "record 1\n", ""}));
    EXPECT_EQ(add_pool().status, 1);  // the interface is unique
    EXPECT_EQ(prodctl({"lan", "records", "add", "port-map", "ip=192.168.0.9", "wan=2", "--json"}),
              (Outcome{0, "{\"id\":1}\n", ""}));
    EXPECT_EQ(prodctl({"lan", "records", "show", "port-map", "--json"}).out,
              "{\"port-map\":[{\"id\":1,\"enabled\":0,\"ip\":\"192.168.0.9\",\"protocol\":0,"
              "\"wan\":2,\"inner-port\":\"\",\"outer-port\":\"\",\"name\":\"\"}]}\n");
    EXPECT_THAT(prodctl({"lan", "records", "show"}).out, HasSubstr("No record."));
    EXPECT_EQ(prodctl({"lan", "records", "get", "dhcps-list", "lease=3600", "end ip", "enable",
                       "sec dns"}),
              (Outcome{0, "192.168.0.200\n1\n\n", ""}));
    EXPECT_EQ(
        prodctl({"lan", "records", "get", "dhcps-list", "interface=br1", "mask"}),
        (Outcome{1, "", "prodctl lan records get: dhcps-list has no record with interface=br1\n"}));
    EXPECT_EQ(prodctl({"lan", "records", "del", "port-map", "1"}).status, 0);
    EXPECT_EQ(prodctl({"lan", "records", "del", "port-map", "1"}),
              (Outcome{1, "", "prodctl lan records del: port-map has no record 1\n"}));
}

TEST_F(Lan, RecordsThatCannotBe)
{
    refuses({"lan", "records", "show", "sqlite_master"}, "prodctl lan records show",
            "'sqlite_master' is none of the tables dhcps-list port-map ip-mac-bind");
    refuses({"lan", "records", "add", "ip-mac-bind", "ip"}, "prodctl lan records add",
            "'ip' is not COLUMN=VALUE with one of the columns 'ip', 'mac', 'remark'");
    refuses({"lan", "records", "add", "ip-mac-bind", "ipp=1"}, "prodctl lan records add",
            "'ipp=1' is not COLUMN=VALUE with one of the columns 'ip', 'mac', 'remark'");
    refuses({"lan", "records", "add", "ip-mac-bind", "ip=1234567890123456"},
            "prodctl lan records add", "'ip' has room for 15 characters");
    refuses({"lan", "records", "add", "port-map", "wan=x"}, "prodctl lan records add",
            "'wan' is a number");
    refuses({"lan", "records", "get", "port-map", "wan=1", "x"}, "prodctl lan records get",
            "port-map has no column 'x'");
    refuses({"lan", "records", "del", "port-map", "0"}, "prodctl lan records del",
            "'0' is no id of a record");
    test::write_text(kFile, std::string(5000, 'x'));
    EXPECT_EQ(prodctl({"lan", "records", "show"}),
              (Outcome{1, "", "prodctl lan records show: the record database cannot be opened\n"}));
    EXPECT_EQ(prodctl({"lan", "move", "10.0.0.1/24"}),
              (Outcome{1, "", "prodctl lan move: the record database cannot be opened\n"}));
}

TEST_F(Lan, AMoveIsRehearsedAndMade)
{
    ASSERT_EQ(add_pool().status, 0);
    for (const char *const binding : {"ip=192.168.0.10", "ip=192.168.1.10", "ip=192.168.0.11"}) {
        ASSERT_EQ(prodctl({"lan", "records", "add", "ip-mac-bind", binding,
                           std::string{"mac="} + (binding + 11)})
                      .status,
                  0);
    }
    const std::string changes =
        "\"changes\":[{\"setting\":\"lan.ip\",\"before\":\"192.168.0.1\",\"after\":\"192.168.1.1\"}"
        ","
        "{\"setting\":\"dhcps-list 1 start ip\",\"before\":\"192.168.0.100\","
        "\"after\":\"192.168.1.100\"},"
        "{\"setting\":\"dhcps-list 1 end ip\",\"before\":\"192.168.0.200\","
        "\"after\":\"192.168.1.200\"},"
        "{\"setting\":\"dhcps-list 1 gateway\",\"before\":\"192.168.0.1\","
        "\"after\":\"192.168.1.1\"},"
        "{\"setting\":\"dhcps-list 1 main dns\",\"before\":\"\",\"after\":\"192.168.1.1\"},"
        "{\"setting\":\"wan1.dmzip\",\"before\":\"192.168.0.1\",\"after\":\"192.168.1.1\"},"
        "{\"setting\":\"wan1.dmzen\",\"before\":\"1\",\"after\":\"0\"},"
        // 192.168.0.10 stays: its new address is another's.
        "{\"setting\":\"ip-mac-bind 3 ip\",\"before\":\"192.168.0.11\","
        "\"after\":\"192.168.1.11\"},"
        "{\"setting\":\"dhcps.startip\",\"before\":\"192.168.0.100\","
        "\"after\":\"192.168.1.100\"},"
        "{\"setting\":\"dhcps.endip\",\"before\":\"192.168.0.200\","
        "\"after\":\"192.168.1.200\"}],\"clashes\":[]}\n";
    const std::string head = "{\"address\":\"192.168.1.1\",\"mask\":\"255.255.255.0\",\"dry_run\":";
    const std::string before = prodctl({"lan", "records", "show", "--json"}).out;
    EXPECT_EQ(prodctl({"lan", "move", "192.168.1.1/24", "--dry-run", "--json"}),
              (Outcome{0, head + "true," + changes, ""}));
    EXPECT_THAT(prodctl({"lan", "move", "192.168.1.1/24", "--dry-run"}).out,
                HasSubstr("\nNothing was changed.\n"));
    EXPECT_EQ(prodctl({"lan", "records", "show", "--json"}).out, before);
    EXPECT_EQ(prodctl({"config", "get", "lan.ip"}).out, "192.168.0.1\n");
    EXPECT_THAT(prodctl({"lan", "show"}).out, HasSubstr("192.168.0.1/24"));

    EXPECT_EQ(prodctl({"lan", "move", "192.168.1.1/255.255.255.0", "--json"}),
              (Outcome{0, head + "false," + changes, ""}));
    EXPECT_EQ(prodctl({"config", "get", "lan.ip"}).out, "192.168.1.1\n");
    EXPECT_THAT(test::read_text("/cfg/cfm.cfg"), HasSubstr("\nlan.ip=192.168.1.1\n"));
    EXPECT_THAT(test::output("ip address show br0"),
                HasSubstr("inet 192.168.1.1/24 brd 192.168.1.255"));
    EXPECT_EQ(prodctl({"lan", "move", "192.168.1.1/24"}), (Outcome{0, "Nothing to change.\n", ""}));
}

TEST_F(Lan, TheFirstPoolsSettingsKeepInStep)
{
    ASSERT_EQ(add_pool().status, 0);
    ASSERT_EQ(SetValue("dhcps.startip", "192.168.0.110"), 1);
    ASSERT_EQ(UnSetValue("dhcps.endip"), 1);
    const std::string change =
        "{\"setting\":\"dhcps.startip\",\"before\":\"192.168.0.110\","
        "\"after\":\"192.168.1.100\"}";
    for (const char *const option : {"--dry-run", "--json"}) {
        const Outcome outcome = prodctl({"lan", "move", "192.168.1.1/24", "--json", option});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, HasSubstr(change));
        EXPECT_THAT(outcome.out, testing::Not(HasSubstr("dhcps.endip")));
    }
    EXPECT_EQ(prodctl({"config", "get", "dhcps.startip"}).out, "192.168.1.100\n");
    EXPECT_EQ(prodctl({"config", "get", "dhcps.endip"}).status, 1);
}

TEST_F(Lan, AMoveSaysWhatIsInTheWay)
{
    ASSERT_EQ(add_pool().status, 0);
    for (const auto &[key, value] : {std::pair{"wl.guest.dhcps_ip", "192.168.0.129"},
                                     {"wl.guest.dhcps_mask", "255.255.255.128"},
                                     {"lan.portal_ip", "192.168.1.1"},
                                     {"wans.flag", "3"}}) {
        ASSERT_EQ(SetValue(key, value), 1);
    }
    const test::FileHolds wan1{"/etc/wan1.ini"};
    const test::FileHolds wan2{"/etc/wan2.ini", "ip=192.168.2.77\nmask=255.255.255.0\n"};
    const test::FileHolds wan3{"/etc/wan3.ini", "ip=192.168.3.77\n"};
    const test::FileHolds wan4{"/etc/wan4.ini", "ip=192.168.2.78\nmask=255.255.255.0\n"};
    // The LAN's present network is not in its own way.
    const std::string rehearsed =
        prodctl({"lan", "move", "192.168.0.254/25", "--dry-run", "--json"}).out;
    EXPECT_THAT(rehearsed,
                HasSubstr("\"clashes\":[{\"range\":\"guest\",\"address\":\"192.168.0.129\","
                          "\"mask\":\"255.255.255.128\",\"proposed\":\"192.168.3.129\"}]}\n"));
    const Outcome moved = prodctl({"lan", "move", "192.168.2.1/23"});
    EXPECT_EQ(moved.status, 0);
    EXPECT_THAT(moved.out, HasSubstr("\n\n192.168.2.1/23 clashes.\n"
                                     "RANGE  ADDRESS          PROPOSED\n"
                                     "wan2   192.168.2.77/24  -\n"
                                     "wan3   192.168.3.77/32  -\n"));
    EXPECT_EQ(prodctl({"lan", "move", "192.168.2.1/23"}).out.rfind("Nothing to change.\n\n192", 0),
              0U);
    EXPECT_EQ(prodctl({"config", "get", "lan.ip"}).out, "192.168.2.1\n");
}

TEST_F(Lan, AMoveThatIsCutShortSaysSo)
{
    ASSERT_EQ(add_pool().status, 0);
    ASSERT_EQ(SetValue("dhcps.en", "1"), 1);
    // No file can take the place of a folder.
    const std::string file = "/cfg/cfm.cfg";
    test::remove_all(file);
    test::write_text(file + "/in the way", "");
    const Outcome outcome = prodctl({"lan", "move", "192.168.1.1/24"}, "", [] {
        setenv("PATH", "/sbin:/bin", 1);  // where no service is
    });
    test::remove_all(file);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err,
                HasSubstr("prodctl lan move: the LAN has moved, but the configuration could not be "
                          "made persistent: 'prodctl config commit' tries again\n"));
    EXPECT_THAT(outcome.err,
                HasSubstr("prodctl lan move: the LAN has moved, but the DHCP server could not be "
                          "restarted: it serves the old network\n"));
    EXPECT_THAT(outcome.out, HasSubstr("lan.ip"));
    EXPECT_EQ(prodctl({"config", "get", "lan.ip"}).out, "192.168.1.1\n");
}

TEST_F(Lan, MovesThatCannotBe)
{
    for (const char *const wrong :
         {"", "192.168.1.1", "192.168.1.1/", "/24", "192.168.1/24", "192.168.1.1/31",
          "192.168.1.1/7", "192.168.1.1/255.0.255.0", "192.168.1.0/24", "192.168.1.255/24",
          "0.0.0.1/8", "127.0.0.1/8", "224.0.0.1/24", "192.168.1.1/24;reboot", "a/24"}) {
        refuses({"lan", "move", wrong}, "prodctl lan move",
                std::string{"'"} + wrong +
                    "' is not ADDRESS/MASK of a host, with a mask of 8 to 30 bits");
    }
    EXPECT_EQ(prodctl({"lan", "move", "10.0.0.1/24"}),
              (Outcome{1, "",
                       "prodctl lan move: dhcps-list has no record of br0: nothing would follow "
                       "the LAN\n"}));
    ASSERT_EQ(add_pool().status, 0);
    test::run("ip link del br0");
    const Outcome outcome = prodctl({"lan", "move", "10.0.0.1/24"});
    EXPECT_THAT(outcome.err,
                HasSubstr("the LAN's bridge cannot have that address: nothing was changed\n"));
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(prodctl({"config", "get", "lan.ip"}).out, "192.168.0.1\n");
    ASSERT_EQ(UnSetValue("lan.mask"), 1);
    EXPECT_EQ(
        prodctl({"lan", "move", "10.0.0.1/24"}),
        (Outcome{1, "",
                 "prodctl lan move: lan.ip and lan.mask do not tell where the LAN is now\n"}));
}

}  // namespace
