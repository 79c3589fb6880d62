// SPDX-License-Identifier: MIT
#include "prod_common_time.h"

#include <gtest/gtest.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include "support/capture.hpp"
#include "support/commands.hpp"
#include "support/config.hpp"
#include "support/files.hpp"
#include "support/interpose.hpp"
#include "support/time.hpp"

using test::config;
using test::log_line;
using test::printed;
using test::printed_at;
using test::Prints;
using test::RecordedCommands;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

bool sysinfo_fails;
bool localtime_fails;

constexpr const char *kLink = "/etc/localtime";

/** Where the zone link points. */
std::string linked_zone()
{
    char target[256];
    const ssize_t length = readlink(kLink, target, sizeof(target));
    return length < 0 ? "" : std::string(target, static_cast<std::size_t>(length));
}

/** The TZ that an offset gives, with the device's zone left alone. */
std::string tz_for(const std::string &offset)
{
    const RecordedCommands commands;
    config()["sys.timezone.offset"] = offset;
    set_timezone_env();
    return getenv("TZ");
}

class Time : public testing::Test
{
  protected:
    ~Time() override
    {
        unsetenv("TZ");
        test::remove_all(kLink);
        tzset();
    }

    test::FreshConfig config_;
};

struct Row {
    int offset;
    std::string zone;
};

const Row kRows[] = {
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

}  // namespace

extern "C" int sysinfo(struct sysinfo *info) noexcept
{
    if (sysinfo_fails) {
        errno = EFAULT;
        return -1;
    }
    static const auto real = test::next(sysinfo, "sysinfo");
    return real(info);
}

extern "C" struct tm *localtime_r(const time_t *when, struct tm *local) noexcept
{
    static const auto real = test::next(localtime_r, "localtime_r");
    return localtime_fails ? nullptr : real(when, local);
}

namespace
{

TEST_F(Time, TheMonotonicClockInTwoUnits)
{
    test::SimulatedTime time{1234};
    time.pass(0.567891);
    EXPECT_EQ(get_now_us(), 1234567891U);
    EXPECT_EQ(get_now_ms(), 1234567U);
}

TEST_F(Time, TheClockIsTheMonotonicOne)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const u64 us = get_now_us();
    const u64 ms = get_now_ms();
    const auto before =
        static_cast<u64>(now.tv_sec) * 1000000 + static_cast<u64>(now.tv_nsec) / 1000;
    EXPECT_GE(us, before);
    EXPECT_LT(us, before + 10000000);
    EXPECT_GE(ms, us / 1000);
    EXPECT_LT(ms, us / 1000 + 10000);
}

TEST_F(Time, Uptime)
{
    const auto kernels = [] {
        return static_cast<int>(strtod(test::read_text("/proc/uptime").c_str(), nullptr));
    };
    const int before = kernels();
    const int up_time = get_sys_uptime();
    EXPECT_GE(up_time, before);
    EXPECT_LE(up_time, kernels() + 1);
}

TEST_F(Time, UptimeUnknown)
{
    sysinfo_fails = true;
    EXPECT_THAT(printed([] { EXPECT_EQ(get_sys_uptime(), 0); }),
                Prints(log_line(PROD_DBG_ERROR, "get_sys_uptime",
                                "Failed(14) to get sysinfo, Bad address.")));
    sysinfo_fails = false;
}

TEST_F(Time, DatesOfNow)
{
    const test::SimulatedTime time{1000000000};
    EXPECT_STREQ(get_date_str(), "2001-09-09");
    EXPECT_STREQ(get_datetime_str(), "2001-09-09 01:46:40");
    setenv("TZ", "GMT+2", 1);
    EXPECT_STREQ(get_date_str(), "2001-09-08");
    EXPECT_STREQ(get_datetime_str(), "2001-09-08 23:46:40");
}

TEST_F(Time, DatesOfASecond)
{
    EXPECT_STREQ(get_date_str_by_sec(0), "1970-01-01");
    EXPECT_STREQ(get_datetime_str_by_sec(0), "1970-01-01 00:00:00");
    EXPECT_STREQ(get_date_str_by_sec(INT_MAX), "2038-01-19");
    EXPECT_STREQ(get_datetime_str_by_sec(INT_MAX), "2038-01-19 03:14:07");
    EXPECT_STREQ(get_date_str_by_sec(-1), "1969-12-31");
    EXPECT_STREQ(get_datetime_str_by_sec(INT_MIN), "1901-12-13 20:45:52");
    setenv("TZ", "GMT-8", 1);
    EXPECT_STREQ(get_datetime_str_by_sec(0), "1970-01-01 08:00:00");
}

TEST_F(Time, EachDateFunctionHasItsOwnText)
{
    const char *const date = get_date_str();
    const char *const datetime = get_datetime_str();
    const char *const date_by_sec = get_date_str_by_sec(0);
    const char *const datetime_by_sec = get_datetime_str_by_sec(0);
    EXPECT_EQ(get_date_str(), date);
    EXPECT_EQ(get_date_str_by_sec(86400), date_by_sec);
    EXPECT_STREQ(date_by_sec, "1970-01-02");
    EXPECT_STREQ(datetime_by_sec, "1970-01-01 00:00:00");
    EXPECT_NE(date, date_by_sec);
    EXPECT_NE(datetime, datetime_by_sec);
}

TEST_F(Time, ATimeThatCannotBeShownIsEmpty)
{
    localtime_fails = true;
    EXPECT_STREQ(get_date_str(), "");
    EXPECT_STREQ(get_datetime_str(), "");
    EXPECT_STREQ(get_date_str_by_sec(0), "");
    EXPECT_STREQ(get_datetime_str_by_sec(0), "");
    localtime_fails = false;
    // A year of more than four digits is cut to the room there is. A clock of 32 bits has none.
    if constexpr (sizeof(time_t) > sizeof(std::int32_t)) {
        const test::SimulatedTime time{static_cast<time_t>(4000000000000)};
        EXPECT_STREQ(get_date_str(), "128724-12-15");
        EXPECT_STREQ(get_datetime_str(), "128724-12-15 07:06:");
    }
}

TEST_F(Time, TzCountsWholeHoursWestward)
{
    EXPECT_EQ(tz_for("3600"), "GMT-1");
    EXPECT_EQ(tz_for("28800"), "GMT-8");
    EXPECT_EQ(tz_for("43200"), "GMT-12");
    EXPECT_EQ(tz_for("19800"), "GMT-5");  // the half hour is in the zone file only
    EXPECT_EQ(tz_for("1"), "GMT-0");
    EXPECT_EQ(tz_for("-3600"), "GMT+1");
    EXPECT_EQ(tz_for("-43200"), "GMT+12");
    EXPECT_EQ(tz_for("-1800"), "GMT+0");
    EXPECT_EQ(tz_for("-1"), "GMT+0");
}

TEST_F(Time, TzWithoutAnOffsetOrBeyondTwelveHours)
{
    const RecordedCommands commands;
    set_timezone_env();
    EXPECT_STREQ(getenv("TZ"), "GMT");
    for (const char *const offset :
         {"0", "", "soon", "46800", "43201", "-43201", "-46800", "2147483647", "-2147483648"}) {
        EXPECT_EQ(tz_for(offset), "GMT") << offset;
    }
}

TEST_F(Time, AnOffsetBeyondTwelveHoursCountsAsZero)
{
    config()["sys.timezone.offset"] = "46800";
    const RecordedCommands commands;
    set_timezone_env();
    EXPECT_THAT(commands.all(), ElementsAre("ln -s /usr/bin/zoneinfo/Africa/Dakar /etc/localtime"));
}

TEST_F(Time, EnvironmentAndLinkFollowTheConfiguration)
{
    config()["sys.timezone.offset"] = "19800";
    set_timezone_env();
    EXPECT_STREQ(getenv("TZ"), "GMT-5");
    EXPECT_EQ(linked_zone(), "/usr/bin/zoneinfo/Asia/Colombo");
    EXPECT_EQ(timezone, -5 * 3600);  // tzset() has been called
}

TEST_F(Time, OversizedAndHostileOffsets)
{
    config()["sys.timezone.offset"] = "3600;touch /tmp/ran";
    set_timezone_env();  // its commands run
    EXPECT_STREQ(getenv("TZ"), "GMT-1");
    EXPECT_EQ(linked_zone(), "/usr/bin/zoneinfo/Africa/Kinshasa");
    EXPECT_FALSE(test::exists("/tmp/ran"));
    {
        const test::EveryKeyReads any{test::longest_value('0')};
        const RecordedCommands commands;
        config().erase("sys.timezone.offset");
        set_timezone_env();
        EXPECT_STREQ(getenv("TZ"), "GMT");
    }
    // Only the first 127 characters count.
    EXPECT_EQ(tz_for(std::string(126, '0') + "36000"), "GMT-0");
}

TEST_F(Time, EveryOffsetHasItsZone)
{
    for (const Row &row : kRows) {
        const std::string file = "/usr/bin/zoneinfo/" + row.zone;
        EXPECT_TRUE(test::exists(file)) << file;
        const RecordedCommands commands;
        EXPECT_EQ(printed([&] { set_timezone_str(row.offset); }), "");
        EXPECT_THAT(commands.all(), ElementsAre("ln -s " + file + " /etc/localtime"));
    }
    EXPECT_EQ(std::size(kRows), 26U);
}

TEST_F(Time, AnExistingLinkIsRemovedFirst)
{
    test::write_text(kLink, "");
    const RecordedCommands commands;
    set_timezone_str(3600);
    EXPECT_THAT(commands.all(),
                ElementsAre("rm -rf /etc/localtime",
                            "ln -s /usr/bin/zoneinfo/Africa/Kinshasa /etc/localtime"));
}

TEST_F(Time, TheCommandIsLogged)
{
    const RecordedCommands commands;
    EXPECT_THAT(printed_at(PROD_DBG_DEBUG, [] { set_timezone_str(-10800); }),
                Prints(log_line(PROD_DBG_DEBUG, "set_timezone_str",
                                "cmd_str:[ln -s "
                                "/usr/bin/zoneinfo/America/Argentina/Buenos_Aires "
                                "/etc/localtime]")));
}

TEST_F(Time, OtherOffsetsChangeNothing)
{
    for (const int offset : {16200, 20700, 1, -1, 46800, -46800, INT_MAX, INT_MIN}) {
        const RecordedCommands commands;
        test::write_text(kLink, "as it was");
        EXPECT_THAT(printed([&] { set_timezone_str(offset); }),
                    Prints(log_line(PROD_DBG_ERROR, "set_timezone_str",
                                    "time_zone:[" + std::to_string(offset) + "] error")));
        EXPECT_THAT(commands.all(), IsEmpty());
    }
    config()["sys.timezone.offset"] = "16200";
    EXPECT_THAT(printed([] { set_timezone_env(); }),
                Prints(log_line(PROD_DBG_ERROR, "set_timezone_str", "time_zone:[16200] error")));
    EXPECT_STREQ(getenv("TZ"), "GMT-4");
    EXPECT_EQ(test::read_text(kLink), "as it was");
}

TEST_F(Time, TheDeviceChangesItsZone)
{
    set_timezone_str(28800);
    EXPECT_EQ(linked_zone(), "/usr/bin/zoneinfo/Asia/Shanghai");
    EXPECT_STREQ(get_datetime_str_by_sec(0), "1970-01-01 08:00:00");
    set_timezone_str(-18000);
    EXPECT_EQ(linked_zone(), "/usr/bin/zoneinfo/America/Bogota");
    EXPECT_STREQ(get_datetime_str_by_sec(0), "1969-12-31 19:00:00");
    const time_t start = 0;
    EXPECT_EQ(localtime(&start)->tm_hour, 19);
}

TEST_F(Time, ADanglingLinkStays)
{
    ASSERT_EQ(symlink("/usr/bin/zoneinfo/No/Such", kLink), 0);
    testing::internal::CaptureStderr();
    set_timezone_str(28800);
    // A link to nothing counts as missing, so it is not removed and the new one cannot be made.
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("File exists"));
    EXPECT_EQ(linked_zone(), "/usr/bin/zoneinfo/No/Such");
}

}  // namespace
