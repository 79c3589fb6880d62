// SPDX-License-Identifier: MIT
#include "prod_common_systool.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>

#include "internal/console.hpp"
#include "internal/daemons.hpp"
#include "internal/line_reader.hpp"
#include "internal/local_time.hpp"
#include "internal/log.hpp"
#include "internal/shell.hpp"
#include "internal/text.hpp"
#include "platform/process.h"
#include "prod_common_time.h"

using namespace prod;

namespace
{

// ---- configuration backup -------------------------------------------------------------------

// ---- figures --------------------------------------------------------------------------------

constexpr const char *kMemoryFile = "/proc/meminfo";
constexpr const char *kCpuFile = "/proc/stat";
constexpr std::size_t kMemoryLine = 63;
constexpr std::size_t kCpuLine = 255;  // ten numbers of any size

/** What follows the first word of a line, or nullptr when it has none. */
const char *behind_first_word(const char *line)
{
    constexpr const char *kBlanks = " \t\n\v\f\r";
    line += strspn(line, kBlanks);
    const std::size_t length = strcspn(line, kBlanks);
    return length > 0 ? line + length : nullptr;
}

/** The number behind the name of a line "MemTotal:  16384 kB". */
std::optional<long long> figure_of(const char *line)
{
    const char *rest = line != nullptr ? behind_first_word(line) : nullptr;
    return rest != nullptr ? take_number(rest, "") : std::nullopt;
}

/** What the processors have done since the device started, in ticks. */
struct Jiffies {
    long long total = 0;
    long long idle = 0;
};

/**
 * Reads the line of all processors together: user, nice, system, idle and six more, the last of
 * which older kernels lack.
 * @return how many numbers the line has
 */
int read_jiffies(const char *line, Jiffies &jiffies)
{
    constexpr int kIdle = 3;
    constexpr int kNumbers = 10;
    constexpr long long kMost = 1LL << 50;  // ages; ten of them a hundredfold still fit
    jiffies = {};
    const char *rest = line != nullptr ? behind_first_word(line) : nullptr;
    int count = 0;
    for (; rest != nullptr && count < kNumbers; ++count) {
        char *end;
        const long long number = std::clamp(strtoll(rest, &end, 10), 0LL, kMost);
        if (end == rest) {
            break;
        }
        rest = end;
        jiffies.total += number;
        if (count == kIdle) {
            jiffies.idle = number;
        }
    }
    return count;
}

/** The share of the time between two samples in which the processors were not idle. */
int load_between(const Jiffies &one, const Jiffies &other)
{
    const long long passed = std::abs(one.total - other.total);
    const long long idle = std::abs(one.idle - other.idle);
    // One more, so that no time at all is no load.
    return static_cast<int>(std::clamp((passed - idle) * 100 / (passed + 1), 0LL, 100LL));
}

/** What the process remembers between two questions for the load. */
struct CpuLoad {
    Jiffies samples[2];
    unsigned int count = 0;  // of samples taken; the next one goes to its last bit's place
    u64 last_ms = 0;
    int percent = 0;
};

}  // namespace

// ---- configuration backup -------------------------------------------------------------------

// ---- figures --------------------------------------------------------------------------------

HLX_RETURN_CODE systool_get_memInfo(int *memuse)
{
    if (memuse == nullptr) {
        return HLX_ERR;
    }
    LineReader<kMemoryLine> lines{kMemoryFile};
    if (!lines.is_open()) {
        PROD_LOG_ERROR(kProd, "getMemInfo: open file error.");
        return HLX_ERR;
    }
    const std::optional<long long> total = figure_of(lines.next());
    const std::optional<long long> free_kb = figure_of(lines.next());
    *memuse = total && free_kb && *total != 0 ? static_cast<int>((*total - *free_kb) * 100 / *total)
                                              : 100;
    return HLX_OK;
}

int systool_get_memfree(void)
{
    LineReader<kMemoryLine> lines{kMemoryFile};
    lines.next();  // the total
    return static_cast<int>(figure_of(lines.next()).value_or(-1));
}

int systool_get_cpu_percent(void)
{
    constexpr u64 kFreshMs = 949;
    constexpr u64 kStaleMs = 3600001;
    constexpr u64 kWhileAgoMs = 10000;  // neither fresh nor stale
    static CpuLoad load;

    for (;;) {
        const u64 now = get_now_ms();
        const bool first = load.count == 0;
        if (!first && now - load.last_ms <= kFreshMs) {
            return load.percent;
        }
        LineReader<kCpuLine> lines{kCpuFile};
        if (!lines.is_open()) {
            const int err = errno;
            PROD_LOG_ERROR(kProd, "Failed(%d) to fopen, %s.", err, strerror(err));
            return 0;
        }
        if (read_jiffies(lines.next(), load.samples[load.count & 1]) < 4) {
            return 0;
        }
        load.percent = load_between(load.samples[0], load.samples[1]);
        ++load.count;
        if (!first && now - load.last_ms < kStaleMs) {
            load.last_ms = now;
            return load.percent;
        }
        // The other sample is none, or of another time: a second one is taken in a second.
        load.last_ms = now - kWhileAgoMs;
        sleep(1);
    }
}

void systool_get_curtime(char *CurDatetime)
{
    if (CurDatetime == nullptr) {
        return;
    }
    const std::optional<struct tm> now = local_time(time(nullptr));
    if (!now) {
        copy_text(CurDatetime, PROD_CURTIME_SIZE, "2007-09-06 10:01:06");
        return;
    }
    const Text<PROD_CURTIME_SIZE> text{"%04d-%02d-%02d %02d:%02d:%02d",
                                       now->tm_year + 1900,
                                       now->tm_mon + 1,
                                       now->tm_mday,
                                       now->tm_hour,
                                       now->tm_min,
                                       now->tm_sec};
    copy_text(CurDatetime, PROD_CURTIME_SIZE, text.view());
}

// ---- reboot ---------------------------------------------------------------------------------

void systool_reboot(void)
{
    pthread_t thread;
    const int err = pthread_create(&thread, nullptr, systool_reboot_thread, nullptr);
    if (err != 0) {
        PROD_LOG_ERROR(kProd, "Failed(%d) to start the reboot, %s.", err, strerror(err));
        return;
    }
    pthread_detach(thread);
}

void *systool_reboot_thread(void *)
{
    proc_send_signal(kL2tpPppDaemon, SIGHUP);  // it hangs up
    sleep(3);
    monitor_stop(kMultiWanManager);
    sleep(2);
    console_line(PROD_SITE, kYellow, "rebooting ...");
    run_command("date;reboot");
    return nullptr;
}
