// SPDX-License-Identifier: MIT
// Logging inside the library. Exported functions use the PROD_LOG_* macros of the public header;
// inner functions are handed the exported function's Site, so that a line always names the
// function that a caller knows. The locks, the file watcher and the lists report from inner
// functions under names of their own, which operators look for: get_sem_id, do_sema_op, fd_lock_op,
// fnotify_initialize, lock_set, get_effective_route and get_effective_static_route.
#pragma once

#include "internal/console.hpp"
#include "internal/handle.hpp"
#include "prod_common_debug.h"

namespace prod
{

/** The module that most messages of the library belong to. */
inline constexpr const char *kProd = "prod";

#define PROD_LOG_ERROR_AT(site, module, ...) \
    prod_debug((site).func, (site).line, PROD_DBG_ERROR, (module), __VA_ARGS__)

#define PROD_LOG_GATED_AT(site, level, module, ...)                               \
    do {                                                                          \
        if (get_dbg_level(module) >= (level)) {                                   \
            prod_debug((site).func, (site).line, (level), (module), __VA_ARGS__); \
        }                                                                         \
    } while (0)

/** Room for the longest log line. */
inline constexpr std::size_t kLogLineSize = 10240;

/**
 * Writes the error line of a failed call: "Failed(2) to open /tmp/x, No such file or directory."
 * @param err     errno, or what else stands for the reason
 * @param format  what was tried
 */
PROD_PRINTF(3, 4) void log_failure(Site site, int err, const char *format, ...);

/** Whether a module talks at @p level and above: for output that is not a log line. */
inline bool dbg_enabled(const char *module, prod_dbg_lvl_t level)
{
    return get_dbg_level(module) >= level;
}

/**
 * Entry and exit traces of a function. The exit line is written only on the paths that say so,
 * with the result on its way out: "return trace.leave(HLX_OK);".
 */
class FunctionTrace
{
  public:
    explicit FunctionTrace(Site site, const char *module = kProd) : site_(site), module_(module)
    {
        PROD_LOG_GATED_AT(site_, PROD_DBG_TRACE, module_, "ENTER >>> %s", site_.func);
    }

    void leave() const
    {
        const ErrnoKeeper keep;
        PROD_LOG_GATED_AT(site_, PROD_DBG_TRACE, module_, "LEAVE <<< %s", site_.func);
    }

    template <typename T>
    T leave(T result) const
    {
        leave();
        return result;
    }

  private:
    Site site_;
    const char *module_;
};

}  // namespace prod
