// SPDX-License-Identifier: MIT
// Hostile settings in the commands for the bridge, the switch and the probes: whatever they hold,
// each command stays one command with as many words as it is meant to have.
#include <algorithm>
#include <string>
#include <string_view>

#include "fuzz/fuzz.hpp"
#include "platform/factory.h"
#include "platform/hardware.h"
#include "platform/process.h"
#include "prod_common_wan.h"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/time.hpp"

namespace
{

std::string factory_value;

/** The words that a shell makes of a command; 0 when it would do more than run one. */
std::size_t words_of(std::string_view command)
{
    std::size_t words = 0;
    bool in_word = false;
    while (!command.empty()) {
        const char c = command.front();
        std::size_t taken = 1;
        bool part_of_word = true;
        if (c == '\\') {
            if (command.size() < 2 || command[1] == '\n') {
                return 0;
            }
            taken = 2;
        } else if (command.starts_with("'\n'")) {
            taken = 3;
        } else if (c == ' ') {
            part_of_word = false;
        } else if (std::string_view{"\t\n|&;<>()$`\"'*?[{"}.find(c) != std::string_view::npos ||
                   (!in_word && (c == '#' || c == '~'))) {
            return 0;
        }
        words += part_of_word && !in_word ? 1 : 0;
        in_word = part_of_word;
        command.remove_prefix(taken);
    }
    return words;
}

/** How many words a command has at least; one more where a value is not empty. */
struct Known {
    std::string_view start;
    std::size_t words;
};
constexpr Known kCommands[] = {
    {"brctl addbr br0", 3},     {"brctl addif br0 ", 3},       {"brctl delif br0 ", 3},
    {"ethswctl -c wan -i ", 6}, {"ifconfig br0 hw ether ", 4}, {"ifconfig br0 ", 2},
    {"discovery-pppoe -I ", 6}, {"discovery-dhcp -i ", 5},
};

void check(std::string_view command)
{
    constexpr std::string_view kMerged = " 2>&1";
    if (command.ends_with(kMerged)) {
        command.remove_suffix(kMerged.size());
    }
    const auto *const known =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [&](const Known &candidate) { return command.starts_with(candidate.start); });
    FUZZ_CHECK(known != std::end(kCommands));
    const std::size_t words = words_of(command);
    FUZZ_CHECK(words == known->words || words == known->words + 1);
}

}  // namespace

extern "C" int ApmibGetValue(const char *, char *value)
{
    factory_value.copy(value, factory_value.size());
    value[factory_value.size()] = '\0';
    return 1;
}

extern "C" int iof_vlan_set(int eth_id, unsigned int, unsigned int tag_bit)
{
    FUZZ_CHECK(eth_id == 1 && tag_bit == 0);
    return 0;
}

extern "C" int iof_port_restart_auto_nego(int)
{
    return 0;
}

extern "C" int do_file_cmd(const char *, int, const char *, ...)
{
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // Lines: "sys.ports", an interface name, then what every other setting holds.
    const std::string text{reinterpret_cast<const char *>(data), size};
    const auto cut = [&](std::size_t from, std::size_t end) {
        return from < text.size() ? std::string{text.substr(from, end - from).c_str()}.substr(
                                        0, CFM_VALUE_SIZE - 1)
                                  : std::string{};
    };
    const std::size_t first = std::min(text.find('|'), text.size());
    const std::size_t second = std::min(text.find('|', first + 1), text.size());
    const test::FreshConfig fresh;
    // The fuzzer watches its memory from a thread of its own, which sleeps for real.
    const test::SimulatedTime time{test::SimulatedTime::Of::kThread};
    test::config()["sys.ports"] = cut(0, first);
    for (const char *const key : {"port.1.ifname", "port.2.ifname", "ports.phy.4.eth"}) {
        test::config()[key] = cut(first + 1, second);
    }
    factory_value = cut(second + 1, text.size());
    const test::EveryKeyReads everywhere{factory_value};

    const test::RecordedCommands commands{};
    const test::RecordedPipes pipes{[](const std::string &) { return std::nullopt; }};
    update_bridge();
    leave_switch_only_mode();
    ethswctl_wan_switch(cut(first + 1, second).c_str(), 1);
    down_lan_phy_connect();
    prod_detect_wan_type(1);
    pppoe_v4_as_v6(1);
    for (const std::string &command : commands.all()) {
        check(command);
    }
    for (const std::string &command : pipes.all()) {
        check(command);
    }
    return 0;
}
