// SPDX-License-Identifier: MIT
#include "words.hpp"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "prod_common_cfm.h"
#include "prod_common_ifaddrs.h"
#include "prod_common_string.h"

namespace prodctl
{

const char *word_of(std::span<const Word> words, int value, const char *otherwise)
{
    for (const Word &word : words) {
        if (word.value == value) {
            return word.name;
        }
    }
    return otherwise;
}

std::optional<int> value_of(std::span<const Word> words, std::string_view name)
{
    for (const Word &word : words) {
        if (word.name == name) {
            return word.value;
        }
    }
    return std::nullopt;
}

std::string listed(std::span<const Word> words)
{
    std::string result;
    for (std::size_t i = 0; i < words.size(); ++i) {
        result += i == 0 ? "" : i + 1 < words.size() ? ", " : " or ";
        result += words[i].name;
    }
    return result;
}

std::optional<int> number(const char *text, int smallest, int largest)
{
    char *end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, 10);
    const bool digits = *text == '-' || (*text >= '0' && *text <= '9');
    if (!digits || end == text || *end != '\0' || errno != 0 || value < smallest ||
        value > largest) {
        return std::nullopt;
    }
    return static_cast<int>(value);
}

std::string hex_of(const char *text)
{
    std::string digits(2 * strlen(text) + 1, '\0');
    str_to_hex(text, digits.data(), static_cast<unsigned int>(digits.size()));
    digits.pop_back();
    return digits;
}

std::optional<std::string> text_of_hex(const std::string &digits)
{
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return std::nullopt;
    }
    std::string text(digits.size() / 2 + 1, '\0');
    hex_to_str(digits.c_str(), text.data(), static_cast<unsigned int>(text.size()));
    return text.c_str();
}

bool is_dotted_quad(const char *text)
{
    in_addr address;
    return inet_pton(AF_INET, text, &address) == 1;
}

bool is_mask(const char *text)
{
    in_addr address;
    if (inet_pton(AF_INET, text, &address) != 1) {
        return false;
    }
    const std::uint32_t host_part = ~ntohl(address.s_addr);
    return (host_part & (host_part + 1)) == 0;
}

int prefix_of(const char *mask)
{
    return ipmask_to_numeric(mask);
}

std::optional<AddressRange> address_range(const char *text)
{
    const std::string_view whole = text;
    const std::size_t slash = whole.find('/');
    if (slash == std::string_view::npos) {
        return std::nullopt;
    }
    AddressRange range{std::string{whole.substr(0, slash)}, std::string{whole.substr(slash + 1)}};
    if (const std::optional<int> prefix = number(range.mask.c_str(), 1, 32)) {
        in_addr mask;
        mask.s_addr = htonl(~0U << (32 - *prefix));
        char quad[INET_ADDRSTRLEN];
        range.mask = inet_ntop(AF_INET, &mask, quad, sizeof(quad));
    }
    const bool wrong = !is_dotted_quad(range.address.c_str()) ||
                       ipv4_is_valid(range.address.c_str()) == 0 || !is_mask(range.mask.c_str()) ||
                       prefix_of(range.mask.c_str()) == 0;
    return wrong ? std::nullopt : std::optional{range};
}

std::optional<std::string> config_value(const std::string &key)
{
    char value[CFM_VALUE_SIZE] = "";
    if (prod_cfm_get_val(key.c_str(), value) == 0) {
        return std::nullopt;
    }
    return value;
}

const char *key_flaw(std::string_view key)
{
    if (key.empty()) {
        return "the key is empty";
    }
    if (key.size() > CFM_KEY_MAX) {
        return "the key is too long";
    }
    if (key.front() == '#') {
        return "the key begins with \"#\"";
    }
    return key.find_first_of("=\r\n") != std::string_view::npos
               ? "the key holds \"=\" or a line break"
               : nullptr;
}

const char *value_flaw(std::string_view value)
{
    if (value.size() >= CFM_VALUE_SIZE) {
        return "the value is too long";
    }
    return value.find_first_of("\r\n") != std::string_view::npos ? "the value holds a line break"
                                                                 : nullptr;
}

std::string port_places()
{
    constexpr std::size_t kPortMax = 31;
    return config_value("sys.ports").value_or("").substr(0, kPortMax);
}

int wan_count()
{
    return std::clamp(prod_cfm_get_int_val("wans.flag"), 0, kWanMax);
}

}  // namespace prodctl
