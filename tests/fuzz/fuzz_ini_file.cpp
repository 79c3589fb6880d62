// SPDX-License-Identifier: MIT
// A file of "key=value" lines, as the default port finds a value in it.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "platform/text.h"

namespace
{

constexpr const char *kFile = "/tmp/fuzz.ini";
constexpr std::size_t kLongestLine = 1024;

bool find(const std::string &text, const std::string &key, std::string &value)
{
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, std::min(end - at, kLongestLine));
        at = end + 1;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.compare(0, key.size() + 1, key + "=") == 0) {
            value = line.substr(key.size() + 1).c_str();
            value = value.substr(0, INI_VALUE_SIZE - 1);
            return true;
        }
    }
    return false;
}

void check(const std::string &text, const std::string &key)
{
    auto *const out = static_cast<char *>(malloc(INI_VALUE_SIZE));
    memset(out, '#', INI_VALUE_SIZE);
    std::string expected;
    const bool found = !key.empty() && find(text, key, expected);
    FUZZ_CHECK((file_get_value_from_ini(kFile, key.c_str(), out) != 0) == found);
    if (found) {
        FUZZ_CHECK(strnlen(out, INI_VALUE_SIZE) < INI_VALUE_SIZE && expected == out);
    } else {
        FUZZ_CHECK(std::all_of(out, out + INI_VALUE_SIZE, [](char c) { return c == '#'; }));
    }
    free(out);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text{reinterpret_cast<const char *>(data), size};
    fuzz::write_file(kFile, data, size);
    check(text, "ip");
    // A key that stands in the file, most of the time.
    check(text, text.substr(0, text.find('=')).c_str());
    const std::size_t second = text.find('\n');
    if (second != std::string::npos) {
        check(text, text.substr(second + 1, 3).c_str());
    }
    return 0;
}
