// SPDX-License-Identifier: MIT
// Text into the encodings of the device and back, from the command line or standard input.
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "groups.hpp"
#include "prod_common_string.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr const char *kFormatOption = "--as";
constexpr std::size_t kMostInput = 1U << 24;  // lengths of the library's functions are int

/** What a command makes of the whole input; nothing when that cannot be, which it has explained. */
using Convert = std::optional<std::string> (*)(const Call &call, const std::string &text);

struct Format {
    const char *name;
    Convert encode;
    Convert decode;
};

/** The result of a library function that is malloc'ed or NULL. */
std::optional<std::string> taken(const Call &call, char *text, const char *complaint)
{
    const std::unique_ptr<char, decltype(&free)> owner{text, free};
    if (text == nullptr) {
        call.no("%s", complaint);
        return std::nullopt;
    }
    return text;
}

std::optional<std::string> encode_base64(const Call &, const std::string &text)
{
    std::string out(4 * ((text.size() + 2) / 3) + 1, '\0');
    prod_encode64(out.data(), text.c_str(), static_cast<int>(out.size()));
    return out.c_str();
}

/** Digits may be broken into lines. */
std::string without_blanks(std::string digits)
{
    std::erase_if(digits, [](char c) { return isspace(static_cast<unsigned char>(c)) != 0; });
    return digits;
}

std::optional<std::string> decode_base64(const Call &call, const std::string &text)
{
    const std::string digits = without_blanks(text);
    for (const char c : std::string_view{digits}.substr(0, digits.find('='))) {
        if (c == '+' || c == '/') {
            call.no("the device's decoder does not know the digits '+' and '/'");
            return std::nullopt;
        }
        if (isalnum(static_cast<unsigned char>(c)) == 0) {
            call.no("that is no base64 text");
            return std::nullopt;
        }
    }
    std::string out(digits.size() + 1, '\0');
    prod_decode64(out.data(), digits.c_str(), static_cast<int>(out.size()));
    return out.c_str();
}

std::optional<std::string> encode_hex(const Call &, const std::string &text)
{
    return hex_of(text.c_str());
}

std::optional<std::string> decode_hex(const Call &call, const std::string &digits)
{
    std::optional<std::string> text = text_of_hex(without_blanks(digits));
    if (!text) {
        call.no("that is no text of hexadecimal pairs");
    }
    return text;
}

std::optional<std::string> encode_gbk(const Call &call, const std::string &text)
{
    return taken(call, encode_chinese("gbk", text.c_str()),
                 "that is no UTF-8 text, or not all of it has a GBK character");
}

std::optional<std::string> decode_gbk(const Call &call, const std::string &text)
{
    return taken(call, encode_chinese("utf-8", text.c_str()), "that is no GBK text");
}

constexpr Format kFormats[] = {{"base64", encode_base64, decode_base64},
                               {"hex", encode_hex, decode_hex},
                               {"gbk", encode_gbk, decode_gbk}};

/** All of standard input; nothing when it cannot be taken, which is then explained. */
std::optional<std::string> standard_input(const Call &call)
{
    std::string text;
    std::array<char, 4096> block;
    for (;;) {
        const ssize_t count = read(STDIN_FILENO, block.data(), block.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            call.no("cannot read standard input: %s", strerror(errno));
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        text.append(block.data(), static_cast<std::size_t>(count));
        if (text.size() > kMostInput) {
            call.no("standard input has more than %zu bytes", kMostInput);
            return std::nullopt;
        }
    }
    if (text.find('\0') != std::string::npos) {
        call.no("standard input holds a zero byte, where texts of the device end");
        return std::nullopt;
    }
    return text;
}

int run_either(const Call &call, cJSON *answer, Convert Format::*direction)
{
    const char *const name = call.value(kFormatOption);
    const Format *wanted = name == nullptr ? kFormats : nullptr;
    for (const Format &format : kFormats) {
        if (name != nullptr && strcmp(name, format.name) == 0) {
            wanted = &format;
        }
    }
    if (wanted == nullptr) {
        return call.usage("'%s' is no encoding: base64, hex or gbk", name);
    }
    const std::optional<std::string> text =
        call.count() > 0 ? std::optional<std::string>{call[0]} : standard_input(call);
    if (!text) {
        return kNo;
    }
    const std::optional<std::string> result = (wanted->*direction)(call, *text);
    if (!result) {
        return kNo;
    }
    if (call.json()) {
        add_text(answer, "result", *result);
        add_text(answer, "hex", hex_of(result->c_str()));
    } else {
        cJSON_AddStringToObject(answer, "result", result->c_str());
    }
    return kYes;
}

}  // namespace

int run_encode(const Call &call, cJSON *answer)
{
    return run_either(call, answer, &Format::encode);
}

int run_decode(const Call &call, cJSON *answer)
{
    return run_either(call, answer, &Format::decode);
}

void show_encoded(const cJSON *answer, Page &page)
{
    page.verbatim(format("%s\n", text_of(answer, "result")));
}

constinit const Option kEncodingOptions[1] = {
    {kFormatOption, "ENCODING", "base64 (the default), hex or gbk"}};

constinit const Command kEncodeCommand = {
    .name = "encode",
    .summary = "A text in base64, hexadecimal digits or GBK",
    .arguments = "[TEXT]",
    .max_arguments = 1,
    .details = "Without TEXT standard input is taken, line ends included.",
    .no = "the text cannot be written in that encoding",
    .run = run_encode,
    .show = show_encoded,
    .options = kEncodingOptions,
};

constinit const Command kDecodeCommand = {
    .name = "decode",
    .summary = "The text that base64, hexadecimal digits or GBK stand for",
    .arguments = "[TEXT]",
    .max_arguments = 1,
    .details =
        "Without TEXT standard input is taken. Blanks and line ends among digits do not\n"
        "count; the text ends at a zero byte.",
    .no = "the text is not in that encoding",
    .run = run_decode,
    .show = show_encoded,
    .options = kEncodingOptions,
};

}  // namespace prodctl
