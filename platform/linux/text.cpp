// SPDX-License-Identifier: MIT
#include "platform/text.h"

#include <iconv.h>
#include <pthread.h>
#include <sys/stat.h>

#include <cstdint>
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

// ---- encodings --------------------------------------------------------------------------------

using platform::after;

constexpr bool is_between(unsigned char byte, unsigned char from, unsigned char to)
{
    return from <= byte && byte <= to;
}

/** How many bytes at the front of a text are ASCII, looked at a word at a time. */
std::size_t ascii_length(std::string_view text)
{
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    std::size_t at = 0;
    for (std::uint64_t word; at + sizeof(word) <= text.size(); at += sizeof(word)) {
        memcpy(&word, text.data() + at, sizeof(word));
        if ((word & kHighBits) != 0) {
            break;
        }
    }
    while (at < text.size() && static_cast<unsigned char>(text[at]) < 0x80) {
        ++at;
    }
    return at;
}

/** The forms of a UTF-8 character: its first byte, how long it is, what its second byte may be. */
struct Utf8Form {
    unsigned char first_from, first_to;
    unsigned char length;
    unsigned char second_from, second_to;
};
constexpr Utf8Form kUtf8Forms[] = {
    {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},  // less would fit in two bytes
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F},  // more would be a surrogate
    {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF},  // less would fit in three bytes
    {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},  // more would lie beyond U+10FFFF
};

/** Length of the UTF-8 character beyond ASCII at the front of a text; 0 when there is none. */
std::size_t utf8_character(std::string_view text)
{
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    for (const Utf8Form &form : kUtf8Forms) {
        if (!is_between(byte(0), form.first_from, form.first_to)) {
            continue;
        }
        if (text.size() < form.length || !is_between(byte(1), form.second_from, form.second_to)) {
            return 0;
        }
        for (std::size_t at = 2; at < form.length; ++at) {
            if (!is_between(byte(at), 0x80, 0xBF)) {
                return 0;
            }
        }
        return form.length;
    }
    return 0;
}

/** The same for GBK. */
std::size_t gbk_character(std::string_view text)
{
    if (text.size() < 2) {
        return 0;
    }
    const auto first = static_cast<unsigned char>(text[0]);
    const auto second = static_cast<unsigned char>(text[1]);
    return is_between(first, 0x81, 0xFE) && is_between(second, 0x40, 0xFE) && second != 0x7F ? 2
                                                                                             : 0;
}

/** Whether a text is made of ASCII and of the characters that @p character_at knows. */
bool is_made_of(std::string_view text, std::size_t (*character_at)(std::string_view))
{
    for (;;) {
        text = after(text, ascii_length(text));
        if (text.empty()) {
            return true;
        }
        const std::size_t length = character_at(text);
        if (length == 0) {
            return false;
        }
        text = after(text, length);
    }
}

/** A conversion by the name of what comes out. */
struct Conversion {
    const char *target;
    const char *to;  // as iconv names encodings
    const char *from;
};
constexpr Conversion kConversions[] = {{"utf-8", "UTF-8", "GBK"}, {"gb2312", "GBK", "UTF-8"}};
constexpr std::size_t kConversionCount = std::size(kConversions);

/**
 * The converters of one thread, opened when first needed and kept: opening one takes longer than
 * converting most texts. The thread's end closes them.
 */
struct Converters {
    iconv_t open[kConversionCount];  // nullptr for none
};
[[gnu::tls_model("initial-exec")]] thread_local Converters converters;
pthread_once_t converters_once = PTHREAD_ONCE_INIT;
pthread_key_t converters_key;
bool closed_at_thread_end;

void close_converters(void *of_thread)
{
    for (iconv_t &converter : static_cast<Converters *>(of_thread)->open) {
        if (converter != nullptr) {
            iconv_close(converter);
            converter = nullptr;
        }
    }
}

void make_converters_key()
{
    closed_at_thread_end = pthread_key_create(&converters_key, close_converters) == 0;
}

/** This thread's converter of a kind; nullptr when the machine has no such tables, or no memory. */
iconv_t converter_for(const Conversion &conversion)
{
    iconv_t &converter = converters.open[&conversion - kConversions];
    if (converter == nullptr) {
        pthread_once(&converters_once, make_converters_key);
        if (!closed_at_thread_end || pthread_setspecific(converters_key, &converters) != 0) {
            return nullptr;
        }
        const iconv_t opened = iconv_open(conversion.to, conversion.from);
        converter = opened != reinterpret_cast<iconv_t>(-1) ? opened : nullptr;
    }
    return converter;
}

/** Converts all of a text; @p dst is an empty one with room for four times as much and a NUL. */
bool convert(const Conversion &conversion, std::string_view text, char *dst)
{
    const iconv_t converter = converter_for(conversion);
    if (converter == nullptr) {
        return false;
    }
    char *in = const_cast<char *>(text.data());
    std::size_t left = text.size();
    std::size_t room = 4 * left;
    constexpr auto kFailed = static_cast<std::size_t>(-1);
    const bool done = iconv(converter, &in, &left, &dst, &room) != kFailed;
    *dst = '\0';
    if (!done) {
        iconv(converter, nullptr, nullptr, nullptr, nullptr);  // forgets half a character
    }
    return done;
}

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
        std::string_view value = after(line, name.size() + 1);
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

int system_get_code_format(const char *text)
{
    if (text == nullptr) {
        return CODE_FORMAT_PLAIN;
    }
    const std::string_view beyond_ascii = after(text, ascii_length(text));
    if (beyond_ascii.empty()) {
        return CODE_FORMAT_PLAIN;
    }
    if (is_made_of(beyond_ascii, utf8_character)) {
        return CODE_FORMAT_UTF8;
    }
    return is_made_of(beyond_ascii, gbk_character) ? CODE_FORMAT_GBK : CODE_FORMAT_PLAIN;
}

int system_convert_code_format(const char *target, const char *src, char *dst)
{
    if (target == nullptr || src == nullptr || dst == nullptr) {
        return 0;
    }
    for (const Conversion &conversion : kConversions) {
        if (strcmp(target, conversion.target) == 0) {
            const std::string_view text{src};
            const std::size_t plain = ascii_length(text);
            memcpy(dst, src, plain);
            dst[plain] = '\0';
            return plain == text.size() || convert(conversion, after(text, plain), dst + plain) ? 1
                                                                                                : 0;
        }
    }
    return 0;
}
