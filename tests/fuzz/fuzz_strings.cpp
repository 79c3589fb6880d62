// SPDX-License-Identifier: MIT
// The functions over texts, each beside a plain reference.
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/fuzz.hpp"
#include "prod_common_string.h"

namespace
{

constexpr std::size_t kLongest = 600;  // of one text; replacing multiplies lengths

/** A text in a block of exactly its room, so that a sanitizer sees the byte behind it. */
fuzz::Block block(const std::string &text, std::size_t more = 0)
{
    fuzz::Block out = fuzz::block(text.size() + 1 + more);
    memcpy(out.get(), text.c_str(), text.size() + 1);
    return out;
}

std::string take(std::string_view &rest)
{
    return fuzz::take(rest).substr(0, kLongest);
}

std::string replaced(const std::string &text, const std::string &from, const std::string &to)
{
    if (from.empty()) {
        return text;
    }
    std::string result;
    std::size_t at = 0;
    for (std::size_t found; (found = text.find(from, at)) != std::string::npos;) {
        result += text.substr(at, found - at) + to;
        at = found + from.size();
    }
    return result + text.substr(at);
}

std::string joined(const std::string &text, const std::string &join)
{
    std::string result;
    for (const char c : text) {
        result += (result.empty() ? "" : join) + c;
    }
    return result;
}

void check_copies(const std::string &text, const std::string &second, const std::string &third)
{
    const fuzz::Block made{str_replace(text.c_str(), second.c_str(), third.c_str()), &free};
    FUZZ_CHECK(made != nullptr && replaced(text, second, third) == made.get());
    const fuzz::Block spread{str_join(text.c_str(), second.c_str()), &free};
    FUZZ_CHECK(spread != nullptr && joined(text, second) == spread.get());
}

void check_search(const std::string &text, const std::string &pattern)
{
    const fuzz::Block haystack = block(text);
    const auto length = static_cast<int>(text.size());
    for (const int room : {-1, 0, 1, length / 2, length, length + 1, 100000}) {
        const char *const found = strnstr(haystack.get(), pattern.c_str(), room);
        const std::string seen = text.substr(0, static_cast<std::size_t>(std::max(room, 0)));
        const std::size_t at = pattern.empty() ? std::string::npos : seen.find(pattern);
        FUZZ_CHECK(at == std::string::npos
                       ? found == nullptr
                       : found == haystack.get() + static_cast<std::ptrdiff_t>(at));
    }
}

unsigned int digit_value(char c)
{
    const auto byte = static_cast<unsigned char>(c);
    return isdigit(byte) != 0 ? byte - 48U : static_cast<unsigned int>(tolower(byte)) - 87U;
}

void check_hexadecimal(const std::string &text)
{
    const std::size_t room = 2 * text.size() + 1;
    const fuzz::Block digits = fuzz::block(room);
    const auto length = static_cast<unsigned int>(room);
    FUZZ_CHECK(str_to_hex(text.c_str(), digits.get(), length - 1) == nullptr);
    FUZZ_CHECK(str_to_hex(text.c_str(), digits.get(), length) == digits.get());
    FUZZ_CHECK(strlen(digits.get()) == room - 1);
    const fuzz::Block back = block(text);
    FUZZ_CHECK(hex_to_str(digits.get(), back.get(), length / 2 + 1) == back.get());
    FUZZ_CHECK(text == back.get());

    // Any text, digits or not.
    std::string bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes += static_cast<char>(digit_value(text[i]) * 16 + digit_value(text[i + 1]));
    }
    const fuzz::Block out = fuzz::block(bytes.size() + 1);
    const auto needed = static_cast<unsigned int>(bytes.size() + 1);
    FUZZ_CHECK(hex_to_str(text.c_str(), out.get(), needed - 1) == nullptr);
    FUZZ_CHECK(hex_to_str(text.c_str(), out.get(), needed) == out.get());
    FUZZ_CHECK(memcmp(out.get(), bytes.c_str(), needed) == 0);
}

void check_mac(const std::string &text)
{
    constexpr std::size_t kColons = 5;
    const bool grows = text.size() >= 2 * kColons && text.size() + kColons <= 31;
    const fuzz::Block mac = block(text, grows ? kColons : 0);
    FUZZ_CHECK(mac_str_32(mac.get()) == (grows ? 1 : 0));
    std::string expected = text;
    for (std::size_t i = 0; grows && i < kColons; ++i) {
        expected.insert(3 * i + 2, 1, ':');
    }
    FUZZ_CHECK(expected == mac.get());
}

void check_questions(const std::string &text)
{
    const std::size_t sign = !text.empty() && (text[0] == '+' || text[0] == '-') ? 1 : 0;
    FUZZ_CHECK(
        str_isdigit(text.c_str()) ==
        (text.size() > sign && text.find_first_not_of("0123456789", sign) == std::string::npos));
    FUZZ_CHECK(str_is_printable(text.c_str()) == std::all_of(text.begin(), text.end(), [](char c) {
                   return static_cast<unsigned char>(c) >= 32 || c == '\r' || c == '\n' ||
                          c == '\t';
               }));
    unsigned int hash = 0;
    for (const char c : text) {
        hash = hash * 131 + static_cast<unsigned char>(c);
    }
    FUZZ_CHECK(bkdr_hash(text.c_str()) == hash);
}

void check_edits(const std::string &text, char c)
{
    const std::size_t first = c != '\0' ? text.find_first_not_of(c) : 0;
    const std::string left = first != std::string::npos ? text.substr(first) : "";
    fuzz::Block edited = block(text);
    const char *const rest = str_trim_left(edited.get(), c);
    FUZZ_CHECK(left == edited.get());
    FUZZ_CHECK(rest == (left == text ? edited.get() : strchr(edited.get(), '\0')));

    const std::size_t last = left.find_last_not_of(c);
    const std::string both = last == std::string::npos ? "" : left.substr(0, last + 1);
    edited = block(text);
    FUZZ_CHECK(str_trim(edited.get(), c) == edited.get() && both == edited.get());

    std::string expected = text;
    std::erase(expected, c);
    edited = block(text);
    FUZZ_CHECK(str_del_chars(edited.get(), c) == (text.empty() ? 0 : 1));
    FUZZ_CHECK(expected == edited.get());

    expected = text;
    std::replace(expected.begin(), expected.end(), c, '#');
    edited = block(text);
    replace_char(edited.get(), c, '#');
    FUZZ_CHECK(expected == edited.get());

    expected.assign(text.rbegin(), text.rend());
    edited = block(text);
    str_reverse(edited.get());
    FUZZ_CHECK(expected == edited.get());

    edited = block(text);
    FUZZ_CHECK(str_to_lower(str_to_upper(edited.get())) == edited.get());
    FUZZ_CHECK(strcasecmp(edited.get(), text.c_str()) == 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::string_view rest{reinterpret_cast<const char *>(data), size};
    const std::string text = take(rest);
    const std::string second = take(rest);
    const std::string third = take(rest);
    check_copies(text, second, third);
    check_search(text, second);
    check_hexadecimal(text);
    check_mac(text);
    check_questions(text);
    check_edits(text, second.c_str()[0]);
    check_edits(text, text.c_str()[0]);
    return 0;
}
