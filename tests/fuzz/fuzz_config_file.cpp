// SPDX-License-Identifier: MIT
// The default port's store as text: an uploaded backup, the factory defaults, and the persistent
// file, which all are lines of "key=value".
#include <algorithm>
#include <map>
#include <memory>
#include <string>

#include "cfm_tool.h"
#include "fuzz/fuzz.hpp"
#include "platform/cfm.h"
#include "support/files.hpp"

/** The medium's speed is not what is looked for. */
extern "C" int fsync(int)
{
    return 0;
}

namespace
{

using Settings = std::map<std::string, std::string>;

bool is_sound(const std::string &key, const std::string &value)
{
    const std::string either = key + value;
    return !key.empty() && key[0] != '#' && key.size() <= CFM_KEY_MAX &&
           value.size() < CFM_VALUE_SIZE && either.find('\r') == std::string::npos &&
           either.find('\0') == std::string::npos;
}

/** What the text configures; false when a line of it is damaged. */
bool parse(const std::string &text, Settings &settings)
{
    bool sound = true;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.find_first_not_of(" \t") == std::string::npos || line[0] == '#') {
            continue;
        }
        const std::size_t equals = line.find('=');
        const std::string key = line.substr(0, equals);
        const std::string value = equals != std::string::npos ? line.substr(equals + 1) : "";
        if (equals != std::string::npos && is_sound(key, value)) {
            settings[key] = value;
        } else {
            sound = false;
        }
    }
    return sound;
}

std::string text_of(const Settings &settings)
{
    std::string text;
    for (const auto &[key, value] : settings) {
        text += key + "=" + value + "\n";
    }
    return text;
}

/** All of the working copy. */
std::string shown()
{
    char *text = nullptr;
    std::size_t size = 0;
    FUZZ_CHECK(cfm_show(&text, &size) == 1);
    const std::unique_ptr<char, decltype(&free)> owner{text, &free};
    return {text, size};
}

/** Working copy and persistent file, and each value as a daemon reads it. */
void check_holds(const Settings &settings)
{
    FUZZ_CHECK(shown() == text_of(settings));
    FUZZ_CHECK(test::read_text("/cfg/cfm.cfg") == text_of(settings));
    auto *const value = static_cast<char *>(malloc(CFM_VALUE_SIZE));
    for (const auto &[key, expected] : settings) {
        FUZZ_CHECK(GetValue(key.c_str(), value) != 0 && expected == value);
    }
    free(value);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const Settings before{{"a", "1"}};
    FUZZ_CHECK(cfm_upload("a=1\n", 4) == 1);

    const std::string text{reinterpret_cast<const char *>(data), size};
    Settings settings;
    const bool sound = parse(text, settings);
    const bool taken = sound && !settings.empty();
    FUZZ_CHECK(cfm_upload(text.data(), text.size()) == (taken ? 1 : 0));
    check_holds(taken ? settings : before);

    FUZZ_CHECK(cfm_upload("a=1\n", 4) == 1);
    fuzz::write_file("/etc/default.cfg", data, size);
    FUZZ_CHECK((RestoreValue() != 0) == !settings.empty());
    check_holds(settings.empty() ? before : settings);
    return 0;
}
