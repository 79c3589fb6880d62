// SPDX-License-Identifier: MIT
// Reading configuration inside the library. The store is given no length, so it is only ever
// handed a buffer that holds any value; a documented smaller size is honoured by cutting.
#pragma once

#include <cstdlib>

#include "internal/text.hpp"
#include "platform/cfm.h"

namespace prod
{

inline constexpr std::size_t kValueSize = CFM_VALUE_SIZE;

/** A formatted key; longer ones are cut without any report. */
using ConfigKey = Text<512>;

/** The key that a variadic function's arguments make; a NULL format makes an empty one. */
template <typename Key = ConfigKey>
__attribute__((format(printf, 1, 0))) Key format_key(const char *format, va_list args)
{
    Key key;
    if (format != nullptr) {
        key.vappend(format, args);
    }
    return key;
}

/** The value of one key as the store holds it now; an absent key reads as the empty text. */
class ConfigValue
{
  public:
    /** @param size  the documented size of the value's buffer: longer values are cut to it */
    explicit ConfigValue(const char *key, std::size_t size = kValueSize)
    {
        text_[0] = '\0';
        found_ = GetValue(key, text_) != 0;
        text_[(size < kValueSize ? size : kValueSize) - 1] = '\0';
    }

    /** What the store reported, which is not the same as not being empty. */
    bool found() const { return found_; }
    bool empty() const { return text_[0] == '\0'; }
    const char *c_str() const { return text_; }

    // The number a value starts with, 0 when there is none; what follows it does not count.
    int to_int() const { return static_cast<int>(strtol(text_, nullptr, 10)); }
    long long to_long_long() const { return strtoll(text_, nullptr, 10); }
    double to_double() const { return strtod(text_, nullptr); }

    bool operator==(std::string_view text) const { return text == text_; }
    bool operator==(const char *text) const { return strcmp(text_, text) == 0; }

  private:
    bool found_;
    char text_[kValueSize];
};

/** The integer stored under a key, 0 when absent. */
inline int config_int(const char *key)
{
    return ConfigValue{key}.to_int();
}

}  // namespace prod
