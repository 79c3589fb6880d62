// SPDX-License-Identifier: MIT
#include "platform/factory.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "board.hpp"
#include "file.hpp"
#include "platform/address.h"

using platform::member;
using platform::text_of;

namespace
{

constexpr std::string_view kBaseMac = "HW_NIC0_ADDR";

using Value = char[FACTORY_VALUE_SIZE];

/** The board's MAC without its separators; nothing when it has none. */
void write_base_mac(const cJSON *board, Value &value)
{
    unsigned char mac[6];
    const char *const text = text_of(member(board, "mac"));
    if (text != nullptr && ifaddrs_ethaddr_aton(text, mac) != 0) {
        snprintf(value, sizeof(value), "%02X%02X%02X%02X%02X%02X", mac[0], mac[1], mac[2], mac[3],
                 mac[4], mac[5]);
    }
}

}  // namespace

int ApmibGetValue(const char *name, char *value)
{
    if (name == nullptr || value == nullptr) {
        return 0;
    }
    const platform::Json board = platform::read_board();
    Value text = "";
    if (name == kBaseMac) {
        write_base_mac(board.get(), text);
    } else if (const char *const setting = text_of(member(member(board.get(), "factory"), name))) {
        platform::copy_text(text, setting);
    }
    memcpy(value, text, strlen(text) + 1);
    return text[0] != '\0' ? 1 : 0;
}
