// SPDX-License-Identifier: MIT
// The command line as a table: groups, their commands, what each takes and what it answers. One
// walk over the table finds the command, checks its arguments, writes the help and offers the
// words that a shell completes.
#pragma once

#include <cjson/cJSON.h>

#include <climits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "output.hpp"

namespace prodctl
{

/** Exit statuses, the same for every command. */
enum Exit : int {
    kYes = 0,   // done, or the answer is yes
    kNo = 1,    // failed, or absent, or the answer is no
    kUsage = 2  // the command line is wrong; nothing was done
};

/** An option of one command, beside those that every command has. */
struct Option {
    const char *name;   // with its dashes
    const char *value;  // what stands for its value in help texts; nullptr when it takes none
    const char *help;
};

class Call;

constexpr int kAny = INT_MAX;

/** One node of the tree: a group, a command, or (with both children and run) either. */
struct Command {
    const char *name;
    const char *summary;         // one line
    const char *arguments = "";  // as the usage line shows them
    int min_arguments = 0;
    int max_arguments = 0;
    const char *details = nullptr;  // what --help adds
    const char *yes = "done";       // when the exit status is 0
    const char *no = "it failed";   // when it is 1

    /** Does the work. Fills the answer, an empty object, and returns the exit status. */
    int (*run)(const Call &call, cJSON *answer) = nullptr;
    /** Shows the answer to a human. */
    void (*show)(const cJSON *answer, Page &page) = nullptr;

    std::span<const Command> children = {};
    std::span<const Option> options = {};

    /**
     * What a shell may offer for the arguments: words for the first, "|", words for the second and
     * so on; the last list also serves what follows. "@modules" are the registered modules,
     * "@files" the shell's own file names.
     */
    const char *candidates = nullptr;
};

/** The arguments of a command, and its way to complain. */
class Call
{
  public:
    explicit Call(std::string path) : path_(std::move(path)) {}

    std::size_t count() const { return arguments_.size(); }
    /** The argument at that place, nullptr when there are fewer. */
    const char *operator[](std::size_t place) const
    {
        return place < arguments_.size() ? arguments_[place] : nullptr;
    }
    std::span<const char *const> arguments() const { return arguments_; }

    bool given(std::string_view option) const { return find(option) != nullptr; }
    /** The value of an option, nullptr when it was not given. */
    const char *value(std::string_view option) const
    {
        const Given *const found = find(option);
        return found != nullptr ? found->value : nullptr;
    }
    /**
     * The number that an option gives; @p value stays as it is when the option was not given.
     * @return false, after a complaint, when it is none of that range
     */
    bool read_number(const char *option, int smallest, int largest,
                     std::optional<int> &value) const;
    bool json() const { return json_; }

    /** Says on standard error why the answer is no. @return kNo */
    [[gnu::format(printf, 2, 3)]] int no(const char *format, ...) const;
    /** Says on standard error what is wrong with the command line. @return kUsage */
    [[gnu::format(printf, 2, 3)]] int usage(const char *format, ...) const;

    /** The first complaint, empty when there was none. */
    const std::string &complaint() const { return complaint_; }

  private:
    friend class Parser;
    struct Given {
        const char *name;
        const char *value;
    };

    const Given *find(std::string_view option) const
    {
        for (const Given &given : options_) {
            if (given.name == option) {
                return &given;
            }
        }
        return nullptr;
    }
    void complain(const char *format, va_list args) const;

    std::string path_;  // "prodctl wan status"
    std::vector<const char *> arguments_;
    std::vector<Given> options_;
    bool json_ = false;
    mutable std::string complaint_;
};

/** Finds and runs the command that the words name. @return the exit status of the program */
int run(const Command &root, std::span<const char *const> words, Console &console);

}  // namespace prodctl
