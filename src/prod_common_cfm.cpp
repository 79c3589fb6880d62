// SPDX-License-Identifier: MIT
#include "prod_common_cfm.h"

#include <atomic>
#include <cstring>

#include "internal/config.hpp"
#include "internal/console.hpp"
#include "internal/log.hpp"
#include "platform/debug.h"

using namespace prod;

// The store's own function: this library is linked with --wrap=SetValue.
extern "C" int __real_SetValue(const char *key, const char *value);

namespace
{

constexpr const char *kCfm = "cfm";

// Sizes of numbers as text, which decide where a long one is cut.
constexpr std::size_t kIntSize = 21;
constexpr std::size_t kDoubleSize = 21;
constexpr std::size_t kUint64Size = 43;
constexpr std::size_t kReadUint64Size = 21;
constexpr std::size_t kReadDoubleSize = 43;

/** Real changes of the store by this process; only zero against non-zero is ever asked. */
constinit std::atomic<int> cfm_val_change = 0;

void count_change()
{
    cfm_val_change.fetch_add(1, std::memory_order_relaxed);
}

/** Shows which code path changed which key from which value to which. */
void trace_write(const char *key, const char *old_value, const char *value)
{
    // No longer key or value can be stored.
    console_print("\033[1;%d;%dm#### [SET] %.511s: %s -> %.2307s\n\033[0m", kBackground, kBlue, key,
                  old_value, value);
    show_backtrace();
}

static_assert(CFM_KEY_MAX == 511 && CFM_VALUE_SIZE == 2308, "the trace cuts there");

}  // namespace

void prod_cfm_init(void)
{
    cfm_val_change.store(0, std::memory_order_relaxed);
}

int prod_cfm_is_change(void)
{
    return cfm_val_change.load(std::memory_order_relaxed) != 0 ? 1 : 0;
}

int prod_cfm_get_val(const char *name, char *value)
{
    return GetValue(name, value);
}

int prod_cfm_get_fmt_val(const char *fmt, char *value, ...)
{
    va_list args;
    va_start(args, value);
    const auto key = format_key(fmt, args);
    va_end(args);
    return prod_cfm_get_val(key.c_str(), value);
}

int prod_cfm_unset_val(const char *key)
{
    if (key == nullptr || ConfigValue{key}.empty()) {
        return 0;
    }
    count_change();
    UnSetValue(key);
    return 1;
}

int prod_cfm_set_val(const char *key, const char *val)
{
    if (key == nullptr || val == nullptr || ConfigValue{key} == val) {
        return 0;
    }
    // Whether the store takes it is not asked: what counts is that the value was another.
    __wrap_SetValue(key, val);
    count_change();
    return 1;
}

int prod_cfm_set_fmt_val(const char *fmt, const char *value, ...)
{
    if (fmt == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, value);
    const auto key = format_key(fmt, args);
    va_end(args);
    return prod_cfm_set_val(key.c_str(), value);
}

int set_if_changed(const char *pMibName, const char *pNewMibValue, char *pOldMibValue)
{
    if (pMibName == nullptr || pNewMibValue == nullptr || pOldMibValue == nullptr) {
        return -1;
    }
    GetValue(pMibName, pOldMibValue);
    if (strcmp(pNewMibValue, pOldMibValue) == 0) {
        return 0;
    }
    prod_cfm_set_val(pMibName, pNewMibValue);
    return 1;
}

int set_fmt_val_if_changed(const char *fmt, const char *pNewMibValue, ...)
{
    if (fmt == nullptr || pNewMibValue == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, pNewMibValue);
    const auto key = format_key(fmt, args);
    va_end(args);
    if (ConfigValue{key.c_str()} == pNewMibValue) {
        return 0;
    }
    prod_cfm_set_val(key.c_str(), pNewMibValue);
    return 1;
}

int prod_cfm_get_int_val(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    return config_int(key.c_str());
}

u64 prod_cfm_get_uint_val(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    return static_cast<u64>(ConfigValue{key.c_str(), kReadUint64Size}.to_long_long());
}

double prod_cfm_get_double_val(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const auto key = format_key(fmt, args);
    va_end(args);
    return ConfigValue{key.c_str(), kReadDoubleSize}.to_double();
}

int prod_cfm_set_int_val(const char *name, int value)
{
    return prod_cfm_set_val(name, Text<kIntSize>{"%d", value}.c_str());
}

int prod_cfm_set_fmt_int_val(const char *fmt, int value, ...)
{
    if (fmt == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, value);
    const auto key = format_key(fmt, args);
    va_end(args);
    return prod_cfm_set_int_val(key.c_str(), value);
}

int prod_cfm_set_double_val(const char *name, double value)
{
    return prod_cfm_set_val(name, Text<kDoubleSize>{"%f", value}.c_str());
}

int prod_cfm_set_uint64_val(const char *name, u64 value)
{
    return prod_cfm_set_val(name, Text<kUint64Size>{"%llu", value}.c_str());
}

int prod_cfm_commit(void)
{
    return CommitCfm();
}

int __wrap_SetValue(const char *key, const char *value)
{
    if (key == nullptr || value == nullptr) {
        return 0;
    }
    const ConfigValue old_value{key};
    if (old_value == value) {
        return 1;
    }
    if (dbg_enabled(kCfm, PROD_DBG_INFO)) {
        trace_write(key, old_value.c_str(), value);
    }
    return __real_SetValue(key, value);
}

int lanx_to_sw_port(int lanid)
{
    return lanid;
}

int wanid_to_sw_port(int wanid)
{
    return wanid;
}

char *encode_sql_ssid(const char *ssid, int ssid_len, char *encode_ssid)
{
    if (ssid == nullptr || ssid_len == 0 || encode_ssid == nullptr) {
        return nullptr;
    }
    char *out = encode_ssid;
    for (int i = 0; i < ssid_len; ++i) {
        if (ssid[i] == '\'') {
            *out++ = '\'';
        }
        *out++ = ssid[i];
    }
    return encode_ssid;  // not terminated: deliberate, the caller's buffer is zeroed
}
