// SPDX-License-Identifier: MIT
#include "prod_common_string.h"

#include <endian.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/console.hpp"
#include "internal/handle.hpp"
#include "internal/log.hpp"
#include "internal/proc.hpp"
#include "internal/text.hpp"
#include "platform/text.h"

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

using Byte = unsigned char;

/**
 * Whether the build is one for the flash, where tables of more than a few hundred bytes cost more
 * than the time that they save.
 */
#ifdef __OPTIMIZE_SIZE__
constexpr bool kSmallTables = true;
#else
constexpr bool kSmallTables = false;
#endif

constexpr char kHexDigits[] = "0123456789abcdef";

/** The two hexadecimal digits of each byte. */
constexpr auto kHexPairs = [] {
    std::array<std::array<char, 2>, 256> digits{};
    for (std::size_t byte = 0; byte < digits.size(); ++byte) {
        digits[byte] = {kHexDigits[byte >> 4], kHexDigits[byte & 0xF]};
    }
    return digits;
}();

void put_hex(Byte byte, char *digits)
{
    if constexpr (kSmallTables) {
        digits[0] = kHexDigits[byte >> 4];
        digits[1] = kHexDigits[byte & 0xF];
    } else {
        memcpy(digits, kHexPairs[byte].data(), 2);
    }
}

/** What a character counts as in hex_to_str(), digit or not. */
constexpr Byte count_hex(unsigned int c)
{
    const unsigned int lower = c >= 'A' && c <= 'Z' ? c + 'a' - 'A' : c;
    return static_cast<Byte>(c >= '0' && c <= '9' ? c - '0' : lower - 87);
}

constexpr auto kHexValues = [] {
    std::array<Byte, 256> values{};
    for (unsigned int c = 0; c < values.size(); ++c) {
        values[c] = count_hex(c);
    }
    return values;
}();

Byte hex_value(char c)
{
    const auto byte = static_cast<Byte>(c);
    if constexpr (kSmallTables) {
        return count_hex(byte);
    } else {
        return kHexValues[byte];
    }
}

// ---- encodings --------------------------------------------------------------------------------

/** An encoding by one of its names: what the port calls it, and what its text can grow to. */
struct Encoding {
    const char *name;
    const char *target;
    std::size_t more_per_two;  // bytes that two bytes of the source can gain
};
constexpr Encoding kEncodings[] = {
    {"utf8", "utf-8", 1}, {"utf-8", "utf-8", 1}, {"gbk", "gb2312", 0}, {"gb2312", "gb2312", 0}};

const Encoding *find_encoding(const char *name)
{
    for (const Encoding &encoding : kEncodings) {
        if (strcasecmp(name, encoding.name) == 0) {
            return &encoding;
        }
    }
    return nullptr;
}

/** Bytes of the buffer for a text of that length in an encoding. */
std::size_t encoded_size(const Encoding &encoding, std::size_t length)
{
    return encoding.more_per_two != 0 ? length + length / 2 + 2 : length + 1;
}

constexpr char kBase64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/** The two base64 digits of each twelve bits. */
constexpr auto kBase64Pairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t bits = 0; bits < pairs.size(); ++bits) {
        pairs[bits] = {kBase64Digits[bits >> 6], kBase64Digits[bits & 0x3F]};
    }
    return pairs;
}();

/**
 * What each byte counts as in prod_decode64(). Deliberate: the digits for 62 and 63 are the bytes
 * 0x1B and 0x1F, not "+" and "/", which count as 0xFF like every byte that is no digit.
 */
constexpr auto kBase64Values = [] {
    std::array<Byte, 256> values{};
    values.fill(0xFF);
    for (Byte value = 0; value < 62; ++value) {
        values[static_cast<Byte>(kBase64Digits[value])] = value;
    }
    values[0x1B] = 62;
    values[0x1F] = 63;
    return values;
}();

/** The same at the four places of a group, which is 24 bits. */
constexpr auto kBase64Bits = [] {
    std::array<std::array<std::uint32_t, 256>, 4> bits{};
    for (std::size_t place = 0; place < bits.size(); ++place) {
        for (std::size_t byte = 0; byte < kBase64Values.size(); ++byte) {
            bits[place][byte] = std::uint32_t{kBase64Values[byte]} << (18 - 6 * place);
        }
    }
    return bits;
}();

/** Twelve bits as two digits. */
void put_pair(std::size_t bits, char *digits)
{
    if constexpr (kSmallTables) {
        digits[0] = kBase64Digits[bits >> 6];
        digits[1] = kBase64Digits[bits & 0x3F];
    } else {
        memcpy(digits, kBase64Pairs[bits].data(), 2);
    }
}

/** Three bytes as four digits. */
void encode_group(const char *bytes, char *digits)
{
    const auto byte = [bytes](int at) { return unsigned{static_cast<Byte>(bytes[at])}; };
    const unsigned int bits = byte(0) << 16 | byte(1) << 8 | byte(2);
    put_pair(bits >> 12, digits);
    put_pair(bits & 0xFFF, digits + 2);
}

/** Six bytes, of eight that are there, as eight digits. */
void encode_two_groups(const char *bytes, char *digits)
{
    std::uint64_t bits;
    memcpy(&bits, bytes, sizeof(bits));
    bits = be64toh(bits);
    const auto put = [bits, digits](std::size_t pair) {
        put_pair(static_cast<std::size_t>(bits >> (52 - 12 * pair) & 0xFFF), digits + 2 * pair);
    };
    put(0);
    put(1);
    put(2);
    put(3);
}

/** Four digits as three bytes and a NUL. */
void decode_group(const char *digits, char *bytes)
{
    const auto bits_at = [digits](std::size_t place) {
        const auto byte = static_cast<Byte>(digits[place]);
        if constexpr (kSmallTables) {
            return std::uint32_t{kBase64Values[byte]} << (18 - 6 * place);
        } else {
            return kBase64Bits[place][byte];
        }
    };
    const std::uint32_t word = htobe32((bits_at(0) | bits_at(1) | bits_at(2) | bits_at(3)) << 8);
    memcpy(bytes, &word, sizeof(word));
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
    if (s == nullptr || buf == nullptr) {
        return nullptr;
    }
    const std::size_t length = strlen(s);
    if (length >= (len + std::size_t{1}) / 2) {
        return nullptr;
    }
    for (std::size_t at = 0; at < length; ++at) {
        put_hex(static_cast<Byte>(s[at]), buf + 2 * at);
    }
    buf[2 * length] = '\0';
    return buf;
}

char *hex_to_str(const char *h, char *buf, unsigned int len)
{
    if (h == nullptr || buf == nullptr) {
        return nullptr;
    }
    const std::size_t count = strlen(h) / 2;
    if (count >= len) {
        return nullptr;
    }
    for (std::size_t at = 0; at < count; ++at) {
        buf[at] = static_cast<char>(hex_value(h[2 * at]) * 16 + hex_value(h[2 * at + 1]));
    }
    buf[count] = '\0';
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
        log_failure(PROD_SITE, err, "open file '%s'", stat.path());
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

char *encode_chinese(const char *encoding, const char *src)
{
    if (encoding == nullptr || src == nullptr) {
        return nullptr;
    }
    const Encoding *const wanted = find_encoding(encoding);
    if (wanted == nullptr) {
        return nullptr;
    }
    // The port is promised four times the length. Callers get the size that real text needs, and
    // bytes that become more than that are no such text.
    const std::size_t length = strlen(src);
    const std::size_t size = encoded_size(*wanted, length);
    Allocated<char> buffer;
    std::size_t room;
    if (!__builtin_mul_overflow(length, 4, &room) && !__builtin_add_overflow(room, 2, &room)) {
        buffer.reset(static_cast<char *>(calloc(room, 1)));
    }
    if (buffer == nullptr) {
        PROD_LOG_ERROR(kProd, "Out of memory.");
        return nullptr;
    }
    if (system_convert_code_format(wanted->target, src, buffer.get()) == 0 ||
        strlen(buffer.get()) >= size) {
        PROD_LOG_ERROR(kProd, "Failed to encode chinese string.");
        if (dbg_enabled(kProd, PROD_DBG_INFO)) {
            prod_hexdump("src", src, static_cast<int>(std::min<std::size_t>(length + 1, INT_MAX)));
            prod_hexdump("dst", buffer.get(),
                         static_cast<int>(std::min<std::size_t>(size, INT_MAX)));
        }
        return nullptr;
    }
    char *const whole = buffer.release();
    char *const fitting = static_cast<char *>(realloc(whole, size));
    return fitting != nullptr ? fitting : whole;
}

char *encode_str_to_utf8(const char *str)
{
    if (str == nullptr) {
        return nullptr;
    }
    return system_get_code_format(str) == CODE_FORMAT_UTF8 ? strdup(str)
                                                           : encode_chinese("utf8", str);
}

int get_gb2312(const char *gb_ptr)
{
    if (gb_ptr == nullptr) {
        return 0;
    }
    const auto first = static_cast<Byte>(gb_ptr[0]);
    if (first < 0xA1 || first > 0xF7) {
        return 0;
    }
    const auto second = static_cast<Byte>(gb_ptr[1]);
    if (second < 0xA1 || second > 0xFE) {
        return 0;
    }
    puts("find gb2312 encode!");  // callers' output shows what was found
    return 1;
}

void prod_encode64(char *outbuf, const char *string, int outlen)
{
    if (outbuf == nullptr || string == nullptr || outlen < 1) {
        return;
    }
    *outbuf = '\0';
    const std::size_t room = static_cast<std::size_t>(outlen) - 1;
    const std::size_t length = strlen(string);
    const std::size_t groups = std::min(length / 3, room / 4);
    std::size_t group = 0;
    for (; !kSmallTables && group + 3 <= groups; group += 2) {
        encode_two_groups(string + 3 * group, outbuf + 4 * group);
    }
    for (; group < groups; ++group) {
        encode_group(string + 3 * group, outbuf + 4 * group);
    }
    // One or two bytes are left, or the room ends inside a group.
    const std::size_t left = std::min<std::size_t>(length - 3 * groups, 3);
    outbuf += 4 * groups;
    if (left > 0) {
        char bytes[3] = {};
        char digits[4];
        memcpy(bytes, string + 3 * groups, left);
        encode_group(bytes, digits);
        memset(digits + left + 1, '=', 3 - left);
        const std::size_t count = std::min(room - 4 * groups, sizeof(digits));
        memcpy(outbuf, digits, count);
        outbuf += count;
    }
    *outbuf = '\0';
}

int prod_decode64(char *outbuf, const char *string, int outlen)
{
    if (outbuf == nullptr || string == nullptr || outlen < 1) {
        return -1;
    }
    *outbuf = '\0';
    const std::size_t room = static_cast<std::size_t>(outlen) - 1;
    const auto length = static_cast<std::size_t>(strchrnul(string, '=') - string);
    const std::size_t groups = std::min(length / 4, room / 3);
    for (std::size_t group = 0; group < groups; ++group) {
        decode_group(string + 4 * group, outbuf + 3 * group);
    }
    // One to three digits are left, or there is no room for the next group.
    const std::size_t left = std::min<std::size_t>(length - 4 * groups, 4);
    if (left == 0) {
        return 0;
    }
    const std::size_t count = left - 1;
    if (count > room - 3 * groups) {
        return -1;
    }
    char digits[4];
    char bytes[4];
    memset(digits, kBase64Digits[0], sizeof(digits));  // counts as 0
    memcpy(digits, string + 4 * groups, left);
    decode_group(digits, bytes);
    bytes[count] = '\0';
    memcpy(outbuf + 3 * groups, bytes, count + 1);
    return 0;
}
