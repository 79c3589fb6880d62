// SPDX-License-Identifier: MIT
#include "tool.hpp"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/cfm.h"
#include "prod_common_debug.h"
#include "support/children.hpp"
#include "support/emulation.hpp"
#include "support/files.hpp"
#include "support/network.hpp"

namespace test
{

namespace
{

int memory(const std::string &text = "")
{
    const int descriptor = memfd_create("stream", MFD_CLOEXEC);
    EXPECT_EQ(write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    lseek(descriptor, 0, SEEK_SET);
    return descriptor;
}

std::string content(int descriptor)
{
    std::string text(static_cast<std::size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(descriptor, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    close(descriptor);
    return text;
}

pid_t start(const Words &words, int in, int out, int err, const std::function<void()> &in_child)
{
    std::vector<char *> arguments;
    for (const std::string &word : words) {
        arguments.push_back(const_cast<char *>(word.c_str()));
    }
    arguments.push_back(nullptr);
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        in_child();
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    return child;
}

/** What appears on the terminal of a program, without carriage returns, and how it ends. */
std::pair<int, std::string> run_on_a_terminal(const std::function<pid_t(int screen)> &start_there)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(grantpt(terminal) | unlockpt(terminal), 0);
    const int screen = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(screen, 0);
    const pid_t child = start_there(screen);
    close(screen);
    std::string text;
    char part[512];
    ssize_t got;
    while ((got = read(terminal, part, sizeof(part))) > 0) {  // ends with the last open screen
        text.append(part, static_cast<std::size_t>(got));
    }
    close(terminal);
    std::erase(text, '\r');
    return {status_of(child), text};
}

Words with_path(const Words &arguments)
{
    Words words = {PRODCTL};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

}  // namespace

std::ostream &operator<<(std::ostream &stream, const Outcome &outcome)
{
    return stream << "status " << outcome.status << "\n--- out\n"
                  << outcome.out << "--- err\n"
                  << outcome.err;
}

Outcome program(const Words &words, const std::string &input, const std::function<void()> &in_child)
{
    const int in = memory(input);
    const int out = memory();
    const int err = memory();
    const int status = status_of(start(words, in, out, err, in_child));
    close(in);
    return {status, content(out), content(err)};
}

Outcome prodctl(const Words &arguments, const std::string &input,
                const std::function<void()> &in_child)
{
    return program(with_path(arguments), input, in_child);
}

void eventually(const std::string &what, const std::function<bool()> &true_at_last)
{
    constexpr int kPolls = 1000;
    for (int i = 0; i < kPolls * slowdown(); ++i) {
        if (true_at_last()) {
            return;
        }
        usleep(10000);
    }
    ADD_FAILURE() << "in vain: " << what;
}

void link_is_up(const std::string &ifname)
{
    eventually(ifname + " is up", [&] {
        return output("ip link show " + ifname).find("state UP") != std::string::npos;
    });
}

Words lines_of(const std::string &text)
{
    Words lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

Words bash_completes(const std::string &script, const std::string &program, const Words &words)
{
    const std::string name = program.substr(program.rfind('/') + 1);
    std::string function = "_" + name;
    std::replace(function.begin(), function.end(), '-', '_');
    std::string line = "'" + program + "'";
    for (const std::string &word : words) {
        line += " '" + word + "'";
    }
    const Outcome outcome = test::program(
        {PRODCTL_BASH, "-c",
         "source '" + script + "'\ncomplete -p " + name + " || exit\nCOMP_WORDS=(" + line +
             ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n" + function + " '" + program +
             "' \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD - 1]}\"\n"
             "[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\\n' \"${COMPREPLY[@]}\"\n"});
    EXPECT_EQ(outcome.status, 0) << outcome;
    EXPECT_EQ(outcome.err, "");
    Words lines = lines_of(outcome.out);
    EXPECT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "complete -F " + function + " " + name);
    lines.erase(lines.begin());
    return lines;
}

void explains_itself(const std::string &program, const std::string &usage, const std::string &page,
                     const Words &options)
{
    const Outcome help = test::program({program, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    EXPECT_THAT(help.out, testing::StartsWith(usage + "\n"));
    EXPECT_EQ(test::program({program, "-h"}), help);
    std::string text = read_text(page);
    std::erase(text, '\\');
    for (const std::string &option : options) {
        EXPECT_THAT(text, testing::HasSubstr(option));
    }
}

std::string on_a_terminal(const Words &arguments)
{
    const int nothing = memory();
    const auto [status, text] = run_on_a_terminal(
        [&](int screen) { return start(with_path(arguments), nothing, screen, nothing, [] {}); });
    close(nothing);
    EXPECT_EQ(status, 0);
    return text;
}

Outcome with_errors_on_a_terminal(const Words &arguments)
{
    const int in = memory();
    const int out = memory();
    const auto [status, text] = run_on_a_terminal(
        [&](int screen) { return start(with_path(arguments), in, out, screen, [] {}); });
    close(in);
    return {status, content(out), text};
}

void refuses(const Words &arguments, const std::string &command, const std::string &complaint)
{
    EXPECT_EQ(prodctl(arguments),
              (Outcome{2, "", command + ": " + complaint + "\nTry '" + command + " --help'.\n"}));
}

Fresh::Fresh()
{
    memset(get_dbg_info(), 0, sizeof(prod_dbg_info_t));
    EXPECT_NE(RestoreValue(), 0);
}

Json answer(const Outcome &outcome)
{
    EXPECT_EQ(outcome.out.find('\n') + 1, outcome.out.size()) << outcome;
    Json parsed{cJSON_ParseWithOpts(outcome.out.c_str(), nullptr, 0), cJSON_Delete};
    EXPECT_NE(parsed, nullptr) << outcome;
    return parsed;
}

}  // namespace test
