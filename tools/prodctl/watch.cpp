// SPDX-License-Identifier: MIT
// Files and folders that change, as they change.
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "groups.hpp"
#include "prod_common_fnotify.h"
#include "words.hpp"

namespace prodctl
{

namespace
{

constexpr int kMostChanges = 1000000;
constexpr int kLongestTime = 86400;

constexpr const char *kCount = "--count";
constexpr const char *kTimeout = "--timeout";

struct Change {
    std::string path;
    std::string name;
};

/** What the notification thread hands over. */
class Changes
{
  public:
    void add(const char *path, const char *name)
    {
        const std::lock_guard lock{mutex_};
        pending_.push_back({path, name});
        added_.notify_one();
    }

    using Deadline = std::optional<std::chrono::steady_clock::time_point>;

    /** The next change, or nothing when the time is over. */
    std::optional<Change> next(const Deadline &deadline)
    {
        std::unique_lock lock{mutex_};
        const auto some = [this] { return !pending_.empty(); };
        if (!deadline) {
            added_.wait(lock, some);
        } else if (!added_.wait_until(lock, *deadline, some)) {
            return std::nullopt;
        }
        Change change = std::move(pending_.front());
        pending_.pop_front();
        return change;
    }

  private:
    std::mutex mutex_;
    std::condition_variable added_;
    std::deque<Change> pending_;
};

/** Never destroyed: the notification thread lives until the process ends. */
Changes *changes;

/** A number among the options, nothing when it was not given; false when it is none. */
bool read_option(const Call &call, const char *option, int largest, std::optional<int> &value)
{
    if (!call.given(option)) {
        return true;
    }
    value = number(call.value(option), 1, largest);
    if (!value) {
        static_cast<void>(
            call.usage("'%s' is no number from 1 to %d", call.value(option), largest));
    }
    return value.has_value();
}

bool put(const Change &change)
{
    std::string line = printable(change.path);
    if (!change.name.empty()) {
        line += " " + printable(change.name);
    }
    return Console::pass(line + "\n");
}

int run_watch(const Call &call, cJSON *answer)
{
    std::optional<int> count;
    std::optional<int> seconds;
    if (!read_option(call, kCount, kMostChanges, count) ||
        !read_option(call, kTimeout, kLongestTime, seconds)) {
        return kUsage;
    }
    if (call.json() && !count && !seconds) {
        return call.usage("with --json, --count or --timeout must say when the answer is complete");
    }
    changes = new Changes;  // before the thread that adds to them starts
    for (const char *const path : call.arguments()) {
        if (fnotify_listen(path, [](const char *where, const char *name) {
                changes->add(where, name);
            }) == 0) {
            return call.no("'%s' cannot be watched", path);
        }
    }

    Changes::Deadline deadline;
    if (seconds) {
        deadline = std::chrono::steady_clock::now() + std::chrono::seconds{*seconds};
    }
    cJSON *const list = call.json() ? cJSON_AddArrayToObject(answer, "changes") : nullptr;
    int seen = 0;
    while (!count || seen < *count) {
        const std::optional<Change> change = changes->next(deadline);
        if (!change) {
            break;
        }
        ++seen;
        if (list != nullptr) {
            cJSON *const entry = add_object_to(list);
            add_text(entry, "path", change->path);
            add_text(entry, "name", change->name);
        } else if (!put(*change)) {
            return call.no("cannot write to standard output");
        }
    }
    return seen > 0 && (!count || seen == *count) ? kYes : kNo;
}

constexpr Option kOptions[] = {
    {kCount, "NUMBER", "end after that many changes"},
    {kTimeout, "SECONDS", "end after that time"},
};

}  // namespace

constinit const Command kWatchCommand = {
    .name = "watch",
    .summary = "Tell when files or folders change",
    .arguments = "PATH...",
    .min_arguments = 1,
    .max_arguments = kAny,
    .details =
        "A line for each change: the path as it was given and, for a folder, the name of what\n"
        "was written, created, deleted or moved in it. One change of a program may be several\n"
        "here. It goes on until --count, --timeout or a signal ends it.",
    .yes = "as many changes came as --count says, or any without it",
    .no = "they did not come in time, or a path cannot be watched",
    .run = run_watch,
    .options = kOptions,
    .candidates = "@files",
};

}  // namespace prodctl
