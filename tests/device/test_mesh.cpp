// SPDX-License-Identifier: MIT
// The booted device takes the roles of the mesh network, on its real store and with its own factory
// settings and wireless interfaces.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/cfm.h"
#include "prod_common_xmesh.h"
#include "stories.hpp"
#include "support/children.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/mesh_attributes.hpp"
#include "support/mesh_roles.hpp"

using story::Json;
using story::must;

namespace
{

constexpr const char *kPersistent = "/cfg/cfm.cfg";
constexpr const char *kBoard = "/etc/board.json";

int commits;  // of the library, in this process

}  // namespace

/** Counts, and commits to the real store. */
extern "C" int CommitCfm(void)
{
    ++commits;
    return test::next(CommitCfm, "CommitCfm")();
}

namespace
{

struct Role {
    const char *name;
    int (*take)();
    test::MeshSettings settings;
};

std::vector<Role> roles()
{
    return {{"controller", set_mesh_to_controller_cfg, test::controller_settings()},
            {"agent", set_mesh_to_agent_cfg, test::agent_settings()},
            {"temp-controller", set_mesh_to_temp_controller_cfg, test::temp_controller_settings()},
            {"default", set_mesh_to_default_cfg, test::default_settings()}};
}

/** Gives the board factory settings beside its own. */
void factory_also_wrote(const std::string &settings)
{
    std::string board = test::read_text(kBoard);
    const std::string own = "\"QX_ATE_SN\"";
    const std::size_t at = board.find(own);
    ASSERT_NE(at, std::string::npos);
    test::write_text(kBoard, board.insert(at, settings + ", "));
}

/** Each commit makes the file anew, so one that has not changed is the same file. */
class PersistentFile
{
  public:
    PersistentFile()
    {
        // The old file stays linked: its number is not given to the new one.
        unlink("/cfg/cfm.before");
        EXPECT_EQ(link(kPersistent, "/cfg/cfm.before"), 0);
        before_ = number();
    }
    bool was_replaced() const { return number() != before_; }

  private:
    static ino_t number()
    {
        struct stat status = {};
        EXPECT_EQ(stat(kPersistent, &status), 0);
        return status.st_ino;
    }
    ino_t before_;
};

void holds(const test::MeshSettings &settings, const std::string &role)
{
    const std::string working = "\n" + must("cfm show");
    const std::string persistent = "\n" + test::read_text(kPersistent);
    for (const auto &[key, value] : settings) {
        const std::string line = "\n" + key + "=" + value + "\n";
        EXPECT_NE(working.find(line), std::string::npos) << role << line;
        EXPECT_NE(persistent.find(line), std::string::npos) << role << line;
    }
}

TEST(Mesh, EachRoleIsCommittedOnceAndThenNotAgain)
{
    factory_also_wrote("\"QX_FINISH_TSTFLAG\": \"1\"");
    must("cfm commit");
    for (const Role &role : roles()) {
        commits = 0;
        const PersistentFile first;
        EXPECT_EQ(role.take(), 1) << role.name;
        EXPECT_EQ(commits, 1) << role.name;
        EXPECT_TRUE(first.was_replaced()) << role.name;
        holds(role.settings, role.name);

        const PersistentFile second;
        EXPECT_EQ(role.take(), 0) << role.name;
        EXPECT_EQ(commits, 1) << role.name;
        EXPECT_FALSE(second.was_replaced()) << role.name;
        EXPECT_EQ(Json::answer_of("prodctl mesh show --json")["roles"]
                      .where("role", role.name)["different"]
                      .number(),
                  0);
    }
}

TEST(Mesh, OfARestartTheRoleIsTheCommittedOne)
{
    must("prodctl mesh set agent");
    must("cfm set mesh.mode 1");
    EXPECT_EQ(Json::answer_of("prodctl mesh show --json")["role"].text(), "controller");
    // What a start of the device reads: the persistent file, the working copy being gone.
    must("rm -rf /var/run/cfm");
    EXPECT_EQ(Json::answer_of("prodctl mesh show --json")["role"].text(), "agent");
    EXPECT_EQ(must("prodctl system mode --json"),
              "{\"mode\":3,\"mode_name\":\"gateway\",\"work_mode\":\"ap\"}\n");
    must("prodctl mesh set controller");
    EXPECT_EQ(must("prodctl system mode --json"),
              "{\"mode\":3,\"mode_name\":\"gateway\",\"work_mode\":\"router\"}\n");
}

TEST(Mesh, TheFactorySettingsOfTheBoard)
{
    EXPECT_EQ(must("cfm get serial.number"), "\n");
    EXPECT_EQ(set_mesh_to_default_cfg(), 1);
    EXPECT_EQ(must("cfm get serial.number"), "V0000000001\n");

    // The factory has not finished with this board: its radios are access points.
    for (int time = 1; time <= 2; ++time) {
        commits = 0;
        EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1);
        EXPECT_EQ(commits, 1);
        EXPECT_EQ(must("cfm get wlan0_workmode; cfm get wlan1_workmode"), "ap\nap\n");
        EXPECT_EQ(must("cfm get wlan0_autochannel_type; cfm get wlan1_autochannel_type"), "0\n0\n");
    }

    factory_also_wrote("\"QX_FINISH_TSTFLAG\": \"1\"");
    EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 1);
    EXPECT_EQ(must("cfm get wlan0_workmode; cfm get wlan1_workmode"), "ap\napclient\n");
    EXPECT_EQ(set_mesh_to_temp_controller_cfg(), 0);
}

TEST(Mesh, TheMacOfAWirelessInterface)
{
    for (const auto &[bss, ifname] : {std::pair{"wlan0.0", "wl0"}, {"wlan1.0", "wl1"}}) {
        char mac[13] = "";
        ASSERT_EQ(xmesh_wifi_get_bss_mac(bss, mac), mac) << bss;
        EXPECT_EQ(std::string{mac} + "\n",
                  must(std::string{"tr -d : </sys/class/net/"} + ifname + "/address | tr a-f A-F"));
        char format[18];
        EXPECT_EQ(xmesh_mac_str_to_format(format, mac), 1);
        EXPECT_EQ(std::string{format} + "\n",
                  must(std::string{"tr a-f A-F </sys/class/net/"} + ifname + "/address"));
    }
    char none[13] = "";
    EXPECT_EQ(xmesh_wifi_get_bss_mac("wlan1.63", none), nullptr);
    EXPECT_STREQ(none, "");
}

/** What a node tells its neighbour, as one datagram. */
std::string announcement()
{
    std::string message(256, '\0');
    auto *place = reinterpret_cast<mesh_attr_t *>(message.data());
    char mac[13] = "";
    EXPECT_NE(xmesh_wifi_get_bss_mac("wlan0.0", mac), nullptr);
    mesh_set_attr_str(&place, MESH_ATTR_24G_BBSS_MAC, mac);
    mesh_set_attr_str(&place, MESH_ATTR_NAME, "living room");
    mesh_set_attr_u32(&place, MESH_ATTR_UPTIME, 93);
    mesh_set_attr_u16(&place, MESH_ATTR_UPPER_NODE_RATE, 866);
    message.resize(static_cast<std::size_t>(reinterpret_cast<char *>(place) - message.data()));
    return message;
}

TEST(Mesh, MessagesBetweenTwoNodes)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
    test::Child node{[&](test::Child &) {
        const std::string message = announcement();
        for (std::size_t length = 0; length <= message.size(); ++length) {
            ASSERT_EQ(send(ends[1], message.data(), length, 0), static_cast<ssize_t>(length));
        }
    }};
    const std::string whole = announcement();
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        std::vector<char> message(length);
        ASSERT_EQ(recv(ends[0], message.data(), length, 0), static_cast<ssize_t>(length));
        const auto records = test::mesh_records({message.data(), length});
        for (const mesh_attr_type_t type :
             {MESH_ATTR_24G_BBSS_MAC, MESH_ATTR_NAME, MESH_ATTR_UPTIME, MESH_ATTR_UPPER_NODE_RATE,
              MESH_ATTR_SSID}) {
            void *value = nullptr;
            uint32_t size = 0;
            const std::optional<std::string> wanted = test::first_of(records, type);
            EXPECT_EQ(
                mesh_get_attr(message.data(), static_cast<uint32_t>(length), type, &value, &size),
                wanted ? 1 : 0)
                << length;
            EXPECT_EQ(std::string(static_cast<char *>(value), size), wanted.value_or("")) << length;
        }
    }
    EXPECT_EQ(test::mesh_records(whole).size(), 4U);
    node.expect_status(0);
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
