// SPDX-License-Identifier: MIT
// The store as text: "key=value" lines, and the file on the persistent partition that holds them.
#pragma once

#include <string_view>

#include "file.hpp"
#include "platform/cfm.h"

namespace platform
{

inline constexpr const char *kPersistentFile = "/cfg/cfm.cfg";
inline constexpr const char *kDefaultsFile = "/etc/default.cfg";
inline constexpr off_t kLargestConfig = 16 * 1024 * 1024;

/** A key is text of 1 to CFM_KEY_MAX bytes that can start a line: no '=', no leading '#'. */
bool is_key(std::string_view key);

/** A value is text of less than CFM_VALUE_SIZE bytes on one line. */
bool is_value(std::string_view value);

/**
 * Walks a text of "key=value" lines. The first '=' ends the key; blanks belong to the key and the
 * value. Empty lines and lines that start with '#' count for nothing; a carriage return before a
 * line's end is dropped.
 */
class ConfigText
{
  public:
    explicit ConfigText(std::string_view text) : rest_(text) {}

    /** Goes to the next line that is one of a key and a value, past damaged ones. */
    bool next();
    std::string_view key() const { return key_; }
    std::string_view value() const { return value_; }

    /** Lines passed over so far that are neither a setting nor nothing. */
    int damaged() const { return damaged_; }

  private:
    std::string_view rest_;
    std::string_view key_;
    std::string_view value_;
    int damaged_ = 0;
};

/** How many settings a text holds, and whether every line of it is sound. */
struct ConfigSummary {
    explicit ConfigSummary(std::string_view text);
    int settings = 0;
    bool sound = true;
};

/**
 * A persistent file on its way: written beside the real one and on the medium before it takes its
 * place, so that a power cut leaves the old file or the new one. It vanishes when it does not get
 * there.
 */
class NewPersistentFile
{
  public:
    NewPersistentFile() = default;
    ~NewPersistentFile();
    NewPersistentFile(const NewPersistentFile &) = delete;
    NewPersistentFile &operator=(const NewPersistentFile &) = delete;

    bool write(std::string_view text);
    bool put_in_place();

  private:
    bool exists_ = false;
};

}  // namespace platform
