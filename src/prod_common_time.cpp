// SPDX-License-Identifier: MIT
#include "prod_common_time.h"

#include <sys/sysinfo.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "internal/config.hpp"
#include "internal/local_time.hpp"
#include "internal/log.hpp"
#include "internal/shell.hpp"
#include "internal/text.hpp"
#include "prod_common_check.h"

using namespace prod;

namespace
{

constexpr const char *kZoneFolder = "/usr/bin/zoneinfo/";
constexpr const char *kZoneLink = "/etc/localtime";
constexpr int kHour = 3600;
constexpr int kFarthestOffset = 12 * kHour;
constexpr std::size_t kDateSize = 20;

struct Zone {
    int offset;  // seconds east of UTC
    const char *name;
};

/**
 * One zone for each offset that the web pages offer, without daylight saving where there is one.
 * The choices are fixed: devices in the field point at these files.
 */
constexpr Zone kZones[] = {
    {-43200, "Pacific/Tongatapu"},
    {-39600, "Pacific/Apia"},
    {-36000, "Pacific/Honolulu"},
    {-32400, "Pacific/Gambier"},
    {-28800, "Pacific/Pitcairn"},
    {-25200, "America/Phoenix"},
    {-21600, "America/Costa_Rica"},
    {-18000, "America/Bogota"},
    {-14400, "America/Guadeloupe"},
    {-10800, "America/Argentina/Buenos_Aires"},
    {-7200, "America/Noronha"},
    {-3600, "Atlantic/Cape_Verde"},
    {0, "Africa/Dakar"},
    {3600, "Africa/Kinshasa"},
    {7200, "Africa/Harare"},
    {10800, "Africa/Mogadishu"},
    {14400, "Indian/Mauritius"},
    {18000, "Asia/Samarkand"},
    {19800, "Asia/Colombo"},
    {21600, "Asia/Dhaka"},
    {25200, "Asia/Vientiane"},
    {28800, "Asia/Shanghai"},
    {32400, "Asia/Tokyo"},
    {36000, "Pacific/Guam"},
    {39600, "Pacific/Noumea"},
    {43200, "Pacific/Nauru"},
};

const char *zone_of(int offset)
{
    for (const Zone &zone : kZones) {
        if (zone.offset == offset) {
            return zone.name;
        }
    }
    return nullptr;
}

u64 monotonic_clock(u64 units_per_second)
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const u64 ns_per_unit = 1000000000 / units_per_second;
    return static_cast<u64>(now.tv_sec) * units_per_second +
           static_cast<u64>(now.tv_nsec) / ns_per_unit;
}

char *format_time(char (&out)[kDateSize], time_t when, bool with_clock)
{
    const std::optional<struct tm> local = local_time(when);
    if (!local) {
        out[0] = '\0';
        return out;
    }
    if (with_clock) {
        copy_text(out, date_time_text(*local).view());
    } else {
        copy_text(out, date_text(*local).view());
    }
    return out;
}

/** The zone in the notation of TZ, which counts hours west of Greenwich. */
Text<128> posix_zone(int offset)
{
    if (offset > 0) {
        return Text<128>{"GMT-%d", offset / kHour};
    }
    return offset < 0 ? Text<128>{"GMT+%d", -(offset / kHour)} : Text<128>{"GMT"};
}

}  // namespace

u64 get_now_us(void)
{
    return monotonic_clock(1000000);
}

u64 get_now_ms(void)
{
    return monotonic_clock(1000);
}

int get_sys_uptime(void)
{
    struct sysinfo info;
    if (sysinfo(&info) != 0) {
        const int err = errno;
        log_failure(PROD_SITE, err, "get sysinfo");
        return 0;
    }
    return static_cast<int>(info.uptime);
}

char *get_date_str(void)
{
    static char text[kDateSize];
    return format_time(text, time(nullptr), false);
}

char *get_datetime_str(void)
{
    static char text[kDateSize];
    return format_time(text, time(nullptr), true);
}

char *get_date_str_by_sec(int sec)
{
    static char text[kDateSize];
    return format_time(text, sec, false);
}

char *get_datetime_str_by_sec(int sec)
{
    static char text[kDateSize];
    return format_time(text, sec, true);
}

void set_timezone_env(void)
{
    int offset = ConfigValue{"sys.timezone.offset", 128}.to_int();
    if (offset < -kFarthestOffset || offset > kFarthestOffset) {
        offset = 0;
    }
    setenv("TZ", posix_zone(offset).c_str(), 1);
    tzset();
    set_timezone_str(offset);
}

void set_timezone_str(int offset)
{
    const char *const zone = zone_of(offset);
    if (zone == nullptr) {
        PROD_LOG_ERROR(kProd, "time_zone:[%d] error\n", offset);
        return;
    }
    if (prod_check_file_exist(kZoneLink) == 1) {
        run_command("rm -rf /etc/localtime");
    }
    const Text<128> command{"ln -s %s%s %s", kZoneFolder, zone, kZoneLink};
    PROD_LOG_DEBUG(kProd, "cmd_str:[%s]", command.c_str());
    run_command(command.c_str());
}
