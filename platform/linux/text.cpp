// SPDX-License-Identifier: MIT
#include "platform/text.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string_view>

#include "file.hpp"

namespace
{

constexpr std::size_t kLongestLine = 1024;
constexpr std::string_view kWhiteSpace{" \t\n\v\f\r"};

/** Lines of a file without their ends; what is beyond the limit is dropped with its line. */
class Lines
{
  public:
    explicit Lines(const char *path) : stream_(fopen(path, "re")) {}

    bool next()
    {
        if (stream_ == nullptr) {
            return false;
        }
        length_ = 0;
        int c = getc_unlocked(stream_.get());
        if (c == EOF) {
            return false;
        }
        for (; c != EOF && c != '\n'; c = getc_unlocked(stream_.get())) {
            if (length_ < sizeof(text_)) {
                text_[length_++] = static_cast<char>(c);
            }
        }
        if (length_ > 0 && text_[length_ - 1] == '\r') {
            --length_;
        }
        return true;
    }

    std::string_view text() const { return {text_, length_}; }

  private:
    platform::Stream stream_;
    char text_[kLongestLine];
    std::size_t length_ = 0;
};

}  // namespace

int file_get_value_from_ini(const char *file, const char *key, char *out)
{
    if (file == nullptr || key == nullptr || key[0] == '\0' || out == nullptr) {
        return 0;
    }
    const std::string_view name{key};
    Lines lines{file};
    while (lines.next()) {
        const std::string_view line = lines.text();
        if (line.size() <= name.size() || line[name.size()] != '=' ||
            memcmp(line.data(), name.data(), name.size()) != 0) {
            continue;
        }
        std::string_view value = platform::after(line, name.size() + 1);
        value = platform::first_of(value, value.find('\0'));
        value = platform::first_of(value, INI_VALUE_SIZE - 1);
        memcpy(out, value.data(), value.size());
        out[value.size()] = '\0';
        return 1;
    }
    return 0;
}

int file_check_exist_or_not(const char *path)
{
    struct stat status;
    return path != nullptr && stat(path, &status) == 0 ? 1 : 0;
}

char *string_str_trim(char *text)
{
    if (text == nullptr) {
        return nullptr;
    }
    const std::string_view whole{text};
    const std::size_t last = whole.find_last_not_of(kWhiteSpace);
    if (last == std::string_view::npos) {
        text[0] = '\0';
        return text;
    }
    const std::size_t first = whole.find_first_not_of(kWhiteSpace);
    const std::size_t length = last + 1 - first;
    memmove(text, text + first, length);
    text[length] = '\0';
    return text;
}
