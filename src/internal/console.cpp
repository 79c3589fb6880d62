// SPDX-License-Identifier: MIT
#include "internal/console.hpp"

#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>

namespace prod
{
namespace
{

constexpr std::size_t kConsoleLineSize = 8192;  // two values and a key, with room to spare

using ConsoleWriter = void (*)(std::string_view text);

void vconsole_line(ConsoleWriter writer, Site site, FunctionColumn column, Colour colour,
                   const char *format, va_list args)
{
    constexpr std::string_view kEnd = "\n\033[0m";
    const int width = static_cast<int>(column);
    Text<kConsoleLineSize> line{"\033[1;%d;%dm[PROD] %04d %-*.*s: ",
                                kBackground,
                                colour,
                                site.line,
                                width,
                                width,
                                site.func};
    line.vappend(format, args);
    Text<kConsoleLineSize + kEnd.size()> whole;
    whole.append(line.view());
    whole.append(kEnd);
    writer(whole.view());
}

void write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

/** Standard output as a signal handler may use it: whoever holds it is not waited for. */
void write_last_words(std::string_view text)
{
    if (ftrylockfile(stdout) == 0) {
        fflush_unlocked(stdout);
        funlockfile(stdout);
    }
    write_all(STDOUT_FILENO, text);
}

}  // namespace

void console_write(std::string_view text)
{
    const int fd = fileno(stdout);
    if (fd < 0) {
        fwrite(text.data(), 1, text.size(), stdout);
        fflush(stdout);
        return;
    }
    // The bytes go past stdio's buffer, which costs a copy and, the first time, an allocation; what
    // the program has pending there goes out first.
    if (__fpending(stdout) > 0) {
        fflush(stdout);
    }
    write_all(fd, text);
}

void console_print(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    Text<kConsoleLineSize> text;
    text.vappend(format, args);
    va_end(args);
    console_write(text.view());
}

void console_line(Site site, Colour colour, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vconsole_line(console_write, site, FunctionColumn::kNormal, colour, format, args);
    va_end(args);
}

void console_last_line(Site site, Colour colour, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vconsole_line(write_last_words, site, FunctionColumn::kNormal, colour, format, args);
    va_end(args);
}

void table_diagnostic(Site site, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vconsole_line(console_write, site, FunctionColumn::kShort, kRed, format, args);
    va_end(args);
}

}  // namespace prod
