// SPDX-License-Identifier: MIT
// What prodctl prints: aligned pages for people, one line of JSON for programs. Everything that
// the library itself prints goes to standard error, so that neither is disturbed.
#pragma once

#include <cjson/cJSON.h>

#include <cstdarg>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace prodctl
{

// ---- text -------------------------------------------------------------------------------------

[[gnu::format(printf, 1, 2)]] std::string format(const char *text, ...);
[[gnu::format(printf, 1, 0)]] std::string vformat(const char *text, va_list args);

/** "2 d 3 h 4 min 5 s", without the leading zero parts. */
std::string duration(long long seconds);

/**
 * Text from outside (a host name, a network name) made harmless for a terminal: what is no UTF-8 or
 * would control it becomes "?".
 */
std::string printable(std::string_view text);

/** Text from outside as valid UTF-8, for JSON: what is none becomes U+FFFD. */
std::string utf8(std::string_view text);

// ---- pages ------------------------------------------------------------------------------------

/** What a piece of text says about its subject; a terminal shows it in colour. */
enum class Tone { kPlain, kStrong, kGood, kWarning, kBad, kFaint };

struct Cell {
    Cell(const char *words) : text(words) {}             // NOLINT: rows are written as plain texts
    Cell(std::string words) : text(std::move(words)) {}  // NOLINT
    Cell(std::string words, Tone how) : text(std::move(words)), tone(how) {}
    std::string text;
    Tone tone = Tone::kPlain;
};

struct Field {
    const char *name;
    Cell value;
};

/** Writes for people. */
class Page
{
  public:
    Page(FILE *stream, bool colour) : stream_(stream), colour_(colour) {}

    bool colour() const { return colour_; }

    /** A line of the cells that hold text, one blank between them. */
    void line(const std::vector<Cell> &cells);
    /** An empty line, but not as the first thing of a page or under a heading. */
    void gap();
    /** The title of a section. */
    void heading(const char *title);
    /** Indented "name  value" lines with their values aligned; empty values as "-". */
    void fields(const std::vector<Field> &fields);
    /**
     * Columns as wide as their longest cell; empty cells as "-".
     * @param none  what stands, faint, in the place of a table without rows
     */
    void table(const std::vector<const char *> &titles, const std::vector<std::vector<Cell>> &rows,
               const char *none = nullptr);
    /** Bytes as they are. */
    void verbatim(std::string_view bytes);

  private:
    void put(const Cell &cell, std::size_t width = 0);

    FILE *stream_;
    bool colour_;
    bool at_top_ = true;  // of the page or of a section
};

// ---- the console ------------------------------------------------------------------------------

/**
 * Owns standard output. What the library prints on descriptor 1 (error lines, console lines) ends
 * on standard error as long as this lives.
 */
class Console
{
  public:
    Console();
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    FILE *stream() const { return stream_; }
    bool colour() const { return colour_; }

    /** Whether everything written so far was taken. */
    bool flush() const;

    /** Writes bytes to standard output at once. @return whether all were taken */
    static bool pass(std::string_view bytes);

    /** While it lives, the library's own output goes to standard output as well. */
    class Passthrough
    {
      public:
        Passthrough();
        ~Passthrough();
        Passthrough(const Passthrough &) = delete;
        Passthrough &operator=(const Passthrough &) = delete;
    };

    /** What the library prints while @p code runs. */
    static std::string captured(void (*code)(const char *), const char *argument);

  private:
    FILE *stream_ = nullptr;
    bool colour_ = false;
};

/** @p text without its colour sequences. */
std::string without_colour(std::string_view text);

// ---- JSON -------------------------------------------------------------------------------------

void add_text(cJSON *object, const char *name, std::string_view text);
/** The same, or null for no text. */
void add_text_or_null(cJSON *object, const char *name, const std::optional<std::string> &text);
void add_number(cJSON *object, const char *name, double value);
void add_flag(cJSON *object, const char *name, bool value);
/** A text at the end of an array. */
void add_text_to(cJSON *array, std::string_view text);
/** A new object at the end of an array. */
cJSON *add_object_to(cJSON *array);

/** The text of a member, "" when there is none. */
const char *text_of(const cJSON *object, const char *name);
/** The number of a member, 0 when there is none. */
double number_of(const cJSON *object, const char *name);
int int_of(const cJSON *object, const char *name);
bool flag_of(const cJSON *object, const char *name);
const cJSON *member(const cJSON *object, const char *name);
/** A text as a cell; @p absent, faint, for what is none. */
Cell cell_of(const cJSON *text, const char *absent);
/** The texts of an array, with commas between. */
std::string joined(const cJSON *array);

}  // namespace prodctl
