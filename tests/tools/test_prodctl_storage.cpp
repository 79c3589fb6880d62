// SPDX-License-Identifier: MIT
// The groups usb, audit and dns-redirect, and the figures and versions of the group system.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/km.h"
#include "prod_common_time.h"
#include "support/files.hpp"
#include "support/time.hpp"
#include "tool.hpp"

using test::answer;
using test::FileHolds;
using test::Outcome;
using test::prodctl;
using test::refuses;
using test::Words;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace
{

using Figures = test::Fresh;
using Restart = test::Fresh;
using Usb = test::Fresh;
using Audit = test::Fresh;

class DnsRedirect : public test::Fresh
{
  protected:
    DnsRedirect()
    {
        test::remove_all(KM_DNS_REDIRECT_DIR);
        std::filesystem::create_directories(KM_DNS_REDIRECT_DIR);
    }
};

double number_in(const Outcome &outcome, const char *name)
{
    return cJSON_GetObjectItem(answer(outcome).get(), name)->valuedouble;
}

// ---- figures and versions ----------------------------------------------------------------------

TEST_F(Figures, Memory)
{
    const Outcome outcome = prodctl({"system", "memory", "--json"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_GE(number_in(outcome, "used_percent"), 0);
    EXPECT_LE(number_in(outcome, "used_percent"), 100);
    EXPECT_GT(number_in(outcome, "free_kb"), 0);
    EXPECT_THAT(prodctl({"system", "memory"}).out,
                MatchesRegex("  used  [0-9]+ %\n  free  [0-9]+ KiB\n"));
}

TEST_F(Figures, Cpu)
{
    Outcome outcome;
    EXPECT_GE(test::seconds([&] { outcome = prodctl({"system", "cpu", "--json"}); }), 1);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_GE(number_in(outcome, "percent"), 0);
    EXPECT_LE(number_in(outcome, "percent"), 100);
    EXPECT_THAT(prodctl({"system", "cpu"}).out, MatchesRegex("[0-9]+ %\n"));
}

TEST_F(Figures, Versions)
{
    const FileHolds product{"/etc/prodversion.cfg", "V2.0(77)\n"};
    const FileHolds policies{"/etc/policy_bak.cfg", "ver; 3.1 ;\n"};
    EXPECT_EQ(prodctl({"system", "versions", "--json"}),
              (Outcome{0,
                       "{\"product\":\"V2.0(77)\",\"build\":77,\"hardware\":\"1.0.0.0\","
                       "\"policies\":\"3.1\"}\n",
                       ""}));
    EXPECT_EQ(prodctl({"system", "versions"}).out,
              "  product   V2.0(77)\n  build     77\n  hardware  1.0.0.0\n  policies  3.1\n");
}

TEST_F(Figures, VersionsThatAreNotKnown)
{
    const FileHolds product{"/etc/prodversion.cfg"};
    const FileHolds policies{"/etc/policy_bak.cfg"};
    EXPECT_EQ(
        prodctl({"system", "versions", "--json"}),
        (Outcome{0, "{\"product\":\"\",\"build\":0,\"hardware\":\"1.0.0.0\",\"policies\":\"\"}\n",
                 ""}));
}

// ---- restart and restore -----------------------------------------------------------------------

/** A "reboot" that is found before the device's own, and leaves a mark. */
void with_another_reboot()
{
    setenv("PATH", "/tmp/commands:/usr/sbin:/usr/bin:/sbin:/bin", 1);
}

TEST_F(Restart, Reboot)
{
    test::write_script("/tmp/commands/reboot", "echo reboot >>/tmp/rebooted\n");
    test::remove_all("/tmp/rebooted");
    Outcome outcome;
    const double took = test::seconds([&] {
        outcome = prodctl({"system", "reboot", "--json"}, "", with_another_reboot);
    });
    EXPECT_GE(took, 5);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "{\"rebooting\":true}\n")
        << "and not what the library's \"date\" prints";
    EXPECT_THAT(outcome.err, HasSubstr("rebooting ..."));
    EXPECT_EQ(test::read_text("/tmp/rebooted"), "reboot\n");
}

TEST_F(Restart, RestoreOnlyWhenConfirmed)
{
    test::write_text("/cfg/database/x.db", "x");
    refuses({"system", "restore"}, "prodctl system restore",
            "this forgets all settings; confirm it with --yes");
    EXPECT_TRUE(test::exists("/cfg/database/x.db"));
    EXPECT_EQ(prodctl({"system", "restore", "--yes", "--json"}).out, "{\"restored\":true}\n");
    EXPECT_FALSE(test::exists("/cfg/database/x.db"));
}

// ---- USB storage -------------------------------------------------------------------------------

TEST_F(Usb, NoDisk)
{
    const test::MountedFolder block{"/sys/block", "size=1m"};
    EXPECT_EQ(prodctl({"usb", "disks"}), (Outcome{0, "No USB disk is attached.\n", ""}));
    EXPECT_EQ(prodctl({"usb", "disks", "--json"}).out, "{\"disks\":[]}\n");
    EXPECT_EQ(prodctl({"usb", "volumes"}), (Outcome{0, "No USB disk is attached.\n", ""}));
    EXPECT_EQ(prodctl({"usb", "volumes", "--json"}).out, "{\"volumes\":[]}\n");
}

TEST_F(Usb, DisksAndVolumes)
{
    const test::MountedFolder block{"/sys/block", "size=1m"};
    std::filesystem::create_directories("/sys/block/sda");
    EXPECT_EQ(prodctl({"usb", "disks"}).out, "sda\n");
    EXPECT_EQ(prodctl({"usb", "disks", "--json"}).out, "{\"disks\":[\"sda\"]}\n");
    EXPECT_EQ(prodctl({"usb", "volumes", "--json"}).status, 1) << "no folder of partitions";

    const test::MountedFolder one{"/var/etc/upan/sda1", "size=1g"};
    const test::Json volumes = answer(prodctl({"usb", "volumes", "--json"}));
    const cJSON *const volume =
        cJSON_GetArrayItem(cJSON_GetObjectItem(volumes.get(), "volumes"), 0);
    EXPECT_STREQ(cJSON_GetObjectItem(volume, "name")->valuestring, "sda1");
    EXPECT_EQ(cJSON_GetObjectItem(volume, "total_gib")->valuedouble, 1);
    EXPECT_EQ(cJSON_GetObjectItem(volume, "used_gib")->valuedouble, 0);
    EXPECT_EQ(cJSON_GetObjectItem(volume, "free_gib")->valuedouble, 1);
    EXPECT_EQ(cJSON_GetObjectItem(volume, "available_gib")->valuedouble, 1);
    EXPECT_EQ(prodctl({"usb", "volumes"}).out,
              "NAME  TOTAL GiB  USED   FREE   AVAILABLE\n"
              "sda1  1.000      0.000  1.000  1.000\n");
}

TEST_F(Usb, AVolumeThatDoesNotAnswer)
{
    const test::MountedFolder block{"/sys/block", "size=1m"};
    std::filesystem::create_directories("/sys/block/sdq");
    std::filesystem::create_directories("/var/etc/upan");
    const Outcome outcome = prodctl({"usb", "volumes", "--json"});
    EXPECT_EQ(outcome.out,
              "{\"volumes\":[{\"name\":\"sdq\",\"total_gib\":0,\"used_gib\":0,"
              "\"free_gib\":0,\"available_gib\":0}]}\n");
    EXPECT_THAT(outcome.err, HasSubstr("Statfs error /var/etc/upan/sdq."));
}

// ---- audit trail -------------------------------------------------------------------------------

TEST_F(Audit, Word)
{
    EXPECT_THAT(prodctl({"audit", "word", "6", "anna"}).out,
                MatchesRegex("user sms auth info:anna time:[0-9]+-[0-9]+-[0-9]+ [0-9:]+ \n"));
    EXPECT_EQ(prodctl({"audit", "word", "8", "anna", "--json"}).out, "{\"message\":\"\"}\n");
    const Outcome outcome = prodctl({"audit", "word", "4", std::string(300, 'x'), "--json"});
    EXPECT_EQ(outcome.out, "{\"message\":\"user " + std::string(250, 'x') + "\"}\n");
    for (const char *const id : {"3", "11", "x", ""}) {
        refuses({"audit", "word", id, "anna"}, "prodctl audit word",
                std::string{"'"} + id + "' is no application id from 4 to 10");
    }
}

TEST_F(Audit, Record)
{
    const Words words{"audit", "record", "4", "02:00:5e:00:53:01", "192.168.0.10", "anna"};
    EXPECT_THAT(prodctl(words).out,
                MatchesRegex("  MAC          02:00:5e:00:53:01\n  address      192.168.0.10\n"
                             "  application  4\n  message      user anna time:[-0-9: ]+ \n"));
    Words json = words;
    json.emplace_back("--json");
    EXPECT_THAT(prodctl(json).out,
                StartsWith("{\"mac\":\"02:00:5e:00:53:01\",\"address\":\"192.168.0.10\","
                           "\"app_id\":4,\"message\":\"user anna time:"));
    refuses({"audit", "record", "12", "02:00:5e:00:53:01", "192.168.0.10", "x"},
            "prodctl audit record", "'12' is no application id from 4 to 10");
    refuses({"audit", "record", "4", "02:00", "192.168.0.10", "x"}, "prodctl audit record",
            "'02:00' is no MAC address");
    refuses({"audit", "record", "4", "02:00:5e:00:53:01", "192.168.0", "x"}, "prodctl audit record",
            "'192.168.0' is no IPv4 address");
}

TEST_F(Audit, Stay)
{
    const std::string since = std::to_string(get_sys_uptime());
    EXPECT_THAT(prodctl({"audit", "stay", since}).out,
                MatchesRegex("\\[0\\]day \\[0\\]hour \\[0\\]minute \\[[0-9]\\]second\n"));
    EXPECT_THAT(prodctl({"audit", "stay", since, "--json"}).out,
                StartsWith("{\"stay\":\"[0]day [0]hour [0]minute ["));
    refuses({"audit", "stay", "0"}, "prodctl audit stay",
            "'0' is no up-time in seconds from 1 to 2147483647");
}

TEST_F(Audit, Storage)
{
    EXPECT_EQ(prodctl({"audit", "storage", "--json"}).out,
              "{\"error\":\"no USB partition is mounted\"}\n");
    {
        const test::MountedFolder one{"/etc/upan/sdb1"};
        const test::MountedFolder other{"/var/etc/upan/sdb1"};
        EXPECT_EQ(prodctl({"audit", "storage", "--json"}),
                  (Outcome{0, "{\"partition\":\"sdb1\"}\n", ""}));
        EXPECT_EQ(prodctl({"audit", "storage"}).out, "sdb1\n");
    }
    EXPECT_EQ(prodctl({"config", "get", "audit.usb.storage.dir"}).out, "sdb1\n");
    EXPECT_THAT(test::read_text("/cfg/cfm.cfg"), HasSubstr("audit.usb.storage.dir=sdb1\n"));
    test::remove_all("/etc/upan");
    test::remove_all("/var/etc");
}

// ---- DNS redirection ---------------------------------------------------------------------------

TEST_F(DnsRedirect, AddListDel)
{
    EXPECT_EQ(prodctl({"dns-redirect", "list"}), (Outcome{0, "No name is redirected.\n", ""}));
    EXPECT_EQ(prodctl({"dns-redirect", "add", "www.Example.net.", "192.168.0.77"}),
              (Outcome{0, "", ""}));
    EXPECT_EQ(prodctl({"dns-redirect", "add", "a.example", "2001:db8::1", "--json"}).out,
              "{\"domain\":\"a.example\",\"address\":\"2001:db8::1\"}\n");
    EXPECT_EQ(prodctl({"dns-redirect", "list"}).out,
              "DOMAIN           ADDRESS\n"
              "a.example        2001:db8::1\n"
              "www.example.net  192.168.0.77\n");
    EXPECT_EQ(prodctl({"dns-redirect", "del", "WWW.example.net", "--json"}),
              (Outcome{0, "{\"domain\":\"WWW.example.net\"}\n", ""}));
    EXPECT_EQ(prodctl({"dns-redirect", "list", "--json"}).out,
              "{\"rules\":[{\"domain\":\"a.example\",\"address\":\"2001:db8::1\"}]}\n");
    EXPECT_EQ(prodctl({"dns-redirect", "del", "www.example.net", "--json"}),
              (Outcome{1, "{\"error\":\"there is no rule for www.example.net\"}\n",
                       "prodctl dns-redirect del: there is no rule for www.example.net\n"}));
}

TEST_F(DnsRedirect, ArgumentsThatAreWrong)
{
    const std::string label(64, 'x');
    for (const std::string &name : {std::string{}, std::string{"."}, std::string{".."},
                                    std::string{"a..b"}, std::string{"../x"}, std::string{"a b"},
                                    std::string{"*.example"}, label, std::string(254, 'x')}) {
        refuses({"dns-redirect", "add", name, "192.0.2.1"}, "prodctl dns-redirect add",
                "'" + name + "' is no domain name");
        refuses({"dns-redirect", "del", name}, "prodctl dns-redirect del",
                "'" + name + "' is no domain name");
    }
    for (const char *const address : {"", "192.0.2", "host", "192.0.2.1/24"}) {
        refuses({"dns-redirect", "add", "a.example", address}, "prodctl dns-redirect add",
                std::string{"'"} + address + "' is no IP address");
    }
}

TEST_F(DnsRedirect, ARuleThatIsNotTaken)
{
    const test::MountedFolder read_only{KM_DNS_REDIRECT_DIR, "size=16k", true};
    EXPECT_EQ(prodctl({"dns-redirect", "add", "a.example", "192.0.2.1", "--json"}),
              (Outcome{1, "{\"error\":\"the rule for a.example was not taken\"}\n",
                       "prodctl dns-redirect add: the rule for a.example was not taken\n"}));
}

TEST_F(DnsRedirect, APortThatDoesNotShowItsRules)
{
    test::remove_all(KM_DNS_REDIRECT_DIR);
    EXPECT_EQ(prodctl({"dns-redirect", "list"}).status, 1);
}

}  // namespace
