// SPDX-License-Identifier: MIT
// What the probe programs print: the first byte tells in which attempts they print the rest.
#include <algorithm>
#include <string>
#include <string_view>

#include "fuzz/fuzz.hpp"
#include "prod_common_wan.h"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/time.hpp"

namespace
{

constexpr std::size_t kLineLimit = 255;

/** Whether a reader of lines of at most 255 characters meets such a line. */
template <typename Match>
bool meets(std::string_view text, Match matches)
{
    while (!text.empty()) {
        const std::size_t end = std::min({text.find('\n'), kLineLimit - 1, text.size() - 1}) + 1;
        const std::string_view whole = text.substr(0, end);
        if (matches(whole.substr(0, whole.find('\0')))) {  // the rest of a line with a NUL is lost
            return true;
        }
        text.remove_prefix(end);
    }
    return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const unsigned int attempts = size > 0 ? data[0] : 0;
    const std::string text{reinterpret_cast<const char *>(data) + (size > 0 ? 1 : 0),
                           size > 0 ? size - 1 : 0};
    const test::FreshConfig fresh;
    // The fuzzer watches its memory from a thread of its own, which sleeps for real.
    const test::SimulatedTime time{test::SimulatedTime::Of::kThread};
    test::config()["port.1.ifname"] = "eth1";
    std::size_t asked = 0;
    const test::RecordedPipes pipes{[&](const std::string &) -> std::optional<std::string> {
        const bool prints = (attempts >> asked++ & 1) != 0;
        return prints           ? std::optional{text}
               : asked % 2 == 0 ? std::optional{std::string{}}
                                : std::nullopt;
    }};
    const int kind = prod_detect_wan_type(1);

    const bool is_pppoe = meets(
        text, [](std::string_view line) { return line.starts_with("AC-Ethernet-Address: "); });
    const bool is_dhcp = meets(text, [](std::string_view line) {
        return line.find("servermac=\"") != std::string_view::npos;
    });
    if (is_pppoe && (attempts & 7) != 0) {
        FUZZ_CHECK(kind == HLX_WAN_CONNECT_PPPOE && asked <= 3);
        FUZZ_CHECK(time.sleeps().size() == asked - 1);
    } else if (is_dhcp && (attempts & 0x38) != 0) {
        FUZZ_CHECK(kind == HLX_WAN_CONNECT_DHCP && asked > 3 && asked <= 6);
        FUZZ_CHECK(time.sleeps().size() == asked - 1);
    } else {
        FUZZ_CHECK(kind == HLX_WAN_CONNECT_STATIC && asked == 6 && time.sleeps().size() == 6);
    }
    FUZZ_CHECK(pipes.left_open() == 0);
    return 0;
}
