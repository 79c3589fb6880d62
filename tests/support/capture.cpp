// SPDX-License-Identifier: MIT
#include "support/capture.hpp"

#include <fcntl.h>
#include <regex.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace test
{
namespace
{

/** How many results the running test has, failures and successes alike. */
int results_so_far()
{
    const testing::TestInfo *const running = testing::UnitTest::GetInstance()->current_test_info();
    return running != nullptr ? running->result()->total_part_count() : 0;
}

/** Prints the failures from the @p first result on once more, where somebody sees them. */
void show_failures_from(int first)
{
    testing::UnitTest *const all = testing::UnitTest::GetInstance();
    for (int i = first; i < results_so_far(); ++i) {
        all->listeners().default_result_printer()->OnTestPartResult(
            all->current_test_info()->result()->GetTestPartResult(i));
    }
}

}  // namespace

std::string printed(const std::function<void()> &code)
{
    const int first = results_so_far();
    fflush(stdout);
    const int console = dup(STDOUT_FILENO);
    const int memory = memfd_create("stdout", MFD_CLOEXEC);
    fcntl(memory, F_SETFL, O_APPEND);  // or threads would write over each other's lines
    dup2(memory, STDOUT_FILENO);
    code();
    fflush(stdout);
    dup2(console, STDOUT_FILENO);
    close(console);
    show_failures_from(first);

    std::string text(static_cast<std::size_t>(lseek(memory, 0, SEEK_END)), '\0');
    if (pread(memory, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        abort();
    }
    close(memory);
    return text;
}

std::string literally(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        if (std::string{"\\^$.[]|()*+?{}"}.find(c) != std::string::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

int occurrences(const std::string &part, const std::string &text)
{
    int count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

bool whole_match(const std::string &text, const std::string &expression)
{
    regex_t compiled;
    if (regcomp(&compiled, ("^(" + expression + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
        return false;
    }
    const bool matched = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matched;
}

std::string log_line(prod_dbg_lvl_t level, const std::string &function, const std::string &message,
                     const std::string &module)
{
    const int colour = level2color(level);
    std::string padded = function.substr(0, 25);
    padded.resize(25, ' ');
    const std::string start = colour >= 0 ? "\033[1;40;" + std::to_string(colour) + "m" : "\033[0m";
    return literally(start) + "[0-9]{2}:[0-9]{2}:[0-9]{2} \\[ *" +
           literally(module + "." + level2char(level)) + "\\] +[0-9]+ " +
           literally(padded + ": " + message + "\n\033[0m");
}

std::string error_line(const std::string &function, const std::string &message)
{
    return log_line(PROD_DBG_ERROR, function, message);
}

std::string console_line(int colour, const std::string &function, const std::string &message,
                         int width)
{
    std::string padded = function.substr(0, static_cast<std::size_t>(width));
    padded.resize(static_cast<std::size_t>(width), ' ');
    return literally("\033[1;40;" + std::to_string(colour) + "m[PROD] ") + "[0-9]{4} " +
           literally(padded + ": " + message + "\n\033[0m");
}

std::string printed_at(prod_dbg_lvl_t level, const std::function<void()> &code, const char *module)
{
    set_dbg_level(module, level);
    std::string text = printed(code);
    set_dbg_level(module, PROD_DBG_OFF);
    return text;
}

}  // namespace test
