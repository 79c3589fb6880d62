// SPDX-License-Identifier: MIT
// What a piece of code prints, byte for byte, colours included, and a matcher for log lines.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <string>

#include "prod_common_debug.h"

namespace test
{

/**
 * Runs @p code and returns what it printed to standard output. Expectations that fail in it are
 * shown all the same.
 */
std::string printed(const std::function<void()> &code);

/**
 * A regular expression for one log line on the console: any time, module and letter of @p level,
 * any source line, function and message literal.
 */
std::string log_line(prod_dbg_lvl_t level, const std::string &function, const std::string &message,
                     const std::string &module = "prod");

/** The same for a line of the library's own at level error. */
std::string error_line(const std::string &function, const std::string &message);

/** The same for a "[PROD] ..." console line; @p width is its function column. */
std::string console_line(int colour, const std::string &function, const std::string &message,
                         int width = 20);

/** @p text with every character that a regular expression would interpret escaped. */
std::string literally(const std::string &text);

/** How often @p part stands in @p text. */
int occurrences(const std::string &part, const std::string &text);

/** Whether all of @p text matches the POSIX extended @p expression, line breaks included. */
bool whole_match(const std::string &text, const std::string &expression);

MATCHER_P(Prints, expression, "matches /" + testing::PrintToString(expression) + "/")
{
    return whole_match(arg, expression);
}

/** Runs @p code with one module registered at @p level; the module is removed afterwards. */
std::string printed_at(prod_dbg_lvl_t level, const std::function<void()> &code,
                       const char *module = "prod");

}  // namespace test
