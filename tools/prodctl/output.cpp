// SPDX-License-Identifier: MIT
#include "output.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace prodctl
{

namespace
{

// While a Console lives: where standard output really is, and what stands in its place.
int real_stdout = -1;
int for_the_library = -1;

const char *colour_of(Tone tone)
{
    switch (tone) {
        case Tone::kStrong:
            return "\033[1m";
        case Tone::kGood:
            return "\033[32m";
        case Tone::kWarning:
            return "\033[33m";
        case Tone::kBad:
            return "\033[31m";
        case Tone::kFaint:
            return "\033[2m";
        case Tone::kPlain:
            break;
    }
    return nullptr;
}

bool colour_wanted(int descriptor)
{
    const char *const terminal = getenv("TERM");
    return isatty(descriptor) == 1 && getenv("NO_COLOR") == nullptr && terminal != nullptr &&
           strcmp(terminal, "dumb") != 0;
}

/** One UTF-8 character. */
struct Character {
    std::size_t length;  // 0 when the bytes are none
    unsigned int code;
};

Character first_character(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return {1, lead};
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return {0, 0};
    }
    unsigned int code = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return {0, 0};
        }
        code = code << 6 | (byte(i) & 0x3FU);
    }
    constexpr unsigned int kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < kSmallest[length] || code > 0x10FFFF || surrogate) {
        return {0, 0};
    }
    return {length, code};
}

bool controls_a_terminal(unsigned int code)
{
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

template <typename Unwanted>
std::string replaced(std::string_view text, const char *replacement, Unwanted unwanted)
{
    std::string result;
    while (!text.empty()) {
        const Character character = first_character(text);
        const std::size_t length = character.length > 0 ? character.length : 1;
        if (character.length == 0 || unwanted(character.code)) {
            result += replacement;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return result;
}

/** Columns that harmless text takes on a terminal. */
std::size_t width_of(std::string_view text)
{
    std::size_t width = 0;
    for (const char c : text) {
        width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }
    return width;
}

Cell shown(const Cell &cell)
{
    return cell.text.empty() ? Cell{"-", Tone::kFaint} : Cell{printable(cell.text), cell.tone};
}

}  // namespace

// ---- text -------------------------------------------------------------------------------------

std::string vformat(const char *text, va_list args)
{
    char *made = nullptr;
    if (vasprintf(&made, text, args) < 0) {
        return {};
    }
    std::string result = made;
    free(made);
    return result;
}

std::string format(const char *text, ...)
{
    va_list args;
    va_start(args, text);
    std::string result = vformat(text, args);
    va_end(args);
    return result;
}

std::string duration(long long seconds)
{
    struct Unit {
        long long seconds;
        const char *name;
    };
    constexpr Unit kUnits[] = {{86400, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}};
    if (seconds < 0) {
        return format("%lld s", seconds);
    }
    std::string result;
    for (const Unit &unit : kUnits) {
        if (!result.empty() || seconds >= unit.seconds || unit.seconds == 1) {
            result +=
                format("%s%lld %s", result.empty() ? "" : " ", seconds / unit.seconds, unit.name);
            seconds %= unit.seconds;
        }
    }
    return result;
}

std::string printable(std::string_view text)
{
    return replaced(text, "?", controls_a_terminal);
}

std::string utf8(std::string_view text)
{
    return replaced(text, "\xEF\xBF\xBD", [](unsigned int) { return false; });
}

std::string without_colour(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        if (text.starts_with("\033[")) {
            const std::size_t end = text.find('m');
            if (end != std::string_view::npos) {
                text.remove_prefix(end + 1);
                continue;
            }
        }
        result += text.front();
        text.remove_prefix(1);
    }
    return result;
}

// ---- pages ------------------------------------------------------------------------------------

void Page::put(const Cell &cell, std::size_t width)
{
    const char *const colour = colour_ ? colour_of(cell.tone) : nullptr;
    const std::size_t taken = width_of(cell.text);
    fprintf(stream_, "%s%s%s%*s", colour != nullptr ? colour : "", cell.text.c_str(),
            colour != nullptr ? "\033[0m" : "", static_cast<int>(width > taken ? width - taken : 0),
            "");
    at_top_ = false;
}

void Page::line(const std::vector<Cell> &cells)
{
    const char *between = "";
    for (const Cell &cell : cells) {
        if (cell.text.empty()) {
            continue;
        }
        fputs(between, stream_);
        put({printable(cell.text), cell.tone});
        between = " ";
    }
    fputc('\n', stream_);
    at_top_ = false;
}

void Page::gap()
{
    if (!at_top_) {
        fputc('\n', stream_);
    }
}

void Page::heading(const char *title)
{
    gap();
    line({{title, Tone::kStrong}});
    line({{std::string(width_of(title), '-'), Tone::kFaint}});
    at_top_ = true;
}

void Page::fields(const std::vector<Field> &fields)
{
    std::size_t width = 0;
    for (const Field &field : fields) {
        width = std::max(width, width_of(field.name));
    }
    for (const Field &field : fields) {
        fputs("  ", stream_);
        put({field.name, Tone::kPlain}, width + 2);
        put(shown(field.value));
        fputc('\n', stream_);
    }
}

void Page::table(const std::vector<const char *> &titles,
                 const std::vector<std::vector<Cell>> &rows, const char *none)
{
    if (rows.empty() && none != nullptr) {
        line({{none, Tone::kFaint}});
        return;
    }
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < titles.size(); ++column) {
        std::size_t width = width_of(titles[column]);
        for (const auto &row : rows) {
            width = std::max(width, width_of(shown(row[column]).text));
        }
        widths.push_back(width + 2);
    }
    const auto put_row = [&](auto &&cell_at) {
        for (std::size_t column = 0; column < titles.size(); ++column) {
            // No blanks after the last column.
            put(cell_at(column), column + 1 < titles.size() ? widths[column] : 0);
        }
        fputc('\n', stream_);
    };
    put_row([&](std::size_t column) { return Cell{titles[column], Tone::kStrong}; });
    for (const auto &row : rows) {
        put_row([&](std::size_t column) { return shown(row[column]); });
    }
}

void Page::verbatim(std::string_view bytes)
{
    fwrite(bytes.data(), 1, bytes.size(), stream_);
    at_top_ = false;
}

// ---- the console ------------------------------------------------------------------------------

Console::Console()
{
    colour_ = colour_wanted(STDOUT_FILENO);
    real_stdout = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    stream_ = real_stdout >= 0 ? fdopen(fcntl(real_stdout, F_DUPFD_CLOEXEC, 3), "w") : nullptr;
    for_the_library = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (for_the_library < 0) {
        // Standard error is closed. Nor may a file that is opened later take its place.
        for_the_library = fcntl(open("/dev/null", O_WRONLY), F_DUPFD_CLOEXEC, 3);
        dup2(for_the_library, STDERR_FILENO);
    }
    dup2(for_the_library, STDOUT_FILENO);
}

Console::~Console()
{
    if (stream_ != nullptr) {
        fclose(stream_);
    }
    close(real_stdout);
    close(for_the_library);
    real_stdout = for_the_library = -1;
}

bool Console::flush() const
{
    return stream_ != nullptr && fflush(stream_) == 0 && ferror(stream_) == 0;
}

bool Console::pass(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t taken = write(real_stdout, bytes.data(), bytes.size());
        if (taken < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(taken > 0 ? static_cast<std::size_t>(taken) : 0);
    }
    return true;
}

Console::Passthrough::Passthrough()
{
    fflush(stdout);
    dup2(real_stdout, STDOUT_FILENO);
}

Console::Passthrough::~Passthrough()
{
    fflush(stdout);
    dup2(for_the_library, STDOUT_FILENO);
}

std::string Console::captured(void (*code)(const char *), const char *argument)
{
    fflush(stdout);
    const int memory = memfd_create("printed", MFD_CLOEXEC);
    dup2(memory, STDOUT_FILENO);
    code(argument);
    fflush(stdout);
    dup2(for_the_library, STDOUT_FILENO);

    std::string text;
    char part[4096];
    ssize_t got;
    for (off_t at = 0; (got = pread(memory, part, sizeof(part), at)) > 0; at += got) {
        text.append(part, static_cast<std::size_t>(got));
    }
    close(memory);
    return text;
}

// ---- JSON -------------------------------------------------------------------------------------

void add_text(cJSON *object, const char *name, std::string_view text)
{
    cJSON_AddStringToObject(object, name, utf8(text).c_str());
}

void add_text_or_null(cJSON *object, const char *name, const std::optional<std::string> &text)
{
    if (text) {
        add_text(object, name, *text);
    } else {
        cJSON_AddNullToObject(object, name);
    }
}

void add_number(cJSON *object, const char *name, double value)
{
    cJSON_AddNumberToObject(object, name, value);
}

void add_flag(cJSON *object, const char *name, bool value)
{
    cJSON_AddBoolToObject(object, name, value);
}

void add_text_to(cJSON *array, std::string_view text)
{
    cJSON_AddItemToArray(array, cJSON_CreateString(utf8(text).c_str()));
}

cJSON *add_object_to(cJSON *array)
{
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    return object;
}

const cJSON *member(const cJSON *object, const char *name)
{
    return cJSON_GetObjectItemCaseSensitive(object, name);
}

const char *text_of(const cJSON *object, const char *name)
{
    const char *const text = cJSON_GetStringValue(member(object, name));
    return text != nullptr ? text : "";
}

double number_of(const cJSON *object, const char *name)
{
    const cJSON *const item = member(object, name);
    return cJSON_IsNumber(item) ? item->valuedouble : 0;
}

int int_of(const cJSON *object, const char *name)
{
    const cJSON *const item = member(object, name);
    return cJSON_IsNumber(item) ? item->valueint : 0;
}

bool flag_of(const cJSON *object, const char *name)
{
    return cJSON_IsTrue(member(object, name));
}

Cell cell_of(const cJSON *text, const char *absent)
{
    return cJSON_IsString(text) ? Cell{text->valuestring} : Cell{absent, Tone::kFaint};
}

std::string joined(const cJSON *array)
{
    std::string result;
    const cJSON *item;
    cJSON_ArrayForEach(item, array)
    {
        result += result.empty() ? "" : ", ";
        result += item->valuestring;
    }
    return result;
}

}  // namespace prodctl
