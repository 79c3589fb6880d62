// SPDX-License-Identifier: MIT
// The group mesh, on the real store.
#include <sys/stat.h>

#include "platform/cfm.h"
#include "support/files.hpp"
#include "support/mesh_roles.hpp"
#include "support/store.hpp"
#include "tool.hpp"

using test::answer;
using test::Outcome;
using test::prodctl;
using test::refuses;
using test::stored;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

constexpr char kPersistent[] = "/cfg/cfm.cfg";
constexpr char kBoard[] = "/etc/board.json";

/** A store without any setting of a role, on a board that has left the factory. */
class Mesh : public testing::Test
{
  protected:
    Mesh()
    {
        for (const auto &settings : {test::controller_settings(), test::agent_settings(),
                                     test::temp_controller_settings(), test::default_settings()}) {
            for (const auto &[key, value] : settings) {
                UnSetValue(key.c_str());
            }
        }
        UnSetValue("serial.number");
    }

  private:
    const test::FileHolds board_{kBoard,
                                 R"({"factory": {"QX_ATE_SN": "SN1", "QX_FINISH_TSTFLAG": "1"}})"};
};

TEST_F(Mesh, ShowWithoutARole)
{
    EXPECT_EQ(prodctl({"mesh", "show"}), (Outcome{0,
                                                  "mesh role unknown\n\n"
                                                  "ROLE             SETTINGS  DIFFERENT\n"
                                                  "controller       19        19\n"
                                                  "agent            13        13\n"
                                                  "default          49        49\n"
                                                  "temp-controller  12        12\n",
                                                  ""}));
    EXPECT_EQ(prodctl({"mesh", "show", "--json"}).out,
              "{\"mode\":null,\"role\":\"unknown\",\"roles\":["
              "{\"role\":\"controller\",\"settings\":19,\"different\":19},"
              "{\"role\":\"agent\",\"settings\":13,\"different\":13},"
              "{\"role\":\"default\",\"settings\":49,\"different\":49},"
              "{\"role\":\"temp-controller\",\"settings\":12,\"different\":12}]}\n");
}

TEST_F(Mesh, TheRoleThatTheModeSays)
{
    for (const auto &[mode, role] : {std::pair{"0", "none"},
                                     {"1", "controller"},
                                     {"2", "agent"},
                                     {"3", "unknown"},
                                     {"", "unknown"},
                                     {"10", "unknown"}}) {
        ASSERT_EQ(SetValue("mesh.mode", mode), 1);
        EXPECT_THAT(
            prodctl({"mesh", "show", "--json"}).out,
            StartsWith(std::string{"{\"mode\":\""} + mode + "\",\"role\":\"" + role + "\""));
    }
}

TEST_F(Mesh, TheSettingsOfARole)
{
    SetValue("mesh.mode", "2");
    SetValue("sys.workmode", "router");
    SetValue("dhcps.en", "");
    const Outcome outcome = prodctl({"mesh", "show", "agent"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("KEY                           VALUE     STORED\n"
                                        "sys.workmode                  ap        router\n"
                                        "mesh.mode                     2         2\n"
                                        "dhcps.en                      0         -\n"
                                        "wlan0_workmode                ap        -\n"));
    EXPECT_EQ(test::lines_of(outcome.out).size(), 14U);
    EXPECT_THAT(
        prodctl({"mesh", "show", "agent", "--json"}).out,
        StartsWith(
            "{\"role\":\"agent\",\"settings\":["
            "{\"key\":\"sys.workmode\",\"value\":\"ap\",\"stored\":\"router\",\"same\":false},"
            "{\"key\":\"mesh.mode\",\"value\":\"2\",\"stored\":\"2\",\"same\":true},"
            "{\"key\":\"dhcps.en\",\"value\":\"0\",\"stored\":\"\",\"same\":false},"
            "{\"key\":\"wlan0_workmode\",\"value\":\"ap\",\"stored\":null,\"same\":false},"));
}

TEST_F(Mesh, EveryRoleIsShownRowByRow)
{
    for (const auto &[role, settings] : {std::pair{"controller", test::controller_settings()},
                                         {"agent", test::agent_settings()},
                                         {"default", test::default_settings()},
                                         {"temp-controller", test::temp_controller_settings()}}) {
        const test::Json shown = answer(prodctl({"mesh", "show", role, "--json"}));
        const cJSON *setting = cJSON_GetObjectItem(shown.get(), "settings")->child;
        for (const auto &[key, value] : settings) {
            ASSERT_NE(setting, nullptr);
            EXPECT_EQ(cJSON_GetObjectItem(setting, "key")->valuestring, key);
            EXPECT_EQ(cJSON_GetObjectItem(setting, "value")->valuestring, value);
            setting = setting->next;
        }
        EXPECT_EQ(setting, nullptr);
    }
}

TEST_F(Mesh, SetEachRole)
{
    for (const auto &[role, settings] : {std::pair{"controller", test::controller_settings()},
                                         {"agent", test::agent_settings()},
                                         {"temp-controller", test::temp_controller_settings()},
                                         {"default", test::default_settings()}}) {
        EXPECT_EQ(prodctl({"mesh", "set", role}),
                  (Outcome{0, std::string{role} + "\ncommitted\n", ""}));
        const std::string persistent = "\n" + test::read_text(kPersistent);
        for (const auto &[key, value] : settings) {
            EXPECT_EQ(stored(key), value) << key;
            EXPECT_THAT(persistent, HasSubstr("\n" + key + "=" + value + "\n"));
        }
        EXPECT_EQ(prodctl({"mesh", "set", role}),
                  (Outcome{0, std::string{role} + " (unchanged)\n", ""}));
        EXPECT_EQ(prodctl({"mesh", "set", role, "--json"}).out,
                  std::string{"{\"role\":\""} + role + "\",\"changed\":false}\n");
        EXPECT_THAT(prodctl({"mesh", "show", "--json"}).out,
                    HasSubstr(std::string{"{\"role\":\""} + role + "\",\"settings\":" +
                              std::to_string(settings.size()) + ",\"different\":0}"));
    }
    EXPECT_EQ(stored("serial.number"), "SN1");
    EXPECT_EQ(prodctl({"mesh", "set", "agent", "--json"}),
              (Outcome{0, "{\"role\":\"agent\",\"changed\":true}\n", ""}));
}

TEST_F(Mesh, ATemporaryControllerInTheFactory)
{
    test::write_text(kBoard, R"({"factory": {"QX_FINISH_TSTFLAG": "0"}})");
    const Outcome again{0, "temp-controller\ncommitted\n", ""};
    EXPECT_EQ(prodctl({"mesh", "set", "temp-controller"}), again);
    EXPECT_EQ(stored("wlan1_workmode"), "ap");
    EXPECT_EQ(stored("wlan0_autochannel_type"), "0");
    EXPECT_EQ(prodctl({"mesh", "set", "temp-controller"}), again);
}

TEST_F(Mesh, ACommitThatFails)
{
    const test::MountedFolder full{"/cfg"};
    full.fill();
    EXPECT_EQ(prodctl({"mesh", "set", "agent", "--json"}),
              (Outcome{1, "{\"error\":\"the configuration was not made persistent\"}\n",
                       "prodctl mesh set: the configuration was not made persistent\n"}));
    EXPECT_EQ(stored("mesh.mode"), "2") << "the working copy has it";
}

TEST_F(Mesh, AStoreThatTakesNothing)
{
    const test::MountedFolder nothing{"/var/run", "size=16k", true};
    const Outcome outcome = prodctl({"mesh", "set", "agent"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("prodctl mesh set: the store did not take the settings\n"));
}

TEST_F(Mesh, WrongWords)
{
    for (const char *const command : {"show", "set"}) {
        for (const char *const wrong : {"", "Agent", "agents", "router", "temp_controller", "1"}) {
            refuses({"mesh", command, wrong}, std::string{"prodctl mesh "} + command,
                    std::string{"'"} + wrong +
                        "' is no role: controller, agent, default or temp-controller");
        }
    }
    refuses({"mesh", "set"}, "prodctl mesh set", "an argument is missing, expected: ROLE");
    EXPECT_EQ(stored("mesh.mode"), "(absent)") << "nothing was done";
}

TEST_F(Mesh, RolesAreCompleted)
{
    for (const char *const command : {"show", "set"}) {
        EXPECT_EQ(prodctl({"--complete", "mesh", command, ""}).out,
                  "controller\nagent\ndefault\ntemp-controller\n");
        EXPECT_EQ(prodctl({"--complete", "mesh", command, "t"}).out, "temp-controller\n");
        EXPECT_EQ(prodctl({"--complete", "mesh", command, "agent", ""}).out, "");
    }
}

}  // namespace
