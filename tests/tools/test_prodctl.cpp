// SPDX-License-Identifier: MIT
// The command line itself: help, completion, options, streams. What the commands answer is tested
// group by group.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <set>

#include "platform/cfm.h"
#include "prod_common_debug.h"
#include "support/capture.hpp"
#include "support/files.hpp"
#include "tool.hpp"

using test::lines_of;
using test::on_a_terminal;
using test::Outcome;
using test::prodctl;
using test::refuses;
using test::Words;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace
{

Words with(Words words, const std::string &last)
{
    words.push_back(last);
    return words;
}

std::string joined(const Words &words)
{
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

/** The first words of the lines of one section of a help text. */
Words listed(const std::string &help, const std::string &section)
{
    Words words;
    bool inside = false;
    for (const std::string &line : lines_of(help)) {
        if (line == section + ":") {
            inside = true;
        } else if (line.empty()) {
            inside = false;
        } else if (inside) {
            words.push_back(line.substr(2, line.find(' ', 2) - 2));
        }
    }
    return words;
}

using Nodes = std::vector<std::pair<Words, std::string>>;

void add_nodes(const Words &path, Nodes &nodes)
{
    const Outcome help = prodctl(with(path, "--help"));
    ASSERT_EQ(help, (Outcome{0, help.out, ""})) << joined(path);
    nodes.emplace_back(path, help.out);
    for (const std::string &child : listed(help.out, "commands")) {
        add_nodes(with(path, child), nodes);
    }
}

/** Every node of the command line: its path and its help. Each is asked once, which takes long. */
const Nodes &nodes()
{
    static const Nodes all = [] {
        Nodes found;
        add_nodes({}, found);
        return found;
    }();
    return all;
}

// ---- help -------------------------------------------------------------------------------------

TEST(Help, AtEachLevel)
{
    std::set<std::string> names;
    for (const auto &[path, help] : nodes()) {
        const std::string name = joined(with({"prodctl"}, joined(path)));
        names.insert(joined(path));
        EXPECT_THAT(help, StartsWith(path.empty() ? "usage: prodctl COMMAND\n" : "usage: " + name));
        EXPECT_THAT(help, HasSubstr("  --json"));
        EXPECT_EQ(prodctl(with(path, "-h")).out, help);
        if (listed(help, "commands").empty()) {
            EXPECT_THAT(help, HasSubstr("\nexit status:\n  0  ")) << name;
            EXPECT_THAT(help, EndsWith("\n  2  wrong usage\n")) << name;
        }
        for (const std::string &line : lines_of(help)) {
            EXPECT_LE(line.size(), 100U) << line;
        }
    }
    for (const char *const wanted : {"status",
                                     "debug show",
                                     "debug set",
                                     "debug log",
                                     "config get",
                                     "config set",
                                     "config unset",
                                     "config changes",
                                     "config commit",
                                     "wan status",
                                     "wan ports",
                                     "wan dns",
                                     "wan macs",
                                     "ipv6 show",
                                     "wan dns add",
                                     "wan dns reset",
                                     "wan dns exchange",
                                     "wan save-lease",
                                     "lan neighbours",
                                     "lan show",
                                     "route",
                                     "upnp",
                                     "log list",
                                     "wifi get",
                                     "wifi set",
                                     "wifi status",
                                     "wifi send",
                                     "led show",
                                     "led set",
                                     "port",
                                     "system mode",
                                     "system uptime",
                                     "system time",
                                     "system watchdog",
                                     "system resolve",
                                     "system request",
                                     "check file",
                                     "check app",
                                     "check mount",
                                     "check device",
                                     "check bridge",
                                     "check wan",
                                     "check usb",
                                     "check partition",
                                     "check host",
                                     "str hex",
                                     "str unhex",
                                     "str mac",
                                     "str hash",
                                     "lan check",
                                     "check address",
                                     "check param",
                                     "wan dns collect",
                                     "wan resolve",
                                     "backup save",
                                     "backup load",
                                     "backup verify",
                                     "policy list",
                                     "policy export",
                                     "policy import",
                                     "encode",
                                     "decode"}) {
        EXPECT_THAT(names, Contains(wanted));
    }
}

TEST(Help, OfACommand)
{
    const std::string help =
        "usage: prodctl config unset [--commit] KEY...\n\nRemove keys.\n\noptions:\n"
        "  --commit  make the working copy persistent afterwards\n"
        "  --json    answer with one line of JSON\n  --help    show this help\n\n"
        "exit status:\n  0  done\n  1  a key holds no value\n  2  wrong usage\n";
    EXPECT_EQ(prodctl({"config", "unset", "--help"}), (Outcome{0, help, ""}));
    EXPECT_EQ(prodctl({"--help", "config", "unset"}).out, help);
    EXPECT_EQ(prodctl({"config", "--help", "unset", "a", "--commit"}).out, help)
        << "whatever else stands there";
}

/** Whether the manual page has an entry of a command, by whichever macro. */
bool has_entry(const std::string &page, const std::string &command)
{
    for (const char *const macro : {"\n.B ", "\n.BI \"", "\n.BR \""}) {
        for (const char end : {' ', '\n'}) {
            if (page.find(macro + command + end) != std::string::npos) {
                return true;
            }
        }
    }
    return false;
}

TEST(Help, TheManPageKnowsEveryCommandAndOption)
{
    std::string page = test::read_text(PRODCTL_SOURCES "/prodctl.1");
    std::erase(page, '\\');
    for (const auto &[path, help] : nodes()) {
        if (listed(help, "commands").empty()) {
            EXPECT_TRUE(has_entry(page, joined(path))) << joined(path);
        }
        for (const std::string &option : listed(help, "options")) {
            EXPECT_THAT(page, HasSubstr(option)) << joined(path);
        }
    }
}

TEST(Help, Version)
{
    EXPECT_EQ(prodctl({"--version"}), (Outcome{0, "prodctl " PRODCTL_VERSION "\n", ""}));
    refuses({"wan", "--version"}, "prodctl wan", "unknown option '--version'");
}

// ---- wrong usage ------------------------------------------------------------------------------

TEST(Usage, NoCommand)
{
    refuses({}, "prodctl", "a command is missing");
    refuses({"--json"}, "prodctl", "a command is missing");
    for (const std::string &group : listed(prodctl({"--help"}).out, "commands")) {
        if (group == "watch") {
            refuses({group}, "prodctl " + group, "an argument is missing, expected: PATH...");
        } else if (group != "status" && group != "port" && group != "encode" && group != "decode" &&
                   group != "route" && group != "upnp") {
            refuses({group}, "prodctl " + group, "a command is missing");
        }
    }
}

TEST(Usage, AnUnknownCommand)
{
    refuses({"wam"}, "prodctl", "unknown command 'wam'");
    refuses({""}, "prodctl", "unknown command ''");
    refuses({"wan", "state"}, "prodctl wan", "unknown command 'state'");
    refuses({"wan", "dns", "drop"}, "prodctl wan dns", "unknown command 'drop'");
    refuses({"wan", "status", "ports"}, "prodctl wan status", "'ports' is no WAN: 1 to 4");
}

TEST(Usage, AnUnknownOption)
{
    refuses({"--jason"}, "prodctl", "unknown option '--jason'");
    refuses({"wan", "status", "-x"}, "prodctl wan status", "unknown option '-x'");
    refuses({"config", "get", "--commit", "a"}, "prodctl config get", "unknown option '--commit'");
    refuses({"config", "set", "a", "b", "--commit=1"}, "prodctl config set",
            "option --commit takes no value");
    refuses({"config", "set", "--file"}, "prodctl config set", "option --file needs a value");
}

TEST(Usage, ArgumentsAreCounted)
{
    refuses({"debug", "set"}, "prodctl debug set",
            "an argument is missing, expected: MODULE LEVEL");
    refuses({"debug", "set", "prod"}, "prodctl debug set",
            "an argument is missing, expected: MODULE LEVEL");
    refuses({"debug", "set", "prod", "1", "2"}, "prodctl debug set",
            "too many arguments, expected: MODULE LEVEL");
    refuses({"system", "mode", "x"}, "prodctl system mode", "too many arguments, expected: none");
}

TEST(Usage, EveryCommandCountsItsArguments)
{
    const Words many(20, "1");
    for (const auto &[path, help] : nodes()) {
        if (!listed(help, "commands").empty() || help.find("...") != std::string::npos) {
            continue;
        }
        Words call = path;
        call.insert(call.end(), many.begin(), many.end());
        const Outcome outcome = prodctl(call);
        EXPECT_EQ(outcome.status, 2) << joined(path);
        EXPECT_THAT(outcome.err, StartsWith("prodctl " + joined(path) + ": too many"));
    }
}

TEST(Usage, TwoDashesEndTheOptions)
{
    EXPECT_EQ(prodctl({"str", "hex", "--", "--json"}).out, "2d2d6a736f6e\n");
    EXPECT_EQ(prodctl({"str", "hash", "-1"}).status, 0) << "a negative number is an argument";
    EXPECT_EQ(prodctl({"str", "hex", "-"}).out, "2d\n");
    refuses({"--", "str", "hex", "a"}, "prodctl", "unknown command 'str'");
}

TEST(Usage, JsonAnywhere)
{
    const Outcome wanted{0, "{\"result\":\"61\"}\n", ""};
    EXPECT_EQ(prodctl({"--json", "str", "hex", "a"}), wanted);
    EXPECT_EQ(prodctl({"str", "--json", "hex", "a"}), wanted);
    EXPECT_EQ(prodctl({"str", "hex", "--json", "a"}), wanted);
    EXPECT_EQ(prodctl({"str", "hex", "a", "--json"}), wanted);
}

TEST(Usage, AComplaintIsHarmlessForATerminal)
{
    refuses({"\033[31mx\xff"}, "prodctl", "unknown command '?[31mx?'");
}

// ---- streams ----------------------------------------------------------------------------------

using Streams = test::Fresh;

TEST_F(Streams, WhatTheLibraryPrintsStaysOutOfTheAnswer)
{
    set_dbg_level("prod", PROD_DBG_DEBUG);
    const Outcome outcome = prodctl({"port", "99", "--json"});
    EXPECT_EQ(outcome.out, "{\"ports\":[{\"physical_id\":99,\"link\":false}]}\n");
    EXPECT_THAT(outcome.err, HasSubstr("Failed to iof_port_status_get(99)"));
    EXPECT_EQ(prodctl({"port", "99"}).out, "PHYSICAL  LINK\n99        down\n");
}

TEST_F(Streams, StandardOutputThatTakesNothing)
{
    const auto full = [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); };
    const Outcome outcome = prodctl({"system", "mode"}, "", full);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "prodctl: cannot write to standard output\n");
}

TEST_F(Streams, StandardOutputClosed)
{
    const Outcome outcome = prodctl({"system", "mode"}, "", [] { close(STDOUT_FILENO); });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "prodctl: there is no standard output\n");
}

TEST_F(Streams, StandardErrorClosed)
{
    set_dbg_level("prod", PROD_DBG_DEBUG);
    const Outcome outcome = prodctl({"port", "99", "--json"}, "", [] { close(STDERR_FILENO); });
    EXPECT_EQ(outcome, (Outcome{1, "{\"ports\":[{\"physical_id\":99,\"link\":false}]}\n", ""}));
}

TEST_F(Streams, ColourOnlyOnATerminal)
{
    set_dbg_level("prod", PROD_DBG_DEBUG);
    EXPECT_THAT(prodctl({"debug", "show"}).out, Not(HasSubstr("\033")));
    EXPECT_THAT(prodctl({"check", "file", "/"}).out, Not(HasSubstr("\033")));

    setenv("TERM", "xterm", 1);
    EXPECT_EQ(on_a_terminal({"check", "file", "/"}), "\033[32myes\033[0m\n");
    EXPECT_EQ(on_a_terminal({"debug", "show"}), test::printed([] { show_dbg_level(nullptr); }));
    EXPECT_EQ(on_a_terminal({"check", "file", "/", "--json"}), "{\"result\":true}\n");
    setenv("NO_COLOR", "1", 1);
    EXPECT_EQ(on_a_terminal({"check", "file", "/"}), "yes\n");
    unsetenv("NO_COLOR");
    setenv("TERM", "dumb", 1);
    EXPECT_EQ(on_a_terminal({"check", "file", "/"}), "yes\n");
}

TEST_F(Streams, TextFromOutsideIsHarmless)
{
    // A network name with a colour sequence, a C1 control character, a byte that is no UTF-8, and
    // two characters that are.
    ASSERT_EQ(SetValue("wlan0.0_bss_ssid", "a\033[31m\xc2\x9b\xff\xc3\xa9\xe4\xb8\xad"), 1);
    EXPECT_THAT(prodctl({"wifi", "status"}).out,
                HasSubstr("a?[31m?\xef\xbf\xbd\xc3\xa9\xe4\xb8\xad\n"));
    const Outcome outcome = prodctl({"wifi", "get", "2.0", "bss_ssid", "--json"});
    EXPECT_EQ(outcome.out,
              "{\"key\":\"wlan0.0_bss_ssid\",\"value\":\"a\\u001b[31m\xc2\x9b\xef\xbf\xbd"
              "\xc3\xa9\xe4\xb8\xad\"}\n");
    EXPECT_EQ(prodctl({"wifi", "get", "2.0", "bss_ssid"}).out,
              "a\033[31m\xc2\x9b\xff\xc3\xa9\xe4\xb8\xad\n")
        << "a script gets the value itself";
    for (const char *const odd :
         {"\xc0\xaf", "\xed\xa0\x80", "\xf5\x80\x80\x80", "\xe2\x82", "\x80", "\xf0\x8f\xbf\xbf"}) {
        ASSERT_EQ(SetValue("odd", odd), 1);
        const std::string json = prodctl({"config", "get", "odd", "--json"}).out;
        EXPECT_THAT(json, StartsWith("{\"values\":{\"odd\":\"\xef\xbf\xbd"));
        EXPECT_THAT(json, Not(HasSubstr(odd)));
    }
}

// ---- completion -------------------------------------------------------------------------------

Words offered(Words words)
{
    words.insert(words.begin(), "--complete");
    const Outcome outcome = prodctl(words);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    return lines_of(outcome.out);
}

TEST(Completion, Commands)
{
    EXPECT_EQ(offered({""}), listed(prodctl({"--help"}).out, "commands"));
    EXPECT_EQ(offered({"w"}), (Words{"wan", "wifi", "watch"}));
    EXPECT_EQ(offered({"wan", ""}),
              (Words{"status", "ports", "dns", "resolve", "macs", "detect", "save-lease"}));
    EXPECT_EQ(offered({"wan", "dns", "e"}), (Words{"exchange"}));
    EXPECT_EQ(offered({"--json", "wan", "st"}), (Words{"status"}));
    EXPECT_THAT(offered({"nonesuch", ""}), IsEmpty());
    EXPECT_THAT(offered({"system", "mode", ""}), IsEmpty());
    EXPECT_EQ(offered({}), offered({""}));
}

TEST(Completion, Options)
{
    EXPECT_EQ(offered({"-"}), (Words{"--json", "--help", "--version"}));
    EXPECT_EQ(offered({"config", "set", "--"}), (Words{"--file", "--commit", "--json", "--help"}));
    EXPECT_EQ(offered({"config", "set", "--c"}), (Words{"--commit"}));
}

TEST(Completion, Arguments)
{
    memset(get_dbg_info(), 0, sizeof(prod_dbg_info_t));
    set_dbg_level("prod", PROD_DBG_DEBUG);
    set_dbg_level("other", PROD_DBG_DEBUG);
    set_dbg_level("line\nbreak", PROD_DBG_DEBUG);
    EXPECT_EQ(offered({"debug", "show", ""}), (Words{"prod", "other"}));
    EXPECT_EQ(offered({"debug", "set", "p"}), (Words{"prod"}));
    EXPECT_EQ(offered({"debug", "set", "prod", ""}),
              (Words{"off", "func", "error", "debug", "info", "trace"}));
    EXPECT_THAT(offered({"debug", "set", "prod", "off", ""}), IsEmpty());
    EXPECT_EQ(offered({"wan", "status", ""}), (Words{"1", "2", "3", "4"}));
    EXPECT_THAT(offered({"wan", "save-lease", "1", ""}), IsEmpty());
    EXPECT_EQ(offered({"check", "file", "/et"}), (Words{"@files"}));
    EXPECT_EQ(offered({"debug", "log", "--function", "f", "p"}), (Words{"prod"}));
}

/** What bash completes the line to. */
Words bash_completes(const Words &words)
{
    return test::bash_completes(PRODCTL_SOURCES "/prodctl.bash", PRODCTL, words);
}

TEST(Completion, Bash)
{
    EXPECT_EQ(bash_completes({"con"}), (Words{"config"}));
    EXPECT_EQ(bash_completes({"config", ""}), (Words{"get", "set", "unset", "changes", "commit"}));
    EXPECT_THAT(bash_completes({"nonesuch", ""}), IsEmpty());
    EXPECT_THAT(bash_completes({"check", "file", "/etc/board"}), Contains("/etc/board.json"));
}

}  // namespace
