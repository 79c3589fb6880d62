// SPDX-License-Identifier: MIT
// Runs prodctl as a user would and looks at everything that comes out.
#pragma once

#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace test
{

using Words = std::vector<std::string>;

struct Outcome {
    int status;  // the exit status, or 128 and the signal's number
    std::string out;
    std::string err;

    bool operator==(const Outcome &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const Outcome &outcome);

/** Runs prodctl with these arguments; @p in_child is called in its process just before. */
Outcome prodctl(
    const Words &arguments, const std::string &input = "",
    const std::function<void()> &in_child = [] {});

/** The same for any program, with its path in front. */
Outcome program(
    const Words &words, const std::string &input = "",
    const std::function<void()> &in_child = [] {});

/** Waits until @p true_at_last, ten seconds at most; @p what explains the failure. */
void eventually(const std::string &what, const std::function<bool()> &true_at_last);

/** Waits until the kernel says that the link of an interface is up, which it may do later. */
void link_is_up(const std::string &ifname);

/** The lines of a text, without their line breaks. */
Words lines_of(const std::string &text);

/**
 * What bash completes the line of a program to, by its completion script: the candidates for the
 * last of @p words, which follow the program.
 */
Words bash_completes(const std::string &script, const std::string &program, const Words &words);

/**
 * A program tells how it is used, by --help and -h, beginning with that line; its manual page knows
 * these options.
 */
void explains_itself(const std::string &program, const std::string &usage, const std::string &page,
                     const Words &options);

/** What prodctl shows on a terminal. */
std::string on_a_terminal(const Words &arguments);

/** The same, with a terminal for standard error only. */
Outcome with_errors_on_a_terminal(const Words &arguments);

/**
 * A command line that is refused: status 2, nothing on standard output, the complaint of that
 * command and where to look.
 */
void refuses(const Words &arguments, const std::string &command, const std::string &complaint);

/** A test that finds factory settings and no debug level, whatever others left behind. */
class Fresh : public testing::Test
{
  protected:
    Fresh();
};

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

/** The answer to a command with --json: one line of JSON and nothing else. */
Json answer(const Outcome &outcome);

}  // namespace test
