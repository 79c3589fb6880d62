// SPDX-License-Identifier: MIT
// The words of the command line for the library's numbers, and the readers of arguments.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace prodctl
{

/** A number of the library and its word. */
struct Word {
    int value;
    const char *name;
};

/** The word of a number, @p otherwise when it has none. */
const char *word_of(std::span<const Word> words, int value, const char *otherwise);
/** The number of a word. */
std::optional<int> value_of(std::span<const Word> words, std::string_view name);
/** "off, func or error", for complaints. */
std::string listed(std::span<const Word> words);

/** A whole decimal number in a range. */
std::optional<int> number(const char *text, int smallest, int largest);

constexpr int kDay = 86400;  // seconds, the longest wait that a command offers

/** A text as hexadecimal digits, by the library. */
std::string hex_of(const char *text);
/** What pairs of hexadecimal digits stand for, up to a zero byte; nothing when they are not such.
 */
std::optional<std::string> text_of_hex(const std::string &digits);

/** What stands where an address should and there is none. */
constexpr char kNoAddress[] = "0.0.0.0";

/** Whether a text is a dotted quad of four decimal numbers. */
bool is_dotted_quad(const char *text);

/** Whether a text is a mask: a dotted quad whose one bits stand in front. */
bool is_mask(const char *text);

/** The prefix length of a mask. */
int prefix_of(const char *mask);

/** The address of a host and its mask, as dotted quads. */
struct AddressRange {
    std::string address;
    std::string mask;
};

/** Reads "192.168.0.1/24" or "192.168.0.1/255.255.255.0"; a mask of no bits is none. */
std::optional<AddressRange> address_range(const char *text);

/** The configuration value of a key, nothing when it is absent. */
std::optional<std::string> config_value(const std::string &key);

/** What is wrong with a configuration key, nullptr when it is one. */
const char *key_flaw(std::string_view key);
/** What is wrong with a configuration value, nullptr when it is one. */
const char *value_flaw(std::string_view value);

/**
 * The physical ids of the ports in front-panel order, a character each: "sys.ports" as far as the
 * library looks at it.
 */
std::string port_places();

/** How many WANs are configured, as many of them as the library serves. */
int wan_count();

constexpr int kWanMax = 4;

}  // namespace prodctl
