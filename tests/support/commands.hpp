// SPDX-License-Identifier: MIT
// What the library hands to a shell, for programs linked with test_commands: system() and the
// platform's doSystemCmd() pass through until a RecordedCommands lives.
#pragma once

#include <functional>
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

}  // namespace test
