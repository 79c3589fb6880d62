// SPDX-License-Identifier: MIT
// The groups config and wifi, on the real store.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "platform/cfm.h"
#include "support/files.hpp"
#include "support/network.hpp"
#include "support/sockets.hpp"
#include "support/store.hpp"
#include "tool.hpp"

using test::answer;
using test::Outcome;
using test::prodctl;
using test::refuses;
using test::stored;
using test::Words;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

constexpr char kPersistent[] = "/cfg/cfm.cfg";

/** What the persistent file holds. */
std::string committed(const std::string &key)
{
    const std::string text = "\n" + test::read_text(kPersistent);
    const std::size_t at = text.find("\n" + key + "=");
    if (at == std::string::npos) {
        return "(absent)";
    }
    const std::size_t begin = at + key.size() + 2;
    return text.substr(begin, text.find('\n', begin) - begin);
}

class Config : public test::Fresh
{
  protected:
    Config() { test::store({{"a", "1"}, {"b", "2"}, {"empty", ""}}); }
};
using Wifi = Config;

// ---- get --------------------------------------------------------------------------------------

TEST_F(Config, GetOne)
{
    EXPECT_EQ(prodctl({"config", "get", "a"}), (Outcome{0, "1\n", ""}));
    EXPECT_EQ(prodctl({"config", "get", "a", "--json"}),
              (Outcome{0, "{\"values\":{\"a\":\"1\"}}\n", ""}));
    EXPECT_EQ(prodctl({"config", "get", "empty"}), (Outcome{0, "\n", ""}));
    EXPECT_EQ(prodctl({"config", "get", "nonesuch"}),
              (Outcome{1, "", "prodctl config get: nonesuch is not set\n"}));
    EXPECT_EQ(prodctl({"config", "get", "nonesuch", "--json"}),
              (Outcome{1, "{\"values\":{\"nonesuch\":null}}\n",
                       "prodctl config get: nonesuch is not set\n"}));
}

TEST_F(Config, GetSeveral)
{
    EXPECT_EQ(prodctl({"config", "get", "a", "nonesuch", "b"}),
              (Outcome{1, "a=1\nb=2\n", "prodctl config get: nonesuch is not set\n"}));
    EXPECT_EQ(prodctl({"config", "get", "--json", "a", "nonesuch", "b"}).out,
              "{\"values\":{\"a\":\"1\",\"nonesuch\":null,\"b\":\"2\"}}\n");
}

TEST_F(Config, TheLongestKeyAndValue)
{
    const std::string key(CFM_KEY_MAX, 'k');
    const std::string value(CFM_VALUE_SIZE - 1, 'v');
    EXPECT_EQ(prodctl({"config", "set", key, value}).status, 0);
    EXPECT_EQ(prodctl({"config", "get", key}), (Outcome{0, value + "\n", ""}));
    EXPECT_EQ(prodctl({"config", "changes", key, value}).status, 1);
    EXPECT_EQ(prodctl({"config", "unset", key}).status, 0);
    EXPECT_EQ(prodctl({"config", "get", key}).status, 1);
}

TEST_F(Config, ImpossibleKeysAndValues)
{
    const std::string long_key(CFM_KEY_MAX + 1, 'k');
    const std::string long_value(CFM_VALUE_SIZE, 'v');
    refuses({"config", "get", ""}, "prodctl config get", ": the key is empty");
    refuses({"config", "get", "a", long_key}, "prodctl config get",
            long_key + ": the key is too long");
    refuses({"config", "get", "a=b"}, "prodctl config get",
            "a=b: the key holds \"=\" or a line break");
    refuses({"config", "set", "#a=1"}, "prodctl config set", "#a: the key begins with \"#\"");
    refuses({"config", "unset", "a", "x\ny"}, "prodctl config unset",
            "x?y: the key holds \"=\" or a line break");
    refuses({"config", "set", "=1"}, "prodctl config set", ": the key is empty");
    refuses({"config", "set", "a", "x\ny"}, "prodctl config set",
            "a: the value holds a line break");
    refuses({"config", "set", "a=9", "b=" + long_value}, "prodctl config set",
            "b: the value is too long");
    refuses({"config", "set", "a=9", "b"}, "prodctl config set", "'b' is not KEY=VALUE");
    refuses({"config", "set", "a"}, "prodctl config set", "'a' is not KEY=VALUE");
    refuses({"config", "set"}, "prodctl config set", "give either settings or --file");
    refuses({"config", "set", "a=9", "--file", "-"}, "prodctl config set",
            "give either settings or --file");
    refuses({"config", "changes"}, "prodctl config changes", "give either settings or --file");
    EXPECT_EQ(stored("a"), "1") << "nothing is stored when one setting is impossible";
}

// ---- set --------------------------------------------------------------------------------------

TEST_F(Config, SetOne)
{
    EXPECT_EQ(prodctl({"config", "set", "a", "9"}), (Outcome{0, "a 1 -> 9\n1 of 1 changed\n", ""}));
    EXPECT_EQ(stored("a"), "9");
    EXPECT_EQ(prodctl({"config", "set", "a", "9"}), (Outcome{0, "0 of 1 changed\n", ""}));
    EXPECT_EQ(prodctl({"config", "set", "new", "x y=z"}).out,
              "new not set -> x y=z\n1 of 1 changed\n");
    EXPECT_EQ(stored("new"), "x y=z");
    EXPECT_EQ(prodctl({"config", "set", "a", "--", "--json"}).out,
              "a 9 -> --json\n1 of 1 changed\n");
    EXPECT_EQ(prodctl({"config", "set", "a", "-5"}).status, 0);
    EXPECT_EQ(stored("a"), "-5");
    EXPECT_EQ(prodctl({"config", "set", "a", ""}).status, 0);
    EXPECT_EQ(stored("a"), "");
    EXPECT_EQ(prodctl({"config", "set", "a", "1"}).out, "a empty -> 1\n1 of 1 changed\n");
}

TEST_F(Config, SetSeveral)
{
    EXPECT_EQ(prodctl({"config", "set", "a=9", "b=2", "new=", "c=x=y", "--json"}).out,
              "{\"settings\":[{\"key\":\"a\",\"old\":\"1\",\"new\":\"9\",\"changed\":true},"
              "{\"key\":\"b\",\"old\":\"2\",\"new\":\"2\",\"changed\":false},"
              "{\"key\":\"new\",\"old\":null,\"new\":\"\",\"changed\":false},"
              "{\"key\":\"c\",\"old\":null,\"new\":\"x=y\",\"changed\":true}],"
              "\"changed\":2,\"committed\":false}\n");
    EXPECT_EQ(stored("a"), "9");
    EXPECT_EQ(stored("c"), "x=y");
    EXPECT_EQ(stored("new"), "(absent)") << "an absent key holds the empty text already";
}

TEST_F(Config, SetFromAFile)
{
    const std::string settings = "# the branch office\n\na=9\r\nb=2\nlast=no newline";
    const std::string told = "a 1 -> 9\nlast not set -> no newline\n2 of 3 changed\n";
    EXPECT_EQ(prodctl({"config", "set", "--file", "-"}, settings), (Outcome{0, told, ""}));
    EXPECT_EQ(stored("last"), "no newline");

    SetValue("a", "1");
    UnSetValue("last");
    test::write_text("/tmp/settings", settings);
    EXPECT_EQ(prodctl({"config", "set", "--file=/tmp/settings"}), (Outcome{0, told, ""}));
    EXPECT_EQ(prodctl({"config", "set", "--file", "-"}, ""), (Outcome{0, "0 of 0 changed\n", ""}));
}

TEST_F(Config, AFileWithAnImpossibleLine)
{
    const struct {
        std::string text;
        std::string complaint;
    } kFiles[] = {
        {"a=9\nb\n", "line 2 of - is not KEY=VALUE"},
        {"a=9\n=b\n", ": the key is empty"},
        {"a=9\nb=" + std::string(100000, 'v') + "\n", "b: the value is too long"},
        {"a=9\n" + std::string(512, 'k') + "=1\n", std::string(512, 'k') + ": the key is too long"},
        {std::string{"a=9\nb\0=1\n", 9}, "line 2 of - holds a zero byte"},
    };
    for (const auto &file : kFiles) {
        const Outcome outcome = prodctl({"config", "set", "--file", "-"}, file.text);
        EXPECT_EQ(outcome, (Outcome{1, "", "prodctl config set: " + file.complaint + "\n"}));
        EXPECT_EQ(stored("a"), "1");
    }
    EXPECT_EQ(
        prodctl({"config", "set", "--file", "/nonesuch"}),
        (Outcome{1, "", "prodctl config set: cannot open /nonesuch: No such file or directory\n"}));
    EXPECT_EQ(prodctl({"config", "set", "--file", "/etc"}).status, 1) << "a folder";
}

TEST_F(Config, AValueThatTheStoreDoesNotTake)
{
    // The working copy cannot be written.
    const test::MountedFolder nothing{"/var/run", "size=16k", true};
    const Outcome outcome = prodctl({"config", "set", "a", "9", "--commit", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("\"changed\":false}],\"changed\":0,\"committed\":false}"));
    EXPECT_THAT(outcome.err, HasSubstr("a: the store did not take the value\n"));
}

// ---- unset ------------------------------------------------------------------------------------

TEST_F(Config, Unset)
{
    EXPECT_EQ(prodctl({"config", "unset", "a"}), (Outcome{0, "a removed\n", ""}));
    EXPECT_EQ(stored("a"), "(absent)");
    EXPECT_EQ(prodctl({"config", "unset", "b", "a", "empty", "--json"}),
              (Outcome{1, "{\"removed\":[\"b\"],\"changed\":1,\"committed\":false}\n",
                       "prodctl config unset: a holds no value\n"
                       "prodctl config unset: empty holds no value\n"}));
    EXPECT_EQ(stored("b"), "(absent)");
}

// ---- changes ----------------------------------------------------------------------------------

TEST_F(Config, ChangesStoresNothing)
{
    EXPECT_EQ(prodctl({"config", "changes", "a=9", "b=2", "new=x", "gone="}),
              (Outcome{0,
                       "a 1 -> 9\nnew not set -> x\n"
                       "2 of 4 would change\n",
                       ""}));
    EXPECT_EQ(stored("a"), "1");
    EXPECT_EQ(stored("new"), "(absent)");
    EXPECT_EQ(prodctl({"config", "changes", "a", "1", "--json"}),
              (Outcome{1,
                       "{\"settings\":[{\"key\":\"a\",\"old\":\"1\",\"new\":\"1\","
                       "\"changed\":false}],\"changed\":0}\n",
                       ""}));
}

TEST_F(Config, ChangesAgainstThePersistentFile)
{
    ASSERT_EQ(prodctl({"config", "commit"}), (Outcome{0, "committed\n", ""}));
    const Words changes = {"config", "changes", "--file", kPersistent};
    EXPECT_EQ(prodctl(changes).status, 1) << "nothing was changed since";
    SetValue("a", "9");
    SetValue("b", "");
    SetValue("b", "2");
    const Outcome outcome = prodctl(changes);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("a 9 -> 1\n1 of "));
}

// ---- commit -----------------------------------------------------------------------------------

TEST_F(Config, Commit)
{
    EXPECT_EQ(prodctl({"config", "set", "a=9", "--commit"}),
              (Outcome{0, "a 1 -> 9\n1 of 1 changed, committed\n", ""}));
    EXPECT_EQ(committed("a"), "9");
    EXPECT_EQ(prodctl({"config", "set", "a=8"}).status, 0);
    EXPECT_EQ(committed("a"), "9");
    EXPECT_EQ(prodctl({"config", "commit", "--json"}), (Outcome{0, "{\"committed\":true}\n", ""}));
    EXPECT_EQ(committed("a"), "8");
    EXPECT_EQ(prodctl({"config", "unset", "a", "--commit"}),
              (Outcome{0, "a removed\ncommitted\n", ""}));
    EXPECT_EQ(committed("a"), "(absent)");
}

TEST_F(Config, ACommitThatFails)
{
    const test::MountedFolder full{"/cfg"};
    full.fill();
    const std::string message = "the configuration was not made persistent\n";
    EXPECT_EQ(prodctl({"config", "commit", "--json"}),
              (Outcome{1, "{\"error\":\"the configuration was not made persistent\"}\n",
                       "prodctl config commit: " + message}));
    const Outcome set = prodctl({"config", "set", "a", "7", "--commit", "--json"});
    EXPECT_EQ(set.status, 1);
    EXPECT_THAT(set.out, HasSubstr("\"changed\":1,\"committed\":false}"));
    EXPECT_EQ(set.err, "prodctl config set: " + message);
    EXPECT_EQ(stored("a"), "7") << "the working copy has it all the same";
    EXPECT_EQ(prodctl({"wifi", "set", "2", "band", "7", "--commit"}).status, 1);
}

// ---- wifi -------------------------------------------------------------------------------------

TEST_F(Wifi, GetByRadioAndBss)
{
    SetValue("wlan0_band", "2");
    SetValue("wlan1_band", "5");
    SetValue("wlan0.3_bss_ssid", "three");
    SetValue("wlan1.0_bss_ssid", "first of 5");
    EXPECT_EQ(prodctl({"wifi", "get", "2", "band"}), (Outcome{0, "2\n", ""}));
    EXPECT_EQ(prodctl({"wifi", "get", "wlan1", "band"}), (Outcome{0, "5\n", ""}));
    EXPECT_EQ(prodctl({"wifi", "get", "2.3", "bss_ssid"}), (Outcome{0, "three\n", ""}));
    EXPECT_EQ(prodctl({"wifi", "get", "wlan1.0", "bss_ssid", "--json"}),
              (Outcome{0, "{\"key\":\"wlan1.0_bss_ssid\",\"value\":\"first of 5\"}\n", ""}));
    EXPECT_EQ(prodctl({"wifi", "get", "2.3", "nonesuch", "--json"}),
              (Outcome{1, "{\"error\":\"wlan0.3_nonesuch is not set\"}\n",
                       "prodctl wifi get: wlan0.3_nonesuch is not set\n"}));
}

TEST_F(Wifi, Set)
{
    SetValue("wlan0_band", "2");
    EXPECT_EQ(prodctl({"wifi", "set", "2", "band", "5"}), (Outcome{0, "wlan0_band = 5\n", ""}));
    EXPECT_EQ(stored("wlan0_band"), "5");
    EXPECT_EQ(prodctl({"wifi", "set", "2", "band", "5"}).out, "wlan0_band = 5 (unchanged)\n");
    EXPECT_EQ(prodctl({"wifi", "set", "5.7", "bss_ssid", "a b", "--commit", "--json"}),
              (Outcome{0,
                       "{\"key\":\"wlan1.7_bss_ssid\",\"value\":\"a b\",\"changed\":true,"
                       "\"committed\":true}\n",
                       ""}));
    EXPECT_EQ(stored("wlan1.7_bss_ssid"), "a b");
    EXPECT_EQ(committed("wlan1.7_bss_ssid"), "a b");
    const std::string longest(CFM_VALUE_SIZE - 1, 'v');
    EXPECT_EQ(prodctl({"wifi", "set", "2.0", "bss_ssid", longest}).status, 0);
    EXPECT_EQ(prodctl({"wifi", "get", "2.0", "bss_ssid"}).out, longest + "\n");
    EXPECT_EQ(prodctl({"wifi", "status"}).status, 0);
}

TEST_F(Wifi, WrongPlacesNamesAndValues)
{
    for (const char *const place :
         {"", "3", "2.", "2.64", "2.-1", "2.x", "wlan2", "wlan0.", ".0", "2.0.0", "2 "}) {
        refuses({"wifi", "get", place, "band"}, "prodctl wifi get",
                std::string{"'"} + place +
                    "' is neither a radio (2 or 5) nor a BSS of one (2.0 to 5.63)");
    }
    for (const std::string &name : {std::string{}, std::string{"a=b"}, std::string(481, 'n')}) {
        refuses({"wifi", "set", "2", name, "x"}, "prodctl wifi set",
                name + ": this cannot be the name of a setting");
    }
    refuses({"wifi", "set", "2", "band", std::string(CFM_VALUE_SIZE, 'v')}, "prodctl wifi set",
            "wlan0_band: the value is too long");
    EXPECT_EQ(prodctl({"wifi", "set", "2.63", std::string(480, 'n'), "x"}).status, 0);
    EXPECT_EQ(prodctl({"wifi", "get", "2.63", std::string(480, 'n')}).out, "x\n");
}

TEST_F(Wifi, Status)
{
    test::run(
        "ip link add wl0.1 type veth peer name air && ip link set air up && "
        "ip link set wl0.1 up");
    test::link_is_up("wl0.1");
    for (const auto &[key, value] : {std::pair{"wlan0_workmode", "ap"},
                                     {"wlan1_workmode", "wisp"},
                                     {"wlan0_enable", "1"},
                                     {"wlan1_enable", "0"},
                                     {"wlan0_web_maxbss", "2"},
                                     {"wlan1_web_maxbss", "1"},
                                     {"wlan0.0_bss_enable", "0"},
                                     {"wlan0.0_bss_ssid", "one"},
                                     {"wlan0.1_bss_enable", "1"},
                                     {"wlan0.1_bss_ssid", ""},
                                     {"wlan1.0_bss_enable", "1"},
                                     {"wlan1.0_bss_ssid", "fast"}}) {
        ASSERT_EQ(SetValue(key, value), 1);
    }
    EXPECT_EQ(
        prodctl({"wifi", "status", "--json"}),
        (Outcome{0,
                 "{\"work_mode\":\"wisp\",\"radios\":[{\"radio\":2,\"prefix\":\"wlan0\","
                 "\"enabled\":true,\"up\":true,\"bss\":["
                 "{\"index\":0,\"enabled\":false,\"ssid\":\"one\",\"interface\":\"wl0\"},"
                 "{\"index\":1,\"enabled\":true,\"ssid\":\"\",\"interface\":\"wl0.1\"}]},"
                 "{\"radio\":5,\"prefix\":\"wlan1\",\"enabled\":false,\"up\":false,\"bss\":["
                 "{\"index\":0,\"enabled\":true,\"ssid\":\"fast\",\"interface\":\"wl1\"}]}]}\n",
                 ""}));
    EXPECT_EQ(prodctl({"wifi", "status"}).out,
              "work mode wisp\n\n2.4 GHz up\nBSS  STATE  INTERFACE  SSID\n"
              "0    off    wl0        one\n1    on     wl0.1      -\n\n"
              "5 GHz down (disabled)\nBSS  STATE  INTERFACE  SSID\n0    on     wl1        fast\n");
    test::run("ip link del wl0.1");
}

TEST_F(Wifi, StatusOfAnUnreasonableNumberOfBsss)
{
    SetValue("wlan0_web_maxbss", "2000000000");
    SetValue("wlan1_web_maxbss", "-1");
    const test::Json status = answer(prodctl({"wifi", "status", "--json"}));
    const cJSON *const radios = cJSON_GetObjectItem(status.get(), "radios");
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(radios->child, "bss")), 64);
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(radios->child->next, "bss")), 0);
}

TEST_F(Wifi, SendReachesTheServer)
{
    const test::Listener server{"/var/wlan_server_socket"};
    const Outcome outcome = prodctl({"wifi", "send", "restart", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_EQ(outcome.out, "{\"sent\":\"restart\"}\n");

    const int peer = server.accept();
    char bytes[64];
    ASSERT_EQ(read(peer, bytes, sizeof(bytes)), 4 + 7);
    EXPECT_EQ(memcmp(bytes, "\7\0\0\0restart", 4 + 7), 0);
    close(peer);

    EXPECT_EQ(unlink("/var/wlan_server_socket"), 0);
    const Outcome nobody = prodctl({"wifi", "send", "restart"});
    EXPECT_EQ(nobody.status, 1);
    EXPECT_EQ(nobody.out, "");
    EXPECT_THAT(nobody.err,
                HasSubstr("prodctl wifi send: the WLAN server did not take the command\n"));
}

}  // namespace
