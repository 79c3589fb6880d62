// SPDX-License-Identifier: MIT
#include "internal/log.hpp"

namespace prod
{

void log_failure(Site site, int err, const char *format, ...)
{
    Text<kLogLineSize> what;
    va_list args;
    va_start(args, format);
    what.vappend(format, args);
    va_end(args);
    PROD_LOG_ERROR_AT(site, kProd, "Failed(%d) to %s, %s.", err, what.c_str(), strerror(err));
}

}  // namespace prod
