// SPDX-License-Identifier: MIT
#include "platform/cfm.h"

#include <cstring>

#include "cfm_file.hpp"
#include "cfm_store.hpp"
#include "cfm_tool.h"

using platform::Buffer;
using platform::ConfigSummary;
using platform::Store;

namespace
{

/** A key to look up: one byte too many is enough to know that it is none. */
std::string_view key_text(const char *key)
{
    return {key, key != nullptr ? strnlen(key, CFM_KEY_MAX + 1) : 0};
}

/** Whether a text can be the name of a stored value, at the price of its length only. */
bool can_be_stored(std::string_view key)
{
    return !key.empty() && key.size() <= CFM_KEY_MAX;
}

}  // namespace

int GetValue(const char *key, char *value)
{
    const std::string_view name = key_text(key);
    if (!can_be_stored(name) || value == nullptr) {
        return 0;
    }
    Store *const store = Store::open();
    return store != nullptr && store->read(name, value) ? 1 : 0;
}

int SetValue(const char *key, const char *value)
{
    const std::string_view name = key_text(key);
    if (!can_be_stored(name) || value == nullptr) {
        return 0;
    }
    Store *const store = Store::open();
    if (store == nullptr) {
        return 0;
    }
    const std::string_view text{value, strnlen(value, CFM_VALUE_SIZE)};
    if (store->holds(name, text)) {
        return 1;
    }
    return platform::is_key(name) && platform::is_value(text) && store->put(name, text) ? 1 : 0;
}

int UnSetValue(const char *key)
{
    const std::string_view name = key_text(key);
    Store *const store = can_be_stored(name) ? Store::open() : nullptr;
    return store != nullptr && store->remove(name) ? 1 : 0;
}

int CommitCfm(void)
{
    Store *const store = Store::open();
    return store != nullptr && store->commit() ? 1 : 0;
}

int RestoreValue(void)
{
    Buffer defaults;
    if (!platform::read_file(platform::kDefaultsFile, defaults, platform::kLargestConfig) ||
        ConfigSummary{defaults.view()}.settings == 0) {
        return 0;
    }
    Store *const store = Store::open();
    return store != nullptr && store->replace(defaults.view()) ? 1 : 0;
}

int cfm_show(char **text, size_t *size)
{
    Buffer all;
    Store *const store = Store::open();
    if (text == nullptr || size == nullptr || store == nullptr || !all.reserve(1) ||
        !store->dump(all)) {
        return 0;
    }
    *size = all.view().size();
    *text = all.release();
    return 1;
}

int cfm_upload(const char *text, size_t size)
{
    const std::string_view all{text, text != nullptr ? size : 0};
    const ConfigSummary summary{all};
    if (!summary.sound || summary.settings == 0) {
        return 0;
    }
    Store *const store = Store::open();
    return store != nullptr && store->replace(all) ? 1 : 0;
}
