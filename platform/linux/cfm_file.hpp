// SPDX-License-Identifier: MIT
// The store as text: "key=value" lines, and the file on the persistent partition that holds them.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "handle.hpp"
#include "platform/cfm.h"

namespace platform
{

inline constexpr const char *kPersistentFile = "/cfg/cfm.cfg";
inline constexpr const char *kDefaultsFile = "/etc/default.cfg";

/** Text that grows, on the heap. */
class Buffer
{
  public:
    /** False when the memory cannot be had; the text is then as it was. */
    bool append(std::string_view text)
    {
        if (!reserve(size_ + text.size())) {
            return false;
        }
        memcpy(data_.get() + size_, text.data(), text.size());
        size_ += text.size();
        return true;
    }

    bool reserve(std::size_t size);
    std::string_view view() const { return {data_.get(), size_}; }
    char *release() { return data_.release(); }

  private:
    Allocated<char> data_;
    std::size_t size_ = 0;
    std::size_t room_ = 0;
};

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

/** Appends a whole file to @p out; false when it cannot be read or is no file of sensible size. */
bool read_config_file(const char *path, Buffer &out);

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
