// SPDX-License-Identifier: MIT
// What the library hands to a shell, for programs linked with test_commands: system() and the
// platform's doSystemCmd() pass through until a RecordedCommands lives, popen() until a
// RecordedPipes does.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace test
{

/** While it lives, commands are recorded in order and answered instead of run. */
class RecordedCommands
{
  public:
    /** @param answer  the status of a command; unless given all succeed */
    explicit RecordedCommands(std::function<int(const std::string &)> answer = {});
    ~RecordedCommands();
    RecordedCommands(const RecordedCommands &) = delete;
    RecordedCommands &operator=(const RecordedCommands &) = delete;

    /** Every command so far. */
    const std::vector<std::string> &all() const;
};

/** While it lives, commands opened for reading are recorded in order and answered with a text. */
class RecordedPipes
{
  public:
    /** @param answer  what a command prints; nothing is a command that cannot be started */
    explicit RecordedPipes(std::function<std::optional<std::string>(const std::string &)> answer);
    ~RecordedPipes();
    RecordedPipes(const RecordedPipes &) = delete;
    RecordedPipes &operator=(const RecordedPipes &) = delete;

    /** Every command so far. */
    const std::vector<std::string> &all() const;
    /** How many of them have not been closed. */
    std::size_t left_open() const;
};

}  // namespace test
