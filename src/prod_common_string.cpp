// SPDX-License-Identifier: MIT
#include "prod_common_string.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/console.hpp"
#include "internal/log.hpp"
#include "internal/proc.hpp"
#include "internal/text.hpp"

using namespace prod;

namespace
{

/** Applies a byte-wise conversion such as toupper to a whole string. */
char *convert_each(char *string, int (*convert)(int))
{
    if (string != nullptr) {
        for (char *p = string; *p != '\0'; ++p) {
            *p = static_cast<char>(convert(static_cast<unsigned char>(*p)));
        }
    }
    return string;
}

/** What a character counts as in hex_to_str(), digit or not. */
unsigned int hex_value(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= '0' && byte <= '9') {
        return byte - unsigned{'0'};
    }
    return static_cast<unsigned int>(tolower(byte)) - 87U;
}

}  // namespace

char *str_trim_left(char *s, char c)
{
    if (s == nullptr || c == '\0' || *s != c) {
        return s;
    }
    const char *rest = s;
    while (*rest == c) {
        ++rest;
    }
    const std::size_t length = strlen(rest);
    memmove(s, rest, length + 1);
    return s + length;  // deliberate: callers go on with s itself
}

char *str_trim_right(char *s, char c)
{
    if (s == nullptr || c == '\0') {
        return s;
    }
    std::size_t length = strlen(s);
    while (length > 0 && s[length - 1] == c) {
        s[--length] = '\0';
    }
    return s;
}

char *str_trim(char *s, char c)
{
    str_trim_left(s, c);
    return str_trim_right(s, c);
}

char *str_to_upper(char *string)
{
    return convert_each(string, toupper);
}

char *str_to_lower(char *string)
{
    return convert_each(string, tolower);
}

void replace_char(char *s, char from, char to)
{
    if (s == nullptr || from == '\0') {
        return;
    }
    for (char *p = strchr(s, from); p != nullptr; p = strchr(p, from)) {
        *p++ = to;
    }
}

int str_del_chars(char *s, char c)
{
    if (s == nullptr || *s == '\0') {
        return 0;
    }
    char *kept = s;
    for (const char *p = s; *p != '\0'; ++p) {
        if (*p != c) {
            *kept++ = *p;
        }
    }
    *kept = '\0';
    return 1;
}

void str_reverse(char *str)
{
    if (str == nullptr) {
        return;
    }
    const std::size_t length = strlen(str);
    for (std::size_t i = 0; i < length / 2; ++i) {
        const char c = str[i];
        str[i] = str[length - 1 - i];
        str[length - 1 - i] = c;
    }
}

char *bool_to_string(int value)
{
    return const_cast<char *>(value != 0 ? "true" : "false");
}

int integer_is_between(int i, int from, int to)
{
    return from <= i && i <= to;
}

int str_isdigit(const char *s)
{
    if (s == nullptr) {
        return 0;
    }
    if (*s == '+' || *s == '-') {
        ++s;
    }
    return *s != '\0' && s[strspn(s, "0123456789")] == '\0';
}

int str_is_printable(const char *str)
{
    if (str == nullptr) {
        return 0;
    }
    for (const char *p = str; *p != '\0'; ++p) {
        // DEL and everything from 128 up count as printable: text on the device is not only ASCII.
        if (static_cast<unsigned char>(*p) < 32 && *p != '\r' && *p != '\n' && *p != '\t') {
            return 0;
        }
    }
    return 1;
}

unsigned int bkdr_hash(const char *str)
{
    constexpr unsigned int kSeed = 131;
    unsigned int hash = 0;
    for (const char *p = str; p != nullptr && *p != '\0'; ++p) {
        hash = hash * kSeed + static_cast<unsigned char>(*p);
    }
    return hash;
}

char *strnstr(const char *s, const char *pattern, int slen)
{
    if (s == nullptr || pattern == nullptr || *pattern == '\0' || slen <= 0) {
        return nullptr;
    }
    const std::size_t room = strnlen(s, static_cast<std::size_t>(slen));
    return static_cast<char *>(memmem(const_cast<char *>(s), room, pattern, strlen(pattern)));
}

char *str_replace(const char *str, const char *old_text, const char *new_text)
{
    if (str == nullptr || old_text == nullptr || new_text == nullptr) {
        return nullptr;
    }
    const std::size_t length = strlen(str);
    const std::size_t old_length = strlen(old_text);
    const std::size_t new_length = strlen(new_text);
    if (old_length == 0) {
        return strdup(str);
    }
    std::size_t size = length + 1;
    if (old_length < new_length) {
        // Room for a text made of nothing but occurrences.
        if (__builtin_mul_overflow(length, new_length, &size) ||
            __builtin_add_overflow(size / old_length, 2, &size)) {
            return nullptr;
        }
    }
    auto *const result = static_cast<char *>(malloc(size));
    if (result == nullptr) {
        return nullptr;
    }
    char *out = result;
    while (const char *const found = strstr(str, old_text)) {
        const auto before = static_cast<std::size_t>(found - str);
        memcpy(out, str, before);
        memcpy(out + before, new_text, new_length);
        out += before + new_length;
        str = found + old_length;
    }
    memcpy(out, str, strlen(str) + 1);
    return result;
}

char *str_join(const char *str, const char *join)
{
    if (str == nullptr || join == nullptr) {
        return nullptr;
    }
    const std::size_t length = strlen(str);
    const std::size_t join_length = strlen(join);
    std::size_t size;
    char *result = nullptr;
    if (!__builtin_mul_overflow(length, join_length + 1, &size) &&
        !__builtin_add_overflow(size, 1, &size)) {
        result = static_cast<char *>(calloc(size, 1));
    }
    if (result == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return nullptr;
    }
    char *out = result;
    for (std::size_t i = 0; i < length; ++i) {
        *out++ = str[i];
        if (i + 1 < length) {
            memcpy(out, join, join_length);
            out += join_length;
        }
    }
    return result;
}

char *str_to_hex(const char *s, char *buf, unsigned int len)
{
    if (s == nullptr || buf == nullptr || strlen(s) >= (len + std::size_t{1}) / 2) {
        return nullptr;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    char *out = buf;
    for (const char *p = s; *p != '\0'; ++p) {
        const auto byte = static_cast<unsigned char>(*p);
        *out++ = kDigits[byte >> 4];
        *out++ = kDigits[byte & 0xF];
    }
    *out = '\0';
    return buf;
}

char *hex_to_str(const char *h, char *buf, unsigned int len)
{
    if (h == nullptr || buf == nullptr || strlen(h) / 2 >= len) {
        return nullptr;
    }
    char *out = buf;
    for (const char *p = h; p[0] != '\0' && p[1] != '\0'; p += 2) {
        *out++ = static_cast<char>((hex_value(p[0]) * 16 + hex_value(p[1])) & 0xFF);
    }
    *out = '\0';
    return buf;
}

int mac_str_32(char *mac)
{
    constexpr std::size_t kPairs = 5;
    constexpr std::size_t kLongest = 31;
    if (mac == nullptr) {
        return 0;
    }
    const std::size_t length = strlen(mac);
    if (length < 2 * kPairs || length + kPairs > kLongest) {
        return 0;
    }
    char result[kLongest + 1];
    char *out = result;
    for (std::size_t pair = 0; pair < kPairs; ++pair) {
        memcpy(out, mac + 2 * pair, 2);
        out[2] = ':';
        out += 3;
    }
    memcpy(out, mac + 2 * kPairs, length - 2 * kPairs + 1);
    memcpy(mac, result, length + kPairs + 1);
    return 1;
}

char *get_self_pname(void)
{
    static char name[kProcessNameSize];
    if (name[0] != '\0') {
        return name;
    }
    const ProcessStat stat{static_cast<int>(getpid())};
    if (!stat.is_open()) {
        const int err = errno;
        PROD_LOG_ERROR(kProd, "Failed(%d) to open file '%s', %s.", err, stat.path(), strerror(err));
        return const_cast<char *>("<null>");
    }
    const std::string_view found = stat.name();
    if (found.empty()) {
        PROD_LOG_ERROR(kProd, "Failed to get pname from file `%s`", stat.path());
        return const_cast<char *>("<null>");
    }
    copy_text(name, found);
    return name;
}

void prod_hexdump(const char *title, const void *data, int data_len)
{
    if (title == nullptr || data == nullptr || data_len < 1) {
        return;
    }
    printf("\033[1;%d;%dmHEXDUMP `%s`(length=%d):\n\033[0m", kBackground, kCyan, title, data_len);
    fflush(stdout);

    const auto *const bytes = static_cast<const unsigned char *>(data);
    Text<50> hexadecimal;
    Text<18> characters;
    for (int i = 0; i < data_len; ++i) {
        hexadecimal.appendf("%02hhx ", bytes[i]);
        characters.append(bytes[i] >= 32 && bytes[i] <= 126 ? static_cast<char>(bytes[i]) : '.');
        if (i % 16 == 7) {
            hexadecimal.append(' ');
            characters.append(' ');
        }
        if (i % 16 == 15 || i == data_len - 1) {
            printf("%08x | %-49s | %s\n", static_cast<unsigned int>(i) & ~0xFU, hexadecimal.c_str(),
                   characters.c_str());
            hexadecimal = {};
            characters = {};
        }
    }
}
