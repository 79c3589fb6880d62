// SPDX-License-Identifier: MIT
// Commands that run while a named lock is held.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "groups.hpp"
#include "ipc/lock.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

// As shells and env(1) answer.
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;

constexpr const char *kTimeout = "--timeout";

bool take(const char *name, std::optional<int> seconds)
{
    return (seconds ? ipc_lock_timeout(*seconds, "%s", name) : ipc_lock("%s", name)) == 1;
}

/**
 * Becomes the command: the lock belongs to the process and stays with it, so it is held until the
 * command ends, however it ends, and signals and the exit status are the command's own.
 */
int become(const Call &call)
{
    std::vector<char *> words;
    for (const char *const word : call.arguments().subspan(1)) {
        words.push_back(const_cast<char *>(word));
    }
    words.push_back(nullptr);
    int err;
    {
        const Console::Passthrough speak;
        execvp(words[0], words.data());
        err = errno;
    }
    ipc_unlock("%s", call[0]);
    static_cast<void>(call.no("cannot run '%s': %s", call[1], strerror(err)));
    return err == ENOENT ? kNotFound : kCannotRun;
}

int run_run(const Call &call, cJSON *)
{
    std::optional<int> seconds;
    if (!call.read_number(kTimeout, 0, kDay, seconds)) {
        return kUsage;
    }
    if (*call[0] == '\0') {
        return call.usage("a lock's name cannot be empty");
    }
    if (!take(call[0], seconds)) {
        return call.no("the lock '%s' was not to be had in time", call[0]);
    }
    return become(call);
}

constexpr Option kRunOptions[] = {
    {kTimeout, "SECONDS", "give up after that time; 0 tries once (default: wait without limit)"},
};

constexpr Command kCommands[] = {
    {.name = "run",
     .summary = "Run a command while holding a named lock",
     .arguments = "NAME -- COMMAND [ARGUMENT...]",
     .min_arguments = 2,
     .max_arguments = kAny,
     .details =
         "The lock is the one that the device's daemons mean by NAME, where / counts as _.\n"
         "It is held until COMMAND ends, however it ends; what COMMAND started in the\n"
         "background does not hold it. Input, output and exit status are COMMAND's own: 126\n"
         "when it cannot be run, 127 when it is not found. --json is for a failure only.",
     .yes = "the command ended with 0",
     .no = "the lock was not to be had in time, or the command ended with 1",
     .run = run_run,
     .options = kRunOptions},
};

}  // namespace

constinit const Command kLockGroup = {
    .name = "lock",
    .summary = "Named locks between the device's programs",
    .children = kCommands,
};

}  // namespace prodctl
