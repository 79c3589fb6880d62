// SPDX-License-Identifier: MIT
// What the library prints straight to standard output: the coloured lines meant for a shell.
#pragma once

#include <string_view>

#include "internal/text.hpp"

namespace prod
{

/** Foreground colours of a terminal; the background is always black. */
enum Colour : int {
    kBlack = 30,
    kRed = 31,
    kGreen = 32,
    kYellow = 33,
    kBlue = 34,
    kMagenta = 35,
    kCyan = 36,
    kWhite = 37
};
inline constexpr int kBackground = 40;

/** The calling site, as console and log lines name it. */
struct Site {
    const char *func;
    int line;
};
#define PROD_SITE (::prod::Site{__func__, __LINE__})

/** Width of the function column of a console line. */
enum class FunctionColumn { kShort = 15, kNormal = 20 };

/** Writes to standard output, after what the program has pending there, and at once. */
void console_write(std::string_view text);

/** Prints a formatted text that brings its own colours, at once. */
PROD_PRINTF(1, 2) void console_print(const char *format, ...);

/**
 * Prints "[PROD] <line> <function>: <message>" in bold colour and flushes, whatever the debug
 * level.
 */
PROD_PRINTF(3, 4) void console_line(Site site, Colour colour, const char *format, ...);

/**
 * The same for a signal handler about to end the process: a thread that holds standard output is
 * not waited for, and what the program has pending there is then lost.
 */
PROD_PRINTF(3, 4) void console_last_line(Site site, Colour colour, const char *format, ...);

/** A console_line() in the 15-column form that only the debug table's own diagnostics have. */
PROD_PRINTF(2, 3) void table_diagnostic(Site site, const char *format, ...);

}  // namespace prod
