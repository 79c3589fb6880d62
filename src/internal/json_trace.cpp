// SPDX-License-Identifier: MIT
#include "internal/json_trace.hpp"

#include <cstdio>
#include <ctime>
#include <memory>

#include "internal/handle.hpp"

namespace prod
{

void json_trace(Site site, const cJSON *object)
{
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    const std::unique_ptr<char, Closer<cJSON_free>> printed{cJSON_Print(object)};
    // Objects have no longest size, so this goes through stdio.
    printf("\033[0m[%02d%02d %02d:%02d:%02d] \033[0m", local.tm_mon + 1, local.tm_mday,
           local.tm_hour, local.tm_min, local.tm_sec);
    printf("\033[1;%d;%dm%04d %-20.20s: >>>> %s <<<<\n\033[0m", kBackground, kMagenta, site.line,
           site.func, printed != nullptr ? printed.get() : "[PTRACE_JSON: fail]");
    fflush(stdout);
}

}  // namespace prod
