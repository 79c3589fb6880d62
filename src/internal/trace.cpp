// SPDX-License-Identifier: MIT
#include "internal/trace.hpp"

#include <cstdio>
#include <ctime>

#include "internal/local_time.hpp"
#include "internal/log.hpp"

namespace prod
{
namespace
{

/** Objects have no longest size, so this goes through stdio. */
void trace_line(Site site, const char *what)
{
    const struct tm local = local_time(time(nullptr)).value_or(tm{});
    printf("\033[0m[%02d%02d %02d:%02d:%02d] \033[0m", local.tm_mon + 1, local.tm_mday,
           local.tm_hour, local.tm_min, local.tm_sec);
    printf("\033[1;%d;%dm%04d %-20.20s: >>>> %s <<<<\n\033[0m", kBackground, kMagenta, site.line,
           site.func, what);
    fflush(stdout);
}

}  // namespace

void json_trace(Site site, const cJSON *object)
{
    const std::unique_ptr<char, Closer<cJSON_free>> printed{cJSON_Print(object)};
    trace_line(site, printed != nullptr ? printed.get() : "[PTRACE_JSON: fail]");
}

void kernel_json_trace(Site site, const cJSON *object)
{
    if (dbg_enabled("kjson", PROD_DBG_DEBUG)) {
        json_trace(site, object);
    }
}

void command_trace(Site site, const char *command)
{
    trace_line(site, command);
}

}  // namespace prod
