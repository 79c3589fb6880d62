// SPDX-License-Identifier: MIT
#include "support/config.hpp"

#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>

namespace
{

struct Store {
    test::Config working;
    test::Config committed;
    test::Config defaults;
    std::optional<std::string> fallback;
    test::ConfigCalls calls;
    test::ConfigFaults faults;
    std::vector<std::string> keys_read;
};

Store &store()
{
    static Store the_store;
    return the_store;
}

std::mutex mutex;

bool possible_text(const char *text, std::size_t longest)
{
    return text != nullptr && strlen(text) <= longest && strpbrk(text, "\r\n") == nullptr;
}

bool possible_key(const char *key)
{
    return possible_text(key, CFM_KEY_MAX) && *key != '\0';
}

/** What can be stored; a read of another key only finds nothing. */
bool storable_key(const char *key)
{
    return possible_key(key) && *key != '#' && strchr(key, '=') == nullptr;
}

}  // namespace

extern "C" {

int GetValue(const char *key, char *value)
{
    const std::lock_guard lock{mutex};
    Store &s = store();
    ++s.calls.reads;
    s.keys_read.emplace_back(key != nullptr ? key : "(null)");
    if (s.faults.reads || !possible_key(key) || value == nullptr) {
        return 0;
    }
    const auto entry = s.working.find(key);
    if (entry == s.working.end() && !s.fallback) {
        return 0;
    }
    const std::string_view text = entry != s.working.end() ? entry->second : *s.fallback;
    const std::size_t length = text.substr(0, CFM_VALUE_SIZE - 1).size();
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return 1;
}

int SetValue(const char *key, const char *value)
{
    const std::lock_guard lock{mutex};
    Store &s = store();
    ++s.calls.writes;
    if (s.faults.writes || !storable_key(key) || !possible_text(value, CFM_VALUE_SIZE - 1)) {
        return 0;
    }
    s.working[key] = value;
    return 1;
}

int UnSetValue(const char *key)
{
    const std::lock_guard lock{mutex};
    Store &s = store();
    ++s.calls.removals;
    return !s.faults.removals && key != nullptr && s.working.erase(key) != 0 ? 1 : 0;
}

int CommitCfm(void)
{
    const std::lock_guard lock{mutex};
    Store &s = store();
    ++s.calls.commits;
    if (s.faults.commits) {
        return 0;
    }
    s.committed = s.working;
    return 1;
}

int RestoreValue(void)
{
    const std::lock_guard lock{mutex};
    Store &s = store();
    ++s.calls.restores;
    if (s.faults.restores || s.defaults.empty()) {
        return 0;
    }
    s.working = s.defaults;
    s.committed = s.defaults;
    return 1;
}
}

namespace test
{

Config &config()
{
    return store().working;
}

Config &committed_config()
{
    return store().committed;
}

Config &factory_defaults()
{
    return store().defaults;
}

void reset_config()
{
    store() = {};
}

std::string longest_value(char c)
{
    return std::string(CFM_VALUE_SIZE - 1, c);
}

EveryKeyReads::EveryKeyReads(std::string value)
{
    store().fallback = std::move(value);
}

EveryKeyReads::~EveryKeyReads()
{
    store().fallback.reset();
}

ConfigCalls &config_calls()
{
    return store().calls;
}

const std::vector<std::string> &keys_read()
{
    return store().keys_read;
}

ConfigFaults &config_faults()
{
    return store().faults;
}

}  // namespace test
