// SPDX-License-Identifier: MIT
#include "platform/debug.h"

#include <dlfcn.h>
#include <syslog.h>
#include <unwind.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace
{

constexpr int kDeepest = 64;

struct Walk {
    int frame;
};

void print_frame(int number, std::uintptr_t address)
{
    Dl_info where{};
    auto *const code = reinterpret_cast<void *>(address);  // NOLINT(performance-no-int-to-ptr)
    if (dladdr(code, &where) == 0 || where.dli_fname == nullptr) {
        printf("#%-2d %p\n", number, code);
    } else if (where.dli_sname != nullptr) {
        printf(
            "#%-2d %p %s+0x%zx (%s)\n", number, code, where.dli_sname,
            static_cast<std::size_t>(address - reinterpret_cast<std::uintptr_t>(where.dli_saddr)),
            where.dli_fname);
    } else {
        printf(
            "#%-2d %p (%s+0x%zx)\n", number, code, where.dli_fname,
            static_cast<std::size_t>(address - reinterpret_cast<std::uintptr_t>(where.dli_fbase)));
    }
}

_Unwind_Reason_Code visit(_Unwind_Context *context, void *data)
{
    auto *const walk = static_cast<Walk *>(data);
    const std::uintptr_t address = _Unwind_GetIP(context);
    if (address == 0 || walk->frame == kDeepest) {
        return _URC_END_OF_STACK;
    }
    if (walk->frame > 0) {  // the first is show_backtrace() itself
        print_frame(walk->frame - 1, address);
    }
    ++walk->frame;
    return _URC_NO_REASON;
}

}  // namespace

// The unwinder is linked in: backtrace() of the C library would load and allocate at first use.
void show_backtrace(void)
{
    Walk walk{0};
    _Unwind_Backtrace(visit, &walk);
    fflush(stdout);
}

void log_debug_print(const char *function, int line, int level, const char *module,
                     const char *format, ...)
{
    if (function == nullptr || module == nullptr || format == nullptr) {
        return;
    }
    constexpr int kErrorLevel = 2;
    char message[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    syslog(level == kErrorLevel ? LOG_ERR : LOG_DEBUG, "[%s.%d] %d %s: %s", module, level, line,
           function, message);
}
