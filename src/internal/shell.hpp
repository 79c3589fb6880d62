// SPDX-License-Identifier: MIT
// What the library does with a shell: values in command lines arrive as literal text, whatever
// they hold.
#pragma once

#include <cstdlib>

#include "internal/text.hpp"
#include "platform/cfm.h"

namespace prod
{

/**
 * A value as part of an unquoted word of a command line: "ip link show %s". What the shell would
 * interpret is escaped; an ordinary value, and an empty one, stays as it is.
 */
class ShellWord
{
  public:
    explicit ShellWord(std::string_view value)
    {
        const std::size_t length = value.size() < kLongest ? value.size() : kLongest;
        char before = '\0';
        for (const char c : std::string_view{value.data(), length}) {
            if (c == '\n') {
                // A shell drops a line break behind a backslash.
                text_.append("'\n'");
            } else if (is_special(c, before)) {
                text_.append('\\');
                text_.append(c);
            } else {
                text_.append(c);
            }
            before = c;
        }
    }

    const char *c_str() const { return text_.c_str(); }

  private:
    static constexpr std::size_t kLongest = CFM_VALUE_SIZE - 1;
    static constexpr std::size_t kLongestEscape = 3;

    /** @param before  the character in front, NUL at the start of the value */
    static bool is_special(char c, char before)
    {
        switch (c) {
            case '#':
                return before == '\0';
            case '~':
                return before == '\0' || before == ':' || before == '=';
            default:
                return std::string_view{" \t|&;<>()$`\\\"'*?[{"}.find(c) != std::string_view::npos;
        }
    }

    Text<kLongest * kLongestEscape + 1> text_;
};

/**
 * A value between the double quotes of a command line: "echo \"name=%s\"". An ordinary value stays
 * as it is.
 */
class QuotedShellText
{
  public:
    explicit QuotedShellText(std::string_view value)
    {
        const std::size_t length = value.size() < kLongest ? value.size() : kLongest;
        for (const char c : std::string_view{value.data(), length}) {
            if (std::string_view{"\\\"$`"}.find(c) != std::string_view::npos) {
                text_.append('\\');
            }
            text_.append(c);
        }
    }

    const char *c_str() const { return text_.c_str(); }

  private:
    static constexpr std::size_t kLongest = CFM_VALUE_SIZE - 1;

    Text<2 * kLongest + 1> text_;
};

/** Runs a command whose result nobody looks at. */
inline void run_command(const char *command)
{
    [[maybe_unused]] const int status = system(command);
}

}  // namespace prod
